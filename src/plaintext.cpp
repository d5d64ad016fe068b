#include "plaintext.h"

namespace {

bool IsBetween(unsigned char ch, unsigned char chFirst, unsigned char chLast) {
  return ch >= chFirst && ch <= chLast;
}

std::size_t BytesBehind(unsigned char chLead) {
  if (IsBetween(chLead, 0xC2, 0xDF)) return 1;
  if (IsBetween(chLead, 0xE0, 0xEF)) return 2;
  return IsBetween(chLead, 0xF0, 0xF4) ? 3 : 0;
}

// A character must not be written longer than it has to be: a lenient reader would take E0 82 9B for 9B.
bool IsTooLong(unsigned char chLead, unsigned char chSecond) {
  return (chLead == 0xE0 && chSecond < 0xA0) || (chLead == 0xF0 && chSecond < 0x90);
}

// Bytes of the UTF-8 character of several bytes that begins here; 0 when none does.
std::size_t SequenceAt(const unsigned char* acText, std::size_t iLeft) {
  const std::size_t iBehind = BytesBehind(acText[0]);
  if (iBehind == 0 || iBehind >= iLeft || IsTooLong(acText[0], acText[1])) return 0;
  for (std::size_t i = 1; i <= iBehind; i++) {
    if (!IsBetween(acText[i], 0x80, 0xBF)) return 0;
  }
  return iBehind + 1;
}

bool IsControl(unsigned char ch) {
  return ch < ' ' || IsBetween(ch, 0x7F, 0x9F);
}

}  // namespace

void MaskControls(char* acText, std::size_t iLength) {
  auto* acBytes = reinterpret_cast<unsigned char*>(acText);
  for (std::size_t i = 0; i < iLength;) {
    const std::size_t iSequence = SequenceAt(acBytes + i, iLength - i);
    const bool isControl = iSequence == 0 ? IsControl(acBytes[i]) : acBytes[i] == 0xC2 && IsControl(acBytes[i + 1]);
    const std::size_t iNext = i + (iSequence == 0 ? 1 : iSequence);
    for (; i < iNext; i++) {
      if (isControl) acText[i] = '?';
    }
  }
}
