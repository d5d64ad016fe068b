// simcards_words: the words of a line, as the simulator's text files and its control socket have them.
// A word ends at a blank. "..." holds blanks, \n \t \\ \" and \xHH (one byte each). A word that begins with # begins a
// comment.
// Threads: any; no state.
// Errors:  the first one is kept and says what was expected and what stood there; later readings give defaults.
#pragma once

#include <string>
#include <vector>

namespace simcards {

struct Word {
  std::string strText;
  bool fQuoted = false;  // a quoted word is never a keyword
};

// The keywords of one place in a line, with the value that each stands for.
struct Keyword {
  const char* acWord;
  int iValue;
};

class WordReader {
 public:
  explicit WordReader(const std::string& strLine);

  bool AtEnd() const { return iNext >= vWords.size(); }
  // Takes the next word if it is this keyword.
  bool Take(const char* acWord);
  // One of the keywords; the value of the first after an error.
  int Choice(const std::vector<Keyword>& vKeywords);
  // One of the keywords or a number.
  int ChoiceOrInt(const std::vector<Keyword>& vKeywords, long long iMin, long long iMax);
  std::string Text(const char* acWhat);                               // any word, quoted or not
  long long Int(const char* acWhat, long long iMin, long long iMax);  // decimal, or hexadecimal with 0x
  double Real(const char* acWhat, double dMin, double dMax);
  std::string HexBytes();  // "00ff" or "00 ff" as its bytes
  std::string Rest();      // the words left, joined by blanks
  void End();              // nothing may follow

  void Fail(const std::string& strText);
  const std::string& Error() const { return strError; }

 private:
  void Split(const std::string& strLine);
  std::string Quoted(const std::string& strLine, std::size_t& i);
  std::string Found() const;  // what stands at the reading position, for an error
  bool Missing(const std::string& strExpected);
  std::vector<Word> vWords;
  std::size_t iNext = 0;
  std::string strError;
};

// A number, all of the text; decimal, or hexadecimal with 0x.
bool ParseInt(const std::string& strText, long long& iValue);

}  // namespace simcards
