#include "LogSink.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {
std::mutex rMutex;
std::vector<logsink::Line> rLines;  // guarded by rMutex

void Keep(int iPrio, const char* format, va_list args) {
  char acText[8192];
  (void)vsnprintf(acText, sizeof acText, format, args);  // longer lines do not occur in tests
  const std::lock_guard<std::mutex> rLock(rMutex);
  rLines.push_back({iPrio, acText});
}
}  // namespace

extern "C" void vsyslog(int iPrio, const char* format, va_list args) {
  Keep(iPrio, format, args);
}

extern "C" void syslog(int iPrio, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Keep(iPrio, format, args);
  va_end(args);
}

namespace logsink {

std::vector<Line> Take() {
  const std::lock_guard<std::mutex> rLock(rMutex);
  std::vector<Line> rTaken;
  rTaken.swap(rLines);
  return rTaken;
}

Texts TakeTexts() {
  Texts astrTexts;
  for (const Line& rLine : Take()) astrTexts.push_back(std::to_string(rLine.iPrio) + " " + rLine.strText);
  return astrTexts;
}

}  // namespace logsink
