#include "durable.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "plainfile.h"

namespace {

bool Sync(const Descriptor& rOpen) {
  if (!rOpen.IsOpen()) return false;
  while (fsync(rOpen.Get()) != 0) {
    if (errno == EINVAL) return true;  // a file system that has nothing to wait for
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace

bool SyncFile(const std::string& strPath) {
  return Sync(OpenPlain(strPath.c_str(), O_RDONLY)) && SyncNames(strPath);
}

bool SyncNames(const std::string& strPath) {
  std::size_t iSlash = strPath.rfind('/');
  if (iSlash == std::string::npos) return Sync(OpenFolder("."));
  for (; iSlash != std::string::npos && iSlash > 0; iSlash = strPath.rfind('/', iSlash - 1)) {
    if (!Sync(OpenFolder(strPath.substr(0, iSlash).c_str()))) return false;
  }
  return true;
}
