#include "samples.h"

#include <algorithm>

namespace {

using BYTE = unsigned char;

constexpr int CODES = 256;

struct Tables {
  explicit Tables(const AudioLaw& rLaw) {
    for (int iOne = 0; iOne < CODES; iOne++) {
      for (int iOther = 0; iOther < CODES; iOther++) {
        const int iSum = rLaw.ToLinear(static_cast<BYTE>(iOne)) + rLaw.ToLinear(static_cast<BYTE>(iOther));
        acSums[iOne][iOther] = rLaw.FromLinear(static_cast<short>(std::clamp(iSum, -32768, 32767)));
      }
    }
  }

  BYTE acSums[CODES][CODES];
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
