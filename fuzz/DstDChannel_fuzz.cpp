// A line, then its events one after the other: D-channel messages of every code with texts and ISDN records of any
// length, the card's other events, and time that passes.
#include <cstring>

#include "DstLine.h"

namespace {

constexpr DWORD CODES[] = {DMSG_OFF_HOOK,
                           DMSG_ON_HOOK,
                           DMSG_BRI_PROGRESS,
                           DMSG_BRI_ALERTING,
                           DMSG_BRI_CONNECTED,
                           DMSG_BRI_RELEASED,
                           DMSG_BRI_ABANDONED,
                           DMSG_BRI_REJECTED,
                           DMSG_KEY_DIGIT,
                           DMSG_DISPLAY,
                           DMSG_DISPLAY,
                           DMSG_DISPLAY,
                           DMSG_FUNCTION_BUTTON,
                           DMSG_RELEASE_BUTTON,
                           DMSG_FEATURE_BUTTON,
                           DMSG_SOFT_BUTTON,
                           DMSG_RING_ON,
                           DMSG_RING_OFF,
                           DMSG_LINE_BUTTON,
                           DMSG_AUDIO_CHANGE,
                           DMSG_MUTE_LIGHT_OFF,
                           DMSG_MUTE_LIGHT_ON,
                           DMSG_MUTE_LIGHT_BLINK,
                           DMSG_CHANGE_LOCAL,
                           0x1001,
                           0x1305,
                           0x10BA,
                           0x130C,
                           0xFFFFFFFF,
                           0};

// A short text as it is, or a few bytes again and again up to a length where something ends: a record, what is looked
// at of a display, the buffer behind it.
std::string EventText(FuzzBytes& rBytes) {
  constexpr size_t LONG[] = {203, 204, 205, 235, 236, 237, 299, 300, 301, 1023, 1024, 1025, 4000};
  const unsigned uiLength = rBytes.Byte();
  if (uiLength < 200) return rBytes.Text(uiLength);
  const std::string strPattern = rBytes.Text(32) + " ";
  std::string strText;
  while (strText.size() < LONG[uiLength % std::size(LONG)]) strText += strPattern;
  return strText.substr(0, LONG[uiLength % std::size(LONG)]);
}

void OneEvent(DstLine& rLine, FuzzBytes& rBytes) {
  const unsigned uiKind = rBytes.Below(64);
  if (uiKind < std::size(CODES)) {
    const DWORD dwSubReason = rBytes.Byte();
    std::string strText = EventText(rBytes);
    rLine.Send(E_RCV_DSTDChannel, CODES[uiKind], dwSubReason, std::move(strText));
    return;
  }
  const DWORD dwParam = rBytes.Byte();
  switch (uiKind) {
    case 40:
      rLine.Send(E_CHG_ToneAnalyze, dwParam % 8, 0, "");
      break;
    case 41:
      rLine.Send(E_CHG_RcvDTMF, dwParam, 0, "");
      break;
    case 42:
      rLine.Send(E_CHG_ChState, dwParam % 16, 0, "");
      break;
    case 43:
      rLine.Send(E_SYS_BargeIn, dwParam % 3, 0, "");
      break;
    case 44:
      rLine.Send(E_PROC_RecordMem, dwParam, 0, "");
      break;
    case 45:
      rLine.PassSeconds(dwParam % 64);
      break;
    case 46:
      rLine.Send(E_RCV_DSTDChannel, dwParam << 8 | rBytes.Byte(), rBytes.Byte() << 8 | rBytes.Byte(), "");
      break;
    default:
      rLine.PassSeconds(dwParam % 4);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  FuzzBytes rBytes(prData, iSize);
  DstLine rLine(rBytes);
  while (!rBytes.IsOver()) OneEvent(rLine, rBytes);
  return 0;
}
