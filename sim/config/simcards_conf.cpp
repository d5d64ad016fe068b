// A line is a word and what belongs to it, by a reader for each word. A reader goes on after an error, with values that
// do no harm, since the WordReader keeps the first one and the whole file is refused in the end: a machine that is read
// half would fail later and elsewhere.

#include "simcards_conf.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "shpa3api.h"
#include "simcards_words.h"

namespace simcards {
namespace {

constexpr int MAX_CARD_CHANNELS = 4096;
constexpr double MAX_SPEED = 1000.0;

enum EConfWord { CONF_CARD, CONF_CHANNEL, CONF_START_FAILURES, CONF_FAIL, CONF_SOCKET, CONF_SPEED, CONF_SLIP };

const std::vector<Keyword> CONF_WORDS = {
    {"card", CONF_CARD}, {"channel", CONF_CHANNEL}, {"start_failures", CONF_START_FAILURES},
    {"fail", CONF_FAIL}, {"socket", CONF_SOCKET},   {"speed", CONF_SPEED},
    {"slip", CONF_SLIP}};

const SimCard* FindCard(const SimConf& rConf, const std::string& strSerial) {
  for (const SimCard& rCard : rConf.vCards) {
    if (rCard.strSerial == strSerial) return &rCard;
  }
  return nullptr;
}

// card MODEL SERIAL CHANNELS
void ReadCard(WordReader& rWords, SimConf& rConf) {
  SimCard rCard;
  rCard.strModel = rWords.Text("a card model");
  rCard.strSerial = rWords.Text("a serial number");
  rCard.iChannels = static_cast<int>(rWords.Int("a number of channels", 1, MAX_CARD_CHANNELS));
  if (FindCard(rConf, rCard.strSerial) != nullptr) rWords.Fail("serial number " + rCard.strSerial + " stands twice");
  rConf.vCards.push_back(rCard);
}

// channel SERIAL CHANNEL type TYPE
void ReadChannel(WordReader& rWords, SimConf& rConf) {
  const std::string strSerial = rWords.Text("the serial number of a card");
  const SimCard* prCard = FindCard(rConf, strSerial);
  if (prCard == nullptr) rWords.Fail("expected the serial number of a card above, found \"" + strSerial + '"');
  const int iMaxCh = prCard == nullptr ? 0 : prCard->iChannels - 1;
  const auto iCh = static_cast<int>(rWords.Int("a channel of the card", 0, iMaxCh));
  (void)rWords.Choice({{"type", 0}});
  rConf.rChTypes[{strSerial, iCh}] = static_cast<int>(rWords.Int("a channel type", -1, 255));
}

void ReadLine(WordReader& rWords, SimConf& rConf) {
  switch (rWords.Choice(CONF_WORDS)) {
    case CONF_CARD:
      ReadCard(rWords, rConf);
      break;
    case CONF_CHANNEL:
      ReadChannel(rWords, rConf);
      break;
    case CONF_START_FAILURES:
      rConf.iStartFailures = static_cast<int>(rWords.Int("a number of failures", 0, 1000000));
      if (!rWords.AtEnd()) rConf.strStartText = rWords.Rest();
      break;
    case CONF_FAIL: {
      const std::string strOperation = rWords.Text("the name of an operation");
      rConf.rFaults[strOperation] = static_cast<int>(rWords.Int("how many times", 0, 1000000000));
      break;
    }
    case CONF_SOCKET:
      rConf.strSocket = rWords.Text("a path");
      break;
    case CONF_SPEED:
      rConf.dSpeed = rWords.Real("a speed from 0.01 to 1000", 0.01, MAX_SPEED);
      break;
    case CONF_SLIP:
      rConf.fSlip = rWords.Choice({{"on", 1}, {"off", 0}}) != 0;
      break;
    default:
      break;
  }
  rWords.End();
}

}  // namespace

EFamily FamilyOf(const std::string& strModel) {
  const std::string strPrefix = strModel.substr(0, 3);
  if (strPrefix == "ATP") return FAMILY_ATP;
  if (strPrefix == "DST" || strPrefix == "SHR") return FAMILY_DST;
  if (strPrefix == "DTP") return FAMILY_DTP;
  if (strPrefix == "SHT") return FAMILY_SHT;
  return FAMILY_UNKNOWN;
}

int ChTypeOf(EFamily eFamily) {
  switch (eFamily) {
    case FAMILY_ATP:
    case FAMILY_SHT:
      return CH_ANALOG;
    case FAMILY_DST:
      return CH_DST;
    case FAMILY_DTP:
      return CH_ISDN_USR;
    case FAMILY_UNKNOWN:
      break;
  }
  return CH_UNKNOWN;
}

bool ReadConf(const std::string& strPath, SimConf& rConf, std::string& strError) {
  std::ifstream rFile(strPath);
  if (!rFile) {
    strError = "no simulated cards: cannot read " + strPath + ": " + std::strerror(errno);
    return false;
  }
  strError.clear();
  std::string strLine;
  for (int iLine = 1; std::getline(rFile, strLine); iLine++) {
    WordReader rWords(strLine);
    if (rWords.AtEnd() && rWords.Error().empty()) continue;
    ReadLine(rWords, rConf);
    if (rWords.Error().empty()) continue;
    strError += (strError.empty() ? "" : "; ") + strPath + ":" + std::to_string(iLine) + ": " + rWords.Error();
  }
  return strError.empty();
}

}  // namespace simcards
