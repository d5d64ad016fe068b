// Which calls are recorded and which recordings are kept.
// Before a recording the number filter, the weekly schedule and recording on demand decide; they are asked at call
// start and again with each change of a number (TryStartRecording). After it, when the driver has stopped, the rules of
// keeping run once a part (JudgeRecording): duration, an earlier delete order, store on demand, empty number,
// direction. The first rule that refuses decides, so their order is part of what users see in the log. Deletion and
// silencing on demand act in between.
#include "BaseChannel.h"

#include <syslog.h>

#include <vector>

#include "bgact.h"
#include "ftime.h"
#include "logging.h"
#include "schedule.h"

namespace {

constexpr int CUSTOM_LOCAL_MAX_AGE_S = 60;  // a local identity set by the web side is meant for the call at hand

// Values of the three list options; a value that has no name here is told where it is read.
enum ENumberFilterType { FILTER_OFF = 0, FILTER_EXCLUDES = 2 };
// LIST_NUMBERS_TOO is a second value for the same thing.
enum EListType { LIST_OFF = 0, LIST_ALL_CALLS = 1, LIST_NUMBERS = 2, LIST_NUMBERS_TOO = 3 };

}  // namespace

// -- may it be recorded -----------------------------------------------------------------------------------------------

bool BaseChannel::MayStartRecording(bool fTell) {
  if (fDontRecord) return false;
  if (prRecorder->iNumberFilterType == FILTER_OFF) return true;
  const bool fAny = prRecorder->IsInNumberFilter(strLocalNum) || prRecorder->IsInNumberFilter(strRemoteNum) ||
                    prRecorder->IsInNumberFilter(strConnectedNum);
  const bool fExcludes = prRecorder->iNumberFilterType == FILTER_EXCLUDES;  // any other value: only listed numbers
  if (fAny != fExcludes) return true;
  if (fTell) lg(LOG_NOTICE, "[%d] Not recording because %s number filter", iChannel, fExcludes ? "in" : "not in");
  return false;
}

bool BaseChannel::RecordingScheduled() {
  StdStringMap rCfg;  // read anew each time, so that a changed schedule holds for the next call
  prRecorder->GetDatabaseHandle()->GetConfigsPart(rCfg, "o");
  const time_t rNow = time(nullptr);
  struct tm rLocalTime {};
  localtime_r(&rNow, &rLocalTime);
  if (InSchedule(rCfg, rLocalTime)) return true;
  lg(LOG_NOTICE, "[%d] Recording not scheduled", iChannel);
  return false;
}

// -- start ------------------------------------------------------------------------------------------------------------

void BaseChannel::TryStartRecording() {
  if (!fCallBusy) {  // asked for by an order or a message that comes outside a call
    LogNoCall();
    return;
  }
  if (fRecording) {
    lg(LOG_NOTICE, "[%d] Already recording", iChannel);
    return;
  }
  if (iActiveCallID != -1) {
    lg(LOG_NOTICE, "[%d] Call already active", iChannel);
    return;
  }
  if (!MayStartRecording(/*fTell=*/true)) return;
  rStartTime = GetSrTime();
  iPeriodicCounter2 = 0;
  if (!RecordingScheduled()) return;

  iRecUniqCnt++;
  iEncoding = ENCODING_NO_AUDIO;
  DetermineDbRemoteId();
  fRecOnDmd = GetNewRecOnDmd();
  if (!fRecOnDmd || fRecOnDmdStart) {
    StartRecording();
  } else {
    lg(LOG_NOTICE, "[%d] Recording on demand", iChannel);
  }
  AddActive();
}

void BaseChannel::StartRecording() {
  fRecording = true;
  iMixedCh = iLinkedCh;
  fOwnSideAlone = iMixedCh != -1;  // until the linked side has started
  lg(LOG_NOTICE, "[%d] Starting recording", iChannel);
  BasicRecordingPreparation();
  iEncoding = prRecorder->eRecEnc == RECENC_G711U ? ENCODING_ULAW : ENCODING_ALAW;
  ReadCustomLocal();
  DetermineFilename();
  OpenAudioFile();
  iRecordOffset = 0;
  if (!StartDriver()) return;  // the call goes on as a recording without audio, and its file is judged at the stop
  if (iMixedCh != -1) fOwnSideAlone = !prRecorder->MixIn(iChIx, iMixedCh);
  lg(LOG_NOTICE, "[%d] Recording to file %s", iChannel, strFullFilename.c_str());
}

// Takes the identity that the web side may have set for this line.
void BaseChannel::ReadCustomLocal() {
  IDatabase* const prDB = prRecorder->GetDatabaseHandle();
  rCustomLocal = prDB->GetCustomLocal(LineContact(prDB).iContactID);
  if (!rCustomLocal.fFound) return;
  const long long iAge = static_cast<long long>(time(nullptr)) - rCustomLocal.iUpdateTime;
  if (iAge > CUSTOM_LOCAL_MAX_AGE_S) rCustomLocal.fFound = false;
  lg(LOG_NOTICE, "CustomLocal CT:%lld CID:%lld T:%s age:%lld (%d)", rCustomLocal.iContactID, rCustomLocal.iCallerID,
     rCustomLocal.strText.c_str(), iAge, rCustomLocal.fFound ? 1 : 0);
}

// -- stop, and what becomes of the file -------------------------------------------------------------------------------

struct BaseChannel::Verdict {
  bool fKeep = false;
  bool fTooShort = false;
  bool fDelay = false;  // kept for the time being: store on demand waits for a decision
  Judged rJudged;
};

void BaseChannel::StopRecording(bool& fClearInfo) {
  if (!fRecording) return;
  fRecording = false;
  prRecorder->HandOverAudio(iDrvCh, iMixedCh, /*fCallGoesOn=*/fCallBusy);
  if (iMixedCh != -1) prRecorder->StopMixIn(iMixedCh);
  if (!StopDriver()) {
    ClearInfo();  // no decision: the card may still be writing, so the file stays; the row goes in FinalizeRecording
    return;
  }
  (void)UpdateAudioFileHeader();  // the questions below may take long
  iDuration = static_cast<int>(GetSrTime() - rStartTime);
  lg(LOG_NOTICE, "[%d] Recording stopped (%i s)", iChannel, iDuration);

  const Verdict rVerdict = JudgeRecording();
  // The information of a call survives a recording that was too short, on purpose; the numbers go when they expire.
  // See TooShortRecordingKeepsTheNumbers.
  if (rVerdict.fTooShort) fClearInfo = false;
  if (rVerdict.fKeep) LetAllUseAudioFile();
  CloseAudioFile();
  if (rVerdict.fKeep) {
    QueueKeep(rVerdict);
  } else {
    QueueDelete();
  }
  if (fClearInfo) ClearInfo();
  fClearInfo = false;
}

// Asks the rules of keeping, in their order; each logs when it refuses.
BaseChannel::Verdict BaseChannel::JudgeRecording() {
  Verdict rVerdict;
  IDatabase* const prDB = prRecorder->GetDatabaseHandle();
  const StdStringMap rExtra = prDB->GetActiveCallExtra(iActiveCallID);
  const int iRecMinDur = prDB->GetConfigInt("RecMinDur");
  // Where the clock was set back in mid-call the duration is negative, and tells nothing of the length.
  if (iDuration >= 0 && iDuration < iRecMinDur) {
    lg(LOG_NOTICE, "[%d] Duration too short (%d < %d)", iChannel, iDuration, iRecMinDur);
    rVerdict.fTooShort = true;
    return rVerdict;
  }
  if (fDontRecord || fDontKeepThisPart) return rVerdict;

  rVerdict.rJudged.rLocal = QUseLocalNum() ? LocalNumContact(prDB) : LineContact(prDB);
  rVerdict.rJudged.rRemote = RemoteNumContact(prDB);
  if (prRecorder->StoreOnDemand(rVerdict.rJudged.rLocal, rVerdict.rJudged.rRemote)) {
    if (!StoreOnDemandKeeps(rExtra, rVerdict.fDelay)) return rVerdict;
  }
  if (strRemoteNum.empty() && prDB->GetConfigInt("NotRecEmptyNum") != 0) {
    lg(LOG_NOTICE, "[%d] Empty remote number: not keeping", iChannel);
    return rVerdict;
  }
  rVerdict.fKeep = DirectionKeeps(rVerdict.rJudged.rRemote);
  return rVerdict;
}

// A call that is stored only on demand: has someone asked for it, or may someone still?
bool BaseChannel::StoreOnDemandKeeps(const StdStringMap& rExtra, bool& fDelay) const {
  if (TextToLong(ValueOf(rExtra, "to-keep")) != 0) {
    lg(LOG_NOTICE, "[%d] Store on demand: keeping", iChannel);
    return true;
  }
  fDelay = prRecorder->fStoreOnDemandDelay != 0;
  lg(LOG_NOTICE, "[%d] Store on demand: %s", iChannel, fDelay ? "delay" : "not keeping");
  return fDelay;
}

// The first kind of call that applies is the only one whose option is read.
bool BaseChannel::DirectionKeeps(const Contact& rContactRemote) const {
  IDatabase* const prDB = prRecorder->GetDatabaseHandle();
  const char* acKind = nullptr;
  if (IsInternal(rContactRemote)) {
    if (prDB->GetConfigInt("RecLocal") == 0) acKind = "Internal";
  } else if (!fIncoming) {
    if (prDB->GetConfigInt("RecNotOutg") == 1) acKind = "Outgoing";
  } else {
    if (prDB->GetConfigInt("RecNotInc") == 1) acKind = "Incoming";
  }
  if (acKind == nullptr) return true;
  lg(LOG_NOTICE, "[%d] %s call: not keeping", iChannel, acKind);
  return false;
}

// Hands file and active row over to the background. Without a row there is nothing to hand over: the file stays.
void BaseChannel::QueueKeep(const Verdict& rVerdict) {
  if (iActiveCallID == -1) return;
  auto prAct = std::make_unique<AudioConvAct>();
  prAct->prDB = prRecorder->GetDatabaseHandle();
  FillCallInfo(&prAct->rCallInfo, prAct->prDB, /*fFinal=*/true, rVerdict.rJudged);
  prAct->iActiveCallID = iActiveCallID;
  prAct->eRecEnc = prRecorder->eRecEnc;
  prAct->fStereo = fDoStereo;
  prAct->strFullFilename = strFullFilename;
  prAct->strFullFilenameFinal = strFullFilenameFinal;
  prAct->strArchiveFilename = strArchiveFilename;
  prAct->fToEmail = fToEmail;
  prAct->iEmailContactID = static_cast<int>(rVerdict.rJudged.rLocal.iContactID);
  prAct->iDuration = iDuration;
  prAct->strCheckSumType = prRecorder->GetCheckSumType();
  prAct->fStoreOnDemandDelay = rVerdict.fDelay;
  prAct->prRecorder = prRecorder;
  queueAction(prAct.release());  // the queue owns the action
  iActiveCallID = -1;            // and the action the row
}

// The live copy holds the same audio, and goes with it.
void BaseChannel::QueueDelete() {
  std::vector<std::string> astrFiles = {strFullFilename};
  if (prRecorder->fMonitoring) {
    for (const char* acEnding : {".raw", ".info"}) astrFiles.push_back(strFullFilenameFinal + acEnding);
  }
  for (const std::string& strFile : astrFiles) {
    auto prAct = std::make_unique<DeleteFileAct>();
    prAct->strFilename = strFile;
    queueAction(prAct.release());  // the queue owns the action
  }
}

// -- on demand --------------------------------------------------------------------------------------------------------

bool BaseChannel::QRecOnDmd() {
  switch (prRecorder->iRecOnDmdType) {
    case LIST_ALL_CALLS:
      return true;
    case LIST_NUMBERS:
    case LIST_NUMBERS_TOO:
      return prRecorder->IsInRecOnDmdList(strLocalNum) || prRecorder->IsInRecOnDmdList(strConnectedNum) ||
             prRecorder->IsInRecOnDmdList(strRemoteNum);
    default:  // LIST_OFF and values that mean nothing
      return false;
  }
}

bool BaseChannel::MayDeleteOnDemand() {
  switch (prRecorder->iDelOnDmdType) {
    case LIST_OFF:
      lg(LOG_NOTICE, "[%d] delete on demand is switched off in options", iChannel);
      return false;
    case LIST_ALL_CALLS:
      return true;
    case LIST_NUMBERS:
    case LIST_NUMBERS_TOO:
      if (prRecorder->IsInDelOnDmdList(strLocalNum) || prRecorder->IsInDelOnDmdList(strConnectedNum) ||
          prRecorder->IsInDelOnDmdList(strRemoteNum) || prRecorder->IsInDelOnDmdList("#" + ToStdString(iChannel))) {
        return true;
      }
      lg(LOG_NOTICE, "[%d] not in delete on demand list", iChannel);
      return false;
    default:  // a value that means nothing counts as off, without a message
      return false;
  }
}

// An order may find a line without a call: by the empty id, or by a number that stands there. It is taken like any
// other, and leaves nothing that the next call would feel.

bool BaseChannel::DeleteAct() {
  if (!MayDeleteOnDemand()) return false;
  fDontRecord = fCallBusy;
  FinalizeRecording(/*fClearInfo=*/false);
  return true;
}

bool BaseChannel::RecOnDmdAct(bool fStart) {
  if (!fRecOnDmd) {
    lg(LOG_NOTICE, "[%d] RecOnDmd not done, the option is off", iChannel);
    return false;
  }
  lg(LOG_NOTICE, "[%d] RecOnDmd: %s", iChannel, fStart ? "START" : "STOP");
  if (fStart == fRecording) return true;  // a demand repeated while it holds
  // Either way the part so far ends, and a part with a new id and row begins: recording, or waiting for a demand.
  FinalizeRecording(/*fClearInfo=*/false);
  fRecOnDmdStart = fStart && fCallBusy;
  TryStartRecording();
  return true;
}

bool BaseChannel::TrySetSilencing(bool fToSet) {
  if (!prRecorder->fSilenceOnDemand) {
    lg(LOG_NOTICE, "[%d] Silencing not set, silence on demand is off", iChannel);
    return false;
  }
  fSilencing = fToSet && fCallBusy;  // a linked side has no call of its own, and feeds that of another line
  rOwnSilence.Switch(prRecorder->SpokenBytes(iDrvCh), fSilencing);
  if (iMixedCh != -1) rLinkedSilence.Switch(prRecorder->SpokenBytes(iMixedCh), fSilencing);
  lg(LOG_NOTICE, "[%d] Silencing set to %d", iChannel, fToSet ? 1 : 0);
  prRecorder->GetDatabaseHandle()->SetActiveCallExtra(iActiveCallID, "silencing", fToSet ? "1" : "0");
  return true;
}
