// From settings to a running recorder: plain fields that channels read directly, the unit and its lines in the
// database, one channel object for each driver channel, and last the events, so that no event finds a channel missing.
// A part of the settings can be read again while calls run; that part changes lists and switches only, never a channel.
#include "recorder.h"

#include <sys/stat.h>
#include <syslog.h>

#include <cassert>
#include <cctype>
#include <cstdio>

#include "AnalogChannel.h"
#include "BaseChannel.h"
#include "DstChannel.h"
#include "PriChannel.h"
#include "filedir.h"
#include "logging.h"
#include "mainthread.h"
#include "plainfile.h"
#include "recorder_boards.h"
#include "recorder_boot.h"
#include "recorder_cluster.h"
#include "shpa3link.h"

namespace {

constexpr int SERIAL_BUF_BYTES = 50;

// Working areas of recordings that are encrypted in the end: a memory disk that the appliance provides, or the disk.
constexpr const char* WORK_ROOT_MEMORY = "/dev/shm/morvex";
constexpr const char* WORK_ROOT_DISK = "/recordings/rectmp";
constexpr mode_t WORK_ROOT_MODE = 0700;

constexpr WORD ALL_EVENTS = 0xffff;
constexpr int ALL_CHANNELS = -1;

bool IsOn(const std::string& strValue) {
  return TextToInt(strValue) != 0;
}

// The unit's identifier: the letters and digits at the start of its file, as many as the buffer holds with its end.
void readSerial(char* acBuf, int iBufBytes) {
  acBuf[0] = '\0';
  const StdFile hFile(fopen(UNIT_SERIAL_FILE, "re"));
  if (!hFile) return;
  const std::size_t iRead = fread(acBuf, 1, static_cast<std::size_t>(iBufBytes) - 1, hFile.get());
  std::size_t iEnd = 0;
  while (iEnd < iRead && isalnum(static_cast<unsigned char>(acBuf[iEnd]))) iEnd++;
  acBuf[iEnd] = '\0';
}

ERecEncodings EncodingOf(const std::string& strText) {
  if (strText == "ulaw") return RECENC_G711U;
  if (strText == "gsm") return RECENC_GSM;
  if (strText == "mp3") return RECENC_MP3;
  return RECENC_G711A;
}

}  // namespace

// -- initialisation ---------------------------------------------------------------------------------------------------

int CRecorder::InitRecorder() {
  assert(OnMainThread());
  fInitializing = true;
  iCstaType = 0;
  iCstaMonitors = 0;
  LoadDtmfCodes();
  LoadSwitches();
  ChooseRecordingRoot();
  LoadEncoding();
  LoadReloadableSettings();
  prBoot->LoadBoardSettings();
  lg(LOG_NOTICE, "Boards: %d", SsmGetMaxUsableBoard());
  lg(LOG_NOTICE, "Phys. channels: %d", SsmGetMaxCh());
  RegisterUnit();
  CreateChannels();
  WriteLineStatus();
  RecheckHealth();
  if (SetUpEvents() != 0) return 1;
  fInitializing = false;
  lg(LOG_NOTICE, "** STARTED **");
  return 0;
}

void CRecorder::LoadDtmfCodes() {
  for (int i = 1; i <= DTMF_CODES; i++) {
    strDTMF[i] = prBoot->GetSysSetting("DTMF" + ToStdString(i));
    strDTMFact[i] = prBoot->GetSysSetting("DTMFact" + ToStdString(i));
    if (!strDTMF[i].empty()) lg(LOG_NOTICE, "DTMF %s act %s", strDTMF[i].c_str(), strDTMFact[i].c_str());
  }
}

void CRecorder::LoadSwitches() {
  fDebugRepeatRecord = GetParamInt("DebugRepeatRecord") != 0;
  fCrecTestSwapLocRem = GetParamInt("CrecTestSwapLocRem") != 0;
  fMonitoring = IsOn(prBoot->GetOSetting("Monitoring"));
  fSilenceOnDemand = IsOn(prBoot->GetOSetting("SilOnDemand"));
  fLineNameInFileName = GetParamInt("LineNameInFileName") != 0;
  fCardNotInternal = IsOn(prBoot->GetOSetting("CardNotInternal"));
  iMaskLastRemoteDigits = TextToInt(prBoot->GetSysSetting("MaskLastRemoteDigits"));
  fStoreOnDemandDelay = TextToInt(prBoot->GetOSetting("StoreOnDemandDelay")) > 0 ? 1 : 0;
  fRecCheck = IsOn(prBoot->GetOSetting("RecCheck"));
  fALE = IsOn(prBoot->GetOSetting("ALE"));
}

void CRecorder::ChooseRecordingRoot() {
  if (!fALE) return;
  if (!IsOn(prBoot->GetOSetting("AleDisk"))) {
    strRecordingRoot = WORK_ROOT_MEMORY;
    return;
  }
  strRecordingRoot = WORK_ROOT_DISK;
  // Mostly there already; when it cannot be made, opening recordings reports it.
  if (mkdir(WORK_ROOT_DISK, WORK_ROOT_MODE) == 0 || OpenFolder(WORK_ROOT_DISK).IsOpen()) return;
  (void)fchmod(MakeFolders(WORK_ROOT_DISK).Get(), WORK_ROOT_MODE);  // a neighbour's link makes way
}

void CRecorder::LoadEncoding() {
  const std::string strRecEnc = prBoot->GetOSetting("RecEnc");
  lg(LOG_NOTICE, "Encoding: %s", strRecEnc.c_str());
  lg(LOG_NOTICE, "Silence-On-Demand: %d", fSilenceOnDemand ? 1 : 0);
  eRecEnc = EncodingOf(strRecEnc);
  fStereo = IsOn(prBoot->GetOSetting("RecStereo"));
  iCstaType = TextToInt(prBoot->GetOSetting("CSTAType"));
  lg(LOG_NOTICE, "CSTAType: %d", iCstaType);
}

void CRecorder::RegisterUnit() {
  char acSerialBuf[SERIAL_BUF_BYTES];
  readSerial(acSerialBuf, SERIAL_BUF_BYTES);
  strSerial = acSerialBuf;
  lg(LOG_NOTICE, "Serial number %s", strSerial.c_str());
  prDatabase->InitRecorder(strSerial, "Morvex" + strSerial);
}

// -- channels ---------------------------------------------------------------------------------------------------------

void CRecorder::CreateChannels() {
  lg(LOG_NOTICE, "Total Drv. Max. Ch.: %d", prBoot->iTotalDrvMaxCh);
  int iLastDstBoardId = -1;
  for (int iDrvCh = 0; iDrvCh < prBoot->iTotalDrvMaxCh; iDrvCh++) AddChannel(iDrvCh, iLastDstBoardId);
}

void CRecorder::AddChannel(int iDrvCh, int& iLastDstBoardId) {
  const auto itWeb = prBoot->rDrvToWebChMap.find(iDrvCh);
  const int iChannel = itWeb == prBoot->rDrvToWebChMap.end() ? -1 : WrappingSum(itWeb->second, 1);
  if (itWeb != prBoot->rDrvToWebChMap.end()) {
    const std::string strDefLocalName = ToStdString(iChannel) + "@" + strSerial;
    (void)prDatabase->GetOrCreateLineContact(iChannel, prDatabase->GetRecorderID(), strDefLocalName);
  }
  int iBoardId = -1;
  int iBoardCh = -1;
  (void)SsmGetChHdInfo(iDrvCh, &iBoardId, &iBoardCh);  // on a failure the presets stay
  const int iType = SsmGetChType(iDrvCh);
  lg(LOG_NOTICE, "Channel [%d] {%d} <%d,%d> Type: %d", iChannel, iDrvCh, iBoardId, iBoardCh, iType);

  const int iBoardListIx = prBoot->GetBoardListIxForBoardId(iBoardId);
  if (iType == CH_DST && iBoardId != iLastDstBoardId) {
    iLastDstBoardId = iBoardId;
    lg(LOG_NOTICE, "Board audio detect %d Sensitivity %d Silence time-out %d",
       GetBoardParamInt(iBoardListIx, "AudioDetect") != 0 ? 1 : 0, GetBoardParamInt(iBoardListIx, "AudioSens"),
       GetBoardParamInt(iBoardListIx, "SilenceT"));
  }
  vChannels.push_back(MakeChannel(iType, iDrvCh).release());
  vChannels.back()->Init(iChannel, iBoardListIx, iBoardCh, this, iDrvCh);
}

std::unique_ptr<BaseChannel> CRecorder::MakeChannel(int iType, int iDrvCh) {
  switch (iType) {
    case CH_ANALOG:
      return std::make_unique<AnalogChannel>();
    case CH_ISDN_USR:
    case CH_ISDN_NTW: {
      auto prChannel = std::make_unique<PRI_Channel>();
      const auto itCic = prBoot->rAppToCicChMap.find(iDrvCh);
      if (itCic != prBoot->rAppToCicChMap.end()) prChannel->iCic = itCic->second;
      return prChannel;
    }
    case CH_DST:
      return std::make_unique<DST_Channel>();
    default:  // of no known kind: its health is shown, and it never has a call
      return std::make_unique<BaseChannel>();
  }
}

int CRecorder::SetUpEvents() {
  EVENT_SET_INFO rEventSetInfo;
  rEventSetInfo.dwWorkMode = EVENT_POLLING;
  if (SsmSetEvent(ALL_EVENTS, ALL_CHANNELS, 1, &rEventSetInfo) != SSM_OK) {
    LogSsmError("SsmSetEvent");
    return 1;
  }
  rEventSetInfo.dwOutCondition = RECORD_REPORT_BYTES;
  rEventSetInfo.dwOutParamVal = MEM_BYTES;
  if (SsmSetEvent(E_PROC_RecordMem, ALL_CHANNELS, 1, &rEventSetInfo) != SSM_OK) {
    LogSsmError("SsmSetEvent2");
    return 1;
  }
  return 0;
}

// -- reloadable settings ----------------------------------------------------------------------------------------------

void CRecorder::LoadReloadableSettings() {
  iNumberFilterType = TextToInt(prBoot->GetOSetting("NumberFilterType"));
  lg(LOG_NOTICE, "NumberFilterType: %d", iNumberFilterType);
  astrNumberFilters = TrimmedItems(prBoot->GetOSetting("NumberFilters"));
  // An empty setting means no filter at all. The two lists further down keep their one empty item on purpose: it stands
  // for calls without a number; see EmptyListSettingsLeaveOneEmptyItem.
  if (astrNumberFilters.size() == 1 && astrNumberFilters[0].empty()) astrNumberFilters.clear();

  iCstaMonitors = TextToInt(prBoot->GetOSetting("CSTATelIPType"));
  lg(LOG_NOTICE, "CSTAFilterType: %d", iCstaMonitors);
  astrCstaNumberFilters.clear();
  lt_split(astrCstaNumberFilters, prBoot->GetOSetting("CSTATelIPFilter"), ',');
  for (std::string& strItem : astrCstaNumberFilters) strItem = strItem.substr(0, strItem.find(';'));

  iDelOnDmdType = TextToInt(prBoot->GetOSetting("DelOnDmdType"));
  lg(LOG_NOTICE, "DelOnDmdType: %d", iDelOnDmdType);
  astrDelOnDmdList = TrimmedItems(prBoot->GetOSetting("DelOnDmdList"));

  iRecOnDmdType = TextToInt(prBoot->GetOSetting("RecOnDmdType"));
  lg(LOG_NOTICE, "RecOnDmdType: %d", iRecOnDmdType);
  astrRecOnDmdList = TrimmedItems(prBoot->GetOSetting("RecOnDmdList"));
  for (const std::string& strItem : astrRecOnDmdList) lg(LOG_NOTICE, "RecOnDmd item: %s", strItem.c_str());

  // Any text asks for mails, even "0".
  fNeedCallPost = !prBoot->GetSysSetting("EmailRecs").empty() || TextToInt(prBoot->GetOSetting("SforceLink")) > 0;
}

void CRecorder::Reconfigure() {
  assert(OnMainThread());
  prBoot->ReloadDbConfig();
  LoadReloadableSettings();
}
