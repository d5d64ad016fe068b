// simcards_conf: the simulator's own settings: which cards are in the machine, and how the library behaves.
// Read by the library at SsmStartCti and by the stand-in for the card maker's configuration tool; docs/simulator.md
// tells the format.
// Threads: any; no state.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace simcards {

// Beside the driver's own files, so that each machine (and each sandbox) has its own cards.
constexpr const char* CONF_FILE = "/usr/local/lib/shcti/simcards.conf";
constexpr const char* CONTROL_SOCKET = "/tmp/cardsim";

enum EFamily { FAMILY_ATP, FAMILY_DST, FAMILY_DTP, FAMILY_SHT, FAMILY_UNKNOWN };

struct SimCard {
  std::string strModel;
  std::string strSerial;
  int iChannels = 0;  // driver channels
};

struct SimConf {
  std::vector<SimCard> vCards;                          // in the order in which they are detected
  std::map<std::pair<std::string, int>, int> rChTypes;  // serial and channel of the card -> type that it reports
  int iStartFailures = 0;                               // calls of SsmStartCti that fail before one can succeed
  std::string strStartText = "Board 0 is not ready";
  std::map<std::string, int> rFaults;  // operation -> how many of its calls fail from the start on
  std::string strSocket = CONTROL_SOCKET;
  double dSpeed = 1.0;
  bool fSlip = true;  // the cards wait where the machine is too busy for their audio
};

// The family that a model belongs to, by its first three letters. Unknown models exist: the daemon passes over them.
EFamily FamilyOf(const std::string& strModel);
// What SsmGetChType says of a card's channels.
int ChTypeOf(EFamily eFamily);

// False after errors: strError then tells each wrong line with file and number, all of them in one line.
bool ReadConf(const std::string& strPath, SimConf& rConf, std::string& strError);

}  // namespace simcards
