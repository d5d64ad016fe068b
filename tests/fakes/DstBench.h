// DstBench: a telephone on driver channel 0, line 5, that a test drives by what the card reports. Calls are barred from
// recording unless a test allows them: their start then shows as the refusal.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "ChannelBench.h"
#include "DstChannel.h"

class DstBench : public ChannelBench {
 protected:
  DstBench() {
    BarRecording();
    rRecorder.strDataDir = "/tmp/";
    ForgetTraces();
  }

  // A telephone at this PBX that has just been taken into use; the one before it is gone.
  void Init(const char* acPbxType = "", const StdStringMap& rSettings = {}, int iPhoneType = 0) {
    rRecorder.strPbxType = acPbxType;
    rRecorder.rBoardParams = {{"SilenceT", "15"}, {"AudioSens", "6"}};  // what the recorder gives when none is set
    for (const auto& [strKey, strValue] : rSettings) rRecorder.rBoardParams[strKey] = strValue;
    rRecorder.rChannelParams["PhoneType"] = std::to_string(iPhoneType);
    TakeLine(std::make_unique<DST_Channel>());
    InitLine(*prLine, 5);
  }
  // This one from now on, also for the recorder, which tells it the time.
  void TakeLine(std::unique_ptr<DST_Channel> prNew) {
    prLine = std::move(prNew);
    rRecorder.vChannels = {prLine.get()};
  }
  void InitMode(int iTdmStart, const char* acPbxType = "") {
    Init(acPbxType, {{"TdmStart", std::to_string(iTdmStart)}});
  }

  // -- what the card reports ------------------------------------------------------------------------------------------
  void Event(WORD wEventCode, DWORD dwParam) { Send(*prLine, wEventCode, dwParam); }
  void DMsg(DWORD dwCode, DWORD dwValue = 0) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, dwValue);
    prLine->HandleEvent(&rEvent);
  }
  void DText(DWORD dwCode, std::string strText, DWORD dwValue = 0) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, dwValue, &strText);
    prLine->HandleEvent(&rEvent);
  }
  void OffHook() { DMsg(DMSG_OFF_HOOK); }
  void OnHook() { DMsg(DMSG_ON_HOOK); }
  void Display(const std::string& strText) { DText(DMSG_DISPLAY, strText); }
  void Keys(const std::string& strDigits) {
    for (const char ch : strDigits) DMsg(DMSG_KEY_DIGIT, static_cast<DWORD>(ch));
  }

  // -- what others see ------------------------------------------------------------------------------------------------
  // The log of one display, without the line that shows the display itself.
  Texts Shown(const std::string& strText) {
    ForgetTraces();
    Display(strText);
    Texts astrLines = Log();
    EXPECT_EQ("5 [5] Message change:" + strText, astrLines.empty() ? "" : astrLines.front());
    if (!astrLines.empty()) astrLines.erase(astrLines.begin());
    return astrLines;
  }
  // The local number that a restart would find, on a line that keeps it; in UTF-8.
  std::string KeptLocalNum() {
    (void)Orders();
    prLine->Finalize();
    const Texts astrOrders = Orders();
    const std::string strOrder = "SetCachedLocalNum 0 0 ";
    return astrOrders.size() == 1 && astrOrders[0].rfind(strOrder, 0) == 0 ? astrOrders[0].substr(strOrder.size())
                                                                           : "(not kept)";
  }

  static constexpr const char* NEW_RING = "5 [5] A new ring and expire remote";
  static constexpr const char* FIRST_FILE = "/recordings/1970/01/12/13/19700112_134640_005_01.wav";

  std::unique_ptr<DST_Channel> prLine;
};
