#include "ctl_status.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>

#include "TestFiles.h"

namespace {

constexpr const char* STATUS_PATH = "/tmp/linestatus.dat";
constexpr time_t NOW = 1706707385;  // 2024-01-31 13:23:05 UTC

CallStatus MakeCall(int iLine, time_t rSince) {
  CallStatus rCall;
  rCall.iLine = iLine;
  rCall.strCallId = "20240131_132200_00" + std::to_string(iLine) + "_01";
  rCall.strDirection = "incoming";
  rCall.strLocal = "22";
  rCall.strRemote = "0301234567";
  rCall.rSince = rSince;
  return rCall;
}

// Three lines, and a call of each kind.
CtlStatus MakeStatus() {
  CtlStatus rStatus;
  rStatus.fRunning = true;
  rStatus.fLines = true;
  rStatus.fDatabase = true;
  rStatus.vLines = {{1, "ok"}, {2, "offline"}, {12, "error"}};
  rStatus.vCalls = {MakeCall(1, NOW - 5), MakeCall(2, NOW - 3661), MakeCall(3, NOW + 60)};
  rStatus.vCalls[1].fSilenced = true;
  rStatus.vCalls[1].strDirection = "outgoing";
  rStatus.vCalls[1].strLocal = "";
  rStatus.vCalls[2].fWaiting = true;
  rStatus.vCalls[2].strRemote = "";
  return rStatus;
}

class CtlStatusTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
};

TEST_F(CtlStatusTest, LinesAreReadAndTheRestIsSkipped) {
  WriteTestFile(STATUS_PATH, "Line_1: ok\nLine_12: offline\nwhat else\nLine_x: ok\n\nLine_3:\nLine_7: error\n");
  std::vector<LineStatus> vLines;
  ASSERT_TRUE(ReadLineStatus(STATUS_PATH, vLines));
  ASSERT_EQ(vLines.size(), 3U);
  EXPECT_EQ(vLines[0].iLine, 1);
  EXPECT_EQ(vLines[0].strHealth, "ok");
  EXPECT_EQ(vLines[1].iLine, 12);
  EXPECT_EQ(vLines[1].strHealth, "offline");
  EXPECT_EQ(vLines[2].iLine, 7);
  EXPECT_EQ(vLines[2].strHealth, "error");
}

TEST_F(CtlStatusTest, MissingFileIsToldByTheResult) {
  std::vector<LineStatus> vLines;
  EXPECT_FALSE(ReadLineStatus("/tmp/no_such_file", vLines));
  EXPECT_TRUE(vLines.empty());
}

TEST_F(CtlStatusTest, EmptyFileIsADaemonWithoutLines) {
  WriteTestFile(STATUS_PATH, "");
  std::vector<LineStatus> vLines;
  EXPECT_TRUE(ReadLineStatus(STATUS_PATH, vLines));
  EXPECT_TRUE(vLines.empty());
}

TEST_F(CtlStatusTest, TextIsATableOfLinesAndOneOfCalls) {
  EXPECT_EQ(StatusToText(MakeStatus(), NOW),
            "LINES  HEALTH\n"
            "1      ok\n"
            "2      offline\n"
            "12     error\n"
            "\n"
            "LINE  DIRECTION  LOCAL  REMOTE      SINCE     AGE      STATE      CALL ID\n"
            "1     incoming   22     0301234567  13:23:00  0:00:05  recording  20240131_132200_001_01\n"
            "2     outgoing   -      0301234567  12:22:04  1:01:01  silenced   20240131_132200_002_01\n"
            "3     incoming   22     -           13:24:05  0:00:00  waiting    20240131_132200_003_01\n");
}

TEST_F(CtlStatusTest, LinesOfEqualHealthShareARow) {
  struct Row {
    const char* acLabel;
    std::vector<LineStatus> vLines;
    const char* acTable;
  };
  const Row rRows[] = {
      {"no lines", {}, "LINES  HEALTH\n"},
      {"one run", {{1, "ok"}, {2, "ok"}, {3, "ok"}}, "LINES  HEALTH\n1-3    ok\n"},
      {"a run goes on behind others",
       {{1, "ok"}, {2, "ok"}, {3, "error"}, {4, "offline"}, {5, "error"}, {6, "ok"}, {7, "ok"}},
       "LINES    HEALTH\n1-2,6-7  ok\n3,5      error\n4        offline\n"},
      {"numbers of absent cards", {{7, "ok"}, {9, "ok"}, {10, "ok"}}, "LINES   HEALTH\n7,9-10  ok\n"},
      {"not in order", {{2, "offline"}, {1, "offline"}, {2, "ok"}}, "LINES  HEALTH\n2,1    offline\n2      ok\n"},
  };
  for (const Row& rRow : rRows) {
    CtlStatus rStatus;
    rStatus.fRunning = rStatus.fLines = rStatus.fDatabase = true;
    rStatus.vLines = rRow.vLines;
    EXPECT_EQ(StatusToText(rStatus, NOW), std::string(rRow.acTable) + "\nNo calls in progress.\n") << rRow.acLabel;
  }
}

TEST_F(CtlStatusTest, ColumnsOfNumbersInUtf8AreCountedInCharacters) {
  CtlStatus rStatus = MakeStatus();
  rStatus.vCalls = {MakeCall(1, NOW), MakeCall(2, NOW)};
  rStatus.vCalls[0].strLocal = "M\xc3\xbcller";
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "LINES  HEALTH\n"
            "1      ok\n"
            "2      offline\n"
            "12     error\n"
            "\n"
            "LINE  DIRECTION  LOCAL   REMOTE      SINCE     AGE      STATE      CALL ID\n"
            "1     incoming   M\xc3\xbcller  0301234567  13:23:05  0:00:00  recording  20240131_132200_001_01\n"
            "2     incoming   22      0301234567  13:23:05  0:00:00  recording  20240131_132200_002_01\n");
}

TEST_F(CtlStatusTest, TextWithoutCallsDaemonOrDatabase) {
  CtlStatus rStatus;
  rStatus.fDatabase = true;
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "The recorder is not running: nobody serves /tmp/morvex_crec.\n\nNo calls in progress.\n");
  rStatus.fRunning = true;
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "No line status: a trace runs, or no line has changed since one ran.\n\nNo calls in progress.\n");
  rStatus.fLines = true;
  rStatus.vLines = {{1, "ok"}};
  rStatus.fDatabase = false;
  rStatus.strDatabaseError = "server is gone";
  EXPECT_EQ(StatusToText(rStatus, NOW), "LINES  HEALTH\n1      ok\n\nThe database cannot be read: server is gone\n");
}

TEST_F(CtlStatusTest, TextHoldsNoControlCharactersOfTheTelephoneNetwork) {
  CtlStatus rStatus = MakeStatus();
  rStatus.vLines = {{1, "ok\x1b"}};
  rStatus.vCalls = {MakeCall(1, NOW)};
  rStatus.vCalls[0].strLocal = "\x1b[31mM\xc3\xbcller\n1";
  rStatus.vCalls[0].strRemote =
      "\x9b"
      "2J\xc2\x9b"
      "2J\x7f";
  rStatus.vCalls[0].strCallId = "\r7";
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "LINES  HEALTH\n"
            "1      ok?\n"
            "\n"
            "LINE  DIRECTION  LOCAL          REMOTE    SINCE     AGE      STATE      CALL ID\n"
            "1     incoming   ?[31mM\xc3\xbcller?1  ?2J??2J?  13:23:05  0:00:00  recording  ?7\n");
  rStatus.fDatabase = false;
  rStatus.strDatabaseError = "cannot\x1b reach:\n\tis it there?";
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "LINES  HEALTH\n1      ok?\n\nThe database cannot be read: cannot? reach:\n is it there?\n");
}

TEST_F(CtlStatusTest, JsonTextIsAsciiWithEscapes) {
  const nlohmann::json rJson = {{"remote", "\x1b\x7f\xc2\x9bM\xc3\xbcller\n"}, {"local", "M\xfcller\x9b"}};
  EXPECT_EQ(JsonToText(rJson, -1), R"({"local":"M\ufffdller\ufffd","remote":"\u001b\u007f\u009bM\u00fcller\n"})");
  EXPECT_EQ(JsonToText(nlohmann::json{{"line", 1}}, 2), "{\n  \"line\": 1\n}");
}

TEST_F(CtlStatusTest, JsonHasTheSameFacts) {
  const auto rExpected = nlohmann::json::parse(R"({
    "running": true,
    "lines": [{"line": 1, "health": "ok"}, {"line": 2, "health": "offline"}, {"line": 12, "health": "error"}],
    "calls": [
      {"line": 1, "call_id": "20240131_132200_001_01", "direction": "incoming", "local": "22", "remote": "0301234567",
       "since": 1706707380, "state": "recording", "silenced": false},
      {"line": 2, "call_id": "20240131_132200_002_01", "direction": "outgoing", "local": "", "remote": "0301234567",
       "since": 1706703724, "state": "silenced", "silenced": true},
      {"line": 3, "call_id": "20240131_132200_003_01", "direction": "incoming", "local": "22", "remote": "",
       "since": 1706707445, "state": "waiting", "silenced": false}
    ]
  })");
  EXPECT_EQ(StatusToJson(MakeStatus()), rExpected);
}

TEST_F(CtlStatusTest, JsonWithoutDaemonAndDatabase) {
  CtlStatus rStatus;
  rStatus.strDatabaseError = "server is gone";
  EXPECT_EQ(StatusToJson(rStatus).dump(),
            R"({"calls":[],"database_error":"server is gone","lines":[],"running":false})");
}

TEST_F(CtlStatusTest, CallWhoseDaemonHasEndedIsUnfinished) {
  CtlStatus rStatus = MakeStatus();
  for (CallStatus& rCall : rStatus.vCalls) rCall.fUnfinished = true;
  const nlohmann::json rJson = StatusToJson(rStatus);
  ASSERT_EQ(rJson["calls"].size(), rStatus.vCalls.size());
  for (const auto& rCall : rJson["calls"]) EXPECT_EQ(rCall["state"], "unfinished");
}

TEST_F(CtlStatusTest, FileOfADaemonThatHasEndedSaysNothing) {
  WriteTestFile(STATUS_PATH, "Line_1: ok\n");
  const CtlStatus rStatus = ReadStatus({STATUS_PATH, "/tmp/nobody", "host=/tmp/nowhere dbname=morvex"});
  EXPECT_FALSE(rStatus.fRunning);
  EXPECT_FALSE(rStatus.fLines);
  EXPECT_TRUE(rStatus.vLines.empty());
}

TEST_F(CtlStatusTest, DatabaseThatCannotBeReachedIsToldInTheStatus) {
  const CtlStatus rStatus = ReadStatus({STATUS_PATH, "/tmp/nobody", "host=/tmp/nowhere dbname=morvex"});
  EXPECT_FALSE(rStatus.fDatabase);
  EXPECT_TRUE(rStatus.vCalls.empty());
  EXPECT_FALSE(rStatus.strDatabaseError.empty());
  EXPECT_NE(rStatus.strDatabaseError.back(), '\n');
}

}  // namespace
