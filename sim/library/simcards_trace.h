// simcards_trace: the bit-stream trace of a channel: raw bits and signalling, handed to the program's callbacks.
// Threads:   one thread a running trace calls the callback, without any lock held. Start and Stop: any thread that does
//            not hold the library's lock; after Stop no further call comes. TraceEvent: with the library's lock held.
#pragma once

#include "simcards_state.h"

namespace simcards {

// False when the channel is traced already.
bool StartBitTrace(int nCh, LPFNDSTRECRAWDATA pfnBits);
void StopBitTrace(int nCh);
bool StartSignalTrace(int nCh, DTR_CALLBACK pfnSignal);
void StopSignalTrace(int nCh);
bool IsSignalTraced(int nCh);
void StopAllTraces();

// A D-channel message passes on a line: both traces of the line see it.
void TraceEvent(const QueuedEvent& rQueued);

}  // namespace simcards
