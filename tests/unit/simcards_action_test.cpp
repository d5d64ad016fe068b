// Reading of actions: what each word gives, and what is said of a wrong one. What they do is in simcards_perform_test.

#include "simcards_action.h"

#include <gtest/gtest.h>

namespace simcards {
namespace {

Action Parsed(const std::string& strLine) {
  Action rAction;
  EXPECT_EQ("", ParseAction(strLine, rAction)) << strLine;
  return rAction;
}

std::string Error(const std::string& strLine) {
  Action rAction;
  return ParseAction(strLine, rAction);
}

// The action of a line, which must be of kind A.
template <typename A, typename AnyOf>
A As(const AnyOf& rAction, const std::string& strLine) {
  const A* prAction = std::get_if<A>(&rAction);
  EXPECT_NE(nullptr, prAction) << strLine;
  return prAction != nullptr ? *prAction : A();
}

template <typename A>
A General(const std::string& strLine) {
  return As<A>(Parsed(strLine), strLine);
}

template <typename A>
A OnChannel(const std::string& strLine) {
  return As<A>(General<actions::OnChannels>(strLine).rAction, strLine);
}

template <typename A>
A OnCircuit(const std::string& strLine) {
  return As<A>(General<actions::OnCircuits>(strLine).rAction, strLine);
}

TEST(SimAction, SingleChannelsAndRanges) {
  const auto rOne = General<actions::OnChannels>("ch 3 ring on");
  EXPECT_EQ(3, rOne.rRange.iFirst);
  EXPECT_EQ(3, rOne.rRange.iLast);
  const auto rRange = General<actions::OnCircuits>("cic 0..29 idle");
  EXPECT_EQ(0, rRange.rRange.iFirst);
  EXPECT_EQ(29, rRange.rRange.iLast);
}

TEST(SimAction, WordsOfChannels) {
  EXPECT_TRUE(OnChannel<actions::Ring>("ch 0 ring on").fOn);
  EXPECT_FALSE(OnChannel<actions::Ring>("ch 0 ring off").fOn);
  (void)OnChannel<actions::OffHook>("ch 0 offhook");
  (void)OnChannel<actions::OnHook>("ch 0 onhook");
  EXPECT_EQ("030 1234", OnChannel<actions::CallerId>("ch 0 callerid \"030 1234\"").strNumber);
  EXPECT_EQ("0123456789*#ABCD", OnChannel<actions::Dtmf>("ch 0 dtmf 0123456789*#ABCD").strDigits);
  (void)OnChannel<actions::Flash>("ch 0 flash");
  EXPECT_TRUE(OnChannel<actions::Sound>("ch 0 sound on").fPresent);
  EXPECT_FALSE(OnChannel<actions::Sound>("ch 0 sound off").fPresent);
  (void)OnChannel<actions::NoSound>("ch 0 nosound");
  EXPECT_EQ(-12, OnChannel<actions::Voltage>("ch 0 voltage -12").iVolts);
  EXPECT_EQ("5*", OnChannel<actions::Keys>("ch 0 key 5*").strKeys);
  EXPECT_EQ(49, OnChannel<actions::Event>("ch 0 event spystate").wCode);
}

TEST(SimAction, NamesOfTonesStandForNumbers) {
  const struct {
    const char* acLine;
    DWORD dwKind;
  } arRows[] = {
      {"ch 0 tone dial", 1}, {"ch 0 tone busy", 2},  {"ch 0 tone ringback", 3}, {"ch 0 tone quiet", 4},
      {"ch 0 tone none", 5}, {"ch 0 tone voice", 6}, {"ch 0 tone 9", 9},
  };
  for (const auto& rRow : arRows) EXPECT_EQ(rRow.dwKind, OnChannel<actions::Tone>(rRow.acLine).dwKind) << rRow.acLine;
}

TEST(SimAction, NamesOfChannelStatesStandForNumbers) {
  const struct {
    const char* acLine;
    int iState;
  } arRows[] = {
      {"ch 0 state standby", 0},      {"ch 0 state offhook", 1}, {"ch 0 state ringing", 2},
      {"ch 0 state talking", 3},      {"ch 0 state offline", 8}, {"ch 0 state waitremote", 9},
      {"ch 0 state unavailable", 11}, {"ch 0 state tap", 128},   {"ch 0 state signalerror", 139},
      {"ch 0 state frameerror", 140}, {"ch 0 state 77", 77},
  };
  for (const auto& rRow : arRows) {
    EXPECT_EQ(rRow.iState, OnChannel<actions::ChannelState>(rRow.acLine).iState) << rRow.acLine;
  }
}

TEST(SimAction, NamesOfCircuitStatesStandForNumbers) {
  const struct {
    const char* acLine;
    int iState;
  } arRows[] = {
      {"cic 0 ring", 2},
      {"cic 0 talk", 3},
      {"cic 0 idle", 0},
      {"cic 0 numbering", 105},
      {"cic 0 unavailable", 11},
      {"cic 0 state idle", 0},
      {"cic 0 state ring", 2},
      {"cic 0 state talk", 3},
      {"cic 0 state numbering", 105},
      {"cic 0 state unavailable", 11},
      {"cic 0 state 6", 6},
  };
  for (const auto& rRow : arRows) {
    const auto rState = OnCircuit<actions::CircuitState>(rRow.acLine);
    EXPECT_EQ(rRow.iState, rState.iState) << rRow.acLine;
    EXPECT_FALSE(rState.fIncoming || rState.strCaller || rState.strCallee || rState.strConnected) << rRow.acLine;
  }
}

TEST(SimAction, TrunkCallSaysWhatWasSaid) {
  const auto rIn = OnCircuit<actions::CircuitState>("cic 0 ring in callee 200 caller \"\"");
  EXPECT_EQ(true, rIn.fIncoming);
  EXPECT_EQ("", rIn.strCaller);
  EXPECT_EQ("200", rIn.strCallee);
  EXPECT_EQ(std::nullopt, rIn.strConnected);
  const auto rOut = OnCircuit<actions::CircuitState>("cic 0 talk out connected 201");
  EXPECT_EQ(false, rOut.fIncoming);
  EXPECT_EQ(std::nullopt, rOut.strCaller);
  EXPECT_EQ("201", rOut.strConnected);
}

TEST(SimAction, NamesOfEventsStandForNumbers) {
  EXPECT_EQ(7, General<actions::Event>("event pcmlink").wCode);
  EXPECT_EQ(124, General<actions::Event>("event 124").wCode);
  EXPECT_EQ(49, OnCircuit<actions::Event>("cic 0 event spystate").wCode);
  const auto rEvent = General<actions::Event>("event dtmf xtra 3 hex 4142 sub 2 param 1");
  EXPECT_EQ(12, rEvent.wCode);
  EXPECT_EQ(1U, rEvent.rMessage.dwParam);
  EXPECT_EQ(2U, rEvent.rMessage.dwSubReason);
  EXPECT_EQ(3U, rEvent.rMessage.dwXtraInfo);
  EXPECT_EQ("AB", rEvent.rMessage.strData);
}

TEST(SimAction, StationWordsGiveDChannelMessages) {
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
    const Message rMessage = OnChannel<actions::DChannel>(rRow.acLine).rMessage;
    EXPECT_EQ(rRow.dwParam, rMessage.dwParam) << rRow.acLine;
    EXPECT_EQ(rRow.dwSubReason, rMessage.dwSubReason) << rRow.acLine;
    EXPECT_EQ(rRow.dwXtraInfo, rMessage.dwXtraInfo) << rRow.acLine;
    EXPECT_EQ(rRow.acData, rMessage.strData) << rRow.acLine;
  }
}

TEST(SimAction, IsdnRecordHasItsFieldsInPlace) {
  const Message rMessage =
      OnChannel<actions::DChannel>("ch 0 isdn connected in caller 030123 called 200 connected 201").rMessage;
  EXPECT_EQ(0x6FU, rMessage.dwParam);
  EXPECT_EQ(1U, rMessage.dwSubReason);
  const std::string& strRecord = rMessage.strData;
  ASSERT_EQ(204U, strRecord.size());
  EXPECT_EQ(std::string("\0\0\0\0\1\0\0\0\0\0\0\0", 12), strRecord.substr(0, 12));
  EXPECT_STREQ("030123", strRecord.c_str() + 12);
  EXPECT_STREQ("", strRecord.c_str() + 44);
  EXPECT_STREQ("200", strRecord.c_str() + 76);
  EXPECT_STREQ("201", strRecord.c_str() + 140);
  const Message rLong =
      OnChannel<actions::DChannel>("ch 0 isdn released out long caller 1234567890123456789012345678901").rMessage;
  EXPECT_EQ(0U, rLong.dwSubReason);
  ASSERT_EQ(236U, rLong.strData.size());
  EXPECT_EQ(2, rLong.strData[4]);
  EXPECT_STREQ("1234567890123456789012345678901", rLong.strData.c_str() + 12);
  EXPECT_EQ(std::string(236 - 44, '\0'), rLong.strData.substr(44));
  EXPECT_EQ("expected a number of at most 31 characters, found \"12345678901234567890123456789012\"",
            Error("ch 0 isdn progress in caller 12345678901234567890123456789012"));
}

TEST(SimAction, SoundsToPlay) {
  (void)OnChannel<actions::PlaySilence>("ch 0 play silence");
  (void)OnChannel<actions::PlayCounting>("ch 0 play counting");
  const auto rTone = OnChannel<actions::PlayTone>("ch 0 play tone 440.5 -3");
  EXPECT_DOUBLE_EQ(440.5, rTone.dHz);
  EXPECT_DOUBLE_EQ(-3, rTone.dLevelDb);
  EXPECT_DOUBLE_EQ(-10, OnChannel<actions::PlayTone>("ch 0 play tone 440").dLevelDb);
  const auto rFile = OnChannel<actions::PlayFile>("ch 0 play file \"my speech.wav\" loop");
  EXPECT_EQ("my speech.wav", rFile.strPath);
  EXPECT_TRUE(rFile.fLoop);
  EXPECT_FALSE(OnChannel<actions::PlayFile>("ch 0 play file x.wav").fLoop);
}

TEST(SimAction, ActionsOnTheWhole) {
  const auto rFail = General<actions::Fail>("fail SsmRecToMem 2 result 7 text \"no memory\"");
  EXPECT_EQ("SsmRecToMem", rFail.strOperation);
  EXPECT_EQ(2, rFail.iTimes);
  EXPECT_EQ(7, rFail.iResult);
  EXPECT_EQ("no memory", rFail.strText);
  EXPECT_EQ(-1, General<actions::Fail>("fail SsmRecToMem 2").iResult);
  EXPECT_EQ("simulated failure", General<actions::Fail>("fail SsmRecToMem 2").strText);
  EXPECT_DOUBLE_EQ(2.5, General<actions::Speed>("speed 2.5").dFactor);
  (void)General<actions::Overruns>("overruns");
  EXPECT_EQ(7, General<actions::Recorded>("recorded 2..7").rChannels.iLast);
  (void)General<actions::Cost>("cost");
  (void)General<actions::Status>("status");
  EXPECT_EQ("/tmp/a b", General<actions::Directory>("directory \"/tmp/a b\"").strPath);
  EXPECT_EQ("all is well", General<actions::Print>("print all  is well # no").strText);
}

TEST(SimAction, WaitsSpeakOfTheWholeOrOfChannels) {
  const struct {
    const char* acLine;
    EWaitFor eFor;
    int iFirst, iLast;  // -1: of the whole
  } arRows[] = {
      {"wait ready", WAIT_READY, -1, -1},     {"wait handled", WAIT_HANDLED, -1, -1},
      {"wait idle", WAIT_IDLE, -1, -1},       {"wait recording 2..4", WAIT_RECORDING, 2, 4},
      {"wait stopped 1", WAIT_STOPPED, 1, 1}, {"wait played 0..7", WAIT_PLAYED, 0, 7},
      {"wait traced 3", WAIT_TRACED, 3, 3},
  };
  for (const auto& rRow : arRows) {
    const auto rWait = General<actions::Wait>(rRow.acLine);
    EXPECT_EQ(rRow.eFor, rWait.eFor) << rRow.acLine;
    EXPECT_EQ(rRow.iFirst >= 0, rWait.rChannels.has_value()) << rRow.acLine;
    const Range rChannels = rWait.rChannels.value_or(Range{-1, -1});
    EXPECT_EQ(rRow.iFirst, rChannels.iFirst) << rRow.acLine;
    EXPECT_EQ(rRow.iLast, rChannels.iLast) << rRow.acLine;
    EXPECT_DOUBLE_EQ(30, rWait.dTimeoutS) << rRow.acLine;
  }
  EXPECT_DOUBLE_EQ(1.5, General<actions::Wait>("wait recording 2..4 timeout 1.5").dTimeoutS);
}

TEST(SimAction, ErrorsSayWhatWasExpected) {
  const struct {
    const char *acLine, *acError;
  } arRows[] = {
      {"",
       "expected \"ch\", \"cic\", \"event\", \"fail\", \"speed\", \"overruns\", \"recorded\", \"cost\", \"status\", "
       "\"wait\", \"directory\" or \"print\", found the end of the line"},
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
