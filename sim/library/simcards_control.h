// simcards_control: the Unix stream socket through which a running program's cards are steered.
// A client sends actions, one a line (simcards_action.h), and gets for each the lines of its answer, each beginning
// with "= ", and then "OK" or "ERROR <why>".
// Threads:   one accepts, one more for each client; StartControl and StopControl from any thread without the library's
//            lock. StopControl ends waits and connections and returns when all threads have ended.
#pragma once

#include <string>

namespace simcards {

// False after an error, which strError tells. An old socket that nobody serves is replaced.
bool StartControl(const std::string& strPath, std::string& strError);
void StopControl();

}  // namespace simcards
