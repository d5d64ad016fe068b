// ctl_check: the status as monitoring plugins tell it: one line, worst first, with performance data behind a bar, and
// an exit status by the same convention.
//
//   CRITICAL  calls are not recorded, or nobody can tell: no daemon, a trace, no line that is ok, no database, a disk
//             or a loop beyond its second limit
//   WARNING   something is to be done: a line that is not ok or not known, calls that a crash has left, fewer
//             descriptors than the lines need, cards that have never said a word, a first limit
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ctl_status.h"

enum EPluginExit { PLUGIN_OK = 0, PLUGIN_WARNING = 1, PLUGIN_CRITICAL = 2, PLUGIN_UNKNOWN = 3 };

struct CheckLimits {
  double fWarnFree = 10, fCritFree = 5;      // percent of the disk; less is told
  double fWarnBehind = 2, fCritBehind = 10;  // seconds of the main loop; more is told
  double fWarnEvent = 0;                     // seconds without a card event; 0: any number, as a site may be quiet
};

struct CheckResult {
  EPluginExit eExit = PLUGIN_OK;
  std::string strLine;  // without a line end
};

// iDescriptors: how many the process may have; nothing: not known, and not checked. rNow as for StatusToText.
CheckResult CheckStatus(const CtlStatus& rStatus, const std::optional<std::uint64_t>& iDescriptors,
                        const CheckLimits& rLimits, time_t rNow);
