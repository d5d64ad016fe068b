// g711: ITU-T G.711 conversions between 16-bit linear samples and A-law or mu-law bytes.
// All in 16-bit arithmetic, with the edges that follow: mu-law does not clip, A-law codes -1 to -7 as 0x5A. The edges
// are kept on purpose: mixed recordings are made of these bytes, and sound alike only as long as the edges stay.
// Threads:   any; pure functions, every input has an output.
#pragma once

constexpr int SAMPLES_PER_S = 8000;  // of all audio; a sample is a byte

unsigned char linear2alaw(short pcm_val);
short alaw2linear(unsigned char a_val);
unsigned char linear2ulaw(short pcm_val);
short ulaw2linear(unsigned char u_val);
// Both are part of the interface; nothing in the daemon calls them.
unsigned char alaw2ulaw(unsigned char aval);
unsigned char ulaw2alaw(unsigned char uval);

// One of the two laws, with all that depends on it.
struct AudioLaw {
  const char* acName;
  unsigned short wFormatTag;  // in the header of a WAV file
  unsigned char ucSilence;    // the byte of silenced audio
  short (*ToLinear)(unsigned char ucCode);
  unsigned char (*FromLinear)(short iSample);
};
inline constexpr AudioLaw LAW_A = {"alaw", 6, 0xd5, alaw2linear, linear2alaw};
inline constexpr AudioLaw LAW_U = {"ulaw", 7, 0xff, ulaw2linear, linear2ulaw};
