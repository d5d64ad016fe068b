#include "recorder_cluster.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "LogSink.h"
#include "TestFiles.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* SERIAL_FILE = "/var/morvex/conf/serial";

class ClusterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    (void)logsink::Take();
    g_fClustering = false;
    g_cfgPrefix.clear();
  }
  void TearDown() override {
    SetUp();
    (void)remove(SERIAL_FILE);
    (void)remove(CLUSTER_FILE);
  }
};

TEST_F(ClusterTest, WithoutTheFileThePrefixIsEmpty) {
  WriteTestFile(SERIAL_FILE, "AB12\n");
  g_fClustering = true;
  InitCluster();
  EXPECT_FALSE(g_fClustering);
  EXPECT_EQ(g_cfgPrefix, "");
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(ClusterTest, WithTheFileThePrefixIsSerialAndDash) {
  WriteTestFile(CLUSTER_FILE, "");
  WriteTestFile(SERIAL_FILE, " AB12 \r\n");
  InitCluster();
  EXPECT_TRUE(g_fClustering);
  EXPECT_EQ(g_cfgPrefix, "AB12-");
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Clustering is ON"));
}

TEST_F(ClusterTest, MissingSerialGivesDashAlone) {
  WriteTestFile(CLUSTER_FILE, "");
  InitCluster();
  EXPECT_EQ(g_cfgPrefix, "-");
}

TEST_F(ClusterTest, EmptySerialGivesDashAlone) {
  WriteTestFile(CLUSTER_FILE, "");
  WriteTestFile(SERIAL_FILE, "");
  InitCluster();
  EXPECT_EQ(g_cfgPrefix, "-");
}

TEST_F(ClusterTest, KnownSerialCountsOnlyInACluster) {
  g_cfgPrefix = "old-";
  OnKnowSN("X1");
  EXPECT_EQ(g_cfgPrefix, "");
  g_fClustering = true;
  OnKnowSN("X1");
  EXPECT_EQ(g_cfgPrefix, "X1-");
}

}  // namespace
