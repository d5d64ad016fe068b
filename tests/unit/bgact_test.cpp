#include "bgact.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Diary.h"
#include "LogSink.h"
#include "TestTools.h"
#include "ftime.h"
#include "shell.h"
#include "signaling.h"

using testtools::Await;
using testtools::AWAIT_MS;
using testtools::Exists;
using testtools::LimitThreads;
using testtools::ThreadState;

namespace {

// Notes all that happens to it. While *prHold is true its slow part goes on.
class NotingAct : public ThreadAct {
 public:
  NotingAct(Diary& rDiaryToUse, const std::string& strItsName, std::atomic<bool>* prHoldWhile = nullptr)
      : rDiary(rDiaryToUse), strName(strItsName), prHold(prHoldWhile), rMaker(std::this_thread::get_id()) {}
  ~NotingAct() override { rDiary.Note(strName + " deleted"); }
  void performThread() override {
    rDiary.Note(strName + " thread" + (std::this_thread::get_id() == rMaker ? " here" : ""));
    if (prHold == nullptr) return;
    EXPECT_TRUE(Await([this] { return !*prHold; }));
  }
  void performMain() override {
    rDiary.Note(strName + " main" + (std::this_thread::get_id() == rMaker ? " here" : ""));
  }
  void completed() override { rDiary.Note(strName + " completed"); }

 protected:
  Diary& rDiary;
  std::string strName;

 private:
  std::atomic<bool>* prHold;
  std::thread::id rMaker;
};

class BgActTest : public testing::Test {
 protected:
  void SetUp() override { (void)logsink::Take(); }
  void TearDown() override {
    fHold = false;
    ClosePool();
    g_prBoot = nullptr;
  }
  // close_bgact leaves the pointer, as the process ends; here the next test follows.
  void ClosePool() {
    if (prBgActHandler == nullptr) return;
    close_bgact();
    prBgActHandler = nullptr;
  }

  Diary rDiary;
  std::atomic<bool> fHold{true};
};

TEST_F(BgActTest, WithoutAPoolTheActionRunsToItsEndAtOnce) {
  queueAction(new NotingAct(rDiary, "a"));
  EXPECT_EQ(rDiary.Notes(), Texts({"a thread here", "a main here", "a deleted"}));  // and completed is not called
}

TEST_F(BgActTest, WithoutAPoolANullActionIsIgnored) {
  queueAction(nullptr);
}

TEST_F(BgActTest, WithoutAPoolTheQueueIsReady) {
  EXPECT_TRUE(isBgQueueReady());
}

TEST_F(BgActTest, ActionGoesThroughAWorkerToTheMainThread) {
  MainQueue rQueue;
  g_prBoot = &rQueue;
  init_bgact();
  queueAction(new NotingAct(rDiary, "a"));
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_EQ(rDiary.Notes(), Texts({"a thread"}));
  EXPECT_TRUE(rQueue.RunOneAction());
  EXPECT_EQ(rDiary.Notes(), Texts({"a thread", "a main here", "a completed", "a deleted"}));
  EXPECT_FALSE(rQueue.RunOneAction());
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(astrLines.size(), 1u);
  EXPECT_TRUE(astrLines[0] == "7 Bg Act 0\n" || astrLines[0] == "7 Bg Act 1\n") << astrLines[0];
}

TEST_F(BgActTest, WorkerIsBusyUntilTheMainQueueHasItsAction) {
  // The lock of the main queue is held for as long as this action's deletion takes.
  class SlowlyDeleted : public NotingAct {
   public:
    using NotingAct::NotingAct;
    ~SlowlyDeleted() override { NotingAct::performThread(); }
  };
  class TellingAct : public NotingAct {
   public:
    TellingAct(Diary& rDiaryToUse, std::atomic<pid_t>& rWorker) : NotingAct(rDiaryToUse, "a"), iWorker(rWorker) {}
    void performThread() override {
      NotingAct::performThread();
      iWorker = gettid();  // from here on, only the lock of the main queue lets it sleep
    }

   private:
    std::atomic<pid_t>& iWorker;
  };
  MainQueue rQueue;
  g_prBoot = &rQueue;
  rQueue.queue(new SlowlyDeleted(rDiary, "held", &fHold));
  std::thread rEmptier([&rQueue] { rQueue.emptyQueue(); });
  EXPECT_TRUE(Await([this] { return rDiary.Notes() == Texts({"held thread"}); }));
  std::atomic<pid_t> iWorker{0};
  init_bgact();
  queueAction(new TellingAct(rDiary, iWorker));
  EXPECT_TRUE(Await([&iWorker] { return iWorker != 0 && ThreadState(iWorker) == 'S'; }));
  EXPECT_FALSE(isBgQueueReady());
  fHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_TRUE(rQueue.RunOneAction());
  rEmptier.join();
}

TEST_F(BgActTest, RunningActionKeepsThePoolUnreadyWhileTheListIsEmpty) {
  init_bgact();
  EXPECT_TRUE(isBgQueueReady());
  queueAction(new NotingAct(rDiary, "long", &fHold));
  EXPECT_FALSE(isBgQueueReady());
  EXPECT_TRUE(Await([this] { return rDiary.Notes() == Texts({"long thread"}); }));
  EXPECT_FALSE(isBgQueueReady());
  fHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_EQ(rDiary.Notes(), Texts({"long thread", "long deleted"}));
}

TEST_F(BgActTest, TwoActionsRunAtATimeInTheOrderOfQueueing) {
  init_bgact();
  for (const char* acName : {"1", "2", "3"}) queueAction(new NotingAct(rDiary, acName, &fHold));
  EXPECT_TRUE(Await([this] { return rDiary.Notes().size() == 2; }));
  Texts astrStarted = rDiary.Notes();
  std::sort(astrStarted.begin(), astrStarted.end());  // the two write into the diary in any order
  EXPECT_EQ(astrStarted, Texts({"1 thread", "2 thread"}));
  fHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_EQ(rDiary.Notes().size(), 6u);
}

TEST_F(BgActTest, WorkersAndTheirCommandsComeBehindTheLoop) {
  class AskingAct : public ThreadAct {
   public:
    explicit AskingAct(Diary& rDiaryToUse) : rDiary(rDiaryToUse) {}
    void performThread() override {
      rDiary.Note(stdSystem("nice"));
      rDiary.Note(stdSystem("ionice"));
    }
    void performMain() override {}

   private:
    Diary& rDiary;
  };
  const std::string strOwn = stdSystem("nice");
  init_bgact();
  queueAction(new AskingAct(rDiary));
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_EQ(rDiary.Notes(), Texts({"10\n", "best-effort: prio 7\n"}));
  EXPECT_EQ(stdSystem("nice"), strOwn);
}

TEST_F(BgActTest, RefusedWorkersAreAskedForAgainAtEachAction) {
  const auto Run = [this] {
    LimitThreads(0);
    init_bgact();
    queueAction(new NotingAct(rDiary, "first"));
    const bool fRanHere = rDiary.Notes() == Texts({"first thread here", "first main here", "first deleted"});
    LimitThreads(RLIM_INFINITY);
    queueAction(new NotingAct(rDiary, "second", &fHold));
    const bool fHasWorker = Await([this] { return rDiary.Count("second thread") == 1; }) && !isBgQueueReady();
    _exit(fRanHere && fHasWorker ? 0 : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

// A sanitizer's threads count too, so the limit is raised until it lets one worker through.
TEST_F(BgActTest, WorkerThatIsMissingBesideAnotherIsAskedForAgainAtEachAction) {
  const auto Run = [this] {
    LimitThreads(0);
    init_bgact();
    int iProbes = 0;
    for (; rDiary.Count("probe thread here") == iProbes && iProbes < 100; iProbes++) {
      LimitThreads(static_cast<rlim_t>(iProbes) + 1);
      queueAction(new NotingAct(rDiary, "probe"));
    }
    queueAction(new NotingAct(rDiary, "held", &fHold));
    queueAction(new NotingAct(rDiary, "waiting"));
    const bool fOneWorks = iProbes > 1 && Await([this] { return rDiary.Count("held thread") == 1; });
    LimitThreads(RLIM_INFINITY);
    queueAction(new NotingAct(rDiary, "last"));
    const bool fTwoWork = Await([this] { return rDiary.Count("last thread") == 1; }, AWAIT_MS / 2);
    _exit(fOneWorks && fTwoWork ? 0 : 1);  // and the first is at it all that time
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

// As a post to a script is, which may not answer.
class LonelyAct : public NotingAct {
 public:
  using NotingAct::NotingAct;
  bool runsAlone() const override { return true; }
  void refused(const char* acReason) override { rDiary.Note(strName + " refused: " + acReason); }
};

TEST_F(BgActTest, ActionThatRunsAloneWaitsForARefusedWorkerAndHoldsNobodyUp) {
  const auto Run = [this] {
    LimitThreads(0);
    init_bgact();
    queueAction(new LonelyAct(rDiary, "slow", &fHold));
    queueAction(new NotingAct(rDiary, "quick"));
    const bool fWaits = rDiary.Notes() == Texts({"quick thread here", "quick main here", "quick deleted"});
    const bool fReady = isBgQueueReady();  // nobody is at it
    LimitThreads(RLIM_INFINITY);
    queueAction(new NotingAct(rDiary, "next"));
    const bool fRuns = Await([this] { return rDiary.Count("slow thread") == 1; }) && !isBgQueueReady();
    _exit(fWaits && fReady && fRuns ? 0 : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

TEST_F(BgActTest, WaitForThePoolAsksForAWorkerForWhatWaits) {
  const auto Run = [this] {
    LimitThreads(0);
    init_bgact();
    queueAction(new LonelyAct(rDiary, "slow", &fHold));
    LimitThreads(RLIM_INFINITY);
    _exit(!isBgQueueReady() && Await([this] { return rDiary.Count("slow thread") == 1; }) ? 0 : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

TEST_F(BgActTest, ClosingTellsWhatWaitsForARefusedWorker) {
  const auto Run = [this] {
    LimitThreads(0);
    init_bgact();
    for (const char* acName : {"1", "2"}) queueAction(new LonelyAct(rDiary, acName));
    close_bgact();
    _exit(rDiary.Notes() ==
                  Texts({"1 refused: the process ends", "1 deleted", "2 refused: the process ends", "2 deleted"})
              ? 0
              : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

TEST_F(BgActTest, ActionThatRunsAloneOccupiesOneWorker) {
  init_bgact();
  for (const char* acName : {"slow 1", "slow 2", "slow 3"}) queueAction(new LonelyAct(rDiary, acName, &fHold));
  for (int i = 0; i < 5; i++) queueAction(new NotingAct(rDiary, "quick"));
  EXPECT_TRUE(Await([this] { return rDiary.Count("quick deleted") == 5; }));
  EXPECT_TRUE(Await([this] { return rDiary.Count("slow 1 thread") == 1; }));
  EXPECT_EQ(rDiary.Count("slow 2 thread"), 0);
  EXPECT_FALSE(isBgQueueReady());
  fHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  Texts astrSlow;
  for (const std::string& strNote : rDiary.Notes()) {
    if (strNote.find("slow") == 0) astrSlow.push_back(strNote);
  }
  EXPECT_EQ(astrSlow, Texts({"slow 1 thread", "slow 1 deleted", "slow 2 thread", "slow 2 deleted", "slow 3 thread",
                             "slow 3 deleted"}));
}

TEST_F(BgActTest, PoolIsReadyButForActionsThatRunAlone) {
  std::atomic<bool> fQuickHold{true};
  EXPECT_TRUE(isBgQueueReadyButAlone());  // without a pool
  init_bgact();
  EXPECT_TRUE(isBgQueueReadyButAlone());
  for (const char* acName : {"slow 1", "slow 2"}) queueAction(new LonelyAct(rDiary, acName, &fHold));
  EXPECT_TRUE(Await([this] { return rDiary.Count("slow 1 thread") == 1; }));
  EXPECT_TRUE(isBgQueueReadyButAlone());
  for (const char* acName : {"quick 1", "quick 2"}) queueAction(new NotingAct(rDiary, acName, &fQuickHold));
  EXPECT_FALSE(isBgQueueReadyButAlone());  // one is listed
  EXPECT_TRUE(Await([this] { return rDiary.Count("quick 1 thread") == 1; }));
  EXPECT_FALSE(isBgQueueReadyButAlone());
  fQuickHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReadyButAlone(); }));
  EXPECT_EQ(rDiary.Count("quick 2 deleted"), 1);
  EXPECT_FALSE(isBgQueueReady());
  fHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
}

TEST_F(BgActTest, ActionsThatRunAloneWaitInALimitedNumber) {
  init_bgact();
  queueAction(new LonelyAct(rDiary, "running", &fHold));
  EXPECT_TRUE(Await([this] { return rDiary.Count("running thread") == 1; }));
  for (int i = 0; i < MAX_ALONE_WAITING; i++) queueAction(new LonelyAct(rDiary, "waiting"));
  EXPECT_EQ(rDiary.Count("waiting refused: too many wait"), 0);
  queueAction(new LonelyAct(rDiary, "one too many"));
  EXPECT_EQ(rDiary.Count("one too many refused: too many wait"), 1);
  EXPECT_EQ(rDiary.Count("one too many deleted"), 1);
  queueAction(new NotingAct(rDiary, "quick"));
  EXPECT_TRUE(Await([this] { return rDiary.Count("quick thread") == 1; }));
  fHold = false;
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_EQ(rDiary.Count("waiting thread"), MAX_ALONE_WAITING);
}

// As many waits of a second would be three times what Await allows.
TEST_F(BgActTest, IdleWorkerWakesForAnAction) {
  constexpr int ACTIONS = 60;
  init_bgact();
  int iQueued = 0;
  EXPECT_TRUE(Await([this, &iQueued] {
    if (!isBgQueueReady()) return false;
    if (iQueued == ACTIONS) return true;
    queueAction(new NotingAct(rDiary, "a"));
    iQueued++;
    return false;
  }));
  EXPECT_EQ(rDiary.Count("a deleted"), ACTIONS);
}

TEST_F(BgActTest, EachOfSeveralThreadsFindsAWorkerForItsAction) {
  init_bgact();
  std::vector<std::thread> rProducers;
  for (const char* acName : {"1", "2", "3", "4"}) {
    rProducers.emplace_back([this, acName] {
      for (int i = 1; i <= 100; i++) {
        queueAction(new NotingAct(rDiary, acName));
        ASSERT_TRUE(Await([this, acName, i] { return rDiary.Count(acName + std::string(" deleted")) == i; }));
      }
    });
  }
  for (std::thread& rProducer : rProducers) rProducer.join();
}

TEST_F(BgActTest, BusyWorkerTakesTheNextActionWithoutSleeping) {
  init_bgact();
  for (int i = 0; i < 1000; i++) queueAction(new NotingAct(rDiary, "a"));
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));  // a sleep after each would make minutes
}

TEST_F(BgActTest, NullEntryIsSkipped) {
  init_bgact();
  queueAction(nullptr);
  queueAction(new NotingAct(rDiary, "a"));
  EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
  EXPECT_EQ(rDiary.Notes(), Texts({"a thread", "a deleted"}));
}

TEST_F(BgActTest, ClosingWaitsForTheRunningAndDropsTheQueued) {
  init_bgact();
  std::vector<NotingAct*> rNotRun;
  for (const char* acName : {"1", "2"}) queueAction(new NotingAct(rDiary, acName, &fHold));
  EXPECT_TRUE(Await([this] { return rDiary.Notes().size() == 2; }));
  for (const char* acName : {"3", "4"}) {
    rNotRun.push_back(new NotingAct(rDiary, acName, &fHold));
    queueAction(rNotRun.back());
  }
  std::atomic<pid_t> iCloser{0};
  std::thread rCloser([this, &iCloser] {
    iCloser = gettid();
    ClosePool();
  });
  // The order to stop is the first act of close; the next is to wait for the workers.
  EXPECT_TRUE(Await([&iCloser] { return iCloser != 0 && ThreadState(iCloser) == 'S'; }));
  EXPECT_EQ(rDiary.Notes().size(), 2u);
  fHold = false;
  rCloser.join();
  Texts astrNotes = rDiary.Notes();
  std::sort(astrNotes.begin(), astrNotes.end());
  EXPECT_EQ(astrNotes, Texts({"1 deleted", "1 thread", "2 deleted", "2 thread"}));  // neither run nor deleted
  for (const NotingAct* prAct : rNotRun) delete prAct;
}

// As many waits of a tenth of a second would be twice what Await allows.
TEST_F(BgActTest, ClosingWakesAnIdlePool) {
  int iMade = 0;
  EXPECT_TRUE(Await([this, &iMade] {
    ClosePool();
    init_bgact();
    return ++iMade == 400;
  }));
}

TEST_F(BgActTest, ClosingWithoutAPoolDoesNothing) {
  close_bgact();
}

TEST_F(BgActTest, DeleteFileActRemovesItsFileOnAWorker) {
  WriteTestFile("/recordings/gone.wav", "x");
  auto* prAct = new DeleteFileAct;
  prAct->strFilename = "/recordings/gone.wav";
  queueAction(prAct);
  EXPECT_FALSE(Exists("/recordings/gone.wav"));
}

TEST_F(BgActTest, DeleteFileActNeedsNoDescriptor) {
  WriteTestFile("/recordings/gone.wav", "x");
  auto* prAct = new DeleteFileAct;
  prAct->strFilename = "/recordings/gone.wav";
  {
    const testtools::NoMoreDescriptors rNone;
    queueAction(prAct);
  }
  EXPECT_FALSE(Exists("/recordings/gone.wav"));
}

TEST_F(BgActTest, DeleteFileActIgnoresAMissingFile) {
  auto* prAct = new DeleteFileAct;
  prAct->strFilename = "/recordings/never.wav";
  queueAction(prAct);
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(BgActTest, DeleteFileActTellsOfAFileThatStays) {
  ASSERT_EQ(mkdir("/recordings/stays.wav", 0777), 0);
  auto* prAct = new DeleteFileAct;
  prAct->strFilename = "/recordings/stays.wav";
  queueAction(prAct);
  EXPECT_EQ(logsink::TakeTexts(), Texts({"3 C-api error at Remove /recordings/stays.wav: Is a directory"}));
}

TEST_F(BgActTest, SlowHandlerMsgHandsItsTextToTheServiceThread) {
  init_signaling();
  auto* prAct = new SlowHandlerMsg;
  prAct->msg = "sysinfo";
  queueAction(prAct);
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_FALSE(astrLines.empty());
  EXPECT_EQ(astrLines[0], "5 signal => sysinfo");
  close_signaling();
}

}  // namespace
