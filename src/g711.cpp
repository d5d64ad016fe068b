// A code is a sign bit, three bits of segment (the power of two) and four bits of step inside the segment, inverted by
// a mask. A segment ends where the next power of two begins, so finding it takes at most eight comparisons.
// Narrowing to short and shifting negative values right wrap and keep the sign here, as on every compiler that we use.
#include "g711.h"

namespace {

using BYTE = unsigned char;

constexpr int SEGMENTS = 8;
constexpr short seg_end[SEGMENTS] = {255, 511, 1023, 2047, 4095, 8191, 16383, 32767};

constexpr int ALAW_POSITIVE = 0xD5;  // sign bit, and every other bit inverted
constexpr int ALAW_NEGATIVE = 0x55;
constexpr int ULAW_POSITIVE = 0xFF;
constexpr int ULAW_NEGATIVE = 0x7F;
constexpr int SIGN_BIT = 0x80;
constexpr int SEGMENT_BITS = 0x70;
constexpr int STEP_BITS = 0x0F;
constexpr int LOUDEST_CODE = 0x7F;
constexpr int ULAW_BIAS = 0x84;   // makes the segments of mu-law begin at powers of two
constexpr int ALAW_BIAS = 0x108;  // the implied leading bit of a segment, and half a step
constexpr int ALAW_HALF_STEP = 8;

// Codes without sign; transcoding by table loses less than going through linear samples.
constexpr BYTE rAlawToUlaw[128] = {
    1,   3,   5,   7,   9,   11,  13,  15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  26,  27,  28,  29,
    30,  31,  32,  32,  33,  33,  34,  34,  35,  35,  36,  37,  38,  39,  40,  41,  42,  43,  44,  45,  46,  47,
    48,  48,  49,  49,  50,  51,  52,  53,  54,  55,  56,  57,  58,  59,  60,  61,  62,  63,  64,  64,  65,  66,
    67,  68,  69,  70,  71,  72,  73,  74,  75,  76,  77,  78,  79,  79,  80,  81,  82,  83,  84,  85,  86,  87,
    88,  89,  90,  91,  92,  93,  94,  95,  96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109,
    110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127,
};

constexpr BYTE rUlawToAlaw[128] = {
    1,   1,   2,   2,   3,   3,   4,   4,   5,   5,   6,   6,   7,   7,   8,   8,   9,   10,  11,  12,  13,  14,
    15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25,  27,  29,  31,  33,  34,  35,  36,  37,  38,  39,  40,
    41,  42,  43,  44,  46,  48,  49,  50,  51,  52,  53,  54,  55,  56,  57,  58,  59,  60,  61,  62,  64,  65,
    66,  67,  68,  69,  70,  71,  72,  73,  74,  75,  76,  77,  78,  79,  81,  82,  83,  84,  85,  86,  87,  88,
    89,  90,  91,  92,  93,  94,  95,  96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110,
    111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128,
};

// The first segment that reaches up to the value, or SEGMENTS.
int FindSegment(short iValue) {
  int iSeg = 0;
  while (iSeg < SEGMENTS && iValue > seg_end[iSeg]) iSeg++;
  return iSeg;
}

}  // namespace

// Samples -1 to -7 are negative still after the step of -8, land in segment 0 and take their step from the low byte:
// 0x5A, heard as -248. This small error around zero is part of how mixed recordings sound; see
// MinusOneToMinusSevenAre5A.
unsigned char linear2alaw(short pcm_val) {
  const int iMask = pcm_val >= 0 ? ALAW_POSITIVE : ALAW_NEGATIVE;
  if (pcm_val < 0) pcm_val = static_cast<short>(-8 - pcm_val);
  const int iSeg = FindSegment(pcm_val);
  if (iSeg >= SEGMENTS) return static_cast<BYTE>(LOUDEST_CODE ^ iMask);
  const int iStep = iSeg < 2 ? (pcm_val & 0xFF) >> 4 : (pcm_val >> (iSeg + 3)) & STEP_BITS;
  return static_cast<BYTE>(((iSeg << 4) + iStep) ^ iMask);
}

short alaw2linear(unsigned char a_val) {
  const int iCode = a_val ^ ALAW_NEGATIVE;
  const int iSeg = (iCode & SEGMENT_BITS) >> 4;
  int iSample = (iCode & STEP_BITS) << 4;
  if (iSeg == 0) {
    iSample += ALAW_HALF_STEP;
  } else {
    iSample = (iSample + ALAW_BIAS) << (iSeg - 1);
  }
  return static_cast<short>((iCode & SIGN_BIT) != 0 ? iSample : -iSample);
}

// Nothing is clipped: from a magnitude of 32636 on the sum wraps to a negative value and passes at segment 0, so a
// full-scale peak turns to near silence; see PeaksWrapToNearSilence.
unsigned char linear2ulaw(short pcm_val) {
  const int iMask = pcm_val < 0 ? ULAW_NEGATIVE : ULAW_POSITIVE;
  const short iValue = static_cast<short>(pcm_val < 0 ? ULAW_BIAS - pcm_val : pcm_val + ULAW_BIAS);
  const int iSeg = FindSegment(iValue);
  if (iSeg >= SEGMENTS) return static_cast<BYTE>(LOUDEST_CODE ^ iMask);
  return static_cast<BYTE>(((iSeg << 4) | ((iValue >> (iSeg + 3)) & STEP_BITS)) ^ iMask);
}

short ulaw2linear(unsigned char u_val) {
  const int iCode = ~u_val & 0xFF;
  const int iSample = (((iCode & STEP_BITS) << 3) + ULAW_BIAS) << ((iCode & SEGMENT_BITS) >> 4);
  return static_cast<short>((iCode & SIGN_BIT) != 0 ? ULAW_BIAS - iSample : iSample - ULAW_BIAS);
}

unsigned char alaw2ulaw(unsigned char aval) {
  if ((aval & SIGN_BIT) != 0) return static_cast<BYTE>(ULAW_POSITIVE ^ rAlawToUlaw[aval ^ ALAW_POSITIVE]);
  return static_cast<BYTE>(ULAW_NEGATIVE ^ rAlawToUlaw[aval ^ ALAW_NEGATIVE]);
}

unsigned char ulaw2alaw(unsigned char uval) {
  if ((uval & SIGN_BIT) != 0) return static_cast<BYTE>(ALAW_POSITIVE ^ (rUlawToAlaw[ULAW_POSITIVE ^ uval] - 1));
  return static_cast<BYTE>(ALAW_NEGATIVE ^ (rUlawToAlaw[ULAW_NEGATIVE ^ uval] - 1));
}
