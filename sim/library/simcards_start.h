// simcards_start: starting and stopping the cards as a whole.
// Threads: any thread that does not hold the library's lock; one start or stop at a time.
#pragma once

#include <string>

namespace simcards {

// Builds boards, channels and circuits from the driver configuration that the daemon wrote, starts audio and control.
// Empty on success, else what is wrong.
std::string StartCards(const std::string& strConfigPath, const std::string& strIndexPath);
// Ends every thread of the library. Facts, faults and recorded calls stay readable; nothing else does.
void StopCards();
// Back to an empty bench; start failures count anew and simcards.conf is looked for in its own place again.
void ResetCards();
void UseConfFile(const std::string& strPath);

}  // namespace simcards
