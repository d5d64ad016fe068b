#include "display_line.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <memory>

#include "TestFiles.h"
#include "display_input.h"
#include "logging.h"

namespace {

// A line, and what it tells: the daemon's log as it goes to standard output, and the result.
class Shown {
 public:
  explicit Shown(const DisplayLineState& rState) {
    g_DebugMode = 0;  // the line before this one has left it on
    prLine = std::make_unique<DisplayLine>(rState);
  }

  std::string Show(const std::string& strText, int iSecond = 0) {
    testing::internal::CaptureStdout();
    const std::string strResult = prLine->Show({iSecond, strText});
    return testing::internal::GetCapturedStdout() + "| " + strResult;
  }
  // The result alone.
  std::string Result(const std::string& strText, int iSecond = 0) {
    const std::string strAll = Show(strText, iSecond);
    return strAll.substr(strAll.find("| ") + 2);
  }

 private:
  std::unique_ptr<DisplayLine> prLine;
};

DisplayLineState Busy(int iSeconds) {
  DisplayLineState rState;
  rState.iBusyFor = iSeconds;
  return rState;
}

}  // namespace

TEST(DisplayLine, TellsLogVerdictsAndChanges) {
  Shown rShown(Busy(0));
  EXPECT_EQ(
      "[1] Message change:Mon 12.03.2015\n1234\n[1] Remote: 1234\n"
      "| 12: too short\n03: too short\n2015: year of a date\n1234: taken\n=> remote number: 1234\n",
      rShown.Show("Mon 12.03.2015\n1234"));
  EXPECT_EQ("[1] Message change:Goodbye\n| ", rShown.Show("Goodbye")) << "nothing changes";
}

TEST(DisplayLine, ResultHoldsNoControlCharacters) {
  DisplayLineState rState = Busy(0);
  rState.strPbxType = "NEC";
  Shown rShown(rState);
  EXPECT_EQ("12: too short\n31: too short\n31: too short\n=> remote number: ?[31mSMITH?\n",
            rShown.Result("12:31\nTALKING TO \x1b[31mSMITH\x9b\n"));
}

TEST(DisplayLine, LeavesTheDaemonsErrorFileAlone) {
  constexpr const char* ERROR_FILE = "/var/morvex/data/err_crec.dat";
  WriteTestFile(ERROR_FILE, "of the daemon");
  const Shown rShown(Busy(0));
  testing::internal::CaptureStdout();
  lg(LOG_ERR, "of the line");
  EXPECT_EQ("of the line\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ("of the daemon", ReadTestFile(ERROR_FILE));
}

TEST(DisplayLine, NumberOfOneDisplayIsKnownToTheNext) {
  Shown rShown(Busy(0));
  EXPECT_EQ("123456: taken\n=> remote number: 123456\n", rShown.Result("123456"));
  EXPECT_EQ("789: no longer than the known number\n", rShown.Result("789"));
}

TEST(DisplayLine, TimePassesAsTheDisplaysSay) {
  Shown rShown(Busy(40));
  EXPECT_EQ("123: taken\n=> remote number: 123\n", rShown.Result("123", 5)) << "45 s";
  EXPECT_EQ("123456: the known number stands, late in the call or while it is forwarded\n", rShown.Result("123456", 6))
      << "46 s";
}

TEST(DisplayLine, IdleLineOnlyDropsANumber) {
  DisplayLineState rState;
  rState.strRemoteNum = "1234";
  Shown rShown(rState);
  EXPECT_EQ("[1] Message change:5678\n[1] Remote: \n| 5678: taken\n=> remote number: (none)\n", rShown.Show("5678"));
}

TEST(DisplayLine, RingingLineIsAnalysed) {
  DisplayLineState rState;
  rState.fRinging = true;
  Shown rShown(rState);
  EXPECT_EQ("5678: taken\n=> remote number: 5678\n", rShown.Result("5678"));
}

TEST(DisplayLine, StateOfTheLineIsAsked) {
  DisplayLineState rState;
  rState.strPbxType = "Belgacom";
  rState.strLocalNum = "1111";
  rState.strLineName = "Desk 2222";
  rState.strPrevCallRemoteNum = "3333";
  Shown rShown(rState);
  EXPECT_EQ(
      "1111: the line's own number\n2222: part of the line's own name\n3333: number of the previous call\n"
      "4444: taken\n=> remote number: 4444\n",
      rShown.Result("1111\n2222\n3333\n4444"));
}

TEST(DisplayLine, PbxTypeAndSettingsAreTheDaemonsOwn) {
  DisplayLineState rState = Busy(0);
  rState.strPbxType = "Alcatel 4400";
  EXPECT_EQ("", Shown(rState).Result("a\n1234")) << "the first line only";
  rState.rSettings["TdmStart"] = "1";
  EXPECT_EQ("1234: taken\n=> remote number: 1234\n", Shown(rState).Result("a\n1234")) << "but not in the mute modes";
  EXPECT_EQ("1234: ends in a full stop\n", Shown(rState).Result("1234. x"));
  rState.strPbxType = "NEC";
  rState.rSettings["TdmStart"] = "0";
  EXPECT_EQ("=> remote number: Jansen\n", Shown(rState).Result("x\nTALKING TO Jansen"));
}

TEST(DisplayLine, PilotSitesGetNames) {
  DisplayLineState rState = Busy(0);
  EXPECT_EQ("12345: taken\n=> remote number: 12345\n", Shown(rState).Result("12345 Jansen"));
  rState.fPilot = true;
  EXPECT_EQ("12345: taken\n=> remote number: 12345\n=> name: Jansen\n", Shown(rState).Result("12345 Jansen"));
}

TEST(DisplayLine, LoginPromptIsNoNumber) {
  DisplayLineState rState;
  rState.rSettings["TdmStart"] = "3";
  EXPECT_EQ("[1] Message change:Identifikation:123\n\n[1] Local ID almost complete, but digits not working\n| ",
            Shown(rState).Show("Identifikation:123\n"));
}

TEST(DisplayLine, KnownNumberExpiresOutsideACall) {
  DisplayLineState rState;
  rState.strPbxType = "PANASONIC";
  rState.strRemoteNum = "123456";
  Shown rShown(rState);
  EXPECT_EQ("[1] Message change:Hello\n| ", rShown.Show("Hello", 10));
  EXPECT_EQ("[1] Message change:Hello\n[1] Remote expired, 11 seconds old\n| => remote number: (none)\n",
            rShown.Show("Hello", 11));
}
