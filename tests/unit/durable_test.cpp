#include "durable.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "DiskSteps.h"
#include "TestFiles.h"

namespace {

namespace fs = std::filesystem;

class DurableTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all("/recordings/2024");
    fs::create_directories("/recordings/2024/01");
    WriteTestFile(FILE_NAME, "audio");
    (void)disksteps::Take();
  }
  void TearDown() override { disksteps::Refuse = nullptr; }

  const std::string FILE_NAME = "/recordings/2024/01/call.wav";
};

TEST_F(DurableTest, FileComesFirstThenEachNameUpToTheRoot) {
  EXPECT_TRUE(SyncFile(FILE_NAME));
  EXPECT_EQ(disksteps::Take(), Texts({"fsync /recordings/2024/01/call.wav", "fsync /recordings/2024/01",
                                      "fsync /recordings/2024", "fsync /recordings"}));
  EXPECT_TRUE(SyncNames(FILE_NAME));
  EXPECT_EQ(disksteps::Take(), Texts({"fsync /recordings/2024/01", "fsync /recordings/2024", "fsync /recordings"}));
}

TEST_F(DurableTest, RelativeNameIsInTheWorkingDirectory) {
  ASSERT_EQ(chdir("/recordings/2024"), 0);
  WriteTestFile("file", "text");
  EXPECT_TRUE(SyncFile("file"));
  EXPECT_EQ(disksteps::Take(), Texts({"fsync /recordings/2024/file", "fsync /recordings/2024"}));
  EXPECT_TRUE(SyncFile("01/call.wav"));
  EXPECT_EQ(disksteps::Take(), Texts({"fsync /recordings/2024/01/call.wav", "fsync /recordings/2024/01"}));
}

TEST_F(DurableTest, EachRefusedStepFails) {
  for (const char* acStep : {"fsync /recordings/2024/01/call.wav", "fsync /recordings/2024/01", "fsync /recordings"}) {
    disksteps::Refuse = [acStep](const std::string& strStep) { return strStep == acStep ? ENOSPC : 0; };
    EXPECT_FALSE(SyncFile(FILE_NAME)) << acStep;
    EXPECT_EQ(errno, ENOSPC) << acStep;
  }
}

TEST_F(DurableTest, InterruptedStepIsTriedAgain) {
  int iAsked = 0;
  disksteps::Refuse = [&iAsked](const std::string& strStep) {
    return strStep == "fsync /recordings/2024/01/call.wav" && iAsked++ < 4 ? EINTR : 0;
  };
  EXPECT_TRUE(SyncFile(FILE_NAME));
  EXPECT_EQ(disksteps::Take()[0], "fsync /recordings/2024/01/call.wav");
}

TEST_F(DurableTest, FileSystemWithoutSyncCounts) {
  disksteps::Refuse = [](const std::string& /*strStep*/) { return EINVAL; };
  EXPECT_TRUE(SyncFile(FILE_NAME));
}

TEST_F(DurableTest, WhatIsNoPlainFileFails) {
  EXPECT_FALSE(SyncFile("/recordings/2024/01/missing"));
  EXPECT_EQ(errno, ENOENT);
  fs::create_symlink(FILE_NAME, "/recordings/2024/link");
  EXPECT_FALSE(SyncFile("/recordings/2024/link"));
  EXPECT_EQ(disksteps::Take(), Texts());
}

}  // namespace
