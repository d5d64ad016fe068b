#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "FakeDatabase.h"
#include "FakeRecorder.h"
#include "LogSink.h"
#include "TestClocks.h"
#include "TestFiles.h"
#include "TestTools.h"
#include "bgact.h"
#include "bgact_tracker.h"
#include "ftime.h"
#include "logging.h"

using testclocks::rLimitSkipS;
using testclocks::rWatchSkipS;
using testtools::Await;

namespace {

// The real interpreter runs a script of the test's; the script notes its process and requests.
class TrackerTest : public testing::Test {
 protected:
  void SetUp() override {
    (void)signal(SIGPIPE, SIG_IGN);
    (void)mkdir("/var/morvex/cmd", 0777);
    for (const char* acName : {"/tmp/requests", "/tmp/pids"}) (void)unlink(acName);
    (void)logsink::Take();
  }
  void TearDown() override { theTracker.close(); }

  // acAnswer: PHP that sees the request as $line and the number of requests so far, over all processes, as $n.
  static void UseScript(const std::string& strAnswer) {
    WriteTestFile("/var/morvex/cmd/tracker.php",
                  "<?php\n"
                  "file_put_contents('/tmp/pids', getmypid() . \"\\n\", FILE_APPEND);\n"
                  "while (($line = fgets(STDIN)) !== false) {\n"
                  "  file_put_contents('/tmp/requests', $line, FILE_APPEND);\n"
                  "  if ($line === \"exit\\n\") exit(0);\n"
                  "  $n = count(file('/tmp/requests'));\n"
                  "  " +
                      strAnswer + "\n}\n");
  }
  static std::size_t Processes() {
    const std::string strPids = ReadTestFile("/tmp/pids");
    return static_cast<std::size_t>(std::count(strPids.begin(), strPids.end(), '\n'));
  }
  static void Post(int iCallID) {
    CallPostAct rAct;
    rAct.iCallID = iCallID;
    rAct.performThread();
    rAct.performMain();
  }
};

TEST_F(TrackerTest, CloseBeforeAnyPostDoesNothing) {
  theTracker.close();
  theTracker.close();
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(TrackerTest, ScriptHearsOfACallAndItsReplyIsLogged) {
  UseScript("echo \"got it\\n\";");
  Post(17);
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "type=crec&act=post&id=17\n");
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Call Post id=17", "5 LineCom reply: got it\n", "5 Post done"}));
}

TEST_F(TrackerTest, FailedRowIsPostedAsItComes) {
  UseScript("echo \"ok\\n\";");
  Post(-1);
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "type=crec&act=post&id=-1\n");
}

TEST_F(TrackerTest, OneProcessServesAllCalls) {
  UseScript("echo \"ok\\n\";");
  for (int i = 1; i <= 5; i++) Post(i);
  EXPECT_EQ(Processes(), 1u);
}

TEST_F(TrackerTest, ErrorReplyIsRepeatedToANewProcess) {
  UseScript("echo $n < 2 ? \"ERROR\\n\" : \"ok\\n\";");
  const StopWatch rWatch;
  Post(3);
  EXPECT_GT(rWatch.Seconds(), 0.49);  // the first pause
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "type=crec&act=post&id=3\ntype=crec&act=post&id=3\n");
  EXPECT_EQ(Processes(), 2u);
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(astrLines.size(), 6u);
  EXPECT_EQ(astrLines[1], "3 LineCom program reports ERROR");
  EXPECT_EQ(astrLines[2], "5 LineCom Restart");
  EXPECT_EQ(astrLines[3].find("5 LineCom try: 2 el: "), 0u);
  EXPECT_EQ(astrLines[3].substr(astrLines[3].size() - 6), " / 120");
  EXPECT_EQ(astrLines[4], "5 LineCom reply: ok\n");
}

TEST_F(TrackerTest, ReplyIsAwaitedForThirtySeconds) {
  UseScript("while ($n === 1) usleep(10000); echo \"ok\\n\";");
  std::thread rClock([] {
    EXPECT_TRUE(Await([] { return ReadTestFile("/tmp/requests") == "type=crec&act=post&id=5\n"; }));
    (void)logsink::Take();
    rLimitSkipS += 25;
    std::size_t iDelayed = 0;  // the second such line tells that the wait went on after the first
    EXPECT_TRUE(Await([&iDelayed] { return (iDelayed += logsink::Take().size()) >= 2; }));
    EXPECT_EQ(Processes(), 1u);
    rLimitSkipS += 6;
  });
  Post(5);
  rClock.join();
  EXPECT_EQ(Processes(), 2u);
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "type=crec&act=post&id=5\ntype=crec&act=post&id=5\n");
}

TEST_F(TrackerTest, PostIsGivenUpAfterTwoMinutes) {
  UseScript("echo \"ERROR\\n\";");
  std::thread rClock([] {
    EXPECT_TRUE(Await([] { return ReadTestFile("/tmp/requests") == "type=crec&act=post&id=4\n"; }));
    rLimitSkipS += 121;
  });
  Post(4);
  rClock.join();
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_GE(astrLines.size(), 4u);
  EXPECT_EQ(astrLines[astrLines.size() - 3], "4 LineCom. Error time-out reached");
  EXPECT_EQ(astrLines[astrLines.size() - 2], "3 LineCom SendMsg post failed");
  EXPECT_EQ(astrLines.back(), "5 Post done");
}

// -- stop -------------------------------------------------------------------------------------------------------------

// Posts these calls, one after the other, as a worker does; the test goes on meanwhile.
class Poster {
 public:
  explicit Poster(const std::vector<int>& aiCallIDs)
      : rThread([this, aiCallIDs] {
          for (const int iCallID : aiCallIDs) {
            CallPostAct rAct;
            rAct.iCallID = iCallID;
            rAct.performThread();
          }
          fEnded = true;
        }) {}
  ~Poster() { rThread.join(); }
  Poster(const Poster&) = delete;
  Poster& operator=(const Poster&) = delete;

  bool HasEnded() const { return fEnded; }
  // The stop goes on until the last post has come to its end.
  bool EndsInTheStop() const {
    return Await([this] {
      theTracker.limitStop();
      return HasEnded();
    });
  }

 private:
  std::atomic<bool> fEnded{false};
  std::thread rThread;
};

const Texts GIVEN_UP = {"4 LineCom shutting down, not sending msg", "3 LineCom SendMsg post failed", "5 Post done"};

class TrackerStopTest : public TrackerTest {
 protected:
  static std::string Requests(int iFirst, int iLast) {
    std::string strAll;
    for (int i = iFirst; i <= iLast; i++) strAll += "type=crec&act=post&id=" + std::to_string(i) + "\n";
    return strAll;
  }
  static bool AwaitRequests(int iFirst, int iLast) {
    return Await([&] { return ReadTestFile("/tmp/requests") == Requests(iFirst, iLast); });
  }
  // The script waits before each answer until it may give it.
  static void UseHeldScript(const std::string& strAnswer = "ok") {
    (void)system("rm -f /tmp/answer*");
    UseScript("while (!file_exists(\"/tmp/answer$n\")) { usleep(10000); clearstatcache(); } echo \"" + strAnswer +
              "\\n\";");
  }
  static void LetAnswer(int iRequest) { WriteTestFile("/tmp/answer" + std::to_string(iRequest), ""); }
};

TEST_F(TrackerStopTest, ScriptThatIsDeadIsGivenUpWithAllItsPosts) {
  UseScript("echo \"ERROR\\n\";");
  const Poster rPoster({6, 7});
  EXPECT_TRUE(Await([] { return Processes() >= 1; }));
  theTracker.limitStop();
  rWatchSkipS += 11;
  EXPECT_TRUE(rPoster.EndsInTheStop());
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_GE(astrLines.size(), 7u);
  Texts astrExpected = GIVEN_UP;
  astrExpected.emplace_back("5 Call Post id=7");
  astrExpected.insert(astrExpected.end(), GIVEN_UP.begin(), GIVEN_UP.end());
  EXPECT_EQ(Texts(astrLines.end() - 7, astrLines.end()), astrExpected);
}

TEST_F(TrackerStopTest, ScriptHasTenSecondsFromTheBeginningOfTheStop) {
  UseHeldScript();
  const Poster rPoster({1, 2});
  EXPECT_TRUE(AwaitRequests(1, 1));
  rWatchSkipS += 20;  // before the stop
  theTracker.limitStop();
  rWatchSkipS += 5;
  theTracker.limitStop();
  for (const int iRequest : {1, 2}) LetAnswer(iRequest);
  EXPECT_TRUE(rPoster.EndsInTheStop());
  EXPECT_EQ(ReadTestFile("/tmp/requests"), Requests(1, 2));
}

TEST_F(TrackerStopTest, ScriptThatAnswersHearsOfAllCallsHoweverLongThatTakes) {
  UseHeldScript();
  const Poster rPoster({1, 2, 3, 4});
  for (int i = 1; i <= 4; i++) {
    EXPECT_TRUE(AwaitRequests(1, i));
    theTracker.limitStop();
    rWatchSkipS += 7;
    theTracker.limitStop();
    LetAnswer(i);
  }
  EXPECT_TRUE(rPoster.EndsInTheStop());
  EXPECT_EQ(ReadTestFile("/tmp/requests"), Requests(1, 4));
  Texts astrExpected;
  for (int i = 1; i <= 4; i++) {
    astrExpected.insert(astrExpected.end(),
                        {"5 Call Post id=" + std::to_string(i), "5 LineCom reply: ok\n", "5 Post done"});
  }
  Texts astrLines = logsink::TakeTexts();
  astrLines.erase(std::remove_if(astrLines.begin(), astrLines.end(),
                                 [](const std::string& strLine) { return strLine.find("5 LineCom answer") == 0; }),
                  astrLines.end());
  EXPECT_EQ(astrLines, astrExpected);
}

TEST_F(TrackerStopTest, AnswerOfAnErrorIsNoneAndItsTimeGoesOnOverAllTries) {
  UseHeldScript("ERROR");
  const StopWatch rWait;
  const Poster rPoster({1});
  EXPECT_TRUE(AwaitRequests(1, 1));
  theTracker.limitStop();
  rWatchSkipS += 7;
  theTracker.limitStop();
  LetAnswer(1);
  EXPECT_TRUE(Await([] { return ReadTestFile("/tmp/requests") == Requests(1, 1) + Requests(1, 1); }));
  EXPECT_FALSE(rPoster.HasEnded());
  rWatchSkipS += 4;
  EXPECT_TRUE(theTracker.isSilent(rWait));
  EXPECT_TRUE(rPoster.EndsInTheStop());
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(std::count(astrLines.begin(), astrLines.end(), "3 LineCom program reports ERROR"), 1);
  EXPECT_EQ(std::count(astrLines.begin(), astrLines.end(), "3 LineCom SendMsg post failed"), 1);
}

TEST_F(TrackerStopTest, PostThatComesLateInALongStopIsSent) {
  UseScript("echo \"ok\\n\";");
  Post(1);
  theTracker.limitStop();
  rWatchSkipS += 60;  // of conversions
  theTracker.limitStop();
  Post(2);
  EXPECT_EQ(ReadTestFile("/tmp/requests"), Requests(1, 2));
}

TEST_F(TrackerTest, RefusedPostIsTold) {
  CallPostAct rAct;
  rAct.iCallID = 8;
  rAct.refused("too many wait");
  EXPECT_EQ(logsink::TakeTexts(), Texts({"3 Call Post id=8 given up, too many wait"}));
}

TEST_F(TrackerTest, ProcessIsReplacedByExitMessageAfterTenMinutes) {
  UseScript("echo \"ok\\n\";");
  Post(1);
  rLimitSkipS += 590;
  Post(2);
  EXPECT_EQ(Processes(), 1u);
  rLimitSkipS += 11;
  Post(3);
  EXPECT_EQ(Processes(), 2u);
  EXPECT_EQ(ReadTestFile("/tmp/requests"),
            "type=crec&act=post&id=1\ntype=crec&act=post&id=2\nexit\ntype=crec&act=post&id=3\n");
}

TEST_F(TrackerTest, TwoThreadsTakeTurns) {
  UseScript("usleep(20000); echo \"reply to $line\";");
  std::vector<std::thread> rThreads;
  for (const int iFirst : {100, 200}) {
    rThreads.emplace_back([iFirst] {
      for (int i = 0; i < 5; i++) theTracker.postCall(iFirst + i);
    });
  }
  for (std::thread& rThread : rThreads) rThread.join();
  Texts astrLines = logsink::TakeTexts();
  std::sort(astrLines.begin(), astrLines.end());
  Texts astrReplies;  // one for each request, and whole
  for (const int iFirst : {100, 200}) {
    for (int i = 0; i < 5; i++) {
      astrReplies.push_back("5 LineCom reply: reply to type=crec&act=post&id=" + std::to_string(iFirst + i) + "\n");
    }
  }
  EXPECT_EQ(astrLines, astrReplies);
  EXPECT_EQ(Processes(), 1u);
}

TEST_F(TrackerTest, WithoutAPoolThePostRunsOnTheCallersThread) {
  UseScript("echo \"ok\\n\";");
  auto* prAct = new CallPostAct;
  prAct->iCallID = 6;
  queueAction(prAct);
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "type=crec&act=post&id=6\n");
}

// Tells of a mail in the log, in which the post tells of itself.
class MailingRecorder : public FakeRecorder {
 public:
  void EmailRecording(int iID, int /*iContactID*/) override { lg(LOG_NOTICE, "Mail %d", iID); }
};

TEST_F(TrackerTest, FinishedCallIsMailedBeforeItIsPosted) {
  UseScript("echo \"ok\\n\";");
  MailingRecorder rRecorder;
  rRecorder.fNeedCallPost = true;
  AudioConvAct rAct;
  rAct.prDB = &rRecorder.rDatabase;
  rAct.prRecorder = &rRecorder;
  rAct.iActiveCallID = 41;
  rAct.fToEmail = true;
  rAct.performMain();
  const Texts astrLog = logsink::TakeTexts();
  ASSERT_GE(astrLog.size(), 2u);
  EXPECT_EQ(astrLog[0], "5 Mail 1");
  EXPECT_EQ(astrLog[1], "5 Call Post id=1");
}

TEST_F(TrackerTest, PoolEndsTheScriptWhenItCloses) {
  UseScript("echo \"ok\\n\";");
  init_bgact();
  auto* prAct = new CallPostAct;
  prAct->iCallID = 7;
  queueAction(prAct);
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  const pid_t iPid = static_cast<pid_t>(strtol(ReadTestFile("/tmp/pids").c_str(), nullptr, 10));
  ASSERT_GT(iPid, 0);
  close_bgact();
  prBgActHandler = nullptr;  // the next test follows
  siginfo_t rInfo{};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(iPid), &rInfo, WEXITED), 0);
  EXPECT_EQ(rInfo.si_status, SIGTERM);
}

}  // namespace
