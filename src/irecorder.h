// irecorder: the recorder as channels and actions see it: settings as plain fields, and a row of small services.
// Threads:   main only. Workers may read fALE, fRecCheck and strArchiveRoot, which do not change once the recorder
//            runs; an action carries its own copy of eRecEnc.
// Ownership: implemented by CRecorder, which outlives every channel and every action.
// Channels:  iBoardListIx is an index into the board list, iBoardCh the channel on that board, iChNr the line number
//            that users see; all other channel numbers are driver channels, the index of the channel table. Of a linked
//            pair the base (iBaseCh) records, and the linked channel (iLinkedCh) feeds it.
// Results:   services that act on a call: see EActResult.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fstring.h"
#include "idatabase.h"
#include "shpa3api.h"

enum ERecEncodings { RECENC_G711A = 0, RECENC_G711U = 1, RECENC_GSM = 2, RECENC_MP3 = 3 };
enum ECardType { CT_UNKNOWN = -1, CT_ATP = 0, CT_DST = 1, CT_DTP = 2, CT_SHT = 3 };
enum ENotifyType { LOUD_TALKING = 1 };
enum EActResult { ACT_DONE = 0, ACT_UNKNOWN_CALL = 1, ACT_REFUSED = 2 };

constexpr int DTMF_CODES = 10;  // strDTMF and strDTMFact are used from 1 to DTMF_CODES

class ICRecorder {
 public:
  virtual ~ICRecorder() = default;

  // -- life and events ------------------------------------------------------------------------------------------------
  virtual int InitRecorder() = 0;
  virtual void HandleEvent(SSM_EVENT* prEvent) = 0;
  virtual void NewLineHealth(int iChIx) = 0;
  virtual void NotifyChAvail(int iBoardListIx, int iBoardCh, bool fChAvail) = 0;
  virtual void Shutdown() = 0;

  // -- settings -------------------------------------------------------------------------------------------------------
  virtual IDatabase* GetDatabaseHandle() = 0;
  virtual std::string GetDataDir() = 0;
  virtual int GetParamInt(const std::string& strParam) = 0;
  virtual bool IsSpecial(const std::string& strSpecialName) = 0;
  virtual ECardType GetBoardCardType(int iBoardListIx) = 0;
  virtual std::string GetBoardPbxType(int iBoardListIx) = 0;
  // The Param lookups take a board index that is in the list; any other ends the process (a bug of the caller).
  virtual std::string GetBoardParamStr(int iBoardListIx, const std::string& strParam) = 0;
  virtual int GetBoardParamInt(int iBoardListIx, const std::string& strParam) = 0;
  virtual std::string GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam) = 0;
  virtual int GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam) = 0;
  virtual int GetChannelParamIntLive(int iBoardCh, int iBoardListIx, const std::string& strParam) = 0;
  virtual bool IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) = 0;
  virtual bool IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) = 0;
  virtual bool IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) = 0;
  virtual bool IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) = 0;

  // -- services -------------------------------------------------------------------------------------------------------
  // A channel's own number as the process before this one stored it, for 10 minutes; UTF-8.
  virtual std::string GetCachedLocalNum(int iBoardCh, int iBoardListIx) = 0;
  virtual void SetCachedLocalNum(int iBoardCh, int iBoardListIx, const std::string& num) = 0;
  // The action of the first configured code that ends strDigits; empty when none does.
  virtual std::string GetDtmfAct(const std::string& strDigits) = 0;
  virtual bool IsInNumberFilter(const std::string& strNumber) = 0;
  virtual bool IsInDelOnDmdList(const std::string& strNumber) = 0;
  virtual bool IsInRecOnDmdList(const std::string& strNumber) = 0;
  // The five pass-throughs to another channel ignore an index outside the table. The linked channel iSrcCh begins to
  // feed the recording of the base iDstCh, and ends it; false when none of its audio will come.
  virtual bool MixIn(int iDstCh, int iSrcCh) = 0;
  virtual void StopMixIn(int iSrcCh) = 0;
  // A piece of the linked channel's audio, to the base.
  virtual void MixAudio(int iBaseCh, BYTE* data, int size) = 0;
  // Tells the linked channel who its base is.
  virtual void LinkedChannel(int iBaseCh, int iLinkedCh) = 0;
  // A digit that the linked channel heard, to the base.
  virtual void ChannelDigit(int iBaseCh, char ch) = 0;
  // Whether a call of these parties is kept only on demand.
  virtual bool StoreOnDemand(Contact rContactLocal, Contact rContactRemote) = 0;
  virtual std::string GetCheckSumType() = 0;
  // Asks the service to mail recording iID to the first user of this telephone; nothing without a user.
  virtual void EmailRecording(int iID, int iContactID) = 0;
  // The same for the iBack-th newest call (1: the newest), to the last enabled user; -1 stands for none enabled.
  virtual void EmailBackRecording(int iContactID, int iBack) = 0;
  // The card is about to record into this ring of driver channel iDrvCh, and no longer does so. What it reports in
  // between comes to the channel as audio.
  virtual void BeginRing(int iDrvCh, BYTE* acRing, int iRingBytes) = 0;
  virtual void EndRing(int iDrvCh) = 0;
  // Hands the channels the audio that the card has reported of them up to now, before a recording of both ends; -1: no
  // such channel. Nothing where an event ends the call: what is reported behind that one comes after the end.
  virtual void HandOverAudio(int iDrvCh, int iOtherDrvCh, bool fCallGoesOn) = 0;
  // How many bytes of its recording a driver channel has heard up to now, or to the event that is being handled; -1:
  // nobody can tell.
  virtual long long SpokenBytes(int iDrvCh) = 0;
  // Takes over a ring buffer of a channel that goes while the card may still write it, until the card library is
  // closed.
  virtual void KeepRing(std::unique_ptr<BYTE[]> acRing) = 0;
  virtual void NotifyAdmin(ENotifyType what, const std::string& strDbRemoteId) = 0;

  // -- orders ---------------------------------------------------------------------------------------------------------
  virtual int SilencingAct(const std::string& strCallId, bool fSound) = 0;
  virtual int RecOnDmdAct(const std::string& strCallId, bool fStart) = 0;
  virtual int ChState(int iChNr) = 0;
  virtual void Reconfigure() = 0;

  // -- settings, read directly ----------------------------------------------------------------------------------------
  std::string strDTMF[DTMF_CODES + 1];     // codes; index 0 is not used
  std::string strDTMFact[DTMF_CODES + 1];  // the action of the code with the same index
  ERecEncodings eRecEnc = RECENC_G711A;
  bool fStereo = false;           // record both directions apart
  bool fMonitoring = false;       // live monitoring by raw file
  bool fSilenceOnDemand = false;  // silencing allowed
  bool fRecCheck = false;         // check finished files
  bool fALE = false;              // recordings are written into a working area first, then encrypted
  // So many last digits of a remote number are "X" in contacts and rows; log, number filter and demand lists have it
  // whole. From "MaskLastRemoteDigits".
  int iMaskLastRemoteDigits = 0;
  int iNumberFilterType = 0;
  int iDelOnDmdType = 0;
  int iRecOnDmdType = 0;
  std::vector<std::string> astrNumberFilters;
  std::vector<std::string> astrCstaNumberFilters;  // part of the interface: loaded, and read by nothing
  std::vector<std::string> astrDelOnDmdList;
  std::vector<std::string> astrRecOnDmdList;
  int iCstaType = 0;      // only logged
  int iCstaMonitors = 0;  // only logged
  bool fLineNameInFileName = false;
  bool fCardNotInternal = false;     // no call of a card counts as internal
  bool fDebugRepeatRecord = false;   // test switch: lines record in an endless chain
  bool fCrecTestSwapLocRem = false;  // test switch: local and remote exchanged
  std::string strArchiveRoot = "/recordings";
  std::string strRecordingRoot = strArchiveRoot;  // the working area with fALE
  int fStoreOnDemandDelay = 0;                    // 1: an undecided store on demand stays active
  bool fNeedCallPost = false;                     // finished calls go through post-call work
};
