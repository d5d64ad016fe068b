// simcards_audio: what a simulated line carries, as G.711 bytes in the law that a recording asks for.
// Threads:   none of its own; a source belongs to one channel and is used under the library's lock.
// Ownership: a file's samples are shared by all channels that play it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "shpa3api.h"

namespace simcards {

// One audio file, read whole and held in both laws, of equal length. G.711 files keep their bytes in their own law, so
// that playing into it changes nothing.
struct AudioFile {
  std::vector<BYTE> acAlaw, acUlaw;

  const std::vector<BYTE>& In(int nFormat) const { return nFormat == SSM_FORMAT_ULAW ? acUlaw : acAlaw; }
  long long Length() const { return static_cast<long long>(acAlaw.size()); }  // in samples
  void AddSample(int iSample);
};

// Reads ".al" and ".ul" as raw G.711, anything else as WAV (8000 Hz, mono, G.711 or 16 bits). Null when the file cannot
// be used; strWhy then says why.
std::shared_ptr<const AudioFile> ReadAudioFile(const std::string& strPath, std::string& strWhy);

class AudioSource {
 public:
  void SetSilence() { Set(SILENCE); }
  void SetCounting() { Set(COUNTING); }
  void SetTone(double dToneHz, double dLevelDb);  // dLevelDb: 0 is full scale
  void SetFile(std::shared_ptr<const AudioFile> prNewFile, bool fRepeat);

  // The iBytes bytes that come iAhead bytes from now. iRecorded: bytes that the asking recording has already, the index
  // of the counting pattern.
  void Fill(BYTE* acOut, int iBytes, int nFormat, long long iRecorded, int iAhead) const;
  // Time passes, whether somebody records or not.
  void Skip(long long iBytes) { iPos += iBytes; }

  const char* Name() const;  // "silence", "tone", "counting", "file"
  bool Playing() const;      // a file that has not come to its end

 private:
  enum EKind { SILENCE, TONE, COUNTING, FILE };
  void Set(EKind eNewKind);
  void FillTone(BYTE* acOut, int iBytes, int nFormat, long long iFrom) const;
  void FillFile(BYTE* acOut, int iBytes, int nFormat, long long iFrom) const;

  EKind eKind = SILENCE;
  long long iPos = 0;  // samples since the source was set
  double dHz = 0;
  double dAmplitude = 0;
  std::shared_ptr<const AudioFile> prFile;  // of a tone of whole Hz: one second of it
  bool fLoop = false;
};

}  // namespace simcards
