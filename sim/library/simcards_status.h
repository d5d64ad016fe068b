// simcards_status: the state of the cards as text lines of "name=value" words, values without blanks.
// Threads: any thread that does not hold the library's lock.
#pragma once

#include <string>
#include <vector>

namespace simcards {

// First one line about the whole, then one a channel ("ch=..."), then one a circuit that is not idle ("cic=..."), then
// one an operation whose next calls are to fail ("fail=...").
std::vector<std::string> StatusLines();

}  // namespace simcards
