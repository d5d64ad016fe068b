// The queue of events: order and removal, across its growing and the end of its ring.

#include "simcards_queue.h"

#include <gtest/gtest.h>

namespace simcards {
namespace {

QueuedEvent Numbered(DWORD dwNumber) {
  QueuedEvent rQueued;
  rQueued.rEvent.dwParam = dwNumber;
  rQueued.strData = std::to_string(dwNumber);
  return rQueued;
}

TEST(SimQueue, EventsComeInTheirOrderHoweverManyWait) {
  EventQueue rQueue;
  DWORD dwPushed = 0, dwTaken = 0;
  for (const int iMore : {1, 63, 40, 100, 1, 1000}) {
    for (int i = 0; i < iMore; i++) rQueue.Push(Numbered(dwPushed++));
    for (int i = 0; i < iMore / 2; i++, rQueue.Pop()) {
      EXPECT_EQ(dwTaken, rQueue.Front().rEvent.dwParam);
      EXPECT_EQ(std::to_string(dwTaken++), rQueue.Front().strData);
    }
    EXPECT_EQ(dwPushed - dwTaken, rQueue.Size());
  }
  for (; !rQueue.IsEmpty(); rQueue.Pop()) EXPECT_EQ(dwTaken++, rQueue.Front().rEvent.dwParam);
  EXPECT_EQ(dwPushed, dwTaken);
}

TEST(SimQueue, WhatIsRemovedLeavesTheOthersInOrder) {
  EventQueue rQueue;
  for (DWORD dwNumber = 0; dwNumber < 60; dwNumber++) rQueue.Push(Numbered(dwNumber));
  for (int i = 0; i < 50; i++) rQueue.Pop();
  for (DWORD dwNumber = 60; dwNumber < 100; dwNumber++) rQueue.Push(Numbered(dwNumber));  // around the end of the ring
  rQueue.RemoveIf([](const QueuedEvent& rQueued) { return rQueued.rEvent.dwParam % 3 != 0; });
  EXPECT_EQ(17U, rQueue.Size());
  for (DWORD dwNumber = 51; dwNumber < 100; dwNumber += 3, rQueue.Pop()) {
    EXPECT_EQ(std::to_string(dwNumber), rQueue.Front().strData);
  }
  EXPECT_TRUE(rQueue.IsEmpty());
}

}  // namespace
}  // namespace simcards
