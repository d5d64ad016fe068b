// A line is cut into words first; readings then walk along them. The first error stands, and readings after it give a
// harmless value of their kind, so whoever reads a line asks once, at the end, whether all of it was right.

#include "simcards_words.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace simcards {
namespace {

bool IsBlank(char ch) {
  return ch == ' ' || ch == '\t' || ch == '\r';
}

int HexDigit(char ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
  if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
  return -1;
}

// The byte that two digits at iAt stand for; -1 when they do not.
int HexByte(const std::string& strText, std::size_t iAt) {
  if (iAt + 1 >= strText.size()) return -1;
  const int iHigh = HexDigit(strText[iAt]), iLow = HexDigit(strText[iAt + 1]);
  return iHigh < 0 || iLow < 0 ? -1 : iHigh * 16 + iLow;
}

// "a", "b" or "c"
std::string Alternatives(const std::vector<Keyword>& vKeywords) {
  std::string strAll;
  for (std::size_t i = 0; i < vKeywords.size(); i++) {
    if (i > 0) strAll += i + 1 == vKeywords.size() ? " or " : ", ";
    strAll += '"' + std::string(vKeywords[i].acWord) + '"';
  }
  return strAll;
}

}  // namespace

bool ParseInt(const std::string& strText, long long& iValue) {
  if (strText.empty() || IsBlank(strText[0])) return false;
  const bool fNegative = strText[0] == '-';
  const bool fHex = strText.compare(fNegative ? 1 : 0, 2, "0x") == 0;
  char* acEnd = nullptr;
  errno = 0;
  iValue = std::strtoll(strText.c_str(), &acEnd, fHex ? 16 : 10);
  return errno == 0 && *acEnd == '\0' && acEnd != strText.c_str();
}

WordReader::WordReader(const std::string& strLine) {
  Split(strLine);
}

void WordReader::Split(const std::string& strLine) {
  for (std::size_t i = 0; i < strLine.size() && strError.empty();) {
    if (IsBlank(strLine[i])) {
      i++;
    } else if (strLine[i] == '#') {
      return;
    } else if (strLine[i] == '"') {
      vWords.push_back({Quoted(strLine, i), /*fQuoted=*/true});
      if (i < strLine.size() && !IsBlank(strLine[i])) Fail("expected a blank after the closing quote");
    } else {
      const std::size_t iStart = i;
      while (i < strLine.size() && !IsBlank(strLine[i])) i++;
      vWords.push_back({strLine.substr(iStart, i - iStart), /*fQuoted=*/false});
    }
  }
}

// Reads from the opening quote at i to behind the closing one.
std::string WordReader::Quoted(const std::string& strLine, std::size_t& i) {
  std::string strText;
  for (i++; i < strLine.size(); i++) {
    const char ch = strLine[i];
    if (ch == '"') {
      i++;
      return strText;
    }
    if (ch != '\\') {
      strText += ch;
      continue;
    }
    const char chCode = i + 1 < strLine.size() ? strLine[++i] : '\0';
    if (chCode == 'n') {
      strText += '\n';
    } else if (chCode == 't') {
      strText += '\t';
    } else if (chCode == '\\' || chCode == '"') {
      strText += chCode;
    } else if (const int iByte = HexByte(strLine, i + 1); chCode == 'x' && iByte >= 0) {
      strText += static_cast<char>(iByte);
      i += 2;
    } else {
      Fail("expected \\n, \\t, \\\\, \\\" or \\xHH in the quoted text");
      return strText;
    }
  }
  Fail("expected a closing quote");
  return strText;
}

void WordReader::Fail(const std::string& strText) {
  if (strError.empty()) strError = strText;
}

std::string WordReader::Found() const {
  return AtEnd() ? "the end of the line" : '"' + vWords[iNext].strText + '"';
}

bool WordReader::Missing(const std::string& strExpected) {
  if (!AtEnd() && strError.empty()) return false;
  Fail("expected " + strExpected + ", found " + Found());
  return true;
}

bool WordReader::Take(const char* acWord) {
  if (AtEnd() || !strError.empty() || vWords[iNext].fQuoted || vWords[iNext].strText != acWord) return false;
  iNext++;
  return true;
}

int WordReader::Choice(const std::vector<Keyword>& vKeywords) {
  for (const Keyword& rKeyword : vKeywords) {
    if (Take(rKeyword.acWord)) return rKeyword.iValue;
  }
  Fail("expected " + Alternatives(vKeywords) + ", found " + Found());
  return vKeywords[0].iValue;
}

int WordReader::ChoiceOrInt(const std::vector<Keyword>& vKeywords, long long iMin, long long iMax) {
  for (const Keyword& rKeyword : vKeywords) {
    if (Take(rKeyword.acWord)) return rKeyword.iValue;
  }
  return static_cast<int>(Int(("a number, " + Alternatives(vKeywords)).c_str(), iMin, iMax));
}

std::string WordReader::Text(const char* acWhat) {
  if (Missing(acWhat)) return "";
  return vWords[iNext++].strText;
}

long long WordReader::Int(const char* acWhat, long long iMin, long long iMax) {
  if (Missing(acWhat)) return iMin;
  long long iValue = 0;
  if (!ParseInt(vWords[iNext].strText, iValue)) {
    Fail("expected " + std::string(acWhat) + ", found " + Found());
    return iMin;
  }
  if (iValue < iMin || iValue > iMax) {
    Fail("expected " + std::string(acWhat) + " from " + std::to_string(iMin) + " to " + std::to_string(iMax) +
         ", found " + Found());
    return iMin;
  }
  iNext++;
  return iValue;
}

double WordReader::Real(const char* acWhat, double dMin, double dMax) {
  if (Missing(acWhat)) return dMin;
  const std::string& strWord = vWords[iNext].strText;
  char* acEnd = nullptr;
  const double dValue = std::strtod(strWord.c_str(), &acEnd);
  if (strWord.empty() || *acEnd != '\0' || !std::isfinite(dValue) || dValue < dMin || dValue > dMax) {
    Fail("expected " + std::string(acWhat) + ", found " + Found());
    return dMin;
  }
  iNext++;
  return dValue;
}

std::string WordReader::HexBytes() {
  const std::string strDigits = Text("bytes as hexadecimal digits");
  std::string strBytes;
  int iHigh = -1;
  for (const char ch : strDigits) {
    if (IsBlank(ch) && iHigh < 0) continue;
    const int iDigit = HexDigit(ch);
    if (iDigit < 0) Fail("expected bytes as hexadecimal digits, found \"" + strDigits + '"');
    if (iHigh >= 0) strBytes += static_cast<char>(iHigh << 4 | iDigit);
    iHigh = iHigh >= 0 ? -1 : iDigit;
  }
  if (iHigh >= 0) Fail("expected two hexadecimal digits for each byte, found \"" + strDigits + '"');
  return strBytes;
}

std::string WordReader::Rest() {
  std::string strRest;
  for (; !AtEnd(); iNext++) strRest += (strRest.empty() ? "" : " ") + vWords[iNext].strText;
  return strRest;
}

void WordReader::End() {
  if (!AtEnd()) Fail("expected the end of the line, found " + Found());
}

}  // namespace simcards
