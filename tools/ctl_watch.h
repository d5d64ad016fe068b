// ctl_watch: the status, redrawn every second in the terminal until a key is pressed.
#pragma once

#include <string>
#include <vector>

// 0 when ended by a key; 1 when standard output is no terminal.
int WatchStatus();
// One JSON object a line, every second, until standard output is closed or a signal arrives.
void WatchStatusJson();

// The lines of a text that a screen of this size holds. Where lines are left out the last row tells how many, and where
// one is cut strSign stands at its end. Characters of UTF-8 take a column each.
std::vector<std::string> FitScreen(const std::string& strText, std::size_t iRows, std::size_t iColumns,
                                   const std::string& strSign);
