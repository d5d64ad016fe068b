// morvex_ctl: orders to the running recorder, and a view of its lines and calls, for people and scripts.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "cli_words.h"
#include "ctl_check.h"
#include "ctl_chstate.h"
#include "ctl_metrics.h"
#include "ctl_orders.h"
#include "ctl_settings.h"
#include "ctl_socket.h"
#include "ctl_status.h"
#include "ctl_watch.h"

namespace {

// A call id is date, time, line number and a counter: 20240131_142305_007_42.
std::string CheckCallId(const std::string& strText) {
  static const std::regex rCallId(R"(\d{8}_\d{6}_\d{3,}_\d{2})");
  return std::regex_match(strText, rCallId) ? "" : "'" + strText + "' is no call id such as 20240131_142305_007_42";
}

// The vertical bar separates the fields of the order.
std::string CheckPhoneNumber(const std::string& strText) {
  return strText.find_first_of("|\r\n") == std::string::npos ? "" : "a number holds no '|' and no line end";
}

int ExitOf(const CtlStatus& rStatus) {
  if (!rStatus.fRunning) return CTL_NOT_RUNNING;
  return rStatus.fDatabase ? CTL_OK : CTL_NO_DATABASE;
}

int Show(const CtlStatus& rStatus, bool fJson) {
  const time_t rNow = time(nullptr);
  std::cout << (fJson ? JsonToText(StatusToJson(rStatus, rNow), /*iIndent=*/2) + "\n" : StatusToText(rStatus, rNow));
  return ExitOf(rStatus);
}

// With what the line itself says.
int ShowLine(int iLine, bool fJson) {
  const CtlStatus rWhole = ReadStatus();
  const std::string strComplaint = ComplainOfLine(rWhole, iLine);
  if (!strComplaint.empty()) {
    std::cerr << strComplaint << "\n";
    return CTL_USAGE;
  }
  const CtlStatus rStatus = StatusOfLine(rWhole, iLine);
  if (!rStatus.fRunning) return Show(rStatus, fJson);
  const ChstReply rReply = AskLineState(iLine);
  const bool fState = rReply.eExit == CTL_OK;
  const time_t rNow = time(nullptr);
  if (fJson) {
    nlohmann::json rJson = StatusToJson(rStatus, rNow);
    if (fState) rJson["line_state"] = LineStateToJson(iLine, rReply.rState);
    std::cout << JsonToText(rJson, /*iIndent=*/2) << "\n";
  } else {
    const std::string strState = fState ? LineStateToText(iLine, rReply.rState) : rReply.strText + "\n";
    std::cout << StatusToText(rStatus, rNow) << strState;
  }
  return ExitOf(rStatus);
}

int Check(const CheckLimits& rLimits) {
  const CheckResult rResult = CheckStatus(ReadStatus(), ReadDescriptorLimit(CONTROL_SOCKET), rLimits, time(nullptr));
  std::cout << rResult.strLine << "\n";
  return rResult.eExit;
}

int Watch(bool fJson) {
  if (fJson) {
    WatchStatusJson();
    return CTL_OK;
  }
  if (WatchStatus() == 0) return CTL_OK;
  std::cerr << "watch needs a terminal; 'watch --json' does not.\n";
  return CTL_USAGE;
}

int ShowMetrics() {
  const std::optional<LoopReport> rReport = ReadLoopReport();
  if (!rReport) {
    std::cerr << "The recorder has left no report: " << LOOP_FILE << " cannot be read.\n";
    return CTL_NO_REPORT;
  }
  std::cout << MetricsToText(*rReport);
  return CTL_OK;
}

// The arguments of all subcommands; only the one that was given is used.
struct Arguments {
  CallName rCall;
  LocalChange rChange;
  int iNumber = 0;
  bool fJson = false;
  bool fCheck = false;
  CheckLimits rLimits;
};

constexpr int MAX_LINE = 99999;
constexpr double PERCENT = 100;
constexpr double ENDLESS = std::numeric_limits<double>::infinity();

// Asked of the arguments as they are: those that make no sense have not become any.
bool IsCheck(int argc, char** argv) {
  if (argc < 2 || strcmp(argv[1], "status") != 0) return false;  // settings has another
  for (int i = 2; i < argc; i++) {
    if (strcmp(argv[i], "--check") == 0) return true;
  }
  return false;
}

class CommandLine {
 public:
  CommandLine() {
    rApp.require_subcommand(1);
    rApp.set_version_flag("--version", "morvex_ctl " MORVEX_VERSION);
    rApp.footer(
        "Exit status: 0 OK, 1 no report, 2 usage, 3 unknown order, 4 unknown call, 5 option is off, 6 time-out,\n"
        "7 trace already started or stopped, 8 no reply, 9 recorder not running, 10 no database,\n"
        "11 unknown reply, 12 nothing came of the order, 13 a setting that is wrong. status --check has those of "
        "monitoring plugins: 0 OK,\n"
        "1 WARNING, 2 CRITICAL, 3 UNKNOWN.");
    AddCallOrder("silence", "Replace the audio of a call by silence from now on");
    AddCallOrder("sound", "End the silence of a call");
    AddCallOrder("start", "Record a call that waits for a demand");
    AddCallOrder("stop", "Stop recording a call that records on demand");
    AddCallOrder("delete", "Stop recording a call and delete what was recorded");
    AddOrder("reconfig", "Reload the options that may change while running", [] { return std::string("reconfig"); });
    AddChst();
    AddOrder("bittrace_start", "Trace one channel; nothing else is recorded meanwhile",
             [this] { return "bittrace_start " + std::to_string(rArgs.iNumber); })
        ->add_option("channel", rArgs.iNumber, "Channel of the card driver, counted from 0")
        ->required()
        ->check(CLI::Range(0, 99999));
    AddOrder("bittrace_stop", "End the trace", [] { return std::string("bittrace_stop"); });
    AddChangeLocal();
    AddStatus();
    AddView("watch", "The status, redrawn every second until a key is pressed", Watch);
    AddSettings();
    rApp.add_subcommand("metrics", "What the recorder tells of its loop, as Prometheus reads it")->callback([this] {
      pRun = ShowMetrics;
    });
  }

  int Run(int argc, char** argv) {
    if (argc > 1 && argv[1][0] != '-' && !IsCommand(argv[1])) {
      std::cerr << NoSuchCommand(argv[1], Commands()) << "\n";
      return CTL_USAGE;
    }
    try {
      rApp.parse(argc, argv);
    } catch (const CLI::ParseError& rError) {  // the library's way, also for --help
      if (rApp.exit(rError) == 0) return CTL_OK;
      if (!IsCheck(argc, argv)) return CTL_USAGE;
      std::cout << "CREC UNKNOWN - " << rError.what() << "\n";
      return PLUGIN_UNKNOWN;
    }
    return pRun();
  }

 private:
  std::vector<std::string> Commands() {
    std::vector<std::string> astrNames;
    for (const CLI::App* prSub : rApp.get_subcommands([](CLI::App*) { return true; }))
      astrNames.push_back(prSub->get_name());
    return astrNames;
  }

  bool IsCommand(const std::string& strWord) {
    const std::vector<std::string> astrNames = Commands();
    return std::find(astrNames.begin(), astrNames.end(), strWord) != astrNames.end();
  }

  CLI::App* AddOrder(const std::string& strName, const std::string& strHelp, std::function<std::string()> pText) {
    CLI::App* prSub = rApp.add_subcommand(strName, strHelp);
    prSub->callback([this, pText = std::move(pText)] { pRun = [pText] { return RunOrder(pText()); }; });
    return prSub;
  }

  void AddCallOrder(const std::string& strName, const std::string& strHelp) {
    CLI::App* prSub = rApp.add_subcommand(strName, strHelp);
    CLI::Option* prId = prSub->add_option("call-id", rArgs.rCall.strCallId, "Id of the call, as status shows it");
    prId->check(CheckCallId);
    AddLine(prSub, "The call on this line")->excludes(prId);
    prSub->callback([this, strName] {
      if (rArgs.rCall.strCallId.empty() && rArgs.rCall.iLine == 0)
        throw CLI::ValidationError(strName, "needs a call id, or --line and a line number");
      pRun = [this, strName] { return RunCallOrder(strName, rArgs.rCall); };
    });
  }

  CLI::Option* AddLine(CLI::App* prSub, const std::string& strHelp) {
    return prSub->add_option("--line", rArgs.rCall.iLine, strHelp)->check(CLI::Range(1, MAX_LINE));
  }

  void AddChst() {
    CLI::App* prSub = rApp.add_subcommand("chst", "Ask a line for its voltage and audio level");
    prSub->add_option("line", rArgs.iNumber, "Line number as users see it")->required()->check(CLI::Range(1, MAX_LINE));
    prSub->add_flag("--json", rArgs.fJson, "For scripts");
    prSub->callback([this] { pRun = [this] { return RunChst(rArgs.iNumber, rArgs.fJson); }; });
  }

  void AddChangeLocal() {
    CLI::App* prSub = rApp.add_subcommand("change_local", "Tell the local party of the call with a remote number");
    prSub->add_option("local", rArgs.rChange.strLocal, "New local number; '' for a phone that is not monitored")
        ->required()
        ->check(CheckPhoneNumber);
    prSub->add_option("remote", rArgs.rChange.strRemote, "Remote number of the call")
        ->required()
        ->check(CheckPhoneNumber);
    prSub->add_flag("--stop-start", rArgs.rChange.fStopStart, "End this recording and start another for the new party");
    prSub->callback([this] { pRun = [this] { return RunChangeLocal(rArgs.rChange); }; });
  }

  void AddStatus() {
    CLI::App* prSub = rApp.add_subcommand("status", "Lines with their health, and calls in progress");
    CLI::Option* prJson = prSub->add_flag("--json", rArgs.fJson, "For scripts");
    CLI::Option* prLine = AddLine(prSub, "This line alone, and what it says of itself");
    CLI::Option* prCheck = prSub->add_flag("--check", rArgs.fCheck, "One line and exit status of a monitoring plugin");
    prCheck->excludes(prJson)->excludes(prLine);
    CheckLimits& rLimits = rArgs.rLimits;
    AddLimit(prSub, prCheck, "--warn-free", rLimits.fWarnFree, PERCENT, "Warning below so many percent of free disk");
    AddLimit(prSub, prCheck, "--crit-free", rLimits.fCritFree, PERCENT, "Critical below so many");
    AddLimit(prSub, prCheck, "--warn-behind", rLimits.fWarnBehind, ENDLESS,
             "Warning from so many seconds that the main loop is behind");
    AddLimit(prSub, prCheck, "--crit-behind", rLimits.fCritBehind, ENDLESS, "Critical from so many");
    AddLimit(prSub, prCheck, "--warn-event", rLimits.fWarnEvent, ENDLESS,
             "Warning after so many seconds without a card event; 0: never");
    prSub->callback([this] {
      pRun = [this] {
        if (rArgs.fCheck) return Check(rArgs.rLimits);
        return rArgs.rCall.iLine == 0 ? Show(ReadStatus(), rArgs.fJson) : ShowLine(rArgs.rCall.iLine, rArgs.fJson);
      };
    });
  }

  void AddLimit(CLI::App* prSub, CLI::Option* prCheck, const std::string& strName, double& dLimit, double dMost,
                const std::string& strHelp) {
    prSub->add_option(strName, dLimit, strHelp)
        ->check([dMost](const std::string& strText) { return ComplainOfNumber(strText, 0, dMost); })
        ->capture_default_str()
        ->needs(prCheck);
  }

  void AddView(const std::string& strName, const std::string& strHelp, int (*pView)(bool fJson)) {
    CLI::App* prSub = rApp.add_subcommand(strName, strHelp);
    prSub->add_flag("--json", rArgs.fJson, "For scripts");
    prSub->callback([this, pView] { pRun = [this, pView] { return pView(rArgs.fJson); }; });
  }

  void AddSettings() {
    CLI::App* prShow = rApp.add_subcommand("settings", "What can be set: present values, meaning, mistakes");
    prShow->add_option("key", rView.strKey, "This setting alone, with its meaning");
    CLI::Option* prCheck =
        prShow->add_flag("--check", rView.fCheck, "Tell what the recorder takes otherwise than it looks");
    prCheck->excludes("key");
    prShow->add_flag("--json", rView.fJson, "For scripts");
    prShow->add_flag("--markdown", rView.fMarkdown, "The document docs/settings.md")
        ->excludes("key", "--check", "--json");
    prShow->callback([this] { pRun = [this] { return RunSettings(rView); }; });

    CLI::App* prSet = rApp.add_subcommand("set", "Write a setting, if it makes sense");
    prSet->add_option("key", rChange.strKey, "The setting, with or without the board in front")->required();
    prSet->add_option("value", rChange.strValue, "Its new value; '' is as good as not set")->required();
    prSet->add_option("--board", rChange.strBoard, "Of this board, such as Syn1001");
    prSet
        ->add_option("--channel", rChange.iChannel,
                     "Of this channel of the board, counted from 0; the others keep theirs")
        ->check(CLI::Range(0, 999));
    prSet->add_option("--part", rChange.strPart, "Refuse when the setting belongs to another part");
    prSet->callback([this] { pRun = [this] { return RunSet(rChange); }; });
  }

  CLI::App rApp{"Orders to the running call recorder, and a view of its lines and calls"};
  Arguments rArgs;
  SettingsView rView;
  SettingChange rChange;
  std::function<int()> pRun;
};

}  // namespace

int main(int argc, char** argv) {
  CommandLine rCommandLine;
  return rCommandLine.Run(argc, argv);
}
