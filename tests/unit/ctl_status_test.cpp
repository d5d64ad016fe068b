#include "ctl_status.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "TestFiles.h"

namespace {

constexpr const char* STATUS_PATH = "/tmp/linestatus.dat";
constexpr time_t NOW = 1706707385;  // 2024-01-31 13:23:05 UTC, a Wednesday
// What stands behind the calls.
constexpr const char* NO_SIGNS =
    "\n"
    "/recordings cannot be read\n"
    "Last card event: none\n"
    "Last error: none\n";

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

Signs MakeSigns() {
  Signs rSigns;
  rSigns.eLoop = LOOP_TURNS;
  rSigns.rLoop = LoopReport{{{"loop_behind_seconds", "0.34"}}, 0.5};
  rSigns.fEventAge = 2.9;
  rSigns.rError = LastError{"Error connecting\x1b to socket", 192};
  rSigns.rDisk = DiskSpace{38.24, 412'345'678'901};
  return rSigns;
}

StatusSources NoDaemon() {
  StatusSources rSources;
  rSources.strLineFile = STATUS_PATH;
  rSources.strSocket = "/tmp/nobody";
  rSources.strConnection = "host=/tmp/nowhere dbname=morvex";
  return rSources;
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

TEST_F(CtlStatusTest, FifoInItsPlaceHoldsNobodyUp) {
  unlink(STATUS_PATH);
  ASSERT_EQ(mkfifo(STATUS_PATH, 0666), 0);
  std::vector<LineStatus> vLines;
  EXPECT_FALSE(ReadLineStatus(STATUS_PATH, vLines));
  unlink(STATUS_PATH);
}

TEST_F(CtlStatusTest, EmptyFileIsADaemonWithoutLines) {
  WriteTestFile(STATUS_PATH, "");
  std::vector<LineStatus> vLines;
  EXPECT_TRUE(ReadLineStatus(STATUS_PATH, vLines));
  EXPECT_TRUE(vLines.empty());
}

TEST_F(CtlStatusTest, TextIsATableOfLinesAndOneOfCalls) {
  CtlStatus rStatus = MakeStatus();
  rStatus.rSigns = MakeSigns();
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "LINES  HEALTH\n"
            "1      ok\n"
            "2      offline\n"
            "12     error\n"
            "\n"
            "LINE  CALL ID                 STATE      LOCAL  REMOTE      DIRECTION  SINCE     AGE\n"
            "1     20240131_132200_001_01  recording  22     0301234567  incoming   13:23:00  0:00:05\n"
            "2     20240131_132200_002_01  silenced   -      0301234567  outgoing   12:22:04  1:01:01\n"
            "3     20240131_132200_003_01  waiting    22     -           incoming   13:24:05  0:00:00\n"
            "\n"
            "Main loop: 0.3 s behind\n"
            "Free on /recordings: 38.2 % (412.3 GB)\n"
            "Last card event: 0:00:02 ago\n"
            "Last error, 0:03:12 ago: Error connecting? to socket\n");
}

TEST_F(CtlStatusTest, TextTellsATraceFromALoopThatStandsAndFromNoNews) {
  const struct {
    const char* acLabel;
    bool fLines;
    ELoopSign eLoop;
    const char* acBegin;
  } rRows[] = {
      {"never traced", true, LOOP_TURNS, "LINES  HEALTH\n1      ok\n\n"},
      {"a trace", false, LOOP_TRACES, "A trace runs: no call is recorded.\n\n"},
      {"a second trace", true, LOOP_TRACES, "A trace runs: no call is recorded.\nLINES  HEALTH\n1      ok\n\n"},
      {"a trace before", false, LOOP_TURNS, "No line status: no line has changed since a trace.\n\n"},
      {"nobody can tell", false, LOOP_UNKNOWN,
       "No line status: a trace runs, or no line has changed since one ran.\n\n"},
      {"no report, and a trace or not", false, LOOP_SILENT,
       "The main loop has not reported for 0:00:12: it stands, drains for a trace or a stop, or traces without "
       "files.\n\n"},
      {"no report", true, LOOP_SILENT,
       "The main loop has not reported for 0:00:12: it stands, drains for a trace or a stop, or traces without "
       "files.\nLINES  HEALTH\n1      ok\n\n"},
  };
  for (const auto& rRow : rRows) {
    CtlStatus rStatus;
    rStatus.fRunning = rStatus.fDatabase = true;
    rStatus.fLines = rRow.fLines;
    if (rRow.fLines) rStatus.vLines = {{1, "ok"}};
    rStatus.rSigns.eLoop = rRow.eLoop;
    if (rRow.eLoop != LOOP_UNKNOWN) rStatus.rSigns.rLoop = LoopReport{{}, rRow.eLoop == LOOP_TURNS ? 0.1 : 12.9};
    const std::string strBehind = rRow.eLoop == LOOP_TURNS ? "Main loop: 0.0 s behind\n" : "";
    EXPECT_EQ(StatusToText(rStatus, NOW),
              rRow.acBegin + std::string("No calls in progress.\n\n") + strBehind + (NO_SIGNS + 1))
        << rRow.acLabel;
  }
}

TEST_F(CtlStatusTest, TextTellsWhichCallsLeaveNoRow) {
  const struct {
    const char* acLabel;
    std::map<std::string, std::string> rOptions;
    const char* acTold;
  } rRows[] = {
      {"all are recorded", {{"NumberFilterType", "0"}, {"srWeekdays", "4"}}, ""},
      {"another day", {{"srWeekdays", "12"}}, "Not recorded: calls that begin outside the schedule, as now\n"},
      {"another time of this day",
       {{"srWeekdays", "1234567"}, {"srWednesdayStart1", "8:00"}, {"srWednesdayStop1", "13:23"}},
       "Not recorded: calls that begin outside the schedule, as now\n"},
      {"listed numbers alone",
       {{"NumberFilterType", "1"}},
       "Not recorded: calls without a number of the number filter\n"},
      {"all but listed numbers",
       {{"NumberFilterType", "2"}},
       "Not recorded: calls with a number of the number filter\n"},
      {"both",
       {{"NumberFilterType", "2"}, {"srWeekdays", "1"}},
       "Not recorded: calls that begin outside the schedule, as now\n"
       "Not recorded: calls with a number of the number filter\n"},
  };
  for (const auto& rRow : rRows) {
    CtlStatus rStatus;
    rStatus.fRunning = rStatus.fLines = rStatus.fDatabase = true;
    rStatus.rOptions = rRow.rOptions;
    EXPECT_EQ(StatusToText(rStatus, NOW),
              std::string("LINES  HEALTH\n\nNo calls in progress.\n\n") + rRow.acTold + (NO_SIGNS + 1))
        << rRow.acLabel;
  }
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
    EXPECT_EQ(StatusToText(rStatus, NOW), std::string(rRow.acTable) + "\nNo calls in progress.\n" + NO_SIGNS)
        << rRow.acLabel;
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
            "LINE  CALL ID                 STATE      LOCAL   REMOTE      DIRECTION  SINCE     AGE\n"
            "1     20240131_132200_001_01  recording  M\xc3\xbcller  0301234567  incoming   13:23:05  0:00:00\n"
            "2     20240131_132200_002_01  recording  22      0301234567  incoming   13:23:05  0:00:00\n" +
                std::string(NO_SIGNS));
}

TEST_F(CtlStatusTest, TextWithoutDaemonOrDatabase) {
  CtlStatus rStatus;
  rStatus.fDatabase = true;
  rStatus.rSigns = MakeSigns();  // the daemon's report outlives it, and says nothing then
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "The recorder is not running: nobody serves /tmp/morvex_crec.\n"
            "\n"
            "No calls in progress.\n"
            "\n"
            "Free on /recordings: 38.2 % (412.3 GB)\n"
            "Last card event: 0:00:02 ago\n"
            "Last error, 0:03:12 ago: Error connecting? to socket\n");
  rStatus = CtlStatus();
  rStatus.fRunning = rStatus.fLines = true;
  rStatus.vLines = {{1, "ok"}};
  rStatus.strDatabaseError = "server is gone";
  EXPECT_EQ(StatusToText(rStatus, NOW),
            std::string("LINES  HEALTH\n1      ok\n\nThe database cannot be read: server is gone\n") + NO_SIGNS);
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
            "LINE  CALL ID  STATE      LOCAL          REMOTE    DIRECTION  SINCE     AGE\n"
            "1     ?7       recording  ?[31mM\xc3\xbcller?1  ?2J??2J?  incoming   13:23:05  0:00:00\n" +
                std::string(NO_SIGNS));
  rStatus.fDatabase = false;
  rStatus.strDatabaseError = "cannot\x1b reach:\n\tis it there?";
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "LINES  HEALTH\n1      ok?\n\nThe database cannot be read: cannot? reach:\n is it there?\n" +
                std::string(NO_SIGNS));
}

TEST_F(CtlStatusTest, OneLineHasItsOwnHealthAndCallsAlone) {
  const CtlStatus rStatus = StatusOfLine(MakeStatus(), 2);
  EXPECT_EQ(StatusToText(rStatus, NOW),
            "LINES  HEALTH\n"
            "2      offline\n"
            "\n"
            "LINE  CALL ID                 STATE     LOCAL  REMOTE      DIRECTION  SINCE     AGE\n"
            "2     20240131_132200_002_01  silenced  -      0301234567  outgoing   12:22:04  1:01:01\n" +
                std::string(NO_SIGNS));
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
    ],
    "signs": {"loop": "turns", "loop_behind_seconds": 0.34, "not_recorded": [], "card_event_age_seconds": 2.9,
              "free_percent": 38.24, "free_bytes": 412345678901, "last_error": "Error connecting\u001b to socket",
              "last_error_age_seconds": 192.0}
  })");
  CtlStatus rStatus = MakeStatus();
  rStatus.rSigns = MakeSigns();
  EXPECT_EQ(StatusToJson(rStatus, NOW), rExpected);
}

TEST_F(CtlStatusTest, JsonTellsWhatTheLoopDoesAndWhichCallsLeaveNoRow) {
  const struct {
    bool fRunning;
    ELoopSign eLoop;
    const char* acSigns;
  } rRows[] = {
      {true, LOOP_UNKNOWN, R"({"loop":"unknown","not_recorded":["calls with a number of the number filter"]})"},
      {true, LOOP_SILENT, R"({"loop":"silent","not_recorded":["calls with a number of the number filter"]})"},
      {true, LOOP_TRACES, R"({"loop":"traces","not_recorded":["calls with a number of the number filter"]})"},
      {false, LOOP_TRACES, R"({"loop":"none","not_recorded":["calls with a number of the number filter"]})"},
  };
  for (const auto& rRow : rRows) {
    CtlStatus rStatus;
    rStatus.fRunning = rRow.fRunning;
    rStatus.rSigns.eLoop = rRow.eLoop;
    rStatus.rOptions["NumberFilterType"] = "2";
    EXPECT_EQ(StatusToJson(rStatus, NOW)["signs"].dump(), rRow.acSigns);
  }
}

TEST_F(CtlStatusTest, JsonWithoutDaemonAndDatabase) {
  CtlStatus rStatus;
  rStatus.strDatabaseError = "server is gone";
  EXPECT_EQ(StatusToJson(rStatus, NOW).dump(),
            R"({"calls":[],"database_error":"server is gone","lines":[],"running":false,)"
            R"("signs":{"loop":"none","not_recorded":[]}})");
}

TEST_F(CtlStatusTest, CallWhoseDaemonHasEndedIsUnfinishedAndLeftByACrashForTheNext) {
  CtlStatus rStatus = MakeStatus();
  for (CallStatus& rCall : rStatus.vCalls) rCall.fUnfinished = true;
  for (const bool fRunning : {false, true}) {
    rStatus.fRunning = fRunning;
    const nlohmann::json rJson = StatusToJson(rStatus, NOW);
    ASSERT_EQ(rJson["calls"].size(), rStatus.vCalls.size());
    for (const auto& rCall : rJson["calls"]) EXPECT_EQ(rCall["state"], fRunning ? "left by a crash" : "unfinished");
  }
}

TEST_F(CtlStatusTest, FileOfADaemonThatHasEndedSaysNothing) {
  WriteTestFile(STATUS_PATH, "Line_1: ok\n");
  const CtlStatus rStatus = ReadStatus(NoDaemon());
  EXPECT_FALSE(rStatus.fRunning);
  EXPECT_FALSE(rStatus.fLines);
  EXPECT_TRUE(rStatus.vLines.empty());
}

TEST_F(CtlStatusTest, DatabaseThatCannotBeReachedIsToldInTheStatus) {
  const CtlStatus rStatus = ReadStatus(NoDaemon());
  EXPECT_FALSE(rStatus.fDatabase);
  EXPECT_TRUE(rStatus.vCalls.empty());
  EXPECT_FALSE(rStatus.strDatabaseError.empty());
  EXPECT_NE(rStatus.strDatabaseError.back(), '\n');
}

}  // namespace
