// mainthread: which thread is the main one. Channels, recorder, database and the running of queued actions belong to it
// alone; they have no lock, and assert at their entries that it is the main thread that comes in.
// Threads:   any.
#pragma once

// The calling thread is the main one from now on.
void RememberMainThread();
// Also true while none is remembered: only the daemon has a main thread. Tools have but one, and tests may let several
// take turns.
bool OnMainThread();
