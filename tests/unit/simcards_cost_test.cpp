// What the library says that it costs.

#include "simcards_cost.h"

#include <gtest/gtest.h>

#include <vector>

#include "CardBench.h"

namespace {

class SimCost : public CardBench {};

TEST_F(SimCost, CallsAreCountedWithTheirTime) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  const simcards::Cost rBefore = simcards::TheCost();
  for (int i = 0; i < 1000; i++) {
    simcards::PushEvent(E_CHG_ChState, 0, 1);
    EXPECT_EQ(E_CHG_ChState, NextEvent().wEventCode);
  }
  const simcards::Cost rAfter = simcards::TheCost();
  EXPECT_EQ(1000, rAfter.iTakes - rBefore.iTakes);
  EXPECT_GT(rAfter.dTakingS, rBefore.dTakingS);
}

TEST_F(SimCost, WaitingIsNoCost) {
  const simcards::Cost rBefore = simcards::TheCost();
  SSM_EVENT rEvent;
  for (int i = 0; i < 600; i++) EXPECT_EQ(SSM_EVENT_TIMEOUT, SsmWaitForEventA(1, &rEvent));
  EXPECT_LT(simcards::TheCost().dTakingS - rBefore.dTakingS, 0.3);  // of 0.6 s at least
}

TEST_F(SimCost, PacingThreadTellsWhatItTook) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  simcards::PlayCounting(0);
  std::vector<BYTE> vRing(4096);
  ASSERT_EQ(SSM_OK, SsmRecToMem(0, 6, vRing.data(), 4096, 0));
  const double dBeforeS = simcards::TheCost().dPacingS;
  simcards::StartPacing(50);
  SSM_EVENT rEvent;
  for (int i = 0; i < 10; i++) EXPECT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
  simcards::StopPacing();
  EXPECT_GT(simcards::TheCost().dPacingS, dBeforeS);
}

}  // namespace
