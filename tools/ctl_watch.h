// ctl_watch: the status, redrawn every second in the terminal until a key is pressed.
#pragma once

// 0 when ended by a key; 1 when standard output is no terminal.
int WatchStatus();
// One JSON object a line, every second, until standard output is closed or a signal arrives.
void WatchStatusJson();
