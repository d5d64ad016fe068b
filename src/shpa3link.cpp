#include "shpa3link.h"

#include <syslog.h>

#include "logging.h"

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
