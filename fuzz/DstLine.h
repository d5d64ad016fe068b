// DstLine: a station line made from an input's first choices, with rules that hold after every event.
// The line's calls are barred, or wait for a demand that never comes: call rows are written, audio is not.
#pragma once

#include "DstChannel.h"
#include "FakeRecorder.h"
#include "FuzzBytes.h"
#include "FuzzCheck.h"
#include "LogSink.h"
#include "OpenTelephone.h"
#include "ftime.h"
#include "simcards.h"

class DstLine {
 public:
  explicit DstLine(FuzzBytes& rBytes) {
    simcards::Reset();
    simcards::AddBoard(0, 1, CH_DST);
    SetSimTime(rNow);
    static const char* const acPbxTypes[] = {"",          "NEC",         "PANASONIC", "Siemens Hicom", "Belgacom",
                                             "Alcatel 4", "Aastra 5000", "Avaya Mer", "Ericsson MD",   "ISDN BRI"};
    rRecorder.strPbxType = acPbxTypes[rBytes.Below(std::size(acPbxTypes))];
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rBytes.Below(4));
    const unsigned uiSwitches = rBytes.Byte();
    rRecorder.rBoardParams["AudioDetect"] = (uiSwitches & 1) != 0 ? "1" : "0";
    rRecorder.rBoardParams["DetectDtmf"] = (uiSwitches & 2) != 0 ? "1" : "0";
    rRecorder.rBoardParams["MissedCalls"] = (uiSwitches & 4) != 0 ? "1" : "0";
    rRecorder.rChannelParams["PhoneType"] = (uiSwitches & 8) != 0 ? "1" : "0";
    if ((uiSwitches & 16) != 0) rRecorder.rSpecials.insert("Pilot");
    if ((uiSwitches & 32) != 0) rRecorder.strCachedLocalNum = "1234";
    if ((uiSwitches & 64) != 0) rRecorder.rStartCnds = rRecorder.rStopCnds = {{0x1001, 0}, {0x1001, 1}};
    if ((uiSwitches & 128) != 0) {
      rRecorder.rChannelParams["RecOnDmd"] = "1";
    } else {
      rRecorder.iNumberFilterType = 1;  // only listed numbers, and none is
    }
    rRecorder.vChannels = {&rChannel};
    rChannel.Init(/*iChannel=*/1, /*iBoardListIx=*/0, /*iBoardCh=*/0, &rRecorder, /*iDrvCh=*/0);
    isOnDemand = rChannel.fRecOnDmd;
  }
  DstLine(const DstLine&) = delete;
  DstLine& operator=(const DstLine&) = delete;
  ~DstLine() {
    rChannel.EndOfCall();
    rChannel.Finalize();
    (void)logsink::Take();
  }

  void Send(WORD wEventCode, DWORD dwParam, DWORD dwSubReason, std::string strData) {
    SSM_EVENT rEvent = simcards::MakeEvent(wEventCode, 0, dwParam, dwSubReason, &strData);
    rChannel.HandleEvent(&rEvent);
    CheckRules();
  }
  void PassSeconds(unsigned uiSeconds) {
    SetSimTime(rNow += uiSeconds);
    rChannel.Periodic();
    CheckRules();
  }

  OpenTelephone rChannel;

 private:
  void CheckRules() {
    (void)logsink::Take();
    FuzzCheck(rChannel.fCallBusy == rChannel.InCall(), "a call goes on exactly while a flag holds it");
    FuzzCheck(!rChannel.fRecording, "nothing is recorded on a line that is barred or waits for a demand");
    FuzzCheck(isOnDemand || rChannel.iActiveCallID == -1, "a barred line has no active row");
    FuzzCheck(rChannel.strDigits.size() <= 100, "digits stop growing");
    FuzzCheck(!rChannel.fInCall_ToneAnalyze || rChannel.fCallBusy || rChannel.iTdmStart == TDM_START_MUTELT_AND_TONE,
              "tones make a call in their start mode only");
    FuzzCheck(memchr(rChannel.acPhoneDisp, '\0', sizeof rChannel.acPhoneDisp) != nullptr, "a display text ends");
    FuzzCheck(memchr(rChannel.strChangeLocalNum, '\0', sizeof rChannel.strChangeLocalNum) != nullptr,
              "a change-local text ends");
    FuzzCheck(rChannel.GetDbRemoteNum() == rChannel.strRemoteNum, "nothing is masked");
  }

  time_t rNow = 1'700'000'000;
  FakeRecorder rRecorder;
  bool isOnDemand = false;
};
