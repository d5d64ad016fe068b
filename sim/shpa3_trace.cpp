// Entry points of the card library: the bit-stream trace.

#include "shpa3api.h"
#include "simcards_call.h"

using simcards::Call;
using simcards::SSM_FAILED;

int SsmStartRecBitFlow(int nCh, LPFNDSTRECRAWDATA /*pfnRecRawData*/) {
  Call rCall(Call::LISTED, "SsmStartRecBitFlow", nCh);
  if (rCall.Refused()) return rCall.iResult;
  return rCall.ChannelAt(nCh) == nullptr ? SSM_FAILED : SSM_OK;
}

int SsmStopRecBitFlow(int nCh) {
  Call rCall(Call::LISTED, "SsmStopRecBitFlow", nCh);
  if (rCall.Refused()) return rCall.iResult;
  return rCall.ChannelAt(nCh) == nullptr ? SSM_FAILED : SSM_OK;
}

int DTRSendRawData2A3(DWORD dwNum, PCHAR /*pcData*/, int nCh, BYTE ucProcessType, WORD wLen, LPBYTE /*pfnCallback*/) {
  Call rCall(Call::LISTED, "DTRSendRawData2A3", dwNum, nCh, ucProcessType, wLen);
  if (rCall.Refused()) return rCall.iResult;
  return rCall.ChannelAt(nCh) == nullptr ? SSM_FAILED : SSM_OK;
}
