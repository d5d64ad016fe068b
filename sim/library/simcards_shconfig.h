// simcards_shconfig: reads the driver configuration that the daemon wrote, holds it against the cards in the machine,
// and says which driver channels and circuits come of it.
// The card maker's library fails on a wrong configuration with little to say. This one names what is wrong, so that
// tests of the daemon see it.
// Threads: any; no state.
#pragma once

#include <string>
#include <vector>

#include "simcards_conf.h"

namespace simcards {

struct PlannedBoard {
  SimCard rCard;
  EFamily eFamily = FAMILY_UNKNOWN;
  int iStartCh = -1;  // first driver channel
};

struct PlannedCircuit {
  int iFirstCh = -1;   // driver channel of one direction of the tap
  int iSecondCh = -1;  // and of the other
};

struct DriverPlan {
  std::vector<PlannedBoard> vBoards;      // by board number
  std::vector<PlannedCircuit> vCircuits;  // by circuit number
};

// The plan of a configuration; false after an error that strError tells.
bool PlanDriver(const std::string& strConfigPath, const std::string& strIndexPath, const SimConf& rConf,
                DriverPlan& rPlan, std::string& strError);

}  // namespace simcards
