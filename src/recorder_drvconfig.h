// recorder_drvconfig: the driver's configuration, which TRecorderBoot::WriteConfig makes.
// Threads:   main.
#pragma once

constexpr const char* DRIVER_INI_FILE = "/var/morvex/data/ShConfig.ini";  // both read by the driver when it starts
constexpr const char* DRIVER_INDEX_FILE = "/var/morvex/data/ShIndex.ini";

// Major version of the operating system from /etc/issue.net, 6 to 12; -1 for anything else.
int GetDebianVersion();
