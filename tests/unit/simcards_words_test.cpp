#include "simcards_words.h"

#include <gtest/gtest.h>

namespace simcards {
namespace {

TEST(SimWords, SplitAtBlanksWithQuotesAndComments) {
  WordReader rWords("  one\t\"two words\" th#ree \"a\\n\\t\\\\\\\"\\x41\\xff\" \"\" # \"comment\r");
  EXPECT_EQ("one", rWords.Text("a word"));
  EXPECT_EQ("two words", rWords.Text("a word"));
  EXPECT_EQ("th#ree", rWords.Text("a word"));
  EXPECT_EQ("a\n\t\\\"A\xff", rWords.Text("a word"));
  EXPECT_EQ("", rWords.Text("a word"));
  rWords.End();
  EXPECT_EQ("", rWords.Error());
}

TEST(SimWords, WrongQuotes) {
  const struct {
    const char *acLine, *acError;
  } arRows[] = {{"\"open", "expected a closing quote"},
                {"\"open\\", "expected \\n, \\t, \\\\, \\\" or \\xHH in the quoted text"},
                {"\"a\\q\"", "expected \\n, \\t, \\\\, \\\" or \\xHH in the quoted text"},
                {"\"a\\x1g\"", "expected \\n, \\t, \\\\, \\\" or \\xHH in the quoted text"},
                {"\"a\"b", "expected a blank after the closing quote"}};
  for (const auto& rRow : arRows) EXPECT_EQ(rRow.acError, WordReader(rRow.acLine).Error()) << rRow.acLine;
}

TEST(SimWords, QuotedWordIsNoKeyword) {
  WordReader rWords("\"on\"");
  EXPECT_FALSE(rWords.Take("on"));
  (void)rWords.Choice({{"on", 1}, {"off", 0}});
  EXPECT_EQ("expected \"on\" or \"off\", found \"on\"", rWords.Error());
}

TEST(SimWords, Numbers) {
  const struct {
    const char* acText;
    bool fNumber;
    long long iValue;
  } arRows[] = {{"0", true, 0},
                {"12", true, 12},
                {"-1", true, -1},
                {"0x1008", true, 0x1008},
                {"-0x10", true, -16},
                {"010", true, 10},
                {"", false, 0},
                {" 1", false, 0},
                {"1 ", false, 0},
                {"1x", false, 0},
                {"0x", false, 0},
                {"x", false, 0},
                {"99999999999999999999", false, 0}};
  for (const auto& rRow : arRows) {
    long long iValue = 0;
    EXPECT_EQ(rRow.fNumber, ParseInt(rRow.acText, iValue)) << rRow.acText;
    if (rRow.fNumber) {
      EXPECT_EQ(rRow.iValue, iValue) << rRow.acText;
    }
  }
}

TEST(SimWords, FirstErrorStaysAndLaterReadingsGiveDefaults) {
  WordReader rWords("x 5");
  EXPECT_EQ(2, rWords.Int("a count", 2, 9));
  EXPECT_EQ(2, rWords.Int("another", 2, 9));
  EXPECT_EQ("", rWords.Text("a word"));
  EXPECT_EQ("expected a count, found \"x\"", rWords.Error());
}

TEST(SimWords, HexBytes) {
  EXPECT_EQ(std::string("\x00\xff\x1a", 3), WordReader("00ff1A").HexBytes());
  EXPECT_EQ(std::string("\x01\x02", 2), WordReader("\"01 02\"").HexBytes());
  const struct {
    const char *acLine, *acError;
  } arRows[] = {{"0", "expected two hexadecimal digits for each byte, found \"0\""},
                {"0g", "expected bytes as hexadecimal digits, found \"0g\""},
                {"\"0 1\"", "expected bytes as hexadecimal digits, found \"0 1\""},
                {"", "expected bytes as hexadecimal digits, found the end of the line"}};
  for (const auto& rRow : arRows) {
    WordReader rWords(rRow.acLine);
    (void)rWords.HexBytes();
    EXPECT_EQ(rRow.acError, rWords.Error()) << rRow.acLine;
  }
}

}  // namespace
}  // namespace simcards
