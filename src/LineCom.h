// LineCom: a program run as a long-lived child and spoken to by lines: one request line, one reply line.
// It exists so that a slow interpreter need not start anew for every request. The child is started lazily, restarted
// after a crash and from time to time; its standard error goes to the log.
// Threads:   one caller at a time (the user's business); SignalStop and the time-outs: any.
// Ownership: the child and its pipes; Stop ends the child without waiting.
// Errors:    SendMsg gives false after its error time-out. A request may reach the child more than once.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

class LineCom {
 public:
  LineCom() = default;
  LineCom(const LineCom&) = delete;
  LineCom& operator=(const LineCom&) = delete;

  // args: the whole argument vector, null-terminated, first entry included.
  void Init(const char* program, const char** args);
  void SetRestartInterval(int iSeconds);  // 0: never
  void SetReadTimeout(int iSeconds);
  void SetErrorTimeout(int iSeconds);
  void SetErrorRecheckInterval(int iFactor);
  void SupportsExitMsg();
  // msg ends in a line feed, and so does the reply.
  bool SendMsg(const std::string& msg, std::string& reply);
  void SignalStop();
  void Stop();

 protected:
  bool StartProgram();
  bool IsProgramActive();
  bool EnsureProgramStarted();
  void RestartProgram(bool mayUseExitMsg);
  bool InternalSendMsg(const std::string& msg, std::string& reply);
  bool WaitForExit(int seconds);
  bool InvalidState() const;

  pid_t childPid = 0;
  std::string program;
  std::vector<std::string> args;
  int pipesfd[3] = {0, 0, 0};  // our ends: read the child's output, write its input, read its errors
  FILE* writeToChild = nullptr;
  time_t lastStarted = 0;
  bool supportsExitMsg = false;
  std::atomic<bool> shuttingDown{false};
  bool lastIsmFailed = false;
  int restartInterval = 0;
  std::atomic<int> readTimeout{10};
  std::atomic<int> errorTimeout{60};
  std::atomic<int> errorRecheckInterval{3};
};
