// A conversation by lines with a child process.
//
// A request is one write, its reply all that arrives until a read ends in a line feed. Whatever goes wrong in between
// (no child, silence, "ERROR", end of output) is answered in one way: end the child, start a new one, pause a little
// longer each time, and send the request again until the error time-out.
#include "LineCom.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <iterator>
#include <utility>

#include "logging.h"

namespace {

constexpr std::size_t MAX_REPLY_BYTES = 3000;
constexpr int FIRST_FD_TO_CLOSE = 3;
constexpr int END_FD_TO_CLOSE = 20'000;  // the child must not keep recordings and sockets open
constexpr int EXIT_NO_EXEC = 99;         // seen by nobody: the parent notices the end of the child alone
constexpr int ANSWER_DELAYED_MS = 1000;
constexpr useconds_t POLL_US = 100'000;
constexpr int PERIODS_PER_TRY = 5;  // of POLL_US: the pause grows by half a second times the factor
constexpr useconds_t ENDED_ERRORS_PAUSE_US = 10'000;
constexpr short READABLE = POLLIN | POLLHUP | POLLERR | POLLNVAL;  // the read tells which

enum EEnd { END_READ = 0, END_WRITE = 1 };

// Both ends of a pipe; closes what has not been taken out. Close-on-exec, since workers run shell commands meanwhile
// and a copy of an end in such a command would hide the end of a conversation.
class Pipe {
 public:
  Pipe() { fOpen = pipe2(aiFd, O_CLOEXEC) == 0; }
  ~Pipe() {
    for (const int iFd : aiFd) {
      if (iFd >= 0) (void)close(iFd);
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  bool IsOpen() const { return fOpen; }
  int Get(EEnd eEnd) const { return aiFd[eEnd]; }
  int Take(EEnd eEnd) { return std::exchange(aiFd[eEnd], -1); }

 private:
  int aiFd[2] = {-1, -1};
  bool fOpen = false;
};

// In the child: only calls that are safe after the fork of a process with threads, hence no allocation, and _exit in
// place of exit, which would run the parent's clean-up and write out its buffers a second time.
[[noreturn]] void BecomeProgram(const char* acProgram, char* const* aacArgs, int iIn, int iOut, int iErr) {
  (void)dup2(iIn, STDIN_FILENO);
  (void)dup2(iOut, STDOUT_FILENO);
  (void)dup2(iErr, STDERR_FILENO);
  for (int iFd = FIRST_FD_TO_CLOSE; iFd < END_FD_TO_CLOSE; iFd++) (void)close(iFd);
  (void)execv(acProgram, aacArgs);
  _exit(EXIT_NO_EXEC);
}

// "Readable" is no promise that a read finds something, and a read that waits would miss every time-out.
void SetNonBlocking(int iFd) {
  const int iFlags = fcntl(iFd, F_GETFL);
  (void)fcntl(iFd, F_SETFL, iFlags | O_NONBLOCK);
}

// Seconds on a clock that nobody sets, so that limits hold when the time of day is corrected.
time_t Now() {
  timespec rNow{};
  (void)clock_gettime(CLOCK_BOOTTIME, &rNow);
  return rNow.tv_sec;
}

bool HasPassed(time_t rSince, int iSeconds) {
  return Now() - rSince >= iSeconds;
}

enum EReply { REPLY_MORE, REPLY_COMPLETE, REPLY_FAILED };

// The reply as it arrives.
class ReplyBuffer {
 public:
  EReply Read(int iFd) {
    const ssize_t iGot = read(iFd, acText + iBytes, MAX_REPLY_BYTES - iBytes);
    if (iGot <= 0) {
      lg(LOG_WARNING, iGot < 0 ? "LineCom. Read error" : "LineCom. Read empty");
      return REPLY_FAILED;
    }
    iBytes += static_cast<std::size_t>(iGot);
    acText[iBytes] = 0;
    // A line feed inside a read ends nothing: replies are one line, and a program that writes more has not finished.
    return acText[iBytes - 1] == '\n' ? REPLY_COMPLETE : REPLY_MORE;
  }
  bool IsFull() const { return iBytes == MAX_REPLY_BYTES; }
  const char* Text() const { return acText; }

 private:
  char acText[MAX_REPLY_BYTES + 1] = "";
  std::size_t iBytes = 0;
};

// What the child says on standard error goes to the log. False: the descriptor is broken.
bool LogErrorOutput(int iFd) {
  char acText[MAX_REPLY_BYTES + 1];
  const ssize_t iGot = read(iFd, acText, MAX_REPLY_BYTES);
  if (iGot < 0) {
    lg(LOG_WARNING, "LineCom. Read -1");
    return false;
  }
  if (iGot == 0) {
    // The child has closed it and lives on: always readable, so without a pause the wait would be a busy one.
    (void)usleep(ENDED_ERRORS_PAUSE_US);
    return true;
  }
  acText[iGot] = 0;
  lg(LOG_ERR, "LineCom stderr: %s", acText);
  return true;
}

// Waits a second at most for output or error output of the child, and takes what is there.
EReply ReadStep(ReplyBuffer& rReply, int iOutput, int iErrors, const std::string& msg) {
  pollfd arReady[] = {{iOutput, POLLIN, 0}, {iErrors, POLLIN, 0}};
  const int iReady = poll(arReady, std::size(arReady), ANSWER_DELAYED_MS);
  if (iReady < 0) {
    lg(LOG_WARNING, "LineCom. Select error");
    return REPLY_FAILED;
  }
  if (iReady == 0) lg(LOG_NOTICE, "LineCom answer is delayed. Msg was: %s", msg.c_str());
  if ((arReady[0].revents & READABLE) != 0) {
    const EReply eReply = rReply.Read(iOutput);
    if (eReply != REPLY_MORE) return eReply;
  }
  if ((arReady[1].revents & READABLE) != 0 && !LogErrorOutput(iErrors)) return REPLY_FAILED;
  return REPLY_MORE;
}

}  // namespace

// -- set-up -----------------------------------------------------------------------------------------------------------

LineCom::~LineCom() {
  CloseStreams();
}

void LineCom::Init(const char* acProgram, const char** aacArgs) {
  program = acProgram;
  args.clear();
  for (; *aacArgs != nullptr; aacArgs++) args.emplace_back(*aacArgs);
}

void LineCom::SetRestartInterval(int iSeconds) {
  restartInterval = iSeconds;
}

void LineCom::SetReadTimeout(int iSeconds) {
  readTimeout = iSeconds;
}

void LineCom::SetErrorTimeout(int iSeconds) {
  errorTimeout = iSeconds;
}

void LineCom::SetErrorRecheckInterval(int iFactor) {
  errorRecheckInterval = iFactor;
}

void LineCom::SupportsExitMsg() {
  supportsExitMsg = true;
}

// -- the child --------------------------------------------------------------------------------------------------------

bool LineCom::StartProgram() {
  std::vector<char*> aacArgs;
  for (std::string& strArg : args) aacArgs.push_back(strArg.data());
  aacArgs.push_back(nullptr);

  Pipe rOutput, rInput, rErrors;
  if (!rOutput.IsOpen() || !rInput.IsOpen() || !rErrors.IsOpen()) return false;
  const pid_t iPid = fork();
  if (iPid == 0) {
    BecomeProgram(program.c_str(), aacArgs.data(), rInput.Get(END_READ), rOutput.Get(END_WRITE),
                  rErrors.Get(END_WRITE));
  }
  if (iPid < 0) return false;
  childPid = iPid;
  pipesfd[0] = rOutput.Take(END_READ);
  pipesfd[1] = rInput.Take(END_WRITE);
  pipesfd[2] = rErrors.Take(END_READ);
  SetNonBlocking(pipesfd[0]);
  SetNonBlocking(pipesfd[2]);
  writeToChild = fdopen(pipesfd[1], "w");
  if (writeToChild == nullptr) return false;
  lastStarted = Now();
  return true;
}

bool LineCom::IsProgramActive() {
  if (childPid == 0) return false;
  if (waitpid(childPid, nullptr, WNOHANG) == 0) return true;
  childPid = 0;
  CloseStreams();
  return false;
}

void LineCom::CloseStreams() {
  if (writeToChild != nullptr) {
    (void)fclose(writeToChild);  // closes the descriptor too
    writeToChild = nullptr;
    pipesfd[1] = 0;
  }
  for (int& iFd : pipesfd) {
    if (iFd != 0) (void)close(iFd);
    iFd = 0;
  }
}

// Before each message, so a child that has ended in between is replaced without a failed attempt.
bool LineCom::EnsureProgramStarted() {
  if (IsProgramActive()) return true;
  return StartProgram() && IsProgramActive();  // the second look catches a child that died at once
}

bool LineCom::WaitForExit(int seconds) {
  const time_t rStart = Now();
  while (IsProgramActive()) {
    if (HasPassed(rStart, seconds) || shuttingDown) return false;
    (void)usleep(POLL_US);
  }
  return true;
}

// A child that outlives both the exit message and SIGTERM is left to a later attempt.
void LineCom::RestartProgram(bool mayUseExitMsg) {
  lg(LOG_NOTICE, "LineCom Restart");
  if (!IsProgramActive()) {
    (void)StartProgram();
    return;
  }
  if (supportsExitMsg && mayUseExitMsg) {
    std::string strIgnored;
    (void)InternalSendMsg("exit\n", strIgnored);  // most often fails: the child ends without a reply
    if (WaitForExit(readTimeout)) {
      (void)StartProgram();
      return;
    }
  }
  (void)kill(childPid, SIGTERM);
  if (WaitForExit(readTimeout)) (void)StartProgram();
}

bool LineCom::InvalidState() const {
  return writeToChild == nullptr;
}

// -- messages ---------------------------------------------------------------------------------------------------------

bool LineCom::InternalSendMsg(const std::string& msg, std::string& reply) {
  if (!EnsureProgramStarted()) {
    lg(LOG_WARNING, "LineCom. Ensure program is started failed");
    return false;
  }
  if (InvalidState()) {
    lg(LOG_WARNING, "LineCom. Invalid state");
    return false;
  }
  if (fwrite(msg.data(), 1, msg.size(), writeToChild) != msg.size()) {
    lg(LOG_WARNING, "LineCom. Write failure");
    return false;
  }
  (void)fflush(writeToChild);  // a child that is gone shows at the read
  return ReadReply(msg, reply);
}

bool LineCom::ReadReply(const std::string& msg, std::string& reply) {
  const time_t rStart = Now();
  if (shuttingDown) return false;
  ReplyBuffer rReply;
  EReply eReply = REPLY_MORE;
  while (eReply == REPLY_MORE) {
    eReply = ReadStep(rReply, pipesfd[0], pipesfd[2], msg);
    if (eReply != REPLY_MORE) break;
    if (HasPassed(rStart, readTimeout) || shuttingDown) return false;
    if (rReply.IsFull()) {
      lg(LOG_WARNING, "LineCom. Buffer overflow");
      return false;
    }
  }
  if (eReply == REPLY_FAILED) return false;
  reply = rReply.Text();
  if (reply != "ERROR\n") return true;
  lg(LOG_ERR, "LineCom program reports ERROR");
  return false;
}

bool LineCom::SendMsg(const std::string& msg, std::string& reply) {
  if (shuttingDown) {
    lg(LOG_WARNING, "LineCom shutting down, not sending msg");
    return false;
  }
  // Interpreters with leaks are replaced before they can do harm.
  if (restartInterval != 0 && HasPassed(lastStarted, restartInterval) && IsProgramActive()) RestartProgram(true);
  if (TryUntilErrorTimeout(msg, reply)) return true;
  lg(LOG_WARNING, shuttingDown ? "LineCom shutting down, not sending msg" : "LineCom. Error time-out reached");
  return false;
}

bool LineCom::TryUntilErrorTimeout(const std::string& msg, std::string& reply) {
  const time_t rStart = Now();
  for (int iTry = 1;; iTry++) {
    if (iTry > 1) {
      lg(LOG_NOTICE, "LineCom try: %d el: %d / %d", iTry, static_cast<int>(Now() - rStart), errorTimeout.load());
      if (HasPassed(rStart, errorTimeout)) return false;
    }
    if (InternalSendMsg(msg, reply)) return true;
    if (HasPassed(rStart, errorTimeout) || shuttingDown) return false;
    RestartProgram(false);
    for (int i = 0; i < errorRecheckInterval * iTry * PERIODS_PER_TRY && !shuttingDown; i++) (void)usleep(POLL_US);
    if (shuttingDown) return false;
  }
}

// -- the end ----------------------------------------------------------------------------------------------------------

void LineCom::SignalStop() {
  shuttingDown = true;
}

void LineCom::Stop() {
  if (IsProgramActive())
    (void)kill(childPid, SIGTERM);  // and no wait: the end of the process does not hang on a script
}
