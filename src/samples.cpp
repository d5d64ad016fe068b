#include "samples.h"

#include <algorithm>
#include <cstring>

namespace {

using BYTE = unsigned char;

constexpr int CODES = 256;
constexpr double LINEAR_SCALE = 3.0517578125e-05;  // 1/32768

struct Tables {
  explicit Tables(const AudioLaw& rLaw) {
    for (int iOne = 0; iOne < CODES; iOne++) {
      const double dSample = rLaw.ToLinear(static_cast<BYTE>(iOne)) * LINEAR_SCALE;
      adSquares[iOne] = dSample * dSample;
      for (int iOther = 0; iOther < CODES; iOther++) {
        const int iSum = rLaw.ToLinear(static_cast<BYTE>(iOne)) + rLaw.ToLinear(static_cast<BYTE>(iOther));
        acSums[iOne][iOther] = rLaw.FromLinear(static_cast<short>(std::clamp(iSum, -32768, 32767)));
      }
    }
  }

  BYTE acSums[CODES][CODES];
  double adSquares[CODES];
};

const Tables& TablesOf(const AudioLaw& rLaw) {
  if (rLaw.wFormatTag == LAW_U.wFormatTag) {
    static const Tables rULaw(LAW_U);
    return rULaw;
  }
  static const Tables rALaw(LAW_A);
  return rALaw;
}

}  // namespace

void MixSamples(const AudioLaw& rLaw, BYTE* acInto, const BYTE* acFrom, std::size_t uiSamples) {
  const Tables& rTables = TablesOf(rLaw);
  for (std::size_t i = 0; i < uiSamples; i++) acInto[i] = rTables.acSums[acInto[i]][acFrom[i]];
}

double AddSquares(const AudioLaw& rLaw, double dSum, const BYTE* acSamples, std::size_t uiSamples) {
  const Tables& rTables = TablesOf(rLaw);
  // Squares are multiples of 2^-26, so that no addition rounds and their order is free: the next one need not wait for
  // the one before.
  double dOdd = 0;
  std::size_t i = 0;
  for (; i + 2 <= uiSamples; i += 2) {
    dSum += rTables.adSquares[acSamples[i]];
    dOdd += rTables.adSquares[acSamples[i + 1]];
  }
  if (i < uiSamples) dSum += rTables.adSquares[acSamples[i]];
  return dSum + dOdd;
}

void InterleaveSamples(BYTE* acPairs, const BYTE* acFirst, const BYTE* acSecond, std::size_t uiSamples) {
  constexpr std::size_t SAMPLES_AT_ONCE = 16;  // so many fill a vector register, for a loop of fixed length
  std::size_t i = 0;
  for (; i + SAMPLES_AT_ONCE <= uiSamples; i += SAMPLES_AT_ONCE) {
    BYTE acBlock[2 * SAMPLES_AT_ONCE];
    for (std::size_t k = 0; k < SAMPLES_AT_ONCE; k++) {
      acBlock[2 * k] = acFirst[i + k];
      acBlock[2 * k + 1] = acSecond[i + k];
    }
    memcpy(acPairs + 2 * i, acBlock, sizeof acBlock);
  }
  for (; i < uiSamples; i++) {
    acPairs[2 * i] = acFirst[i];
    acPairs[2 * i + 1] = acSecond[i];
  }
}
