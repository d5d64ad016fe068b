#include "cli_words.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

TEST(NearestWord, IsTheOneWithFewestEdits) {
  const std::vector<std::string> astrWords = {"silence", "sound", "start", "stop", "status", "delete", "chst"};
  const struct {
    const char* acLabel;
    const char* acWord;
    const char* acNearest;
  } rRows[] = {
      {"a letter left out", "sart", "start"},
      {"one too many", "stopp", "stop"},
      {"another", "sownd", "sound"},
      {"two that changed places", "stauts", "status"},
      {"the whole word", "chst", "chst"},
      {"an edit for each three letters", "selense", "silence"},
      {"the nearer of two", "statrs", "status"},
      {"more edits", "sylents", ""},
      {"something else", "nonsense", ""},
      {"one edit of a short one", "cst", "chst"},
      {"nothing", "", ""},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(NearestWord(rRow.acWord, astrWords), rRow.acNearest) << rRow.acLabel;
  EXPECT_EQ(NearestWord("start", {}), "");
  EXPECT_EQ(NearestWord("ab", {"b", "a"}), "b") << "the first of those that are equally near";
}

TEST(NoSuchCommand, NamesWhatWasGivenAndWhatWasMeant) {
  EXPECT_EQ(NoSuchCommand("sart", {"start"}), "sart: no such command; did you mean start?");
  EXPECT_EQ(NoSuchCommand("nonsense", {"start"}), "nonsense: no such command");
}

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
