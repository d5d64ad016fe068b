// schedule: the weekly schedule of recording, as the settings of part "o" give it.
// Threads:   any; a pure function.
#pragma once

#include <ctime>

#include "fstring.h"

// Whether the schedule wants a call recorded at this local time. "srWeekdays" lists the days as digits, 1 Sunday to
// 7 Saturday; none: always. Each day has two windows, "srSundayStart1" and so on, as "hour:minute"; a day without a
// first start is wanted whole. A window holds its start minute but not its stop minute, and none wraps over midnight.
bool InSchedule(const StdStringMap& rCfg, const struct tm& rLocalTime);
