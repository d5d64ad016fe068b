// TestTools: what tests of processes and threads need again and again.
#pragma once

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// While it lives this process can open nothing more, or only so many at a time.
class NoMoreDescriptors {
 public:
  explicit NoMoreDescriptors(int iBut = 0) {
    getrlimit(RLIMIT_NOFILE, &rOld);
    const rlimit rLimit = {static_cast<rlim_t>(FreeDescriptor(iBut)), rOld.rlim_max};
    setrlimit(RLIMIT_NOFILE, &rLimit);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &rOld); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  // The lowest number that is free, apart from iBut lower ones.
  static int FreeDescriptor(int iBut) {
    const int iFd = dup(STDIN_FILENO);
    const int iFound = iBut > 0 ? FreeDescriptor(iBut - 1) : iFd;
    close(iFd);
    return iFound;
  }

  rlimit rOld = {};
};

// How a thread of this process is, as in /proc: 'R' runs, 'S' sleeps until something wakes it.
inline char ThreadState(pid_t iTid) {
  const std::string strStat = ReadTestFile("/proc/self/task/" + std::to_string(iTid) + "/stat");
  const size_t uiNameEnd = strStat.rfind(") ");
  return uiNameEnd == std::string::npos ? '?' : strStat[uiNameEnd + 2];
}

// A user without rights who has no process in any other sandbox.
inline uid_t OwnUser() {
  struct stat rProcesses {};
  if (stat("/proc/self/ns/pid", &rProcesses) != 0) _exit(2);
  return static_cast<uid_t>(20'000 + rProcesses.st_ino % 40'000);  // neighbouring numbers while both exist
}

// Root may have threads beyond any limit, so this is for a process of its own. The limit counts all threads of the user
// on the machine.
inline void LimitThreads(rlim_t uiMost) {
  static const uid_t uiUser = OwnUser();
  rlimit rLimit{};
  (void)getrlimit(RLIMIT_NPROC, &rLimit);
  rLimit.rlim_cur = std::min(uiMost, rLimit.rlim_max);
  if (setresuid(uiUser, uiUser, uiUser) != 0 || setrlimit(RLIMIT_NPROC, &rLimit) != 0) _exit(2);
}

}  // namespace testtools
