#include "ctl_watch.h"

#include <curses.h>
#include <langinfo.h>
#include <unistd.h>

#include <clocale>
#include <cstring>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ctl_status.h"

namespace {

constexpr int REDRAW_MS = 1000;
constexpr const char* CUT_SIGN_UTF8 = "\xe2\x80\xa6";  // three points in one character
constexpr const char* CUT_SIGN_ASCII = ">";

// A byte that goes on with a character of UTF-8.
bool GoesOn(char ch) {
  return (ch & 0xC0) == 0x80;
}

// The bytes of so many characters, or of all where there are fewer.
std::size_t BytesOf(const std::string& strLine, std::size_t iCharacters) {
  std::size_t iByte = 0;
  while (iByte < strLine.size() && (GoesOn(strLine[iByte]) || iCharacters > 0)) {
    if (!GoesOn(strLine[iByte])) iCharacters--;
    iByte++;
  }
  return iByte;
}

std::string FitLine(const std::string& strLine, std::size_t iColumns, const std::string& strSign) {
  if (iColumns == 0 || BytesOf(strLine, iColumns) == strLine.size()) return strLine;
  return strLine.substr(0, BytesOf(strLine, iColumns - 1)) + strSign;
}

void Draw(const char* acSign) {
  erase();
  const auto iRows = static_cast<std::size_t>(LINES - 1);
  const auto iColumns = static_cast<std::size_t>(COLS);
  int iRow = 0;
  for (const std::string& strLine : FitScreen(StatusToText(ReadStatus(), time(nullptr)), iRows, iColumns, acSign)) {
    mvaddstr(iRow++, 0, strLine.c_str());
  }
  mvaddnstr(LINES - 1, 0, "Any key ends.", COLS - 1);  // the last place of a screen would scroll it
  refresh();
}

}  // namespace

std::vector<std::string> FitScreen(const std::string& strText, std::size_t iRows, std::size_t iColumns,
                                   const std::string& strSign) {
  std::vector<std::string> astrLines;
  std::istringstream rText(strText);
  for (std::string strLine; std::getline(rText, strLine);) astrLines.push_back(strLine);
  if (iRows > 0 && astrLines.size() > iRows) {
    const std::size_t iMore = astrLines.size() - (iRows - 1);
    astrLines.resize(iRows - 1);
    astrLines.push_back(std::to_string(iMore) + " more lines");
  }
  if (iRows == 0) astrLines.clear();
  for (std::string& strLine : astrLines) strLine = FitLine(strLine, iColumns, strSign);
  return astrLines;
}

int WatchStatus() {
  if (isatty(STDOUT_FILENO) == 0 || isatty(STDIN_FILENO) == 0) return 1;
  (void)setlocale(LC_CTYPE, "");  // numbers may hold names in UTF-8; without a locale they show as bytes
  const char* const acSign = strcmp(nl_langinfo(CODESET), "UTF-8") == 0 ? CUT_SIGN_UTF8 : CUT_SIGN_ASCII;
  initscr();
  cbreak();
  noecho();
  (void)curs_set(0);  // a terminal that cannot hide its cursor shows it
  timeout(REDRAW_MS);
  int iKey = ERR;
  while (iKey == ERR || iKey == KEY_RESIZE) {  // the second: the library has the new size by now
    Draw(acSign);
    iKey = getch();
  }
  endwin();
  return 0;
}

void WatchStatusJson() {
  const auto Now = [] { return JsonToText(StatusToJson(ReadStatus(), time(nullptr)), /*iIndent=*/-1); };
  while (std::cout << Now() << std::endl) sleep(1);
}
