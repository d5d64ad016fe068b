// Files that lines play and files that traces write.

#include "simcards_wav.h"

#include <gtest/gtest.h>

#include "CardBench.h"
#include "SimConfigFiles.h"
#include "simcards_audio.h"
#include "simcards_g711.h"

namespace {

std::string Le(unsigned uValue, int iBytes) {
  std::string strBytes;
  for (int i = 0; i < iBytes; i++) strBytes += static_cast<char>(uValue >> (8 * i) & 0xFF);
  return strBytes;
}

std::string Wav(unsigned uTag, unsigned uChannels, unsigned uRate, unsigned uBits, const std::string& strAudio) {
  const std::string strFmt = Le(uTag, 2) + Le(uChannels, 2) + Le(uRate, 4) + Le(0, 4) + Le(0, 2) + Le(uBits, 2);
  // An odd chunk before the audio, as some programs write.
  const std::string strBody = "WAVEfmt " + Le(16, 4) + strFmt + "LIST" + Le(3, 4) + std::string("abc\0", 4) + "data" +
                              Le(static_cast<unsigned>(strAudio.size()), 4) + strAudio;
  return "RIFF" + Le(static_cast<unsigned>(strBody.size()), 4) + strBody;
}

class SimWav : public CardBench {
 protected:
  SimWav() : vRing(4096, 0) { simcards::AddBoard(0, 1, CH_ANALOG); }

  // What channel 0 carries in the next iBytes bytes.
  std::string Recorded(int nFormat, int iBytes) {
    EXPECT_EQ(SSM_OK, SsmRecToMem(0, nFormat, vRing.data(), 4096, 0));
    simcards::Advance(iBytes);
    EXPECT_EQ(SSM_OK, SsmStopRecToMem(0));
    return std::string(vRing.begin(), vRing.begin() + iBytes);
  }

  SimConfigFiles rFiles;
  std::vector<BYTE> vRing;
};

TEST_F(SimWav, G711FilesOfTheSameLawKeepTheirBytes) {
  std::string strAll;
  for (int i = 0; i < 256; i++) strAll += static_cast<char>(i);
  rFiles.Write("all.al", strAll);
  rFiles.Write("all.ul", strAll);
  rFiles.Write("a.wav", Wav(6, 1, 8000, 8, strAll));
  rFiles.Write("u.wav", Wav(7, 1, 8000, 8, strAll));
  const struct {
    const char* acFile;
    int nFormat;
  } arRows[] = {
      {"all.al", SSM_FORMAT_ALAW}, {"all.ul", SSM_FORMAT_ULAW}, {"a.wav", SSM_FORMAT_ALAW}, {"u.wav", SSM_FORMAT_ULAW}};
  for (const auto& rRow : arRows) {
    ASSERT_TRUE(simcards::PlayFile(0, rFiles.Path(rRow.acFile))) << rRow.acFile;
    EXPECT_EQ(strAll, Recorded(rRow.nFormat, 256)) << rRow.acFile;
  }
}

TEST_F(SimWav, OtherFormatsAreConverted) {
  rFiles.Write("pcm.wav", Wav(1, 1, 8000, 16, Le(0, 2) + Le(16000, 2) + Le(0x8000, 2)));
  ASSERT_TRUE(simcards::PlayFile(0, rFiles.Path("pcm.wav")));
  const BYTE acUlaw[] = {simcards::LinearToLaw(7, 0), simcards::LinearToLaw(7, 16000), simcards::LinearToLaw(7, -32768),
                         0xFF};
  EXPECT_EQ(std::string(std::begin(acUlaw), std::end(acUlaw)), Recorded(SSM_FORMAT_ULAW, 4));
  rFiles.Write("x.al", "\xD5\xAA");
  ASSERT_TRUE(simcards::PlayFile(0, rFiles.Path("x.al")));
  const BYTE acFromAlaw[] = {simcards::LinearToLaw(7, 8), simcards::LinearToLaw(7, simcards::LawToLinear(6, 0xAA))};
  EXPECT_EQ(std::string(std::begin(acFromAlaw), std::end(acFromAlaw)), Recorded(SSM_FORMAT_ULAW, 2));
}

TEST_F(SimWav, SilenceFollowsAFileUnlessItIsRepeated) {
  rFiles.Write("x.al", "abc");
  ASSERT_TRUE(simcards::PlayFile(0, rFiles.Path("x.al")));
  EXPECT_EQ("abc\xD5\xD5", Recorded(SSM_FORMAT_ALAW, 5));
  ASSERT_TRUE(simcards::PlayFile(0, rFiles.Path("x.al"), /*fLoop=*/true));
  EXPECT_EQ("abcab", Recorded(SSM_FORMAT_ALAW, 5));
}

TEST_F(SimWav, AFileGoesOnWhileNobodyRecords) {
  rFiles.Write("x.al", "abcdef");
  ASSERT_TRUE(simcards::PlayFile(0, rFiles.Path("x.al")));
  simcards::Advance(2);
  EXPECT_EQ("cd", Recorded(SSM_FORMAT_ALAW, 2));
  EXPECT_EQ("ef", Recorded(SSM_FORMAT_ALAW, 2));
}

TEST_F(SimWav, FilesThatCannotBePlayedSayWhy) {
  rFiles.Write("text.wav", "no audio at all");
  rFiles.Write("stereo.wav", Wav(1, 2, 8000, 16, "abcd"));
  rFiles.Write("fast.wav", Wav(1, 1, 16000, 16, "abcd"));
  rFiles.Write("bytes.wav", Wav(1, 1, 8000, 8, "abcd"));
  rFiles.Write("gsm.wav", Wav(49, 1, 8000, 0, "abcd"));
  const std::string strForm = " must be mono, 8000 samples a second, A-law, mu-law or 16 bits";
  const struct {
    const char* acFile;
    std::string strWhy;
  } arRows[] = {
      {"none.wav", "cannot read " + rFiles.Path("none.wav") + ": No such file or directory"},
      {"text.wav", rFiles.Path("text.wav") + " is no WAV file, and its name does not end in .al or .ul"},
      {"stereo.wav", rFiles.Path("stereo.wav") + strForm},
      {"fast.wav", rFiles.Path("fast.wav") + strForm},
      {"bytes.wav", rFiles.Path("bytes.wav") + strForm},
      {"gsm.wav", rFiles.Path("gsm.wav") + strForm},
  };
  for (const auto& rRow : arRows) {
    std::string strWhy;
    EXPECT_EQ(nullptr, simcards::ReadAudioFile(rFiles.Path(rRow.acFile), strWhy)) << rRow.acFile;
    EXPECT_EQ(rRow.strWhy, strWhy);
    EXPECT_FALSE(simcards::PlayFile(0, rFiles.Path(rRow.acFile))) << rRow.acFile;
  }
}

TEST_F(SimWav, TraceFileIsAPlayableWav) {
  simcards::PlayCounting(0);
  EXPECT_EQ(SSM_OK, SsmRecToFile(0, rFiles.Path("trace.wav").c_str(), 6, 0, 0xFFFFFFFF, 0, 0));
  simcards::Advance(1000);
  simcards::Advance(24);
  EXPECT_EQ(SSM_OK, SsmStopRecToFile(0));
  simcards::Advance(100);
  std::string strExpected = "RIFF" + Le(1024 + 36, 4) + "WAVEfmt " + Le(16, 4) + Le(6, 2) + Le(1, 2) + Le(8000, 4) +
                            Le(8000, 4) + Le(1, 2) + Le(8, 2) + "data" + Le(1024, 4);
  for (int k = 0; k < 1024; k++) strExpected += static_cast<char>(simcards::CountingByte(k));
  EXPECT_EQ(strExpected, rFiles.Read("trace.wav"));
}

TEST_F(SimWav, TraceFileThatCannotBeWrittenFails) {
  EXPECT_EQ(-1, SsmRecToFile(0, "/nowhere/trace.wav", 6, 0, 0xFFFFFFFF, 0, 0));
  EXPECT_EQ("SsmRecToFile: cannot write /nowhere/trace.wav: No such file or directory", LastError());
}

}  // namespace
