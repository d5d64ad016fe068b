// simcards_state: the one state of the simulated card library: boards, channels, circuits, events, faults, calls.
// Everything that the library's entry points, the pacing thread, the trace threads and the control socket share.
// Threads:   any. Every use holds rState.rMutex; entry points do so through Call.
// Ownership: the state lives from the first use to the end of the process and is never destroyed, since threads of the
//            library may still run while the process exits.
#pragma once

#include <array>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "shpa3api.h"
#include "simcards.h"
#include "simcards_audio.h"
#include "simcards_queue.h"
#include "simcards_wav.h"

namespace simcards {

constexpr int SSM_FAILED = -1;
constexpr int DEFAULT_VOLTAGE = 48;  // of an analogue line that nobody uses
constexpr WORD ALL_EVENTS = 0xFFFF;  // as SsmSetEvent has it
constexpr int ALL_CHANNELS = -1;
constexpr std::size_t CLOCK_SLOTS = 1024;
constexpr std::size_t MAX_NOTED_CALLS = 1024;  // a daemon that runs for days never takes them

// A recording into the caller's ring. Byte k since the start stands at k % dwSize.
struct MemRecording {
  bool fOn = false;
  int nFormat = SSM_FORMAT_ALAW;
  BYTE* pBuf = nullptr;  // not owned: the caller's, until SsmStopRecToMem
  DWORD dwSize = 0;
  long long iWritten = 0;  // bytes since the start
  long long iTaken = 0;    // bytes announced by reports that were taken
  int iWaiting = 0;        // reports that wait to be taken
  long long iReport = 0;   // bytes at which the next report is due, by the settings of that number
  int iSettings = -1;
};

struct Channel {
  // What each look needs stands together.
  long long iClock = 0;  // the cards' clock up to which the line's sound was made
  long long iDue = -1;   // when the line is looked at next; -1: it has nothing to do
  AudioSource rSource;
  MemRecording rMem;
  WavWriter rFile;

  int iBoardId = -1;
  int iBoardCh = -1;
  int iType = CH_UNKNOWN;
  int iState = S_CALL_STANDBY;
  int iVoltage = 0;
  int iRxDigits = 0;  // digits since SsmClearRxDtmfBuf
  std::string strCallerId;
  std::string strCallerIdGiven;  // what SsmGetCallerIdA pointed at last; other threads leave it alone
};

struct Circuit {
  SpyInfo rInfo;
  int iState = S_SPY_STANDBY;
  int iFirstCh = -1;   // driver channel of the direction that the daemon takes as the line
  int iSecondCh = -1;  // driver channel of the other direction
};

struct Fault {
  int iTimes = 0;
  int iResult = SSM_FAILED;
  std::string strText;
};

enum EMode {
  MODE_CLOSED,  // before SsmStartCti and after SsmCloseCti: every operation but these fails
  MODE_BENCH,   // channels made by AddBoard, all events on
  MODE_CARDS,   // started by SsmStartCti; events flow once SsmSetEvent switched them on
};

// When a moment of the cards' clock is, by the machine's.
struct CardTime {
  long long iAt = 0;   // this moment of the cards' clock ...
  long long iNs = 0;   // ... is here on CLOCK_MONOTONIC
  double dByteNs = 0;  // 0: the cards do not run by time
  long long NsOf(long long iThen) const {
    return dByteNs > 0 ? iNs + std::llround(static_cast<double>(iThen - iAt) * dByteNs) : 0;
  }
  long long MomentOf(long long iThenNs) const {
    return dByteNs > 0 ? iAt + std::llround(static_cast<double>(iThenNs - iNs) / dByteNs) : iAt;
  }
};

struct State {
  std::mutex rMutex;
  std::condition_variable rArrived;  // an event was queued, or the cards have stopped: for SsmWaitForEventA
  std::condition_variable rChanged;  // anything that a wait of the control socket may ask for
  std::atomic<int> iCallers{0};      // that wait for rMutex
  std::atomic<int> iTakers{0};       // threads that wait for rArrived, changed under rMutex
  int iWatchers = 0;                 // threads that wait for rChanged

  EMode eMode = MODE_CLOSED;
  int iBoards = 0;
  std::vector<std::unique_ptr<Channel>> vChannels;  // by driver channel
  std::map<int, Circuit> rCircuits;                 // by circuit number

  EventQueue rQueue;
  std::string strDelivered;  // data of the last event, when it did not fit the caller's buffer
  bool fHandling = false;    // the caller took an event and did not come back for the next one
  std::map<std::pair<WORD, int>, EVENT_SET_INFO> rEventSettings;  // by event code and reference, ALL_... included
  int iSettings = 0;                                              // how often they changed

  long long iClock = 0;  // bytes that each line has carried since the library was loaded
  CardTime rTime;
  std::array<std::vector<int>, CLOCK_SLOTS> vSlots;  // driver channels by the time of the next look, modulo
  std::size_t iInSlot = 0;                           // so many of the present slot have been looked at
  int iBusyLines = 0;                                // lines that are due some time

  std::map<std::string, Fault> rFaults;
  std::string strLastError;
  std::deque<std::string> astrCalls;
  long long iOverruns = 0;

  Channel* At(int nCh);  // null when there is no such channel
  void Forget();         // back to MODE_CLOSED with nothing in it
  void ForgetCards();    // likewise, but keeps what tests ask afterwards: calls, faults, overruns, last error
  void AddBoardChannels(int iBoardId, int iCount, int iChType);
  void Note(const std::string& strCall);
  void Changed() {
    if (iWatchers > 0) rChanged.notify_all();
  }

  // -- events (simcards_events.cpp) -----------------------------------------------------------------------------------
  // The setting that holds for an event of a channel; null: the event is off.
  const EVENT_SET_INFO* SettingOf(WORD wEvent, int nReference) const;
  bool EventsOn() const { return eMode == MODE_BENCH || !rEventSettings.empty(); }
  void SetEvent(WORD wEvent, int nReference, const EVENT_SET_INFO& rSetting);
  bool Queue(QueuedEvent rQueued);  // false: the event is switched off and dropped
  void DropReports(int nCh);        // a ring that is no longer written has nothing to report

  // -- audio (simcards_record.cpp) ------------------------------------------------------------------------------------
  // Makes what the line has carried up to now: before its sound changes, and before a recording begins or ends.
  void CatchUp(int nCh, Channel& rChannel);
  // The number of bytes at which a recording reports next; never reached when nothing is to be reported.
  long long NextReport(int nCh, MemRecording& rMem) const;
  void Hear(int nCh, const std::string& strBytes);
  template <typename F>
  void SetSource(int nCh, Channel& rChannel, F fnSet) {
    CatchUp(nCh, rChannel);
    fnSet(rChannel.rSource);
    Schedule(nCh, rChannel);
    Changed();
  }

  // -- the cards' clock (simcards_clock.cpp) --------------------------------------------------------------------------
  // Enters the line for its next look, counted from where its sound was made up to; after each beginning.
  void Schedule(int nCh, Channel& rChannel);
  // The same, for a recording into memory: decides at which moment it begins.
  void Begin(int nCh, Channel& rChannel);
  // Runs the clock to iUntil and looks at each line that becomes due; false when it has looked at iMost lines before
  // it was there, so that others get the lock meanwhile.
  bool RunClock(long long iUntil, int iMost);
  int NextLook();            // bytes until a line may be due, at most 20 ms
  void Advance(int iBytes);  // and makes the sound of all lines up to then
  std::vector<int>& SlotOf(long long iTime) { return vSlots[static_cast<std::size_t>(iTime) % CLOCK_SLOTS]; }
};

State& TheState();

}  // namespace simcards
