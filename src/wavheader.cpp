#include "wavheader.h"

namespace {

constexpr std::uint32_t AFTER_RIFF_LENGTH = WAV_HEADER_BYTES - 8;  // of the header, counted by the RIFF length
constexpr std::uint32_t FMT_LENGTH = 16;
constexpr std::uint32_t FACT_LENGTH = 4;

// Fields in the order of the file.
class FieldWriter {
 public:
  explicit FieldWriter(WavHeader& rHeader) : ucNext(rHeader.data()) {}

  void Tag(const char* acTag) {
    for (int i = 0; i < 4; i++) *ucNext++ = static_cast<unsigned char>(acTag[i]);
  }
  void Word(std::uint32_t uiValue) { Bytes(uiValue, 2); }
  void DWord(std::uint32_t uiValue) { Bytes(uiValue, 4); }

 private:
  void Bytes(std::uint32_t uiValue, int iBytes) {
    for (int i = 0; i < iBytes; i++) *ucNext++ = static_cast<unsigned char>(uiValue >> (8 * i));
  }

  unsigned char* ucNext;
};

}  // namespace

WavHeader MakeWavHeader(const AudioLaw& rLaw, unsigned uiChannels, std::uint32_t uiAudioBytes) {
  WavHeader rHeader;
  FieldWriter rWriter(rHeader);
  rWriter.Tag("RIFF");
  rWriter.DWord(uiAudioBytes + AFTER_RIFF_LENGTH);
  rWriter.Tag("WAVE");

  rWriter.Tag("fmt ");
  rWriter.DWord(FMT_LENGTH);
  rWriter.Word(rLaw.wFormatTag);
  rWriter.Word(uiChannels);
  rWriter.DWord(SAMPLES_PER_S);
  rWriter.DWord(SAMPLES_PER_S * uiChannels);  // bytes a second
  rWriter.Word(uiChannels);                   // bytes a sample of all channels
  rWriter.Word(8);                            // bits a sample

  rWriter.Tag("fact");
  rWriter.DWord(FACT_LENGTH);
  rWriter.DWord(uiAudioBytes);  // in stereo too not halved, as readers take it like that

  rWriter.Tag("data");
  rWriter.DWord(uiAudioBytes);
  return rHeader;
}
