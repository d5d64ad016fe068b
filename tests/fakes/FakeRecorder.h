// FakeRecorder: the recorder as channels and actions see it, with answers that a test sets as plain fields.
// Orders that channels give are noted in astrCalls. Channels registered in vChannels take part in mixing and linking.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "BaseChannel.h"
#include "FakeDatabase.h"
#include "Texts.h"
#include "irecorder.h"

class FakeRecorder : public ICRecorder {
 public:
  int InitRecorder() override { return 0; }
  void HandleEvent(SSM_EVENT* prEvent) override {
    if (BaseChannel* prChannel = At(prEvent->nReference)) prChannel->HandleEvent(prEvent);
  }
  std::string GetDtmfAct(const std::string& strDigits) override {
    for (int i = 1; i <= DTMF_CODES; i++) {
      const std::string& strCode = strDTMF[i];
      if (!strCode.empty() && strCode.size() <= strDigits.size() &&
          strDigits.compare(strDigits.size() - strCode.size(), strCode.size(), strCode) == 0) {
        return strDTMFact[i];
      }
    }
    return "";
  }
  IDatabase* GetDatabaseHandle() override { return &rDatabase; }
  std::string GetBoardPbxType(int /*iBoardListIx*/) override { return strPbxType; }
  std::string GetChannelParamStr(int /*iBoardCh*/, int /*iBoardListIx*/, const std::string& strParam) override {
    return rChannelParams[strParam];
  }
  int GetChannelParamInt(int /*iBoardCh*/, int /*iBoardListIx*/, const std::string& strParam) override {
    return TextToInt(rChannelParams[strParam]);
  }
  int GetChannelParamIntLive(int /*iBoardCh*/, int /*iBoardListIx*/, const std::string& strParam) override {
    return TextToInt(rChannelParamsLive[strParam]);
  }
  std::string GetBoardParamStr(int /*iBoardListIx*/, const std::string& strParam) override {
    return rBoardParams[strParam];
  }
  ECardType GetBoardCardType(int /*iBoardListIx*/) override { return eCardType; }
  int GetBoardParamInt(int /*iBoardListIx*/, const std::string& strParam) override {
    return TextToInt(rBoardParams[strParam]);
  }
  int GetParamInt(const std::string& strParam) override { return TextToInt(rParams[strParam]); }
  bool IsBoardStartCondition(int, unsigned int dwEvent, unsigned int dwSubReason) override {
    return rStartCnds.count({dwEvent, dwSubReason}) > 0;
  }
  bool IsBoardStopCondition(int, unsigned int dwEvent, unsigned int dwSubReason) override {
    return rStopCnds.count({dwEvent, dwSubReason}) > 0;
  }
  bool IsBoardRingOnCondition(int, unsigned int dwEvent, unsigned int dwSubReason) override {
    return rRingOnCnds.count({dwEvent, dwSubReason}) > 0;
  }
  bool IsBoardRingOffCondition(int, unsigned int dwEvent, unsigned int dwSubReason) override {
    return rRingOffCnds.count({dwEvent, dwSubReason}) > 0;
  }
  void NotifyChAvail(int iBoardListIx, int iBoardCh, bool fChAvail) override {
    Note("NotifyChAvail " + std::to_string(iBoardListIx) + " " + std::to_string(iBoardCh) + (fChAvail ? " 1" : " 0"));
  }
  std::string GetCachedLocalNum(int iBoardCh, int iBoardListIx) override {
    Note("GetCachedLocalNum " + std::to_string(iBoardCh) + " " + std::to_string(iBoardListIx));
    return strCachedLocalNum;
  }
  void SetCachedLocalNum(int iBoardCh, int iBoardListIx, const std::string& num) override {
    Note("SetCachedLocalNum " + std::to_string(iBoardCh) + " " + std::to_string(iBoardListIx) + " " + num);
  }
  void Shutdown() override {}
  bool StoreOnDemand(Contact rContactLocal, Contact rContactRemote) override {
    Note("StoreOnDemand " + std::to_string(rContactLocal.iContactID) + " " + std::to_string(rContactRemote.iContactID));
    return fStoreOnDemandAnswer;
  }
  void EmailRecording(int iID, int iContactID) override {
    Note("EmailRecording " + std::to_string(iID) + " " + std::to_string(iContactID));
  }
  void EmailBackRecording(int iContactID, int iBack) override {
    Note("EmailBackRecording " + std::to_string(iContactID) + " " + std::to_string(iBack));
  }
  std::string GetCheckSumType() override { return strCheckSumType; }
  int SilencingAct(const std::string&, bool) override { return ACT_UNKNOWN_CALL; }
  int RecOnDmdAct(const std::string&, bool) override { return ACT_UNKNOWN_CALL; }
  bool MixIn(int iDstCh, int iSrcCh) override {
    Note("MixIn " + std::to_string(iDstCh) + " " + std::to_string(iSrcCh));
    BaseChannel* const prChannel = At(iSrcCh);
    return prChannel != nullptr && prChannel->StartMixRecord(iDstCh);
  }
  void StopMixIn(int iSrcCh) override {
    Note("StopMixIn " + std::to_string(iSrcCh));
    if (BaseChannel* prChannel = At(iSrcCh)) prChannel->StopMixRecord();
  }
  void MixAudio(int iBaseCh, BYTE* data, int size) override {
    if (BaseChannel* prChannel = At(iBaseCh)) prChannel->MixAudio(data, size);
  }
  void LinkedChannel(int iBaseCh, int iLinkedCh) override {
    Note("LinkedChannel " + std::to_string(iBaseCh) + " " + std::to_string(iLinkedCh));
    if (BaseChannel* prChannel = At(iLinkedCh)) prChannel->SetBaseChannel(iBaseCh);
  }
  void ChannelDigit(int iBaseCh, char ch) override {
    Note("ChannelDigit " + std::to_string(iBaseCh) + " " + ch);
    if (BaseChannel* prChannel = At(iBaseCh)) prChannel->LinkedChannelDigit(ch);
  }
  int ChState(int) override { return 1; }
  bool IsInNumberFilter(const std::string& strNumber) override { return Holds(astrNumberFilters, strNumber); }
  bool IsInDelOnDmdList(const std::string& strNumber) override { return Holds(astrDelOnDmdList, strNumber); }
  bool IsInRecOnDmdList(const std::string& strNumber) override { return Holds(astrRecOnDmdList, strNumber); }
  void Reconfigure() override { Note("Reconfigure"); }
  void NotifyAdmin(ENotifyType what, const std::string& strDbRemoteId) override {
    Note("NotifyAdmin " + std::to_string(static_cast<int>(what)) + " " + strDbRemoteId);
  }
  void BeginRing(int /*iDrvCh*/, BYTE* /*acRing*/, int /*iRingBytes*/) override {}
  void EndRing(int /*iDrvCh*/) override {}
  void HandOverAudio(int iDrvCh, int iOtherDrvCh, bool /*fCallGoesOn*/) override {
    if (rOnHandOver) rOnHandOver(iDrvCh, iOtherDrvCh);
  }
  long long SpokenBytes(int iDrvCh) override {
    const auto itSpoken = rSpokenBytes.find(iDrvCh);
    return itSpoken == rSpokenBytes.end() ? -1 : itSpoken->second;
  }
  void KeepRing(std::unique_ptr<BYTE[]> acRing) override { vKeptRings.push_back(std::move(acRing)); }
  bool IsSpecial(const std::string& strSpecialName) override { return rSpecials.count(strSpecialName) > 0; }
  void NewLineHealth(int iChIx) override { Note("NewLineHealth " + std::to_string(iChIx)); }
  std::string GetDataDir() override { return strDataDir; }

  Texts TakeCalls() {
    Texts astrTaken;
    astrTaken.swap(astrCalls);
    return astrTaken;
  }

  FakeDatabase rDatabase;
  std::vector<BaseChannel*> vChannels;  // not owned
  std::vector<std::unique_ptr<BYTE[]>> vKeptRings;
  std::map<int, long long> rSpokenBytes;  // of driver channels; of none without
  std::function<void(int iDrvCh, int iOtherDrvCh)> rOnHandOver;
  Texts astrCalls;
  std::string strPbxType;
  ECardType eCardType = CT_ATP;
  StdStringMap rChannelParams, rChannelParamsLive, rBoardParams, rParams;
  std::set<std::pair<unsigned int, unsigned int>> rStartCnds, rStopCnds, rRingOnCnds, rRingOffCnds;
  std::set<std::string> rSpecials;
  std::string strCachedLocalNum;
  bool fStoreOnDemandAnswer = false;
  std::string strCheckSumType;
  std::string strDataDir = "/var/morvex/data/";

 private:
  void Note(const std::string& strText) { astrCalls.push_back(strText); }
  BaseChannel* At(int iCh) const {
    return iCh >= 0 && static_cast<std::size_t>(iCh) < vChannels.size() ? vChannels[static_cast<std::size_t>(iCh)]
                                                                        : nullptr;
  }
  static bool Holds(const std::vector<std::string>& astrList, const std::string& strText) {
    for (const std::string& strItem : astrList) {
      if (strItem == strText) return true;
    }
    return false;
  }
};
