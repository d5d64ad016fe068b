// The road of the audio: ring buffer, mixing buffer, WAV file.
// The card writes into acRecordBuf and tells by event how far it has come. Each new range, which the taker has carried
// out of the ring already or this channel reads there itself, goes to the file (WriteBuf), on a linked pair through the
// base channel's mixing buffer (MixAdd), which passes on what both sides have delivered.
// All is 8 kHz, 8-bit G.711. Loudness is taken from what goes to the file, so silenced audio counts as quiet. The road
// makes no allocation, and one range is one write: the files are unbuffered, so that a full disk is reported for the
// range that it hit, and a header never counts audio that a killed process still held.
#include "BaseChannel.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>

#include "bgact.h"
#include "g711.h"
#include "logging.h"
#include "plainfile.h"
#include "samples.h"
#include "shpa3link.h"
#include "wavheader.h"

namespace {

// Values of iType of a mix, and indices of iMixBufIx.
enum EMixSide { MIX_OWN = 0, MIX_LINKED = 1 };
// Values of iHighNotify: the alarm is found while audio arrives and sent by the next Periodic, once.
enum EHighNotify { HIGH_NOTIFY_NONE = 0, HIGH_NOTIFY_TO_SEND = 1, HIGH_NOTIFY_SENT = 2 };

constexpr int RECORD_BUF_BYTES = 2 * RECORD_REPORT_BYTES;  // one report may come late
// Of the size of a ring buffer.
constexpr int MIX_SIDE_PER_RECORD_BUF = 2;                           // how far one side may be ahead
constexpr int MIX_BUF_PER_RECORD_BUF = 2 * MIX_SIDE_PER_RECORD_BUF;  // both sides, since stereo keeps them apart
constexpr int MIX_SIDE_BYTES = MIX_SIDE_PER_RECORD_BUF * RECORD_BUF_BYTES;
constexpr int LOUDNESS_WINDOWS_PER_S = 2;
constexpr int LOUDNESS_SAMPLES_MONO = SAMPLES_PER_S / LOUDNESS_WINDOWS_PER_S;
constexpr int LOUDNESS_SAMPLES_STEREO = 2 * LOUDNESS_SAMPLES_MONO;  // of both sides together
constexpr double RMS_SILENCE = 1e-05;  // not above it: NO_SOUND_DB, since a logarithm needs something
constexpr int NO_SOUND_DB = -30;
constexpr int FULL_SCALE_DB = 70;
constexpr double ROUNDING_DB = 0.5;      // what is left is cut towards zero, so levels below 0 round up
constexpr int QUIET_WINDOWS_FORGET = 2;  // more quiet windows than these in a row forget the loud ones
constexpr int ZERO_BYTES_TOLERATED = 50;
// What failed, as the log has it.
constexpr const char* WRITE_RECORDING = "Write to recording file";
constexpr const char* WRITE_MONITORING = "Write to monitoring recording file";

// -- files ------------------------------------------------------------------------------------------------------------

// Null when it cannot be opened. Replaces a file of that name.
FILE* OpenUnbuffered(const std::string& strName) {
  FILE* const hFile = OpenFileAnew(strName);
  if (hFile != nullptr) (void)setvbuf(hFile, nullptr, _IONBF, 0);
  return hFile;
}

// Nothing is held back here, but a file of a network may tell only now that it could not be written.
void CloseIfOpen(FILE*& hFile, const char* acWhere) {
  if (hFile != nullptr && fclose(hFile) != 0) LogCapiError(acWhere);
  hFile = nullptr;
}

bool WriteAll(FILE* hFile, const void* pData, std::size_t uiLen) {
  return fwrite(pData, 1, uiLen, hFile) == uiLen;
}

// Leaves the place of the audio alone, as a seek that does not find back to it would not.
bool WriteHeader(FILE* hFile, const WavHeader& rHeader) {
  const ssize_t iWritten = pwrite(fileno(hFile), rHeader.data(), rHeader.size(), 0);
  if (iWritten == static_cast<ssize_t>(rHeader.size())) return true;
  if (iWritten >= 0) errno = ENOSPC;  // cut short, which has no other reason
  return false;
}

// -- samples ----------------------------------------------------------------------------------------------------------

// The card takes the format tag of a WAV file.
static_assert(SSM_FORMAT_ALAW == LAW_A.wFormatTag && SSM_FORMAT_ULAW == LAW_U.wFormatTag);

// The law of a recording while the call runs. MP3 and GSM are made from A-law after the call.
const AudioLaw& GetAudioLaw(ERecEncodings eRecEnc) {
  return eRecEnc == RECENC_G711U ? LAW_U : LAW_A;
}

int LoudWindows(int iSeconds) {
  const long long iWindows = static_cast<long long>(iSeconds) * LOUDNESS_WINDOWS_PER_S;
  return static_cast<int>(std::clamp<long long>(iWindows, INT_MIN, INT_MAX));
}

}  // namespace

// -- from the card to the ring buffer ---------------------------------------------------------------------------------

bool BaseChannel::StartDriver() {
  const DWORD dwSize = static_cast<DWORD>(iRecordBufSize);
  prRecorder->BeginRing(iDrvCh, acRecordBuf, iRecordBufSize);
  if (SsmRecToMem(iDrvCh, prLaw->wFormatTag, acRecordBuf, dwSize, 0) != SSM_OK) {
    LogSsmError("SsmRecToMem");
    if (!fCardMayWrite) prRecorder->EndRing(iDrvCh);
    return false;
  }
  fCardMayWrite = true;
  return true;
}

bool BaseChannel::StopDriver() {
  if (SsmStopRecToMem(iDrvCh) != SSM_OK) {
    LogSsmError("SsmStopRecMem");
    return false;
  }
  prRecorder->EndRing(iDrvCh);
  TellLosses();
  fCardMayWrite = false;
  return true;
}

void BaseChannel::BasicRecordingPreparation() {
  fSilencing = false;
  rOwnSilence = SilentParts();
  rLinkedSilence = SilentParts();
  prLaw = &GetAudioLaw(prRecorder->eRecEnc);
  if (acRecordBuf == nullptr) {
    iRecordBufSize = RECORD_BUF_BYTES;
    acRecordBuf = new BYTE[static_cast<std::size_t>(iRecordBufSize)]();
  }
  if (iLinkedCh != -1 && acMixBuffer == nullptr) {
    acMixBuffer = new BYTE[static_cast<std::size_t>(MIX_BUF_PER_RECORD_BUF * iRecordBufSize)]();
  }
  // Also without a partner: one that the card refused to stop still feeds this channel, and what stands here of the
  // recording before would come level with it.
  iMixBufIx[0] = 0;
  iMixBufIx[1] = 0;
}

// -- from the ring buffer ---------------------------------------------------------------------------------------------

void BaseChannel::DefaultEventHandle(SSM_EVENT* prEvent) {
  if (prEvent->wEventCode != E_PROC_RecordMem) return;
  const int iPos = static_cast<int>(prEvent->dwParam);
  if (iPos < 0 || iPos > iRecordBufSize) return;  // no place in our ring: nothing that could be read

  if (iPos < iRecordOffset) {  // the card has passed the end of the ring
    WriteMemRange(iRecordOffset, iRecordBufSize);
    WriteMemRange(0, iPos);
  } else {
    WriteMemRange(iRecordOffset, iPos);
  }
  iRecordOffset = iPos;
}

void BaseChannel::WriteMemRange(int iStart, int iStop) {
  if (iStart >= iStop) return;
  if (iBaseRecCh == -1 && hAudioFile == nullptr) return;
  if (acRecordBuf == nullptr || iStart < 0 || iStop > iRecordBufSize) return;

  WriteAudio(acRecordBuf + iStart, iStop - iStart);
}

void BaseChannel::WriteAudio(BYTE* buf, int len) {
  rOwnSilence.Cover(buf, len, prLaw->ucSilence);
  if (iBaseRecCh != -1) {
    prRecorder->MixAudio(iBaseRecCh, buf, len);
  } else if (iMixedCh != -1) {
    MixAdd(buf, len, MIX_OWN);
  } else {
    WriteBuf(buf, len);
  }
}

// -- from the taker ---------------------------------------------------------------------------------------------------

void BaseChannel::TakenAudio(BYTE* buf, int len, bool fOverrun) {
  if (fOverrun) {
    iOverrunBytes += len;
  } else {
    TellLosses();
  }
  if (iBaseRecCh != -1 || hAudioFile != nullptr) WriteAudio(buf, len);
}

// Silence takes its place: what follows keeps its time, and both sides of a pair stay level.
void BaseChannel::LostAudio(int len) {
  iLostBytes += len;
  if (iBaseRecCh == -1 && hAudioFile == nullptr) return;
  BYTE acSilence[RECORD_REPORT_BYTES];
  memset(acSilence, prLaw->ucSilence, sizeof acSilence);
  for (int iPiece = 0; len > 0; len -= iPiece) {
    iPiece = std::min(len, RECORD_REPORT_BYTES);
    WriteAudio(acSilence, iPiece);
  }
}

// Once for all that is missing in a row.
void BaseChannel::TellLosses() {
  if (iOverrunBytes > 0) {
    lg(LOG_WARNING, "[%d] Audio of {%d} taken too late: %lld bytes may be overwritten", iChannel, iDrvCh,
       iOverrunBytes);
  }
  if (iLostBytes > 0) {
    lg(LOG_ERR, "[%d] Audio of {%d} lost, too much waits to be written: %lld bytes are silence", iChannel, iDrvCh,
       iLostBytes);
  }
  iOverrunBytes = 0;
  iLostBytes = 0;
}

void SilentParts::Switch(long long iWhere, bool fToSilence) {
  const bool fIsLast = fSilent != (vEdges.size() % 2 == 1);
  if (fIsLast == fToSilence) return;
  vEdges.push_back(std::max(iWhere, vEdges.empty() ? iAt : vEdges.back()));
}

void SilentParts::Cover(BYTE* buf, int len, BYTE ucSilence) {
  while (len > 0) {
    for (; !vEdges.empty() && vEdges.front() <= iAt; vEdges.erase(vEdges.begin())) fSilent = !fSilent;
    const int iRun = vEdges.empty() ? len : static_cast<int>(std::min<long long>(len, vEdges.front() - iAt));
    if (fSilent) memset(buf, ucSilence, static_cast<std::size_t>(iRun));
    buf += iRun;
    len -= iRun;
    iAt += iRun;
  }
}

// -- mixing -----------------------------------------------------------------------------------------------------------

void BaseChannel::MixAudio(BYTE* buf, int len) {
  if (len <= 0) return;
  rLinkedSilence.Cover(buf, len, prLaw->ucSilence);
  MixAdd(buf, len, MIX_LINKED);
}

void BaseChannel::MixAdd(const BYTE* buf, int iLen, int iType) {
  if (iLen <= 0) return;
  if (iLen > MIX_SIDE_PER_RECORD_BUF * iRecordBufSize - iMixBufIx[iType]) {
    lg(LOG_WARNING, "[%d] Mixing buffer too small %d,%d", iChannel, iMixBufIx[0], iMixBufIx[1]);
    return;
  }
  if (acMixBuffer == nullptr) return;  // audio of a partner that this recording was not told of
  if (fOwnSideAlone) {
    if (iType == MIX_OWN) WriteOwnSide(buf, iLen);
    return;
  }

  if (fDoStereo) {
    BYTE* const acSide = iType == MIX_OWN ? acMixBuffer : acMixBuffer + MIX_SIDE_BYTES;
    memcpy(acSide + iMixBufIx[iType], buf, static_cast<std::size_t>(iLen));
  } else {
    MixMono(buf, iLen, iType);
  }
  iMixBufIx[iType] += iLen;
  if (iMixBufIx[0] == iMixBufIx[1]) WriteLevelSides();
}

void BaseChannel::WriteOwnSide(const BYTE* buf, int iLen) {
  if (!fDoStereo) {
    WriteBuf(buf, iLen);
    return;
  }
  memset(acMixBuffer, prLaw->ucSilence, static_cast<std::size_t>(iLen));
  WriteStereo(buf, acMixBuffer, iLen);
}

void BaseChannel::WriteLevelSides() {
  const int iLevel = iMixBufIx[0];
  if (fDoStereo) {
    WriteStereo(acMixBuffer, acMixBuffer + MIX_SIDE_BYTES, iLevel);
  } else {
    WriteBuf(acMixBuffer, iLevel);
  }
  iMixBufIx[0] = 0;
  iMixBufIx[1] = 0;
}

void BaseChannel::WriteStereo(const BYTE* acOwn, const BYTE* acLinked, int iLen) {
  BYTE acPairs[2 * MIX_SIDE_BYTES];
  InterleaveSamples(acPairs, acOwn, acLinked, static_cast<std::size_t>(iLen));
  WriteBuf(acPairs, 2 * iLen);
}

void BaseChannel::MixMono(const BYTE* buf, int iLen, int iType) {
  BYTE* acPlace = acMixBuffer + iMixBufIx[iType];
  const int iOverlap = std::clamp(iMixBufIx[1 - iType] - iMixBufIx[iType], 0, iLen);  // the other side is there already
  MixSamples(*prLaw, acPlace, buf, static_cast<std::size_t>(iOverlap));
  memcpy(acPlace + iOverlap, buf + iOverlap, static_cast<std::size_t>(iLen - iOverlap));
}

bool BaseChannel::StartMixRecord(int iBaseDrvCh) {
  iBaseRecCh = iBaseDrvCh;
  BasicRecordingPreparation();
  lg(LOG_NOTICE, "{%d} Mixing this channel to {%d}", iDrvCh, iBaseRecCh);
  iRecordOffset = 0;
  // A ring that the card still writes, since it has refused to stop, delivers as one that was started.
  return StartDriver() || fCardMayWrite;
}

void BaseChannel::StopMixRecord() {
  if (StopDriver()) iBaseRecCh = -1;
}

// -- to the file ------------------------------------------------------------------------------------------------------

void BaseChannel::WriteBuf(const BYTE* buf, int len) {
  if (hAudioFile == nullptr || len <= 0) return;
  if (fCalcLoudness) MeasureLoudness(buf, len);

  const std::size_t uiLen = static_cast<std::size_t>(len);
  if (!WriteAll(hAudioFile, buf, uiLen)) LogCapiError(WRITE_RECORDING);
  if (prRecorder->fMonitoring && hRawFile != nullptr && !WriteAll(hRawFile, buf, uiLen)) LogCapiError(WRITE_MONITORING);
  // Counted after a failed write as well, so that the lengths stay true to the call. Unsigned, since an endless call on
  // a line that is always recorded passes 2 GB in three days.
  iRecordByteCnt = static_cast<int>(static_cast<DWORD>(iRecordByteCnt) + static_cast<DWORD>(len));
}

void BaseChannel::OpenAudioFile() {
  FinishAudioFileHeader();  // of a recording that the driver refused to stop
  CloseIfOpen(hAudioFile, WRITE_RECORDING);
  strAudioFileName = strFullFilename;
  hAudioFile = OpenUnbuffered(strAudioFileName);
  if (hAudioFile == nullptr) {
    LogCapiError("OpenAudioFile");
    return;
  }
  iRecordByteCnt = 0;
  fDoStereo = prRecorder->fStereo && CanStereo();
  SetLoudnessWindow(fDoStereo ? LOUDNESS_SAMPLES_STEREO : LOUDNESS_SAMPLES_MONO);

  const WavHeader rHeader = MakeWavHeader(*prLaw, fDoStereo ? 2 : 1, /*uiAudioBytes=*/0);
  // A full disk may have room later: the audio leaves the place of the header free.
  if (!WriteAll(hAudioFile, rHeader.data(), rHeader.size()) && fseek(hAudioFile, WAV_HEADER_BYTES, SEEK_SET) != 0) {
    LogCapiError("OpenAudioFile");
    CloseIfOpen(hAudioFile, WRITE_RECORDING);
    return;
  }
  OpenRawFile();
}

void BaseChannel::CloseAudioFile() {
  FinishAudioFileHeader();
  CloseIfOpen(hAudioFile, WRITE_RECORDING);
  CloseRawFile();
}

// By the open file, not by its name, which may be another file's by now.
void BaseChannel::LetAllUseAudioFile() {
  if (hAudioFile != nullptr) (void)fchmod(fileno(hAudioFile), RECORDING_MODE);  // if refused, the file is there anyway
}

bool BaseChannel::UpdateAudioFileHeader() {
  if (hAudioFile == nullptr) return true;
  return WriteHeader(hAudioFile, MakeWavHeader(*prLaw, fDoStereo ? 2 : 1, static_cast<DWORD>(iRecordByteCnt)));
}

void BaseChannel::FinishAudioFileHeader() {
  if (!UpdateAudioFileHeader()) LogCapiError(("Write header of " + strAudioFileName).c_str());
}

// -- the copy of a live listener --------------------------------------------------------------------------------------

void BaseChannel::OpenRawFile() {
  if (!prRecorder->fMonitoring) return;
  CloseIfOpen(hRawFile, WRITE_MONITORING);  // of a recording that the driver refused to stop
  hRawFile = OpenUnbuffered(strFullFilenameFinal + ".raw");
  if (FILE* hInfoFile = OpenFileAnew(strFullFilenameFinal + ".info"); hInfoFile != nullptr) {
    // One channel also for a stereo recording: listeners know the file like that.
    (void)fprintf(hInfoFile, "Format: %s\r\nChannels: 1\r\n", prLaw->acName);
    (void)fclose(hInfoFile);
  }
}

void BaseChannel::CloseRawFile() {
  if (prRecorder->fMonitoring) CloseIfOpen(hRawFile, WRITE_MONITORING);
}

void BaseChannel::OnRecordingData(const void* pData, unsigned int uiLen) {
  if (hRawFile == nullptr) return;
  (void)WriteAll(hRawFile, pData, uiLen);  // nothing reaches this entry in normal running, so it has no report
}

void RecordingCallBack(int /*iCh*/, unsigned char* buf, unsigned int len, void* pUser) {
  if (pUser != nullptr) static_cast<BaseChannel*>(pUser)->OnRecordingData(buf, len);
}

void CheckForNull(const unsigned char* buf, int iStart, int iStop, int iCh) {
  if (iStart >= iStop) return;
  const auto iZeros = std::count(buf + iStart, buf + iStop, 0);
  if (iZeros > ZERO_BYTES_TOLERATED) lg(LOG_WARNING, "%d Too much zero! CNT: %d", iCh, static_cast<int>(iZeros));
}

// -- loudness ---------------------------------------------------------------------------------------------------------

void BaseChannel::ReadLoudnessSettings() {
  fHighDetect = ChannelSetting("LoudVoiceDetect") != 0;
  iHighDbThr = ChannelSetting("LoudnessThr");
  iHighMaxCnt = LoudWindows(ChannelSetting("LoudnessLen"));
  if (fHighDetect) fCalcLoudness = true;
}

void BaseChannel::ClearLoudness() {
  iCalcLoudnessIndex = 0;
  dLoudness = 0;
  fHighSwitchedOff = false;
  iLast_dB = NO_LEVEL_DB;
  ClearLoudAlarm();
}

// A window that the recording before has begun goes on in this one, if both have as many channels.
void BaseChannel::SetLoudnessWindow(int iSamples) {
  if (iSamples == iCalcLoudnessSamples) return;
  iCalcLoudnessSamples = iSamples;
  iCalcLoudnessIndex = 0;
  dLoudness = 0;
}

void BaseChannel::ClearLoudAlarm() {
  iHighCnt = 0;
  iHighAge = 0;
  iHighNotify = HIGH_NOTIFY_NONE;
}

void BaseChannel::MeasureLoudness(const BYTE* buf, int len) {
  while (len > 0) {
    const int iPart = std::min(len, iCalcLoudnessSamples - iCalcLoudnessIndex);
    dLoudness = AddSquares(*prLaw, dLoudness, buf, static_cast<std::size_t>(iPart));
    iCalcLoudnessIndex += iPart;
    if (iCalcLoudnessIndex == iCalcLoudnessSamples) NewLoudness();
    buf += iPart;
    len -= iPart;
  }
}

void BaseChannel::NewLoudness() {
  const double dRms = std::sqrt(dLoudness / iCalcLoudnessSamples);
  iLast_dB = dRms > RMS_SILENCE ? static_cast<int>(20 * std::log10(dRms) + FULL_SCALE_DB + ROUNDING_DB) : NO_SOUND_DB;
  if (fHighDetect) CountLoudWindow();
  iCalcLoudnessIndex = 0;
  dLoudness = 0;
}

void BaseChannel::CountLoudWindow() {
  if (!fHighSwitchedOff && iLast_dB > iHighDbThr) {
    iHighAge = 0;
    iHighCnt++;
    if (iHighCnt == iHighMaxCnt && iHighNotify == HIGH_NOTIFY_NONE) iHighNotify = HIGH_NOTIFY_TO_SEND;
  } else if (iHighCnt > 0) {
    iHighAge++;
    if (iHighAge > QUIET_WINDOWS_FORGET) iHighCnt = 0;
  }
}

void BaseChannel::PeriodicLoudAlarm() {
  if (iHighNotify != HIGH_NOTIFY_TO_SEND) return;
  lg(LOG_NOTICE, "[%d] Loud audio detected", iChannel);
  iHighNotify = HIGH_NOTIFY_SENT;
  prRecorder->GetDatabaseHandle()->UpdateActiveCallCategory(iActiveCallID, CATEGORY_LOUD);
  prRecorder->NotifyAdmin(LOUD_TALKING, strDbRemoteId);
}
