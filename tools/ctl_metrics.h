// ctl_metrics: what the daemon tells of itself, as Prometheus reads it. The main loop replaces a small file once a
// second, lines of "key value"; it outlives the daemon, so its age belongs to what it says.
#pragma once

#include <map>
#include <optional>
#include <string>

constexpr const char* LOOP_FILE = "/var/morvex/data/crec_loop";
constexpr double REPORT_PERIOD_S = 1.2;  // each second, by a loop that may sleep a fifth of one

struct LoopReport {
  std::map<std::string, std::string> rValues;  // numbers alone, as written; keys that are not known here too
  double fAgeSeconds = 0;                      // since it was written
};

// Seconds since the file was written. Nothing when there is none, and for what is no plain file: anybody may put a link
// or a FIFO into the folders of the daemon, and a FIFO would hold up whoever opens it.
std::optional<double> FileAgeSeconds(const std::string& strPath);
// Nothing when the file cannot be opened. Lines without a number are skipped.
std::optional<LoopReport> ReadLoopReport(const std::string& strPath = LOOP_FILE);
// How long an event has to wait for the loop: as reported, or what the report is overdue where that is more.
double LoopBehindSeconds(const LoopReport& rReport);
// The text format, with help and type of each. A key that the report lacks is left out. A loop that stands writes no
// report, so it is behind by at least what the report is overdue.
std::string MetricsToText(const LoopReport& rReport);
