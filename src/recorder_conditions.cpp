// The condition lists of the boards: read, parsed and asked. The four look-ups stand twice, since a channel asks the
// recorder, and the lists are the boot object's.
#include "recorder_conditions.h"

#include <cctype>

#include "fstring.h"
#include "recorder.h"
#include "recorder_boot.h"

namespace {

// The hexadecimal digits at the start of a text; of more than eight the last eight count. 0 when there are none.
unsigned int LeadingHex(const std::string& strText) {
  unsigned int dwValue = 0;
  for (const char ch : strText) {
    if (!isxdigit(static_cast<unsigned char>(ch))) break;
    const int iDigit = isdigit(static_cast<unsigned char>(ch)) ? ch - '0' : tolower(ch) - 'a' + 10;
    dwValue = dwValue << 4 | static_cast<unsigned int>(iDigit);
  }
  return dwValue;
}

}  // namespace

// -- lists ------------------------------------------------------------------------------------------------------------

void AddCndList(const std::string& strList, std::vector<StartStopCnd>& arr) {
  for (const std::string& strItem : TrimmedItems(strList)) {
    StartStopCnd rCnd;
    rCnd.dwEvent = LeadingHex(strItem);
    if (rCnd.dwEvent == 0) continue;
    const std::size_t iPoint = strItem.find('.');
    rCnd.fSubReason = iPoint != std::string::npos;
    if (rCnd.fSubReason) rCnd.dwSubReason = LeadingHex(strItem.substr(iPoint + 1));
    arr.push_back(rCnd);
  }
}

bool IsCondition(const std::vector<StartStopCnd>& arr, unsigned int dwEvent, unsigned int dwSubReason) {
  for (const StartStopCnd& rCnd : arr) {
    if (rCnd.dwEvent == dwEvent && (!rCnd.fSubReason || rCnd.dwSubReason == dwSubReason)) return true;
  }
  return false;
}

void TRecorderBoot::LoadBoardSettings() {
  struct CndList {
    const char* acKey;
    std::vector<StartStopCnd> TBoard::*vCnds;
  };
  static constexpr CndList CND_LISTS[] = {
      {"StartCndList", &TBoard::vStartCnds},
      {"StopCndList", &TBoard::vStopCnds},
      {"RingOnCndList", &TBoard::vRingOnCnds},
      {"RingOffCndList", &TBoard::vRingOffCnds},
  };
  for (TBoard& rBoard : vrBoardList) {
    for (const CndList& rList : CND_LISTS) {
      std::vector<StartStopCnd>& vCnds = rBoard.*rList.vCnds;
      vCnds.clear();
      AddCndList(ValueOf(rConfigs, rBoard.getId() + "_" + rList.acKey), vCnds);
    }
  }
}

// -- look-ups of a board ----------------------------------------------------------------------------------------------

bool TRecorderBoot::IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard && IsCondition(prBoard->vStartCnds, dwEvent, dwSubReason);
}

bool TRecorderBoot::IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard && IsCondition(prBoard->vStopCnds, dwEvent, dwSubReason);
}

bool TRecorderBoot::IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard && IsCondition(prBoard->vRingOnCnds, dwEvent, dwSubReason);
}

bool TRecorderBoot::IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard && IsCondition(prBoard->vRingOffCnds, dwEvent, dwSubReason);
}

bool CRecorder::IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  return prBoot->IsBoardStartCondition(iBoardListIx, dwEvent, dwSubReason);
}

bool CRecorder::IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  return prBoot->IsBoardStopCondition(iBoardListIx, dwEvent, dwSubReason);
}

bool CRecorder::IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  return prBoot->IsBoardRingOnCondition(iBoardListIx, dwEvent, dwSubReason);
}

bool CRecorder::IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason) {
  return prBoot->IsBoardRingOffCondition(iBoardListIx, dwEvent, dwSubReason);
}
