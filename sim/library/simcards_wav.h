// simcards_wav: the WAV files that the simulated cards write when a channel is recorded to a file.
// Threads: none of its own; used under the library's lock.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "shpa3api.h"

namespace simcards {

// 8 kHz mono G.711. The lengths in the header are right after Close, as with the card maker's library.
class WavWriter {
 public:
  ~WavWriter() { Close(); }
  bool Open(const std::string& strPath, int nWavFormat);  // false: errno tells why
  void Write(const BYTE* acBytes, int iBytes);
  void Close();
  bool IsOpen() const { return prFile != nullptr; }
  int Format() const { return nFormat; }
  long long Written() const { return iWritten; }

 private:
  void WriteHeader();
  std::FILE* prFile = nullptr;
  int nFormat = SSM_FORMAT_ALAW;
  long long iWritten = 0;
};

}  // namespace simcards
