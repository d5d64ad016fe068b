// Audio in real time: the rate over a while, two readers at work, and an end that is an end.

#include "simcards_pacing.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "CardBench.h"

namespace {

using Clock = std::chrono::steady_clock;

class SimPacing : public CardBench {
 protected:
  SimPacing() { simcards::AddBoard(0, 4, CH_ANALOG); }

  struct Line {
    std::vector<BYTE> vRing = std::vector<BYTE>(4096);
    long long iRead = 0;
    long long iWrong = 0;
  };

  // Takes reports until every line has iBytes, and compares each byte that they announce.
  void ReadAll(std::vector<Line>& vLines, long long iBytes) {
    std::size_t iDone = 0;
    while (iDone < vLines.size()) {
      SSM_EVENT rEvent;
      ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
      Line& rLine = vLines[static_cast<std::size_t>(rEvent.nReference)];
      const bool fBefore = rLine.iRead >= iBytes;
      for (auto i = static_cast<DWORD>(rLine.iRead % 4096); i != rEvent.dwParam; i = (i + 1) % 4096) {
        rLine.iWrong += rLine.vRing[i] != simcards::CountingByte(rLine.iRead++) ? 1 : 0;
      }
      iDone += !fBefore && rLine.iRead >= iBytes ? 1U : 0U;
    }
  }
};

TEST_F(SimPacing, EveryByteOfEveryLineArrives) {
  std::vector<Line> vLines(4);
  for (int nCh = 0; nCh < 4; nCh++) {
    simcards::PlayCounting(nCh);
    ASSERT_EQ(SSM_OK, SsmRecToMem(nCh, 6, vLines[static_cast<std::size_t>(nCh)].vRing.data(), 4096, 0));
  }
  simcards::StartPacing(10);
  ReadAll(vLines, 40000);
  simcards::StopPacing();
  for (const Line& rLine : vLines) EXPECT_EQ(0, rLine.iWrong);
  EXPECT_EQ(0, simcards::Overruns());
}

// What the library costs is told from what its program costs by this name.
TEST_F(SimPacing, ThreadOfTheLibraryIsNamed) {
  const auto NamedThreads = [] {
    int iNamed = 0;
    for (const auto& rTask : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string strName;
      (void)std::getline(std::ifstream(rTask.path() / "comm") >> std::ws, strName);
      iNamed += strName == "simcards" ? 1 : 0;
    }
    return iNamed;
  };
  ASSERT_EQ(0, NamedThreads());
  std::vector<BYTE> vRing(4096);
  ASSERT_EQ(SSM_OK, SsmRecToMem(0, 6, vRing.data(), 4096, 0));
  simcards::StartPacing(10);
  SSM_EVENT rEvent;
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));  // the thread is at work
  EXPECT_EQ(1, NamedThreads());
  simcards::StopPacing();
  EXPECT_EQ(0, NamedThreads());
}

TEST_F(SimPacing, RunsAtEightThousandBytesASecondTimesTheSpeed) {
  std::vector<Line> vLines(1);
  simcards::PlayCounting(0);
  ASSERT_EQ(SSM_OK, SsmRecToMem(0, 6, vLines[0].vRing.data(), 4096, 0));
  const Clock::time_point rStart = Clock::now();
  simcards::StartPacing(4);
  EXPECT_DOUBLE_EQ(4, simcards::PacingSpeed());
  ReadAll(vLines, 16384);  // 0.512 s at this speed
  const std::chrono::duration<double> rElapsed = Clock::now() - rStart;
  simcards::StopPacing();
  EXPECT_DOUBLE_EQ(0, simcards::PacingSpeed());
  EXPECT_GE(rElapsed.count(), 0.50);  // never faster; how much slower is up to the machine, and told by the slip
  EXPECT_LE(rElapsed.count(), 0.7 + simcards::PacingSlipped());
}

TEST_F(SimPacing, ReportTellsWhenItWasDue) {
  const auto Now = [] { return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count(); };
  std::vector<BYTE> vRing(4096);
  ASSERT_EQ(SSM_OK, SsmRecToMem(0, 6, vRing.data(), 4096, 0));
  constexpr long long REPORT_NS = 2048LL * 125000 / 20;  // at the speed below
  const long long iStarted = Now();
  simcards::StartPacing(20);
  long long iDue = 0;
  for (int i = 1; i <= 10; i++) {
    SSM_EVENT rEvent;
    ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
    EXPECT_LE(iStarted + REPORT_NS * i, rEvent.llReserved2);
    EXPECT_LE(rEvent.llReserved2, Now());
    if (i > 1 && simcards::PacingSlipped() == 0) {
      EXPECT_LE(std::llabs(rEvent.llReserved2 - iDue - REPORT_NS), 1);
    }
    iDue = rEvent.llReserved2;
  }
  simcards::StopPacing();
  ASSERT_EQ(SSM_OK, SsmRecToMem(1, 6, vRing.data(), 4096, 0));
  simcards::Advance(2048);
  for (SSM_EVENT rEvent = NextEvent(); rEvent.wEventCode == E_PROC_RecordMem; rEvent = NextEvent()) {
    if (rEvent.nReference == 1) {
      EXPECT_EQ(0, rEvent.llReserved2);
    }
  }
}

// At this speed each tick comes late for more than it may make at once.
TEST_F(SimPacing, WhatComesLateIsLeftOutOrCountedAsLate) {
  std::vector<BYTE> vRing(4096);
  for (const bool fSlips : {true, false}) {
    simcards::LetPacingSlip(fSlips);
    ASSERT_EQ(SSM_OK, SsmRecToMem(0, 6, vRing.data(), 4096, 0));
    simcards::StartPacing(1000);
    SSM_EVENT rEvent;
    for (int i = 0; i < 10; i++) ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
    simcards::StopPacing();
    EXPECT_EQ(fSlips, simcards::PacingSlipped() > 0);
    EXPECT_EQ(!fSlips, simcards::PacingLate() > 0);
    ASSERT_EQ(SSM_OK, SsmStopRecToMem(0));
  }
  simcards::LetPacingSlip(true);
}

TEST_F(SimPacing, NothingIsWrittenAfterTheStop) {
  std::vector<BYTE> vRing(4096, 0x11);
  ASSERT_EQ(SSM_OK, SsmRecToMem(0, 6, vRing.data(), 4096, 0));
  simcards::StartPacing(10);
  SSM_EVENT rEvent;
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
  ASSERT_EQ(SSM_OK, SsmStopRecToMem(0));  // while the thread runs on
  vRing.assign(4096, 0x22);
  ASSERT_EQ(SSM_OK, SsmRecToMem(1, 6, vRing.data(), 2048, 0));
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
  simcards::StopPacing();
  EXPECT_EQ(std::vector<BYTE>(2048, 0x22), std::vector<BYTE>(vRing.begin() + 2048, vRing.end()));
}

TEST_F(SimPacing, StartAndStopManyTimes) {
  for (int i = 0; i < 200; i++) {
    simcards::Reset();
    simcards::AddBoard(0, 1, CH_ANALOG);
    simcards::StartPacing(1 + i);
  }
}

}  // namespace
