#include "reactor.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <list>
#include <string>

#include "bgact.h"
#include "fstring.h"
#include "logging.h"
#include "recorder.h"

// The control socket. ServerPipe carries texts; the actions carry a command to the main thread; the command table joins
// the two; CrecReactor is the thread that goes round and round.
//
// The wait for the main thread is short and cancels nothing: a client that is told "time-out" may find its command done
// a moment later, and a late completion releases the next command's wait too early, which then replies from the late
// result. Commands are rare and the main loop is quick, so that is accepted.

CrecReactor* g_prReactor = nullptr;

namespace {

constexpr std::size_t MAX_COMMAND_BYTES = 100;
constexpr mode_t SOCKET_MODE = 0766;
constexpr int SOCKET_BACKLOG = 5;
constexpr int MAX_WAIT_ON_MAIN_MS = 300;
constexpr int WAIT_STEP_MS = 50;
// A client sends its command with the connection. One that stays silent must not close the socket to all others.
constexpr int CLIENT_PATIENCE_MS = 5000;
constexpr int CLIENT_STEP_MS = 100;
constexpr long CLOSE_STEP_NS = 50'000'000;

// -- socket -------------------------------------------------------------------------------------------------------

void LogSocketError(const char* acWhere) {
  lg(LOG_ERR, "Socket communication error: %s: %s", acWhere, strerror(errno));
}

// One listening socket, and one connection at a time on it.
class ServerPipe {
 public:
  explicit ServerPipe(const std::atomic<bool>& fClosingToWatch) : fClosing(fClosingToWatch) {}
  ~ServerPipe() {
    CloseFd(hSocketIO);
    CloseFd(hSocket);  // the file stays; the next start removes it
  }
  ServerPipe(const ServerPipe&) = delete;
  ServerPipe& operator=(const ServerPipe&) = delete;

  bool init(const char* acSocketPath);
  // Ends the last connection, waits for the next one and for its command. False: the socket is of no use any more.
  bool waitForMsg();
  void sendReply(const char* acMsg);

  std::string strReceived;

 private:
  static void CloseFd(int& hFd) {
    if (hFd != 0) (void)close(hFd);
    hFd = 0;
  }
  bool HasClientSent() const;

  const std::atomic<bool>& fClosing;
  int hSocket = 0;    // 0: closed
  int hSocketIO = 0;  // the connection; 0: closed
  sockaddr_un local{};
  sockaddr_un remote{};
  char acRecvBuf[MAX_COMMAND_BYTES + 1] = "";
};

bool ServerPipe::init(const char* acSocketPath) {
  hSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (hSocket < 0) {
    hSocket = 0;
    LogSocketError("socket");
    return false;
  }
  local.sun_family = AF_UNIX;
  (void)snprintf(local.sun_path, sizeof local.sun_path, "%s", acSocketPath);
  (void)unlink(local.sun_path);  // of the process before this one
  const auto iLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(local.sun_path));
  if (bind(hSocket, reinterpret_cast<const sockaddr*>(&local), iLength) != 0) {
    LogSocketError("bind");
    return false;
  }
  if (chmod(local.sun_path, SOCKET_MODE) != 0) LogSocketError("chmod");
  if (listen(hSocket, SOCKET_BACKLOG) != 0) {
    LogSocketError("listen");
    return false;
  }
  return true;
}

bool ServerPipe::waitForMsg() {
  CloseFd(hSocketIO);
  pollfd rListening = {hSocket, POLLIN, 0};
  if (poll(&rListening, 1, -1) < 0) {  // also the way out: close_reactor sends a signal
    LogSocketError("select");
    return false;
  }
  socklen_t iLength = sizeof remote;
  hSocketIO = accept4(hSocket, reinterpret_cast<sockaddr*>(&remote), &iLength, SOCK_CLOEXEC);
  if (hSocketIO < 0) {
    hSocketIO = 0;
    LogSocketError("accept");
    return false;
  }
  ssize_t iGot = 0;
  if (HasClientSent()) iGot = recv(hSocketIO, acRecvBuf, MAX_COMMAND_BYTES, MSG_DONTWAIT);
  acRecvBuf[iGot > 0 ? iGot : 0] = 0;  // closed, broken or silent: an empty message
  strReceived = acRecvBuf;             // up to the first NUL
  return true;
}

// In short steps, as a blocking receive would not see that the reactor is to close: it is restarted after a signal.
bool ServerPipe::HasClientSent() const {
  for (int iWaitedMs = 0; iWaitedMs < CLIENT_PATIENCE_MS && !fClosing; iWaitedMs += CLIENT_STEP_MS) {
    pollfd rClient = {hSocketIO, POLLIN, 0};
    if (poll(&rClient, 1, CLIENT_STEP_MS) > 0) return true;
  }
  return false;
}

void ServerPipe::sendReply(const char* acMsg) {
  lg(LOG_NOTICE, "reactor reply: %s", acMsg);
  const std::string strLine = std::string(acMsg) + "\n";
  (void)send(hSocketIO, strLine.data(), strLine.size(), MSG_NOSIGNAL);  // a client that is gone has its own reasons
}

// -- actions ------------------------------------------------------------------------------------------------------

// Straight to the main thread: no action here has work for a worker.
class ReactorAct : public ThreadAct {
 public:
  explicit ReactorAct(CRecorder* prRecorderToUse) : prRecorder(prRecorderToUse) {}
  void performThread() override {}

 protected:
  CRecorder* prRecorder;
};

// An action that the reactor waits for.
class AwaitedAct : public ReactorAct {
 public:
  using ReactorAct::ReactorAct;
  void completed() override {
    if (g_prReactor != nullptr) g_prReactor->fWaitingOnMain = false;
  }
};

// One whose result decides the reply.
class ResultAct : public AwaitedAct {
 public:
  using AwaitedAct::AwaitedAct;
  void completed() override {
    if (g_prReactor != nullptr) g_prReactor->iActResult = iResult;  // before the wait ends
    AwaitedAct::completed();
  }

 protected:
  int iResult = ACT_DONE;
};

class ReconfigAct : public ReactorAct {
 public:
  using ReactorAct::ReactorAct;
  void performMain() override { prRecorder->Reconfigure(); }
};

class TraceAct : public ReactorAct {
 public:
  TraceAct(CRecorder* prRecorderToUse, bool fToStart, int iDrvCh)
      : ReactorAct(prRecorderToUse), fStart(fToStart), iChNr(iDrvCh) {}
  void performMain() override {
    if (fStart) prRecorder->iBitStreamChNr = iChNr;
    prRecorder->fBitStreamTracing = fStart;
  }

 private:
  bool fStart;
  int iChNr;
};

class ChStateAct : public AwaitedAct {
 public:
  ChStateAct(CRecorder* prRecorderToUse, int iLine) : AwaitedAct(prRecorderToUse), iChNr(iLine) {}
  void performMain() override { (void)prRecorder->ChState(iChNr); }  // the client looks at the file

 private:
  int iChNr;
};

class ChLocalAct : public AwaitedAct {
 public:
  using AwaitedAct::AwaitedAct;
  void performMain() override { (void)prRecorder->ChLocal(strLocalPhoneNum, strRemotePhoneNum, stopstart); }

  std::string strLocalPhoneNum;
  std::string strRemotePhoneNum;
  bool stopstart = false;
};

class SilencingAct : public ResultAct {
 public:
  SilencingAct(CRecorder* prRecorderToUse, const std::string& strId, bool fSoundOn)
      : ResultAct(prRecorderToUse), strCallId(strId), fSound(fSoundOn) {}
  void performMain() override { iResult = prRecorder->SilencingAct(strCallId, fSound); }

 private:
  std::string strCallId;
  bool fSound;
};

class RecOnDmdAct : public ResultAct {
 public:
  RecOnDmdAct(CRecorder* prRecorderToUse, const std::string& strId, bool fToStart)
      : ResultAct(prRecorderToUse), strCallId(strId), fStart(fToStart) {}
  void performMain() override { iResult = prRecorder->RecOnDmdAct(strCallId, fStart); }

 private:
  std::string strCallId;
  bool fStart;
};

class DelOnDmdAct : public ResultAct {
 public:
  DelOnDmdAct(CRecorder* prRecorderToUse, const std::string& strId) : ResultAct(prRecorderToUse), strCallId(strId) {}
  void performMain() override { iResult = prRecorder->DelOnDmdAct(strCallId); }

 private:
  std::string strCallId;
};

// -- commands -----------------------------------------------------------------------------------------------------

int ToInt(const std::string& strText) {
  return static_cast<int>(strtol(strText.c_str(), nullptr, 10));
}

template <bool fSound>
ThreadAct* MakeSilencing(CRecorder* prRecorder, const std::string& strParam) {
  return new SilencingAct(prRecorder, strParam, fSound);
}

template <bool fStart>
ThreadAct* MakeRecOnDmd(CRecorder* prRecorder, const std::string& strParam) {
  return new RecOnDmdAct(prRecorder, strParam, fStart);
}

ThreadAct* MakeDelOnDmd(CRecorder* prRecorder, const std::string& strParam) {
  return new DelOnDmdAct(prRecorder, strParam);
}

ThreadAct* MakeReconfig(CRecorder* prRecorder, const std::string& /*strParam*/) {
  return new ReconfigAct(prRecorder);
}

// The flag changes only when the main thread runs the action, so two quick starts can both get through.
ThreadAct* MakeTraceStop(CRecorder* prRecorder, const std::string& /*strParam*/) {
  return prRecorder->fBitStreamTracing ? new TraceAct(prRecorder, /*fToStart=*/false, -1) : nullptr;
}

ThreadAct* MakeTraceStart(CRecorder* prRecorder, const std::string& strParam) {
  return prRecorder->fBitStreamTracing ? nullptr : new TraceAct(prRecorder, /*fToStart=*/true, ToInt(strParam));
}

ThreadAct* MakeChState(CRecorder* prRecorder, const std::string& strParam) {
  return new ChStateAct(prRecorder, ToInt(strParam));
}

// "<local number>|<remote number>|<0: change only the row; else: a new recording part>".
ThreadAct* MakeChLocal(CRecorder* prRecorder, const std::string& strParam) {
  auto* prAct = new ChLocalAct(prRecorder);
  const std::list<std::string> astrElements = getElements(strParam);
  auto itElement = astrElements.begin();
  if (itElement != astrElements.end()) prAct->strLocalPhoneNum = *itElement++;
  if (itElement != astrElements.end()) prAct->strRemotePhoneNum = *itElement++;
  if (itElement != astrElements.end()) prAct->stopstart = *itElement != "0";
  return prAct;
}

enum EReplyFrom {
  REPLY_AT_ONCE,    // "OK" when the action is queued
  REPLY_WHEN_DONE,  // "OK" when it has completed
  REPLY_BY_RESULT,  // by CrecReactor::iActResult when it has completed
};

struct CommandRow {
  const char* acWord;
  ThreadAct* (*Make)(CRecorder* prRecorder, const std::string& strParam);  // null: refused before it is queued
  EReplyFrom eReplyFrom;
  const char* acRefused;  // the reply to a refusal; null: none is sent
};

// "change_local" has no refusal of its own, and its action leaves iActResult alone: the reply tells of the silencing,
// recording or delete command before it, and after a refused one there is none. Clients live with that; see
// ChangeLocalRepliesByTheCommandBefore.
constexpr CommandRow COMMANDS[] = {
    {"sound", MakeSilencing<true>, REPLY_BY_RESULT, "E3: option silence-on-demand is off"},
    {"silence", MakeSilencing<false>, REPLY_BY_RESULT, "E3: option silence-on-demand is off"},
    {"start", MakeRecOnDmd<true>, REPLY_BY_RESULT, "E3: option RecOnDmd is off"},
    {"stop", MakeRecOnDmd<false>, REPLY_BY_RESULT, "E3: option RecOnDmd is off"},
    {"delete", MakeDelOnDmd, REPLY_BY_RESULT, "E3: option DelOnDmd is off"},
    {"reconfig", MakeReconfig, REPLY_AT_ONCE, nullptr},
    {"bittrace_stop", MakeTraceStop, REPLY_AT_ONCE, "ERR: already stopped"},
    {"bittrace_start", MakeTraceStart, REPLY_AT_ONCE, "ERR: already started"},
    {"chst", MakeChState, REPLY_WHEN_DONE, nullptr},
    {"change_local", MakeChLocal, REPLY_BY_RESULT, nullptr},
};
constexpr const char* REPLY_OK = "OK";
constexpr const char* REPLY_UNKNOWN_CALL = "E2: unknown call";
constexpr const char* REPLY_TIME_OUT = "E4: time-out";
constexpr const char* REPLY_UNKNOWN_COMMAND = "E0: Unknown commmand";  // clients compare this spelling

const char* ReplyOfResult(const CommandRow& rRow, int iActResult) {
  switch (iActResult) {
    case ACT_DONE:
      return REPLY_OK;
    case ACT_UNKNOWN_CALL:
      return REPLY_UNKNOWN_CALL;
    case ACT_REFUSED:
      return rRow.acRefused;
    default:  // no service has any other
      return nullptr;
  }
}

// The reply, null for none.
const char* RunCommand(CrecReactor& rReactor, const CommandRow& rRow, const std::string& strParam) {
  if (rRow.eReplyFrom != REPLY_AT_ONCE) rReactor.fWaitingOnMain = true;  // before the action can complete
  ThreadAct* prAct = rRow.Make(rReactor.prRecorder, strParam);
  if (prAct == nullptr) return rRow.acRefused;
  mainQueue(prAct);
  if (rRow.eReplyFrom == REPLY_AT_ONCE) return REPLY_OK;
  if (!rReactor.DoWaitOnMain(MAX_WAIT_ON_MAIN_MS)) return REPLY_TIME_OUT;
  return rRow.eReplyFrom == REPLY_WHEN_DONE ? REPLY_OK : ReplyOfResult(rRow, rReactor.iActResult);
}

const char* ReplyTo(CrecReactor& rReactor, const std::string& strMsg) {
  const std::size_t iBlank = strMsg.find(' ');
  const std::string strCommand = strMsg.substr(0, iBlank);
  const std::string strParam = iBlank == std::string::npos ? "" : strMsg.substr(iBlank + 1);
  lg(LOG_NOTICE, "Command: '%s' Param: '%s'", strCommand.c_str(), strParam.c_str());
  for (const CommandRow& rRow : COMMANDS) {
    if (strCommand == rRow.acWord) return RunCommand(rReactor, rRow, strParam);
  }
  return REPLY_UNKNOWN_COMMAND;
}

}  // namespace

// -- the thread ---------------------------------------------------------------------------------------------------

bool CrecReactor::DoWaitOnMain(int iMaxWaitMs) {
  if (!fWaitingOnMain) return true;
  for (int iWaitMs = WAIT_STEP_MS;; iWaitMs += WAIT_STEP_MS) {
    (void)usleep(WAIT_STEP_MS * 1000);
    if (!fWaitingOnMain) return true;
    if (iWaitMs > iMaxWaitMs) return false;
  }
}

void CrecReactor::run() {
  lg(LOG_NOTICE, "reactor started");
  ServerPipe rPipe(fClosing);
  const bool fListening = rPipe.init(CREC_SOCKET_PATH);
  if (!fListening) lg(LOG_ERR, "Socket communication error: Failure, could not start listening.");
  while (fListening && !fClosing && rPipe.waitForMsg()) {
    lg(LOG_NOTICE, "Msg received: %s", rPipe.strReceived.c_str());
    if (const char* acReply = ReplyTo(*this, rPipe.strReceived)) rPipe.sendReply(acReply);
  }
  lg(LOG_NOTICE, "reactor exit");
}

void* CrecReactor::run_it(void* pThis) {
  static_cast<CrecReactor*>(pThis)->run();
  return nullptr;
}

void init_reactor(CRecorder* prRecorder) {
  g_prReactor = new CrecReactor(prRecorder);
  if (pthread_create(&g_prReactor->rThread, nullptr, CrecReactor::run_it, g_prReactor) != 0) g_prReactor->rThread = 0;
}

void close_reactor() {
  if (g_prReactor == nullptr) return;
  g_prReactor->fClosing = true;
  // The signal breaks the wait for a client. It may come just before that wait begins and be lost, so it is repeated
  // until the thread has gone.
  for (bool fGone = g_prReactor->rThread == 0; !fGone;) {
    // The process survives it, since its handler only sets a flag. NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
    (void)pthread_kill(g_prReactor->rThread, SIGTERM);
    timespec rUntil{};
    (void)clock_gettime(CLOCK_REALTIME, &rUntil);
    rUntil.tv_nsec += CLOSE_STEP_NS;
    rUntil.tv_sec += rUntil.tv_nsec / 1'000'000'000;
    rUntil.tv_nsec %= 1'000'000'000;
    fGone = pthread_timedjoin_np(g_prReactor->rThread, nullptr, &rUntil) != ETIMEDOUT;
  }
  delete g_prReactor;
  g_prReactor = nullptr;
}
