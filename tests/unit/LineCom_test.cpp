#include "LineCom.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fcntl.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LogSink.h"
#include "TestFiles.h"
#include "TestTools.h"
#include "ftime.h"

using testtools::Await;
using testtools::Exists;
using testtools::NoMoreDescriptors;
using testtools::WriteScript;

namespace {

bool fForkFails = false;
bool fFdopenFails = false;

template <typename F>
F* Real(const char* acName) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, acName));
}

}  // namespace

extern "C" pid_t fork() noexcept {
  return fForkFails ? -1 : Real<pid_t()>("fork")();
}

extern "C" FILE* fdopen(int iFd, const char* acMode) noexcept {
  return fFdopenFails ? nullptr : Real<FILE*(int, const char*)>("fdopen")(iFd, acMode);
}

namespace {

class OpenLineCom : public LineCom {
 public:
  using LineCom::childPid;
  using LineCom::EnsureProgramStarted;
  using LineCom::errorRecheckInterval;
  using LineCom::errorTimeout;
  using LineCom::InternalSendMsg;
  using LineCom::IsProgramActive;
  using LineCom::pipesfd;
  using LineCom::readTimeout;
  using LineCom::restartInterval;
  using LineCom::RestartProgram;
  using LineCom::StartProgram;
  using LineCom::WaitForExit;
  using LineCom::writeToChild;
};

// Each child is a real process: a script in a directory of its own, which notes its requests and signals there.
class LineComTest : public testing::Test {
 protected:
  void SetUp() override {
    (void)signal(SIGPIPE, SIG_IGN);  // as the daemon does
    char acDir[] = "/tmp/linecomXXXXXX";
    strDir = mkdtemp(acDir);
    (void)logsink::Take();
  }
  void TearDown() override {
    if (rCom.childPid == 0) return;
    (void)kill(rCom.childPid, SIGKILL);
    (void)waitpid(rCom.childPid, nullptr, 0);
  }

  // Standard shape of a child: the body runs for each request line in $line.
  void UseLoop(const std::string& strBody) {
    Use("#!/bin/sh\ncd " + strDir + "\nn=0\nwhile read -r line; do\n  echo \"$line\" >> requests\n" + strBody +
        "\ndone\n");
  }
  void Use(const std::string& strScript) {
    const std::string strPath = strDir + "/child";
    WriteScript(strPath, strScript);
    const char* aacArgs[] = {"child", "first", "second word", nullptr};
    rCom.Init(strPath.c_str(), aacArgs);
    rCom.SetReadTimeout(5);
    rCom.SetErrorTimeout(0);  // one try
    rCom.SetErrorRecheckInterval(0);
  }
  std::string Requests() const { return ReadTestFile(strDir + "/requests"); }

  std::string strDir;
  OpenLineCom rCom;
  std::string strReply = "untouched";
};

TEST_F(LineComTest, DefaultsOfTheTimes) {
  EXPECT_EQ(rCom.restartInterval, 0);
  EXPECT_EQ(rCom.readTimeout, 10);
  EXPECT_EQ(rCom.errorTimeout, 60);
  EXPECT_EQ(rCom.errorRecheckInterval, 3);
}

// -- a conversation ---------------------------------------------------------------------------------------------------

TEST_F(LineComTest, NoChildBeforeTheFirstMessage) {
  UseLoop("echo hi");
  EXPECT_EQ(rCom.childPid, 0);
  EXPECT_TRUE(rCom.SendMsg("a\n", strReply));
  EXPECT_NE(rCom.childPid, 0);
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(LineComTest, RequestsAndRepliesTakeTurns) {
  UseLoop("echo \"reply to $line\"");
  for (const std::string strWord : {"one", "two", "three"}) {
    EXPECT_TRUE(rCom.SendMsg(strWord + "\n", strReply));
    EXPECT_EQ(strReply, "reply to " + strWord + "\n");
  }
  EXPECT_EQ(Requests(), "one\ntwo\nthree\n");
}

TEST_F(LineComTest, ChildGetsTheWholeArgumentVector) {
  Use("#!/bin/sh\nread -r line\necho \"$#|$1|$2\"\nread -r line\n");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "2|first|second word\n");  // the shell itself takes the first entry
}

TEST_F(LineComTest, ChildHasNoOtherDescriptors) {
  const char* aacArgs[] = {"ls", "/proc/self/fd", nullptr};
  rCom.Init("/bin/ls", aacArgs);
  rCom.SetErrorTimeout(0);
  // Descriptors without close-on-exec, as libraries may hold some.
  const int hExtra = dup(STDOUT_FILENO);
  const int hHigh = fcntl(hExtra, F_DUPFD, 900);
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  (void)close(hExtra);
  (void)close(hHigh);
  EXPECT_EQ(strReply, "0\n1\n2\n3\n");  // 3: the directory that it lists
}

TEST_F(LineComTest, ReplyInTwoPiecesIsJoined) {
  UseLoop("printf 'first '; sleep 0.3; printf 'second\\n'");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "first second\n");
}

TEST_F(LineComTest, LineFeedInsideAReadDoesNotEndTheReply) {
  UseLoop("printf 'one\\ntwo'; sleep 0.3; printf ' three\\n'");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "one\ntwo three\n");
}

TEST_F(LineComTest, StandardErrorGoesToTheLogAndTheWaitGoesOn) {
  UseLoop("echo 'thinking aloud' >&2; sleep 0.3; echo done");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "done\n");
  EXPECT_EQ(logsink::TakeTexts(), Texts({"3 LineCom stderr: thinking aloud\n"}));
}

TEST_F(LineComTest, ClosedStandardErrorDoesNotDisturb) {
  Use("#!/bin/sh\nexec 2>&-\nread -r line\nsleep 0.3\necho done\nread -r line\n");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "done\n");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(LineComTest, SlowAnswerIsLoggedEachSecond) {
  UseLoop("sleep 2.5; echo done");
  EXPECT_TRUE(rCom.SendMsg("slow\n", strReply));
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_GE(astrLines.size(), 2u);  // one more when the shell itself is slow to start
  EXPECT_EQ(astrLines, Texts(astrLines.size(), "5 LineCom answer is delayed. Msg was: slow\n"));
}

// -- failures of one attempt ------------------------------------------------------------------------------------------

TEST_F(LineComTest, ErrorReplyIsAFailureAndTheTextCanBeRead) {
  UseLoop("echo ERROR");
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "ERROR\n");
  EXPECT_EQ(logsink::TakeTexts(), Texts({"3 LineCom program reports ERROR"}));
}

TEST_F(LineComTest, OnlyTheWholeErrorLineIsAFailure) {
  UseLoop("echo 'ERROR 5'");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "ERROR 5\n");
}

TEST_F(LineComTest, LongestReplyFits) {
  UseLoop("printf '%2999d\\n' 7");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, std::string(2998, ' ') + "7\n");
}

TEST_F(LineComTest, TooLongReplyOverflows) {
  UseLoop("printf '%3000d\\n' 7");
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(strReply, "untouched");
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Buffer overflow"}));
}

TEST_F(LineComTest, ChildThatEndsWithoutAReplyReadsEmpty) {
  Use("#!/bin/sh\nread -r line\nexit 0\n");
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Read empty"}));
}

TEST_F(LineComTest, SilentChildFailsAfterTheReadTimeout) {
  UseLoop("sleep 60");
  rCom.SetReadTimeout(2);
  const StopWatch rWatch;
  EXPECT_FALSE(rCom.InternalSendMsg("quiet\n", strReply));
  EXPECT_GT(rWatch.Seconds(), 0.9);  // the clock counts whole seconds
  EXPECT_LT(rWatch.Seconds(), 20);
  EXPECT_TRUE(rCom.IsProgramActive());
  for (const std::string& strLine : logsink::TakeTexts()) {
    EXPECT_EQ(strLine, "5 LineCom answer is delayed. Msg was: quiet\n");
  }
}

TEST_F(LineComTest, DeadChildIsNoticedAndReplacedByTheNextMessage) {
  UseLoop("echo $$");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const std::string strFirst = strReply;
  (void)kill(rCom.childPid, SIGKILL);
  siginfo_t rInfo{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(rCom.childPid), &rInfo, WEXITED | WNOWAIT), 0);  // dead, not yet collected
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_NE(strReply, strFirst);
  EXPECT_EQ(strReply, std::to_string(rCom.childPid) + "\n");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(LineComTest, EndOfTheChildClosesAllPipes) {
  UseLoop("echo hi; exit 0");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const int hOutput = rCom.pipesfd[0], hInput = rCom.pipesfd[1], hErrors = rCom.pipesfd[2];
  EXPECT_TRUE(Await([&] { return !rCom.IsProgramActive(); }));
  for (const int hFd : {hOutput, hInput, hErrors}) EXPECT_EQ(fcntl(hFd, F_GETFD), -1) << hFd;
  for (const int hFd : rCom.pipesfd) EXPECT_EQ(hFd, 0);
  EXPECT_EQ(rCom.writeToChild, nullptr);
  EXPECT_EQ(rCom.childPid, 0);
}

TEST_F(LineComTest, ReadEndsDoNotBlockAndKeepTheirFlags) {
  UseLoop("echo hi");
  ASSERT_TRUE(rCom.StartProgram());
  for (const int hFd : {rCom.pipesfd[0], rCom.pipesfd[2]}) {
    EXPECT_EQ(fcntl(hFd, F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_NONBLOCK | O_RDONLY);
  }
  EXPECT_EQ(fcntl(rCom.pipesfd[1], F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(LineComTest, ChildThatCannotBeWrittenToIsAnInvalidState) {
  UseLoop("echo hi");
  ASSERT_TRUE(rCom.StartProgram());
  (void)fclose(rCom.writeToChild);
  rCom.writeToChild = nullptr;
  rCom.pipesfd[1] = dup(rCom.pipesfd[0]);
  // The end of its input ends the child, so it is kept alive for the look at it.
  (void)kill(rCom.childPid, SIGSTOP);
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Invalid state"}));
}

// A child with one of our ends replaced by a descriptor that fails at its use.
class BrokenPipeTest : public LineComTest {
 protected:
  void SetUp() override {
    LineComTest::SetUp();
    UseLoop("sleep 60");
    ASSERT_TRUE(rCom.StartProgram());
  }
  void Replace(int hEnd, const char* acBy) {
    const int hOther = open(acBy, O_RDONLY);
    ASSERT_EQ(dup2(hOther, hEnd), hEnd);
    (void)close(hOther);
  }
};

TEST_F(BrokenPipeTest, RequestThatCannotBeWrittenIsAFailure) {
  FILE* hReadOnly = fopen("/dev/null", "r");
  std::swap(rCom.writeToChild, hReadOnly);
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  std::swap(rCom.writeToChild, hReadOnly);
  (void)fclose(hReadOnly);
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Write failure"}));
}

TEST_F(BrokenPipeTest, OutputThatCannotBeReadIsAFailure) {
  Replace(rCom.pipesfd[0], "/tmp");
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Read error"}));
}

TEST_F(BrokenPipeTest, ErrorOutputThatCannotBeReadIsAFailure) {
  Replace(rCom.pipesfd[2], "/tmp");
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Read -1"}));
}

TEST_F(BrokenPipeTest, SignalDuringTheWaitIsAFailure) {
  struct sigaction rAction {};
  rAction.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &rAction, nullptr), 0);
  const pthread_t rWaiting = pthread_self();
  std::atomic<bool> fDone{false};
  std::thread rSender([&] {
    EXPECT_TRUE(Await([&] {  // until one of them meets the wait
      (void)pthread_kill(rWaiting, SIGUSR1);
      return fDone.load();
    }));
  });
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  fDone = true;
  rSender.join();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Select error"}));
}

TEST_F(LineComTest, ProgramThatCannotBeStartedIsAFailure) {
  UseLoop("echo hi");
  const auto ExpectRefused = [this] {
    EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
    EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Ensure program is started failed"}));
    EXPECT_EQ(rCom.childPid, 0);
  };
  for (const int iPipes : {0, 1, 2}) {
    SCOPED_TRACE(iPipes);
    const NoMoreDescriptors rLimit(2 * iPipes);  // of the three that it takes
    ExpectRefused();
    ExpectRefused();  // the first has left no pipe open
  }
  fForkFails = true;
  ExpectRefused();
  fForkFails = false;
  EXPECT_TRUE(rCom.InternalSendMsg("x\n", strReply));
}

TEST_F(LineComTest, ChildWhoseInputCannotBeOpenedIsAFailure) {
  UseLoop("echo hi");
  fFdopenFails = true;
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  fFdopenFails = false;
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Ensure program is started failed"}));
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom. Invalid state"}));
  rCom.RestartProgram(/*mayUseExitMsg=*/false);
  EXPECT_TRUE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 LineCom Restart"}));
}

TEST_F(LineComTest, MissingProgramFailsReadOrStartAndEndsWith99) {
  const char* aacArgs[] = {"none", nullptr};
  rCom.Init("/no/such/program", aacArgs);
  ASSERT_TRUE(rCom.StartProgram());  // the fork succeeds
  int iStatus = 0;
  ASSERT_EQ(waitpid(rCom.childPid, &iStatus, 0), rCom.childPid);
  EXPECT_TRUE(WIFEXITED(iStatus));
  EXPECT_EQ(WEXITSTATUS(iStatus), 99);
  EXPECT_FALSE(rCom.IsProgramActive());
}

TEST_F(LineComTest, MissingProgramIsRetriedUntilTheErrorTimeout) {
  const char* aacArgs[] = {"none", nullptr};
  rCom.Init("/no/such/program", aacArgs);
  rCom.SetErrorTimeout(2);
  rCom.SetErrorRecheckInterval(1);
  EXPECT_FALSE(rCom.SendMsg("x\n", strReply));
  const Texts astrLines = logsink::TakeTexts();
  // Whether a start is seen to have failed is a race between the child's exec and our look at it.
  for (const std::string& strLine : astrLines) {
    const bool fExpected = strLine == "4 LineCom. Read empty" || strLine == "5 LineCom Restart" ||
                           strLine == "4 LineCom. Ensure program is started failed" ||
                           strLine == "4 LineCom. Error time-out reached" || strLine.find("5 LineCom try: ") == 0;
    EXPECT_TRUE(fExpected) << strLine;
  }
  EXPECT_EQ(astrLines.back(), "4 LineCom. Error time-out reached");
}

// -- retries ----------------------------------------------------------------------------------------------------------

TEST_F(LineComTest, FailedRequestIsSentAgainToANewChild) {
  // The first child answers with an error and the second one well: the count of children is kept in a file.
  Use("#!/bin/sh\ncd " + strDir +
      "\necho x >> starts\nwhile read -r line; do\n  echo \"$line\" >> requests\n"
      "  if [ $(wc -l < starts) -gt 1 ]; then echo good; else echo ERROR; fi\ndone\n");
  rCom.SetErrorTimeout(30);
  rCom.SetErrorRecheckInterval(1);
  const StopWatch rWatch;
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_GT(rWatch.Seconds(), 0.49);  // the pause after the first try
  EXPECT_EQ(strReply, "good\n");
  EXPECT_EQ(Requests(), "x\nx\n");
  Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(astrLines.size(), 3u);
  EXPECT_EQ(astrLines[0], "3 LineCom program reports ERROR");
  EXPECT_EQ(astrLines[1], "5 LineCom Restart");
  EXPECT_TRUE(astrLines[2] == "5 LineCom try: 2 el: 0 / 30" || astrLines[2] == "5 LineCom try: 2 el: 1 / 30")
      << astrLines[2];
}

TEST_F(LineComTest, PausesGrowByHalfASecondEachUntilTheErrorTimeout) {
  UseLoop("echo ERROR");
  rCom.SetErrorTimeout(3);
  rCom.SetErrorRecheckInterval(1);
  const StopWatch rWatch;
  EXPECT_FALSE(rCom.SendMsg("x\n", strReply));
  // Pauses of 0.5, 1 and 1.5 s, then the time-out shows at the head of the next try.
  EXPECT_GT(rWatch.Seconds(), 1.9);
  EXPECT_LT(rWatch.Seconds(), 30);
  EXPECT_EQ(strReply, "ERROR\n");  // still the caller's to read
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(astrLines.back(), "4 LineCom. Error time-out reached");
  EXPECT_EQ(astrLines[0], "3 LineCom program reports ERROR");
  EXPECT_EQ(astrLines[1], "5 LineCom Restart");
  EXPECT_EQ(astrLines[2].find("5 LineCom try: 2 el: "), 0u);
}

TEST_F(LineComTest, ErrorTimeoutZeroGivesOneTryAndNoRestart) {
  UseLoop("echo ERROR");
  EXPECT_FALSE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"3 LineCom program reports ERROR", "4 LineCom. Error time-out reached"}));
  EXPECT_EQ(Requests(), "x\n");
}

TEST_F(LineComTest, RestartAfterAFailureSkipsTheExitMessage) {
  UseLoop("echo ERROR");
  rCom.SupportsExitMsg();
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  const pid_t iFirst = rCom.childPid;
  rCom.RestartProgram(/*mayUseExitMsg=*/false);
  EXPECT_NE(rCom.childPid, iFirst);
  EXPECT_EQ(Requests(), "x\n");
}

// -- routine restarts -------------------------------------------------------------------------------------------------

TEST_F(LineComTest, ChildLivesOnWithoutARestartInterval) {
  UseLoop("echo $$");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const std::string strFirst = strReply;
  (void)usleep(1'100'000);  // longer than the shortest interval
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(strReply, strFirst);
}

TEST_F(LineComTest, ChildIsReplacedWhenItsIntervalHasPassed) {
  UseLoop("[ \"$line\" = exit ] && exit 0; echo $$");
  rCom.SetRestartInterval(1);
  rCom.SupportsExitMsg();
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const std::string strFirst = strReply;
  (void)usleep(1'100'000);
  EXPECT_TRUE(rCom.SendMsg("y\n", strReply));
  EXPECT_NE(strReply, strFirst);
  EXPECT_EQ(Requests(), "x\nexit\ny\n");
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 LineCom Restart", "4 LineCom. Read empty"}));
}

TEST_F(LineComTest, ChildWithoutExitMessageGetsSigterm) {
  Use("#!/bin/sh\ncd " + strDir +
      "\ntrap 'echo term >> signals; exit 0' TERM\nwhile read -r line; do echo \"$line\" >> requests; echo $$; done\n");
  rCom.SetRestartInterval(1);
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const std::string strFirst = strReply;
  (void)usleep(1'100'000);
  // A shell runs its trap only when its read returns, which the end of the pipe does not bring here: it is a signal to
  // a waiting read that does.
  EXPECT_TRUE(rCom.SendMsg("y\n", strReply));
  EXPECT_NE(strReply, strFirst);
  EXPECT_EQ(Requests(), "x\ny\n");
  EXPECT_EQ(ReadTestFile(strDir + "/signals"), "term\n");
}

TEST_F(LineComTest, ChildThatIgnoresTheExitMessageGetsSigterm) {
  UseLoop("[ \"$line\" = exit ] || echo $$");
  rCom.SupportsExitMsg();
  rCom.SetReadTimeout(1);
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const pid_t iFirst = rCom.childPid;
  rCom.RestartProgram(/*mayUseExitMsg=*/true);
  EXPECT_NE(rCom.childPid, iFirst);
  EXPECT_NE(rCom.childPid, 0);
  EXPECT_EQ(Requests(), "x\nexit\n");
}

TEST_F(LineComTest, ChildThatIgnoresSigtermIsLeftToALaterAttempt) {
  UseLoop("trap '' TERM; echo $$");
  rCom.SetReadTimeout(1);
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  const pid_t iFirst = rCom.childPid;
  rCom.RestartProgram(/*mayUseExitMsg=*/false);
  EXPECT_EQ(rCom.childPid, iFirst);
  EXPECT_TRUE(rCom.IsProgramActive());
}

TEST_F(LineComTest, RestartWithoutAChildStartsOne) {
  UseLoop("echo hi");
  rCom.RestartProgram(/*mayUseExitMsg=*/true);
  EXPECT_TRUE(rCom.IsProgramActive());
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 LineCom Restart"}));
}

TEST_F(LineComTest, IntervalWithoutALivingChildRestartsNothing) {
  UseLoop("echo hi");
  rCom.SetRestartInterval(1);  // passed long ago, counted from the start that never was
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

// -- the end ----------------------------------------------------------------------------------------------------------

TEST_F(LineComTest, WaitForExitTellsWhetherTheChildHasGone) {
  EXPECT_TRUE(rCom.WaitForExit(0));  // no child
  UseLoop("exit 0");
  ASSERT_TRUE(rCom.StartProgram());
  EXPECT_FALSE(rCom.WaitForExit(0));
  (void)fputs("go\n", rCom.writeToChild);
  (void)fflush(rCom.writeToChild);
  EXPECT_TRUE(rCom.WaitForExit(20));
  EXPECT_EQ(rCom.childPid, 0);
}

TEST_F(LineComTest, SignalStopRefusesWithoutTouchingTheChild) {
  UseLoop("echo hi");
  rCom.SignalStop();
  EXPECT_FALSE(rCom.SendMsg("x\n", strReply));
  EXPECT_EQ(rCom.childPid, 0);
  EXPECT_FALSE(Exists(strDir + "/requests"));
  EXPECT_EQ(logsink::TakeTexts(), Texts({"4 LineCom shutting down, not sending msg"}));
}

TEST_F(LineComTest, SignalStopEndsEachWait) {
  UseLoop("sleep 60");
  rCom.SetReadTimeout(1000000);
  ASSERT_TRUE(rCom.StartProgram());
  rCom.SignalStop();
  EXPECT_FALSE(rCom.InternalSendMsg("x\n", strReply));
  EXPECT_FALSE(rCom.WaitForExit(1000000));
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(LineComTest, SignalStopFromAnotherThreadEndsTheWaitForAReply) {
  UseLoop("sleep 60");
  rCom.SetReadTimeout(50);
  std::thread rStopper([this] {
    EXPECT_TRUE(Await([this] { return Requests() == "x\n"; }));
    rCom.SignalStop();
  });
  const StopWatch rWatch;
  EXPECT_FALSE(rCom.SendMsg("x\n", strReply));
  EXPECT_LT(rWatch.Seconds(), 20);
  rStopper.join();
}

TEST_F(LineComTest, TimeOutsThatChangeDuringASendCountForIt) {
  UseLoop("sleep 60");
  rCom.SetReadTimeout(1000);
  rCom.SetErrorTimeout(1000);
  std::thread rOther([this] {
    EXPECT_TRUE(Await([this] { return Requests() == "x\n"; }));
    rCom.SetErrorTimeout(0);
    rCom.SetReadTimeout(0);
  });
  EXPECT_FALSE(rCom.SendMsg("x\n", strReply));
  rOther.join();
  EXPECT_EQ(Requests(), "x\n");
}

TEST_F(LineComTest, StopSendsSigtermAndDoesNotWait) {
  UseLoop("trap '' TERM; echo hi");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  rCom.Stop();
  EXPECT_TRUE(rCom.IsProgramActive());  // this one does not mind, and has been left to itself
}

TEST_F(LineComTest, StopEndsTheChild) {
  UseLoop("echo hi");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  rCom.Stop();
  int iStatus = 0;
  ASSERT_EQ(waitpid(rCom.childPid, &iStatus, 0), rCom.childPid);
  EXPECT_TRUE(WIFSIGNALED(iStatus));
  EXPECT_EQ(WTERMSIG(iStatus), SIGTERM);
}

TEST_F(LineComTest, StopWithoutAChildDoesNothing) {
  rCom.Stop();
  EXPECT_EQ(rCom.childPid, 0);
}

TEST_F(LineComTest, StopCleansUpAfterAChildThatHasGone) {
  UseLoop("echo hi; exit 0");
  EXPECT_TRUE(rCom.SendMsg("x\n", strReply));
  siginfo_t rInfo{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(rCom.childPid), &rInfo, WEXITED | WNOWAIT), 0);
  rCom.Stop();
  EXPECT_EQ(rCom.childPid, 0);
  EXPECT_EQ(rCom.writeToChild, nullptr);
}

}  // namespace
