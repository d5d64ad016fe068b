#include "wavheader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct FieldRow {
  std::size_t iOffset;
  std::string strBytes;
  const char* acWhat;
};

std::string Hex(const unsigned char* ucBytes, std::size_t iCount) {
  static const char acDigits[] = "0123456789abcdef";
  std::string strHex;
  for (std::size_t i = 0; i < iCount; i++) {
    strHex += acDigits[ucBytes[i] >> 4];
    strHex += acDigits[ucBytes[i] & 15];
  }
  return strHex;
}
std::string Hex(const std::string& strText) {
  return Hex(reinterpret_cast<const unsigned char*>(strText.data()), strText.size());
}

void CheckFields(const WavHeader& rHeader, const std::vector<FieldRow>& rRows) {
  for (const FieldRow& rRow : rRows) {
    EXPECT_EQ(Hex(rHeader.data() + rRow.iOffset, rRow.strBytes.size() / 2), rRow.strBytes)
        << rRow.acWhat << " at " << rRow.iOffset;
  }
}

TEST(WavHeader, EveryFieldStandsAtItsOffset) {
  CheckFields(MakeWavHeader(LAW_A, 1, 8000), {
                                                 {0, Hex("RIFF"), "tag of the file"},
                                                 {4, "701f0000", "length of what follows"},
                                                 {8, Hex("WAVE"), "kind of file"},
                                                 {12, Hex("fmt "), "tag of the format"},
                                                 {16, "10000000", "its length"},
                                                 {20, "0600", "A-law"},
                                                 {22, "0100", "channels"},
                                                 {24, "401f0000", "samples a second"},
                                                 {28, "401f0000", "bytes a second"},
                                                 {32, "0100", "bytes a sample"},
                                                 {34, "0800", "bits a sample"},
                                                 {36, Hex("fact"), "tag of the fact"},
                                                 {40, "04000000", "its length"},
                                                 {44, "401f0000", "audio bytes"},
                                                 {48, Hex("data"), "tag of the audio"},
                                                 {52, "401f0000", "its length"},
                                             });
}

TEST(WavHeader, StereoInMuLawCountsBytesOfBothChannels) {
  CheckFields(MakeWavHeader(LAW_U, 2, 16000), {
                                                  {4, "b03e0000", "length of what follows"},
                                                  {20, "0700", "mu-law"},
                                                  {22, "0200", "channels"},
                                                  {24, "401f0000", "samples a second, of each channel"},
                                                  {28, "803e0000", "bytes a second"},
                                                  {32, "0200", "bytes a sample of both"},
                                                  {34, "0800", "bits a sample"},
                                                  {44, "803e0000", "the fact is not halved"},
                                                  {52, "803e0000", "audio bytes"},
                                              });
}

TEST(WavHeader, LengthsReachFourGigabytesAndWrap) {
  CheckFields(MakeWavHeader(LAW_A, 1, 0), {{4, "30000000", "no audio"}, {44, "00000000", ""}, {52, "00000000", ""}});
  CheckFields(MakeWavHeader(LAW_A, 1, 0x89abcdef), {{4, "1fceab89", "past 2 GB"}, {44, "efcdab89", ""}});
  CheckFields(MakeWavHeader(LAW_A, 1, 0xfffffff0), {{4, "20000000", "wrapped"}, {52, "f0ffffff", ""}});
}

TEST(WavHeader, OnlyTheLengthFieldsChangeWhileAFileGrows) {
  const WavHeader rShort = MakeWavHeader(LAW_U, 2, 0);
  WavHeader rLong = MakeWavHeader(LAW_U, 2, 0x01020304);
  ASSERT_NE(rShort, rLong);
  for (const std::size_t iOffset : {4U, 44U, 52U}) {
    for (std::size_t i = iOffset; i < iOffset + 4; i++) rLong[i] = rShort[i];
  }
  EXPECT_EQ(rShort, rLong);
}

}  // namespace
