// fstring: helpers on standard strings, the Latin-1 and UTF-8 conversions between the cards and the database, and the
// column-to-value map of a database row.
// Threads:   any; no state.
// Errors:    none is reported; Utf8ToLatin1 gives an empty text for a sequence cut off by more than one byte.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

// Settings, database rows and data-file text; keys in byte-wise order.
using StdStringMap = std::map<std::string, std::string>;

// A row for the database: column name to value, all values in UTF-8.
class StringMap {
 public:
  // Both set data[strKey], replacing an earlier value; AddLatin1 converts the value.
  void AddUtf8(const std::string& strKey, const std::string& strValue);
  void AddLatin1(const std::string& strKey, const std::string& strValue);

  StdStringMap data;
};

// Strips blanks, tabs, CR and LF from both ends. A text of nothing else stays as it is: callers rely on that.
void trim(std::string& str);
// Keeps only the first white-space delimited word; a text of white space becomes empty.
// Part of the interface; nothing in the daemon calls it.
void trimWord(std::string& str);
bool beginsWith(const std::string& haystack, const std::string& needle);
// The same of texts in C; 1: true. Part of the interface; nothing in the daemon calls it.
int acBeginsWith(const char* haystack, const char* needle);
// The text, or an empty one for null.
std::string StdStringNullSafe(const char* acText);
// `strToRepeat` iCnt times with `strSeparator` between; empty for iCnt below 1.
std::string StrRepeat(int iCnt, const std::string& strToRepeat, const std::string& strSeparator);
// Replaces every byte that is not safe in a file name by "_"; the length stays. A dot is kept, a blank is not.
std::string MakeValidFileNameStr(const std::string& strFilename);
std::string Latin1ToUtf8(const std::string& input);
// Characters above U+00FF become "?".
std::string Utf8ToLatin1(const std::string& input);
// Length of the UTF-8 sequence that `ch` starts; no validity check.
int GetUtf8Size(unsigned char ch);
std::string ToStdString(int iValue);
// The decimal number at the start of the text, as strtol reads it: "12x" is 12, and 0 stands for a text without digits.
// TextToInt takes the low bits of a number that is too large for an int.
long TextToLong(const std::string& strText);
int TextToInt(const std::string& strText);
// The value of a key, empty when the map lacks it; the map stays as it is, unlike with its index operation.
std::string ValueOf(const StdStringMap& rMap, const std::string& strKey);
// Both append the fields of `strText` (up to its first NUL) to `vstrList`; the rest after the last separator is always
// a field. lt_split_quotes takes double quotes as grouping; it is part of the interface, and nothing in the
// daemon calls it.
void lt_split(std::vector<std::string>& vstrList, const std::string& strText, char cSep);
void lt_split_quotes(std::vector<std::string>& vstrList, const std::string& strText, char cSep);
// Items of a comma list, each trimmed. An empty text is one empty item.
std::vector<std::string> TrimmedItems(const std::string& strList);
// The elements between "|"; an empty text has none.
std::list<std::string> getElements(const std::string& totalString);
