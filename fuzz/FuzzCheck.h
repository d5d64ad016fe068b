// FuzzCheck: what a fuzz target says when a rule does not hold. libFuzzer keeps the input then.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

inline void FuzzCheck(bool fHolds, const char* acRule) {
  if (fHolds) return;
  (void)fprintf(stderr, "rule broken: %s\n", acRule);
  abort();
}

inline std::string FuzzText(const uint8_t* prData, size_t iSize) {
  return std::string(reinterpret_cast<const char*>(prData), iSize);
}
