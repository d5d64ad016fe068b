// A sound is a function of the position: each byte can be made again. So the ring and the file of one channel are both
// filled from its source, each in its own law and pieces, and the source itself moves on once, by the time that has
// passed. Only the counting pattern hangs on the recording instead: its byte k is the k-th recorded.

#include "simcards_audio.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <utility>

#include "simcards.h"
#include "simcards_g711.h"

namespace simcards {
namespace {

constexpr double SAMPLES_PER_S = 8000.0;
constexpr double FULL_SCALE = 32767.0;
constexpr double TWO_PI = 6.283185307179586;
constexpr std::uint32_t COUNTING_FACTOR = 2654435761U;
constexpr int BLOCK = 16;  // counting bytes that one round of a vectorised loop makes

int ToneSample(double dHz, double dAmplitude, long long i) {
  const double dAngle = TWO_PI * std::fmod(dHz * static_cast<double>(i) / SAMPLES_PER_S, 1.0);
  return static_cast<int>(std::lround(dAmplitude * std::sin(dAngle)));
}

// A tone of whole Hz repeats itself each second. Lines that carry the same tone share that second, as long as one of
// them does; null for any other tone, and with no lock of its own: sources are used under the library's.
std::shared_ptr<const AudioFile> SecondOfTone(double dHz, double dAmplitude) {
  static auto& rMade = *new std::map<std::pair<double, double>, std::weak_ptr<const AudioFile>>;
  if (dHz != std::floor(dHz)) return nullptr;
  std::weak_ptr<const AudioFile>& rShared = rMade[{dHz, dAmplitude}];
  if (std::shared_ptr<const AudioFile> prShared = rShared.lock()) return prShared;
  const auto prSecond = std::make_shared<AudioFile>();
  for (int i = 0; i < static_cast<int>(SAMPLES_PER_S); i++) prSecond->AddSample(ToneSample(dHz, dAmplitude, i));
  rShared = prSecond;
  return prSecond;
}

// Counts in steps of a whole block, so that the compiler makes vectors of it.
void FillCounting(BYTE* acOut, int iBytes, long long iRecorded) {
  std::uint32_t auNow[BLOCK];
  for (int j = 0; j < BLOCK; j++) {
    auNow[j] = (static_cast<std::uint32_t>(iRecorded) + static_cast<std::uint32_t>(j)) * COUNTING_FACTOR;
  }
  int i = 0;
  for (; i + BLOCK <= iBytes; i += BLOCK) {
    for (int j = 0; j < BLOCK; j++) acOut[i + j] = static_cast<BYTE>(auNow[j] >> 24);
    for (std::uint32_t& uNow : auNow) uNow += COUNTING_FACTOR * BLOCK;
  }
  for (; i < iBytes; i++) acOut[i] = CountingByte(iRecorded + i);
}

}  // namespace

// Multiplicative hashing: every shift of a recording, by whatever number of bytes, shows in the bytes that follow.
BYTE CountingByte(long long k) {
  return static_cast<BYTE>(static_cast<std::uint32_t>(k) * COUNTING_FACTOR >> 24);
}

void AudioSource::Set(EKind eNewKind) {
  eKind = eNewKind;
  iPos = 0;
  prFile.reset();
}

void AudioSource::SetTone(double dToneHz, double dLevelDb) {
  Set(TONE);
  dHz = dToneHz;
  dAmplitude = FULL_SCALE * std::pow(10.0, dLevelDb / 20.0);
  prFile = SecondOfTone(dToneHz, dAmplitude);
  fLoop = true;
}

void AudioSource::SetFile(std::shared_ptr<const AudioFile> prNewFile, bool fRepeat) {
  Set(FILE);
  prFile = std::move(prNewFile);
  fLoop = fRepeat;
}

// A file that has ended, or holds nothing, goes on as silence.
void AudioSource::FillFile(BYTE* acOut, int iBytes, int nFormat, long long iFrom) const {
  const std::vector<BYTE>& acFile = prFile->In(nFormat);
  const long long iLength = prFile->Length();
  while (iBytes > 0 && iLength > 0 && (fLoop || iFrom < iLength)) {
    const long long iAt = iFrom % iLength;
    const auto iPiece = static_cast<int>(std::min<long long>(iBytes, iLength - iAt));
    std::memcpy(acOut, acFile.data() + iAt, static_cast<std::size_t>(iPiece));
    acOut += iPiece;
    iFrom += iPiece;
    iBytes -= iPiece;
  }
  std::memset(acOut, SilenceByte(nFormat), static_cast<std::size_t>(iBytes));
}

void AudioSource::FillTone(BYTE* acOut, int iBytes, int nFormat, long long iFrom) const {
  for (int i = 0; i < iBytes; i++) acOut[i] = LinearToLaw(nFormat, ToneSample(dHz, dAmplitude, iFrom + i));
}

void AudioSource::Fill(BYTE* acOut, int iBytes, int nFormat, long long iRecorded, int iAhead) const {
  switch (eKind) {
    case SILENCE:
      std::memset(acOut, SilenceByte(nFormat), static_cast<std::size_t>(iBytes));
      break;
    case TONE:
      if (prFile != nullptr) {
        FillFile(acOut, iBytes, nFormat, iPos + iAhead);
      } else {
        FillTone(acOut, iBytes, nFormat, iPos + iAhead);
      }
      break;
    case COUNTING:
      FillCounting(acOut, iBytes, iRecorded);
      break;
    case FILE:
      FillFile(acOut, iBytes, nFormat, iPos + iAhead);
      break;
  }
}

const char* AudioSource::Name() const {
  switch (eKind) {
    case SILENCE:
      return "silence";
    case TONE:
      return "tone";
    case COUNTING:
      return "counting";
    case FILE:
      return "file";
  }
  return "";
}

bool AudioSource::Playing() const {
  return eKind == FILE && (fLoop || iPos < prFile->Length());
}

}  // namespace simcards
