#include "flood.h"

#include <cstdio>

namespace {

// Without the digits: they count blocks, name files, lines and rows.
std::uint64_t HashOfKind(const char* acText) {
  constexpr std::uint64_t FNV_START = 0xCBF29CE484222325;
  constexpr std::uint64_t FNV_PRIME = 0x100000001B3;
  std::uint64_t iHash = FNV_START;
  for (; *acText != '\0'; acText++) {
    if (*acText >= '0' && *acText <= '9') continue;
    iHash = (iHash ^ static_cast<unsigned char>(*acText)) * FNV_PRIME;
  }
  return iHash;
}

}  // namespace

bool FloodLimit::Admit(const char* acText, std::int64_t iNowMs) {
  Kind& rKind = Find(HashOfKind(acText), iNowMs);
  if (rKind.iAllowance > 0) {
    rKind.iAllowance--;
    return true;
  }
  if (rKind.rLeftOut.iCount++ == 0) iKindsLeftOut++;
  (void)snprintf(rKind.rLeftOut.acLast, TEXT_BYTES, "%s", acText);  // cut
  return false;
}

bool FloodLimit::Take(std::int64_t iNowMs, bool fAll, LeftOut& rLeftOut) {
  for (Kind& rKind : raKinds) {
    if (rKind.rLeftOut.iCount == 0) continue;
    Refill(rKind, iNowMs);
    if (rKind.iAllowance == 0 && !fAll) continue;
    rLeftOut = rKind.rLeftOut;
    rKind.rLeftOut = LeftOut();
    iKindsLeftOut--;
    return true;
  }
  return false;
}

// A kind whose allowance is whole is like one that never spoke, and gives its place to another.
FloodLimit::Kind& FloodLimit::Find(std::uint64_t iHash, std::int64_t iNowMs) {
  Kind* prFree = nullptr;
  for (Kind& rKind : raKinds) {
    Refill(rKind, iNowMs);
    if (rKind.iHash == iHash) return rKind;
    if (prFree == nullptr && rKind.iAllowance == BURST && rKind.rLeftOut.iCount == 0) prFree = &rKind;
  }
  if (prFree == nullptr) return raKinds[KINDS - 1];
  prFree->iHash = iHash;
  return *prFree;
}

void FloodLimit::Refill(Kind& rKind, std::int64_t iNowMs) {
  const std::int64_t iMore = (iNowMs - rKind.iFilledMs) / REFILL_MS;
  if (rKind.iAllowance + iMore >= BURST) {
    rKind.iAllowance = BURST;
    rKind.iFilledMs = iNowMs;  // time that passes on a whole allowance is not saved up
  } else {
    rKind.iAllowance += static_cast<int>(iMore);
    rKind.iFilledMs += iMore * REFILL_MS;
  }
}
