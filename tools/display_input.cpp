#include "display_input.h"

#include <cstdio>
#include <sstream>

namespace {

constexpr const char* TRACE_HEADER = "[Ch] Seconds\n";

std::string Unescape(const std::string& strLine) {
  std::string strText;
  for (std::size_t i = 0; i < strLine.size(); i++) {
    const char chNext = i + 1 < strLine.size() ? strLine[i + 1] : '\0';
    if (strLine[i] == '\\' && (chNext == 'n' || chNext == '\\')) {
      strText += chNext == 'n' ? '\n' : '\\';
      i++;
    } else {
      strText += strLine[i];
    }
  }
  return strText;
}

// "[05]       12 LCD message": the line in front of each text.
bool IsTraceEntry(const std::string& strLine, int& iCh, int& iSecond) {
  int iEnd = 0;
  return sscanf(strLine.c_str(), "[%d] %d LCD message%n", &iCh, &iSecond, &iEnd) == 2 && iEnd > 0 &&
         static_cast<std::size_t>(iEnd) == strLine.size();
}

// A text runs to the line in front of the next one; the trace ends it with a line feed of its own.
std::vector<DisplayText> ReadTrace(const std::string& strContent, int iTraceCh) {
  std::vector<DisplayText> vDisplays;
  std::istringstream rLines(strContent);
  bool isWanted = false;
  bool isFirstLine = true;
  for (std::string strLine; std::getline(rLines, strLine);) {
    int iCh = 0;
    int iSecond = 0;
    if (IsTraceEntry(strLine, iCh, iSecond)) {
      isWanted = iTraceCh == -1 || iCh == iTraceCh;
      isFirstLine = true;
      if (isWanted) vDisplays.push_back({iSecond, ""});
    } else if (isWanted) {
      if (!isFirstLine) vDisplays.back().strText += '\n';
      vDisplays.back().strText += strLine;
      isFirstLine = false;
    }
  }
  return vDisplays;
}

std::vector<DisplayText> ReadList(const std::string& strContent) {
  std::vector<DisplayText> vDisplays;
  std::istringstream rLines(strContent);
  for (std::string strLine; std::getline(rLines, strLine);) {
    if (!strLine.empty() && strLine.back() == '\r') strLine.pop_back();
    if (strLine.empty() || strLine[0] == '#') continue;
    vDisplays.push_back({static_cast<int>(vDisplays.size()), Unescape(strLine)});
  }
  return vDisplays;
}

}  // namespace

bool IsTraceLog(const std::string& strContent) {
  return strContent.rfind(TRACE_HEADER, 0) == 0;
}

std::vector<DisplayText> ReadDisplays(const std::string& strContent, int iTraceCh) {
  return IsTraceLog(strContent) ? ReadTrace(strContent, iTraceCh) : ReadList(strContent);
}
