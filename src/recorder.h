// recorder: the channels and what they need. CRecorder turns settings into fields, makes one channel a driver channel,
// hands card events on, and serves channels, actions and the web side.
// Files:     recorder.cpp the channel table and its events, recorder_init.cpp settings to fields and channels,
//            recorder_services.cpp what channels and the web side ask for, recorder_status.cpp health of the lines.
//            What only passes a question on to the boot object stands beside the answer: recorder_settings.cpp,
//            recorder_boards.cpp, recorder_conditions.cpp.
// Threads:   main, except fBitStreamTracing and fDraining (read by the reactor).
// Ownership: owns the channels; the boot object (recorder_boot.h) outlives it.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "filedir.h"
#include "idatabase.h"
#include "irecorder.h"
#include "shpa3api.h"

class BaseChannel;
class TRecorderBoot;
class Taker;
struct TakenEvent;

constexpr const char* LOOP_FIGURES_FILE = "crec_loop";  // in the data directory
constexpr double SLOW_HANDLER_S = 0.1;  // handlers above this hold up audio and signalling, and are logged

class CRecorder : public ICRecorder {
 public:
  CRecorder() = default;
  ~CRecorder() override;
  CRecorder(const CRecorder&) = delete;
  CRecorder& operator=(const CRecorder&) = delete;

  // -- initialisation and settings ------------------------------------------------------------------------------------
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

  // -- events ---------------------------------------------------------------------------------------------------------
  void HandleEvent(SSM_EVENT* prEvent) override;
  // The same for an event that came through the taker.
  void HandleTaken(TakenEvent& rTaken);
  // A handler has held the main loop up for so many seconds.
  void TellSlowEvent(double dTook) const;
  // Gives each channel its turn, also one that the turn of another adds. The main loop calls it once a second.
  void Periodic();
  void Shutdown() override;

  // -- services for channels ------------------------------------------------------------------------------------------
  std::string GetDtmfAct(const std::string& strDigits) override;
  std::string GetCachedLocalNum(int iBoardCh, int iBoardListIx) override;
  void SetCachedLocalNum(int iBoardCh, int iBoardListIx, const std::string& num) override;
  bool StoreOnDemand(Contact rContactLocal, Contact rContactRemote) override;
  void EmailRecording(int iID, int iContactID) override;
  void EmailBackRecording(int iContactID, int iBack) override;
  std::string GetCheckSumType() override;
  void BeginRing(int iDrvCh, BYTE* acRing, int iRingBytes) override;
  void EndRing(int iDrvCh) override;
  void HandOverAudio(int iDrvCh, int iOtherDrvCh, bool fCallGoesOn) override;
  long long SpokenBytes(int iDrvCh) override;
  void KeepRing(std::unique_ptr<BYTE[]> acRing) override;
  void NotifyAdmin(ENotifyType what, const std::string& strDbRemoteId) override;
  bool IsInNumberFilter(const std::string& strNumber) override;
  bool IsInDelOnDmdList(const std::string& strNumber) override;
  bool IsInRecOnDmdList(const std::string& strNumber) override;
  bool MixIn(int iDstCh, int iSrcCh) override;
  void StopMixIn(int iSrcCh) override;
  void MixAudio(int iBaseCh, BYTE* data, int size) override;
  void LinkedChannel(int iBaseCh, int iLinkedCh) override;
  void ChannelDigit(int iBaseCh, char ch) override;

  // -- orders from outside --------------------------------------------------------------------------------------------
  // All but ChState answer with an EActResult. An empty call id finds the first channel without a call.
  int SilencingAct(const std::string& strCallId, bool fSound) override;
  int RecOnDmdAct(const std::string& strCallId, bool fStart) override;
  int DelOnDmdAct(const std::string& strCallId);
  // The local party of the call with this remote number has changed; the number may come with "00" in front.
  int ChLocal(const std::string& strLocalPhoneNumber, const std::string& strRemotePhoneNumber, bool stopstart);
  // Makes a line write its state file. 0: written, 1: no such line, 2: no such channel, 3: the channel has none.
  int ChState(int iChNr) override;

  // -- line status ----------------------------------------------------------------------------------------------------
  // Replaces linestatus.dat, one line "Line_<line number>: <health>\n" a channel that has a line number. Written under
  // another name and renamed, so that a reader never sees half a file; on a failure the last good file stays.
  void WriteLineStatus();
  // Replaces crec_loop, by which onlookers see how far the loop is behind and what the taker has lost.
  void WriteLoopFigures();
  void RecheckHealth();                    // asks the appliance's service for a new check of the system
  void NewLineHealth(int iChIx) override;  // iChIx: driver channel
  // Only the first channel of a trunk card reports, for the whole card.
  void NotifyChAvail(int iBoardListIx, int iBoardCh, bool fChAvail) override;

  std::vector<BaseChannel*> vChannels;  // owned; indexed by driver channel
  IDatabase* prDatabase = nullptr;      // the boot object's, not owned
  std::string strSerial;                // the unit's identifier
  TRecorderBoot* prBoot = nullptr;      // not owned
  Taker* prTaker = nullptr;             // not owned; null: the main loop takes the events itself
  std::atomic<bool> fBitStreamTracing{false};
  // The main loop takes no events: it stops, or traces, and waits for an empty queue to end that or to begin it.
  std::atomic<bool> fDraining{false};
  int iBitStreamChNr = 0;     // driver channel, the one to trace
  bool fInitializing = true;  // silences NewLineHealth until all channels exist
  time_t lastEventReportTime = 0;

 private:
  void NoteSignOfLife();
  void HandleAudio(TakenEvent& rTaken);
  void TellSlowTurn(double dTook) const;
  BaseChannel* ChannelAt(int iDrvCh);                   // null for an index out of range
  BaseChannel* FindCall(const std::string& strCallId);  // first channel that the id means, or null
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

  bool fHandlesEvent = false;
  std::int64_t iEventNs = 0;  // when that was taken
  StdFile hLineStatusFile;    // left open by a short write, until the next one
};
