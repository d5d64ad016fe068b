// No buffer and, for all but the longest messages, no allocation: each message leaves by one write of its own. So
// whoever follows a pipe sees a line at once, and threads need not wait for each other, but for a moment where both log
// an error, or anything while errors are left out.
#include "logging.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string>

#include "flood.h"
#include "lock.h"
#include "plainfile.h"
#include "plaintext.h"

int g_DebugMode = 0;
bool g_fErrorFile = true;
std::atomic<bool> fAppTerminate{false};
std::atomic<bool> g_fCrashed{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler sets both");

namespace {

constexpr const char* ERROR_FILE = "/var/morvex/data/err_crec.dat";
Mutex rErrorFileMutex;  // keeps the messages of lg apart; the crash handler, which could hold it, asks for none
Mutex rLimitMutex;
// Apart, as the texts of some warnings are made by a telephone system, and those of orders by anyone: their many kinds
// must not take the errors' places.
enum ELimit { LIMIT_ERRORS, LIMIT_WARNINGS, LIMIT_OFTEN, LIMITS };
FloodLimit raLimits[LIMITS] GUARDED_BY(rLimitMutex);
std::atomic<bool> fHasLeftOut{false};      // as the limits have it, for those who have nothing limited to log
constexpr size_t SHORT_TEXT_BYTES = 1024;  // nearly every message fits; it then needs no allocation

// One formatted message. The stack holds all but the longest, so that a crash inside the allocator can still be told.
class MessageText {
 public:
  MessageText(const char* format, va_list args) {
    va_list rSecondArgs;
    va_copy(rSecondArgs, args);
    const int iNeeded = vsnprintf(acShort, sizeof acShort, format, args);
    iLength = iNeeded < 0 ? 0 : static_cast<size_t>(iNeeded);
    if (IsLong()) {
      strLong.resize(iLength + 1);
      (void)vsnprintf(strLong.data(), strLong.size(), format, rSecondArgs);
    }
    va_end(rSecondArgs);
  }

  char* data() { return IsLong() ? strLong.data() : acShort; }
  size_t size() const { return iLength; }

 private:
  bool IsLong() const { return iLength >= sizeof acShort; }

  char acShort[SHORT_TEXT_BYTES];
  std::string strLong;  // holds the text when acShort is too small
  size_t iLength = 0;
};

// One write a message, so that messages of several threads never mix. The loop goes round again only when a signal
// cut the write short.
void WriteWhole(int hFile, const char* acText, size_t iLength) {
  while (iLength > 0) {
    const ssize_t iWritten = write(hFile, acText, iLength);
    if (iWritten < 0 && errno == EINTR) continue;
    if (iWritten <= 0) return;  // nobody is left to tell
    acText += iWritten;
    iLength -= static_cast<size_t>(iWritten);
  }
}

// Only calls that are safe in a signal handler, as the crash handler comes here.
void ReplaceErrorFile(const char* acText, size_t iLength) {
  const Descriptor rFile = OpenAnew(ERROR_FILE);
  if (rFile.IsOpen()) WriteWhole(rFile.Get(), acText, iLength);
}

// A terminal obeys what a message holds, and in a log of the daemon that is a file a newline within one would forge
// another. A program at the other end of a pipe gets the text as it is.
bool IsReadByPeople(int hFile) {
  struct stat rStat {};
  if (fstat(hFile, &rStat) != 0) return false;
  const bool isLog = g_fErrorFile;  // not a tool's
  return S_ISCHR(rStat.st_mode) || (isLog && S_ISREG(rStat.st_mode));
}

void PrintLine(MessageText& rText) {
  size_t iLength = rText.size();
  if (IsReadByPeople(STDOUT_FILENO)) {
    if (iLength > 0 && rText.data()[iLength - 1] == '\n') iLength--;  // a message's own end of line is no second one
    MaskControls(rText.data(), iLength);
  }
  rText.data()[iLength] = '\n';  // at the latest in the place of the closing NUL
  WriteWhole(STDOUT_FILENO, rText.data(), iLength + 1);
}

std::int64_t NowMs() {
  timespec rNow{};
  (void)clock_gettime(CLOCK_MONOTONIC, &rNow);
  return std::int64_t{rNow.tv_sec} * 1000 + rNow.tv_nsec / 1'000'000;
}

bool HasLeftOut() REQUIRES(rLimitMutex) {
  return std::any_of(std::begin(raLimits), std::end(raLimits),
                     [](const FloodLimit& rLimit) { return rLimit.HasLeftOut(); });
}

bool MayLeave(ELimit eLimit, const char* acText) {
  const MutexLock rLock(rLimitMutex);
  const bool fMayLeave = raLimits[eLimit].Admit(acText, NowMs());
  fHasLeftOut = HasLeftOut();
  return fMayLeave;
}

bool TakeLeftOut(bool fAll, FloodLimit::LeftOut& rLeftOut) {
  if (!fHasLeftOut) return false;
  const MutexLock rLock(rLimitMutex);
  const std::int64_t iNowMs = NowMs();
  const bool fTaken = std::any_of(std::begin(raLimits), std::end(raLimits),
                                  [&](FloodLimit& rLimit) { return rLimit.Take(iNowMs, fAll, rLeftOut); });
  fHasLeftOut = HasLeftOut();
  return fTaken;
}

void VSend(int iPrio, const char* format, va_list args) {
  if (g_DebugMode == 0) {
    vsyslog(iPrio, format, args);
    return;
  }
  MessageText rText(format, args);
  PrintLine(rText);
}

__attribute__((format(printf, 2, 3))) void Send(int iPrio, const char* format, ...) {
  va_list args;
  va_start(args, format);
  VSend(iPrio, format, args);
  va_end(args);
}

void TellLeftOut(bool fAll) {
  FloodLimit::LeftOut rLeftOut;
  while (TakeLeftOut(fAll, rLeftOut)) {
    Send(LOG_WARNING, "%lu messages like this one left out: %s", rLeftOut.iCount, rLeftOut.acLast);
  }
}

}  // namespace

void lg(int prio, const char* format, ...) {
  TellLeftOut(/*fAll=*/false);
  va_list args;
  if (prio > LOG_WARNING) {
    va_start(args, format);
    VSend(prio, format, args);
    va_end(args);
    return;
  }
  va_start(args, format);
  MessageText rText(format, args);
  va_end(args);
  if (!MayLeave(prio <= LOG_ERR ? LIMIT_ERRORS : LIMIT_WARNINGS, rText.data())) return;
  va_start(args, format);  // anew: the first use has consumed the arguments
  VSend(prio, format, args);
  va_end(args);
  if (prio > LOG_ERR || fAppTerminate || !g_fErrorFile) return;
  const MutexLock rLock(rErrorFileMutex);  // else the texts of two threads could mix
  if (!g_fCrashed) ReplaceErrorFile(rText.data(), rText.size());
}

void lgOften(const char* format, ...) {
  va_list args;
  va_start(args, format);
  MessageText rText(format, args);
  va_end(args);
  if (MayLeave(LIMIT_OFTEN, rText.data())) lg(LOG_NOTICE, "%s", rText.data());
}

void LogCapiError(const char* where) {
  lg(LOG_ERR, "C-api error at %s: %s", where, strerror(errno));
}

void LogLeftOut() {
  TellLeftOut(/*fAll=*/true);
}

void WriteErrCrec(const char* msg) {
  ReplaceErrorFile(msg, strlen(msg));
}
