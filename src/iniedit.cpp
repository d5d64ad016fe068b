// The new text is made in memory (merge), where tests can look at it; the file itself is only touched by one copy at
// the end, which keeps whatever it is apart from its text: owner, mode, links.
#include "iniedit.h"

#include <unistd.h>

#include <cstdio>

#include "filedir.h"
#include "fstring.h"
#include "shell.h"

namespace {

constexpr size_t PIECE_BYTES = 4999;  // a longer line is taken in pieces, each like a line of its own

using IniSections = std::map<std::string, IniSectionData>;

std::string HeaderLine(const std::string& strSection) {
  return "[" + strSection + "]\n";
}

std::string KeyLine(const std::string& strKey, const std::string& strValue) {
  return strKey + "=" + strValue + "\n";
}

std::string KeyLines(const IniSectionData& rSection) {
  std::string strLines;
  for (const auto& [strKey, strValue] : rSection) strLines += KeyLine(strKey, strValue);
  return strLines;
}

IniSectionData Find(const IniSections& rSections, const std::string& strSection) {
  const auto it = rSections.find(strSection);
  return it == rSections.end() ? IniSectionData() : it->second;
}

// One pass over the lines of the old text. Each section is closed at the next header, and at the end, by writing what
// is left of its wanted values; so they stand behind its last line, and behind the comments there.
// The empty name stands for the lines in front of the first header. Nothing loads the values of that name, so keys set
// under it are never merged in; see KeysOfTheEmptySectionAreNeverMerged.
struct MergeScan {
  const IniSections& data;
  const IniSections& defData;
  const std::set<std::string>& toReplace;

  std::string strSection{};          // section of the line at hand
  IniSectionData rSectionData{};     // forced values of that section not yet written
  IniSectionData rDefSectionData{};  // defaults of that section whose keys have not been seen
  std::set<std::string> rHandledSections{};
  std::string strOut{};

  void Line(const std::string& strLine) {
    if (strLine[0] == '[') {
      Header(strLine);
    } else if (strLine[0] == '\0' || strLine.find('=') == std::string::npos) {
      strOut += strLine;
    } else {
      Key(strLine);
    }
  }

  // A header without its "]" is dropped, and the section before it goes on.
  void Header(const std::string& strLine) {
    const size_t iClose = strLine.rfind(']');
    if (iClose == std::string::npos) return;
    CloseSection();
    strSection = strLine.substr(1, iClose - 1);
    rSectionData = Find(data, strSection);
    rDefSectionData = Find(defData, strSection);
    strOut += strLine;
  }

  void Key(const std::string& strLine) {
    if (toReplace.count(strSection) > 0) return;
    std::string strParam = strLine.substr(0, strLine.find('='));
    trim(strParam);
    const auto it = rSectionData.find(strParam);
    if (it != rSectionData.end()) {
      strOut += KeyLine(strParam, it->second);
      rSectionData.erase(it);  // a second line with this key is copied like any other
    } else {
      strOut += strLine;
    }
    rDefSectionData.erase(strParam);
  }

  void CloseSection() {
    strOut += KeyLines(rSectionData) + KeyLines(rDefSectionData);
    rHandledSections.insert(strSection);
  }

  // Sections that the file does not hold. Defaults are not compared with the forced values: a key in both stands twice,
  // its default last; see KeyInBothOfANewSectionStandsTwice.
  void NewSections() {
    for (const auto& [strName, rSection] : data) {
      if (!rHandledSections.insert(strName).second) continue;
      strOut += HeaderLine(strName) + KeyLines(rSection) + KeyLines(Find(defData, strName));
    }
    for (const auto& [strName, rSection] : defData) {
      if (rHandledSections.count(strName) == 0) strOut += HeaderLine(strName) + KeyLines(rSection);
    }
  }
};

// A line with its newline, or as much of it as one piece holds.
std::string NextPiece(const std::string& strText, size_t iStart) {
  const std::string strPiece = strText.substr(iStart, PIECE_BYTES);
  const size_t iNewline = strPiece.find('\n');
  return iNewline == std::string::npos ? strPiece : strPiece.substr(0, iNewline + 1);
}

// All bytes of the file; false when it cannot be opened.
bool ReadWhole(const std::string& strPath, std::string& strText) {
  const StdFile hFile(fopen(strPath.c_str(), "re"));
  if (!hFile) return false;
  char acPiece[PIECE_BYTES];
  while (const size_t iLength = fread(acPiece, 1, sizeof acPiece, hFile.get())) strText.append(acPiece, iLength);
  return true;
}

// False when the file cannot be opened; a failed write goes unnoticed.
bool WriteWhole(const std::string& strPath, const std::string& strText) {
  const StdFile hFile(fopen(strPath.c_str(), "we"));
  if (!hFile) return false;
  (void)fwrite(strText.data(), 1, strText.size(), hFile.get());
  return true;
}

}  // namespace

void IniData::set(const std::string& strSection, const std::string& strKey, const std::string& strValue) {
  data[strSection][strKey] = strValue;
}

void IniData::setDefault(const std::string& strSection, const std::string& strKey, const std::string& strValue) {
  defData[strSection][strKey] = strValue;
}

void IniData::replaceSection(const std::string& strSection) {
  toReplace.insert(strSection);
}

std::string IniData::merge(const std::string& strText) const {
  MergeScan rScan{data, defData, toReplace};
  for (size_t iPos = 0; iPos < strText.size();) {
    const std::string strLine = NextPiece(strText, iPos);
    rScan.Line(strLine);
    iPos += strLine.size();
  }
  rScan.CloseSection();
  rScan.NewSections();
  return rScan.strOut;
}

void IniData::update(const std::string& strPath) const {
  std::string strText;
  if (!ReadWhole(strPath, strText)) {
    overwrite(strPath);
    return;
  }
  const std::string strTemp = strPath + ".tmp";
  if (!WriteWhole(strTemp, merge(strText))) return;
  // A copy onto the existing name, not a rename.
  (void)stdSystem("cp -p " + escapeShellArg(strTemp) + " " + escapeShellArg(strPath));
  (void)unlink(strTemp.c_str());
}

void IniData::overwrite(const std::string& strPath) const {
  (void)WriteWhole(strPath, dump());
}

std::string IniData::dump() const {
  std::string strText;
  for (const auto& [strName, rSection] : data) strText += HeaderLine(strName) + KeyLines(rSection);
  return strText;
}
