// This program stands in for usleep, time and fork: a wait of the main thread passes at once and moves the clock, and a
// fork can be held back. It needs PostgreSQL, as a start try reads its settings there.
#include "morvex_crec.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LogSink.h"
#include "PgServer.h"
#include "TestFiles.h"
#include "TestTools.h"
#include "bgact.h"
#include "database.h"
#include "logging.h"
#include "recorder_boot.h"
#include "recorder_cluster.h"
#include "signaling.h"
#include "simcards.h"

using testtools::Await;
using testtools::Exists;

namespace {

constexpr const char* DRIVER_DIR = "/usr/local/lib/shcti";
constexpr const char* TOOL_DIR = "/usr/local/lib/shcti/CurrentVersion/tools";
constexpr const char* START_CTI = "SsmStartCti(\"/var/morvex/data/ShConfig.ini\",\"/var/morvex/data/ShIndex.ini\")";
constexpr const char* ERROR_FILE = "/var/morvex/data/err_crec.dat";
constexpr const char* PID_FILE = "/var/run/morvex_crec.pid";

const pthread_t rMainThread = pthread_self();
std::atomic<long long> iWaitedUs{0};  // by the main thread, without waiting
std::vector<useconds_t> aiSleeps;     // each of these waits; main thread only
std::function<void()> OnSleep;        // main thread only
int iDatabaseShutdowns = 0;           // main thread only
bool fForkFails = false;
bool fSetsidFails = false;
bool fChdirFails = false;

template <typename F>
F* Real(const char* acName) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, acName));
}

}  // namespace

extern "C" int usleep(useconds_t iMicros) {
  if (pthread_equal(pthread_self(), rMainThread) == 0) {
    const timespec rTime = {static_cast<time_t>(iMicros / 1000000), static_cast<long>(iMicros % 1000000) * 1000};
    return nanosleep(&rTime, nullptr);
  }
  iWaitedUs += iMicros;
  aiSleeps.push_back(iMicros);
  if (OnSleep) OnSleep();
  return 0;
}

extern "C" int nanosleep(const timespec* prWait, timespec* prRest) {
  if (pthread_equal(pthread_self(), rMainThread) == 0) {
    return clock_nanosleep(CLOCK_REALTIME, 0, prWait, prRest) == 0 ? 0 : -1;
  }
  iWaitedUs += prWait->tv_sec * 1'000'000LL + prWait->tv_nsec / 1000;
  return 0;
}

extern "C" void dbi_shutdown() {
  iDatabaseShutdowns++;
  Real<void()>("dbi_shutdown")();
}

extern "C" time_t time(time_t* prTime) noexcept {
  timespec rNow{};
  (void)clock_gettime(CLOCK_REALTIME, &rNow);
  rNow.tv_sec += static_cast<time_t>(iWaitedUs / 1000000);
  if (prTime != nullptr) *prTime = rNow.tv_sec;
  return rNow.tv_sec;
}

extern "C" pid_t fork() noexcept {
  return fForkFails ? -1 : Real<pid_t()>("fork")();
}

extern "C" pid_t setsid() noexcept {
  return fSetsidFails ? -1 : Real<pid_t()>("setsid")();
}

extern "C" int chdir(const char* acPath) noexcept {
  return fChdirFails ? -1 : Real<int(const char*)>("chdir")(acPath);
}

namespace {

class ProcessTest : public testing::Test {
 protected:
  void SetUp() override {
    iWaitedUs = 0;
    aiSleeps.clear();
    OnSleep = nullptr;
    (void)unlink(ERROR_FILE);
    (void)logsink::Take();
  }
  void TearDown() override {
    fAppTerminate = false;
    OnSleep = nullptr;
    fForkFails = fSetsidFails = fChdirFails = false;
    g_prBoot = nullptr;
    g_cfgPrefix.clear();
  }
  // Runs in a process of its own; the result is its wait status.
  static int InChild(const std::function<void()>& rRun) {
    const pid_t iPid = fork();
    if (iPid == 0) {
      rRun();
      _exit(77);
    }
    int iStatus = -1;
    EXPECT_EQ(waitpid(iPid, &iStatus, 0), iPid);
    return iStatus;
  }
};

// -- small operations -------------------------------------------------------------------------------------------------

TEST_F(ProcessTest, CardDriverIsThereWhenItsPathIs) {
  (void)mkdir(DRIVER_DIR, 0777);
  EXPECT_TRUE(CheckCardDriver());
  ASSERT_EQ(rename(DRIVER_DIR, "/usr/local/lib/shcti.away"), 0);
  EXPECT_FALSE(CheckCardDriver());
  ASSERT_EQ(rename("/usr/local/lib/shcti.away", DRIVER_DIR), 0);
}

using Limits = std::vector<std::pair<rlim_t, rlim_t>>;

Limits LimitsOfTheProcess() {
  Limits rLimits;
  for (int iResource = 0; iResource < RLIM_NLIMITS; iResource++) {
    rlimit rLimit{};
    EXPECT_EQ(getrlimit(static_cast<__rlimit_resource>(iResource), &rLimit), 0) << iResource;
    rLimits.emplace_back(rLimit.rlim_cur, rLimit.rlim_max);
  }
  return rLimits;
}

TEST_F(ProcessTest, LimitsStayAsTheyAre) {
  const Limits rBefore = LimitsOfTheProcess();
  setLimits();
  EXPECT_EQ(LimitsOfTheProcess(), rBefore);
}

struct SleepRow {
  const char* acLabel;
  int ms;
  bool fStop;
  std::vector<useconds_t> aiExpected;
};

TEST_F(ProcessTest, CheckedSleepInSteps) {
  const SleepRow rRows[] = {
      {"below a second: one sleep", 250, false, {250000}},
      {"below a second with a stop: none", 250, true, {}},
      {"nothing", 0, false, {0}},
      {"a second: two halves and an empty rest", 1000, false, {500000, 500000, 0}},
      {"the rest comes last", 2300, false, {500000, 500000, 500000, 500000, 300000}},
      {"a stop is seen after the first step", 2300, true, {500000}},
  };
  for (const SleepRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    aiSleeps.clear();
    fAppTerminate = rRow.fStop;
    EXPECT_EQ(CheckedSleep(rRow.ms), 0);
    EXPECT_EQ(aiSleeps, rRow.aiExpected);
  }
}

TEST_F(ProcessTest, CheckedSleepEndsWithinHalfASecondOfTheStop) {
  OnSleep = [] { fAppTerminate = aiSleeps.size() == 3; };
  EXPECT_EQ(CheckedSleep(60000), 0);
  EXPECT_EQ(aiSleeps.size(), 3u);
}

// -- signals ----------------------------------------------------------------------------------------------------------

TEST_F(ProcessTest, HandlersAreInstalledForFourSignals) {
  setSignalHandlers();
  for (const int iSignal : {SIGSEGV, SIGABRT, SIGTERM, SIGINT}) {
    struct sigaction rAction {};
    ASSERT_EQ(sigaction(iSignal, nullptr, &rAction), 0);
    EXPECT_EQ(rAction.sa_handler, signal_handler) << iSignal;
    // SA_RESETHAND is an unsigned constant, sa_flags an int.
    const auto uiFlags = static_cast<unsigned>(rAction.sa_flags);
    EXPECT_EQ(uiFlags & (SA_RESTART | SA_SIGINFO | SA_RESETHAND | SA_NODEFER), unsigned{SA_RESTART | SA_SIGINFO});
    for (int i = 1; i < 32; i++) EXPECT_EQ(sigismember(&rAction.sa_mask, i), 0) << i;
  }
}

TEST_F(ProcessTest, StopSignalsOnlySetTheFlag) {
  setSignalHandlers();
  for (const int iSignal : {SIGTERM, SIGINT}) {
    fAppTerminate = false;
    EXPECT_EQ(kill(getpid(), iSignal), 0);
    EXPECT_TRUE(Await([] { return fAppTerminate.load(); }));
  }
  EXPECT_EQ(logsink::TakeTexts(), Texts());
  EXPECT_FALSE(Exists(ERROR_FILE));
}

TEST_F(ProcessTest, OtherSignalsDoNothing) {
  signal_handler(SIGHUP);
  EXPECT_FALSE(fAppTerminate);
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

// -- into the background ----------------------------------------------------------------------------------------------

TEST_F(ProcessTest, SpawnedChildIsADaemon) {
  (void)unlink(PID_FILE);
  const int iStatus = InChild([] {
    const int iResult = spawn_me();
    if (iResult != -1) _exit(iResult);  // the parent
    char acDir[100] = "", acOut[100] = "";
    (void)!getcwd(acDir, sizeof acDir);
    std::string strFacts = std::string(acDir) + (getsid(0) == getpid() ? " leader" : " follower");
    for (const char* acFd : {"/proc/self/fd/0", "/proc/self/fd/1", "/proc/self/fd/2"}) {
      const ssize_t iLength = readlink(acFd, acOut, sizeof acOut - 1);
      strFacts += " " + std::string(acOut, iLength > 0 ? static_cast<std::size_t>(iLength) : 0);
    }
    WriteTestFile("/tmp/facts.new", strFacts + " " + std::to_string(getpid()) + "\n");
    (void)rename("/tmp/facts.new", "/tmp/facts");
    _exit(0);
  });
  ASSERT_TRUE(WIFEXITED(iStatus));
  EXPECT_EQ(WEXITSTATUS(iStatus), 0);
  EXPECT_TRUE(Await([] { return Exists("/tmp/facts"); }));
  EXPECT_EQ(ReadTestFile("/tmp/facts"), "/ leader /dev/null /dev/null /dev/null " + ReadTestFile(PID_FILE));
  (void)unlink("/tmp/facts");
}

TEST_F(ProcessTest, PidFileThatCannotBeWrittenIsIgnored) {
  (void)unlink(PID_FILE);
  ASSERT_EQ(mkdir(PID_FILE, 0777), 0);
  const int iStatus = InChild([] {
    const int iResult = spawn_me();
    if (iResult != -1) _exit(iResult);
    WriteTestFile("/tmp/facts", "went on");
    _exit(0);
  });
  EXPECT_EQ(iStatus, 0);
  EXPECT_TRUE(Await([] { return ReadTestFile("/tmp/facts") == "went on"; }));
  (void)unlink("/tmp/facts");
  (void)rmdir(PID_FILE);
}

TEST_F(ProcessTest, FailedForkIsOne) {
  fForkFails = true;
  EXPECT_EQ(spawn_me(), 1);
}

TEST_F(ProcessTest, ChildWithoutASessionOrDirectoryIsOne) {
  for (bool* prFails : {&fSetsidFails, &fChdirFails}) {
    *prFails = true;
    const int iStatus = InChild([] {
      const int iResult = spawn_me();
      if (iResult == 0) _exit(0);  // the parent
      WriteTestFile("/tmp/facts.new", std::to_string(iResult));
      (void)rename("/tmp/facts.new", "/tmp/facts");
      _exit(0);
    });
    *prFails = false;
    EXPECT_EQ(iStatus, 0);
    EXPECT_TRUE(Await([] { return Exists("/tmp/facts"); }));
    EXPECT_EQ(ReadTestFile("/tmp/facts"), "1");
    (void)unlink("/tmp/facts");
  }
}

TEST_F(ProcessTest, StartThatCannotGoToTheBackgroundFails) {
  (void)mkdir(DRIVER_DIR, 0777);
  fForkFails = true;
  char acName[] = "morvex_crec";
  char* aacArguments[] = {acName, nullptr};
  EXPECT_EQ(RunDaemon(1, aacArguments), 1);
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "Could not start");
  EXPECT_EQ(logsink::TakeTexts(), Texts());  // the start itself has not been reached
}

// -- the database of the process --------------------------------------------------------------------------------------

// Each in a process of its own: what a start sets up stays.
class DatabaseTest : public ProcessTest {
 protected:
  // The exit code tells the result of the run, and ten for each time that the database's library was shut down.
  static void Run() {
    (void)mkdir(DRIVER_DIR, 0777);
    char acName[] = "morvex_crec";
    char acMode[] = "nofork";
    char* aacArguments[] = {acName, acMode, nullptr};
    const int iResult = RunDaemon(2, aacArguments);
    _exit(iResult + 10 * iDatabaseShutdowns);
  }
};

TEST_F(DatabaseTest, WithoutAConnectionItsLibraryIsShutDownOnce) {
  const pg::Outage rOutage;
  const int iStatus = InChild(Run);
  ASSERT_TRUE(WIFEXITED(iStatus));
  EXPECT_EQ(WEXITSTATUS(iStatus), 11);
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "No database connection");
}

TEST_F(DatabaseTest, BehindTheRecorderItsLibraryIsShutDownOnce) {
  const int iStatus = InChild([] {
    fAppTerminate = true;
    Run();
  });
  ASSERT_TRUE(WIFEXITED(iStatus));
  EXPECT_EQ(WEXITSTATUS(iStatus), 12);  // stopped before the first look for cards
}

// -- start tries ------------------------------------------------------------------------------------------------------

class TriesTest : public ProcessTest {
 protected:
  static void SetUpTestSuite() { Database::Init(); }
  static void TearDownTestSuite() { Database::Deinit(); }

  void SetUp() override {
    ProcessTest::SetUp();
    (void)!chdir("/");  // a try before this one stands in the tool's directory
    (void)!system(("rm -rf /var/morvex/conf/* " + std::string(DRIVER_DIR) + "/*").c_str());
    (void)mkdir(DRIVER_DIR, 0777);
    (void)pg::Sql("DELETE FROM Configs WHERE part = 'crec'");
    Set("s", {{"crec", "1"}});
    Set("o", {{"TdmLogApi", "0"}});
    simcards::Reset();
    Forget();
  }
  void TearDown() override {
    ProcessTest::TearDown();
    simcards::Reset();
  }

  static void Set(const std::string& strPart, StdStringMap rRows) {
    Database rDatabase;
    rDatabase.SetConfigsPart(rRows, strPart);
  }
  static std::string Get(const std::string& strPart, const std::string& strParam) {
    Database rDatabase;
    StdStringMap rRows;
    rDatabase.GetConfigsPart(rRows, strPart);
    return rRows[strParam];
  }
  static void Forget() {
    (void)logsink::Take();
    (void)simcards::TakeCalls();
    iWaitedUs = 0;
    aiSleeps.clear();
  }
  // One simulated card, and the tool that tells of it, from beside this program.
  static void PutCard() {
    char acSelf[400] = "";
    (void)!readlink("/proc/self/exe", acSelf, sizeof acSelf - 1);
    const std::string strTests = std::string(acSelf).substr(0, std::string(acSelf).rfind('/'));
    (void)!system(("mkdir -p " + std::string(TOOL_DIR) + "; cp " + strTests + "/../sim/config " + TOOL_DIR).c_str());
    WriteTestFile(std::string(DRIVER_DIR) + "/simcards.conf", "card ATP8 1001 8\n");
  }
  static void InstallCard() {
    PutCard();
    Forget();
  }
  static int Count(const Texts& astrLines, const std::string& strLine) {
    return static_cast<int>(std::count(astrLines.begin(), astrLines.end(), strLine));
  }
};

TEST_F(TriesTest, StopBeforeTheFirstTryIsNoCards) {
  fAppTerminate = true;
  EXPECT_EQ(RecorderMain(), 2);
  EXPECT_EQ(g_prBoot, nullptr);
}

TEST_F(TriesTest, DisabledByFileIsANormalEnd) {
  WriteTestFile("/var/morvex/conf/crec_disabled", "");
  EXPECT_EQ(RecorderMain(), 0);
  EXPECT_EQ(Count(logsink::TakeTexts(), "4 Card recording is disabled using file"), 1);
  EXPECT_EQ(iWaitedUs, 0);
}

TEST_F(TriesTest, DisabledInTheDatabaseIsANormalEnd) {
  Set("s", {{"crec", "0"}});
  EXPECT_EQ(RecorderMain(), 0);
  EXPECT_EQ(iWaitedUs, 0);
}

TEST_F(TriesTest, WithoutCardsItTriesForTenMinutes) {
  Set("crec", {{"CardList", "SynA,SynB,SynC"}, {"Prev_SynB_Present", "0"}});
  Forget();
  EXPECT_EQ(RecorderMain(), 2);
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(Count(astrLines, "5 Old card count: 2"), 1);  // only on the first try
  const int iTries = Count(astrLines, "4 No cards found");
  EXPECT_GE(iTries, 29);
  EXPECT_LE(iTries, 32);
  EXPECT_EQ(Count(astrLines, "4 Less cards than before"), 0);
  EXPECT_GE(iWaitedUs, 600'000'000 - 20'000'000);
  EXPECT_LT(iWaitedUs, 640'000'000);
  EXPECT_EQ(Get("crec", "CardList"), "");  // a try without cards forgets them
}

TEST_F(TriesTest, PauseBetweenTriesIsTwentyHalfSecondsAndAnEmptyRest) {
  OnSleep = [] { fAppTerminate = aiSleeps.size() == 41; };  // 20 for the cards to come up, 21 for the pause
  EXPECT_EQ(RecorderMain(), 2);
  ASSERT_EQ(aiSleeps.size(), 41u);
  EXPECT_EQ(std::count(aiSleeps.begin(), aiSleeps.end() - 1, 500000u), 40);
  EXPECT_EQ(aiSleeps.back(), 0u);
}

TEST_F(TriesTest, StopDuringThePauseEndsWithNoCards) {
  OnSleep = [] { fAppTerminate = aiSleeps.size() == 25; };
  EXPECT_EQ(RecorderMain(), 2);
  EXPECT_EQ(aiSleeps.size(), 25u);
  EXPECT_EQ(Count(logsink::TakeTexts(), "4 No cards found"), 1);
}

TEST_F(TriesTest, CardThatAppearsLaterIsTaken) {
  simcards::FailNext("SsmStartCti", 1000, -1, "no");  // far enough
  OnSleep = [] {
    if (aiSleeps.size() == 30) PutCard();
  };
  EXPECT_EQ(RecorderMain(), 1);
  EXPECT_EQ(Count(logsink::TakeTexts(), "4 No cards found"), 1);
}

TEST_F(TriesTest, DriverThatDoesNotStartIsAFailure) {
  InstallCard();
  simcards::FailNext("SsmStartCti", 1000, -1, "boards not ready");
  EXPECT_EQ(RecorderMain(), 1);
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(astrLines.back(), "3 Error in SsmStartCti: boards not ready");
  EXPECT_EQ(Count(astrLines, "5 Old card count: 1"), 1);  // an empty list is one empty entry
}

TEST_F(TriesTest, DriverThatDoesNotStartLeavesTheFactsOfItsCardsAndTheOldList) {
  InstallCard();
  Set("crec", {{"CardList", "Syn1001,SynD"}});
  Forget();
  simcards::FailNext("SsmStartCti", 1000, -1, "no");
  EXPECT_EQ(RecorderMain(), 1);
  EXPECT_EQ(Get("crec", "Syn1001_Present"), "1");
  EXPECT_EQ(Get("crec", "Syn1001_Model"), "ATP8");
  EXPECT_EQ(Get("crec", "Syn1001_SN"), "1001");
  EXPECT_EQ(Get("crec", "Syn1001_MaxChannels"), "8");
  EXPECT_EQ(Get("crec", "SynD_Present"), "0");
  EXPECT_EQ(Get("crec", "CardList"), "Syn1001,SynD");
}

// The driver is asked after half a second each, behind the twenty of the cards.
TEST_F(TriesTest, StopWhileTheDriverStartsIsAFailure) {
  for (const int iTry : {0, 1, 2}) {  // the try in which the stop comes; 0: before the first
    SCOPED_TRACE(iTry);
    InstallCard();
    simcards::FailNext("SsmStartCti", 1000, -1, "no");
    OnSleep = [iTry] { fAppTerminate = aiSleeps.size() == static_cast<size_t>(20 + iTry); };
    EXPECT_EQ(RecorderMain(), 1);
    EXPECT_EQ(aiSleeps, std::vector<useconds_t>(static_cast<size_t>(20 + iTry), 500'000));
    EXPECT_EQ(Count(simcards::TakeCalls(), START_CTI), iTry);
    const Texts astrLines = logsink::TakeTexts();
    EXPECT_EQ(Count(astrLines, "5 Could not (yet) start: no"), iTry);
    EXPECT_EQ(Count(astrLines, "5 Waiting for board init"), iTry);
    EXPECT_EQ(Count(astrLines, "3 Error in SsmStartCti: no"), 0);
    fAppTerminate = false;
  }
}

TEST_F(TriesTest, InAClusterTheCardListIsThatOfTheNode) {
  WriteTestFile("/var/morvex/conf/opt_cluster", "");
  WriteTestFile("/var/morvex/conf/serial", "N1\n");
  Set("crec", {{"CardList", "SynX"}, {"N1-CardList", "SynA,SynB,SynC"}});
  Forget();
  OnSleep = [] { fAppTerminate = aiSleeps.size() == 25; };  // in the pause behind the first try
  EXPECT_EQ(RecorderMain(), 2);
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(astrLines.front(), "5 Clustering is ON");
  EXPECT_EQ(Count(astrLines, "5 Old card count: 3"), 1);
  EXPECT_EQ(Get("crec", "N1-CardList"), "");
  EXPECT_EQ(Get("crec", "CardList"), "SynX");
}

TEST_F(TriesTest, FewerCardsThanBeforeStartAtOnce) {
  InstallCard();
  Set("crec", {{"CardList", "SynD,SynE,SynF"}});
  Forget();
  simcards::FailNext("SsmStartCti", 1000, -1, "no");
  EXPECT_EQ(RecorderMain(), 1);
  const Texts astrLines = logsink::TakeTexts();
  EXPECT_EQ(Count(astrLines, "5 Old card count: 3"), 1);
  EXPECT_EQ(Count(astrLines, "4 Less cards than before"), 0);
}

// Runs the recorder on the card; a second thread orders the end when it is up.
class RunTest : public TriesTest {
 protected:
  int Run() {
    setSignalHandlers();
    std::thread rStopper([this] {
      EXPECT_TRUE(Await([this] {
        for (const std::string& strLine : logsink::TakeTexts()) astrLines.push_back(strLine);
        return Count(astrLines, "5 ** STARTED **") > 0 || fEnded;
      }));
      fAppTerminate = true;
    });
    const int iResult = RecorderMain();
    fEnded = true;
    rStopper.join();
    for (const std::string& strLine : logsink::TakeTexts()) astrLines.push_back(strLine);
    return iResult;
  }
  Texts astrLines;
  std::atomic<bool> fEnded{false};
};

TEST_F(RunTest, RecorderRunsOnTheCardAndTheDriverIsClosed) {
  InstallCard();
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(g_prBoot, nullptr);
  EXPECT_EQ(simcards::TakeCalls().back(), "SsmCloseCti()");
  SSM_VERSION rVersion;
  (void)SsmGetDllVersion(&rVersion);
  const std::string strVersion = std::to_string(rVersion.ucMajor) + "." + std::to_string(rVersion.ucMinor) + "." +
                                 std::to_string(rVersion.usInternal) + "." + std::to_string(rVersion.usBuild);
  EXPECT_EQ(Count(astrLines, "5 Card driver version " + strVersion), 1);
  EXPECT_EQ(Get("crec", "CardDriverVersion"), strVersion);
  EXPECT_EQ(Get("crec", "CardList"), "Syn1001");
}

TEST_F(RunTest, ApiLogIsOffByDefault) {
  InstallCard();
  (void)rmdir("/recordings/log");
  (void)Run();
  EXPECT_FALSE(Exists("/recordings/log"));
  for (const std::string& strCall : simcards::TakeCalls()) {
    EXPECT_NE(strCall.rfind("SsmSetLogAttribute", 0), 0u) << strCall;
  }
}

TEST_F(RunTest, ApiLogIsSwitchedOnBySetting) {
  InstallCard();
  Set("o", {{"TdmLogApi", "1"}});
  Forget();
  const mode_t iMask = umask(0);  // as the daemon runs
  (void)Run();
  (void)umask(iMask);
  struct stat rStat {};
  ASSERT_EQ(stat("/recordings/log", &rStat), 0);
  EXPECT_EQ(rStat.st_mode & 07777, 0777u);
  const Texts astrCalls = simcards::TakeCalls();
  EXPECT_EQ(Count(astrCalls, "SsmSetLogAttribute(2,36,-1,\"/recordings/log\")"), 1);
  (void)rmdir("/recordings/log");
}

TEST_F(RunTest, ApiLogFollowsNoLink) {
  InstallCard();
  Set("o", {{"TdmLogApi", "1"}});
  ASSERT_EQ(symlink("/tmp", "/recordings/log"), 0);
  (void)Run();
  struct stat rStat {};
  ASSERT_EQ(lstat("/recordings/log", &rStat), 0);
  EXPECT_TRUE(S_ISDIR(rStat.st_mode));
  (void)rmdir("/recordings/log");
}

TEST_F(RunTest, FailedInitRecorderIsANormalEnd) {
  InstallCard();
  simcards::FailNext("SsmSetEvent", 1, -1, "no events");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Count(astrLines, "3 Error in SsmSetEvent: no events"), 1);
  EXPECT_EQ(simcards::TakeCalls().back(), "SsmCloseCti()");
  EXPECT_EQ(g_prBoot, nullptr);
}

}  // namespace
