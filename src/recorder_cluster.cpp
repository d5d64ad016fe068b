#include "recorder_cluster.h"

#include <syslog.h>

#include "filedir.h"
#include "fstring.h"
#include "logging.h"

bool g_fClustering = false;
std::string g_cfgPrefix;

std::string ReadSN() {
  std::string strSerial = StdGetFileContent(UNIT_SERIAL_FILE);
  trim(strSerial);
  return strSerial;
}

void OnKnowSN(const std::string& SN) {
  g_cfgPrefix = g_fClustering ? SN + "-" : "";
}

void InitCluster() {
  g_fClustering = false;
  if (!file_exists(CLUSTER_FILE)) return;
  lg(LOG_NOTICE, "Clustering is ON");
  g_fClustering = true;
  OnKnowSN(ReadSN());
}
