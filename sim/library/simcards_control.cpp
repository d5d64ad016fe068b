// The server's thread accepts, each client has a thread of its own, so that one that waits holds up nobody else. A
// client that has hung up is swept away when the next one comes, or at the end.

#include "simcards_control.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "simcards_perform.h"
#include "simcards_state.h"
#include "simcards_thread.h"

namespace simcards {
namespace {

constexpr int BACKLOG = 16;
constexpr std::size_t LONGEST_LINE = 65536;
constexpr std::size_t READ_BYTES = 4096;

bool AddressOf(const std::string& strPath, sockaddr_un& rAddress) {
  rAddress = sockaddr_un();
  rAddress.sun_family = AF_UNIX;
  if (strPath.empty() || strPath.size() >= sizeof rAddress.sun_path) return false;
  strPath.copy(rAddress.sun_path, strPath.size());
  return true;
}

int OpenSocket() {
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool IsServed(const sockaddr_un& rAddress) {
  const int iFd = OpenSocket();
  if (iFd < 0) return false;
  const bool fServed = connect(iFd, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 0;
  close(iFd);
  return fServed;
}

bool SendAll(int iFd, const std::string& strText) {
  for (std::size_t iSent = 0; iSent < strText.size();) {
    const ssize_t iNow = send(iFd, strText.data() + iSent, strText.size() - iSent, MSG_NOSIGNAL);
    if (iNow < 0 && errno == EINTR) continue;
    if (iNow <= 0) return false;
    iSent += static_cast<std::size_t>(iNow);
  }
  return true;
}

// One connection, served on a thread of its own to its end.
class Client {
 public:
  Client(int iClientFd, const std::atomic<bool>& rStop) : iFd(iClientFd) {
    rSession.fnGone = [&rStop] { return rStop.load(); };
  }
  ~Client() { close(iFd); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Start() {
    rThread = StartThread([this] {
      Serve();
      fEnded = true;
    });
  }
  bool Ended() const { return fEnded; }
  void HangUp() { shutdown(iFd, SHUT_RDWR); }
  void Join() { rThread.join(); }

 private:
  void Serve() {
    std::string strReceived;
    char acPiece[READ_BYTES];
    while (true) {
      const ssize_t iRead = recv(iFd, acPiece, sizeof acPiece, 0);
      if (iRead < 0 && errno == EINTR) continue;
      if (iRead <= 0) break;
      strReceived.append(acPiece, static_cast<std::size_t>(iRead));
      for (std::size_t iEnd; (iEnd = strReceived.find('\n')) != std::string::npos;) {
        if (!SendAll(iFd, Answer(strReceived.substr(0, iEnd)))) return;
        strReceived.erase(0, iEnd + 1);
      }
      if (strReceived.size() > LONGEST_LINE) break;
    }
    HangUp();
  }

  std::string Answer(const std::string& strLine) {
    Action rAction;
    std::vector<std::string> vLines;
    std::string strError = ParseAction(strLine, rAction);
    if (strError.empty()) strError = Perform(rAction, rSession, vLines);
    if (!strError.empty()) return "ERROR " + strError + "\n";
    std::string strAnswer;
    for (const std::string& strData : vLines) strAnswer += "= " + strData + "\n";
    return strAnswer + "OK\n";
  }

  const int iFd;
  Session rSession;  // only its own thread
  std::atomic<bool> fEnded{false};
  std::thread rThread;
};

class Server {
 public:
  bool Start(const std::string& strSocket, std::string& strError) {
    const std::lock_guard<std::mutex> rGuard(rMutex);
    sockaddr_un rAddress{};
    if (!AddressOf(strSocket, rAddress)) return Fail("not a path for a socket", strSocket, strError);
    if (IsServed(rAddress)) return Fail("another program serves it", strSocket, strError);
    (void)unlink(strSocket.c_str());
    iListenFd = OpenSocket();
    if (iListenFd < 0 || bind(iListenFd, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) != 0 ||
        listen(iListenFd, BACKLOG) != 0) {
      const std::string strWhy = std::strerror(errno);
      if (iListenFd >= 0) close(iListenFd);
      iListenFd = -1;
      return Fail(strWhy, strSocket, strError);
    }
    strPath = strSocket;
    fStop = false;
    rThread = StartThread([this] { Accept(); });
    return true;
  }

  void Stop() {
    const std::lock_guard<std::mutex> rGuard(rMutex);
    if (iListenFd < 0) return;
    {
      State& rState = TheState();
      const std::lock_guard<std::mutex> rStateGuard(rState.rMutex);  // a wait must not miss the news
      fStop = true;
      rState.Changed();
    }
    (void)unlink(strPath.c_str());
    shutdown(iListenFd, SHUT_RDWR);  // wakes accept
    rThread.join();
    close(iListenFd);
    iListenFd = -1;
    for (const std::unique_ptr<Client>& prClient : rClients) prClient->HangUp();
    for (const std::unique_ptr<Client>& prClient : rClients) prClient->Join();
    rClients.clear();
  }

 private:
  static bool Fail(const std::string& strWhy, const std::string& strSocket, std::string& strError) {
    strError = "control socket " + strSocket + ": " + strWhy;
    return false;
  }

  void Accept() {
    while (!fStop) {
      const int iFd = accept4(iListenFd, nullptr, nullptr, SOCK_CLOEXEC);
      if (iFd < 0) {
        if (errno == EINTR || errno == ECONNABORTED) continue;
        return;  // shut down
      }
      Sweep();
      rClients.push_back(std::make_unique<Client>(iFd, fStop));
      rClients.back()->Start();
    }
  }

  void Sweep() {
    for (auto it = rClients.begin(); it != rClients.end();) {
      if (!(*it)->Ended()) {
        ++it;
        continue;
      }
      (*it)->Join();
      it = rClients.erase(it);
    }
  }

  std::mutex rMutex;  // one Start or Stop at a time
  std::atomic<bool> fStop{false};
  int iListenFd = -1;                           // guarded by rMutex; the thread reads it while it runs
  std::string strPath;                          // guarded by rMutex
  std::list<std::unique_ptr<Client>> rClients;  // of the accepting thread, and of Stop once that has ended
  std::thread rThread;                          // guarded by rMutex
};

Server& TheServer() {
  static Server& rServer = *new Server;  // never deleted: its threads may run while the process exits
  return rServer;
}

}  // namespace

bool StartControl(const std::string& strPath, std::string& strError) {
  return TheServer().Start(strPath, strError);
}

void StopControl() {
  TheServer().Stop();
}

}  // namespace simcards
