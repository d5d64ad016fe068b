#include "cli_words.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(ComplainOfNumber, RangeIsToldInPlainWords) {
  constexpr double ENDLESS = std::numeric_limits<double>::infinity();
  const struct {
    const char* acText;
    double dLeast, dMost;
    const char* acComplaint;
  } rRows[] = {
      {"0", 0, 100, ""},
      {"100", 0, 100, ""},
      {"2.5", 0, 100, ""},
      {"1e9", 0, ENDLESS, ""},
      {"-1", 0, 100, "'-1' is no number of 0 to 100"},
      {"100.1", 0, 100, "'100.1' is no number of 0 to 100"},
      {"-3", 0, ENDLESS, "'-3' is no number of 0 or more"},
      {"0", 0.01, 1000, "'0' is no number of 0.01 to 1000"},
      {"nan", 0, ENDLESS, "'nan' is no number of 0 or more"},
      {"inf", 0, ENDLESS, "'inf' is no number of 0 or more"},
      {"5x", 0, 100, "'5x' is no number of 0 to 100"},
      {"", 0, 100, "'' is no number of 0 to 100"},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(ComplainOfNumber(rRow.acText, rRow.dLeast, rRow.dMost), rRow.acComplaint) << rRow.acText;
  }
}

}  // namespace
