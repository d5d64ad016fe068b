// morvex_display: what would the recorder make of this display? For integrators at a site with an odd PBX.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <map>
#include <sstream>
#include <string>

#include "cli_words.h"
#include "display_input.h"
#include "display_line.h"
#include "plaintext.h"

namespace {

// Display text on one line of the terminal, which must not obey what else stands in it.
std::string OneLine(const std::string& strText) {
  std::string strLine;
  for (const char ch : strText) strLine += ch == '\n' ? std::string("\\n") : std::string(1, ch);
  MaskControls(strLine.data(), strLine.size());
  return strLine;
}

bool ReadInput(const std::string& strFile, std::string& strContent) {
  if (strFile == "-") {
    strContent.assign(std::istreambuf_iterator<char>(std::cin), {});
    return true;
  }
  std::ifstream rFile(strFile, std::ios::binary);
  (void)rFile.peek();  // a directory opens and fails at its first byte
  if (rFile.fail()) return false;
  strContent.assign(std::istreambuf_iterator<char>(rFile), {});
  return true;
}

std::string Indented(const std::string& strText) {
  std::string strIndented;
  std::istringstream rLines(strText);
  for (std::string strLine; std::getline(rLines, strLine);) strIndented += "    " + strLine + "\n";
  return strIndented;
}

std::string CheckSeconds(const std::string& strText) {
  return ComplainOfNumber(strText, 0, std::numeric_limits<double>::infinity());
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App rApp{"Shows what the recorder's own code makes of display texts of digital station lines"};
  rApp.set_version_flag("--version", "morvex_display " MORVEX_VERSION);
  std::string strFile;
  std::string strStartMode = "default";
  int iPhoneType = 0;
  int iTraceCh = -1;
  DisplayLineState rState;
  const std::map<std::string, std::string> rStartModes = {
      {"default", "0"}, {"mutelight", "1"}, {"audio", "2"}, {"mutelight+tone", "3"}};
  rApp.add_option("file", strFile, "\"dmsg.log\" of a trace, or one display a line with \\n for line feeds; -: input")
      ->required();
  rApp.add_option("--pbx", rState.strPbxType, "PBX type as in the settings")->capture_default_str();
  rApp.add_option("--start-mode", strStartMode, "Start mode of the board")
      ->check(CLI::IsMember(rStartModes))
      ->capture_default_str();
  rApp.add_option("--phone-type", iPhoneType, "Phone type of the line; 1 with \"Avaya Mer...\" is a Tenovis");
  rApp.add_option("--busy", rState.iBusyFor, "The line is in a call, for so many seconds at the first display")
      ->check(CheckSeconds);
  rApp.add_flag("--ringing", rState.fRinging, "The line rings");
  rApp.add_flag("--pilot", rState.fPilot, "Look for names behind numbers");
  rApp.add_option("--remote", rState.strRemoteNum, "Remote number that is known already");
  rApp.add_option("--local", rState.strLocalNum, "The line's own number");
  rApp.add_option("--previous", rState.strPrevCallRemoteNum, "Remote number of the call before");
  rApp.add_option("--line-name", rState.strLineName, "Name of the line's contact");
  rApp.add_option("--channel", iTraceCh, "Only displays of this channel of the trace");
  rApp.footer(
      "Lines that begin with [1] are the recorder's own log; indented below stand each number of the display\n"
      "with its verdict, and what changed.");
  CLI11_PARSE(rApp, argc, argv);

  std::string strContent;
  if (!ReadInput(strFile, strContent)) {
    std::cerr << "Cannot read " << strFile << "\n";
    return 1;
  }
  rState.rSettings["TdmStart"] = rStartModes.at(strStartMode);
  rState.rSettings["PhoneType"] = std::to_string(iPhoneType);
  DisplayLine rLine(rState);
  for (const DisplayText& rDisplay : ReadDisplays(strContent, iTraceCh)) {
    std::cout << "--- " << rDisplay.iSecond << " s: " << OneLine(rDisplay.strText) << std::endl;
    std::cout << Indented(rLine.Show(rDisplay)) << std::flush;
  }
  return 0;
}
