#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "RecorderBench.h"
#include "TestFiles.h"
#include "TestTime.h"
#include "TestTools.h"
#include "mainthread.h"

using testtools::Exists;

namespace {

constexpr const char* EVENT_SIGN = "/var/morvex/data/crec_event";

std::vector<std::string>* prNotes = nullptr;  // of the running test

class NotingChannel : public OpenChannel<BaseChannel> {
 public:
  explicit NotingChannel(int iNumber) : iMine(iNumber) {}
  ~NotingChannel() override { Note("deleted"); }
  void HandleEvent(SSM_EVENT* prEvent) override { Note("event " + std::to_string(prEvent->wEventCode)); }
  void Periodic() override {
    Note("periodic");
    if (rOnPeriodic) rOnPeriodic();
  }
  void Finalize() override { Note(fCallBusy ? "finalize in a call" : "finalize"); }

  std::function<void()> rOnPeriodic;

 private:
  void Note(const std::string& strText) const { prNotes->push_back(std::to_string(iMine) + " " + strText); }
  int iMine;
};

class RecorderTest : public RecorderBench {
 protected:
  void SetUp() override {
    prNotes = &astrNotes;
    (void)unlink(EVENT_SIGN);
    for (int i = 0; i < 3; i++) AddNoting(i);
    Forget();
  }
  void TearDown() override {
    testtime::rFrozen = 0;
    for (const BaseChannel* prChannel : rRecorder.vChannels) delete prChannel;  // while astrNotes is there
    rRecorder.vChannels.clear();
  }

  NotingChannel& AddNoting(int iDrvCh) {
    auto* prChannel = new NotingChannel(iDrvCh);  // owned by the recorder
    prChannel->prRecorder = &rRecorder;
    prChannel->iDrvCh = iDrvCh;
    rRecorder.vChannels.push_back(prChannel);
    return *prChannel;
  }
  void Send(WORD wCode, int nReference) {
    SSM_EVENT rEvent = simcards::MakeEvent(wCode, nReference, 0);
    rRecorder.HandleEvent(&rEvent);
  }

  Texts astrNotes;
};

TEST_F(RecorderTest, EventReachesTheChannelOfItsReference) {
  Send(E_CHG_ChState, 0);
  Send(E_CHG_RcvDTMF, 2);
  EXPECT_EQ(astrNotes, Texts({"0 event 24", "2 event 12"}));
}

TEST_F(RecorderTest, ReferenceOutsideTheTableIsDroppedSilently) {
  for (const int nReference : {-1, -2, 3, 4, 100000, INT_MAX, INT_MIN}) Send(E_CHG_ChState, nReference);
  EXPECT_EQ(astrNotes, Texts());
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(RecorderTest, MissingChannelIsSkipped) {
  delete rRecorder.vChannels[1];
  rRecorder.vChannels[1] = nullptr;
  astrNotes.clear();
  Send(E_CHG_ChState, 1);
  rRecorder.Shutdown();
  EXPECT_EQ(astrNotes, Texts({"0 finalize", "2 finalize"}));
}

TEST_F(RecorderTest, PcmLinkStatusReachesNobody) {
  Send(E_CHG_PcmLinkStatus, 0);
  EXPECT_EQ(astrNotes, Texts());
  EXPECT_TRUE(Exists(EVENT_SIGN));  // and is a sign of life all the same
}

TEST_F(RecorderTest, SpyStateGoesToTheChannelOfTheCircuit) {
  rBoot.rCicToAppChMap = {{0, 2}, {7, 1}, {8, -1}, {9, 50}};
  for (const int nCic : {0, 7, 8, 9, 1, -1}) Send(E_CHG_SpyState, nCic);
  EXPECT_EQ(astrNotes, Texts({"2 event 49", "1 event 49"}));
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(RecorderTest, SpyStateWithoutAnyCircuitIsDropped) {
  Send(E_CHG_SpyState, 0);
  EXPECT_EQ(astrNotes, Texts());
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

// -- sign of life -----------------------------------------------------------------------------------------------------

TEST_F(RecorderTest, SignOfLifeIsMadeOnceASecondAndEmptied) {
  testtime::rFrozen = 5000;
  EXPECT_FALSE(Exists(EVENT_SIGN));
  Send(E_CHG_ChState, -1);  // also an event that is dropped
  EXPECT_EQ(ReadTestFile(EVENT_SIGN), "");
  WriteTestFile(EVENT_SIGN, "x");
  Send(E_CHG_ChState, 0);
  EXPECT_EQ(ReadTestFile(EVENT_SIGN), "x");  // the same second
  testtime::rFrozen = 5001;
  Send(E_CHG_ChState, 0);
  EXPECT_EQ(ReadTestFile(EVENT_SIGN), "");
  EXPECT_EQ(rRecorder.lastEventReportTime, 5001);
}

TEST_F(RecorderTest, ClockSetBackDelaysTheSignOfLife) {
  testtime::rFrozen = 5000;
  Send(E_CHG_ChState, 0);
  WriteTestFile(EVENT_SIGN, "x");
  testtime::rFrozen = 4000;
  Send(E_CHG_ChState, 0);
  EXPECT_EQ(ReadTestFile(EVENT_SIGN), "x");
}

TEST_F(RecorderTest, SignOfLifeThatCannotBeWrittenIsIgnored) {
  {
    const testtools::NoMoreDescriptors rLimit;
    Send(E_CHG_ChState, 0);
  }
  EXPECT_EQ(astrNotes, Texts({"0 event 24"}));
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(RecorderTest, SignOfLifeOfAnEmptyFileIsItsTime) {
  WriteTestFile(EVENT_SIGN, "");
  const timespec rLongAgo[2] = {};
  ASSERT_EQ(utimensat(AT_FDCWD, EVENT_SIGN, rLongAgo, 0), 0);
  Send(E_CHG_ChState, 0);
  struct stat rStat {};
  ASSERT_EQ(stat(EVENT_SIGN, &rStat), 0);
  EXPECT_NE(rStat.st_mtime, 0);
}

TEST_F(RecorderTest, SignOfLifeWaitsForNobodyAndFollowsNoLink) {
  (void)unlink(EVENT_SIGN);
  ASSERT_EQ(mkfifo(EVENT_SIGN, 0666), 0);
  testtime::rFrozen = 5000;
  Send(E_CHG_ChState, 0);
  EXPECT_EQ(ReadTestFile(EVENT_SIGN), "");
  WriteTestFile("/tmp/foreign", "foreign");
  ASSERT_EQ(unlink(EVENT_SIGN), 0);
  ASSERT_EQ(symlink("/tmp/foreign", EVENT_SIGN), 0);
  testtime::rFrozen = 5001;
  Send(E_CHG_ChState, 0);
  EXPECT_EQ(ReadTestFile(EVENT_SIGN), "");
  EXPECT_EQ(ReadTestFile("/tmp/foreign"), "foreign");
}

// -- once a second ----------------------------------------------------------------------------------------------------

TEST_F(RecorderTest, EachChannelHasItsTurnInTableOrder) {
  delete rRecorder.vChannels[1];
  rRecorder.vChannels[1] = nullptr;
  astrNotes.clear();
  rRecorder.Periodic();
  EXPECT_EQ(astrNotes, Texts({"0 periodic", "2 periodic"}));
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(RecorderTest, ChannelAddedByATurnHasItsOwn) {
  AddNoting(3).rOnPeriodic = [this] { AddNoting(4); };
  rRecorder.Periodic();
  EXPECT_EQ(astrNotes, Texts({"0 periodic", "1 periodic", "2 periodic", "3 periodic", "4 periodic"}));
}

TEST_F(RecorderTest, SlowTurnIsAWarning) {
  AddNoting(3).rOnPeriodic = [] { (void)usleep(120'000); };
  rRecorder.Periodic();
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(astrLines.size(), 1u);
  double dTook = 0;
  ASSERT_EQ(sscanf(astrLines[0].c_str(), "4 Periodic took: %lf s", &dTook), 1) << astrLines[0];
  EXPECT_GT(dTook, 0.1);
  char acLine[60];
  (void)snprintf(acLine, sizeof acLine, "4 Periodic took: %.4f s", dTook);
  EXPECT_EQ(astrLines[0], acLine);
}

// -- threads ----------------------------------------------------------------------------------------------------------

// Debug builds alone check it: in the others each entry just runs.
TEST_F(RecorderTest, EntriesAreForTheMainThreadAlone) {
  const std::function<void()> rEntries[] = {
      [this] { Send(E_CHG_ChState, 0); },
      [this] { rRecorder.Periodic(); },
      [this] { rRecorder.Shutdown(); },
      [this] { rRecorder.Reconfigure(); },
      [this] { (void)rRecorder.DelOnDmdAct("x"); },
      [this] { (void)rRecorder.ChLocal("1", "2", false); },
      [this] { rRecorder.ChannelDigit(0, '1'); },
  };
  for (const std::function<void()>& rEntry : rEntries) {
    EXPECT_DEBUG_DEATH(
        {
          RememberMainThread();
          std::thread(rEntry).join();
        },
        "OnMainThread");
  }
}

// -- the end ----------------------------------------------------------------------------------------------------------

TEST_F(RecorderTest, ShutdownEndsCallsInTableOrderAndRemovesTheLineStatus) {
  WriteTestFile("/var/morvex/data/linestatus.dat", "Line_1: OK\n");
  for (BaseChannel* prChannel : rRecorder.vChannels) prChannel->*&OpenChannel<BaseChannel>::fCallBusy = true;
  rRecorder.Shutdown();
  EXPECT_EQ(astrNotes, Texts({"0 finalize", "1 finalize", "2 finalize"}));  // the call had ended before
  EXPECT_EQ(simcards::TakeCalls(), Texts({"SsmClearCallerId(0)", "SsmClearCallerId(1)", "SsmClearCallerId(2)"}));
  EXPECT_FALSE(Exists("/var/morvex/data/linestatus.dat"));
}

TEST_F(RecorderTest, RecorderDeletesItsChannelsInTableOrder) {
  {
    CRecorder rOther;
    rOther.vChannels.swap(rRecorder.vChannels);
    rOther.vChannels.push_back(nullptr);
  }
  EXPECT_EQ(astrNotes, Texts({"0 deleted", "1 deleted", "2 deleted"}));
}

}  // namespace
