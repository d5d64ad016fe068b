// Call phases of telephones that speak ISDN-like signalling.
#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

#include "DstBench.h"
#include "DstChannel.h"
#include "OpenTelephone.h"

namespace {

const Texts NOTHING;

class DstChannelIsdn : public DstBench {
 protected:
  void SetUp() override { Init("ISDN"); }
  void InitTenovis(const StdStringMap& rSettings = {}) { Init("Avaya Merlin", rSettings, 1); }

  void Text(DWORD dwCode, const std::string& strText, DWORD dwValue = 0) { DText(dwCode, strText, dwValue); }
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
    Text(dwCode, strData);
  }
  // An incoming call of this number.
  void In(DWORD dwCode, const char* acFrom) { Record(dwCode, Info(1, acFrom, "22")); }
  void Out(DWORD dwCode, const char* acTo) { Record(dwCode, Info(2, "22", acTo)); }

  static constexpr DWORD PROGRESS = 0x6B, ALERTING = 0x6E, CONNECTED = 0x6F, RELEASED = 0x70, ABANDONED = 0x75,
                         REJECTED = 0x76;
};

}  // namespace

// -- parties from lines of text ---------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, LinesOfTextAreThePartiesByDirection) {
  struct Row {
    const char* acText;
    bool fIncoming;
    const char *acLocal, *acRemote;
  };
  const Row rRows[] = {
      {"", true, "88", ""},  // no parties: the remote one is forgotten
      {"0301234", true, "88", ""},
      {"0301234\n22", true, "22", "0301234"},
      {"22\n0301234", false, "22", "0301234"},
      {"0301234\n", true, "", "0301234"},
      {"\n", false, "", ""},
      {"0301234\n22\n", true, "22", "0301234"},
      {"0301234\n22\n7", true, "22", "0301234"},  // one character is no party
      {"0301234\n22\n33", true, "33", "0301234"},
      {"22\n0301234\n77", false, "22", "0301234"},  // nor are two when it goes out
      {"22\n0301234\n777", false, "22", "777"},
      {"0301234\n22\n33\n44", true, "22", "0301234"},  // four lines: the third means something else
      {"22\n0301234\n333\n", false, "22", "0301234"},
  };
  AllowRecording();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    Init("ISDN");
    Text(ALERTING, "0309999999\n88", 1);
    Text(CONNECTED, rRow.acText, rRow.fIncoming ? 1 : 2);
    EXPECT_EQ(rRow.acRemote, Active("remote"));
    EXPECT_EQ(rRow.acLocal, Active("local"));
    EXPECT_EQ(rRow.fIncoming ? "0" : "1", Active("direction"));
  }
}

TEST_F(DstChannelIsdn, TextOfOneLineEmptiesTheRemoteNumberWithoutAWord) {
  Text(ALERTING, "0305678\n22", 1);
  ForgetTraces();
  Text(ALERTING, "0301234", 1);
  EXPECT_EQ((Texts{"5 [5] BRI alerting 0301234 1"}), Log());
  AllowRecording();
  OffHook();
  EXPECT_EQ("", Active("remote"));
  EXPECT_EQ("22", Active("local"));
}

TEST_F(DstChannelIsdn, TextReplacesALongerNumber) {
  Text(ALERTING, "0305678999\n22", 1);
  ForgetTraces();
  Text(ALERTING, "0301234\n33", 1);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI alerting 0301234\n33 1"}), Log());
}

TEST_F(DstChannelIsdn, TenovisTextKeepsTheLongerNumber) {
  struct Row {
    const char *acLabel, *acBefore, *acText, *acRemote;
    bool fTaken;
  };
  const Row rRows[] = {
      {"one line", "0305678", "0301234", "0305678", false},
      {"none before", "", "12\n22", "12", true},
      {"empty before and after", "", "\n22", "", true},
      {"longer", "123", "0301234\n22", "0301234", true},
      {"as long", "0305678", "0301234\n22", "0301234", true},
      {"shorter", "0305678", "030123\n22", "0305678", false},
      {"a blank opens it", "123", "Ext 0301234\n22", "0301234", true},
      {"only the first blank", "", "a b 12\n22", "b 12", true},
      {"shorter without its head", "0305678", "Extern 030123\n22", "0305678", false},
      {"nothing behind the blank", "", "Extern \n22", "", true},
  };
  AllowRecording();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    InitTenovis({{"TdmStart", "1"}});  // for its local number, which is kept
    Text(ALERTING, std::string(rRow.acBefore) + "\n88", 1);
    ForgetTraces();
    Text(ALERTING, rRow.acText, 1);
    const std::string strTold = std::string("5 [5] BRI alerting ") + rRow.acText + " 1";
    EXPECT_EQ(rRow.fTaken ? Texts({std::string("5 [5] Remote: ") + rRow.acRemote, strTold}) : Texts{strTold}, Log());
    EXPECT_EQ(rRow.fTaken ? "22" : "88", KeptLocalNum());
    OffHook();
    EXPECT_EQ(rRow.acRemote, Active("remote"));
  }
}

// -- phases as text ---------------------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, IncomingCallByTextIsToldWhole) {
  Text(PROGRESS, "hello", 7);
  EXPECT_EQ((Texts{"5 [5] BRI in progress hello 7"}), Log());
  Text(ALERTING, "0301234\n22", 1);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI alerting 0301234\n22 1"}), Log());
  PassSeconds(5);
  Text(CONNECTED, "0301234\n22\n33", 1);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI connected '0301234\n22\n33' 1", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: 5", REFUSED}),
            Log());
  Text(RELEASED, "anything");
  EXPECT_EQ((Texts{"5 [5] BRI released", "5 [5] Call stops"}), Log());
}

TEST_F(DstChannelIsdn, OutgoingCallByTextIsToldWhole) {
  Text(ALERTING, "22\n0301234", 2);
  Text(CONNECTED, "22\n0301234\n777", 0);
  EXPECT_EQ((Texts{"5 [5] Remote: 0301234", "5 [5] BRI alerting 22\n0301234 2", "5 [5] Remote: 777",
                   "5 [5] BRI connected '22\n0301234\n777' 0", "5 [5] Call starts", "5 [5] Outgoing call", REFUSED}),
            Log());
}

TEST_F(DstChannelIsdn, ProgressAsTextTellsNeitherPartiesNorDirection) {
  Text(PROGRESS, "0301234\n22", 1);
  OffHook();
  EXPECT_EQ(Join({"5 [5] BRI in progress 0301234\n22 1", "5 [5] Off hook"}, STARTS), Log());
}

TEST_F(DstChannelIsdn, AlertIsAPulseOfRinging) {
  Text(ALERTING, "0301234\n22", 2);
  PassSeconds(11);
  ForgetTraces();
  DMsg(DMSG_RING_ON);
  EXPECT_EQ((Texts{"5 [5] Ring on (101f)", NEW_RING}), Log()) << "the pause begins with the alert";
}

TEST_F(DstChannelIsdn, AlertLeavesNoRingOpen) {
  Text(ALERTING, "0301234\n22", 1);
  OnHook();
  PassSeconds(60);
  ForgetTraces();
  EXPECT_EQ((Texts{"5 [5] Remote: "}), Shown("5678")) << "a ringing line would take the number";
}

TEST_F(DstChannelIsdn, TextsKeepNoListOfCalls) {
  InitTenovis();
  Text(CONNECTED, "0301\n22", 1);
  ForgetTraces();
  In(RELEASED, "0301");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)", "4 [5] Tenovis. Unknown remote (0301) to release",
             "5 [5] Remote: 0301", REFUSED, "5 [5] Call stops"}),
      Log());
}

TEST_F(DstChannelIsdn, OnlyAFreshNumberSurvivesTheRingOfItsAlert) {
  Text(ALERTING, "0305678\n22", 1);
  PassSeconds(60);
  ForgetTraces();
  Text(ALERTING, "one line", 1);
  EXPECT_EQ((Texts{"5 [5] BRI alerting one line 1", NEW_RING}), Log());
  PassSeconds(60);
  Text(ALERTING, "0305678\n22", 1);
  EXPECT_EQ((Texts{"5 [5] Remote: 0305678", "5 [5] BRI alerting 0305678\n22 1"}), Log());
}

TEST_F(DstChannelIsdn, TextIsTakenUpToTheSizeOfTheEventBuffer) {
  for (const std::size_t uiLen : {301U, 1023U, 1024U, 1025U, 5000U}) {
    SCOPED_TRACE(uiLen);
    const std::string strText(uiLen, 'a');
    Text(PROGRESS, strText, 0);
    EXPECT_EQ((Texts{"5 [5] BRI in progress " + strText.substr(0, 1024) + " 0"}), Log());
  }
}

TEST_F(DstChannelIsdn, ShorterTextLeavesNothingOfTheOneBefore) {
  Text(PROGRESS, "0301234\n22");
  Text(PROGRESS, "ab");
  Text(PROGRESS, "");
  EXPECT_EQ((Texts{"5 [5] BRI in progress 0301234\n22 0", "5 [5] BRI in progress ab 0", "5 [5] BRI in progress  0"}),
            Log());
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
              Log());
  }
}

// -- phases as records ------------------------------------------------------------------------------------------------

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
  AllowRecording();
  for (const Row& rRow : rRows) {
    for (const std::size_t uiBytes : {ISDN_RECORD_BYTES, ISDN_RECORD_EXTENDED_BYTES}) {
      SCOPED_TRACE(rRow.acLabel);
      Init("ISDN");
      const ISDN_CALL_INFO rInfo = Info(rRow.dwSource, "0301234", "22", rRow.acConnect);
      Record(PROGRESS, rInfo, uiBytes);
      EXPECT_EQ((Texts{std::string("5 [5] ISDN progress F:0301234 T:22 C:") + rRow.acConnect + " " + rRow.acDirection +
                           " (L:" + rRow.acLocal + " R:" + rRow.acRemote + ")",
                       std::string("5 [5] Remote: ") + rRow.acRemote}),
                Log());
      Record(CONNECTED, rInfo, uiBytes);
      EXPECT_EQ(rRow.acLocal, Active("local"));
      EXPECT_EQ(rRow.acRemote, Active("remote"));
      EXPECT_EQ(rRow.dwSource == 1 ? "0" : "1", Active("direction"));
    }
  }
}

// At a site with names a display gives the channel its connected number.
TEST_F(DstChannelIsdn, OutgoingRecordTakesConnectedNumberOfChannel) {
  rRecorder.rSpecials = {"Pilot"};
  Init("ISDN");
  OffHook();
  Display("12345 Jansen");
  ForgetTraces();
  Record(PROGRESS, Info(2, "22", "0301234", "033"));
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:22 T:0301234 C:033 OUT (L:22 R:Jansen)", "5 [5] Remote: Jansen", REFUSED}),
            Log());
  OnHook();
  ForgetTraces();
  Record(PROGRESS, Info(2, "22", "0301234", "033"));
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:22 T:0301234 C:033 OUT (L:22 R:)", "5 [5] Remote: "}), Log());
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
            Log());
}

TEST_F(DstChannelIsdn, OtherFieldsOfARecordAreNotRead) {
  ISDN_CALL_INFO rInfo = Info(1, "0301234", "22");
  rInfo.CallRef = rInfo.Cause = 0xFFFFFFFF;
  std::memset(rInfo.CallerSubAddr, 'x', sizeof rInfo.CallerSubAddr);
  std::memset(rInfo.CalledSubAddr, 'y', sizeof rInfo.CalledSubAddr);
  std::memset(rInfo.ConnectSubAddr, 'z', sizeof rInfo.ConnectSubAddr);
  Record(PROGRESS, rInfo);
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234"}), Log());
}

TEST_F(DstChannelIsdn, UnknownPhaseIsToldByItsNumber) {
  OpenTelephone rOpen;
  InitLine(rOpen, 5);
  const ISDN_CALL_INFO rInfo = Info(1, "0301234", "22");
  rOpen.HandleIsdnCallInfo(0x75, &rInfo);
  EXPECT_EQ((Texts{"5 [5] ISDN 117 F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234"}), Log());
}

TEST_F(DstChannelIsdn, CallByRecordsIsToldWhole) {
  Record(PROGRESS, Info(1, "0301234", "22"));
  Record(ALERTING, Info(1, "0301234", "22"));
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234",
                   "5 [5] ISDN alerting F:0301234 T:22 C: Inc (L:22 R:0301234)", "5 [5] Remote: 0301234"}),
            Log());
  PassSeconds(4);
  Record(CONNECTED, Info(1, "0301234", "22", "33"), ISDN_RECORD_EXTENDED_BYTES);
  EXPECT_EQ((Texts{"5 [5] ISDN connected F:0301234 T:22 C:33 Inc (L:33 R:0301234)", "5 [5] Remote: 0301234",
                   "5 [5] Call starts", "5 [5] Incoming call, ringing time: 4", REFUSED}),
            Log());
  Record(RELEASED, Info(1, "0309999", "44"));
  // The numbers of a release are not taken.
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0309999 T:44 C: Inc (L:44 R:0309999)", "5 [5] Remote: 0301234", REFUSED,
                   "5 [5] Call stops"}),
            Log());
}

TEST_F(DstChannelIsdn, FurtherRecordOnALineOfOneCallReplacesItsNumbers) {
  In(CONNECTED, "0301");
  ForgetTraces();
  Out(CONNECTED, "0302");
  In(ALERTING, "0303");
  EXPECT_EQ((Texts{"5 [5] ISDN connected F:22 T:0302 C: OUT (L:22 R:0302)", "5 [5] Remote: 0302", REFUSED,
                   "5 [5] ISDN alerting F:0303 T:22 C: Inc (L:22 R:0303)", "5 [5] Remote: 0303", REFUSED}),
            Log());
}

TEST_F(DstChannelIsdn, ListOfCallsGrowsOnlyWhereItIsRead) {
  for (const bool isTenovis : {false, true}) {
    Init(isTenovis ? "Avaya Merlin" : "ISDN", {}, 1);
    auto prOpen = std::make_unique<OpenTelephone>();
    OpenTelephone& rOpen = *prOpen;
    TakeLine(std::move(prOpen));
    InitLine(rOpen, 5);
    for (const DWORD dwCode : {PROGRESS, ALERTING, CONNECTED}) In(dwCode, "0301234");
    ASSERT_EQ(isTenovis ? 1U : 0U, rOpen.vBusyCalls.size());
    if (!isTenovis) continue;
    EXPECT_EQ("0301234", rOpen.vBusyCalls[0].strRemote);
    EXPECT_TRUE(rOpen.vBusyCalls[0].fIncoming);
  }
}

// -- several calls on one telephone -----------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, TextBehindARecordIsReadAsOnOtherLines) {
  for (const DWORD dwCode : {PROGRESS, ALERTING, CONNECTED, RELEASED}) {
    SCOPED_TRACE(dwCode);
    InitTenovis();
    In(dwCode, "0301234");
    In(RELEASED, "0301234");
    ForgetTraces();
    Text(ALERTING, "Ext 12\n22", 1);
    EXPECT_EQ("5 [5] Remote: Ext 12", Log().at(0)) << "shorter, with its head, yet taken";
  }
}

TEST_F(DstChannelIsdn, SecondCallThatConnectsCutsTheRecording) {
  AllowRecording();
  InitTenovis();
  In(CONNECTED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN connected F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Remote: 0301", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: -1", "5 [5] Starting recording",
                   "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134640_005_01.wav"}),
            Log());
  Hear(0, "one");
  PassSeconds(7);
  Out(CONNECTED, "0302");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN connected F:22 T:0302 C: OUT (L:22 R:0302)", "5 [5] Restarting recording",
             "5 [5] Recording stopped (7 s)", "5 [5] Starting recording",
             "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134647_005_02.wav", "5 [5] Remote: 0302"}),
      Log());
  Hear(0, "two");
  EXPECT_EQ("one", ReadTestFile(FIRST_FILE).substr(56));
  EXPECT_EQ("two", ReadTestFile("/recordings/1970/01/12/13/19700112_134647_005_02.wav").substr(56));
  EXPECT_EQ(1U, KeptRows());
  EXPECT_EQ("0301", Kept("remote"));
  EXPECT_EQ("7", Kept("duration"));
  EXPECT_EQ("0", Kept("direction"));
  EXPECT_EQ("0302", Active("remote"));
  EXPECT_EQ("1", Active("direction"));
}

TEST_F(DstChannelIsdn, FurtherCallThatRingsChangesNoNumber) {
  AllowRecording();
  InitTenovis({{"TdmStart", "1"}});  // for its local number, which is kept
  In(CONNECTED, "0301");
  for (const DWORD dwCode : {PROGRESS, ALERTING}) {
    ForgetTraces();
    Record(dwCode, Info(2, "44", "0302"));
    const char* const acPhase = dwCode == PROGRESS ? "progress" : "alerting";
    EXPECT_EQ((Texts{std::string("5 [5] ISDN ") + acPhase + " F:44 T:0302 C: OUT (L:44 R:0302)", "5 [5] Remote: 0301"}),
              Log());
    EXPECT_EQ("22", KeptLocalNum());
    EXPECT_EQ(NOTHING, Cards()) << "the recording goes on";
  }
  In(RELEASED, "0301");
  EXPECT_EQ("0301", Kept("remote"));
  EXPECT_EQ("0", Kept("direction"));
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
      Log());
  EXPECT_EQ("0301", Active("remote"));
  EXPECT_EQ("0", Active("direction"));
  EXPECT_EQ("0302", Kept("remote"));
  PassSeconds(2);
  In(RELEASED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Remote: 0301", "5 [5] Call stops",
                   "5 [5] Recording stopped (2 s)"}),
            Log());
  EXPECT_EQ(3U, KeptRows());
  EXPECT_EQ("0301", Kept("remote"));
  EXPECT_EQ(0U, ActiveRows());
}

TEST_F(DstChannelIsdn, ReleaseOfTheOtherCallLeavesTheRecordingAlone) {
  AllowRecording();
  InitTenovis();
  In(CONNECTED, "0301");
  PassSeconds(5);
  Out(CONNECTED, "0302");
  ForgetTraces();
  In(RELEASED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Tenovis. A call continues with 0302",
                   "5 [5] Remote: 0302"}),
            Log());
  EXPECT_EQ(NOTHING, Cards());
  PassSeconds(3);
  Out(RELEASED, "0302");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:22 T:0302 C: OUT (L:22 R:0302)", "5 [5] Remote: 0302", "5 [5] Call stops",
                   "5 [5] Recording stopped (3 s)"}),
            Log());
  EXPECT_EQ(2U, KeptRows());
  EXPECT_EQ("0302", Kept("remote"));
  EXPECT_EQ("1", Kept("direction"));
}

TEST_F(DstChannelIsdn, ReleasesInAnyOrderEndWithTheLast) {
  const char* const acNumbers[] = {"0301", "0302", "0303"};
  int aiOrder[] = {0, 1, 2};
  do {
    SCOPED_TRACE(std::to_string(aiOrder[0]) + std::to_string(aiOrder[1]) + std::to_string(aiOrder[2]));
    InitTenovis();
    for (const char* const acNumber : acNumbers) In(CONNECTED, acNumber);
    std::string strWanted = "0303";  // the last that connected
    Texts astrLeft = {"0301", "0302", "0303"};
    for (int i = 0; i < 3; i++) {
      const std::string strGone = acNumbers[aiOrder[i]];
      astrLeft.erase(std::find(astrLeft.begin(), astrLeft.end(), strGone));
      const bool isOver = astrLeft.empty();
      if (strGone == strWanted && !isOver) strWanted = astrLeft[0];
      ForgetTraces();
      In(RELEASED, strGone.c_str());
      Texts astrLines = Log();
      astrLines.erase(std::remove(astrLines.begin(), astrLines.end(), REFUSED), astrLines.end());
      Texts astrWanted = {"5 [5] ISDN released F:" + strGone + " T:22 C: Inc (L:22 R:" + strGone + ")"};
      if (!isOver) astrWanted.push_back("5 [5] Tenovis. A call continues with " + strWanted);
      astrWanted.push_back("5 [5] Remote: " + strWanted);
      if (isOver) astrWanted.emplace_back("5 [5] Call stops");
      EXPECT_EQ(astrWanted, astrLines);
    }
  } while (std::next_permutation(std::begin(aiOrder), std::end(aiOrder)));
}

TEST_F(DstChannelIsdn, UnknownReleaseShortensTheList) {
  InitTenovis();
  In(CONNECTED, "0301");
  In(CONNECTED, "0302");
  ForgetTraces();
  In(RELEASED, "0999");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN released F:0999 T:22 C: Inc (L:22 R:0999)", "4 [5] Tenovis. Unknown remote (0999) to release",
             REFUSED, "5 [5] Tenovis. A call continues with 0301", "5 [5] Remote: 0301", REFUSED}),
      Log());
  In(RELEASED, "0999");
  EXPECT_EQ(
      (Texts{"5 [5] ISDN released F:0999 T:22 C: Inc (L:22 R:0999)", "4 [5] Tenovis. Unknown remote (0999) to release",
             "5 [5] Remote: 0301", REFUSED, "5 [5] Call stops"}),
      Log());
}

TEST_F(DstChannelIsdn, ReleaseWithoutAnyCallTellsAndFinishes) {
  InitTenovis();
  OffHook();
  ForgetTraces();
  In(RELEASED, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:0301 T:22 C: Inc (L:22 R:0301)",
                   "4 [5] Tenovis. Unknown remote (0301) to release", "5 [5] Remote: ", REFUSED, "5 [5] Call stops"}),
            Log());
}

TEST_F(DstChannelIsdn, FirstOfTwoCallsWithTheSameNumberIsReleased) {
  AllowRecording();
  InitTenovis();
  In(CONNECTED, "1");
  Out(CONNECTED, "1");
  In(CONNECTED, "2");
  In(RELEASED, "1");
  In(RELEASED, "2");
  EXPECT_EQ("1", Active("remote"));
  EXPECT_EQ("1", Active("direction")) << "the outgoing one is left";
}

TEST_F(DstChannelIsdn, CallsAreToldApartByTheirWholeNumber) {
  InitTenovis();
  In(CONNECTED, "11");
  In(CONNECTED, "");
  In(CONNECTED, "1");
  ForgetTraces();
  In(RELEASED, "1");
  EXPECT_EQ((Texts{"5 [5] ISDN released F:1 T:22 C: Inc (L:22 R:1)", REFUSED, "5 [5] Tenovis. A call continues with 11",
                   "5 [5] Remote: 11", REFUSED}),
            Log());
}

// -- several calls, and the end of them all ---------------------------------------------------------------------------

class DstChannelIsdnEnd : public DstChannelIsdn {
 protected:
  void SetUp() override {
    AllowRecording();
    InitTenovis();
  }
  // A call of this number from its start to its release, which is recorded as if it were the first of the line.
  void ExpectCleanCall(const char* acFrom) {
    const std::size_t uiBefore = KeptRows();
    ForgetTraces();
    In(CONNECTED, acFrom);
    EXPECT_EQ("5 [5] Call starts", Log().at(2));
    PassSeconds(30);
    In(RELEASED, acFrom);
    EXPECT_EQ((Texts{std::string("5 [5] ISDN released F:") + acFrom + " T:22 C: Inc (L:22 R:" + acFrom + ")",
                     std::string("5 [5] Remote: ") + acFrom, "5 [5] Call stops", "5 [5] Recording stopped (30 s)"}),
              Log());
    EXPECT_EQ(0U, ActiveRows());
    EXPECT_EQ(uiBefore + 1, KeptRows());
    EXPECT_EQ(acFrom, Kept("remote"));
    EXPECT_EQ("30", Kept("duration"));
  }
};

TEST_F(DstChannelIsdnEnd, ReleasesThatComeAfterTheHookRecordNothing) {
  In(CONNECTED, "0301");
  In(CONNECTED, "0302");
  OnHook();
  for (const char* const acLate : {"0301", "0302"}) {
    ForgetTraces();
    In(RELEASED, acLate);
    EXPECT_EQ((Texts{std::string("5 [5] ISDN released F:") + acLate + " T:22 C: Inc (L:22 R:" + acLate + ")",
                     std::string("4 [5] Tenovis. Unknown remote (") + acLate + ") to release", "5 [5] Remote: "}),
              Log());
    EXPECT_EQ(NOTHING, Cards());
    EXPECT_EQ(0U, ActiveRows());
  }
  EXPECT_EQ(2U, KeptRows());
  PassSeconds(3600);
  ExpectCleanCall("0303");
}

TEST_F(DstChannelIsdnEnd, LostReleaseSpoilsNoLaterCall) {
  struct Row {
    const char* acLabel;
    std::function<void()> End;
  };
  const Row rRows[] = {
      {"on hook", [this] { OnHook(); }},
      {"release button", [this] { DMsg(DMSG_RELEASE_BUTTON); }},
      {"no audio", [this] { DMsg(DMSG_AUDIO_CHANGE, 0); }},
      {"the line goes away", [this] { Event(E_CHG_ChState, S_CALL_UNAVAILABLE); }},
      {"released as text", [this] { Text(RELEASED, ""); }},
      {"the recorder ends all calls", [this] { prLine->EndOfCall(); }},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    In(CONNECTED, "0301");
    PassSeconds(7);
    rRow.End();
    EXPECT_EQ("7", Kept("duration"));
    PassSeconds(600);
    ExpectCleanCall("0302");
    ExpectCleanCall("0303");
  }
}

TEST_F(DstChannelIsdnEnd, LostReleaseIsForgottenAlsoWhenTheNextCallBeginsWithTheHook) {
  In(CONNECTED, "0301");
  OnHook();
  OffHook();
  ForgetTraces();
  In(CONNECTED, "0302");
  EXPECT_EQ((Texts{"5 [5] ISDN connected F:0302 T:22 C: Inc (L:22 R:0302)", "5 [5] Remote: 0302"}), Log());
}

// -- missed calls -----------------------------------------------------------------------------------------------------

TEST_F(DstChannelIsdn, MissedCallIsARow) {
  Init("ISDN", {{"MissedCalls", "3"}});  // any value but 0
  Text(ALERTING, "0301234\n22", 1);
  ForgetTraces();
  PassSeconds(9);
  Text(ABANDONED, "");
  EXPECT_EQ((Texts{"5 [5] BRI call abandoned", "5 [5] Missed call!"}), Log());
  EXPECT_EQ(1U, KeptRows());
  EXPECT_EQ((StdStringMap{
                {"startdate", "1000000"},  // the first ring
                {"duration", "0"},          {"filename", ""},          {"isconnected", "0"},  {"linenr", "5"},
                {"waittime", "-1"},         {"source", "5"},           {"isarchived", "0"},   {"encoding", "0"},
                {"encryption", "0"},        {"processingstate", "0"},  {"flags", "64"},       {"directory", ""},
                {"lineid", "105"},          {"remoteid", ""},          {"remote", "0301234"}, {"remotefull", "0301234"},
                {"remotecallerid", "5000"}, {"remotecontact", "6000"}, {"local", "22"},       {"localfull", "22"},
                {"localcallerid", "5001"},  {"localcontact", "6001"},  {"direction", "0"},    {"recorderid", "7"},
                {"callextra", ""}}),
            KeptRow());
  EXPECT_EQ(0U, ActiveRows());
}

TEST_F(DstChannelIsdn, MissedCallHasTheFileOfTheRecordingBeforeItAndNotItsId) {
  AllowRecording();
  Init("ISDN", {{"MissedCalls", "1"}});
  Text(ALERTING, "0301\n22", 1);
  PassSeconds(3);
  In(CONNECTED, "0301");
  EXPECT_EQ("3", Active("waittime"));
  PassSeconds(7);
  In(RELEASED, "0301");
  PassSeconds(60);
  Text(ALERTING, "0302\n22", 1);
  Text(ABANDONED, "");
  EXPECT_EQ(2U, KeptRows());
  EXPECT_EQ("0302", Kept("remote"));
  EXPECT_EQ("", Kept("remoteid"));
  EXPECT_EQ("19700112_134643_005_01.wav", Kept("filename"));
  EXPECT_EQ("7", Kept("duration"));
  EXPECT_EQ("554", Kept("encoding"));
  EXPECT_EQ("-1", Kept("waittime"));
}

TEST_F(DstChannelIsdn, MissedCallHasTheWaitingTimeOfARecordingThatWasTooShort) {
  AllowRecording();
  rRecorder.rDatabase.rParts["o"]["RecMinDur"] = "10";
  Init("ISDN", {{"MissedCalls", "1"}});
  Text(ALERTING, "0301\n22", 1);
  PassSeconds(3);
  In(CONNECTED, "0301");
  PassSeconds(7);
  In(RELEASED, "0301");
  PassSeconds(60);
  Text(ALERTING, "0302\n22", 1);
  Text(ABANDONED, "");
  EXPECT_EQ(1U, KeptRows());
  EXPECT_EQ("3", Kept("waittime"));
}

TEST_F(DstChannelIsdn, MissedCallOfARecordHasTheSameRow) {
  InitTenovis({{"MissedCalls", "1"}});
  rRecorder.fALE = true;  // the mark of a missed call replaces that of encryption
  In(ALERTING, "0301234");
  Text(REJECTED, "");
  EXPECT_EQ(1U, KeptRows());
  EXPECT_EQ("64", Kept("flags"));
  EXPECT_EQ("0301234", Kept("remote"));
  EXPECT_EQ("", Kept("local"));  // the line has no number of its own
  EXPECT_EQ("1005", Kept("localcontact"));
}

TEST_F(DstChannelIsdn, MissedCallThatCannotBeStoredIsOnlyTold) {
  Init("ISDN", {{"MissedCalls", "1"}});
  Text(ALERTING, "0301234\n22", 1);
  ForgetTraces();
  rRecorder.rDatabase.fDown = true;
  Text(ABANDONED, "");
  EXPECT_EQ((Texts{"5 [5] BRI call abandoned", "5 [5] Missed call!"}), Log());
  rRecorder.rDatabase.fDown = false;
  Text(ABANDONED, "");  // the ring is still that of this call
  EXPECT_EQ(1U, KeptRows());
}

TEST_F(DstChannelIsdn, OnlyAMissedCallThatRangIsWritten) {
  struct Row {
    const char* acLabel;
    const char* acWanted;  // setting
    bool fRang;
    DWORD dwCallBy;  // message that starts a call, or BY_VOICE; 0: none
    bool fWritten;
  };
  constexpr DWORD BY_VOICE = 1;
  constexpr DWORD BY_CONDITION = 0x1001;
  const Row rRows[] = {{"off", "0", true, 0, false},
                       {"no ring", "1", false, 0, false},
                       {"off hook", "1", true, DMSG_OFF_HOOK, false},
                       {"audio", "1", true, BY_VOICE, false},
                       {"condition", "1", true, BY_CONDITION, false},
                       {"connected", "1", true, CONNECTED, false},
                       {"missed", "1", true, 0, true}};
  rRecorder.rStartCnds = {{BY_CONDITION, 0}};
  for (const DWORD dwCode : {ABANDONED, REJECTED}) {
    for (const Row& rRow : rRows) {
      SCOPED_TRACE(rRow.acLabel);
      Init("ISDN", {{"MissedCalls", rRow.acWanted}, {"AudioDetect", "1"}});
      rRecorder.rDatabase.rTables.clear();
      if (rRow.fRang) DMsg(DMSG_RING_ON);
      if (rRow.dwCallBy == BY_VOICE) Event(E_SYS_BargeIn, BARGE_IN_SOUND);
      if (rRow.dwCallBy > BY_VOICE) DMsg(rRow.dwCallBy);
      ForgetTraces();
      DMsg(dwCode);
      Texts astrWanted = {dwCode == ABANDONED ? "5 [5] BRI call abandoned" : "5 [5] BRI call rejected"};
      if (rRow.fWritten) astrWanted.push_back("5 [5] Missed call!");
      if (rRow.dwCallBy != 0) astrWanted.push_back("5 [5] Call stops");
      EXPECT_EQ(astrWanted, Log());
      EXPECT_EQ(rRow.fWritten ? 1U : 0U, KeptRows());
    }
  }
}

TEST_F(DstChannelIsdn, CancelledCallLeavesTheOtherCallsOfATenovisTelephoneThatSpeaksRecords) {
  struct Row {
    bool isTenovis, isRecord;
  };
  for (const DWORD dwCode : {ABANDONED, REJECTED}) {
    for (const Row& rRow : {Row{false, false}, Row{false, true}, Row{true, false}, Row{true, true}}) {
      SCOPED_TRACE(rRow.isTenovis);
      SCOPED_TRACE(rRow.isRecord);
      if (rRow.isTenovis) {
        InitTenovis({{"MissedCalls", "1"}});
      } else {
        Init("ISDN", {{"MissedCalls", "1"}});
      }
      for (const DWORD dwPhase : {ALERTING, CONNECTED}) {
        if (rRow.isRecord) {
          In(dwPhase, "0301");
        } else {
          Text(dwPhase, "0301\n22", 1);
        }
      }
      ForgetTraces();
      DMsg(dwCode);
      Texts astrWanted = {dwCode == ABANDONED ? "5 [5] BRI call abandoned" : "5 [5] BRI call rejected"};
      if (!rRow.isTenovis || !rRow.isRecord) astrWanted.push_back("5 [5] Call stops");
      EXPECT_EQ(astrWanted, Log());
      EXPECT_EQ(0U, KeptRows());
    }
  }
}

TEST_F(DstChannelIsdn, PhasesAreConditionsToo) {
  rRecorder.rStopCnds = {{RELEASED, 3}};
  rRecorder.rStartCnds = {{PROGRESS, 0}};
  In(PROGRESS, "0301");
  EXPECT_EQ((Texts{"5 [5] ISDN progress F:0301 T:22 C: Inc (L:22 R:0301)", "5 [5] Remote: 0301",
                   "5 [5] Start condition", "5 [5] Call starts", "5 [5] Outgoing call", REFUSED}),
            Log());
}
