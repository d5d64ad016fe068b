// simcards_g711: G.711 of the simulated cards. Apart from the daemon's own conversions on purpose: a fault in those
// must not hide behind the same fault here.
// Threads: any; pure functions.
#pragma once

#include "shpa3api.h"

namespace simcards {

constexpr BYTE ALAW_SILENCE = 0xD5;
constexpr BYTE ULAW_SILENCE = 0xFF;

BYTE SilenceByte(int nFormat);
BYTE LinearToLaw(int nFormat, int iSample);  // iSample is clipped to 16 bits
int LawToLinear(int nFormat, BYTE ucByte);

}  // namespace simcards
