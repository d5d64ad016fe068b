#include "scenario.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "Texts.h"

namespace simcards {
namespace {

Texts Errors(const std::string& strText) {
  Texts astrErrors;
  (void)ParseScenario(strText, "day.sim", astrErrors);
  return astrErrors;
}

TEST(Scenario, LinesHaveTimeActionAndNumber) {
  Texts astrErrors;
  const std::vector<ScenarioLine> vLines = ParseScenario(
      "# a call\n\n0 ch 3 ring on\n  +2.5\tch 3 offhook # answered\r\n10.25 ch 3 onhook  \n+0 print \"a  b\"",
      "day.sim", astrErrors);
  EXPECT_EQ(Texts{}, astrErrors);
  ASSERT_EQ(4U, vLines.size());
  EXPECT_EQ(3, vLines[0].iLine);
  EXPECT_FALSE(vLines[0].fRelative);
  EXPECT_DOUBLE_EQ(0, vLines[0].dTime);
  EXPECT_EQ("ch 3 ring on", vLines[0].strAction);
  EXPECT_TRUE(std::holds_alternative<actions::Ring>(std::get<actions::OnChannels>(vLines[0].rAction).rAction));
  EXPECT_EQ(4, vLines[1].iLine);
  EXPECT_TRUE(vLines[1].fRelative);
  EXPECT_DOUBLE_EQ(2.5, vLines[1].dTime);
  EXPECT_TRUE(std::holds_alternative<actions::OffHook>(std::get<actions::OnChannels>(vLines[1].rAction).rAction));
  EXPECT_DOUBLE_EQ(10.25, vLines[2].dTime);
  EXPECT_EQ("ch 3 onhook", vLines[2].strAction);
  EXPECT_EQ("a  b", std::get<actions::Print>(vLines[3].rAction).strText);
}

TEST(Scenario, EveryWrongLineIsNamed) {
  EXPECT_EQ((Texts{"day.sim:1: expected a time such as 2.5 or +0.5, found \"ch\"",
                   "day.sim:3: expected \"on\" or \"off\", found \"onn\"",
                   "day.sim:5: expected the end of the line, found \"now\""}),
            Errors("ch 3 ring on\n0 ch 3 ring on\n1 ch 3 ring onn\n2 ch 3 ring on\n3 ch 3 flash now\n"));
}

TEST(Scenario, TimesMustBeNumbersAndGoForward) {
  for (const char* acTime : {"+", "-1", "+-1", "1s", "inf", "nan", "1:30", "++1"}) {
    EXPECT_EQ((Texts{"day.sim:1: expected a time such as 2.5 or +0.5, found \"" + std::string(acTime) + "\""}),
              Errors(std::string(acTime) + " ch 3 ring on"));
  }
  EXPECT_EQ((Texts{"day.sim:3: expected a time not before that of the line above, found \"2.4\""}),
            Errors("1 ch 3 ring on\n+1.5 ch 3 ring off\n2.4 ch 3 ring on\n2.5 ch 3 ring off\n"));
}

TEST(Scenario, LineWithoutActionIsWrong) {
  ASSERT_EQ(1U, Errors("5").size());
  EXPECT_EQ(0U, Errors("5")[0].find("day.sim:1: expected \"ch\", \"cic\""));
}

TEST(ScenarioClock, RelativeTimesCountFromWhatWasDue) {
  Texts astrErrors;
  const std::vector<ScenarioLine> vLines =
      ParseScenario("1 ch 0 flash\n+2 ch 0 flash\n+0 wait idle\n+1 ch 0 flash\n5 ch 0 flash\n", "x", astrErrors);
  ScenarioClock rClock;
  EXPECT_DOUBLE_EQ(1, rClock.Due(vLines[0]));
  rClock.Done(vLines[0], 1.3);  // a late action delays nothing else
  EXPECT_DOUBLE_EQ(3, rClock.Due(vLines[1]));
  rClock.Done(vLines[1], 3);
  EXPECT_DOUBLE_EQ(3, rClock.Due(vLines[2]));
  rClock.Done(vLines[2], 7.5);  // a wait does
  EXPECT_DOUBLE_EQ(8.5, rClock.Due(vLines[3]));
  rClock.Done(vLines[3], 8.5);
  EXPECT_DOUBLE_EQ(8.5, rClock.Due(vLines[4])) << "5 is over";
}

TEST(Scenario, ThoseOfTheTreeAreRight) {
  int iRead = 0;
  for (const auto& rEntry : std::filesystem::directory_iterator(MORVEX_SOURCE_DIR "/sim/scenarios")) {
    if (rEntry.path().extension() != ".sim") continue;
    std::ifstream rFile(rEntry.path());
    Texts astrErrors;
    (void)ParseScenario({std::istreambuf_iterator<char>(rFile), std::istreambuf_iterator<char>()},
                        rEntry.path().filename().string(), astrErrors);
    EXPECT_EQ(Texts{}, astrErrors);
    iRead++;
  }
  EXPECT_GT(iRead, 0);
}

}  // namespace
}  // namespace simcards
