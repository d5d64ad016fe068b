// rename: preloaded into a daemon whose recordings lie on the disk of forgetful.py, it gives that disk the operation
// that FUSE 2 has no word for: a rename that replaces nothing.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

extern "C" int renameat2(int iFrom, const char* acFrom, int iTo, const char* acTo, unsigned uiFlags) {
  using Renameat2 = int(int, const char*, int, const char*, unsigned);
  static auto* const prNext = reinterpret_cast<Renameat2*>(dlsym(RTLD_NEXT, "renameat2"));
  const int iResult = prNext(iFrom, acFrom, iTo, acTo, uiFlags);
  if (iResult == 0 || errno != EINVAL || uiFlags != RENAME_NOREPLACE) return iResult;
  struct stat rStat {};
  if (fstatat(iTo, acTo, &rStat, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = EEXIST;
    return -1;
  }
  return renameat(iFrom, acFrom, iTo, acTo);
}
