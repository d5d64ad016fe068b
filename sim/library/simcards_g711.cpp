#include "simcards_g711.h"

#include <algorithm>

namespace simcards {
namespace {

constexpr int ALAW_TOGGLE = 0x55;  // even bits are inverted on the line
constexpr int ULAW_BIAS = 0x84;
constexpr int ULAW_CLIP = 32635;  // the largest sample that stays in 15 bits once the bias is added
constexpr int SIGN_BIT = 0x80;

int HighestBit(int iValue) {  // 0 for 0 and 1
  int iBit = 0;
  for (; iValue > 1; iValue >>= 1) iBit++;
  return iBit;
}

// Segment 0 and 1 share one step size; each further segment doubles it.
BYTE LinearToAlaw(int iSample) {
  const int iMagnitude = (iSample >= 0 ? iSample : -iSample - 1) >> 3;  // 12 bits
  const int iSegment = std::max(HighestBit(iMagnitude) - 4, 0);
  const int iStep = iMagnitude >> std::max(iSegment, 1) & 0x0F;
  const int iSign = iSample >= 0 ? SIGN_BIT : 0;
  return static_cast<BYTE>((iSign | iSegment << 4 | iStep) ^ ALAW_TOGGLE);
}

int AlawToLinear(BYTE ucByte) {
  const int iCode = ucByte ^ ALAW_TOGGLE;
  const int iSegment = iCode >> 4 & 7;
  int iMagnitude = ((iCode & 0x0F) << 4) + 8;  // the middle of the step
  if (iSegment > 0) iMagnitude = (iMagnitude + 0x100) << (iSegment - 1);
  return (iCode & SIGN_BIT) != 0 ? iMagnitude : -iMagnitude;
}

BYTE LinearToUlaw(int iSample) {
  const int iMagnitude = std::min(iSample >= 0 ? iSample : -iSample, ULAW_CLIP) + ULAW_BIAS;
  const int iSegment = HighestBit(iMagnitude) - 7;
  const int iStep = iMagnitude >> (iSegment + 3) & 0x0F;
  const int iSign = iSample >= 0 ? 0 : SIGN_BIT;
  return static_cast<BYTE>(~(iSign | iSegment * 16 | iStep));
}

int UlawToLinear(BYTE ucByte) {
  const int iCode = ~ucByte & 0xFF;
  const int iMagnitude = ((((iCode & 0x0F) << 3) + ULAW_BIAS) << (iCode >> 4 & 7)) - ULAW_BIAS;
  return (iCode & SIGN_BIT) != 0 ? -iMagnitude : iMagnitude;
}

}  // namespace

BYTE SilenceByte(int nFormat) {
  return nFormat == SSM_FORMAT_ULAW ? ULAW_SILENCE : ALAW_SILENCE;
}

BYTE LinearToLaw(int nFormat, int iSample) {
  iSample = std::clamp(iSample, -32768, 32767);
  return nFormat == SSM_FORMAT_ULAW ? LinearToUlaw(iSample) : LinearToAlaw(iSample);
}

int LawToLinear(int nFormat, BYTE ucByte) {
  return nFormat == SSM_FORMAT_ULAW ? UlawToLinear(ucByte) : AlawToLinear(ucByte);
}

}  // namespace simcards
