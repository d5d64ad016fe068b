// The channel itself: settings, the frame of events and the work of each second. What happens to a call stands in
// BaseChannel_<topic>.cpp; what an event means for the call, in the subclasses.
#include "BaseChannel.h"

#include <syslog.h>

#include <utility>

#include "filedir.h"
#include "logging.h"
#include "plainfile.h"

namespace {

// A killed process loses at most this much of a file's length; a power cut, also what the disk has not taken yet.
constexpr int HEADER_UPDATE_S = 5;
constexpr int SECONDS_PER_MIN = 60;

}  // namespace

BaseChannel::BaseChannel() {
  BaseChannel::ClearInfo();
}

BaseChannel::~BaseChannel() {
  // Recordings still run here when the process ends after a trace, which has had the only Shutdown, or when the card
  // has refused to stop. The end of a channel orders nothing from the card, so its ring stays where it is.
  std::unique_ptr<BYTE[]> acRing(acRecordBuf);
  if (fCardMayWrite) prRecorder->KeepRing(std::move(acRing));
  delete[] acMixBuffer;
  FinishAudioFileHeader();  // of a recording that nothing has finished
  if (hAudioFile != nullptr) (void)fclose(hAudioFile);
  if (hRawFile != nullptr) (void)fclose(hRawFile);  // complete as it stands; this only gives the handle back
}

void BaseChannel::Init(int iChannelNr, int iBoardListIndex, int iBoardChannel, ICRecorder* prOwner, int iDriverCh) {
  iChIx = iDriverCh;
  iChannel = iChannelNr;
  iDrvCh = iDriverCh;
  iBoardListIx = iBoardListIndex;
  iBoardCh = iBoardChannel;
  prRecorder = prOwner;

  ReadLoudnessSettings();
  fLongRecordings = ChannelSetting("LongRecordings") != 0;
  iLongRecordingsLen = ChannelSetting("LongRecordingsLen");
  fRecOnDmd = ChannelSetting("RecOnDmd") != 0;
  fRecOnDmdStart = false;
  fCheckLineStatus = ChannelSetting("CheckLineStatus") != 0;

  // A line that is away or in error at start counts from its first moment.
  iLastChannelState = SsmGetChState(iDrvCh);
  NewChannelState();
}

int BaseChannel::ChannelSetting(const char* acKey) {
  return prRecorder->GetChannelParamInt(iBoardCh, iBoardListIx, acKey);
}

void BaseChannel::ReloadSettingsLive() {
  fCheckLineStatus = prRecorder->GetChannelParamIntLive(iBoardCh, iBoardListIx, "CheckLineStatus") != 0;
}

int BaseChannel::WriteStateFile(const std::string& strLines) {
  const std::string strName = prRecorder->GetDataDir() + "chstate_" + ToStdString(iChannel) + ".dat";
  const StdFile hFile(OpenFileAnew(strName));
  if (hFile == nullptr) return 1;
  (void)fputs(strLines.c_str(), hFile.get());
  if (iLast_dB != NO_LEVEL_DB) (void)fprintf(hFile.get(), "AudioLevel: %d\r\n", iLast_dB);
  return 0;
}

void BaseChannel::SetBaseChannel(int iBaseDrvCh) {
  iBaseCh = iBaseDrvCh;
}

// -- events -----------------------------------------------------------------------------------------------------------

void BaseChannel::HandleEvent(SSM_EVENT* prEvent) {
  if (prEvent->wEventCode != E_CHG_ChState) return;
  const int iNewState = static_cast<int>(LowWord(prEvent->dwParam));
  if (iNewState == iLastChannelState) return;
  iLastChannelState = iNewState;
  NewChannelState();
}

// -- each second ------------------------------------------------------------------------------------------------------

void BaseChannel::Periodic() {
  CheckDigitsExpired(/*fForceExpired=*/false);
  PeriodicFileHeader();
  PeriodicLoudAlarm();
  PeriodicLongRecording();
  PeriodicChannelState();
}

void BaseChannel::PeriodicFileHeader() {
  if (++iPeriodicCounter < HEADER_UPDATE_S) return;
  iPeriodicCounter = 0;
  (void)UpdateAudioFileHeader();
}

// The call's information stays, so the next part has the same numbers, and an id of its own.
void BaseChannel::PeriodicLongRecording() {
  if (!fRecording || !fLongRecordings) return;
  iPeriodicCounter2++;
  if (iPeriodicCounter2 < static_cast<long long>(iLongRecordingsLen) * SECONDS_PER_MIN) return;
  iPeriodicCounter2 = 0;
  FinalizeRecording(/*fClearInfo=*/false);
  TryStartRecording();
  lg(LOG_NOTICE, "[%d] %d minutes of recording saved!", iChannel, iLongRecordingsLen);
}

// -- end of a call's information --------------------------------------------------------------------------------------

void BaseChannel::ClearInfo() {
  strPrevRemoteNum.clear();
  strPrevConnectedNum.clear();
  strRemoteNum.clear();
  strConnectedNum.clear();
  if (fResetLocalNum) strLocalNum.clear();

  fRinging = false;
  fKnowIncoming = false;
  rDigitTime = 0;
  iWaitTime = -1;
  rRemoteNumTime = 0;
  rFirstRing = 0;
  rLastRing = 0;

  strDigits.clear();
  ClearLoudness();
  fDigitFreeze = false;
  fToEmail = false;
  fDontRecord = false;
  // From the constructor this reaches the base's own, which is all there is to clear then.
  AlwaysClearInfo();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
}

void BaseChannel::AlwaysClearInfo() {
  fToEmail = false;
  fDontKeepThisPart = false;
}
