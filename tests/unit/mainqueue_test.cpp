#include "mainqueue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "Diary.h"
#include "NotingAct.h"
#include "ftime.h"
#include "mainthread.h"

namespace {

class MainQueueTest : public testing::Test {
 protected:
  void TearDown() override { g_prBoot = nullptr; }

  Diary rDiary;
  MainQueue rQueue;
};

TEST_F(MainQueueTest, WithoutABootObjectTheMainQueueDeletesUnrun) {
  mainQueue(new NotingAct(rDiary, "a"));
  EXPECT_EQ(rDiary.Notes(), Texts({"a deleted"}));
  mainQueue(nullptr);
}

TEST_F(MainQueueTest, ActionGoesToTheBootObjectOfTheCurrentTry) {
  MainQueue rEarlier;
  g_prBoot = &rEarlier;
  g_prBoot = &rQueue;
  mainQueue(new NotingAct(rDiary, "a"));
  EXPECT_FALSE(rEarlier.RunOneAction());
  EXPECT_EQ(rDiary.Notes(), Texts());
  EXPECT_TRUE(rQueue.RunOneAction());
  EXPECT_EQ(rDiary.Notes(), Texts({"a main", "a completed", "a deleted"}));
}

// Each sleep that is not ended costs a minute, which the test has not.
TEST_F(MainQueueTest, SleepEndsWithAnActionOrARing) {
  constexpr int LONG_MS = 60'000;
  rQueue.Ring();
  rQueue.Sleep(LONG_MS);
  std::thread rRinger([this] { rQueue.Ring(); });
  rQueue.Sleep(LONG_MS);
  rRinger.join();
  std::thread rQueuer([this] { rQueue.queue(new NotingAct(rDiary, "a")); });
  rQueue.Sleep(LONG_MS);
  rQueuer.join();
  rQueue.Sleep(LONG_MS);  // it is still there
  EXPECT_TRUE(rQueue.RunOneAction());
}

TEST_F(MainQueueTest, SleepEndsByItselfAndARingIsGoodForOne) {
  rQueue.Ring();
  rQueue.Sleep(0);
  const StopWatch rWatch;
  rQueue.Sleep(50);
  EXPECT_GE(rWatch.Seconds(), 0.05);
}

TEST_F(MainQueueTest, ActionsRunOneByOneInTheOrderOfQueueing) {
  for (const char* acName : {"a", "b"}) rQueue.queue(new NotingAct(rDiary, acName));
  EXPECT_TRUE(rQueue.RunOneAction());
  EXPECT_EQ(rDiary.Notes(), Texts({"a main", "a completed", "a deleted"}));
  EXPECT_TRUE(rQueue.RunOneAction());
  EXPECT_EQ(rDiary.Count("b deleted"), 1);
  EXPECT_FALSE(rQueue.RunOneAction());
}

TEST_F(MainQueueTest, ActionsRunOnTheMainThreadAlone) {
  EXPECT_DEBUG_DEATH(
      {
        RememberMainThread();
        std::thread([this] { (void)rQueue.RunOneAction(); }).join();
      },
      "OnMainThread");
}

TEST_F(MainQueueTest, LeftActionsAreDeletedUnrun) {
  rQueue.queue(new NotingAct(rDiary, "a"));
  rQueue.queue(nullptr);
  rQueue.queue(new NotingAct(rDiary, "b"));
  rQueue.emptyQueue();
  EXPECT_EQ(rDiary.Notes(), Texts({"a deleted", "b deleted"}));
  EXPECT_FALSE(rQueue.RunOneAction());
}

TEST_F(MainQueueTest, NullActionCountsAsTaken) {
  rQueue.queue(nullptr);
  EXPECT_TRUE(rQueue.RunOneAction());
  EXPECT_FALSE(rQueue.RunOneAction());
}

}  // namespace
