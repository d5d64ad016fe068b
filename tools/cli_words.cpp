#include "cli_words.h"

#include <charconv>
#include <cmath>
#include <iterator>

namespace {

std::string NumberText(double dValue) {
  char acText[32];
  const auto rEnd = std::to_chars(std::begin(acText), std::end(acText), dValue);
  return {acText, rEnd.ptr};
}

}  // namespace

std::string ComplainOfNumber(const std::string& strText, double dLeast, double dMost) {
  double dValue = 0;
  const char* acEnd = strText.data() + strText.size();
  const auto [acStop, eError] = std::from_chars(strText.data(), acEnd, dValue);
  const bool fNumber = eError == std::errc() && acStop == acEnd && std::isfinite(dValue);
  if (fNumber && dValue >= dLeast && dValue <= dMost) return "";
  const std::string strRange = std::isinf(dMost) ? " or more" : " to " + NumberText(dMost);
  return "'" + strText + "' is no number of " + NumberText(dLeast) + strRange;
}
