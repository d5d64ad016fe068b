#include "fstring.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

using namespace std::string_literals;

namespace {

using Fields = std::vector<std::string>;

TEST(Trim, StripsWhiteSpaceFromBothEnds) {
  const struct {
    const char* acLabel;
    std::string strText, strTrimmed;
  } rRows[] = {
      {"a letter between blanks", " a ", "a"},
      {"nothing to strip", "abc", "abc"},
      {"all four kinds of white space", "\r\n \tabc \t\r\n", "abc"},
      {"white space inside stays", "  a \t b  ", "a \t b"},
      {"only in front", "  a", "a"},
      {"only behind", "a  ", "a"},
      {"empty", "", ""},
      {"two blanks alone stay", "  ", "  "},
      {"any white space alone stays", "\t\r\n ", "\t\r\n "},
      {"vertical tab and form feed are no white space here", "\v\fa\v\f", "\v\fa\v\f"},
      {"a NUL is no white space", " \0 "s, "\0"s},
  };
  for (const auto& rRow : rRows) {
    std::string strText = rRow.strText;
    trim(strText);
    EXPECT_EQ(strText, rRow.strTrimmed) << rRow.acLabel;
  }
}

TEST(TrimWord, KeepsTheFirstWord) {
  const struct {
    const char* acLabel;
    std::string strText, strWord;
  } rRows[] = {
      {"first of two words", "  first second", "first"},
      {"one word", "word", "word"},
      {"white space behind", "word \r\n", "word"},
      {"tab and newline part words", "\ta\nb", "a"},
      {"vertical tab and form feed part words", "\v\fa\vb", "a"},
      {"white space alone becomes empty", " \t\r\n ", ""},
      {"empty", "", ""},
      {"high bytes belong to the word", "\xE9\xA0 x", "\xE9\xA0"},
  };
  for (const auto& rRow : rRows) {
    std::string strText = rRow.strText;
    trimWord(strText);
    EXPECT_EQ(strText, rRow.strWord) << rRow.acLabel;
  }
}

TEST(BeginsWith, ComparesTheStart) {
  const struct {
    const char* acLabel;
    const char *haystack, *needle;
    bool fBegins;
  } rRows[] = {
      {"the start", "abcdef", "abc", true},
      {"the whole", "abc", "abc", true},
      {"not the start", "xabc", "abc", false},
      {"differs at the end", "abd", "abc", false},
      {"needle longer", "ab", "abc", false},
      {"empty needle", "abc", "", true},
      {"both empty", "", "", true},
      {"empty haystack", "", "a", false},
      {"case counts", "ABC", "abc", false},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(beginsWith(rRow.haystack, rRow.needle), rRow.fBegins) << rRow.acLabel;
    EXPECT_EQ(acBeginsWith(rRow.haystack, rRow.needle), rRow.fBegins ? 1 : 0) << rRow.acLabel;
  }
}

TEST(BeginsWith, LooksPastANul) {
  EXPECT_TRUE(beginsWith("a\0bc"s, "a\0b"s));
  EXPECT_FALSE(beginsWith("a\0bc"s, "a\0x"s));
}

TEST(StdStringNullSafe, NullGivesAnEmptyText) {
  EXPECT_EQ(StdStringNullSafe(nullptr), "");
  EXPECT_EQ(StdStringNullSafe(""), "");
  EXPECT_EQ(StdStringNullSafe("abc"), "abc");
}

TEST(StrRepeat, PutsSeparatorsBetween) {
  const struct {
    const char* acLabel;
    int iCnt;
    const char *acText, *acSeparator, *acResult;
  } rRows[] = {
      {"below zero", -1, "?", ",", ""},
      {"zero", 0, "?", ",", ""},
      {"once", 1, "?", ",", "?"},
      {"thrice", 3, "?", ", ", "?, ?, ?"},
      {"no separator", 3, "ab", "", "ababab"},
      {"only separators", 3, "", "|", "||"},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(StrRepeat(rRow.iCnt, rRow.acText, rRow.acSeparator), rRow.acResult) << rRow.acLabel;
  }
}

TEST(MakeValidFileNameStr, KeepsTheDotAndReplacesBlankAndSlash) {
  EXPECT_EQ(MakeValidFileNameStr("line 1/a.wav"), "line_1_a.wav");
  EXPECT_EQ(MakeValidFileNameStr(""), "");
}

TEST(MakeValidFileNameStr, DecidesOnEachByteValue) {
  const std::string strForbidden = " \"%&*/:<>?\\|";
  for (int i = 0; i < 256; i++) {
    const char ch = static_cast<char>(i);
    const bool fStays = i >= 32 && i <= 126 && strForbidden.find(ch) == std::string::npos;
    EXPECT_EQ(MakeValidFileNameStr("a"s + ch + "b"), fStays ? "a"s + ch + "b" : "a_b"s) << "byte " << i;
  }
}

TEST(MakeValidFileNameStr, Utf8SequenceBecomesARun) {
  EXPECT_EQ(MakeValidFileNameStr("caf\xC3\xA9"), "caf__");
}

TEST(Latin1ToUtf8, ConvertsEachByteValue) {
  for (int i = 0; i < 256; i++) {
    const std::string strExpected =
        i < 128 ? std::string(1, static_cast<char>(i))
                : std::string{static_cast<char>(i < 192 ? 194 : 195), static_cast<char>(i < 192 ? i : i - 64)};
    EXPECT_EQ(Latin1ToUtf8(std::string(1, static_cast<char>(i))), strExpected) << "byte " << i;
  }
}

TEST(Latin1ToUtf8, ConvertsWholeTexts) {
  EXPECT_EQ(Latin1ToUtf8("\xE9"), "\xC3\xA9");
  EXPECT_EQ(Latin1ToUtf8("Caf\xE9 M\xFCller"), "Caf\xC3\xA9 M\xC3\xBCller");
  EXPECT_EQ(Latin1ToUtf8("plain"), "plain");
  EXPECT_EQ(Latin1ToUtf8(""), "");
  EXPECT_EQ(Latin1ToUtf8("a\0\xE9"s), "a\0\xC3\xA9"s);
}

TEST(GetUtf8Size, LooksAtTheTopBitsOnly) {
  for (int i = 0; i < 256; i++) {
    const int iExpected = i < 0x80 ? 1 : (i & 0x20) == 0 ? 2 : (i & 0x10) != 0 ? 4 : 3;
    EXPECT_EQ(GetUtf8Size(static_cast<unsigned char>(i)), iExpected) << "byte " << i;
  }
}

TEST(GetUtf8Size, ContinuationByteCountsAsAStart) {
  EXPECT_EQ(GetUtf8Size(0x80), 2);
  EXPECT_EQ(GetUtf8Size(0xA0), 3);
  EXPECT_EQ(GetUtf8Size(0xBF), 4);
}

TEST(Utf8ToLatin1, ConvertsOrMarksEachSequence) {
  const struct {
    const char* acLabel;
    std::string strUtf8, strLatin1;
  } rRows[] = {
      {"empty", "", ""},
      {"ASCII", "abc", "abc"},
      {"e acute", "\xC3\xA9", "\xE9"},
      {"first of two bytes", "\xC2\x80", "\x80"},
      {"last of Latin-1", "\xC3\xBF", "\xFF"},
      {"between letters", "Caf\xC3\xA9!", "Caf\xE9!"},
      {"U+0100 lies above", "\xC4\x80", "?"},
      {"the euro sign, three bytes", "\xE2\x82\xAC", "?"},
      {"four bytes", "\xF0\x9F\x98\x80", "?"},
      {"several", "a\xE2\x82\xAC\xC3\xA9\xF0\x9F\x98\x80z", "a?\xE9?z"},
      {"a NUL inside", "a\0\xC3\xA9"s, "a\0\xE9"s},
      {"continuation byte taken as a start of two", "\x81\xA9", "\x69"},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(Utf8ToLatin1(rRow.strUtf8), rRow.strLatin1) << rRow.acLabel;
}

TEST(Utf8ToLatin1, SequenceCutOffAtTheEnd) {
  const struct {
    const char* acLabel;
    std::string strUtf8, strLatin1;
  } rRows[] = {
      {"the only sequence, one byte short: the text as it is", "ab\xC3", "ab\xC3"},
      {"that lead byte alone", "\xC3", "\xC3"},
      {"behind another sequence: the missing byte reads as zero", "\xC3\xA9\xC3", "\xE9\xC0"},
      {"cut lead byte of a character above Latin-1", "\xC3\xA9\xC4", "\xE9?"},
      {"three bytes, one short", "a\xE2\x82", "a?"},
      {"three bytes, two short", "a\xE2", ""},
      {"four bytes, one short", "a\xF0\x9F\x98", "a?"},
      {"four bytes, two short", "a\xF0\x9F", ""},
      {"four bytes, lead byte alone", "a\xF0", ""},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(Utf8ToLatin1(rRow.strUtf8), rRow.strLatin1) << rRow.acLabel;
}

TEST(Utf8ToLatin1, GivesBackWhatLatin1ToUtf8Made) {
  std::mt19937 rRandom(1);
  for (int i = 0; i < 2000; i++) {
    std::string strText(rRandom() % 40, '\0');
    for (char& ch : strText) ch = static_cast<char>(rRandom());
    EXPECT_EQ(Utf8ToLatin1(Latin1ToUtf8(strText)), strText);
  }
}

TEST(ToStdString, WritesDecimals) {
  EXPECT_EQ(ToStdString(0), "0");
  EXPECT_EQ(ToStdString(-1), "-1");
  EXPECT_EQ(ToStdString(1234567), "1234567");
  EXPECT_EQ(ToStdString(INT_MAX), "2147483647");
  EXPECT_EQ(ToStdString(INT_MIN), "-2147483648");
}

TEST(LtSplit, SplitsWithoutRegardForQuotes) {
  const struct {
    const char* acLabel;
    std::string strText;
    Fields astrFields;
  } rRows[] = {
      {"empty text", "", {""}},
      {"one field", "abc", {"abc"}},
      {"middle field empty", "a,,b", {"a", "", "b"}},
      {"two separators, the last at the end", "a,b,", {"a", "b", ""}},
      {"separator alone", ",", {"", ""}},
      {"quotes have no meaning", "\"a,b\"", {"\"a", "b\""}},
      {"blanks stay", " a , b ", {" a ", " b "}},
      {"ends at the first NUL", "a,b\0,c"s, {"a", "b"}},
  };
  for (const auto& rRow : rRows) {
    Fields astrFields;
    lt_split(astrFields, rRow.strText, ',');
    EXPECT_EQ(astrFields, rRow.astrFields) << rRow.acLabel;
  }
}

TEST(LtSplitQuotes, TakesQuotesAsGrouping) {
  const struct {
    const char* acLabel;
    std::string strText;
    Fields astrFields;
  } rRows[] = {
      {"empty text", "", {""}},
      {"no quotes", "a,,b,", {"a", "", "b", ""}},
      {"quotes from the middle of a field", "a\"b,c\"d", {"ab,cd"}},
      {"a quoted field", "x,\"a,b\",y", {"x", "a,b", "y"}},
      {"empty quotes", "\"\",a", {"", "a"}},
      {"the text ends inside quotes", "a,\"b,c", {"a", "b,c"}},
      {"a lone quote at the end", "a\"", {"a"}},
      {"a doubled quote is no escape", "\"a\"\"b\"", {"ab"}},
      {"a backslash is no escape", "\"a\\\",b", {"a\\", "b"}},
      {"ends at the first NUL", "a,\"b\0,c\""s, {"a", "b"}},
  };
  for (const auto& rRow : rRows) {
    Fields astrFields;
    lt_split_quotes(astrFields, rRow.strText, ',');
    EXPECT_EQ(astrFields, rRow.astrFields) << rRow.acLabel;
  }
}

TEST(Splitters, AppendToWhatTheListHolds) {
  Fields astrFields = {"before"};
  lt_split(astrFields, "a;b", ';');
  lt_split_quotes(astrFields, "\"c;d\";e", ';');
  EXPECT_EQ(astrFields, (Fields{"before", "a", "b", "c;d", "e"}));
}

TEST(TrimmedItems, OfACommaList) {
  struct Row {
    const char* acLabel;
    std::string strList;
    std::vector<std::string> astrItems;
  };
  const Row rRows[] = {
      {"blanks around items", " 1 ,2\t, 3 4 ", {"1", "2", "3 4"}},
      {"empty text: one empty item", "", {""}},
      {"empty items", ",1,", {"", "1", ""}},
      {"an item of blanks stays as it is", "1, ", {"1", " "}},
  };
  for (const Row& rRow : rRows) EXPECT_EQ(TrimmedItems(rRow.strList), rRow.astrItems) << rRow.acLabel;
}

TEST(GetElements, SplitsAtBars) {
  const struct {
    const char* acLabel;
    std::string strText;
    std::list<std::string> astrElements;
  } rRows[] = {
      {"empty text", "", {}},
      {"no bar", "a", {"a"}},
      {"one bar", "a|b", {"a", "b"}},
      {"bar at the end", "a|b|", {"a", "b", ""}},
      {"bar in front", "|a", {"", "a"}},
      {"a lone bar", "|", {"", ""}},
      {"two bars together", "a||b", {"a", "", "b"}},
      {"does not end at a NUL", "a\0|b"s, {"a\0"s, "b"}},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(getElements(rRow.strText), rRow.astrElements) << rRow.acLabel;
}

TEST(TextToNumber, TakesDigitsAtTheStart) {
  const struct {
    const char* acLabel;
    const char* acText;
    int iValue;
  } rRows[] = {
      {"plain", "12", 12},
      {"empty", "", 0},
      {"no digits", "yes", 0},
      {"digits, then text", "12x", 12},
      {"text, then digits", "x12", 0},
      {"negative", "-3", -3},
      {"blank in front", " 7", 7},
      {"decimal only", "0x10", 0},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(TextToInt(rRow.acText), rRow.iValue) << rRow.acLabel;
    EXPECT_EQ(TextToLong(rRow.acText), rRow.iValue) << rRow.acLabel;
  }
}

TEST(TextToNumber, NumberTooLargeForAnIntLosesItsHighBitsInAnIntAlone) {
  EXPECT_EQ(TextToLong("4294967299"), 4294967299L);
  EXPECT_EQ(TextToInt("4294967299"), 3);
}

TEST(ValueOf, AMissingKeyReadsAsEmpty) {
  const StdStringMap rMap = {{"a", "1"}};
  EXPECT_EQ(ValueOf(rMap, "a"), "1");
  EXPECT_EQ(ValueOf(rMap, "b"), "");
}

TEST(StringMap, ReplacesAnEarlierValue) {
  StringMap rMap;
  rMap.AddUtf8("name", "Caf\xC3\xA9");
  rMap.AddLatin1("city", "K\xF6ln");
  EXPECT_EQ(rMap.data, (StdStringMap{{"name", "Caf\xC3\xA9"}, {"city", "K\xC3\xB6ln"}}));
  rMap.AddLatin1("name", "\xE9");
  rMap.AddUtf8("city", "");
  EXPECT_EQ(rMap.data, (StdStringMap{{"name", "\xC3\xA9"}, {"city", ""}}));
}

}  // namespace
