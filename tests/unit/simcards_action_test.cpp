// Reading of actions: what each word gives, and what is said of a wrong one. What they do is in simcards_perform_test.

#include "simcards_action.h"

#include <gtest/gtest.h>

namespace simcards {
namespace {

Command Parsed(const std::string& strLine) {
  Command rCommand;
  EXPECT_EQ("", ParseCommand(strLine, rCommand)) << strLine;
  return rCommand;
}

std::string Error(const std::string& strLine) {
  Command rCommand;
  return ParseCommand(strLine, rCommand);
}

TEST(SimCommand, SingleChannelsAndRanges) {
  const Command rOne = Parsed("ch 3 ring on");
  EXPECT_EQ(CMD_RING, rOne.eCommand);
  EXPECT_EQ(TARGET_CHANNELS, rOne.eTarget);
  EXPECT_EQ(3, rOne.iFirst);
  EXPECT_EQ(3, rOne.iLast);
  EXPECT_EQ(1, rOne.iValue);
  const Command rRange = Parsed("cic 0..29 idle");
  EXPECT_EQ(TARGET_CIRCUITS, rRange.eTarget);
  EXPECT_EQ(0, rRange.iFirst);
  EXPECT_EQ(29, rRange.iLast);
}

TEST(SimCommand, NamesStandForNumbers) {
  const struct {
    const char* acLine;
    ECommand eCommand;
    int iValue;
  } arRows[] = {
      {"ch 0 ring off", CMD_RING, 0},
      {"ch 0 tone dial", CMD_TONE, 1},
      {"ch 0 tone busy", CMD_TONE, 2},
      {"ch 0 tone ringback", CMD_TONE, 3},
      {"ch 0 tone quiet", CMD_TONE, 4},
      {"ch 0 tone none", CMD_TONE, 5},
      {"ch 0 tone voice", CMD_TONE, 6},
      {"ch 0 tone 9", CMD_TONE, 9},
      {"ch 0 sound on", CMD_SOUND, 1},
      {"ch 0 state standby", CMD_STATE, 0},
      {"ch 0 state offhook", CMD_STATE, 1},
      {"ch 0 state ringing", CMD_STATE, 2},
      {"ch 0 state talking", CMD_STATE, 3},
      {"ch 0 state offline", CMD_STATE, 8},
      {"ch 0 state waitremote", CMD_STATE, 9},
      {"ch 0 state unavailable", CMD_STATE, 11},
      {"ch 0 state tap", CMD_STATE, 128},
      {"ch 0 state signalerror", CMD_STATE, 139},
      {"ch 0 state frameerror", CMD_STATE, 140},
      {"ch 0 state 77", CMD_STATE, 77},
      {"ch 0 voltage -12", CMD_VOLTAGE, -12},
      {"cic 0 ring", CMD_TRUNK, 2},
      {"cic 0 talk", CMD_TRUNK, 3},
      {"cic 0 idle", CMD_TRUNK, 0},
      {"cic 0 numbering", CMD_TRUNK, 105},
      {"cic 0 unavailable", CMD_TRUNK, 11},
      {"cic 0 state ring", CMD_TRUNK, 2},
      {"cic 0 state 6", CMD_TRUNK, 6},
      {"event pcmlink", CMD_EVENT, 7},
      {"event 124", CMD_EVENT, 124},
      {"ch 0 event spystate", CMD_EVENT, 49},
  };
  for (const auto& rRow : arRows) {
    const Command rCommand = Parsed(rRow.acLine);
    EXPECT_EQ(rRow.eCommand, rCommand.eCommand) << rRow.acLine;
    EXPECT_EQ(rRow.iValue, rCommand.iValue) << rRow.acLine;
  }
}

TEST(SimCommand, StationWordsGiveDChannelMessages) {
  const struct {
    const char* acLine;
    DWORD dwParam, dwSubReason, dwXtraInfo;
    const char* acData;
  } arRows[] = {
      {"ch 0 display \"0301234567\\n12:30\"", 0x1008, 0, 0, "0301234567\n12:30"},
      {"ch 0 button function 7", 0x100E, 7, 0, ""},
      {"ch 0 button release", 0x1012, 0, 0, ""},
      {"ch 0 button feature 0x21", 0x101A, 0x21, 0, ""},
      {"ch 0 button soft 2", 0x101E, 2, 0, ""},
      {"ch 0 button line", 0x1021, 0, 0, ""},
      {"ch 0 audio 8", 0x104A, 8, 0, ""},
      {"ch 0 mutelight on", 0x111F, 0, 0, ""},
      {"ch 0 mutelight off", 0x111E, 0, 0, ""},
      {"ch 0 bri progress in \"a\\nb\"", 0x6B, 1, 0, "a\nb"},
      {"ch 0 bri alerting out x", 0x6E, 0, 0, "x"},
      {"ch 0 bri connected in x", 0x6F, 1, 0, "x"},
      {"ch 0 bri released in", 0x70, 1, 0, ""},
      {"ch 0 bri abandoned in", 0x75, 1, 0, ""},
      {"ch 0 bri rejected out", 0x76, 0, 0, ""},
      {"ch 0 dchannel 0x8001 text \"1|2|0\" sub 3 xtra 4", 0x8001, 3, 4, "1|2|0"},
      {"ch 0 dchannel 4104 hex 4142", 0x1008, 0, 0, "AB"},
  };
  for (const auto& rRow : arRows) {
    const Command rCommand = Parsed(rRow.acLine);
    EXPECT_EQ(CMD_DCHANNEL, rCommand.eCommand) << rRow.acLine;
    EXPECT_EQ(rRow.dwParam, rCommand.rMessage.dwParam) << rRow.acLine;
    EXPECT_EQ(rRow.dwSubReason, rCommand.rMessage.dwSubReason) << rRow.acLine;
    EXPECT_EQ(rRow.dwXtraInfo, rCommand.rMessage.dwXtraInfo) << rRow.acLine;
    EXPECT_EQ(rRow.acData, rCommand.rMessage.strData) << rRow.acLine;
  }
}

TEST(SimCommand, IsdnRecordHasItsFieldsInPlace) {
  const Command rCommand = Parsed("ch 0 isdn connected in caller 030123 called 200 connected 201");
  EXPECT_EQ(0x6FU, rCommand.rMessage.dwParam);
  const std::string& strRecord = rCommand.rMessage.strData;
  ASSERT_EQ(204U, strRecord.size());
  EXPECT_EQ(std::string("\0\0\0\0\1\0\0\0\0\0\0\0", 12), strRecord.substr(0, 12));
  EXPECT_STREQ("030123", strRecord.c_str() + 12);
  EXPECT_STREQ("", strRecord.c_str() + 44);
  EXPECT_STREQ("200", strRecord.c_str() + 76);
  EXPECT_STREQ("201", strRecord.c_str() + 140);
  const Command rLong = Parsed("ch 0 isdn released out long caller 1234567890123456789012345678901");
  ASSERT_EQ(236U, rLong.rMessage.strData.size());
  EXPECT_EQ(2, rLong.rMessage.strData[4]);
  EXPECT_STREQ("1234567890123456789012345678901", rLong.rMessage.strData.c_str() + 12);
  EXPECT_EQ("expected a number of at most 31 characters, found \"12345678901234567890123456789012\"",
            Error("ch 0 isdn progress in caller 12345678901234567890123456789012"));
}

TEST(SimCommand, SoundsToPlay) {
  EXPECT_EQ(CMD_PLAY_SILENCE, Parsed("ch 0 play silence").eCommand);
  EXPECT_EQ(CMD_PLAY_COUNTING, Parsed("ch 0 play counting").eCommand);
  const Command rTone = Parsed("ch 0 play tone 440.5 -3");
  EXPECT_EQ(CMD_PLAY_TONE, rTone.eCommand);
  EXPECT_DOUBLE_EQ(440.5, rTone.dValue);
  EXPECT_DOUBLE_EQ(-3, rTone.dLevel);
  EXPECT_DOUBLE_EQ(-10, Parsed("ch 0 play tone 440").dLevel);
  const Command rFile = Parsed("ch 0 play file \"my speech.wav\" loop");
  EXPECT_EQ(CMD_PLAY_FILE, rFile.eCommand);
  EXPECT_EQ("my speech.wav", rFile.strText);
  EXPECT_EQ(1, rFile.iValue);
}

TEST(SimCommand, FailuresAndWaits) {
  const Command rFail = Parsed("fail SsmRecToMem 2 result 7 text \"no memory\"");
  EXPECT_EQ(CMD_FAIL, rFail.eCommand);
  EXPECT_EQ("SsmRecToMem", rFail.strText);
  EXPECT_EQ(2, rFail.iCount);
  EXPECT_EQ(7, rFail.iValue);
  EXPECT_EQ("no memory", rFail.strText2);
  EXPECT_EQ(-1, Parsed("fail SsmRecToMem 2").iValue);
  const Command rWait = Parsed("wait recording 2..4 timeout 1.5");
  EXPECT_EQ(WAIT_RECORDING, rWait.iValue);
  EXPECT_EQ(2, rWait.iFirst);
  EXPECT_EQ(4, rWait.iLast);
  EXPECT_DOUBLE_EQ(1.5, rWait.dValue);
  EXPECT_DOUBLE_EQ(30, Parsed("wait idle").dValue);
}

TEST(SimCommand, ErrorsSayWhatWasExpected) {
  const struct {
    const char *acLine, *acError;
  } arRows[] = {
      {"",
       "expected \"ch\", \"cic\", \"event\", \"fail\", \"speed\", \"overruns\", \"status\", \"wait\", \"directory\" or "
       "\"print\", found the end of the line"},
      {"ch", "expected a channel or a range such as 0..7, found the end of the line"},
      {"ch x ring on", "expected a channel or a range such as 0..7, found \"x\""},
      {"ch 3..1 ring on", "expected a channel or a range such as 0..7, found \"3..1\""},
      {"ch -1 ring on", "expected a channel or a range such as 0..7, found \"-1\""},
      {"ch 3.. ring on", "expected a channel or a range such as 0..7, found \"3..\""},
      {"ch 3 ring", "expected \"on\" or \"off\", found the end of the line"},
      {"ch 3 ring onn", "expected \"on\" or \"off\", found \"onn\""},
      {"ch 3 ring on now", "expected the end of the line, found \"now\""},
      {"ch 3 dtmf 12x", "expected digits out of 0 to 9, *, #, A to D, found \"12x\""},
      {"ch 3 tone loud",
       "expected a number, \"dial\", \"busy\", \"ringback\", \"quiet\", \"none\" or \"voice\", found \"loud\""},
      {"ch 3 voltage high", "expected a voltage, found \"high\""},
      {"ch 3 play music", "expected \"silence\", \"counting\", \"tone\" or \"file\", found \"music\""},
      {"ch 3 play tone 0", "expected a frequency from 1 to 4000 Hz, found \"0\""},
      {"ch 3 play tone 400 3", "expected a level from -90 to 0 dB, found \"3\""},
      {"ch 3 button big", "expected \"function\", \"release\", \"feature\", \"soft\" or \"line\", found \"big\""},
      {"ch 3 isdn ring in",
       "expected \"progress\", \"alerting\", \"connected\", \"released\", \"abandoned\" or \"rejected\", found "
       "\"ring\""},
      {"ch 3 bri connected", "expected \"in\" or \"out\", found the end of the line"},
      {"cic 3 ring callee", "expected a number or \"\", found the end of the line"},
      {"cic 3 ring in out", "expected \"caller\", \"callee\" or \"connected\", found \"out\""},
      {"cic 3 offhook",
       "expected \"ring\", \"talk\", \"idle\", \"numbering\", \"unavailable\", \"state\" or \"event\", found "
       "\"offhook\""},
      {"event 125",
       "expected a number, \"pcmlink\", \"dtmf\", \"recordmem\", \"chstate\", \"callerid\", \"flash\", "
       "\"tone\", \"bargein\", \"nosound\", \"spystate\" or \"dchannel\" from 0 to 124, found \"125\""},
      {"event 5 pram 1", "expected \"param\", \"sub\", \"xtra\", \"text\" or \"hex\", found \"pram\""},
      {"event 5 param 4294967296", "expected a number from 0 to 4294967295, found \"4294967296\""},
      {"fail SsmRecToMem", "expected how many times, found the end of the line"},
      {"wait for",
       "expected \"ready\", \"handled\", \"idle\", \"recording\", \"stopped\", \"played\" or \"traced\", found "
       "\"for\""},
      {"wait idle 3", "expected the end of the line, found \"3\""},
      {"speed 0", "expected a speed from 0.01 to 1000, found \"0\""},
  };
  for (const auto& rRow : arRows) EXPECT_EQ(rRow.acError, Error(rRow.acLine)) << rRow.acLine;
}

}  // namespace
}  // namespace simcards
