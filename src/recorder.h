// recorder: what lies between the cards and the channels. TRecorderBoot holds settings, boards and numbering for one
// start try; CRecorder holds the channels and serves them.
// Files:     recorder_settings.cpp maps and lookups, recorder_boards.cpp cards and numbering, recorder_drvconfig.cpp
//            the driver's files, recorder_init.cpp settings to fields and channels, recorder_events.cpp card events,
//            recorder_services.cpp what channels and the web side ask for, recorder_status.cpp health of the lines,
//            recorder_trace.cpp the bit-stream trace. The loop of TRecorderBoot: morvex_crec_loop.cpp.
// Threads:   main, except TRecorderBoot::queue (any) and CRecorder::fBitStreamTracing (read by the reactor).
// Ownership: TRecorderBoot owns the database and the actions in its queue; CRecorder owns the channels.
// Settings:  rows of the table Configs, one map a part. A key lives in one part only, and its reader names the map; a
//            missing key reads as the empty text or 0. Texts become numbers by strtol, so "12x" is 12.
// Channels:  driver channel: index of vChannels, dense over the present cards. Web channel: counts from 0 and keeps
//            room for absent cards. Line number (iChannel): web channel plus 1. Circuit number: trunks only.
#pragma once

#include <atomic>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "filedir.h"
#include "idatabase.h"
#include "irecorder.h"
#include "mainqueue.h"
#include "recorder_conditions.h"
#include "shpa3api.h"
#include "shpa3link.h"

class BaseChannel;

constexpr const char* DRIVER_INI_FILE = "/var/morvex/data/ShConfig.ini";  // both read by the driver when it starts
constexpr const char* DRIVER_INDEX_FILE = "/var/morvex/data/ShIndex.ini";

enum ECfgLoadMethod {
  CFG_LIVE_LOAD = 0,    // ask the database now
  CFG_CACHED_LOAD = 1,  // use the copy in memory
};

// One card, present or remembered.
struct TBoard {
  bool fPresent = false;  // found at this start; cleared on a detected entry once it has been taken into the list
  std::string strSerial;
  std::string strModel;
  std::string strId;         // board id of a card that is away
  std::string strPBXType;    // only on digital station cards
  std::string strPhoneType;  // optional
  std::vector<StartStopCnd> vStartCnds, vStopCnds, vRingOnCnds, vRingOffCnds;
  int iMaxCh = 0;       // driver channels of the card; 0 for a card that is away
  int iWebMaxCh = 0;    // monitored lines
  int iStartCh = 0;     // first driver channel
  int iWebStartCh = 0;  // first web channel, counted from 0
  int iBoardId = -1;    // the driver's board number; -1 for a card that is away
  int iChannels = 0;    // usable channels as counted after the driver has started

  // "Syn" and the serial number of a present card, the remembered id of one that is away.
  std::string getId() const;
  // By the first three characters of the model.
  ECardType GetCtType() const;
};

// -- settings helpers ---------------------------------------------------------------------------------------------
// The value of a key, empty when the map lacks it; the map stays as it is.
std::string SettingOf(const StdStringMap& rMap, const std::string& strKey);
// Digits at the start of the text, 0 when there are none.
int TextToInt(const std::string& strText);
// Channel numbers are sums of what settings and the tool say, and those may say anything: a sum that is too large wraps
// around, where plain addition would be undefined.
int WrappingSum(int iA, int iB);

// -- the card maker's configuration tool --------------------------------------------------------------------------
// What the tool's file says about the cards: three lists in file order, paired by position.
struct ToolConfig {
  std::vector<int> aiChannelCounts;
  std::vector<std::string> astrSerials;
  std::vector<std::string> astrModels;
};
// Reads the tool's file; three empty lists when it cannot be opened. Every kept line is expected to end in a newline:
// the last character of a section header or value is dropped unseen.
ToolConfig ReadToolConfig(const std::string& strPath);

// -- the driver's configuration -----------------------------------------------------------------------------------
// Major version of the operating system from /etc/issue.net, 6 to 12; -1 for anything else.
int GetDebianVersion();

class TRecorderBoot : public MainQueue {
 public:
  TRecorderBoot() = default;
  ~TRecorderBoot();
  TRecorderBoot(const TRecorderBoot&) = delete;
  TRecorderBoot& operator=(const TRecorderBoot&) = delete;

  // -- one start try --------------------------------------------------------------------------------------------
  // Opens the database and loads the settings. False: recording is switched off, by file or in the database; a database
  // that cannot be read counts as switched off.
  bool Init();
  // The second half of Init, on the database at hand: fills the three maps and answers by the master switch.
  bool LoadSettings();
  // Gives the cards 10 seconds to come up, asks the card maker's tool and fills vrDetectedBoards. The process stays in
  // the tool's directory afterwards.
  void DetectBoards();
  // Fills vrDetectedBoards from the lists; cards of an unknown model are left out.
  void TakeDetected(const ToolConfig& rFound);
  // Merges what was detected with the remembered list into vrBoardList, and gives all channels their numbers.
  void CreateBoardList();
  // Merges the driver's configuration into ShConfig.ini and empties ShIndex.ini, unless NoWriteIni is 1.
  void WriteConfig();
  void PrepareConfig();  // detect, list, write
  // Starts the driver; 0 when it runs, 1 when it did not start in 20 seconds or the process is to stop.
  int InitBoards();
  // Counts the usable channels of the running driver and puts the final state of all boards into rNewConfigs.
  void AnalyseStartedState();
  // Runs the recorder until it is told to stop. 1 when InitRecorder failed, else 0.
  int RecorderUseBoardsLoop();
  // Looks for the one function that a card library need not have; silent when the library cannot be opened by name.
  void LinkOptionalFunctions();
  void UnlinkOptionalFunctions();

  // -- settings -------------------------------------------------------------------------------------------------
  std::string GetCrecSetting(const std::string& strParam, ECfgLoadMethod cfgLoadMethod);
  // Writes one row at once; rConfigs is not changed, so a cached read sees it only after a restart.
  void SetCrecSetting(const std::string& strParam, const std::string& strValue);
  std::string GetSysSetting(const std::string& strParam);
  std::string GetOSetting(const std::string& strParam);
  // The Param lookups abort on a board index out of range, which only a bug or a channel without board can bring; the
  // Data ones read it as empty or 0 and write nothing. The Channel Params are comma lists with one item a channel: the
  // text of an item that is not there is empty. The Int lookups put a built-in value in the place of 0.
  std::string GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam,
                                 ECfgLoadMethod cfgLoadMethod);
  int GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam, ECfgLoadMethod cfgLoadMethod);
  std::string GetBoardParamStr(int iBoardListIx, const std::string& strParam);
  int GetBoardParamInt(int iBoardListIx, const std::string& strParam);
  int GetBoardDataInt(int iBoardListIx, const std::string& strParam);
  void SetBoardDataInt(int iBoardListIx, const std::string& strParam, int iValue);
  std::string GetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam);
  void SetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam, const std::string& strValue);
  void ReloadDbConfig();  // rConfigsO alone
  void WriteNewConfigsToDB();
  void LoadBoardSettings();  // the conditions of all boards, absent ones too

  // -- boards ---------------------------------------------------------------------------------------------------
  TBoard* GetBoard(int iBoardListIx);  // null for an index out of range
  // The first board with this number, else -1. Absent boards carry -1, so -1 may find one of them.
  int GetBoardListIxForBoardId(int iBoardId) const;
  ECardType GetBoardCardType(int iBoardListIx);
  // False for an index out of range.
  bool IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);

  StdStringMap rConfigs;                              // part "crec", as read at start
  StdStringMap rConfigsO;                             // part "o", reloadable
  StdStringMap rConfigsSys;                           // part "s", as read at start
  StdStringMap rNewConfigs;                           // what the recorder reports back, into "crec"
  std::vector<TBoard> vrDetectedBoards;               // what the tool found, in its order
  std::vector<TBoard> vrBoardList;                    // present and remembered boards; iBoardListIx counts here
  std::map<int, int> rDrvToWebChMap, rWebToDrvChMap;  // driver channel <-> web channel
  std::map<int, int> rCicToAppChMap, rAppToCicChMap;  // circuit <-> driver channel
  int iTotalDrvMaxCh = 0;
  int iTotalWebMaxCh = 0;
  std::string strCardList;  // board ids in list order, comma-separated
  std::unique_ptr<IDatabase> prDatabase;

 private:
  const TBoard& NeedBoard(int iBoardListIx);  // aborts for an index out of range
  void MergeRememberedBoards();
  void DropAbsentTail();
  void AppendNewBoards();
  void LoadPbxSettings();
  void NumberBoards();
  void MapLines(const TBoard& rBoard);
  void MapCircuits(const TBoard& rBoard, int& iCic);
  void ReportBoardFacts(const TBoard& rBoard);
  void LogBoardList();

  void* shpaDll = nullptr;  // second handle on the card library, to find the optional function
};

class CRecorder : public ICRecorder {
 public:
  CRecorder() = default;
  ~CRecorder() override;
  CRecorder(const CRecorder&) = delete;
  CRecorder& operator=(const CRecorder&) = delete;

  // -- initialisation and settings ------------------------------------------------------------------------------
  // Settings to fields, the unit and its lines to the database, one channel object a driver channel, then events on.
  // 0: running; 1: events could not be set up.
  int InitRecorder() override;
  // The settings that Reconfigure may change while calls run; channels see new lists at their next lookup.
  void LoadReloadableSettings();
  void Reconfigure() override;  // reads the options again from the database
  IDatabase* GetDatabaseHandle() override { return prDatabase; }
  std::string GetBoardPbxType(int iBoardListIx) override;
  std::string GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam) override;
  int GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam) override;
  int GetChannelParamIntLive(int iBoardCh, int iBoardListIx, const std::string& strParam) override;
  std::string GetBoardParamStr(int iBoardListIx, const std::string& strParam) override;
  ECardType GetBoardCardType(int iBoardListIx) override;
  int GetBoardParamInt(int iBoardListIx, const std::string& strParam) override;
  int GetParamInt(const std::string& strParam) override;
  bool IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) override;
  bool IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) override;
  bool IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) override;
  bool IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) override;
  bool IsSpecial(const std::string& strSpecialName) override;
  std::string GetDataDir() override { return "/var/morvex/data/"; }

  // -- events ---------------------------------------------------------------------------------------------------
  void HandleEvent(SSM_EVENT* prEvent) override;
  void Shutdown() override;

  // -- services for channels ------------------------------------------------------------------------------------
  std::string GetDtmfAct(const std::string& strDigits) override;
  std::string GetCachedLocalNum(int iBoardCh, int iBoardListIx) override;
  void SetCachedLocalNum(int iBoardCh, int iBoardListIx, const std::string& num) override;
  bool StoreOnDemand(Contact rContactLocal, Contact rContactRemote) override;
  void EmailRecording(int iID, int iContactID) override;
  void EmailBackRecording(int iContactID, int iBack) override;
  std::string GetCheckSumType() override;
  void NotifyAdmin(ENotifyType what, const std::string& strDbRemoteId) override;
  bool IsInNumberFilter(const std::string& strNumber) override;
  bool IsInDelOnDmdList(const std::string& strNumber) override;
  bool IsInRecOnDmdList(const std::string& strNumber) override;
  void MixIn(int iDstCh, int iSrcCh) override;
  void StopMixIn(int iSrcCh) override;
  void MixAudio(int iBaseCh, BYTE* data, int size) override;
  void LinkedChannel(int iBaseCh, int iLinkedCh) override;
  void ChannelDigit(int iBaseCh, char ch) override;

  // -- orders from outside --------------------------------------------------------------------------------------
  // All but ChState answer with an EActResult. An empty call id finds the first channel without a call.
  int SilencingAct(const std::string& strCallId, bool fSound) override;
  int RecOnDmdAct(const std::string& strCallId, bool fStart) override;
  int DelOnDmdAct(const std::string& strCallId);
  // The local party of the call with this remote number has changed; the number may come with "00" in front.
  int ChLocal(const std::string& strLocalPhoneNumber, const std::string& strRemotePhoneNumber, bool stopstart);
  // Makes a line write its state file. 0: written, 1: no such line, 2: no such channel, 3: the channel has none.
  int ChState(int iChNr) override;

  // -- line status ----------------------------------------------------------------------------------------------
  // Replaces linestatus.dat, one line "Line_<line number>: <health>\n" a channel that has a line number. Written under
  // another name and renamed, so that a reader never sees half a file; on a failure the last good file stays.
  void WriteLineStatus();
  void RecheckHealth();                    // asks the appliance's service for a new check of the system
  void NewLineHealth(int iChIx) override;  // iChIx: driver channel
  // Only the first channel of a trunk card reports, for the whole card.
  void NotifyChAvail(int iBoardListIx, int iBoardCh, bool fChAvail) override;

  std::vector<BaseChannel*> vChannels;  // owned; indexed by driver channel
  IDatabase* prDatabase = nullptr;      // the boot object's, not owned
  std::string strSerial;                // the unit's identifier
  TRecorderBoot* prBoot = nullptr;      // not owned
  std::atomic<bool> fBitStreamTracing{false};
  int iBitStreamChNr = 0;
  bool fInitializing = true;  // silences NewLineHealth until all channels exist
  time_t lastEventReportTime = 0;

 private:
  BaseChannel* ChannelAt(int iDrvCh);                   // null for an index out of range
  BaseChannel* FindCall(const std::string& strCallId);  // first channel whose call has this id, or null
  void LoadDtmfCodes();
  void LoadSwitches();
  void ChooseRecordingRoot();
  void LoadEncoding();
  void RegisterUnit();
  void CreateChannels();
  void AddChannel(int iDrvCh, int& iLastDstBoardId);
  std::unique_ptr<BaseChannel> MakeChannel(int iType, int iDrvCh);
  int SetUpEvents();
  int ChLocalSwapped(const std::string& strLocalPhoneNumber, const std::string& strRemotePhoneNumber, bool stopstart);

  StdFile hLineStatusFile;  // left open by a short write, until the next one
};
