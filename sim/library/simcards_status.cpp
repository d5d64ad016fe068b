// The facts are taken under one lock, so that they speak of the same moment, and made into text behind it: the text of
// thousands of channels takes longer than audio can wait. cardsim makes JSON of them by cutting at
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
  char acNumbers[120];
  (void)std::snprintf(acNumbers, sizeof acNumbers, "speed=%g slipped=%.3f late=%.3f", PacingSpeed(), PacingSlipped(),
                      PacingLate());
  return Field("boards", rState.iBoards) + " " + Field("channels", static_cast<long long>(rState.vChannels.size())) +
         " " + Field("events_on", rState.EventsOn() ? 1 : 0) + " " +
         Field("queued", static_cast<long long>(rState.rQueue.Size())) + " " + Field("overruns", rState.iOverruns) +
         " " + acNumbers;
}

struct ChannelFacts {
  explicit ChannelFacts(const Channel& rChannel)
      : iBoardId(rChannel.iBoardId),
        iBoardCh(rChannel.iBoardCh),
        iType(rChannel.iType),
        iState(rChannel.iState),
        iVoltage(rChannel.iVoltage),
        fRecording(rChannel.rMem.fOn),
        iRecorded(rChannel.rMem.iWritten),
        fTracing(rChannel.rFile.IsOpen()),
        acPlays(rChannel.rSource.Name()) {}

  int iBoardId, iBoardCh, iType, iState, iVoltage;
  bool fRecording;
  long long iRecorded;
  bool fTracing;
  const char* acPlays;
};

std::string ChannelLine(int nCh, const ChannelFacts& rFacts) {
  return Field("ch", nCh) + " " + Field("board", rFacts.iBoardId) + " " + Field("board_ch", rFacts.iBoardCh) +
         " type=" + TypeName(rFacts.iType) + " " + Field("state", rFacts.iState) + " " +
         Field("voltage", rFacts.iVoltage) + " " + Field("recording", rFacts.fRecording ? 1 : 0) + " " +
         Field("recorded", rFacts.iRecorded) + " " + Field("tracing", rFacts.fTracing ? 1 : 0) +
         " plays=" + rFacts.acPlays;
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
  std::vector<ChannelFacts> vFacts;
  std::vector<std::string> vEnd;
  std::unique_lock<std::mutex> rLock(rState.rMutex);
  std::vector<std::string> vLines = {WholeLine(rState)};
  vFacts.reserve(rState.vChannels.size());
  for (const std::unique_ptr<Channel>& prChannel : rState.vChannels) vFacts.emplace_back(*prChannel);
  for (const auto& [nCic, rCircuit] : rState.rCircuits) {
    if (rCircuit.iState != S_SPY_STANDBY) vEnd.push_back(CircuitLine(nCic, rCircuit));
  }
  for (const auto& [strOperation, rFault] : rState.rFaults) vEnd.push_back(FaultLine(strOperation, rFault));
  rLock.unlock();
  for (std::size_t i = 0; i < vFacts.size(); i++) vLines.push_back(ChannelLine(static_cast<int>(i), vFacts[i]));
  vLines.insert(vLines.end(), vEnd.begin(), vEnd.end());
  return vLines;
}

}  // namespace simcards
