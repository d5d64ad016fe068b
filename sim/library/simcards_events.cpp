// The event queue between the simulated cards and SsmWaitForEventA.

#include "simcards_state.h"
#include "simcards_trace.h"

namespace simcards {
namespace {

// What holds on a bench where nobody called SsmSetEvent: everything on, a report each half ring.
const EVENT_SET_INFO BENCH_SETTING = [] {
  EVENT_SET_INFO rSetting;
  rSetting.dwWorkMode = EVENT_POLLING;
  rSetting.dwOutParamVal = END_HALF_BUFFER;
  return rSetting;
}();

}  // namespace

// The narrowest setting wins. SsmSetEvent removes narrower ones when it sets a broader one, so the last call holds.
const EVENT_SET_INFO* State::SettingOf(WORD wEvent, int nReference) const {
  const std::pair<WORD, int> arKeys[] = {
      {wEvent, nReference}, {wEvent, ALL_CHANNELS}, {ALL_EVENTS, nReference}, {ALL_EVENTS, ALL_CHANNELS}};
  for (const auto& rKey : arKeys) {
    if (const auto it = rEventSettings.find(rKey); it != rEventSettings.end()) {
      return it->second.dwWorkMode == NO_EVENT ? nullptr : &it->second;
    }
  }
  return eMode == MODE_BENCH ? &BENCH_SETTING : nullptr;
}

void State::SetEvent(WORD wEvent, int nReference, const EVENT_SET_INFO& rSetting) {
  for (auto it = rEventSettings.begin(); it != rEventSettings.end();) {
    const auto [wOther, nOther] = it->first;
    const bool fNarrower =
        (wEvent == ALL_EVENTS || wEvent == wOther) && (nReference == ALL_CHANNELS || nReference == nOther);
    it = fNarrower ? rEventSettings.erase(it) : std::next(it);
  }
  rEventSettings[{wEvent, nReference}] = rSetting;
  iSettings++;
  Changed();
}

bool State::Queue(QueuedEvent rQueued) {
  if (SettingOf(rQueued.rEvent.wEventCode, rQueued.rEvent.nReference) == nullptr) return false;
  TraceEvent(rQueued);
  rQueue.Push(std::move(rQueued));
  if (iTakers > 0) rArrived.notify_one();
  Changed();
  return true;
}

void State::DropReports(int nCh) {
  const auto IsReport = [nCh](const QueuedEvent& rQueued) {
    return rQueued.rEvent.wEventCode == E_PROC_RecordMem && rQueued.rEvent.nReference == nCh && rQueued.iRecorded > 0;
  };
  rQueue.RemoveIf(IsReport);
}

}  // namespace simcards
