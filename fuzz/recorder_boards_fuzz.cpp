// What the card maker's tool writes about the cards: the file with its three lists, and the boards made of them.
#include <algorithm>
#include <fstream>

#include "FuzzCheck.h"
#include "recorder_boot.h"

namespace {

constexpr const char* TOOL_FILE = "/tmp/ShConfig.ini";  // the sandbox has a /tmp of its own

// Each entry of a list costs a line with an equal sign.
void CheckLists(const std::string& strFile, const ToolConfig& rFound) {
  const auto iEqualSigns = static_cast<std::size_t>(std::count(strFile.begin(), strFile.end(), '='));
  FuzzCheck(rFound.aiChannelCounts.size() + rFound.astrSerials.size() + rFound.astrModels.size() <= iEqualSigns,
            "an entry has a line of its own");
  for (const auto* prList : {&rFound.astrSerials, &rFound.astrModels}) {
    for (const std::string& strValue : *prList) {
      FuzzCheck(strFile.find(strValue) != std::string::npos, "a value stands in the file");
      FuzzCheck(strValue.size() < 500, "a longer line counts as several");
      FuzzCheck(strValue.find('\n') == std::string::npos, "a value is one line");
    }
  }
}

void CheckBoards(const ToolConfig& rFound) {
  TRecorderBoot rBoot;
  rBoot.TakeDetected(rFound);
  const std::size_t iShortest =
      std::min({rFound.aiChannelCounts.size(), rFound.astrSerials.size(), rFound.astrModels.size()});
  FuzzCheck(rBoot.vrDetectedBoards.size() <= iShortest, "no board without all three");
  for (const TBoard& rBoard : rBoot.vrDetectedBoards) {
    FuzzCheck(rBoard.fPresent && rBoard.GetCtType() != CT_UNKNOWN, "detected boards are present and of a known family");
    FuzzCheck(rBoot.rNewConfigs.count(rBoard.getId() + "_Present") == 1, "each board is reported");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::string strFile = FuzzText(prData, iSize);
  std::ofstream(TOOL_FILE, std::ios::binary | std::ios::trunc) << strFile;
  const ToolConfig rFound = ReadToolConfig(TOOL_FILE);
  CheckLists(strFile, rFound);
  CheckBoards(rFound);
  return 0;
}
