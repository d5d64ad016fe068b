// A site of seven lines that record: two analogue lines, two telephones, two circuits of a tapped trunk with a pair of
// driver channels each, over a database that fails at calls that the input chooses. Then what cards, time and the web
// side bring, in any order. After each step hold the rules of CheckLine; at the end all calls are over, each row is
// accounted for, and each recording of a row is whole.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "FlakyDatabase.h"
#include "FuzzBytes.h"
#include "LogSink.h"
#include "OpenChannel.h"
#include "TestTime.h"
#include "ftime.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "simcards.h"
#include "wavheader.h"

namespace {

using Open = OpenChannel<BaseChannel>;

constexpr int CHANNELS = 8;  // 0 and 1 analogue, 2 and 3 telephones, 4 to 7 of the trunk
constexpr int FIRST_OF_TRUNK = 4;
constexpr int CIRCUITS = 2;
constexpr const char* ROOT = "/recordings";

constexpr DWORD STATION_CODES[] = {DMSG_OFF_HOOK,      DMSG_ON_HOOK,        DMSG_BRI_PROGRESS,  DMSG_BRI_ALERTING,
                                   DMSG_BRI_CONNECTED, DMSG_BRI_RELEASED,   DMSG_BRI_ABANDONED, DMSG_KEY_DIGIT,
                                   DMSG_DISPLAY,       DMSG_RELEASE_BUTTON, DMSG_RING_ON,       DMSG_RING_OFF,
                                   DMSG_AUDIO_CHANGE,  DMSG_MUTE_LIGHT_OFF, DMSG_MUTE_LIGHT_ON, DMSG_CHANGE_LOCAL};
constexpr DWORD LINE_STATES[] = {S_CALL_STANDBY, S_CALL_RINGING, S_CALL_PICKUPED, S_CALL_OFFLINE, S_DTRC_ACTIVE};
constexpr DWORD CIRCUIT_STATES[] = {S_SPY_STANDBY, S_SPY_RINGING, S_SPY_TALKING, S_SPY_UNAVAILABLE, S_SPY_RCVPHONUM};

std::string Digit(FuzzBytes& rBytes, unsigned n) {
  return std::to_string(rBytes.Below(n));
}

TBoard Present(const std::string& strModel, const std::string& strSerial, int iMaxCh) {
  TBoard rBoard;
  rBoard.fPresent = true;
  rBoard.strModel = strModel;
  rBoard.strSerial = strSerial;
  rBoard.iMaxCh = iMaxCh;
  rBoard.iWebMaxCh = rBoard.GetCtType() == CT_DTP ? iMaxCh / 2 : iMaxCh;
  return rBoard;
}

class Site {
 public:
  explicit Site(FuzzBytes& rInput) : rBytes(rInput) {
    (void)umask(0);
    simcards::Reset();
    std::filesystem::remove_all(std::filesystem::path(ROOT) / "2023");
    simcards::AddBoard(0, 2, CH_ANALOG);
    simcards::AddBoard(1, 2, CH_DST);
    simcards::AddBoard(2, 4, CH_ISDN_USR);
    SetTime(rNow);
    auto prOwned = std::make_unique<FlakyDatabase>(rBytes.Text(rBytes.Below(9)));
    prDb = prOwned.get();
    rBoot.prDatabase = std::move(prOwned);
    rRecorder.prBoot = &rBoot;
    rRecorder.prDatabase = prDb;
    ChooseSettings();
    rBoot.vrDetectedBoards = {Present("ATP-2", "A", 2), Present("DST-2", "B", 2), Present("DTP-X", "C", 4)};
    rBoot.CreateBoardList();
    FuzzCheck(rRecorder.InitRecorder() == 0 && rRecorder.vChannels.size() == CHANNELS, "all lines are there");
  }
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;

  void Step() {
    OneStep();
    if (++iSteps % 32 == 0) PassSeconds(1);  // names of recordings are by the second, and a hundred of them
    (void)logsink::Take();
    (void)simcards::TakeCalls();
    for (BaseChannel* prChannel : rRecorder.vChannels) CheckLine(*prChannel, /*fRunning=*/true);
    CheckRows();
  }
  void End() {
    rRecorder.Shutdown();
    for (BaseChannel* prChannel : rRecorder.vChannels) CheckLine(*prChannel, /*fRunning=*/false);
    CheckRows();
    CheckFiles();
    (void)logsink::Take();
  }

 private:
  void ChooseSettings() {
    rBoot.rConfigs = {{"SynA_Trigger", Digit(rBytes, 4) + "," + Digit(rBytes, 4)},
                      {"SynA_RecOnDmd", Digit(rBytes, 2) + "," + Digit(rBytes, 2)},
                      {"SynA_LongRecordings", "1,0"},
                      {"SynA_LongRecordingsLen", "1,1"},
                      {"SynB_TdmStart", Digit(rBytes, 4)},
                      {"SynB_PBXType", rBytes.Below(2) == 1 ? "Siemens" : ""},
                      {"SynB_AudioDetect", Digit(rBytes, 2)},
                      {"SynB_MissedCalls", Digit(rBytes, 2)},
                      {"SynB_RecOnDmd", Digit(rBytes, 2) + ",0"},
                      {"SynC_SwapSides", Digit(rBytes, 2)},
                      {"SynC_LoudVoiceDetect", "1,1"},
                      {"LineNameInFileName", Digit(rBytes, 2)}};
    rBoot.rConfigsO = {{"RecEnc", rBytes.Below(2) == 1 ? "ulaw" : "alaw"},
                       {"RecStereo", Digit(rBytes, 2)},
                       {"Monitoring", Digit(rBytes, 2)},
                       {"SilOnDemand", Digit(rBytes, 2)},
                       {"DelOnDmdType", Digit(rBytes, 4)},
                       {"DelOnDmdList", "123"},
                       {"RecOnDmdType", Digit(rBytes, 4)},
                       {"RecOnDmdList", "123"},
                       {"NumberFilterType", Digit(rBytes, 3)},
                       {"NumberFilters", "55"},
                       {"StoreOnDemandDelay", Digit(rBytes, 2)}};
    rBoot.rConfigsSys = {{"MaskLastRemoteDigits", Digit(rBytes, 3)},
                         {"DTMF1", "*1"},
                         {"DTMFact1", "norec"},
                         {"DTMF2", "*2"},
                         {"DTMFact2", "keep"}};
    prDb->rUp.rParts["o"] = rBoot.rConfigsO;
    prDb->rUp.rParts["x"] = {{"RecMinDur", Digit(rBytes, 3)},
                             {"RecNotOutg", Digit(rBytes, 2)},
                             {"NotRecEmptyNum", Digit(rBytes, 2)},
                             {"RecLocal", Digit(rBytes, 2)},
                             {"RecOnDemand", Digit(rBytes, 2)}};
    fDelay = rBoot.rConfigsO["StoreOnDemandDelay"] == "1";
  }

  // -- what happens ---------------------------------------------------------------------------------------------------
  void OneStep() {
    switch (rBytes.Below(16)) {
      case 0:
      case 1:
        Send(E_CHG_ChState, rBytes.Below(CHANNELS), LINE_STATES[rBytes.Below(std::size(LINE_STATES))]);
        break;
      case 2:
        simcards::SetCallerId(static_cast<int>(rBytes.Below(2)), rBytes.Text(rBytes.Below(16)));
        Send(E_CHG_CIDExBuf, rBytes.Below(2), 0);
        break;
      case 3:
        Send(E_CHG_RcvDTMF, rBytes.Below(CHANNELS), rBytes.Byte());
        break;
      case 4:
        Send(rBytes.Below(2) == 1 ? E_SYS_BargeIn : E_CHG_ToneAnalyze, rBytes.Below(FIRST_OF_TRUNK), rBytes.Below(8));
        break;
      case 5:
      case 6:
        Station();
        break;
      case 7:
      case 8:
      case 9:
        Circuit();
        break;
      case 10:
      case 11:
        simcards::Advance(static_cast<int>(32 * rBytes.Byte()));
        TakeCardEvents();
        break;
      case 12:
        Send(E_PROC_RecordMem, rBytes.Below(CHANNELS), rBytes.Byte() << 5 | rBytes.Below(32));
        break;
      case 13:
        Order();
        break;
      case 14:
        PassSeconds(static_cast<int>(rBytes.Below(70)));
        break;
      default:
        Misfortune();
        break;
    }
  }
  void Send(WORD wEventCode, unsigned uiReference, DWORD dwParam, DWORD dwSubReason = 0, std::string strData = "") {
    SSM_EVENT rEvent = simcards::MakeEvent(wEventCode, static_cast<int>(uiReference), dwParam, dwSubReason, &strData);
    rRecorder.HandleEvent(&rEvent);
  }
  void TakeCardEvents() {
    char acData[EVENT_BUFFER_BYTES];
    SSM_EVENT rEvent;
    rEvent.pvBuffer = acData;
    rEvent.dwBufferLength = sizeof acData;
    while (SsmWaitForEventA(0, &rEvent) == SSM_OK) rRecorder.HandleEvent(&rEvent);
  }
  void Station() {
    const unsigned uiCh = 2 + rBytes.Below(2);
    const DWORD dwCode = STATION_CODES[rBytes.Below(std::size(STATION_CODES))];
    const DWORD dwValue = rBytes.Byte();
    const unsigned uiLength = rBytes.Byte();
    std::string strText = rBytes.Text(uiLength % 64);
    if (uiLength >= 192) strText.resize(ISDN_RECORD_BYTES);
    Send(E_RCV_DSTDChannel, uiCh, dwCode, dwValue, strText);
  }
  void Circuit() {
    const unsigned uiCircuit = rBytes.Below(CIRCUITS);
    simcards::SpyInfo rInfo;
    const unsigned uiSides = rBytes.Byte();  // mostly the two of the circuit; also one, another's, or none
    rInfo.iCallInCh = FIRST_OF_TRUNK + static_cast<int>(uiSides < 192 ? uiCircuit : uiSides % 6);
    rInfo.iCallOutCh = FIRST_OF_TRUNK + static_cast<int>(uiSides < 192 ? uiCircuit + 2 : uiSides / 6 % 6);
    if (uiSides % 2 == 1) std::swap(rInfo.iCallInCh, rInfo.iCallOutCh);
    rInfo.strCaller = rBytes.Text(rBytes.Below(8));
    rInfo.strCallee = rBytes.Text(rBytes.Below(8));
    simcards::SetSpyInfo(static_cast<int>(uiCircuit), rInfo);
    const DWORD dwState = CIRCUIT_STATES[rBytes.Below(std::size(CIRCUIT_STATES))];
    Send(E_CHG_SpyState, uiCircuit, dwState | adwStates[uiCircuit] << 16);
    adwStates[uiCircuit] = dwState;
  }
  void Order() {
    const unsigned uiCh = rBytes.Below(CHANNELS + 1);
    const std::string strId =
        uiCh < CHANNELS ? rRecorder.vChannels[uiCh]->strDbRemoteId : rBytes.Text(rBytes.Below(20));
    switch (rBytes.Below(6)) {
      case 0:
        (void)rRecorder.SilencingAct(strId, rBytes.Below(2) == 1);
        break;
      case 1:
      case 2:
        (void)rRecorder.RecOnDmdAct(strId, rBytes.Below(2) == 1);
        break;
      case 3:
        (void)rRecorder.DelOnDmdAct(strId);
        break;
      case 4: {
        const std::string strRemote = rRecorder.vChannels[uiCh % CHANNELS]->GetDbRemoteNum();
        (void)rRecorder.ChLocal(rBytes.Text(rBytes.Below(6)), strRemote, rBytes.Below(2) == 1);
        break;
      }
      default:
        rRecorder.Reconfigure();
        break;
    }
  }
  void PassSeconds(int iSeconds) {
    for (int i = 0; i < iSeconds; i++) {
      SetTime(rNow + 1);
      rRecorder.Periodic();
    }
  }
  void Misfortune() {
    switch (rBytes.Below(4)) {
      case 0:
        fRefused = true;
        simcards::FailNext("SsmStopRecToMem", 1, -1, "refused");
        break;
      case 1:
        simcards::FailNext("SsmRecToMem", 1, -1, "refused");
        break;
      case 2:
        SetTime(rNow - time_t{3600} * (1 + rBytes.Below(3)));
        fClockSetBack = true;  // a name may come again
        break;
      default:
        prDb->rUp.rCarryOver = {{"processingstate", Digit(rBytes, 9)}, {"callextra", rBytes.Text(rBytes.Below(16))}};
        break;
    }
  }
  void SetTime(time_t rTime) { SetSimTime(testtime::rFrozen = rNow = rTime); }

  // -- rules ----------------------------------------------------------------------------------------------------------
  void CheckLine(BaseChannel& rLine, bool fRunning) const {
    const bool isBusy = rLine.*&Open::fCallBusy;
    const bool isAlways = rLine.*&Open::iDrvCh < 2;  // one that always records is in a call from its first second on
    FuzzCheck(!fRunning || isAlways || isBusy == (rLine.*&Open::InCall)(),
              "a call goes on exactly while a flag holds it");
    FuzzCheck(isBusy || rLine.strDbRemoteId.empty(), "a line without a call has no id");
    FuzzCheck(isBusy || rLine.*&Open::iActiveCallID == -1, "a line without a call has no row");
    FuzzCheck(isBusy || !(rLine.*&Open::fRecording), "a line without a call records nothing");
    const bool isOpen = rLine.*&Open::hAudioFile != nullptr;
    FuzzCheck(fRefused || rLine.*&Open::fRecording || !isOpen, "a file is open in a recording only");
    const bool isFeeding = rLine.*&Open::iBaseRecCh != -1;
    FuzzCheck(fRefused || rLine.*&Open::fRecording || isFeeding || !(rLine.*&Open::fCardMayWrite),
              "the card has a ring only for a recording");
    const int iOffset = rLine.*&Open::iRecordOffset;
    FuzzCheck(iOffset >= 0 && iOffset <= rLine.*&Open::iRecordBufSize, "the reading position is one of the ring");
  }
  // A row that is open is a line's, or one of a call that somebody has yet to decide on.
  void CheckRows() {
    std::set<int> aiOfLines;
    for (const BaseChannel* prChannel : rRecorder.vChannels) {
      const int iRow = prChannel->*&Open::iActiveCallID;
      if (iRow == -1) continue;
      FuzzCheck(aiOfLines.insert(iRow).second, "two lines share no row");
      FuzzCheck(prDb->rOpenRows.count(iRow) == 1, "a line's row is open");
    }
    FuzzCheck(fDelay || aiOfLines == prDb->rOpenRows, "each row that is open is a line's");
  }
  void CheckFiles() {
    std::size_t uiNamed = 0;
    for (const auto& [iRow, rRow] : prDb->rUp.rTables["Calls"]) {
      if (ValueOf(rRow, "filename").empty()) continue;  // a missed call
      uiNamed++;
      if (!fClockSetBack)
        CheckFile(std::string(ROOT) + "/" + ValueOf(rRow, "directory") + "/" + ValueOf(rRow, "filename"));
    }
    if (prDb->CanFail() || fRefused || fClockSetBack || fDelay) return;
    std::size_t uiFiles = 0;
    for (const auto& rEntry : std::filesystem::recursive_directory_iterator(ROOT)) uiFiles += rEntry.is_regular_file();
    FuzzCheck(uiFiles == uiNamed, "without a fault there is a row for each file");
  }
  static void CheckFile(const std::string& strPath) {
    FILE* hFile = fopen(strPath.c_str(), "rbe");
    FuzzCheck(hFile != nullptr, "the recording of a row is there");
    unsigned char acHeader[WAV_HEADER_BYTES] = {};
    FuzzCheck(fread(acHeader, 1, sizeof acHeader, hFile) == sizeof acHeader, "a recording has its header");
    long iAudio = 0;
    for (std::size_t i = WAV_HEADER_BYTES; i-- > WAV_HEADER_BYTES - sizeof(std::uint32_t);)
      iAudio = iAudio << 8 | acHeader[i];
    (void)fseek(hFile, 0, SEEK_END);
    FuzzCheck(ftell(hFile) == static_cast<long>(WAV_HEADER_BYTES) + iAudio, "the header counts the audio");
    (void)fclose(hFile);
  }

  FuzzBytes& rBytes;
  time_t rNow = 1'700'000'000;
  TRecorderBoot rBoot;
  CRecorder rRecorder;    // after rBoot: channels go before the database
  FlakyDatabase* prDb{};  // owned by rBoot
  DWORD adwStates[CIRCUITS] = {};
  int iSteps = 0;
  bool fDelay = false;
  bool fRefused = false;
  bool fClockSetBack = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  FuzzBytes rBytes(prData, iSize);
  Site rSite(rBytes);
  while (!rBytes.IsOver()) rSite.Step();
  rSite.End();
  return 0;
}
