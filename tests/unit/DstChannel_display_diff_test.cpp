// The display analysis of the daemon against the oracle, on generated displays and lines.
// MORVEX_DISPLAYS: how many; MORVEX_DISPLAY_SEED: where the generator starts (both printed). script/test-display sets
// them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "DisplayCompare.h"
#include "DisplayGenerator.h"

namespace {

constexpr unsigned long DISPLAYS = 300'000;
constexpr unsigned long SEED = 20'151'203;

unsigned long FromEnvironment(const char* acName, unsigned long iDefault) {
  const char* acValue = getenv(acName);
  return acValue == nullptr ? iDefault : strtoul(acValue, nullptr, 10);
}

}  // namespace

TEST(DisplayDifference, ChannelAndOracleAgree) {
  const unsigned long iDisplays = FromEnvironment("MORVEX_DISPLAYS", DISPLAYS);
  const unsigned long iSeed = FromEnvironment("MORVEX_DISPLAY_SEED", SEED);
  ASSERT_GT(iDisplays, 0UL);
  printf("%lu displays, seed %lu\n", iDisplays, iSeed);
  std::mt19937_64 rRandom(iSeed);
  DisplayGenerator rGenerator([&rRandom](unsigned iBelow) { return static_cast<unsigned>(rRandom() % iBelow); });
  DisplayCompare rCompare;
  int iDiffers = 0;
  for (unsigned long i = 0; i < iDisplays && iDiffers < 5; i++) {
    const oracle::Line rLine = rGenerator.MakeLine();
    const std::string strDifference = rCompare.Compare(rLine, static_cast<ECompareHow>(i % COMPARE_HOWS));
    if (strDifference.empty()) continue;
    iDiffers++;
    ADD_FAILURE() << "display " << i << ": " << strDifference;
  }
}
