#include "ctl_metrics.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <sstream>
#include <string>

#include "TestFiles.h"

namespace {

constexpr const char* REPORT_PATH = "/tmp/crec_loop";
constexpr const char* REPORT =
    "loop_behind_seconds 0.0123\ntaken_bytes 12345\ntaken_limit_bytes 503316480\nlost_bytes 67\noverrun_bytes 890\n";

LoopReport Report(const std::string& strText) {
  WriteTestFile(REPORT_PATH, strText);
  return ReadLoopReport(REPORT_PATH).value_or(LoopReport());
}

void SetAge(time_t rSeconds) {
  const timespec rTimes[] = {{time(nullptr) - rSeconds, 0}, {time(nullptr) - rSeconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, REPORT_PATH, rTimes, 0), 0);
}

// The samples, without help and type.
std::string Samples(const LoopReport& rReport) {
  std::istringstream rText(MetricsToText(rReport));
  std::string strSamples;
  for (std::string strLine; std::getline(rText, strLine);) {
    if (strLine[0] != '#') strSamples += strLine + "\n";
  }
  return strSamples;
}

TEST(CtlMetrics, EachHasHelpTypeAndValue) {
  LoopReport rReport = Report(REPORT);
  rReport.fAgeSeconds = 0.25;
  EXPECT_EQ(MetricsToText(rReport),
            "# HELP morvex_crec_loop_behind_seconds Longest time in the last second that an event waited for the main "
            "loop.\n"
            "# TYPE morvex_crec_loop_behind_seconds gauge\n"
            "morvex_crec_loop_behind_seconds 0.0123\n"
            "# HELP morvex_crec_taken_bytes Audio in memory that is not yet in its file.\n"
            "# TYPE morvex_crec_taken_bytes gauge\n"
            "morvex_crec_taken_bytes 12345\n"
            "# HELP morvex_crec_taken_limit_bytes Most audio that may wait in memory.\n"
            "# TYPE morvex_crec_taken_limit_bytes gauge\n"
            "morvex_crec_taken_limit_bytes 503316480\n"
            "# HELP morvex_crec_lost_bytes_total Audio that found no room in memory, since the recorder started.\n"
            "# TYPE morvex_crec_lost_bytes_total counter\n"
            "morvex_crec_lost_bytes_total 67\n"
            "# HELP morvex_crec_overrun_bytes_total Audio that the cards overwrote before it was taken, since the "
            "recorder started.\n"
            "# TYPE morvex_crec_overrun_bytes_total counter\n"
            "morvex_crec_overrun_bytes_total 890\n"
            "# HELP morvex_crec_loop_age_seconds Age of the main loop's last report, which comes once a second.\n"
            "# TYPE morvex_crec_loop_age_seconds gauge\n"
            "morvex_crec_loop_age_seconds 0.250\n");
}

TEST(CtlMetrics, LoopIsBehindByWhatItsReportIsOverdue) {
  const struct {
    const char* acLabel;
    const char* acReported;
    double fAgeSeconds;
    const char* acBehind;
  } rRows[] = {
      {"a report in time", "0", 1.2, "0"},
      {"a loop that stands", "0.5", 31.5, "30.300"},
      {"one that was behind by more", "40", 31.5, "40"},
  };
  for (const auto& rRow : rRows) {
    LoopReport rReport;
    rReport.rValues["loop_behind_seconds"] = rRow.acReported;
    rReport.fAgeSeconds = rRow.fAgeSeconds;
    EXPECT_EQ(Samples(rReport).find(std::string("morvex_crec_loop_behind_seconds ") + rRow.acBehind + "\n"), 0u)
        << rRow.acLabel << ": " << Samples(rReport);
  }
}

TEST(CtlMetrics, LoopThatReportsNoNumberIsBehindByWhatIsOverdue) {
  EXPECT_DOUBLE_EQ(LoopBehindSeconds({{{"loop_behind_seconds", "0.5"}}, 1.2}), 0.5);
  EXPECT_DOUBLE_EQ(LoopBehindSeconds({{{"loop_behind_seconds", "0.5"}}, 31.2}), 30);
  EXPECT_DOUBLE_EQ(LoopBehindSeconds({{}, 0.1}), 0);
}

TEST(CtlMetrics, UnknownAndMissingKeysAndLinesWithoutANumberAreSkipped) {
  LoopReport rReport = Report(
      "new_key 7\n"
      "taken_bytes\n"
      "taken_limit_bytes 12x\n"
      "\n"
      "lost_bytes inf\n"
      "overrun_bytes 18446744073709551615 of a later version\n"
      "no end");
  rReport.fAgeSeconds = 0;
  EXPECT_EQ(Samples(rReport),
            "morvex_crec_overrun_bytes_total 18446744073709551615\n"
            "morvex_crec_loop_age_seconds 0.000\n");
}

TEST(CtlMetrics, AgeIsThatOfTheFile) {
  (void)Report(REPORT);
  SetAge(100);
  const double fAge = ReadLoopReport(REPORT_PATH).value().fAgeSeconds;
  EXPECT_GE(fAge, 100);
  EXPECT_LT(fAge, 160);  // a slow machine's
}

TEST(CtlMetrics, FileOfTheFutureIsNew) {
  (void)Report(REPORT);
  SetAge(-1000);
  EXPECT_EQ(ReadLoopReport(REPORT_PATH).value().fAgeSeconds, 0);
}

TEST(CtlMetrics, MissingFileIsNoReport) {
  EXPECT_FALSE(ReadLoopReport("/tmp/no_such_report"));
}

}  // namespace
