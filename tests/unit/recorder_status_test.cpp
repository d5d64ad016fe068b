// Tests of the line status: the summary file with each of its failures, health, availability, the state file of a line.
#include <dirent.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>

#include "RecorderBench.h"
#include "TestFiles.h"
#include "TestTools.h"
#include "bgact.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* STATUS = "/var/morvex/data/linestatus.dat";
constexpr const char* STATUS_NEW = "/var/morvex/data/linestatus.dat.new";

// A line whose state file is a matter of the test.
class StateChannel : public OpenChannel<BaseChannel> {
 public:
  int WriteChState() override {
    iWritten++;
    return iResult;
  }
  int iResult = 0;
  int iWritten = 0;
};

// No file can grow beyond this, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(rlim_t iBytes) {
    (void)signal(SIGXFSZ, SIG_IGN);
    (void)getrlimit(RLIMIT_FSIZE, &rBefore);
    rlimit rLimit = rBefore;
    rLimit.rlim_cur = iBytes;
    (void)setrlimit(RLIMIT_FSIZE, &rLimit);
  }
  ~FullDisk() {
    (void)setrlimit(RLIMIT_FSIZE, &rBefore);
    (void)signal(SIGXFSZ, SIG_DFL);
  }

 private:
  rlimit rBefore{};
};

int OpenFiles() {
  int iCount = 0;
  DIR* prDir = opendir("/proc/self/fd");
  while (prDir && readdir(prDir)) iCount++;
  if (prDir) (void)closedir(prDir);
  return iCount;
}

class RecorderStatusTest : public RecorderBench {
 protected:
  void SetUp() override {
    rRecorder.fInitializing = false;
    rBoot.vrBoardList = {Present("ATP-8", "A", 8, 0), Present("DTP-30", "P", 60, 1), Away("SynGONE", 8)};
    ASSERT_EQ(prBgActHandler, nullptr);  // an action runs at once
  }
  void TearDown() override {
    (void)remove(STATUS);
    (void)remove(STATUS_NEW);
  }
};

// -- summary file -----------------------------------------------------------------------------------------------------

TEST_F(RecorderStatusTest, OneLineForEachChannelWithALineNumber) {
  AddChannel(1);
  AddChannel(-1).eLineHealth = LINEHEALTH_ERROR;
  AddChannel(12).eLineHealth = LINEHEALTH_OFFLINE;
  AddChannel(3).eLineHealth = LINEHEALTH_ERROR;
  rRecorder.WriteLineStatus();
  EXPECT_EQ(ReadTestFile(STATUS), "Line_1: ok\nLine_12: offline\nLine_3: error\n");
  EXPECT_FALSE(file_exists(STATUS_NEW));
}

TEST_F(RecorderStatusTest, NoChannelsGiveAnEmptyFile) {
  WriteTestFile(STATUS, "old\n");
  rRecorder.WriteLineStatus();
  EXPECT_EQ(ReadTestFile(STATUS), "");
}

TEST_F(RecorderStatusTest, FileThatCannotBeOpenedLeavesTheOldOne) {
  AddChannel(1);
  WriteTestFile(STATUS, "old\n");
  {
    const testtools::NoMoreDescriptors rLimit;
    rRecorder.WriteLineStatus();
  }
  EXPECT_EQ(ReadTestFile(STATUS), "old\n");
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(RecorderStatusTest, ShortWriteLeavesTheOldFileAndOneOpenFileUntilTheNext) {
  for (int i = 1; i <= 1000; i++) AddChannel(i);  // more than stdio holds back
  WriteTestFile(STATUS, "old\n");
  const int iOpenBefore = OpenFiles();
  {
    const FullDisk rFullDisk(100);
    rRecorder.WriteLineStatus();
    EXPECT_EQ(OpenFiles(), iOpenBefore + 1);
    rRecorder.WriteLineStatus();
    EXPECT_EQ(OpenFiles(), iOpenBefore + 1);
  }
  EXPECT_EQ(ReadTestFile(STATUS), "old\n");
  EXPECT_TRUE(file_exists(STATUS_NEW));
  rRecorder.WriteLineStatus();
  EXPECT_EQ(OpenFiles(), iOpenBefore);
  std::string strAll;
  for (int i = 1; i <= 1000; i++) strAll += "Line_" + std::to_string(i) + ": ok\n";
  EXPECT_EQ(ReadTestFile(STATUS), strAll);
  EXPECT_FALSE(file_exists(STATUS_NEW));
}

TEST_F(RecorderStatusTest, FailedCloseLeavesTheOldFile) {
  for (int i = 1; i <= 20; i++) AddChannel(i);  // all of it is held back until the close
  WriteTestFile(STATUS, "old\n");
  const int iOpenBefore = OpenFiles();
  {
    const FullDisk rFullDisk(100);
    rRecorder.WriteLineStatus();
  }
  EXPECT_EQ(ReadTestFile(STATUS), "old\n");
  EXPECT_TRUE(file_exists(STATUS_NEW));
  EXPECT_EQ(OpenFiles(), iOpenBefore);
}

TEST_F(RecorderStatusTest, FailedRenameIsPassedInSilence) {
  AddChannel(1);
  WriteTestFile(STATUS, "old\n");
  ASSERT_EQ(mount(STATUS, STATUS, nullptr, MS_BIND, nullptr), 0);  // such a name is not replaced
  rRecorder.WriteLineStatus();
  EXPECT_EQ(ReadTestFile(STATUS), "old\n");
  EXPECT_EQ(ReadTestFile(STATUS_NEW), "Line_1: ok\n");
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
  ASSERT_EQ(umount(STATUS), 0);
}

TEST_F(RecorderStatusTest, WhatANeighbourLeftUnderItsNamesMakesWay) {
  AddChannel(1);
  WriteTestFile("/tmp/foreign", "foreign");
  ASSERT_EQ(symlink("/tmp/foreign", STATUS_NEW), 0);
  ASSERT_EQ(mkdir(STATUS, 0777), 0);
  rRecorder.WriteLineStatus();
  EXPECT_EQ(ReadTestFile(STATUS), "Line_1: ok\n");
  EXPECT_EQ(mkfifo(STATUS_NEW, 0666), 0);
  rRecorder.WriteLineStatus();
  EXPECT_FALSE(file_exists(STATUS_NEW));
  EXPECT_EQ(ReadTestFile("/tmp/foreign"), "foreign");
}

// -- health -----------------------------------------------------------------------------------------------------------

TEST_F(RecorderStatusTest, RecheckAsksTheService) {
  rRecorder.RecheckHealth();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 signal => sysinfo"));
}

TEST_F(RecorderStatusTest, WorkersAskTheServiceWhereThereAreSome) {
  MainQueue rQueue;
  MainQueue* const prBefore = g_prBoot;
  g_prBoot = &rQueue;
  init_bgact();
  rRecorder.RecheckHealth();
  EXPECT_TRUE(testtools::Await([] { return isBgQueueReady(); }));
  EXPECT_TRUE(rQueue.RunOneAction());  // a worker is through with it
  EXPECT_FALSE(rQueue.RunOneAction());
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(astrLines.size(), 2U);
  EXPECT_TRUE(astrLines[0] == "7 Bg Act 0\n" || astrLines[0] == "7 Bg Act 1\n") << astrLines[0];
  EXPECT_EQ(astrLines[1], "5 signal => sysinfo");
  close_bgact();
  prBgActHandler = nullptr;
  g_prBoot = prBefore;
}

TEST_F(RecorderStatusTest, OnlyBadHealthOfACheckedLineRaisesTheAlarm) {
  struct Row {
    const char* acLabel;
    ELineHealth eHealth;
    const char* acCheck;
    const char* acFile;
    bool fAlarm;
  };
  const Row rRows[] = {
      {"offline, checked", LINEHEALTH_OFFLINE, "0,1", "Line_7: offline\n", true},
      {"error, checked", LINEHEALTH_ERROR, "0,1", "Line_7: error\n", true},
      {"recovered", LINEHEALTH_OK, "0,1", "Line_7: ok\n", false},
      {"not checked", LINEHEALTH_OFFLINE, "1,0", "Line_7: offline\n", false},
  };
  OpenChannel<BaseChannel>& rChannel = AddChannel(7);
  rChannel.iBoardListIx = 0;
  rChannel.iBoardCh = 1;
  for (const Row& rRow : rRows) {
    rChannel.eLineHealth = rRow.eHealth;
    prDb->rParts["crec"]["SynA_CheckLineStatus"] = rRow.acCheck;
    rChannel.fCheckLineStatus = !rRow.fAlarm;  // stale: the database counts
    rRecorder.NewLineHealth(0);
    EXPECT_EQ(ReadTestFile(STATUS), rRow.acFile) << rRow.acLabel;
    EXPECT_EQ(logsink::TakeTexts(), rRow.fAlarm ? Texts{"5 signal => sysinfo"} : Texts{}) << rRow.acLabel;
  }
}

TEST_F(RecorderStatusTest, WhileChannelsAreMadeHealthChangesDoNothing) {
  OpenChannel<BaseChannel>& rChannel = AddChannel(7);
  rChannel.iBoardListIx = 0;
  rChannel.eLineHealth = LINEHEALTH_OFFLINE;
  prDb->rParts["crec"]["SynA_CheckLineStatus"] = "1";
  rRecorder.fInitializing = true;
  rRecorder.NewLineHealth(0);
  EXPECT_FALSE(file_exists(STATUS));
  EXPECT_FALSE(rChannel.fCheckLineStatus);
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(RecorderStatusTest, HealthOfAChannelOutsideTheTableIsDropped) {
  AddChannel(7);
  for (const int iChIx : {-1, 1, 1000, INT_MIN, INT_MAX}) rRecorder.NewLineHealth(iChIx);
  EXPECT_FALSE(file_exists(STATUS));
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

// -- availability of trunks -------------------------------------------------------------------------------------------

TEST_F(RecorderStatusTest, FirstChannelOfATrunkCardSpeaksForTheCard) {
  rRecorder.NotifyChAvail(1, 0, true);
  rRecorder.NotifyChAvail(1, 0, false);
  EXPECT_THAT(prDb->TakeCalls(), ElementsAre("SetConfig crec_line SynP_Line=1", "SetConfig crec_line SynP_Line=0"));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("4 PRI-line of card SynP is available", "4 PRI-line of card SynP is unavailable"));
}

TEST_F(RecorderStatusTest, OtherReportsOfAvailabilityAreIgnored) {
  struct Row {
    const char* acLabel;
    int iBoardListIx, iBoardCh;
  };
  const Row rRows[] = {
      {"second channel", 1, 1}, {"last channel", 1, 59}, {"no channel", 1, -1},       {"analogue card", 0, 0},
      {"absent card", 2, 0},    {"no board", -1, 0},     {"behind the boards", 3, 0},
  };
  for (const Row& rRow : rRows) {
    rRecorder.NotifyChAvail(rRow.iBoardListIx, rRow.iBoardCh, true);
    EXPECT_THAT(prDb->TakeCalls(), IsEmpty()) << rRow.acLabel;
    EXPECT_THAT(logsink::TakeTexts(), IsEmpty()) << rRow.acLabel;
  }
}

// -- state file of a line ---------------------------------------------------------------------------------------------

TEST_F(RecorderStatusTest, StateOfALine) {
  auto* prChannel = new StateChannel;  // owned by the recorder
  AddChannel(1);
  rRecorder.vChannels.push_back(prChannel);
  rBoot.rWebToDrvChMap = {{0, 0}, {4, 1}, {5, 2}, {6, -1}};
  EXPECT_EQ(rRecorder.ChState(5), 0);
  EXPECT_EQ(prChannel->iWritten, 1);
  prChannel->iResult = 1;
  EXPECT_EQ(rRecorder.ChState(5), 3);
  EXPECT_EQ(rRecorder.ChState(1), 3);  // a plain channel has no state file
  EXPECT_EQ(rRecorder.ChState(6), 2);  // behind the table
  EXPECT_EQ(rRecorder.ChState(7), 2);
  for (const int iChNr : {0, 2, 8, -1, INT_MIN, INT_MAX}) EXPECT_EQ(rRecorder.ChState(iChNr), 1) << iChNr;
  EXPECT_EQ(rBoot.rWebToDrvChMap.size(), 4U);
}

}  // namespace
