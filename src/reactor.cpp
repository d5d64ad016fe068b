// The control socket: ServerPipe carries the texts, CrecReactor is the thread that goes round and round. What the
// orders do stands in reactor_orders.cpp.
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
#include <cstring>
#include <string>

#include "logging.h"
#include "recorder.h"

CrecReactor* g_prReactor = nullptr;

namespace {

constexpr std::size_t MAX_ORDER_BYTES = 100;
constexpr mode_t SOCKET_MODE = 0766;
constexpr int SOCKET_BACKLOG = 5;
// A client sends its order with the connection. One that stays silent must not close the socket to all others.
constexpr int CLIENT_PATIENCE_MS = 5000;
constexpr int CLIENT_STEP_MS = 100;
// While the main loop drains for a stop or a trace, each order holds that up by a pass. So that a client in a loop does
// not do so for ever, the loop has time between two orders to find its queue empty: two passes, and what an order
// takes.
constexpr int PAUSE_WHILE_DRAINING_MS = 1000;
constexpr int PAUSE_STEP_MS = 50;
constexpr useconds_t CLOSE_STEP_US = 10'000;

// -- socket -----------------------------------------------------------------------------------------------------------

void LogSocketError(const char* acWhere) {
  lg(LOG_ERR, "Socket communication error: %s: %s", acWhere, strerror(errno));
}

// One listening socket, and one connection at a time on it.
class ServerPipe {
 public:
  ServerPipe(const std::atomic<bool>& fClosingToWatch, const std::atomic<bool>& fDrainingToWatch)
      : fClosing(fClosingToWatch), fDraining(fDrainingToWatch) {}
  ~ServerPipe() {
    CloseFd(hSocketIO);
    CloseFd(hSocket);  // the file stays; the next start removes it
  }
  ServerPipe(const ServerPipe&) = delete;
  ServerPipe& operator=(const ServerPipe&) = delete;

  bool init(const char* acSocketPath);
  // Ends the last connection, waits for the next one and for its order. False: the socket is of no use any more.
  bool waitForMsg();
  void sendReply(const char* acMsg);

  std::string strReceived;

 private:
  static void CloseFd(int& hFd) {
    if (hFd != 0) (void)close(hFd);
    hFd = 0;
  }
  bool HasClientSent() const;
  void PauseWhileDraining() const;

  const std::atomic<bool>& fClosing;
  const std::atomic<bool>& fDraining;
  int hSocket = 0;    // 0: closed
  int hSocketIO = 0;  // the connection; 0: closed
  sockaddr_un local{};
  sockaddr_un remote{};
  char acRecvBuf[MAX_ORDER_BYTES + 1] = "";
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
  PauseWhileDraining();
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
  if (HasClientSent()) iGot = recv(hSocketIO, acRecvBuf, MAX_ORDER_BYTES, MSG_DONTWAIT);
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

void ServerPipe::PauseWhileDraining() const {
  for (int iPausedMs = 0; iPausedMs < PAUSE_WHILE_DRAINING_MS && fDraining && !fClosing; iPausedMs += PAUSE_STEP_MS) {
    (void)usleep(PAUSE_STEP_MS * 1000);
  }
}

void ServerPipe::sendReply(const char* acMsg) {
  lgOften("reactor reply: %s", acMsg);
  const std::string strLine = std::string(acMsg) + "\n";
  (void)send(hSocketIO, strLine.data(), strLine.size(), MSG_NOSIGNAL);  // a client that is gone has its own reasons
}

}  // namespace

// -- the thread -------------------------------------------------------------------------------------------------------

void CrecReactor::run() {
  lg(LOG_NOTICE, "reactor started");
  ServerPipe rPipe(fClosing, prRecorder->fDraining);
  const bool fListening = rPipe.init(CREC_SOCKET_PATH);
  if (!fListening) lg(LOG_ERR, "Socket communication error: Failure, could not start listening.");
  while (fListening && !fClosing && rPipe.waitForMsg()) {
    lgOften("Msg received: %s", rPipe.strReceived.c_str());
    if (const char* acReply = ReplyTo(rPipe.strReceived)) rPipe.sendReply(acReply);
  }
  lg(LOG_NOTICE, "reactor exit");
}

void* CrecReactor::run_it(void* pThis) {
  (void)pthread_setname_np(pthread_self(), "reactor");
  auto* prReactor = static_cast<CrecReactor*>(pThis);
  prReactor->run();
  prReactor->fEnded = true;
  return nullptr;
}

void init_reactor(CRecorder* prRecorder) {
  g_prReactor = new CrecReactor(prRecorder);
  errno = pthread_create(&g_prReactor->rThread, nullptr, CrecReactor::run_it, g_prReactor);
  if (errno == 0) return;
  g_prReactor->rThread = 0;
  LogSocketError("thread");
}

void close_reactor() {
  if (g_prReactor == nullptr) return;
  g_prReactor->fClosing = true;
  // The signal breaks the wait for a client. It may come just before that wait begins and be lost, so it is repeated
  // until the thread has gone. By steps, not by a join with a limit: that goes by a clock that people set.
  if (g_prReactor->rThread != 0) {
    while (!g_prReactor->fEnded) {
      // The process survives it, since its handler only sets a flag. NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
      (void)pthread_kill(g_prReactor->rThread, SIGTERM);
      (void)usleep(CLOSE_STEP_US);
    }
    (void)pthread_join(g_prReactor->rThread, nullptr);
  }
  delete g_prReactor;
  g_prReactor = nullptr;
}
