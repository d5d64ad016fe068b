// Text from lines and cards (Latin-1) and from the database (UTF-8, not always sound), and the lists of settings.
#include "fstring.h"

#include "FuzzCheck.h"

namespace {

template <class List>
std::string Join(const List& astrList, const char* acSeparator) {
  std::string strJoined;
  for (const std::string& strItem : astrList) strJoined += strItem + acSeparator;
  return strJoined;
}

void CheckConversions(const std::string& strText) {
  FuzzCheck(Utf8ToLatin1(Latin1ToUtf8(strText)) == strText, "Latin-1 survives the way there and back");
  FuzzCheck(Utf8ToLatin1(strText).size() <= strText.size(), "Latin-1 is never longer than UTF-8");
  FuzzCheck(MakeValidFileNameStr(strText).size() == strText.size(), "a file name keeps its length");
}

void CheckSplitters(const std::string& strText) {
  const std::string strToNul = strText.substr(0, strText.find('\0'));
  std::vector<std::string> astrFields;
  lt_split(astrFields, strText, ',');
  FuzzCheck(Join(astrFields, ",") == strToNul + ",", "fields joined again give the text");
  std::vector<std::string> astrQuoted;
  lt_split_quotes(astrQuoted, strText, ',');
  FuzzCheck(!astrQuoted.empty() && astrQuoted.size() <= astrFields.size(), "quotes only join fields");
  const std::string strElements = Join(getElements(strText), "|");
  FuzzCheck(strElements == (strText.empty() ? "" : strText + "|"), "elements joined again give the text");
}

void CheckTrimming(const std::string& strText) {
  std::string strTrimmed = strText;
  trim(strTrimmed);
  std::string strTwice = strTrimmed;
  trim(strTwice);
  FuzzCheck(strTwice == strTrimmed, "a trimmed text stays as it is");
  FuzzCheck(strText.find(strTrimmed) != std::string::npos, "a trimmed text is a part of the whole");
  std::string strWord = strText;
  trimWord(strWord);
  FuzzCheck(strWord.find_first_of(" \t\r\n\v\f") == std::string::npos, "a word holds no white space");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::string strText = FuzzText(prData, iSize);
  CheckConversions(strText);
  CheckSplitters(strText);
  CheckTrimming(strText);
  return 0;
}
