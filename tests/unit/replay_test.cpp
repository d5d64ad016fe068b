#include "replay.h"

#include <gtest/gtest.h>

#include "CardBench.h"
#include "SimConfigFiles.h"
#include "Texts.h"
#include "scenario.h"
#include "simcards_control.h"

namespace simcards {
namespace {

constexpr const char* DCH = "[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\n";
constexpr const char* DMSG = "[Ch] Seconds\n";
const std::string HEAD = "# From a trace of a station line: seconds are whole, data other than displays is missing.\n";

// A call as a telephone of a Siemens PBX has it: ring, display, answer, a second display, hang up.
const std::string CALL_EVENTS = std::string(DCH) +
                                "09:15:02.020 DST ch[  5] CmdType[S] Len[  1] Data-->  1 \n"
                                "09:15:04.100 DST ch[  5] CmdType[D] Len[  4] Data--> 1f 10  0  0 \n"
                                "[05]        2 0000101f 00000000 00000000 00000000\n"
                                "[05]        2 00001008 00000000 00000000 00000011\n"
                                "[05]        6 00000008 00000000 00000000 00000000\n"
                                "[05]        6 0000104a 00000001 00000000 00000000\n"
                                "[05]       12 00001008 00000000 00000000 00000005\n"
                                "[05]       12 0000000e 00000000 00000000 00000000\n";
const std::string CALL_TEXTS = std::string(DMSG) +
                               "[05]        2 LCD message\n0301234567\nMeier\\\n"
                               "[05]       12 LCD message\n09:15\n";

std::string Replay(const std::string& strEvents, const std::string& strTexts, Texts& astrErrors,
                   int iChannel = CHANNEL_OF_TRACE) {
  const TraceFile rTexts{"dmsg.log", strTexts};
  return ReplayScenario({"dch.log", strEvents}, &rTexts, iChannel, astrErrors);
}

std::string ReplayGood(const std::string& strEvents, const std::string& strTexts, int iChannel = CHANNEL_OF_TRACE) {
  Texts astrErrors;
  const std::string strScenario = Replay(strEvents, strTexts, astrErrors, iChannel);
  EXPECT_EQ(Texts{}, astrErrors);
  (void)ParseScenario(strScenario, "it", astrErrors);
  EXPECT_EQ(Texts{}, astrErrors) << "is no scenario: " << strScenario;
  return strScenario;
}

// One event line of second 0 and channel 5.
std::string Event(const std::string& strFields) {
  return std::string(DCH) + "[05]        0 " + strFields + "\n";
}

TEST(Replay, CallBecomesAScenario) {
  EXPECT_EQ(HEAD +
                "2  ch 5 ring on\n"
                "2  ch 5 display \"0301234567\\nMeier\\\\\"\n"
                "6  ch 5 offhook\n"
                "6  ch 5 audio 1\n"
                "12  ch 5 display \"09:15\"\n"
                "12  ch 5 onhook\n",
            ReplayGood(CALL_EVENTS, CALL_TEXTS));
}

TEST(Replay, AnotherChannelTakesAllOfIt) {
  EXPECT_EQ(HEAD + "0  ch 107 onhook\n", ReplayGood(Event("0000000e 00000000 00000000 00000000"), DMSG, 107));
  EXPECT_EQ(HEAD + "0  ch 0 onhook\n", ReplayGood(Event("0000000e 00000000 00000000 00000000"), DMSG, 0));
}

TEST(Replay, EachMessageHasItsAction) {
  const struct {
    const char *acFields, *acAction;
  } arRows[] = {
      {"00000008 00000000 00000000 00000000", "offhook"},
      {"0000000e 00000000 00000000 00000000", "onhook"},
      {"0000101f 00000000 00000000 00000000", "ring on"},
      {"00001020 00000000 00000000 00000000", "ring off"},
      {"00001006 00000037 00000000 00000000", "key 7"},
      {"00001006 0000002a 00000000 00000000", "key *"},
      {"00001006 00000023 00000000 00000000", "dchannel 0x1006 sub 0x23"},  // # would begin a comment
      {"00001006 00000107 00000000 00000000", "dchannel 0x1006 sub 0x107"},
      {"0000100e 00000012 00000000 00000000", "button function 18"},
      {"0000101a 00000003 00000000 00000000", "button feature 3"},
      {"0000101e 00000002 00000000 00000000", "button soft 2"},
      {"00001012 00000000 00000000 00000000", "button release"},
      {"00001021 00000000 00000000 00000000", "button line"},
      {"0000104a 00000008 00000000 00000000", "audio 8"},
      {"0000111e 00000000 00000000 00000000", "mutelight off"},
      {"0000111f 00000000 00000000 00000000", "mutelight on"},
      {"00001120 00000000 00000000 00000000", "dchannel 0x1120"},
      {"00001304 ffffffff 00000000 00000000", "dchannel 0x1304 sub 0xffffffff"},
      {"00000008 00000002 00000000 00000000", "dchannel 0x0008 sub 0x2"},
      {"0000000e 00000000 00000004 00000000", "dchannel 0x000e xtra 0x4"},
      {"0000006f 00000001 00000000 000000cc", "dchannel 0x006f sub 0x1  # without its 204 bytes of data"},
  };
  for (const auto& rRow : arRows) {
    EXPECT_EQ(HEAD + "0  ch 5 " + rRow.acAction + "\n", ReplayGood(Event(rRow.acFields), DMSG)) << rRow.acFields;
  }
}

TEST(Replay, DisplaysKeepEachByte) {
  const struct {
    const char* acLabel;
    std::string strText, strLength, strAction;
  } arRows[] = {
      {"empty", "", "00000000", "display \"\""},
      {"empty lines", "\n\n12\n", "00000005", "display \"\\n\\n12\\n\""},
      {"quotes, Latin-1 and control characters", "\"M\xFCller\"\t\x01", "0000000a",
       "display \"\\\"M\\xfcller\\\"\\x09\\x01\""},
      {"shorter than its data: the rest was behind a NUL", "12", "00000010", "display \"12\""},
      {"longer than its data: the rest was left in the buffer", "12345", "00000003", "display \"123\""},
      {"# is no comment in a display", "#12 # 3", "00000007", "display \"#12 # 3\""},
  };
  for (const auto& rRow : arRows) {
    const std::string strEvents = Event("00001008 00000000 00000000 " + rRow.strLength);
    EXPECT_EQ(HEAD + "0  ch 5 " + rRow.strAction + "\n",
              ReplayGood(strEvents, std::string(DMSG) + "[05]        0 LCD message\n" + rRow.strText + "\n"))
        << rRow.acLabel;
  }
  EXPECT_EQ(
      HEAD + "0  ch 5 dchannel 0x1008 sub 0x1 text \"a b\"\n",
      ReplayGood(Event("00001008 00000001 00000000 00000003"), std::string(DMSG) + "[05]        0 LCD message\na b\n"));
}

TEST(Replay, WithoutTextsDisplaysAreEmpty) {
  Texts astrErrors;
  EXPECT_EQ(
      HEAD + "0  ch 5 dchannel 0x1008  # without its 17 bytes of data\n",
      ReplayScenario({"dch.log", Event("00001008 00000000 00000000 00000011")}, nullptr, CHANNEL_OF_TRACE, astrErrors));
  EXPECT_EQ(Texts{}, astrErrors);
}

TEST(Replay, TraceWithoutEventsIsAnEmptyScenario) {
  EXPECT_EQ(HEAD, ReplayGood(DCH, DMSG));
}

TEST(Replay, WideNumbersAreRead) {
  const std::string strEvents = std::string(DCH) + "[123] 123456789 0000000e 00000000 00000000 00000000\n";
  EXPECT_EQ(HEAD + "123456789  ch 123 onhook\n", ReplayGood(strEvents, DMSG));
}

TEST(Replay, WrongLinesOfEventsAreNamed) {
  const std::string strGood = "[05]        1 0000000e 00000000 00000000 00000000\n";
  const struct {
    const char* acLabel;
    std::string strEvents, strError;
  } arRows[] = {
      {"empty file", "", "dch.log:1: expected \"[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\", found \"\""},
      {"the other file", DMSG,
       "dch.log:1: expected \"[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\", found \"[Ch] Seconds\""},
      {"a word", DCH + strGood + "onhook\n", "dch.log:3: expected an event or data, found \"onhook\""},
      {"an empty line", DCH + strGood + "\n", "dch.log:3: expected an event or data, found \"\""},
      {"a field short", std::string(DCH) + "[05]        1 0000000e 00000000 00000000\n",
       "dch.log:2: expected an event or data, found \"[05]        1 0000000e 00000000 00000000\""},
      {"a field more", std::string(DCH) + "[05]        1 0000000e 00000000 00000000 00000000 0\n",
       "dch.log:2: expected an event or data, found \"[05]        1 0000000e 00000000 00000000 00000000 0\""},
      {"narrow code", std::string(DCH) + "[05]        1 000e 00000000 00000000 00000000\n",
       "dch.log:2: expected an event or data, found \"[05]        1 000e 00000000 00000000 00000000\""},
      {"upper case", std::string(DCH) + "[05]        1 0000000E 00000000 00000000 00000000\n",
       "dch.log:2: expected an event or data, found \"[05]        1 0000000E 00000000 00000000 00000000\""},
      {"blanks lost", std::string(DCH) + "[05] 1 0000000e 00000000 00000000 00000000\n",
       "dch.log:2: expected an event or data, found \"[05] 1 0000000e 00000000 00000000 00000000\""},
      {"negative channel", std::string(DCH) + "[-1]        1 0000000e 00000000 00000000 00000000\n",
       "dch.log:2: expected an event or data, found \"[-1]        1 0000000e 00000000 00000000 00000000\""},
      {"a channel that no action takes", std::string(DCH) + "[100001]        1 0000000e 00000000 00000000 00000000\n",
       "dch.log:2: expected an event or data, found \"[100001]        1 0000000e 00000000 00000000 00000000\""},
      {"cut in the last line", DCH + strGood + "[05]        1 0000000e 00000000",
       "dch.log:3: expected a line feed at the end of the file, found \"[05]        1 0000000e 00000000\""},
      {"time goes back", DCH + strGood + "[05]        0 0000000e 00000000 00000000 00000000\n",
       "dch.log:3: expected second 1 or a later one, found 0"},
      {"time before the trace", std::string(DCH) + "[05]       -2 0000000e 00000000 00000000 00000000\n",
       "dch.log:2: expected second 0 or a later one, found -2"},
      {"two channels", DCH + strGood + "[06]        1 0000000e 00000000 00000000 00000000\n",
       "dch.log:3: expected channel 5 as above, found 6"},
      {"data shorter than it says", std::string(DCH) + "1 DST ch[  5] CmdType[U] Len[  2] Data-->  8 \n",
       "dch.log:2: expected an event or data, found \"1 DST ch[  5] CmdType[U] Len[  2] Data-->  8 \""},
      {"data that is no number", std::string(DCH) + "1 DST ch[  5] CmdType[U] Len[  1] Data--> xy \n",
       "dch.log:2: expected an event or data, found \"1 DST ch[  5] CmdType[U] Len[  1] Data--> xy \""},
      {"data without its width", std::string(DCH) + "1 DST ch[5] CmdType[U] Len[  1] Data-->  8 \n",
       "dch.log:2: expected an event or data, found \"1 DST ch[5] CmdType[U] Len[  1] Data-->  8 \""},
  };
  for (const auto& rRow : arRows) {
    Texts astrErrors;
    EXPECT_EQ("", Replay(rRow.strEvents, DMSG, astrErrors)) << rRow.acLabel;
    ASSERT_FALSE(astrErrors.empty()) << rRow.acLabel;
    EXPECT_EQ(rRow.strError, astrErrors[0]) << rRow.acLabel;
  }
}

TEST(Replay, TextsThatDoNotFitAreNamed) {
  const std::string strEvents = Event("00001008 00000000 00000000 00000002");
  const std::string strText = "[05]        0 LCD message\n12\n";
  const struct {
    const char* acLabel;
    std::string strTexts, strError;
  } arRows[] = {
      {"empty file", "", "dmsg.log:1: expected \"[Ch] Seconds\", found \"\""},
      {"text missing", DMSG, "dch.log:2: this display has no text in the other file"},
      {"text too many", DMSG + strText + strText, "dmsg.log:4: this text has no display in the other file"},
      {"another second", std::string(DMSG) + "[05]        1 LCD message\n12\n",
       "dmsg.log:2: expected the display of channel 5 at second 0, found channel 5 at second 1"},
      {"another channel", std::string(DMSG) + "[06]        0 LCD message\n12\n",
       "dmsg.log:2: expected the display of channel 5 at second 0, found channel 6 at second 0"},
      {"no entry", std::string(DMSG) + "12\n", "dmsg.log:2: expected an LCD message, found \"12\""},
      {"entry without text", std::string(DMSG) + "[05]        0 LCD message\n" + strText,
       "dmsg.log:2: expected a text behind this line"},
      {"cut behind an entry", std::string(DMSG) + "[05]        0 LCD message\n",
       "dmsg.log:2: expected a text behind this line"},
      {"cut in a text", std::string(DMSG) + "[05]        0 LCD message\n1",
       "dmsg.log:3: expected a line feed at the end of the file, found \"1\""},
  };
  for (const auto& rRow : arRows) {
    Texts astrErrors;
    EXPECT_EQ("", Replay(strEvents, rRow.strTexts, astrErrors)) << rRow.acLabel;
    EXPECT_EQ(Texts{rRow.strError}, astrErrors) << rRow.acLabel;
  }
}

TEST(Replay, AllErrorsOfBothFilesAreTold) {
  Texts astrErrors;
  EXPECT_EQ("", Replay(std::string(DCH) + "a\nb\n", "c\n", astrErrors));
  EXPECT_EQ(
      (Texts{"dch.log:2: expected an event or data, found \"a\"", "dch.log:3: expected an event or data, found \"b\"",
             "dmsg.log:1: expected \"[Ch] Seconds\", found \"c\""}),
      astrErrors);
}

// -- the tool ---------------------------------------------------------------------------------------------------------

class ReplayTool : public CardBench {
 protected:
  ReplayTool() {
    AddBoard(0, 2, CH_DST);
    AddBoard(1, 1, CH_ANALOG);
    std::string strError;
    EXPECT_TRUE(StartControl(rFiles.Path("socket"), strError)) << strError;
    rFiles.Write("dch.log", CALL_EVENTS);
    rFiles.Write("dmsg.log", CALL_TEXTS);
  }

  // Exit status and all that it printed.
  std::string Run(const std::string& strArgs) {
    const std::string strTool = BuildDir() + "/sim/cardsim --socket socket replay ";
    std::FILE* prPipe = popen(("cd " + rFiles.Path("") + " && " + strTool + strArgs + " 2>&1").c_str(), "r");
    std::string strOutput;
    char acPiece[512];
    for (std::size_t iRead; (iRead = std::fread(acPiece, 1, sizeof acPiece, prPipe)) > 0;) {
      strOutput.append(acPiece, iRead);
    }
    return std::to_string(WEXITSTATUS(pclose(prPipe))) + "\n" + strOutput;
  }

  SimConfigFiles rFiles;
};

TEST_F(ReplayTool, GivesTheMessagesToALine) {
  EXPECT_EQ("0\n", Run("dch.log dmsg.log --channel 1 --speed 100"));
  EXPECT_EQ(
      "65 ref 1: 4127\n65 ref 1: 4104 '0301234567\nMeier\\'\n65 ref 1: 8\n65 ref 1: 4170 sub 1\n"
      "65 ref 1: 4104 '09:15'\n65 ref 1: 14\n",
      Events());
}

TEST_F(ReplayTool, PrintsAScenarioThatCanBeRun) {
  Texts astrErrors;
  const std::string strScenario = Replay(CALL_EVENTS, CALL_TEXTS, astrErrors, 0);
  EXPECT_EQ("0\n" + strScenario, Run("dch.log dmsg.log --channel 0 --print"));
  EXPECT_EQ("", Events());
}

TEST_F(ReplayTool, ErrorsNameTheirPlaceAndNothingIsSent) {
  EXPECT_EQ("1\nscenario of dch.log:2: channel 5 does not exist\n", Run("dch.log dmsg.log --speed 100"));
  EXPECT_EQ("1\nscenario of dch.log:3: channel 2 has no D-channel\n", Run("dch.log dmsg.log --channel 2 --speed 100"));
  EXPECT_EQ("24 ref 2: 2\n", Events()) << "an analogue line rings as well";
  EXPECT_EQ("2\ncardsim: cannot read none.log: No such file or directory\n", Run("none.log"));
  EXPECT_EQ("2\ncardsim: cannot read none.log: No such file or directory\n", Run("dch.log none.log"));
  EXPECT_EQ("2\ndch.log:1: expected \"[Ch] Seconds\", found \"[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\"\n",
            Run("dch.log dch.log --channel 0"));
  EXPECT_EQ("", Events());
}

}  // namespace
}  // namespace simcards
