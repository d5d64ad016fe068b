// The other party's number exists only as text on the telephone's display, mixed with dates, menu words and the
// telephone's local number, and laid out differently by each PBX. The text is walked once, character by character;
// each run of digits is a candidate, judged when the character behind it arrives. A candidate is refused when it is too
// short, no longer than what is known, the year of a date, the local number, or stands in the middle of a line
// with nothing that introduces it. The order of these questions decides what happens next, so it is fixed. Texts are
// Latin-1, and only ASCII letters count as letters.
#include "DstChannel.h"

#include <syslog.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fstring.h"
#include "ftime.h"
#include "logging.h"

namespace {

constexpr int REPLACE_NUMBER_WITHIN_S = 45;  // of a call; later the number that is known stands
constexpr int EQUAL_LENGTH_WITHIN_S = 10;    // where late changes are off
constexpr int INTRO_DISTANCE = 4;            // a number begins less than this behind the colon that introduces it
constexpr int SIEMENS_LINE_COLUMNS = 23;     // the scan ends at the first line end past this position
constexpr int YEAR_DIGITS = 4;
constexpr long FIRST_YEAR = 2001;
constexpr long LAST_YEAR = 2999;
constexpr int MAX_DATE_PART = 20;  // letters or digits of a day or month
constexpr int MAX_YEAR_GAP = 2;    // separators between date and year
constexpr int MIN_A5000_NAME = 6;
constexpr int MIN_PILOT_DIGITS = 5;  // of the number that a name follows
constexpr std::size_t MIN_PILOT_NAME = 3;

constexpr const char* LOGIN_PROMPT = "Identifikation:";
constexpr const char* LOGIN_BUSY = "Ihre Rufnummer :";
constexpr int MAX_LOGIN_DIGITS = 4;  // read behind the prompt: iLocalNumSize
// Call-forward texts: while one is shown in a call, the number on the display is not the other party's.
constexpr const char* FORWARD_TEXTS[] = {"Ruf bei", "Oproep voor", "Call for"};

bool IsDigit(char ch) {
  return ch >= '0' && ch <= '9';
}
bool IsLetter(char ch) {
  return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z');
}
bool IsAlnum(char ch) {
  return IsDigit(ch) || IsLetter(ch);
}
bool IsBlank(char ch) {
  return ch == ' ' || ch == '\t';
}
bool IsLineEnd(char ch) {
  return ch == '\n' || ch == '\0';
}
bool IsDateSeparator(char ch) {
  return ch == ' ' || ch == '-' || ch == '.' || ch == '/';
}

bool BeginsWithDigit(const std::string& strText) {
  return !strText.empty() && IsDigit(strText[0]);
}
bool StartsAt(const char* acText, const char* acNeedle) {
  return strncmp(acText, acNeedle, strlen(acNeedle)) == 0;
}

// What follows a character.
enum EStep {
  STEP_NEXT,              // the next one; a line feed does not end its line
  STEP_END_OF_CHARACTER,  // the next one, once a line feed has ended its line
  STEP_FOUND,             // the scan has its number
};

// One row a verdict: its text for people, and what follows the character behind the number. Dialled tones and a number
// that stands take a line feed with them, so the line behind it counts as the same one; see
// DtmfTextIsFoundAtLineCountOffset.
struct VerdictRow {
  EVerdict eVerdict;
  const char* acDescr;
  EStep eStep;
};
constexpr VerdictRow VERDICT_ROWS[] = {
    {VERDICT_TAKEN, "taken", STEP_FOUND},
    {VERDICT_TAKEN_MAY_IMPROVE, "taken, a better one may follow", STEP_END_OF_CHARACTER},
    {VERDICT_DTMF_TEXT, "the text shows dialled tones", STEP_NEXT},
    {VERDICT_NUMBER_STANDS, "the known number stands, late in the call or while it is forwarded", STEP_NEXT},
    {VERDICT_TOO_SHORT, "too short", STEP_END_OF_CHARACTER},
    {VERDICT_NOT_LONGER, "no longer than the known number", STEP_END_OF_CHARACTER},
    {VERDICT_AFTER_HAT, "directly behind a ^", STEP_END_OF_CHARACTER},
    {VERDICT_BEFORE_STOP, "ends in a full stop", STEP_END_OF_CHARACTER},
    {VERDICT_YEAR, "year of a date", STEP_END_OF_CHARACTER},
    {VERDICT_NOT_INTRODUCED, "in the middle of a line and not introduced", STEP_END_OF_CHARACTER},
    {VERDICT_OWN_NUMBER, "the line's own number", STEP_END_OF_CHARACTER},
    {VERDICT_IN_LINE_NAME, "part of the line's own name", STEP_END_OF_CHARACTER},
    {VERDICT_PREVIOUS_CALL, "number of the previous call", STEP_END_OF_CHARACTER},
};

constexpr bool IsOneRowAVerdict() {
  int iVerdict = 0;
  for (const VerdictRow& rRow : VERDICT_ROWS) {
    if (rRow.eVerdict != iVerdict++) return false;
  }
  return iVerdict == VERDICTS;
}
static_assert(IsOneRowAVerdict(), "a verdict is the index of its row");

// One walk over a display text; see ScanDisplay.
struct DisplayScan {
  const char* acText;
  const DisplayScanRules& rRules;
  std::string& strRemoteNum;
  std::vector<JudgedNumber>* pvJudged;

  int len = 0;
  int i = 0;
  char ch = '\0';
  bool innum = false;
  int start = 0;          // of the number
  int lineix = 0;         // lines passed
  int colon_lineix = -1;  // line and position of the last ": "
  int colon_ix = -1;
  bool fDetected = false;

  bool Run();
  EStep Step();
  EStep NumberEnded();
  EVerdict Judge() const;
  bool EndCharacter();
  void TakeNecParty();
  void TakeA5000Name();

  std::string Number() const { return {acText + start, static_cast<std::size_t>(i - start)}; }
  bool IsAtStart() const { return start == 0 || acText[start - 1] == '\n'; }
  bool IsAfterHat() const { return !IsAtStart() && acText[start - 1] == '^'; }
  bool HasPrefix() const;
  bool IsIntroduced() const;
  bool StandsFree() const;
  int LengthToBeat() const;
  bool IsLongEnough() const;
  EVerdict JudgePosition(bool isYear) const;
  EVerdict JudgeIdentity() const;
};

bool DisplayScan::Run() {
  len = static_cast<int>(strlen(acText));
  for (i = 0; i <= len; i++) {  // the closing NUL ends a number like any other character
    ch = acText[i];
    const EStep eStep = Step();
    if (eStep == STEP_FOUND) break;
    if (eStep == STEP_END_OF_CHARACTER && EndCharacter()) return fDetected;
  }

  if (rRules.iPbxType == PBX_NEC) TakeNecParty();
  if (rRules.iPbxType == PBX_A5000) TakeA5000Name();
  return fDetected;
}

// NEC shows who is talked to behind a marker: a name or a number, taken as it stands.
void DisplayScan::TakeNecParty() {
  constexpr const char* TALKING_TO = "\nTALKING TO";
  const char* acMarker = strstr(acText, TALKING_TO);
  if (acMarker == nullptr) return;
  const char* acParty = acMarker + strlen(TALKING_TO);
  acParty += strspn(acParty, " ");
  const std::string strParty(acParty, strcspn(acParty, "\n"));
  if (strParty == rRules.strLocalNum || !strRemoteNum.empty()) return;
  strRemoteNum = strParty;
  fDetected = true;
}

// Without a number, a display of nothing but a name tells who it is.
void DisplayScan::TakeA5000Name() {
  if (BeginsWithDigit(strRemoteNum) || !ExtractA5000Name(acText, strRemoteNum)) return;
  fDetected = true;
}

EStep DisplayScan::Step() {
  if (ch == ':' && acText[i + 1] == ' ') {
    colon_lineix = lineix;
    colon_ix = i;
    return innum ? NumberEnded() : STEP_NEXT;
  }
  if (innum) return IsDigit(ch) ? STEP_NEXT : NumberEnded();
  if (!IsDigit(ch)) return STEP_END_OF_CHARACTER;
  innum = true;
  start = i;
  return STEP_NEXT;
}

EStep DisplayScan::NumberEnded() {
  innum = false;
  const EVerdict eVerdict = Judge();
  if (pvJudged != nullptr) pvJudged->push_back({Number(), eVerdict});
  if (eVerdict == VERDICT_TAKEN || eVerdict == VERDICT_TAKEN_MAY_IMPROVE) {
    strRemoteNum = Number();
    fDetected = true;
  }
  return VERDICT_ROWS[eVerdict].eStep;
}

EVerdict DisplayScan::Judge() const {
  // The offset is the count of lines, not the place where the line begins: on the first line that is the start of the
  // text, further down it is a few characters behind it. Sites are tuned to this; see DtmfTextIsFoundAtLineCountOffset.
  if (StartsAt(acText + lineix, "DTMF")) return VERDICT_DTMF_TEXT;
  if (rRules.fDontOverwriteExistingNumber && !strRemoteNum.empty()) return VERDICT_NUMBER_STANDS;
  if (!IsLongEnough()) return VERDICT_TOO_SHORT;
  const int iCompareLen = i - start + (HasPrefix() ? 1 : 0);
  if (LengthToBeat() >= iCompareLen) return VERDICT_NOT_LONGER;
  const bool isYear = i - start == YEAR_DIGITS && IsDateInStrYearPos(acText, start);
  const EVerdict eVerdict = JudgePosition(isYear);
  return eVerdict == VERDICT_TAKEN ? JudgeIdentity() : eVerdict;
}

// Two digits count only as an internal number: "25 Intern".
bool DisplayScan::IsLongEnough() const {
  const int iLen = i - start;
  return iLen > 2 || (iLen == 2 && StartsAt(acText + i, " Intern"));
}

// "0-1234", "1-1234": an exchange line digit in front of the number.
bool DisplayScan::HasPrefix() const {
  return start == 2 && (acText[0] == '0' || acText[0] == '1') && acText[1] == '-';
}

// "Von: 1234", "Conn1234", "POSTE 1234". A number that itself ends at ": " counts as introduced too.
bool DisplayScan::IsIntroduced() const {
  if (lineix == colon_lineix && start - colon_ix < INTRO_DISTANCE) return true;
  if (HasPrefix()) return true;
  if (start > 3 && StartsAt(acText + start - 4, "Conn")) return true;
  return start > 5 && StartsAt(acText + start - 6, "POSTE ");
}

// Nothing before it on its line, and behind it nothing, or a blank and then a letter: "   1234 Meier".
bool DisplayScan::StandsFree() const {
  for (int j = start - 1; j >= 0 && acText[j] != '\n'; j--) {
    if (!IsBlank(acText[j])) return false;
  }
  for (int j = i; !IsLineEnd(acText[j]); j++) {
    if (!IsBlank(acText[j])) return j != i && IsLetter(acText[j]);
  }
  return true;
}

// Only a longer number wins. Outside a call one of equal length does too; in a call that depends on the PBX.
int DisplayScan::LengthToBeat() const {
  const int iKnown = BeginsWithDigit(strRemoteNum) ? static_cast<int>(strRemoteNum.size()) : 0;
  const bool isTooLate = !rRules.fLateChange && rRules.iBusyFor > EQUAL_LENGTH_WITHIN_S;
  const bool needsLonger = rRules.fCallBusy && (!rRules.fAllowEqualRemoteLenChange || isTooLate);
  return needsLonger ? iKnown : iKnown - 1;
}

EVerdict DisplayScan::JudgePosition(bool isYear) const {
  const bool isAtLineEdge = IsLineEnd(ch) || IsAtStart();
  if (!isAtLineEdge && !IsIntroduced() && !StandsFree()) return VERDICT_NOT_INTRODUCED;
  if (IsAfterHat()) return VERDICT_AFTER_HAT;
  if (ch == '.' && rRules.fMuteMode) return VERDICT_BEFORE_STOP;
  return isYear ? VERDICT_YEAR : VERDICT_TAKEN;
}

EVerdict DisplayScan::JudgeIdentity() const {
  const std::string strNew = Number();
  if (strNew == rRules.strLocalNum) return VERDICT_OWN_NUMBER;
  if (rRules.iPbxType == PBX_BELGACOM && rRules.strLocalName.find(strNew) != std::string::npos) {
    return VERDICT_IN_LINE_NAME;
  }
  const bool isIdle = !rRules.fCallBusy && !rRules.fRang;
  if (isIdle && strNew == rRules.strPrevCallRemoteNum && rRules.iPbxType != PBX_PANASONIC) return VERDICT_PREVIOUS_CALL;
  return rRules.fCheckForMultipleTelNum || ch == '.' ? VERDICT_TAKEN_MAY_IMPROVE : VERDICT_TAKEN;
}

// A line feed ends its line. True when the scan ends with this line, markers left out.
bool DisplayScan::EndCharacter() {
  if (ch != '\n') return false;
  lineix++;
  if (rRules.iPbxType == PBX_SIEMENS && i > SIEMENS_LINE_COLUMNS) return true;
  return rRules.iPbxType == PBX_ALCATEL && !rRules.fMuteMode;
}

// The date in front of a year, read from right to left. Each step moves iPos to the left.
struct DateScan {
  const char* acText;
  int iPos;

  bool Gap();
  bool SecondPart();
  bool FirstPart();

  bool IsTextOver() const { return iPos < 0; }

  int iFirst = 0, iSecond = 0;  // lengths
  bool isFirstDigits = true, isSecondDigits = true;
};

// Up to two separators, then the last character of the second part.
bool DateScan::Gap() {
  int iGap = 0;
  while (!IsTextOver() && IsDateSeparator(acText[iPos])) {
    if (++iGap > MAX_YEAR_GAP) return false;
    iPos--;
  }
  return !IsTextOver() && IsAlnum(acText[iPos]);
}

// Ends at exactly one separator, or without one where letters meet digits: "12Mar". A sign left of the separator leaves
// the first part empty; a text that is over there leaves no date.
bool DateScan::SecondPart() {
  isSecondDigits = IsDigit(acText[iPos]);
  iSecond = 1;
  for (iPos--; !IsTextOver(); iPos--) {
    const char ch = acText[iPos];
    if (IsDateSeparator(ch)) {
      iPos--;
      return !IsTextOver() && !IsDateSeparator(acText[iPos]);
    }
    if (!IsAlnum(ch)) return false;
    if (IsDigit(ch) && !IsDigit(acText[iPos + 1])) return true;
    if (++iSecond > MAX_DATE_PART) return false;
    isSecondDigits = isSecondDigits && IsDigit(ch);
  }
  return false;
}

// Empty in "Mo\n 03.2015"; an empty part is not one of digits.
bool DateScan::FirstPart() {
  for (; !IsTextOver() && IsAlnum(acText[iPos]); iPos--) {
    if (++iFirst > MAX_DATE_PART) return false;
    isFirstDigits = isFirstDigits && IsDigit(acText[iPos]);
  }
  isFirstDigits = isFirstDigits && iFirst > 0;
  return true;
}

// Finds a name behind a number ("12345 Meier") or behind "Amt "; see CheckForName.
struct NameScan {
  const char* acText;
  int start = 0;
  int stop = 0;

  bool Run();
  int FindSeparator() const;
  bool FindEnd();
};

// Position of the blank in front of the name; -1 when there is none.
int NameScan::FindSeparator() const {
  if (StartsAt(acText, "Amt ")) return 3;
  int iDigits = 0;
  for (int i = 0;; i++) {
    const char ch = acText[i];
    if (IsDigit(ch)) {
      iDigits++;
    } else if (iDigits > 0) {
      if (ch != ' ') return -1;
      if (iDigits >= MIN_PILOT_DIGITS) return i;
      iDigits = 0;
    } else if (ch == '\0') {
      return -1;
    }
  }
}

bool NameScan::Run() {
  const int iSeparator = FindSeparator();
  if (iSeparator < 0) return false;
  start = iSeparator + 1;
  return IsLetter(acText[start]) && FindEnd();
}

// A full stop ends the name behind it; blanks end it when something other than a letter or digit follows them.
bool NameScan::FindEnd() {
  int prelimstop = -1;
  for (int i = start + 1;; i++) {
    const char ch = acText[i];
    const char prevch = acText[i - 1];
    if (ch == '[') return false;
    if (prevch == '.') {
      stop = i;
      return true;
    }
    if (IsAlnum(ch) || ch == '.' || ch == '/') {
      prelimstop = -1;
    } else if (ch == ' ' && prevch != ' ') {
      prelimstop = i;
    } else {
      stop = prelimstop >= 0 ? prelimstop : i;
      return true;
    }
  }
}

}  // namespace

const char* GetVerdictDescr(EVerdict eVerdict) {
  return VERDICT_ROWS[eVerdict].acDescr;
}

bool ScanDisplay(const char* acText, const DisplayScanRules& rRules, std::string& strRemoteNum,
                 std::vector<JudgedNumber>* pvJudged) {
  DisplayScan rScan{acText, rRules, strRemoteNum, pvJudged};
  return rScan.Run();
}

bool IsDateInStrYearPos(const char* buffer, int yearpos) {
  const long yearnr = strtol(buffer + yearpos, nullptr, 10);
  if (yearnr < FIRST_YEAR || yearnr > LAST_YEAR) return false;
  DateScan rScan{buffer, yearpos - 1};
  if (!rScan.Gap() || !rScan.SecondPart() || !rScan.FirstPart()) return false;
  return rScan.isFirstDigits || rScan.isSecondDigits;
}

bool ExtractA5000Name(const char* acPhoneDisp, std::string& strName) {
  if (acPhoneDisp[0] == '\0' || acPhoneDisp[0] == ' ') return false;
  int namelen = 0;
  for (int i = 0; acPhoneDisp[i] != '\0'; i++) {
    if (IsLetter(acPhoneDisp[i])) {
      namelen = i + 1;
    } else if (acPhoneDisp[i] != ' ') {
      return false;
    }
  }
  if (namelen < MIN_A5000_NAME) return false;
  strName.assign(acPhoneDisp, static_cast<std::size_t>(namelen));
  return true;
}

DisplayScanRules DST_Channel::ScanRules() const {
  DisplayScanRules rRules;
  rRules.iPbxType = iPbxType;
  rRules.fMuteMode = InMuteMode();
  rRules.fCallBusy = fCallBusy;
  rRules.fAllowEqualRemoteLenChange = fAllowEqualRemoteLenChange;
  rRules.fLateChange = fLateChange;
  rRules.fCheckForMultipleTelNum = fCheckForMultipleTelNum;
  rRules.fRang = rFirstRing != 0;
  rRules.strLocalNum = strLocalNum;
  rRules.strLocalName = strLocalName;
  rRules.strPrevCallRemoteNum = strPrevCallRemoteNum;
  if (!fCallBusy) return rRules;

  rRules.iBusyFor = static_cast<int>(GetSrTime() - rStartTime);
  const bool isForward = std::any_of(std::begin(FORWARD_TEXTS), std::end(FORWARD_TEXTS), [this](const char* acForward) {
    return strcasestr(acPhoneDisp, acForward) != nullptr;
  });
  rRules.fDontOverwriteExistingNumber = isForward || rRules.iBusyFor > REPLACE_NUMBER_WITHIN_S;
  return rRules;
}

bool DST_Channel::AnalyseCIDsub(std::string& strRemoteNum_) {
  return ScanDisplay(acPhoneDisp, ScanRules(), strRemoteNum_, pvJudgedNums);
}

void DST_Channel::AnalyseCID() {
  CheckRemoteExpired();
  if (InMuteMode() && AnalyseLoginPrompt()) return;
  if (StartsAt(acPhoneDisp, LOGIN_BUSY)) {
    rLoginBusy = GetSrTime();
    lg(LOG_NOTICE, "[%d] Login busy", iChannel);
  }
  if (iPbxType == PBX_NEC && strstr(acPhoneDisp, "\nCALLING") != nullptr) fDigitFreeze = true;

  const bool fNewName = CheckForName(strConnectedNum);
  if (fNewName) fHasConnectedNum = true;
  if (std::string strNewRemote = strRemoteNum; AnalyseCIDsub(strNewRemote)) {
    SetRemoteNum(strNewRemote);
    return;
  }
  if (fNewName) RemoteNumberChanged();

  // A number that stays on the display does not expire. The numbers are judged above, so this scan hands out
  // none.
  std::string strShown;
  if (ScanDisplay(acPhoneDisp, ScanRules(), strShown) && strShown == strRemoteNum) {
    lg(LOG_NOTICE, "[%d] Remote number refreshed", iChannel);
    RemoteNumberTold();
  }
}

// The prompt shows the local number as it is keyed in. When one digit is missing the last one arrives as a key message,
// which takes the whole number if the digits collected so far agree with the display.
bool DST_Channel::AnalyseLoginPrompt() {
  const char* acPrompt = strstr(acPhoneDisp, LOGIN_PROMPT);
  if (acPrompt == nullptr) return false;
  std::string num;
  for (const char* ac = acPrompt + strlen(LOGIN_PROMPT); num.size() < MAX_LOGIN_DIGITS; ac++) {
    if (IsDigit(*ac)) {
      num += *ac;
    } else if (*ac != '\n') {
      break;
    } else if (num.size() == static_cast<std::size_t>(iLocalNumSize - 1)) {
      if (strDigits.size() > num.size() && strDigits.compare(strDigits.size() - num.size(), num.size(), num) == 0) {
        lg(LOG_NOTICE, "[%d] Correcting digits for local ID", iChannel);
        strDigits = num;
      }
      if (strDigits == num) {
        lg(LOG_NOTICE, "[%d] Local ID almost complete", iChannel);
        rAlmostLocalNum = GetSrTime();
      } else {
        lg(LOG_NOTICE, "[%d] Local ID almost complete, but digits not working", iChannel);
      }
      break;
    }
  }
  return true;
}

// Outside a call: what the display shows is new, so the number from earlier cannot belong to the next call.
void DST_Channel::AnalyseCID_ForReset() {
  std::string strShown;
  if (!AnalyseCIDsub(strShown) || strShown.empty() || strShown == strRemoteNum) return;
  SetRemoteNum("");
}

bool DST_Channel::CheckForName(std::string& strParamId2) {
  if (!fSpecial_Pilot) return false;
  NameScan rScan{acPhoneDisp};
  if (!rScan.Run()) return false;
  const std::string strName(acPhoneDisp + rScan.start, static_cast<std::size_t>(rScan.stop - rScan.start));
  if (strName.size() < MIN_PILOT_NAME || strName == strParamId2) return false;
  strParamId2 = strName;
  lg(LOG_NOTICE, "[%d] Detected name: '%s'", iChannel, strName.c_str());
  return true;
}
