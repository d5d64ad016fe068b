// recorder_conditions: conditions on the card events of digital station lines. What a PBX signals differs from site to
// site, so each board has four lists in its settings ("StartCndList" and so on) that teach the recorder when a call
// starts and stops, and when it rings and no longer rings. DST_Channel::CheckConditions asks of each message, through
// ICRecorder.
// Threads:   main. The lists are read at the start and never change afterwards.
#pragma once

#include <string>
#include <vector>

struct StartStopCnd {
  unsigned int dwEvent = 0;  // never 0 in a list
  bool fSubReason = false;   // the sub-reason has to match too
  unsigned int dwSubReason = 0;
};

// Appends the conditions of a comma list to arr. An item is "<event>" or "<event>.<sub-reason>", both hexadecimal; an
// item whose event reads as 0 is dropped. "1304, 1100.2,xx" gives (0x1304, any) and (0x1100, 2).
void AddCndList(const std::string& strList, std::vector<StartStopCnd>& arr);
bool IsCondition(const std::vector<StartStopCnd>& arr, unsigned int dwEvent, unsigned int dwSubReason);
