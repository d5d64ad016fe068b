// Each kind of action on a channel has a function Do, each other kind an operator() of Performer, and std::visit picks
// it: a kind that has none does not compile. An action on a range is checked on every channel of it before the first
// event is queued, so that it happens as a whole or not at all.

#include "simcards_perform.h"

#include <chrono>
#include <cstdio>
#include <thread>
#include <type_traits>

#include "simcards_pacing.h"
#include "simcards_state.h"
#include "simcards_status.h"
#include "simcards_trace.h"

namespace simcards {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto REST = std::chrono::milliseconds(1);
constexpr int OFF_HOOK_VOLTAGE = 8;
constexpr int NO_REFERENCE = -1;
constexpr const char* NO_RECORDER = "the recorder takes no events yet";

// True when A is one of the kinds As.
template <typename A, typename... As>
constexpr bool IS_ONE_OF = (std::is_same_v<A, As> || ...);

void QueueEvent(State& rState, WORD wCode, int nReference, const Message& rMessage) {
  QueuedEvent rQueued;
  rQueued.rEvent.wEventCode = wCode;
  rQueued.rEvent.nReference = nReference;
  rQueued.rEvent.dwParam = rMessage.dwParam;
  rQueued.rEvent.dwSubReason = rMessage.dwSubReason;
  rQueued.rEvent.dwXtraInfo = rMessage.dwXtraInfo;
  rQueued.strData = rMessage.strData;
  rState.Queue(std::move(rQueued));
}

void QueueEvent(State& rState, WORD wCode, int nReference, DWORD dwParam) {
  QueueEvent(rState, wCode, nReference, Message{dwParam, 0, 0, ""});
}

// -- on one channel ---------------------------------------------------------------------------------------------------

struct Line {
  State& rState;
  int nCh;
  Channel& rChannel;
  std::shared_ptr<const AudioFile> prFile;  // of PlayFile; null for all others

  void Queue(WORD wCode, DWORD dwParam) const { QueueEvent(rState, wCode, nCh, dwParam); }
  void Queue(WORD wCode, const Message& rMessage) const { QueueEvent(rState, wCode, nCh, rMessage); }
  template <typename F>
  void Play(F fnSet) const {
    rState.SetSource(nCh, rChannel, fnSet);
  }
  void SetState(int iState) const {
    rChannel.iState = iState;
    if (rChannel.iType == CH_ANALOG) rChannel.iVoltage = iState == S_CALL_PICKUPED ? OFF_HOOK_VOLTAGE : DEFAULT_VOLTAGE;
    Queue(E_CHG_ChState, static_cast<DWORD>(iState));
  }
  // A station tells by a message what an analogue line shows by its voltage.
  void StateOrMessage(int iState, DWORD dwMessage) const {
    if (rChannel.iType == CH_DST) {
      Queue(E_RCV_DSTDChannel, dwMessage);
    } else {
      SetState(iState);
    }
  }
};

void Do(const actions::Ring& rRing, const Line& rLine) {
  if (rRing.fOn) {
    rLine.StateOrMessage(S_CALL_RINGING, DMSG_RING_ON);
  } else {
    rLine.StateOrMessage(S_CALL_STANDBY, DMSG_RING_OFF);
  }
}

void Do(const actions::OffHook& /*rOffHook*/, const Line& rLine) {
  rLine.StateOrMessage(S_CALL_PICKUPED, DMSG_OFF_HOOK);
}

void Do(const actions::OnHook& /*rOnHook*/, const Line& rLine) {
  rLine.StateOrMessage(S_CALL_STANDBY, DMSG_ON_HOOK);
}

void Do(const actions::CallerId& rCallerId, const Line& rLine) {
  rLine.rChannel.strCallerId = rCallerId.strNumber;
  rLine.Queue(E_CHG_CIDExBuf, 0);
}

// The high bits count the digits that wait, as the card has them.
void Do(const actions::Dtmf& rDtmf, const Line& rLine) {
  for (const char ch : rDtmf.strDigits) {
    const auto dwCount = static_cast<DWORD>(++rLine.rChannel.iRxDigits);
    rLine.Queue(E_CHG_RcvDTMF, dwCount << 16 | static_cast<BYTE>(ch));
  }
}

void Do(const actions::Flash& /*rFlash*/, const Line& rLine) {
  rLine.Queue(E_CHG_FlashCount, 1);
}

void Do(const actions::Tone& rTone, const Line& rLine) {
  rLine.Queue(E_CHG_ToneAnalyze, rTone.dwKind);
}

void Do(const actions::Sound& rSound, const Line& rLine) {
  rLine.Queue(E_SYS_BargeIn, rSound.fPresent ? 1 : 0);
}

void Do(const actions::NoSound& /*rNoSound*/, const Line& rLine) {
  rLine.Queue(E_SYS_NoSound, 0);
}

void Do(const actions::ChannelState& rState, const Line& rLine) {
  rLine.SetState(rState.iState);
}

void Do(const actions::Voltage& rVoltage, const Line& rLine) {
  rLine.rChannel.iVoltage = rVoltage.iVolts;
}

void Do(const actions::PlaySilence& /*rPlay*/, const Line& rLine) {
  rLine.Play([](AudioSource& rSource) { rSource.SetSilence(); });
}

void Do(const actions::PlayCounting& /*rPlay*/, const Line& rLine) {
  rLine.Play([](AudioSource& rSource) { rSource.SetCounting(); });
}

void Do(const actions::PlayTone& rPlay, const Line& rLine) {
  rLine.Play([&](AudioSource& rSource) { rSource.SetTone(rPlay.dHz, rPlay.dLevelDb); });
}

void Do(const actions::PlayFile& rPlay, const Line& rLine) {
  rLine.Play([&](AudioSource& rSource) { rSource.SetFile(rLine.prFile, rPlay.fLoop); });
}

void Do(const actions::DChannel& rDChannel, const Line& rLine) {
  rLine.Queue(E_RCV_DSTDChannel, rDChannel.rMessage);
}

void Do(const actions::Keys& rKeys, const Line& rLine) {
  for (const char ch : rKeys.strKeys) {
    rLine.Queue(E_RCV_DSTDChannel, Message{DMSG_KEY_DIGIT, static_cast<BYTE>(ch), 0, ""});
  }
}

void Do(const actions::Event& rEvent, const Line& rLine) {
  rLine.Queue(rEvent.wCode, rEvent.rMessage);
}

// -- on a range of channels -------------------------------------------------------------------------------------------

// Voltage and sound are on a line whether or not anybody listens; all else is told to the recorder.
template <typename A>
constexpr bool NEEDS_RECORDER =
    !IS_ONE_OF<A, actions::Voltage, actions::PlaySilence, actions::PlayCounting, actions::PlayTone, actions::PlayFile>;

bool IsTrunk(const Channel& rChannel) {
  return rChannel.iType == CH_ISDN_USR || rChannel.iType == CH_ISDN_NTW;
}

// What an action of kind A needs of a channel, as a text to refuse it with; empty when the channel will do.
template <typename A>
std::string Unfit(int nCh, const Channel& rChannel) {
  const std::string strName = "channel " + std::to_string(nCh);
  if constexpr (IS_ONE_OF<A, actions::Ring, actions::OffHook, actions::OnHook>) {
    return IsTrunk(rChannel) ? strName + " belongs to a trunk: its calls are made by cic" : "";
  } else if constexpr (IS_ONE_OF<A, actions::CallerId, actions::Flash, actions::Voltage, actions::NoSound>) {
    return rChannel.iType != CH_ANALOG ? strName + " is no analogue line" : "";
  } else if constexpr (IS_ONE_OF<A, actions::DChannel, actions::Keys>) {
    return rChannel.iType != CH_DST ? strName + " has no D-channel" : "";
  } else {
    return "";
  }
}

std::string AbsolutePath(const Session& rSession, const std::string& strPath) {
  if (strPath.empty() || strPath[0] == '/' || rSession.strDirectory.empty()) return strPath;
  return rSession.strDirectory + "/" + strPath;
}

template <typename A>
std::string DoOnRange(const A& rAction, const Range& rRange, [[maybe_unused]] const Session& rSession) {
  std::shared_ptr<const AudioFile> prFile;
  if constexpr (IS_ONE_OF<A, actions::PlayFile>) {  // before the lock: a file may be long
    std::string strWhy;
    prFile = ReadAudioFile(AbsolutePath(rSession, rAction.strPath), strWhy);
    if (prFile == nullptr) return strWhy;
  }
  State& rState = TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  if (NEEDS_RECORDER<A> && !rState.EventsOn()) return NO_RECORDER;
  for (int nCh = rRange.iFirst; nCh <= rRange.iLast; nCh++) {
    const Channel* prChannel = rState.At(nCh);
    if (prChannel == nullptr) return "channel " + std::to_string(nCh) + " does not exist";
    std::string strUnfit = Unfit<A>(nCh, *prChannel);
    if (!strUnfit.empty()) return strUnfit;
  }
  for (int nCh = rRange.iFirst; nCh <= rRange.iLast; nCh++) Do(rAction, Line{rState, nCh, *rState.At(nCh), prFile});
  rState.Changed();
  return "";
}

// -- on circuits ------------------------------------------------------------------------------------------------------

// A ring begins a new call, so numbers that are not given are empty; an answer keeps those of the ring; idle forgets.
void SetInfo(Circuit& rCircuit, const actions::CircuitState& rNew) {
  const bool fCallBegins = rNew.iState == S_SPY_RINGING || rCircuit.iState == S_SPY_STANDBY;
  SpyInfo& rInfo = rCircuit.rInfo;
  if (fCallBegins || rNew.iState == S_SPY_STANDBY) rInfo = SpyInfo();
  if (rNew.fIncoming || rInfo.iCallInCh < 0) {
    const bool fIncoming = rNew.fIncoming.value_or(true);
    rInfo.iCallInCh = fIncoming ? rCircuit.iFirstCh : rCircuit.iSecondCh;
    rInfo.iCallOutCh = fIncoming ? rCircuit.iSecondCh : rCircuit.iFirstCh;
  }
  rInfo.strCaller = rNew.strCaller.value_or(rInfo.strCaller);
  rInfo.strCallee = rNew.strCallee.value_or(rInfo.strCallee);
  rInfo.strConnected = rNew.strConnected.value_or(rInfo.strConnected);
}

void Do(const actions::CircuitState& rNew, State& rState, int nCic) {
  Circuit& rCircuit = rState.rCircuits[nCic];
  SetInfo(rCircuit, rNew);
  const auto dwBefore = static_cast<DWORD>(rCircuit.iState);
  rCircuit.iState = rNew.iState;
  QueueEvent(rState, E_CHG_SpyState, nCic, dwBefore << 16 | static_cast<DWORD>(rNew.iState));
}

void Do(const actions::Event& rEvent, State& rState, int nCic) {
  QueueEvent(rState, rEvent.wCode, nCic, rEvent.rMessage);
}

// -- waits ------------------------------------------------------------------------------------------------------------

bool IsRecorded(int /*nCh*/, const Channel& rChannel) {
  return rChannel.rMem.fOn;
}

bool IsTraced(int nCh, const Channel& /*rChannel*/) {
  return IsSignalTraced(nCh);
}

bool IsPlayed(int /*nCh*/, const Channel& rChannel) {
  return !rChannel.rSource.Playing();
}

// Whether each, or none, of the channels of the range is so; one that has gone is not. Neither looks on once it knows.
template <bool WANTED>
bool Each(State& rState, const Range& rRange, bool (*Is)(int nCh, const Channel& rChannel)) {
  for (int nCh = rRange.iFirst; nCh <= rRange.iLast; nCh++) {
    const Channel* prChannel = rState.At(nCh);
    if ((prChannel != nullptr && Is(nCh, *prChannel)) != WANTED) return false;
  }
  return true;
}

bool Holds(State& rState, const actions::Wait& rWait) {
  const Range rAll{0, static_cast<int>(rState.vChannels.size()) - 1};
  const Range rRange = rWait.rChannels.value_or(rAll);
  const bool fHandled = rState.EventsOn() && rState.rQueue.IsEmpty() && !rState.fHandling;
  switch (rWait.eFor) {
    case WAIT_READY:
      return rState.EventsOn();
    case WAIT_HANDLED:
      return fHandled;
    case WAIT_IDLE:
      return fHandled && Each<false>(rState, rAll, IsRecorded);
    case WAIT_RECORDING:
      return Each<true>(rState, rRange, IsRecorded);
    case WAIT_STOPPED:
      return Each<false>(rState, rRange, IsRecorded);
    case WAIT_TRACED:
      return Each<true>(rState, rRange, IsTraced);
    case WAIT_PLAYED:
      return Each<true>(rState, rRange, IsPlayed);
  }
  return false;
}

// False when the time is over.
bool WaitForChange(State& rState, std::unique_lock<std::mutex>& rLock, Clock::time_point rUntil) {
  rState.iWatchers++;
  const bool fInTime = rState.rChanged.wait_until(rLock, rUntil) == std::cv_status::no_timeout;
  rState.iWatchers--;
  return fInTime;
}

// -- all actions ------------------------------------------------------------------------------------------------------

struct Performer {
  Session& rSession;
  std::vector<std::string>& vLines;

  std::string operator()(const actions::OnChannels& rOn) const {
    return std::visit([&](const auto& rAction) { return DoOnRange(rAction, rOn.rRange, rSession); }, rOn.rAction);
  }

  std::string operator()(const actions::OnCircuits& rOn) const {
    State& rState = TheState();
    const std::lock_guard<std::mutex> rGuard(rState.rMutex);
    if (!rState.EventsOn()) return NO_RECORDER;
    for (int nCic = rOn.rRange.iFirst; nCic <= rOn.rRange.iLast; nCic++) {
      if (rState.rCircuits.count(nCic) == 0) return "circuit " + std::to_string(nCic) + " does not exist";
    }
    for (int nCic = rOn.rRange.iFirst; nCic <= rOn.rRange.iLast; nCic++) {
      std::visit([&](const auto& rAction) { Do(rAction, rState, nCic); }, rOn.rAction);
    }
    return "";
  }

  std::string operator()(const actions::Event& rEvent) const {
    State& rState = TheState();
    const std::lock_guard<std::mutex> rGuard(rState.rMutex);
    if (!rState.EventsOn()) return NO_RECORDER;
    QueueEvent(rState, rEvent.wCode, NO_REFERENCE, rEvent.rMessage);
    return "";
  }

  std::string operator()(const actions::Fail& rFail) const {
    FailNext(rFail.strOperation, rFail.iTimes, rFail.iResult, rFail.strText);
    return "";
  }

  std::string operator()(const actions::Speed& rSpeed) const {
    StartPacingThread(rSpeed.dFactor);
    return "";
  }

  std::string operator()(const actions::Overruns& /*rOverruns*/) const {
    vLines.push_back(std::to_string(Overruns()));
    return "";
  }

  std::string operator()(const actions::Recorded& rRecorded) const {
    State& rState = TheState();
    const std::lock_guard<std::mutex> rLock(rState.rMutex);
    const Range& rRange = rRecorded.rChannels;
    if (rState.At(rRange.iLast) == nullptr) return "channel " + std::to_string(rRange.iLast) + " does not exist";
    for (int nCh = rRange.iFirst; nCh <= rRange.iLast; nCh++) {
      vLines.push_back(std::to_string(rState.At(nCh)->rMem.iWritten));
    }
    return "";
  }

  std::string operator()(const actions::Cost& /*rCost*/) const {
    const Cost rCost = TheCost();
    char acLine[120];
    (void)std::snprintf(acLine, sizeof acLine, "pacing=%.6f taking=%.6f takes=%lld", rCost.dPacingS, rCost.dTakingS,
                        rCost.iTakes);
    vLines.emplace_back(acLine);
    return "";
  }

  std::string operator()(const actions::Status& /*rStatus*/) const {
    vLines = StatusLines();
    return "";
  }

  std::string operator()(const actions::Wait& rWait) const {
    State& rState = TheState();
    std::unique_lock<std::mutex> rLock(rState.rMutex);
    const auto rUntil =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(rWait.dTimeoutS));
    if (rWait.rChannels && rState.At(rWait.rChannels->iLast) == nullptr) {
      return "channel " + std::to_string(rWait.rChannels->iLast) + " does not exist";
    }
    bool fInTime = true;
    for (bool fPause = false;; fPause = !fPause) {
      if (rSession.fnGone != nullptr && rSession.fnGone()) return "the cards stop";
      if (Holds(rState, rWait)) return "";
      if (!fInTime) return "it did not come about in time";
      if (fPause) {  // thousands of lines change all the time: a change that did not bring it about brings a rest
        rLock.unlock();
        std::this_thread::sleep_for(REST);
        rLock.lock();
      } else {
        fInTime = WaitForChange(rState, rLock, rUntil);
      }
    }
  }

  std::string operator()(const actions::Directory& rDirectory) const {
    rSession.strDirectory = rDirectory.strPath;
    return "";
  }

  std::string operator()(const actions::Print& /*rPrint*/) const { return ""; }
};

}  // namespace

std::string Perform(const Action& rAction, Session& rSession, std::vector<std::string>& vLines) {
  return std::visit(Performer{rSession, vLines}, rAction);
}

}  // namespace simcards
