// logging: the log function of the whole daemon, the error file, and the process-wide flags that logging asks.
// Repeated errors and warnings are limited, each kind by itself, and what lgOften logs: see flood.h. A warning with the
// count and the last text tells what was left out, as soon as the kind may speak again and anything is logged. Standard
// output of debug mode gets the text as it is while a program reads it from a pipe; on a terminal, and in a file that
// the daemon itself writes, control characters within a message are masked.
//
// Threads:   all operations: any. A call is one write to its target; the error file holds whichever message came last.
// Locks:     the limits and the error file have one each. lg takes both for errors, one after the other, and the first
//            for warnings, as lgOften does; while something is left out, lg of any level and LogLeftOut take it too.
//            WriteErrCrec takes none.
// Errors:    an error file that cannot be opened is ignored.
#pragma once

#include <atomic>

// 1 when the daemon was started with "debug": messages go to standard output. Set once, before any thread exists.
extern int g_DebugMode;
// False in a tool that runs the daemon's code: the error file is the daemon's, and lg leaves it alone. Set once, before
// any thread exists.
extern bool g_fErrorFile;
// The order to stop. Set by the signal handler, never cleared, polled by every thread (lock-free, so signal-safe).
extern std::atomic<bool> fAppTerminate;
// A thread has crashed and its report is under way: what others log meanwhile leaves the error file alone, as the crash
// is what matters in it. Set by the signal handler, never cleared.
extern std::atomic<bool> g_fCrashed;

// Logs one message with a syslog priority: LOG_ERR errors, LOG_WARNING warnings, LOG_NOTICE normal events, LOG_INFO
// and LOG_DEBUG details. Outside text goes in through "%s". LOG_ERR and worse also replace the error file, until
// shutdown or a crash has begun and unless g_fErrorFile is false.
void lg(int prio, const char* format, ...) __attribute__((format(printf, 2, 3)));
// As lg with LOG_NOTICE, but limited as errors are: for normal events that anyone can cause in a loop.
void lgOften(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Logs the present errno at LOG_ERR: "C-api error at <where>: <text>".
void LogCapiError(const char* where);
// Tells what has been left out and not been told yet; for the end of the process.
void LogLeftOut();
// Replaces the error file with `msg`; does not log, and works during shutdown too.
void WriteErrCrec(const char* msg);
