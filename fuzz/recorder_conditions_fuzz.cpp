// Condition lists, as a technician types them into the settings.
#include "FuzzCheck.h"
#include "recorder_conditions.h"

namespace {

std::vector<StartStopCnd> Conditions(const std::string& strList) {
  std::vector<StartStopCnd> vCnds;
  AddCndList(strList, vCnds);
  return vCnds;
}

// In the grammar of the settings.
std::string ToText(const std::vector<StartStopCnd>& vCnds) {
  std::string strList;
  for (const StartStopCnd& rCnd : vCnds) {
    char acItem[40];
    (void)snprintf(acItem, sizeof acItem, rCnd.fSubReason ? " %x.%X ," : "%X,", rCnd.dwEvent, rCnd.dwSubReason);
    strList += acItem;
  }
  return strList;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::vector<StartStopCnd> vCnds = Conditions(FuzzText(prData, iSize));
  for (const StartStopCnd& rCnd : vCnds) {
    FuzzCheck(rCnd.dwEvent != 0, "no condition on event 0");
    FuzzCheck(rCnd.fSubReason || rCnd.dwSubReason == 0, "a sub-reason is known to be one");
    FuzzCheck(IsCondition(vCnds, rCnd.dwEvent, rCnd.dwSubReason), "each condition of the list is met");
  }
  FuzzCheck(!IsCondition(vCnds, 0, 0), "event 0 meets no condition");
  FuzzCheck(ToText(Conditions(ToText(vCnds))) == ToText(vCnds), "a list written again reads the same");
  return 0;
}
