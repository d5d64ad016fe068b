#include "BaseChannel.h"
#include "ChannelBench.h"

namespace {

class BaseChannelHealth : public ChannelBench {
 protected:
  static constexpr int LINE = 7;

  BaseChannelHealth() { InitLine(rChannel, LINE); }

  void State(int iState) { Send(rChannel, E_CHG_ChState, static_cast<DWORD>(iState)); }
  void Seconds(int iSeconds) {
    for (int i = 0; i < iSeconds; i++) Tick(rChannel);
  }

  TestChannel rChannel;
};

const Texts NOTHING;
const Texts TOLD_RECORDER = {"NewLineHealth 0"};

}  // namespace

// -- texts -----------------------------------------------------------------------------------------------------------

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

// -- scores ----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelHealth, SingleErrorStateScoresWithoutChangeOfHealth) {
  State(139);
  EXPECT_EQ(60, rChannel.iLineErrCalc);
  EXPECT_EQ(0, rChannel.iLineOfflineCalc);
  EXPECT_EQ(LINEHEALTH_OK, rChannel.eLineHealth);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, rRecorder.TakeCalls());
}

TEST_F(BaseChannelHealth, UnknownStateNeitherScoresNorStopsTheDecay) {
  State(139);
  State(7);
  EXPECT_EQ(60, rChannel.iLineErrCalc);
  EXPECT_EQ(0, rChannel.iLineOfflineCalc);
  Seconds(10);
  EXPECT_EQ(50, rChannel.iLineErrCalc);
}

TEST_F(BaseChannelHealth, LastingErrorStateSecondBySecond) {
  struct Row {
    int iScore;
    ELineHealth eHealth;
  };
  // The arrival counts as well, so two seconds after it the score has passed 150.
  const Row rRows[] = {{120, LINEHEALTH_OK}, {180, LINEHEALTH_ERROR}, {200, LINEHEALTH_ERROR}, {200, LINEHEALTH_ERROR}};
  State(140);
  EXPECT_EQ(60, rChannel.iLineErrCalc);
  for (const Row& rRow : rRows) {
    Seconds(1);
    EXPECT_EQ(rRow.iScore, rChannel.iLineErrCalc);
    EXPECT_EQ(rRow.eHealth, rChannel.eLineHealth);
  }
  EXPECT_EQ((Texts{"5 [7] Line health: error"}), logsink::TakeTexts());
  EXPECT_EQ(TOLD_RECORDER, rRecorder.TakeCalls());
}

TEST_F(BaseChannelHealth, FullErrorScoreTakesFiftySecondsToHeal) {
  State(139);
  Seconds(5);
  State(0);
  ForgetTraces();
  Seconds(49);
  EXPECT_EQ(151, rChannel.iLineErrCalc);
  EXPECT_EQ(LINEHEALTH_ERROR, rChannel.eLineHealth);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  Seconds(1);
  EXPECT_EQ(150, rChannel.iLineErrCalc);
  EXPECT_EQ(LINEHEALTH_OK, rChannel.eLineHealth);
  EXPECT_EQ((Texts{"5 [7] Line health: ok"}), logsink::TakeTexts());
  EXPECT_EQ(TOLD_RECORDER, rRecorder.TakeCalls());
}

TEST_F(BaseChannelHealth, ThreeShortErrorsMakeAnErrorForThirtySeconds) {
  for (int i = 0; i < 3; i++) {
    State(i == 1 ? 140 : 139);
    State(0);
  }
  EXPECT_EQ(180, rChannel.iLineErrCalc);
  EXPECT_EQ(LINEHEALTH_ERROR, rChannel.eLineHealth);
  Seconds(29);
  EXPECT_EQ(LINEHEALTH_ERROR, rChannel.eLineHealth);
  Seconds(1);
  EXPECT_EQ(150, rChannel.iLineErrCalc);
  EXPECT_EQ(LINEHEALTH_OK, rChannel.eLineHealth);
  EXPECT_EQ((Texts{"5 [7] Line health: error", "5 [7] Line health: ok"}), logsink::TakeTexts());
}

TEST_F(BaseChannelHealth, ScoreOf150IsHealthyAnd151IsNot) {
  struct Row {
    const char* acLabel;
    int iErr, iOffline;
    ELineHealth eHealth;
  };
  const Row rRows[] = {
      {"error 150", 150, 0, LINEHEALTH_OK},
      {"error 151", 151, 0, LINEHEALTH_ERROR},
      {"offline 150", 0, 150, LINEHEALTH_OK},
      {"offline 151", 0, 151, LINEHEALTH_OFFLINE},
      {"offline outranks error", 200, 151, LINEHEALTH_OFFLINE},
      {"error stays behind offline 150", 151, 150, LINEHEALTH_ERROR},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.iLineErrCalc = rRow.iErr;
    rChannel.iLineOfflineCalc = rRow.iOffline;
    rChannel.FinalCalcChannelState();
    EXPECT_EQ(rRow.eHealth, rChannel.eLineHealth);
  }
}

TEST_F(BaseChannelHealth, ScoresStayInTheirRange) {
  struct Row {
    int iBefore, iAfter;
    bool fUnhealthy;
  };
  const Row rRows[] = {{-1, 0, false},   {-200, 0, false}, {0, 0, false},   {199, 199, true},
                       {200, 200, true}, {201, 200, true}, {260, 200, true}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iBefore);
    rChannel.iLineErrCalc = rRow.iBefore;
    rChannel.iLineOfflineCalc = 0;
    rChannel.FinalCalcChannelState();
    EXPECT_EQ(rRow.iAfter, rChannel.iLineErrCalc);
    EXPECT_EQ(rRow.fUnhealthy ? LINEHEALTH_ERROR : LINEHEALTH_OK, rChannel.eLineHealth);
    rChannel.iLineErrCalc = 0;
    rChannel.iLineOfflineCalc = rRow.iBefore;
    rChannel.FinalCalcChannelState();
    EXPECT_EQ(rRow.iAfter, rChannel.iLineOfflineCalc);
    EXPECT_EQ(rRow.fUnhealthy ? LINEHEALTH_OFFLINE : LINEHEALTH_OK, rChannel.eLineHealth);
  }
}

// -- offline ---------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelHealth, OfflineStateHoldsTheHealthWhileItsScoreFalls) {
  State(8);
  EXPECT_EQ(60, rChannel.iLineOfflineCalc);
  EXPECT_EQ(LINEHEALTH_OFFLINE, rChannel.eLineHealth);
  Seconds(100);
  EXPECT_EQ(0, rChannel.iLineOfflineCalc);
  EXPECT_EQ(LINEHEALTH_OFFLINE, rChannel.eLineHealth);
  State(0);
  EXPECT_EQ(LINEHEALTH_OK, rChannel.eLineHealth);
  EXPECT_EQ((Texts{"5 [7] Line health: offline", "5 [7] Line health: ok"}), logsink::TakeTexts());
  EXPECT_EQ((Texts{"NewLineHealth 0", "NewLineHealth 0"}), rRecorder.TakeCalls());
}

TEST_F(BaseChannelHealth, ThreeDropOutsKeepTheLineOfflineUntilTheScoreHasFallen) {
  for (int i = 0; i < 3; i++) {
    State(i == 1 ? 11 : 8);
    State(0);
  }
  EXPECT_EQ(180, rChannel.iLineOfflineCalc);
  EXPECT_EQ(LINEHEALTH_OFFLINE, rChannel.eLineHealth);
  ForgetTraces();
  Seconds(29);
  EXPECT_EQ(LINEHEALTH_OFFLINE, rChannel.eLineHealth);
  Seconds(1);
  EXPECT_EQ(LINEHEALTH_OK, rChannel.eLineHealth);
  EXPECT_EQ((Texts{"5 [7] Line health: ok"}), logsink::TakeTexts());
}

TEST_F(BaseChannelHealth, OfflineStateLowersTheErrorScoreEachSecond) {
  State(139);
  State(8);
  Seconds(10);
  EXPECT_EQ(50, rChannel.iLineErrCalc);
  EXPECT_EQ(50, rChannel.iLineOfflineCalc);
}

TEST_F(BaseChannelHealth, ChangeFromErrorToOfflineIsOneReport) {
  State(139);
  Seconds(3);
  EXPECT_EQ((Texts{"5 [7] Line health: error"}), logsink::TakeTexts());
  (void)rRecorder.TakeCalls();
  State(8);
  EXPECT_EQ((Texts{"5 [7] Line health: offline"}), logsink::TakeTexts());
  EXPECT_EQ(TOLD_RECORDER, rRecorder.TakeCalls());
}

TEST_F(BaseChannelHealth, DriverChannelWithoutLineReportsNothing) {
  TestChannel rNoLine;
  InitLine(rNoLine, -1, 1);
  Send(rNoLine, E_CHG_ChState, 8);
  EXPECT_EQ(LINEHEALTH_OFFLINE, rNoLine.eLineHealth);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, rRecorder.TakeCalls());
}
