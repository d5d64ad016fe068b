#include "reactor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ReactorBench.h"
#include "TestFiles.h"
#include "ftime.h"

using testtools::Await;
using testtools::Exists;
using testtools::LimitThreads;
using testtools::NoMoreDescriptors;

namespace {

std::atomic<bool> fChmodFails{false};
std::atomic<bool> fListenFails{false};
std::atomic<int> iListenBacklog{0};      // of the last listen
std::atomic<socklen_t> iBoundLength{0};  // of the last bind

int Refuse() {
  errno = EACCES;
  return -1;
}

}  // namespace

// Stand in for the C library's, which refuse nothing to root.
extern "C" int chmod(const char* acPath, mode_t iMode) noexcept {
  return fChmodFails ? Refuse() : static_cast<int>(syscall(SYS_fchmodat, AT_FDCWD, acPath, iMode));
}

extern "C" int bind(int hSocket, const sockaddr* prAddress, socklen_t iLength) noexcept {
  iBoundLength = iLength;
  return static_cast<int>(syscall(SYS_bind, hSocket, prAddress, iLength));
}

extern "C" int listen(int hSocket, int iBacklog) noexcept {
  iListenBacklog = iBacklog;
  return fListenFails ? Refuse() : static_cast<int>(syscall(SYS_listen, hSocket, iBacklog));
}

namespace {

using ReactorTest = ReactorBench;

// -- clients ----------------------------------------------------------------------------------------------------------

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

TEST_F(ReactorTest, OrderInPiecesIsItsFirstPiece) {
  Start();
  const Client rSplit;
  rSplit.Send("recon");
  EXPECT_EQ(rSplit.Read(), "E0: Unknown commmand\n");
}

TEST_F(ReactorTest, ThousandClientsInARowAreServedAndTheLogOfThemIsLimited) {
  Start();
  LogLeftOut();
  (void)logsink::TakeTexts();
  for (int i = 0; i < 1000; i++) ASSERT_EQ(AskOnce("bittrace_stop"), "ERR: already stopped\n") << i;
  EXPECT_EQ(Ask("chst 1"), "OK\n");  // all of theirs has been logged
  LogLeftOut();
  long iTold = 0;
  long iLeftOut = 0;
  for (const std::string& strLine : logsink::TakeTexts()) {
    if (strLine.find("left out: ") != std::string::npos) iLeftOut += std::stol(strLine.substr(2));
    if (strLine.rfind("5 ", 0) == 0) iTold++;
  }
  EXPECT_LT(iTold, 3000 / 2);
  EXPECT_EQ(iTold + iLeftOut, 3003);
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

// -- life -------------------------------------------------------------------------------------------------------------

TEST_F(ReactorTest, SocketIsOpenToTheWebSideAndReplacesAnOldOne) {
  WriteTestFile(CREC_SOCKET_PATH, "left behind");
  Start();
  struct stat rStat {};
  ASSERT_EQ(stat(CREC_SOCKET_PATH, &rStat), 0);
  EXPECT_TRUE(S_ISSOCK(rStat.st_mode));
  EXPECT_EQ(rStat.st_mode & 07777, 0766u);
}

TEST_F(ReactorTest, SocketIsBoundByItsPathAloneAndFiveMayWait) {
  Start();
  EXPECT_EQ(iBoundLength, strlen("/tmp/morvex_crec") + 2);
  EXPECT_EQ(iListenBacklog, 5);
}

TEST_F(ReactorTest, CloseEndsTheWaitAndLeavesTheFile) {
  init_reactor(&rRecorder);
  EXPECT_TRUE(Await([] { return Client().IsConnected(); }));
  EXPECT_EQ(AskOnce("?"), "E0: Unknown commmand\n");
  close_reactor();
  EXPECT_EQ(g_prReactor, nullptr);
  EXPECT_TRUE(Exists(CREC_SOCKET_PATH));
  EXPECT_FALSE(Client().IsConnected());
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_GE(astrLines.size(), 3u);
  EXPECT_EQ(astrLines.front(), "5 reactor started");
  // The reactor had gone back to its wait, as the last client saw its connection closed.
  EXPECT_EQ(astrLines[astrLines.size() - 2], "3 Socket communication error: select: Interrupted system call");
  EXPECT_EQ(astrLines.back(), "5 reactor exit");
}

TEST_F(ReactorTest, CloseRightAfterTheStartDoesNotHang) {
  for (int i = 0; i < 200; i++) {
    init_reactor(&rRecorder);
    if (i % 2 == 1) std::this_thread::yield();
    close_reactor();
  }
  const std::string strBroken = "Socket communication error: select: Interrupted system call";
  for (const std::string& strLine : logsink::TakeTexts()) {
    const bool fExpected = strLine == "5 reactor started" || strLine == "5 reactor exit" ||
                           strLine == "3 " + strBroken ||
                           strLine.find(" messages like this one left out: " + strBroken) != std::string::npos;
    EXPECT_TRUE(fExpected) << strLine;
  }
}

TEST_F(ReactorTest, SilentClientDoesNotHoldUpTheClose) {
  Start();
  const Client rSilent;
  const StopWatch rWatch;
  close_reactor();
  EXPECT_LT(rWatch.Seconds(), 4.5);  // the client's patience is five
}

TEST_F(ReactorTest, CloseWithoutAReactorDoesNothing) {
  close_reactor();
}

class ReactorFailureTest : public ReactorBench {
 protected:
  void TearDown() override {
    ReactorBench::TearDown();
    fChmodFails = fListenFails = false;
    (void)rmdir(CREC_SOCKET_PATH);
  }
  // All lines up to the end of the thread.
  static Texts LinesToTheEnd() {
    Texts astrLines;
    EXPECT_TRUE(Await([&astrLines] {
      for (const std::string& strLine : logsink::TakeTexts()) astrLines.push_back(strLine);
      return !astrLines.empty() && astrLines.back() == "5 reactor exit";
    }));
    return astrLines;
  }
};

constexpr const char* NOT_LISTENING = "3 Socket communication error: Failure, could not start listening.";

TEST_F(ReactorFailureTest, SocketThatCannotBeMadeEndsTheThread) {
  {
    const NoMoreDescriptors rLimit;
    init_reactor(&rRecorder);
    EXPECT_EQ(LinesToTheEnd(), Texts({"5 reactor started", "3 Socket communication error: socket: Too many open files",
                                      NOT_LISTENING, "5 reactor exit"}));
  }
  close_reactor();  // joins a thread that has ended
  EXPECT_EQ(g_prReactor, nullptr);
}

TEST_F(ReactorFailureTest, ThreadThatCannotBeHadIsTold) {
  const auto Run = [this] {
    LimitThreads(0);
    init_reactor(&rRecorder);
    const Texts astrLines = logsink::TakeTexts();
    close_reactor();
    _exit(astrLines == Texts({"3 Socket communication error: thread: Resource temporarily unavailable"}) ? 0 : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

TEST_F(ReactorFailureTest, PathThatIsTakenEndsTheThread) {
  ASSERT_EQ(mkdir(CREC_SOCKET_PATH, 0777), 0);
  init_reactor(&rRecorder);
  EXPECT_EQ(LinesToTheEnd(), Texts({"5 reactor started", "3 Socket communication error: bind: Address already in use",
                                    NOT_LISTENING, "5 reactor exit"}));
}

TEST_F(ReactorFailureTest, SocketThatCannotListenEndsTheThread) {
  fListenFails = true;
  init_reactor(&rRecorder);
  EXPECT_EQ(LinesToTheEnd(), Texts({"5 reactor started", "3 Socket communication error: listen: Permission denied",
                                    NOT_LISTENING, "5 reactor exit"}));
}

TEST_F(ReactorFailureTest, SocketWhoseModeCannotBeSetIsServedAllTheSame) {
  fChmodFails = true;
  init_reactor(&rRecorder);
  EXPECT_TRUE(Await([] { return Client().IsConnected(); }));
  EXPECT_EQ(Ask("?"), "E0: Unknown commmand\n");
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_GE(astrLines.size(), 2u);
  EXPECT_EQ(astrLines[1], "3 Socket communication error: chmod: Permission denied");
}

TEST_F(ReactorFailureTest, FailedAcceptEndsTheThread) {
  Start();
  Client rClient(/*fToConnect=*/false);
  {
    const NoMoreDescriptors rLimit;
    rClient.Connect();
    EXPECT_EQ(LinesToTheEnd(), Texts({"3 Socket communication error: accept: Too many open files", "5 reactor exit"}));
  }
  EXPECT_FALSE(Client().IsConnected());  // silent until the next start of the daemon
}

}  // namespace
