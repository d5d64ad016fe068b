#include "g711.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

// The rules once more, in plain integers of any size with division instead of shifts and masks.

int FloorDiv(int iValue, int iBy) {
  return iValue >= 0 ? iValue / iBy : -((-iValue + iBy - 1) / iBy);
}
int FloorMod(int iValue, int iBy) {
  return iValue - FloorDiv(iValue, iBy) * iBy;
}
int PowerOfTwo(int iExponent) {
  return iExponent == 0 ? 1 : 2 * PowerOfTwo(iExponent - 1);
}

int SlowSegment(int iValue) {
  int iSeg = 0;
  while (iValue >= PowerOfTwo(8 + iSeg)) iSeg++;
  return iSeg;
}

int SlowStep(int iValue, int iDivisor) {
  return FloorMod(FloorDiv(iValue, iDivisor), 16);
}

// A-law sends 7 bits with every other one inverted; bit 7 is set for samples from 0 up.
int SlowLinearToAlaw(int iSample) {
  const int iValue = iSample >= 0 ? iSample : -8 - iSample;
  const int iSeg = SlowSegment(iValue);
  const int iCode = iSeg * 16 + SlowStep(iValue, iSeg < 2 ? 16 : 8 * PowerOfTwo(iSeg));
  int iInverted = 0;
  for (int iBit = 0; iBit < 7; iBit++) {
    const int iValueOfBit = FloorMod(FloorDiv(iCode, PowerOfTwo(iBit)), 2);
    iInverted += PowerOfTwo(iBit) * (iBit % 2 == 0 ? 1 - iValueOfBit : iValueOfBit);
  }
  return iInverted + (iSample >= 0 ? 128 : 0);
}

// Mu-law sends the 7 bits inverted; the biased magnitude wraps at 32768.
int SlowLinearToUlaw(int iSample) {
  int iValue = 132 + (iSample < 0 ? -iSample : iSample);
  if (iValue > 32767) iValue -= 65536;
  const int iSeg = SlowSegment(iValue);
  return 127 - (iSeg * 16 + SlowStep(iValue, 8 * PowerOfTwo(iSeg))) + (iSample < 0 ? 0 : 128);
}

// Walks from the quietest code to the wanted one: a segment has 16 steps of one size.
int SlowAlawMagnitude(int iCode) {
  int iEdge = 0;
  int iSize = 16;
  for (int i = 0; i < iCode; i++) {
    iEdge += iSize;
    if ((i + 1) % 16 == 0 && i + 1 >= 32) iSize *= 2;
  }
  return iEdge + iSize / 2;
}

int SlowUlawMagnitude(int iCode) {
  int iMagnitude = 0;
  int iSize = 8;
  for (int i = 0; i < iCode; i++) {
    // The step over the border of two segments reaches half way into the larger size.
    iMagnitude += (i + 1) % 16 == 0 ? iSize + iSize / 2 : iSize;
    if ((i + 1) % 16 == 0) iSize *= 2;
  }
  return iMagnitude;
}

int SlowAlawToLinear(int iByte) {
  int iCode = 0;
  for (int iBit = 0; iBit < 7; iBit++) {
    const int iValueOfBit = FloorMod(FloorDiv(iByte, PowerOfTwo(iBit)), 2);
    iCode += PowerOfTwo(iBit) * (iBit % 2 == 0 ? 1 - iValueOfBit : iValueOfBit);
  }
  return iByte >= 128 ? SlowAlawMagnitude(iCode) : -SlowAlawMagnitude(iCode);
}

int SlowUlawToLinear(int iByte) {
  return iByte >= 128 ? SlowUlawMagnitude(255 - iByte) : -SlowUlawMagnitude(127 - iByte);
}

TEST(Alaw, CodesAllSamples) {
  for (int i = -32768; i <= 32767; i++) {
    ASSERT_EQ(linear2alaw(static_cast<short>(i)), SlowLinearToAlaw(i)) << "sample " << i;
  }
}

TEST(Alaw, DecodesAllCodes) {
  for (int i = 0; i < 256; i++)
    EXPECT_EQ(alaw2linear(static_cast<unsigned char>(i)), SlowAlawToLinear(i)) << "code " << i;
}

TEST(Alaw, EveryCodeComesBack) {
  for (int i = 0; i < 256; i++) {
    const unsigned char chCode = static_cast<unsigned char>(i);
    EXPECT_EQ(linear2alaw(alaw2linear(chCode)), chCode) << "code " << i;
  }
}

TEST(Alaw, ListedValues) {
  EXPECT_EQ(linear2alaw(0), 0xD5);
  EXPECT_EQ(linear2alaw(-8), 0x55);
  EXPECT_EQ(linear2alaw(32767), 0xAA);
  EXPECT_EQ(linear2alaw(-32768), 0x2A);
  EXPECT_EQ(alaw2linear(0xD5), 8);
  EXPECT_EQ(alaw2linear(0x55), -8);
  EXPECT_EQ(alaw2linear(0xAA), 32256);
  EXPECT_EQ(alaw2linear(0x2A), -32256);
}

TEST(Alaw, MinusOneToMinusSevenAre5A) {
  for (short iSample = -7; iSample <= -1; iSample++) EXPECT_EQ(linear2alaw(iSample), 0x5A) << "sample " << iSample;
  EXPECT_EQ(alaw2linear(0x5A), -248);
}

TEST(Ulaw, CodesAllSamples) {
  for (int i = -32768; i <= 32767; i++) {
    ASSERT_EQ(linear2ulaw(static_cast<short>(i)), SlowLinearToUlaw(i)) << "sample " << i;
  }
}

TEST(Ulaw, DecodesAllCodes) {
  for (int i = 0; i < 256; i++)
    EXPECT_EQ(ulaw2linear(static_cast<unsigned char>(i)), SlowUlawToLinear(i)) << "code " << i;
}

// Except 0x7F, the negative zero: its sample 0 counts as positive.
TEST(Ulaw, EveryCodeButNegativeZeroComesBack) {
  for (int i = 0; i < 256; i++) {
    const unsigned char chCode = static_cast<unsigned char>(i);
    EXPECT_EQ(linear2ulaw(ulaw2linear(chCode)), i == 0x7F ? 0xFF : i) << "code " << i;
  }
}

TEST(Ulaw, ListedValues) {
  EXPECT_EQ(linear2ulaw(0), 0xFF);
  EXPECT_EQ(linear2ulaw(-1), 0x7F);
  EXPECT_EQ(linear2ulaw(32635), 0x80);
  EXPECT_EQ(linear2ulaw(-32635), 0x00);
  EXPECT_EQ(ulaw2linear(0xFF), 0);
  EXPECT_EQ(ulaw2linear(0x7F), 0);
  EXPECT_EQ(ulaw2linear(0x80), 32124);
  EXPECT_EQ(ulaw2linear(0x00), -32124);
}

TEST(Ulaw, PeaksWrapToNearSilence) {
  EXPECT_EQ(linear2ulaw(32636), 0xFF);
  EXPECT_EQ(linear2ulaw(-32636), 0x7F);
  EXPECT_EQ(linear2ulaw(32767), SlowLinearToUlaw(32767));
  EXPECT_EQ(linear2ulaw(-32768), 0x7F);
}

// A code table as runs: values from iFirst to iLast in steps of iBy, each iTimes times.
struct Run {
  int iFirst, iLast, iBy, iTimes;
};

std::vector<int> Unfold(const std::vector<Run>& rRuns) {
  std::vector<int> rValues;
  for (const Run& rRun : rRuns) {
    for (int i = rRun.iFirst; i <= rRun.iLast; i += rRun.iBy)
      rValues.insert(rValues.end(), static_cast<size_t>(rRun.iTimes), i);
  }
  return rValues;
}

TEST(Transcoding, AlawToUlawFollowsItsTable) {
  const std::vector<int> rTable = Unfold({{1, 15, 2, 1},
                                          {16, 31, 1, 1},
                                          {32, 35, 1, 2},
                                          {36, 47, 1, 1},
                                          {48, 49, 1, 2},
                                          {50, 63, 1, 1},
                                          {64, 64, 1, 2},
                                          {65, 78, 1, 1},
                                          {79, 79, 1, 2},
                                          {80, 127, 1, 1}});
  ASSERT_EQ(rTable.size(), 128U);
  for (size_t i = 0; i < 128; i++) {
    EXPECT_EQ(alaw2ulaw(static_cast<unsigned char>(i ^ 0xD5)), 0xFF ^ rTable[i]) << "positive code " << i;
    EXPECT_EQ(alaw2ulaw(static_cast<unsigned char>(i ^ 0x55)), 0x7F ^ rTable[i]) << "negative code " << i;
  }
}

TEST(Transcoding, UlawToAlawFollowsItsTable) {
  const std::vector<int> rTable = Unfold({{1, 8, 1, 2},
                                          {9, 25, 1, 1},
                                          {27, 31, 2, 1},
                                          {33, 44, 1, 1},
                                          {46, 46, 1, 1},
                                          {48, 62, 1, 1},
                                          {64, 79, 1, 1},
                                          {81, 128, 1, 1}});
  ASSERT_EQ(rTable.size(), 128U);
  for (size_t i = 0; i < 128; i++) {
    EXPECT_EQ(ulaw2alaw(static_cast<unsigned char>(i ^ 0xFF)), 0xD5 ^ (rTable[i] - 1)) << "positive code " << i;
    EXPECT_EQ(ulaw2alaw(static_cast<unsigned char>(i ^ 0x7F)), 0x55 ^ (rTable[i] - 1)) << "negative code " << i;
  }
}

TEST(Transcoding, StaysWithinOneStepOfTheRoadThroughSamples) {
  for (int i = 0; i < 256; i++) {
    const unsigned char chCode = static_cast<unsigned char>(i);
    const int iUlaw = alaw2ulaw(chCode);
    const int iUlawOfSample = linear2ulaw(alaw2linear(chCode));
    EXPECT_LE(abs(iUlaw - iUlawOfSample), 1) << "A-law code " << i;
    if (i == 0x7F) continue;                     // negative zero changes its sign on the road through samples
    const int iAlaw = ulaw2alaw(chCode) ^ 0x55;  // without the inverted bits neighbours differ by one
    const int iAlawOfSample = linear2alaw(ulaw2linear(chCode)) ^ 0x55;
    EXPECT_LE(abs(iAlaw - iAlawOfSample), 1) << "mu-law code " << i;
  }
}

TEST(AudioLaw, SilenceIsTheQuietestCodeAndEveryCodeComesBack) {
  for (const AudioLaw& rLaw : {LAW_A, LAW_U}) {
    SCOPED_TRACE(rLaw.acName);
    for (int i = 0; i < 256; i++) {
      const auto ucCode = static_cast<unsigned char>(i);
      EXPECT_GE(std::abs(rLaw.ToLinear(ucCode)), std::abs(rLaw.ToLinear(rLaw.ucSilence))) << i;
      if (rLaw.ToLinear(ucCode) == 0) continue;  // mu-law has two codes of it, and makes one
      EXPECT_EQ(rLaw.FromLinear(rLaw.ToLinear(ucCode)), ucCode) << i;
    }
  }
}

}  // namespace
