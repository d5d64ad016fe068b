#include "ctl_orders.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

CallStatus MakeCall(int iLine, const std::string& strCallId) {
  CallStatus rCall;
  rCall.iLine = iLine;
  rCall.strCallId = strCallId;
  return rCall;
}

CtlStatus MakeStatus(const std::vector<CallStatus>& vCalls) {
  CtlStatus rStatus;
  rStatus.fRunning = rStatus.fLines = rStatus.fDatabase = true;
  rStatus.vLines = {{1, "ok"}, {2, "ok"}, {3, "offline"}, {9, "ok"}};
  rStatus.vCalls = vCalls;
  return rStatus;
}

TEST(FindCallOnLine, TheOneThatRuns) {
  CallStatus rLeft = MakeCall(1, "of another life");
  rLeft.fUnfinished = true;
  const CtlReply rReply = FindCallOnLine(MakeStatus({rLeft, MakeCall(1, "a"), MakeCall(2, "b")}), 1);
  EXPECT_EQ(rReply.eExit, CTL_OK);
  EXPECT_EQ(rReply.strText, "a");
}

TEST(FindCallOnLine, NoneAndMoreThanOneAreToldApart) {
  const CtlStatus rTwo = MakeStatus({MakeCall(1, "a"), MakeCall(1, "b"), MakeCall(2, "c")});
  CtlReply rReply = FindCallOnLine(rTwo, 1);
  EXPECT_EQ(rReply.eExit, CTL_UNKNOWN_CALL);
  EXPECT_EQ(rReply.strText, "Line 1 has more than one call, as one is being finished. Say which: a b");
  rReply = FindCallOnLine(rTwo, 3);
  EXPECT_EQ(rReply.eExit, CTL_UNKNOWN_CALL);
  EXPECT_EQ(rReply.strText, "Line 3 has no call in progress.");
}

TEST(FindCallOnLine, LineThatDoesNotExist) {
  CtlStatus rStatus = MakeStatus({});
  CtlReply rReply = FindCallOnLine(rStatus, 4);
  EXPECT_EQ(rReply.eExit, CTL_USAGE);
  EXPECT_EQ(rReply.strText, "There is no line 4; the recorder has 1-3,9.");
  rStatus.vLines.clear();
  EXPECT_EQ(FindCallOnLine(rStatus, 4).strText, "There is no line 4; the recorder has none.");
  rStatus.fLines = false;  // after a trace nobody knows
  rReply = FindCallOnLine(rStatus, 4);
  EXPECT_EQ(rReply.eExit, CTL_UNKNOWN_CALL);
  EXPECT_EQ(rReply.strText, "Line 4 has no call in progress.");
}

TEST(FindCallOnLine, WithoutDaemonOrDatabaseNobodyKnows) {
  CtlStatus rStatus = MakeStatus({MakeCall(1, "a")});
  rStatus.fDatabase = false;
  rStatus.strDatabaseError = "server is gone";
  CtlReply rReply = FindCallOnLine(rStatus, 1);
  EXPECT_EQ(rReply.eExit, CTL_NO_DATABASE);
  EXPECT_EQ(rReply.strText, "The database cannot be read: server is gone");
  rStatus.fRunning = false;
  rReply = FindCallOnLine(rStatus, 1);
  EXPECT_EQ(rReply.eExit, CTL_NOT_RUNNING);
  EXPECT_EQ(rReply.strText, "The recorder is not running: nobody answers at /tmp/morvex_crec.");
}

TEST(NewCallId, IsTheOnlyOneThatIsNewOnTheLineOfTheCall) {
  const CtlStatus rBefore = MakeStatus({MakeCall(1, "a"), MakeCall(2, "b")});
  const struct {
    const char* acLabel;
    std::vector<CallStatus> vAfter;
    const char* acNew;
  } rRows[] = {
      {"in its place", {MakeCall(1, "c"), MakeCall(2, "b")}, "c"},
      {"beside the part that is being finished", {MakeCall(1, "a"), MakeCall(1, "c")}, "c"},
      {"nothing has changed", {MakeCall(1, "a"), MakeCall(2, "b")}, ""},
      {"a call of another line", {MakeCall(1, "a"), MakeCall(2, "d")}, ""},
      {"the call is over", {}, ""},
      {"two: which is it?", {MakeCall(1, "c"), MakeCall(1, "d")}, ""},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(NewCallId(rBefore, MakeStatus(rRow.vAfter), "a"), rRow.acNew) << rRow.acLabel;
  }
  EXPECT_EQ(NewCallId(MakeStatus({}), MakeStatus({MakeCall(1, "c")}), "a"), "") << "its line is not known";
}

CallStatus MakeTalk(const std::string& strCallId, const std::string& strLocal, const std::string& strRemote) {
  CallStatus rCall = MakeCall(1, strCallId);
  rCall.strDirection = "incoming";
  rCall.strLocal = strLocal;
  rCall.strRemote = strRemote;
  return rCall;
}

CallStatus MakeInternal(const std::string& strCallId, const std::string& strLocal, const std::string& strRemote) {
  CallStatus rCall = MakeTalk(strCallId, strLocal, strRemote);
  rCall.strDirection = "internal";
  return rCall;
}

CallStatus MakeLeft(const std::string& strCallId, const std::string& strLocal, const std::string& strRemote) {
  CallStatus rCall = MakeTalk(strCallId, strLocal, strRemote);
  rCall.fUnfinished = true;
  return rCall;
}

// An order "change_local 200 0301".
TEST(JudgeLocalChange, CallsInProgressTellWhatBecameOfIt) {
  const std::string strDone = "Local number of the call b is now 200.";
  const struct {
    const char* acLabel;
    std::vector<CallStatus> vBefore, vAfter;
    ECtlExit eExit;
    std::string strText;
  } rRows[] = {
      {"done", {MakeTalk("b", "22", "0301")}, {MakeTalk("b", "200", "0301")}, CTL_OK, strDone},
      {"in a part of its own, beside the one that is being finished",
       {MakeTalk("a", "22", "0301")},
       {MakeTalk("a", "22", "0301"), MakeTalk("b", "200", "0301")},
       CTL_OK,
       strDone},
      {"it was so before", {MakeTalk("b", "200", "0301")}, {MakeTalk("b", "200", "0301")}, CTL_OK, strDone},
      {"one zero is no prefix",
       {},
       {MakeTalk("b", "200", "301")},
       CTL_UNKNOWN_CALL,
       "No call in progress has the remote number 0301."},
      {"an internal call", {MakeInternal("b", "22", "0301")}, {MakeInternal("b", "200", "0301")}, CTL_OK, strDone},
      {"an internal call with its parties exchanged",
       {MakeInternal("b", "0301", "22")},
       {MakeInternal("b", "0301", "200")},
       CTL_OK,
       strDone},
      {"no such call",
       {},
       {MakeTalk("b", "200", "0302")},
       CTL_UNKNOWN_CALL,
       "No call in progress has the remote number 0301."},
      {"the number of the other side",
       {},
       {MakeTalk("b", "0301", "200")},
       CTL_UNKNOWN_CALL,
       "No call in progress has the remote number 0301."},
      {"a call of another life",
       {},
       {MakeLeft("b", "200", "0301")},
       CTL_UNKNOWN_CALL,
       "No call in progress has the remote number 0301."},
      {"not done",
       {MakeTalk("b", "22", "0301")},
       {MakeTalk("b", "22", "0301")},
       CTL_NOT_DONE,
       "Local number of the call b is still 22."},
      {"not done, without a number",
       {MakeTalk("b", "", "0301")},
       {MakeTalk("b", "", "0301")},
       CTL_NOT_DONE,
       "Local number of the call b is still empty."},
      {"gone",
       {MakeTalk("b", "22", "0301")},
       {},
       CTL_NOT_DONE,
       "The call with the remote number 0301 is not listed any more: it is over, or not recorded with this number."},
  };
  for (const auto& rRow : rRows) {
    const CtlReply rReply = JudgeLocalChange(MakeStatus(rRow.vBefore), MakeStatus(rRow.vAfter), {"200", "0301"});
    EXPECT_EQ(rReply.eExit, rRow.eExit) << rRow.acLabel;
    EXPECT_EQ(rReply.strText, rRow.strText) << rRow.acLabel;
  }
}

TEST(JudgeLocalChange, NumberMayComeWithTheInternationalPrefix) {
  const CtlStatus rStatus = MakeStatus({MakeTalk("b", "200", "4930")});
  const CtlReply rReply = JudgeLocalChange(rStatus, rStatus, {"200", "004930"});
  EXPECT_EQ(rReply.eExit, CTL_OK);
  EXPECT_EQ(rReply.strText, "Local number of the call b is now 200.");
}

TEST(JudgeLocalChange, PhoneThatIsNotMonitored) {
  const CtlStatus rBefore = MakeStatus({MakeTalk("a", "22", "0301")});
  const CtlStatus rPart = MakeStatus({MakeTalk("a", "22", "0301"), MakeTalk("b", "17", "0301")});
  EXPECT_EQ(JudgeLocalChange(rBefore, rPart, {"", "0301", true}).strText, "Local number of the call b is now 17.");
  EXPECT_EQ(JudgeLocalChange(rBefore, rPart, {"", "0301", false}).strText, "Local number of the call b is still 17.");
  EXPECT_EQ(JudgeLocalChange(rBefore, rBefore, {"", "0301", true}).strText, "Local number of the call a is still 22.");
  const CtlStatus rEmpty = MakeStatus({MakeTalk("a", "", "0301")});
  EXPECT_EQ(JudgeLocalChange(rBefore, rEmpty, {"", "0301", false}).strText, "Local number of the call a is now empty.");
}

TEST(JudgeLocalChange, WithoutADatabaseNobodyKnows) {
  CtlStatus rAway = MakeStatus({});
  rAway.fDatabase = false;
  rAway.strDatabaseError = "server is gone";
  const std::string strUnknown =
      "The database cannot be read: server is gone\nThe order was sent; what came of it cannot be told.";
  for (const CtlReply& rReply : {JudgeLocalChange(rAway, MakeStatus({}), {"200", "0301"}),
                                 JudgeLocalChange(MakeStatus({}), rAway, {"200", "0301"})}) {
    EXPECT_EQ(rReply.eExit, CTL_NO_DATABASE);
    EXPECT_EQ(rReply.strText, strUnknown);
  }
}

TEST(SettingOf, OrderThatMayBeRefusedHasOne) {
  const std::string strSilence = "SilOnDemand = 1 in part 'o' of the settings allows it, from the next start on.";
  const std::string strDemand =
      "RecOnDmd of the line, such as Syn1001_RecOnDmd in part 'crec' of the settings, or for trunks RecOnDmdType in "
      "part 'o', allows it.";
  EXPECT_EQ(SettingOf("silence"), strSilence);
  EXPECT_EQ(SettingOf("sound"), strSilence);
  EXPECT_EQ(SettingOf("start"), strDemand);
  EXPECT_EQ(SettingOf("stop"), strDemand);
  EXPECT_EQ(SettingOf("delete"), "DelOnDmdType in part 'o' of the settings allows it.");
  EXPECT_EQ(SettingOf("reconfig"), "");
}

}  // namespace
