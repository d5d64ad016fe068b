// LogSink: catches what lg hands to syslog, by standing in for the C library's vsyslog and syslog in the test program.
// Link it once; lines are kept from the first to the last, over all threads.
#pragma once

#include <string>
#include <vector>

#include "Texts.h"

namespace logsink {

struct Line {
  int iPrio;
  std::string strText;
};

// Lines since the last call, and forgets them.
std::vector<Line> Take();
// The same as texts "<prio> <text>", which tests compare whole.
Texts TakeTexts();

}  // namespace logsink
