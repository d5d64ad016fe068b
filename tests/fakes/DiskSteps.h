// DiskSteps: what a test program asks of the disk, in order: "fsync <path>", "unlink <path>", "rename <from> <to>". It
// stands in for the C library's fsync, unlinkat and renameat2, so that each can also be refused. Include it in one
// source of a program only. A step that found nothing to do is not noted.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include "Texts.h"

namespace disksteps {

inline Texts astrSteps;
// Asked before each step; an errno refuses it, 0 lets it pass.
inline std::function<int(const std::string& strStep)> Refuse;

inline Texts Take() {
  Texts astrTaken;
  astrTaken.swap(astrSteps);
  return astrTaken;
}

inline std::string PathOf(int iFd) {
  char acPath[400] = "";
  const ssize_t iLength = readlink(("/proc/self/fd/" + std::to_string(iFd)).c_str(), acPath, sizeof acPath - 1);
  return std::string(acPath, iLength > 0 ? static_cast<std::size_t>(iLength) : 0);
}

inline std::string PathOf(int iFolder, const char* acName) {
  return iFolder == AT_FDCWD ? acName : PathOf(iFolder) + "/" + acName;
}

template <typename F, typename... A>
int Step(const char* acName, const std::string& strStep, A... rArguments) {
  if (Refuse && Refuse(strStep) != 0) {
    errno = Refuse(strStep);
    return -1;
  }
  const int iResult = reinterpret_cast<F*>(dlsym(RTLD_NEXT, acName))(rArguments...);
  const int iErrno = errno;
  if (iResult == 0) astrSteps.push_back(strStep);
  errno = iErrno;
  return iResult;
}

}  // namespace disksteps

extern "C" int fsync(int iFd) {
  return disksteps::Step<int(int)>("fsync", "fsync " + disksteps::PathOf(iFd), iFd);
}

extern "C" int unlinkat(int iFolder, const char* acName, int iFlags) noexcept {
  return disksteps::Step<int(int, const char*, int)>("unlinkat", "unlink " + disksteps::PathOf(iFolder, acName),
                                                     iFolder, acName, iFlags);
}

extern "C" int renameat2(int iFromFolder, const char* acFrom, int iToFolder, const char* acTo,
                         unsigned int uiFlags) noexcept {
  const std::string strStep =
      "rename " + disksteps::PathOf(iFromFolder, acFrom) + " " + disksteps::PathOf(iToFolder, acTo);
  return disksteps::Step<int(int, const char*, int, const char*, unsigned int)>("renameat2", strStep, iFromFolder,
                                                                                acFrom, iToFolder, acTo, uiFlags);
}
