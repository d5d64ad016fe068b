// recorder_cluster: what sets one node of a cluster apart. With /var/morvex/conf/opt_cluster, keys that belong to one
// node carry the unit's serial and "-" as prefix: the nodes share one database but have cards of their own.
// Threads:   main.
#pragma once

#include <string>

constexpr const char* CLUSTER_FILE = "/var/morvex/conf/opt_cluster";
constexpr const char* UNIT_SERIAL_FILE = "/var/morvex/conf/serial";  // identifier of this unit

extern bool g_fClustering;
extern std::string g_cfgPrefix;
// The unit's serial as its file holds it, without surrounding white space; empty when there is no file.
std::string ReadSN();
// Sets g_cfgPrefix by g_fClustering.
void OnKnowSN(const std::string& SN);
// Called once, before the first try.
void InitCluster();
