#include "BaseChannel.h"
#include "ChannelBench.h"

namespace {

class BaseChannelHealth : public ChannelBench {
 protected:
  static constexpr int LINE = 7;

  BaseChannelHealth() {
    rRecorder.vChannels = {&rChannel};
    InitLine(rChannel, LINE);
  }

  void State(int iState) { Send(rChannel, E_CHG_ChState, static_cast<DWORD>(iState)); }
  // So often into this state and back, within one second.
  void Flicker(int iTimes, int iState) {
    for (int i = 0; i < iTimes; i++) {
      State(iState);
      State(S_CALL_STANDBY);
    }
  }
  // Nothing is told for so many seconds but the last, and then this.
  void ExpectAfter(int iSeconds, const char* acLine) {
    (void)logsink::Take();
    Seconds(iSeconds - 1);
    EXPECT_EQ(Texts{}, Log());
    Seconds(1);
    EXPECT_EQ(Texts{acLine}, Log());
  }

  static constexpr const char* OK = "5 [7] Line health: ok";
  static constexpr const char* OFFLINE = "5 [7] Line health: offline";
  static constexpr const char* ERROR = "5 [7] Line health: error";

  TestChannel rChannel;
};

const Texts NOTHING;

}  // namespace

// -- texts ------------------------------------------------------------------------------------------------------------

TEST(BaseChannelHealthTexts, EveryChannelStateHasItsTextAndClass) {
  struct Row {
    int iState;
    const char* acText;
    bool fDisconnected;
    bool fError;
  };
  const Row rRows[] = {
      {0, "idle", false, false},      {1, "off-hook", false, false},
      {2, "ring", false, false},      {3, "talking", false, false},
      {8, "offline", true, false},    {9, "wait-answer", false, false},
      {11, "unusable", true, false},  {128, "recording", false, false},
      {139, "sign-err", false, true}, {140, "frame-err", false, true},
      {7, "", false, false},          {10, "", false, false},
      {141, "", false, false},        {-1, "", false, false},
      {65535, "", false, false},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iState);
    EXPECT_STREQ(rRow.acText, GetChannelStateDescr(rRow.iState));
    EXPECT_EQ(rRow.fDisconnected, IsChStateDisconnected(rRow.iState));
    EXPECT_EQ(rRow.fError, IsChStateError(rRow.iState));
  }
}

TEST(BaseChannelHealthTexts, EveryToneHasItsText) {
  const std::pair<int, const char*> rRows[] = {
      {1, "dial tone"},
      {2, "busy tone"},
      {3, "ringback tone"},
      {4, "silence after ringback"},
      {5, "no sound"},
      {6, "voice"},
      {0, ""},
      {7, ""},
      {-1, ""},
  };
  for (const auto& [iTone, acText] : rRows) EXPECT_STREQ(acText, GetToneDescr(iTone)) << iTone;
}

TEST(BaseChannelHealthTexts, EveryHealthHasItsText) {
  EXPECT_STREQ("ok", GetLineHealthDescr(LINEHEALTH_OK));
  EXPECT_STREQ("offline", GetLineHealthDescr(LINEHEALTH_OFFLINE));
  EXPECT_STREQ("error", GetLineHealthDescr(LINEHEALTH_ERROR));
  EXPECT_STREQ("", GetLineHealthDescr(static_cast<ELineHealth>(3)));
}

// -- errors -----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelHealth, ThirdShortErrorInARowMakesAnErrorForThirtySeconds) {
  State(139);
  State(0);
  State(140);
  State(0);
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Orders());
  State(139);
  EXPECT_EQ((Texts{ERROR}), Log());
  EXPECT_EQ((Texts{"NewLineHealth 0"}), Orders());
  State(0);
  ExpectAfter(30, OK);
  EXPECT_EQ((Texts{"NewLineHealth 0"}), Orders());
}

TEST_F(BaseChannelHealth, ThirdErrorAfterThirtySecondsCountsAsTheFirstOfThree) {
  for (const int iWait : {29, 30}) {  // 120 points, one less a second, and 60 more: 151 are an error, 150 are none
    Flicker(2, 139);
    Seconds(iWait);
    Flicker(1, 140);
    EXPECT_EQ(iWait == 29 ? Texts{ERROR} : NOTHING, Log());
    Seconds(1000);
    (void)logsink::Take();
  }
}

TEST_F(BaseChannelHealth, LastingErrorIsAnErrorInItsSecondSecond) {
  for (const int iState : {139, 140}) {
    State(iState);
    ExpectAfter(2, ERROR);
    EXPECT_EQ((Texts{"NewLineHealth 0"}), Orders());
    Seconds(100);
    EXPECT_EQ(NOTHING, Log());
    State(0);
    ExpectAfter(50, OK);  // however long it lasted
    EXPECT_EQ((Texts{"NewLineHealth 0"}), Orders());
    Seconds(200);
  }
}

TEST_F(BaseChannelHealth, ManyShortErrorsTakeNoLongerToHealThanALastingOne) {
  Flicker(10, 139);
  ExpectAfter(50, OK);
}

TEST_F(BaseChannelHealth, SameErrorStateAgainIsNoNewError) {
  for (int i = 0; i < 10; i++) State(139);
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(BaseChannelHealth, UnknownStateNeitherScoresNorStopsTheHealing) {
  Flicker(10, 7);
  EXPECT_EQ(NOTHING, Log());
  Flicker(2, 139);
  State(140);
  State(7);
  ExpectAfter(30, OK);
}

TEST_F(BaseChannelHealth, QuietTimeEarnsNoCredit) {
  Seconds(1000);
  Flicker(3, 139);
  EXPECT_EQ((Texts{ERROR}), Log());
  Seconds(1000);
  (void)logsink::Take();
  Flicker(3, 8);
  EXPECT_EQ((Texts{OFFLINE, OK, OFFLINE, OK, OFFLINE}), Log());
}

// -- offline ----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelHealth, OfflineStateHoldsTheHealthHoweverLongItLasts) {
  for (const int iState : {8, 11}) {
    State(iState);
    EXPECT_EQ((Texts{OFFLINE}), Log());
    Seconds(100);
    EXPECT_EQ(NOTHING, Log());
    State(0);
    EXPECT_EQ((Texts{OK}), Log());
    EXPECT_EQ((Texts{"NewLineHealth 0", "NewLineHealth 0"}), Orders());
  }
}

TEST_F(BaseChannelHealth, ThreeDropOutsKeepTheLineOfflineUntilTheScoreHasFallen) {
  Flicker(1, 8);
  Flicker(1, 11);
  EXPECT_EQ((Texts{OFFLINE, OK, OFFLINE, OK}), Log());
  Flicker(1, 8);
  EXPECT_EQ((Texts{OFFLINE}), Log());
  ExpectAfter(30, OK);
}

TEST_F(BaseChannelHealth, ManyDropOutsHealInFiftySeconds) {
  Flicker(10, 8);
  ExpectAfter(50, OK);
}

TEST_F(BaseChannelHealth, OfflineStateLowersBothScoresEachSecond) {
  Flicker(3, 139);
  Flicker(1, 8);  // of no account: one drop-out
  State(8);
  Seconds(29);
  (void)logsink::Take();
  State(0);
  EXPECT_EQ((Texts{ERROR}), Log());
  State(8);
  Seconds(1);
  (void)logsink::Take();
  State(0);
  EXPECT_EQ((Texts{OK}), Log());
}

// -- both -------------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelHealth, ChangeFromErrorToOfflineIsOneReport) {
  State(139);
  Seconds(3);
  EXPECT_EQ((Texts{ERROR}), Log());
  (void)Orders();
  State(8);
  EXPECT_EQ((Texts{OFFLINE}), Log());
  EXPECT_EQ((Texts{"NewLineHealth 0"}), Orders());
}

TEST_F(BaseChannelHealth, OfflineOutranksErrorWhichStandsBehindIt) {
  State(139);
  Seconds(100);
  Flicker(3, 8);  // 200 points of error, 180 of being offline
  EXPECT_EQ((Texts{ERROR, OFFLINE, ERROR, OFFLINE, ERROR, OFFLINE}), Log());
  ExpectAfter(30, ERROR);
  ExpectAfter(20, OK);
}

TEST_F(BaseChannelHealth, DriverChannelWithoutLineReportsNothing) {
  TestChannel rNoLine;
  InitLine(rNoLine, -1, 1);
  Send(rNoLine, E_CHG_ChState, 8);
  EXPECT_EQ(LINEHEALTH_OFFLINE, rNoLine.eLineHealth);  // read by the recorder
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Orders());
}
