// ctl_metrics: what the daemon tells of itself, as Prometheus reads it. The main loop replaces a small file once a
// second, lines of "key value"; it outlives the daemon, so its age belongs to what it says.
#pragma once

#include <map>
#include <optional>
#include <string>

constexpr const char* LOOP_FILE = "/var/morvex/data/crec_loop";

struct LoopReport {
  std::map<std::string, std::string> rValues;  // numbers alone, as written; keys that are not known here too
  double fAgeSeconds = 0;                      // since it was written
};

// Nothing when the file cannot be opened. Lines without a number are skipped.
std::optional<LoopReport> ReadLoopReport(const std::string& strPath = LOOP_FILE);
// The text format, with help and type of each. A key that the report lacks is left out. A loop that stands writes no
// report, so it is behind by at least what the report is overdue.
std::string MetricsToText(const LoopReport& rReport);
