#include "logging.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "LogSink.h"
#include "TestFiles.h"
#include "TestTools.h"

namespace {

constexpr const char* ERROR_FILE = "/var/morvex/data/err_crec.dat";
constexpr const char* OLD_CONTENT = "an older and much longer message";

// Standard output goes to this descriptor while the object lives.
class StdoutTo {
 public:
  explicit StdoutTo(int hTarget) : hOld(dup(STDOUT_FILENO)) {
    fflush(stdout);
    dup2(hTarget, STDOUT_FILENO);
  }
  ~StdoutTo() {
    fflush(stdout);
    dup2(hOld, STDOUT_FILENO);
    close(hOld);
  }
  StdoutTo(const StdoutTo&) = delete;
  StdoutTo& operator=(const StdoutTo&) = delete;

 private:
  int hOld;
};

// A pair of datagram sockets: each write to the one is one packet at the other.
struct Packets {
  Packets() { (void)socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, hEnds); }
  ~Packets() {
    close(hEnds[0]);
    close(hEnds[1]);
  }
  // What has arrived by this time.
  Texts Take() const {
    Texts astrPackets;
    char acPacket[20000];
    for (ssize_t iSize; (iSize = recv(hEnds[0], acPacket, sizeof acPacket, 0)) >= 0;) {
      astrPackets.emplace_back(acPacket, static_cast<size_t>(iSize));
    }
    return astrPackets;
  }

  int hEnds[2] = {-1, -1};
};

std::function<void()> rOnTruncate;  // runs when a file has been emptied

class LoggingTest : public testing::Test {
 protected:
  void SetUp() override {
    g_DebugMode = 0;
    fAppTerminate = false;
    g_fErrorFile = true;
    WriteTestFile(ERROR_FILE, OLD_CONTENT);
    (void)logsink::Take();
  }
  void TearDown() override {
    g_DebugMode = 0;
    fAppTerminate = false;
    g_fErrorFile = true;
  }
};

}  // namespace

// Stands in for the C library's, so that a test may act behind it.
extern "C" int ftruncate(int hFile, off_t iLength) {
  const int iResult = static_cast<int>(syscall(SYS_ftruncate, hFile, iLength));
  if (rOnTruncate) rOnTruncate();
  return iResult;
}

namespace {

TEST_F(LoggingTest, PriorityGoesToSyslogUnchanged) {
  for (int iPrio = LOG_EMERG; iPrio <= LOG_DEBUG; iPrio++) {
    lg(iPrio, "message %d of %s", iPrio, "eight");
    EXPECT_EQ(logsink::TakeTexts(), Texts{std::to_string(iPrio) + " message " + std::to_string(iPrio) + " of eight"});
  }
}

TEST_F(LoggingTest, SeriousMessageReplacesTheErrorFile) {
  for (int iPrio = LOG_EMERG; iPrio <= LOG_DEBUG; iPrio++) {
    WriteTestFile(ERROR_FILE, OLD_CONTENT);
    lg(iPrio, "number %d", iPrio);
    EXPECT_EQ(ReadTestFile(ERROR_FILE), iPrio <= LOG_ERR ? "number " + std::to_string(iPrio) : OLD_CONTENT)
        << "priority " << iPrio;
  }
}

TEST_F(LoggingTest, ErrorFileIsMadeWhenMissing) {
  unlink(ERROR_FILE);
  lg(LOG_ERR, "first");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "first");
}

TEST_F(LoggingTest, ShutdownLeavesTheErrorFileAlone) {
  fAppTerminate = true;
  lg(LOG_ERR, "late");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), OLD_CONTENT);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 late"});
}

TEST_F(LoggingTest, SwitchLeavesTheErrorFileAlone) {
  g_fErrorFile = false;
  lg(LOG_ERR, "of a tool");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), OLD_CONTENT);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 of a tool"});
}

TEST_F(LoggingTest, ErrorFileThatCannotBeOpenedIsIgnored) {
  {
    const testtools::NoMoreDescriptors rLimit;
    lg(LOG_ERR, "no place for it");
    WriteErrCrec("nor for this");
  }
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 no place for it"});
  EXPECT_EQ(ReadTestFile(ERROR_FILE), OLD_CONTENT);
}

TEST_F(LoggingTest, WhatANeighbourLeftUnderTheNameOfTheErrorFileMakesWay) {
  WriteTestFile("/tmp/foreign", "foreign");
  unlink(ERROR_FILE);
  ASSERT_EQ(symlink("/tmp/foreign", ERROR_FILE), 0);
  lg(LOG_ERR, "behind a link");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "behind a link");
  EXPECT_EQ(ReadTestFile("/tmp/foreign"), "foreign");
  unlink(ERROR_FILE);
  ASSERT_EQ(mkfifo(ERROR_FILE, 0666), 0);
  WriteErrCrec("into a FIFO");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "into a FIFO");
}

TEST_F(LoggingTest, PercentOfOutsideTextIsNoFormat) {
  lg(LOG_ERR, "%s", "100%s %n");
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 100%s %n"});
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "100%s %n");
}

TEST_F(LoggingTest, DebugModePrintsInsteadOfSyslog) {
  const Packets rPackets;
  {
    const StdoutTo rRedirect(rPackets.hEnds[1]);
    g_DebugMode = 1;
    lg(LOG_NOTICE, "line %d", 1);
    lg(LOG_DEBUG, "%s", "");
  }
  EXPECT_EQ(rPackets.Take(), (Texts{"line 1\n", "\n"}));
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
  EXPECT_EQ(ReadTestFile(ERROR_FILE), OLD_CONTENT);
}

constexpr const char* HOSTILE =
    "[1] Remote: \x1b]0;x\a\n[1] Call stops\x7f\xc2\x9b"
    "31m\x9b M\xc3\xbcller";
constexpr const char* HARMLESS = "[1] Remote: ?]0;x??[1] Call stops???31m? M\xc3\xbcller";

TEST_F(LoggingTest, DebugModeSendsNoControlCharactersToATerminal) {
  const int hMaster = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(hMaster >= 0 && grantpt(hMaster) == 0 && unlockpt(hMaster) == 0);
  const int hTerminal = open(ptsname(hMaster), O_RDWR | O_NOCTTY);
  ASSERT_GE(hTerminal, 0);
  {
    const StdoutTo rRedirect(hTerminal);
    g_DebugMode = 1;
    lg(LOG_ERR, "%s", HOSTILE);
  }
  char acRead[200];
  const ssize_t iRead = read(hMaster, acRead, sizeof acRead);
  EXPECT_EQ(std::string(acRead, iRead < 0 ? 0 : static_cast<size_t>(iRead)), HARMLESS + std::string("\r\n"));
  EXPECT_EQ(ReadTestFile(ERROR_FILE), HOSTILE);
  close(hTerminal);
  close(hMaster);
}

TEST_F(LoggingTest, DebugModeWritesOneLineAMessageToAFile) {
  constexpr const char* LOG_FILE = "/tmp/debug.log";
  const int hFile = open(LOG_FILE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  {
    const StdoutTo rRedirect(hFile);
    g_DebugMode = 1;
    lg(LOG_NOTICE, "%s", HOSTILE);
    lg(LOG_NOTICE, "with its own end of line\n");
    lg(LOG_NOTICE, "\n");
    lg(LOG_NOTICE, "%s", "");
    lg(LOG_NOTICE, "next");
  }
  close(hFile);
  EXPECT_EQ(ReadTestFile(LOG_FILE), HARMLESS + std::string("\nwith its own end of line\n\n\nnext\n"));
}

TEST_F(LoggingTest, ToolThatShowsDisplaysKeepsTheirLinesInAFile) {
  g_fErrorFile = false;
  testing::internal::CaptureStdout();
  g_DebugMode = 1;
  lg(LOG_NOTICE, "Message change:%s", "12:31\nSMITH");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Message change:12:31\nSMITH\n");
}

TEST_F(LoggingTest, DebugModeLeavesTheTextAloneInAPipeAndSoDoesSyslog) {
  lg(LOG_NOTICE, "%s", HOSTILE);
  EXPECT_EQ(logsink::TakeTexts(), Texts{std::string("5 ") + HOSTILE});
  int hEnds[2];
  ASSERT_EQ(pipe2(hEnds, O_NONBLOCK), 0);
  char acRead[200];
  ssize_t iRead = -1;
  {
    const StdoutTo rRedirect(hEnds[1]);
    g_DebugMode = 1;
    lg(LOG_NOTICE, "%s", HOSTILE);
    iRead = read(hEnds[0], acRead, sizeof acRead);
  }
  EXPECT_EQ(std::string(acRead, iRead < 0 ? 0 : static_cast<size_t>(iRead)), HOSTILE + std::string("\n"));
  close(hEnds[0]);
  close(hEnds[1]);
}

TEST_F(LoggingTest, DebugModeKeepsTheErrorFileToo) {
  const Packets rPackets;
  {
    const StdoutTo rRedirect(rPackets.hEnds[1]);
    g_DebugMode = 1;
    lg(LOG_ERR, "error %d in %s", 5, "debug");
    fAppTerminate = true;
    lg(LOG_ERR, "late");
  }
  EXPECT_EQ(rPackets.Take(), (Texts{"error 5 in debug\n", "late\n"}));
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "error 5 in debug");
}

TEST_F(LoggingTest, DebugMessageReachesAPipeAtOnce) {
  int hEnds[2];
  ASSERT_EQ(pipe2(hEnds, O_NONBLOCK), 0);
  char acRead[100];
  ssize_t iRead = -1;
  {
    const StdoutTo rRedirect(hEnds[1]);
    g_DebugMode = 1;
    lg(LOG_NOTICE, "now");
    iRead = read(hEnds[0], acRead, sizeof acRead);  // nothing but lg has had the chance to flush
  }
  ASSERT_EQ(iRead, 4);
  EXPECT_EQ(std::string(acRead, 4), "now\n");
  close(hEnds[0]);
  close(hEnds[1]);
}

TEST_F(LoggingTest, MessageOfAnyLengthIsWholeAndOneWrite) {
  for (const size_t iLength : {1022U, 1023U, 1024U, 1025U, 5000U}) {
    const std::string strText(iLength, 'x');
    lg(LOG_ERR, "<%s>%d", strText.c_str(), 7);
    EXPECT_EQ(logsink::TakeTexts(), Texts{"3 <" + strText + ">7"}) << iLength;
    EXPECT_EQ(ReadTestFile(ERROR_FILE), "<" + strText + ">7") << iLength;

    const Packets rPackets;
    {
      const StdoutTo rRedirect(rPackets.hEnds[1]);
      g_DebugMode = 1;
      lg(LOG_ERR, "%s", strText.c_str());
      g_DebugMode = 0;
    }
    EXPECT_EQ(rPackets.Take(), Texts{strText + "\n"}) << iLength;
    EXPECT_EQ(ReadTestFile(ERROR_FILE), strText) << iLength;
  }
}

TEST_F(LoggingTest, StandardOutputThatIsClosedIsIgnored) {
  const Packets rPackets;
  {
    const StdoutTo rRedirect(rPackets.hEnds[1]);
    close(STDOUT_FILENO);
    g_DebugMode = 1;
    lg(LOG_ERR, "nobody reads");
  }
  EXPECT_EQ(rPackets.Take(), Texts{});
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "nobody reads");
}

TEST_F(LoggingTest, MessagesOfThreadsDoNotMix) {
  constexpr int THREADS = 4;
  constexpr int MESSAGES = 300;
  int hEnds[2];
  ASSERT_EQ(pipe(hEnds), 0);
  std::string strOutput;
  std::thread rReader([&] {
    char acRead[4096];
    for (ssize_t iRead; (iRead = read(hEnds[0], acRead, sizeof acRead)) > 0;) {
      strOutput.append(acRead, static_cast<size_t>(iRead));
    }
  });
  {
    const StdoutTo rRedirect(hEnds[1]);
    close(hEnds[1]);
    g_DebugMode = 1;
    std::vector<std::thread> rWriters;
    for (int iThread = 0; iThread < THREADS; iThread++) {
      rWriters.emplace_back([iThread] {
        const std::string strFill(1500, static_cast<char>('a' + iThread));
        for (int i = 0; i < MESSAGES; i++) lg(LOG_NOTICE, "%d %d %s", iThread, i, strFill.c_str());
      });
    }
    for (std::thread& rWriter : rWriters) rWriter.join();
  }
  rReader.join();
  close(hEnds[0]);

  std::set<std::string> rExpected, rSeen;
  for (int iThread = 0; iThread < THREADS; iThread++) {
    for (int i = 0; i < MESSAGES; i++) {
      rExpected.insert(std::to_string(iThread) + " " + std::to_string(i) + " " +
                       std::string(1500, static_cast<char>('a' + iThread)));
    }
  }
  std::istringstream rLines(strOutput);
  for (std::string strLine; std::getline(rLines, strLine);) rSeen.insert(strLine);
  EXPECT_TRUE(rSeen == rExpected) << rSeen.size() << " different lines";
}

// The first thread stays behind the emptying of the file until the second has emptied it too, or sleeps before it.
TEST_F(LoggingTest, TextsOfTwoThreadsDoNotMixInTheErrorFile) {
  std::atomic<pid_t> iSecond{0};
  std::atomic<int> iInside{0};
  std::thread rSecond;
  rOnTruncate = [&] {
    if (++iInside > 1) return;
    rSecond = std::thread([&] {
      iSecond = gettid();
      lg(LOG_ERR, "second");
    });
    EXPECT_TRUE(testtools::Await([&] {
      if (iInside > 1) return true;
      std::ifstream rStat("/proc/self/task/" + std::to_string(iSecond) + "/stat");
      std::string strNumber, strName, strState;
      rStat >> strNumber >> strName >> strState;
      return strState == "S";
    }));
    EXPECT_EQ(iInside, 1) << "both threads write the file";
  };
  lg(LOG_ERR, "the first");
  rSecond.join();
  rOnTruncate = nullptr;
  EXPECT_EQ(iInside, 2);
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "second");
}

// What goes out of a flood, and what of it is counted; the two make up the whole.
struct Flood {
  long iTold = 0;
  long iCounted = 0;
  std::string strLastCounted;
};

Flood TakeFlood(const std::string& strMessage, int iPrio = LOG_ERR) {
  const std::string strBegin = std::to_string(iPrio) + " " + strMessage;
  Flood rFlood;
  for (const std::string& strLine : logsink::TakeTexts()) {
    const std::string strLeftOut = " messages like this one left out: ";
    const std::size_t iPos = strLine.find(strLeftOut);
    if (iPos != std::string::npos) {
      EXPECT_EQ(strLine.substr(0, 2), "4 ");
      rFlood.iCounted += strtol(strLine.c_str() + 2, nullptr, 10);
      rFlood.strLastCounted = strLine.substr(iPos + strLeftOut.size());
    } else if (strLine.rfind(strBegin, 0) == 0) {
      rFlood.iTold++;
    }
  }
  return rFlood;
}

// The flood has just come: "<message>1" to "<message>20000".
constexpr int FLOOD_MESSAGES = 20'000;
void ExpectLimitedAndCounted(const std::string& strMessage, int iPrio) {
  LogLeftOut();
  const Flood rFlood = TakeFlood(strMessage, iPrio);
  EXPECT_GE(rFlood.iTold, 100);
  EXPECT_LT(rFlood.iTold, FLOOD_MESSAGES / 2);
  EXPECT_EQ(rFlood.iTold + rFlood.iCounted, FLOOD_MESSAGES);
  EXPECT_EQ(rFlood.strLastCounted, strMessage + std::to_string(FLOOD_MESSAGES));
}

TEST_F(LoggingTest, FloodOfErrorsIsLimitedAndCounted) {
  for (int i = 1; i <= FLOOD_MESSAGES; i++) lg(LOG_ERR, "no space for block %d", i);
  ExpectLimitedAndCounted("no space for block ", LOG_ERR);
  LogLeftOut();
  EXPECT_EQ(logsink::TakeTexts(), Texts{}) << "told once";
}

TEST_F(LoggingTest, ErrorFileHasTheLastOfAFloodThatWasTold) {
  for (int i = 1; i <= 20'000; i++) lg(LOG_ERR, "no space left for block %d", i);
  std::string strLastTold;
  for (const std::string& strLine : logsink::TakeTexts()) {
    if (strLine.rfind("3 ", 0) == 0) strLastTold = strLine.substr(2);
  }
  EXPECT_EQ(ReadTestFile(ERROR_FILE), strLastTold);
  EXPECT_NE(strLastTold, "no space left for block 20000");
  LogLeftOut();
  EXPECT_EQ(ReadTestFile(ERROR_FILE), strLastTold) << "what was held back stays out";
}

TEST_F(LoggingTest, FloodHindersNoOtherMessage) {
  for (int i = 0; i < 1000; i++) {
    errno = ENOSPC;
    LogCapiError("write");
    lg(LOG_WARNING, "too much");
    lg(LOG_NOTICE, "and a notice");
  }
  lg(LOG_WARNING, "a warning");
  errno = EIO;
  LogCapiError("another place");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "C-api error at another place: Input/output error");
  LogLeftOut();
  int iOthers = 0;
  for (const std::string& strLine : logsink::TakeTexts()) {
    if (strLine == "4 a warning" || strLine == "5 and a notice") iOthers++;
  }
  EXPECT_EQ(iOthers, 1001);
}

TEST_F(LoggingTest, FloodOfWarningsIsLimitedAndCounted) {
  for (int i = 1; i <= FLOOD_MESSAGES; i++) lg(LOG_WARNING, "no side for block %d", i);
  ExpectLimitedAndCounted("no side for block ", LOG_WARNING);
  EXPECT_EQ(ReadTestFile(ERROR_FILE), OLD_CONTENT);
}

TEST_F(LoggingTest, FloodOfEventsThatAnyoneCausesIsLimitedAndCounted) {
  for (int i = 1; i <= FLOOD_MESSAGES; i++) lgOften("%s order %d", "another", i);
  ExpectLimitedAndCounted("another order ", LOG_NOTICE);
  EXPECT_EQ(ReadTestFile(ERROR_FILE), OLD_CONTENT);
}

TEST_F(LoggingTest, ManyKindsOfWarningsHinderNoError) {
  const pid_t iChild = fork();  // what it leaves in the limits would reach other tests
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    for (int i = 0; i < 100'000; i++) {
      const std::string strName = {static_cast<char>('a' + i % 26), static_cast<char>('a' + i / 26 % 26),
                                   static_cast<char>('a' + i / 676 % 26)};
      lg(LOG_WARNING, "released by %s", strName.c_str());
    }
    (void)logsink::TakeTexts();
    for (int i = 0; i < 100; i++) lg(LOG_ERR, "no room for piece %d", i);
    _exit(TakeFlood("no room for piece ").iTold == 100 ? 0 : 1);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
}

TEST_F(LoggingTest, CapiErrorTellsErrno) {
  errno = ENOENT;
  LogCapiError("open");
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 C-api error at open: No such file or directory"});
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "C-api error at open: No such file or directory");
}

TEST_F(LoggingTest, WriteErrCrecReplacesTheFileAndLogsNothing) {
  WriteErrCrec("plain %s %d");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "plain %s %d");
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
  WriteErrCrec("");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "");
}

TEST_F(LoggingTest, NameOfACrashStaysInTheFileWhateverIsLoggedBehindIt) {
  g_fCrashed = true;
  WriteErrCrec("Signal SIGSEGV");
  lg(LOG_ERR, "of another thread");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "Signal SIGSEGV");
  g_fCrashed = false;
}

TEST_F(LoggingTest, WriteErrCrecWorksDuringShutdown) {
  fAppTerminate = true;
  WriteErrCrec("fatal");
  EXPECT_EQ(ReadTestFile(ERROR_FILE), "fatal");
}

}  // namespace
