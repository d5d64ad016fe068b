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
  ~LineCom();  // closes the pipes; does not wait for the child
  LineCom(const LineCom&) = delete;
  LineCom& operator=(const LineCom&) = delete;

  // aacArgs: the whole argument vector, null-terminated, first entry included.
  void Init(const char* acProgram, const char** aacArgs);
  void SetRestartInterval(int iSeconds);      // between routine restarts; 0: never
  void SetReadTimeout(int iSeconds);          // for one reply, and for the child to exit
  void SetErrorTimeout(int iSeconds);         // of retrying a failed message
  void SetErrorRecheckInterval(int iFactor);  // the pause after try n is n half seconds times this
  // The child ends by itself on the line "exit".
  void SupportsExitMsg();
  // msg ends in a line feed, and so does the reply. False once the error time-out has passed, or after SignalStop; the
  // text of a reply "ERROR" is then still in `reply`. Restarts the child first when its interval has passed.
  bool SendMsg(const std::string& msg, std::string& reply);
  // No message is sent from here on, and the wait for a reply ends.
  void SignalStop();
  // Sends SIGTERM to the child and does not wait for it. The object is not used again.
  void Stop();

 protected:
  // True when the child was forked; whether it could be executed shows later.
  bool StartProgram();
  // False when there is no child, or none any more: its end is noticed, and cleaned up after, here.
  bool IsProgramActive();
  bool EnsureProgramStarted();
  void RestartProgram(bool mayUseExitMsg);
  // One attempt.
  bool InternalSendMsg(const std::string& msg, std::string& reply);
  // True when there is no child, at once or within that time.
  bool WaitForExit(int seconds);
  // A child that we cannot write to.
  bool InvalidState() const;

  pid_t childPid = 0;
  std::string program;
  std::vector<std::string> args;
  int pipesfd[3] = {0, 0, 0};  // our ends: read the child's output, write its input, read its errors
  FILE* writeToChild = nullptr;
  time_t lastStarted = 0;
  bool supportsExitMsg = false;
  std::atomic<bool> shuttingDown{false};
  bool lastIsmFailed = false;  // part of the interface; nothing sets or reads it
  int restartInterval = 0;
  std::atomic<int> readTimeout{10};
  std::atomic<int> errorTimeout{60};
  std::atomic<int> errorRecheckInterval{3};

 private:
  void CloseStreams();
  bool ReadReply(const std::string& msg, std::string& reply);
  bool TryUntilErrorTimeout(const std::string& msg, std::string& reply);
};
