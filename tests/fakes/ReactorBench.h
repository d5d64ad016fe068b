// ReactorBench: the fixture of the tests of the control socket, and a client of it.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "RecorderBench.h"
#include "TestTools.h"
#include "logging.h"
#include "morvex_crec.h"
#include "reactor.h"

// One connection, as the web side has it.
class Client {
 public:
  explicit Client(bool fToConnect = true) : hSocket(socket(AF_UNIX, SOCK_STREAM, 0)) {
    if (fToConnect) Connect();
  }
  ~Client() { Close(); }
  void Connect() {
    sockaddr_un rAddress{};
    rAddress.sun_family = AF_UNIX;
    (void)strcpy(rAddress.sun_path, CREC_SOCKET_PATH);
    fConnected = connect(hSocket, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 0;
  }
  void Close() {
    if (hSocket >= 0) (void)close(hSocket);
    hSocket = -1;
  }
  bool IsConnected() const { return fConnected; }
  bool TrySend(const std::string& strText) const {
    return send(hSocket, strText.data(), strText.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(strText.size());
  }
  void Send(const std::string& strText) const { EXPECT_TRUE(TrySend(strText)) << strerror(errno); }
  // All until the server closes.
  std::string Read() const {
    std::string strAll;
    char acBuf[200];
    for (ssize_t iGot = 0; (iGot = recv(hSocket, acBuf, sizeof acBuf, 0)) > 0;) {
      strAll.append(acBuf, static_cast<std::size_t>(iGot));
    }
    return strAll;
  }

 private:
  int hSocket;
  bool fConnected = false;
};

inline std::string AskOnce(const std::string& strOrder) {
  const Client rClient;
  if (!rClient.IsConnected()) return "(not connected)";
  rClient.Send(strOrder);
  return rClient.Read();
}

// The reactor's own thread on the real socket; the test thread is the main thread and runs the actions.
class ReactorBench : public RecorderBench {
 protected:
  void SetUp() override {
    setSignalHandlers();  // the closing signal would end the test program otherwise
    (void)umask(0);
    g_prBoot = &rBoot;
    rRecorder.fInitializing = false;
  }
  void TearDown() override {
    close_reactor();
    rBoot.emptyQueue();
    g_prBoot = nullptr;
    fAppTerminate = false;
    (void)unlink(CREC_SOCKET_PATH);
    LogLeftOut();  // of many orders, which the next test would be told
    (void)logsink::Take();
  }

  void Start() {
    init_reactor(&rRecorder);
    ASSERT_TRUE(testtools::Await([] { return Client().IsConnected(); }));
    // That client said nothing, which is an empty message; it has been dealt with when a second one is.
    EXPECT_EQ(Ask("?"), "E0: Unknown commmand\n");
    Forget();
  }

  // The reply to an order while the main thread goes on as usual.
  std::string Ask(const std::string& strOrder) {
    std::atomic<bool> fDone{false};
    std::string strReply;
    std::thread rClient([&] {
      strReply = AskOnce(strOrder);
      fDone = true;
    });
    EXPECT_TRUE(testtools::Await([&] {
      (void)rBoot.RunOneAction();
      return fDone.load();
    }));
    rClient.join();
    return strReply;
  }

  // A line in a call with this id; its active row is the one with eleven times the line's number as id.
  OpenChannel<BaseChannel>& AddCall(const std::string& strId) {
    const int iLine = static_cast<int>(rRecorder.vChannels.size()) + 1;
    OpenChannel<BaseChannel>& rChannel = AddChannel(iLine);
    rChannel.fCallBusy = true;
    rChannel.strDbRemoteId = strId;
    rChannel.iActiveCallID = 11 * iLine;
    return rChannel;
  }
  // What the active row of a line says of silencing.
  std::string Silencing(int iLine) { return prDb->rExtra[11 * iLine]["silencing"]; }
};
