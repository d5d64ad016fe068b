// ctl_status: the lines with their health and the calls in progress, as the daemon publishes them: the health in a
// small file that it rewrites on each change, the calls in the database. A call that has ended stays listed until its
// recording is finished. Both outlive a daemon that is killed, and a trace takes the file away for a while, so the
// control socket tells whether a daemon is there. What else shows of it comes from ctl_signs.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "ctl_signs.h"
#include "ctl_socket.h"

constexpr const char* LINE_STATUS_FILE = "/var/morvex/data/linestatus.dat";
constexpr const char* DIRECTION_TEXT_INTERNAL = "internal";

struct LineStatus {
  int iLine = 0;
  std::string strHealth;  // "ok", "offline" or "error"
};

struct CallStatus {
  int iLine = 0;
  std::string strCallId;     // by which orders address the call
  std::string strDirection;  // "incoming", "outgoing" or DIRECTION_TEXT_INTERNAL
  std::string strLocal, strRemote;
  time_t rSince = 0;
  bool fSilenced = false;
  bool fWaiting = false;     // no audio yet: waits for a demand to record
  bool fUnfinished = false;  // its daemon has ended; one that crashed leaves such rows for good
};

struct CtlStatus {
  bool fRunning = false;  // a daemon serves the control socket
  bool fLines = false;    // it publishes line health
  bool fDatabase = false;
  std::string strDatabaseError;
  time_t rListensSince = 0;  // when the daemon took its socket into use; 0 when nobody can tell
  std::vector<LineStatus> vLines;
  std::vector<CallStatus> vCalls;
  std::map<std::string, std::string> rOptions;  // part "o" of the settings
  Signs rSigns;
};

// "Line_12: offline" a line; anything else is skipped. False when the file cannot be opened.
bool ReadLineStatus(const std::string& strPath, std::vector<LineStatus>& vLines);
struct StatusSources {
  std::string strLineFile = LINE_STATUS_FILE;
  std::string strSocket = CONTROL_SOCKET;
  std::string strConnection = {};  // libpq connection text; empty: the daemon's own database
  SignSources rSigns = {};
};
// All of them. Without a daemon there are no lines, whatever the file says.
CtlStatus ReadStatus(const StatusSources& rSources = {});
// The same of one line alone.
CtlStatus StatusOfLine(CtlStatus rStatus, int iLine);
// Whether the daemon has this line: a complaint, empty when it has. So it is where there is no line status to tell.
std::string ComplainOfLine(const CtlStatus& rStatus, int iLine);

// Two tables for people, and the signs: lines in runs of equal health ("1-8,17-20  ok"), and calls; times in local
// time, ages counted to rNow. A row that is too long for a screen loses least at its end. Control characters are
// masked: what the columns hold came from the telephone network.
std::string StatusToText(const CtlStatus& rStatus, time_t rNow);
// "1-8,17": the lines of this health.
std::string LinesOfHealth(const std::vector<LineStatus>& vLines, const std::string& strHealth);
// For scripts: each line by itself.
nlohmann::json StatusToJson(const CtlStatus& rStatus, time_t rNow);
// ASCII alone, with escapes for all else; what is no UTF-8 becomes U+FFFD. iIndent as in nlohmann::json::dump.
std::string JsonToText(const nlohmann::json& rJson, int iIndent);
