// ctl_chstate: what a line publishes when the order "chst" asks it to: a small file, lines of "Key: number".
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

#include "ctl_socket.h"

struct LineState {
  std::optional<int> iVoltage;     // analogue lines
  std::optional<int> iAudioLevel;  // dB; lines that measure it, and only in a call
};

struct ChstReply {
  ECtlExit eExit = CTL_OK;
  std::string strText;  // what went wrong
  LineState rState;
};
// Gives the order, and reads the file when the line has written it.
ChstReply AskLineState(int iLine);

// Nothing when the file cannot be opened. Lines of another form are skipped.
std::optional<LineState> ReadLineState(const std::string& strPath);
// "Line 4: voltage 48 V, audio level 31 dB", with a line end.
std::string LineStateToText(int iLine, const LineState& rState);
nlohmann::json LineStateToJson(int iLine, const LineState& rState);
