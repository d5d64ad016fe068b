#include "reactor.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "RecorderBench.h"
#include "TestFiles.h"
#include "TestTools.h"
#include "logging.h"
#include "morvex_crec.h"

using testtools::Await;
using testtools::Exists;
using testtools::StopWatch;

namespace {

// One connection, as the web side has it.
class Client {
 public:
  Client() : hSocket(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un rAddress{};
    rAddress.sun_family = AF_UNIX;
    (void)strcpy(rAddress.sun_path, CREC_SOCKET_PATH);
    fConnected = connect(hSocket, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 0;
  }
  ~Client() { Close(); }
  void Close() {
    if (hSocket >= 0) (void)close(hSocket);
    hSocket = -1;
  }
  bool IsConnected() const { return fConnected; }
  void Send(const std::string& strText) const {
    EXPECT_EQ(send(hSocket, strText.data(), strText.size(), MSG_NOSIGNAL), static_cast<ssize_t>(strText.size()));
  }
  // All until the server closes.
  std::string Read() const {
    std::string strAll;
    char acBuf[200];
    for (ssize_t iGot = 0; (iGot = recv(hSocket, acBuf, sizeof acBuf, 0)) > 0;) {
      strAll.append(acBuf, static_cast<std::size_t>(iGot));
    }
    return strAll;
  }

 private:
  int hSocket;
  bool fConnected = false;
};

std::string AskOnce(const std::string& strCommand) {
  const Client rClient;
  if (!rClient.IsConnected()) return "(not connected)";
  rClient.Send(strCommand);
  return rClient.Read();
}

// The reactor's own thread on the real socket; the test thread is the main thread and runs the actions.
class ReactorTest : public RecorderBench {
 protected:
  void SetUp() override {
    setSignalHandlers();  // the closing signal would end the test program otherwise
    (void)umask(0);
    g_prBoot = &rBoot;
    rRecorder.fInitializing = false;
  }
  void TearDown() override {
    close_reactor();
    rBoot.emptyQueue();
    g_prBoot = nullptr;
    fAppTerminate = false;
    (void)unlink(CREC_SOCKET_PATH);
  }

  void Start() {
    init_reactor(&rRecorder);
    ASSERT_TRUE(Await([] { return Client().IsConnected(); }));
    // That client said nothing, which is an empty message; it has been dealt with when a second one is.
    EXPECT_EQ(Ask("?"), "E0: Unknown commmand\n");
    Forget();
  }

  // The reply to a command while the main thread goes on as usual.
  std::string Ask(const std::string& strCommand) {
    std::atomic<bool> fDone{false};
    std::string strReply;
    std::thread rClient([&] {
      strReply = AskOnce(strCommand);
      fDone = true;
    });
    EXPECT_TRUE(Await([&] {
      (void)rBoot.RunOneAction();
      return fDone.load();
    }));
    rClient.join();
    return strReply;
  }

  // A line in a call with this id.
  BaseChannel& AddCall(const std::string& strId) {
    BaseChannel& rChannel = AddChannel(static_cast<int>(rRecorder.vChannels.size()) + 1);
    rChannel.strDbRemoteId = strId;
    return rChannel;
  }
};

// -- commands and replies -----------------------------------------------------------------------------------------

struct ReplyRow {
  const char* acLabel;
  const char* acCommand;
  bool fOptionsOn;
  const char* acReply;
};

TEST_F(ReactorTest, RepliesOfTheCommandsOnACall) {
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
  BaseChannel& rChannel = AddCall("call-1");
  Start();
  for (const ReplyRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.strDbRemoteId = "call-1";
    rChannel.fRecOnDmd = rRow.fOptionsOn;
    rRecorder.fSilenceOnDemand = rRow.fOptionsOn;
    rRecorder.iDelOnDmdType = rRow.fOptionsOn ? 1 : 0;
    EXPECT_EQ(Ask(rRow.acCommand), rRow.acReply);
  }
}

TEST_F(ReactorTest, StartOfARunningRecordingIsTaken) {
  BaseChannel& rChannel = AddCall("call-1");
  rChannel.fRecOnDmd = true;
  rChannel.fRecording = true;
  Start();
  EXPECT_EQ(Ask("start call-1"), "OK\n");
  rChannel.fRecording = false;
}

TEST_F(ReactorTest, SilenceAndSoundSetTheChannelsFlag) {
  BaseChannel& rChannel = AddCall("call-1");
  rRecorder.fSilenceOnDemand = true;
  Start();
  EXPECT_EQ(Ask("silence call-1"), "OK\n");
  EXPECT_TRUE(rChannel.fSilencing);
  EXPECT_EQ(Ask("sound call-1"), "OK\n");
  EXPECT_FALSE(rChannel.fSilencing);
}

TEST_F(ReactorTest, FirstChannelWithTheIdIsMeant) {
  BaseChannel& rFirst = AddCall("same");
  BaseChannel& rSecond = AddCall("same");
  rRecorder.fSilenceOnDemand = true;
  Start();
  EXPECT_EQ(Ask("silence same"), "OK\n");
  EXPECT_TRUE(rFirst.fSilencing);
  EXPECT_FALSE(rSecond.fSilencing);
}

TEST_F(ReactorTest, UnknownCommandKeepsSpelling) {
  Start();
  for (const char* acCommand : {"x", "Sound call-1", "reconfig\n", " reconfig", "sound\tcall-1", "silence2", "st",
                                "\xff\xfe\x01", "change_local|1|2|0"}) {
    SCOPED_TRACE(acCommand);
    EXPECT_EQ(Ask(acCommand), "E0: Unknown commmand\n");
  }
}

TEST_F(ReactorTest, LogTellsMessageCommandAndReply) {
  Start();
  EXPECT_EQ(Ask("chst 1 2"), "OK\n");
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Msg received: chst 1 2", "5 Command: 'chst' Param: '1 2'", "5 reactor reply: OK"}));
}

TEST_F(ReactorTest, ReconfigIsAnsweredBeforeItIsDone) {
  Start();
  EXPECT_EQ(AskOnce("reconfig"), "OK\n");
  prDb->rParts["o"]["NumberFilterType"] = "2";
  EXPECT_EQ(rRecorder.iNumberFilterType, 0);
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(rRecorder.iNumberFilterType, 2);
  EXPECT_EQ(Ask("reconfig with a parameter"), "OK\n");
}

TEST_F(ReactorTest, ChstIsOkWhateverTheChannel) {
  AddCall("call-1");
  Start();
  g_prReactor->iActResult = 2;  // of a command before; it has no say here
  for (const char* acCommand :
       {"chst 1", "chst 99", "chst -1", "chst", "chst ", "chst x", "chst 99999999999999999999"}) {
    SCOPED_TRACE(acCommand);
    EXPECT_EQ(Ask(acCommand), "OK\n");
  }
}

// -- change_local -------------------------------------------------------------------------------------------------

TEST_F(ReactorTest, ChangeLocalRepliesByTheCommandBefore) {
  BaseChannel& rChannel = AddCall("call-1");
  Start();
  EXPECT_EQ(Ask("change_local 11|22|0"), "OK\n");  // no command yet
  EXPECT_EQ(Ask("silence none"), "E2: unknown call\n");
  EXPECT_EQ(Ask("change_local 11|22|0"), "E2: unknown call\n");
  EXPECT_EQ(Ask("silence call-1"), "E3: option silence-on-demand is off\n");
  EXPECT_EQ(Ask("change_local 11|22|0"), "");  // closed without a line
  rRecorder.fSilenceOnDemand = true;
  EXPECT_EQ(Ask("silence call-1"), "OK\n");
  EXPECT_EQ(Ask("chst 1"), "OK\n");  // leaves no result
  EXPECT_EQ(Ask("change_local 11|22|0"), "OK\n");
  rChannel.fSilencing = false;
}

TEST_F(ReactorTest, ChangeLocalSetsTheNumberOfTheCallWithThatRemoteNumber) {
  BaseChannel& rChannel = AddCall("call-1");
  rChannel.strRemoteNum = "0301234";
  Start();
  EXPECT_EQ(Ask("change_local 55|0301234|0|ignored|1"), "OK\n");
  EXPECT_EQ(rChannel.strLocalNum, "55");
  EXPECT_EQ(Ask("change_local 66|000301234|0"), "OK\n");
  EXPECT_EQ(rChannel.strLocalNum, "66");
  EXPECT_EQ(Ask("change_local 77|0309999|0"), "OK\n");
  EXPECT_EQ(rChannel.strLocalNum, "66");
}

TEST_F(ReactorTest, ChangeLocalWithMissingElements) {
  BaseChannel& rChannel = AddCall("call-1");
  rChannel.strRemoteNum = "0301234";
  Start();
  for (const char* acCommand : {"change_local", "change_local ", "change_local |", "change_local 1"}) {
    SCOPED_TRACE(acCommand);
    EXPECT_EQ(Ask(acCommand), "OK\n");
  }
  EXPECT_EQ(Ask("change_local 55|0301234"), "OK\n");
  EXPECT_EQ(rChannel.strLocalNum, "55");
}

// -- bit trace ----------------------------------------------------------------------------------------------------

TEST_F(ReactorTest, BitTraceCommandsSwitchTheRecorder) {
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

TEST_F(ReactorTest, TwoQuickBitTraceStartsBothSucceed) {
  Start();
  EXPECT_EQ(AskOnce("bittrace_start 7"), "OK\n");
  EXPECT_EQ(AskOnce("bittrace_start nine"), "OK\n");
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_EQ(rRecorder.iBitStreamChNr, 0);  // a bad number is 0
  EXPECT_TRUE(rRecorder.fBitStreamTracing);
}

// -- waits --------------------------------------------------------------------------------------------------------

TEST_F(ReactorTest, WaitEndsAtOnceWhenNothingIsAwaited) {
  CrecReactor rReactor(&rRecorder);
  const StopWatch rWatch;
  EXPECT_TRUE(rReactor.DoWaitOnMain(300));
  EXPECT_LT(rWatch.Seconds(), 0.05);
}

TEST_F(ReactorTest, WaitIsGivenUpAfterSevenSteps) {
  CrecReactor rReactor(&rRecorder);
  rReactor.fWaitingOnMain = true;
  const StopWatch rWatch;
  EXPECT_FALSE(rReactor.DoWaitOnMain(300));
  EXPECT_GE(rWatch.Seconds(), 0.35);
  EXPECT_LT(rWatch.Seconds(), 2);
}

TEST_F(ReactorTest, BusyMainThreadGivesATimeOutAndTheCommandStillTakesEffect) {
  BaseChannel& rChannel = AddCall("call-1");
  rRecorder.fSilenceOnDemand = true;
  rChannel.fRecOnDmd = true;
  Start();
  for (const char* acCommand : {"silence call-1", "sound call-1", "start call-1", "stop call-1", "delete call-1",
                                "chst 1", "change_local 1|2|0"}) {
    SCOPED_TRACE(acCommand);
    EXPECT_EQ(AskOnce(acCommand), "E4: time-out\n");
  }
  EXPECT_TRUE(g_prReactor->fWaitingOnMain);
  EXPECT_TRUE(rBoot.RunOneAction());
  EXPECT_TRUE(rChannel.fSilencing);
  EXPECT_FALSE(g_prReactor->fWaitingOnMain);
}

TEST_F(ReactorTest, LateCompletionReleasesTheNextWaitWithItsResult) {
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
  // Only the late action runs while the second command waits.
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

TEST_F(ReactorTest, CompletionAfterTheReactorHasGoneIsHarmless) {
  Start();
  EXPECT_EQ(AskOnce("silence none"), "E4: time-out\n");
  close_reactor();
  EXPECT_TRUE(rBoot.RunOneAction());
}

// -- clients ------------------------------------------------------------------------------------------------------

TEST_F(ReactorTest, MessageIsCutAtAHundredBytes) {
  const std::string strId(100 - strlen("silence "), 'a');
  AddCall(strId);
  rRecorder.fSilenceOnDemand = true;
  Start();
  EXPECT_EQ(Ask("silence " + strId + std::string(400, 'b')), "OK\n");
}

TEST_F(ReactorTest, MessageEndsAtItsFirstNul) {
  Start();
  EXPECT_EQ(Ask(std::string("chst\0 junk", 10)), "OK\n");
  EXPECT_EQ(Ask(std::string("\0chst", 5)), "E0: Unknown commmand\n");
}

TEST_F(ReactorTest, ClientThatClosesAtOnceIsAnEmptyMessage) {
  Start();
  for (int i = 0; i < 10; i++) Client().Close();
  EXPECT_EQ(Ask("chst"), "OK\n");
  Texts astrLines = logsink::TakeTexts();
  ASSERT_GE(astrLines.size(), 3u);
  EXPECT_EQ(astrLines[0], "5 Msg received: ");
  EXPECT_EQ(astrLines[1], "5 Command: '' Param: ''");
  EXPECT_EQ(astrLines[2], "5 reactor reply: E0: Unknown commmand");
}

TEST_F(ReactorTest, SilentClientIsGivenUpAndTheNextIsServed) {
  Start();
  const Client rSilent;
  const StopWatch rWatch;
  EXPECT_EQ(Ask("chst"), "OK\n");
  EXPECT_GT(rWatch.Seconds(), 4);
  EXPECT_EQ(rSilent.Read(), "E0: Unknown commmand\n");
}

TEST_F(ReactorTest, SlowClientIsWaitedFor) {
  Start();
  const Client rSlow;
  (void)usleep(300'000);
  rSlow.Send("reconfig");
  EXPECT_EQ(rSlow.Read(), "OK\n");
}

TEST_F(ReactorTest, CommandInPiecesIsItsFirstPiece) {
  Start();
  const Client rSplit;
  rSplit.Send("recon");
  EXPECT_EQ(rSplit.Read(), "E0: Unknown commmand\n");
}

TEST_F(ReactorTest, ThousandClientsInARow) {
  Start();
  for (int i = 0; i < 1000; i++) ASSERT_EQ(AskOnce("bittrace_stop"), "ERR: already stopped\n") << i;
}

TEST_F(ReactorTest, ManyClientsAtOnceAreServedOneByOne) {
  Start();
  std::vector<std::thread> rClients;
  std::atomic<int> iServed{0};
  for (int i = 0; i < 30; i++) {
    rClients.emplace_back([&iServed] {
      if (AskOnce("bittrace_stop") == "ERR: already stopped\n") iServed++;
    });
  }
  for (std::thread& rClient : rClients) rClient.join();
  EXPECT_EQ(iServed, 30);
}

// -- life ---------------------------------------------------------------------------------------------------------

TEST_F(ReactorTest, SocketIsOpenToTheWebSideAndReplacesAnOldOne) {
  WriteTestFile(CREC_SOCKET_PATH, "left behind");
  Start();
  struct stat rStat {};
  ASSERT_EQ(stat(CREC_SOCKET_PATH, &rStat), 0);
  EXPECT_TRUE(S_ISSOCK(rStat.st_mode));
  EXPECT_EQ(rStat.st_mode & 07777, 0766u);
}

TEST_F(ReactorTest, CloseEndsTheWaitAndLeavesTheFile) {
  init_reactor(&rRecorder);
  EXPECT_TRUE(Await([] { return Client().IsConnected(); }));
  EXPECT_EQ(AskOnce("?"), "E0: Unknown commmand\n");
  const StopWatch rWatch;
  close_reactor();
  EXPECT_LT(rWatch.Seconds(), 2);
  EXPECT_EQ(g_prReactor, nullptr);
  EXPECT_TRUE(Exists(CREC_SOCKET_PATH));
  EXPECT_FALSE(Client().IsConnected());
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(astrLines.front(), "5 reactor started");
  EXPECT_EQ(astrLines.back(), "5 reactor exit");
}

TEST_F(ReactorTest, CloseRightAfterTheStartDoesNotHang) {
  for (int i = 0; i < 200; i++) {
    init_reactor(&rRecorder);
    if (i % 2 == 1) std::this_thread::yield();
    close_reactor();
  }
  for (const std::string& strLine : logsink::TakeTexts()) {
    const bool fExpected = strLine == "5 reactor started" || strLine == "5 reactor exit" ||
                           strLine == "3 Socket communication error: select: Interrupted system call";
    EXPECT_TRUE(fExpected) << strLine;
  }
}

TEST_F(ReactorTest, SilentClientDoesNotHoldUpTheClose) {
  Start();
  const Client rSilent;
  const StopWatch rWatch;
  close_reactor();
  EXPECT_LT(rWatch.Seconds(), 3);
}

TEST_F(ReactorTest, CloseWithoutAReactorDoesNothing) {
  close_reactor();
}

TEST_F(ReactorTest, SocketThatCannotBeMadeEndsTheThread) {
  ASSERT_EQ(mkdir(CREC_SOCKET_PATH, 0777), 0);
  init_reactor(&rRecorder);
  Texts astrLines;
  EXPECT_TRUE(Await([&astrLines] {
    for (const std::string& strLine : logsink::TakeTexts()) astrLines.push_back(strLine);
    return !astrLines.empty() && astrLines.back() == "5 reactor exit";
  }));
  EXPECT_EQ(astrLines, Texts({"5 reactor started", "3 Socket communication error: bind: Address already in use",
                              "3 Socket communication error: Failure, could not start listening.", "5 reactor exit"}));
  close_reactor();
  (void)rmdir(CREC_SOCKET_PATH);
}

}  // namespace
