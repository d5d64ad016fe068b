// All lines are made under one lock, so that they speak of the same moment. cardsim makes JSON of them by cutting at
// blanks and at "=", so whatever is added needs a name, and a value without blanks; docs/simulator.md tells the names.

#include "simcards_status.h"

#include <cstdio>

#include "simcards_pacing.h"
#include "simcards_state.h"

namespace simcards {
namespace {

std::string TypeName(int iType) {
  switch (iType) {
    case CH_ANALOG:
      return "analogue";
    case CH_DST:
      return "station";
    case CH_ISDN_USR:
    case CH_ISDN_NTW:
      return "trunk";
    default:
      return std::to_string(iType);
  }
}

std::string Field(const char* acName, long long iValue) {
  return std::string(acName) + "=" + std::to_string(iValue);
}

std::string WholeLine(const State& rState) {
  char acNumbers[80];
  (void)std::snprintf(acNumbers, sizeof acNumbers, "speed=%g slipped=%.3f", PacingSpeed(), PacingSlipped());
  return Field("boards", rState.iBoards) + " " + Field("channels", static_cast<long long>(rState.vChannels.size())) +
         " " + Field("events_on", rState.EventsOn() ? 1 : 0) + " " +
         Field("queued", static_cast<long long>(rState.rQueue.Size())) + " " + Field("overruns", rState.iOverruns) +
         " " + acNumbers;
}

std::string ChannelLine(int nCh, const Channel& rChannel) {
  return Field("ch", nCh) + " " + Field("board", rChannel.iBoardId) + " " + Field("board_ch", rChannel.iBoardCh) +
         " type=" + TypeName(rChannel.iType) + " " + Field("state", rChannel.iState) + " " +
         Field("voltage", rChannel.iVoltage) + " " + Field("recording", rChannel.rMem.fOn ? 1 : 0) + " " +
         Field("recorded", rChannel.rMem.iWritten) + " " + Field("tracing", rChannel.rFile.IsOpen() ? 1 : 0) +
         " plays=" + rChannel.rSource.Name();
}

std::string CircuitLine(int nCic, const Circuit& rCircuit) {
  return Field("cic", nCic) + " " + Field("state", rCircuit.iState) + " " + Field("in_ch", rCircuit.rInfo.iCallInCh) +
         " " + Field("out_ch", rCircuit.rInfo.iCallOutCh);
}

std::string FaultLine(const std::string& strOperation, const Fault& rFault) {
  return "fail=" + strOperation + " " + Field("times", rFault.iTimes);
}

}  // namespace

std::vector<std::string> StatusLines() {
  State& rState = TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  std::vector<std::string> vLines = {WholeLine(rState)};
  for (std::size_t i = 0; i < rState.vChannels.size(); i++) {
    vLines.push_back(ChannelLine(static_cast<int>(i), *rState.vChannels[i]));
  }
  for (const auto& [nCic, rCircuit] : rState.rCircuits) {
    if (rCircuit.iState != S_SPY_STANDBY) vLines.push_back(CircuitLine(nCic, rCircuit));
  }
  for (const auto& [strOperation, rFault] : rState.rFaults) vLines.push_back(FaultLine(strOperation, rFault));
  return vLines;
}

}  // namespace simcards
