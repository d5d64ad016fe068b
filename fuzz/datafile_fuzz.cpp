// Text of the column callextra, which the web application edits too. Whatever stands there, what was read from it comes
// back whole when it is written again.
#include "datafile.h"

#include "FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::string strText = FuzzText(prData, iSize);
  FuzzCheck(DataUnQuote(DataQuote(strText)) == strText, "a value survives its escapes");

  const StdStringMap rMap = StringToArray(strText);
  const std::string strClean = ArrayToString(rMap);
  FuzzCheck(StringToArray(strClean) == rMap, "what was read survives the way there and back");
  FuzzCheck(ArrayToString(StringToArray(strClean)) == strClean, "a clean text stays as it is");
  return 0;
}
