// ctl_socket: one order to the running daemon over its control socket, and what its reply means to a shell.
// One connection carries one order of at most 100 bytes and brings back one line.
#pragma once

#include <string>

constexpr const char* CONTROL_SOCKET = "/tmp/morvex_crec";
constexpr std::size_t MAX_ORDER_BYTES = 100;  // the daemon reads no more

// Exit status of morvex_ctl: one a kind of error, so that scripts need not read texts.
enum ECtlExit {
  CTL_OK = 0,
  CTL_NO_REPORT = 1,      // metrics: the recorder has left no report
  CTL_USAGE = 2,          // arguments that make no sense; nothing was sent
  CTL_UNKNOWN_ORDER = 3,  // E0
  CTL_UNKNOWN_CALL = 4,   // E2
  CTL_REFUSED = 5,        // E3: the option is off
  CTL_TIME_OUT = 6,       // E4: the order still takes effect later
  CTL_ALREADY = 7,        // ERR: a trace is started or stopped already
  CTL_NO_REPLY = 8,       // the daemon closed the connection without a line, or did not answer in time
  CTL_NOT_RUNNING = 9,    // nobody serves the socket
  CTL_NO_DATABASE = 10,   // the database cannot be read or, by set, not written
  CTL_OTHER_REPLY = 11,   // a reply that is none of the known ones
  CTL_NOT_DONE = 12,      // the order was taken, and what it was for has not come about
  CTL_BAD_SETTING = 13,   // settings --check, set: the recorder would not take a setting as it was meant
};

struct CtlReply {
  ECtlExit eExit = CTL_NOT_RUNNING;
  // The line without its line end, or a plain sentence when there was none. Control characters are masked: whoever
  // holds the socket wrote it.
  std::string strText;
};

// The meaning of a reply line.
ECtlExit ClassifyReply(const std::string& strLine);
// Whether a process holds the socket. A daemon that does notices nothing: the system refuses a connection of another
// kind than the socket takes before it reaches anybody, and otherwise where nobody holds it.
bool IsServed(const std::string& strSocketPath = CONTROL_SOCKET);
// Sends an order and waits for its reply. Gives up after 5 seconds in the queue of clients or without a reply.
CtlReply SendOrder(const std::string& strOrder, const std::string& strSocketPath = CONTROL_SOCKET);
