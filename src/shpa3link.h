// shpa3link: what several units share about the card library: its one optional function, the report of its failures,
// and the wait for an event. A unit of its own, so that channels need not see the recorder.
// Threads:   main, and the taker's for the wait alone; the text of a failure stands in a static buffer.
#pragma once

#include "shpa3api.h"

// The one optional function of the card library; null when the library lacks it. The recorder looks it up at start.
extern SsmClearR2callToneBuf_FT SsmClearR2callToneBuf_FP;

// Text of the card library's last failure; valid until the next call.
const char* LastSsmError();
// Logs the last failure of the card library at LOG_ERR: "Error in <pos>: <text>".
void LogSsmError(const char* pos);

// One wait for an event of the cards, of a fifth of a second at most: what SsmWaitForEventA gives. Data of the event
// may stand in acBuffer, or where the library points to.
int WaitForCardEvent(SSM_EVENT& rEvent, char (&acBuffer)[EVENT_BUFFER_BYTES]);
