#include "ctl_metrics.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

constexpr const char* BEHIND_KEY = "loop_behind_seconds";

struct MetricRow {
  const char* acKey;  // of the file
  const char* acName;
  const char* acType;
  const char* acHelp;
};

constexpr MetricRow LOOP_METRICS[] = {
    {BEHIND_KEY, "morvex_crec_loop_behind_seconds", "gauge",
     "Longest time in the last second that an event waited for the main loop."},
    {"taken_bytes", "morvex_crec_taken_bytes", "gauge", "Audio in memory that is not yet in its file."},
    {"taken_limit_bytes", "morvex_crec_taken_limit_bytes", "gauge", "Most audio that may wait in memory."},
    {"lost_bytes", "morvex_crec_lost_bytes_total", "counter",
     "Audio that found no room in memory, since the recorder started."},
    {"overrun_bytes", "morvex_crec_overrun_bytes_total", "counter",
     "Audio that the cards overwrote before it was taken, since the recorder started."},
};
constexpr MetricRow AGE_METRIC = {"", "morvex_crec_loop_age_seconds", "gauge",
                                  "Age of the main loop's last report, which comes once a second."};

// Without the locale of whoever runs this.
std::optional<double> ParseNumber(const std::string& strText) {
  double fValue = 0;
  const char* acEnd = strText.data() + strText.size();
  const auto [acStop, eError] = std::from_chars(strText.data(), acEnd, fValue);
  if (eError != std::errc() || acStop != acEnd || !std::isfinite(fValue)) return std::nullopt;
  return fValue;
}

std::string NumberToText(double fValue) {
  char acText[32];
  const auto [acEnd, eError] = std::to_chars(std::begin(acText), std::end(acText), fValue, std::chars_format::fixed, 3);
  return eError == std::errc() ? std::string(acText, acEnd) : "NaN";
}

// A clock that was set back makes nothing younger than new.
double AgeSeconds(const struct stat& rStat) {
  const auto rWritten = std::chrono::seconds(rStat.st_mtim.tv_sec) + std::chrono::nanoseconds(rStat.st_mtim.tv_nsec);
  const std::chrono::duration<double> rAge = std::chrono::system_clock::now().time_since_epoch() - rWritten;
  return std::max(rAge.count(), 0.0);
}

// The number in the file is older than the wait of a loop that stands by now.
std::string Behind(const std::string& strReported, double fAgeSeconds) {
  const double fOverdue = fAgeSeconds - REPORT_PERIOD_S;
  return fOverdue > ParseNumber(strReported).value_or(0) ? NumberToText(fOverdue) : strReported;
}

std::string MetricText(const MetricRow& rRow, const std::string& strValue) {
  const std::string strName = rRow.acName;
  return "# HELP " + strName + " " + rRow.acHelp + "\n# TYPE " + strName + " " + rRow.acType + "\n" + strName + " " +
         strValue + "\n";
}

}  // namespace

std::optional<double> FileAgeSeconds(const std::string& strPath) {
  struct stat rStat {};
  if (lstat(strPath.c_str(), &rStat) != 0 || !S_ISREG(rStat.st_mode)) return std::nullopt;
  return AgeSeconds(rStat);
}

std::optional<LoopReport> ReadLoopReport(const std::string& strPath) {
  const std::optional<double> fAge = FileAgeSeconds(strPath);
  if (!fAge) return std::nullopt;
  std::ifstream rFile(strPath);
  if (!rFile) return std::nullopt;
  LoopReport rReport;
  for (std::string strLine; std::getline(rFile, strLine);) {
    std::istringstream rWords(strLine);
    std::string strKey, strValue;
    if (rWords >> strKey >> strValue && ParseNumber(strValue)) rReport.rValues[strKey] = strValue;
  }
  rReport.fAgeSeconds = *fAge;
  return rReport;
}

double LoopBehindSeconds(const LoopReport& rReport) {
  const auto it = rReport.rValues.find(BEHIND_KEY);
  const double fReported = it == rReport.rValues.end() ? 0 : ParseNumber(it->second).value_or(0);
  return std::max(fReported, rReport.fAgeSeconds - REPORT_PERIOD_S);
}

std::string MetricsToText(const LoopReport& rReport) {
  std::string strText;
  for (const MetricRow& rRow : LOOP_METRICS) {
    const auto it = rReport.rValues.find(rRow.acKey);
    if (it == rReport.rValues.end()) continue;
    const bool fBehind = it->first == BEHIND_KEY;
    strText += MetricText(rRow, fBehind ? Behind(it->second, rReport.fAgeSeconds) : it->second);
  }
  return strText + MetricText(AGE_METRIC, NumberToText(rReport.fAgeSeconds));
}
