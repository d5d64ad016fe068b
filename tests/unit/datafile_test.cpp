#include "datafile.h"

#include <gtest/gtest.h>

#include <random>

using namespace std::string_literals;

namespace {

TEST(DataQuote, EscapesFourBytes) {
  const struct {
    const char* acLabel;
    std::string strPlain, strQuoted;
  } rRows[] = {
      {"empty", "", ""},
      {"nothing to escape", "a: b\ttext \xE9\x01", "a: b\ttext \xE9\x01"},
      {"CR", "a\rb", "a\\rb"},
      {"LF", "a\nb", "a\\nb"},
      {"NUL, and on behind it", "a\0b"s, "a\\0b"},
      {"backslash", "a\\b", "a\\\\b"},
      {"CR LF", "\r\n", "\\r\\n"},
      {"backslash at the end", "a\\", "a\\\\"},
      {"an escaped text once more", "\\r", "\\\\r"},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(DataQuote(rRow.strPlain), rRow.strQuoted) << rRow.acLabel;
    EXPECT_EQ(DataUnQuote(rRow.strQuoted), rRow.strPlain) << rRow.acLabel;
  }
}

TEST(DataQuote, EveryOtherByteStandsForItself) {
  for (int i = 0; i < 256; i++) {
    const std::string strByte(1, static_cast<char>(i));
    if (i == 0 || i == '\r' || i == '\n' || i == '\\') {
      EXPECT_EQ(DataQuote(strByte).size(), 2U) << "byte " << i;
    } else {
      EXPECT_EQ(DataQuote(strByte), strByte) << "byte " << i;
      EXPECT_EQ(DataUnQuote(strByte), strByte) << "byte " << i;
    }
  }
}

TEST(DataUnQuote, KeepsWhatItDoesNotKnow) {
  const struct {
    const char* acLabel;
    std::string strQuoted, strPlain;
  } rRows[] = {
      {"unknown escape keeps both bytes", "a\\xb", "a\\xb"},
      {"upper case is unknown", "\\R\\N", "\\R\\N"},
      {"lone backslash at the end is dropped", "a\\", "a"},
      {"backslash alone", "\\", ""},
      {"three backslashes at the end", "\\\\\\", "\\"},
      {"ends at the first NUL", "ab\0cd"s, "ab"},
      {"backslash in front of a NUL is dropped", "ab\\\0cd"s, "ab"},
      {"plain CR and LF stay", "a\rb\nc", "a\rb\nc"},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(DataUnQuote(rRow.strQuoted), rRow.strPlain) << rRow.acLabel;
}

TEST(DataUnQuote, UnknownEscapeIsDoubledWhenWrittenAgain) {
  EXPECT_EQ(DataQuote(DataUnQuote("\\x")), "\\\\x");
}

TEST(ArrayToString, WritesOneLineAnEntryInKeyOrder) {
  EXPECT_EQ(ArrayToString({}), "");
  EXPECT_EQ(ArrayToString({{"note", "two\r\nlines"}, {"Name", "a\\b"}, {"empty", ""}, {"note2", " x "}}),
            "Name: a\\\\b\r\n"
            "empty: \r\n"
            "note: two\\r\\nlines\r\n"
            "note2:  x \r\n");
}

TEST(ArrayToString, KeysAreNotEscaped) {
  EXPECT_EQ(ArrayToString({{"a\\b\n", "c"}}), "a\\b\n: c\r\n");
}

TEST(StringToArray, ReadsRecords) {
  const struct {
    const char* acLabel;
    std::string strText;
    StdStringMap rMap;
  } rRows[] = {
      {"empty text", "", {}},
      {"one record", "a: b\r\n", {{"a", "b"}}},
      {"last line without its end", "a: b\r\nc: d", {{"a", "b"}, {"c", "d"}}},
      {"empty value", "a: \r\n", {{"a", ""}}},
      {"empty key", ": b\r\n", {{"", "b"}}},
      {"empty lines are skipped", "\r\n\r\na: b\r\n\r\n", {{"a", "b"}}},
      {"the later of two lines stands", "a: 1\r\na: 2\r\n", {{"a", "2"}}},
      {"blanks are kept", " a :  b \r\n", {{" a ", " b "}}},
      {"escapes of a value", "a: b\\r\\n\\0\\\\c\r\n", {{"a", "b\r\n\0\\c"s}}},
      {"no escapes in a key", "a\\n: b\r\n", {{"a\\n", "b"}}},
      {"no colon", "abc\r\nd: e\r\n", {{"d", "e"}}},
      {"no blank behind the colon", "a:b\r\n", {}},
      {"colon at the end of the line", "a:\r\nb: c\r\n", {{"b", "c"}}},
      {"colon at the end of the text", "a:", {}},
      {"a tab is no blank", "a:\tb\r\n", {}},
      {"a later colon with a blank does not help", "a:b: c\r\n", {}},
      {"the first of two splits", "a: b: c\r\n", {{"a", "b: c"}}},
      {"a lone LF runs on", "a: b\nc: d\n", {{"a", "b\nc: d\n"}}},
      {"a lone CR runs on", "a: b\rc: d\r", {{"a", "b\rc: d\r"}}},
      {"CR before the pair belongs to the value", "a: b\r\r\nc: d", {{"a", "b\r"}, {"c", "d"}}},
      {"LF before CR is no pair", "a: b\n\rc: d", {{"a", "b\n\rc: d"}}},
      {"ends at the first NUL", "a: b\r\nc: d\0e\r\nf: g\r\n"s, {{"a", "b"}, {"c", "d"}}},
      {"lone backslash at the end of a line", "a: b\\\r\nc: d\r\n", {{"a", "b"}, {"c", "d"}}},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(StringToArray(rRow.strText), rRow.rMap) << rRow.acLabel;
}

TEST(StringToArray, ValueWithLineEndIsOneLineAndComesBack) {
  const StdStringMap rMap = {{"a", "x\r\ny: z\r\n"}, {"b", "ends in \\"}, {"c", "nul \0 in"s}};
  EXPECT_EQ(ArrayToString(rMap), "a: x\\r\\ny: z\\r\\n\r\nb: ends in \\\\\r\nc: nul \\0 in\r\n");
  EXPECT_EQ(StringToArray(ArrayToString(rMap)), rMap);
}

// Few different bytes, the special ones often, so that their neighbours meet.
std::string RandomText(std::mt19937& rRandom, const std::string& strBytes) {
  std::string strText(rRandom() % 12, '\0');
  for (char& ch : strText)
    ch = rRandom() % 8 == 0 ? static_cast<char>(rRandom()) : strBytes[rRandom() % strBytes.size()];
  return strText;
}

bool IsValidKey(const std::string& strKey) {
  return strKey.find(':') == std::string::npos && strKey.find('\0') == std::string::npos &&
         strKey.find("\r\n") == std::string::npos;
}

TEST(StringToArray, GivesBackWhatArrayToStringWrote) {
  std::mt19937 rRandom(7);
  size_t iEntries = 0;
  for (int i = 0; i < 3000; i++) {
    StdStringMap rMap;
    for (auto iEntry = rRandom() % 6; iEntry > 0; iEntry--) {
      std::string strKey = RandomText(rRandom, "ab \r\n\\"s);
      if (IsValidKey(strKey)) rMap[strKey] = RandomText(rRandom, "ab: \r\n\\\0rn0"s);
    }
    iEntries += rMap.size();
    EXPECT_EQ(StringToArray(ArrayToString(rMap)), rMap) << ArrayToString(rMap);
  }
  EXPECT_GT(iEntries, 3000U);
}

// A key that ends in CR makes no pair with what follows it, as ": " stands between; a text that parses is cleaned once.
TEST(ArrayToString, CleaningATextTwiceChangesNothingMore) {
  std::mt19937 rRandom(11);
  for (int i = 0; i < 3000; i++) {
    std::string strText;
    for (int iPiece = 0; iPiece < 8; iPiece++)
      strText += RandomText(rRandom, "ab:: \r\n\\\0rn0"s) + (iPiece % 2 ? "\r\n" : ": ");
    const std::string strClean = ArrayToString(StringToArray(strText));
    EXPECT_EQ(ArrayToString(StringToArray(strClean)), strClean) << strText;
  }
}

}  // namespace
