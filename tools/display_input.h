// display_input: display texts from a file. Two forms are read: the "dmsg.log" of a bit-stream trace, as it is, and a
// plain list with one display a line, in which "\n" stands for a line feed of the display and "\\" for a backslash.
// Empty lines of a plain list and lines that begin with "#" are skipped.
#pragma once

#include <istream>
#include <string>
#include <vector>

struct DisplayText {
  int iSecond = 0;  // since the first display or the start of the trace; a plain list counts one a second
  std::string strText;
};

// True when the text begins with the header line of a "dmsg.log".
bool IsTraceLog(const std::string& strContent);
// The displays of either form, in order. iTraceCh: only those of this driver channel; -1: of all.
std::vector<DisplayText> ReadDisplays(const std::string& strContent, int iTraceCh = -1);
