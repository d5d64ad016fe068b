// config: stand-in for the card maker's configuration tool. Finds the simulated cards of simcards.conf and writes them
// as "ShConfig.ini" into the current directory, as a machine fresh from the factory would have it.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "simcards_conf.h"

namespace {

constexpr const char* OUTPUT_FILE = "ShConfig.ini";

void WriteChannelTable(std::ostream& rOut, const simcards::SimConf& rConf) {
  rOut << "[AppChToBoardChTable]\n";
  int iTotal = 0;
  for (std::size_t i = 0; i < rConf.vCards.size(); i++) {
    rOut << "AppCh[" << iTotal << "]=" << i << ",0.." << rConf.vCards[i].iChannels - 1 << "\n";
    iTotal += rConf.vCards[i].iChannels;
  }
  rOut << "TotalAppCh=" << iTotal << "\n";
}

void WriteBoards(std::ostream& rOut, const simcards::SimConf& rConf) {
  for (std::size_t i = 0; i < rConf.vCards.size(); i++) {
    rOut << "\n[BoardId=" << i << "]\n"
         << "BoardModel=" << rConf.vCards[i].strModel << "\n"
         << "BoardSerialNumber=" << rConf.vCards[i].strSerial << "\n";
  }
}

}  // namespace

// The optional argument names another file of simulated cards, for a look at one that is not installed.
int main(int argc, char** argv) {
  simcards::SimConf rConf;
  std::string strError;
  if (!simcards::ReadConf(argc > 1 ? argv[1] : simcards::CONF_FILE, rConf, strError)) {
    std::fprintf(stderr, "config: %s\n", strError.c_str());
    return 1;
  }
  std::ofstream rOut(OUTPUT_FILE);
  rOut << "[SystemConfig]\nTotalBoards=" << rConf.vCards.size() << "\n\n";
  WriteChannelTable(rOut, rConf);
  WriteBoards(rOut, rConf);
  rOut.close();
  if (!rOut) {
    std::fprintf(stderr, "config: cannot write %s: %s\n", OUTPUT_FILE, std::strerror(errno));
    return 1;
  }
  return 0;
}
