#include "ctl_signs.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr double SILENT_AFTER_S = 3;  // a report comes each second; a busy machine may delay it
constexpr const char* TRACE_FILES[] = {"trace.wav", "trace.bit", "dch.log", "dmsg.log"};
constexpr const char* PROCESSES = "/proc";
constexpr const char* UNIX_SOCKETS = "/proc/net/unix";
constexpr const char* LISTENS = "00010000";  // column "Flags" there
constexpr const char* OPEN_FILES = "Max open files";
constexpr const char* NO_LIMIT = "unlimited";

std::optional<double> YoungestTraceFile(const std::string& strFolder) {
  std::optional<double> fYoungest;
  for (const char* acName : TRACE_FILES) {
    const std::optional<double> fAge = FileAgeSeconds(strFolder + "/" + acName);
    if (fAge) fYoungest = std::min(*fAge, fYoungest.value_or(*fAge));
  }
  return fYoungest;
}

std::optional<LastError> ReadLastError(const std::string& strPath) {
  const std::optional<double> fAge = FileAgeSeconds(strPath);
  if (!fAge) return std::nullopt;
  std::ifstream rFile(strPath);
  LastError rError;
  if (!std::getline(rFile, rError.strText) || rError.strText.empty()) return std::nullopt;
  rError.fAgeSeconds = *fAge;
  return rError;
}

std::optional<DiskSpace> ReadDiskSpace(const std::string& strFolder) {
  struct statvfs rStat {};
  if (statvfs(strFolder.c_str(), &rStat) != 0) return std::nullopt;
  const auto fUsed = static_cast<double>(rStat.f_blocks - rStat.f_bfree);
  const auto fFree = static_cast<double>(rStat.f_bavail);
  DiskSpace rDisk;
  rDisk.fFreePercent = fUsed + fFree > 0 ? 100 * fFree / (fUsed + fFree) : 0;
  rDisk.iFreeBytes = rStat.f_bavail * rStat.f_frsize;
  return rDisk;
}

// -- the process behind the socket ------------------------------------------------------------------------------------

// Sockets that listen under this name, as descriptors lead to them. There may be others' in a name space of their own.
std::vector<std::string> ListeningSockets(const std::string& strPath) {
  std::vector<std::string> astrSockets;
  std::ifstream rFile(UNIX_SOCKETS);
  for (std::string strLine; std::getline(rFile, strLine);) {
    std::istringstream rWords(strLine);
    std::string strNum, strRefs, strProtocol, strFlags, strType, strState, strNumber, strName;
    rWords >> strNum >> strRefs >> strProtocol >> strFlags >> strType >> strState >> strNumber >> strName;
    if (strFlags == LISTENS && strName == strPath) astrSockets.push_back("socket:[" + strNumber + "]");
  }
  return astrSockets;
}

// Processes come and go meanwhile, and most are others': what cannot be read holds nothing.
bool HoldsOneOf(const fs::path& rProcess, const std::vector<std::string>& astrTargets) {
  std::error_code rError;
  for (fs::directory_iterator it(rProcess / "fd", rError), itEnd; !rError && it != itEnd; it.increment(rError)) {
    std::error_code rGone;
    const std::string strTarget = fs::read_symlink(it->path(), rGone).string();
    if (std::find(astrTargets.begin(), astrTargets.end(), strTarget) != astrTargets.end()) return true;
  }
  return false;
}

std::optional<std::uint64_t> DescriptorLimitOf(const fs::path& rProcess) {
  std::ifstream rFile(rProcess / "limits");
  for (std::string strLine; std::getline(rFile, strLine);) {
    if (strLine.rfind(OPEN_FILES, 0) != 0) continue;
    std::istringstream rWords(strLine.substr(std::string(OPEN_FILES).size()));
    std::string strSoft;
    rWords >> strSoft;
    if (strSoft == NO_LIMIT) return std::numeric_limits<std::uint64_t>::max();
    std::uint64_t iLimit = 0;
    const auto [acEnd, eError] = std::from_chars(strSoft.data(), strSoft.data() + strSoft.size(), iLimit);
    if (eError == std::errc()) return iLimit;
  }
  return std::nullopt;
}

}  // namespace

ELoopSign JudgeLoop(const std::optional<LoopReport>& rLoop, const std::optional<double>& fTraceAge) {
  if (!rLoop) return LOOP_UNKNOWN;
  // One that reports in time has no trace, also where a clock that was set back makes a trace file the newer.
  if (rLoop->fAgeSeconds <= REPORT_PERIOD_S) return LOOP_TURNS;
  if (fTraceAge && *fTraceAge < rLoop->fAgeSeconds) return LOOP_TRACES;
  return rLoop->fAgeSeconds > SILENT_AFTER_S ? LOOP_SILENT : LOOP_TURNS;
}

Signs ReadSigns(const SignSources& rSources) {
  Signs rSigns;
  rSigns.rLoop = ReadLoopReport(rSources.strLoopFile);
  rSigns.eLoop = JudgeLoop(rSigns.rLoop, YoungestTraceFile(rSources.strTraceFolder));
  rSigns.fEventAge = FileAgeSeconds(rSources.strEventFile);
  rSigns.rError = ReadLastError(rSources.strErrorFile);
  rSigns.rDisk = ReadDiskSpace(rSources.strRecordings);
  return rSigns;
}

std::optional<std::uint64_t> ReadDescriptorLimit(const std::string& strSocket) {
  const std::vector<std::string> astrSockets = ListeningSockets(strSocket);
  if (astrSockets.empty()) return std::nullopt;
  std::vector<fs::path> vHolders;
  std::error_code rError;
  for (fs::directory_iterator it(PROCESSES, rError), itEnd; !rError && it != itEnd; it.increment(rError)) {
    const std::string strName = it->path().filename().string();
    const bool fProcess = strName.find_first_not_of("0123456789") == std::string::npos;
    if (fProcess && HoldsOneOf(it->path(), astrSockets)) vHolders.push_back(it->path());
  }
  return vHolders.size() == 1 ? DescriptorLimitOf(vHolders[0]) : std::nullopt;
}
