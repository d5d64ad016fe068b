// watch: how late audio is taken and written, seen from inside the process that does it and without its knowledge.
// Preloaded into the daemon and into the floor alike, so that both carry the same weight: two readings of the clock a
// piece, and a place in a histogram.
//
//   due       the simulated cards say it in each report, llReserved2: nanoseconds of the monotonic clock
//   taken     SsmWaitForEventA has returned with the report
//   written   the call that writes the piece's last byte to the recording has returned; the place in the file tells
//             which piece it is, as the cards report every REPORT_BYTES of a line
//
// The shared file BENCH_WATCH has the histograms, and a switch that stops the disk: as long as it is set, no write to a
// recording begins. A recording is a file below RECORDINGS that begins with a WAV header; its name's third part is the
// line. With BENCH_PAIRS lines are circuits, with a second channel each.
// The library takes itself out of LD_PRELOAD, so that children are as they always are.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "shpa3api.h"

namespace {

constexpr std::int64_t REPORT_BYTES = 2048;
constexpr std::int64_t HEADER_BYTES = 56;
constexpr std::size_t CHANNELS_OFFSET = 22;  // in a header
constexpr const char* RECORDINGS = "/recordings/";
constexpr int BLOCK_CIRCUITS = 30;  // of a trunk: so many channels of one direction, then as many of the other
constexpr std::int64_t NS_PER_S = 1'000'000'000;
constexpr std::int64_t NS_PER_US = 1000;
constexpr timespec STOPPED_DISK_PAUSE = {0, 1'000'000};
constexpr std::size_t MAX_DESCRIPTORS = 1U << 16;
constexpr std::size_t MAX_CHANNELS = 1U << 16;
constexpr unsigned REPORTS_KEPT = 256;  // of a line: a minute

// Microseconds, 32 steps to each doubling. The same in machine.py.
constexpr unsigned STEPS = 32;
constexpr unsigned STEP_BITS = 5;
constexpr std::size_t BINS = 1024;

struct Delays {
  std::atomic<std::int64_t> iMaxNs;
  std::atomic<std::int64_t> aiBins[BINS];

  void Add(std::int64_t iNs) {
    const auto uiUs = static_cast<std::uint64_t>(std::max<std::int64_t>(iNs, 0) / NS_PER_US);
    const unsigned uiOctave = uiUs < STEPS ? STEP_BITS : 63U - static_cast<unsigned>(__builtin_clzll(uiUs));
    const std::uint64_t uiBin =
        uiUs < STEPS ? uiUs : (uiOctave - STEP_BITS + 1) * STEPS + (uiUs >> (uiOctave - STEP_BITS)) % STEPS;
    aiBins[std::min<std::uint64_t>(uiBin, BINS - 1)].fetch_add(1, std::memory_order_relaxed);
    if (iNs > iMaxNs.load(std::memory_order_relaxed)) iMaxNs.store(iNs, std::memory_order_relaxed);
  }
};

// The fields that machine.py reads and writes, in its order.
struct Watch {
  std::atomic<std::int64_t> iDiskStopped;
  std::atomic<std::int64_t> iWritesHeld;  // that have met the stopped disk
  Delays rTaken;
  Delays rWritten;
};
static_assert(sizeof(Watch) == 8 * (2 + 2 * (1 + BINS)));

// The reports of a channel's recording, by their number.
struct Reports {
  std::atomic<std::uint32_t> uiTaken;
  std::array<std::int64_t, REPORTS_KEPT> aiDueNs;
};

struct Recording {
  std::atomic<bool> fOpen;
  int iLine;
  int iChannels;
  std::int64_t iAudioBytes;
};

Watch* prWatch = nullptr;
bool fPairs = false;
Reports arReports[MAX_CHANNELS];
Recording arRecordings[MAX_DESCRIPTORS];

__attribute__((constructor)) void Attach() {
  (void)unsetenv("LD_PRELOAD");
  fPairs = getenv("BENCH_PAIRS") != nullptr;
  const char* acFile = getenv("BENCH_WATCH");
  const int iFd = acFile == nullptr ? -1 : open(acFile, O_RDWR | O_CLOEXEC);
  if (iFd < 0) return;
  void* pvWatch = mmap(nullptr, sizeof(Watch), PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
  (void)close(iFd);
  if (pvWatch != MAP_FAILED) prWatch = static_cast<Watch*>(pvWatch);
}

// The function that this library stands in front of.
template <typename Function>
Function* Next(const char* acName) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, acName));
}

std::int64_t NowNs() {
  timespec rNow{};
  (void)clock_gettime(CLOCK_MONOTONIC, &rNow);
  return rNow.tv_sec * NS_PER_S + rNow.tv_nsec;
}

// -- taken ------------------------------------------------------------------------------------------------------------

void NoteTaken(const SSM_EVENT& rEvent) {
  if (prWatch == nullptr || rEvent.wEventCode != E_PROC_RecordMem || rEvent.llReserved2 == 0) return;
  const auto uiCh = static_cast<std::size_t>(rEvent.nReference);
  if (uiCh >= MAX_CHANNELS) return;
  prWatch->rTaken.Add(NowNs() - rEvent.llReserved2);
  Reports& rReports = arReports[uiCh];
  const std::uint32_t uiNumber = rReports.uiTaken.load(std::memory_order_relaxed);
  rReports.aiDueNs[uiNumber % REPORTS_KEPT] = rEvent.llReserved2;
  rReports.uiTaken.store(uiNumber + 1, std::memory_order_release);
}

// When the piece of a channel's recording was due that ends at or behind this byte; 0: not known, or no more.
std::int64_t DueNs(std::size_t uiCh, std::int64_t iBytes) {
  if (uiCh >= MAX_CHANNELS) return 0;
  const Reports& rReports = arReports[uiCh];
  const std::int64_t iNumber = (iBytes - 1) / REPORT_BYTES;
  const std::int64_t iTaken = rReports.uiTaken.load(std::memory_order_acquire);
  if (iNumber >= iTaken || iTaken - iNumber > REPORTS_KEPT) return 0;
  return rReports.aiDueNs[static_cast<std::size_t>(iNumber) % REPORTS_KEPT];
}

// -- written ----------------------------------------------------------------------------------------------------------

// The line that a recording is of; 0: none.
int LineOf(int iFd) {
  char acLink[64];
  char acPath[1024];
  (void)snprintf(acLink, sizeof acLink, "/proc/self/fd/%d", iFd);
  const ssize_t iLen = readlink(acLink, acPath, sizeof acPath - 1);
  if (iLen <= 0) return 0;
  acPath[iLen] = '\0';
  if (strncmp(acPath, RECORDINGS, strlen(RECORDINGS)) != 0) return 0;
  const char* acName = strrchr(acPath, '/') + 1;
  for (int i = 0; i < 2; i++) {
    acName = strchr(acName, '_');
    if (acName == nullptr) return 0;
    acName++;
  }
  return static_cast<int>(strtol(acName, nullptr, 10));
}

Recording* RecordingOf(int iFd) {
  return iFd >= 0 && static_cast<std::size_t>(iFd) < MAX_DESCRIPTORS ? &arRecordings[iFd] : nullptr;
}

bool IsHeader(const void* pvData, std::size_t uiBytes) {
  return uiBytes == HEADER_BYTES && memcmp(pvData, "RIFF", 4) == 0;
}

void HoldWhileStopped(int iFd) {
  const Recording* prRecording = RecordingOf(iFd);
  if (prWatch == nullptr || prWatch->iDiskStopped == 0 || prRecording == nullptr || !prRecording->fOpen) return;
  prWatch->iWritesHeld++;
  while (prWatch->iDiskStopped != 0) (void)nanosleep(&STOPPED_DISK_PAUSE, nullptr);
}

void NoteHeader(int iFd, const void* pvHeader) {
  Recording* prRecording = RecordingOf(iFd);
  if (prRecording == nullptr || prRecording->fOpen) return;
  prRecording->iLine = LineOf(iFd);
  prRecording->iChannels = static_cast<const unsigned char*>(pvHeader)[CHANNELS_OFFSET];
  prRecording->iAudioBytes = 0;
  prRecording->fOpen = prRecording->iLine > 0 && prRecording->iChannels > 0;
}

void NoteAudio(Recording& rRecording, std::int64_t iBytes) {
  rRecording.iAudioBytes += iBytes;
  const std::int64_t iOfChannel = rRecording.iAudioBytes / rRecording.iChannels;
  if (iOfChannel == 0) return;
  const int iIndex = rRecording.iLine - 1;
  const int iCh = fPairs ? iIndex / BLOCK_CIRCUITS * 2 * BLOCK_CIRCUITS + iIndex % BLOCK_CIRCUITS : iIndex;
  std::int64_t iDueNs = DueNs(static_cast<std::size_t>(iCh), iOfChannel);
  if (fPairs) iDueNs = std::max(iDueNs, DueNs(static_cast<std::size_t>(iCh + BLOCK_CIRCUITS), iOfChannel));
  if (iDueNs != 0) prWatch->rWritten.Add(NowNs() - iDueNs);
}

void NoteWritten(int iFd, const void* pvData, std::int64_t iBytes) {
  if (prWatch == nullptr || iBytes <= 0) return;
  if (IsHeader(pvData, static_cast<std::size_t>(iBytes))) {
    NoteHeader(iFd, pvData);
    return;
  }
  Recording* prRecording = RecordingOf(iFd);
  if (prRecording != nullptr && prRecording->fOpen) NoteAudio(*prRecording, iBytes);
}

void NoteClosed(int iFd) {
  if (Recording* prRecording = RecordingOf(iFd); prRecording != nullptr) prRecording->fOpen = false;
}

}  // namespace

extern "C" {

int SsmWaitForEventA(DWORD dwTimeOut, PSSM_EVENT pEvent) {
  static auto* const prNext = Next<int(DWORD, PSSM_EVENT)>("SsmWaitForEventA");
  const int iResult = prNext(dwTimeOut, pEvent);
  if (iResult == SSM_OK) NoteTaken(*pEvent);
  return iResult;
}

int SsmRecToMem(int nCh, int nFormat, LPBYTE pBuf, DWORD dwBufSize, DWORD dwReserved) {
  static auto* const prNext = Next<int(int, int, LPBYTE, DWORD, DWORD)>("SsmRecToMem");
  if (nCh >= 0 && static_cast<std::size_t>(nCh) < MAX_CHANNELS) arReports[nCh].uiTaken = 0;
  return prNext(nCh, nFormat, pBuf, dwBufSize, dwReserved);
}

ssize_t write(int iFd, const void* pvData, size_t uiBytes) {
  static auto* const prNext = Next<ssize_t(int, const void*, size_t)>("write");
  HoldWhileStopped(iFd);
  const ssize_t iWritten = prNext(iFd, pvData, uiBytes);
  NoteWritten(iFd, pvData, iWritten);
  return iWritten;
}

// Lengths of a header are written anew in their place, which is no audio.
ssize_t pwrite(int iFd, const void* pvData, size_t uiBytes, off_t iOffset) {
  static auto* const prNext = Next<ssize_t(int, const void*, size_t, off_t)>("pwrite");
  HoldWhileStopped(iFd);
  const ssize_t iWritten = prNext(iFd, pvData, uiBytes, iOffset);
  if (iOffset == 0 || iOffset >= HEADER_BYTES) NoteWritten(iFd, pvData, iWritten);
  return iWritten;
}

size_t fwrite(const void* pvData, size_t uiSize, size_t uiCount, FILE* hFile) {
  static auto* const prNext = Next<size_t(const void*, size_t, size_t, FILE*)>("fwrite");
  HoldWhileStopped(fileno(hFile));
  const size_t uiWritten = prNext(pvData, uiSize, uiCount, hFile);
  NoteWritten(fileno(hFile), pvData, static_cast<std::int64_t>(uiWritten * uiSize));
  return uiWritten;
}

int close(int iFd) {
  static auto* const prNext = Next<int(int)>("close");
  NoteClosed(iFd);
  return prNext(iFd);
}

int fclose(FILE* hFile) {
  static auto* const prNext = Next<int(FILE*)>("fclose");
  NoteClosed(fileno(hFile));
  return prNext(hFile);
}

}  // extern "C"
