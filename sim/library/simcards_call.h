// simcards_call: the frame of every library operation: lock, record of calls, faults on order, text of the last
// failure.
// Threads:   the caller's; the lock is held until the Call goes out of scope.
#pragma once

#include <mutex>
#include <string>

#include "simcards_state.h"

namespace simcards {

inline std::string ArgText(const char* acText) {
  return acText == nullptr ? "null" : '"' + std::string(acText) + '"';
}
template <typename T>
std::string ArgText(T iValue) {
  return std::to_string(iValue);
}

class Call {
 public:
  enum EListing { LISTED, UNLISTED };  // whether TakeCalls tells of the call

  template <typename... Args>
  Call(EListing eListing, const char* acOperation, Args... args)
      : rState(TheState()), rLock(Enter(rState)), acName(acOperation) {
    if (eListing == LISTED) {
      std::string strArgs;
      ((strArgs += (strArgs.empty() ? "" : ",") + ArgText(args)), ...);
      rState.Note(std::string(acName) + "(" + strArgs + ")");
    }
    TakeFault();
  }

  // True when a fault was ordered, or the library is not started; iResult is then what the operation returns.
  bool Refused(bool fNeedsStart = true) {
    if (!fRefused && fNeedsStart && rState.eMode == MODE_CLOSED) {
      iResult = Fail("the driver is not started");
      fRefused = true;
    }
    return fRefused;
  }
  // The channel, or null after keeping the text of the failure.
  Channel* ChannelAt(int nCh) {
    Channel* prChannel = rState.At(nCh);
    if (prChannel == nullptr) (void)Fail("channel " + std::to_string(nCh) + " does not exist");
    return prChannel;
  }
  Circuit* CircuitAt(int nCic) {
    const auto it = rState.rCircuits.find(nCic);
    if (it != rState.rCircuits.end()) return &it->second;
    (void)Fail("circuit " + std::to_string(nCic) + " does not exist");
    return nullptr;
  }
  // Keeps "<operation>: <text>" for SsmGetLastErrMsg and gives the result of a failure.
  int Fail(const std::string& strText) {
    rState.strLastError = std::string(acName) + ": " + strText;
    return SSM_FAILED;
  }

  State& rState;
  std::unique_lock<std::mutex> rLock;
  int iResult = SSM_OK;

 private:
  static std::unique_lock<std::mutex> Enter(State& rState) {
    rState.iCallers++;
    std::unique_lock<std::mutex> rEntered(rState.rMutex);
    rState.iCallers--;
    return rEntered;
  }
  void TakeFault() {
    if (rState.rFaults.empty()) return;
    const auto it = rState.rFaults.find(acName);
    if (it == rState.rFaults.end()) return;
    fRefused = true;
    iResult = it->second.iResult;
    rState.strLastError = it->second.strText;
    if (--it->second.iTimes <= 0) rState.rFaults.erase(it);
  }

  const char* acName;
  bool fRefused = false;
};

}  // namespace simcards
