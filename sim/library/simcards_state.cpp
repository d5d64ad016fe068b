// Making and forgetting of the state; its events are in simcards_events.cpp, its audio in simcards_record.cpp.
// What a test asks once the cards have stopped (calls, faults, overruns, last error) outlives SsmCloseCti and the next
// start, and ends only with Reset.

#include "simcards_state.h"

namespace simcards {

State& TheState() {
  static State& rState = *new State;  // never deleted, see the header
  return rState;
}

Channel* State::At(int nCh) {
  if (nCh < 0 || nCh >= static_cast<int>(vChannels.size())) return nullptr;
  return vChannels[static_cast<std::size_t>(nCh)].get();
}

void State::ForgetCards() {
  eMode = MODE_CLOSED;
  iBoards = 0;
  vChannels.clear();
  rCircuits.clear();
  rQueue.Clear();
  strDelivered.clear();
  fHandling = false;
  rEventSettings.clear();
  for (std::vector<int>& vSlot : vSlots) vSlot.clear();
  iInSlot = 0;
  iBusyLines = 0;
  rArrived.notify_all();
  Changed();
}

void State::Forget() {
  ForgetCards();
  rFaults.clear();
  strLastError.clear();
  astrCalls.clear();
  iOverruns = 0;
}

void State::AddBoardChannels(int iBoardId, int iCount, int iChType) {
  for (int i = 0; i < iCount; i++) {
    auto prChannel = std::make_unique<Channel>();
    prChannel->iBoardId = iBoardId;
    prChannel->iBoardCh = i;
    prChannel->iType = iChType;
    prChannel->iClock = iClock;
    prChannel->iVoltage = iChType == CH_ANALOG ? DEFAULT_VOLTAGE : 0;
    vChannels.push_back(std::move(prChannel));
  }
  iBoards++;
}

void State::Note(const std::string& strCall) {
  if (astrCalls.size() == MAX_NOTED_CALLS) astrCalls.pop_front();
  astrCalls.push_back(strCall);
}

}  // namespace simcards
