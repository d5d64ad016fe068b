// CallBench: the bench for tests that tell a call event by event and judge it by what others see of it: the log, rows,
// files, the calls to the card and the orders to the recorder.
// The line has number 7, so its line row is 107 and its contact 1007, on driver channel 0; driver channel 1 is line 8,
// to be linked.
#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "ChannelBench.h"
#include "TestTools.h"
#include "callcodes.h"
#include "wavheader.h"

// A line of no special kind. It takes ring and hook from D-channel messages, each of which says one thing alone, and
// has the other events as an analogue line has them, without log lines of its own.
class EventLine : public TestChannel {
 public:
  EventLine() { iRecSource = SOURCE_ANALOG; }

  // -- kinds of lines, as the constructors of subclasses make them ----------------------------------------------------
  void BeOneThatRingsUntilPickup() { fRingsUntilPickup = true; }
  void BeOneThatIsDialledOn() { fUsePressedDigitsForRemote = true; }
  void BeOneWithConnectedNumbers() { fHasConnectedNum = true; }
  void BeOneThatForgetsItsOwnNumber() { fResetLocalNum = true; }
  void BeOneThatMeasuresLoudness() { fCalcLoudness = true; }
  void BeOnDemandByNumber() { isOnDemandByNumber = true; }

  // -- what signalling tells besides the events -----------------------------------------------------------------------
  void NumberFromSignalling(const std::string& strNum) { strRemoteNum = strNum; }  // without age, told with the call
  void DirectionFromSignalling(bool fIncomingCall) {
    fKnowIncoming = true;
    fIncoming = fIncomingCall;
  }
  void ConnectedTo(const std::string& strNum) {
    strConnectedNum = strNum;
    RemoteNumberChanged();
  }
  void CallProgressTone(bool fTone) { fHighSwitchedOff = fTone; }
  void OwnNumber(const std::string& strNum) { strLocalNum = strNum; }
  // Fields as callers hand them in.
  const std::string& RemoteField() const { return strRemoteNum; }
  const std::string& OwnField() const { return strNonMonitoredNum; }
  void IgnoreDigits() { fDigitFreeze = true; }
  void LinkWith(int iDrvChannel) { iLinkedCh = iDrvChannel; }

  void HandleEvent(SSM_EVENT* prEvent) override {
    BaseChannel::HandleEvent(prEvent);
    switch (prEvent->wEventCode) {
      case E_RCV_DSTDChannel:
        OnDMsg(prEvent->dwParam);
        break;
      case E_CHG_RcvDTMF:
        DetectedDigit(static_cast<char>(prEvent->dwParam));
        break;
      case E_CHG_CIDExBuf:
        strRemoteNum = SsmGetCallerIdA(iDrvCh);
        RemoteNumberChanged();
        break;
      default:
        DefaultEventHandle(prEvent);
        break;
    }
  }
  void ClearInfo() override {
    iClearInfos++;
    BaseChannel::ClearInfo();
  }
  bool GetNewRecOnDmd() override { return isOnDemandByNumber ? QRecOnDmd() : BaseChannel::GetNewRecOnDmd(); }

  int LevelOfStateFile() const { return iLast_dB; }

  int iClearInfos = 0;

 private:
  void OnDMsg(DWORD dwMessage) {
    if (dwMessage == DMSG_RING_ON) RingingStarted();
    if (dwMessage == DMSG_RING_OFF) RingingStopped();
    if (dwMessage == DMSG_OFF_HOOK || dwMessage == DMSG_ON_HOOK) {
      fInCall_ChState = dwMessage == DMSG_OFF_HOOK;
      InCallMaybeChanged();
    }
  }

  bool isOnDemandByNumber = false;
};

class CallBench : public ChannelBench {
 protected:
  static constexpr int LINE = 7;
  static constexpr int DRIVER_CH = 0;
  static constexpr int LINKED_CH = 1;
  static constexpr time_t CALL_START = 1706711025;  // 14:23:45 on the last day of a January, a Wednesday

  CallBench() {
    (void)umask(0);                                            // as the daemon runs
    std::filesystem::remove_all("/recordings/2024/01/31/14");  // the files of the test before
    SetClock(CALL_START);
    rRecorder.vChannels = {&rLine, &rLinked};
    InitLines({});
  }

  // Both lines anew with these settings, and no traces of it.
  void InitLines(const StdStringMap& rSettings) {
    rRecorder.rChannelParams = rSettings;
    InitLine(rLine, LINE, DRIVER_CH);
    InitLine(rLinked, LINE + 1, LINKED_CH);
  }
  void SetConfig(const char* acKey, const char* acValue) { rDatabase.rParts["o"][acKey] = acValue; }

  // -- what happens on the line ---------------------------------------------------------------------------------------
  void Ring() { Send(rLine, E_RCV_DSTDChannel, DMSG_RING_ON); }
  void RingStops() { Send(rLine, E_RCV_DSTDChannel, DMSG_RING_OFF); }
  void OffHook() { Send(rLine, E_RCV_DSTDChannel, DMSG_OFF_HOOK); }
  void OnHook() { Send(rLine, E_RCV_DSTDChannel, DMSG_ON_HOOK); }
  void CallerId(const std::string& strNum) {
    simcards::SetCallerId(DRIVER_CH, strNum);
    Send(rLine, E_CHG_CIDExBuf, 0);
  }
  void Press(const std::string& strDigits) {
    for (const char ch : strDigits) Send(rLine, E_CHG_RcvDTMF, static_cast<DWORD>(ch));
  }
  using ChannelBench::Hear;
  // The cards hear this many bytes on every line that records, and report them.
  void Hear(int iBytes) {
    simcards::Advance(iBytes);
    TakeCardEvents();
  }

  // -- files ----------------------------------------------------------------------------------------------------------
  // The file that the last line of a log tells of.
  static std::string FileToldIn(const Texts& astrLog) {
    const std::string strTold = "5 [7] Recording to file ";
    return astrLog.empty() || astrLog.back().find(strTold) != 0 ? "(none)" : astrLog.back().substr(strTold.size());
  }
  static std::string AudioOf(const std::string& strName) {
    const std::string strFile = ReadTestFile(strName);
    return strFile.size() < WAV_HEADER_BYTES ? "(no header)" : strFile.substr(WAV_HEADER_BYTES);
  }

  FakeDatabase& rDatabase = rRecorder.rDatabase;
  EventLine rLine;
  EventLine rLinked;
};
