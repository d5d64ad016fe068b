#include "mainthread.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

bool AnswerOfAnotherThread() {
  bool fAnswer = false;
  std::thread([&fAnswer] { fAnswer = OnMainThread(); }).join();
  return fAnswer;
}

// One test, as nothing is forgotten again.
TEST(MainThreadTest, OnlyTheRememberedThreadIsMainAndAnyBeforeThat) {
  EXPECT_TRUE(OnMainThread());
  EXPECT_TRUE(AnswerOfAnotherThread());
  RememberMainThread();
  EXPECT_TRUE(OnMainThread());
  EXPECT_FALSE(AnswerOfAnotherThread());
  std::thread(RememberMainThread).join();
  EXPECT_FALSE(OnMainThread());
}

}  // namespace
