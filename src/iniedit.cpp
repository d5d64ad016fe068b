// The new text is made in memory (merge), where tests can look at it. It is on disk whole, in a file of its own, before
// that file takes the place of the old one: neither a full disk nor a power cut leaves a part of a hand-tuned file.
#include "iniedit.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "durable.h"
#include "filedir.h"
#include "fstring.h"
#include "logging.h"
#include "plainfile.h"
#include "shell.h"

namespace {

constexpr size_t PIECE_BYTES = 4999;  // a longer line is taken in pieces, each like a line of its own
constexpr const char* TEMP_SUFFIX = ".tmp";
constexpr mode_t FILE_MODE = 0666;

namespace fs = std::filesystem;

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

enum ERead { READ_WHOLE, READ_MISSING, READ_FAILED };

ERead ReadWhole(const std::string& strPath, std::string& strText) {
  const StdFile hFile(fopen(strPath.c_str(), "re"));
  if (!hFile) return errno == ENOENT ? READ_MISSING : READ_FAILED;
  char acPiece[PIECE_BYTES];
  while (const size_t iLength = fread(acPiece, 1, sizeof acPiece, hFile.get())) strText.append(acPiece, iLength);
  return ferror(hFile.get()) == 0 ? READ_WHOLE : READ_FAILED;
}

bool WriteAll(int hFile, const std::string& strText) {
  for (size_t iDone = 0; iDone < strText.size();) {
    const ssize_t iWritten = write(hFile, strText.data() + iDone, strText.size() - iDone);
    if (iWritten < 0 && errno == EINTR) continue;
    if (iWritten <= 0) return false;
    iDone += static_cast<size_t>(iWritten);
  }
  return true;
}

// Removes what a refused step leaves; errno goes on telling of that step.
bool TakeBack(const std::string& strPath) {
  const int iErrno = errno;
  (void)unlink(strPath.c_str());
  errno = iErrno;
  return false;
}

// A new file with this text, on disk when true. Whatever else had its name before is gone, but for a folder.
bool WriteNew(const std::string& strPath, const std::string& strText) {
  (void)unlink(strPath.c_str());  // of a process that ended in between
  const Descriptor rFile(open(strPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, FILE_MODE));
  if (!rFile.IsOpen()) return false;
  if (WriteAll(rFile.Get(), strText) && fsync(rFile.Get()) == 0) return true;
  return TakeBack(strPath);
}

// The file that a path means when that is a link, which is to stay one; also a file that is not there yet. Empty when
// the link leads to itself, or past what may be entered; errno then tells which.
std::string WithoutLink(const std::string& strPath) {
  std::error_code rError;
  const fs::path rNext = fs::read_symlink(strPath, rError);
  if (rError) return strPath;
  const fs::path rTarget = fs::canonical(strPath, rError);
  if (!rError) return rTarget;
  if (rError != std::errc::no_such_file_or_directory) {
    errno = rError.value();
    return "";
  }
  return WithoutLink(fs::path(strPath).parent_path() / rNext);
}

bool PutInPlace(const std::string& strNew, const std::string& strPath) {
  if (rename(strNew.c_str(), strPath.c_str()) != 0) return TakeBack(strNew);
  (void)SyncNames(strPath);  // when that is refused, a power cut can still bring the old file back, whole
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

// A file that is there and cannot be read is not taken for a missing one: its settings would be lost.
bool IniData::update(const std::string& strPath) const {
  std::string strText;
  switch (ReadWhole(strPath, strText)) {
    case READ_MISSING:
      return overwrite(strPath);
    case READ_FAILED:
      return false;
    case READ_WHOLE:
      break;
  }
  const std::string strTarget = WithoutLink(strPath);
  const std::string strTemp = strTarget + TEMP_SUFFIX;
  if (!WriteNew(strTemp, merge(strText))) return false;
  // The exchange as a command, as people look for it in the log and can do it by hand: the new file's owner and mode
  // are the result. A copy itself would pass through an empty file. Like that of any command, the line tells what is
  // tried.
  lg(LOG_NOTICE, "Command: cp -p %s %s", escapeShellArg(strTemp).c_str(), escapeShellArg(strTarget).c_str());
  return PutInPlace(strTemp, strTarget);
}

bool IniData::overwrite(const std::string& strPath) const {
  const std::string strTarget = WithoutLink(strPath);
  if (strTarget.empty()) return false;
  const std::string strTemp = strTarget + TEMP_SUFFIX;
  return WriteNew(strTemp, dump()) && PutInPlace(strTemp, strTarget);
}

std::string IniData::dump() const {
  std::string strText;
  for (const auto& [strName, rSection] : data) strText += HeaderLine(strName) + KeyLines(rSection);
  return strText;
}
