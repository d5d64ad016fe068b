#include "ctl_socket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plaintext.h"

namespace {

constexpr int REPLY_TIME_OUT_S = 5;  // the daemon answers within half a second, or is busy with other clients

// Closes the socket at the end of the scope.
struct Socket {
  explicit Socket(int iType) : hSocket(socket(AF_UNIX, iType | SOCK_CLOEXEC, 0)) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (hSocket >= 0) close(hSocket);
  }
  const int hSocket;
};

bool ConnectTo(int hSocket, const std::string& strPath) {
  sockaddr_un rAddress{};
  rAddress.sun_family = AF_UNIX;
  if (strPath.size() >= sizeof rAddress.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  memcpy(rAddress.sun_path, strPath.c_str(), strPath.size() + 1);
  return connect(hSocket, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 0;
}

// Reads up to the first line feed, or to the end; without the line feed.
std::string ReadLine(int hSocket) {
  std::string strLine;
  char acBuf[256];
  while (strLine.find('\n') == std::string::npos) {
    const ssize_t iRead = recv(hSocket, acBuf, sizeof acBuf, 0);
    if (iRead <= 0) break;
    strLine.append(acBuf, static_cast<std::size_t>(iRead));
  }
  return strLine.substr(0, strLine.find('\n'));
}

}  // namespace

ECtlExit ClassifyReply(const std::string& strLine) {
  const auto Begins = [&](const char* acStart) { return strLine.rfind(acStart, 0) == 0; };
  if (strLine == "OK") return CTL_OK;
  if (strLine.empty()) return CTL_NO_REPLY;
  if (Begins("E0:")) return CTL_UNKNOWN_ORDER;
  if (Begins("E2:")) return CTL_UNKNOWN_CALL;
  if (Begins("E3:")) return CTL_REFUSED;
  if (Begins("E4:")) return CTL_TIME_OUT;
  if (Begins("ERR:")) return CTL_ALREADY;
  return CTL_OTHER_REPLY;
}

bool IsServed(const std::string& strSocketPath) {
  const Socket rSocket(SOCK_DGRAM);
  return rSocket.hSocket >= 0 && !ConnectTo(rSocket.hSocket, strSocketPath) && errno == EPROTOTYPE;
}

CtlReply SendOrder(const std::string& strOrder, const std::string& strSocketPath) {
  const Socket rSocket(SOCK_STREAM);
  const timeval rTimeOut{REPLY_TIME_OUT_S, 0};
  for (const int iOption : {SO_RCVTIMEO, SO_SNDTIMEO}) {  // the second also limits the wait in a full queue of clients
    (void)setsockopt(rSocket.hSocket, SOL_SOCKET, iOption, &rTimeOut, sizeof rTimeOut);  // without it: waits longer
  }
  if (rSocket.hSocket < 0 || !ConnectTo(rSocket.hSocket, strSocketPath)) {
    if (errno == EAGAIN) return {CTL_NO_REPLY, "The recorder gave no reply: it is busy with other clients."};
    return {CTL_NOT_RUNNING, "The recorder is not running: nobody answers at " + strSocketPath + "."};
  }
  if (send(rSocket.hSocket, strOrder.data(), strOrder.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(strOrder.size())) {
    return {CTL_NOT_RUNNING, std::string("The recorder did not take the order: ") + strerror(errno) + "."};
  }
  std::string strLine = ReadLine(rSocket.hSocket);
  if (strLine.empty()) return {CTL_NO_REPLY, "The recorder gave no reply."};
  const ECtlExit eExit = ClassifyReply(strLine);
  MaskControls(strLine.data(), strLine.size());
  return {eExit, strLine};
}
