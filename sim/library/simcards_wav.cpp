// WAV in both directions: files that a line plays and files that a trace makes.
// Reading takes what other programs write: chunks in any order, unknown ones among them, and a last one that was cut.
// Writing knows the lengths only at the end, so the header is written twice: as a place at the start, and right at the
// close.

#include "simcards_wav.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include "simcards_audio.h"
#include "simcards_g711.h"

namespace simcards {
namespace {

constexpr int WAV_TAG_PCM = 1;  // the tags of A-law and mu-law, 6 and 7, are the library's format codes too
constexpr unsigned SAMPLES_PER_S = 8000;
constexpr std::size_t FMT_BYTES = 16;

unsigned Little(const std::string& strData, std::size_t iAt, int iBytes) {
  unsigned uValue = 0;
  for (int i = iBytes - 1; i >= 0; i--)
    uValue = uValue << 8 | static_cast<BYTE>(strData[iAt + static_cast<std::size_t>(i)]);
  return uValue;
}

void PutLittle(std::string& strData, unsigned uValue, int iBytes) {
  for (int i = 0; i < iBytes; i++) strData += static_cast<char>(uValue >> (8 * i) & 0xFF);
}

bool EndsWith(const std::string& strText, const char* acEnd) {
  const std::size_t iLen = std::strlen(acEnd);
  return strText.size() >= iLen && strText.compare(strText.size() - iLen, iLen, acEnd) == 0;
}

// Walks the chunks of a WAV file and keeps format and audio.
struct WavScan {
  explicit WavScan(const std::string& strFile) : strData(strFile) {}
  const std::string& strData;
  unsigned uTag = 0, uChannels = 0, uRate = 0, uBits = 0;
  std::string strAudio;
  bool fHasAudio = false;

  bool Run() {
    if (strData.size() < 12 || strData.compare(0, 4, "RIFF") != 0 || strData.compare(8, 4, "WAVE") != 0) return false;
    for (std::size_t iAt = 12; iAt + 8 <= strData.size();) {
      const std::size_t iLen = std::min<std::size_t>(Little(strData, iAt + 4, 4), strData.size() - iAt - 8);
      TakeChunk(strData.substr(iAt, 4), iAt + 8, iLen);
      iAt += 8 + iLen + iLen % 2;  // chunks begin at even offsets
    }
    return uTag != 0 && fHasAudio;
  }

  void TakeChunk(const std::string& strName, std::size_t iAt, std::size_t iLen) {
    if (strName == "fmt " && iLen >= FMT_BYTES) {
      uTag = Little(strData, iAt, 2);
      uChannels = Little(strData, iAt + 2, 2);
      uRate = Little(strData, iAt + 4, 4);
      uBits = Little(strData, iAt + 14, 2);
    } else if (strName == "data") {
      strAudio = strData.substr(iAt, iLen);
      fHasAudio = true;
    }
  }

  bool Usable() const {
    if (uChannels != 1 || uRate != SAMPLES_PER_S) return false;
    return uTag == WAV_TAG_PCM ? uBits == 16 : (uTag == SSM_FORMAT_ALAW || uTag == SSM_FORMAT_ULAW) && uBits == 8;
  }
};

std::shared_ptr<AudioFile> FromG711(int nFormat, const std::string& strAudio) {
  auto prFile = std::make_shared<AudioFile>();
  for (const char ch : strAudio) prFile->AddSample(LawToLinear(nFormat, static_cast<BYTE>(ch)));
  (nFormat == SSM_FORMAT_ULAW ? prFile->acUlaw : prFile->acAlaw).assign(strAudio.begin(), strAudio.end());
  return prFile;
}

std::shared_ptr<AudioFile> FromPcm(const std::string& strAudio) {
  auto prFile = std::make_shared<AudioFile>();
  for (std::size_t i = 0; i + 2 <= strAudio.size(); i += 2) {
    prFile->AddSample(static_cast<std::int16_t>(Little(strAudio, i, 2)));
  }
  return prFile;
}

}  // namespace

void AudioFile::AddSample(int iSample) {
  acAlaw.push_back(LinearToLaw(SSM_FORMAT_ALAW, iSample));
  acUlaw.push_back(LinearToLaw(SSM_FORMAT_ULAW, iSample));
}

std::shared_ptr<const AudioFile> ReadAudioFile(const std::string& strPath, std::string& strWhy) {
  std::ifstream rFile(strPath, std::ios::binary);
  if (!rFile) {
    strWhy = "cannot read " + strPath + ": " + std::strerror(errno);
    return nullptr;
  }
  const std::string strData((std::istreambuf_iterator<char>(rFile)), std::istreambuf_iterator<char>());
  if (EndsWith(strPath, ".al")) return FromG711(SSM_FORMAT_ALAW, strData);
  if (EndsWith(strPath, ".ul")) return FromG711(SSM_FORMAT_ULAW, strData);
  WavScan rScan(strData);
  if (!rScan.Run()) {
    strWhy = strPath + " is no WAV file, and its name does not end in .al or .ul";
    return nullptr;
  }
  if (!rScan.Usable()) {
    strWhy = strPath + " must be mono, 8000 samples a second, A-law, mu-law or 16 bits";
    return nullptr;
  }
  if (rScan.uTag == WAV_TAG_PCM) return FromPcm(rScan.strAudio);
  return FromG711(static_cast<int>(rScan.uTag), rScan.strAudio);
}

bool WavWriter::Open(const std::string& strPath, int nWavFormat) {
  Close();
  prFile = std::fopen(strPath.c_str(), "wbe");
  if (prFile == nullptr) return false;
  nFormat = nWavFormat;
  iWritten = 0;
  WriteHeader();
  return true;
}

void WavWriter::WriteHeader() {
  const auto uBytes = static_cast<unsigned>(iWritten);
  std::string strHeader = "RIFF";
  PutLittle(strHeader, uBytes + 36, 4);
  strHeader += "WAVEfmt ";
  PutLittle(strHeader, FMT_BYTES, 4);
  PutLittle(strHeader, static_cast<unsigned>(nFormat), 2);
  PutLittle(strHeader, 1, 2);
  PutLittle(strHeader, SAMPLES_PER_S, 4);
  PutLittle(strHeader, SAMPLES_PER_S, 4);
  PutLittle(strHeader, 1, 2);
  PutLittle(strHeader, 8, 2);
  strHeader += "data";
  PutLittle(strHeader, uBytes, 4);
  (void)std::fwrite(strHeader.data(), strHeader.size(), 1, prFile);  // a full disk shows as a short file
}

void WavWriter::Write(const BYTE* acBytes, int iBytes) {
  if (prFile == nullptr || iBytes <= 0) return;
  (void)std::fwrite(acBytes, static_cast<std::size_t>(iBytes), 1, prFile);
  iWritten += iBytes;
}

void WavWriter::Close() {
  if (prFile == nullptr) return;
  std::rewind(prFile);
  WriteHeader();
  (void)std::fclose(prFile);
  prFile = nullptr;
}

}  // namespace simcards
