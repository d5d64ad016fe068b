// An action on a range is checked on every channel of it before the first event is queued, so that it happens as a
// whole or not at all.

#include "simcards_perform.h"

#include <chrono>

#include "simcards_pacing.h"
#include "simcards_state.h"
#include "simcards_status.h"
#include "simcards_trace.h"

namespace simcards {
namespace {

constexpr int OFF_HOOK_VOLTAGE = 8;
constexpr int NO_REFERENCE = -1;

bool IsTrunk(const Channel& rChannel) {
  return rChannel.iType == CH_ISDN_USR || rChannel.iType == CH_ISDN_NTW;
}

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
  Message rMessage;
  rMessage.dwParam = dwParam;
  QueueEvent(rState, wCode, nReference, rMessage);
}

// What a command needs of a channel, as a text to refuse it with; empty when the channel will do.
std::string Unfit(const Command& rCommand, int nCh, const Channel& rChannel) {
  const std::string strName = "channel " + std::to_string(nCh);
  switch (rCommand.eCommand) {
    case CMD_RING:
    case CMD_OFF_HOOK:
    case CMD_ON_HOOK:
      return IsTrunk(rChannel) ? strName + " belongs to a trunk: its calls are made by cic" : "";
    case CMD_CALLER_ID:
    case CMD_FLASH:
    case CMD_VOLTAGE:
    case CMD_NO_SOUND:
      return rChannel.iType != CH_ANALOG ? strName + " is no analogue line" : "";
    case CMD_DCHANNEL:
    case CMD_KEYS:
      return rChannel.iType != CH_DST ? strName + " has no D-channel" : "";
    default:
      return "";
  }
}

void SetChannelState(State& rState, int nCh, Channel& rChannel, int iState) {
  rChannel.iState = iState;
  if (rChannel.iType == CH_ANALOG) rChannel.iVoltage = iState == S_CALL_PICKUPED ? OFF_HOOK_VOLTAGE : DEFAULT_VOLTAGE;
  QueueEvent(rState, E_CHG_ChState, nCh, static_cast<DWORD>(iState));
}

// A station tells by a message what an analogue line shows by its voltage.
void StateOrMessage(State& rState, int nCh, Channel& rChannel, int iState, DWORD dwMessage) {
  if (rChannel.iType == CH_DST) {
    QueueEvent(rState, E_RCV_DSTDChannel, nCh, dwMessage);
  } else {
    SetChannelState(rState, nCh, rChannel, iState);
  }
}

// The high bits count the digits that wait, as the card has them.
void QueueDigits(State& rState, int nCh, Channel& rChannel, const std::string& strDigits) {
  for (const char ch : strDigits) {
    const auto dwCount = static_cast<DWORD>(++rChannel.iRxDigits);
    QueueEvent(rState, E_CHG_RcvDTMF, nCh, dwCount << 16 | static_cast<BYTE>(ch));
  }
}

void QueueKeys(State& rState, int nCh, const Command& rCommand) {
  for (const char ch : rCommand.strText) {
    Message rMessage = rCommand.rMessage;
    rMessage.dwSubReason = static_cast<BYTE>(ch);
    QueueEvent(rState, E_RCV_DSTDChannel, nCh, rMessage);
  }
}

void ActOnChannel(State& rState, int nCh, Channel& rChannel, const Command& rCommand,
                  const std::shared_ptr<const AudioFile>& prFile) {
  const auto dwValue = static_cast<DWORD>(rCommand.iValue);
  switch (rCommand.eCommand) {
    case CMD_RING:
      if (rCommand.iValue == 1) {
        StateOrMessage(rState, nCh, rChannel, S_CALL_RINGING, DMSG_RING_ON);
      } else {
        StateOrMessage(rState, nCh, rChannel, S_CALL_STANDBY, DMSG_RING_OFF);
      }
      break;
    case CMD_OFF_HOOK:
      StateOrMessage(rState, nCh, rChannel, S_CALL_PICKUPED, DMSG_OFF_HOOK);
      break;
    case CMD_ON_HOOK:
      StateOrMessage(rState, nCh, rChannel, S_CALL_STANDBY, DMSG_ON_HOOK);
      break;
    case CMD_CALLER_ID:
      rChannel.strCallerId = rCommand.strText;
      QueueEvent(rState, E_CHG_CIDExBuf, nCh, 0);
      break;
    case CMD_DTMF:
      QueueDigits(rState, nCh, rChannel, rCommand.strText);
      break;
    case CMD_FLASH:
      QueueEvent(rState, E_CHG_FlashCount, nCh, 1);
      break;
    case CMD_TONE:
      QueueEvent(rState, E_CHG_ToneAnalyze, nCh, dwValue);
      break;
    case CMD_SOUND:
      QueueEvent(rState, E_SYS_BargeIn, nCh, dwValue);
      break;
    case CMD_NO_SOUND:
      QueueEvent(rState, E_SYS_NoSound, nCh, 0);
      break;
    case CMD_STATE:
      SetChannelState(rState, nCh, rChannel, rCommand.iValue);
      break;
    case CMD_VOLTAGE:
      rChannel.iVoltage = rCommand.iValue;
      break;
    case CMD_PLAY_SILENCE:
      rChannel.rSource.SetSilence();
      break;
    case CMD_PLAY_COUNTING:
      rChannel.rSource.SetCounting();
      break;
    case CMD_PLAY_TONE:
      rChannel.rSource.SetTone(rCommand.dValue, rCommand.dLevel);
      break;
    case CMD_PLAY_FILE:
      rChannel.rSource.SetFile(prFile, rCommand.iValue == 1);
      break;
    case CMD_DCHANNEL:
      QueueEvent(rState, E_RCV_DSTDChannel, nCh, rCommand.rMessage);
      break;
    case CMD_KEYS:
      QueueKeys(rState, nCh, rCommand);
      break;
    case CMD_EVENT:
      QueueEvent(rState, static_cast<WORD>(rCommand.iValue), nCh, rCommand.rMessage);
      break;
    default:
      break;  // no action on channels
  }
}

std::string ActOnChannels(State& rState, const Command& rCommand, const std::shared_ptr<const AudioFile>& prFile) {
  for (int nCh = rCommand.iFirst; nCh <= rCommand.iLast; nCh++) {
    const Channel* prChannel = rState.At(nCh);
    if (prChannel == nullptr) return "channel " + std::to_string(nCh) + " does not exist";
    std::string strUnfit = Unfit(rCommand, nCh, *prChannel);
    if (!strUnfit.empty()) return strUnfit;
  }
  for (int nCh = rCommand.iFirst; nCh <= rCommand.iLast; nCh++) {
    ActOnChannel(rState, nCh, *rState.At(nCh), rCommand, prFile);
  }
  rState.rChanged.notify_all();
  return "";
}

// A ring begins a new call, so numbers that are not given are empty; an answer keeps those of the ring; idle forgets.
void SetCircuit(Circuit& rCircuit, const Command& rCommand) {
  const bool fCallBegins = rCommand.iValue == S_SPY_RINGING || rCircuit.iState == S_SPY_STANDBY;
  SpyInfo& rInfo = rCircuit.rInfo;
  if (fCallBegins || rCommand.iValue == S_SPY_STANDBY) rInfo = SpyInfo();
  if (rCommand.iIncoming >= 0 || rInfo.iCallInCh < 0) {
    const bool fIncoming = rCommand.iIncoming != 0;
    rInfo.iCallInCh = fIncoming ? rCircuit.iFirstCh : rCircuit.iSecondCh;
    rInfo.iCallOutCh = fIncoming ? rCircuit.iSecondCh : rCircuit.iFirstCh;
  }
  for (const auto& [strName, strNumber] : rCommand.rNumbers) {
    std::string& strPlace = strName == "caller"   ? rInfo.strCaller
                            : strName == "callee" ? rInfo.strCallee
                                                  : rInfo.strConnected;
    strPlace = strNumber;
  }
}

std::string ActOnCircuits(State& rState, const Command& rCommand) {
  for (int nCic = rCommand.iFirst; nCic <= rCommand.iLast; nCic++) {
    if (rState.rCircuits.count(nCic) == 0) return "circuit " + std::to_string(nCic) + " does not exist";
  }
  for (int nCic = rCommand.iFirst; nCic <= rCommand.iLast; nCic++) {
    if (rCommand.eCommand == CMD_EVENT) {
      QueueEvent(rState, static_cast<WORD>(rCommand.iValue), nCic, rCommand.rMessage);
      continue;
    }
    Circuit& rCircuit = rState.rCircuits[nCic];
    SetCircuit(rCircuit, rCommand);
    const auto dwBefore = static_cast<DWORD>(rCircuit.iState);
    rCircuit.iState = rCommand.iValue;
    QueueEvent(rState, E_CHG_SpyState, nCic, dwBefore << 16 | static_cast<DWORD>(rCommand.iValue));
  }
  return "";
}

bool Holds(State& rState, const Command& rCommand) {
  const bool fHandled = rState.EventsOn() && rState.rQueue.empty() && !rState.fHandling;
  int iRecorded = 0, iPlayed = 0, iTraced = 0, iAny = 0;
  for (std::size_t i = 0; i < rState.vChannels.size(); i++) {
    const Channel& rChannel = *rState.vChannels[i];
    if (rChannel.rMem.fOn) iAny++;
    if (static_cast<int>(i) < rCommand.iFirst || static_cast<int>(i) > rCommand.iLast) continue;
    if (rChannel.rMem.fOn) iRecorded++;
    if (!rChannel.rSource.Playing()) iPlayed++;
    if (IsSignalTraced(static_cast<int>(i))) iTraced++;
  }
  const int iRange = rCommand.iLast - rCommand.iFirst + 1;
  switch (static_cast<EWaitFor>(rCommand.iValue)) {
    case WAIT_READY:
      return rState.EventsOn();
    case WAIT_HANDLED:
      return fHandled;
    case WAIT_IDLE:
      return fHandled && iAny == 0;
    case WAIT_RECORDING:
      return iRecorded == iRange;
    case WAIT_STOPPED:
      return iRecorded == 0;
    case WAIT_TRACED:
      return iTraced == iRange;
    case WAIT_PLAYED:
      return iPlayed == iRange;
  }
  return false;
}

std::string Wait(State& rState, const Command& rCommand, const Session& rSession) {
  std::unique_lock<std::mutex> rLock(rState.rMutex);
  const auto rUntil =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(rCommand.dValue));
  if (rCommand.eTarget == TARGET_CHANNELS && rState.At(rCommand.iLast) == nullptr) {
    return "channel " + std::to_string(rCommand.iLast) + " does not exist";
  }
  bool fGone = false;
  const bool fDone = rState.rChanged.wait_until(rLock, rUntil, [&] {
    fGone = rSession.fnGone != nullptr && rSession.fnGone();
    return fGone || Holds(rState, rCommand);
  });
  if (fGone) return "the cards stop";
  return fDone ? "" : "it did not come about in time";
}

std::string AbsolutePath(const Session& rSession, const std::string& strPath) {
  if (strPath.empty() || strPath[0] == '/' || rSession.strDirectory.empty()) return strPath;
  return rSession.strDirectory + "/" + strPath;
}

std::string ActOnTarget(State& rState, const Command& rCommand, const Session& rSession) {
  std::string strWhy;
  std::shared_ptr<const AudioFile> prFile;
  if (rCommand.eCommand == CMD_PLAY_FILE) {
    prFile = ReadAudioFile(AbsolutePath(rSession, rCommand.strText), strWhy);
    if (prFile == nullptr) return strWhy;
  }
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  const bool fQueues =
      rCommand.eCommand != CMD_VOLTAGE && (rCommand.eCommand < CMD_PLAY_SILENCE || rCommand.eCommand > CMD_PLAY_FILE);
  if (fQueues && !rState.EventsOn()) return "the recorder takes no events yet";
  if (rCommand.eTarget == TARGET_CHANNELS) return ActOnChannels(rState, rCommand, prFile);
  return ActOnCircuits(rState, rCommand);
}

}  // namespace

std::string Act(const Command& rCommand, Session& rSession, std::vector<std::string>& vLines) {
  State& rState = TheState();
  switch (rCommand.eCommand) {
    case CMD_WAIT:
      return Wait(rState, rCommand, rSession);
    case CMD_DIRECTORY:
      rSession.strDirectory = rCommand.strText;
      return "";
    case CMD_SPEED:
      StartPacingThread(rCommand.dValue);
      return "";
    case CMD_FAIL:
      FailNext(rCommand.strText, rCommand.iCount, rCommand.iValue, rCommand.strText2);
      return "";
    case CMD_OVERRUNS:
      vLines.push_back(std::to_string(Overruns()));
      return "";
    case CMD_STATUS:
      vLines = StatusLines();
      return "";
    case CMD_NONE:
    case CMD_PRINT:
      return "";
    default:
      break;
  }
  if (rCommand.eTarget != TARGET_NONE) return ActOnTarget(rState, rCommand, rSession);
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  if (!rState.EventsOn()) return "the recorder takes no events yet";
  QueueEvent(rState, static_cast<WORD>(rCommand.iValue), NO_REFERENCE, rCommand.rMessage);
  return "";
}

}  // namespace simcards
