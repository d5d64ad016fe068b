// floor: the least that a program can do to record: takes the events of the cards and writes their audio with `write`,
// on the same driver interface as the daemon, to as many files. What the daemon costs is held against what this costs.
//
// usage: floor FOLDER plain|stereo|mono LINES
//
// Starts the cards by the configuration that a daemon has left, says "started", waits for a line on its standard input,
// starts the recordings, spread over the time between two reports as calls come, and says "recording". SIGTERM ends it;
// then it prints how many events and bytes there were. Of a pair stereo puts both sides byte beside byte into one file,
// mono the sums of their samples, by the daemon's own functions: what is left of the difference is what the daemon does
// besides.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "g711.h"
#include "samples.h"
#include "shpa3api.h"
#include "wavheader.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* DRIVER_INI = "/var/morvex/data/ShConfig.ini";
constexpr const char* DRIVER_INDEX = "/var/morvex/data/ShIndex.ini";
constexpr WORD ALL_EVENTS = 0xFFFF;
constexpr int ALL_CHANNELS = -1;
constexpr DWORD RING_BYTES = 4096;
constexpr DWORD REPORT_BYTES = 2048;
constexpr std::size_t AHEAD_BYTES = std::size_t{2} * RING_BYTES;  // one side of a pair before the other
constexpr std::size_t PAIR_BYTES = std::size_t{2} * RING_BYTES;
constexpr DWORD WAIT_MS = 200;
constexpr Clock::duration SPREAD = std::chrono::milliseconds(256);  // REPORT_BYTES last so long
constexpr int BLOCK_CIRCUITS = 30;  // of a trunk: so many channels of one direction, then as many of the other
constexpr int FILE_MODE = 0666;
constexpr std::uint32_t LENGTH_UNKNOWN = 0;

enum EKind { KIND_PLAIN, KIND_STEREO, KIND_MONO };

volatile std::sig_atomic_t fStop = 0;

struct Side {
  std::vector<BYTE> acRing = std::vector<BYTE>(RING_BYTES);
  DWORD dwRead = 0;
  std::size_t uiLine = 0;
  int iOtherCh = -1;            // of a pair
  bool fFirst = false;          // whose samples come first
  std::vector<BYTE> acWaiting;  // of a pair AHEAD_BYTES
  std::size_t uiWaiting = 0;    // of one side of a pair at a time, for the other
};

struct Line {
  int iFd = -1;
  std::array<int, 2> aiChannels = {-1, -1};
};

[[noreturn]] void Die(const char* acWhat) {
  perror(acWhat);
  std::exit(1);
}

class Floor {
 public:
  Floor(EKind eTheKind, std::size_t uiLines) : eKind(eTheKind), vLines(uiLines) {}

  void StartCards() {
    if (SsmStartCti(DRIVER_INI, DRIVER_INDEX) != SSM_OK) DieOfCards();
    EVENT_SET_INFO rSetting;
    rSetting.dwWorkMode = EVENT_POLLING;
    if (SsmSetEvent(ALL_EVENTS, ALL_CHANNELS, 1, &rSetting) != SSM_OK) DieOfCards();
    rSetting.dwOutCondition = REPORT_BYTES;
    rSetting.dwOutParamVal = MEM_BYTES;
    if (SsmSetEvent(E_PROC_RecordMem, ALL_CHANNELS, 1, &rSetting) != SSM_OK) DieOfCards();
    vSides.resize(static_cast<std::size_t>(SsmGetMaxCh()));
  }

  // Named like the daemon's files, so that the line stands in the same place.
  void OpenFiles(const std::string& strFolder) {
    for (std::size_t i = 0; i < vLines.size(); i++) {
      Line& rLine = vLines[i];
      rLine.aiChannels = ChannelsOf(static_cast<int>(i));
      const std::string strName = strFolder + "/00000000_000000_" + std::to_string(i + 1) + "_01.wav";
      rLine.iFd = open(strName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FILE_MODE);
      if (rLine.iFd < 0) Die(strName.c_str());
      const WavHeader rHeader = MakeWavHeader(LAW_A, eKind == KIND_STEREO ? 2 : 1, LENGTH_UNKNOWN);
      Write(rLine, rHeader.data(), rHeader.size());
    }
  }

  // Lines that begin at once report at once for as long as they last. Events are taken meanwhile, as the first rings
  // are soon full.
  void StartRecordings() {
    const Clock::time_point rBegan = Clock::now();
    const auto iLines = static_cast<Clock::duration::rep>(vLines.size());
    for (std::size_t i = 0; i < vLines.size() && fStop == 0; i++) {
      const Clock::time_point rMoment = rBegan + SPREAD * static_cast<Clock::duration::rep>(i) / iLines;
      while (TakeOne(Clock::now() < rMoment ? 1 : 0) || Clock::now() < rMoment) {
      }
      const auto [iCh, iOtherCh] = vLines[i].aiChannels;
      StartSide(i, iCh, iOtherCh);
      if (eKind != KIND_PLAIN) StartSide(i, iOtherCh, iCh);
    }
  }

  void Run() {
    while (fStop == 0) (void)TakeOne(WAIT_MS);
  }

  void Stop() {
    for (const Line& rLine : vLines) {
      for (const int iCh : rLine.aiChannels) {
        if (iCh >= 0) (void)SsmStopRecToMem(iCh);
      }
      (void)close(rLine.iFd);
    }
    (void)SsmCloseCti();
  }

  void PrintCounts() const { printf("{\"events\": %lld, \"bytes\": %lld}\n", iEvents, iBytes); }

 private:
  [[noreturn]] static void DieOfCards() {
    char acText[SSM_ERR_MSG_BYTES] = "";
    SsmGetLastErrMsg(acText);
    fprintf(stderr, "floor: %s\n", acText);
    std::exit(1);
  }

  std::array<int, 2> ChannelsOf(int iIndex) const {
    if (eKind == KIND_PLAIN) return {iIndex, -1};
    const int iCh = iIndex / BLOCK_CIRCUITS * 2 * BLOCK_CIRCUITS + iIndex % BLOCK_CIRCUITS;
    return {iCh, iCh + BLOCK_CIRCUITS};
  }

  // False: there was none within the time.
  bool TakeOne(DWORD dwWaitMs) {
    BYTE acBuffer[EVENT_BUFFER_BYTES];
    SSM_EVENT rEvent;
    rEvent.pvBuffer = acBuffer;
    rEvent.dwBufferLength = EVENT_BUFFER_BYTES;
    const int iResult = SsmWaitForEventA(dwWaitMs, &rEvent);
    if (iResult == SSM_EVENT_TIMEOUT) return false;
    if (iResult != SSM_OK) DieOfCards();
    if (rEvent.wEventCode == E_PROC_RecordMem) Take(rEvent);
    return true;
  }

  Side& SideOf(int iCh) { return vSides[static_cast<std::size_t>(iCh)]; }

  void StartSide(std::size_t uiLine, int iCh, int iOtherCh) {
    Side& rSide = vSides.at(static_cast<std::size_t>(iCh));
    rSide.uiLine = uiLine;
    rSide.iOtherCh = iOtherCh;
    rSide.fFirst = iCh < iOtherCh;
    if (iOtherCh >= 0) rSide.acWaiting.resize(AHEAD_BYTES);
    if (SsmRecToMem(iCh, SSM_FORMAT_ALAW, rSide.acRing.data(), RING_BYTES, 0) != SSM_OK) DieOfCards();
  }

  void Take(const SSM_EVENT& rEvent) {
    iEvents++;
    Side& rSide = SideOf(rEvent.nReference);
    const BYTE* acRing = rSide.acRing.data();
    if (rEvent.dwParam < rSide.dwRead) {
      Add(rSide, acRing + rSide.dwRead, RING_BYTES - rSide.dwRead);
      rSide.dwRead = 0;
    }
    Add(rSide, acRing + rSide.dwRead, rEvent.dwParam - rSide.dwRead);
    rSide.dwRead = rEvent.dwParam;
  }

  void Add(Side& rSide, const BYTE* acAudio, std::size_t uiBytes) {
    if (uiBytes == 0) return;
    if (eKind == KIND_PLAIN) {
      Write(vLines[rSide.uiLine], acAudio, uiBytes);
      return;
    }
    const std::size_t uiPaired = WritePair(rSide, acAudio, uiBytes);
    Keep(rSide, acAudio + uiPaired, uiBytes - uiPaired);
  }

  // As much of a side's audio as the other side has waiting; gives how much that is.
  std::size_t WritePair(const Side& rSide, const BYTE* acAudio, std::size_t uiBytes) {
    Side& rOther = SideOf(rSide.iOtherCh);
    const std::size_t uiPaired = std::min(uiBytes, rOther.uiWaiting);
    if (uiPaired == 0) return 0;
    BYTE* acOther = rOther.acWaiting.data();
    if (eKind == KIND_STEREO) {
      InterleaveSamples(acOut.data(), rSide.fFirst ? acAudio : acOther, rSide.fFirst ? acOther : acAudio, uiPaired);
      Write(vLines[rSide.uiLine], acOut.data(), 2 * uiPaired);
    } else {
      MixSamples(LAW_A, acOther, acAudio, uiPaired);
      Write(vLines[rSide.uiLine], acOther, uiPaired);
    }
    rOther.uiWaiting -= uiPaired;
    if (rOther.uiWaiting > 0) memmove(acOther, acOther + uiPaired, rOther.uiWaiting);
    return uiPaired;
  }

  static void Keep(Side& rSide, const BYTE* acAudio, std::size_t uiBytes) {
    if (uiBytes == 0) return;
    if (rSide.uiWaiting + uiBytes > AHEAD_BYTES) {
      fprintf(stderr, "floor: one side of line %zu is too far ahead\n", rSide.uiLine + 1);
      std::exit(1);
    }
    memcpy(rSide.acWaiting.data() + rSide.uiWaiting, acAudio, uiBytes);
    rSide.uiWaiting += uiBytes;
  }

  void Write(const Line& rLine, const void* pvData, std::size_t uiBytes) {
    if (write(rLine.iFd, pvData, uiBytes) != static_cast<ssize_t>(uiBytes)) Die("write");
    iBytes += static_cast<long long>(uiBytes);
  }

  EKind eKind;
  std::vector<Line> vLines;
  std::vector<Side> vSides;  // by driver channel
  std::array<BYTE, PAIR_BYTES> acOut = {};
  long long iEvents = 0;
  long long iBytes = 0;
};

EKind KindOf(const char* acName) {
  if (strcmp(acName, "plain") == 0) return KIND_PLAIN;
  if (strcmp(acName, "stereo") == 0) return KIND_STEREO;
  if (strcmp(acName, "mono") == 0) return KIND_MONO;
  fprintf(stderr, "floor: no such kind: %s\n", acName);
  std::exit(2);
}

void Say(const char* acText) {
  (void)puts(acText);
  (void)fflush(stdout);
}

}  // namespace

int main(int iArgs, char** acArgs) {
  if (iArgs != 4) {
    fprintf(stderr, "usage: floor FOLDER plain|stereo|mono LINES\n");
    return 2;
  }
  struct sigaction rAction {};
  rAction.sa_handler = [](int) { fStop = 1; };
  (void)sigaction(SIGTERM, &rAction, nullptr);
  Floor rFloor(KindOf(acArgs[2]), std::strtoul(acArgs[3], nullptr, 10));
  rFloor.StartCards();
  Say("started");
  (void)getchar();
  rFloor.OpenFiles(acArgs[1]);
  rFloor.StartRecordings();
  Say("recording");
  rFloor.Run();
  rFloor.Stop();
  rFloor.PrintCounts();
  return 0;
}
