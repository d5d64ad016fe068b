// simcards_action: one action on the simulated cards, as it is written in a scenario and sent to the control socket.
// Each kind of action is a record of its own, with what it needs to be done; docs/simulator.md tells the grammar.
// Reading is apart from doing (simcards_perform), so that a scenario can be checked as a whole before its first action.
// Threads: any; no state.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "shpa3api.h"

namespace simcards {

constexpr int MAX_CHANNEL = 100000;  // also of circuits

// Channels or circuits, both ends included.
struct Range {
  int iFirst = 0;
  int iLast = 0;
};

// The parts of an event beside its code and reference.
struct Message {
  DWORD dwParam = 0;
  DWORD dwSubReason = 0;
  DWORD dwXtraInfo = 0;
  std::string strData;
};

enum EWaitFor {
  WAIT_READY,      // the daemon takes events
  WAIT_HANDLED,    // every event was taken and dealt with
  WAIT_IDLE,       // that, and no channel is recorded
  WAIT_RECORDING,  // all channels of the range are recorded
  WAIT_STOPPED,    // none of the range is
  WAIT_TRACED,     // the signalling of all channels of the range is traced
  WAIT_PLAYED,     // the files of the range have been played to their ends
};

namespace actions {

struct Event {
  WORD wCode = 0;
  Message rMessage;
};

// -- on channels ------------------------------------------------------------------------------------------------------
struct Ring {
  bool fOn = false;
};
struct OffHook {};
struct OnHook {};
struct CallerId {
  std::string strNumber;
};
struct Dtmf {
  std::string strDigits;
};
struct Flash {};
struct Tone {
  DWORD dwKind = 0;
};
struct Sound {
  bool fPresent = false;
};
struct NoSound {};
struct ChannelState {
  int iState = S_CALL_STANDBY;
};
struct Voltage {
  int iVolts = 0;
};
struct PlaySilence {};
struct PlayCounting {};
struct PlayTone {
  double dHz = 0;
  double dLevelDb = 0;
};
struct PlayFile {
  std::string strPath;
  bool fLoop = false;
};
struct DChannel {
  Message rMessage;
};
struct Keys {
  std::string strKeys;
};

using OnChannel = std::variant<Ring, OffHook, OnHook, CallerId, Dtmf, Flash, Tone, Sound, NoSound, ChannelState,
                               Voltage, PlaySilence, PlayCounting, PlayTone, PlayFile, DChannel, Keys, Event>;

struct OnChannels {
  Range rRange;
  OnChannel rAction;
};

// -- on circuits ------------------------------------------------------------------------------------------------------
struct CircuitState {
  int iState = S_SPY_STANDBY;
  std::optional<bool> fIncoming;                                  // empty: not said, like the numbers
  std::optional<std::string> strCaller, strCallee, strConnected;  // "" is said: no number
};

using OnCircuit = std::variant<CircuitState, Event>;

struct OnCircuits {
  Range rRange;
  OnCircuit rAction;
};

// -- on the whole -----------------------------------------------------------------------------------------------------
struct Fail {
  std::string strOperation;
  int iTimes = 0;
  int iResult = 0;
  std::string strText;
};
struct Speed {
  double dFactor = 1;
};
struct Overruns {};
// How much the recordings of the channels hold by now.
struct Recorded {
  Range rChannels;
};
struct Cost {};
struct Status {};
struct Wait {
  EWaitFor eFor = WAIT_READY;
  std::optional<Range> rChannels;  // of the conditions that speak of channels
  double dTimeoutS = 0;
};
// Where relative paths of this connection begin.
struct Directory {
  std::string strPath;
};
// For the person who watches the scenario; the cards do nothing.
struct Print {
  std::string strText;
};

}  // namespace actions

using Action = std::variant<actions::Print, actions::OnChannels, actions::OnCircuits, actions::Event, actions::Fail,
                            actions::Speed, actions::Overruns, actions::Recorded, actions::Cost, actions::Status,
                            actions::Wait, actions::Directory>;

// Empty on success, else what was expected and what was found.
std::string ParseAction(const std::string& strLine, Action& rAction);

}  // namespace simcards
