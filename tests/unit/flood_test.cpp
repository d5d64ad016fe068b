#include "flood.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::int64_t NOW = 1'000'000;
constexpr int BURST = FloodLimit::BURST;

// How many of these messages leave.
int Send(FloodLimit& rLimit, const std::string& strText, int iMessages, std::int64_t iNowMs) {
  int iLeft = 0;
  for (int i = 0; i < iMessages; i++) {
    iLeft += rLimit.Admit((strText + std::to_string(i)).c_str(), iNowMs) ? 1 : 0;
  }
  return iLeft;
}

TEST(FloodLimit, BurstLeavesAndTheRestIsCountedWithItsLastText) {
  FloodLimit rLimit;
  EXPECT_EQ(Send(rLimit, "block ", BURST, NOW), BURST);
  EXPECT_FALSE(rLimit.HasLeftOut());
  EXPECT_EQ(Send(rLimit, "block ", 5, NOW), 0);
  EXPECT_TRUE(rLimit.HasLeftOut());
  FloodLimit::LeftOut rLeftOut;
  EXPECT_FALSE(rLimit.Take(NOW, /*fAll=*/false, rLeftOut)) << "the kind may not speak yet";
  EXPECT_TRUE(rLimit.Take(NOW, /*fAll=*/true, rLeftOut));
  EXPECT_EQ(rLeftOut.iCount, 5U);
  EXPECT_STREQ(rLeftOut.acLast, "block 4");
  EXPECT_FALSE(rLimit.HasLeftOut());
  EXPECT_FALSE(rLimit.Take(NOW, /*fAll=*/true, rLeftOut)) << "told once";
}

TEST(FloodLimit, AllowanceFillsWithTimeUpToTheBurst) {
  FloodLimit rLimit;
  EXPECT_EQ(Send(rLimit, "block ", 2 * BURST, NOW), BURST);
  EXPECT_EQ(Send(rLimit, "block ", BURST, NOW + FloodLimit::REFILL_MS - 1), 0);
  EXPECT_EQ(Send(rLimit, "block ", BURST, NOW + FloodLimit::REFILL_MS), 1);
  EXPECT_EQ(Send(rLimit, "block ", BURST, NOW + 5 * FloodLimit::REFILL_MS + 1), 4);
  FloodLimit::LeftOut rLeftOut;
  EXPECT_TRUE(rLimit.Take(NOW + 6 * FloodLimit::REFILL_MS, /*fAll=*/false, rLeftOut));
  EXPECT_EQ(rLeftOut.iCount, static_cast<unsigned long>(BURST + BURST + BURST - 1 + BURST - 4));
  EXPECT_EQ(Send(rLimit, "block ", 2 * BURST, NOW + 1000 * FloodLimit::REFILL_MS), BURST)
      << "a long pause forgives all";
}

TEST(FloodLimit, MinuteOfAFloodIsAHundredAMinute) {
  FloodLimit rLimit;
  int iLeft = 0;
  for (int iMs = 0; iMs < 60'000; iMs++) iLeft += Send(rLimit, "block ", 1, NOW + iMs);
  EXPECT_EQ(iLeft, BURST + 60'000 / FloodLimit::REFILL_MS - 1);
}

TEST(FloodLimit, KindsDoNotHinderEachOther) {
  FloodLimit rLimit;
  EXPECT_EQ(Send(rLimit, "block ", 2 * BURST, NOW), BURST);
  EXPECT_EQ(Send(rLimit, "file ", 1, NOW), 1);
}

TEST(FloodLimit, KindsBeyondTheTableShareItsLastPlaceUntilOthersAreQuiet) {
  FloodLimit rLimit;
  int iLeft = 0;
  for (int iKind = 1; iKind <= 1000; iKind++)
    iLeft += Send(rLimit, std::string(static_cast<std::size_t>(iKind), 'x'), 1, NOW);
  EXPECT_EQ(iLeft, static_cast<int>(FloodLimit::KINDS) - 1 + BURST);
  EXPECT_EQ(Send(rLimit, "x", 1, NOW), 1);
  const std::int64_t rLater = NOW + 1000 * FloodLimit::REFILL_MS;
  FloodLimit::LeftOut rLeftOut;
  ASSERT_TRUE(rLimit.Take(rLater, /*fAll=*/false, rLeftOut));
  EXPECT_EQ(rLeftOut.iCount, 1000U - FloodLimit::KINDS + 1 - BURST);
  for (std::size_t iKind = 0; iKind + 1 < FloodLimit::KINDS; iKind++) {
    EXPECT_EQ(Send(rLimit, std::string(iKind + 1, 'y'), 2 * BURST, rLater), BURST) << iKind;
  }
}

TEST(FloodLimit, LongTextIsCut) {
  FloodLimit rLimit;
  (void)Send(rLimit, "block ", BURST, NOW);
  EXPECT_FALSE(rLimit.Admit(("block " + std::string(1000, '7')).c_str(), NOW));
  FloodLimit::LeftOut rLeftOut;
  ASSERT_TRUE(rLimit.Take(NOW, /*fAll=*/true, rLeftOut));
  EXPECT_EQ(rLeftOut.acLast, "block " + std::string(FloodLimit::TEXT_BYTES - 7, '7'));
}

}  // namespace
