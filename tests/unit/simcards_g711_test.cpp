#include "simcards_g711.h"

#include <gtest/gtest.h>

namespace simcards {
namespace {

TEST(SimG711, EveryCodeComesBackFromItsSample) {
  for (int i = 0; i < 256; i++) {
    const auto ucByte = static_cast<BYTE>(i);
    EXPECT_EQ(i, LinearToLaw(SSM_FORMAT_ALAW, LawToLinear(SSM_FORMAT_ALAW, ucByte))) << "A-law " << i;
    const int iUlaw = i == 0x7F ? 0xFF : i;  // mu-law has two zeros; the positive one is sent
    EXPECT_EQ(iUlaw, LinearToLaw(SSM_FORMAT_ULAW, LawToLinear(SSM_FORMAT_ULAW, ucByte))) << "mu-law " << i;
  }
}

TEST(SimG711, KnownValues) {
  const struct {
    const char* acLabel;
    int nFormat, iSample, iByte;
  } arRows[] = {
      {"A-law zero", SSM_FORMAT_ALAW, 0, 0xD5},
      {"A-law just below zero", SSM_FORMAT_ALAW, -1, 0x55},
      {"A-law full scale", SSM_FORMAT_ALAW, 32767, 0xAA},
      {"A-law lowest", SSM_FORMAT_ALAW, -32768, 0x2A},
      {"A-law end of segment 1", SSM_FORMAT_ALAW, 511, 0xCA},
      {"A-law start of segment 2", SSM_FORMAT_ALAW, 512, 0xF5},
      {"mu-law zero", SSM_FORMAT_ULAW, 0, 0xFF},
      {"mu-law full scale", SSM_FORMAT_ULAW, 32767, 0x80},
      {"mu-law lowest", SSM_FORMAT_ULAW, -32768, 0x00},
      {"clipped above", SSM_FORMAT_ULAW, 99999, 0x80},
      {"clipped below", SSM_FORMAT_ALAW, -99999, 0x2A},
  };
  for (const auto& rRow : arRows) EXPECT_EQ(rRow.iByte, LinearToLaw(rRow.nFormat, rRow.iSample)) << rRow.acLabel;
}

TEST(SimG711, SilenceBytes) {
  EXPECT_EQ(0xD5, SilenceByte(SSM_FORMAT_ALAW));
  EXPECT_EQ(0xFF, SilenceByte(SSM_FORMAT_ULAW));
  EXPECT_EQ(8, LawToLinear(SSM_FORMAT_ALAW, 0xD5));
  EXPECT_EQ(0, LawToLinear(SSM_FORMAT_ULAW, 0xFF));
}

}  // namespace
}  // namespace simcards
