// Writing is strict, reading takes what it finds: the web side writes the same column by code of its own, so a line
// that is no record is passed over, a last line may lack its end, and an escape that nobody writes keeps both its
// bytes.
#include "datafile.h"

#include <cstring>

namespace {

constexpr const char* LINE_END = "\r\n";

// The letter behind the backslash for a byte that may not stand in a value; NUL for a byte that stands for itself.
char EscapeLetter(char ch) {
  switch (ch) {
    case '\r':
      return 'r';
    case '\n':
      return 'n';
    case '\0':
      return '0';
    case '\\':
      return '\\';
    default:
      return '\0';
  }
}

// Appends what a backslash with this letter behind it stands for; an unknown escape keeps both bytes.
void AppendUnescaped(std::string& strPlain, char chLetter) {
  switch (chLetter) {
    case 'r':
      strPlain += '\r';
      break;
    case 'n':
      strPlain += '\n';
      break;
    case '0':
      strPlain += '\0';
      break;
    case '\\':
      strPlain += '\\';
      break;
    default:
      strPlain += '\\';
      strPlain += chLetter;
  }
}

// The first ":" alone decides: a line such as "a:b: c" is skipped, as its first colon has no blank behind it.
void AddRecord(StdStringMap& rMap, const std::string& strLine) {
  const size_t iColon = strLine.find(':');
  if (iColon == std::string::npos || strLine.compare(iColon, 2, ": ") != 0) return;
  rMap[strLine.substr(0, iColon)] = DataUnQuote(strLine.substr(iColon + 2));
}

}  // namespace

std::string DataQuote(const std::string& strText) {
  std::string strQuoted;
  for (const char ch : strText) {
    const char chLetter = EscapeLetter(ch);
    if (chLetter != '\0') {
      strQuoted += '\\';
      strQuoted += chLetter;
    } else {
      strQuoted += ch;
    }
  }
  return strQuoted;
}

std::string DataUnQuote(const std::string& strText) {
  std::string strPlain;
  for (const char* ac = strText.c_str(); *ac != '\0'; ac++) {
    if (*ac != '\\') {
      strPlain += *ac;
      continue;
    }
    ac++;
    if (*ac == '\0') break;
    AppendUnescaped(strPlain, *ac);
  }
  return strPlain;
}

std::string ArrayToString(const StdStringMap& rMap) {
  std::string strText;
  for (const auto& [strKey, strValue] : rMap) strText += strKey + ": " + DataQuote(strValue) + LINE_END;
  return strText;
}

StdStringMap StringToArray(const std::string& strText) {
  StdStringMap rMap;
  const std::string strLines = strText.substr(0, strText.find('\0'));
  size_t iStart = 0;
  for (size_t iEnd = strLines.find(LINE_END); iEnd != std::string::npos; iEnd = strLines.find(LINE_END, iStart)) {
    AddRecord(rMap, strLines.substr(iStart, iEnd - iStart));
    iStart = iEnd + strlen(LINE_END);
  }
  AddRecord(rMap, strLines.substr(iStart));
  return rMap;
}
