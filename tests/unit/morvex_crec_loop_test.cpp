#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "Diary.h"
#include "LambdaAct.h"
#include "NotingAct.h"
#include "ReactorBench.h"
#include "RecorderBench.h"
#include "TestClocks.h"
#include "TestFiles.h"
#include "TestTime.h"
#include "TestTools.h"
#include "bgact.h"
#include "bgact_tracker.h"
#include "ftime.h"
#include "logging.h"
#include "morvex_crec.h"
#include "reactor.h"
#include "taker.h"

using testtools::Await;
using testtools::Exists;

namespace {

std::function<void(DWORD, const SSM_EVENT&)> OnWaitForEvent;  // on the thread that takes events
std::atomic<int> iDelivered{0};
std::atomic<int> iTaken{0};     // of iDelivered, those that whoever takes events has done with
std::function<void()> OnOrder;  // reactor thread only

}  // namespace

// Stands between the arrival of an order and all that the reactor does with it. Clients come here too; they wait.
extern "C" ssize_t recv(int hSocket, void* pvText, size_t iBytes, int iFlags) {
  const ssize_t iGot = recvfrom(hSocket, pvText, iBytes, iFlags, nullptr, nullptr);
  if ((iFlags & MSG_DONTWAIT) != 0 && OnOrder) OnOrder();
  return iGot;
}

// Shows how the loop asks the driver.
extern "C" int SsmWaitForEventA(DWORD dwTimeOut, PSSM_EVENT pEvent) {
  if (OnWaitForEvent) OnWaitForEvent(dwTimeOut, *pEvent);
  iTaken = iDelivered.load();
  const int iResult =
      reinterpret_cast<decltype(SsmWaitForEventA)*>(dlsym(RTLD_NEXT, "SsmWaitForEventA"))(dwTimeOut, pEvent);
  if (iResult == SSM_OK) iDelivered++;
  return iResult;
}

namespace {

void ExpectWaitWithAnEmptyRecord(DWORD dwTimeOut, const SSM_EVENT& rEvent) {
  EXPECT_EQ(dwTimeOut, 200u);
  EXPECT_EQ(rEvent.wEventCode, 0);
  EXPECT_EQ(rEvent.nReference, 0);
  EXPECT_EQ(rEvent.dwParam | rEvent.dwSubReason | rEvent.dwXtraInfo | rEvent.dwDataLength, 0u);
  EXPECT_EQ(*static_cast<const char*>(rEvent.pvBuffer), 0);
  EXPECT_EQ(rEvent.dwBufferLength, 1024u);
}

// Stands at the end of the channel table of the running recorder, and does what the test says.
class DiaryChannel : public OpenChannel<BaseChannel> {
 public:
  explicit DiaryChannel(Diary& rDiaryToUse) : rDiary(rDiaryToUse) {}
  void HandleEvent(SSM_EVENT* prEvent) override {
    rDiary.Note("event " + std::to_string(prEvent->wEventCode));
    if (rOnEvent) rOnEvent(prEvent);
  }
  void Periodic() override {
    if (rOnPeriodic) rOnPeriodic();
    rDiary.Note("periodic");
  }
  void Finalize() override { rDiary.Note(fCallBusy ? "finalize in a call" : "finalize"); }
  ~DiaryChannel() override {
    if (rOnDelete) rOnDelete();
  }

  std::function<void(SSM_EVENT*)> rOnEvent;
  std::function<void()> rOnPeriodic;
  std::function<void()> rOnDelete;

 private:
  Diary& rDiary;
};

// Its slow part lasts until it is released.
class HeldAct : public NotingAct {
 public:
  HeldAct(Diary& rDiaryToUse, std::atomic<bool>& fGoOnWhen) : NotingAct(rDiaryToUse, "slow"), fGoOn(fGoOnWhen) {}
  void performThread() override {
    NotingAct::performThread();
    EXPECT_TRUE(Await([this] { return fGoOn.load(); }));
  }

 private:
  std::atomic<bool>& fGoOn;
};

// The loop runs on the test's thread; what happens meanwhile is the story of a second thread, or of queued actions.
class LoopTest : public RecorderBench {
 protected:
  static constexpr int DIARY_CH = 2;  // driver channel of the DiaryChannel

  void SetUp() override {
    setSignalHandlers();  // the end of the reactor takes a signal
    iDelivered = 0;
    iTaken = 0;
    g_prBoot = &rBoot;
    simcards::AddBoard(0, 4, CH_ANALOG);
    rBoot.vrBoardList = {Present("ATP8", "1001", 2, 0)};
    rBoot.iTotalDrvMaxCh = 2;
    rBoot.rDrvToWebChMap = {{0, 0}, {1, 1}};
    rBoot.rWebToDrvChMap = {{0, 0}, {1, 1}};
    testtime::rFrozen = 1000000;  // no Periodic unless the test moves the clock
    AtStart([this](CRecorder& rRunning) {
      prChannel = new DiaryChannel(rDiary);
      prChannel->prRecorder = &rRunning;
      prChannel->iDrvCh = DIARY_CH;
      prChannel->fCallBusy = true;
      rRunning.vChannels.push_back(prChannel);
    });
    Forget();
  }
  void TearDown() override {
    fAppTerminate = false;
    testtime::rFrozen = 0;
    if (prBgActHandler != nullptr) close_bgact();
    prBgActHandler = nullptr;
    g_prBoot = nullptr;
    rBoot.emptyQueue();
    simcards::Reset();
  }

  // Runs in the loop's first passes, on its thread, with the running recorder.
  void AtStart(const std::function<void(CRecorder&)>& rRun) {
    rBoot.queue(new LambdaAct([rRun] { rRun(*g_prReactor->prRecorder); }));
  }
  // The loop, while a second thread tells the story and then orders the end.
  int RunWith(const std::function<void()>& rStory) {
    std::thread rTeller([&] {
      rStory();
      fAppTerminate = true;
    });
    const int iResult = rBoot.RecorderUseBoardsLoop();
    rTeller.join();
    return iResult;
  }
  bool AwaitNote(const std::string& strText, int iTimes = 1) {
    return Await([&] { return rDiary.Count(strText) >= iTimes; });
  }
  static void Event(WORD wCode, const std::string& strData = "") {
    simcards::PushEvent(wCode, DIARY_CH, 0, 0, 0, strData);
  }
  // The lines of the loop alone, without those of the start and of the reactor.
  static Texts TakeLinesOf(const std::string& strBegin) {
    Texts astrFound;
    for (const std::string& strLine : logsink::TakeTexts()) {
      if (strLine.find(strBegin) == 0) astrFound.push_back(strLine);
    }
    return astrFound;
  }

  // The taker has come back for more than so many events.
  static bool AwaitTaken(int iEvents) {
    return Await([iEvents] { return iTaken >= iEvents; });
  }

  // The driver does so, and the loop takes the event behind it.
  void FailsThreeTimesAndGoesOn() {
    simcards::FailNext("SsmWaitForEventA", 3, -2, "card on fire");
    AtStart([this](CRecorder&) { rDiary.Note("ready"); });
    (void)RunWith([this] {
      EXPECT_TRUE(AwaitNote("ready"));
      Event(E_CHG_RcvDTMF);
      EXPECT_TRUE(AwaitNote("event 12"));
    });
    EXPECT_EQ(TakeLinesOf("3 Error in SsmWaitForEventA"), Texts(3, "3 Error in SsmWaitForEventA: card on fire"));
  }

  Diary rDiary;
  DiaryChannel* prChannel = nullptr;  // owned by the running recorder
};

// -- preparation and end ----------------------------------------------------------------------------------------------

TEST_F(LoopTest, RecorderIsBuiltOnTheBootObject) {
  AtStart([this](CRecorder& rRunning) {
    EXPECT_EQ(rRunning.prBoot, &rBoot);
    EXPECT_EQ(rRunning.prDatabase, prDb);
    EXPECT_EQ(rRunning.strArchiveRoot, "/recordings");
    EXPECT_EQ(rRunning.strRecordingRoot, "/recordings");
    EXPECT_EQ(rRunning.vChannels.size(), 3u);
    fAppTerminate = true;
  });
  EXPECT_EQ(rBoot.RecorderUseBoardsLoop(), 0);
  EXPECT_EQ(g_prReactor, nullptr);
  EXPECT_FALSE(Exists("/var/morvex/data/linestatus.dat"));
}

TEST_F(LoopTest, FailedInitRecorderStartsNoReactor) {
  simcards::FailNext("SsmSetEvent", 1, -1, "no events");
  EXPECT_EQ(rBoot.RecorderUseBoardsLoop(), 1);
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(astrLines.back(), "3 Error in SsmSetEvent: no events");
  for (const std::string& strLine : astrLines) EXPECT_NE(strLine, "5 reactor started");
}

TEST_F(LoopTest, FailedInitRecorderLeavesNoWorkerBehindInItsQueue) {
  init_bgact();
  simcards::FailNext("SsmSetEvent", 1, -1, "no events");
  EXPECT_EQ(rBoot.RecorderUseBoardsLoop(), 1);  // the check of the system was queued before that
  EXPECT_TRUE(isBgQueueReady());
  EXPECT_FALSE(rBoot.RunOneAction());
}

// -- normal passes ----------------------------------------------------------------------------------------------------

TEST_F(LoopTest, EventReachesItsChannelWithItsData) {
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [this](const SSM_EVENT* prEvent) {
      rDiary.Note(std::string(static_cast<const char*>(prEvent->pvBuffer), prEvent->dwDataLength));
    };
    rDiary.Note("ready");
  });
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Event(E_CHG_RcvDTMF, "some data");
    EXPECT_TRUE(AwaitNote("some data"));
  });
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "event 12", "some data", "finalize"}));
}

TEST_F(LoopTest, EachWaitIsForAFifthOfASecondWithAnEmptyRecord) {
  std::atomic<int> iWaits{0};
  OnWaitForEvent = [&iWaits](DWORD dwTimeOut, const SSM_EVENT& rEvent) {
    iWaits++;
    ExpectWaitWithAnEmptyRecord(dwTimeOut, rEvent);
  };
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [this](SSM_EVENT*) { fAppTerminate = rDiary.Count("event 12") == 2; };
    for (int i = 0; i < 2; i++) simcards::PushEvent(E_CHG_RcvDTMF, DIARY_CH, 1, 2, 3, "some data");
  });
  (void)rBoot.RecorderUseBoardsLoop();
  OnWaitForEvent = nullptr;
  EXPECT_GE(iWaits, 2);
}

TEST_F(LoopTest, NoEventNoSignOfLife) {
  (void)unlink("/var/morvex/data/crec_event");
  AtStart([](CRecorder&) { fAppTerminate = true; });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_FALSE(Exists("/var/morvex/data/crec_event"));
}

TEST_F(LoopTest, FailingDriverIsLoggedAndAskedAgain) {
  FailsThreeTimesAndGoesOn();
}

TEST_F(LoopTest, TimeOutOfTheWaitIsNotLogged) {
  AtStart([this](CRecorder&) { rDiary.Note("ready"); });
  (void)RunWith([this] { EXPECT_TRUE(AwaitNote("ready")); });
  EXPECT_EQ(TakeLinesOf("3 Error"), Texts());
}

TEST_F(LoopTest, SlowEventIsAWarningThatTellsHowFarTheLoopIsBehind) {
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [](SSM_EVENT*) { (void)usleep(120'000); };
    for (int i = 0; i < 2; i++) Event(E_CHG_RcvDTMF);
    EXPECT_TRUE(AwaitTaken(2));
  });
  (void)RunWith([this] { EXPECT_TRUE(AwaitNote("event 12", 2)); });
  const Texts astrWarnings = TakeLinesOf("4 ");
  ASSERT_EQ(astrWarnings.size(), 2u);
  double adTook[2] = {};
  double adBehind[2] = {};
  for (int i = 0; i < 2; i++) {
    const std::string& strLine = astrWarnings[static_cast<std::size_t>(i)];
    ASSERT_EQ(
        sscanf(strLine.c_str(), "4 Event handling took: %lf s, the loop is %lf s behind", &adTook[i], &adBehind[i]), 2)
        << strLine;
    EXPECT_GT(adTook[i], 0.1);
    char acLine[100];
    (void)snprintf(acLine, sizeof acLine, "4 Event handling took: %.4f s, the loop is %.4f s behind", adTook[i],
                   adBehind[i]);
    EXPECT_EQ(strLine, acLine);
  }
  EXPECT_GT(adBehind[0], 0.1);  // the second has waited for the first
  EXPECT_EQ(adBehind[1], 0);
}

TEST_F(LoopTest, SlowTurnIsAWarningThatTellsHowFarTheLoopIsBehind) {
  AtStart([this](CRecorder&) {
    testtime::rFrozen += 1;
    prChannel->rOnPeriodic = [] {
      Event(E_CHG_RcvDTMF);
      EXPECT_TRUE(AwaitTaken(1));
      (void)usleep(120'000);
      fAppTerminate = true;
    };
  });
  (void)rBoot.RecorderUseBoardsLoop();
  const Texts astrWarnings = TakeLinesOf("4 ");
  ASSERT_EQ(astrWarnings.size(), 1u);
  double dTook = 0;
  double dBehind = 0;
  ASSERT_EQ(sscanf(astrWarnings[0].c_str(), "4 Periodic took: %lf s, the loop is %lf s behind", &dTook, &dBehind), 2);
  EXPECT_GT(dTook, 0.1);
  EXPECT_GT(dBehind, 0.1);
  char acLine[100];
  (void)snprintf(acLine, sizeof acLine, "4 Periodic took: %.4f s, the loop is %.4f s behind", dTook, dBehind);
  EXPECT_EQ(astrWarnings[0], acLine);
}

TEST_F(LoopTest, PeriodicRunsOncePerChangeOfTheSecond) {
  // A pass is told from the next by an action that ran in it.
  AtStart([this](CRecorder&) { rDiary.Note("same second"); });
  AtStart([this](CRecorder&) {
    rDiary.Note("five seconds on");
    testtime::rFrozen += 5;
  });
  AtStart([this](CRecorder&) { rDiary.Note("still then"); });
  AtStart([this](CRecorder&) {
    rDiary.Note("set back");
    testtime::rFrozen -= 3;
  });
  AtStart([this](CRecorder&) {
    rDiary.Note("not caught up");
    testtime::rFrozen += 3;
  });
  AtStart([this](CRecorder&) {
    rDiary.Note("caught up");
    testtime::rFrozen += 1;
  });
  AtStart([this](CRecorder&) {
    rDiary.Note("later");
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(rDiary.Notes(), Texts({"same second", "five seconds on", "periodic", "still then", "set back",
                                   "not caught up", "caught up", "periodic", "later", "finalize"}));
}

TEST_F(LoopTest, OneActionAPassInTheOrderOfQueueing) {
  for (const char* acName : {"a", "b"}) rBoot.queue(new NotingAct(rDiary, acName));
  AtStart([this](CRecorder&) {
    // Each further pass takes one event first, if there is one.
    for (int i = 0; i < 3; i++) Event(E_CHG_RcvDTMF);
    EXPECT_TRUE(AwaitTaken(3));
    rDiary.Note("ready");
  });
  for (const char* acName : {"c", "d"}) rBoot.queue(new NotingAct(rDiary, acName));
  (void)RunWith([this] { EXPECT_TRUE(AwaitNote("event 12", 3)); });
  EXPECT_EQ(rDiary.Notes(), Texts({"a main", "a completed", "a deleted", "b main", "b completed", "b deleted", "ready",
                                   "event 12", "c main", "c completed", "c deleted", "event 12", "d main",
                                   "d completed", "d deleted", "event 12", "finalize"}));
}

// -- stop -------------------------------------------------------------------------------------------------------------

TEST_F(LoopTest, StopDuringAnEventHandlesWhatIsTakenAndShutsDownInTheSamePass) {
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [](SSM_EVENT*) {
      fAppTerminate = true;
      testtime::rFrozen += 1;
    };
    for (int i = 0; i < 3; i++) Event(E_CHG_RcvDTMF);
    EXPECT_TRUE(AwaitTaken(3));
    rBoot.queue(new NotingAct(rDiary, "a"));
  });
  (void)rBoot.RecorderUseBoardsLoop();
  // Periodic is due and left out.
  EXPECT_EQ(rDiary.Notes(),
            Texts({"event 12", "event 12", "event 12", "finalize", "a main", "a completed", "a deleted"}));
}

// Two lines that always record.
class LoopAudioTest : public LoopTest {
 protected:
  void SetUp() override {
    LoopTest::SetUp();
    std::filesystem::remove_all("/recordings");
    for (int iCh = 0; iCh < 2; iCh++) simcards::PlayCounting(iCh);
    rBoot.rConfigs["Syn1001_Trigger"] = "4,4";
    AtStart([](CRecorder&) { testtime::rFrozen += 1; });  // Periodic of this second begins the calls
  }
  // Both lines hear so many reports, and the taker has them.
  void Hear(int iReports) {
    for (int i = 0; i < iReports; i++) {
      simcards::Advance(2048);
      iReported += 2;
      EXPECT_TRUE(AwaitTaken(iReported));
    }
  }
  // What the parts of a line's recording hold, one behind the other, without their headers.
  static Texts PartsOf(int iLine) {
    std::map<std::string, std::string> rParts;
    const std::string strLine = "_00" + std::to_string(iLine) + "_";
    for (const auto& rEntry : std::filesystem::recursive_directory_iterator("/recordings")) {
      const std::string strName = rEntry.path().filename();
      if (strName.find(strLine) != std::string::npos) rParts[strName] = ReadTestFile(rEntry.path()).substr(56);
    }
    Texts astrParts;
    for (const auto& [strName, strBytes] : rParts) astrParts.push_back(strBytes);
    return astrParts;
  }
  static std::string Counted(int iBytes) {
    std::string strBytes;
    for (int i = 0; i < iBytes; i++) strBytes += static_cast<char>(simcards::CountingByte(i));
    return strBytes;
  }

  int iReported = 0;
};

TEST_F(LoopAudioTest, StopWritesWhatTheCardHasDelivered) {
  AtStart([this](CRecorder&) {
    Hear(20);  // while the main thread is here
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  for (const int iLine : {1, 2}) EXPECT_TRUE(PartsOf(iLine) == Texts{Counted(20 * 2048)}) << iLine;
}

TEST_F(LoopAudioTest, PartThatIsCutEndsWithWhatTheCardHasDelivered) {
  AtStart([this](CRecorder& rRunning) {
    Hear(20);
    EXPECT_EQ(rRunning.ChLocal("200", "", /*stopstart=*/true), ACT_DONE);  // of line 1
    Hear(5);
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_TRUE(PartsOf(1) == Texts({Counted(20 * 2048), Counted(5 * 2048)}));
  EXPECT_TRUE(PartsOf(2) == Texts{Counted(25 * 2048)});
}

// The key waits among the audio. As the call goes on, the part ends where the card is.
TEST_F(LoopAudioTest, PartThatAKeyEndsHasWhatTheCardHasDelivered) {
  rBoot.rConfigs["Syn1001_Trigger"] = "1,4";
  rBoot.rConfigs["Syn1001_RecOnDmd"] = "1,0";
  AtStart([this](CRecorder& rRunning) {
    rRunning.strDTMF[1] = "4";
    rRunning.strDTMFact[1] = "stop";
    SSM_EVENT rOffHook = simcards::MakeEvent(E_CHG_ChState, 0, S_CALL_PICKUPED);
    rRunning.HandleEvent(&rOffHook);
    EXPECT_TRUE(rRunning.vChannels[0]->RecOnDmdAct(/*fStart=*/true));
    Hear(10);
    simcards::PushEvent(E_CHG_RcvDTMF, 0, '4');
    iReported++;
    Hear(10);
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(TakeLinesOf("5 [1] RecOnDmd"), Texts({"5 [1] RecOnDmd: START", "5 [1] RecOnDmd: STOP"}));
  EXPECT_TRUE(PartsOf(1) == Texts{Counted(20 * 2048)});
}

TEST_F(LoopAudioTest, HangUpEndsARecordingThoughTheCardHasDeliveredMore) {
  rBoot.rConfigs["Syn1001_Trigger"] = "1,4";
  AtStart([this](CRecorder& rRunning) {
    SSM_EVENT rOffHook = simcards::MakeEvent(E_CHG_ChState, 0, S_CALL_PICKUPED);
    rRunning.HandleEvent(&rOffHook);
    Hear(20);
    simcards::PushEvent(E_CHG_ChState, 0, S_CALL_STANDBY);
    iReported++;
    Hear(5);
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_TRUE(PartsOf(1) == Texts{Counted(20 * 2048)});
  EXPECT_TRUE(PartsOf(2) == Texts{Counted(25 * 2048)});
}

// By a digit, which waits among the audio, and by an order, which goes ahead of it.
TEST_F(LoopAudioTest, SilenceBeginsWhereItWasAskedForThoughTheLoopIsBehind) {
  AtStart([this](CRecorder& rRunning) {
    rRunning.fSilenceOnDemand = true;
    rRunning.strDTMF[1] = "4";
    rRunning.strDTMFact[1] = "silence";
    Hear(2);
    simcards::PushEvent(E_CHG_RcvDTMF, 0, '4');
    iReported++;
    Hear(10);
    EXPECT_EQ(rRunning.SilencingAct(rRunning.vChannels[1]->strDbRemoteId, /*fSound=*/false), ACT_DONE);
    Hear(3);
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  const auto BeginOfSilence = [](const Texts& astrParts) {
    return astrParts.size() == 1 ? astrParts[0].find(std::string(1000, '\xd5')) : std::string::npos;
  };
  EXPECT_GE(BeginOfSilence(PartsOf(1)), 2 * 2048u);
  EXPECT_LE(BeginOfSilence(PartsOf(1)), 3 * 2048u);
  EXPECT_GE(BeginOfSilence(PartsOf(2)), 12 * 2048u);
  EXPECT_LE(BeginOfSilence(PartsOf(2)), 14 * 2048u);
}

TEST_F(LoopAudioTest, WhatWasTakenTooLateIsTold) {
  AtStart([this](CRecorder& rRunning) {
    rRunning.prTaker->Rest();
    simcards::Advance(3 * 2048);
    rRunning.prTaker->GoOn();
    iReported += 6;
    EXPECT_TRUE(AwaitTaken(iReported));
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(TakeLinesOf("4 "), Texts({"4 [1] Audio of {0} taken too late: 2048 bytes may be overwritten",
                                      "4 [2] Audio of {1} taken too late: 2048 bytes may be overwritten"}));
}

TEST_F(LoopAudioTest, WhatFindsNoMemoryIsSilenceAndTold) {
  constexpr int REPORTS_WITH_ROOM = 234;  // a minute of each line
  AtStart([this](CRecorder&) {
    Hear(REPORTS_WITH_ROOM + 16);
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  const std::string strPart = Counted(REPORTS_WITH_ROOM * 2048) + std::string(32768, '\xd5');
  for (const int iLine : {1, 2}) EXPECT_TRUE(PartsOf(iLine) == Texts{strPart}) << iLine;
  EXPECT_EQ(TakeLinesOf("3 ["),
            Texts({"3 [1] Audio of {0} lost, too much waits to be written: 32768 bytes are silence",
                   "3 [2] Audio of {1} lost, too much waits to be written: 32768 bytes are silence"}));
}

TEST_F(LoopAudioTest, FiguresOfTheLoopAreThereWhileItRuns) {
  const auto Figures = [](CRecorder& rRunning) {
    rRunning.WriteLoopFigures();
    const std::string strFigures = ReadTestFile("/var/morvex/data/crec_loop");
    const std::size_t uiRest = strFigures.find('\n') + 1;
    double dBehind = -1;
    EXPECT_EQ(sscanf(strFigures.c_str(), "loop_behind_seconds %lf\n", &dBehind), 1);
    return std::make_pair(dBehind, strFigures.substr(uiRest));
  };
  const std::string strLimits = "taken_limit_bytes 958464\nlost_bytes 0\noverrun_bytes 0\n";
  AtStart([&](CRecorder& rRunning) {
    Hear(20);
    EXPECT_EQ(Figures(rRunning).second, "taken_bytes 81920\n" + strLimits);  // this action holds the loop up
    (void)usleep(50'000);
  });
  AtStart([&](CRecorder& rRunning) {
    EXPECT_GE(Figures(rRunning).first, 0.05);  // so long the first of them has waited
    fAppTerminate = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_FALSE(Exists("/var/morvex/data/crec_loop"));
}

TEST_F(LoopTest, StoppingPassTakesNoEvent) {
  int iBefore = 0;
  AtStart([this, &iBefore](CRecorder&) {
    fAppTerminate = true;
    rBoot.queue(new LambdaAct([this, &iBefore] {  // in the pass that follows the end of all calls
      iBefore = iDelivered;
      Event(E_CHG_RcvDTMF);
      rBoot.queue(new NotingAct(rDiary, "a"));
    }));
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(iDelivered, iBefore);
  EXPECT_EQ(rDiary.Notes(), Texts({"finalize", "a main", "a completed", "a deleted"}));
}

TEST_F(LoopTest, ActionOfThePassThatShutsDownIsRun) {
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [this](SSM_EVENT*) {
      fAppTerminate = true;
      rBoot.queue(new NotingAct(rDiary, "a"));
      rBoot.queue(new NotingAct(rDiary, "b"));
    };
    Event(E_CHG_RcvDTMF);
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(rDiary.Notes(), Texts({"event 12", "finalize", "a main", "a completed", "a deleted", "b main",
                                   "b completed", "b deleted"}));
}

// A line that is one endless call would begin a second one in the second that follows the end of the first.
TEST_F(LoopTest, StopLeavesNothingOfALineThatAlwaysRecords) {
  rBoot.rConfigs["Syn1001_Trigger"] = "4,4";
  AtStart([](CRecorder&) { testtime::rFrozen += 1; });  // Periodic of this second begins the calls
  AtStart([this](CRecorder& rRunning) {
    EXPECT_EQ(prDb->rTables["ActiveCalls"].size(), 2u);
    prChannel->rOnEvent = [&rRunning](SSM_EVENT*) {
      fAppTerminate = true;
      testtime::rFrozen += 1;
      for (int i = 0; i < 2; i++) {  // after the stop
        mainQueue(new LambdaAct([&rRunning] {
          EXPECT_EQ(rRunning.RecOnDmdAct("", /*fStart=*/true), ACT_REFUSED);
          EXPECT_EQ(rRunning.ChLocal("200", "", /*stopstart=*/true), ACT_DONE);
        }));
      }
    };
    Event(E_CHG_RcvDTMF);
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(prDb->rTables["ActiveCalls"].size(), 0u);
  EXPECT_EQ(TakeLinesOf("5 [1] Starting recording"), Texts({"5 [1] Starting recording"}));
}

TEST_F(LoopTest, StopBeforeTheFirstPassStillEndsCallsOnce) {
  fAppTerminate = true;
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(rDiary.Notes(), Texts());  // the channel came after Shutdown, by the queue that was drained
}

TEST_F(LoopTest, StopRunsActionsThatActionsQueue) {
  AtStart([this](CRecorder&) {
    fAppTerminate = true;
    mainQueue(new LambdaAct([this] {
      rDiary.Note("second");
      mainQueue(new LambdaAct([this] {
        rDiary.Note("third");
        mainQueue(nullptr);
        mainQueue(new NotingAct(rDiary, "fourth"));
      }));
    }));
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(rDiary.Notes(),
            Texts({"finalize", "second", "third", "fourth main", "fourth completed", "fourth deleted"}));
}

TEST_F(LoopTest, StopWaitsForTheWorkersAndTheirActions) {
  std::atomic<bool> fGoOn{false};
  init_bgact();
  AtStart([&](CRecorder&) { queueAction(new HeldAct(rDiary, fGoOn)); });
  std::thread rTeller([&] {
    EXPECT_TRUE(AwaitNote("slow thread"));
    fAppTerminate = true;
    EXPECT_TRUE(AwaitNote("finalize"));
    (void)usleep(500'000);  // some stopping passes
    EXPECT_EQ(rDiary.Count("slow main"), 0);
    rDiary.Note("released");
    fGoOn = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  rTeller.join();
  EXPECT_EQ(rDiary.Notes(),
            Texts({"slow thread", "finalize", "released", "slow main", "slow completed", "slow deleted"}));
}

TEST_F(LoopTest, OrderThatArrivesWhileTheLoopIsLeftIsDropped) {
  std::atomic<bool> fArrived{false};
  OnOrder = [&fArrived] {
    fArrived = true;
    EXPECT_TRUE(Await([] { return g_prReactor->fClosing.load(); }));
  };
  AtStart([this](CRecorder&) { rDiary.Note("ready"); });
  std::thread rClient;
  EXPECT_EQ(RunWith([&] {
              EXPECT_TRUE(AwaitNote("ready"));
              rClient = std::thread([] {
                std::string strReply;
                EXPECT_TRUE(Await([&strReply] { return (strReply = AskOnce("reconfig")) != "(not connected)"; }));
                EXPECT_EQ(strReply, "OK\n");
              });
              EXPECT_TRUE(Await([&fArrived] { return fArrived.load(); }));
            }),
            0);
  OnOrder = nullptr;
  rClient.join();
  EXPECT_EQ(TakeLinesOf("5 Command"), Texts({"5 Command: 'reconfig' Param: ''"}));
  EXPECT_FALSE(rBoot.RunOneAction());  // an action of a recorder that is gone
}

TEST_F(LoopTest, StopGoesFromActionToActionWithoutAPause) {
  AtStart([](CRecorder&) { fAppTerminate = true; });
  for (int i = 0; i < 300; i++) rBoot.queue(new NotingAct(rDiary, "a"));
  const StopWatch rWatch;
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(rDiary.Count("a main"), 300);
  EXPECT_LT(rWatch.Seconds(), 30);  // a pause of a stopping pass after each would make 60
}

TEST_F(LoopTest, RefusedThreadLeavesAPlainLoop) {
  const auto Run = [this] {
    testtools::LimitThreads(0);
    AtStart([this](CRecorder&) {
      prChannel->rOnEvent = [](SSM_EVENT*) { fAppTerminate = true; };
      Event(E_CHG_RcvDTMF);
    });
    (void)rBoot.RecorderUseBoardsLoop();
    const bool fTold =
        TakeLinesOf("3 No") == Texts({"3 No thread for the events of the cards: audio waits for all else"});
    _exit(fTold && rDiary.Count("event 12") == 1 ? 0 : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

// -- plain loop -------------------------------------------------------------------------------------------------------

// The main loop takes the events itself.
class PlainLoopTest : public LoopTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(setenv("MORVEX_CREC_PLAIN_LOOP", "1", /*overwrite=*/1), 0);
    LoopTest::SetUp();
  }
  void TearDown() override {
    LoopTest::TearDown();
    (void)unsetenv("MORVEX_CREC_PLAIN_LOOP");
  }
};

TEST_F(PlainLoopTest, EachWaitIsForAFifthOfASecondWithAnEmptyRecord) {
  int iWaits = 0;
  OnWaitForEvent = [&iWaits](DWORD dwTimeOut, const SSM_EVENT& rEvent) {
    iWaits++;
    ExpectWaitWithAnEmptyRecord(dwTimeOut, rEvent);
  };
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [this](SSM_EVENT*) { fAppTerminate = rDiary.Count("event 12") == 2; };
    for (int i = 0; i < 2; i++) simcards::PushEvent(E_CHG_RcvDTMF, DIARY_CH, 1, 2, 3, "some data");
  });
  (void)rBoot.RecorderUseBoardsLoop();
  OnWaitForEvent = nullptr;
  EXPECT_EQ(iWaits, 4);  // two passes without an event, for the actions of the start
}

TEST_F(PlainLoopTest, FailingDriverIsLoggedAndAskedAgain) {
  FailsThreeTimesAndGoesOn();
}

TEST_F(PlainLoopTest, SlowEventIsAWarning) {
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [](SSM_EVENT*) { (void)usleep(120'000); };
    rDiary.Note("ready");
  });
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Event(E_CHG_RcvDTMF);
    EXPECT_TRUE(AwaitNote("event 12"));
  });
  const Texts astrWarnings = TakeLinesOf("4 ");
  ASSERT_EQ(astrWarnings.size(), 1u);
  double dTook = 0;
  ASSERT_EQ(sscanf(astrWarnings[0].c_str(), "4 Event handling took: %lf s", &dTook), 1) << astrWarnings[0];
  EXPECT_GT(dTook, 0.1);
  char acLine[60];
  (void)snprintf(acLine, sizeof acLine, "4 Event handling took: %.4f s", dTook);
  EXPECT_EQ(astrWarnings[0], acLine);
}

TEST_F(PlainLoopTest, StopDuringAnEventShutsDownInTheSamePass) {
  AtStart([this](CRecorder&) {
    prChannel->rOnEvent = [](SSM_EVENT*) {
      fAppTerminate = true;
      testtime::rFrozen += 1;
    };
    for (int i = 0; i < 3; i++) Event(E_CHG_RcvDTMF);
  });
  (void)rBoot.RecorderUseBoardsLoop();
  // Periodic is due and left out; the other events are never taken.
  EXPECT_EQ(rDiary.Notes(), Texts({"event 12", "finalize"}));
}

// -- trace ------------------------------------------------------------------------------------------------------------

class LoopTraceTest : public LoopTest {
 protected:
  void SetUp() override {
    LoopTest::SetUp();
    (void)mkdir("/recordings/log", 0777);
    (void)unlink("/recordings/log/dch.log");
    rBoot.queue(new LambdaAct([this] { rDiary.Note("ready"); }));
  }
  // On the main thread, as the reactor's command does it.
  void Trace(bool fOn) {
    mainQueue(new LambdaAct([this, fOn] {
      g_prReactor->prRecorder->iBitStreamChNr = 1;
      g_prReactor->prRecorder->fBitStreamTracing = fOn;
      rDiary.Note(fOn ? "on" : "off");
    }));
  }
};

TEST_F(LoopTraceTest, TraceShutsDownOnceAndEventsFlowAgainAfterIt) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Trace(/*fOn=*/true);
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
    Event(E_CHG_RcvDTMF);
    Trace(/*fOn=*/false);
    EXPECT_TRUE(AwaitNote("event 12"));
  });
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "on", "finalize", "off", "event 12"}));
  EXPECT_EQ(TakeLinesOf("5 St"), Texts({"5 Starting bit stream tracing on channel 1", "5 Stopped bit stream tracing"}));
}

TEST_F(LoopTraceTest, StopAfterTraceEndsNoCallAgain) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    for (int i = 0; i < 2; i++) {  // nor does a second trace
      (void)unlink("/recordings/log/dch.log");
      Trace(/*fOn=*/true);
      EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
      Trace(/*fOn=*/false);
      EXPECT_TRUE(Await([] { return !TakeLinesOf("5 Stopped bit stream tracing").empty(); }));
    }
  });
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "on", "finalize", "off", "on", "off"}));
}

// The recordings that began after the trace run on to the end of the card library, which is not told to end them.
TEST_F(LoopTraceTest, StopAfterTraceLeavesTheCardsTheirRings) {
  rBoot.rConfigs["Syn1001_Trigger"] = "4,4";
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Trace(/*fOn=*/true);
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
    Trace(/*fOn=*/false);
    AtStart([this](CRecorder&) {
      testtime::rFrozen += 1;  // Periodic of this second begins the calls
      rDiary.Note("in calls soon");
    });
    EXPECT_TRUE(AwaitNote("periodic"));
    (void)simcards::TakeCalls();
  });
  for (const std::string& strCall : simcards::TakeCalls())
    EXPECT_EQ(strCall.find("SsmStopRecToMem"), std::string::npos);
  EXPECT_EQ(rBoot.vKeptRings.size(), 2u);
  simcards::Advance(2000);  // into memory that is still there
}

TEST_F(LoopTraceTest, TraceAndStopTogetherOpenAndCloseTheFiles) {
  simcards::FailNext("DTRSendRawData2A3", 1, -1, "silent");  // so that the driver writes no lines of its own
  AtStart([this](CRecorder& rRunning) {
    rRunning.iBitStreamChNr = 1;
    rRunning.fBitStreamTracing = true;
    fAppTerminate = true;
    rDiary.Note("both");
  });
  (void)rBoot.RecorderUseBoardsLoop();
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "both", "finalize"}));
  EXPECT_EQ(ReadTestFile("/recordings/log/dch.log"), "[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\n");
  EXPECT_EQ(TakeLinesOf("5 St"), Texts({"5 Starting bit stream tracing on channel 1", "5 Stopped bit stream tracing"}));
}

TEST_F(LoopTraceTest, StopDuringTheTraceLeavesTheLoop) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Trace(/*fOn=*/true);
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
  });
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "on", "finalize"}));
}

TEST_F(LoopTraceTest, StopDuringTheTraceKeepsTheRecorderForItsWorkers) {
  std::atomic<bool> fGoOn{false};
  init_bgact();
  AtStart([this](CRecorder& rRunning) {
    prChannel->rOnDelete = [this] { rDiary.Note("channel deleted"); };
    rRunning.iBitStreamChNr = 1;
    rRunning.fBitStreamTracing = true;
  });
  std::thread rTeller([&] {
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
    mainQueue(new LambdaAct([&] { queueAction(new HeldAct(rDiary, fGoOn)); }));  // as an order to end a recording does
    EXPECT_TRUE(AwaitNote("slow thread"));
    fAppTerminate = true;
    EXPECT_TRUE(Await([] { return !TakeLinesOf("5 reactor exit").empty(); }));
    (void)usleep(300'000);  // time enough to leave
    rDiary.Note("released");
    fGoOn = true;
  });
  (void)rBoot.RecorderUseBoardsLoop();
  rTeller.join();
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "finalize", "slow thread", "released", "slow deleted", "channel deleted"}));
}

// -- posts ------------------------------------------------------------------------------------------------------------

// The real interpreter runs the post-call script, which notes each request and answers it when it may.
class LoopPostTest : public LoopTraceTest {
 protected:
  void SetUp() override {
    LoopTraceTest::SetUp();
    (void)signal(SIGPIPE, SIG_IGN);
    (void)mkdir("/var/morvex/cmd", 0777);
    (void)unlink("/tmp/requests");
    for (int i = 1; i <= LAST_POST; i++) (void)unlink(Answer(i).c_str());
    WriteTestFile("/var/morvex/cmd/tracker.php",
                  "<?php while (($line = fgets(STDIN)) !== false) {\n"
                  "  $id = (int)substr($line, strlen('type=crec&act=post&id='));\n"
                  "  file_put_contents('/tmp/requests', \"$id \", FILE_APPEND);\n"
                  "  while (!file_exists(\"/tmp/answer$id\")) { usleep(10000); clearstatcache(); }\n"
                  "  echo \"ok\\n\";\n"
                  "}\n");
    init_bgact();
  }
  static constexpr int LAST_POST = 4;
  static std::string Answer(int iCallID) { return "/tmp/answer" + std::to_string(iCallID); }
  // As the end of a recording does it, on the main thread.
  static void Post(int iFirst, int iLast) {
    mainQueue(new LambdaAct([=] {
      for (int i = iFirst; i <= iLast; i++) {
        auto* prAct = new CallPostAct;
        prAct->iCallID = i;
        queueAction(prAct);
      }
    }));
  }
  static bool AwaitRequests(const std::string& strIDs) {
    return Await([&] { return ReadTestFile("/tmp/requests") == strIDs; });
  }
  // Orders a trace while a worker has other work, which ends with fGoOn; the loop has begun to drain then.
  void OrderTraceBesideWork(std::atomic<bool>& fGoOn) {
    AtStart([&](CRecorder&) { queueAction(new HeldAct(rDiary, fGoOn)); });
    EXPECT_TRUE(AwaitNote("slow thread"));
    Trace(/*fOn=*/true);
    EXPECT_TRUE(AwaitNote("finalize"));
  }
  // Two passes and more of the loop, to its last one at the latest.
  void Passes() {
    rDiary.Note("passes");
    const int iBefore = rDiary.Count("pass");
    for (int i = 0; i < 2; i++) mainQueue(new LambdaAct([this] { rDiary.Note("pass"); }));
    EXPECT_TRUE(AwaitNote("pass", iBefore + 2));
  }
  // Lets ten seconds pass again and again.
  template <class Condition>
  static bool AwaitWithSkips(Condition fHolds) {
    return Await([&] {
      testclocks::rWatchSkipS += 11;
      return fHolds();
    });
  }
  static std::size_t Refused() { return TakeLinesOf("4 LineCom shutting down, not sending msg").size(); }
};

TEST_F(LoopPostTest, StopGivesUpPostsToAScriptThatIsSilent) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Post(1, 3);
    EXPECT_TRUE(AwaitRequests("1 "));
    (void)logsink::Take();
    fAppTerminate = true;
    std::size_t iRefused = 0;
    EXPECT_TRUE(AwaitWithSkips([&iRefused] { return (iRefused += Refused()) == 3; }));
  });
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "1 ");
}

TEST_F(LoopPostTest, StopLetsAScriptThatAnswersHearOfAllCalls) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Post(1, LAST_POST);
    EXPECT_TRUE(AwaitRequests("1 "));
    fAppTerminate = true;
    std::string strHeard;
    for (int i = 1; i <= LAST_POST; i++) {
      EXPECT_TRUE(AwaitRequests(strHeard += std::to_string(i) + " "));
      Passes();
      testclocks::rWatchSkipS += 7;
      Passes();
      WriteTestFile(Answer(i), "");
    }
  });
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "1 2 3 4 ");
  EXPECT_EQ(TakeLinesOf("5 LineCom reply"), Texts(LAST_POST, "5 LineCom reply: ok\n"));
}

TEST_F(LoopPostTest, TraceGoesWithoutPostsToAScriptThatIsSilentAndTheyGoOnInIt) {
  std::atomic<bool> fGoOn{false};
  (void)RunWith([&] {
    EXPECT_TRUE(AwaitNote("ready"));
    Post(1, 2);
    EXPECT_TRUE(AwaitRequests("1 "));
    OrderTraceBesideWork(fGoOn);
    testclocks::rWatchSkipS += 5;
    Passes();
    fGoOn = true;  // all other work is waited for
    EXPECT_TRUE(AwaitNote("slow deleted"));
    Passes();
    EXPECT_FALSE(Exists("/recordings/log/dch.log"));
    EXPECT_TRUE(AwaitWithSkips([] { return Exists("/recordings/log/dch.log"); }));
    for (int i = 1; i <= 2; i++) WriteTestFile(Answer(i), "");
    EXPECT_TRUE(AwaitRequests("1 2 "));
    EXPECT_TRUE(Await([] { return isBgQueueReady(); }));
    EXPECT_EQ(TakeLinesOf("5 LineCom reply"), Texts(2, "5 LineCom reply: ok\n"));
    Trace(/*fOn=*/false);
    Event(E_CHG_RcvDTMF);
    EXPECT_TRUE(AwaitNote("event 12"));
  });
}

TEST_F(LoopPostTest, TraceWaitsForOtherWorkThoughTheScriptIsSilent) {
  std::atomic<bool> fGoOn{false};
  (void)RunWith([&] {
    EXPECT_TRUE(AwaitNote("ready"));
    Post(1, 1);
    EXPECT_TRUE(AwaitRequests("1 "));
    OrderTraceBesideWork(fGoOn);
    testclocks::rWatchSkipS += 60;
    Passes();
    EXPECT_FALSE(Exists("/recordings/log/dch.log"));
    fGoOn = true;
    EXPECT_TRUE(AwaitWithSkips([] { return Exists("/recordings/log/dch.log"); }));
    EXPECT_EQ(rDiary.Count("slow deleted"), 1);
    WriteTestFile(Answer(1), "");
  });
}

TEST_F(LoopPostTest, StopDuringTheTraceGivesUpPostsToAScriptThatIsSilent) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Trace(/*fOn=*/true);
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
    Post(1, 2);
    EXPECT_TRUE(AwaitRequests("1 "));
    (void)logsink::Take();
    fAppTerminate = true;
    std::size_t iRefused = 0;
    EXPECT_TRUE(AwaitWithSkips([&iRefused] { return (iRefused += Refused()) == 2; }));
  });
}

TEST_F(LoopPostTest, StopDuringTheTraceLetsAScriptThatAnswersHearOfAllCalls) {
  (void)RunWith([this] {
    EXPECT_TRUE(AwaitNote("ready"));
    Trace(/*fOn=*/true);
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
    Post(1, 2);
    EXPECT_TRUE(AwaitRequests("1 "));
    fAppTerminate = true;
    EXPECT_TRUE(Await([] { return !TakeLinesOf("5 reactor exit").empty(); }));
    for (int i = 1; i <= 2; i++) WriteTestFile(Answer(i), "");
  });
  EXPECT_EQ(ReadTestFile("/tmp/requests"), "1 2 ");
}

// One kind of order is waited for, the other comes as fast as its client can.
TEST_F(LoopTraceTest, ClientsThatOrderInALoopHoldUpNeitherTraceNorStop) {
  std::atomic<bool> fOver{false};
  std::atomic<int> iWaitingServed{0};
  std::atomic<int> iHastyServed{0};
  const auto OrderInALoop = [&fOver](const char* acOrder, std::atomic<int>* piServed) {
    while (!fOver) {
      const Client rClient;
      if (rClient.IsConnected() && rClient.TrySend(acOrder) && !rClient.Read().empty()) (*piServed)++;
    }
  };
  std::thread rWaiting(OrderInALoop, "chst 1", &iWaitingServed);
  std::thread rHasty(OrderInALoop, "reconfig", &iHastyServed);
  const auto AwaitOrders = [&] {
    iWaitingServed = iHastyServed = 0;
    EXPECT_TRUE(Await([&] { return iWaitingServed > 1 && iHastyServed > 1; }));
  };
  (void)RunWith([&] {
    AwaitOrders();
    Trace(/*fOn=*/true);
    EXPECT_TRUE(Await([] { return Exists("/recordings/log/dch.log"); }));
    AwaitOrders();  // they are served in the trace
    Trace(/*fOn=*/false);
    Event(E_CHG_RcvDTMF);
    EXPECT_TRUE(AwaitNote("event 12"));
    AwaitOrders();
  });
  fOver = true;
  rWaiting.join();
  rHasty.join();
}

TEST_F(LoopTraceTest, TraceSwitchedOffBeforeItBeginsIsNone) {
  Trace(/*fOn=*/true);
  Trace(/*fOn=*/false);
  (void)RunWith([this] { EXPECT_TRUE(AwaitNote("off")); });
  EXPECT_FALSE(Exists("/recordings/log/dch.log"));
  EXPECT_EQ(rDiary.Notes(), Texts({"ready", "on", "finalize", "off"}));
}

}  // namespace
