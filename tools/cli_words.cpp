#include "cli_words.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

namespace {

constexpr std::size_t LETTERS_AN_EDIT = 3;  // a word with more edits may be any

// Edits that make one word of the other; two neighbours that changed places count once.
std::size_t EditDistance(const std::string& strFrom, const std::string& strTo) {
  const std::size_t iColumns = strTo.size() + 1;
  std::vector<std::vector<std::size_t>> vRows(strFrom.size() + 1, std::vector<std::size_t>(iColumns));
  for (std::size_t i = 0; i <= strFrom.size(); i++) {
    for (std::size_t j = 0; j < iColumns; j++) {
      if (i == 0 || j == 0) {
        vRows[i][j] = i + j;
        continue;
      }
      const std::size_t iChanged = vRows[i - 1][j - 1] + (strFrom[i - 1] == strTo[j - 1] ? 0 : 1);
      vRows[i][j] = std::min({vRows[i - 1][j] + 1, vRows[i][j - 1] + 1, iChanged});
      const bool fExchanged = i > 1 && j > 1 && strFrom[i - 1] == strTo[j - 2] && strFrom[i - 2] == strTo[j - 1];
      if (fExchanged) vRows[i][j] = std::min(vRows[i][j], vRows[i - 2][j - 2] + 1);
    }
  }
  return vRows[strFrom.size()][strTo.size()];
}

std::string NumberText(double dValue) {
  char acText[32];
  const auto rEnd = std::to_chars(std::begin(acText), std::end(acText), dValue);
  return {acText, rEnd.ptr};
}

}  // namespace

std::string NearestWord(const std::string& strWord, const std::vector<std::string>& astrWords) {
  std::string strNearest;
  std::size_t iNearest = std::max<std::size_t>(strWord.size() / LETTERS_AN_EDIT, 1) + 1;
  for (const std::string& strOther : astrWords) {
    const std::size_t iDistance = EditDistance(strWord, strOther);
    if (iDistance >= iNearest) continue;
    strNearest = strOther;
    iNearest = iDistance;
  }
  return strNearest;
}

std::string NoSuchCommand(const std::string& strWord, const std::vector<std::string>& astrWords) {
  const std::string strNearest = NearestWord(strWord, astrWords);
  return strWord + ": no such command" + (strNearest.empty() ? "" : "; did you mean " + strNearest + "?");
}

std::string ComplainOfNumber(const std::string& strText, double dLeast, double dMost) {
  double dValue = 0;
  const char* acEnd = strText.data() + strText.size();
  const auto [acStop, eError] = std::from_chars(strText.data(), acEnd, dValue);
  const bool fNumber = eError == std::errc() && acStop == acEnd && std::isfinite(dValue);
  if (fNumber && dValue >= dLeast && dValue <= dMost) return "";
  const std::string strRange = std::isinf(dMost) ? " or more" : " to " + NumberText(dMost);
  return "'" + strText + "' is no number of " + NumberText(dLeast) + strRange;
}
