#include "taker.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "TestTools.h"
#include "Texts.h"
#include "simcards.h"

using testtools::Await;

namespace {

std::atomic<int> iCalls{0};
std::atomic<int> iDelivered{0};
std::atomic<int> iTaken{0};  // of iDelivered, those that the taker has done with

}  // namespace

extern "C" int SsmWaitForEventA(DWORD dwTimeOut, PSSM_EVENT pEvent) {
  iCalls++;
  iTaken = iDelivered.load();
  const int iResult =
      reinterpret_cast<decltype(SsmWaitForEventA)*>(dlsym(RTLD_NEXT, "SsmWaitForEventA"))(dwTimeOut, pEvent);
  if (iResult == SSM_OK) iDelivered++;
  return iResult;
}

namespace {

constexpr int RING_BYTES = 4096;
constexpr int REPORT_BYTES = 2048;
constexpr long long MUCH_MEMORY = 1 << 20;

// Cards without a pacing thread: audio flows when the test says so. This thread is the main thread.
class TakerTest : public testing::Test {
 protected:
  void SetUp() override {
    simcards::Reset();
    simcards::AddBoard(0, 3, CH_ANALOG);
    for (int iCh = 0; iCh < 3; iCh++) simcards::PlayCounting(iCh);
    iCalls = 0;
    iDelivered = 0;
    iTaken = 0;
  }
  void TearDown() override { simcards::Reset(); }

  void Record(Taker& rTaker, int iCh) {
    rTaker.BeginRing(iCh, acRings[iCh], RING_BYTES);
    EXPECT_EQ(SsmRecToMem(iCh, SSM_FORMAT_ALAW, acRings[iCh], RING_BYTES, 0), SSM_OK);
  }
  void Stop(Taker& rTaker, int iCh) {
    EXPECT_EQ(SsmStopRecToMem(iCh), SSM_OK);
    rTaker.EndRing(iCh);
  }
  // All lines that record hear so much more, and the taker has taken their reports: nReports in all since the start.
  void Hear(int iReports, int iOfLines = 1) {
    for (int i = 0; i < iReports; i++) {
      simcards::Advance(REPORT_BYTES);
      iReported += iOfLines;
      EXPECT_TRUE(Await([this] { return iTaken >= iReported; }));
    }
  }
  // The first line hears pieces of these lengths, and the taker has taken each.
  void HearPieces(const std::vector<int>& aiLengths) {
    long long iHeard = 0;
    for (const int iLength : aiLengths) {
      simcards::Hear(0, Counted(iHeard, iHeard + iLength));
      iHeard += iLength;
      iReported++;
      EXPECT_TRUE(Await([this] { return iTaken >= iReported; }));
    }
  }
  static std::string Counted(long long iFrom, long long iTo) {
    std::string strBytes;
    for (long long i = iFrom; i < iTo; i++) strBytes += static_cast<char>(simcards::CountingByte(i));
    return strBytes;
  }
  static std::string BytesOf(const TakenEvent& rEvent) {
    if (rEvent.acBytes == nullptr) return "";
    return {reinterpret_cast<const char*>(rEvent.acBytes), static_cast<std::size_t>(rEvent.iBytes)};
  }
  // The audio of a line that has been taken, or of all of them.
  static std::string AllAudio(Taker& rTaker) {
    std::string strBytes;
    while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) strBytes += BytesOf(*prEvent);
    return strBytes;
  }
  static Texts AllEvents(Taker& rTaker) {
    Texts astrEvents;
    while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) astrEvents.push_back(TextOf(*prEvent));
    return astrEvents;
  }
  static std::string TextOf(const TakenEvent& rEvent) {
    const std::string strCh = "{" + std::to_string(rEvent.rEvent.nReference) + "} ";
    if (rEvent.eKind == TAKEN_ERROR) return reinterpret_cast<const char*>(rEvent.acBytes);
    if (rEvent.eKind == TAKEN_AUDIO) {
      const std::string strMissing = rEvent.acBytes == nullptr ? " lost" : rEvent.fOverrun ? " overrun" : "";
      return strCh + std::to_string(rEvent.iBytes) + " bytes" + strMissing;
    }
    const char* const acData = static_cast<const char*>(rEvent.rEvent.pvBuffer);
    const std::string strData = acData == nullptr ? "" : " " + std::string(acData, rEvent.rEvent.dwDataLength);
    return strCh + std::to_string(rEvent.rEvent.wEventCode) + "," + std::to_string(rEvent.rEvent.dwParam) + strData;
  }

  BYTE acRings[3][RING_BYTES];
  int iReported = 0;
  MainQueue rQueue;
};

// -- events -----------------------------------------------------------------------------------------------------------

TEST_F(TakerTest, EventsComeInTheOrderOfTheCardWithTheirData) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 1);
  simcards::PushEvent(E_RCV_DSTDChannel, 0, DMSG_DISPLAY, 0, 0, "a display");
  simcards::Advance(REPORT_BYTES);
  simcards::PushEvent(E_CHG_ChState, 2, S_CALL_PICKUPED);
  simcards::PushEvent(E_RCV_DSTDChannel, 0, DMSG_DISPLAY, 0, 0, "another");
  EXPECT_TRUE(Await([] { return iTaken >= 4; }));
  EXPECT_EQ(AllEvents(rTaker), Texts({"{0} 65,4104 a display", "{1} 2048 bytes", "{2} 24,1", "{0} 65,4104 another"}));
}

TEST_F(TakerTest, DataOfManyEventsStaysUntilEachIsHandled) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Texts astrSent;
  for (int i = 0; i < 500; i++) {
    const std::string strData(static_cast<std::size_t>(1 + i % 1000), static_cast<char>('a' + i % 26));
    simcards::PushEvent(E_RCV_DSTDChannel, 0, DMSG_DISPLAY, 0, 0, strData);
    astrSent.push_back("{0} 65,4104 " + strData);
  }
  EXPECT_TRUE(Await([] { return iTaken >= 500; }));
  EXPECT_EQ(AllEvents(rTaker), astrSent);
}

TEST_F(TakerTest, FailuresOfTheDriverAreToldByTheirNumber) {
  simcards::FailNext("SsmWaitForEventA", 4, -2, "card on fire");
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  EXPECT_TRUE(Await([] { return iCalls > 2; }));  // one waits for the main loop, which does not come
  simcards::PushEvent(E_CHG_ChState, 2, S_CALL_PICKUPED);
  long long iFailures = 0;
  const TakenEvent* prEvent = nullptr;
  EXPECT_TRUE(Await([&] {
    prEvent = rTaker.Take(MonotonicNs());
    if (prEvent == nullptr || prEvent->eKind != TAKEN_ERROR) return prEvent != nullptr;
    EXPECT_EQ(TextOf(*prEvent), "card on fire");
    iFailures += 1 + prEvent->iMoreErrors;
    return false;
  }));
  EXPECT_EQ(iFailures, 4);
  EXPECT_EQ(TextOf(*prEvent), "{2} 24,1");
}

TEST_F(TakerTest, FailureOfTheDriverCostsNoAudioThoughTheMainLoopStands) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(5);
  simcards::FailNext("SsmWaitForEventA", 1, -2, "card on fire");
  Hear(20);
  std::string strBytes;
  int iFailures = 0;
  while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) {
    if (prEvent->eKind == TAKEN_ERROR) {
      iFailures++;
    } else {
      strBytes += BytesOf(*prEvent);
    }
  }
  EXPECT_EQ(iFailures, 1);
  EXPECT_TRUE(strBytes == Counted(0, 25 * REPORT_BYTES));
}

// Once, of many lines: the pause that follows is for a driver that goes on failing.
TEST_F(TakerTest, ManyLinesLoseNothingBehindAFailureThatWaits) {
  constexpr int LINES = 16;
  simcards::Reset();
  simcards::AddBoard(0, LINES, CH_ANALOG);
  std::vector<std::vector<BYTE>> vRings(LINES, std::vector<BYTE>(RING_BYTES));
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  for (int iCh = 0; iCh < LINES; iCh++) {
    BYTE* const acRing = vRings[static_cast<std::size_t>(iCh)].data();
    rTaker.BeginRing(iCh, acRing, RING_BYTES);
    EXPECT_EQ(SsmRecToMem(iCh, SSM_FORMAT_ALAW, acRing, RING_BYTES, 0), SSM_OK);
  }
  simcards::FailNext("SsmWaitForEventA", 1, -2, "once");
  simcards::StartPacing();
  EXPECT_TRUE(Await([] { return iTaken >= 6 * LINES; }));
  simcards::StopPacing();
  EXPECT_EQ(simcards::Overruns(), 0);
  const Texts astrTaken = AllEvents(rTaker);
  EXPECT_EQ(std::count(astrTaken.begin(), astrTaken.end(), "once"), 1);
  rTaker.Rest();
}

TEST_F(TakerTest, TakerAtRestLeavesEventsWithTheDriver) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  rTaker.Rest();
  const int iBefore = iDelivered;
  simcards::PushEvent(E_CHG_ChState, 2, S_CALL_PICKUPED);
  EXPECT_EQ(rTaker.Take(MonotonicNs()), nullptr);
  EXPECT_EQ(iDelivered, iBefore);
  rTaker.GoOn();
  Texts astrEvents;
  EXPECT_TRUE(Await([&] { return !(astrEvents = AllEvents(rTaker)).empty(); }));
  EXPECT_EQ(astrEvents, Texts({"{2} 24,1"}));
}

// Without a wake-up the sleeps would take half an hour, far above the limit of a test.
TEST_F(TakerTest, EventWakesTheMainLoop) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  for (int i = 0; i < 100; i++) {
    simcards::PushEvent(E_CHG_ChState, 2, S_CALL_PICKUPED);
    while (rTaker.Take(MonotonicNs()) == nullptr) rQueue.Sleep(20'000);
  }
}

TEST_F(TakerTest, MainLoopLooksForAudioByItselfWhileAnyLineRecords) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  EXPECT_EQ(rTaker.SleepMs(), 200);
  Record(rTaker, 0);
  rTaker.BeginRing(0, acRings[0], RING_BYTES);  // the same once more
  Record(rTaker, 1);
  EXPECT_EQ(rTaker.SleepMs(), 20);
  Stop(rTaker, 0);
  EXPECT_EQ(rTaker.SleepMs(), 20);
  Stop(rTaker, 1);
  EXPECT_EQ(rTaker.SleepMs(), 200);
}

// -- audio ------------------------------------------------------------------------------------------------------------

TEST_F(TakerTest, AudioIsWholeHoweverLongTheMainLoopStands) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(100);
  EXPECT_TRUE(AllAudio(rTaker) == Counted(0, 100 * REPORT_BYTES));
  EXPECT_EQ(simcards::Overruns(), 0);
  EXPECT_EQ(rTaker.TakeFigures().iLostBytes, 0);
}

TEST_F(TakerTest, PiecesOfAnyLengthAreWhole) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  HearPieces({1000, 3, 4000, 96, 1, 4090, 8, 2500});
  EXPECT_TRUE(AllAudio(rTaker) == Counted(0, 1000 + 3 + 4000 + 96 + 1 + 4090 + 8 + 2500));
}

TEST_F(TakerTest, ReportOfTheRecordingBeforeReachesNotTheNext) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(3);
  EXPECT_EQ(AllAudio(rTaker).size(), 3u * REPORT_BYTES);
  Stop(rTaker, 0);
  Record(rTaker, 0);
  for (const DWORD dwPos : {2048u, 0u, 700u, 4096u}) simcards::PushEvent(E_PROC_RecordMem, 0, dwPos);
  iReported += 4;
  EXPECT_TRUE(Await([this] { return iTaken >= iReported; }));
  EXPECT_EQ(AllEvents(rTaker), Texts());
  Hear(3);
  EXPECT_TRUE(AllAudio(rTaker) == Counted(0, 3 * REPORT_BYTES));
}

TEST_F(TakerTest, AudioThatWaitsIsLeftOutWhenItsRecordingIsOver) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Record(rTaker, 1);
  Hear(2, 2);
  Stop(rTaker, 0);
  EXPECT_EQ(AllEvents(rTaker), Texts({"{1} 2048 bytes", "{1} 2048 bytes"}));
  Hear(1);
  rTaker.BeginRing(1, acRings[1], RING_BYTES);  // as after a stop that the driver has refused
  EXPECT_EQ(AllEvents(rTaker), Texts());
  EXPECT_EQ(rTaker.Take(MonotonicNs()), nullptr);
  EXPECT_EQ(rTaker.TakeFigures().iWaitingBytes, 0);
}

// Its driver refuses the new start as well, and the card goes on in the same ring.
TEST_F(TakerTest, RingThatTheCardWritesStillHasAudioWhereItsReportsDoNotEnd) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(1);
  rTaker.BeginRing(0, acRings[0], RING_BYTES);
  Hear(1);
  std::string strTaken;
  while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) {
    EXPECT_FALSE(prEvent->fOverrun);
    strTaken += BytesOf(*prEvent);
  }
  const std::string strHeard = Counted(0, 2 * REPORT_BYTES);
  ASSERT_EQ(strTaken.size(), strHeard.size());
  EXPECT_TRUE(strTaken.substr(0, REPORT_BYTES - 8) == strHeard.substr(0, REPORT_BYTES - 8));
  EXPECT_TRUE(strTaken.substr(REPORT_BYTES) == strHeard.substr(REPORT_BYTES));
}

TEST_F(TakerTest, ReportsOfNoRingAndNoPlaceAreDropped) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 1);
  for (const int iCh : {-1, 0, 2, 100}) simcards::PushEvent(E_PROC_RecordMem, iCh, 2048);
  memset(acRings[1], 1, 100);
  for (const DWORD dwPos : {4097u, 0x80000000u}) simcards::PushEvent(E_PROC_RecordMem, 1, dwPos);
  EXPECT_TRUE(Await([] { return iTaken >= 6; }));
  EXPECT_EQ(AllEvents(rTaker), Texts());
}

TEST_F(TakerTest, AudioIsTakenOutOfItsTurnInItsOrder) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  for (int iCh = 0; iCh < 3; iCh++) Record(rTaker, iCh);
  Hear(2, 3);
  EXPECT_EQ(TextOf(*rTaker.Take(MonotonicNs())), "{0} 2048 bytes");
  simcards::PushEvent(E_CHG_ChState, 2, S_CALL_PICKUPED);
  iReported++;
  Hear(1, 3);
  Texts astrTaken;
  std::string strOfTwo;
  rTaker.TakeAudioOf(2, 0, [&](const TakenEvent& rEvent) {
    astrTaken.push_back(TextOf(rEvent));
    if (rEvent.rEvent.nReference == 2) strOfTwo += BytesOf(rEvent);
  });
  EXPECT_EQ(astrTaken,
            Texts({"{2} 2048 bytes", "{0} 2048 bytes", "{2} 2048 bytes", "{0} 2048 bytes", "{2} 2048 bytes"}));
  EXPECT_TRUE(strOfTwo == Counted(0, 3 * REPORT_BYTES));
  EXPECT_EQ(AllEvents(rTaker), Texts({"{1} 2048 bytes", "{1} 2048 bytes", "{2} 24,1", "{1} 2048 bytes"}));
}

TEST_F(TakerTest, TakingOutOfTurnLeavesOutWhatIsOver) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(1);
  Stop(rTaker, 0);
  Record(rTaker, 0);
  int iPieces = 0;
  rTaker.TakeAudioOf(0, -1, [&iPieces](const TakenEvent&) { iPieces++; });
  EXPECT_EQ(iPieces, 0);
}

// -- bounds -----------------------------------------------------------------------------------------------------------

TEST_F(TakerTest, WithoutMemoryEachReportTellsWhatItLost) {
  Taker rTaker(rQueue, 3 * TAKEN_BLOCK_BYTES);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(5);
  EXPECT_EQ(rTaker.TakeFigures().iWaitingBytes, 3 * TAKEN_BLOCK_BYTES);
  EXPECT_EQ(AllEvents(rTaker), Texts({"{0} 2048 bytes", "{0} 2048 bytes", "{0} 2048 bytes", "{0} 2048 bytes lost",
                                      "{0} 2048 bytes lost"}));
  Hear(4);
  TakerFigures rFigures = rTaker.TakeFigures();
  EXPECT_EQ(rFigures.iLostBytes, 3 * REPORT_BYTES);
  EXPECT_EQ(rFigures.iLimitBytes, 3 * TAKEN_BLOCK_BYTES);
  EXPECT_TRUE(AllAudio(rTaker) == Counted(5 * REPORT_BYTES, 8 * REPORT_BYTES));  // what comes later is whole again
  EXPECT_EQ(rTaker.Take(MonotonicNs()), nullptr);
  EXPECT_EQ(rTaker.TakeFigures().iWaitingBytes, 0);
}

TEST_F(TakerTest, WhatIsHandledMakesRoomThoughMuchIsToBeHandledStill) {
  constexpr int BLOCKS = 600;
  Taker rTaker(rQueue, BLOCKS * TAKEN_BLOCK_BYTES);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Hear(BLOCKS);
  std::string strBytes;
  for (int i = 0; i < BLOCKS / 2; i++) strBytes += BytesOf(*rTaker.Take(MonotonicNs()));
  Hear(BLOCKS / 3);
  strBytes += AllAudio(rTaker);
  EXPECT_TRUE(strBytes == Counted(0, (BLOCKS + BLOCKS / 3) * REPORT_BYTES));
}

TEST_F(TakerTest, EventOfACallHasItsMemoryAlways) {
  Taker rTaker(rQueue, TAKEN_BLOCK_BYTES);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 1);
  Hear(2);
  simcards::PushEvent(E_RCV_DSTDChannel, 0, DMSG_DISPLAY, 0, 0, "a display");
  EXPECT_TRUE(Await([] { return iTaken >= 3; }));
  EXPECT_EQ(AllEvents(rTaker), Texts({"{1} 2048 bytes", "{1} 2048 bytes lost", "{0} 65,4104 a display"}));
}

TEST_F(TakerTest, EventsAboveTheirNumberStayWithTheDriver) {
  constexpr int MOST_EVENTS = 100'000;
  Taker rTaker(rQueue, 0);
  for (int i = 0; i < MOST_EVENTS + 10; i++) simcards::PushEvent(E_CHG_ChState, 2, static_cast<DWORD>(i));
  ASSERT_TRUE(rTaker.Start());
  EXPECT_TRUE(Await([] { return iDelivered >= MOST_EVENTS; }));
  rTaker.Rest();
  EXPECT_EQ(iDelivered, MOST_EVENTS);
  rTaker.GoOn();
  for (int i = 0; i < MOST_EVENTS + 10; i++) {
    const TakenEvent* prEvent = nullptr;
    ASSERT_TRUE(Await([&] { return (prEvent = rTaker.Take(MonotonicNs())) != nullptr; }));
    ASSERT_EQ(prEvent->rEvent.dwParam, static_cast<DWORD>(i));
  }
}

TEST_F(TakerTest, MemoryIsASharePerLineAndAQuarterOfTheMachineAtMost) {
  const long long iQuarter = static_cast<long long>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE) / 4;
  EXPECT_EQ(TakerLimitBytes(0), 0);
  EXPECT_EQ(TakerLimitBytes(30), 30 * 60 * 8000);
  EXPECT_EQ(TakerLimitBytes(100'000'000), iQuarter);
}

// -- overruns ---------------------------------------------------------------------------------------------------------

TEST_F(TakerTest, RingThatTheCardCameRoundInIsTold) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  Record(rTaker, 1);
  Hear(2, 2);
  (void)AllEvents(rTaker);
  Stop(rTaker, 1);
  rTaker.Rest();
  simcards::Advance(3 * REPORT_BYTES);
  EXPECT_EQ(simcards::Overruns(), REPORT_BYTES);
  rTaker.GoOn();
  iReported += 3;
  EXPECT_TRUE(Await([this] { return iTaken >= iReported; }));
  EXPECT_EQ(AllEvents(rTaker), Texts({"{0} 2048 bytes overrun", "{0} 2048 bytes", "{0} 2048 bytes"}));
  EXPECT_EQ(rTaker.TakeFigures().iOverrunBytes, REPORT_BYTES);

  simcards::StartPacing();
  std::string strLater;
  EXPECT_TRUE(Await([&] {
    while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) {
      EXPECT_FALSE(prEvent->fOverrun);
      strLater += BytesOf(*prEvent);
    }
    return strLater.size() >= 4 * REPORT_BYTES;
  }));
  simcards::StopPacing();
  const long long iBefore = 5 * REPORT_BYTES;
  EXPECT_TRUE(strLater == Counted(iBefore, iBefore + static_cast<long long>(strLater.size())));
}

// Their reports lie with the driver; those of a ring that was written three times tell of the same bytes.
TEST_F(TakerTest, AllReportsOfWhatTheCardHasOverwrittenAreTold) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  rTaker.Rest();
  simcards::StartPacing();
  EXPECT_TRUE(Await([] { return simcards::Overruns() >= 4 * REPORT_BYTES; }));
  simcards::StopPacing();
  const long long iOverwritten = simcards::Overruns();
  const long long iHeard = iOverwritten + RING_BYTES;
  rTaker.GoOn();
  EXPECT_TRUE(Await([&] { return iTaken >= iHeard / REPORT_BYTES; }));
  long long iTold = 0;
  long long iAt = 0;
  while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) {
    if (prEvent->fOverrun) {
      iTold += prEvent->iBytes;
    } else {
      EXPECT_TRUE(BytesOf(*prEvent) == Counted(iAt, iAt + prEvent->iBytes)) << iAt;
    }
    iAt += prEvent->iBytes;
  }
  EXPECT_GE(iTold, iOverwritten);
  EXPECT_EQ(rTaker.TakeFigures().iOverrunBytes, iTold);
}

TEST_F(TakerTest, FullRingIsNoOverrunWhereTheCardHasNotComeRound) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  rTaker.Rest();
  simcards::Advance(RING_BYTES - 8);
  rTaker.GoOn();
  EXPECT_TRUE(Await([] { return iTaken >= 1; }));
  EXPECT_EQ(AllEvents(rTaker), Texts({"{0} 2048 bytes"}));
}

TEST_F(TakerTest, PieceThatEndsAtTheBeginOfTheRingIsNoOverrun) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  Record(rTaker, 0);
  HearPieces({2000, RING_BYTES - 2000 + 4, 2000, 2000});
  EXPECT_EQ(AllEvents(rTaker), Texts({"{0} 2000 bytes", "{0} 2048 bytes", "{0} 48 bytes", "{0} 4 bytes",
                                      "{0} 2000 bytes", "{0} 2000 bytes"}));
}

TEST_F(TakerTest, ReportOfTheSamePlaceAfterAFullRoundIsAWholeRing) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  for (const int iPlace : {REPORT_BYTES, 0}) {
    Record(rTaker, 0);
    HearPieces({100, (iPlace == 0 ? RING_BYTES : iPlace) - 100});
    (void)AllEvents(rTaker);
    const std::string strRing = Counted(7, 7 + RING_BYTES);
    simcards::Hear(0, strRing);
    simcards::PushEvent(E_PROC_RecordMem, 0, static_cast<DWORD>(iPlace));  // nothing has come since
    iReported += 2;
    EXPECT_TRUE(Await([this] { return iTaken >= iReported; }));
    std::string strTaken;
    while (const TakenEvent* prEvent = rTaker.Take(MonotonicNs())) {
      EXPECT_TRUE(prEvent->fOverrun);
      strTaken += BytesOf(*prEvent);
    }
    EXPECT_TRUE(strTaken == strRing) << iPlace;
    Stop(rTaker, 0);
  }
}

// -- how far a recording has come -------------------------------------------------------------------------------------

TEST_F(TakerTest, SpokenIsWhatIsReportedAndWhatTimeHasAdded) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  EXPECT_EQ(rTaker.SpokenBytes(0), 0);
  Record(rTaker, 0);
  Hear(3);
  const std::int64_t iBeganNs = MonotonicNs();
  const long long iSpoken = rTaker.SpokenBytes(0);
  EXPECT_GE(iSpoken, 3 * REPORT_BYTES);
  EXPECT_LE(iSpoken, 3 * REPORT_BYTES + RING_BYTES);
  EXPECT_TRUE(Await([&] { return rTaker.SpokenBytes(0) >= iSpoken + 100; }));
  EXPECT_GE(MonotonicNs() - iBeganNs, 100LL * 1'000'000'000 / 8000 - 1'000'000);  // not sooner than it is spoken
  // No more than the ring holds: a card that stands still speaks no more.
  EXPECT_TRUE(Await([&] { return rTaker.SpokenBytes(0) == 3 * REPORT_BYTES + RING_BYTES; }));
}

TEST_F(TakerTest, SpokenAtAnEventLeavesOutWhatCameBehindIt) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  EXPECT_EQ(rTaker.SpokenBytes(0, MonotonicNs()), 0);
  Record(rTaker, 0);
  Hear(3);
  simcards::PushEvent(E_CHG_RcvDTMF, 0, '4');
  iReported++;
  Hear(10);
  const TakenEvent* prEvent = nullptr;
  do {
    prEvent = rTaker.Take(MonotonicNs());
    ASSERT_NE(prEvent, nullptr);
  } while (prEvent->eKind == TAKEN_AUDIO);
  EXPECT_GE(rTaker.SpokenBytes(0, prEvent->iTakenNs), 3 * REPORT_BYTES);
  EXPECT_LE(rTaker.SpokenBytes(0, prEvent->iTakenNs), 4 * REPORT_BYTES);
  EXPECT_GE(rTaker.SpokenBytes(0), 13 * REPORT_BYTES);
}

TEST_F(TakerTest, OldestEventTellsHowFarTheMainLoopIsBehind) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  EXPECT_EQ(rTaker.BehindS(), 0);
  simcards::PushEvent(E_CHG_ChState, 2, S_CALL_PICKUPED);
  EXPECT_TRUE(Await([&] { return rTaker.BehindS() > 0.05; }));
  (void)AllEvents(rTaker);
  EXPECT_EQ(rTaker.BehindS(), 0);
  EXPECT_GT(rTaker.TakeFigures().dBehindS, 0.05);
  EXPECT_EQ(rTaker.TakeFigures().dBehindS, 0);
}

// Where the machine is so busy that the cards overtake the taker, they tell, and the bytes say nothing.
TEST_F(TakerTest, MainLoopAndTakerAgreeWhileRecordingsComeAndGo) {
  Taker rTaker(rQueue, MUCH_MEMORY);
  ASSERT_TRUE(rTaker.Start());
  simcards::StartPacing(4);
  for (int iRound = 0; iRound < 10; iRound++) {
    const long long iOverruns = simcards::Overruns();
    std::string strHeard;
    Record(rTaker, 0);
    EXPECT_TRUE(Await([&] {
      strHeard += AllAudio(rTaker);
      return strHeard.size() >= 3 * REPORT_BYTES;
    }));
    const bool fWhole = strHeard == Counted(0, static_cast<long long>(strHeard.size()));
    EXPECT_TRUE(fWhole || simcards::Overruns() > iOverruns);
    Stop(rTaker, 0);
  }
  simcards::StopPacing();
}

}  // namespace
