// What the actions do: events, facts and audio, on a machine with one card of each family.

#include "simcards_perform.h"

#include <gtest/gtest.h>

#include <thread>

#include "CardBench.h"
#include "SimConfigFiles.h"

namespace simcards {
namespace {

constexpr int ANALOGUE = 0, TRUNK = 5;  // first driver channels of two of the cards

class SimPerform : public CardBench {
 protected:
  SimPerform() {
    rFiles.Write("simcards.conf", std::string(SimConfigFiles::FOUR_CARDS) + "socket " + rFiles.Path("socket") + "\n");
    rFiles.Write("ShConfig.ini", SimConfigFiles::FourCardsConfig());
    SetConfFile(rFiles.Path("simcards.conf"));
    EXPECT_EQ(SSM_OK, SsmStartCti(rFiles.Path("ShConfig.ini").c_str(), rFiles.Path("ShIndex.ini").c_str()))
        << LastError();
    StopPacing();
  }
  void EventsOn() {
    EVENT_SET_INFO rSetting;
    rSetting.dwWorkMode = EVENT_POLLING;
    ASSERT_EQ(SSM_OK, SsmSetEvent(0xFFFF, -1, 1, &rSetting));
  }
  // The reason of a refusal; empty when it was done.
  std::string Do(const std::string& strLine) {
    Action rAction;
    std::string strError = ParseAction(strLine, rAction);
    EXPECT_EQ("", strError);
    vLines.clear();
    return Perform(rAction, rSession, vLines);
  }

  SimConfigFiles rFiles;
  Session rSession;
  std::vector<std::string> vLines;
};

TEST_F(SimPerform, EventsOfEachAction) {
  EventsOn();
  const struct {
    const char *acAction, *acEvents;
  } arRows[] = {
      {"ch 0 ring on", "24 ref 0: 2\n"},
      {"ch 0 ring off", "24 ref 0: 0\n"},
      {"ch 0 offhook", "24 ref 0: 1\n"},
      {"ch 0 onhook", "24 ref 0: 0\n"},
      {"ch 2 ring on", "65 ref 2: 4127\n"},
      {"ch 2 ring off", "65 ref 2: 4128\n"},
      {"ch 2 offhook", "65 ref 2: 8\n"},
      {"ch 2 onhook", "65 ref 2: 14\n"},
      {"ch 0 callerid 030", "31 ref 0: 0\n"},
      {"ch 0 flash", "35 ref 0: 1\n"},
      {"ch 2 tone voice", "37 ref 2: 6\n"},
      {"ch 0 sound on", "46 ref 0: 1\n"},
      {"ch 0 sound off", "46 ref 0: 0\n"},
      {"ch 0 nosound", "47 ref 0: 0\n"},
      {"ch 2 state offline", "24 ref 2: 8\n"},
      {"ch 0..1 state tap", "24 ref 0: 128\n24 ref 1: 128\n"},
      {"ch 2 key 5*", "65 ref 2: 4102 sub 53\n65 ref 2: 4102 sub 42\n"},
      {"ch 2 display \"Hello World\"", "65 ref 2: 4104 'Hello World'\n"},
      {"ch 5 event 99 param 1 sub 2 xtra 3 text x", "99 ref 5: 1 sub 2 xtra 3 'x'\n"},
      {"event pcmlink param 1", "7 ref -1: 1\n"},
      {"cic 59 event spystate param 11", "49 ref 59: 11\n"},
      {"ch 0 voltage 20", ""},
      {"ch 0 play counting", ""},
      {"print hello", ""},
  };
  for (const auto& rRow : arRows) {
    EXPECT_EQ("", Do(rRow.acAction)) << rRow.acAction;
    EXPECT_EQ(rRow.acEvents, Events()) << rRow.acAction;
  }
}

TEST_F(SimPerform, DigitsCarryTheirCountInTheHighBits) {
  EventsOn();
  EXPECT_EQ("", Do("ch 0 dtmf 1#"));
  EXPECT_EQ(0x00010000U | '1', NextEvent().dwParam);
  EXPECT_EQ(0x00020000U | '#', NextEvent().dwParam);
  EXPECT_EQ(SSM_OK, SsmClearRxDtmfBuf(0));
  EXPECT_EQ("", Do("ch 0 dtmf A"));
  EXPECT_EQ(0x00010000U | 'A', NextEvent().dwParam);
}

TEST_F(SimPerform, AnalogueLineShowsItsUseByVoltage) {
  EventsOn();
  EXPECT_EQ(48, SsmGetLineVoltage(ANALOGUE));
  EXPECT_EQ("", Do("ch 0 offhook"));
  EXPECT_EQ(8, SsmGetLineVoltage(ANALOGUE));
  EXPECT_EQ(S_CALL_PICKUPED, SsmGetChState(ANALOGUE));
  EXPECT_EQ("", Do("ch 0 onhook"));
  EXPECT_EQ(48, SsmGetLineVoltage(ANALOGUE));
  EXPECT_EQ("", Do("ch 0 voltage 3"));
  EXPECT_EQ(3, SsmGetLineVoltage(ANALOGUE));
}

TEST_F(SimPerform, CallerIdStaysUntilItIsCleared) {
  EventsOn();
  EXPECT_STREQ("", SsmGetCallerIdA(ANALOGUE));
  EXPECT_EQ("", Do("ch 0 callerid \"030 1234\""));
  EXPECT_STREQ("030 1234", SsmGetCallerIdA(ANALOGUE));
  EXPECT_EQ(SSM_OK, SsmClearCallerId(ANALOGUE));
  EXPECT_STREQ("", SsmGetCallerIdA(ANALOGUE));
}

TEST_F(SimPerform, RefusalsNameTheReasonAndChangeNothing) {
  EventsOn();
  const struct {
    const char *acAction, *acError;
  } arRows[] = {
      {"ch 127 ring on", "channel 127 does not exist"},
      {"ch 126..127 ring on", "channel 127 does not exist"},
      {"ch 4..5 offhook", "channel 5 belongs to a trunk: its calls are made by cic"},
      {"ch 2 callerid 1", "channel 2 is no analogue line"},
      {"ch 2 flash", "channel 2 is no analogue line"},
      {"ch 5 voltage 1", "channel 5 is no analogue line"},
      {"ch 0 display x", "channel 0 has no D-channel"},
      {"ch 0 key 5", "channel 0 has no D-channel"},
      {"cic 60 idle", "circuit 60 does not exist"},
      {"cic 0..60 ring", "circuit 60 does not exist"},
      {"wait recording 127", "channel 127 does not exist"},
      {"ch 0 play file none.wav", "cannot read none.wav: No such file or directory"},
  };
  for (const auto& rRow : arRows) {
    EXPECT_EQ(rRow.acError, Do(rRow.acAction)) << rRow.acAction;
    EXPECT_EQ("", Events()) << rRow.acAction;
  }
}

TEST_F(SimPerform, NothingHappensOnALineBeforeTheRecorderListens) {
  for (const char* acAction : {"ch 0 ring on", "cic 0 ring", "event pcmlink"}) {
    EXPECT_EQ("the recorder takes no events yet", Do(acAction)) << acAction;
  }
  EXPECT_EQ(S_CALL_STANDBY, SsmGetChState(0));
  EXPECT_EQ("", Do("ch 0 voltage 20"));
  EXPECT_EQ("", Do("ch 0 play tone 440"));
}

TEST_F(SimPerform, TrunkCallIsFollowedThroughItsStates) {
  EventsOn();
  char acNumber[SPY_NUMBER_BYTES];
  EXPECT_EQ("", Do("cic 31 ring in caller 030123 callee 200"));
  EXPECT_EQ("", Do("cic 31 talk connected 201"));
  EXPECT_EQ(66, SpyGetCallInCh(31));
  EXPECT_EQ(96, SpyGetCallOutCh(31));
  EXPECT_EQ(SSM_OK, SpyGetCallerId(31, acNumber));
  EXPECT_STREQ("030123", acNumber);
  EXPECT_EQ(SSM_OK, SpyGetCalleeId(31, acNumber));
  EXPECT_STREQ("200", acNumber);
  EXPECT_EQ(SSM_OK, SpyGetConId(31, acNumber));
  EXPECT_STREQ("201", acNumber);
  EXPECT_EQ("", Do("cic 31 idle"));
  EXPECT_EQ(
      "49 ref 31: 2\n49 ref 31: " + std::to_string(2 << 16 | 3) + "\n49 ref 31: " + std::to_string(3 << 16) + "\n",
      Events());
}

TEST_F(SimPerform, OutgoingTrunkCallHasItsDirectionsExchanged) {
  EventsOn();
  EXPECT_EQ("", Do("cic 0 talk out caller 200 callee 030"));
  EXPECT_EQ(35, SpyGetCallInCh(0));
  EXPECT_EQ(5, SpyGetCallOutCh(0));
}

TEST_F(SimPerform, NumbersOfTheLastTrunkCallAreForgotten) {
  EventsOn();
  char acNumber[SPY_NUMBER_BYTES];
  EXPECT_EQ("", Do("cic 0 talk out caller 200 callee 030"));
  EXPECT_EQ("", Do("cic 0 idle"));
  EXPECT_EQ("", Do("cic 0 talk"));
  EXPECT_EQ(5, SpyGetCallInCh(0));
  EXPECT_EQ(SSM_OK, SpyGetCallerId(0, acNumber));
  EXPECT_STREQ("", acNumber);
}

TEST_F(SimPerform, PlaysFilesFromTheDirectoryOfTheSession) {
  rFiles.Write("x.al", "abc");
  EXPECT_EQ("", Do("directory " + rFiles.Path("")));
  EXPECT_EQ("", Do("ch 5 play file x.al"));
  std::vector<BYTE> vRing(64);
  EXPECT_EQ(SSM_OK, SsmRecToMem(TRUNK, SSM_FORMAT_ALAW, vRing.data(), 64, 0));
  Advance(3);
  EXPECT_EQ("abc", std::string(vRing.begin(), vRing.begin() + 3));
  EXPECT_EQ("", Do("wait played 5 timeout 0"));
}

TEST_F(SimPerform, WaitsForATraceOfAllChannels) {
  const auto pfnNothing = +[](DWORD, char*, int, BYTE, BYTE, WORD, BYTE*, void*) { return 1; };
  const auto Trace = [&](int nCh, WORD wOn) {
    char acNothing[1] = {0};
    return DTRSendRawData2A3(0xFFFFFFFF, acNothing, nCh, 255, wOn,
                             wOn == 1 ? reinterpret_cast<LPBYTE>(pfnNothing) : nullptr);
  };
  std::thread rStarter([&] {
    EXPECT_EQ(SSM_OK, Trace(2, 1));
    EXPECT_EQ(SSM_OK, Trace(3, 1));
  });
  EXPECT_EQ("", Do("wait traced 2..3 timeout 20"));
  rStarter.join();
  EXPECT_EQ("it did not come about in time", Do("wait traced 2..4 timeout 0"));
  EXPECT_EQ(SSM_OK, Trace(2, 0));
  EXPECT_EQ("it did not come about in time", Do("wait traced 2..3 timeout 0"));
  EXPECT_EQ(SSM_OK, Trace(3, 0));
}

TEST_F(SimPerform, FaultsSpeedAndOverruns) {
  EXPECT_EQ("", Do("fail SsmClearCallerId 1 result 9 text \"out of order\""));
  EXPECT_EQ(9, SsmClearCallerId(0));
  EXPECT_EQ("out of order", LastError());
  EXPECT_EQ(SSM_OK, SsmClearCallerId(0));
  EXPECT_EQ("", Do("overruns"));
  EXPECT_EQ(std::vector<std::string>{"0"}, vLines);
  EXPECT_EQ("", Do("speed 4"));
  EXPECT_EQ("", Do("status"));
  EXPECT_NE(std::string::npos, vLines[0].find(" speed=4 ")) << vLines[0];
}

TEST_F(SimPerform, StatusTellsOfChannelsBusyCircuitsAndFailuresToCome) {
  EventsOn();
  EXPECT_EQ("", Do("cic 30 ring in"));
  EXPECT_EQ("", Do("ch 0 offhook"));
  EXPECT_EQ("", Do("ch 4 play tone 440"));
  std::vector<BYTE> vRing(64);
  EXPECT_EQ(SSM_OK, SsmRecToMem(4, SSM_FORMAT_ALAW, vRing.data(), 64, 0));
  Advance(20);
  EXPECT_EQ("", Do("fail SsmClearCallerId 3"));
  EXPECT_EQ(-1, SsmClearCallerId(0));
  EXPECT_EQ("", Do("status"));
  ASSERT_EQ(1U + 127U + 1U + 1U, vLines.size());
  EXPECT_EQ("boards=4 channels=127 events_on=1 queued=2 overruns=0 speed=0 slipped=0.000 late=0.000", vLines[0]);
  EXPECT_EQ("ch=0 board=0 board_ch=0 type=analogue state=1 voltage=8 recording=0 recorded=0 tracing=0 plays=silence",
            vLines[1]);
  EXPECT_EQ("ch=4 board=1 board_ch=2 type=station state=0 voltage=0 recording=1 recorded=20 tracing=0 plays=tone",
            vLines[5]);
  EXPECT_EQ("ch=124 board=2 board_ch=119 type=trunk state=0 voltage=0 recording=0 recorded=0 tracing=0 plays=silence",
            vLines[125]);
  EXPECT_EQ("cic=30 state=2 in_ch=65 out_ch=95", vLines[128]);
  EXPECT_EQ("fail=SsmClearCallerId times=2", vLines[129]);
}

TEST_F(SimPerform, RecordedTellsOfRecordingsThatRun) {
  EventsOn();
  std::vector<BYTE> vRing(64);
  ASSERT_EQ(SSM_OK, SsmRecToMem(4, SSM_FORMAT_ALAW, vRing.data(), 64, 0));
  Advance(20);
  EXPECT_EQ("", Do("recorded 3..4"));
  EXPECT_EQ((std::vector<std::string>{"0", "20"}), vLines);
  ASSERT_EQ(SSM_OK, SsmStopRecToMem(4));
  EXPECT_EQ("", Do("recorded 4"));
  EXPECT_EQ(std::vector<std::string>{"0"}, vLines);
  EXPECT_EQ("channel 127 does not exist", Do("recorded 100..127"));
}

TEST_F(SimPerform, WaitsEndWhenTheirConditionHolds) {
  EXPECT_EQ("it did not come about in time", Do("wait ready timeout 0"));
  EventsOn();
  EXPECT_EQ("", Do("wait ready timeout 0"));
  EXPECT_EQ("", Do("wait idle timeout 0"));
  EXPECT_EQ("", Do("ch 0 offhook"));
  EXPECT_EQ("it did not come about in time", Do("wait handled timeout 0"));
  EXPECT_EQ(E_CHG_ChState, NextEvent().wEventCode);
  EXPECT_EQ("it did not come about in time", Do("wait handled timeout 0")) << "taken, but not dealt with yet";
  EXPECT_EQ(MAX_EVENT_SIZE, NextEvent().wEventCode);
  EXPECT_EQ("", Do("wait handled timeout 0"));
  std::vector<BYTE> vRing(64);
  EXPECT_EQ("it did not come about in time", Do("wait recording 2..3 timeout 0"));
  EXPECT_EQ("", Do("wait stopped 2..3 timeout 0"));
  EXPECT_EQ(SSM_OK, SsmRecToMem(2, SSM_FORMAT_ALAW, vRing.data(), 64, 0));
  EXPECT_EQ("it did not come about in time", Do("wait recording 2..3 timeout 0"));
  EXPECT_EQ("it did not come about in time", Do("wait stopped 2..3 timeout 0"));
  EXPECT_EQ("it did not come about in time", Do("wait idle timeout 0"));
  std::thread rRecorder([&] { EXPECT_EQ(SSM_OK, SsmRecToMem(3, SSM_FORMAT_ALAW, vRing.data(), 64, 0)); });
  EXPECT_EQ("", Do("wait recording 2..3"));
  rRecorder.join();
}

}  // namespace
}  // namespace simcards
