// simcards_perform: does on the simulated cards what an action says.
// Threads: any thread that does not hold the library's lock. A wait blocks its thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simcards_action.h"

namespace simcards {

// One who gives actions: a connection of the control socket, or a test.
struct Session {
  std::string strDirectory;                // where relative paths begin
  std::function<bool()> fnGone = nullptr;  // asked while a wait goes on: true ends it
};

// Empty on success, else why it was refused; a refused action changes nothing. Answers come line by line in vLines.
std::string Perform(const Action& rAction, Session& rSession, std::vector<std::string>& vLines);

}  // namespace simcards
