// shell: commands run through the shell, and quoting for it.
// The appliance's own tools, sox and the checksum programs have no other interface.
// Threads:   any; no state. Both run functions block until the command ends, so lengthy ones run on a worker.
// Errors:    none is logged; a command is told in the log before it runs.
#pragma once

#include <string>

// Runs a command through the shell and returns what it writes to standard output; empty when popen fails.
std::string stdSystem(const std::string& strCommand);
// Runs a command through the shell, drops its output and returns the status of pclose; -1 when popen fails.
int execCmd(const std::string& strCmd);
// The argument in single quotes, safe for the shell; everything that comes from outside passes through here.
std::string escapeShellArg(const std::string& arg);
