// The checks go from the whole to the parts: list of boards, table of channels, keys of each board, clock, trunks. Each
// step returns false once it has told what is wrong. Keys that only tune the card's electronics may have any value,
// since somebody may have edited them by hand.

#include "simcards_shconfig.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>

#include "simcards_words.h"

namespace simcards {
namespace {

constexpr int PCM_CHANNELS = 30;    // speech channels of one PCM link
constexpr int BLOCK_CHANNELS = 60;  // a tap takes two links, one a direction
constexpr int EVENT_INTERFACE = 1;
constexpr std::size_t TONE_SCALES = 24;

std::string Trim(const std::string& strText) {
  const std::size_t iStart = strText.find_first_not_of(" \t\r");
  if (iStart == std::string::npos) return "";
  return strText.substr(iStart, strText.find_last_not_of(" \t\r") - iStart + 1);
}

std::string Indexed(const char* acName, int iIndex) {
  return std::string(acName) + "[" + std::to_string(iIndex) + "]";
}

class DriverCheck {
 public:
  DriverCheck(const SimConf& rSimConf, DriverPlan& rDriverPlan, std::string& strText)
      : rConf(rSimConf), rPlan(rDriverPlan), strError(strText) {}

  bool Run(const std::string& strConfigPath, const std::string& strIndexPath) {
    return ReadIni(strConfigPath) && IndexThere(strIndexPath) && System() && Boards() && ChannelTable() &&
           BoardKeys() && Clock() && Trunks();
  }

 private:
  using Section = std::map<std::string, std::string>;

  bool Fail(const std::string& strText) {
    strError = strText;
    return false;
  }

  bool ReadIni(const std::string& strPath) {
    std::ifstream rFile(strPath);
    if (!rFile) return Fail("cannot read " + strPath + ": " + std::strerror(errno));
    std::string strLine, strSection;
    while (std::getline(rFile, strLine)) {
      strLine = Trim(strLine);
      if (strLine.empty() || strLine[0] == ';' || strLine[0] == '#') continue;
      if (strLine[0] == '[') {
        if (strLine.back() != ']') return Fail("the section line \"" + strLine + "\" has no end");
        strSection = strLine.substr(1, strLine.size() - 2);
        if (!rSections.insert({strSection, {}}).second) return Fail("the section [" + strSection + "] stands twice");
        continue;
      }
      const std::size_t iEqual = strLine.find('=');
      if (iEqual == std::string::npos) return Fail("the line \"" + strLine + "\" is neither section nor key");
      const std::string strKey = Trim(strLine.substr(0, iEqual));
      if (!rSections[strSection].insert({strKey, Trim(strLine.substr(iEqual + 1))}).second) {
        return Fail("[" + strSection + "] has " + strKey + " twice");
      }
    }
    return true;
  }

  bool IndexThere(const std::string& strPath) {
    return std::ifstream(strPath) ? true : Fail("cannot read " + strPath + ": " + std::strerror(errno));
  }

  // The value of a key that must be there.
  bool Value(const std::string& strSection, const std::string& strKey, std::string& strValue) {
    const Section& rSection = rSections[strSection];
    const auto it = rSection.find(strKey);
    if (it == rSection.end()) return Fail("[" + strSection + "] lacks " + strKey);
    strValue = it->second;
    return true;
  }

  bool Number(const std::string& strSection, const std::string& strKey, int& iValue) {
    std::string strValue;
    long long iParsed = 0;
    if (!Value(strSection, strKey, strValue)) return false;
    if (!ParseInt(strValue, iParsed) || iParsed < -1 || iParsed > 1000000) {
      return Fail("[" + strSection + "] " + strKey + "=" + strValue + " is no number that can be");
    }
    iValue = static_cast<int>(iParsed);
    return true;
  }

  bool NumberIs(const std::string& strSection, const std::string& strKey, int iWanted) {
    int iValue = 0;
    if (!Number(strSection, strKey, iValue)) return false;
    if (iValue == iWanted) return true;
    return Fail("[" + strSection + "] " + strKey + "=" + std::to_string(iValue) + " should be " +
                std::to_string(iWanted));
  }

  // A key that the daemon gives a default only where the file exists already: one that it wrote from nothing lacks it,
  // and the driver's own value holds then.
  bool IsLeftOut(const std::string& strSection, const std::string& strKey) {
    return rSections[strSection].count(strKey) == 0;
  }

  bool OptionalNumber(const std::string& strSection, const std::string& strKey) {
    int iIgnored = 0;
    return IsLeftOut(strSection, strKey) || Number(strSection, strKey, iIgnored);
  }

  // A comma list of exactly iCount numbers.
  bool NumberList(const std::string& strSection, const std::string& strKey, std::size_t iCount) {
    std::string strValue;
    if (!Value(strSection, strKey, strValue)) return false;
    std::size_t iFound = 0;
    for (std::size_t iAt = 0; iAt <= strValue.size(); iFound++) {
      const std::size_t iComma = std::min(strValue.find(',', iAt), strValue.size());
      long long iNumber = 0;
      if (!ParseInt(strValue.substr(iAt, iComma - iAt), iNumber)) {
        return Fail("[" + strSection + "] " + strKey + "=" + strValue + " is no list of numbers");
      }
      iAt = iComma + 1;
    }
    if (iFound == iCount) return true;
    return Fail("[" + strSection + "] " + strKey + " has " + std::to_string(iFound) + " values for " +
                std::to_string(iCount));
  }

  bool System() {
    if (!Number("SystemConfig", "TotalBoards", iBoards)) return false;
    if (iBoards < 1) return Fail("[SystemConfig] TotalBoards=" + std::to_string(iBoards) + ": no board to start");
    return NumberIs("SystemConfig", "EventInterfaceType", EVENT_INTERFACE);
  }

  // Each board is one of the cards in the machine, by its serial number, and no card is used twice.
  bool Boards() {
    std::set<std::string> rUsed;
    for (int i = 0; i < iBoards; i++) {
      const std::string strSection = "BoardId=" + std::to_string(i);
      std::string strSerial, strModel;
      if (!Value(strSection, "BoardSerialNumber", strSerial) || !Value(strSection, "BoardModel", strModel))
        return false;
      const auto it = std::find_if(rConf.vCards.begin(), rConf.vCards.end(),
                                   [&](const SimCard& rCard) { return rCard.strSerial == strSerial; });
      if (it == rConf.vCards.end())
        return Fail("[" + strSection + "] no card in the machine has the serial number " + strSerial);
      if (it->strModel != strModel) {
        return Fail("[" + strSection + "] BoardModel=" + strModel + ", but card " + strSerial + " is " + it->strModel);
      }
      if (!rUsed.insert(strSerial).second)
        return Fail("[" + strSection + "] card " + strSerial + " has a board already");
      if (FamilyOf(strModel) == FAMILY_UNKNOWN) return Fail("[" + strSection + "] unknown model " + strModel);
      rPlan.vBoards.push_back({*it, FamilyOf(strModel), -1});
    }
    return true;
  }

  // "AppCh[<first driver channel>]=<board>,0..<last channel of the card>" for each board, without gap or overlap.
  bool ChannelTable() {
    const std::string strSection = "AppChToBoardChTable";
    int iTotal = 0;
    if (!Number(strSection, "TotalAppCh", iTotal)) return false;
    std::map<int, std::string> rRows;  // by first driver channel
    for (const auto& [strKey, strValue] : rSections[strSection]) {
      if (strKey == "TotalAppCh") continue;
      int iStart = 0, iLength = 0;
      if (std::sscanf(strKey.c_str(), "AppCh[%d]%n", &iStart, &iLength) != 1 || strKey != Indexed("AppCh", iStart)) {
        return Fail("[" + strSection + "] has the unknown key " + strKey);
      }
      rRows[iStart] = strValue;
    }
    int iNext = 0;
    for (const auto& [iStart, strValue] : rRows) {
      if (iStart != iNext) return Fail("[" + strSection + "] channel " + std::to_string(iNext) + " has no board");
      if (!TakeRow(iStart, strValue)) return false;
      iNext += rPlan.vBoards[static_cast<std::size_t>(iRowBoard)].rCard.iChannels;
    }
    for (std::size_t i = 0; i < rPlan.vBoards.size(); i++) {
      if (rPlan.vBoards[i].iStartCh < 0)
        return Fail("[" + strSection + "] board " + std::to_string(i) + " has no channels");
    }
    if (iNext == iTotal) return true;
    return Fail("[" + strSection + "] TotalAppCh=" + std::to_string(iTotal) + ", but the boards have " +
                std::to_string(iNext) + " channels");
  }

  bool TakeRow(int iStart, const std::string& strValue) {
    int iBoard = -1, iLast = -1;
    const std::string strRow = "[AppChToBoardChTable] " + Indexed("AppCh", iStart) + "=" + strValue;
    if (std::sscanf(strValue.c_str(), "%d,0..%d", &iBoard, &iLast) != 2 ||
        strValue != std::to_string(iBoard) + ",0.." + std::to_string(iLast)) {
      return Fail(strRow + " should read <board>,0..<last channel>");
    }
    if (iBoard < 0 || iBoard >= iBoards) return Fail(strRow + ": there is no board " + std::to_string(iBoard));
    PlannedBoard& rBoard = rPlan.vBoards[static_cast<std::size_t>(iBoard)];
    if (rBoard.iStartCh >= 0) return Fail(strRow + ": board " + std::to_string(iBoard) + " has channels already");
    if (rBoard.rCard.iChannels != iLast + 1) {
      return Fail(strRow + ": card " + rBoard.rCard.strSerial + " has " + std::to_string(rBoard.rCard.iChannels) +
                  " channels");
    }
    rBoard.iStartCh = iStart;
    iRowBoard = iBoard;
    return true;
  }

  bool BoardKeys() {
    for (std::size_t i = 0; i < rPlan.vBoards.size(); i++) {
      const std::string strSection = "BoardId=" + std::to_string(i);
      std::string strPbxType;
      if (!Value(strSection, "PBXType", strPbxType) || !NumberIs(strSection, "DstRecRawData", 0)) return false;
      switch (rPlan.vBoards[i].eFamily) {
        case FAMILY_DST:
          if (strPbxType.empty()) return Fail("[" + strSection + "] PBXType is empty on a station card");
          break;
        case FAMILY_DTP:
          if (!TrunkKeys(strSection, rPlan.vBoards[i])) return false;
          break;
        case FAMILY_ATP:
        case FAMILY_SHT:
          if (!LineKeys(strSection, rPlan.vBoards[i])) return false;
          break;
        case FAMILY_UNKNOWN:
          break;  // refused before
      }
    }
    return true;
  }

  bool LineKeys(const std::string& strSection, const PlannedBoard& rBoard) {
    const auto iChannels = static_cast<std::size_t>(rBoard.rCard.iChannels);
    const std::string strScales = "DualAndAllFreqEnScale";
    if (rBoard.eFamily == FAMILY_SHT && !OptionalNumber("SystemConfig", "R2DetectMode")) return false;
    return (IsLeftOut(strSection, strScales) || NumberList(strSection, strScales, TONE_SCALES)) &&
           NumberList(strSection, "IsHangupDtrmVoltage", iChannels) &&
           NumberList(strSection, "IgnoreLineVoltage", iChannels) &&
           NumberList(strSection, "BargeInSensitive", iChannels);
  }

  bool TrunkKeys(const std::string& strSection, const PlannedBoard& rBoard) {
    const int iPcms = rBoard.rCard.iChannels / BLOCK_CHANNELS * 2;
    if (!OptionalNumber(strSection, "UseHdlc") || !OptionalNumber(strSection, "DualAndAllFreqEnScale") ||
        !(IsLeftOut(strSection, "PcmNumber") || NumberIs(strSection, "PcmNumber", iPcms))) {
      return false;
    }
    for (int iPcm = 0; iPcm < iPcms; iPcm++) {
      if (!OptionalNumber(strSection, Indexed("PcmSSx", iPcm)) ||
          !NumberIs(strSection, Indexed("PcmClockMode", iPcm), iPcm == 0 ? 0 : 2) ||
          !OptionalNumber(strSection, Indexed("PcmLinkType", iPcm))) {
        return false;
      }
    }
    return true;
  }

  // One board with a clock of its own feeds all others.
  bool Clock() {
    int iClock = -1;
    if (!Number("SystemConfig", "WhoSupplySysClock", iClock)) return false;
    const auto HasClock = [](const PlannedBoard& rBoard) {
      return rBoard.eFamily == FAMILY_DST || rBoard.eFamily == FAMILY_DTP;
    };
    const bool fNeeded = std::any_of(rPlan.vBoards.begin(), rPlan.vBoards.end(), HasClock);
    if (!fNeeded && iClock == -1) return true;
    const bool fGood = iClock >= 0 && iClock < iBoards && HasClock(rPlan.vBoards[static_cast<std::size_t>(iClock)]);
    if (fNeeded && fGood) return true;
    return Fail("[SystemConfig] WhoSupplySysClock=" + std::to_string(iClock) + " names no board with a clock");
  }

  // Pcm[g] is link p of a board, SpyPcm[i] a pair of links, AppSpyCIC[c] thirty circuits of a pair.
  bool Trunks() {
    int iBlocks = 0;
    for (const PlannedBoard& rBoard : rPlan.vBoards) {
      if (rBoard.eFamily == FAMILY_DTP) iBlocks += rBoard.rCard.iChannels / BLOCK_CHANNELS;
    }
    if (iBlocks == 0)
      return rSections["PcmInfo"].empty() ? true : Fail("[PcmInfo] is not empty, but there is no trunk");
    if (!NumberIs("PcmInfo", "TotalPcm", iBlocks * 2) || !NumberIs("SpyPcm", "TotalSpyPcm", iBlocks) ||
        !NumberIs("AppSpyCICTable", "TotalAppSpyCIC", iBlocks * PCM_CHANNELS)) {
      return false;
    }
    for (int i = 0; i < iBlocks; i++) {
      if (!TakeCircuits(i * PCM_CHANNELS, iBlocks)) return false;
    }
    return true;
  }

  bool TakeCircuits(int iCic, int iBlocks) {
    const std::string strKey = Indexed("AppSpyCIC", iCic);
    std::string strValue;
    if (!Value("AppSpyCICTable", strKey, strValue)) return false;
    int iSpy = -1;
    if (std::sscanf(strValue.c_str(), "SpyPcm[%d]", &iSpy) != 1 || strValue != Indexed("SpyPcm", iSpy) + ",0..29" ||
        iSpy < 0 || iSpy >= iBlocks) {
      return Fail("[AppSpyCICTable] " + strKey + "=" + strValue + " names no pair of links");
    }
    std::string strPair;
    if (!Value("SpyPcm", Indexed("SpyPcm", iSpy), strPair)) return false;
    int iFirst = -1, iSecond = -1, iFirstCh = -1, iSecondCh = -1;
    if (std::sscanf(strPair.c_str(), "Pcm[%d],Pcm[%d]", &iFirst, &iSecond) != 2 ||
        strPair != Indexed("Pcm", iFirst) + "," + Indexed("Pcm", iSecond)) {
      return Fail("[SpyPcm] " + Indexed("SpyPcm", iSpy) + "=" + strPair + " names no pair of links");
    }
    if (!LinkStart(iFirst, iFirstCh) || !LinkStart(iSecond, iSecondCh)) return false;
    for (int i = 0; i < PCM_CHANNELS; i++) rPlan.vCircuits.push_back({iFirstCh + i, iSecondCh + i});
    return true;
  }

  // First driver channel of a link; each link serves one direction of one pair.
  bool LinkStart(int iPcm, int& iStartCh) {
    const std::string strKey = Indexed("Pcm", iPcm);
    std::string strValue;
    if (!Value("PcmInfo", strKey, strValue)) return false;
    int iBoard = -1, iLink = -1;
    const bool fRead = std::sscanf(strValue.c_str(), "%d,%d", &iBoard, &iLink) == 2 && iBoard >= 0 && iBoard < iBoards;
    const PlannedBoard* prBoard = fRead ? &rPlan.vBoards[static_cast<std::size_t>(iBoard)] : nullptr;
    if (prBoard == nullptr || prBoard->eFamily != FAMILY_DTP || iLink < 0 ||
        iLink >= prBoard->rCard.iChannels / BLOCK_CHANNELS * 2) {
      return Fail("[PcmInfo] " + strKey + "=" + strValue + " names no link of a trunk card");
    }
    iStartCh = prBoard->iStartCh + iLink * PCM_CHANNELS;
    if (!rUsedLinks.insert(iStartCh).second) return Fail("[PcmInfo] " + strKey + "=" + strValue + " is used twice");
    return true;
  }

  const SimConf& rConf;
  DriverPlan& rPlan;
  std::string& strError;
  std::map<std::string, Section> rSections;
  std::set<int> rUsedLinks;
  int iBoards = 0;
  int iRowBoard = -1;  // board of the row taken last
};

}  // namespace

bool PlanDriver(const std::string& strConfigPath, const std::string& strIndexPath, const SimConf& rConf,
                DriverPlan& rPlan, std::string& strError) {
  return DriverCheck(rConf, rPlan, strError).Run(strConfigPath, strIndexPath);
}

}  // namespace simcards
