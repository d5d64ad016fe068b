#include "ctl_watch.h"

#include <curses.h>
#include <unistd.h>

#include <clocale>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ctl_status.h"

namespace {
constexpr int REDRAW_MS = 1000;
}

int WatchStatus() {
  if (isatty(STDOUT_FILENO) == 0 || isatty(STDIN_FILENO) == 0) return 1;
  (void)setlocale(LC_CTYPE, "");  // numbers may hold names in UTF-8; without a locale they show as bytes
  initscr();
  cbreak();
  noecho();
  (void)curs_set(0);  // a terminal that cannot hide its cursor shows it
  timeout(REDRAW_MS);
  do {
    erase();
    std::istringstream rText(StatusToText(ReadStatus(), time(nullptr)));
    int iRow = 0;
    for (std::string strLine; iRow < LINES - 1 && std::getline(rText, strLine); iRow++) {
      mvaddnstr(iRow, 0, strLine.c_str(), COLS);
    }
    mvaddstr(LINES - 1, 0, "Any key ends.");
    refresh();
  } while (getch() == ERR);
  endwin();
  return 0;
}

void WatchStatusJson() {
  const auto Now = [] { return JsonToText(StatusToJson(ReadStatus(), time(nullptr)), /*iIndent=*/-1); };
  while (std::cout << Now() << std::endl) sleep(1);
}
