// recorder: what lies between the cards and the channels. TRecorderBoot holds settings, boards and numbering for one
// start try; CRecorder holds the channels and serves them.
// Threads:   main, except TRecorderBoot::queue (any), CRecorder::fBitStreamTracing (read by the reactor) and the two
//            trace callbacks (the driver's threads, only while a trace runs).
// Ownership: TRecorderBoot owns the database and queued actions' list nodes; CRecorder owns the channels.
// Locks:     TRecorderBoot::rListMutex guards rActQueue and is held while an action runs by nobody.
// Channels:  driver channel: index of vChannels, dense over the present cards. Web channel: counts from 0 and keeps room
//            for absent cards. Line number (iChannel): web channel plus 1. Circuit number: trunks only.
#pragma once

#include <atomic>
#include <cstdio>
#include <ctime>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "idatabase.h"
#include "irecorder.h"
#include "shpa3api.h"
#include "shpa3link.h"

class BaseChannel;
class ThreadAct;

enum ECfgLoadMethod {
  CFG_LIVE_LOAD = 0,    // ask the database now
  CFG_CACHED_LOAD = 1,  // use the copy in memory
};

// A condition on a card event of a digital station line, taught by settings.
struct StartStopCnd {
  unsigned int dwEvent = 0;      // never 0 in a list
  bool fSubReason = false;       // the sub-reason has to match too
  unsigned int dwSubReason = 0;
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

// Cluster: with /var/morvex/conf/opt_cluster, keys of one node carry the unit's serial and "-" as prefix.
extern bool g_fClustering;
extern std::string g_cfgPrefix;
std::string ReadSN();
void OnKnowSN(const std::string& SN);
void InitCluster();

// "<hex>" or "<hex>.<hex>", comma-separated; appends to arr. Items whose event is 0 are dropped.
void AddCndList(const std::string& strList, std::vector<StartStopCnd>& arr);
bool IsCondition(const std::vector<StartStopCnd>& arr, unsigned int dwEvent, unsigned int dwSubReason);
// Major version of the operating system from /etc/issue.net, 6 to 12; -1 for anything else.
int GetDebianVersion();

class TRecorderBoot {
 public:
  TRecorderBoot() = default;
  ~TRecorderBoot();
  TRecorderBoot(const TRecorderBoot&) = delete;
  TRecorderBoot& operator=(const TRecorderBoot&) = delete;

  // -- one start try --------------------------------------------------------------------------------------------
  // False: recording is switched off, by file or in the database.
  bool Init();
  void DetectBoards();
  void CreateBoardList();
  void WriteConfig();
  void PrepareConfig();  // the three above
  // Starts the driver; 0 when it runs, 1 when it did not start in time.
  int InitBoards();
  void AnalyseStartedState();
  // Runs the recorder until it is told to stop. 1 when InitRecorder failed, else 0.
  int RecorderUseBoardsLoop();
  void LinkOptionalFunctions();
  void UnlinkOptionalFunctions();

  // -- actions for the main thread ------------------------------------------------------------------------------
  void queue(ThreadAct* prAct);
  // Deletes every queued action without running it.
  void emptyQueue();
  // Runs the first queued action, if any; true when an entry was taken, also a null one.
  bool RunOneAction();

  // -- settings -------------------------------------------------------------------------------------------------
  std::string GetCrecSetting(const std::string& strParam, ECfgLoadMethod cfgLoadMethod);
  // Writes one row at once; rConfigs is not changed.
  void SetCrecSetting(const std::string& strParam, const std::string& strValue);
  std::string GetSysSetting(const std::string& strParam);
  std::string GetOSetting(const std::string& strParam);
  // The Param lookups abort on a board index out of range; the Data ones tolerate it.
  std::string GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam,
                                 ECfgLoadMethod cfgLoadMethod);
  int GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam, ECfgLoadMethod cfgLoadMethod);
  std::string GetBoardParamStr(int iBoardListIx, const std::string& strParam);
  int GetBoardParamInt(int iBoardListIx, const std::string& strParam);
  int GetBoardDataInt(int iBoardListIx, const std::string& strParam);
  void SetBoardDataInt(int iBoardListIx, const std::string& strParam, int iValue);
  std::string GetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam);
  void SetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam, const std::string& strValue);
  void ReloadDbConfig();
  void WriteNewConfigsToDB();
  void LoadBoardSettings();

  // -- boards ---------------------------------------------------------------------------------------------------
  TBoard* GetBoard(int iBoardListIx);  // null for an index out of range
  int GetBoardListIxForBoardId(int iBoardId) const;
  ECardType GetBoardCardType(int iBoardListIx);
  bool IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);

  StdStringMap rConfigs;     // part "crec", as read at start
  StdStringMap rConfigsO;    // part "o", reloadable
  StdStringMap rConfigsSys;  // part "s", as read at start
  StdStringMap rNewConfigs;  // what the recorder reports back, into "crec"
  std::vector<TBoard> vrDetectedBoards;
  std::vector<TBoard> vrBoardList;
  std::map<int, int> rDrvToWebChMap, rWebToDrvChMap;  // driver channel <-> web channel
  std::map<int, int> rCicToAppChMap, rAppToCicChMap;  // circuit <-> driver channel
  int iTotalDrvMaxCh = 0;
  int iTotalWebMaxCh = 0;
  std::string strCardList;
  std::unique_ptr<IDatabase> prDatabase;

 private:
  std::mutex rListMutex;
  std::list<ThreadAct*> rActQueue;  // guarded by rListMutex; first in, first out
  void* shpaDll = nullptr;          // second handle on the card library, to find the optional function
};

class CRecorder : public ICRecorder {
 public:
  CRecorder() = default;
  ~CRecorder() override;
  CRecorder(const CRecorder&) = delete;
  CRecorder& operator=(const CRecorder&) = delete;

  // -- initialisation and settings ------------------------------------------------------------------------------
  int InitRecorder() override;  // 0: running; 1: events could not be set up
  void LoadReloadableSettings();
  void Reconfigure() override;
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
  int SilencingAct(const std::string& strCallId, bool fSound) override;
  int RecOnDmdAct(const std::string& strCallId, bool fStart) override;
  int DelOnDmdAct(const std::string& strCallId);
  int ChLocal(const std::string& strLocalPhoneNumber, const std::string& strRemotePhoneNumber, bool stopstart);
  int ChState(int iChNr) override;

  // -- line status ----------------------------------------------------------------------------------------------
  void WriteLineStatus();
  void RecheckHealth();
  void NewLineHealth(int iChIx) override;
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
  BaseChannel* ChannelAt(int iDrvCh);                            // null for an index out of range
  BaseChannel* FindCall(const std::string& strCallId);           // first channel whose call has this id, or null
};


// -- bit-stream trace ---------------------------------------------------------------------------------------------
// One trace run, entered by the main loop once everything has drained: no card event is taken while it lasts, queued
// actions go on. Returns when the trace is switched off or the process is to stop.
void RunBitStreamTrace(TRecorderBoot& rBoot, CRecorder& rRecorder);
extern "C" BOOL RecRawDataCallBack(int nCh, DWORD dwLen, LPBYTE pucData, WORD tmpDataDiscardedTimes,
                                   WORD tmpWriteToFileFailedTimes);
extern "C" int DSTCallback(DWORD dwNum, char* szTime, int nCh, BYTE ucProcessType, BYTE ucCmd, WORD wLen, BYTE* pucData,
                           void* pDSTEvent);
