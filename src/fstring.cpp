// Texts as they come from cards, settings and rows: any bytes, with no promise that a text is well formed. So each
// function has an answer for every text, and what passes for white space, for a number or for the end of a text is said
// once, here. Splitters and numbers end at a first NUL; the rest go by length.
#include "fstring.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace {

constexpr const char* WHITE_SPACE = " \t\r\n";               // narrower than a stream's, which trimWord goes by
constexpr const char* NOT_IN_FILE_NAMES = " \"%&*/:<>?\\|";  // beside all that is not printable ASCII

unsigned char Byte(char ch) {
  return static_cast<unsigned char>(ch);
}

bool IsAscii(char ch) {
  return Byte(ch) < 0x80;
}

bool IsValidInFileName(char ch) {
  return Byte(ch) >= 32 && Byte(ch) <= 126 && strchr(NOT_IN_FILE_NAMES, ch) == nullptr;
}

// The Latin-1 character of a 2-byte sequence; "?" when it lies above U+00FF, which shows in the upper bits of the lead
// byte. Whether `next` belongs to a sequence is not looked at.
char TwoBytesToLatin1(unsigned char lead, unsigned char next) {
  if ((lead & 0x1C) != 0) return '?';
  return static_cast<char>(static_cast<unsigned char>(((lead & 0x03) << 6) | (next & 0x3F)));
}

}  // namespace

void StringMap::AddUtf8(const std::string& strKey, const std::string& strValue) {
  data[strKey] = strValue;
}

void StringMap::AddLatin1(const std::string& strKey, const std::string& strValue) {
  data[strKey] = Latin1ToUtf8(strValue);
}

void trim(std::string& str) {
  const size_t iLast = str.find_last_not_of(WHITE_SPACE);
  if (iLast != std::string::npos) str.erase(iLast + 1);
  const size_t iFirst = str.find_first_not_of(WHITE_SPACE);
  if (iFirst != std::string::npos) str.erase(0, iFirst);
}

void trimWord(std::string& str) {
  std::istringstream rStream(str);
  str.clear();
  rStream >> str;
}

bool beginsWith(const std::string& haystack, const std::string& needle) {
  return haystack.compare(0, needle.size(), needle) == 0;
}

int acBeginsWith(const char* haystack, const char* needle) {
  return strncmp(haystack, needle, strlen(needle)) == 0 ? 1 : 0;
}

std::string StdStringNullSafe(const char* acText) {
  return acText == nullptr ? std::string() : std::string(acText);
}

std::string StrRepeat(int iCnt, const std::string& strToRepeat, const std::string& strSeparator) {
  std::string strResult;
  for (int i = 0; i < iCnt; i++) {
    if (i > 0) strResult += strSeparator;
    strResult += strToRepeat;
  }
  return strResult;
}

std::string MakeValidFileNameStr(const std::string& strFilename) {
  std::string strResult = strFilename;
  for (char& ch : strResult) {
    if (!IsValidInFileName(ch)) ch = '_';
  }
  return strResult;
}

std::string Latin1ToUtf8(const std::string& input) {
  const auto iHighBytes = std::count_if(input.begin(), input.end(), [](char ch) { return !IsAscii(ch); });
  if (iHighBytes == 0) return input;
  std::string strResult;
  strResult.reserve(input.size() + static_cast<size_t>(iHighBytes));
  for (const char ch : input) {
    if (IsAscii(ch)) {
      strResult += ch;
    } else {
      strResult += static_cast<char>(0xC0 | (Byte(ch) >> 6));
      strResult += static_cast<char>(0x80 | (Byte(ch) & 0x3F));
    }
  }
  return strResult;
}

int GetUtf8Size(unsigned char ch) {
  if ((ch & 0x80) == 0) return 1;
  if ((ch & 0x20) == 0) return 2;
  return (ch & 0x10) != 0 ? 4 : 3;
}

// A sequence may lack its last byte at the end of the text: that byte reads as the text's closing NUL. Where as many
// characters as bytes are counted, there is nothing to convert, also with such a cut lead byte at the end.
std::string Utf8ToLatin1(const std::string& input) {
  size_t iChars = 0;
  for (size_t iPos = 0; iPos < input.size(); iPos++, iChars++) {
    iPos += static_cast<size_t>(GetUtf8Size(Byte(input[iPos])) - 1);
    if (iPos > input.size()) return "";
  }
  if (iChars == input.size()) return input;

  std::string strResult;
  strResult.reserve(iChars);
  for (size_t iPos = 0; iPos < input.size();) {  // input[size()] is a NUL, so a lead byte at the end has a next one
    const int iSize = GetUtf8Size(Byte(input[iPos]));
    if (iSize == 1) {
      strResult += input[iPos];
    } else if (iSize == 2) {
      strResult += TwoBytesToLatin1(Byte(input[iPos]), Byte(input[iPos + 1]));
    } else {
      strResult += '?';
    }
    iPos += static_cast<size_t>(iSize);
  }
  return strResult;
}

std::string ToStdString(int iValue) {
  return std::to_string(iValue);
}

long TextToLong(const std::string& strText) {
  return strtol(strText.c_str(), nullptr, 10);
}

int TextToInt(const std::string& strText) {
  return static_cast<int>(TextToLong(strText));
}

std::string ValueOf(const StdStringMap& rMap, const std::string& strKey) {
  const auto it = rMap.find(strKey);
  return it == rMap.end() ? std::string() : it->second;
}

void lt_split(std::vector<std::string>& vstrList, const std::string& strText, char cSep) {
  std::string strField;
  for (const char* ac = strText.c_str(); *ac != '\0'; ac++) {
    if (*ac == cSep) {
      vstrList.push_back(strField);
      strField.clear();
    } else {
      strField += *ac;
    }
  }
  vstrList.push_back(strField);
}

void lt_split_quotes(std::vector<std::string>& vstrList, const std::string& strText, char cSep) {
  std::string strField;
  bool inQuotes = false;
  for (const char* ac = strText.c_str(); *ac != '\0'; ac++) {
    if (*ac == '"') {
      inQuotes = !inQuotes;
    } else if (*ac == cSep && !inQuotes) {
      vstrList.push_back(strField);
      strField.clear();
    } else {
      strField += *ac;
    }
  }
  vstrList.push_back(strField);
}

std::vector<std::string> TrimmedItems(const std::string& strList) {
  std::vector<std::string> astrItems;
  lt_split(astrItems, strList, ',');
  for (std::string& strItem : astrItems) trim(strItem);
  return astrItems;
}

// An empty text has no element here, where lt_split finds one empty field: a missing parameter is not an empty one.
std::list<std::string> getElements(const std::string& totalString) {
  std::list<std::string> rElements;
  if (totalString.empty()) return rElements;
  size_t iStart = 0;
  for (size_t iBar = totalString.find('|'); iBar != std::string::npos; iBar = totalString.find('|', iStart)) {
    rElements.push_back(totalString.substr(iStart, iBar - iStart));
    iStart = iBar + 1;
  }
  rElements.push_back(totalString.substr(iStart));
  return rElements;
}
