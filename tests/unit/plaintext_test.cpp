#include "plaintext.h"

#include <gtest/gtest.h>

#include <string>

using namespace std::string_literals;

namespace {

std::string Masked(std::string strText) {
  MaskControls(strText.data(), strText.size());
  return strText;
}

TEST(MaskControls, EachByteAlone) {
  for (int i = 0; i < 256; i++) {
    const bool isControl = i < 32 || (i >= 127 && i < 160);
    const std::string strByte(1, static_cast<char>(i));
    EXPECT_EQ(Masked("a" + strByte + "b"), isControl ? "a?b" : "a" + strByte + "b") << "byte " << i;
    EXPECT_EQ(Masked(strByte), isControl ? "?" : strByte) << "byte " << i << " alone";
  }
}

TEST(MaskControls, CharactersOfSeveralBytes) {
  const struct {
    const char* acLabel;
    std::string strText, strMasked;
  } rRows[] = {
      {"nothing", "", ""},
      {"a colour and a line", "\x1b[31mred\r\nline"s, "?[31mred??line"},
      {"a NUL within", "a\0b"s, "a?b"},
      {"a letter whose second byte would be a control", "\xc3\x9b", "\xc3\x9b"},
      {"the euro sign", "\xe2\x82\xac", "\xe2\x82\xac"},
      {"a letter of four bytes", "\xf0\x90\x80\x80", "\xf0\x90\x80\x80"},
      {"the first control above DEL, as UTF-8", "\xc2\x80", "??"},
      {"the last one", "\xc2\x9f", "??"},
      {"the character behind it", "\xc2\xa0", "\xc2\xa0"},
      {"a lead at the end", "x\xc3", "x\xc3"},
      {"a lead before a letter", "\xc3z", "\xc3z"},
      {"a lead before a control", "\xc3\x1b", "\xc3?"},
      {"three bytes cut off", "\xe2\x9b", "\xe2?"},
      {"third byte missing", "\xe2\x9bz", "\xe2?z"},
      {"four bytes cut off", "\xf0\x9f\x9b", "\xf0??"},
      {"a control in two bytes too many", "\xe0\x82\x9b", "\xe0??"},
      {"a control in three bytes too many", "\xf0\x80\x82\x9b", "\xf0???"},
      {"a control in a lead that no text has", "\xc0\x9b", "\xc0?"},
      {"beyond the last character", "\xf5\x80\x80\x80", "\xf5???"},
      {"Latin-1 beside UTF-8", "M\xfcller M\xc3\xbcller\x9b", "M\xfcller M\xc3\xbcller?"},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(Masked(rRow.strText), rRow.strMasked) << rRow.acLabel;
}

}  // namespace
