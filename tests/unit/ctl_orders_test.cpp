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

}  // namespace
