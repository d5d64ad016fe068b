// scenario: a file of actions on the simulated cards, one a line with its time.
// "TIME ACTION": TIME is in seconds, "12.5" from the start of the scenario or "+2.5" after the line above. The actions
// are those of the control socket. Empty lines and what follows a # are passed over.
// Threads: any; no state.
#pragma once

#include <string>
#include <vector>

#include "simcards_action.h"

namespace simcards {

struct ScenarioLine {
  int iLine = 0;           // in the file, from 1
  bool fRelative = false;  // dTime counts from the line above
  double dTime = 0;        // seconds
  std::string strAction;   // as it goes to the socket
  Action rAction;
};

// Reads a whole scenario. astrErrors gets a text "FILE:LINE: what was expected and what was found" for each wrong line;
// the lines given back are those without fault.
std::vector<ScenarioLine> ParseScenario(const std::string& strText, const std::string& strFile,
                                        std::vector<std::string>& astrErrors);

// When the actions of a scenario are due, in its own seconds.
class ScenarioClock {
 public:
  // The time at which this line is due.
  double Due(const ScenarioLine& rLine) const;
  // The line was done at dTime; what is relative counts on from there. Only a wait takes longer than it was due.
  void Done(const ScenarioLine& rLine, double dTime);

 private:
  double dLast = 0;
};

}  // namespace simcards
