// A display text up to a byte 0xFF, then the choices that make settings and state of the line: the channel's analysis
// agrees with the oracle of the tests.
#include "DisplayCompare.h"
#include "DisplayGenerator.h"
#include "FuzzBytes.h"
#include "FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::string strAll = FuzzText(prData, iSize);
  const std::string strText = strAll.substr(0, std::min<size_t>(strAll.find('\377'), BRI_TEXT_BYTES));
  FuzzBytes rChoices(prData, iSize);
  (void)rChoices.Text(strText.size() + 1);
  DisplayGenerator rGenerator([&rChoices](unsigned n) { return rChoices.Below(n); });
  oracle::Line rLine = rGenerator.MakeState();
  rLine.strText = strText;
  DisplayCompare rCompare;
  for (const ECompareHow eHow : {COMPARE_CALL, COMPARE_RESET, COMPARE_MESSAGE}) {
    const std::string strDifference = rCompare.Compare(rLine, eHow);
    FuzzCheck(strDifference.empty(), strDifference.c_str());
  }
  return 0;
}
