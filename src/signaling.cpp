// One connection a message: connect, write, read the reply, close. One thread sends them in order and repeats none, as
// a service that hangs costs up to five seconds a message, and those behind it wait.
#include "signaling.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cassert>
#include <cstddef>
#include <cstring>
#include <utility>

#include "logging.h"

SignalObj* prSignalObj = nullptr;

namespace {

constexpr char SERVICE_SOCKET[] = "/tmp/morvex";
// The path without its NUL: 2 bytes of family and 11 of path.
constexpr socklen_t SERVICE_ADDRESS_BYTES = offsetof(sockaddr_un, sun_path) + sizeof SERVICE_SOCKET - 1;
static_assert(SERVICE_ADDRESS_BYTES == 13);
constexpr time_t SERVICE_TIMEOUT_S = 5;
constexpr size_t REPLY_BYTES = 200;

// A connection that closes itself; below 0 when none could be made.
class ServiceSocket {
 public:
  ServiceSocket() : hSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  ~ServiceSocket() {
    if (hSocket >= 0) close(hSocket);
  }
  ServiceSocket(const ServiceSocket&) = delete;
  ServiceSocket& operator=(const ServiceSocket&) = delete;

  bool IsOpen() const { return hSocket >= 0; }
  bool Connect() const {
    const timeval rTimeout = {SERVICE_TIMEOUT_S, 0};
    // Neither can fail for a fresh socket. The first bounds the wait for the reply. The second bounds connect, which
    // otherwise waits without end for a service that hangs with a full backlog, and would hold up close_signaling.
    (void)setsockopt(hSocket, SOL_SOCKET, SO_RCVTIMEO, &rTimeout, sizeof rTimeout);
    (void)setsockopt(hSocket, SOL_SOCKET, SO_SNDTIMEO, &rTimeout, sizeof rTimeout);
    sockaddr_un rAddress = {};
    rAddress.sun_family = AF_UNIX;
    memcpy(rAddress.sun_path, SERVICE_SOCKET, sizeof SERVICE_SOCKET);
    return connect(hSocket, reinterpret_cast<const sockaddr*>(&rAddress), SERVICE_ADDRESS_BYTES) == 0;
  }
  // A failed write shows at the reply. The cast alone does not silence the compiler here, hence the "!".
  void Send(const std::string& strText) const { (void)!write(hSocket, strText.data(), strText.size()); }
  // The reply up to its first NUL, without a closing CR LF. False on an error and when the time is over.
  bool ReadReply(std::string& strReply) const {
    char acReply[REPLY_BYTES + 1];
    const ssize_t iLength = read(hSocket, acReply, REPLY_BYTES);
    if (iLength < 0) return false;
    acReply[iLength] = '\0';
    strReply = acReply;
    const size_t iSize = strReply.size();
    if (iSize >= 2 && strReply.compare(iSize - 2, 2, "\r\n") == 0) strReply.erase(iSize - 2);
    return true;
  }

 private:
  int hSocket;
};

}  // namespace

void SignalObj::init() {
  const MutexLock rLock(rMutex);
  (void)start();
}

bool SignalObj::start() {
  if (!fStarted) fStarted = pthread_create(&rThread, nullptr, &SignalObj::run_it, this) == 0;
  return fStarted;
}

bool SignalObj::append(const std::string& strSignal) {
  const MutexLock rLock(rMutex);
  if (!start()) return false;
  rList.push_back(strSignal);
  rChanged.NotifyOne();
  return true;
}

// The message under way is waited for, so closing takes as long as its time-out may.
void SignalObj::close() {
  {
    const MutexLock rLock(rMutex);
    fPleaseStop = true;
    rChanged.NotifyOne();
    if (!fStarted) return;
  }
  (void)pthread_join(rThread, nullptr);
}

void SignalObj::schedule(const std::string& strSignal) {
  if (!append(strSignal)) lg(LOG_ERR, "Error creating thread");
}

void SignalObj::signal(const std::string& strSignal) {
  lg(LOG_DEBUG, "Signal: %s", strSignal.c_str());
  const ServiceSocket rSocket;
  if (!rSocket.IsOpen()) {
    lg(LOG_ERR, "Error creating socket");
    return;
  }
  if (!rSocket.Connect()) {
    lg(LOG_ERR, "Error connecting to socket");
    return;
  }
  rSocket.Send(strSignal);
  std::string strReply;
  if (!rSocket.ReadReply(strReply)) {
    lg(LOG_ERR, "Error reading reply from socket");
  } else if (strReply != "OK") {
    lg(LOG_ERR, "Error socket reply: %s", strReply.c_str());
  }
}

void SignalObj::run() {
  std::string strSignal;
  while (waitForFirst(strSignal)) {
    if (!strSignal.empty()) signal(strSignal);  // an empty one is dropped
  }
}

bool SignalObj::waitForFirst(std::string& strSignal) {
  MutexLock rLock(rMutex);
  while (rList.empty() && !fPleaseStop) rChanged.Wait(rLock);
  if (fPleaseStop) return false;
  strSignal = std::move(rList.front());
  rList.pop_front();
  return true;
}

void* SignalObj::run_it(void* pThis) {
  (void)pthread_setname_np(pthread_self(), "signals");
  static_cast<SignalObj*>(pThis)->run();
  return nullptr;
}

void init_signaling() {
  assert(prSignalObj == nullptr);
  prSignalObj = new SignalObj;
  prSignalObj->init();
}

void close_signaling() {
  if (prSignalObj == nullptr) return;
  prSignalObj->close();
  delete prSignalObj;
  prSignalObj = nullptr;
}

void signal_service(const std::string& strMsg) {
  lg(LOG_NOTICE, "signal => %s", strMsg.c_str());
  if (prSignalObj != nullptr) prSignalObj->schedule(strMsg);
}
