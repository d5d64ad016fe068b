// Entry points of the card library: the bit-stream trace.
// The library's lock is given up before a trace starts or stops, since a callback may be waiting for it.

#include "shpa3api.h"
#include "simcards_call.h"
#include "simcards_trace.h"

using simcards::Call;
using simcards::SSM_FAILED;

namespace {

int AlreadyTraced(const char* acOperation, int nCh) {
  simcards::State& rState = simcards::TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  rState.strLastError = std::string(acOperation) + ": channel " + std::to_string(nCh) + " is traced already";
  return SSM_FAILED;
}

}  // namespace

int SsmStartRecBitFlow(int nCh, LPFNDSTRECRAWDATA pfnRecRawData) {
  {
    Call rCall(Call::LISTED, "SsmStartRecBitFlow", nCh);
    if (rCall.Refused()) return rCall.iResult;
    if (rCall.ChannelAt(nCh) == nullptr) return SSM_FAILED;
    if (pfnRecRawData == nullptr) return rCall.Fail("no callback given");
  }
  return simcards::StartBitTrace(nCh, pfnRecRawData) ? SSM_OK : AlreadyTraced("SsmStartRecBitFlow", nCh);
}

int SsmStopRecBitFlow(int nCh) {
  {
    Call rCall(Call::LISTED, "SsmStopRecBitFlow", nCh);
    if (rCall.Refused()) return rCall.iResult;
    if (rCall.ChannelAt(nCh) == nullptr) return SSM_FAILED;
  }
  simcards::StopBitTrace(nCh);
  return SSM_OK;
}

// wLen 1 with a callback switches the trace of signalling on, 0 without one switches it off.
int DTRSendRawData2A3(DWORD dwNum, PCHAR pcData, int nCh, BYTE ucProcessType, WORD wLen, LPBYTE pfnCallback) {
  {
    Call rCall(Call::LISTED, "DTRSendRawData2A3", dwNum, nCh, ucProcessType, wLen);
    if (rCall.Refused()) return rCall.iResult;
    if (rCall.ChannelAt(nCh) == nullptr) return SSM_FAILED;
    if (pcData == nullptr || dwNum != DTR_ALL || ucProcessType != DTR_CALLBACK_TYPE || wLen > DTR_ON ||
        (wLen == DTR_ON) != (pfnCallback != nullptr)) {
      return rCall.Fail("only switching the trace of signalling on and off is simulated");
    }
  }
  if (wLen == DTR_OFF) {
    simcards::StopSignalTrace(nCh);
    return SSM_OK;
  }
  const auto pfnSignal = reinterpret_cast<DTR_CALLBACK>(pfnCallback);
  if (!simcards::StartSignalTrace(nCh, pfnSignal)) return AlreadyTraced("DTRSendRawData2A3", nCh);
  simcards::State& rState = simcards::TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  rState.Changed();  // someone may wait for the trace
  return SSM_OK;
}
