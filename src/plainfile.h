// plainfile: opens and makes files and folders where others can write too, as the web side can below /recordings.
// Whoever shares a folder can put a link, a FIFO, a device or one more name of a foreign file where the daemon is about
// to write, and the daemon is root. So only a plain file counts: a regular one of this process's user, with one name. A
// link under the last name of a path is never followed, and below a shared folder none on the way either. The shared
// folder itself is the installation's, and may be a link.
// Threads:   any, and signal handlers: no state, and all but OpenFileAnew does without an allocation.
// Errors:    nothing is logged; errno is that of the refused system call.
// Opening never waits for a FIFO's other end, and what is opened is closed on exec.
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <string>

// A descriptor that closes itself; -1: none.
class Descriptor {
 public:
  explicit Descriptor(int iOpenFd = -1) : iFd(iOpenFd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& rFrom) noexcept : iFd(rFrom.Release()) {}
  Descriptor& operator=(Descriptor&& rFrom) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool IsOpen() const { return iFd >= 0; }
  int Get() const { return iFd; }
  int Release();

 private:
  void Close() const;  // leaves errno alone

  int iFd;
};

// An empty plain file, open for writing, with mode 0666 when it is new. What has that name makes way, so that a
// neighbour cannot keep it taken; outside shared folders a plain file is emptied instead. The folder must be there.
Descriptor OpenAnew(const char* acPath);
// The same for the C library; null when it failed.
FILE* OpenFileAnew(const std::string& strPath);
// A plain file that is there, with its bytes; iAccess is O_RDONLY, O_WRONLY or O_RDWR. All else fails with EPERM, ELOOP
// or the like, and stays.
Descriptor OpenPlain(const char* acPath, int iAccess);
// Frees a name for a tool that opens it by itself: a plain file stays, all else goes. A folder with something in it
// keeps that under another name beside. True when the name is free or a plain file's.
bool MakeWay(const char* acPath);
// What stands under a name, itself and not what it leads to. False when nothing does or its folders do not open. This
// one and the two below do their work also where no descriptor is left.
bool LookAt(const char* acPath, struct stat& rStat);
// Whether that is a plain file.
bool IsPlainFile(const char* acPath);
// Removes a name, and nothing that it leads to. A folder stays; false then, and for a name that is not there.
bool RemoveName(const char* acPath);
// Gives a file another name, also in another folder of its disk. Replaces nothing: EEXIST when the new name is taken.
bool MoveTo(const char* acFrom, const char* acTo);
// An open folder; fsync takes it.
Descriptor OpenFolder(const char* acPath);
// The same, with mode 0777 for each folder of the path that was missing. What stands in place of one below a shared
// folder gets another name beside; elsewhere it stays, and the call fails.
Descriptor MakeFolders(const char* acPath);
