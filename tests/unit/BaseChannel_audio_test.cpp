#include "BaseChannel.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "AudioReference.h"
#include "ChannelBench.h"

// -- count of allocations of this program, for RecordMemEventMakesNoAllocation ---------------------------------------

namespace {
std::atomic<long> iAllocations{0};
void* Allocate(std::size_t uiBytes) {
  iAllocations++;
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

namespace {

const Texts NOTHING;
constexpr int RING = 4096;

class BaseChannelAudio : public ChannelBench {
 protected:
  BaseChannelAudio() {
    InitLine(rBase, 1, 0);
    InitLine(rLinked, 2, 1);
    rRecorder.vChannels = {&rBase, &rLinked};
    rBase.strFullFilename = FILE_NAME;
    rBase.strFullFilenameFinal = FILE_NAME;
  }

  void Open() {
    rBase.BasicRecordingPreparation();
    rBase.OpenAudioFile();
  }
  void OpenPair() {
    rBase.iLinkedCh = 1;
    Open();
    rRecorder.MixIn(0, 1);
  }
  std::string CloseAndRead() {
    rBase.CloseAudioFile();
    return FileBytes(FILE_NAME);
  }

  // What the card does: writes behind the last position, around the ring, and reports the new one.
  static void Deliver(TestChannel& rChannel, const std::string& strBytes) {
    int iPos = rChannel.iRecordOffset;
    for (const char ch : strBytes) {
      rChannel.acRecordBuf[iPos % RING] = static_cast<BYTE>(ch);
      iPos++;
    }
    SSM_EVENT rEvent = simcards::MakeEvent(E_PROC_RecordMem, rChannel.iDrvCh, static_cast<DWORD>(iPos % RING));
    rChannel.DefaultEventHandle(&rEvent);
  }

  static void MixAdd(TestChannel& rChannel, const std::string& strBytes, int iType) {
    rChannel.MixAdd(reinterpret_cast<const BYTE*>(strBytes.data()), static_cast<int>(strBytes.size()), iType);
  }
  static void WriteBuf(TestChannel& rChannel, const std::string& strBytes) {
    rChannel.WriteBuf(reinterpret_cast<const BYTE*>(strBytes.data()), static_cast<int>(strBytes.size()));
  }

  // Both sides of a pair in unequal pieces, in turns that change; every 8000 bytes they have come level, so that the
  // mixing buffer is never short of room.
  void DeliverPair(const std::string& strOwn, const std::string& strOther) {
    unsigned uiSeed = 5;
    for (std::size_t uiRound = 0; uiRound < strOwn.size(); uiRound += 8000) {
      std::string strRest[] = {strOwn.substr(uiRound, 8000), strOther.substr(uiRound, 8000)};
      while (!strRest[0].empty() || !strRest[1].empty()) {
        uiSeed = uiSeed * 1664525U + 1013904223U;
        const std::size_t uiSide = strRest[1].empty() || (!strRest[0].empty() && (uiSeed & 0x10000) != 0) ? 0 : 1;
        const std::size_t uiPiece = 1 + (uiSeed >> 20) % 3000;
        Deliver(uiSide == 0 ? rBase : rLinked, strRest[uiSide].substr(0, uiPiece));
        strRest[uiSide].erase(0, uiPiece);
      }
    }
  }

  static constexpr const char* FILE_NAME = "/recordings/a.wav";
  TestChannel rBase;
  TestChannel rLinked;
};

}  // namespace

// -- file ------------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, EmptyALawFileIsItsHeader) {
  Open();
  const std::string strHeader(
      "RIFF\x30\x00\x00\x00WAVEfmt \x10\x00\x00\x00\x06\x00\x01\x00\x40\x1f\x00\x00\x40\x1f\x00\x00\x01\x00\x08\x00"
      "fact\x04\x00\x00\x00\x00\x00\x00\x00"
      "data\x00\x00\x00\x00",
      WAV_HEADER);
  EXPECT_EQ(strHeader, CloseAndRead());
  EXPECT_EQ(nullptr, rBase.hAudioFile);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelAudio, LawFollowsTheEncoding) {
  struct Row {
    ERecEncodings eRecEnc;
    unsigned uiTag;
    int iFormat;
    BYTE ucSilence;
    const char* acInfo;
  };
  const Row rRows[] = {
      {RECENC_G711A, 6, 6, 0xd5, "Format: alaw\r\nChannels: 1\r\n"},
      {RECENC_G711U, 7, 7, 0xff, "Format: ulaw\r\nChannels: 1\r\n"},
      {RECENC_GSM, 6, 6, 0xd5, "Format: alaw\r\nChannels: 1\r\n"},
      {RECENC_MP3, 6, 6, 0xd5, "Format: alaw\r\nChannels: 1\r\n"},
  };
  rRecorder.fMonitoring = true;
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.eRecEnc);
    rRecorder.eRecEnc = rRow.eRecEnc;
    Open();
    rBase.fSilencing = true;
    Deliver(rBase, "abc");
    const std::string strSilence(3, static_cast<char>(rRow.ucSilence));
    EXPECT_EQ(Wav(rRow.uiTag, 1, strSilence), CloseAndRead());
    EXPECT_EQ(strSilence, FileBytes("/recordings/a.wav.raw"));
    EXPECT_EQ(rRow.acInfo, FileBytes("/recordings/a.wav.info"));

    (void)simcards::TakeCalls();
    rLinked.StartMixRecord(0);
    EXPECT_EQ((Texts{"SsmRecToMem(1," + std::to_string(rRow.iFormat) + ",4096,0)"}), simcards::TakeCalls());
    rLinked.StopMixRecord();
  }
}

TEST_F(BaseChannelAudio, FileOfThatNameIsReplaced) {
  Open();
  Deliver(rBase, Noise(2048, 1));
  (void)CloseAndRead();
  Open();
  Deliver(rBase, "new");
  EXPECT_EQ(Wav(6, 1, "new"), CloseAndRead());
}

TEST_F(BaseChannelAudio, FileThatCannotBeOpenedIsReportedOnceAndTheAudioDropped) {
  rBase.strFullFilename = "/recordings/none/a.wav";
  Open();
  EXPECT_EQ(nullptr, rBase.hAudioFile);
  EXPECT_EQ((Texts{"3 C-api error at OpenAudioFile: No such file or directory"}), logsink::TakeTexts());
  Deliver(rBase, Noise(2048, 1));
  Deliver(rBase, Noise(2048, 1));
  rBase.UpdateAudioFileHeader();
  rBase.CloseAudioFile();
  EXPECT_EQ(0, rBase.iRecordByteCnt);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelAudio, NextRecordingGivesBackTheFilesThatTheOneBeforeLeftOpen) {
  rRecorder.fMonitoring = true;
  const int iBefore = OpenDescriptors();
  Open();
  Open();  // the driver has refused to stop, so nothing was closed
  EXPECT_EQ(iBefore + 2, OpenDescriptors());
  rBase.strFullFilename = "/recordings/none/a.wav";
  rBase.OpenAudioFile();
  EXPECT_EQ(nullptr, rBase.hAudioFile);
}

TEST_F(BaseChannelAudio, FailedWritesAreReportedAndCounted) {
  rRecorder.fMonitoring = true;
  Open();
  (void)fclose(rBase.hAudioFile);
  (void)fclose(rBase.hRawFile);
  rBase.hAudioFile = fopen("/dev/full", "wb");
  rBase.hRawFile = fopen("/dev/full", "wb");
  ASSERT_NE(nullptr, rBase.hAudioFile);
  ASSERT_NE(nullptr, rBase.hRawFile);
  (void)setvbuf(rBase.hAudioFile, nullptr, _IONBF, 0);
  (void)setvbuf(rBase.hRawFile, nullptr, _IONBF, 0);
  (void)logsink::Take();
  Deliver(rBase, Noise(2048, 1));
  EXPECT_EQ((Texts{"3 C-api error at Write to recording file: No space left on device",
                   "3 C-api error at Write to monitoring recording file: No space left on device"}),
            logsink::TakeTexts());
  EXPECT_EQ(2048, rBase.iRecordByteCnt);
}

TEST_F(BaseChannelAudio, FullDiskIsReportedForTheRangeThatItHit) {
  // A link, so that the file is opened as the channel opens it.
  ASSERT_EQ(0, symlink("/dev/full", "/recordings/full.wav"));
  rBase.strFullFilename = "/recordings/full.wav";
  Open();
  ASSERT_NE(nullptr, rBase.hAudioFile);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());  // the header reports nothing
  const Texts astrReport = {"3 C-api error at Write to recording file: No space left on device"};
  Deliver(rBase, "a");
  EXPECT_EQ(astrReport, logsink::TakeTexts());
  Deliver(rBase, "b");
  EXPECT_EQ(astrReport, logsink::TakeTexts());
  rBase.CloseAudioFile();
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  ASSERT_EQ(0, unlink("/recordings/full.wav"));
}

TEST_F(BaseChannelAudio, HeaderUpdateCountsAndGoesOnWhereItWas) {
  Open();
  Deliver(rBase, "one");
  EXPECT_EQ(Wav(6, 1, 0, "one"), FileBytes(FILE_NAME));
  rBase.UpdateAudioFileHeader();
  EXPECT_EQ(Wav(6, 1, 3, "one"), FileBytes(FILE_NAME));
  Deliver(rBase, "two");
  EXPECT_EQ(Wav(6, 1, 3, "onetwo"), FileBytes(FILE_NAME));
  EXPECT_EQ(Wav(6, 1, 6, "onetwo"), CloseAndRead());
}

TEST_F(BaseChannelAudio, KilledProcessLeavesAFileThatPlaysUpToTheLastHeader) {
  const std::string strAudio = Noise(6000, 3);
  const pid_t iChild = fork();
  ASSERT_NE(-1, iChild);
  if (iChild == 0) {
    Open();
    Deliver(rBase, strAudio.substr(0, 2048));
    Deliver(rBase, strAudio.substr(2048, 2048));
    rBase.UpdateAudioFileHeader();
    Deliver(rBase, strAudio.substr(4096));
    (void)raise(SIGKILL);
  }
  int iStatus = 0;
  ASSERT_EQ(iChild, waitpid(iChild, &iStatus, 0));
  ASSERT_TRUE(WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGKILL);
  ExpectSame(Wav(6, 1, 4096, strAudio), FileBytes(FILE_NAME));
}

TEST_F(BaseChannelAudio, CountPastTwoGigabytesGoesOnUnsigned) {
  Open();
  rBase.iRecordByteCnt = 0x7fffffff;
  Deliver(rBase, "ab");
  EXPECT_EQ(Wav(6, 1, 0x80000001U, "ab"), CloseAndRead());
}

// -- ring buffer -----------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, RingOfManyRoundsReachesTheFileInOrder) {
  const std::string strAudio = Noise(40000, 2);
  Open();
  for (std::size_t uiPos = 0; uiPos < strAudio.size(); uiPos += 1500) Deliver(rBase, strAudio.substr(uiPos, 1500));
  ExpectSame(Wav(6, 1, strAudio), CloseAndRead());
}

TEST_F(BaseChannelAudio, PreparationMakesBuffersOnceAndEndsSilencing) {
  rBase.fSilencing = true;
  rBase.BasicRecordingPreparation();
  EXPECT_FALSE(rBase.fSilencing);
  EXPECT_EQ(RING, rBase.iRecordBufSize);
  ASSERT_NE(nullptr, rBase.acRecordBuf);
  EXPECT_EQ(nullptr, rBase.acMixBuffer);

  BYTE* const acFirst = rBase.acRecordBuf;
  rBase.iLinkedCh = 1;
  rBase.iMixBufIx[0] = 5;
  rBase.iMixBufIx[1] = 6;
  rBase.BasicRecordingPreparation();
  EXPECT_EQ(acFirst, rBase.acRecordBuf);
  ASSERT_NE(nullptr, rBase.acMixBuffer);
  EXPECT_EQ(0, rBase.iMixBufIx[0]);
  EXPECT_EQ(0, rBase.iMixBufIx[1]);

  BYTE* const acFirstMix = rBase.acMixBuffer;
  rBase.BasicRecordingPreparation();
  EXPECT_EQ(acFirstMix, rBase.acMixBuffer);
}

TEST_F(BaseChannelAudio, PreparationWithoutLinkLeavesTheMixLevels) {
  rBase.iMixBufIx[0] = 5;
  rBase.BasicRecordingPreparation();
  EXPECT_EQ(5, rBase.iMixBufIx[0]);
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
  Open();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rBase.WriteMemRange(rRow.iStart, rRow.iStop);
    EXPECT_EQ(0, rBase.iRecordByteCnt);
  }
  rBase.WriteMemRange(0, RING);
  EXPECT_EQ(RING, rBase.iRecordByteCnt);
}

TEST_F(BaseChannelAudio, SilencedRangeIsOverwrittenInTheBufferToo) {
  rRecorder.eRecEnc = RECENC_G711U;
  Open();
  Deliver(rBase, "heard");
  rBase.fSilencing = true;
  Deliver(rBase, "hidden");
  rBase.fSilencing = false;
  Deliver(rBase, "heard");
  EXPECT_EQ(0, memcmp(rBase.acRecordBuf, "heard\xff\xff\xff\xff\xff\xffheard", 16));
  EXPECT_EQ(Wav(7, 1, "heard\xff\xff\xff\xff\xff\xffheard"), CloseAndRead());
}

TEST_F(BaseChannelAudio, RangeWithoutFileAndBaseIsNotSilenced) {
  rBase.BasicRecordingPreparation();
  rBase.fSilencing = true;
  Deliver(rBase, "abc");
  EXPECT_EQ(0, memcmp(rBase.acRecordBuf, "abc", 3));
}

TEST_F(BaseChannelAudio, RecordMemEventMakesNoAllocation) {
  struct Row {
    const char* acLabel;
    bool fPair, fStereo;
  };
  const Row rRows[] = {{"plain line", false, false}, {"mixed pair", true, false}, {"stereo pair", true, true}};
  rRecorder.fMonitoring = true;
  rBase.fCalcLoudness = true;
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.fStereo = rRow.fStereo;
    rBase.fStereoLine = true;
    rRow.fPair ? OpenPair() : Open();
    const std::string strPiece = Noise(2048, 4);
    const long iBefore = iAllocations;
    for (int i = 0; i < 10; i++) {
      Deliver(rBase, strPiece);
      if (rRow.fPair) Deliver(rLinked, strPiece);
    }
    EXPECT_EQ(iBefore, iAllocations);
    EXPECT_EQ(20480 * (rRow.fStereo ? 2 : 1), rBase.iRecordByteCnt);
    (void)CloseAndRead();
  }
}

// -- mixing ----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, UnequalPiecesAreMixedSampleBySample) {
  for (const bool fULaw : {false, true}) {
    SCOPED_TRACE(fULaw ? "mu-law" : "A-law");
    rRecorder.eRecEnc = fULaw ? RECENC_G711U : RECENC_G711A;
    std::string strOwn, strOther;  // every pair of bytes
    for (int i = 0; i < 65536; i++) {
      strOwn += static_cast<char>(i / 256);
      strOther += static_cast<char>(i % 256);
    }
    OpenPair();
    (void)logsink::Take();
    DeliverPair(strOwn, strOther);
    ExpectSame(Wav(fULaw ? 7 : 6, 1, Mixed(strOwn, strOther, fULaw)), CloseAndRead());
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
    rRecorder.StopMixIn(1);
  }
}

TEST_F(BaseChannelAudio, StereoAlternatesOwnSideFirst) {
  rRecorder.fStereo = true;
  rBase.fStereoLine = true;
  const std::string strOwn = Noise(8000, 21);
  const std::string strOther = Noise(8000, 22);
  OpenPair();
  EXPECT_TRUE(rBase.fDoStereo);
  DeliverPair(strOwn, strOther);
  const std::string strFile = CloseAndRead();
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
    rBase.fStereoLine = rRow.fLine;
    Open();
    EXPECT_EQ(rRow.fStereo, rBase.fDoStereo);
    EXPECT_EQ(rRow.fStereo ? 8000 : 4000, rBase.iCalcLoudnessSamples);
    EXPECT_EQ(Wav(6, rRow.fStereo ? 2 : 1, ""), CloseAndRead());
  }
}

TEST_F(BaseChannelAudio, EqualPiecesAreWrittenOnceWhenTheSecondSideHasCome) {
  OpenPair();
  MixAdd(rBase, "abcd", 0);
  EXPECT_EQ(0, rBase.iRecordByteCnt);
  EXPECT_EQ(0, memcmp(rBase.acMixBuffer, "abcd", 4));
  MixAdd(rBase, "efgh", 1);
  EXPECT_EQ(4, rBase.iRecordByteCnt);
  EXPECT_EQ(0, rBase.iMixBufIx[0]);
  EXPECT_EQ(0, rBase.iMixBufIx[1]);
  EXPECT_EQ(Wav(6, 1, Mixed("abcd", "efgh", false)), CloseAndRead());
}

TEST_F(BaseChannelAudio, PieceThatOvertakesTheOtherSideIsHalfMixedHalfCopied) {
  OpenPair();
  MixAdd(rBase, "ab", 1);
  MixAdd(rBase, "cdef", 0);
  EXPECT_EQ(4, rBase.iMixBufIx[0]);
  EXPECT_EQ(2, rBase.iMixBufIx[1]);
  EXPECT_EQ(Mixed("ab", "cd", false) + "ef", std::string(reinterpret_cast<char*>(rBase.acMixBuffer), 4));
  EXPECT_EQ(0, rBase.iRecordByteCnt);
  MixAdd(rBase, "gh", 1);
  EXPECT_EQ(Wav(6, 1, Mixed("abgh", "cdef", false)), CloseAndRead());
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
    OpenPair();
    MixAdd(rBase, std::string(1, static_cast<char>(rRow.ucOne)), 0);
    MixAdd(rBase, std::string(1, static_cast<char>(rRow.ucOther)), 1);
    EXPECT_EQ(std::string(1, static_cast<char>(rRow.ucSum)), CloseAndRead().substr(WAV_HEADER));
  }
}

TEST_F(BaseChannelAudio, PieceThatFindsNoRoomIsDroppedWithAWarning) {
  for (const bool fStereo : {false, true}) {
    SCOPED_TRACE(fStereo ? "stereo" : "mono");
    rRecorder.fStereo = fStereo;
    rBase.fStereoLine = true;
    OpenPair();
    (void)logsink::Take();
    const std::string strOwn = Noise(8192, 31);
    MixAdd(rBase, strOwn.substr(0, 4096), 0);
    MixAdd(rBase, strOwn.substr(4096), 0);
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
    MixAdd(rBase, "x", 0);
    EXPECT_EQ((Texts{"4 [1] Mixing buffer too small 8192,0"}), logsink::TakeTexts());
    const std::string strOther = Noise(8192, 32);
    MixAdd(rBase, strOther.substr(0, 8191), 1);
    MixAdd(rBase, "xy", 1);
    EXPECT_EQ((Texts{"4 [1] Mixing buffer too small 8192,8191"}), logsink::TakeTexts());
    MixAdd(rBase, strOther.substr(8191), 1);
    ExpectSame(fStereo ? Wav(6, 2, Interleaved(strOwn, strOther)) : Wav(6, 1, Mixed(strOwn, strOther, false)),
               CloseAndRead());
  }
}

TEST_F(BaseChannelAudio, WhatIsNotLevelAtTheEndIsDiscarded) {
  OpenPair();
  Deliver(rBase, "both");
  Deliver(rLinked, "sides");
  Deliver(rBase, "one side only");
  EXPECT_EQ(std::string(), CloseAndRead().substr(WAV_HEADER));
  Open();
  Deliver(rBase, "a");
  rLinked.iRecordOffset = 0;
  Deliver(rLinked, "b");
  EXPECT_EQ(Wav(6, 1, Mixed("a", "b", false)), CloseAndRead());
}

TEST_F(BaseChannelAudio, AudioForABaseWithoutBuffersIsDropped) {
  BYTE acAudio[] = {1, 2, 3};
  rBase.MixAudio(acAudio, 3);  // never recorded: no room at all
  EXPECT_EQ((Texts{"4 [1] Mixing buffer too small 0,0"}), logsink::TakeTexts());
  Open();  // records without knowing of a linked side
  rBase.MixAudio(acAudio, 3);
  rBase.MixAudio(acAudio, 0);
  rBase.MixAudio(acAudio, -1);
  EXPECT_EQ(0, rBase.iMixBufIx[1]);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(Wav(6, 1, ""), CloseAndRead());
}

TEST_F(BaseChannelAudio, SilencedBaseSilencesBothSides) {
  OpenPair();
  rBase.fSilencing = true;
  Deliver(rLinked, "far");
  Deliver(rBase, "own");
  const std::string strQuiet(3, '\xd5');
  EXPECT_EQ(Wav(6, 1, Mixed(strQuiet, strQuiet, false)), CloseAndRead());
  EXPECT_EQ(0, memcmp(rLinked.acRecordBuf, strQuiet.data(), 3));
}

TEST_F(BaseChannelAudio, LinkedChannelFeedsTheBaseAndNotAFileOfItsOwn) {
  rLinked.iLinkedCh = 0;  // of no account while it feeds another recording
  OpenPair();
  Deliver(rBase, "a");
  Deliver(rLinked, "b");
  EXPECT_EQ(0, rLinked.iRecordByteCnt);
  EXPECT_EQ(Wav(6, 1, Mixed("a", "b", false)), CloseAndRead());
}

// -- linked side -----------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, MixRecordStartsTheDriverFromPositionZero) {
  rLinked.iRecordOffset = 77;
  rLinked.fSilencing = true;
  rLinked.StartMixRecord(3);
  EXPECT_EQ(3, rLinked.iBaseRecCh);
  EXPECT_EQ(0, rLinked.iRecordOffset);
  EXPECT_FALSE(rLinked.fSilencing);
  EXPECT_NE(nullptr, rLinked.acRecordBuf);
  EXPECT_EQ((Texts{"5 {1} Mixing this channel to {3}"}), logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmRecToMem(1,6,4096,0)"}), simcards::TakeCalls());
  rLinked.StopMixRecord();
  EXPECT_EQ(-1, rLinked.iBaseRecCh);
  EXPECT_EQ((Texts{"SsmStopRecToMem(1)"}), simcards::TakeCalls());
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelAudio, MixRecordThatDoesNotStartStaysLinked) {
  simcards::FailNext("SsmRecToMem", 1, -1, "channel busy");
  rLinked.StartMixRecord(0);
  EXPECT_EQ((Texts{"5 {1} Mixing this channel to {0}", "3 Error in SsmRecToMem: channel busy"}), logsink::TakeTexts());
  EXPECT_EQ(0, rLinked.iBaseRecCh);
}

TEST_F(BaseChannelAudio, MixRecordThatDoesNotStopStaysLinked) {
  rLinked.StartMixRecord(0);
  (void)logsink::Take();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "not recording");
  rLinked.StopMixRecord();
  EXPECT_EQ((Texts{"3 Error in SsmStopRecMem: not recording"}), logsink::TakeTexts());
  EXPECT_EQ(0, rLinked.iBaseRecCh);
}

// -- the copy of a live listener -------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, LiveCopyFollowsEachWrite) {
  rRecorder.fMonitoring = true;
  rBase.strFullFilename = "/recordings/a.wav.g711";
  Open();
  EXPECT_EQ("Format: alaw\r\nChannels: 1\r\n", FileBytes("/recordings/a.wav.info"));
  Deliver(rBase, "one");
  EXPECT_EQ("one", FileBytes("/recordings/a.wav.raw"));
  Deliver(rBase, "two");
  EXPECT_EQ("onetwo", FileBytes("/recordings/a.wav.raw"));
  rBase.CloseAudioFile();
  EXPECT_EQ(nullptr, rBase.hRawFile);
  EXPECT_EQ(Wav(6, 1, "onetwo"), FileBytes("/recordings/a.wav.g711"));
}

TEST_F(BaseChannelAudio, LiveCopyOfAStereoRecordingSaysOneChannel) {
  rRecorder.fMonitoring = true;
  rRecorder.fStereo = true;
  rBase.fStereoLine = true;
  OpenPair();
  Deliver(rBase, "abc");
  Deliver(rLinked, "def");
  EXPECT_EQ("Format: alaw\r\nChannels: 1\r\n", FileBytes("/recordings/a.wav.info"));
  EXPECT_EQ("adbecf", FileBytes("/recordings/a.wav.raw"));
}

TEST_F(BaseChannelAudio, NoLiveCopyWithoutMonitoring) {
  (void)unlink("/recordings/a.wav.raw");
  (void)unlink("/recordings/a.wav.info");
  Open();
  Deliver(rBase, "abc");
  EXPECT_EQ(nullptr, rBase.hRawFile);
  EXPECT_NE(0, access("/recordings/a.wav.raw", F_OK));
  EXPECT_NE(0, access("/recordings/a.wav.info", F_OK));
}

TEST_F(BaseChannelAudio, LiveCopyThatCannotBeOpenedIsLeftOutSilently) {
  rRecorder.fMonitoring = true;
  rBase.strFullFilenameFinal = "/recordings/none/a.wav";
  Open();
  EXPECT_EQ(nullptr, rBase.hRawFile);
  Deliver(rBase, "abc");
  EXPECT_EQ(Wav(6, 1, "abc"), CloseAndRead());
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelAudio, MonitoringSwitchedOffInARecordingStopsTheLiveCopy) {
  rRecorder.fMonitoring = true;
  Open();
  Deliver(rBase, "abc");
  rRecorder.fMonitoring = false;
  Deliver(rBase, "def");
  EXPECT_EQ("abc", FileBytes("/recordings/a.wav.raw"));
  EXPECT_EQ(Wav(6, 1, "abcdef"), CloseAndRead());
  EXPECT_NE(nullptr, rBase.hRawFile);  // given back by the destructor or the next recording
}

TEST_F(BaseChannelAudio, CallbackEntryWritesToTheLiveCopyOnly) {
  unsigned char acAudio[] = {'x', 'y'};
  RecordingCallBack(0, acAudio, 2, &rBase);  // no file: nothing
  rRecorder.fMonitoring = true;
  Open();
  RecordingCallBack(0, acAudio, 2, &rBase);
  EXPECT_EQ("xy", FileBytes("/recordings/a.wav.raw"));
  rBase.OnRecordingData("z", 1);
  EXPECT_EQ("xyz", FileBytes("/recordings/a.wav.raw"));
  RecordingCallBack(0, acAudio, 2, nullptr);
  EXPECT_EQ(Wav(6, 1, ""), CloseAndRead());
}

// -- loudness --------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, LevelOfAWindow) {
  struct Row {
    const char* acLabel;
    ERecEncodings eRecEnc;
    unsigned char ucCode;
    int iLevel;
  };
  const Row rRows[] = {
      {"mu-law silence, 0", RECENC_G711U, 0xff, -30},
      {"A-law silence, 8, cut towards zero", RECENC_G711A, 0xd5, -1},
      {"A-law full scale, 32256", RECENC_G711A, 0xaa, 70},
      {"A-law full scale, -32256", RECENC_G711A, 0x2a, 70},
      {"mu-law full scale, 32124", RECENC_G711U, 0x80, 70},
      {"A-law 4224", RECENC_G711A, 0x85, 52},
      {"mu-law 8, the smallest that is not 0", RECENC_G711U, 0xfe, -1},
  };
  rBase.fCalcLoudness = true;
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    Open();
    rBase.iLast_dB = NO_LEVEL_DB;
    WriteBuf(rBase, std::string(3999, static_cast<char>(rRow.ucCode)));
    EXPECT_EQ(NO_LEVEL_DB, rBase.iLast_dB);
    EXPECT_EQ(3999, rBase.iCalcLoudnessIndex);
    WriteBuf(rBase, std::string(2, static_cast<char>(rRow.ucCode)));
    EXPECT_EQ(rRow.iLevel, rBase.iLast_dB);
    EXPECT_EQ(1, rBase.iCalcLoudnessIndex);
    rBase.iCalcLoudnessIndex = 0;
    rBase.dLoudness = 0;
  }
}

TEST_F(BaseChannelAudio, LevelIsTheRootOfTheMeanSquare) {
  rBase.fCalcLoudness = true;
  Open();
  const std::string strAudio = Noise(4000, 41);
  long double dSum = 0;
  for (const char ch : strAudio) {
    const long double dSample = DecodeA(static_cast<unsigned char>(ch)) / 32768.0L;
    dSum += dSample * dSample;
  }
  WriteBuf(rBase, strAudio);
  const double dRms = std::sqrt(static_cast<double>(dSum / 4000));
  EXPECT_EQ(static_cast<int>(20 * std::log10(dRms) + 70 + 0.5), rBase.iLast_dB);
  EXPECT_EQ(0, rBase.iCalcLoudnessIndex);
  EXPECT_EQ(0, rBase.dLoudness);
}

TEST_F(BaseChannelAudio, StereoWindowHoldsBothSides) {
  rRecorder.fStereo = true;
  rBase.fStereoLine = true;
  rBase.fCalcLoudness = true;
  OpenPair();
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(NO_LEVEL_DB, rBase.iLast_dB);
    Deliver(rBase, std::string(1000, '\xaa'));
    Deliver(rLinked, std::string(1000, '\xd5'));
  }
  EXPECT_EQ(67, rBase.iLast_dB);  // full scale on one of two sides: 3 dB less
}

TEST_F(BaseChannelAudio, SilencedAudioCountsAsQuiet) {
  rBase.fCalcLoudness = true;
  Open();
  rBase.fSilencing = true;
  Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(-1, rBase.iLast_dB);
}

TEST_F(BaseChannelAudio, NoLevelUnlessItIsAskedForAndAFileIsOpen) {
  Open();
  Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(NO_LEVEL_DB, rBase.iLast_dB);
  EXPECT_EQ(0, rBase.iCalcLoudnessIndex);
  rBase.fCalcLoudness = true;
  rBase.CloseAudioFile();
  WriteBuf(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(NO_LEVEL_DB, rBase.iLast_dB);
}

TEST_F(BaseChannelAudio, LoudWindowsRaiseTheAlarm) {
  struct Row {
    const char* acLabel;
    const char* acWindows;  // L: 70 dB, q: -1 dB, T: 70 dB under a call-progress tone
    int iCnt, iAge, iNotify;
  };
  // Threshold 60 dB, alarm at 4 windows.
  const Row rRows[] = {
      {"quiet windows alone do not age", "qqqq", 0, 0, HIGH_NOTIFY_NONE},
      {"one short of the alarm", "LLL", 3, 0, HIGH_NOTIFY_NONE},
      {"alarm", "LLLL", 4, 0, HIGH_NOTIFY_TO_SEND},
      {"two quiet ones in a row do not hurt", "LqqLqqLqqL", 4, 0, HIGH_NOTIFY_TO_SEND},
      {"three quiet ones in a row start anew", "LLLqqqL", 1, 0, HIGH_NOTIFY_NONE},
      {"three quiet ones forget the count", "LLLqqq", 0, 3, HIGH_NOTIFY_NONE},
      {"windows under a tone count as quiet", "LLLTTT", 0, 3, HIGH_NOTIFY_NONE},
      {"windows under a tone raise nothing", "TTTTTT", 0, 0, HIGH_NOTIFY_NONE},
      {"the count goes on after the alarm", "LLLLLL", 6, 0, HIGH_NOTIFY_TO_SEND},
  };
  rBase.fCalcLoudness = true;
  rBase.fHighDetect = true;
  rBase.iHighDbThr = 60;
  rBase.iHighMaxCnt = 4;
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rBase.ClearInfo();
    Open();
    for (const char* pcWindow = rRow.acWindows; *pcWindow != '\0'; pcWindow++) {
      rBase.fHighSwitchedOff = *pcWindow == 'T';
      Deliver(rBase, std::string(4000, *pcWindow == 'q' ? '\xd5' : '\xaa'));
    }
    EXPECT_EQ(rRow.iCnt, rBase.iHighCnt);
    EXPECT_EQ(rRow.iAge, rBase.iHighAge);
    EXPECT_EQ(rRow.iNotify, rBase.iHighNotify);
  }
}

TEST_F(BaseChannelAudio, AlarmAtNoWindowsIsNeverRaised) {
  rBase.fCalcLoudness = true;
  rBase.fHighDetect = true;
  rBase.iHighDbThr = 60;
  rBase.iHighMaxCnt = 0;  // "LoudnessLen" is missing
  Open();
  for (int i = 0; i < 3; i++) Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(3, rBase.iHighCnt);
  EXPECT_EQ(HIGH_NOTIFY_NONE, rBase.iHighNotify);
}

TEST_F(BaseChannelAudio, LevelAtTheThresholdIsNotLoud) {
  rBase.fCalcLoudness = true;
  rBase.fHighDetect = true;
  rBase.iHighMaxCnt = 1;
  Open();
  rBase.iHighDbThr = 70;
  Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(0, rBase.iHighCnt);
  rBase.iHighDbThr = 69;
  Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(1, rBase.iHighCnt);
  EXPECT_EQ(HIGH_NOTIFY_TO_SEND, rBase.iHighNotify);
}

TEST_F(BaseChannelAudio, SentAlarmIsNotRaisedAgain) {
  rBase.fCalcLoudness = true;
  rBase.fHighDetect = true;
  rBase.iHighDbThr = 60;
  rBase.iHighMaxCnt = 1;
  rBase.iHighNotify = HIGH_NOTIFY_SENT;
  Open();
  Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(1, rBase.iHighCnt);
  EXPECT_EQ(HIGH_NOTIFY_SENT, rBase.iHighNotify);
}

TEST_F(BaseChannelAudio, WithoutDetectionNothingIsCounted) {
  rBase.fCalcLoudness = true;
  rBase.iHighMaxCnt = 1;
  Open();
  Deliver(rBase, std::string(4000, '\xaa'));
  EXPECT_EQ(70, rBase.iLast_dB);
  EXPECT_EQ(0, rBase.iHighCnt);
  EXPECT_EQ(HIGH_NOTIFY_NONE, rBase.iHighNotify);
}

// -- diagnostic ------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelAudio, MoreThanFiftyZeroBytesAreWarnedOf) {
  unsigned char acAudio[200] = {};
  memset(acAudio + 60, 1, 140);
  CheckForNull(acAudio, 10, 200, 9);  // 50 zeros
  CheckForNull(acAudio, 9, 9, 9);
  CheckForNull(acAudio, 60, 0, 9);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  CheckForNull(acAudio, 9, 200, 9);
  EXPECT_EQ((Texts{"4 9 Too much zero! CNT: 51"}), logsink::TakeTexts());
}
