// Services for channels and actions that need a view over all channels or over the users of a telephone, and the orders
// from outside that are addressed to a running call.
// An order goes to the first channel of the table that fits. All searches are linear: the table has a few hundred
// entries at most, and they run only at call boundaries or on an order.
#include "recorder.h"

#include <syslog.h>

#include <algorithm>
#include <cassert>
#include <ctime>
#include <utility>

#include "BaseChannel.h"
#include "logging.h"
#include "mainthread.h"
#include "recorder_boot.h"
#include "signaling.h"
#include "taker.h"

namespace {

constexpr time_t CACHED_NUMBER_S = 601;  // below this age a number of the process before this one still counts

// Account field "rod": what the user wants to happen with recordings on demand.
enum EUserRod { ROD_STORE = 1, ROD_DONT_STORE = 2 };

bool Holds(const std::vector<std::string>& astrList, const std::string& strText) {
  return std::find(astrList.begin(), astrList.end(), strText) != astrList.end();
}

bool EndsWith(const std::string& strText, const std::string& strEnd) {
  return strEnd.size() <= strText.size() && strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

int ResultOf(bool fTaken) {
  return fTaken ? ACT_DONE : ACT_REFUSED;
}

void AskForMail(int iRecId, int iAccId) {
  signal_service("email -recid " + ToStdString(iRecId) + " " + ToStdString(iAccId));
}

}  // namespace

// -- services for one channel -----------------------------------------------------------------------------------------

std::string CRecorder::GetDtmfAct(const std::string& strDigits) {
  for (int i = 1; i <= DTMF_CODES; i++) {
    if (!strDTMF[i].empty() && EndsWith(strDigits, strDTMF[i])) return strDTMFact[i];
  }
  return "";
}

// The stamp is one a board: each channel that stores a number keeps the numbers of its whole board alive.
std::string CRecorder::GetCachedLocalNum(int iBoardCh, int iBoardListIx) {
  const time_t lastUse = prBoot->GetBoardDataInt(iBoardListIx, "LocalNumTime");
  if (time(nullptr) - lastUse >= CACHED_NUMBER_S) return "";
  return prBoot->GetChannelDataStr(iBoardCh, iBoardListIx, "LocalNum");
}

void CRecorder::SetCachedLocalNum(int iBoardCh, int iBoardListIx, const std::string& num) {
  prBoot->SetBoardDataInt(iBoardListIx, "LocalNumTime", static_cast<int>(time(nullptr)));
  prBoot->SetChannelDataStr(iBoardCh, iBoardListIx, "LocalNum", num);
}

bool CRecorder::IsInNumberFilter(const std::string& strNumber) {
  return Holds(astrNumberFilters, strNumber);
}

bool CRecorder::IsInDelOnDmdList(const std::string& strNumber) {
  return Holds(astrDelOnDmdList, strNumber);
}

bool CRecorder::IsInRecOnDmdList(const std::string& strNumber) {
  return Holds(astrRecOnDmdList, strNumber);
}

// -- services about the users of a telephone --------------------------------------------------------------------------

// The last account with an opinion wins; the remote party's accounts come after the local party's.
bool CRecorder::StoreOnDemand(Contact rContactLocal, Contact rContactRemote) {
  int iRecOnDemand = prDatabase->GetConfigInt("RecOnDemand");
  std::vector<int> aiAccIDs;
  prDatabase->GetUsersOfPhone(static_cast<int>(rContactLocal.iContactID), aiAccIDs);
  prDatabase->GetUsersOfPhone(static_cast<int>(rContactRemote.iContactID), aiAccIDs);
  for (const int iAccId : aiAccIDs) {
    const int iRod = prDatabase->GetUserIntOnAccID(iAccId, "rod");
    if (iRod == ROD_STORE) iRecOnDemand = 1;
    if (iRod == ROD_DONT_STORE) iRecOnDemand = 0;
  }
  return iRecOnDemand != 0;
}

void CRecorder::EmailRecording(int iID, int iContactID) {
  std::vector<int> aiAccIDs;
  prDatabase->GetUsersOfPhone(iContactID, aiAccIDs);
  if (!aiAccIDs.empty()) AskForMail(iID, aiAccIDs[0]);
}

void CRecorder::EmailBackRecording(int iContactID, int iBack) {
  std::vector<int> aiAccIDs;
  prDatabase->GetUsersOfPhone(iContactID, aiAccIDs);
  if (aiAccIDs.empty()) return;
  int iUserAcc = -1;
  for (const int iAccId : aiAccIDs) {
    if (prDatabase->GetUserIntOnAccID(iAccId, "enabled") == 1) iUserAcc = iAccId;
  }
  // The request goes out all the same, with -1; what becomes of it is the service's decision. In the log an empty line
  // stands before it, the only sign there of a mail to nobody; see WithoutEnabledAccountTheMailGoesToMinusOne. It goes
  // through "%s" because compilers warn of an empty format.
  if (iUserAcc == -1) lg(LOG_NOTICE, "%s", "");
  const int iID = prDatabase->GetCallBack(iContactID, iBack);
  if (iID != -1) AskForMail(iID, iUserAcc);
}

std::string CRecorder::GetCheckSumType() {
  return prDatabase->GetConfig("CalcChecksum");
}

void CRecorder::NotifyAdmin(ENotifyType what, const std::string& strDbRemoteId) {
  if (what == LOUD_TALKING) signal_service("email -loud " + strDbRemoteId);
}

void CRecorder::BeginRing(int iDrvCh, BYTE* acRing, int iRingBytes) {
  if (prTaker != nullptr) prTaker->BeginRing(iDrvCh, acRing, iRingBytes);
}

void CRecorder::EndRing(int iDrvCh) {
  if (prTaker != nullptr) prTaker->EndRing(iDrvCh);
}

long long CRecorder::SpokenBytes(int iDrvCh) {
  if (prTaker == nullptr) return -1;
  return fHandlesEvent ? prTaker->SpokenBytes(iDrvCh, iEventNs) : prTaker->SpokenBytes(iDrvCh);
}

void CRecorder::KeepRing(std::unique_ptr<BYTE[]> acRing) {
  prBoot->vKeptRings.push_back(std::move(acRing));
}

// -- from channel to channel ------------------------------------------------------------------------------------------

bool CRecorder::MixIn(int iDstCh, int iSrcCh) {
  BaseChannel* const prChannel = ChannelAt(iSrcCh);
  return prChannel != nullptr && prChannel->StartMixRecord(iDstCh);
}

void CRecorder::StopMixIn(int iSrcCh) {
  if (BaseChannel* prChannel = ChannelAt(iSrcCh)) prChannel->StopMixRecord();
}

void CRecorder::MixAudio(int iBaseCh, BYTE* data, int size) {
  if (BaseChannel* prChannel = ChannelAt(iBaseCh)) prChannel->MixAudio(data, size);
}

void CRecorder::LinkedChannel(int iBaseCh, int iLinkedCh) {
  if (BaseChannel* prChannel = ChannelAt(iLinkedCh)) prChannel->SetBaseChannel(iBaseCh);
}

void CRecorder::ChannelDigit(int iBaseCh, char ch) {
  if (BaseChannel* prChannel = ChannelAt(iBaseCh)) prChannel->LinkedChannelDigit(ch);
}

// -- orders from outside ----------------------------------------------------------------------------------------------

BaseChannel* CRecorder::FindCall(const std::string& strCallId) {
  assert(OnMainThread());
  for (BaseChannel* prChannel : vChannels) {
    if (prChannel->IsMeantBy(strCallId)) return prChannel;
  }
  return nullptr;
}

int CRecorder::SilencingAct(const std::string& strCallId, bool fSound) {
  BaseChannel* prChannel = FindCall(strCallId);
  return prChannel ? ResultOf(prChannel->TrySetSilencing(!fSound)) : ACT_UNKNOWN_CALL;
}

int CRecorder::RecOnDmdAct(const std::string& strCallId, bool fStart) {
  BaseChannel* prChannel = FindCall(strCallId);
  return prChannel ? ResultOf(prChannel->RecOnDmdAct(fStart)) : ACT_UNKNOWN_CALL;
}

int CRecorder::DelOnDmdAct(const std::string& strCallId) {
  BaseChannel* prChannel = FindCall(strCallId);
  return prChannel ? ResultOf(prChannel->DeleteAct()) : ACT_UNKNOWN_CALL;
}

// The two lines of the log here show the driver channel plus 1 where others show the line number. That is kept, as the
// texts are given. The remote number is compared as it is stored, with its last digits masked when so configured.
int CRecorder::ChLocal(const std::string& strLocalPhoneNumber, const std::string& strRemotePhoneNumber,
                       bool stopstart) {
  assert(OnMainThread());
  for (std::size_t i = 0; i < vChannels.size(); i++) {
    const std::string strNum = vChannels[i]->GetDbRemoteNum();
    if (strNum != strRemotePhoneNumber && "00" + strNum != strRemotePhoneNumber) continue;
    lg(LOG_NOTICE, "[%d] Channel found for RemoteNumber: %s", static_cast<int>(i) + 1, strRemotePhoneNumber.c_str());
    return ResultOf(vChannels[i]->ChangeLocalOrder(strLocalPhoneNumber, strRemotePhoneNumber, stopstart));
  }
  return fCrecTestSwapLocRem ? ChLocalSwapped(strLocalPhoneNumber, strRemotePhoneNumber, stopstart) : ACT_UNKNOWN_CALL;
}

int CRecorder::ChLocalSwapped(const std::string& strLocalPhoneNumber, const std::string& strRemotePhoneNumber,
                              bool stopstart) {
  for (std::size_t i = 0; i < vChannels.size(); i++) {
    const std::string strNum = vChannels[i]->GetDbRemoteNum();
    if (strNum.empty() || strNum != strLocalPhoneNumber) continue;
    lg(LOG_NOTICE, "[%d] Channel found (second attempt) for RemoteNumber: %s", static_cast<int>(i) + 1,
       strLocalPhoneNumber.c_str());
    return ResultOf(vChannels[i]->ChangeLocalOrder(strRemotePhoneNumber, strLocalPhoneNumber, stopstart));
  }
  return ACT_UNKNOWN_CALL;
}
