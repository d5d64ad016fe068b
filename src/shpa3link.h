// shpa3link: the two things that recorder and channels share about the card library: its one optional function and the
// report of its failures. A unit of its own, so that channels need not see the recorder.
// Threads:   main only; the text of a failure stands in a static buffer.
#pragma once

#include "shpa3api.h"

// The one optional function of the card library; null when the library lacks it. The recorder looks it up at start.
extern SsmClearR2callToneBuf_FT SsmClearR2callToneBuf_FP;

// Text of the card library's last failure; valid until the next call.
const char* LastSsmError();
// Logs the last failure of the card library at LOG_ERR: "Error in <pos>: <text>".
void LogSsmError(const char* pos);
