// Only the time is read here; the rest of a line is an action as everywhere. A wrong line is told and left out, so that
// one reading names all that is wrong in a file; times then count on from the last line that was right.

#include "scenario.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace simcards {
namespace {

bool IsBlank(char ch) {
  return ch == ' ' || ch == '\t' || ch == '\r';
}

bool ParseTime(const std::string& strTime, ScenarioLine& rLine) {
  rLine.fRelative = strTime[0] == '+';
  const char* acNumber = strTime.c_str() + (rLine.fRelative ? 1 : 0);
  if (*acNumber < '0' || *acNumber > '9') return false;  // strtod would take a sign, "inf" and more
  char* acEnd = nullptr;
  rLine.dTime = std::strtod(acNumber, &acEnd);
  return *acEnd == '\0' && std::isfinite(rLine.dTime);
}

// Empty on success. dEarliest: when the line above is due at the earliest.
std::string ParseLine(const std::string& strLine, std::size_t iStart, double dEarliest, ScenarioLine& rLine) {
  const std::size_t iEnd = std::min(strLine.find_first_of(" \t\r", iStart), strLine.size());
  const std::string strTime = strLine.substr(iStart, iEnd - iStart);
  if (!ParseTime(strTime, rLine)) return "expected a time such as 2.5 or +0.5, found \"" + strTime + '"';
  if (!rLine.fRelative && rLine.dTime < dEarliest) {
    return "expected a time not before that of the line above, found \"" + strTime + '"';
  }
  std::size_t iAction = iEnd;
  while (iAction < strLine.size() && IsBlank(strLine[iAction])) iAction++;
  rLine.strAction = strLine.substr(iAction);
  while (!rLine.strAction.empty() && IsBlank(rLine.strAction.back())) rLine.strAction.pop_back();
  return ParseAction(rLine.strAction, rLine.rAction);
}

}  // namespace

std::vector<ScenarioLine> ParseScenario(const std::string& strText, const std::string& strFile,
                                        std::vector<std::string>& astrErrors) {
  std::vector<ScenarioLine> vLines;
  ScenarioClock rClock;
  std::istringstream rText(strText);
  std::string strLine;
  for (int iLine = 1; std::getline(rText, strLine); iLine++) {
    const std::size_t iStart = strLine.find_first_not_of(" \t\r");
    if (iStart == std::string::npos || strLine[iStart] == '#') continue;
    ScenarioLine rLine;
    rLine.iLine = iLine;
    ScenarioLine rNow;
    rNow.fRelative = true;
    const std::string strError = ParseLine(strLine, iStart, rClock.Due(rNow), rLine);
    if (!strError.empty()) {
      astrErrors.push_back(strFile + ":" + std::to_string(iLine) + ": " + strError);
      continue;
    }
    rClock.Done(rLine, rClock.Due(rLine));
    vLines.push_back(rLine);
  }
  return vLines;
}

double ScenarioClock::Due(const ScenarioLine& rLine) const {
  return rLine.fRelative ? dLast + rLine.dTime : std::max(dLast, rLine.dTime);
}

void ScenarioClock::Done(const ScenarioLine& rLine, double dTime) {
  dLast = std::holds_alternative<actions::Wait>(rLine.rAction) ? std::max(dTime, Due(rLine)) : Due(rLine);
}

}  // namespace simcards
