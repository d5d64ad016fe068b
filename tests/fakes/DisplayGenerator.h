// DisplayGenerator: makes displays and lines up, from words that displays are made of and from all that the rules ask
// about. The choices come from a function, so that a seed or a fuzzer's bytes can make them.
#pragma once

#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "DisplayOracle.h"
#include "DstChannel.h"

class DisplayGenerator {
 public:
  // rBelow(n) gives a number from 0 to n - 1.
  explicit DisplayGenerator(std::function<unsigned(unsigned)> rChooser) : rBelow(std::move(rChooser)) {}

  oracle::Line MakeLine() {
    oracle::Line rLine = MakeState();
    rLine.strText = MakeText();
    return rLine;
  }

  // Settings and state of a line; its numbers are often those that texts hold.
  oracle::Line MakeState() {
    constexpr time_t NOW = 1'700'000'000;
    oracle::Line rLine;
    rLine.rNow = NOW;
    rLine.iChannel = static_cast<int>(rBelow(3)) * 17 + 1;
    rLine.iPbxType = static_cast<int>(rBelow(PBX_TENOVIS_ISDN + 1));
    rLine.iTdmStart = OneIn(2) ? TDM_START_DEFAULT : static_cast<int>(rBelow(TDM_START_MUTELT_AND_TONE + 1));
    rLine.iLocalNumSize = OneIn(4) ? static_cast<int>(rBelow(7)) : 4;
    rLine.fAllowEqualRemoteLenChange = OneIn(2);
    rLine.fLateChange = OneIn(2);
    rLine.fCheckForMultipleTelNum = OneIn(4);
    rLine.fSpecial_Pilot = OneIn(3);
    if (OneIn(3)) rLine.strLocalNum = Digits();
    if (OneIn(3)) rLine.strLocalName = "Desk " + Digits() + (OneIn(2) ? " " + Digits() : "");
    if (OneIn(3)) rLine.strPrevCallRemoteNum = Digits();
    rLine.fCallBusy = OneIn(2);
    rLine.fRinging = OneIn(3);
    rLine.rStartTime = NOW - Age({0, 1, 9, 10, 11, 44, 45, 46, 300});
    rLine.rFirstRing = OneIn(2) ? 0 : NOW - Age({0, 2, 5, 30});
    rLine.rLastRing = OneIn(2) ? 0 : NOW - Age({0, 1, 5});
    if (OneIn(2)) rLine.strRemoteNum = OneIn(6) ? Name() : Digits();
    if (OneIn(3)) rLine.strConnectedNum = OneIn(2) ? Name() : Digits();
    if (OneIn(2)) rLine.strDigits = Digits();
    if (OneIn(2)) rLine.strPrevRemoteNum = rLine.strRemoteNum;
    rLine.fHasConnectedNum = OneIn(4);
    rLine.fDigitFreeze = OneIn(4);
    rLine.rRemoteNumTime = rLine.strRemoteNum.empty() && OneIn(2) ? 0 : NOW - Age({0, 1, 10, 11, 12, 40});
    return rLine;
  }

  std::string MakeText() {
    std::string strText;
    switch (rBelow(8)) {
      case 0:
        strText = Prompt();
        break;
      case 1:
        strText = OneIn(2) ? "Amt " + Name() : Digits() + Gap() + Name();
        break;
      case 2:
        strText = Name() + (OneIn(2) ? "" : " " + Name());
        break;
      case 3:
        strText = Pick({"0-", "1-", "2-", "0", "00", "10-"}) + Digits();
        break;
      default:
        break;
    }
    for (unsigned n = rBelow(8); n > 0; n--) strText += Piece();
    if (OneIn(200)) strText.append(rBelow(400), OneIn(2) ? ' ' : '7');
    // A stroke of the pen at a place that nobody thought of.
    for (unsigned n = OneIn(3) ? rBelow(3) : 0; n > 0 && !strText.empty(); n--) {
      strText[rBelow(static_cast<unsigned>(strText.size()))] =
          OneIn(4) ? static_cast<char>(1 + rBelow(255)) : Mark()[0];
    }
    return strText;
  }

 private:
  bool OneIn(unsigned n) { return rBelow(n) == 0; }
  template <std::size_t N>
  std::string Pick(const char* const (&acTexts)[N]) {
    return acTexts[rBelow(N)];
  }
  template <std::size_t N>
  time_t Age(const int (&aiAges)[N]) {
    return aiAges[rBelow(N)];
  }

  // Few different ones, so that numbers of a line and of its display are often the same.
  std::string Digits() {
    if (OneIn(3)) return Pick({"123", "124", "1234", "1243", "12345", "123456", "021234", "2015", "12", "7", "0"});
    std::string strDigits;
    for (unsigned n = 1 + rBelow(OneIn(4) ? 12 : 5); n > 0; n--) strDigits += static_cast<char>('0' + rBelow(10));
    return strDigits;
  }
  std::string Gap() { return Pick({" ", "  ", "", "   ", "\t", "\n", ": ", "."}); }
  std::string Mark() { return Pick({" ", "\n", ":", "^", ".", "-", "/", "[", "\t", "0", "a", "Z", "\351", "\001"}); }
  std::string Name() {
    if (OneIn(4)) return Pick({"Anna", "Jansen", "Ann Lee", "A. Smith", "Jo", "M\374ller", "Service Desk", "abcdef"});
    std::string strName;
    for (unsigned n = 1 + rBelow(9); n > 0; n--) {
      strName += OneIn(4) ? Pick({" ", "  ", ".", "..", "/", "[", "]", "7", "-", "\344"})
                          : std::string(1, static_cast<char>((OneIn(3) ? 'A' : 'a') + static_cast<char>(rBelow(26))));
    }
    return strName;
  }
  std::string DatePart() {
    return OneIn(2) ? Digits()
                    : Pick({"12", "03", "3", "Mar", "March", "Mon", "12Mar", "Mar12", "M\344rz", "01", "31",
                            "abcdefghijklmnopqrst", "abcdefghijklmnopqrstu", "12345678901234567890", "1a", "a1"});
  }
  std::string DateGap() {
    return Pick({".", ". ", " ", "-", "/", "", "", "  ", "..", ",", ":", "\n", " . ", "^", "\n ", "*.", "(-"});
  }
  std::string Date() {
    return DatePart() + DateGap() + DatePart() + DateGap() +
           Pick({"2015", "2026", "2001", "2000", "2999", "3000", "1999", "0000", "15", "20155", "2024"});
  }
  std::string Word() {
    return Pick({"Conn",     "POSTE ",          " Intern",          "DTMF",          "Ruf bei",    "RUF BEI ",
                 "ruf Bei",  "Oproep voor ",    "oPROEP VOOR",      "Call for ",     "CALL FOR",   "call  for",
                 "Amt ",     "Extern ",         "\nTALKING TO",     "\nTALKING TO ", "TALKING TO", "\nCALLING",
                 "CALLING ", "Identifikation:", "Ihre Rufnummer :", "conn",          "Line ",      "von: ",
                 "An: "});
  }
  std::string Prompt() {
    std::string strPrompt = Pick({"", "", "Bitte ", "\n"}) + "Identifikation:";
    for (unsigned n = rBelow(7); n > 0; n--) {
      strPrompt += OneIn(4) ? Pick({"\n", "\n\n", " ", "x"}) : std::string(1, static_cast<char>('1' + rBelow(4)));
    }
    return OneIn(4) ? "Ihre Rufnummer :" + strPrompt : strPrompt;
  }
  std::string Piece() {
    switch (rBelow(12)) {
      case 0:
      case 1:
      case 2:
        return Digits();
      case 3:
        return Digits() + Pick({": ", " ", "\n", ".", "^", "  ", " Intern", ":"});
      case 4:
        return Pick({": ", ":  ", ":   ", ":", " :", ":\t"});
      case 5:
        return Pick({" ", "  ", "      ", "\t"});
      case 6:
        return Pick({"\n", "\n", "\n\n"});
      case 7:
        return Date();
      case 8:
        return Word();
      case 9:
        return Name();
      case 10:
        return Mark();
      default:
        return Word() + Digits();
    }
  }

  std::function<unsigned(unsigned)> rBelow;
};
