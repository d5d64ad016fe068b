// Driver configuration files, tuned by hand. The input begins with wanted settings, one a line, and an empty line ends
// them; the rest is the file:
//   =section|key|value   set          ?section|key|value   setDefault          !section   replaceSection
#include "iniedit.h"

#include <sstream>

#include "FuzzCheck.h"
#include "fstring.h"

namespace {

void AddWanted(IniData& rIni, const std::string& strLine) {
  std::vector<std::string> astrFields;
  lt_split(astrFields, strLine.substr(1), '|');
  astrFields.resize(3);
  if (strLine[0] == '=') rIni.set(astrFields[0], astrFields[1], astrFields[2]);
  if (strLine[0] == '?') rIni.setDefault(astrFields[0], astrFields[1], astrFields[2]);
  if (strLine[0] == '!') rIni.replaceSection(astrFields[0]);
}

// The lines that no merge may lose: neither headers nor key lines. Pieces of overlong lines are left out.
std::string OpaqueLines(const std::string& strFile) {
  std::string strOpaque;
  std::istringstream rLines(strFile);
  for (std::string strLine; std::getline(rLines, strLine);) {
    if (strLine.empty() || (strLine[0] != '[' && strLine.find('=') == std::string::npos)) strOpaque += strLine + "\n";
  }
  return strOpaque;
}

void CheckMerge(const IniData& rIni, const std::string& strFile) {
  const std::string strMerged = rIni.merge(strFile);
  FuzzCheck(rIni.merge(strFile) == strMerged, "a merge leaves the object as it is");
  if (strFile.find('[') == std::string::npos) {
    FuzzCheck(IniData().merge(strFile) == strFile, "without headers and wanted settings all stays");
  }
  const bool fWhole = strFile.empty() || strFile.back() == '\n';
  if (!fWhole || strFile.size() >= 4999) return;
  // A value with an opaque line in it would be counted too; the wanted settings hold no newline.
  const std::string strKept = OpaqueLines(strMerged);
  FuzzCheck(strKept == OpaqueLines(strFile), "opaque lines are kept, in order");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  std::istringstream rInput(FuzzText(prData, iSize));
  IniData rIni;
  for (std::string strLine; std::getline(rInput, strLine) && !strLine.empty();) AddWanted(rIni, strLine);
  std::ostringstream rFile;
  rFile << rInput.rdbuf();
  CheckMerge(rIni, rFile.str());
  (void)rIni.dump();
  return 0;
}
