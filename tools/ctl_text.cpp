#include "ctl_text.h"

#include <algorithm>
#include <sstream>

#include "plaintext.h"

namespace {

// Names in the numbers are UTF-8: bytes that go on with a character take no room.
std::size_t WidthOf(const std::string& strText) {
  return static_cast<std::size_t>(
      std::count_if(strText.begin(), strText.end(), [](char ch) { return (ch & 0xC0) != 0x80; }));
}

}  // namespace

std::string Masked(std::string strText) {
  MaskControls(strText.data(), strText.size());
  return strText;
}

std::string MaskedLines(const std::string& strText) {
  std::istringstream rLines(strText);
  std::string strMasked;
  for (std::string strLine; std::getline(rLines, strLine);) {
    std::replace(strLine.begin(), strLine.end(), '\t', ' ');
    strMasked += (strMasked.empty() ? "" : "\n") + Masked(strLine);
  }
  return strMasked;
}

std::string Table(std::vector<std::vector<std::string>> vRows) {
  std::vector<std::size_t> vWidths(vRows.front().size());
  for (auto& vRow : vRows) {
    for (std::size_t i = 0; i < vRow.size(); i++) {
      vRow[i] = Masked(vRow[i]);
      vWidths[i] = std::max(vWidths[i], WidthOf(vRow[i]));
    }
  }
  std::string strText;
  for (const auto& vRow : vRows) {
    std::string strLine;
    for (std::size_t i = 0; i < vRow.size(); i++)
      strLine += vRow[i] + std::string(vWidths[i] - WidthOf(vRow[i]) + 2, ' ');
    strLine.erase(strLine.find_last_not_of(' ') + 1);
    strText += strLine + "\n";
  }
  return strText;
}
