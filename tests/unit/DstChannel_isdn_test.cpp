// Call phases of telephones that speak ISDN-like signalling.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "ChannelBench.h"
#include "DstChannel.h"

namespace {

const Texts NOTHING;

// Telephone lines that speak call phases. Line 5 on driver channel 0; calls are barred from recording unless a test
// allows them, so that their start shows as the refusal.
class DstChannelIsdn : public ChannelBench {
 protected:
  DstChannelIsdn() {
    setenv("TZ", "UTC", 1);
    tzset();
    rRecorder.iNumberFilterType = 1;
    rRecorder.rBoardParams = {{"SilenceT", "15"}, {"AudioSens", "6"}};
  }
  void SetUp() override { Init("ISDN"); }
  void Init(const char* acPbxType, int iPhoneType = 0) {
    rRecorder.strPbxType = acPbxType;
    rRecorder.rChannelParams["PhoneType"] = std::to_string(iPhoneType);
    InitLine(rLine, 5);
  }
  void InitTenovis() {
    Init("Avaya Merlin", 1);
    ASSERT_EQ(PBX_TENOVIS, rLine.iPbxType);
  }
  void AllowRecording() { rRecorder.iNumberFilterType = 0; }

  void Text(DWORD dwCode, std::string strText, DWORD dwValue = 0) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, dwValue, &strText);
    rLine.HandleEvent(&rEvent);
  }
  static ISDN_CALL_INFO Info(DWORD dwSource, const char* acCaller, const char* acCalled, const char* acConnect = "") {
    ISDN_CALL_INFO rInfo;
    rInfo.CallSource = dwSource;
    (void)snprintf(rInfo.CallerNumber, sizeof rInfo.CallerNumber, "%s", acCaller);
    (void)snprintf(rInfo.CalledNumber, sizeof rInfo.CalledNumber, "%s", acCalled);
    (void)snprintf(rInfo.ConnectNumber, sizeof rInfo.ConnectNumber, "%s", acConnect);
    return rInfo;
  }
  // The record as the card hands it over, with what follows it.
  void Record(DWORD dwCode, const ISDN_CALL_INFO& rInfo, std::size_t uiBytes = ISDN_RECORD_BYTES) {
    std::string strData(reinterpret_cast<const char*>(&rInfo), sizeof rInfo);
    strData.resize(uiBytes, '\x7f');
    Text(dwCode, strData, /*dwValue=*/0);
  }
  // An incoming call of this number.
  void In(DWORD dwCode, const char* acFrom) { Record(dwCode, Info(1, acFrom, "22")); }
  void Out(DWORD dwCode, const char* acTo) { Record(dwCode, Info(2, "22", acTo)); }
  Texts Remotes() const {
    Texts astrRemotes;
    for (const BusyCall& rCall : rLine.vBusyCalls)
      astrRemotes.push_back(rCall.strRemote + (rCall.fIncoming ? " in" : " out"));
    return astrRemotes;
  }
  bool DetermineLR(const char* acText, bool fIncoming, std::string& strLocal, std::string& strRemote) {
    (void)snprintf(rLine.acPhoneDisp, sizeof rLine.acPhoneDisp, "%s", acText);
    rLine.fIncoming = fIncoming;
    return rLine.DetermineBriLR(strLocal, strRemote);
  }

  static constexpr DWORD PROGRESS = 0x6B, ALERTING = 0x6E, CONNECTED = 0x6F, RELEASED = 0x70, ABANDONED = 0x75,
                         REJECTED = 0x76;
  static constexpr const char* REFUSED = "5 [5] Not recording because not in number filter";
  static constexpr const char* NEW_RING = "5 [5] A new ring and expire remote";
  DST_Channel rLine;
};

}  // namespace

// -- parties from lines of text --------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, LinesOfTextAreThePartiesByDirection) {
  struct Row {
    const char* acText;
    bool fIncoming, fFound;
    const char *acLocal, *acRemote;
  };
  const Row rRows[] = {
      {"", true, false, "L", "R"},
      {"0301234", true, false, "L", "R"},
      {"0301234\n22", true, true, "22", "0301234"},
      {"22\n0301234", false, true, "22", "0301234"},
      {"0301234\n", true, true, "", "0301234"},
      {"\n", false, true, "", ""},
      {"0301234\n22\n", true, true, "22", "0301234"},
      {"0301234\n22\n7", true, true, "22", "0301234"},  // one character is no party
      {"0301234\n22\n33", true, true, "33", "0301234"},
      {"22\n0301234\n77", false, true, "22", "0301234"},  // nor are two when it goes out
      {"22\n0301234\n777", false, true, "22", "777"},
      {"0301234\n22\n33\n44", true, true, "22", "0301234"},  // four lines: the third means something else
      {"22\n0301234\n333\n", false, true, "22", "0301234"},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    std::string strLocal = "L";
    std::string strRemote = "R";
    EXPECT_EQ(rRow.fFound, DetermineLR(rRow.acText, rRow.fIncoming, strLocal, strRemote));
    EXPECT_EQ(rRow.acLocal, strLocal);
    EXPECT_EQ(rRow.acRemote, strRemote);
  }
}

TEST_F(DstChannelIsdn, TextOfOneLineOnlyEmptiesTheRemoteNumber) {
  rLine.strRemoteNum = "0305678";
  rLine.strLocalNum = "22";
  std::strcpy(rLine.acPhoneDisp, "0301234");
  rLine.AnalyseBriCID();
  EXPECT_EQ("", rLine.strRemoteNum);
  EXPECT_EQ("22", rLine.strLocalNum);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(DstChannelIsdn, TextOfTwoLinesGivesBothParties) {
  rLine.strRemoteNum = "0305678999";
  rLine.fIncoming = true;
  std::strcpy(rLine.acPhoneDisp, "0301234\n33");
  rLine.AnalyseBriCID();
  EXPECT_EQ("0301234", rLine.strRemoteNum);
  EXPECT_EQ("33", rLine.strLocalNum);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234"}), logsink::TakeTexts());
}

TEST_F(DstChannelIsdn, TenovisTextKeepsTheLongerNumber) {
  struct Row {
    const char *acLabel, *acBefore, *acText, *acRemote, *acLocal;
    bool fChanged;
  };
  const Row rRows[] = {
      {"one line", "0305678", "0301234", "0305678", "L", false},
      {"none before", "", "12\n22", "12", "22", true},
      {"empty before and after", "", "\n22", "", "22", true},
      {"longer", "123", "0301234\n22", "0301234", "22", true},
      {"as long", "0305678", "0301234\n22", "0301234", "22", true},
      {"shorter", "0305678", "030123\n22", "0305678", "L", false},
      {"a blank opens it", "123", "Ext 0301234\n22", "0301234", "22", true},
      {"only the first blank", "", "a b 12\n22", "b 12", "22", true},
      {"shorter without its head", "0305678", "Extern 030123\n22", "0305678", "L", false},
      {"nothing behind the blank", "", "Extern \n22", "", "22", true},
  };
  InitTenovis();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rLine.strRemoteNum = rRow.acBefore;
    rLine.strLocalNum = "L";
    rLine.fIncoming = true;
    std::strcpy(rLine.acPhoneDisp, rRow.acText);
    rLine.AnalyseBriCID();
    EXPECT_EQ(rRow.acRemote, rLine.strRemoteNum);
    EXPECT_EQ(rRow.acLocal, rLine.strLocalNum);
    EXPECT_EQ(rRow.fChanged ? Texts{std::string("5 [5] Remote: ") + rRow.acRemote} : NOTHING, logsink::TakeTexts());
  }
}

// -- phases as text --------------------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, IncomingCallByTextIsToldWhole) {
  Text(PROGRESS, "hello", 7);
  EXPECT_EQ((Texts{"5 [5] BRI in progress hello 7"}), logsink::TakeTexts());
  EXPECT_FALSE(rLine.fKnowIncoming);
  EXPECT_STREQ("hello", rLine.acPhoneDisp);
  Text(ALERTING, "0301234\n22", 1);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI alerting 0301234\n22 1"}), logsink::TakeTexts());
  EXPECT_TRUE(rLine.fKnowIncoming && rLine.fIncoming);
  EXPECT_FALSE(rLine.fRinging);  // a pulse
  EXPECT_EQ(rNow, rLine.rFirstRing);
  EXPECT_EQ(rNow, rLine.rLastRing);
  PassSeconds(5);
  Text(CONNECTED, "0301234\n22\n33", 1);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI connected '0301234\n22\n33' 1", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: 5", REFUSED}),
            logsink::TakeTexts());
  EXPECT_TRUE(rLine.fInCall_DChannel);
  EXPECT_EQ("33", rLine.strLocalNum);
  Text(RELEASED, "anything");
  EXPECT_EQ((Texts{"5 [5] BRI released", "5 [5] Call stops"}), logsink::TakeTexts());
  EXPECT_EQ("", rLine.strRemoteNum);
  EXPECT_TRUE(rLine.vBusyCalls.empty());  // texts keep no list
}

TEST_F(DstChannelIsdn, OutgoingCallByTextIsToldWhole) {
  Text(ALERTING, "22\n0301234", 2);
  Text(CONNECTED, "22\n0301234\n777", 0);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI alerting 22\n0301234 2", "5 [5] Remote: 777",
                   "5 [5] BRI connected '22\n0301234\n777' 0", "5 [5] Call starts", "5 [5] Outgoing call", REFUSED}),
            logsink::TakeTexts());
  EXPECT_EQ("22", rLine.strLocalNum);
  EXPECT_FALSE(rLine.fIncoming);
}

TEST_F(DstChannelIsdn, FreshNumberSurvivesTheRingOfItsAlert) {
  rLine.strRemoteNum = "0305678";
  rLine.rRemoteNumTime = rNow - 60;
  Text(ALERTING, "one line", 1);
  EXPECT_EQ((Texts{"5 [5] BRI alerting one line 1", NEW_RING}), logsink::TakeTexts());
  EXPECT_EQ("", rLine.strRemoteNum);
}

TEST_F(DstChannelIsdn, TextIsTakenUpToTheSizeOfTheEventBuffer) {
  for (const std::size_t uiLen : {301U, 1023U, 1024U, 1025U, 5000U}) {
    SCOPED_TRACE(uiLen);
    const std::string strText(uiLen, 'a');
    Text(PROGRESS, strText, 0);
    const std::string strKept = strText.substr(0, 1024);
    EXPECT_EQ((Texts{"5 [5] BRI in progress " + strKept + " 0"}), logsink::TakeTexts());
    EXPECT_EQ(strKept, rLine.acPhoneDisp);
  }
}

TEST_F(DstChannelIsdn, ShorterTextLeavesNothingOfTheOneBefore) {
  Text(PROGRESS, "0301234\n22");
  Text(PROGRESS, "ab");
  EXPECT_STREQ("ab", rLine.acPhoneDisp);
  Text(PROGRESS, "");
  EXPECT_STREQ("", rLine.acPhoneDisp);
}

TEST_F(DstChannelIsdn, LengthAloneMakesARecord) {
  struct Row {
    std::size_t uiBytes;
    bool fRecord;
  };
  for (const Row& rRow : {Row{203, false}, Row{204, true}, Row{205, false}, Row{235, false}, Row{236, true},
                          Row{237, false}, Row{272, false}}) {
    SCOPED_TRACE(rRow.uiBytes);
    const std::string strText(rRow.uiBytes, ' ');
    Text(PROGRESS, strText);
    const std::string strBlanks(32, ' ');  // no NUL: the field ends the number
    EXPECT_EQ(rRow.fRecord ? Texts({"5 [5] ISDN progress F:" + strBlanks + " T:" + strBlanks + " C:" + strBlanks +
                                        " OUT (L:" + strBlanks + " R:)",
                                    "5 [5] Remote: "})
                           : Texts{"5 [5] BRI in progress " + strText + " 0"},
              logsink::TakeTexts());
  }
}

// -- phases as records -----------------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, PartiesOfARecord) {
  struct Row {
    const char* acLabel;
    DWORD dwSource;
    const char* acConnect;
    const char *acDirection, *acLocal, *acRemote;
  };
  const Row rRows[] = {
      {"in", 1, "", "Inc", "22", "0301234"},
      {"in, one character", 1, "7", "Inc", "22", "0301234"},
      {"in, connected", 1, "33", "Inc", "33", "0301234"},
      {"out", 2, "", "OUT", "0301234", "22"},
      {"out by any other value", 0, "", "OUT", "0301234", "22"},
      {"out by a value with 1 in it", 0x10001, "", "OUT", "0301234", "22"},
      {"out, two characters", 2, "77", "OUT", "0301234", "22"},
  };
  for (const Row& rRow : rRows) {
    for (const std::size_t uiBytes : {ISDN_RECORD_BYTES, ISDN_RECORD_EXTENDED_BYTES}) {
      SCOPED_TRACE(rRow.acLabel);
      rLine.strConnectedNum = "member";
      Record(PROGRESS, Info(rRow.dwSource, "0301234", "22", rRow.acConnect), uiBytes);
      EXPECT_EQ((Texts{std::string("5 [5] ISDN progress F:0301234 T:22 C:") + rRow.acConnect + " " + rRow.acDirection +
                           " (L:" + rRow.acLocal + " R:" + rRow.acRemote + ")",
                       std::string("5 [5] Remote: ") + rRow.acRemote}),
                logsink::TakeTexts());
      EXPECT_EQ(rRow.acLocal, rLine.strLocalNum);
      EXPECT_EQ(rRow.acRemote, rLine.strRemoteNum);
      EXPECT_EQ(rRow.dwSource == 1, rLine.fIncoming);
      EXPECT_EQ("member", rLine.strConnectedNum);
    }
  }
}

TEST_F(DstChannelIsdn, OutgoingRecordTakesConnectedNumberOfChannel) {
  rLine.strConnectedNum = "0307777";
  Record(PROGRESS, Info(2, "22", "0301234", "033"));
  EXPECT_EQ("0307777", rLine.strRemoteNum);
  rLine.strConnectedNum = "";
  Record(PROGRESS, Info(2, "22", "0301234", "033"));
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:22 T:0301234 C:033 OUT (L:22 R:0307777)", "5 [5] Remote: 0307777",
                   "5 [5] ISDN progress F:22 T:0301234 C:033 OUT (L:22 R:)", "5 [5] Remote: "}),
            logsink::TakeTexts());
}

TEST_F(DstChannelIsdn, UnterminatedNumbersEndWithTheirFields) {
  ISDN_CALL_INFO rInfo;
  std::memset(static_cast<void*>(&rInfo), '5', sizeof rInfo);
  rInfo.CallSource = 1;
  Record(PROGRESS, rInfo);
  const std::string strFives(32, '5');
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:" + strFives + " T:" + strFives + " C:" + strFives + " Inc (L:" + strFives +
                       " R:" + strFives + ")",
                   "5 [5] Remote: " + strFives}),
            logsink::TakeTexts());
}

TEST_F(DstChannelIsdn, OtherFieldsOfARecordAreNotRead) {
  ISDN_CALL_INFO rInfo = Info(1, "0301234", "22");
  rInfo.CallRef = rInfo.Cause = 0xFFFFFFFF;
  std::memset(rInfo.CallerSubAddr, 'x', sizeof rInfo.CallerSubAddr);
  std::memset(rInfo.CalledSubAddr, 'y', sizeof rInfo.CalledSubAddr);
  std::memset(rInfo.ConnectSubAddr, 'z', sizeof rInfo.ConnectSubAddr);
  Record(PROGRESS, rInfo);
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234"}),
            logsink::TakeTexts());
}

TEST_F(DstChannelIsdn, UnknownPhaseIsToldByItsNumber) {
  const ISDN_CALL_INFO rInfo = Info(1, "0301234", "22");
  rLine.HandleIsdnCallInfo(0x75, &rInfo);
  EXPECT_EQ((Texts{"5 [5] ISDN 117 F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234"}),
            logsink::TakeTexts());
}

TEST_F(DstChannelIsdn, CallByRecordsIsToldWhole) {
  Record(PROGRESS, Info(1, "0301234", "22"));
  Record(ALERTING, Info(1, "0301234", "22"));
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234",
                   "5 [5] ISDN alerting F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234"}),
            logsink::TakeTexts());
  EXPECT_TRUE(rLine.fKnowIncoming);
  EXPECT_FALSE(rLine.fRinging);
  PassSeconds(4);
  Record(CONNECTED, Info(1, "0301234", "22", "33"), ISDN_RECORD_EXTENDED_BYTES);
  EXPECT_EQ((Texts{"5 [5] ISDN connected F:0301234 T:22 C:33 Inc (L:33 R:0301234)", "5 [5] Remote: 0301234",
                   "5 [5] Call starts", "5 [5] Incoming call, ringing time: 4", REFUSED}),
            logsink::TakeTexts());
  EXPECT_EQ((Texts{"0301234 in"}), Remotes());  // on every profile
  EXPECT_EQ(PBX_UNDEF, rLine.iPbxType);
  Record(RELEASED, Info(1, "0309999", "44"));
  // The numbers of a release are not taken.
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0309999 T:44 C: Inc (L:44 R:0309999)", "5 [5] Remote: 0301234", REFUSED,
                   "5 [5] Call stops"}),
            logsink::TakeTexts());
  EXPECT_FALSE(rLine.fCallBusy);
  EXPECT_EQ((Texts{"0301234 in"}), Remotes());  // and read on one alone
}

// -- several calls on one telephone ----------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, FirstRecordShowsThatATenovisLineSpeaksRecords) {
  for (const DWORD dwCode : {PROGRESS, ALERTING, CONNECTED, RELEASED}) {
    SCOPED_TRACE(dwCode);
    DST_Channel rFresh;
    rRecorder.strPbxType = "Avaya Merlin";
    rRecorder.rChannelParams["PhoneType"] = "1";
    InitLine(rFresh, 5);
    ASSERT_EQ(PBX_TENOVIS, rFresh.iPbxType);
    ISDN_CALL_INFO rInfo = Info(1, "0301234", "22");
    rFresh.HandleIsdnCallInfo(dwCode, &rInfo);
    EXPECT_EQ(PBX_TENOVIS_ISDN, rFresh.iPbxType);
  }
}

TEST_F(DstChannelIsdn, TextAfterARecordIsReadAsOnOtherLines) {
  InitTenovis();
  In(PROGRESS, "0301234");
  (void)logsink::Take();
  Text(ALERTING, "12\n22", 1);  // shorter, yet taken
  EXPECT_EQ("12", rLine.strRemoteNum);
  EXPECT_EQ(PBX_TENOVIS_ISDN, rLine.iPbxType);
}

TEST_F(DstChannelIsdn, SecondCallThatConnectsCutsTheRecording) {
  AllowRecording();
  InitTenovis();
  In(CONNECTED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN connected F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Remote: 0301", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: -1", "5 [5] Starting recording",
                   "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134640_005_01.wav"}),
            logsink::TakeTexts());
  PassSeconds(7);
  Out(CONNECTED, "0302");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN connected F:22 T:0302 C: OUT (L:22 R:0302)", "5 [5] Restarting recording",
             "5 [5] Recording stopped (7 s)", "5 [5] Starting recording",
             "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134647_005_02.wav", "5 [5] Remote: 0302"}),
      logsink::TakeTexts());
  EXPECT_EQ((Texts{"0301 in", "0302 out"}), Remotes());
  EXPECT_EQ("0302", rLine.strRemoteNum);
  EXPECT_FALSE(rLine.fIncoming);
  const auto& rCalls = rRecorder.rDatabase.rTables["Calls"];
  ASSERT_EQ(1U, rCalls.size());
  EXPECT_EQ("0301", rCalls.begin()->second.at("remote"));
  EXPECT_EQ("7", rCalls.begin()->second.at("duration"));
  EXPECT_EQ("0", rCalls.begin()->second.at("direction"));
  EXPECT_EQ("0302", rRecorder.rDatabase.rTables["ActiveCalls"][rLine.iActiveCallID]["remote"]);
}

TEST_F(DstChannelIsdn, FurtherCallThatRingsChangesNoNumber) {
  InitTenovis();
  In(CONNECTED, "0301");
  for (const DWORD dwCode : {PROGRESS, ALERTING}) {
    (void)logsink::Take();
    Out(dwCode, "0302");
    const Texts astrLines = logsink::TakeTexts();
    EXPECT_EQ("5 [5] Remote: 0301", astrLines.at(1));
    EXPECT_EQ("0301", rLine.strRemoteNum);
    EXPECT_EQ("22", rLine.strLocalNum);
    EXPECT_TRUE(rLine.fIncoming);
    EXPECT_EQ((Texts{"0301 in"}), Remotes());
  }
}

TEST_F(DstChannelIsdn, ReleaseOfTheRecordedCallGoesBackToTheFirst) {
  AllowRecording();
  rRecorder.rDatabase.rParts["o"]["RecLocal"] = "1";
  InitTenovis();
  In(CONNECTED, "0301");
  PassSeconds(5);
  Out(CONNECTED, "0302");
  PassSeconds(6);
  ForgetTraces();
  Out(RELEASED, "0302");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN released F:22 T:0302 C: OUT (L:22 R:0302)", "5 [5] Recording stopped (6 s)",
             "5 [5] Starting recording", "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134651_005_03.wav",
             "5 [5] Tenovis. A call continues with 0301", "5 [5] Remote: 0301"}),
      logsink::TakeTexts());
  EXPECT_EQ("0301", rLine.strRemoteNum);
  EXPECT_TRUE(rLine.fIncoming && rLine.fRecording && rLine.fCallBusy);
  EXPECT_EQ((Texts{"0301 in"}), Remotes());
  PassSeconds(2);
  In(RELEASED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Remote: 0301", "5 [5] Call stops",
                   "5 [5] Recording stopped (2 s)"}),
            logsink::TakeTexts());
  EXPECT_FALSE(rLine.fCallBusy);
  EXPECT_EQ(3U, rRecorder.rDatabase.rTables["Calls"].size());
}

TEST_F(DstChannelIsdn, ReleaseOfTheOtherCallLeavesTheRecordingAlone) {
  AllowRecording();
  InitTenovis();
  In(CONNECTED, "0301");
  PassSeconds(5);
  Out(CONNECTED, "0302");
  const std::string strFile = rLine.strFullFilename;
  ForgetTraces();
  In(RELEASED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Tenovis. A call continues with 0302",
                   "5 [5] Remote: 0302"}),
            logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
  EXPECT_EQ(strFile, rLine.strFullFilename);
  EXPECT_TRUE(rLine.fRecording);
  EXPECT_FALSE(rLine.fIncoming);
  EXPECT_EQ((Texts{"0302 out"}), Remotes());
}

TEST_F(DstChannelIsdn, ReleasesInAnyOrderEndWithTheLast) {
  const char* const acNumbers[] = {"0301", "0302", "0303"};
  int aiOrder[] = {0, 1, 2};
  do {
    SCOPED_TRACE(std::to_string(aiOrder[0]) + std::to_string(aiOrder[1]) + std::to_string(aiOrder[2]));
    InitTenovis();
    for (const char* const acNumber : acNumbers) In(CONNECTED, acNumber);
    ASSERT_EQ((Texts{"0301 in", "0302 in", "0303 in"}), Remotes());
    std::string strWanted = "0303";  // the last that connected
    Texts astrLeft = {"0301", "0302", "0303"};
    for (int i = 0; i < 3; i++) {
      const std::string strGone = acNumbers[aiOrder[i]];
      astrLeft.erase(std::find(astrLeft.begin(), astrLeft.end(), strGone));
      ASSERT_TRUE(rLine.fCallBusy);
      In(RELEASED, strGone.c_str());
      if (strGone == strWanted && !astrLeft.empty()) strWanted = astrLeft[0];
      EXPECT_EQ(!astrLeft.empty(), rLine.fCallBusy);
      EXPECT_EQ(astrLeft.empty() ? "" : strWanted, rLine.strRemoteNum);
      EXPECT_EQ(astrLeft.size(), rLine.vBusyCalls.size());
    }
  } while (std::next_permutation(std::begin(aiOrder), std::end(aiOrder)));
}

TEST_F(DstChannelIsdn, UnknownReleaseShortensTheList) {
  InitTenovis();
  In(CONNECTED, "0301");
  In(CONNECTED, "0302");
  (void)logsink::Take();
  In(RELEASED, "0999");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN released F:0999 T:22 C: Inc (L:22 R:0999)", "4 [5] Tenovis. Unknown remote (0999) to release",
             REFUSED, "5 [5] Tenovis. A call continues with 0301", "5 [5] Remote: 0301", REFUSED}),
      logsink::TakeTexts());
  EXPECT_EQ((Texts{"0301 in"}), Remotes());
  In(RELEASED, "0999");
  EXPECT_FALSE(rLine.fCallBusy);
  EXPECT_TRUE(rLine.vBusyCalls.empty());
}

TEST_F(DstChannelIsdn, ReleaseWithoutAnyCallTellsAndFinishes) {
  InitTenovis();
  rLine.fInCall_Offhook = true;
  rLine.InCallMaybeChanged();
  (void)logsink::Take();
  In(RELEASED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)",
                   "4 [5] Tenovis. Unknown remote (0301) to release", "5 [5] Remote: ", REFUSED, "5 [5] Call stops"}),
            logsink::TakeTexts());
  EXPECT_FALSE(rLine.InCall());
}

TEST_F(DstChannelIsdn, FirstOfTwoEqualRemotesIsRemoved) {
  rLine.vBusyCalls = {{"1", true}, {"2", true}, {"1", false}};
  rLine.RemoveFromBusyRemotes("1");
  EXPECT_EQ((Texts{"2 in", "1 out"}), Remotes());
  EXPECT_TRUE(rLine.IsInBusyRemotes("1"));
  EXPECT_FALSE(rLine.IsInBusyRemotes("11"));
  EXPECT_FALSE(rLine.IsInBusyRemotes(""));
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  rLine.RemoveFromBusyRemotes("9");
  EXPECT_EQ((Texts{"2 in"}), Remotes());
  rLine.RemoveFromBusyRemotes("9");
  rLine.RemoveFromBusyRemotes("9");
  EXPECT_EQ(NOTHING, Remotes());
  EXPECT_EQ(Texts(3, "4 [5] Tenovis. Unknown remote (9) to release"), logsink::TakeTexts());
}

// -- missed calls ----------------------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, MissedCallIsARow) {
  rLine.fMissedCalls = true;
  Text(ALERTING, "0301234\n22", 1);
  ForgetTraces();
  PassSeconds(9);
  Text(ABANDONED, "");
  EXPECT_EQ((Texts{"5 [5] BRI call abandoned", "5 [5] Missed call!"}), logsink::TakeTexts());
  const auto& rCalls = rRecorder.rDatabase.rTables["Calls"];
  ASSERT_EQ(1U, rCalls.size());
  EXPECT_EQ((StdStringMap{
                {"startdate", "1000000"},  // the first ring
                {"duration", "0"},          {"filename", ""},          {"isconnected", "0"},  {"linenr", "5"},
                {"waittime", "-1"},         {"source", "5"},           {"isarchived", "0"},   {"encoding", "0"},
                {"encryption", "0"},        {"processingstate", "0"},  {"flags", "64"},       {"directory", ""},
                {"lineid", "105"},          {"remoteid", ""},          {"remote", "0301234"}, {"remotefull", "0301234"},
                {"remotecallerid", "5000"}, {"remotecontact", "6000"}, {"local", "22"},       {"localfull", "22"},
                {"localcallerid", "5001"},  {"localcontact", "6001"},  {"direction", "0"},    {"recorderid", "7"},
                {"callextra", ""}}),
            rCalls.begin()->second);
  EXPECT_TRUE(rRecorder.rDatabase.rTables["ActiveCalls"].empty());
  EXPECT_EQ(-1, rLine.iActiveCallID);
}

TEST_F(DstChannelIsdn, MissedCallOfARecordHasTheSameRow) {
  InitTenovis();
  rLine.fMissedCalls = true;
  rRecorder.fALE = true;  // the mark of a missed call replaces that of encryption
  In(ALERTING, "0301234");
  Text(REJECTED, "");
  const auto& rCalls = rRecorder.rDatabase.rTables["Calls"];
  ASSERT_EQ(1U, rCalls.size());
  EXPECT_EQ("64", rCalls.begin()->second.at("flags"));
  EXPECT_EQ("0301234", rCalls.begin()->second.at("remote"));
  EXPECT_EQ("", rCalls.begin()->second.at("local"));  // the line has no number of its own
  EXPECT_EQ("1005", rCalls.begin()->second.at("localcontact"));
}

TEST_F(DstChannelIsdn, OnlyAMissedCallThatRangIsWritten) {
  struct Row {
    const char* acLabel;
    bool fWanted;  // setting
    bool fRang;
    bool DST_Channel::*prFlag;
    bool fWritten;
  };
  const Row rRows[] = {{"off", false, true, nullptr, false},
                       {"no ring", true, false, nullptr, false},
                       {"off hook", true, true, &DST_Channel::fInCall_Offhook, false},
                       {"audio", true, true, &DST_Channel::fInCall_Audio, false},
                       {"condition", true, true, &DST_Channel::fInCall_Extra, false},
                       {"connected", true, true, &DST_Channel::fInCall_DChannel, false},
                       {"missed", true, true, nullptr, true}};
  for (const DWORD dwCode : {ABANDONED, REJECTED}) {
    for (const Row& rRow : rRows) {
      SCOPED_TRACE(rRow.acLabel);
      DST_Channel rFresh;
      InitLine(rFresh, 5);
      rRecorder.rDatabase.rTables.clear();
      rFresh.fMissedCalls = rRow.fWanted;
      if (rRow.prFlag != nullptr) rFresh.*rRow.prFlag = true;
      rFresh.InCallMaybeChanged();
      rFresh.rFirstRing = rRow.fRang ? rNow : 0;
      (void)logsink::Take();
      SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode);
      rFresh.HandleEvent(&rEvent);
      Texts astrWanted = {dwCode == ABANDONED ? "5 [5] BRI call abandoned" : "5 [5] BRI call rejected"};
      if (rRow.fWritten) astrWanted.push_back("5 [5] Missed call!");
      if (rRow.prFlag != nullptr) astrWanted.push_back("5 [5] Call stops");
      EXPECT_EQ(astrWanted, logsink::TakeTexts());
      EXPECT_EQ(rRow.fWritten ? 1U : 0U, rRecorder.rDatabase.rTables["Calls"].size());
    }
  }
}

TEST_F(DstChannelIsdn, CancelledCallLeavesTheOtherCallsOfATenovisTelephone) {
  struct Row {
    int iPbxType;
    bool fStays;
  };
  for (const DWORD dwCode : {ABANDONED, REJECTED}) {
    for (const Row& rRow : {Row{PBX_UNDEF, false}, Row{PBX_TENOVIS, false}, Row{PBX_TENOVIS_ISDN, true}}) {
      SCOPED_TRACE(rRow.iPbxType);
      DST_Channel rFresh;
      InitLine(rFresh, 5);
      rFresh.iPbxType = rRow.iPbxType;
      rFresh.fMissedCalls = true;
      rFresh.fInCall_DChannel = true;
      rFresh.InCallMaybeChanged();
      rFresh.rFirstRing = rNow;
      SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode);
      rFresh.HandleEvent(&rEvent);
      EXPECT_EQ(rRow.fStays, rFresh.fCallBusy);
      EXPECT_TRUE(rRecorder.rDatabase.rTables["Calls"].empty());
    }
  }
}

TEST_F(DstChannelIsdn, PhasesAreConditionsToo) {
  rRecorder.rStopCnds = {{RELEASED, 3}};
  rRecorder.rStartCnds = {{PROGRESS, 0}};
  In(PROGRESS, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Remote: 0301",
                   "5 [5] Start condition", "5 [5] Call starts", "5 [5] Outgoing call", REFUSED}),
            logsink::TakeTexts());
}
