// The process from start to end. RunDaemon is the list of steps; RecorderMain tries again and again to find cards and
// then runs the recorder on them. A start that fails once the database was reached leaves the process idle until it is
// told to stop: the daemon never restarts itself, as that is the business of whatever supervises it, and a supervisor
// that restarts on every exit would otherwise turn a missing card into an endless loop.
#include "morvex_crec.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "bgact.h"
#include "database.h"
#include "filedir.h"
#include "fstring.h"
#include "logging.h"
#include "mainqueue.h"
#include "mainthread.h"
#include "recorder_boot.h"
#include "recorder_cluster.h"
#include "shpa3api.h"
#include "signaling.h"

namespace {

constexpr const char* CARD_DRIVER_DIR = "/usr/local/lib/shcti";
constexpr const char* NODE_ACTIVE_FILE = "/var/morvex/data/node_active";
constexpr const char* PID_FILE = "/var/run/morvex_crec.pid";
constexpr const char* API_LOG_DIR = "/recordings/log";

// The driver's log of its own calls, by the names that its interface has for them. Their units are the driver's, and
// not known here; these values make it log.
constexpr int API_LOG_CREATE_PERIOD = 2;
constexpr int API_LOG_MAX_KEEP = 36;
constexpr int API_LOG_MAX_PERIOD = -1;

constexpr useconds_t POLL_US = 500'000;     // between two looks at a flag while nothing else is to be done
constexpr int TRY_PAUSE_MS = 10'000;        // between two looks for cards
constexpr time_t MAX_TRY_NO_CARDS_S = 600;  // cards may be slow to appear after a power failure
constexpr time_t MAX_TRY_FEW_CARDS_S = 180;
constexpr int BACKTRACE_FRAMES = 15;
constexpr unsigned CRASH_REPORT_S = 5;  // enough for a slow log, and for a supervisor still the moment of the crash

// Exit codes of the process, also the results of RecorderMain.
enum EExit { EXIT_NORMAL = 0, EXIT_FAILED = 1, EXIT_NO_CARDS = 2 };

enum EStartMode { START_BACKGROUND, START_DEBUG, START_NOFORK };

// -- command line and cluster -----------------------------------------------------------------------------------------

// Only the first argument counts; an unknown one is as good as none.
EStartMode ReadStartMode(int argc, char** argv) {
  const std::string strArg = argc > 1 ? argv[1] : "";
  if (strArg == "debug") return START_DEBUG;
  if (strArg == "nofork") return START_NOFORK;
  return START_BACKGROUND;
}

bool IsPassiveNode() {
  return file_exists(CLUSTER_FILE) && !file_exists(NODE_ACTIVE_FILE);
}

// Ends also when the node becomes primary: the process does not go on to record, the next start by its supervisor does.
void WaitAsPassiveNode() {
  lg(LOG_NOTICE, "Not starting, this node is passive, waiting until we become primary or until termination");
  setSignalHandlers();
  while (!file_exists(NODE_ACTIVE_FILE) && !fAppTerminate) (void)usleep(POLL_US);
  lg(LOG_NOTICE, "MORVEX-CREC exit");
}

// -- signals ----------------------------------------------------------------------------------------------------------

// The first call of backtrace loads a library and allocates; done here, the one in the handler of a crash does not.
void PreloadBacktrace() {
  void* apFrame[1];
  (void)backtrace(apFrame, 1);
}

void LogBacktrace() {
  static void* apFrames[BACKTRACE_FRAMES];  // static: the stack may be what is broken
  const int iFrames = backtrace(apFrames, BACKTRACE_FRAMES);
  char** aacSymbols = backtrace_symbols(apFrames, iFrames);
  if (aacSymbols == nullptr) return;
  // Frame 0 is this crash report itself. The texts are not freed: the process dies.
  for (int i = 1; i < iFrames; i++) syslog(LOG_ERR, "%s", aacSymbols[i]);
}

std::atomic<pid_t> iCrashThread{0};  // kernel's id of the thread that crashed first; 0: none has
std::atomic<int> iCrashSignal{0};

// Ends the process by the signal of its first crash. Any thread may come here, also one that has the signal blocked as
// its handler runs there. Only calls that are safe in a signal handler.
[[noreturn]] void DieOfFirstCrash(int /*iSignal*/) {
  const int iSignal = iCrashSignal;
  struct sigaction rDefault = {};  // zeroed: the default action
  sigset_t rUnblock;
  (void)sigemptyset(&rUnblock);
  (void)sigaddset(&rUnblock, iSignal);
  if (sigaction(iSignal, &rDefault, nullptr) == 0 && pthread_sigmask(SIG_UNBLOCK, &rUnblock, nullptr) == 0) {
    (void)raise(iSignal);
  }
  _exit(EXIT_FAILED);
}

// From here on the process ends within seconds, whatever its report meets.
void LimitReport() {
  struct sigaction rEnd = {};
  rEnd.sa_handler = DieOfFirstCrash;
  (void)sigaction(SIGALRM, &rEnd, nullptr);
  (void)alarm(CRASH_REPORT_S);
}

// A report that crashes is given up. The crash of another thread waits for the report of the first: that one ends both.
void EndSecondCrash() {
  while (iCrashThread != gettid()) (void)pause();
  DieOfFirstCrash(0);
}

[[noreturn]] void DieOfSignal(int iSignal, const char* acText) {
  pid_t iNoThread = 0;
  if (!iCrashThread.compare_exchange_strong(iNoThread, gettid())) EndSecondCrash();
  iCrashSignal = iSignal;
  LimitReport();
  g_fCrashed = true;
  WriteErrCrec(acText);  // first, as it needs neither lock nor memory
  syslog(LOG_ERR, "%s", acText);
  LogBacktrace();
  DieOfFirstCrash(0);
}

// -- start tries ------------------------------------------------------------------------------------------------------

// Cards of the last run, apart from those that are marked as not having been present. An empty list is one empty entry.
int CountOldCards(TRecorderBoot& rBoot) {
  std::vector<std::string> astrIds;
  lt_split(astrIds, rBoot.rConfigs[g_cfgPrefix + "CardList"], ',');
  int iCount = 0;
  for (const std::string& strId : astrIds) {
    if (rBoot.rConfigs["Prev_" + strId + "_Present"] != "0") iCount++;
  }
  return iCount;
}

enum ETryResult { TRY_AGAIN, TRY_CARDS, TRY_GAVE_UP };

// Looks for cards once. iWantedCards: fewer cards than this are not enough to start with, yet.
ETryResult TryFindCards(TRecorderBoot& rBoot, time_t rStartTime, int iWantedCards) {
  rBoot.PrepareConfig();
  const int iCards = static_cast<int>(rBoot.vrDetectedBoards.size());
  if (iCards == 0) rBoot.rNewConfigs[g_cfgPrefix + "CardList"] = "";
  rBoot.WriteNewConfigsToDB();
  if (iCards > 0 && iCards >= iWantedCards) return TRY_CARDS;

  if (iCards == 0) lg(LOG_WARNING, "No cards found");
  if (iCards < iWantedCards) lg(LOG_WARNING, "Less cards than before");
  const ETryResult eWithoutMore = iCards > 0 ? TRY_CARDS : TRY_GAVE_UP;
  if (time(nullptr) - rStartTime >= (iCards == 0 ? MAX_TRY_NO_CARDS_S : MAX_TRY_FEW_CARDS_S)) return eWithoutMore;
  (void)CheckedSleep(TRY_PAUSE_MS);
  return fAppTerminate ? eWithoutMore : TRY_AGAIN;
}

// -- with cards -------------------------------------------------------------------------------------------------------

void StartApiLog(TRecorderBoot& rBoot) {
  if (TextToLong(rBoot.GetOSetting("TdmLogApi")) == 0) return;
  EnsurePath(API_LOG_DIR);
  (void)SsmSetLogAttribute(API_LOG_CREATE_PERIOD, API_LOG_MAX_KEEP, API_LOG_MAX_PERIOD, API_LOG_DIR);
}

void NoteDriverVersion(TRecorderBoot& rBoot) {
  SSM_VERSION rVersion;
  (void)SsmGetDllVersion(&rVersion);
  char acVersion[32];
  (void)snprintf(acVersion, sizeof acVersion, "%d.%d.%d.%d", rVersion.ucMajor, rVersion.ucMinor, rVersion.usInternal,
                 rVersion.usBuild);
  lg(LOG_NOTICE, "Card driver version %s", acVersion);
  rBoot.rNewConfigs["CardDriverVersion"] = acVersion;
}

int RunOnCards(TRecorderBoot& rBoot) {
  if (rBoot.InitBoards() != 0) return EXIT_FAILED;
  StartApiLog(rBoot);
  NoteDriverVersion(rBoot);
  rBoot.AnalyseStartedState();
  rBoot.WriteNewConfigsToDB();
  (void)rBoot.RecorderUseBoardsLoop();  // a recorder that could not start has logged why, and ends like any other
  g_prBoot = nullptr;
  (void)SsmCloseCti();
  return EXIT_NORMAL;
}

// From the first step behind the fork to the end: database, threads, recorder.
int RunWithDatabase() {
  Database::Init();
  auto prDatabase = std::make_unique<Database>();
  prDatabase->SetDbUser("root");
  if (prDatabase->WaitForConnection() != 0) {
    Database::Deinit();
    WriteErrCrec("No database connection");
    return EXIT_FAILED;
  }
  init_signaling();
  init_bgact();
  const int iRet = RecorderMain();
  Database::Deinit();
  if (!fAppTerminate) lg(LOG_NOTICE, "waiting for exit");
  while (!fAppTerminate) (void)usleep(POLL_US);
  lg(LOG_NOTICE, "Closing extra threads");
  close_bgact();
  close_signaling();
  LogLeftOut();
  lg(LOG_NOTICE, "MORVEX-CREC exit");
  return iRet;
}

}  // namespace

int RunDaemon(int argc, char** argv) {
  const EStartMode eMode = ReadStartMode(argc, argv);
  if (eMode == START_DEBUG) {
    (void)puts("Opened in debug mode.....");
    (void)fflush(stdout);  // a pipe shows it at once, before the first message
    g_DebugMode = 1;
  }
  if (!CheckCardDriver()) {
    lg(LOG_WARNING, "Not starting because card driver not there");
    return EXIT_NORMAL;
  }
  if (IsPassiveNode()) {  // before the fork: a supervisor sees the process wait
    WaitAsPassiveNode();
    return EXIT_NORMAL;
  }
  if (eMode == START_BACKGROUND) {
    const int iSpawned = spawn_me();
    if (iSpawned == 0) return EXIT_NORMAL;
    if (iSpawned == 1) {
      WriteErrCrec("Could not start");
      return EXIT_FAILED;
    }
  }
  RememberMainThread();
  lg(LOG_NOTICE, "MORVEX-CREC start");
  (void)signal(SIGPIPE, SIG_IGN);
  (void)signal(SIGCHLD, SIG_DFL);  // ignored by whoever started us, no command would have a status
  setSignalHandlers();
  (void)umask(0);  // the web side works on our files under another user
  return RunWithDatabase();
}

bool CheckCardDriver() {
  return file_exists(CARD_DRIVER_DIR);
}

int spawn_me() {
  const pid_t iPid = fork();
  if (iPid < 0) return 1;
  if (iPid > 0) return 0;
  if (setsid() < 0) return 1;
  if (chdir("/") != 0) return 1;
  if (FILE* hPidFile = fopen(PID_FILE, "we")) {  // without it the daemon runs all the same
    (void)fprintf(hPidFile, "%d\n", getpid());
    (void)fclose(hPidFile);
  }
  for (int iFd = 0; iFd <= 2; iFd++) (void)close(iFd);
  // Takes 0, and the two copies take 1 and 2: for the children too.
  (void)open("/dev/null", O_RDWR);  // NOLINT(android-cloexec-open)
  for (int iCopy = 1; iCopy <= 2; iCopy++) {
    if (dup(0) < 0) break;  // NOLINT(android-cloexec-dup)
  }
  return -1;
}

void setSignalHandlers() {
  PreloadBacktrace();
  sigset_t rNone;  // what the process that started us has blocked is no wish of its own
  (void)sigemptyset(&rNone);
  (void)pthread_sigmask(SIG_SETMASK, &rNone, nullptr);
  struct sigaction rAction = {};
  rAction.sa_handler = signal_handler;
  (void)sigemptyset(&rAction.sa_mask);
  rAction.sa_flags = SA_RESTART | SA_SIGINFO;
  for (const int iSignal : {SIGSEGV, SIGABRT, SIGTERM, SIGINT}) (void)sigaction(iSignal, &rAction, nullptr);
}

// An order to stop only sets a flag, and all else happens on the main thread. A crash is reported from within the
// handler, by functions that are not made for it: syslog and backtrace_symbols may allocate and take locks, so the
// report of a crash inside malloc can stop in mid-word, and an alarm ends it. It is tried all the same, as its lines
// are the only trace that a crash at a customer's site leaves.
void signal_handler(int iSignal) {
  switch (iSignal) {
    case SIGINT:
    case SIGTERM:
      fAppTerminate = true;
      break;
    case SIGABRT:
      DieOfSignal(iSignal, "Signal SIGABRT");
      break;
    case SIGSEGV:
      DieOfSignal(iSignal, "Signal SIGSEGV");
      break;
    default:  // not installed for any other
      break;
  }
}

void setLimits() {}

int RecorderMain() {
  const time_t rStartTime = time(nullptr);
  InitCluster();
  // No start waits for cards that were there before: a machine that comes up with fewer starts at once with what it
  // has. The count of the old cards is only logged.
  const int iOldCardCount = 0;
  for (bool fFirstTry = true; !fAppTerminate; fFirstTry = false) {
    TRecorderBoot rBoot;
    g_prBoot = &rBoot;
    if (!rBoot.Init()) return EXIT_NORMAL;
    if (fFirstTry) lg(LOG_NOTICE, "Old card count: %d", CountOldCards(rBoot));
    switch (TryFindCards(rBoot, rStartTime, iOldCardCount)) {
      case TRY_CARDS:
        return RunOnCards(rBoot);
      case TRY_GAVE_UP:
        return EXIT_NO_CARDS;
      case TRY_AGAIN:
        break;
    }
  }
  return EXIT_NO_CARDS;
}

int CheckedSleep(int ms) {
  const auto iRemainderUs = static_cast<useconds_t>(ms % 1000) * 1000;
  if (ms < 1000) {
    if (!fAppTerminate) (void)usleep(iRemainderUs);
    return 0;
  }
  for (int i = 0; i < ms / 1000 * 2; i++) {
    (void)usleep(POLL_US);
    if (fAppTerminate) return 0;
  }
  (void)usleep(iRemainderUs);
  return 0;
}
