#include "samples.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "AudioReference.h"

namespace {

constexpr int CODES = 256;

const unsigned char* Bytes(const std::string& strBytes) {
  return reinterpret_cast<const unsigned char*>(strBytes.data());
}
std::string MixedSamples(const AudioLaw& rLaw, std::string strInto, const std::string& strFrom) {
  MixSamples(rLaw, reinterpret_cast<unsigned char*>(strInto.data()), Bytes(strFrom), strFrom.size());
  return strInto;
}

TEST(Samples, EverySumIsThatOfTheFunctionsAndOfTheReference) {
  std::string strOne, strOther;
  for (int i = 0; i < CODES * CODES; i++) {
    strOne += static_cast<char>(i / CODES);
    strOther += static_cast<char>(i % CODES);
  }
  for (const AudioLaw& rLaw : {LAW_A, LAW_U}) {
    SCOPED_TRACE(rLaw.acName);
    std::string strSums;
    for (int i = 0; i < CODES * CODES; i++) {
      const int iSum =
          rLaw.ToLinear(static_cast<unsigned char>(i / CODES)) + rLaw.ToLinear(static_cast<unsigned char>(i % CODES));
      strSums += static_cast<char>(rLaw.FromLinear(static_cast<short>(std::clamp(iSum, -32768, 32767))));
    }
    const std::string strMixed = MixedSamples(rLaw, strOne, strOther);
    ExpectSame(strSums, strMixed);
    ExpectSame(Mixed(strOne, strOther, rLaw.wFormatTag == LAW_U.wFormatTag), strMixed);
  }
}

TEST(Samples, SumsTouchNothingBehindThem) {
  std::string strInto = "abcdefgh";
  MixSamples(LAW_A, reinterpret_cast<unsigned char*>(strInto.data()), Bytes("ijkl"), 0);
  EXPECT_EQ("abcdefgh", strInto);
  EXPECT_EQ(Mixed("abc", "ijk", /*fULaw=*/false) + "defgh", MixedSamples(LAW_A, strInto, "ijk"));
}

TEST(Samples, SquaresAddUpAsOneByOneToTheLastBit) {
  for (const AudioLaw& rLaw : {LAW_A, LAW_U}) {
    SCOPED_TRACE(rLaw.acName);
    const std::string strAudio = Noise(100'000, 7);
    double dWanted = 0;
    double dSum = 0;
    std::size_t uiLength = 0;
    for (std::size_t uiFrom = 0; uiFrom < strAudio.size(); uiFrom += uiLength) {
      uiLength = std::min(strAudio.size() - uiFrom, 1 + uiFrom % 997);
      for (std::size_t i = uiFrom; i < uiFrom + uiLength; i++) {
        const double dSample = rLaw.ToLinear(static_cast<unsigned char>(strAudio[i])) * 3.0517578125e-05;
        dWanted += dSample * dSample;
      }
      dSum = AddSquares(rLaw, dSum, Bytes(strAudio) + uiFrom, uiLength);
      ASSERT_EQ(0, memcmp(&dWanted, &dSum, sizeof dSum)) << uiFrom << ": " << dWanted << ", " << dSum;
    }
    EXPECT_EQ(dSum, AddSquares(rLaw, dSum, Bytes(strAudio), 0));
  }
}

TEST(Samples, ChannelsAlternateAtAnyLengthAndPlace) {
  const std::string strFirst = Noise(300, 1);
  const std::string strSecond = Noise(300, 2);
  for (std::size_t uiFrom = 0; uiFrom < 17; uiFrom++) {
    for (std::size_t uiSamples = 0; uiSamples < 100; uiSamples++) {
      std::string strPairs(300, '?');
      InterleaveSamples(reinterpret_cast<unsigned char*>(strPairs.data()) + uiFrom, Bytes(strFirst) + uiFrom,
                        Bytes(strSecond) + 2 * uiFrom, uiSamples);
      const std::string strWanted = std::string(uiFrom, '?') + Interleaved(strFirst.substr(uiFrom, uiSamples),
                                                                           strSecond.substr(2 * uiFrom, uiSamples));
      ASSERT_EQ(strWanted + std::string(300 - strWanted.size(), '?'), strPairs) << uiFrom << ", " << uiSamples;
    }
  }
}

}  // namespace
