// AudioReference: what the audio of a recording should be, computed apart from the daemon's own code: G.711 by its
// decision levels, mixing sample by sample, the WAV file byte by byte.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

constexpr int WAV_HEADER = 56;  // bytes

// -- G.711 once more, by its decision levels, so that mixing is checked against another computation -------------------

inline int DecodeA(unsigned char ucCode) {
  const int iCode = ucCode ^ 0x55;
  const int iStep = iCode & 15;
  const int iSegment = (iCode >> 4) & 7;
  const int iMagnitude = iSegment == 0 ? 16 * iStep + 8 : (16 * iStep + 264) << (iSegment - 1);
  return (iCode & 0x80) != 0 ? iMagnitude : -iMagnitude;
}

inline unsigned char EncodeA(int iSample) {
  const bool isPositive = iSample >= 0;
  const int iMagnitude = isPositive ? iSample : -8 - iSample;
  int iCode = 0;
  if (iMagnitude < 0) {
    iCode = 15;  // -1 to -7 fall to the end of the first segment
  } else {
    const auto LevelOf = [](int i) { return i < 32 ? 16 * i : ((i & 15) + 16) << ((i >> 4) + 3); };
    for (int i = 0; i < 128; i++) {
      if (LevelOf(i) <= iMagnitude) iCode = i;
    }
  }
  return static_cast<unsigned char>(iCode ^ (isPositive ? 0xd5 : 0x55));
}

inline int DecodeU(unsigned char ucCode) {
  const int iCode = ~ucCode & 0xff;
  const int iMagnitude = ((((iCode & 15) << 3) + 132) << ((iCode >> 4) & 7)) - 132;
  return (iCode & 0x80) != 0 ? -iMagnitude : iMagnitude;
}

inline unsigned char EncodeU(int iSample) {
  const int iBiased = std::abs(iSample) + 132;
  int iCode = 0;
  if (iBiased > 32767) {
    iCode =
        ((iBiased - 65536) / 8 - ((iBiased - 65536) % 8 != 0 ? 1 : 0)) & 15;  // no clipping: full scale wraps to quiet
  } else {
    for (int i = 0; i < 128; i++) {
      if (((i & 15) + 16) << ((i >> 4) + 3) <= iBiased) iCode = i;
    }
  }
  return static_cast<unsigned char>(iCode ^ (iSample >= 0 ? 0xff : 0x7f));
}

inline std::string Mixed(const std::string& strOne, const std::string& strOther, bool fULaw) {
  std::string strSum;
  for (std::size_t i = 0; i < strOne.size(); i++) {
    const auto ucOne = static_cast<unsigned char>(strOne[i]);
    const auto ucOther = static_cast<unsigned char>(strOther[i]);
    const int iSum = fULaw ? DecodeU(ucOne) + DecodeU(ucOther) : DecodeA(ucOne) + DecodeA(ucOther);
    const int iClipped = iSum > 32767 ? 32767 : iSum < -32768 ? -32768 : iSum;
    strSum += static_cast<char>(fULaw ? EncodeU(iClipped) : EncodeA(iClipped));
  }
  return strSum;
}

inline std::string Interleaved(const std::string& strOwn, const std::string& strLinked) {
  std::string strBoth;
  for (std::size_t i = 0; i < strOwn.size(); i++) {
    strBoth += strOwn[i];
    strBoth += strLinked[i];
  }
  return strBoth;
}

// -- what a file should hold ------------------------------------------------------------------------------------------

inline std::string Number(unsigned uiValue, int iBytes) {
  std::string strBytes;
  for (int i = 0; i < iBytes; i++) strBytes += static_cast<char>((uiValue >> (8 * i)) & 0xff);
  return strBytes;
}

inline std::string Wav(unsigned uiTag, unsigned uiChannels, unsigned uiCounted, const std::string& strAudio) {
  return "RIFF" + Number(uiCounted + 48, 4) + "WAVE" + "fmt " + Number(16, 4) + Number(uiTag, 2) +
         Number(uiChannels, 2) + Number(8000, 4) + Number(8000 * uiChannels, 4) + Number(uiChannels, 2) + Number(8, 2) +
         "fact" + Number(4, 4) + Number(uiCounted, 4) + "data" + Number(uiCounted, 4) + strAudio;
}
inline std::string Wav(unsigned uiTag, unsigned uiChannels, const std::string& strAudio) {
  return Wav(uiTag, uiChannels, static_cast<unsigned>(strAudio.size()), strAudio);
}

// For long texts: the place of the first difference instead of both texts.
inline void ExpectSame(const std::string& strWanted, const std::string& strGot) {
  EXPECT_EQ(strWanted.size(), strGot.size());
  const std::size_t uiCommon = std::min(strWanted.size(), strGot.size());
  std::size_t uiPos = 0;
  while (uiPos < uiCommon && strWanted[uiPos] == strGot[uiPos]) uiPos++;
  EXPECT_EQ(uiCommon, uiPos) << "first difference";
}

// All byte values in an order that does not repeat soon; iSeed makes streams differ.
inline std::string Noise(std::size_t uiBytes, unsigned uiSeed) {
  std::string strBytes;
  for (std::size_t i = 0; i < uiBytes; i++) {
    uiSeed = uiSeed * 1664525U + 1013904223U;
    strBytes += static_cast<char>(uiSeed >> 24);
  }
  return strBytes;
}
