#include "reactor.h"

#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ReactorBench.h"

using testtools::Await;

namespace {

thread_local std::vector<unsigned> aiSleeps;  // of this thread, in microseconds

}  // namespace

// Stands in for the C library's, and sleeps too.
extern "C" int usleep(useconds_t iMicroseconds) {
  aiSleeps.push_back(iMicroseconds);
  const timespec rSpan = {static_cast<time_t>(iMicroseconds / 1'000'000),
                          static_cast<long>(iMicroseconds % 1'000'000) * 1000};
  return nanosleep(&rSpan, nullptr);
}

namespace {

using OrdersTest = ReactorBench;

// -- orders and replies -----------------------------------------------------------------------------------------------

struct ReplyRow {
  const char* acLabel;
  const char* acOrder;
  bool fOptionsOn;
  const char* acReply;
};

TEST_F(OrdersTest, RepliesOfTheOrdersOnACall) {
  const ReplyRow rRows[] = {
      {"sound taken", "sound call-1", true, "OK\n"},
      {"sound on no call", "sound call-2", true, "E2: unknown call\n"},
      {"sound refused", "sound call-1", false, "E3: option silence-on-demand is off\n"},
      {"silence taken", "silence call-1", true, "OK\n"},
      {"silence on no call", "silence call-2", true, "E2: unknown call\n"},
      {"silence refused", "silence call-1", false, "E3: option silence-on-demand is off\n"},
      {"stop taken", "stop call-1", true, "OK\n"},
      {"stop on no call", "stop call-2", true, "E2: unknown call\n"},
      {"stop refused", "stop call-1", false, "E3: option RecOnDmd is off\n"},
      {"start on no call", "start call-2", true, "E2: unknown call\n"},
      {"start refused", "start call-1", false, "E3: option RecOnDmd is off\n"},
      {"delete taken", "delete call-1", true, "OK\n"},
      {"delete on no call", "delete call-2", true, "E2: unknown call\n"},
      {"delete refused", "delete call-1", false, "E3: option DelOnDmd is off\n"},
      {"the id is all behind the first blank", "delete call-1 x", true, "E2: unknown call\n"},
      {"a second blank belongs to the id", "delete  call-1", true, "E2: unknown call\n"},
      {"a line feed belongs to the id", "delete call-1\n", true, "E2: unknown call\n"},
  };
  OpenChannel<BaseChannel>& rChannel = AddCall("call-1");
  Start();
  for (const ReplyRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.strDbRemoteId = "call-1";
    rChannel.fRecOnDmd = rRow.fOptionsOn;
    rRecorder.fSilenceOnDemand = rRow.fOptionsOn;
    rRecorder.iDelOnDmdType = rRow.fOptionsOn ? 1 : 0;
    EXPECT_EQ(Ask(rRow.acOrder), rRow.acReply);
  }
}

TEST_F(OrdersTest, StartOfARunningRecordingIsTaken) {
  OpenChannel<BaseChannel>& rChannel = AddCall("call-1");
  rChannel.fRecOnDmd = true;
  rChannel.fRecording = true;
  Start();
  EXPECT_EQ(Ask("start call-1"), "OK\n");
  rChannel.fRecording = false;
}

TEST_F(OrdersTest, SilenceAndSoundReachTheCall) {
  AddCall("call-1");
  rRecorder.fSilenceOnDemand = true;
  Start();
  EXPECT_EQ(Ask("silence call-1"), "OK\n");
  EXPECT_EQ(Silencing(1), "1");
  EXPECT_EQ(Ask("sound call-1"), "OK\n");
  EXPECT_EQ(Silencing(1), "0");
}

TEST_F(OrdersTest, FirstChannelWithTheIdIsMeant) {
  AddCall("same");
  AddCall("same");
  rRecorder.fSilenceOnDemand = true;
  Start();
  EXPECT_EQ(Ask("silence same"), "OK\n");
  EXPECT_EQ(Silencing(1), "1");
  EXPECT_EQ(Silencing(2), "");
}

TEST_F(OrdersTest, UnknownOrderKeepsSpelling) {
  Start();
  for (const char* acOrder : {"x", "Sound call-1", "reconfig\n", " reconfig", "sound\tcall-1", "silence2", "st",
                              "\xff\xfe\x01", "change_local|1|2|0"}) {
    SCOPED_TRACE(acOrder);
    EXPECT_EQ(Ask(acOrder), "E0: Unknown commmand\n");
  }
}

TEST_F(OrdersTest, LogTellsMessageOrderAndReply) {
  Start();
  EXPECT_EQ(Ask("chst 1 2"), "OK\n");
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Msg received: chst 1 2", "5 Command: 'chst' Param: '1 2'", "5 reactor reply: OK"}));
}

TEST_F(OrdersTest, ReconfigIsAnsweredBeforeItIsDone) {
  Start();
  EXPECT_EQ(AskOnce("reconfig"), "OK\n");
  prDb->rParts["o"]["NumberFilterType"] = "2";
  EXPECT_EQ(rRecorder.iNumberFilterType, 0);
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(rRecorder.iNumberFilterType, 2);
  EXPECT_EQ(Ask("reconfig with a parameter"), "OK\n");
}

TEST_F(OrdersTest, OrdersThatOutliveTheSocketAreStillDone) {
  rRecorder.fSilenceOnDemand = true;
  AddCall("call-1");
  Start();
  EXPECT_STREQ(g_prReactor->ReplyTo("reconfig"), "OK");
  EXPECT_STREQ(g_prReactor->ReplyTo("silence call-1"), "E4: time-out");
  prDb->rParts["o"]["NumberFilterType"] = "2";
  close_reactor();
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(rRecorder.iNumberFilterType, 2);
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(Silencing(1), "1");
}

TEST_F(OrdersTest, FloodOfReconfigsIsOneThatWaits) {
  Start();
  for (int i = 0; i < 1000; i++) EXPECT_STREQ(g_prReactor->ReplyTo("reconfig"), "OK");
  prDb->rParts["o"]["NumberFilterType"] = "2";
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(rRecorder.iNumberFilterType, 2);
  EXPECT_FALSE(rBoot.RunOneAction());

  prDb->rParts["o"]["NumberFilterType"] = "1";
  EXPECT_STREQ(g_prReactor->ReplyTo("reconfig"), "OK");
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(rRecorder.iNumberFilterType, 1);
}

TEST_F(OrdersTest, ChstIsOkWhateverTheChannel) {
  AddCall("call-1");
  Start();
  g_prReactor->iActResult = 2;  // of an order before; it has no say here
  for (const char* acOrder : {"chst 1", "chst 99", "chst -1", "chst", "chst ", "chst x", "chst 99999999999999999999"}) {
    SCOPED_TRACE(acOrder);
    EXPECT_EQ(Ask(acOrder), "OK\n");
  }
}

// -- change_local -----------------------------------------------------------------------------------------------------

TEST_F(OrdersTest, ChangeLocalRepliesByTheOrderBefore) {
  AddCall("call-1");
  Start();
  EXPECT_EQ(Ask("change_local 11|22|0"), "OK\n");  // no order yet
  EXPECT_EQ(Ask("silence none"), "E2: unknown call\n");
  EXPECT_EQ(Ask("change_local 11|22|0"), "E2: unknown call\n");
  EXPECT_EQ(Ask("silence call-1"), "E3: option silence-on-demand is off\n");
  EXPECT_EQ(Ask("change_local 11|22|0"), "");  // closed without a line
  rRecorder.fSilenceOnDemand = true;
  EXPECT_EQ(Ask("silence call-1"), "OK\n");
  EXPECT_EQ(Ask("chst 1"), "OK\n");  // leaves no result
  EXPECT_EQ(Ask("change_local 11|22|0"), "OK\n");
}

TEST_F(OrdersTest, ChangeLocalSetsTheNumberOfTheCallWithThatRemoteNumber) {
  OpenChannel<BaseChannel>& rChannel = AddCall("call-1");
  rChannel.strRemoteNum = "0301234";
  Start();
  EXPECT_EQ(Ask("change_local 55|0301234|0|ignored|1"), "OK\n");
  EXPECT_EQ(prDb->TakeCalls(), Texts({"GetCallerIDContact 55", "UpdateActiveCallLocalContact 11 NULL NULL 55"}));
  EXPECT_EQ(Ask("change_local 66|000301234|0"), "OK\n");
  EXPECT_EQ(prDb->TakeCalls(), Texts({"GetCallerIDContact 66", "UpdateActiveCallLocalContact 11 NULL NULL 66"}));
  EXPECT_EQ(Ask("change_local 77|0309999|0"), "OK\n");
  EXPECT_EQ(prDb->TakeCalls(), Texts());
}

TEST_F(OrdersTest, ChangeLocalWithMissingElements) {
  OpenChannel<BaseChannel>& rChannel = AddCall("call-1");
  rChannel.strRemoteNum = "0301234";
  Start();
  for (const char* acOrder : {"change_local", "change_local ", "change_local |", "change_local 1"}) {
    SCOPED_TRACE(acOrder);
    EXPECT_EQ(Ask(acOrder), "OK\n");
  }
  EXPECT_EQ(prDb->TakeCalls(), Texts());
  EXPECT_EQ(Ask("change_local 55|0301234"), "OK\n");
  EXPECT_EQ(prDb->TakeCalls(), Texts({"GetCallerIDContact 55", "UpdateActiveCallLocalContact 11 NULL NULL 55"}));
}

TEST_F(OrdersTest, ChangeLocalIsATransferByAnyThirdElementButZero) {
  Start();
  const struct {
    const char* acRest;
    bool fTransfer;
  } rRows[] = {{"", false}, {"|", true}, {"|0", false}, {"|1", true}, {"|00", true}, {"||0", true}};
  int iLine = 0;
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acRest);
    const std::string strLine = std::to_string(++iLine);
    AddCall("call-" + strLine).strRemoteNum = "0170" + strLine;
    EXPECT_EQ(Ask("change_local 22|0170" + strLine + rRow.acRest), "OK\n");
    const Texts astrLog = logsink::TakeTexts();
    EXPECT_EQ(std::count(astrLog.begin(), astrLog.end(), "5 [" + strLine + "] LocalNumberChanged: STOP"),
              rRow.fTransfer ? 1 : 0);
  }
}

// -- bit trace --------------------------------------------------------------------------------------------------------

TEST_F(OrdersTest, BitTraceOrdersSwitchTheRecorder) {
  Start();
  EXPECT_EQ(Ask("bittrace_stop"), "ERR: already stopped\n");
  EXPECT_EQ(AskOnce("bittrace_start 7"), "OK\n");
  EXPECT_FALSE(rRecorder.fBitStreamTracing);
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_TRUE(rRecorder.fBitStreamTracing);
  EXPECT_EQ(rRecorder.iBitStreamChNr, 7);
  EXPECT_EQ(Ask("bittrace_start 8"), "ERR: already started\n");
  EXPECT_EQ(rRecorder.iBitStreamChNr, 7);
  EXPECT_EQ(AskOnce("bittrace_stop"), "OK\n");
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_FALSE(rRecorder.fBitStreamTracing);
  EXPECT_EQ(rRecorder.iBitStreamChNr, 7);  // only a start sets it
}

TEST_F(OrdersTest, TwoQuickBitTraceStartsBothSucceed) {
  Start();
  EXPECT_EQ(AskOnce("bittrace_start 7"), "OK\n");
  EXPECT_EQ(AskOnce("bittrace_start nine"), "OK\n");
  while (rBoot.RunOneAction()) continue;
  EXPECT_EQ(rRecorder.iBitStreamChNr, 0);  // a bad number is 0
  EXPECT_TRUE(rRecorder.fBitStreamTracing);
}

TEST_F(OrdersTest, FloodOfBitTraceOrdersIsOneOfAKindThatWaits) {
  Start();
  for (int iRound = 0; iRound < 2; iRound++) {
    for (int i = 0; i < 1000; i++) {
      EXPECT_STREQ(g_prReactor->ReplyTo("bittrace_start " + std::to_string(i)), "OK");
      EXPECT_STREQ(g_prReactor->ReplyTo("bittrace_stop"), "ERR: already stopped");
    }
    EXPECT_TRUE(rBoot.RunOneAction());
    EXPECT_FALSE(rBoot.RunOneAction());
    EXPECT_TRUE(rRecorder.fBitStreamTracing);
    EXPECT_EQ(rRecorder.iBitStreamChNr, 999);

    for (int i = 0; i < 1000; i++) {
      EXPECT_STREQ(g_prReactor->ReplyTo("bittrace_stop"), "OK");
      EXPECT_STREQ(g_prReactor->ReplyTo("bittrace_start 7"), "ERR: already started");
    }
    EXPECT_TRUE(rBoot.RunOneAction());
    EXPECT_FALSE(rBoot.RunOneAction());
    EXPECT_FALSE(rRecorder.fBitStreamTracing);
    EXPECT_EQ(rRecorder.iBitStreamChNr, 999);
  }
}

// -- waits ------------------------------------------------------------------------------------------------------------

TEST_F(OrdersTest, WaitEndsAtOnceWhenNothingIsAwaited) {
  CrecReactor rReactor(&rRecorder);
  aiSleeps.clear();
  EXPECT_TRUE(rReactor.DoWaitOnMain(300));
  EXPECT_EQ(aiSleeps, std::vector<unsigned>());
}

TEST_F(OrdersTest, WaitIsGivenUpAfterSevenSteps) {
  CrecReactor rReactor(&rRecorder);
  rReactor.fWaitingOnMain = true;
  aiSleeps.clear();
  EXPECT_FALSE(rReactor.DoWaitOnMain(300));
  EXPECT_EQ(aiSleeps, std::vector<unsigned>(7, 50'000));
}

TEST_F(OrdersTest, BusyMainThreadGivesATimeOutAndTheOrderStillTakesEffect) {
  OpenChannel<BaseChannel>& rChannel = AddCall("call-1");
  rRecorder.fSilenceOnDemand = true;
  rChannel.fRecOnDmd = true;
  Start();
  for (const char* acOrder : {"silence call-1", "sound call-1", "start call-1", "stop call-1", "delete call-1",
                              "chst 1", "change_local 1|2|0"}) {
    SCOPED_TRACE(acOrder);
    EXPECT_EQ(AskOnce(acOrder), "E4: time-out\n");
  }
  EXPECT_TRUE(g_prReactor->fWaitingOnMain);
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(Silencing(1), "1");
  EXPECT_FALSE(g_prReactor->fWaitingOnMain);
}

TEST_F(OrdersTest, LateCompletionReleasesTheNextWaitWithItsResult) {
  AddCall("call-1");
  rRecorder.fSilenceOnDemand = true;
  Start();
  EXPECT_EQ(AskOnce("silence none"), "E4: time-out\n");
  std::atomic<bool> fDone{false};
  std::string strReply;
  std::thread rClient([&] {
    strReply = AskOnce("silence call-1");
    fDone = true;
  });
  // Only the late action runs while the second order waits.
  EXPECT_TRUE(Await([] {
    for (const std::string& strLine : logsink::TakeTexts()) {
      if (strLine == "5 Command: 'silence' Param: 'call-1'") return true;
    }
    return false;
  }));
  (void)usleep(20'000);  // into the first step of its wait
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_TRUE(Await([&] { return fDone.load(); }));
  rClient.join();
  EXPECT_EQ(strReply, "E2: unknown call\n");  // the late result
}

TEST_F(OrdersTest, CompletionAfterTheReactorHasGoneIsHarmless) {
  Start();
  EXPECT_EQ(AskOnce("silence none"), "E4: time-out\n");
  close_reactor();
  EXPECT_TRUE(rBoot.RunOneAction());
}

}  // namespace
