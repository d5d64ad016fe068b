// The road of the audio from the card to the file: ring, pairs, listeners, loudness.
#include "BaseChannel.h"

#include <dlfcn.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>

#include "AnalogChannel.h"
#include "AudioReference.h"
#include "CallBench.h"
#include "SmallDisk.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CLANG_THREAD_SANITIZER
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {
std::atomic<bool> fSeekFails{false};
}  // namespace

extern "C" int fseek(FILE* hFile, long iOffset, int iWhence) {
  static auto* const Seek = reinterpret_cast<int (*)(FILE*, long, int)>(dlsym(RTLD_NEXT, "fseek"));
  if (!fSeekFails) return Seek(hFile, iOffset, iWhence);
  errno = ESPIPE;
  return -1;
}

// -- count of allocations, for RecordMemEventMakesNoAllocation and BuffersAreMadeOnce ---------------------------------

namespace {
std::atomic<long> iAllocations{0};
std::atomic<long> iBufferBytes{0};  // of the allocations that can be a ring or a mixing buffer
void CountAllocation(std::size_t uiBytes) {
  iAllocations++;
  if (uiBytes >= 4096) iBufferBytes += static_cast<long>(uiBytes);
}
}  // namespace

#ifdef CLANG_THREAD_SANITIZER
// This sanitizer defines the operators itself, and tells of each allocation instead.
namespace {
const int iHooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t uiBytes) { CountAllocation(uiBytes); }, [](const volatile void*) {});
}  // namespace
#else
namespace {
void* Allocate(std::size_t uiBytes) {
  CountAllocation(uiBytes);
  if (void* pMemory = malloc(uiBytes > 0 ? uiBytes : 1)) return pMemory;
  throw std::bad_alloc();
}
}  // namespace

void* operator new(std::size_t uiBytes) {
  return Allocate(uiBytes);
}
void* operator new[](std::size_t uiBytes) {
  return Allocate(uiBytes);
}
void operator delete(void* pMemory) noexcept {
  free(pMemory);
}
void operator delete[](void* pMemory) noexcept {
  free(pMemory);
}
void operator delete(void* pMemory, std::size_t) noexcept {
  free(pMemory);
}
void operator delete[](void* pMemory, std::size_t) noexcept {
  free(pMemory);
}
#endif

namespace {

const Texts NOTHING;
constexpr int RING = 4096;
using testtools::NoMoreDescriptors;

// From now on a system call fails in this process when one of its arguments, counted from 0, is above a bound.
void Refuse(unsigned uiSystemCall, unsigned uiArgument, unsigned uiBound) {
  const auto uiOffset = static_cast<unsigned>(offsetof(seccomp_data, args) + uiArgument * sizeof(__u64));
  sock_filter rFilter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, uiSystemCall, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, uiOffset),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, uiBound, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog rProgram = {6, rFilter};
  ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
  ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &rProgram));
}

// Calls on driver channel 0; the pieces that the card hears stay below a ring.
class BaseChannelAudio : public CallBench {
 protected:
  BaseChannelAudio() {
    rRecorder.fSilenceOnDemand = true;
    std::filesystem::create_directories("/recordings/2024/01/31/14");  // for files that stand there before a call
  }

  // The start of a call that is recorded, alone or with the linked channel mixed in; its traces are dropped.
  void Record() {
    OffHook();
    ForgetTraces();
  }
  // The start of a call while this process can open but so many. A sanitizer needs a descriptor for its first look at
  // the class of a test, and so takes it before.
  void BeginWithDescriptors(int iFree) {
    OnHook();
    ForgetTraces();
    const NoMoreDescriptors rLimit(iFree);
    OffHook();
  }
  void RecordPair() {
    rLine.LinkWith(LINKED_CH);
    Record();
  }
  // Ends it, and gives its file.
  std::string HangUp() {
    OnHook();
    return ReadTestFile("/recordings/" + Kept("directory") + "/" + Kept("filename"));
  }
  void Silence(bool fSilent) {
    EXPECT_TRUE(rLine.TrySetSilencing(fSilent));
    (void)Log();
  }
  // A piece that the taker has carried out of the ring.
  void Taken(std::string strBytes, bool fOverrun = false) { Taken(strBytes, fOverrun, rLine); }
  static void Taken(std::string strBytes, bool fOverrun, BaseChannel& rChannel) {
    rChannel.TakenAudio(reinterpret_cast<BYTE*>(strBytes.data()), static_cast<int>(strBytes.size()), fOverrun);
  }
  void HearOwn(const std::string& strBytes) { Hear(DRIVER_CH, strBytes); }
  void HearLinked(const std::string& strBytes) { Hear(LINKED_CH, strBytes); }

  // Both sides of a pair in unequal pieces, in turns that change; every 8000 bytes they have come level, so that the
  // mixing buffer is never short of room.
  void HearPair(const std::string& strOwn, const std::string& strOther) {
    unsigned uiSeed = 5;
    for (std::size_t uiRound = 0; uiRound < strOwn.size(); uiRound += 8000) {
      std::string strRest[] = {strOwn.substr(uiRound, 8000), strOther.substr(uiRound, 8000)};
      while (!strRest[0].empty() || !strRest[1].empty()) {
        uiSeed = uiSeed * 1664525U + 1013904223U;
        const std::size_t uiSide = strRest[1].empty() || (!strRest[0].empty() && (uiSeed & 0x10000) != 0) ? 0 : 1;
        const std::size_t uiPiece = 1 + (uiSeed >> 20) % 3000;
        Hear(static_cast<int>(uiSide), strRest[uiSide].substr(0, uiPiece));
        strRest[uiSide].erase(0, uiPiece);
      }
    }
  }

  const std::string FILE_1 = "/recordings/2024/01/31/14/20240131_142345_007_01.wav";
  const std::string FILE_2 = "/recordings/2024/01/31/14/20240131_142345_007_02.wav";
};

}  // namespace

// -- file -------------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, EmptyALawFileIsItsHeader) {
  Record();
  const std::string strHeader(
      "RIFF\x30\x00\x00\x00WAVEfmt \x10\x00\x00\x00\x06\x00\x01\x00\x40\x1f\x00\x00\x40\x1f\x00\x00\x01\x00\x08\x00"
      "fact\x04\x00\x00\x00\x00\x00\x00\x00"
      "data\x00\x00\x00\x00",
      WAV_HEADER);
  EXPECT_EQ(strHeader, HangUp());
}

TEST_F(BaseChannelAudio, LawFollowsTheEncoding) {
  struct Row {
    ERecEncodings eRecEnc;
    const char* acEnding;
    unsigned uiTag;
    BYTE ucSilence;
    const char* acInfo;
  };
  const Row rRows[] = {
      {RECENC_G711A, ".wav", 6, 0xd5, "Format: alaw\r\nChannels: 1\r\n"},
      {RECENC_G711U, ".wav", 7, 0xff, "Format: ulaw\r\nChannels: 1\r\n"},
      {RECENC_GSM, ".wav.g711", 6, 0xd5, "Format: alaw\r\nChannels: 1\r\n"},
      {RECENC_MP3, ".mp3.g711", 6, 0xd5, "Format: alaw\r\nChannels: 1\r\n"},
  };
  rRecorder.fMonitoring = true;
  SetConfig("RecMinDur", "1");  // no part is kept, so none is converted
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.eRecEnc);
    rRecorder.eRecEnc = rRow.eRecEnc;
    OffHook();
    EXPECT_EQ((Texts{"SsmRecToMem(0," + std::to_string(rRow.uiTag) + ",4096,0)"}), Cards());
    EXPECT_TRUE(rRecorder.MixIn(DRIVER_CH, LINKED_CH));
    EXPECT_EQ((Texts{"SsmRecToMem(1," + std::to_string(rRow.uiTag) + ",4096,0)"}), Cards());
    Silence(true);
    HearOwn("abc");
    const std::string strSilence(3, static_cast<char>(rRow.ucSilence));
    const std::string strId = "/recordings/" + Active("directory") + "/" + Active("remoteid");
    EXPECT_EQ(Wav(rRow.uiTag, 1, 0, strSilence), ReadTestFile(strId + rRow.acEnding));
    const std::string strFinal = "/recordings/" + Active("directory") + "/" + Active("filename");
    EXPECT_EQ(strSilence, ReadTestFile(strFinal + ".raw"));
    EXPECT_EQ(rRow.acInfo, ReadTestFile(strFinal + ".info"));
    rRecorder.StopMixIn(LINKED_CH);
    OnHook();
    ForgetTraces();
  }
}

TEST_F(BaseChannelAudio, FileOfThatNameIsReplaced) {
  WriteTestFile(FILE_1, Noise(3000, 1));
  Record();
  HearOwn("new");
  EXPECT_EQ(Wav(6, 1, "new"), HangUp());
}

TEST_F(BaseChannelAudio, WhatANeighbourLeftUnderItsNamesMakesWay) {
  rRecorder.fMonitoring = true;
  WriteTestFile("/tmp/foreign", "foreign");
  ASSERT_EQ(0, chmod("/tmp/foreign", 0600));
  const auto Link = [](const std::string& strName) { std::filesystem::create_symlink("/tmp/foreign", strName); };
  const auto Fifo = [](const std::string& strName) { ASSERT_EQ(0, mkfifo(strName.c_str(), 0666)); };
  const auto Folder = [](const std::string& strName) { std::filesystem::create_directories(strName + "/inner"); };
  const auto Name = [](const std::string& strName) { std::filesystem::create_hard_link("/tmp/foreign", strName); };
  std::string strFile = FILE_1;
  for (void (*const Put)(const std::string&) : {+Link, +Fifo, +Folder, +Name}) {
    for (const char* const acEnding : {"", ".raw", ".info"}) Put(strFile + acEnding);
    OffHook();
    EXPECT_EQ("5 [7] Recording to file " + strFile, Log().back());
    HearOwn("abc");
    EXPECT_EQ("abc", ReadTestFile(strFile + ".raw"));
    EXPECT_EQ("Format: alaw\r\nChannels: 1\r\n", ReadTestFile(strFile + ".info"));
    EXPECT_EQ(Wav(6, 1, "abc"), HangUp());
    struct stat rStat {};
    EXPECT_EQ(0, stat("/tmp/foreign", &rStat));
    EXPECT_EQ(0600U, rStat.st_mode & 07777U);
    EXPECT_EQ("foreign", ReadTestFile("/tmp/foreign"));
    strFile[FILE_1.size() - 5]++;  // the next recording's
  }
}

TEST_F(BaseChannelAudio, FileThatCannotBeOpenedIsReportedOnceAndTheAudioDropped) {
  BeginWithDescriptors(0);
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Outgoing call", "5 [7] Starting recording",
                   "3 C-api error at OpenAudioFile: Too many open files", "5 [7] Recording to file " + FILE_1}),
            Log());
  HearOwn(Noise(2048, 1));
  HearOwn(Noise(2048, 1));
  Seconds(5);
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (5 s)", "3 Recording lost: " + FILE_1}), Log());
}

TEST_F(BaseChannelAudio, FolderThatCannotBeMadeIsReportedByTheFileAlone) {
  WriteTestFile("/tmp/taken", "foreign");
  rRecorder.strRecordingRoot = "/tmp/taken";
  OffHook();
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Outgoing call", "5 [7] Starting recording",
                   "3 C-api error at OpenAudioFile: Not a directory",
                   "5 [7] Recording to file /tmp/taken/2024/01/31/14/20240131_142345_007_01.wav"}),
            Log());
  OnHook();
  EXPECT_EQ("foreign", ReadTestFile("/tmp/taken"));
}

TEST_F(BaseChannelAudio, NextRecordingGivesBackTheFilesThatTheOneBeforeLeftOpen) {
  rRecorder.fMonitoring = true;
  const int iBefore = OpenDescriptors();
  Record();
  HearOwn("one");
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  OnHook();
  EXPECT_EQ(iBefore + 2, OpenDescriptors());
  BeginWithDescriptors(0);
  ForgetTraces();
  HearOwn("two");
  EXPECT_EQ(iBefore + 1, OpenDescriptors());  // the copy of a live listener
  EXPECT_EQ(Wav(6, 1, "one"), ReadTestFile(FILE_1));
  OnHook();
  EXPECT_EQ(iBefore, OpenDescriptors());
}

TEST_F(BaseChannelAudio, FullDiskIsReportedForEachRangeThatItHits) {
  rRecorder.fMonitoring = true;
  const SmallDisk rDisk("/recordings/2024/01/31/14");
  rDisk.Fill();
  OffHook();
  EXPECT_EQ("5 [7] Recording to file " + FILE_1, Log().back());  // the header reports nothing
  for (const char* const acRange : {"a", "b"}) {
    HearOwn(acRange);
    EXPECT_EQ((Texts{"3 C-api error at Write to recording file: No space left on device",
                     "3 C-api error at Write to monitoring recording file: No space left on device"}),
              Log());
  }
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (0 s)",
                   "3 C-api error at Write header of " + FILE_1 + ": No space left on device"}),
            Log());
}

TEST_F(BaseChannelAudio, RecordingThatBeganOnAFullDiskHasItsHeaderOnceThereIsRoom) {
  for (const bool fUpdate : {true, false}) {
    SCOPED_TRACE(fUpdate ? "in the call" : "at its end");
    const SmallDisk rDisk("/recordings/2024/01/31/14");
    rDisk.Fill();
    Record();
    const std::string strFile = "/recordings/2024/01/31/14/" + Active("filename");
    HearOwn("lost");
    rDisk.MakeRoom();
    const std::string strAudio = Noise(5000, 1);
    HearOwn(strAudio.substr(0, 2048));
    if (fUpdate) {
      EXPECT_EQ(std::string(WAV_HEADER, '\0'), ReadTestFile(strFile).substr(0, WAV_HEADER));
      Seconds(5);
      ExpectSame(Wav(6, 1, 4 + 2048, strAudio.substr(0, 2048)), ReadTestFile(strFile));
    }
    HearOwn(strAudio.substr(2048));
    ExpectSame(Wav(6, 1, 4 + 5000, strAudio), HangUp());
  }
}

TEST_F(BaseChannelAudio, RecordingWithoutHeaderNorItsPlaceHasNoAudio) {
  const SmallDisk rDisk("/recordings/2024/01/31/14");
  rDisk.Fill();
  fSeekFails = true;
  OffHook();
  fSeekFails = false;
  const Texts astrLog = Log();
  EXPECT_EQ((Texts{"3 C-api error at OpenAudioFile: Illegal seek", "5 [7] Recording to file " + FILE_1}),
            Texts(astrLog.end() - 2, astrLog.end()));
  rDisk.MakeRoom();
  HearOwn("lost");
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (0 s)"}), Log());
  EXPECT_EQ("", ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, AudioThatCouldNotBeWrittenIsCounted) {
  rlimit rBefore{};
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &rBefore));
  (void)signal(SIGXFSZ, SIG_IGN);  // so that the write fails, as on a full disk
  Record();
  const rlimit rLimit{WAV_HEADER + 2048, rBefore.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &rLimit));
  HearOwn(Noise(2048, 1));
  HearOwn(Noise(1000, 2));
  OnHook();
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &rBefore));
  (void)signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ("3 C-api error at Write to recording file: File too large", Log().at(0));
  ExpectSame(Wav(6, 1, 3048, Noise(2048, 1)), ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, HeaderIsUpdatedEveryFiveSecondsAndAudioGoesOnWhereItWas) {
  Record();
  HearOwn("one");
  Seconds(4);
  EXPECT_EQ(Wav(6, 1, 0, "one"), ReadTestFile(FILE_1));
  Seconds(1);
  EXPECT_EQ(Wav(6, 1, 3, "one"), ReadTestFile(FILE_1));
  HearOwn("two");
  EXPECT_EQ(Wav(6, 1, 3, "onetwo"), ReadTestFile(FILE_1));
  EXPECT_EQ(Wav(6, 1, 6, "onetwo"), HangUp());
}

TEST_F(BaseChannelAudio, RecordingThatNothingFinishesHasItsLastHeader) {
  {
    EventLine rBusy;
    rRecorder.vChannels = {&rBusy, &rLinked};
    InitLine(rBusy, LINE, DRIVER_CH);
    Send(rBusy, E_RCV_DSTDChannel, DMSG_OFF_HOOK);
    HearOwn("heard");
    EXPECT_EQ(Wav(6, 1, 0, "heard"), ReadTestFile(FILE_1));
  }
  EXPECT_EQ(Wav(6, 1, "heard"), ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, HeaderUpdateMovesNoAudioWhenSeekingFails) {
  const std::string strAudio = Noise(6000, 3);
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    Record();
    HearOwn(strAudio.substr(0, 2048));
    Refuse(SYS_lseek, 1, WAV_HEADER);
    Seconds(5);
    HearOwn(strAudio.substr(2048));
    Seconds(5);
    (void)raise(SIGKILL);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  ASSERT_TRUE(WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGKILL);
  ExpectSame(Wav(6, 1, strAudio), ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, HeaderIsBroughtUpToDateInOneWrite) {
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    Record();
    Refuse(SYS_pwrite64, 3, 0);  // but at the beginning
    HearOwn("heard");
    OnHook();
    _exit(Log() == Texts{"5 [7] Call stops", "5 [7] Recording stopped (0 s)"} ? 0 : 1);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
  ExpectSame(Wav(6, 1, "heard"), ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, HeaderThatIsNotWrittenIsReportedAtTheEndAlone) {
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    Record();
    HearOwn("once ");
    Seconds(5);
    Refuse(SYS_pwrite64, 2, WAV_HEADER - 1);
    HearOwn("heard");
    Seconds(5);
    const Texts astrWhileItRuns = Log();
    OnHook();
    const Texts astrExpected = {"5 [7] Call stops", "5 [7] Recording stopped (10 s)",
                                "3 C-api error at Write header of " + FILE_1 + ": Input/output error"};
    _exit(astrWhileItRuns.empty() && Log() == astrExpected ? 0 : 1);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
  ExpectSame(Wav(6, 1, 5, "once heard"), ReadTestFile(FILE_1));  // as of the update before
}

TEST_F(BaseChannelAudio, HeaderOfAFileThatWasLeftOpenIsReportedByItsOwnName) {
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    Record();
    simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
    OnHook();
    ForgetTraces();
    Refuse(SYS_pwrite64, 2, WAV_HEADER - 1);
    OffHook();
    const Texts astrLog = Log();
    const std::string strExpected = "3 C-api error at Write header of " + FILE_1 + ": Input/output error";
    _exit(std::count(astrLog.begin(), astrLog.end(), strExpected) == 1 ? 0 : 1);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
}

TEST_F(BaseChannelAudio, FileThatTellsAtItsCloseThatItWasNotWrittenIsReported) {
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    rRecorder.fMonitoring = true;
    Record();
    Refuse(SYS_close, 0, STDERR_FILENO);
    OnHook();
    const Texts astrExpected = {"5 [7] Call stops", "5 [7] Recording stopped (0 s)",
                                "3 C-api error at Write to recording file: Input/output error",
                                "3 C-api error at Write to monitoring recording file: Input/output error"};
    _exit(Log() == astrExpected ? 0 : 1);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
}

TEST_F(BaseChannelAudio, KilledProcessLeavesAFileThatPlaysUpToTheLastHeader) {
  const std::string strAudio = Noise(6000, 3);
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    Record();
    HearOwn(strAudio.substr(0, 2048));
    HearOwn(strAudio.substr(2048, 2048));
    Seconds(5);
    HearOwn(strAudio.substr(4096));
    (void)raise(SIGKILL);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  ASSERT_TRUE(WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGKILL);
  ExpectSame(Wav(6, 1, 4096, strAudio), ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, CountPastTwoGigabytesGoesOnUnsigned) {
  Record();
  rLine.iRecordByteCnt = 0x7fffffff;  // three days of audio
  HearOwn("ab");
  EXPECT_EQ(Wav(6, 1, 0x80000001U, "ab"), HangUp());
}

// -- ring buffer ------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, RingOfManyRoundsReachesTheFileInOrder) {
  const std::string strAudio = Noise(40000, 2);
  Record();
  for (std::size_t uiPos = 0; uiPos < strAudio.size(); uiPos += 1500) HearOwn(strAudio.substr(uiPos, 1500));
  ExpectSame(Wav(6, 1, strAudio), HangUp());
}

TEST_F(BaseChannelAudio, BuffersAreMadeOnce) {
  const auto BytesOfNextCall = [this] {
    const long iBefore = iBufferBytes;
    OffHook();
    const long iBytes = iBufferBytes - iBefore;
    OnHook();
    return iBytes;
  };
  EXPECT_EQ(RING, BytesOfNextCall());
  EXPECT_EQ(0, BytesOfNextCall());
  rLine.LinkWith(LINKED_CH);
  EXPECT_EQ(4 * RING + RING, BytesOfNextCall());  // for mixing, and the ring of the linked channel
  EXPECT_EQ(0, BytesOfNextCall());
}

TEST_F(BaseChannelAudio, SilenceCoversWhatIsSpokenWhileItIsOn) {
  Record();
  HearOwn("01234567");
  rRecorder.rSpokenBytes[DRIVER_CH] = 11;  // of which nobody has heard yet
  Silence(true);
  HearOwn("89");
  rRecorder.rSpokenBytes[DRIVER_CH] = 14;
  Silence(false);
  HearOwn("abcdefgh");
  EXPECT_EQ(Wav(6, 1,
                "0123456789a\xd5\xd5\xd5"
                "efgh"),
            HangUp());
}

TEST_F(BaseChannelAudio, SilenceOfAPairCoversEachSideWhereItWasSpoken) {
  rRecorder.fStereo = true;
  rLine.fStereoLine = true;
  RecordPair();
  rRecorder.rSpokenBytes = {{DRIVER_CH, 2}, {LINKED_CH, 5}};
  Silence(true);
  rRecorder.rSpokenBytes = {{DRIVER_CH, 3}, {LINKED_CH, 7}};
  Silence(false);
  HearOwn("01234567");
  HearLinked("abcdefgh");
  EXPECT_EQ(Wav(6, 2,
                Interleaved("01\xd5"
                            "34567",
                            "abcde\xd5\xd5h")),
            HangUp());
}

TEST_F(BaseChannelAudio, SilenceLeavesAloneWhatIsWrittenAlready) {
  Record();
  HearOwn("01234567");
  rRecorder.rSpokenBytes[DRIVER_CH] = 3;
  Silence(true);
  HearOwn("89");
  EXPECT_EQ(Wav(6, 1, "01234567\xd5\xd5"), HangUp());
}

TEST_F(BaseChannelAudio, NextRecordingIsNotSilenced) {
  Record();
  Silence(true);
  OnHook();
  Record();
  HearOwn("heard");
  EXPECT_EQ(Wav(6, 1, "heard"), HangUp());
}

TEST_F(BaseChannelAudio, RangeThatIsEmptyOrLeavesTheBufferWritesNothing) {
  struct Row {
    const char* acLabel;
    int iStart, iStop;
  };
  const Row rRows[] = {
      {"empty", 10, 10},
      {"backwards", 11, 10},
      {"before the buffer", -1, 10},
      {"behind", 0, RING + 1},
      {"wholly behind", RING, RING + 5},
  };
  rLine.WriteMemRange(0, 1);  // no buffer and no file yet
  Record();
  for (const Row& rRow : rRows) {
    rLine.WriteMemRange(rRow.iStart, rRow.iStop);
    EXPECT_EQ(Wav(6, 1, ""), ReadTestFile(FILE_1)) << rRow.acLabel;
  }
  rLine.WriteMemRange(0, RING);
  ExpectSame(Wav(6, 1, std::string(RING, '\0')), HangUp());
}

TEST_F(BaseChannelAudio, SilencedRangeIsOverwrittenInTheBufferToo) {
  rRecorder.eRecEnc = RECENC_G711U;
  Record();
  HearOwn("heard");
  Silence(true);
  HearOwn("hidden");
  Silence(false);
  HearOwn("heard");
  rLine.WriteMemRange(0, 16);  // once more, as the buffer has it
  const std::string strAudio = "heard\xff\xff\xff\xff\xff\xffheard";
  EXPECT_EQ(Wav(7, 1, strAudio + strAudio), HangUp());
}

TEST_F(BaseChannelAudio, RangeWithoutFileAndBaseIsNotSilenced) {
  BeginWithDescriptors(0);
  ForgetTraces();
  Silence(true);
  HearOwn("abc");
  OnHook();
  Record();
  rLine.WriteMemRange(0, 3);  // what the call before has left in the buffer
  EXPECT_EQ(Wav(6, 1, "abc"), HangUp());
}

TEST_F(BaseChannelAudio, RecordMemEventMakesNoAllocation) {
  const auto AllocationsOf = [this](int iDrvCh, const std::string& strBytes) {
    simcards::Hear(iDrvCh, strBytes);
    SSM_EVENT rEvent;
    EXPECT_EQ(SSM_OK, SsmWaitForEventA(0, &rEvent));
    const long iBefore = iAllocations;
    rRecorder.HandleEvent(&rEvent);
    return iAllocations - iBefore;
  };
  struct Row {
    const char* acLabel;
    bool fPair, fStereo;
  };
  const Row rRows[] = {{"plain line", false, false}, {"mixed pair", true, false}, {"stereo pair", true, true}};
  rRecorder.fMonitoring = true;
  rLine.fStereoLine = true;
  InitLines({{"LoudVoiceDetect", "1"}});
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.fStereo = rRow.fStereo;
    rRow.fPair ? RecordPair() : Record();
    const std::string strPiece = Noise(2048, 4);
    for (int i = 0; i < 10; i++) {
      EXPECT_EQ(0, AllocationsOf(DRIVER_CH, strPiece));
      if (rRow.fPair) {
        EXPECT_EQ(0, AllocationsOf(LINKED_CH, strPiece));
      }
    }
    EXPECT_EQ(static_cast<std::size_t>(WAV_HEADER + 20480 * (rRow.fStereo ? 2 : 1)), HangUp().size());
  }
}

// -- from the taker ---------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, TakenPiecesReachTheFile) {
  Record();
  Taken("abc");
  Taken("defg");
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(Wav(6, 1, "abcdefg"), HangUp());
}

TEST_F(BaseChannelAudio, TakenPieceWithoutARecordingGoesNowhere) {
  Taken("abc");
  Record();
  EXPECT_EQ(Wav(6, 1, ""), HangUp());
  Taken("abc");
}

TEST_F(BaseChannelAudio, RecordingEndsBehindWhatIsHandedOver) {
  RecordPair();
  rRecorder.rOnHandOver = [this](int iDrvCh, int iOtherDrvCh) {
    EXPECT_EQ(DRIVER_CH, iDrvCh);
    EXPECT_EQ(LINKED_CH, iOtherDrvCh);
    EXPECT_EQ(NOTHING, Cards());  // the card still records
    Taken("abc");
    Taken("ABC", /*fOverrun=*/false, rLinked);
  };
  EXPECT_EQ(Wav(6, 1, Mixed("abc", "ABC", /*fULaw=*/false)), HangUp());
}

// A card that has gone on with a recording, having refused its stop, refuses the next start; its audio comes all the
// same.
TEST_F(BaseChannelAudio, PairWhoseOwnSideDoesNotStartWaitsForNoOther) {
  rLine.LinkWith(LINKED_CH);
  simcards::FailNext("SsmRecToMem", 1, -1, "goes on");
  Record();
  Taken("abc");
  Taken("def");
  EXPECT_EQ(Wav(6, 1, "abcdef"), HangUp());
}

TEST_F(BaseChannelAudio, LostPieceIsSilenceOfItsLengthAndToldOnceWithAllThatAreLostInARow) {
  Record();
  Taken("abc");
  for (const int iBytes : {2048, 10, 5000}) rLine.LostAudio(iBytes);
  EXPECT_EQ(NOTHING, Log());
  Taken("def");
  EXPECT_EQ((Texts{"3 [7] Audio of {0} lost, too much waits to be written: 7058 bytes are silence"}), Log());
  Taken("ghi");
  EXPECT_EQ(NOTHING, Log());
  ExpectSame(Wav(6, 1, "abc" + std::string(7058, '\xd5') + "defghi"), HangUp());
}

TEST_F(BaseChannelAudio, LostEndOfARecordingIsTold) {
  Record();
  rLine.LostAudio(2048);
  OnHook();
  const Texts astrLog = Log();
  EXPECT_EQ(1, std::count(astrLog.begin(), astrLog.end(),
                          "3 [7] Audio of {0} lost, too much waits to be written: 2048 bytes are silence"));
}

TEST_F(BaseChannelAudio, SidesOfAPairStayLevelWhereOneIsLost) {
  RecordPair();
  rLinked.LostAudio(3);
  Taken("abc");
  Taken("DEF", /*fOverrun=*/false, rLinked);
  Taken("def");
  EXPECT_EQ((Texts{"3 [8] Audio of {1} lost, too much waits to be written: 3 bytes are silence"}), Log());
  EXPECT_EQ(Wav(6, 1,
                Mixed("abcdef",
                      "\xd5\xd5\xd5"
                      "DEF",
                      /*fULaw=*/false)),
            HangUp());
}

TEST_F(BaseChannelAudio, PieceThatCameTooLateIsWrittenAndToldOnceWithAllInARow) {
  Record();
  Taken("abc", /*fOverrun=*/true);
  Taken("defg", /*fOverrun=*/true);
  EXPECT_EQ(NOTHING, Log());
  Taken("hi");
  EXPECT_EQ((Texts{"4 [7] Audio of {0} taken too late: 7 bytes may be overwritten"}), Log());
  EXPECT_EQ(Wav(6, 1, "abcdefghi"), HangUp());
}

// -- mixing -----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, UnequalPiecesAreMixedSampleBySample) {
  for (const bool fULaw : {false, true}) {
    SCOPED_TRACE(fULaw ? "mu-law" : "A-law");
    rRecorder.eRecEnc = fULaw ? RECENC_G711U : RECENC_G711A;
    std::string strOwn, strOther;  // every pair of bytes
    for (int i = 0; i < 65536; i++) {
      strOwn += static_cast<char>(i / 256);
      strOther += static_cast<char>(i % 256);
    }
    RecordPair();
    HearPair(strOwn, strOther);
    EXPECT_EQ(NOTHING, Log());
    ExpectSame(Wav(fULaw ? 7 : 6, 1, Mixed(strOwn, strOther, fULaw)), HangUp());
  }
}

TEST_F(BaseChannelAudio, StereoAlternatesOwnSideFirst) {
  rRecorder.fStereo = true;
  rLine.fStereoLine = true;
  const std::string strOwn = Noise(8000, 21);
  const std::string strOther = Noise(8000, 22);
  RecordPair();
  HearPair(strOwn, strOther);
  const std::string strFile = HangUp();
  ExpectSame(Wav(6, 2, Interleaved(strOwn, strOther)), strFile);
  // 8000 pairs are 16000 bytes, also at "fact".
  EXPECT_EQ(Number(16000, 4), strFile.substr(44, 4));
  EXPECT_EQ(Number(16000, 4), strFile.substr(52, 4));
}

TEST_F(BaseChannelAudio, StereoNeedsBothSettingAndLine) {
  struct Row {
    bool fSetting, fLine, fStereo;
  };
  const Row rRows[] = {{false, false, false}, {true, false, false}, {false, true, false}, {true, true, true}};
  for (const Row& rRow : rRows) {
    rRecorder.fStereo = rRow.fSetting;
    rLine.fStereoLine = rRow.fLine;
    Record();
    EXPECT_EQ(Wav(6, rRow.fStereo ? 2 : 1, ""), HangUp());
  }
}

TEST_F(BaseChannelAudio, PiecesAreWrittenOnceBothSidesHaveCome) {
  RecordPair();
  HearOwn("abcd");
  EXPECT_EQ(Wav(6, 1, ""), ReadTestFile(FILE_1));
  HearLinked("efgh");
  EXPECT_EQ(Wav(6, 1, 0, Mixed("abcd", "efgh", false)), ReadTestFile(FILE_1));
  HearLinked("ij");
  HearOwn("klmn");  // overtakes the other side
  EXPECT_EQ(Wav(6, 1, 0, Mixed("abcd", "efgh", false)), ReadTestFile(FILE_1));
  HearLinked("op");
  EXPECT_EQ(Wav(6, 1, Mixed("abcdklmn", "efghijop", false)), HangUp());
}

TEST_F(BaseChannelAudio, SumsSaturate) {
  struct Row {
    const char* acLabel;
    ERecEncodings eRecEnc;
    unsigned char ucOne, ucOther, ucSum;
  };
  const Row rRows[] = {
      {"A-law, 2 * 32256 becomes 32767", RECENC_G711A, 0xaa, 0xaa, 0xaa},
      {"A-law, 2 * -32256 becomes -32768", RECENC_G711A, 0x2a, 0x2a, 0x2a},
      {"A-law, 32256 + 8 stays in range", RECENC_G711A, 0xaa, 0xd5, 0xaa},
      {"A-law, 8 - 8 is 0, coded as 8", RECENC_G711A, 0xd5, 0x55, 0xd5},
      {"mu-law, 2 * 32124 becomes 32767, which wraps to quiet", RECENC_G711U, 0x80, 0x80, 0xff},
      {"mu-law, 2 * -32124 becomes -32768, which wraps to quiet", RECENC_G711U, 0x00, 0x00, 0x7f},
      {"mu-law, 32124 + 0 stays", RECENC_G711U, 0x80, 0xff, 0x80},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    RecordPair();
    HearOwn(std::string(1, static_cast<char>(rRow.ucOne)));
    HearLinked(std::string(1, static_cast<char>(rRow.ucOther)));
    EXPECT_EQ(std::string(1, static_cast<char>(rRow.ucSum)), HangUp().substr(WAV_HEADER));
  }
}

TEST_F(BaseChannelAudio, PieceThatFindsNoRoomIsDroppedWithAWarning) {
  for (const bool fStereo : {false, true}) {
    SCOPED_TRACE(fStereo ? "stereo" : "mono");
    rRecorder.fStereo = fStereo;
    rLine.fStereoLine = true;
    RecordPair();
    HearOwn("0123456789");  // from here on no piece ends with the ring
    HearLinked("0123456789");
    const std::string strOwn = Noise(8192, 31);
    for (std::size_t i = 0; i < 8192; i += 2048) HearOwn(strOwn.substr(i, 2048));
    EXPECT_EQ(NOTHING, Log());
    HearOwn("x");
    EXPECT_EQ((Texts{"4 [7] Mixing buffer too small 8192,0"}), Log());
    const std::string strOther = Noise(8192, 32);
    for (std::size_t i = 0; i < 6144; i += 2048) HearLinked(strOther.substr(i, 2048));
    HearLinked(strOther.substr(6144, 2047));
    HearLinked("xy");
    EXPECT_EQ((Texts{"4 [7] Mixing buffer too small 8192,8191"}), Log());
    HearLinked(strOther.substr(8191));
    const std::string strAll[] = {"0123456789" + strOwn, "0123456789" + strOther};
    ExpectSame(fStereo ? Wav(6, 2, Interleaved(strAll[0], strAll[1])) : Wav(6, 1, Mixed(strAll[0], strAll[1], false)),
               HangUp());
  }
}

TEST_F(BaseChannelAudio, WhatIsNotLevelAtTheEndIsDiscarded) {
  RecordPair();
  HearOwn("both");
  HearLinked("sides");
  HearOwn("one side only");
  EXPECT_EQ(Wav(6, 1, ""), HangUp());
  Record();
  HearOwn("a");
  HearLinked("b");
  EXPECT_EQ(Wav(6, 1, Mixed("a", "b", false)), HangUp());
}

TEST_F(BaseChannelAudio, AudioForABaseWithoutBuffersIsDropped) {
  BYTE acAudio[RING] = {1, 2, 3};
  rRecorder.MixAudio(DRIVER_CH, acAudio, 3);  // never recorded: no room at all
  EXPECT_EQ((Texts{"4 [7] Mixing buffer too small 0,0"}), Log());
  Record();                                                                  // without knowing of a linked side
  for (int i = 0; i < 3; i++) rRecorder.MixAudio(DRIVER_CH, acAudio, RING);  // takes no room either
  rRecorder.MixAudio(DRIVER_CH, acAudio, 0);
  rRecorder.MixAudio(DRIVER_CH, acAudio, -1);
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(Wav(6, 1, ""), HangUp());
}

TEST_F(BaseChannelAudio, SilencedBaseSilencesBothSides) {
  RecordPair();
  Silence(true);
  HearLinked("far");
  HearOwn("own");
  Silence(false);
  rLinked.WriteMemRange(0, 3);  // once more, as its buffer has it
  HearOwn("now");
  const std::string strQuiet(3, '\xd5');
  EXPECT_EQ(Wav(6, 1, Mixed(strQuiet, strQuiet, false) + Mixed("now", strQuiet, false)), HangUp());
}

TEST_F(BaseChannelAudio, LinkedChannelFeedsTheBaseAndNotAFileOfItsOwn) {
  rLinked.LinkWith(DRIVER_CH);  // of no account while it feeds another recording
  RecordPair();
  HearOwn("a");
  HearLinked("b");
  EXPECT_EQ(Wav(6, 1, Mixed("a", "b", false)), HangUp());
  EXPECT_FALSE(testtools::Exists("/recordings/2024/01/31/14/20240131_142345_008_01.wav"));
}

// -- linked side ------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, MixRecordIsToldAndDrivesTheCard) {
  EXPECT_TRUE(rRecorder.MixIn(3, LINKED_CH));
  EXPECT_EQ((Texts{"5 {1} Mixing this channel to {3}"}), Log());
  EXPECT_EQ((Texts{"SsmRecToMem(1,6,4096,0)"}), Cards());
  rRecorder.StopMixIn(LINKED_CH);
  EXPECT_EQ((Texts{"SsmStopRecToMem(1)"}), Cards());
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(BaseChannelAudio, MixRecordStartsFromPositionZeroAndUnsilenced) {
  RecordPair();
  HearOwn(Noise(77, 1));
  HearLinked(Noise(77, 2));
  EXPECT_TRUE(rLinked.TrySetSilencing(true));
  OnHook();
  Record();
  HearOwn("own");
  HearLinked("far");
  EXPECT_EQ(Wav(6, 1, Mixed("own", "far", false)), HangUp());
}

TEST_F(BaseChannelAudio, RecordingWithoutALinkKnowsNoneBeforeIt) {
  rLine.LinkWith(LINKED_CH);
  Record();
  HearOwn("own");
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");  // the linked side goes on
  OnHook();
  rLine.LinkWith(-1);
  Record();
  HearLinked("far");  // level with what was heard in the call before
  HearOwn("new");
  EXPECT_EQ(Wav(6, 1, "new"), HangUp());
}

TEST_F(BaseChannelAudio, LinkedSideThatDoesNotStartLeavesTheOtherOneHeard) {
  struct Row {
    const char* acLabel;
    ERecEncodings eRecEnc;
    bool fStereo;
    BYTE ucSilence;
  };
  const Row rRows[] = {{"mono", RECENC_G711A, false, 0},
                       {"mono in mu-law", RECENC_G711U, false, 0},
                       {"stereo", RECENC_G711A, true, 0xd5},
                       {"stereo in mu-law", RECENC_G711U, true, 0xff}};
  BYTE acForeign[RING] = {};
  rLine.fStereoLine = true;
  rLine.LinkWith(LINKED_CH);
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    rRecorder.fStereo = rRow.fStereo;
    ASSERT_EQ(SSM_OK, SsmRecToMem(LINKED_CH, SSM_FORMAT_ALAW, acForeign, RING, 0));  // somebody else has it
    OffHook();
    const Texts astrLog = Log();
    EXPECT_EQ((Texts{"5 [7] Starting recording", "5 {1} Mixing this channel to {0}",
                     "3 Error in SsmRecToMem: SsmRecToMem: channel 1 is being recorded"}),
              Texts(astrLog.end() - 4, astrLog.end() - 1));
    ForgetTraces();
    const std::string strOwn = Noise(10000, 51);
    for (std::size_t i = 0; i < strOwn.size(); i += 1999) HearOwn(strOwn.substr(i, 1999));
    HearLinked("none of it is ours");
    OnHook();
    EXPECT_EQ((Texts{"SsmStopRecToMem(1)", "SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), Cards());  // as any pair
    EXPECT_THAT(Orders(), ::testing::Contains("StopMixIn 1"));
    const Texts astrStop = Log();
    EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (0 s)"}),
              Texts(astrStop.begin(), astrStop.begin() + 2));
    const std::string strFile = ReadTestFile("/recordings/" + Kept("directory") + "/" + Kept("filename"));
    const unsigned uiTag = rRow.eRecEnc == RECENC_G711U ? 7 : 6;
    const std::string strSilence(strOwn.size(), static_cast<char>(rRow.ucSilence));
    ExpectSame(rRow.fStereo ? Wav(uiTag, 2, Interleaved(strOwn, strSilence)) : Wav(uiTag, 1, strOwn), strFile);
  }
  RecordPair();  // the card has been stopped, and both are there again
  HearOwn("own");
  HearLinked("far");
  EXPECT_EQ(Wav(7, 2, Interleaved("own", "far")), HangUp());
}

TEST_F(BaseChannelAudio, LinkedSideThatDoesNotExistLeavesTheOtherOneHeard) {
  rLine.LinkWith(3);
  Record();
  HearOwn("own");
  OnHook();
  EXPECT_EQ((Texts{"SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), Cards());
  EXPECT_EQ(Wav(6, 1, "own"), ReadTestFile(FILE_1));
}

TEST_F(BaseChannelAudio, LinkedSideThatTheCardHasGoneOnWithIsHeardToo) {
  RecordPair();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");  // the linked side goes on
  OnHook();
  OffHook();
  EXPECT_THAT(Log(), ::testing::Contains("3 Error in SsmRecToMem: SsmRecToMem: channel 1 is being recorded"));
  HearOwn("own");
  HearLinked("far");
  const std::string strName = "/recordings/" + Active("directory") + "/" + Active("filename");
  EXPECT_EQ(Wav(6, 1, 0, Mixed("own", "far", false)), ReadTestFile(strName));
}

TEST_F(BaseChannelAudio, LinkHoldsUntilTheDriverHasStopped) {
  const Texts FED = {"4 [7] Mixing buffer too small 0,0"};  // the base, which does not record, has no room
  simcards::FailNext("SsmRecToMem", 1, -1, "channel busy");
  EXPECT_FALSE(rRecorder.MixIn(DRIVER_CH, LINKED_CH));
  EXPECT_EQ((Texts{"5 {1} Mixing this channel to {0}", "3 Error in SsmRecToMem: channel busy"}), Log());
  Send(rLinked, E_PROC_RecordMem, 3);
  EXPECT_EQ(FED, Log());
  simcards::FailNext("SsmStopRecToMem", 1, -1, "not recording");
  rRecorder.StopMixIn(LINKED_CH);
  EXPECT_EQ((Texts{"3 Error in SsmStopRecMem: not recording"}), Log());
  Send(rLinked, E_PROC_RecordMem, 6);
  EXPECT_EQ(FED, Log());
  EXPECT_TRUE(rRecorder.MixIn(DRIVER_CH, LINKED_CH));
  rRecorder.StopMixIn(LINKED_CH);
  (void)Log();
  Send(rLinked, E_PROC_RecordMem, 9);
  EXPECT_EQ(NOTHING, Log());
}

// -- the copy of a live listener --------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, LiveCopyFollowsEachWriteBesideTheFinalName) {
  rRecorder.fMonitoring = true;
  rRecorder.eRecEnc = RECENC_GSM;
  SetConfig("RecMinDur", "1");  // not kept, so not converted
  const int iBefore = OpenDescriptors();
  Record();
  EXPECT_EQ("Format: alaw\r\nChannels: 1\r\n", ReadTestFile(FILE_1 + ".info"));
  HearOwn("one");
  EXPECT_EQ("one", ReadTestFile(FILE_1 + ".raw"));
  HearOwn("two");
  EXPECT_EQ("onetwo", ReadTestFile(FILE_1 + ".raw"));
  EXPECT_EQ(Wav(6, 1, 0, "onetwo"), ReadTestFile(FILE_1 + ".g711"));
  OnHook();
  EXPECT_EQ(iBefore, OpenDescriptors());
}

TEST_F(BaseChannelAudio, LiveCopyOfAStereoRecordingSaysOneChannel) {
  rRecorder.fMonitoring = true;
  rRecorder.fStereo = true;
  rLine.fStereoLine = true;
  RecordPair();
  HearOwn("abc");
  HearLinked("def");
  EXPECT_EQ("Format: alaw\r\nChannels: 1\r\n", ReadTestFile(FILE_1 + ".info"));
  EXPECT_EQ("adbecf", ReadTestFile(FILE_1 + ".raw"));
}

TEST_F(BaseChannelAudio, NoLiveCopyWithoutMonitoring) {
  Record();
  HearOwn("abc");
  EXPECT_FALSE(testtools::Exists(FILE_1 + ".raw"));
  EXPECT_FALSE(testtools::Exists(FILE_1 + ".info"));
}

TEST_F(BaseChannelAudio, LiveCopyThatCannotBeOpenedIsLeftOutSilently) {
  rRecorder.fMonitoring = true;
  BeginWithDescriptors(2);  // the recording needs one, and while it is opened one more
  HearOwn("abc");
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Outgoing call", "5 [7] Starting recording",
                   "5 [7] Recording to file " + FILE_1}),
            Log());
  EXPECT_EQ(Wav(6, 1, "abc"), HangUp());
}

TEST_F(BaseChannelAudio, MonitoringSwitchedOffInARecordingStopsTheLiveCopy) {
  const int iBefore = OpenDescriptors();
  rRecorder.fMonitoring = true;
  Record();
  HearOwn("abc");
  rRecorder.fMonitoring = false;
  HearOwn("def");
  EXPECT_EQ("abc", ReadTestFile(FILE_1 + ".raw"));
  EXPECT_EQ(Wav(6, 1, "abcdef"), HangUp());
  EXPECT_EQ(iBefore + 1, OpenDescriptors());  // given back by the destructor, or by the next monitored recording
  rRecorder.fMonitoring = true;
  Record();
  OnHook();
  EXPECT_EQ(iBefore, OpenDescriptors());
}

TEST_F(BaseChannelAudio, CallbackEntryWritesToTheLiveCopyOnly) {
  unsigned char acAudio[] = {'x', 'y'};
  RecordingCallBack(0, acAudio, 2, &rLine);  // no file: nothing
  rRecorder.fMonitoring = true;
  Record();
  RecordingCallBack(0, acAudio, 2, &rLine);
  EXPECT_EQ("xy", ReadTestFile(FILE_1 + ".raw"));
  rLine.OnRecordingData("z", 1);
  EXPECT_EQ("xyz", ReadTestFile(FILE_1 + ".raw"));
  RecordingCallBack(0, acAudio, 2, nullptr);
  EXPECT_EQ(Wav(6, 1, ""), HangUp());
}

// -- loudness ---------------------------------------------------------------------------------------------------------

namespace {

// An analogue line, whose state file tells the level.
class BaseChannelLoudness : public BaseChannelAudio {
 protected:
  BaseChannelLoudness() {
    rRecorder.strDataDir = "/tmp/";
    rRecorder.vChannels = {&rTap, &rLinked};
  }

  // A recorded call; detection is on, the alarm comes with iLen seconds (two windows each) above iThreshold dB.
  void Record(int iThreshold, int iLen) {
    rRecorder.rChannelParams = {{"Trigger", "1"},
                                {"LoudVoiceDetect", "1"},
                                {"LoudnessThr", std::to_string(iThreshold)},
                                {"LoudnessLen", std::to_string(iLen)}};
    InitLine(rTap, LINE, DRIVER_CH);
    Send(rTap, E_CHG_ChState, S_CALL_PICKUPED);
    ForgetTraces();
  }
  void HangUp() { Send(rTap, E_CHG_ChState, S_CALL_STANDBY); }
  std::string Level() {
    EXPECT_EQ(0, rTap.WriteChState());
    return ReadTestFile("/tmp/chstate_7.dat");
  }
  // Whether the second that follows tells the alarm, to log, row and administrator.
  bool Alarms() {
    ForgetTraces();
    SetClock(rNow + 1);
    rTap.Periodic();
    const Texts astrLines = Log();
    if (astrLines.empty()) return false;
    EXPECT_EQ((Texts{"5 [7] Loud audio detected"}), astrLines);
    EXPECT_EQ((Texts{"NotifyAdmin 1 " + Active("remoteid")}), Orders());
    return true;
  }

  AnalogChannel rTap;
};

}  // namespace

TEST_F(BaseChannelLoudness, LevelOfAWindow) {
  struct Row {
    const char* acLabel;
    ERecEncodings eRecEnc;
    unsigned char ucCode;
    const char* acLevel;
  };
  const Row rRows[] = {
      {"mu-law silence, 0", RECENC_G711U, 0xff, "AudioLevel: -30\r\n"},
      {"A-law silence, 8, cut towards zero", RECENC_G711A, 0xd5, "AudioLevel: -1\r\n"},
      {"A-law full scale, 32256", RECENC_G711A, 0xaa, "AudioLevel: 70\r\n"},
      {"A-law full scale, -32256", RECENC_G711A, 0x2a, "AudioLevel: 70\r\n"},
      {"mu-law full scale, 32124", RECENC_G711U, 0x80, "AudioLevel: 70\r\n"},
      {"A-law 4224", RECENC_G711A, 0x85, "AudioLevel: 52\r\n"},
      {"mu-law 8, the smallest that is not 0", RECENC_G711U, 0xfe, "AudioLevel: -1\r\n"},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    Record(100, 1);
    HearOwn(std::string(3999, static_cast<char>(rRow.ucCode)));
    EXPECT_EQ("", Level());
    HearOwn(std::string(1, static_cast<char>(rRow.ucCode)));
    EXPECT_EQ(rRow.acLevel, Level());
    HangUp();
  }
}

TEST_F(BaseChannelLoudness, EachWindowIsMeasuredAnew) {
  Record(100, 1);
  HearOwn(LOUD);
  HearOwn(QUIET.substr(1));
  EXPECT_EQ("AudioLevel: 70\r\n", Level());
  HearOwn("\xd5");
  EXPECT_EQ("AudioLevel: -1\r\n", Level());
}

TEST_F(BaseChannelLoudness, WindowThatACallBeginsEndsWithIt) {
  Record(100, 1);
  HearOwn(LOUD.substr(1));
  HangUp();
  Send(rTap, E_CHG_ChState, S_CALL_PICKUPED);
  HearOwn(QUIET.substr(1));
  EXPECT_EQ("", Level());
  HearOwn("\xd5");
  EXPECT_EQ("AudioLevel: -1\r\n", Level());
}

TEST_F(BaseChannelLoudness, LevelIsTheRootOfTheMeanSquare) {
  Record(100, 1);
  const std::string strAudio = Noise(4000, 41);
  long double dSum = 0;
  for (const char ch : strAudio) {
    const long double dSample = DecodeA(static_cast<unsigned char>(ch)) / 32768.0L;
    dSum += dSample * dSample;
  }
  HearOwn(strAudio);
  const double dRms = std::sqrt(static_cast<double>(dSum / 4000));
  const int iLevel = static_cast<int>(20 * std::log10(dRms) + 70 + 0.5);
  EXPECT_EQ("AudioLevel: " + std::to_string(iLevel) + "\r\n", Level());
}

TEST_F(BaseChannelLoudness, PiecesOfAnyLengthMakeTheLevelsOfTheirWindows) {
  Record(100, 1);
  std::string strAudio = Noise(30 * LOUD.size(), 42);
  double dSum = 0;
  std::string strLevel;
  std::size_t uiPiece = 1;
  std::string strPiece;
  for (std::size_t i = 0; i < strAudio.size(); i++) {
    const auto ucLoudest = static_cast<unsigned char>(i / LOUD.size() * 4 + 7);  // each window is louder than the last
    strAudio[i] = static_cast<char>((static_cast<unsigned char>(strAudio[i]) % ucLoudest) ^ 0xd5);
    const double dSample = DecodeA(static_cast<unsigned char>(strAudio[i])) * 3.0517578125e-05;
    dSum += dSample * dSample;
    if ((i + 1) % LOUD.size() == 0) {
      const auto iLevel = static_cast<int>(20 * std::log10(std::sqrt(dSum / static_cast<double>(LOUD.size()))) + 70.5);
      strLevel = "AudioLevel: " + std::to_string(iLevel) + "\r\n";
      dSum = 0;
    }
    strPiece += strAudio[i];
    if (strPiece.size() < uiPiece) continue;
    HearOwn(strPiece);
    ASSERT_EQ(strLevel, Level()) << i;
    strPiece.clear();
    uiPiece = 1 + i % 1999;
  }
}

TEST_F(BaseChannelLoudness, WindowBegunInStereoIsNoPartOfOneInMono) {
  rRecorder.fStereo = true;
  rRecorder.vChannels = {&rLine, &rLinked};
  InitLines({{"LoudVoiceDetect", "1"}, {"LoudnessThr", "66"}, {"LoudnessLen", "1"}});
  SetConfig("RecMinDur", "10");  // so that the next call knows of this one
  rLine.fStereoLine = true;
  RecordPair();
  for (const char* const acSide : {"own", "linked"}) Hear(*acSide == 'o' ? DRIVER_CH : LINKED_CH, LOUD.substr(1000));
  OnHook();
  rLine.fStereoLine = false;
  rLine.LinkWith(-1);
  CallBench::OffHook();
  HearOwn(LOUD);
  HearOwn(QUIET);
  ForgetTraces();
  Seconds(1);
  EXPECT_EQ(NOTHING, Log());
  HearOwn(LOUD);
  Seconds(1);
  EXPECT_EQ((Texts{"5 [7] Loud audio detected"}), Log());
}

TEST_F(BaseChannelLoudness, StereoWindowHoldsBothSides) {
  rRecorder.fStereo = true;
  rRecorder.vChannels = {&rLine, &rLinked};
  rLine.fStereoLine = true;
  for (const int iThreshold : {66, 67}) {  // full scale on one of two sides is 3 dB less, 67
    InitLines({{"LoudVoiceDetect", "1"}, {"LoudnessThr", std::to_string(iThreshold)}, {"LoudnessLen", "1"}});
    RecordPair();
    HearOwn(LOUD);
    HearLinked(QUIET);
    HearOwn(LOUD.substr(1));
    HearLinked(QUIET.substr(1));
    Seconds(1);
    EXPECT_EQ(NOTHING, Log());  // a pair of samples is missing in the second window
    HearOwn("\xaa");
    HearLinked("\xd5");
    Seconds(1);
    EXPECT_EQ(iThreshold == 66 ? Texts{"5 [7] Loud audio detected"} : NOTHING, Log());
    OnHook();
  }
}

TEST_F(BaseChannelLoudness, SilencedAudioCountsAsQuiet) {
  Record(100, 1);
  EXPECT_TRUE(rTap.TrySetSilencing(true));
  HearOwn(LOUD);
  EXPECT_EQ("AudioLevel: -1\r\n", Level());
}

TEST_F(BaseChannelLoudness, NoLevelWithoutAFile) {
  Record(100, 1);
  HangUp();
  {
    const NoMoreDescriptors rLimit;
    Record(100, 1);
  }
  HearOwn(LOUD);
  EXPECT_EQ("", Level());
}

TEST_F(BaseChannelLoudness, NoLevelUnlessDetectionIsOn) {
  rRecorder.rChannelParams = {{"Trigger", "1"}, {"LoudnessLen", "1"}};
  InitLine(rTap, LINE, DRIVER_CH);
  Send(rTap, E_CHG_ChState, S_CALL_PICKUPED);
  for (int i = 0; i < 4; i++) HearOwn(LOUD);
  EXPECT_EQ("", Level());
  EXPECT_FALSE(Alarms());
}

TEST_F(BaseChannelLoudness, LoudWindowsRaiseTheAlarm) {
  struct Row {
    const char* acLabel;
    const char* acWindows;  // L: 70 dB, q: -1 dB, T: 70 dB under a call-progress tone
    bool fAlarm;
  };
  // Threshold 60 dB, alarm at 4 windows.
  const Row rRows[] = {
      {"quiet windows raise nothing", "qqqqqq", false},
      {"one short of the alarm", "LLL", false},
      {"alarm", "LLLL", true},
      {"quiet windows before do not hurt", "qqqqLLLL", true},
      {"two quiet ones in a row do not hurt", "LqqLqqLqqL", true},
      {"three quiet ones in a row start anew", "LLLqqqLLL", false},
      {"and four more raise it then", "LLLqqqLLLL", true},
      {"two windows under a tone do not hurt", "LLLTTL", true},
      {"three under a tone start anew", "LLLTTTL", false},
      {"windows under a tone raise nothing", "TTTTTT", false},
      {"more than enough", "LLLLLL", true},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    Record(60, 2);
    for (const char* pcWindow = rRow.acWindows; *pcWindow != '\0'; pcWindow++) {
      Send(rTap, E_CHG_ToneAnalyze, *pcWindow == 'T' ? TONE_BUSY : TONE_VOICE);
      HearOwn(*pcWindow == 'q' ? QUIET : LOUD);
    }
    EXPECT_EQ(rRow.fAlarm, Alarms());
    EXPECT_FALSE(Alarms());
    HangUp();
  }
}

TEST_F(BaseChannelLoudness, AlarmIsRaisedOnceACall) {
  Record(60, 1);
  for (const bool fFirst : {true, false}) {
    HearOwn(LOUD);
    HearOwn(LOUD);
    EXPECT_EQ(fFirst, Alarms());
    for (int i = 0; i < 3; i++) HearOwn(QUIET);
  }
  HangUp();
  Send(rTap, E_CHG_ChState, S_CALL_PICKUPED);
  HearOwn(LOUD);
  HearOwn(LOUD);
  EXPECT_TRUE(Alarms());
}

TEST_F(BaseChannelLoudness, AlarmAtNoWindowsIsNeverRaised) {
  Record(60, 0);  // "LoudnessLen" is missing
  for (int i = 0; i < 3; i++) HearOwn(LOUD);
  EXPECT_FALSE(Alarms());
}

TEST_F(BaseChannelLoudness, LevelAtTheThresholdIsNotLoud) {
  for (const int iThreshold : {69, 70}) {
    Record(iThreshold, 1);
    HearOwn(LOUD);
    HearOwn(LOUD);
    EXPECT_EQ(iThreshold == 69, Alarms());
    HangUp();
  }
}

// -- diagnostic -------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, MoreThanFiftyZeroBytesAreWarnedOf) {
  unsigned char acAudio[200] = {};
  memset(acAudio + 60, 1, 140);
  CheckForNull(acAudio, 10, 200, 9);  // 50 zeros
  CheckForNull(acAudio, 9, 9, 9);
  CheckForNull(acAudio, 60, 0, 9);
  EXPECT_EQ(NOTHING, Log());
  CheckForNull(acAudio, 9, 200, 9);
  EXPECT_EQ((Texts{"4 9 Too much zero! CNT: 51"}), Log());
}
