#include "reactor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ReactorBench.h"
#include "TestFiles.h"

using testtools::Await;
using testtools::Exists;
using testtools::StopWatch;

namespace {

using ReactorTest = ReactorBench;

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
