// The cards' clock: who is looked at when, driven piece by piece with RunClock.

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <vector>

#include "CardBench.h"
#include "SimConfigFiles.h"
#include "simcards_state.h"

namespace simcards {
namespace {

constexpr DWORD RING = 4096;
constexpr int ALL_LINES = std::numeric_limits<int>::max();

class SimClock : public CardBench {
 protected:
  void Lines(int iLines) {
    AddBoard(0, iLines, CH_ANALOG);
    vRings.assign(static_cast<std::size_t>(iLines), std::vector<BYTE>(RING, 0x11));
  }
  void Start(int nCh) {
    PlayCounting(nCh);
    ASSERT_EQ(SSM_OK, SsmRecToMem(nCh, SSM_FORMAT_ALAW, vRings[static_cast<std::size_t>(nCh)].data(), RING, 0));
  }
  // Lets time pass as the pacing thread does; false when not all lines could be looked at.
  bool Run(int iBytes, int iMost = ALL_LINES) {
    const std::lock_guard<std::mutex> rGuard(rState.rMutex);
    return rState.RunClock(rState.iClock + iBytes, iMost);
  }
  // Bytes of the counting pattern at the start of a ring.
  int Counted(int nCh) const {
    int i = 0;
    while (i < static_cast<int>(RING) &&
           vRings[static_cast<std::size_t>(nCh)][static_cast<std::size_t>(i)] == CountingByte(i))
      i++;
    return i;
  }

  State& rState = TheState();
  std::vector<std::vector<BYTE>> vRings;
};

TEST_F(SimClock, LineIsReportedWhenItIsDueByItsOwnStart) {
  Lines(2);
  Start(1);
  EXPECT_TRUE(Run(100));
  Start(0);
  EXPECT_TRUE(Run(1947));
  EXPECT_EQ("", Events());
  EXPECT_TRUE(Run(1));
  EXPECT_EQ("21 ref 1: 2048\n", Events());
  EXPECT_TRUE(Run(99));
  EXPECT_EQ("", Events());
  EXPECT_TRUE(Run(1));
  EXPECT_EQ("21 ref 0: 2048\n", Events());
  EXPECT_TRUE(Run(2048 + 100));
  EXPECT_EQ("21 ref 1: 0\n21 ref 0: 0\n", Events());
}

TEST_F(SimClock, LinesThatAreDueAtOnceComeByTheirNumber) {
  Lines(3);
  for (const int nCh : {2, 0, 1}) Start(nCh);
  EXPECT_TRUE(Run(2048));
  EXPECT_EQ("21 ref 0: 2048\n21 ref 1: 2048\n21 ref 2: 2048\n", Events());
}

TEST_F(SimClock, BytesStandInTheRingEachTwentyMilliseconds) {
  Lines(1);
  Start(0);
  EXPECT_TRUE(Run(159));
  EXPECT_EQ(0, Counted(0));
  EXPECT_TRUE(Run(1));
  EXPECT_EQ(160, Counted(0));
  EXPECT_TRUE(Run(2000));
  EXPECT_EQ(2048, Counted(0)) << "the report is due at 2048, the next look 160 later";
}

TEST_F(SimClock, StopMakesWhatWasCarriedUpToIt) {
  Lines(1);
  Start(0);
  EXPECT_TRUE(Run(500));
  EXPECT_EQ(480, Counted(0));
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(0));
  EXPECT_EQ(500, Counted(0));
  EXPECT_TRUE(Run(500));
  EXPECT_EQ(500, Counted(0));
}

TEST_F(SimClock, RecordingThatBeginsAnewIsNotDisturbedByTheOldOne) {
  Lines(1);
  Start(0);
  EXPECT_TRUE(Run(100));
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(0));
  vRings[0].assign(RING, 0x11);
  Start(0);
  EXPECT_TRUE(Run(159));
  EXPECT_EQ(0, Counted(0)) << "the old recording would be due after 60";
  EXPECT_TRUE(Run(1));
  EXPECT_EQ(160, Counted(0));
}

TEST_F(SimClock, ManyLinesAreLookedAtInSlicesAndLoseNothing) {
  constexpr int LINES = 1500;
  Lines(LINES);
  for (int nCh = 0; nCh < LINES; nCh++) Start(nCh);
  const long long iUntil = rState.iClock + 2048;
  int iSlices = 1;
  for (; !rState.RunClock(iUntil, 64); iSlices++) EXPECT_LT(iSlices, 10 * LINES);
  EXPECT_GE(iSlices, LINES * 4 / 64) << "four looks a line";
  for (int nCh = 0; nCh < LINES; nCh++) {
    EXPECT_EQ(2048, Counted(nCh)) << nCh;
    EXPECT_EQ(nCh, NextEvent().nReference);
  }
  EXPECT_EQ("", Events());
}

TEST_F(SimClock, FewLinesBeginInStepAndMoreOfThemAtTheirOwnMoments) {
  Lines(101);
  const auto rSinceBoot = std::chrono::steady_clock::now().time_since_epoch();
  const long long iNowNs = std::chrono::nanoseconds(rSinceBoot).count();
  rState.rTime = {rState.iClock, iNowNs - 10000000, 125000};  // the pacing thread has slept for 10 ms: 80 bytes
  for (int nCh = 0; nCh < 101; nCh++) Start(nCh);
  EXPECT_TRUE(Run(2048));
  for (int nCh = 0; nCh < 100; nCh++) EXPECT_EQ(nCh, NextEvent().nReference);
  EXPECT_TRUE(Run(79));
  EXPECT_EQ("", Events());
  EXPECT_TRUE(Run(81));  // a busy machine is late, but not by more than 20 ms
  EXPECT_EQ("21 ref 100: 2048\n", Events());
  EXPECT_EQ(2048, Counted(100));
}

TEST_F(SimClock, SettingThatChangesHoldsFromTheNextLookOn) {
  Lines(1);
  Start(0);
  EXPECT_TRUE(Run(160));
  EVENT_SET_INFO rSetting;
  rSetting.dwWorkMode = EVENT_POLLING;
  rSetting.dwOutParamVal = MEM_BYTES;
  rSetting.dwOutCondition = 500;
  ASSERT_EQ(SSM_OK, SsmSetEvent(E_PROC_RecordMem, -1, 1, &rSetting));
  EXPECT_TRUE(Run(1000));
  EXPECT_EQ("21 ref 0: 500\n21 ref 0: 1000\n", Events());
}

TEST_F(SimClock, FileEndsThoughNobodyRecords) {
  Lines(1);
  const SimConfigFiles rFiles;
  rFiles.Write("x.al", "abcdef");
  ASSERT_TRUE(PlayFile(0, rFiles.Path("x.al")));
  EXPECT_TRUE(rState.At(0)->rSource.Playing());
  EXPECT_TRUE(Run(160));
  EXPECT_FALSE(rState.At(0)->rSource.Playing());
  EXPECT_EQ(0, rState.iBusyLines);
}

TEST_F(SimClock, NextLookIsThatOfTheLineThatIsDueFirst) {
  Lines(1);
  EXPECT_EQ(160, rState.NextLook());
  Start(0);
  EXPECT_TRUE(Run(1900));
  EXPECT_EQ(20, rState.NextLook()) << "1920 is the twelfth look";
  EXPECT_TRUE(Run(21));
  EXPECT_EQ(127, rState.NextLook()) << "and then the report";
}

}  // namespace
}  // namespace simcards
