// The numbers of a call, the digits pressed on the line, and the actions that digit codes trigger.
// Numbers arrive late and piecemeal: caller id after the first ring, digits while dialling, a transfer in mid-call.
// Each change updates the active row and asks the recording rules again (PhoneNumberChanged), which may start, cut or
// cancel the recording. Digits are collected until none has come for a while; then they may stand in for a missing
// remote number (CheckDigitsExpired). The fields hold Latin-1; what is stored as a number is masked and converted on
// the way.
#include "BaseChannel.h"

#include <syslog.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "ftime.h"
#include "logging.h"

namespace {

constexpr int DIGIT_EXPIRY_S = 6;                // digits are judged when the last one is this old
constexpr std::size_t MAX_DIGITS = 100;          // strDigits stops growing here
constexpr std::size_t MIN_DIGITS_AS_REMOTE = 2;  // a single key is a menu choice rather than a number
constexpr std::size_t MIN_REAL_REMOTE = 3;       // a remote number this long is not replaced by digits

// A number that the line delivered, as against nothing, a stub, or a text such as "private".
bool IsRealRemoteNum(const std::string& strNum) {
  return strNum.size() >= MIN_REAL_REMOTE && strNum[0] >= '0' && strNum[0] <= '9';
}

}  // namespace

// -- the numbers as others see them -----------------------------------------------------------------------------------

std::string BaseChannel::GetDbRemoteNum() const {
  const int iMask = prRecorder->iMaskLastRemoteDigits;
  if (iMask < 1) return strRemoteNum;
  const std::size_t iMasked = std::min(strRemoteNum.size(), static_cast<std::size_t>(iMask));
  return strRemoteNum.substr(0, strRemoteNum.size() - iMasked) + std::string(iMasked, 'X');
}

std::string BaseChannel::GetLocalNum() const {
  return rCustomLocal.fFound ? rCustomLocal.strText : Latin1ToUtf8(strLocalNum);
}

bool BaseChannel::QUseLocalNum() const {
  return fUseLocalNum || rCustomLocal.fFound;
}

// -- changes of a number ----------------------------------------------------------------------------------------------

void BaseChannel::SetRemoteNum(std::string strNum) {
  strRemoteNum = std::move(strNum);
  RemoteNumberChanged();
}

void BaseChannel::RemoteNumberChanged() {
  DropStaleOrder();  // by the age of the number before
  RemoteNumberTold();
  lg(LOG_NOTICE, "[%d] Remote: %s", iChannel, strRemoteNum.c_str());
  const std::string strDbRemoteNum = GetDbRemoteNum();
  if (iActiveCallID != -1) UpdateActiveNumbers(strDbRemoteNum);
  strPrevConnectedNum = strConnectedNum;
  strPrevRemoteNum = strDbRemoteNum;
  if (fCallBusy) PhoneNumberChanged(/*stopIsFinal=*/true);
}

// Writes what differs from the last change to the active row.
void BaseChannel::UpdateActiveNumbers(const std::string& strDbRemoteNum) {
  IDatabase* const prDB = prRecorder->GetDatabaseHandle();
  if (strDbRemoteNum != strPrevRemoteNum) {
    Contact rContact = KnownRemoteContact(prDB);
    prDB->UpdateActiveCallRemoteContact(iActiveCallID, rContact, Latin1ToUtf8(strDbRemoteNum));
  }
  if (strConnectedNum != strPrevConnectedNum) {
    Contact rContact = ConnectedNumContact(prDB);
    prDB->UpdateActiveCallConnectedNum(iActiveCallID, rContact, Latin1ToUtf8(strConnectedNum));
  }
}

bool BaseChannel::ChangeLocalNum(std::string strLocalPhoneNum) {
  lg(LOG_NOTICE, "[%d] Local Number Changed: %s.", iChannel, strLocalPhoneNum.c_str());
  if (iActiveCallID != -1 && strLocalNum != strLocalPhoneNum) {
    IDatabase* const prDB = prRecorder->GetDatabaseHandle();
    const std::string strUtf8 = Latin1ToUtf8(strLocalPhoneNum);
    Contact rContact = prDB->GetCallerIDContact(strUtf8);
    prDB->UpdateActiveCallLocalContact(iActiveCallID, rContact, strUtf8);
  }
  TakeMonitoredNum(std::move(strLocalPhoneNum));
  if (fCallBusy) PhoneNumberChanged(/*stopIsFinal=*/false);
  return true;
}

// A local number outlives its call. So it is not left on a line that the order finds without one, by a number that
// stands from the call before, or by none; but a call that is announced by its number may be told its local party. That
// order waits for its call: one that never comes leaves the line as it was.
bool BaseChannel::ChangeLocalOrder(std::string strLocalPhoneNum, const std::string& strRemotePhoneNum, bool stopstart) {
  if (fCallBusy) return LocalNumberChanged(std::move(strLocalPhoneNum), strRemotePhoneNum, stopstart);
  if (!IsCallComing()) {
    LogNoCall();
    return true;
  }
  LogLocalChange(strLocalPhoneNum);
  rWaitingOrder = WaitingOrder{std::move(strLocalPhoneNum), strRemoteNum, stopstart};
  return true;
}

void BaseChannel::DropStaleOrder() {
  if (rWaitingOrder && (!IsCallComing() || strRemoteNum != rWaitingOrder->strRemoteNum)) rWaitingOrder.reset();
}

// There is no recording yet that a transfer could cut.
void BaseChannel::TakeWaitingOrder() {
  DropStaleOrder();
  const std::optional<WaitingOrder> rOrder = std::exchange(rWaitingOrder, std::nullopt);
  if (!rOrder || strLocalNum == rOrder->strLocalNum) return;
  if (rOrder->stopstart) {
    TransferTo(rOrder->strLocalNum);
  } else {
    (void)ChangeLocalNum(rOrder->strLocalNum);
  }
}

void BaseChannel::LogLocalChange(const std::string& strLocalPhoneNum) const {
  lg(LOG_NOTICE, "[%d] LocalNumberChanged. Change: %s to: %s.", iChannel, strLocalNum.c_str(),
     strLocalPhoneNum.c_str());
}

bool BaseChannel::LocalNumberChanged(std::string strLocalPhoneNum, const std::string& /*strRemotePhoneNum*/,
                                     bool stopstart) {
  LogLocalChange(strLocalPhoneNum);
  if (strLocalNum == strLocalPhoneNum) return true;
  if (!stopstart) return ChangeLocalNum(std::move(strLocalPhoneNum));

  // A transfer: what was said so far belongs to the old party, so this recording ends and another starts.
  lg(LOG_NOTICE, "[%d] LocalNumberChanged: STOP", iChannel);
  FinalizeRecording(/*fClearInfo=*/false);
  TransferTo(std::move(strLocalPhoneNum));
  lg(LOG_NOTICE, "[%d] LocalNumberChanged: START", iChannel);
  TryStartRecording();
  return true;
}

void BaseChannel::TransferTo(std::string strLocalPhoneNum) {
  if (strLocalPhoneNum.empty()) {
    lg(LOG_NOTICE, "[%d] LocalNumberChanged: Transfer to non-monitored phone", iChannel);
    strLocalNum = strNonMonitoredNum;
  } else {
    lg(LOG_NOTICE, "[%d] LocalNumberChanged: Transfer to monitored phone", iChannel);
    TakeMonitoredNum(std::move(strLocalPhoneNum));
  }
}

// From here on the number identifies the local side. The first number that the line had is kept as its own.
void BaseChannel::TakeMonitoredNum(std::string strLocalPhoneNum) {
  fUseLocalNum = true;
  if (strNonMonitoredNum.empty()) strNonMonitoredNum = strLocalNum;
  strLocalNum = std::move(strLocalPhoneNum);
}

void BaseChannel::PhoneNumberChanged(bool stopIsFinal) {
  if (!fCallBusy) return;
  if (fRecording && !MayStartRecording(/*fTell=*/true)) {
    if (stopIsFinal) {
      fDontRecord = true;
    } else {
      fDontKeepThisPart = true;
    }
    FinalizeRecording(/*fClearInfo=*/false);
  }
  if (!fRecording) TryStartRecording();  // a call that was not allowed so far may be with this number
  if (fCallBusy && GetNewRecOnDmd() && !fRecOnDmd) {
    lg(LOG_NOTICE, "[%d] Phone number change enabled recording on demand", iChannel);
    fDontKeepThisPart = true;  // nobody has asked for what was recorded so far
    FinalizeRecording(/*fClearInfo=*/false);
    TryStartRecording();
  }
}

// -- digits -----------------------------------------------------------------------------------------------------------

void BaseChannel::CheckDigitsExpired(bool fForceExpired) {
  if (strDigits.empty()) return;
  if (GetSrTime() - rDigitTime < DIGIT_EXPIRY_S && !fForceExpired) return;
  WhenDigitExpiring();
  lg(LOG_NOTICE, "[%d] Previous digits expired", iChannel);
  if (fUsePressedDigitsForRemote && strDigits.size() >= MIN_DIGITS_AS_REMOTE) {
    CheckRemoteExpired();
    if (!IsRealRemoteNum(strRemoteNum)) SetRemoteNum(strDigits);
  }
  strDigits.clear();
}

void BaseChannel::DetectedDigit(char ch) {
  CheckDigitsExpired(/*fForceExpired=*/false);
  rDigitTime = GetSrTime();  // also for a digit that is ignored: it tells that someone dials here
  if (fDigitFreeze || strDigits.size() >= MAX_DIGITS) return;
  strDigits += ch;
  lg(LOG_NOTICE, "[%d] Digits: %s", iChannel, strDigits.c_str());
  // The digits stay after an action, so that one more digit can complete a longer code.
  const std::string strAction = prRecorder->GetDtmfAct(strDigits);
  if (!strAction.empty()) DtmfAction(strAction);
}

void BaseChannel::LinkedChannelDigit(char ch) {
  DetectedDigit(ch);
}

const BaseChannel::DtmfRow BaseChannel::rDtmfRows[] = {
    {"email", [](BaseChannel& rChannel) { rChannel.fToEmail = true; }},
    {"email2",
     [](BaseChannel& rChannel) { rChannel.prRecorder->EmailBackRecording(rChannel.iActiveContactLocal, /*iBack=*/1); }},
    {"keep",
     [](BaseChannel& rChannel) {
       rChannel.prRecorder->GetDatabaseHandle()->SetActiveCallExtra(rChannel.iActiveCallID, "to-keep", "1");
     }},
    {"silence", [](BaseChannel& rChannel) { (void)rChannel.TrySetSilencing(true); }},  // refusals log themselves
    {"sound", [](BaseChannel& rChannel) { (void)rChannel.TrySetSilencing(false); }},
    {"start", [](BaseChannel& rChannel) { (void)rChannel.RecOnDmdAct(true); }},
    {"stop", [](BaseChannel& rChannel) { (void)rChannel.RecOnDmdAct(false); }},
    {"delete", [](BaseChannel& rChannel) { (void)rChannel.DeleteAct(); }},
};

void BaseChannel::DtmfAction(const std::string& strAction) {
  lg(LOG_NOTICE, "[%d] Action to perform: %s", iChannel, strAction.c_str());
  if (iActiveCallID == -1) {
    LogNoCall();
    return;
  }
  for (const DtmfRow& rRow : rDtmfRows) {
    if (strAction == rRow.acAction) rRow.Do(*this);
  }
}
