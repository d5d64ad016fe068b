// simcards_action: one action on the simulated cards, as it is written in a scenario and sent to the control socket.
// The grammar is told in docs/simulator.md. Reading is apart from doing, so that a scenario can be checked as a whole
// before its first action.
// Threads: any; no state.
#pragma once

#include <map>
#include <string>

#include "shpa3api.h"

namespace simcards {

enum ECommand {
  CMD_NONE,
  // -- on channels -------------------------------------------------------------------------------------------
  CMD_RING,  // iValue: 1 on, 0 off
  CMD_OFF_HOOK,
  CMD_ON_HOOK,
  CMD_CALLER_ID,  // strText
  CMD_DTMF,       // strText: the digits
  CMD_FLASH,
  CMD_TONE,   // iValue: kind
  CMD_SOUND,  // iValue: 1 present, 0 gone
  CMD_NO_SOUND,
  CMD_STATE,    // iValue: channel or circuit state
  CMD_VOLTAGE,  // iValue
  CMD_PLAY_SILENCE,
  CMD_PLAY_COUNTING,
  CMD_PLAY_TONE,  // dValue: Hz, dLevel: dB
  CMD_PLAY_FILE,  // strText: path, iValue: 1 loops
  CMD_DCHANNEL,   // rMessage
  CMD_KEYS,       // strText: the keys
  CMD_EVENT,      // iValue: event code, rMessage
  // -- on circuits -------------------------------------------------------------------------------------------
  CMD_TRUNK,  // iValue: circuit state, iIncoming, rNumbers
  // -- on the whole ------------------------------------------------------------------------------------------
  CMD_FAIL,   // strText: operation, iCount, iValue: result, strText2: text
  CMD_SPEED,  // dValue
  CMD_OVERRUNS,
  CMD_STATUS,
  CMD_WAIT,       // iValue: EWaitFor, dValue: seconds at most
  CMD_DIRECTORY,  // strText: where relative paths of this connection begin
  CMD_PRINT,      // strText: for the person who watches the scenario
};

enum ETarget { TARGET_NONE, TARGET_CHANNELS, TARGET_CIRCUITS };

enum EWaitFor {
  WAIT_READY,      // the daemon takes events
  WAIT_HANDLED,    // every event was taken and dealt with
  WAIT_IDLE,       // that, and no channel is recorded
  WAIT_RECORDING,  // all channels of the range are recorded
  WAIT_STOPPED,    // none of the range is
  WAIT_TRACED,     // the signalling of all channels of the range is traced
  WAIT_PLAYED,     // the files of the range have been played to their ends
};

// The parts of an event beside its code and reference.
struct Message {
  DWORD dwParam = 0;
  DWORD dwSubReason = 0;
  DWORD dwXtraInfo = 0;
  std::string strData;
};

struct Command {
  ECommand eCommand = CMD_NONE;
  ETarget eTarget = TARGET_NONE;
  int iFirst = -1;  // channels or circuits, both ends included
  int iLast = -1;
  int iValue = 0;
  int iCount = 0;
  double dValue = 0;
  double dLevel = 0;
  std::string strText, strText2;
  Message rMessage;
  int iIncoming = -1;                           // 1 in, 0 out, -1 not said
  std::map<std::string, std::string> rNumbers;  // those of "caller", "callee" and "connected" that were given
};

// Empty on success, else what was expected and what was found.
std::string ParseCommand(const std::string& strLine, Command& rCommand);

}  // namespace simcards
