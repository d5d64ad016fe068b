#include "ctl_signs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "SmallDisk.h"
#include "TestFiles.h"

namespace {

constexpr double NONE = -1;
constexpr double SLOW_MACHINE_S = 60;
constexpr const char* SOCKET_PATH = "/tmp/ctl_signs_test";

void WriteAged(const std::string& strPath, const std::string& strText, time_t rAge) {
  WriteTestFile(strPath, strText);
  const timespec rTimes[] = {{time(nullptr) - rAge, 0}, {time(nullptr) - rAge, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, strPath.c_str(), rTimes, 0), 0);
}

// A folder of its own with the files of each test.
class CtlSignsTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(strFolder);
    rSources.strLoopFile = strFolder + "/crec_loop";
    rSources.strTraceFolder = strFolder;
    rSources.strEventFile = strFolder + "/crec_event";
    rSources.strErrorFile = strFolder + "/err_crec.dat";
    rSources.strRecordings = strFolder + "/recordings";
  }
  void TearDown() override { std::filesystem::remove_all(strFolder); }

  const std::string strFolder = "/tmp/signs";
  SignSources rSources;
};

// Listens under a name, which it takes from whoever has it.
class Listener {
 public:
  Listener() : hSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(SOCKET_PATH);
    sockaddr_un rAddress = {};
    rAddress.sun_family = AF_UNIX;
    strcpy(rAddress.sun_path, SOCKET_PATH);
    EXPECT_EQ(bind(hSocket, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress), 0);
    EXPECT_EQ(listen(hSocket, 1), 0);
  }
  ~Listener() { close(hSocket); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

 private:
  const int hSocket;
};

std::optional<double> AgeOrNone(double fAge) {
  return fAge == NONE ? std::nullopt : std::optional<double>(fAge);
}

TEST_F(CtlSignsTest, LoopIsJudgedByItsReportAndTheTraceFiles) {
  const struct {
    const char* acLabel;
    double fReportAge, fTraceAge;
    ELoopSign eLoop;
  } rRows[] = {
      {"a loop that takes the events itself", NONE, NONE, LOOP_UNKNOWN},
      {"and a trace, of whenever", NONE, 1, LOOP_UNKNOWN},
      {"a report in time", 1.2, NONE, LOOP_TURNS},
      {"and a trace before", 1.2, 100, LOOP_TURNS},
      {"a clock that was set back makes the trace the newer", 0.5, 0, LOOP_TURNS},
      {"a late report", 3, NONE, LOOP_TURNS},
      {"and a trace before", 3, 100, LOOP_TURNS},
      {"a trace that has begun after it", 1.5, 1.4, LOOP_TRACES},
      {"a trace that has run for long", 1000, 0.1, LOOP_TRACES},
      {"a loop that stands", 3.1, NONE, LOOP_SILENT},
      {"and a trace before", 3.1, 100, LOOP_SILENT},
  };
  for (const auto& rRow : rRows) {
    std::optional<LoopReport> rLoop;
    if (rRow.fReportAge != NONE) rLoop = LoopReport{{}, rRow.fReportAge};
    EXPECT_EQ(JudgeLoop(rLoop, AgeOrNone(rRow.fTraceAge)), rRow.eLoop) << rRow.acLabel;
  }
}

TEST_F(CtlSignsTest, EachSignComesFromItsFile) {
  WriteAged(rSources.strLoopFile, "loop_behind_seconds 0.5\n", 100);
  WriteAged(rSources.strEventFile, "", 200);
  WriteAged(rSources.strErrorFile, "Error connecting to socket", 300);
  const Signs rSigns = ReadSigns(rSources);
  EXPECT_EQ(rSigns.eLoop, LOOP_SILENT);
  EXPECT_EQ(rSigns.rLoop.value().rValues.at("loop_behind_seconds"), "0.5");
  EXPECT_GE(rSigns.fEventAge.value(), 200);
  EXPECT_LT(rSigns.fEventAge.value(), 200 + SLOW_MACHINE_S);
  EXPECT_EQ(rSigns.rError.value().strText, "Error connecting to socket");
  EXPECT_GE(rSigns.rError.value().fAgeSeconds, 300);
  EXPECT_LT(rSigns.rError.value().fAgeSeconds, 300 + SLOW_MACHINE_S);
}

TEST_F(CtlSignsTest, AnyTraceFileThatIsNewerIsATrace) {
  for (const char* acName : {"trace.wav", "trace.bit", "dch.log", "dmsg.log"}) {
    WriteAged(rSources.strLoopFile, "loop_behind_seconds 0\n", 100);
    WriteAged(strFolder + "/" + acName, "", 50);
    EXPECT_EQ(ReadSigns(rSources).eLoop, LOOP_TRACES) << acName;
    std::filesystem::remove(strFolder + "/" + acName);
    EXPECT_EQ(ReadSigns(rSources).eLoop, LOOP_SILENT) << acName;
  }
}

TEST_F(CtlSignsTest, RoomIsThatOfTheRecordings) {
  std::filesystem::create_directories(rSources.strRecordings);
  const SmallDisk rDisk(rSources.strRecordings);
  WriteTestFile(rSources.strRecordings + "/call.wav", std::string(65536, 'x'));
  const std::optional<DiskSpace> rSpace = ReadSigns(rSources).rDisk;
  ASSERT_TRUE(rSpace);
  EXPECT_DOUBLE_EQ(rSpace->fFreePercent, 75);
  EXPECT_EQ(rSpace->iFreeBytes, 196608U);
  rDisk.Fill();
  EXPECT_EQ(ReadSigns(rSources).rDisk.value().fFreePercent, 0);
}

TEST_F(CtlSignsTest, WhatIsNotThereIsNotKnown) {
  const Signs rSigns = ReadSigns(rSources);
  EXPECT_EQ(rSigns.eLoop, LOOP_UNKNOWN);
  EXPECT_FALSE(rSigns.rLoop);
  EXPECT_FALSE(rSigns.fEventAge);
  EXPECT_FALSE(rSigns.rError);
  EXPECT_FALSE(rSigns.rDisk);
  WriteTestFile(rSources.strErrorFile, "");
  EXPECT_FALSE(ReadSigns(rSources).rError) << "no error so far";
}

// In their folder anybody may do so.
TEST_F(CtlSignsTest, LinksAndFifosInPlaceOfTheFilesHoldNobodyUp) {
  WriteTestFile(strFolder + "/target", "loop_behind_seconds 0\n");
  for (const std::string& strFile : {rSources.strLoopFile, rSources.strEventFile, rSources.strErrorFile}) {
    std::filesystem::create_symlink(strFolder + "/target", strFile);
  }
  for (const char* acKind : {"links", "FIFOs"}) {
    const Signs rSigns = ReadSigns(rSources);
    EXPECT_FALSE(rSigns.rLoop) << acKind;
    EXPECT_FALSE(rSigns.fEventAge) << acKind;
    EXPECT_FALSE(rSigns.rError) << acKind;
    for (const std::string& strFile : {rSources.strLoopFile, rSources.strEventFile, rSources.strErrorFile}) {
      std::filesystem::remove(strFile);
      ASSERT_EQ(mkfifo(strFile.c_str(), 0666), 0);
    }
  }
}

TEST_F(CtlSignsTest, DescriptorLimitIsThatOfTheProcessThatListens) {
  rlimit rOld = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &rOld), 0);
  const rlimit rNew = {177, rOld.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &rNew), 0);
  {
    const Listener rListener;
    EXPECT_EQ(ReadDescriptorLimit(SOCKET_PATH).value_or(0), 177U);
    const pid_t iOther = fork();  // holds it, too
    if (iOther == 0) {
      (void)pause();
      _exit(0);
    }
    EXPECT_FALSE(ReadDescriptorLimit(SOCKET_PATH)) << "which of the two?";
    kill(iOther, SIGKILL);
    EXPECT_EQ(waitpid(iOther, nullptr, 0), iOther);
    EXPECT_EQ(ReadDescriptorLimit(SOCKET_PATH).value_or(0), 177U);
  }
  EXPECT_FALSE(ReadDescriptorLimit(SOCKET_PATH)) << "nobody";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &rOld), 0);
  unlink(SOCKET_PATH);
}

}  // namespace
