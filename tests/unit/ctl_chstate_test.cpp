#include "ctl_chstate.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "TestFiles.h"

namespace {

constexpr const char* STATE_PATH = "/tmp/chstate_4.dat";

TEST(CtlChState, FileOfALineAsTextAndAsJson) {
  const struct {
    const char* acLabel;
    const char* acFile;
    const char* acText;
    const char* acJson;
  } rRows[] = {
      {"an analogue line in a call", "Voltage: 8\r\nAudioLevel: 31\r\n", "Line 4: voltage 8 V, audio level 31 dB\n",
       R"({"audio_level":31,"line":4,"voltage":8})"},
      {"one at rest", "Voltage: -48\r\n", "Line 4: voltage -48 V\n", R"({"line":4,"voltage":-48})"},
      {"a telephone in a call", "AudioLevel: -7\r\n", "Line 4: audio level -7 dB\n", R"({"audio_level":-7,"line":4})"},
      {"one at rest", "", "Line 4: publishes no state now\n", R"({"line":4})"},
      {"what else", "Volts: 3\r\nVoltage: x\r\nAudioLevel: 1e3\r\nVoltage 3\n", "Line 4: publishes no state now\n",
       R"({"line":4})"},
  };
  for (const auto& rRow : rRows) {
    WriteTestFile(STATE_PATH, rRow.acFile);
    const LineState rState = ReadLineState(STATE_PATH).value();
    EXPECT_EQ(LineStateToText(4, rState), rRow.acText) << rRow.acLabel;
    EXPECT_EQ(LineStateToJson(4, rState).dump(), rRow.acJson) << rRow.acLabel;
  }
}

TEST(CtlChState, MissingFileIsNoState) {
  EXPECT_FALSE(ReadLineState("/tmp/no_such_state"));
}

TEST(CtlChState, FifoInItsPlaceHoldsNobodyUp) {
  unlink(STATE_PATH);
  ASSERT_EQ(mkfifo(STATE_PATH, 0666), 0);
  EXPECT_FALSE(ReadLineState(STATE_PATH));
  unlink(STATE_PATH);
}

}  // namespace
