#include "recorder_conditions.h"

#include <cstdio>

#include "RecorderBench.h"

namespace {

// "1304 1100.2": event, and the sub-reason where one has to match.
std::string ToText(const std::vector<StartStopCnd>& vCnds) {
  std::string strText;
  for (const StartStopCnd& rCnd : vCnds) {
    char acItem[40];
    (void)snprintf(acItem, sizeof acItem, rCnd.fSubReason ? "%x.%x" : "%x", rCnd.dwEvent, rCnd.dwSubReason);
    strText += (strText.empty() ? "" : " ") + std::string(acItem);
  }
  return strText;
}

TEST(ConditionTest, ListGrammar) {
  struct Row {
    const char* acLabel;
    const char* acList;
    const char* acConditions;
  };
  const Row rRows[] = {
      {"example", "1304, 1100.2,xx", "1304 1100.2"},
      {"empty", "", ""},
      {"empty items", ",1,,2,", "1 2"},
      {"blanks around items", " 1 ,\t2 ", "1 2"},
      {"item of blanks", "  ,1", "1"},
      {"event 0", "0,0.5,00", ""},
      {"no event", ".5,g", ""},
      {"digits of both cases", "aBcF.Ef", "abcf.ef"},
      {"stops at other characters", "12g4,13.2z", "12 13.2"},
      {"sub-reason 0", "2f.0", "2f.0"},
      {"point without sub-reason", "2f.,2e.x", "2f.0 2e.0"},
      {"text behind the first point", "1.2.3", "1.2"},
      {"point behind other characters", "1x.2", "1.2"},
      {"no prefix", "0x1304", ""},
      {"no sign", "-1,+1", ""},
      {"largest", "ffffffff.ffffffff", "ffffffff.ffffffff"},
  };
  for (const Row& rRow : rRows) {
    std::vector<StartStopCnd> vCnds;
    AddCndList(rRow.acList, vCnds);
    EXPECT_EQ(ToText(vCnds), rRow.acConditions) << rRow.acLabel;
  }
}

TEST(ConditionTest, AddingKeepsWhatIsThere) {
  std::vector<StartStopCnd> vCnds;
  AddCndList("1", vCnds);
  AddCndList("2.3", vCnds);
  EXPECT_EQ(ToText(vCnds), "1 2.3");
}

TEST(ConditionTest, SubReasonMattersOnlyWhereItIsGiven) {
  struct Row {
    const char* acList;
    unsigned int dwEvent, dwSubReason;
    bool fHit;
  };
  const Row rRows[] = {
      {"2f.3", 0x2f, 3, true},      {"2f.3", 0x2f, 4, false}, {"2f", 0x2f, 4, true},        {"2f.3,2f", 0x2f, 4, true},
      {"2f.3,2f.4", 0x2f, 4, true}, {"2f.0", 0x2f, 0, true},  {"2f.0", 0x2f, 1, false},     {"2f", 0x2e, 0, false},
      {"", 0x2f, 0, false},         {"1,2", 2, 0, true},      {"2f.2f", 0x2e, 0x2f, false},
  };
  for (const Row& rRow : rRows) {
    std::vector<StartStopCnd> vCnds;
    AddCndList(rRow.acList, vCnds);
    EXPECT_EQ(IsCondition(vCnds, rRow.dwEvent, rRow.dwSubReason), rRow.fHit)
        << rRow.acList << " for " << rRow.dwEvent << "." << rRow.dwSubReason;
  }
}

// -- lists of a board -------------------------------------------------------------------------------------------------

using BoardConditionTest = RecorderBench;

TEST_F(BoardConditionTest, BoardConditionsComeFromFourKeysAlsoForAbsentBoards) {
  rBoot.vrBoardList = {Present("ATP-24A", "100", 24, 0), Away("SynOLD", 8)};
  rBoot.rConfigs = {{"Syn100_StartCndList", "1304"},
                    {"Syn100_StopCndList", "1305, 1306.2"},
                    {"Syn100_RingOnCndList", "a"},
                    {"Syn100_RingOffCndList", "b"},
                    {"SynOLD_StopCndList", "c"}};
  rBoot.LoadBoardSettings();
  const TBoard& rHere = rBoot.vrBoardList[0];
  ASSERT_EQ(rHere.vStartCnds.size(), 1U);
  EXPECT_EQ(rHere.vStartCnds[0].dwEvent, 0x1304U);
  ASSERT_EQ(rHere.vStopCnds.size(), 2U);
  EXPECT_EQ(rHere.vStopCnds[1].dwEvent, 0x1306U);
  EXPECT_EQ(rHere.vStopCnds[1].dwSubReason, 2U);
  ASSERT_EQ(rHere.vRingOnCnds.size(), 1U);
  EXPECT_EQ(rHere.vRingOnCnds[0].dwEvent, 0xaU);
  ASSERT_EQ(rHere.vRingOffCnds.size(), 1U);
  EXPECT_EQ(rHere.vRingOffCnds[0].dwEvent, 0xbU);
  const TBoard& rAway = rBoot.vrBoardList[1];
  EXPECT_TRUE(rAway.vStartCnds.empty() && rAway.vRingOnCnds.empty() && rAway.vRingOffCnds.empty());
  ASSERT_EQ(rAway.vStopCnds.size(), 1U);
  EXPECT_EQ(rAway.vStopCnds[0].dwEvent, 0xcU);
}

TEST_F(BoardConditionTest, LoadingBoardConditionsAgainReplacesThem) {
  rBoot.vrBoardList = {Present("ATP-24A", "100", 24, 0)};
  rBoot.rConfigs["Syn100_StartCndList"] = "1,2";
  rBoot.LoadBoardSettings();
  rBoot.rConfigs["Syn100_StartCndList"] = "3";
  rBoot.LoadBoardSettings();
  ASSERT_EQ(rBoot.vrBoardList[0].vStartCnds.size(), 1U);
  EXPECT_EQ(rBoot.vrBoardList[0].vStartCnds[0].dwEvent, 3U);
}

TEST_F(BoardConditionTest, EachKindOfConditionAsksItsOwnListOfTheBoard) {
  rBoot.rConfigs = {{"SynB_StartCndList", "1"},
                    {"SynB_StopCndList", "2.5"},
                    {"SynB_RingOnCndList", "3"},
                    {"SynB_RingOffCndList", "4"}};
  rBoot.vrBoardList = {Present("DST-8", "A", 8), Present("DST-8", "B", 8)};
  rBoot.LoadBoardSettings();
  for (unsigned int dwEvent = 1; dwEvent <= 4; dwEvent++) {
    EXPECT_EQ(rRecorder.IsBoardStartCondition(1, dwEvent, 5), dwEvent == 1);
    EXPECT_EQ(rRecorder.IsBoardStopCondition(1, dwEvent, 5), dwEvent == 2);
    EXPECT_EQ(rRecorder.IsBoardRingOnCondition(1, dwEvent, 5), dwEvent == 3);
    EXPECT_EQ(rRecorder.IsBoardRingOffCondition(1, dwEvent, 5), dwEvent == 4);
    for (const int iBoardListIx : {-1, 0, 2}) {  // 0: a board without conditions
      EXPECT_FALSE(rRecorder.IsBoardStartCondition(iBoardListIx, dwEvent, 5));
      EXPECT_FALSE(rRecorder.IsBoardStopCondition(iBoardListIx, dwEvent, 5));
      EXPECT_FALSE(rRecorder.IsBoardRingOnCondition(iBoardListIx, dwEvent, 5));
      EXPECT_FALSE(rRecorder.IsBoardRingOffCondition(iBoardListIx, dwEvent, 5));
    }
  }
  EXPECT_FALSE(rRecorder.IsBoardStopCondition(1, 2, 4));
}

}  // namespace
