// preload: what a machine can do to a daemon that no file and no setting can: another time of day, refused processes
// and threads, a disk that takes its time. Preloaded into the daemon by the campaigns, steered by one shared file whose
// fields the test writes while the daemon runs.
// The library takes itself out of LD_PRELOAD, so that the daemon's children are as they always are.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

constexpr const char* CONTROL_FILE = "/tmp/campaign_control";
constexpr const char* SLOW_FOLDER = "/recordings";

enum EField {
  FIELD_CLOCK_OFFSET,
  FIELD_REFUSE_FORK,
  FIELD_REFUSE_POPEN,
  FIELD_THREADS_LEFT,
  FIELD_REFUSE_THREADS,
  FIELD_SLOW_WRITE,
  FIELD_SLEEP_DIVISOR,
  FIELD_COUNT
};

// The same order in bench.py. A count is how many of the next calls are refused.
struct Control {
  std::atomic<std::int64_t> iClockOffsetS;
  std::atomic<std::int64_t> iRefuseFork;
  std::atomic<std::int64_t> iRefusePopen;
  std::atomic<std::int64_t> iThreadsLeft;    // pthread_create succeeds so often, then is refused; -1: always succeeds
  std::atomic<std::int64_t> iRefuseThreads;  // and so often is it refused then
  std::atomic<std::int64_t> iSlowWriteUs;    // each write below SLOW_FOLDER takes this much longer
  std::atomic<std::int64_t> iSleepDivisor;   // usleep takes this part of its time
  // How often each of these did something, so that a test sees that it did.
  std::atomic<std::int64_t> iApplied[FIELD_COUNT];
};
static_assert(sizeof(std::atomic<std::int64_t>) == sizeof(std::int64_t));

Control* prControl = nullptr;

__attribute__((constructor)) void Attach() {
  (void)unsetenv("LD_PRELOAD");
  const int iFd = open(CONTROL_FILE, O_RDWR | O_CLOEXEC);
  if (iFd < 0) return;
  void* pvControl = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
  (void)close(iFd);
  if (pvControl != MAP_FAILED) prControl = static_cast<Control*>(pvControl);
}

// The function that this library stands in front of.
template <typename Function>
Function* Next(const char* acName) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, acName));
}

void NoteApplied(EField eField) {
  prControl->iApplied[eField]++;
}

bool Refused(std::atomic<std::int64_t> Control::*piCount, EField eField) {
  if (prControl == nullptr || (prControl->*piCount).load() <= 0) return false;
  if ((prControl->*piCount).fetch_sub(1) <= 0) return false;
  NoteApplied(eField);
  return true;
}

time_t ClockOffset() {
  const std::int64_t iOffsetS = prControl == nullptr ? 0 : prControl->iClockOffsetS.load();
  if (iOffsetS != 0) NoteApplied(FIELD_CLOCK_OFFSET);
  return static_cast<time_t>(iOffsetS);
}

void DelayWrite(int iFd) {
  if (prControl == nullptr || prControl->iSlowWriteUs <= 0) return;
  const int iErrno = errno;
  struct stat rFile {};
  struct stat rFolder {};
  if (fstat(iFd, &rFile) == 0 && stat(SLOW_FOLDER, &rFolder) == 0 && rFile.st_dev == rFolder.st_dev) {
    const std::int64_t iUs = prControl->iSlowWriteUs;
    const timespec rPause = {static_cast<time_t>(iUs / 1'000'000), static_cast<long>(iUs % 1'000'000 * 1000)};
    (void)nanosleep(&rPause, nullptr);
    NoteApplied(FIELD_SLOW_WRITE);
  }
  errno = iErrno;
}

}  // namespace

extern "C" {

time_t time(time_t* prTime) {
  timespec rNow{};
  (void)clock_gettime(CLOCK_REALTIME, &rNow);
  if (prTime != nullptr) *prTime = rNow.tv_sec;
  return rNow.tv_sec;
}

int clock_gettime(clockid_t iClock, timespec* prTime) {
  static auto* const prNext = Next<int(clockid_t, timespec*)>("clock_gettime");
  const int iResult = prNext(iClock, prTime);
  if (iResult == 0 && iClock == CLOCK_REALTIME) prTime->tv_sec += ClockOffset();
  return iResult;
}

int gettimeofday(timeval* prTime, void* /*pvZone*/) {
  timespec rNow{};
  (void)clock_gettime(CLOCK_REALTIME, &rNow);
  prTime->tv_sec = rNow.tv_sec;
  prTime->tv_usec = rNow.tv_nsec / 1000;
  return 0;
}

pid_t fork() {
  if (Refused(&Control::iRefuseFork, FIELD_REFUSE_FORK)) {
    errno = EAGAIN;
    return -1;
  }
  static auto* const prNext = Next<pid_t()>("fork");
  return prNext();
}

FILE* popen(const char* acCommand, const char* acMode) {
  if (Refused(&Control::iRefusePopen, FIELD_REFUSE_POPEN)) {
    errno = EAGAIN;
    return nullptr;
  }
  static auto* const prNext = Next<FILE*(const char*, const char*)>("popen");
  return prNext(acCommand, acMode);
}

int pthread_create(pthread_t* prThread, const pthread_attr_t* prAttr, void* (*prStart)(void*), void* pvArgument) {
  if (prControl != nullptr && prControl->iThreadsLeft >= 0 && prControl->iThreadsLeft.fetch_sub(1) <= 0) {
    prControl->iThreadsLeft = 0;
    NoteApplied(FIELD_THREADS_LEFT);
    if (Refused(&Control::iRefuseThreads, FIELD_REFUSE_THREADS)) return EAGAIN;
  }
  static auto* const prNext = Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  return prNext(prThread, prAttr, prStart, pvArgument);
}

size_t fwrite(const void* pvData, size_t uiSize, size_t uiCount, FILE* hFile) {
  DelayWrite(fileno(hFile));
  static auto* const prNext = Next<size_t(const void*, size_t, size_t, FILE*)>("fwrite");
  return prNext(pvData, uiSize, uiCount, hFile);
}

ssize_t write(int iFd, const void* pvData, size_t uiCount) {
  DelayWrite(iFd);
  static auto* const prNext = Next<ssize_t(int, const void*, size_t)>("write");
  return prNext(iFd, pvData, uiCount);
}

int usleep(useconds_t uiUs) {
  const std::int64_t iDivisor = prControl == nullptr ? 1 : prControl->iSleepDivisor.load();
  const std::int64_t iUs = iDivisor > 1 ? uiUs / iDivisor : uiUs;
  if (iUs != uiUs) NoteApplied(FIELD_SLEEP_DIVISOR);
  const timespec rPause = {static_cast<time_t>(iUs / 1'000'000), static_cast<long>(iUs % 1'000'000 * 1000)};
  return nanosleep(&rPause, nullptr);
}

}  // extern "C"
