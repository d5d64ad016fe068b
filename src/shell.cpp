// Commands are texts for the shell, so people can run again by hand what they find in the log. A child that stays is
// LineCom's business.
#include "shell.h"

#include <syslog.h>

#include <cstdio>

#include "logging.h"

namespace {

constexpr int PIECE_BYTES = 300;  // of output at a time; any size will do

// Runs a command and appends its output to `prOutput`, or drops it when that is null: reading to the end keeps the
// command from blocking on a full pipe. Returns the status of pclose, -1 when popen fails.
int RunCommand(const std::string& strCommand, std::string* prOutput) {
  FILE* hPipe = popen(strCommand.c_str(), "re");
  if (hPipe == nullptr) return -1;
  char acPiece[PIECE_BYTES];
  while (fgets(acPiece, sizeof acPiece, hPipe) != nullptr) {
    if (prOutput != nullptr) *prOutput += acPiece;
  }
  return pclose(hPipe);
}

}  // namespace

std::string stdSystem(const std::string& strCommand) {
  lg(LOG_NOTICE, "Command: %s", strCommand.c_str());
  std::string strOutput;
  (void)RunCommand(strCommand, &strOutput);  // the output is all that callers ask for
  return strOutput;
}

int execCmd(const std::string& strCmd) {
  lg(LOG_NOTICE, "Exec: %s", strCmd.c_str());
  return RunCommand(strCmd, nullptr);
}

std::string escapeShellArg(const std::string& arg) {
  std::string strQuoted = "'";
  for (const char ch : arg) {
    if (ch == '\'') {
      strQuoted += "'\\''";  // ends the quotes, gives a quote, opens them again
    } else {
      strQuoted += ch;
    }
  }
  return strQuoted + "'";
}
