// The channel table: the road of a card event to its channel, the turns by the second, and the end of all channels.
// They are made in recorder_init.cpp.
#include "recorder.h"

#include <syslog.h>

#include <cassert>
#include <ctime>

#include "BaseChannel.h"
#include "filedir.h"
#include "ftime.h"
#include "logging.h"
#include "mainthread.h"
#include "plainfile.h"
#include "recorder_boot.h"
#include "taker.h"

namespace {

constexpr const char* EVENT_SIGN_FILE = "/var/morvex/data/crec_event";

// Emptying the file sets its time: its age tells the outside how long ago the cards last delivered an event.
void TouchEventSign() {
  (void)OpenAnew(EVENT_SIGN_FILE);
}

}  // namespace

CRecorder::~CRecorder() {
  for (BaseChannel* prChannel : vChannels) delete prChannel;
  vChannels.clear();
}

BaseChannel* CRecorder::ChannelAt(int iDrvCh) {
  assert(OnMainThread());
  if (iDrvCh < 0 || static_cast<std::size_t>(iDrvCh) >= vChannels.size()) return nullptr;
  return vChannels[static_cast<std::size_t>(iDrvCh)];
}

void CRecorder::NoteSignOfLife() {
  const time_t now = time(nullptr);
  if (lastEventReportTime >= now) return;
  lastEventReportTime = now;
  TouchEventSign();
}

void CRecorder::HandleEvent(SSM_EVENT* prEvent) {
  assert(OnMainThread());
  NoteSignOfLife();
  if (prEvent->wEventCode == E_CHG_PcmLinkStatus) return;
  int iTarget = prEvent->nReference;
  if (prEvent->wEventCode == E_CHG_SpyState) {  // of a circuit, which need not belong to any channel
    const auto itChannel = prBoot->rCicToAppChMap.find(prEvent->nReference);
    if (itChannel == prBoot->rCicToAppChMap.end()) return;
    iTarget = itChannel->second;
  }
  // The driver's references are trusted, so one outside the table is no news for the log; see
  // ReferenceOutsideTheTableIsDroppedSilently.
  if (BaseChannel* prChannel = ChannelAt(iTarget)) prChannel->HandleEvent(prEvent);
}

void CRecorder::HandleTaken(TakenEvent& rTaken) {
  if (rTaken.eKind == TAKEN_AUDIO) {
    NoteSignOfLife();
    HandleAudio(rTaken);
    return;
  }
  fHandlesEvent = true;
  iEventNs = rTaken.iTakenNs;
  HandleEvent(&rTaken.rEvent);
  fHandlesEvent = false;
}

void CRecorder::HandleAudio(TakenEvent& rTaken) {
  BaseChannel* prChannel = ChannelAt(rTaken.rEvent.nReference);
  if (prChannel == nullptr) return;
  if (rTaken.acBytes != nullptr) {
    prChannel->TakenAudio(rTaken.acBytes, rTaken.iBytes, rTaken.fOverrun);
  } else {
    prChannel->LostAudio(rTaken.iBytes);
  }
}

// In the order of the card for both, as neither side of a pair may come far ahead of the other.
void CRecorder::HandOverAudio(int iDrvCh, int iOtherDrvCh, bool fCallGoesOn) {
  if (prTaker == nullptr || (fHandlesEvent && !fCallGoesOn)) return;
  prTaker->TakeAudioOf(iDrvCh, iOtherDrvCh, [this](TakenEvent& rTaken) { HandleAudio(rTaken); });
}

void CRecorder::Periodic() {
  assert(OnMainThread());
  for (std::size_t i = 0; i < vChannels.size(); i++) {
    if (vChannels[i] == nullptr) continue;
    const StopWatch rWatch;
    vChannels[i]->Periodic();
    const double dTook = rWatch.Seconds();
    if (dTook > SLOW_HANDLER_S) TellSlowTurn(dTook);
  }
  WriteLoopFigures();
}

void CRecorder::Shutdown() {
  assert(OnMainThread());
  for (BaseChannel* prChannel : vChannels) {
    if (prChannel == nullptr) continue;
    prChannel->EndOfCall();
    prChannel->Finalize();
  }
  DeleteOrTell(GetDataDir() + "linestatus.dat");  // not valid while no events are handled
}
