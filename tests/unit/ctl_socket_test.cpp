#include "ctl_socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* SOCKET_PATH = "/tmp/ctl_socket_test";

// Takes one connection, keeps what the client sends first, gives the reply in its pieces, and closes.
class FakeDaemon {
 public:
  explicit FakeDaemon(std::vector<std::string> astrPiecesToSend, bool fHold = false)
      : astrPieces(std::move(astrPiecesToSend)), hListen(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(SOCKET_PATH);
    sockaddr_un rAddress = {};
    rAddress.sun_family = AF_UNIX;
    strcpy(rAddress.sun_path, SOCKET_PATH);
    EXPECT_EQ(bind(hListen, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress), 0);
    EXPECT_EQ(listen(hListen, 5), 0);
    if (!fHold) rThread = std::thread([this] { Serve(); });
  }
  ~FakeDaemon() {
    Join();
    close(hListen);
    unlink(SOCKET_PATH);
  }
  FakeDaemon(const FakeDaemon&) = delete;
  FakeDaemon& operator=(const FakeDaemon&) = delete;

  std::string Order() {
    Join();
    return strOrder;
  }

 private:
  void Join() {
    if (rThread.joinable()) rThread.join();
  }
  void Serve() {
    const int hPeer = accept(hListen, nullptr, nullptr);
    char acText[1000];
    const ssize_t iRead = recv(hPeer, acText, sizeof acText, 0);
    strOrder.assign(acText, iRead < 0 ? 0 : static_cast<std::size_t>(iRead));
    for (const std::string& strPiece : astrPieces) {
      (void)send(hPeer, strPiece.data(), strPiece.size(), MSG_NOSIGNAL);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));  // so that pieces arrive one by one
    }
    close(hPeer);
  }

  const std::vector<std::string> astrPieces;
  const int hListen;
  std::string strOrder;  // the thread's until it has been joined
  std::thread rThread;
};

TEST(ClassifyReply, EachKindOfReplyHasItsExitStatus) {
  const struct {
    const char* acLabel;
    const char* acLine;
    ECtlExit eExit;
  } rRows[] = {
      {"done", "OK", CTL_OK},
      {"unknown command, as the daemon spells it", "E0: Unknown commmand", CTL_UNKNOWN_ORDER},
      {"unknown call", "E2: unknown call", CTL_UNKNOWN_CALL},
      {"silence off", "E3: option silence-on-demand is off", CTL_REFUSED},
      {"record on demand off", "E3: option RecOnDmd is off", CTL_REFUSED},
      {"delete off", "E3: option DelOnDmd is off", CTL_REFUSED},
      {"time-out", "E4: time-out", CTL_TIME_OUT},
      {"trace runs", "ERR: already started", CTL_ALREADY},
      {"no trace runs", "ERR: already stopped", CTL_ALREADY},
      {"closed without a line", "", CTL_NO_REPLY},
      {"more behind OK", "OKAY", CTL_OTHER_REPLY},
      {"lower case", "ok", CTL_OTHER_REPLY},
      {"a code that there is not", "E1: what", CTL_OTHER_REPLY},
      {"a code within the text", "no E2: here", CTL_OTHER_REPLY},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(ClassifyReply(rRow.acLine), rRow.eExit) << rRow.acLabel;
}

TEST(SendOrder, OrderGoesOutWithoutTerminatorAndReplyComesWithoutLineEnd) {
  FakeDaemon rDaemon({"OK\n"});
  const CtlReply rReply = SendOrder("silence 20240131_142305_007_42", SOCKET_PATH);
  EXPECT_EQ(rReply.eExit, CTL_OK);
  EXPECT_EQ(rReply.strText, "OK");
  EXPECT_EQ(rDaemon.Order(), "silence 20240131_142305_007_42");
}

TEST(SendOrder, RepliesAreReadToTheirLineEnd) {
  const struct {
    const char* acLabel;
    std::vector<std::string> astrPieces;
    ECtlExit eExit;
    std::string strText;
  } rRows[] = {
      {"in pieces", {"E2: un", "known call", "\n"}, CTL_UNKNOWN_CALL, "E2: unknown call"},
      {"without line end", {"OK"}, CTL_OK, "OK"},
      {"more behind the line", {"OK\nmore\n"}, CTL_OK, "OK"},
      {"closed without a line", {}, CTL_NO_REPLY, "The recorder gave no reply."},
      {"an empty line", {"\n"}, CTL_NO_REPLY, "The recorder gave no reply."},
      {"with control characters", {"\x1b[31mOK\x9b\n"}, CTL_OTHER_REPLY, "?[31mOK?"},
      {"longer than a piece", {std::string(1000, 'x') + "\n"}, CTL_OTHER_REPLY, std::string(1000, 'x')},
  };
  for (const auto& rRow : rRows) {
    const FakeDaemon rDaemon(rRow.astrPieces);
    const CtlReply rReply = SendOrder("reconfig", SOCKET_PATH);
    EXPECT_EQ(rReply.eExit, rRow.eExit) << rRow.acLabel;
    EXPECT_EQ(rReply.strText, rRow.strText) << rRow.acLabel;
  }
}

TEST(SendOrder, DaemonThatDoesNotRunIsAPlainSentence) {
  const std::string strNobody = "The recorder is not running: nobody answers at ";
  unlink(SOCKET_PATH);
  CtlReply rReply = SendOrder("reconfig", SOCKET_PATH);
  EXPECT_EQ(rReply.eExit, CTL_NOT_RUNNING);
  EXPECT_EQ(rReply.strText, strNobody + SOCKET_PATH + ".");

  // A socket file of a daemon that has ended.
  const int hBound = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un rAddress = {};
  rAddress.sun_family = AF_UNIX;
  strcpy(rAddress.sun_path, SOCKET_PATH);
  ASSERT_EQ(bind(hBound, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress), 0);
  close(hBound);
  rReply = SendOrder("reconfig", SOCKET_PATH);
  EXPECT_EQ(rReply.eExit, CTL_NOT_RUNNING);
  EXPECT_EQ(rReply.strText, strNobody + SOCKET_PATH + ".");
  unlink(SOCKET_PATH);

  const std::string strLong = "/tmp/" + std::string(200, 'x');
  EXPECT_EQ(SendOrder("reconfig", strLong).eExit, CTL_NOT_RUNNING);
}

TEST(IsServed, OnlyASocketThatAProcessHoldsCounts) {
  unlink(SOCKET_PATH);
  EXPECT_FALSE(IsServed(SOCKET_PATH)) << "no file";
  {
    FakeDaemon rDaemon({"OK\n"});
    EXPECT_TRUE(IsServed(SOCKET_PATH));
    EXPECT_EQ(SendOrder("reconfig", SOCKET_PATH).eExit, CTL_OK) << "the daemon's first connection is the order";
    EXPECT_EQ(rDaemon.Order(), "reconfig");
  }
  EXPECT_FALSE(IsServed(SOCKET_PATH)) << "closed";
  const int hDatagrams = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un rAddress = {};
  rAddress.sun_family = AF_UNIX;
  strcpy(rAddress.sun_path, SOCKET_PATH);
  ASSERT_EQ(bind(hDatagrams, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress), 0);
  EXPECT_FALSE(IsServed(SOCKET_PATH)) << "of another kind";
  close(hDatagrams);
  EXPECT_FALSE(IsServed(SOCKET_PATH)) << "the file of a process that was killed";
  unlink(SOCKET_PATH);
  EXPECT_FALSE(IsServed("/tmp/" + std::string(200, 'x')));
}

// Slow: the time-out is what a script has to reckon with.
TEST(SendOrder, DaemonThatNeverAnswersIsLeftAfterItsTime) {
  const FakeDaemon rDaemon({}, /*fHold=*/true);
  const auto rStart = std::chrono::steady_clock::now();
  const CtlReply rReply = SendOrder("reconfig", SOCKET_PATH);
  const auto rTaken = std::chrono::steady_clock::now() - rStart;
  EXPECT_EQ(rReply.eExit, CTL_NO_REPLY);
  EXPECT_EQ(rReply.strText, "The recorder gave no reply.");
  EXPECT_GE(rTaken, std::chrono::milliseconds(4900));
  EXPECT_LT(rTaken, std::chrono::seconds(20));
}

// Slow, too: a daemon that takes no client off its queue.
TEST(SendOrder, FullQueueOfClientsIsLeftAfterItsTime) {
  const FakeDaemon rDaemon({}, /*fHold=*/true);
  std::vector<int> vWaiting;
  sockaddr_un rAddress = {};
  rAddress.sun_family = AF_UNIX;
  strcpy(rAddress.sun_path, SOCKET_PATH);
  do {
    vWaiting.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  } while (connect(vWaiting.back(), reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 0);
  EXPECT_EQ(errno, EAGAIN);
  const CtlReply rReply = SendOrder("reconfig", SOCKET_PATH);
  EXPECT_EQ(rReply.eExit, CTL_NO_REPLY);
  EXPECT_EQ(rReply.strText, "The recorder gave no reply: it is busy with other clients.");
  for (const int hClient : vWaiting) close(hClient);
}

}  // namespace
