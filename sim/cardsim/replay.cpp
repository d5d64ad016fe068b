// Steps: read the events, read the display texts, give each display event its text, write one line an event. Both
// readers know a line by writing it anew from the numbers that it seems to hold: what the recorder cannot have written
// is an error, so that a trace that was cut or edited by mistake does not pass for a whole one.

#include "replay.h"

#include <cstdio>
#include <sstream>

#include "shpa3api.h"
#include "simcards_action.h"

namespace simcards {
namespace {

constexpr const char* EVENTS_HEADER = "[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.";
constexpr const char* TEXTS_HEADER = "[Ch] Seconds";
constexpr const char* EVENT_FORM = "[%02d] %8d %08x %08x %08x %08x";
constexpr const char* ENTRY_FORM = "[%02d] %8d LCD message";

struct TraceEvent {
  int iLine = 0;  // in the file, from 1
  int iCh = 0;
  int iSecond = 0;
  DWORD dwCode = 0;
  DWORD dwSubReason = 0;
  DWORD dwXtraInfo = 0;
  DWORD dwDataLength = 0;
  bool hasText = false;
  std::string strText;
};

struct TraceText {
  int iLine = 0;
  int iCh = 0;
  int iSecond = 0;
  std::string strText;
};

// The lines of a file with their numbers, and the errors found in it.
class TraceReader {
 public:
  TraceReader(const TraceFile& rFile, std::vector<std::string>& astrGiven)
      : strName(rFile.strName),
        rText(rFile.strText),
        fCut(!rFile.strText.empty() && rFile.strText.back() != '\n'),
        astrErrors(astrGiven) {}

  bool Next() {
    if (!std::getline(rText, strLine)) return false;
    iLine++;
    if (fCut && rText.eof()) Fail("expected a line feed at the end of the file, found \"" + strLine + '"');
    return true;
  }
  const std::string& Line() const { return strLine; }
  int Number() const { return iLine; }

  bool ReadHeader(const char* acHeader) {
    if (Next() && strLine == acHeader) return true;
    iLine = 1;
    Fail("expected \"" + std::string(acHeader) + "\", found \"" + strLine + '"');
    return false;
  }

  void Fail(const std::string& strWhat) { FailAt(iLine, strWhat); }
  void FailAt(int iWhere, const std::string& strWhat) {
    astrErrors.push_back(strName + ":" + std::to_string(iWhere) + ": " + strWhat);
  }

 private:
  const std::string strName;
  std::istringstream rText;
  const bool fCut;
  std::vector<std::string>& astrErrors;
  std::string strLine;
  int iLine = 0;
};

// -- lines ------------------------------------------------------------------------------------------------------------

bool ParseEvent(const std::string& strLine, TraceEvent& rEvent) {
  // The form is checked by the comparison below, so what sscanf takes too lightly does no harm.
  const int iFields =
      std::sscanf(strLine.c_str(), "[%d] %d %x %x %x %x", &rEvent.iCh, &rEvent.iSecond,  // NOLINT(cert-err34-c)
                  &rEvent.dwCode, &rEvent.dwSubReason, &rEvent.dwXtraInfo, &rEvent.dwDataLength);
  if (iFields != 6 || rEvent.iCh < 0 || rEvent.iCh > MAX_CHANNEL) return false;
  char acAnew[80];
  (void)std::snprintf(acAnew, sizeof acAnew, EVENT_FORM, rEvent.iCh, rEvent.iSecond, rEvent.dwCode, rEvent.dwSubReason,
                      rEvent.dwXtraInfo, rEvent.dwDataLength);
  return strLine == acAnew;
}

// "[05]       12 LCD message": the line in front of each text.
bool ParseEntry(const std::string& strLine, TraceText& rText) {
  if (std::sscanf(strLine.c_str(), "[%d] %d", &rText.iCh, &rText.iSecond) != 2) return false;  // NOLINT(cert-err34-c)
  char acAnew[80];
  (void)std::snprintf(acAnew, sizeof acAnew, ENTRY_FORM, rText.iCh, rText.iSecond);
  return strLine == acAnew;
}

// "12:30:15.120 DST ch[  5] CmdType[U] Len[  4] Data-->  8  0  0  0 ": as many bytes as it says.
bool IsData(const std::string& strLine) {
  const std::size_t iStart = strLine.find(" DST ch[");  // behind the card's own time, which may be any text
  if (iStart == std::string::npos) return false;
  int iCh = 0;
  char chType = '\0';
  unsigned iLen = 0;
  const char* acLine = strLine.c_str() + iStart;
  if (std::sscanf(acLine, " DST ch[%d] CmdType[%c] Len[%u]", &iCh, &chType, &iLen) != 3) return false;  // NOLINT
  char acAnew[80];
  const int iHead =
      std::snprintf(acAnew, sizeof acAnew, " DST ch[%3d] CmdType[%c] Len[%3u] Data--> ", iCh, chType, iLen);
  if (strLine.compare(iStart, static_cast<std::size_t>(iHead), acAnew) != 0) return false;
  const std::string strBytes = strLine.substr(iStart + static_cast<std::size_t>(iHead));
  if (strBytes.size() != 3 * static_cast<std::size_t>(iLen)) return false;
  for (std::size_t i = 0; i < strBytes.size(); i += 3) {
    unsigned iByte = 0;
    (void)std::sscanf(strBytes.c_str() + i, "%2x", &iByte);  // NOLINT(cert-err34-c): compared below
    (void)std::snprintf(acAnew, sizeof acAnew, "%2x ", iByte);
    if (strBytes.compare(i, 3, acAnew) != 0) return false;
  }
  return true;
}

// -- files ------------------------------------------------------------------------------------------------------------

// A trace is of one channel, and its clock goes forward.
void CheckOrder(TraceReader& rReader, const TraceEvent& rFirst, int iLastSecond, const TraceEvent& rEvent) {
  if (rEvent.iCh != rFirst.iCh) {
    rReader.Fail("expected channel " + std::to_string(rFirst.iCh) + " as above, found " + std::to_string(rEvent.iCh));
  }
  if (rEvent.iSecond < iLastSecond) {
    rReader.Fail("expected second " + std::to_string(iLastSecond) + " or a later one, found " +
                 std::to_string(rEvent.iSecond));
  }
}

std::vector<TraceEvent> ReadEvents(TraceReader& rReader) {
  std::vector<TraceEvent> vEvents;
  if (!rReader.ReadHeader(EVENTS_HEADER)) return vEvents;
  while (rReader.Next()) {
    TraceEvent rEvent;
    rEvent.iLine = rReader.Number();
    if (ParseEvent(rReader.Line(), rEvent)) {
      const bool isFirst = vEvents.empty();
      CheckOrder(rReader, isFirst ? rEvent : vEvents.front(), isFirst ? 0 : vEvents.back().iSecond, rEvent);
      vEvents.push_back(rEvent);
    } else if (!IsData(rReader.Line())) {
      rReader.Fail("expected an event or data, found \"" + rReader.Line() + '"');
    }
  }
  return vEvents;
}

// A text runs to the line in front of the next one; the recorder ends it with a line feed of its own.
std::vector<TraceText> ReadTexts(TraceReader& rReader) {
  std::vector<TraceText> vTexts;
  if (!rReader.ReadHeader(TEXTS_HEADER)) return vTexts;
  bool isFirstLine = false;  // of a text
  const auto CheckTextCame = [&] {
    if (isFirstLine) rReader.FailAt(vTexts.back().iLine, "expected a text behind this line");
  };
  while (rReader.Next()) {
    TraceText rText;
    rText.iLine = rReader.Number();
    if (ParseEntry(rReader.Line(), rText)) {
      CheckTextCame();
      vTexts.push_back(rText);
      isFirstLine = true;
    } else if (vTexts.empty()) {
      rReader.Fail("expected an LCD message, found \"" + rReader.Line() + '"');
    } else {
      if (!isFirstLine) vTexts.back().strText += '\n';
      vTexts.back().strText += rReader.Line();
      isFirstLine = false;
    }
  }
  CheckTextCame();
  return vTexts;
}

std::string Place(int iCh, int iSecond) {
  return "channel " + std::to_string(iCh) + " at second " + std::to_string(iSecond);
}

// Both files were written event by event, so the entries must agree one by one.
void MatchTexts(std::vector<TraceEvent>& vEvents, const std::vector<TraceText>& vTexts, TraceReader& rEventReader,
                TraceReader& rTextReader) {
  std::size_t iText = 0;
  for (TraceEvent& rEvent : vEvents) {
    if (rEvent.dwCode != DMSG_DISPLAY) continue;
    if (iText == vTexts.size()) {
      rEventReader.FailAt(rEvent.iLine, "this display has no text in the other file");
      return;
    }
    const TraceText& rText = vTexts[iText++];
    if (rText.iCh != rEvent.iCh || rText.iSecond != rEvent.iSecond) {
      rTextReader.FailAt(rText.iLine, "expected the display of " + Place(rEvent.iCh, rEvent.iSecond) + ", found " +
                                          Place(rText.iCh, rText.iSecond));
      return;
    }
    rEvent.hasText = true;
    rEvent.strText = rText.strText.substr(0, rEvent.dwDataLength);  // behind it: what was left in the card's buffer
  }
  if (iText < vTexts.size()) rTextReader.FailAt(vTexts[iText].iLine, "this text has no display in the other file");
}

// -- the scenario -----------------------------------------------------------------------------------------------------

std::string Format(const char* acForm, unsigned iValue) {
  char acText[24];
  (void)std::snprintf(acText, sizeof acText, acForm, iValue);
  return acText;
}

std::string Quoted(const std::string& strText) {
  std::string strQuoted = "\"";
  for (const char ch : strText) {
    const auto ucByte = static_cast<unsigned char>(ch);
    if (ch == '\n') {
      strQuoted += "\\n";
    } else if (ch == '"' || ch == '\\') {
      strQuoted += std::string("\\") + ch;
    } else if (ucByte < 0x20 || ucByte > 0x7E) {  // texts are Latin-1, scenarios stay readable in any editor
      strQuoted += Format("\\x%02x", ucByte);
    } else {
      strQuoted += ch;
    }
  }
  return strQuoted + '"';
}

bool IsPlainKey(DWORD dwValue) {
  return (dwValue >= '0' && dwValue <= '9') || dwValue == '*';
}

// Messages that people know by a word; all others by their code.
std::string NamedAction(const TraceEvent& rEvent) {
  if (rEvent.dwXtraInfo != 0) return "";
  const bool isBare = rEvent.dwSubReason == 0;
  const std::string strValue = std::to_string(rEvent.dwSubReason);
  switch (rEvent.dwCode) {
    case DMSG_OFF_HOOK:
      return isBare ? "offhook" : "";
    case DMSG_ON_HOOK:
      return isBare ? "onhook" : "";
    case DMSG_KEY_DIGIT:
      return IsPlainKey(rEvent.dwSubReason) ? std::string("key ") + static_cast<char>(rEvent.dwSubReason) : "";
    case DMSG_DISPLAY:
      return isBare && rEvent.hasText ? "display " + Quoted(rEvent.strText) : "";
    case DMSG_FUNCTION_BUTTON:
      return "button function " + strValue;
    case DMSG_RELEASE_BUTTON:
      return isBare ? "button release" : "";
    case DMSG_FEATURE_BUTTON:
      return "button feature " + strValue;
    case DMSG_SOFT_BUTTON:
      return "button soft " + strValue;
    case DMSG_RING_ON:
      return isBare ? "ring on" : "";
    case DMSG_RING_OFF:
      return isBare ? "ring off" : "";
    case DMSG_LINE_BUTTON:
      return isBare ? "button line" : "";
    case DMSG_AUDIO_CHANGE:
      return "audio " + strValue;
    case DMSG_MUTE_LIGHT_OFF:
      return isBare ? "mutelight off" : "";
    case DMSG_MUTE_LIGHT_ON:
      return isBare ? "mutelight on" : "";
    default:
      return "";
  }
}

std::string ActionOf(const TraceEvent& rEvent) {
  std::string strAction = NamedAction(rEvent);
  if (!strAction.empty()) return strAction;
  strAction = "dchannel " + Format("0x%04x", rEvent.dwCode);
  if (rEvent.dwSubReason != 0) strAction += " sub " + Format("0x%x", rEvent.dwSubReason);
  if (rEvent.dwXtraInfo != 0) strAction += " xtra " + Format("0x%x", rEvent.dwXtraInfo);
  if (rEvent.hasText) strAction += " text " + Quoted(rEvent.strText);
  return strAction;
}

}  // namespace

std::string ReplayScenario(const TraceFile& rEvents, const TraceFile* prTexts, int iChannel,
                           std::vector<std::string>& astrErrors) {
  TraceReader rEventReader(rEvents, astrErrors);
  std::vector<TraceEvent> vEvents = ReadEvents(rEventReader);
  if (prTexts != nullptr) {
    TraceReader rTextReader(*prTexts, astrErrors);
    const std::vector<TraceText> vTexts = ReadTexts(rTextReader);
    if (astrErrors.empty()) MatchTexts(vEvents, vTexts, rEventReader, rTextReader);
  }
  if (!astrErrors.empty()) return "";

  std::string strScenario =
      "# From a trace of a station line: seconds are whole, data other than displays is missing.\n";
  for (const TraceEvent& rEvent : vEvents) {
    const int iCh = iChannel == CHANNEL_OF_TRACE ? rEvent.iCh : iChannel;
    strScenario += std::to_string(rEvent.iSecond) + "  ch " + std::to_string(iCh) + " " + ActionOf(rEvent);
    if (rEvent.dwDataLength > 0 && !rEvent.hasText) {
      strScenario += "  # without its " + std::to_string(rEvent.dwDataLength) + " bytes of data";
    }
    strScenario += '\n';
  }
  return strScenario;
}

}  // namespace simcards
