// The rules stand here as one would tell them to a colleague: whole texts, positions as plain numbers, every question
// asked anew where it comes up. Where the daemon's code is quick or clever, this is not.
#include "DisplayOracle.h"

#include <algorithm>
#include <cstdlib>

#include "DstChannel.h"

namespace oracle {
namespace {

// -- characters: ASCII only, whatever the locale says -----------------------------------------------------------------

bool IsDigit(char ch) {
  return ch >= '0' && ch <= '9';
}

bool IsLetter(char ch) {
  return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z');
}

bool IsDateSeparator(char ch) {
  return ch == ' ' || ch == '-' || ch == '.' || ch == '/';
}

// -- texts ------------------------------------------------------------------------------------------------------------

std::string UpToNul(const std::string& strText) {
  return strText.substr(0, strText.find('\0'));
}

// The character at a position; NUL behind the end.
char At(const std::string& strText, int i) {
  return i >= 0 && i < static_cast<int>(strText.size()) ? strText[static_cast<std::size_t>(i)] : '\0';
}

std::string Part(const std::string& strText, int iStart, int iStop) {
  std::string strPart;
  for (int i = iStart; i < iStop; i++) strPart += At(strText, i);
  return strPart;
}

bool StandsAt(const std::string& strText, int iPos, const std::string& strWanted) {
  if (iPos < 0 || iPos > static_cast<int>(strText.size())) return false;
  return strText.compare(static_cast<std::size_t>(iPos), strWanted.size(), strWanted) == 0;
}

bool EndsIn(const std::string& strText, const std::string& strWanted) {
  return StandsAt(strText, static_cast<int>(strText.size()) - static_cast<int>(strWanted.size()), strWanted);
}

// The first position of a text in another; -1 when it is not there.
int Find(const std::string& strText, const std::string& strWanted) {
  const std::size_t iPos = strText.find(strWanted);
  return iPos == std::string::npos ? -1 : static_cast<int>(iPos);
}

std::string Lower(std::string strText) {
  for (char& ch : strText) {
    if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
  }
  return strText;
}

bool AllDigits(const std::string& strText) {
  return std::all_of(strText.begin(), strText.end(), IsDigit);
}

bool InMuteModes(const Line& rLine) {
  return rLine.iTdmStart == TDM_START_MUTELT || rLine.iTdmStart == TDM_START_MUTELT_AND_TONE;
}

void Log(Line& rLine, const std::string& strText) {
  rLine.astrLog.push_back("5 [" + std::to_string(rLine.iChannel) + "] " + strText);
}

// -- what the line does with a change ---------------------------------------------------------------------------------

// No row, no recording: only the line's own fields and the log.
void RemoteNumberChanged(Line& rLine) {
  rLine.rRemoteNumTime = rLine.rNow;
  Log(rLine, "Remote: " + rLine.strRemoteNum);
  rLine.strPrevConnectedNum = rLine.strConnectedNum;
  rLine.strPrevRemoteNum = rLine.strRemoteNum;
}

void CheckRemoteExpired(Line& rLine) {
  if (rLine.fCallBusy || rLine.rRemoteNumTime == 0) return;
  const time_t rAge = rLine.fRinging ? 0 : rLine.rNow - rLine.rRemoteNumTime;
  if (rAge < 11) return;
  Log(rLine, "Remote expired, " + std::to_string(rAge) + " seconds old");
  rLine.strPrevRemoteNum = "";
  rLine.strRemoteNum = "";
  rLine.rRemoteNumTime = 0;
}

// -- questions of the scan --------------------------------------------------------------------------------------------

// Blanks and tabs stand alone on both sides of the number, or a word follows it after a gap.
bool BothSidesAccepted(const std::string& strText, int iStart, int iStop) {
  for (int i = iStart - 1; i >= 0 && At(strText, i) != '\n'; i--) {
    if (At(strText, i) != ' ' && At(strText, i) != '\t') return false;
  }
  for (int i = iStop; At(strText, i) != '\n' && At(strText, i) != '\0'; i++) {
    if (At(strText, i) == ' ' || At(strText, i) == '\t') continue;
    return i != iStop && IsLetter(At(strText, i));
  }
  return true;
}

// An existing number may no longer be replaced.
bool NumberIsFixed(const Line& rLine) {
  if (!rLine.fCallBusy) return false;
  const std::string strLower = Lower(UpToNul(rLine.strText));
  for (const char* acForward : {"ruf bei", "oproep voor", "call for"}) {
    if (Find(strLower, acForward) != -1) return true;
  }
  return rLine.rNow - rLine.rStartTime > 45;
}

// A new number has to be longer than this.
int LengthToBeat(const Line& rLine, const std::string& strKnown) {
  int iLength = IsDigit(At(strKnown, 0)) ? static_cast<int>(strKnown.size()) : 0;
  const time_t rBusyFor = rLine.fCallBusy ? rLine.rNow - rLine.rStartTime : -1;
  bool fOnlyLonger = false;
  if (rLine.fCallBusy && !rLine.fAllowEqualRemoteLenChange) fOnlyLonger = true;
  if (!rLine.fLateChange && rBusyFor > 10) fOnlyLonger = true;
  if (!fOnlyLonger) iLength -= 1;
  return iLength;
}

bool IsRefused(const Line& rLine, const std::string& strNew) {
  if (strNew == rLine.strLocalNum) return true;
  if (rLine.iPbxType == PBX_BELGACOM && Find(rLine.strLocalName, strNew) != -1) return true;
  return !rLine.fCallBusy && rLine.rFirstRing == 0 && strNew == rLine.strPrevCallRemoteNum &&
         rLine.iPbxType != PBX_PANASONIC;
}

// What follows a look at one number.
enum ENext {
  NEXT_CHARACTER,  // forget the number; its closing character is not looked at as a line end
  NEXT_LINE_END,   // look at its closing character as a line end
  NEXT_STOP,       // the scan is over
};

struct Number {
  int iStart = 0;
  int iStop = 0;  // position of the character that closed it
  int iLine = 0;  // line feeds seen before
  int iColonLine = -1;
  int iColon = 0;  // the last colon with a blank behind it, and its line
};

ENext JudgeNumber(const Line& rLine, const std::string& strText, const Number& rNumber, std::string& strRemoteNum,
                  bool& fDetected) {
  const int iStart = rNumber.iStart;
  const int iStop = rNumber.iStop;
  const char ch = At(strText, iStop);
  const std::string strNumber = Part(strText, iStart, iStop);
  const int iLength = iStop - iStart;

  // Counted in lines from the start of the text: right on the first line, and kept for the others.
  if (StandsAt(strText, rNumber.iLine, "DTMF")) return NEXT_CHARACTER;

  const bool fAtStart = iStart == 0 || At(strText, iStart - 1) == '\n';
  const bool fAfterHat = !fAtStart && At(strText, iStart - 1) == '^';
  if (NumberIsFixed(rLine) && strRemoteNum != "") return NEXT_CHARACTER;

  bool fAfterIntro = rNumber.iLine == rNumber.iColonLine && iStart - rNumber.iColon < 4;
  int iLengthToCompare = iLength;
  if (iStart == 2 && (StandsAt(strText, 0, "0-") || StandsAt(strText, 0, "1-"))) {
    fAfterIntro = true;
    iLengthToCompare = iLength + 1;
  }
  if (iStart > 3 && StandsAt(strText, iStart - 4, "Conn")) fAfterIntro = true;
  if (iStart > 5 && StandsAt(strText, iStart - 6, "POSTE ")) fAfterIntro = true;

  if (iLength < 2) return NEXT_LINE_END;
  if (iLength == 2 && !StandsAt(strText, iStop, " Intern")) return NEXT_LINE_END;
  const bool fYear = iLength == 4 && IsDateInStrYearPos(strText, iStart);

  if (LengthToBeat(rLine, strRemoteNum) >= iLengthToCompare) return NEXT_LINE_END;

  const bool fAtEnd = ch == '\n' || ch == '\0';
  if (fAtEnd || fAtStart) {
    if (fAfterHat) return NEXT_LINE_END;
    if (ch == '.') {
      if (InMuteModes(rLine)) return NEXT_CHARACTER;
      if (fYear) return NEXT_CHARACTER;
    } else {
      if (fYear) return NEXT_LINE_END;
    }
  } else {
    if (!fAfterIntro && !BothSidesAccepted(strText, iStart, iStop)) return NEXT_CHARACTER;
    if (fAfterHat) return NEXT_CHARACTER;
    if (ch == '.' && InMuteModes(rLine)) return NEXT_CHARACTER;
    if (fYear) return NEXT_CHARACTER;
  }

  if (IsRefused(rLine, strNumber)) return NEXT_LINE_END;
  strRemoteNum = strNumber;
  fDetected = true;
  if (ch == '.') return NEXT_CHARACTER;
  return rLine.fCheckForMultipleTelNum ? NEXT_LINE_END : NEXT_STOP;
}

// Only what stands above counts on these telephones.
bool EndsAfterLine(const Line& rLine, int iLineFeedPos) {
  if (rLine.iPbxType == PBX_SIEMENS && iLineFeedPos > 23) return true;
  return rLine.iPbxType == PBX_ALCATEL && !InMuteModes(rLine);
}

bool TalkingTo(const Line& rLine, const std::string& strText, std::string& strRemoteNum) {
  const std::string strMarker = "\nTALKING TO";
  int iPos = Find(strText, strMarker);
  if (iPos == -1) return false;
  iPos += static_cast<int>(strMarker.size());
  while (At(strText, iPos) == ' ') iPos++;
  std::string strName;
  for (; At(strText, iPos) != '\n' && At(strText, iPos) != '\0'; iPos++) strName += At(strText, iPos);
  if (strName == rLine.strLocalNum || strRemoteNum != "") return false;
  strRemoteNum = strName;
  return true;
}

// True when the text was a login prompt.
bool LoginPrompt(Line& rLine) {
  const std::string strText = UpToNul(rLine.strText);
  const std::string strMarker = "Identifikation:";
  if (!InMuteModes(rLine) || Find(strText, strMarker) == -1) return false;
  std::string strNum;
  for (int i = Find(strText, strMarker) + 15; strNum.size() < 4; i++) {
    const char ch = At(strText, i);
    if (IsDigit(ch)) {
      strNum += ch;
      continue;
    }
    if (ch != '\n') break;
    if (static_cast<int>(strNum.size()) != rLine.iLocalNumSize - 1) continue;
    if (rLine.strDigits.size() > strNum.size() && EndsIn(rLine.strDigits, strNum)) {
      Log(rLine, "Correcting digits for local ID");
      rLine.strDigits = strNum;
    }
    if (rLine.strDigits == strNum) {
      Log(rLine, "Local ID almost complete");
      rLine.rAlmostLocalNum = rLine.rNow;
    } else {
      Log(rLine, "Local ID almost complete, but digits not working");
    }
    break;  // a prompt says it once, however many empty lines follow
  }
  return true;
}

// Where a name would have to begin; -1 when nothing announces one.
int NameStart(const std::string& strText) {
  if (StandsAt(strText, 0, "Amt ")) return 4;
  int iRun = 0;
  for (int i = 0; i <= static_cast<int>(strText.size()); i++) {
    const char ch = At(strText, i);
    if (IsDigit(ch)) {
      iRun++;
      continue;
    }
    if (iRun > 0 && ch != ' ') return -1;
    if (iRun >= 5) return i + 1;
    iRun = 0;
  }
  return -1;
}

// The name that starts with a letter at iStart; false when it is spoilt.
bool ReadName(const std::string& strText, int iStart, std::string& strName) {
  for (int i = iStart + 1;; i++) {
    const char ch = At(strText, i);
    const char chBefore = At(strText, i - 1);
    if (ch == '[') return false;
    if (chBefore != '.') {
      if (IsLetter(ch) || IsDigit(ch) || ch == '.' || ch == '/') continue;
      if (ch == ' ' && chBefore != ' ') continue;
    }
    // Of the blanks before the end, at most one stands here, and it is no part of the name.
    const int iStop = chBefore == ' ' ? i - 1 : i;
    strName = Part(strText, iStart, iStop);
    return true;
  }
}

}  // namespace

bool IsDateInStrYearPos(const std::string& strText, int iYearPos) {
  const long iYear = strtol(Part(strText, iYearPos, static_cast<int>(strText.size())).c_str(), nullptr, 10);
  if (iYear < 2001 || iYear > 2999) return false;

  int i = iYearPos - 1;
  int iGap = 0;
  while (i >= 0 && IsDateSeparator(At(strText, i))) {
    iGap++;
    i--;
  }
  if (iGap > 2 || i < 0) return false;

  // The second part, from its end to its beginning.
  std::string strSecond, strFirst;
  bool fJoined = false;
  for (; i >= 0; i--) {
    const char ch = At(strText, i);
    if (IsDateSeparator(ch)) break;
    if (!IsLetter(ch) && !IsDigit(ch)) return false;
    if (strSecond != "" && IsDigit(ch) && !IsDigit(strSecond[0])) {
      fJoined = true;  // as in 12Mar
      break;
    }
    strSecond = ch + strSecond;
    if (strSecond.size() > 20) return false;
  }
  if (i < 0) return false;
  if (!fJoined) i--;  // the one separator
  if (i < 0 || IsDateSeparator(At(strText, i))) return false;

  for (; i >= 0; i--) {
    const char ch = At(strText, i);
    if (!IsLetter(ch) && !IsDigit(ch)) break;
    strFirst = ch + strFirst;
    if (strFirst.size() > 20) return false;
  }
  if (strFirst == "") return AllDigits(strSecond);
  return AllDigits(strFirst) || AllDigits(strSecond);
}

bool ExtractA5000Name(const std::string& strText, std::string& strName) {
  if (strText == "" || strText[0] == ' ') return false;
  int iNameLen = 0;
  for (int i = 0; i < static_cast<int>(strText.size()); i++) {
    if (IsLetter(At(strText, i))) {
      iNameLen = i + 1;
    } else if (At(strText, i) != ' ') {
      return false;
    }
  }
  if (iNameLen < 6) return false;
  strName = Part(strText, 0, iNameLen);
  return true;
}

bool AnalyseCIDsub(const Line& rLine, std::string& strRemoteNum) {
  const std::string strText = UpToNul(rLine.strText);
  bool fDetected = false;
  bool fInNumber = false;
  Number rNumber;
  for (int i = 0; i <= static_cast<int>(strText.size()); i++) {
    const char ch = At(strText, i);
    bool fEnded = false;
    if (ch == ':' && At(strText, i + 1) == ' ') {
      rNumber.iColonLine = rNumber.iLine;
      rNumber.iColon = i;
      if (!fInNumber) continue;
      fEnded = true;
    } else if (fInNumber) {
      if (IsDigit(ch)) continue;
      fEnded = true;
    } else if (IsDigit(ch)) {
      fInNumber = true;
      rNumber.iStart = i;
      continue;
    }
    if (fEnded) {
      rNumber.iStop = i;
      const ENext eNext = JudgeNumber(rLine, strText, rNumber, strRemoteNum, fDetected);
      if (eNext == NEXT_STOP) break;
      if (eNext == NEXT_CHARACTER) {
        fInNumber = false;
        continue;
      }
    }
    if (ch == '\n') {
      rNumber.iLine++;
      if (EndsAfterLine(rLine, i)) return fDetected;
    }
    fInNumber = false;
  }
  if (rLine.iPbxType == PBX_NEC && TalkingTo(rLine, strText, strRemoteNum)) fDetected = true;
  if (rLine.iPbxType == PBX_A5000 && !IsDigit(At(strRemoteNum, 0)) && ExtractA5000Name(strText, strRemoteNum)) {
    fDetected = true;
  }
  return fDetected;
}

bool CheckForName(Line& rLine, std::string& strKnownName) {
  if (!rLine.fSpecial_Pilot) return false;
  const std::string strText = UpToNul(rLine.strText);
  const int iStart = NameStart(strText);
  if (iStart == -1 || !IsLetter(At(strText, iStart))) return false;
  std::string strName;
  if (!ReadName(strText, iStart, strName)) return false;
  if (strName.size() < 3 || strName == strKnownName) return false;
  strKnownName = strName;
  Log(rLine, "Detected name: '" + strName + "'");
  return true;
}

void AnalyseCID(Line& rLine) {
  const std::string strText = UpToNul(rLine.strText);
  CheckRemoteExpired(rLine);
  if (LoginPrompt(rLine)) return;
  if (StandsAt(strText, 0, "Ihre Rufnummer :")) {
    rLine.rLoginBusy = rLine.rNow;
    Log(rLine, "Login busy");
  }
  if (rLine.iPbxType == PBX_NEC && Find(strText, "\nCALLING") != -1) rLine.fDigitFreeze = true;

  const bool fNewName = CheckForName(rLine, rLine.strConnectedNum);
  if (fNewName) rLine.fHasConnectedNum = true;
  if (AnalyseCIDsub(rLine, rLine.strRemoteNum)) {
    RemoteNumberChanged(rLine);
    return;
  }
  if (fNewName) RemoteNumberChanged(rLine);

  std::string strShown;
  if (AnalyseCIDsub(rLine, strShown) && strShown == rLine.strRemoteNum) {
    Log(rLine, "Remote number refreshed");
    rLine.rRemoteNumTime = rLine.rNow;
  }
}

void AnalyseCID_ForReset(Line& rLine) {
  std::string strShown;
  if (!AnalyseCIDsub(rLine, strShown) || strShown == "" || strShown == rLine.strRemoteNum) return;
  rLine.strRemoteNum = "";
  RemoteNumberChanged(rLine);
}

void OnDisplay(Line& rLine, const std::string& strMessage) {
  rLine.strText = UpToNul(strMessage.substr(0, 300));
  Log(rLine, "Message change:" + rLine.strText);
  const bool fNearCall = rLine.fCallBusy || rLine.fRinging || rLine.rLastRing == rLine.rNow;
  const bool fAlways = InMuteModes(rLine) || rLine.iPbxType == PBX_PANASONIC || rLine.iPbxType == PBX_BELGACOM;
  if (fNearCall || fAlways) {
    AnalyseCID(rLine);
  } else {
    AnalyseCID_ForReset(rLine);
  }
}

}  // namespace oracle
