#include "shpa3link.h"

#include <syslog.h>

#include "logging.h"

namespace {

constexpr DWORD EVENT_WAIT_MS = 200;

}  // namespace

SsmClearR2callToneBuf_FT SsmClearR2callToneBuf_FP = nullptr;

const char* LastSsmError() {
  static char acText[SSM_ERR_MSG_BYTES];
  SsmGetLastErrMsg(acText);
  acText[sizeof acText - 1] = '\0';  // a text that fills the buffer may come without its end
  return acText;
}

void LogSsmError(const char* pos) {
  lg(LOG_ERR, "Error in %s: %s", pos, LastSsmError());
}

int WaitForCardEvent(SSM_EVENT& rEvent, char (&acBuffer)[EVENT_BUFFER_BYTES]) {
  acBuffer[0] = 0;
  rEvent = SSM_EVENT();
  rEvent.pvBuffer = acBuffer;
  rEvent.dwBufferLength = EVENT_BUFFER_BYTES;
  return SsmWaitForEventA(EVENT_WAIT_MS, &rEvent);
}
