// The one operation that a card library need not have; the build of sim/no_r2 leaves this file out.

#include "shpa3api.h"
#include "simcards_call.h"

using simcards::Call;

extern "C" int SsmClearR2callToneBuf(int nCh);

int SsmClearR2callToneBuf(int nCh) {
  Call rCall(Call::LISTED, "SsmClearR2callToneBuf", nCh);
  if (rCall.Refused()) return rCall.iResult;
  return rCall.ChannelAt(nCh) == nullptr ? simcards::SSM_FAILED : SSM_OK;
}
