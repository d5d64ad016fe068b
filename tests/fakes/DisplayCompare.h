// DisplayCompare: runs one display through the daemon's channel and through the oracle, and tells where they differ.
// The line has no recording and no active row, and the call is barred, so that a new number changes nothing but the
// line's own fields and the log.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "DisplayOracle.h"
#include "DstChannel.h"
#include "FakeRecorder.h"
#include "LogSink.h"
#include "OpenTelephone.h"
#include "ftime.h"

// A text with every byte outside plain ASCII as an escape, to be pasted into a test.
inline std::string Quoted(const std::string& strText) {
  std::string strQuoted = "\"";
  for (const char ch : strText) {
    char acEscape[8];
    if (ch == '\n') {
      strQuoted += "\\n";
    } else if (ch == '"' || ch == '\\') {
      strQuoted += std::string("\\") + ch;
    } else if (ch < ' ' || ch > '~') {
      (void)snprintf(acEscape, sizeof acEscape, "\\%03o", static_cast<unsigned char>(ch));
      strQuoted += acEscape;
    } else {
      strQuoted += ch;
    }
  }
  return strQuoted + "\"";
}

// All that an analysis reads and writes, one fact a line.
inline std::string Describe(const oracle::Line& rLine) {
  std::string strAll;
  const auto Text = [&](const char* acName, const std::string& strText) {
    strAll += std::string("  ") + acName + " " + Quoted(strText) + "\n";
  };
  const auto Number = [&](const char* acName, long long iValue) {
    strAll += std::string("  ") + acName + " " + std::to_string(iValue) + "\n";
  };
  Text("text", rLine.strText);
  Number("iPbxType", rLine.iPbxType);
  Number("iTdmStart", rLine.iTdmStart);
  Number("iLocalNumSize", rLine.iLocalNumSize);
  Number("fAllowEqualRemoteLenChange", rLine.fAllowEqualRemoteLenChange);
  Number("fLateChange", rLine.fLateChange);
  Number("fCheckForMultipleTelNum", rLine.fCheckForMultipleTelNum);
  Number("fSpecial_Pilot", rLine.fSpecial_Pilot);
  Text("strLocalNum", rLine.strLocalNum);
  Text("strLocalName", rLine.strLocalName);
  Text("strPrevCallRemoteNum", rLine.strPrevCallRemoteNum);
  Number("fCallBusy", rLine.fCallBusy);
  Number("fRinging", rLine.fRinging);
  Number("rNow", rLine.rNow);
  Number("rStartTime", rLine.rStartTime);
  Number("rFirstRing", rLine.rFirstRing);
  Number("rLastRing", rLine.rLastRing);
  Text("strRemoteNum", rLine.strRemoteNum);
  Text("strConnectedNum", rLine.strConnectedNum);
  Text("strDigits", rLine.strDigits);
  Text("strPrevRemoteNum", rLine.strPrevRemoteNum);
  Text("strPrevConnectedNum", rLine.strPrevConnectedNum);
  Number("fHasConnectedNum", rLine.fHasConnectedNum);
  Number("fDigitFreeze", rLine.fDigitFreeze);
  Number("rRemoteNumTime", rLine.rRemoteNumTime);
  Number("rAlmostLocalNum", rLine.rAlmostLocalNum);
  Number("rLoginBusy", rLine.rLoginBusy);
  for (const std::string& strLog : rLine.astrLog) Text("log", strLog);
  return strAll;
}

// What an analysis may change, to be compared.
inline auto Outcome(const oracle::Line& rLine) {
  return std::tie(rLine.astrLog, rLine.strRemoteNum, rLine.strConnectedNum, rLine.strDigits, rLine.strPrevRemoteNum,
                  rLine.strPrevConnectedNum, rLine.fHasConnectedNum, rLine.fDigitFreeze, rLine.rRemoteNumTime,
                  rLine.rAlmostLocalNum, rLine.rLoginBusy, rLine.strLocalNum, rLine.strPrevCallRemoteNum,
                  rLine.fCallBusy, rLine.fRinging, rLine.rStartTime, rLine.rFirstRing, rLine.rLastRing);
}

enum ECompareHow { COMPARE_CALL, COMPARE_RESET, COMPARE_MESSAGE, COMPARE_HOWS };

class DisplayCompare {
 public:
  DisplayCompare() { rChannel.prRecorder = &rRecorder; }

  // Empty when both agree, else the line before and after, ready for a reader.
  std::string Compare(const oracle::Line& rBefore, ECompareHow eHow) {
    const std::string strStep = CompareSteps(rBefore);
    if (!strStep.empty()) return strStep + " differs on\n" + Describe(rBefore);

    oracle::Line rWanted = rBefore;
    if (eHow == COMPARE_CALL) oracle::AnalyseCID(rWanted);
    if (eHow == COMPARE_RESET) oracle::AnalyseCID_ForReset(rWanted);
    if (eHow == COMPARE_MESSAGE) oracle::OnDisplay(rWanted, rBefore.strText);

    SetLine(rBefore);
    if (eHow == COMPARE_CALL) rChannel.AnalyseCID();
    if (eHow == COMPARE_RESET) rChannel.AnalyseCID_ForReset();
    if (eHow == COMPARE_MESSAGE) SendDisplay(rBefore.strText);
    const oracle::Line rGot = GetLine();
    if (Outcome(rWanted) == Outcome(rGot)) return "";
    return "analysis " + std::to_string(eHow) + " differs on\n" + Describe(rBefore) + "oracle:\n" + Describe(rWanted) +
           "channel:\n" + Describe(rGot);
  }

 private:
  // The single steps; the name of the first that differs.
  std::string CompareSteps(const oracle::Line& rBefore) {
    const std::string strText = rBefore.strText.substr(0, rBefore.strText.find('\0'));
    for (int i = 0; i <= static_cast<int>(strText.size()); i++) {
      if (strText[static_cast<std::size_t>(i)] != '2' && i % 16 != 0) continue;  // of those that are no year, only some
      if (oracle::IsDateInStrYearPos(strText, i) != IsDateInStrYearPos(strText.c_str(), i)) {
        return "IsDateInStrYearPos at " + std::to_string(i);
      }
    }
    std::string strWanted = "kept", strGot = "kept";
    const bool fWantedA5000 = oracle::ExtractA5000Name(strText, strWanted);
    if (fWantedA5000 != ExtractA5000Name(strText.c_str(), strGot) || strWanted != strGot) return "ExtractA5000Name";

    oracle::Line rNamed = rBefore;
    SetLine(rBefore);
    strWanted = strGot = rBefore.strConnectedNum;
    const bool fWantedName = oracle::CheckForName(rNamed, strWanted);
    if (fWantedName != rChannel.CheckForName(strGot) || strWanted != strGot) return "CheckForName";

    strWanted = strGot = rBefore.strRemoteNum;
    const bool fWantedScan = oracle::AnalyseCIDsub(rBefore, strWanted);
    if (fWantedScan != rChannel.AnalyseCIDsub(strGot) || strWanted != strGot) {
      return "AnalyseCIDsub (" + strWanted + " or " + strGot + ")";
    }
    return "";
  }

  void SendDisplay(std::string strText) {
    SSM_EVENT rEvent{};
    rEvent.wEventCode = E_RCV_DSTDChannel;
    rEvent.dwParam = DMSG_DISPLAY;
    rEvent.pvBuffer = strText.data();
    rEvent.dwDataLength = rEvent.dwBufferLength = static_cast<DWORD>(strText.size());
    rChannel.HandleEvent(&rEvent);
  }

  void SetLine(const oracle::Line& rLine) {
    SetSimTime(rLine.rNow);
    (void)logsink::Take();
    const std::string strText = rLine.strText.substr(0, sizeof rChannel.acPhoneDisp - 1);
    memset(rChannel.acPhoneDisp, 0, sizeof rChannel.acPhoneDisp);
    memcpy(rChannel.acPhoneDisp, strText.data(), strText.size());
    rChannel.iChannel = rLine.iChannel;
    rChannel.fDontRecord = true;  // nothing starts
    rChannel.iPbxType = rLine.iPbxType;
    rChannel.iTdmStart = rLine.iTdmStart;
    rChannel.iLocalNumSize = rLine.iLocalNumSize;
    rChannel.fAllowEqualRemoteLenChange = rLine.fAllowEqualRemoteLenChange;
    rChannel.fLateChange = rLine.fLateChange;
    rChannel.fCheckForMultipleTelNum = rLine.fCheckForMultipleTelNum;
    rChannel.fSpecial_Pilot = rLine.fSpecial_Pilot;
    rChannel.strLocalNum = rLine.strLocalNum;
    rChannel.strLocalName = rLine.strLocalName;
    rChannel.strPrevCallRemoteNum = rLine.strPrevCallRemoteNum;
    rChannel.fCallBusy = rLine.fCallBusy;
    rChannel.fRinging = rLine.fRinging;
    rChannel.rStartTime = rLine.rStartTime;
    rChannel.rFirstRing = rLine.rFirstRing;
    rChannel.rLastRing = rLine.rLastRing;
    rChannel.strRemoteNum = rLine.strRemoteNum;
    rChannel.strConnectedNum = rLine.strConnectedNum;
    rChannel.strDigits = rLine.strDigits;
    rChannel.strPrevRemoteNum = rLine.strPrevRemoteNum;
    rChannel.strPrevConnectedNum = rLine.strPrevConnectedNum;
    rChannel.fHasConnectedNum = rLine.fHasConnectedNum;
    rChannel.fDigitFreeze = rLine.fDigitFreeze;
    rChannel.rRemoteNumTime = rLine.rRemoteNumTime;
    rChannel.rAlmostLocalNum = rLine.rAlmostLocalNum;
    rChannel.rLoginBusy = rLine.rLoginBusy;
  }

  oracle::Line GetLine() const {
    oracle::Line rLine;
    rLine.strText = rChannel.acPhoneDisp;
    rLine.iChannel = rChannel.iChannel;
    rLine.iPbxType = rChannel.iPbxType;
    rLine.iTdmStart = rChannel.iTdmStart;
    rLine.iLocalNumSize = rChannel.iLocalNumSize;
    rLine.fAllowEqualRemoteLenChange = rChannel.fAllowEqualRemoteLenChange;
    rLine.fLateChange = rChannel.fLateChange;
    rLine.fCheckForMultipleTelNum = rChannel.fCheckForMultipleTelNum;
    rLine.fSpecial_Pilot = rChannel.fSpecial_Pilot;
    rLine.strLocalNum = rChannel.strLocalNum;
    rLine.strLocalName = rChannel.strLocalName;
    rLine.strPrevCallRemoteNum = rChannel.strPrevCallRemoteNum;
    rLine.fCallBusy = rChannel.fCallBusy;
    rLine.fRinging = rChannel.fRinging;
    rLine.rNow = GetSrTime();
    rLine.rStartTime = rChannel.rStartTime;
    rLine.rFirstRing = rChannel.rFirstRing;
    rLine.rLastRing = rChannel.rLastRing;
    rLine.strRemoteNum = rChannel.strRemoteNum;
    rLine.strConnectedNum = rChannel.strConnectedNum;
    rLine.strDigits = rChannel.strDigits;
    rLine.strPrevRemoteNum = rChannel.strPrevRemoteNum;
    rLine.strPrevConnectedNum = rChannel.strPrevConnectedNum;
    rLine.fHasConnectedNum = rChannel.fHasConnectedNum;
    rLine.fDigitFreeze = rChannel.fDigitFreeze;
    rLine.rRemoteNumTime = rChannel.rRemoteNumTime;
    rLine.rAlmostLocalNum = rChannel.rAlmostLocalNum;
    rLine.rLoginBusy = rChannel.rLoginBusy;
    rLine.astrLog = logsink::TakeTexts();
    return rLine;
  }

  FakeRecorder rRecorder;
  OpenTelephone rChannel;
};
