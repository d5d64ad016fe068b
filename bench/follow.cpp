// follow: compares recordings of the cards' counting pattern byte by byte while they grow, and once more at the end.
//
// usage: follow FOLDER plain|stereo|mono [punch]
//
// Looks below FOLDER every few seconds for .wav files and for what they have gained. SIGTERM asks for the last look;
// then it prints how many bytes are not what the line carried, and how long each recording is. With "punch" it gives
// back the space of what has been compared, where a disk would not hold a long run; lengths stay.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "g711.h"
#include "simcards.h"
#include "wavheader.h"

namespace {

constexpr timespec PAUSE = {2, 0};
constexpr std::size_t READ_BYTES = 1U << 16;
constexpr off_t DISK_BLOCK_BYTES = 4096;
constexpr std::size_t DATA_LENGTH_OFFSET = 52;

enum EKind { KIND_PLAIN, KIND_STEREO, KIND_MONO };

volatile std::sig_atomic_t fStop = 0;

// What a recording holds from its first byte on, made as far as it was asked for.
class Pattern {
 public:
  explicit Pattern(EKind eTheKind) : eKind(eTheKind) {}

  const BYTE* At(std::size_t uiFrom, std::size_t uiBytes) {
    while (acBytes.size() < uiFrom + uiBytes) acBytes.push_back(Byte(acBytes.size()));
    return acBytes.data() + uiFrom;
  }

 private:
  BYTE Byte(std::size_t uiAt) const {
    if (eKind == KIND_STEREO) uiAt /= 2;
    const BYTE ucByte = simcards::CountingByte(static_cast<long long>(uiAt));
    if (eKind != KIND_MONO) return ucByte;
    const int iSum = 2 * alaw2linear(ucByte);
    return linear2alaw(static_cast<short>(std::clamp(iSum, -32768, 32767)));
  }

  EKind eKind;
  std::vector<BYTE> acBytes;
};

struct Recording {
  std::size_t uiCompared = 0;
  long long iWrong = 0;
  bool fHeaderTells = false;  // its header has the length of what is behind it
};

class Follower {
 public:
  Follower(std::filesystem::path strTheFolder, EKind eKind, bool fPunches)
      : strFolder(std::move(strTheFolder)), rPattern(eKind), fPunch(fPunches) {}

  void Look() {
    std::error_code rError;
    const auto eOptions = std::filesystem::directory_options::skip_permission_denied;
    for (std::filesystem::recursive_directory_iterator it(strFolder, eOptions, rError), itEnd; it != itEnd && !rError;
         it.increment(rError)) {
      if (it->path().extension() == ".wav") Compare(it->path(), rRecordings[it->path().filename().string()]);
    }
  }

  void Print() const {
    long long iBytes = 0;
    long long iWrong = 0;
    long long iWrongFiles = 0;
    long long iHeaders = 0;
    std::string strLengths;
    for (const auto& [strName, rRecording] : rRecordings) {
      iBytes += static_cast<long long>(rRecording.uiCompared);
      iWrong += rRecording.iWrong;
      iWrongFiles += rRecording.iWrong != 0 ? 1 : 0;
      iHeaders += rRecording.fHeaderTells ? 0 : 1;
      strLengths += (strLengths.empty() ? "\"" : ", \"") + strName + "\": " + std::to_string(rRecording.uiCompared);
    }
    printf("{\"files\": %zu, \"bytes\": %lld, \"wrong_bytes\": %lld, \"wrong_files\": %lld, \"wrong_headers\": %lld, ",
           rRecordings.size(), iBytes, iWrong, iWrongFiles, iHeaders);
    printf("\"lengths\": {%s}}\n", strLengths.c_str());
  }

 private:
  void Compare(const std::filesystem::path& strPath, Recording& rRecording) {
    const int iFd = open(strPath.c_str(), (fPunch ? O_RDWR : O_RDONLY) | O_CLOEXEC);
    if (iFd < 0) return;  // it is gone by now
    const std::size_t uiBefore = rRecording.uiCompared;
    BYTE acRead[READ_BYTES];
    ssize_t iRead = 0;
    while ((iRead = pread(iFd, acRead, sizeof acRead, static_cast<off_t>(WAV_HEADER_BYTES + rRecording.uiCompared))) >
           0) {
      const auto uiRead = static_cast<std::size_t>(iRead);
      rRecording.iWrong += Differing(acRead, rPattern.At(rRecording.uiCompared, uiRead), uiRead);
      rRecording.uiCompared += uiRead;
    }
    rRecording.fHeaderTells = HeaderLength(iFd) == rRecording.uiCompared;
    if (fPunch) Punch(iFd, uiBefore, rRecording.uiCompared);
    (void)close(iFd);
  }

  static long long Differing(const BYTE* acOne, const BYTE* acOther, std::size_t uiBytes) {
    if (memcmp(acOne, acOther, uiBytes) == 0) return 0;
    long long iCount = 0;
    for (std::size_t i = 0; i < uiBytes; i++) iCount += acOne[i] != acOther[i] ? 1 : 0;
    return iCount;
  }

  static std::size_t HeaderLength(int iFd) {
    BYTE acLength[4] = {};
    (void)pread(iFd, acLength, sizeof acLength, DATA_LENGTH_OFFSET);
    return acLength[0] + (std::size_t{acLength[1]} << 8) + (std::size_t{acLength[2]} << 16) +
           (std::size_t{acLength[3]} << 24);
  }

  // Whole blocks between header and end; nobody reads them again.
  static void Punch(int iFd, std::size_t uiFrom, std::size_t uiTo) {
    const off_t iStart = std::max(static_cast<off_t>(uiFrom) / DISK_BLOCK_BYTES * DISK_BLOCK_BYTES, DISK_BLOCK_BYTES);
    const off_t iEnd = static_cast<off_t>(uiTo) / DISK_BLOCK_BYTES * DISK_BLOCK_BYTES;
    if (iEnd > iStart) (void)fallocate(iFd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, iStart, iEnd - iStart);
  }

  std::filesystem::path strFolder;
  Pattern rPattern;
  bool fPunch;
  std::unordered_map<std::string, Recording> rRecordings;  // by name, as a recording may move
};

EKind KindOf(const char* acName) {
  if (strcmp(acName, "plain") == 0) return KIND_PLAIN;
  if (strcmp(acName, "stereo") == 0) return KIND_STEREO;
  if (strcmp(acName, "mono") == 0) return KIND_MONO;
  fprintf(stderr, "follow: no such kind: %s\n", acName);
  std::exit(2);
}

}  // namespace

int main(int iArgs, char** acArgs) {
  if (iArgs < 3 || iArgs > 4 || (iArgs == 4 && strcmp(acArgs[3], "punch") != 0)) {
    fprintf(stderr, "usage: follow FOLDER plain|stereo|mono [punch]\n");
    return 2;
  }
  struct sigaction rAction {};
  rAction.sa_handler = [](int) { fStop = 1; };
  (void)sigaction(SIGTERM, &rAction, nullptr);
  Follower rFollower(acArgs[1], KindOf(acArgs[2]), iArgs == 4);
  while (fStop == 0) {
    rFollower.Look();
    (void)nanosleep(&PAUSE, nullptr);  // cut short by the signal
  }
  rFollower.Look();
  rFollower.Print();
  return 0;
}
