// A sound is a function of the position: each byte can be made again. So the ring and the file of one channel are both
// filled from copies of its source, each in its own law and pieces, and the source itself moves on once, by the time
// that has passed. Only the counting pattern hangs on the recording instead: its byte k is the k-th recorded.

#include "simcards_audio.h"

#include <cmath>

#include "simcards.h"
#include "simcards_g711.h"

namespace simcards {
namespace {

constexpr double SAMPLES_PER_S = 8000.0;
constexpr double FULL_SCALE = 32767.0;
constexpr double TWO_PI = 6.283185307179586;

}  // namespace

// Multiplicative hashing: every shift of a recording, by whatever number of bytes, shows in the bytes that follow.
BYTE CountingByte(long long k) {
  return static_cast<BYTE>(static_cast<std::uint32_t>(k) * 2654435761U >> 24);
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
}

void AudioSource::SetFile(std::shared_ptr<const AudioFile> prNewFile, bool fRepeat) {
  Set(FILE);
  prFile = std::move(prNewFile);
  fLoop = fRepeat;
}

BYTE AudioSource::ToneByte(long long i, int nFormat) const {
  const double dAngle = TWO_PI * std::fmod(dHz * static_cast<double>(i) / SAMPLES_PER_S, 1.0);
  return LinearToLaw(nFormat, static_cast<int>(std::lround(dAmplitude * std::sin(dAngle))));
}

BYTE AudioSource::FileByte(long long i, int nFormat) const {
  const long long iLength = prFile->Length();
  if (iLength == 0 || (i >= iLength && !fLoop)) return SilenceByte(nFormat);
  return prFile->At(i % iLength, nFormat);
}

void AudioSource::Fill(BYTE* acOut, int iBytes, int nFormat, long long iRecorded) const {
  for (int i = 0; i < iBytes; i++) {
    switch (eKind) {
      case SILENCE:
        acOut[i] = SilenceByte(nFormat);
        break;
      case TONE:
        acOut[i] = ToneByte(iPos + i, nFormat);
        break;
      case COUNTING:
        acOut[i] = CountingByte(iRecorded + i);
        break;
      case FILE:
        acOut[i] = FileByte(iPos + i, nFormat);
        break;
    }
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
