#include "signaling.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "LogSink.h"
#include "TestFiles.h"
#include "TestTools.h"

namespace {
std::atomic<int> iLastAddressBytes{0};  // address length of the last connect of this program
}

// Stands in for the C library's: the length of the address is seen nowhere else.
extern "C" int connect(int hSocket, const sockaddr* prAddress, socklen_t iBytes) {
  iLastAddressBytes = static_cast<int>(iBytes);
  return static_cast<int>(syscall(SYS_connect, hSocket, prAddress, iBytes));
}

using testtools::Await;
using testtools::LimitThreads;
using testtools::NoMoreDescriptors;

namespace {

constexpr const char* SOCKET_PATH = "/tmp/morvex";
constexpr std::chrono::seconds PATIENCE(20);  // far beyond what a loaded machine needs

using Clock = std::chrono::steady_clock;

// The service: takes one connection after the other, keeps the text of each and answers as told; without an answer it
// holds the connection open. A connection is answered when its text has come, so texts are complete.
class Service {
 public:
  Service() : hListen(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(SOCKET_PATH);
    sockaddr_un rAddress = {};
    rAddress.sun_family = AF_UNIX;
    strcpy(rAddress.sun_path, SOCKET_PATH);
    EXPECT_EQ(bind(hListen, reinterpret_cast<sockaddr*>(&rAddress), sizeof rAddress), 0);
    EXPECT_EQ(listen(hListen, 10), 0);
    rThread = std::thread([this] { Run(); });
  }
  ~Service() {
    SetReply("OK");  // releases a connection that is held
    shutdown(hListen, SHUT_RDWR);
    rThread.join();
    close(hListen);
    unlink(SOCKET_PATH);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void SetReply(std::optional<std::string> strNewReply) {
    const std::lock_guard<std::mutex> rLock(rMutex);
    strReply = std::move(strNewReply);
    rChanged.notify_all();
  }
  // Waits until that many texts have come, and gives them all.
  Texts WaitForTexts(size_t iCount) {
    std::unique_lock<std::mutex> rLock(rMutex);
    EXPECT_TRUE(rChanged.wait_for(rLock, PATIENCE, [&] { return astrTexts.size() >= iCount; }));
    return astrTexts;
  }

 private:
  void Run() {
    for (int hPeer; (hPeer = accept(hListen, nullptr, nullptr)) >= 0; close(hPeer)) {
      char acText[1000];
      const ssize_t iRead = read(hPeer, acText, sizeof acText);
      std::unique_lock<std::mutex> rLock(rMutex);
      astrTexts.emplace_back(acText, iRead < 0 ? 0 : static_cast<size_t>(iRead));
      rChanged.notify_all();
      rChanged.wait(rLock, [this] { return strReply.has_value(); });
      (void)send(hPeer, strReply->data(), strReply->size(), MSG_NOSIGNAL);
    }
  }

  int hListen;
  std::thread rThread;
  std::mutex rMutex;
  std::condition_variable rChanged;
  std::optional<std::string> strReply = "OK";  // guarded by rMutex; none: no answer
  Texts astrTexts;                             // guarded by rMutex
};

class SignalingTest : public testing::Test {
 protected:
  void SetUp() override {
    (void)std::signal(SIGPIPE, SIG_IGN);  // as the daemon does
    unlink(SOCKET_PATH);
    (void)logsink::Take();
  }
  void TearDown() override { close_signaling(); }
};

TEST_F(SignalingTest, MessageGoesOutWithoutTerminator) {
  Service rService;
  SignalObj rSignal;
  rSignal.signal("email -recid 20240131_1");
  EXPECT_EQ(rService.WaitForTexts(1), Texts{"email -recid 20240131_1"});
  EXPECT_EQ(logsink::TakeTexts(), Texts{"7 Signal: email -recid 20240131_1"});
}

TEST_F(SignalingTest, AddressIsThirteenBytesLong) {
  const Service rService;
  SignalObj rSignal;
  iLastAddressBytes = 0;
  rSignal.signal("sysinfo");
  EXPECT_EQ(iLastAddressBytes, 13);
}

TEST_F(SignalingTest, OnlyOkIsAccepted) {
  const std::string strLong(250, 'x');
  const struct {
    const char* acLabel;
    std::string strReply;
    std::string strError;
  } rRows[] = {
      {"the plain word", "OK", ""},
      {"with CR LF", "OK\r\n", ""},
      {"LF alone is not cut", "OK\n", "3 Error socket reply: OK\n"},
      {"CR alone is not cut", "OK\r", "3 Error socket reply: OK\r"},
      {"only one pair is cut", "OK\r\n\r\n", "3 Error socket reply: OK\r\n"},
      {"another word", "ERROR no such call\r\n", "3 Error socket reply: ERROR no such call"},
      {"lower case", "ok", "3 Error socket reply: ok"},
      {"more behind it", "OKAY", "3 Error socket reply: OKAY"},
      {"a blank in front", " OK", "3 Error socket reply:  OK"},
      {"CR LF alone", "\r\n", "3 Error socket reply: "},
      {"closed without a reply", "", "3 Error socket reply: "},
      {"a percent sign is no format", "%s%n", "3 Error socket reply: %s%n"},
      {"cut at 200 bytes", strLong, "3 Error socket reply: " + strLong.substr(0, 200)},
  };
  Service rService;
  SignalObj rSignal;
  for (const auto& rRow : rRows) {
    rService.SetReply(rRow.strReply);
    rSignal.signal("sysinfo");
    Texts astrExpected = {"7 Signal: sysinfo"};
    if (!rRow.strError.empty()) astrExpected.push_back(rRow.strError);
    EXPECT_EQ(logsink::TakeTexts(), astrExpected) << rRow.acLabel;
  }
}

TEST_F(SignalingTest, AbsentServiceCostsOneLineAMessage) {
  SignalObj rSignal;
  rSignal.signal("one");
  rSignal.signal("two");
  EXPECT_EQ(logsink::TakeTexts(),
            (Texts{"7 Signal: one", "3 Error connecting to socket", "7 Signal: two", "3 Error connecting to socket"}));
}

TEST_F(SignalingTest, SocketThatNobodyServesIsAConnectError) {
  WriteTestFile(SOCKET_PATH, "no socket at all");
  SignalObj rSignal;
  rSignal.signal("sysinfo");
  EXPECT_EQ(logsink::TakeTexts(), (Texts{"7 Signal: sysinfo", "3 Error connecting to socket"}));
}

TEST_F(SignalingTest, NoSocketToBeHadIsLogged) {
  SignalObj rSignal;
  {
    const NoMoreDescriptors rLimit;
    rSignal.signal("sysinfo");
  }
  EXPECT_EQ(logsink::TakeTexts(), (Texts{"7 Signal: sysinfo", "3 Error creating socket"}));
}

TEST_F(SignalingTest, ConnectionsAreClosed) {
  const Service rService;
  SignalObj rSignal;
  const int hBefore = dup(STDIN_FILENO);  // the lowest free descriptor
  close(hBefore);
  for (int i = 0; i < 20; i++) rSignal.signal("sysinfo");
  unlink(SOCKET_PATH);
  for (int i = 0; i < 20; i++) rSignal.signal("sysinfo");
  const int hAfter = dup(STDIN_FILENO);
  close(hAfter);
  EXPECT_LE(hAfter, hBefore + 1);  // the service may not have closed its end of the last one
}

TEST_F(SignalingTest, QueuedMessagesGoOutInOrder) {
  Service rService;
  init_signaling();
  for (const char* acText : {"first", "second", "third"}) signal_service(acText);
  EXPECT_EQ(rService.WaitForTexts(3), (Texts{"first", "second", "third"}));
}

TEST_F(SignalingTest, CallerNeverWaitsForTheService) {
  Service rService;
  rService.SetReply(std::nullopt);
  init_signaling();
  signal_service("held");
  EXPECT_EQ(rService.WaitForTexts(1), Texts{"held"});
  signal_service("queued");  // returns although the thread sits in its read
  EXPECT_EQ(rService.WaitForTexts(1), Texts{"held"});
  rService.SetReply("OK");
  EXPECT_EQ(rService.WaitForTexts(2), (Texts{"held", "queued"}));
}

TEST_F(SignalingTest, IdleThreadTakesALaterMessage) {
  Service rService;
  init_signaling();
  signal_service("first");
  (void)rService.WaitForTexts(1);
  signal_service("second");
  EXPECT_EQ(rService.WaitForTexts(2), (Texts{"first", "second"}));
}

TEST_F(SignalingTest, EmptyMessageIsDropped) {
  Service rService;
  init_signaling();
  signal_service("");
  signal_service("behind it");
  EXPECT_EQ(rService.WaitForTexts(1), Texts{"behind it"});
  close_signaling();
  EXPECT_EQ(logsink::TakeTexts(), (Texts{"5 signal => ", "5 signal => behind it", "7 Signal: behind it"}));
}

TEST_F(SignalingTest, FailedMessageIsNotSentAgain) {
  Service rService;
  rService.SetReply("BUSY");
  init_signaling();
  signal_service("refused");
  (void)rService.WaitForTexts(1);
  signal_service("next");
  EXPECT_EQ(rService.WaitForTexts(2), (Texts{"refused", "next"}));
}

TEST_F(SignalingTest, MessageWithoutThreadIsOnlyLogged) {
  signal_service("sysinfo");
  EXPECT_EQ(logsink::TakeTexts(), Texts{"5 signal => sysinfo"});
  EXPECT_EQ(prSignalObj, nullptr);
}

TEST_F(SignalingTest, ThreadThatIsRefusedIsToldAndAskedForAgainAtEachMessage) {
  const auto Run = [] {
    LimitThreads(0);
    init_signaling();
    signal_service("lost");
    LimitThreads(RLIM_INFINITY);
    signal_service("sent");
    Texts astrLines;
    const Texts astrExpected = {"5 signal => lost", "3 Error creating thread", "5 signal => sent", "7 Signal: sent",
                                "3 Error connecting to socket"};
    const bool fAsExpected = Await([&] {
      for (const std::string& strLine : logsink::TakeTexts()) astrLines.push_back(strLine);
      return astrLines == astrExpected;
    });
    _exit(fAsExpected ? 0 : 1);
  };
  EXPECT_EXIT(Run(), testing::ExitedWithCode(0), "");
}

TEST_F(SignalingTest, MayBeClosedWithoutStartAndStartedAgain) {
  close_signaling();
  for (int i = 0; i < 2; i++) {
    init_signaling();
    EXPECT_NE(prSignalObj, nullptr);
    close_signaling();
    EXPECT_EQ(prSignalObj, nullptr);
  }
}

// This and the next are slow: the time-out is part of what the service may rely on.
TEST_F(SignalingTest, SilentServiceIsLeftAfterFiveSecondsAndClosingDropsTheRest) {
  Service rService;
  rService.SetReply(std::nullopt);
  init_signaling();
  const Clock::time_point rStart = Clock::now();
  signal_service("unanswered");
  signal_service("dropped");
  (void)rService.WaitForTexts(1);
  close_signaling();  // waits for the message that is under way
  const auto rTaken = Clock::now() - rStart;
  EXPECT_GE(rTaken, std::chrono::milliseconds(4900));
  EXPECT_LT(rTaken, PATIENCE);
  EXPECT_EQ(rService.WaitForTexts(1), Texts{"unanswered"});

  Texts astrLines = logsink::TakeTexts();
  std::sort(astrLines.begin(), astrLines.end());  // two threads have written them
  EXPECT_EQ(astrLines, (Texts{"3 Error reading reply from socket", "5 signal => dropped", "5 signal => unanswered",
                              "7 Signal: unanswered"}));
}

// A hanging service: it listens, accepts nobody, and its backlog is full.
class HangingService {
 public:
  HangingService() : hListen(Socket()), hWaiting(Socket()) {
    unlink(SOCKET_PATH);
    sockaddr_un rAddress = {};
    rAddress.sun_family = AF_UNIX;
    strcpy(rAddress.sun_path, SOCKET_PATH);
    const auto* prAddress = reinterpret_cast<const sockaddr*>(&rAddress);
    EXPECT_EQ(bind(hListen, prAddress, sizeof rAddress), 0);
    EXPECT_EQ(listen(hListen, 0), 0);  // room for one
    EXPECT_EQ(connect(hWaiting, prAddress, sizeof rAddress), 0);
  }
  ~HangingService() {
    close(hWaiting);
    close(hListen);
    unlink(SOCKET_PATH);
  }
  HangingService(const HangingService&) = delete;
  HangingService& operator=(const HangingService&) = delete;

 private:
  static int Socket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

  int hListen;
  int hWaiting;
};

TEST_F(SignalingTest, ServiceThatAcceptsNobodyIsLeftAfterFiveSeconds) {
  const HangingService rService;
  init_signaling();
  const Clock::time_point rStart = Clock::now();
  signal_service("hanging");
  Texts astrLines;
  while (astrLines.size() < 2) {  // until the message is under way
    for (const std::string& strLine : logsink::TakeTexts()) astrLines.push_back(strLine);
    ASSERT_LT(Clock::now() - rStart, PATIENCE);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  close_signaling();
  const auto rTaken = Clock::now() - rStart;
  EXPECT_GE(rTaken, std::chrono::milliseconds(4900));
  EXPECT_LT(rTaken, PATIENCE);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 Error connecting to socket"});
}

}  // namespace
