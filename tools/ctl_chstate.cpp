#include "ctl_chstate.h"

#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

constexpr const char* STATE_FILE_START = "/var/morvex/data/chstate_";
constexpr const char* STATE_FILE_END = ".dat";
constexpr int WAIT_STEPS = 20;
constexpr useconds_t WAIT_STEP_US = 50'000;

struct KeyRow {
  const char* acKey;  // in the file
  std::optional<int> LineState::*piValue;
  const char* acJsonKey;
  const char* acText;
  const char* acUnit;
};

constexpr KeyRow KEYS[] = {
    {"Voltage: ", &LineState::iVoltage, "voltage", "voltage", "V"},
    {"AudioLevel: ", &LineState::iAudioLevel, "audio_level", "audio level", "dB"},
};

std::optional<int> ParseInt(const std::string& strText) {
  int iValue = 0;
  const char* acEnd = strText.data() + strText.size();
  const auto [acStop, eError] = std::from_chars(strText.data(), acEnd, iValue);
  if (eError != std::errc() || acStop != acEnd) return std::nullopt;
  return iValue;
}

// The file is opened anew each time, which sets its time. Nothing when there is none, and for a link or a FIFO, which
// anybody may put there.
std::optional<timespec> TimeOf(const std::string& strPath) {
  struct stat rStat {};
  if (lstat(strPath.c_str(), &rStat) != 0 || !S_ISREG(rStat.st_mode)) return std::nullopt;
  return rStat.st_mtim;
}

bool IsWrittenSince(const std::string& strPath, const std::optional<timespec>& rBefore) {
  const std::optional<timespec> rNow = TimeOf(strPath);
  if (!rNow || !rBefore) return rNow.has_value();
  return rNow->tv_sec != rBefore->tv_sec || rNow->tv_nsec != rBefore->tv_nsec;
}

}  // namespace

std::optional<LineState> ReadLineState(const std::string& strPath) {
  if (!TimeOf(strPath)) return std::nullopt;
  std::ifstream rFile(strPath);
  if (!rFile) return std::nullopt;
  LineState rState;
  for (std::string strLine; std::getline(rFile, strLine);) {
    if (!strLine.empty() && strLine.back() == '\r') strLine.pop_back();
    for (const KeyRow& rRow : KEYS) {
      const std::string strKey = rRow.acKey;
      if (strLine.rfind(strKey, 0) == 0) rState.*rRow.piValue = ParseInt(strLine.substr(strKey.size()));
    }
  }
  return rState;
}

ChstReply AskLineState(int iLine) {
  const std::string strPath = STATE_FILE_START + std::to_string(iLine) + STATE_FILE_END;
  const std::optional<timespec> rBefore = TimeOf(strPath);
  const CtlReply rReply = SendOrder("chst " + std::to_string(iLine));
  if (rReply.eExit != CTL_OK) return {rReply.eExit, rReply.strText, {}};
  // The answer may be that of the order before, and come a moment too early.
  for (int i = 0; i < WAIT_STEPS && !IsWrittenSince(strPath, rBefore); i++) (void)usleep(WAIT_STEP_US);
  const std::optional<LineState> rState = ReadLineState(strPath);
  if (!rState || !IsWrittenSince(strPath, rBefore)) {
    return {CTL_NOT_DONE,
            "Line " + std::to_string(iLine) + " writes no state: its kind has none, or the disk is full.",
            {}};
  }
  return {CTL_OK, "", *rState};
}

std::string LineStateToText(int iLine, const LineState& rState) {
  std::string strValues;
  for (const KeyRow& rRow : KEYS) {
    const std::optional<int>& iValue = rState.*rRow.piValue;
    if (!iValue) continue;
    strValues +=
        (strValues.empty() ? "" : ", ") + std::string(rRow.acText) + " " + std::to_string(*iValue) + " " + rRow.acUnit;
  }
  return "Line " + std::to_string(iLine) + ": " + (strValues.empty() ? "publishes no state now" : strValues) + "\n";
}

nlohmann::json LineStateToJson(int iLine, const LineState& rState) {
  nlohmann::json rJson = {{"line", iLine}};
  for (const KeyRow& rRow : KEYS) {
    const std::optional<int>& iValue = rState.*rRow.piValue;
    if (iValue) rJson[rRow.acJsonKey] = *iValue;
  }
  return rJson;
}
