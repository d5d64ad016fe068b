// FuzzBytes: an input read from its start, one choice after the other. Behind its end every choice is 0.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

class FuzzBytes {
 public:
  FuzzBytes(const uint8_t* prBytes, size_t iBytes) : prData(prBytes), iSize(iBytes) {}

  bool IsOver() const { return iPos >= iSize; }
  unsigned Byte() { return IsOver() ? 0 : prData[iPos++]; }
  unsigned Below(unsigned n) { return Byte() % n; }
  // At most iBytes of what is left.
  std::string Text(size_t iBytes) {
    const size_t iLength = std::min(iBytes, iSize - std::min(iPos, iSize));
    std::string strText(reinterpret_cast<const char*>(prData) + iPos, iLength);
    iPos += iLength;
    return strText;
  }

 private:
  const uint8_t* prData;
  size_t iSize;
  size_t iPos = 0;
};
