#include "ctl_check.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

namespace {

constexpr time_t NOW = 1706707385;
constexpr time_t HOUR_S = 3600;
constexpr std::uint64_t ENOUGH = 1024;
constexpr const char* HEALTHY =
    "CREC OK - 3 lines ok, 2 calls | lines_ok=3 lines_offline=0 lines_error=0 calls=2 calls_left=0 "
    "free=38.2%;10:;5: behind=0.012s;2;10 event_age=12s";

CtlStatus MakeHealthy() {
  CtlStatus rStatus;
  rStatus.fRunning = rStatus.fLines = rStatus.fDatabase = true;
  rStatus.rListensSince = NOW - 10 * HOUR_S;
  rStatus.vLines = {{1, "ok"}, {2, "ok"}, {3, "ok"}};
  rStatus.vCalls = {CallStatus(), CallStatus()};
  rStatus.rSigns.eLoop = LOOP_TURNS;
  rStatus.rSigns.rLoop = LoopReport{{{"loop_behind_seconds", "0.0123"}}, 0.5};
  rStatus.rSigns.fEventAge = 12.3;
  rStatus.rSigns.rDisk = DiskSpace{38.24, 412'345'678'901};
  return rStatus;
}

// What stands before the performance data.
std::string Verdict(const CheckResult& rResult) {
  return rResult.strLine.substr(0, rResult.strLine.find(" | "));
}

struct Row {
  const char* acLabel;
  std::function<void(CtlStatus&)> Change;
  EPluginExit eExit;
  const char* acVerdict;
};

void ExpectVerdicts(const std::vector<Row>& vRows, const CheckLimits& rLimits = {}) {
  for (const Row& rRow : vRows) {
    CtlStatus rStatus = MakeHealthy();
    rRow.Change(rStatus);
    const CheckResult rResult = CheckStatus(rStatus, ENOUGH, rLimits, NOW);
    EXPECT_EQ(rResult.eExit, rRow.eExit) << rRow.acLabel;
    EXPECT_EQ(Verdict(rResult), rRow.acVerdict) << rRow.acLabel;
  }
}

TEST(CtlCheck, HealthyRecorderIsOkWithPerformanceData) {
  const CheckResult rResult = CheckStatus(MakeHealthy(), ENOUGH, {}, NOW);
  EXPECT_EQ(rResult.eExit, PLUGIN_OK);
  EXPECT_EQ(rResult.strLine, HEALTHY);
}

TEST(CtlCheck, WithoutARecorderThereIsOnlyWhatIsKnownAllTheSame) {
  CtlStatus rStatus;
  rStatus.rSigns.eLoop = LOOP_TRACES;
  rStatus.rSigns.rLoop = LoopReport{{}, 1000};
  rStatus.rSigns.rDisk = DiskSpace{4, 1};
  rStatus.strDatabaseError = "could not connect\n\tis it | there?";
  const CheckResult rResult = CheckStatus(rStatus, std::nullopt, {}, NOW);
  EXPECT_EQ(rResult.eExit, PLUGIN_CRITICAL);
  EXPECT_EQ(rResult.strLine,
            "CREC CRITICAL - the recorder is not running; 4.0 % free on /recordings; the database cannot be read: "
            "could not connect | free=4.0%;10:;5:");
  rStatus = CtlStatus();
  EXPECT_EQ(CheckStatus(rStatus, std::nullopt, {}, NOW).strLine,
            "CREC CRITICAL - the recorder is not running; /recordings cannot be read; the database cannot be read: ");
}

TEST(CtlCheck, LinesThatAreNotOk) {
  ExpectVerdicts({
      {"one offline", [](CtlStatus& r) { r.vLines[1].strHealth = "offline"; }, PLUGIN_WARNING,
       "CREC WARNING - line 2 offline; 2 lines ok, 2 calls"},
      {"two kinds",
       [](CtlStatus& r) {
         r.vLines = {{1, "error"}, {2, "offline"}, {3, "offline"}, {5, "ok"}};
       },
       PLUGIN_WARNING, "CREC WARNING - line 1 error; lines 2-3 offline; 1 line ok, 2 calls"},
      {"all",
       [](CtlStatus& r) {
         r.vLines = {{1, "offline"}, {2, "error"}};
       },
       PLUGIN_CRITICAL, "CREC CRITICAL - line 1 offline; line 2 error; 0 lines ok, 2 calls"},
      {"none there", [](CtlStatus& r) { r.vLines.clear(); }, PLUGIN_WARNING,
       "CREC WARNING - no lines; 0 lines ok, 2 calls"},
      {"not known", [](CtlStatus& r) { r.fLines = false, r.vLines.clear(); }, PLUGIN_WARNING,
       "CREC WARNING - no line status; 2 calls"},
  });
}

TEST(CtlCheck, TraceAndLoop) {
  ExpectVerdicts({
      {"a trace", [](CtlStatus& r) { r.rSigns.eLoop = LOOP_TRACES, r.rSigns.rLoop->fAgeSeconds = 900; },
       PLUGIN_CRITICAL, "CREC CRITICAL - a trace runs, no call is recorded; 3 lines ok, 2 calls"},
      {"the first trace", [](CtlStatus& r) { r.rSigns.eLoop = LOOP_TRACES, r.fLines = false, r.vLines.clear(); },
       PLUGIN_CRITICAL, "CREC CRITICAL - a trace runs, no call is recorded; 2 calls"},
      {"below the limit", [](CtlStatus& r) { r.rSigns.rLoop->rValues["loop_behind_seconds"] = "1.99"; }, PLUGIN_OK,
       "CREC OK - 3 lines ok, 2 calls"},
      {"at the first limit", [](CtlStatus& r) { r.rSigns.rLoop->rValues["loop_behind_seconds"] = "2"; }, PLUGIN_WARNING,
       "CREC WARNING - main loop 2.0 s behind; 3 lines ok, 2 calls"},
      {"at the second, by a report that is overdue",
       [](CtlStatus& r) { r.rSigns.eLoop = LOOP_SILENT, r.rSigns.rLoop->fAgeSeconds = 11.3; }, PLUGIN_CRITICAL,
       "CREC CRITICAL - main loop 10.1 s behind; 3 lines ok, 2 calls"},
      {"a loop that writes no report", [](CtlStatus& r) { r.rSigns.eLoop = LOOP_UNKNOWN, r.rSigns.rLoop.reset(); },
       PLUGIN_OK, "CREC OK - 3 lines ok, 2 calls"},
  });
}

TEST(CtlCheck, RoomForRecordings) {
  ExpectVerdicts({
      {"at the first limit", [](CtlStatus& r) { r.rSigns.rDisk->fFreePercent = 10; }, PLUGIN_OK,
       "CREC OK - 3 lines ok, 2 calls"},
      {"below it", [](CtlStatus& r) { r.rSigns.rDisk->fFreePercent = 9.94; }, PLUGIN_WARNING,
       "CREC WARNING - 9.9 % free on /recordings; 3 lines ok, 2 calls"},
      {"below the second", [](CtlStatus& r) { r.rSigns.rDisk->fFreePercent = 4.9; }, PLUGIN_CRITICAL,
       "CREC CRITICAL - 4.9 % free on /recordings; 3 lines ok, 2 calls"},
      {"no folder", [](CtlStatus& r) { r.rSigns.rDisk.reset(); }, PLUGIN_CRITICAL,
       "CREC CRITICAL - /recordings cannot be read; 3 lines ok, 2 calls"},
  });
}

TEST(CtlCheck, CallsAndDatabase) {
  ExpectVerdicts({
      {"one left", [](CtlStatus& r) { r.vCalls[0].fUnfinished = true; }, PLUGIN_WARNING,
       "CREC WARNING - 1 call left by a crash; 3 lines ok, 1 call"},
      {"none running",
       [](CtlStatus& r) {
         for (CallStatus& rCall : r.vCalls) rCall.fUnfinished = true;
       },
       PLUGIN_WARNING, "CREC WARNING - 2 calls left by a crash; 3 lines ok, 0 calls"},
      {"no database",
       [](CtlStatus& r) {
         r.fDatabase = false;
         r.vCalls.clear();
         r.strDatabaseError = "statement timeout";
       },
       PLUGIN_CRITICAL, "CREC CRITICAL - the database cannot be read: statement timeout; 3 lines ok"},
  });
}

// A site may be quiet for hours, so the age alone says nothing.
TEST(CtlCheck, CardsThatHaveNeverSaidAWord) {
  ExpectVerdicts({
      {"a quiet site", [](CtlStatus& r) { r.rSigns.fEventAge = 100 * HOUR_S; }, PLUGIN_OK,
       "CREC OK - 3 lines ok, 2 calls"},
      {"never", [](CtlStatus& r) { r.rSigns.fEventAge.reset(); }, PLUGIN_WARNING,
       "CREC WARNING - no card event ever; 3 lines ok, 2 calls"},
      {"never, in the first hour", [](CtlStatus& r) { r.rSigns.fEventAge.reset(), r.rListensSince = NOW - HOUR_S; },
       PLUGIN_OK, "CREC OK - 3 lines ok, 2 calls"},
      {"never, from lines that are known to be ill",
       [](CtlStatus& r) { r.rSigns.fEventAge.reset(), r.vLines[2].strHealth = "offline"; }, PLUGIN_WARNING,
       "CREC WARNING - line 3 offline; 2 lines ok, 2 calls"},
  });
}

TEST(CtlCheck, LimitsAreTheCallersAndStandInThePerformanceData) {
  CheckLimits rLimits;
  rLimits.fWarnFree = 50;
  rLimits.fCritFree = 12.5;
  rLimits.fWarnBehind = 0.01;
  rLimits.fCritBehind = 0.5;
  rLimits.fWarnEvent = 12;
  const CheckResult rResult = CheckStatus(MakeHealthy(), ENOUGH, rLimits, NOW);
  EXPECT_EQ(rResult.eExit, PLUGIN_WARNING);
  EXPECT_EQ(rResult.strLine,
            "CREC WARNING - main loop 0.0 s behind; no card event for 12 s; 38.2 % free on /recordings; 3 lines ok, 2 "
            "calls | lines_ok=3 lines_offline=0 lines_error=0 calls=2 calls_left=0 free=38.2%;50:;12.5: "
            "behind=0.012s;0.01;0.5 event_age=12s");
  rLimits.fWarnEvent = 12.5;
  rLimits.fCritBehind = 0;  // the second limit alone
  rLimits.fWarnFree = 0;
  rLimits.fCritFree = 40;
  EXPECT_EQ(Verdict(CheckStatus(MakeHealthy(), ENOUGH, rLimits, NOW)),
            "CREC CRITICAL - main loop 0.0 s behind; 38.2 % free on /recordings; 3 lines ok, 2 calls");
}

TEST(CtlCheck, DescriptorsThatTheLinesNeed) {
  const struct {
    const char* acLabel;
    std::optional<std::uint64_t> iDescriptors;
    const char* acMonitoring;
    const char* acVerdict;
  } rRows[] = {
      {"not known", std::nullopt, "1", "CREC OK - 3 lines ok, 2 calls"},
      {"enough", 67, "0", "CREC OK - 3 lines ok, 2 calls"},
      {"no limit", std::numeric_limits<std::uint64_t>::max(), "1", "CREC OK - 3 lines ok, 2 calls"},
      {"one too few", 66, "0", "CREC WARNING - at most 66 open files, the lines need 67; 3 lines ok, 2 calls"},
      {"a live copy each", 69, "1", "CREC WARNING - at most 69 open files, the lines need 70; 3 lines ok, 2 calls"},
  };
  for (const auto& rRow : rRows) {
    CtlStatus rStatus = MakeHealthy();
    rStatus.rOptions["Monitoring"] = rRow.acMonitoring;
    EXPECT_EQ(Verdict(CheckStatus(rStatus, rRow.iDescriptors, {}, NOW)), rRow.acVerdict) << rRow.acLabel;
  }
}

TEST(CtlCheck, WorstComesFirst) {
  CtlStatus rStatus = MakeHealthy();
  rStatus.vLines[0].strHealth = "offline";
  rStatus.vCalls[0].fUnfinished = true;
  rStatus.rSigns.rDisk->fFreePercent = 1;
  const CheckResult rResult = CheckStatus(rStatus, ENOUGH, {}, NOW);
  EXPECT_EQ(rResult.eExit, PLUGIN_CRITICAL);
  EXPECT_EQ(Verdict(rResult),
            "CREC CRITICAL - 1.0 % free on /recordings; line 1 offline; 1 call left by a crash; 2 lines ok, 1 call");
}

}  // namespace
