// cardsim: steers the simulated cards of a running program through their control socket.
// Single actions go to the socket as they stand on the command line; a scenario file is checked whole before its first
// action. Exit status: 0 done, 1 refused by the cards, 2 wrong command line or scenario, 3 no cards at the socket.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cli_words.h"
#include "replay.h"
#include "scenario.h"
#include "simcards_conf.h"

namespace {

using Clock = std::chrono::steady_clock;
using simcards::ScenarioLine;

enum EExit { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_WRONG_INPUT = 2, EXIT_NO_CARDS = 3 };

constexpr auto CONNECT_PAUSE = std::chrono::milliseconds(50);

// The answer to one action.
struct Answer {
  bool fConnected = true;
  std::string strError;  // why it was refused; empty: it was done
  std::vector<std::string> vLines;
};

class Connection {
 public:
  ~Connection() {
    if (iFd >= 0) close(iFd);
  }

  // Tries until the cards are there or dSeconds have passed.
  bool Open(const std::string& strPath, double dSeconds) {
    const auto rUntil = Clock::now() + std::chrono::duration<double>(dSeconds);
    while (!TryOpen(strPath)) {
      if (Clock::now() >= rUntil) return false;
      std::this_thread::sleep_for(CONNECT_PAUSE);
    }
    return true;
  }

  Answer Ask(const std::string& strAction) {
    Answer rAnswer;
    std::string strLine = strAction + "\n";
    if (send(iFd, strLine.data(), strLine.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(strLine.size())) {
      rAnswer.fConnected = false;
      return rAnswer;
    }
    while ((rAnswer.fConnected = ReadLine(strLine)) && strLine.rfind("= ", 0) == 0) {
      rAnswer.vLines.push_back(strLine.substr(2));
    }
    if (strLine.rfind("ERROR ", 0) == 0) rAnswer.strError = strLine.substr(6);
    return rAnswer;
  }

 private:
  bool TryOpen(const std::string& strPath) {
    sockaddr_un rAddress{};
    rAddress.sun_family = AF_UNIX;
    if (strPath.size() >= sizeof rAddress.sun_path) return false;
    strPath.copy(rAddress.sun_path, strPath.size());
    iFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (iFd >= 0 && connect(iFd, reinterpret_cast<const sockaddr*>(&rAddress), sizeof rAddress) == 0) return true;
    const int iError = errno;
    if (iFd >= 0) close(iFd);
    iFd = -1;
    errno = iError;
    return false;
  }

  bool ReadLine(std::string& strLine) {
    std::size_t iEnd = 0;
    while ((iEnd = strReceived.find('\n')) == std::string::npos) {
      char acPiece[4096];
      const ssize_t iRead = recv(iFd, acPiece, sizeof acPiece, 0);
      if (iRead < 0 && errno == EINTR) continue;
      if (iRead <= 0) return false;
      strReceived.append(acPiece, static_cast<std::size_t>(iRead));
    }
    strLine = strReceived.substr(0, iEnd);
    strReceived.erase(0, iEnd + 1);
    return true;
  }

  int iFd = -1;
  std::string strReceived;
};

struct Options {
  std::string strSocket = simcards::CONTROL_SOCKET;
  double dConnect = 0;
  bool fJson = false;
  bool fVerbose = false;
  double dSpeed = 1;
  std::string strFile;   // scenario, or "dch.log" of a trace
  std::string strTexts;  // "dmsg.log"; empty: not given
  int iChannel = simcards::CHANNEL_OF_TRACE;
  bool fPrint = false;
};

int NoCards(const Options& rOptions) {
  std::fprintf(stderr, "cardsim: no simulated cards at %s: %s\n", rOptions.strSocket.c_str(), std::strerror(errno));
  return EXIT_NO_CARDS;
}

int Lost() {
  std::fprintf(stderr, "cardsim: the cards have stopped\n");
  return EXIT_NO_CARDS;
}

int Refused(const std::string& strWhere, const std::string& strError) {
  std::fprintf(stderr, "%s: %s\n", strWhere.c_str(), strError.c_str());
  return EXIT_REFUSED;
}

// -- single actions ---------------------------------------------------------------------------------------------------

// A word of the command line as the cards read it: quoted where it must be.
std::string AsWord(const std::string& strArg) {
  if (!strArg.empty() && strArg.find_first_of(" \t\r\n\"\\#") == std::string::npos) return strArg;
  std::string strWord = "\"";
  for (std::size_t i = 0; i < strArg.size(); i++) {
    const char ch = strArg[i];
    const bool fEscape = ch == '\\' && i + 1 < strArg.size() && std::strchr("ntx\\\"", strArg[i + 1]) != nullptr;
    if (ch == '\n') {
      strWord += "\\n";
    } else if (ch == '"' || (ch == '\\' && !fEscape)) {
      strWord += std::string("\\") + ch;
    } else {
      strWord += ch;
      if (fEscape) strWord += strArg[++i];  // "a\nb" in the shell's quotes is two lines
    }
  }
  return strWord + '"';
}

std::string AsAction(const std::vector<std::string>& astrArgs) {
  std::string strAction;
  for (const std::string& strArg : astrArgs) strAction += (strAction.empty() ? "" : " ") + AsWord(strArg);
  return strAction;
}

std::string DirectoryAction(const std::filesystem::path& rPath) {
  return "directory " + AsWord(rPath.string());
}

int RunAction(const Options& rOptions, const std::vector<std::string>& astrArgs) {
  const std::string strAction = AsAction(astrArgs);
  simcards::Action rAction;
  const std::string strWrong = simcards::ParseAction(strAction, rAction);
  if (!strWrong.empty()) {
    std::fprintf(stderr, "cardsim: %s\n", strWrong.c_str());
    return EXIT_WRONG_INPUT;
  }
  Connection rConnection;
  if (!rConnection.Open(rOptions.strSocket, rOptions.dConnect)) return NoCards(rOptions);
  // The cards find the files of "play" from here. Other actions do without, so a directory that is gone is no error.
  std::error_code rError;
  const std::filesystem::path rHere = std::filesystem::current_path(rError);
  if (!rError) (void)rConnection.Ask(DirectoryAction(rHere));
  const Answer rAnswer = rConnection.Ask(strAction);
  if (!rAnswer.fConnected) return Lost();
  for (const std::string& strLine : rAnswer.vLines) std::printf("%s\n", strLine.c_str());
  return rAnswer.strError.empty() ? EXIT_DONE : Refused("cardsim", rAnswer.strError);
}

// -- status -----------------------------------------------------------------------------------------------------------

// "name=value name=value" as an object; numbers become numbers.
nlohmann::json AsObject(const std::string& strLine) {
  nlohmann::json rObject;
  for (const std::string& strField : CLI::detail::split(strLine, ' ')) {
    const std::size_t iEqual = strField.find('=');
    const std::string strValue = strField.substr(iEqual + 1);
    const nlohmann::json rNumber = nlohmann::json::parse(strValue, nullptr, /*allow_exceptions=*/false);
    rObject[strField.substr(0, iEqual)] = rNumber.is_number() ? rNumber : nlohmann::json(strValue);
  }
  return rObject;
}

void PrintJson(const std::vector<std::string>& vLines) {
  nlohmann::json rStatus = AsObject(vLines[0]);
  for (const char* acList : {"ch", "cic", "fail"}) rStatus[acList] = nlohmann::json::array();
  for (std::size_t i = 1; i < vLines.size(); i++) {  // a line belongs to the list that its first field names
    rStatus[vLines[i].substr(0, vLines[i].find('='))].push_back(AsObject(vLines[i]));
  }
  std::printf("%s\n", rStatus.dump(2).c_str());
}

int RunStatus(const Options& rOptions) {
  Connection rConnection;
  if (!rConnection.Open(rOptions.strSocket, rOptions.dConnect)) return NoCards(rOptions);
  const Answer rAnswer = rConnection.Ask("status");
  if (!rAnswer.fConnected || rAnswer.vLines.empty()) return Lost();
  if (rOptions.fJson) {
    PrintJson(rAnswer.vLines);
  } else {
    for (const std::string& strLine : rAnswer.vLines) std::printf("%s\n", strLine.c_str());
  }
  return EXIT_DONE;
}

// -- scenarios --------------------------------------------------------------------------------------------------------

bool ReadFile(const std::string& strFile, std::string& strText) {
  std::ifstream rFile(strFile, std::ios::binary);
  if (!rFile) {
    std::fprintf(stderr, "cardsim: cannot read %s: %s\n", strFile.c_str(), std::strerror(errno));
    return false;
  }
  strText.assign(std::istreambuf_iterator<char>(rFile), std::istreambuf_iterator<char>());
  return true;
}

int PrintErrors(const std::vector<std::string>& astrErrors) {
  for (const std::string& strError : astrErrors) std::fprintf(stderr, "%s\n", strError.c_str());
  return astrErrors.empty() ? EXIT_DONE : EXIT_WRONG_INPUT;
}

int ReadScenario(const std::string& strFile, std::vector<ScenarioLine>& vLines) {
  std::string strText;
  if (!ReadFile(strFile, strText)) return EXIT_WRONG_INPUT;
  std::vector<std::string> astrErrors;
  vLines = simcards::ParseScenario(strText, strFile, astrErrors);
  return PrintErrors(astrErrors);
}

// strWhat names the scenario in a refusal.
int RunLines(const Options& rOptions, const std::string& strWhat, const std::vector<ScenarioLine>& vLines) {
  Connection rConnection;
  if (!rConnection.Open(rOptions.strSocket, rOptions.dConnect)) return NoCards(rOptions);
  (void)rConnection.Ask(DirectoryAction(std::filesystem::absolute(rOptions.strFile).parent_path()));
  simcards::ScenarioClock rClock;
  const Clock::time_point rStart = Clock::now();
  for (const ScenarioLine& rLine : vLines) {
    std::this_thread::sleep_until(rStart + std::chrono::duration<double>(rClock.Due(rLine) / rOptions.dSpeed));
    const auto* prPrint = std::get_if<simcards::actions::Print>(&rLine.rAction);
    if (prPrint != nullptr) std::printf("%s\n", prPrint->strText.c_str());
    if (rOptions.fVerbose) std::printf("%8.3f %s\n", rClock.Due(rLine), rLine.strAction.c_str());
    (void)std::fflush(stdout);
    const Answer rAnswer = rConnection.Ask(rLine.strAction);
    if (!rAnswer.fConnected) return Lost();
    for (const std::string& strLine : rAnswer.vLines) std::printf("%s\n", strLine.c_str());
    if (!rAnswer.strError.empty()) {
      return Refused(strWhat + ":" + std::to_string(rLine.iLine), rAnswer.strError);
    }
    const std::chrono::duration<double> rElapsed = Clock::now() - rStart;
    rClock.Done(rLine, rElapsed.count() * rOptions.dSpeed);
  }
  return EXIT_DONE;
}

int RunScenario(const Options& rOptions) {
  std::vector<ScenarioLine> vLines;
  const int iExit = ReadScenario(rOptions.strFile, vLines);
  return iExit == EXIT_DONE ? RunLines(rOptions, rOptions.strFile, vLines) : iExit;
}

// A trace is turned into a scenario as a whole, which is then printed or run.
int Replay(const Options& rOptions) {
  simcards::TraceFile rEvents{rOptions.strFile, ""};
  simcards::TraceFile rTexts{rOptions.strTexts, ""};
  const bool fTexts = !rOptions.strTexts.empty();
  if (!ReadFile(rEvents.strName, rEvents.strText)) return EXIT_WRONG_INPUT;
  if (fTexts && !ReadFile(rTexts.strName, rTexts.strText)) return EXIT_WRONG_INPUT;
  std::vector<std::string> astrErrors;
  const std::string strScenario =
      simcards::ReplayScenario(rEvents, fTexts ? &rTexts : nullptr, rOptions.iChannel, astrErrors);
  if (!astrErrors.empty()) return PrintErrors(astrErrors);
  if (rOptions.fPrint) {
    std::printf("%s", strScenario.c_str());
    return EXIT_DONE;
  }
  const std::string strWhat = "scenario of " + rOptions.strFile;
  const std::vector<ScenarioLine> vLines = simcards::ParseScenario(strScenario, strWhat, astrErrors);
  return astrErrors.empty() ? RunLines(rOptions, strWhat, vLines) : PrintErrors(astrErrors);
}

// As scenarios have it.
constexpr double SLOWEST = 0.01, FASTEST = 1000;

std::string CheckSpeed(const std::string& strText) {
  return ComplainOfNumber(strText, SLOWEST, FASTEST);
}

std::string CheckChannel(const std::string& strText) {
  return ComplainOfNumber(strText, 0, std::numeric_limits<double>::infinity());
}

constexpr const char* FOOTER =
    "Actions, each as in a scenario (docs/simulator.md has them all):\n"
    "  cardsim ch 3 ring on            cardsim ch 3 callerid 0301234567\n"
    "  cardsim ch 3 offhook            cardsim ch 3 play file speech.wav\n"
    "  cardsim cic 5 talk in caller 0301234567 callee 200\n"
    "  cardsim fail SsmRecToMem 1 text \"no memory\"\n"
    "  cardsim wait recording 3 timeout 5";

int Main(int argc, char** argv) {
  Options rOptions;
  CLI::App rApp{"Steers the simulated cards of a running recorder", "cardsim"};
  rApp.footer(FOOTER);
  rApp.set_version_flag("--version", "cardsim " MORVEX_VERSION);
  rApp.allow_extras()->prefix_command();
  rApp.add_option("--socket", rOptions.strSocket, "Control socket of the cards")->capture_default_str();
  rApp.add_option("--connect", rOptions.dConnect, "Seconds to wait for the cards to be there")->capture_default_str();

  CLI::App* prRun = rApp.add_subcommand("run", "Runs a scenario file");
  prRun->add_option("file", rOptions.strFile, "The scenario")->required();
  prRun->add_option("--speed", rOptions.dSpeed, "Times as fast as written")->check(CheckSpeed);
  prRun->add_flag("-v,--verbose", rOptions.fVerbose, "Prints each action as it is done");
  CLI::App* prReplay = rApp.add_subcommand("replay", "Gives a station line the messages of a trace");
  prReplay->add_option("dch_log", rOptions.strFile, "\"dch.log\" of the trace")->required();
  prReplay->add_option("dmsg_log", rOptions.strTexts, "\"dmsg.log\" of the trace; without it displays have no text");
  prReplay->add_option("--channel", rOptions.iChannel, "Where the messages go; as in the trace if not said")
      ->check(CheckChannel);
  prReplay->add_option("--speed", rOptions.dSpeed, "Times as fast as traced")->check(CheckSpeed);
  prReplay->add_flag("-v,--verbose", rOptions.fVerbose, "Prints each action as it is done");
  prReplay->add_flag("--print", rOptions.fPrint, "Only prints the scenario, to be edited and run; needs no cards");
  CLI::App* prCheck = rApp.add_subcommand("check", "Only reads a scenario file and tells what is wrong in it");
  prCheck->add_option("file", rOptions.strFile, "The scenario")->required();
  CLI::App* prStatus = rApp.add_subcommand("status", "Channels with type, state and recording");
  prStatus->add_flag("--json", rOptions.fJson, "As JSON");

  try {
    rApp.parse(argc, argv);
  } catch (const CLI::ParseError& rError) {
    return rApp.exit(rError) == 0 ? EXIT_DONE : EXIT_WRONG_INPUT;
  }
  if (*prRun) return RunScenario(rOptions);
  if (*prReplay) return Replay(rOptions);
  if (*prStatus) return RunStatus(rOptions);
  if (*prCheck) {
    std::vector<ScenarioLine> vLines;
    return ReadScenario(rOptions.strFile, vLines);
  }
  const std::vector<std::string> astrArgs = rApp.remaining();
  if (astrArgs.empty()) {
    std::fprintf(stderr, "%s", rApp.help().c_str());
    return EXIT_WRONG_INPUT;
  }
  return RunAction(rOptions, astrArgs);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& rError) {  // no memory
    std::fprintf(stderr, "cardsim: %s\n", rError.what());
    return EXIT_WRONG_INPUT;
  }
}
