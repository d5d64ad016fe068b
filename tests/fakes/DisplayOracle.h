// DisplayOracle: a second opinion on displays: the rules of display analysis written down once more, one after the
// other, plain and slow, without a line in common with the daemon's. Tests and fuzzers compare the two.
// It works on a copy of what the analysis may read and write, and knows neither channel nor clock.
#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace oracle {

// The text, the settings and the state of a line; analysis changes the state and adds log lines.
struct Line {
  std::string strText;  // ends at its first NUL, if there is one

  int iChannel = 0;
  int iPbxType = 0;
  int iTdmStart = 0;
  int iLocalNumSize = 4;
  bool fAllowEqualRemoteLenChange = false;
  bool fLateChange = true;
  bool fCheckForMultipleTelNum = false;
  bool fSpecial_Pilot = false;
  std::string strLocalNum, strLocalName, strPrevCallRemoteNum;
  bool fCallBusy = false;
  bool fRinging = false;
  time_t rNow = 0, rStartTime = 0, rFirstRing = 0, rLastRing = 0;

  std::string strRemoteNum, strConnectedNum, strDigits;
  std::string strPrevRemoteNum, strPrevConnectedNum;
  bool fHasConnectedNum = false;
  bool fDigitFreeze = false;
  time_t rRemoteNumTime = 0, rAlmostLocalNum = 0, rLoginBusy = 0;

  std::vector<std::string> astrLog;  // "<prio> <text>"
};

// The steps, each as the channel's operation of the same purpose.
bool IsDateInStrYearPos(const std::string& strText, int iYearPos);
bool ExtractA5000Name(const std::string& strText, std::string& strName);
bool AnalyseCIDsub(const Line& rLine, std::string& strRemoteNum);
bool CheckForName(Line& rLine, std::string& strKnownName);
void AnalyseCID(Line& rLine);
void AnalyseCID_ForReset(Line& rLine);
// A display message as it comes from the card, cut and judged by the state of the line.
void OnDisplay(Line& rLine, const std::string& strMessage);

}  // namespace oracle
