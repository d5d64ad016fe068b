// display_line: one digital station line of the daemon, without a card and a database behind it, that shows what its
// own code makes of display texts. Settings are looked up by the daemon's own rules, and no call is ever recorded.
// Threads:   main. Owns the daemon's clock: time passes as the displays say.
#pragma once

#include <map>
#include <memory>
#include <string>

struct DisplayText;

// The line as it is when the first display arrives.
struct DisplayLineState {
  std::string strPbxType = "Siemens Hicom/Hipath";  // the daemon's default
  std::map<std::string, std::string> rSettings;     // of the board: "TdmStart", "PhoneType", ...
  int iBusyFor = -1;                                // seconds that the call has lasted; -1: no call
  bool fRinging = false;
  bool fPilot = false;  // names behind numbers are looked for
  std::string strRemoteNum, strLocalNum, strPrevCallRemoteNum, strLineName;
};

class DisplayLine {
 public:
  explicit DisplayLine(const DisplayLineState& rState);
  ~DisplayLine();
  DisplayLine(const DisplayLine&) = delete;
  DisplayLine& operator=(const DisplayLine&) = delete;

  // Hands one display to the line and returns what came of it: the daemon's own log lines go to standard output as they
  // arise, each number with its verdict and each change of remote number, name and local id to the result, one a line.
  std::string Show(const DisplayText& rDisplay);

 private:
  struct Parts;
  std::unique_ptr<Parts> prParts;
};
