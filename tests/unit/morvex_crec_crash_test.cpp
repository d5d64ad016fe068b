// Crashes of real processes, each with a second thread alive: without one the allocator takes no locks. What they
// report is read where a log daemon reads it, from the socket /dev/log, and a limit that only a hang can reach stands
// in for the supervisor.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "TestTools.h"
#include "Texts.h"
#include "morvex_crec.h"

// Clang's thread sanitizer hands a signal on in its own time and way, so a report that starts in one does not come to
// its end. The other builds run all of this.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define SIGNALS_ARE_THE_SANITIZERS
#endif
#endif

using testtools::Await;

namespace {

bool fFramesAreCounted = false;  // a stack of frames at 0x1000, 0x2000 and so on, as deep as there is room

using Backtrace = int(void**, int);
const auto RealBacktrace = reinterpret_cast<Backtrace*>(dlsym(RTLD_NEXT, "backtrace"));

}  // namespace

// Stands in for the C library's.
extern "C" int backtrace(void** apFrames, int iMax) {
  if (!fFramesAreCounted) return RealBacktrace(apFrames, iMax);
  for (std::uintptr_t i = 0; i < static_cast<std::uintptr_t>(iMax); i++) {
    apFrames[i] = reinterpret_cast<void*>(0x1000 * (i + 1));  // NOLINT(performance-no-int-to-ptr)
  }
  return iMax;
}

namespace {

constexpr const char* ERROR_FILE = "/var/morvex/data/err_crec.dat";
constexpr const char* LOG_SOCKET = "/dev/log";
[[maybe_unused]] constexpr std::size_t BLOCK_BYTES =
    2000;  // more than the caches of a thread take, so that its arena is locked
constexpr int HANG_MS = 20'000;
const std::string strErrorPrio = "<" + std::to_string(LOG_USER | LOG_ERR) + ">";

class LogSocket {
 public:
  LogSocket() {
    const sockaddr_un rAddress = Address();
    (void)unlink(LOG_SOCKET);
    EXPECT_EQ(bind(hSocket, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress), 0);
  }
  ~LogSocket() {
    (void)close(hSocket);
    (void)unlink(LOG_SOCKET);
  }
  LogSocket(const LogSocket&) = delete;
  LogSocket& operator=(const LogSocket&) = delete;

  static sockaddr_un Address() {
    sockaddr_un rAddress = {};
    rAddress.sun_family = AF_UNIX;
    (void)strncpy(rAddress.sun_path, LOG_SOCKET, sizeof rAddress.sun_path - 1);
    return rAddress;
  }
  // All messages since the last call, as the C library sends them: "<priority>time name: text".
  Texts Take() const {
    Texts astrMessages;
    char acMessage[4096];
    for (ssize_t iGot = 0; (iGot = recv(hSocket, acMessage, sizeof acMessage, MSG_DONTWAIT)) > 0;) {
      astrMessages.emplace_back(acMessage, static_cast<std::size_t>(iGot));
    }
    return astrMessages;
  }

 private:
  int hSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

[[maybe_unused]] bool EndsWith(const std::string& strText, const std::string& strEnd) {
  return strText.size() >= strEnd.size() && strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

class CrashTest : public testing::Test {
 protected:
  void SetUp() override { (void)unlink(ERROR_FILE); }

  // The wait status of a process that sets its handlers, has a second thread, and runs this; -1 when it hung. The log
  // is read meanwhile: its socket holds some lines only, and the next one waits.
  int StatusOf(const std::function<void()>& rRun) {
    astrLog.clear();
    const pid_t iPid = fork();
    if (iPid == 0) {
      setSignalHandlers();
      std::thread([] {
        for (;;) (void)pause();
      }).detach();
      rRun();
      _exit(77);
    }
    int iStatus = -1;
    const bool fEnded = Await(
        [&] {
          const bool fGone = waitpid(iPid, &iStatus, WNOHANG) == iPid;
          if (fReadLog) ReadLog();
          return fGone;
        },
        HANG_MS);
    if (!fEnded) {
      (void)kill(iPid, SIGKILL);
      (void)waitpid(iPid, nullptr, 0);
      return -1;
    }
    return iStatus;
  }
  void ExpectDiesOf(int iSignal, const std::function<void()>& rRun) {
    const int iStatus = StatusOf(rRun);
    ASSERT_TRUE(WIFSIGNALED(iStatus)) << iStatus;
    EXPECT_EQ(WTERMSIG(iStatus), iSignal);
    EXPECT_EQ(ReadTestFile(ERROR_FILE), iSignal == SIGSEGV ? "Signal SIGSEGV" : "Signal SIGABRT");
  }

  void ReadLog() {
    for (const std::string& strMessage : rLog.Take()) astrLog.push_back(strMessage);
  }

  LogSocket rLog;
  bool fReadLog = true;
  Texts astrLog;  // messages of the last process
};

#ifndef SIGNALS_ARE_THE_SANITIZERS
TEST_F(CrashTest, CrashIsLoggedWithItsBacktraceAndKillsByItsOwnSignal) {
  for (const int iSignal : {SIGSEGV, SIGABRT}) {
    SCOPED_TRACE(iSignal);
    ExpectDiesOf(iSignal, [iSignal] { (void)raise(iSignal); });
    ASSERT_GE(astrLog.size(), 3u);
    EXPECT_LE(astrLog.size(), 15u);  // the text, and all frames but the first
    EXPECT_TRUE(EndsWith(astrLog[0], iSignal == SIGSEGV ? " Signal SIGSEGV" : " Signal SIGABRT")) << astrLog[0];
    for (const std::string& strMessage : astrLog) EXPECT_EQ(strMessage.find(strErrorPrio), 0u) << strMessage;
    EXPECT_TRUE(EndsWith(astrLog[1], "]")) << astrLog[1];  // "<binary>(<function>) [<address>]"
  }
}

TEST_F(CrashTest, ReportLeavesOutItsOwnFrameAndNoOther) {
  ExpectDiesOf(SIGSEGV, [] {
    fFramesAreCounted = true;
    (void)raise(SIGSEGV);
  });
  ASSERT_EQ(astrLog.size(), 15u);
  for (std::size_t i = 1; i < astrLog.size(); i++) {
    char acFrame[30];
    (void)snprintf(acFrame, sizeof acFrame, "[0x%zx]", 0x1000 * (i + 1));
    EXPECT_TRUE(EndsWith(astrLog[i], acFrame)) << astrLog[i];
  }
}
#endif

TEST_F(CrashTest, CrashBySignalFromOutsideKillsToo) {
  for (const int iSignal : {SIGSEGV, SIGABRT}) {
    ExpectDiesOf(iSignal, [iSignal] {
      (void)kill(getpid(), iSignal);
      for (;;) (void)pause();
    });
  }
}

TEST_F(CrashTest, LogThatIsNotReadHoldsNoCrashUp) {
  fReadLog = false;
  const int hFilling = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_un rAddress = LogSocket::Address();
  while (sendto(hFilling, "full", 4, 0, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 4) {
  }
  ExpectDiesOf(SIGSEGV, [] { (void)raise(SIGSEGV); });
  (void)close(hFilling);
}

#ifndef SIGNALS_ARE_THE_SANITIZERS
TEST_F(CrashTest, SecondThreadThatCrashesTooChangesNothing) {
  for (int iTry = 0; iTry < 10; iTry++) {
    const int iStatus = StatusOf([] {
      std::atomic<bool> fGo{false};
      std::thread rOther([&fGo] {
        while (!fGo) {
        }
        (void)raise(SIGABRT);
      });
      fGo = true;
      (void)raise(SIGSEGV);
      rOther.join();
    });
    ASSERT_TRUE(WIFSIGNALED(iStatus)) << iStatus;
    ASSERT_GE(astrLog.size(), 3u);  // the whole report of the first
    const std::string strOf = WTERMSIG(iStatus) == SIGSEGV ? "Signal SIGSEGV" : "Signal SIGABRT";
    EXPECT_TRUE(EndsWith(astrLog[0], " " + strOf)) << astrLog[0];
    EXPECT_EQ(ReadTestFile(ERROR_FILE), strOf);
    for (std::size_t i = 1; i < astrLog.size(); i++) EXPECT_FALSE(EndsWith(astrLog[i], strOf));
  }
}
#endif

// What follows breaks the C library's own heap; a sanitizer has another one in its place, and finds the fault first.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(SIGNALS_ARE_THE_SANITIZERS)

// The optimiser must not see that a block is freed twice or written behind its end.
void* Hidden(void* pvBlock) {
  void* volatile pvHidden = pvBlock;
  return pvHidden;
}

// Up to the size of the free rest of the heap, which the next block is cut from.
void OverwriteHeap() {
  void* pvBlock = malloc(BLOCK_BYTES);
  (void)memset(Hidden(pvBlock), 'x', BLOCK_BYTES + 100);
}

TEST_F(CrashTest, DoubleFreeKills) {
  ExpectDiesOf(SIGABRT, [] {
    void* pvBlock = malloc(BLOCK_BYTES);
    void* pvSame = Hidden(pvBlock);
    void* pvNext = malloc(BLOCK_BYTES);
    free(pvBlock);
    free(pvSame);  // the crash itself. NOLINT(clang-analyzer-unix.Malloc)
    free(pvNext);
  });
}

TEST_F(CrashTest, OverwrittenHeapKills) {
  ExpectDiesOf(SIGABRT, [] {
    OverwriteHeap();
    for (int i = 0; i < 1000; i++) (void)Hidden(malloc(BLOCK_BYTES));
  });
}

// The report needs memory, which aborts in its turn.
TEST_F(CrashTest, ReportThatCrashesEndsInTheFirstSignal) {
  ExpectDiesOf(SIGSEGV, [] {
    OverwriteHeap();
    (void)raise(SIGSEGV);
  });
}

TEST_F(CrashTest, CrashInsideTheAllocatorKills) {
  for (int iTry = 0; iTry < 5; iTry++) {
    ExpectDiesOf(SIGSEGV, [] {
      std::atomic<int> iRounds{0};
      std::thread rAllocating([&iRounds] {
        for (;; iRounds++) free(Hidden(malloc(BLOCK_BYTES)));
      });
      while (iRounds < 100) {
      }
      // To crash there is what the test is for. NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
      (void)pthread_kill(rAllocating.native_handle(), SIGSEGV);
      rAllocating.join();
    });
  }
}

#endif

}  // namespace
