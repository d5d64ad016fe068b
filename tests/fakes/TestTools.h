// TestTools: what tests of processes and threads need again and again.
#pragma once

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "TestFiles.h"

namespace testtools {

constexpr int AWAIT_MS = 20'000;  // far above what is waited for, so that a slow machine fails no test

// Looks at a condition until it holds; false when it did not in time.
template <class Condition>
bool Await(Condition fHolds, int iMaxMs = AWAIT_MS) {
  const auto rEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(iMaxMs);
  while (!fHolds()) {
    if (std::chrono::steady_clock::now() > rEnd) return false;
    (void)usleep(2000);
  }
  return true;
}

inline bool Exists(const std::string& strPath) {
  struct stat rStat {};
  return stat(strPath.c_str(), &rStat) == 0;
}

// An executable script, its first line included in the text.
inline void WriteScript(const std::string& strPath, const std::string& strText) {
  WriteTestFile(strPath, strText);
  (void)chmod(strPath.c_str(), 0755);
}

// While it lives this process can open nothing more.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &rOld);
    const rlimit rNone = {3, rOld.rlim_max};  // these are taken; a poll of some descriptors stays within it
    setrlimit(RLIMIT_NOFILE, &rNone);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &rOld); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlimit rOld = {};
};

}  // namespace testtools
