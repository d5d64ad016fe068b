// morvex_crec: the life of the process from its first argument to its return: going to the background, signals, the
// order in which the parts come up and go down, and the wait for cards. The main loop stands in morvex_crec_loop.cpp.
// Threads:   main. mainQueue (mainqueue.h) reaches the loop from any thread.
// Ownership: RunWithDatabase owns the start-up Database; RecorderMain owns one TRecorderBoot a try.
#pragma once

// What main does; returns the exit code of the process.
int RunDaemon(int argc, char** argv);
// True when the card driver's directory exists.
bool CheckCardDriver();
// Forks. 0 in the parent, -1 in the child that is to go on, 1 on any failure.
int spawn_me();
// No signal stays blocked on the calling thread, and so on those that it starts.
void setSignalHandlers();
void signal_handler(int iSignal);
// Part of the interface, without a caller in the daemon. Does nothing: the process runs with the limits it inherits.
void setLimits();
// The retry loop around cards and driver; returns the exit code (0 normal or disabled, 1 driver failed, 2 no cards).
int RecorderMain();
// Sleeps, from one second on in steps that end early once fAppTerminate is set.
int CheckedSleep(int ms);
