// A path is taken name by name, each opened below the folder before it. So no name is resolved twice, and nobody can
// exchange a folder between a look at it and its use. Only looks and removals go on without, where a process has no
// descriptor left: what was to be deleted would otherwise stay.
#include "plainfile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

// Others may write in these and in all below them.
constexpr std::string_view SHARED_FOLDERS[] = {"/recordings/", "/dev/shm/"};
constexpr mode_t FILE_MODE = 0666;
constexpr mode_t FOLDER_MODE = 0777;
constexpr int TRIES = 20;  // a neighbour who takes a name again at once wins a race or two, not all
// O_NONBLOCK is for FIFOs; it means nothing to the files that are used in the end.
constexpr int FILE_FLAGS = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
constexpr int FOLDER_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

bool IsPlain(const struct stat& rStat) {
  return S_ISREG(rStat.st_mode) && rStat.st_uid == geteuid() && rStat.st_nlink == 1;
}

// -- one name in an open folder ---------------------------------------------------------------------------------------

// A name that nobody can foresee, and so nobody can take before.
class AsideName {
 public:
  AsideName() {
    std::uint64_t uiRandom = 0;
    (void)!getrandom(&uiRandom, sizeof uiRandom, 0);  // without it the name is one that may be taken
    for (int i = 0; i < DIGITS; i++, uiRandom /= 16) acName[PREFIX_CHARS + i] = "0123456789abcdef"[uiRandom % 16];
  }
  const char* Text() const { return acName; }

 private:
  static constexpr int PREFIX_CHARS = 6;
  static constexpr int DIGITS = 16;
  char acName[PREFIX_CHARS + DIGITS + 1] = "aside_";
};

bool PutAside(int iFolder, const char* acName) {
  return renameat(iFolder, acName, iFolder, AsideName().Text()) == 0 || errno == ENOENT;
}

// Removes what stands under a name, and nothing that it leads to.
bool Remove(int iFolder, const char* acName) {
  if (unlinkat(iFolder, acName, 0) == 0 || errno == ENOENT) return true;
  if (errno != EISDIR) return false;
  if (unlinkat(iFolder, acName, AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
  return (errno == ENOTEMPTY || errno == EEXIST) && PutAside(iFolder, acName);
}

bool MakeWayAt(int iFolder, const char* acName) {
  for (int i = 0; i < TRIES; i++) {
    struct stat rStat {};
    if (fstatat(iFolder, acName, &rStat, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (IsPlain(rStat)) return true;
    if (!Remove(iFolder, acName)) return false;
  }
  return false;
}

// A foreign file's second name that comes and goes around the open escapes the looks. Who is not root makes one of a
// file that he cannot write only where fs.protected_hardlinks is off.
Descriptor OpenPlainAt(int iFolder, const char* acName, int iAccess) {
  struct stat rStat {};
  if (fstatat(iFolder, acName, &rStat, AT_SYMLINK_NOFOLLOW) != 0) return Descriptor();
  if (IsPlain(rStat)) {  // a look before, as opening a device can have an effect
    Descriptor rFile(openat(iFolder, acName, iAccess | FILE_FLAGS));
    if (!rFile.IsOpen()) return rFile;
    if (fstat(rFile.Get(), &rStat) != 0) return Descriptor();
    if (IsPlain(rStat)) return rFile;
  }
  errno = EPERM;
  return Descriptor();
}

// A refusal that may only say that somebody else was faster under this name.
bool IsRace(int iErrno) {
  return iErrno == ENOENT || iErrno == EPERM || iErrno == ELOOP || iErrno == ENXIO || iErrno == EISDIR;
}

Descriptor MakeNew(int iFolder, const char* acName) {
  return Descriptor(openat(iFolder, acName, O_WRONLY | O_CREAT | O_EXCL | FILE_FLAGS, FILE_MODE));
}

// Where others write, nothing that is there is opened: a second name of a foreign file could come in its place and be
// gone again behind the open, when no look can tell any more.
Descriptor ReplaceAt(int iFolder, const char* acName) {
  for (int i = 0; i < TRIES; i++) {
    Descriptor rNew = MakeNew(iFolder, acName);
    if (rNew.IsOpen() || errno != EEXIST || !Remove(iFolder, acName)) return rNew;
  }
  return Descriptor();
}

Descriptor EmptyAt(int iFolder, const char* acName) {
  for (int i = 0; i < TRIES; i++) {
    Descriptor rNew = MakeNew(iFolder, acName);
    if (rNew.IsOpen() || errno != EEXIST) return rNew;
    if (!MakeWayAt(iFolder, acName)) break;
    Descriptor rOld = OpenPlainAt(iFolder, acName, O_WRONLY);
    if (rOld.IsOpen()) return ftruncate(rOld.Get(), 0) == 0 ? std::move(rOld) : Descriptor();
    if (!IsRace(errno)) break;
  }
  return Descriptor();
}

Descriptor EnterFolder(int iFolder, const char* acName, bool fTrusted) {
  if (!fTrusted && strcmp(acName, "..") == 0) {
    errno = EPERM;
    return Descriptor();
  }
  return Descriptor(openat(iFolder, acName, FOLDER_FLAGS | (fTrusted ? 0 : O_NOFOLLOW)));
}

Descriptor MakeFolder(int iFolder, const char* acName, bool fTrusted) {
  for (int i = 0; i < TRIES; i++) {
    Descriptor rFolder = EnterFolder(iFolder, acName, fTrusted);
    if (rFolder.IsOpen()) return rFolder;
    if (errno == ENOENT) {
      if (mkdirat(iFolder, acName, FOLDER_MODE) != 0 && errno != EEXIST) break;
    } else if (fTrusted || errno != ENOTDIR || !PutAside(iFolder, acName)) {
      break;
    }
  }
  return Descriptor();
}

// -- a path -----------------------------------------------------------------------------------------------------------

// Bytes at the head of a path whose names are the installation's, which may be links. Those behind are not trusted.
std::size_t TrustedBytes(std::string_view strPath) {
  for (const std::string_view strShared : SHARED_FOLDERS) {
    if (strPath.substr(0, strShared.size()) == strShared) return strShared.size();
  }
  return strPath.size();
}

// The walk along a path: an open folder, and the next name in it, which is empty at the end.
class Walk {
 public:
  explicit Walk(std::string_view strWholePath)
      : strPath(strWholePath),
        uiTrusted(TrustedBytes(strWholePath)),
        rFolder(open(strWholePath.substr(0, 1) == "/" ? "/" : ".", FOLDER_FLAGS)) {
    NextName();
  }

  // Up to the last name. False when the folders in front of it do not open.
  bool ToLastName() {
    while (rFolder.IsOpen() && strPath.find_first_not_of('/', uiPos) != std::string_view::npos) Step(EnterFolder);
    return rFolder.IsOpen();
  }
  // The folder at the end, each on the way opened by Into.
  Descriptor ToEnd(Descriptor (*Into)(int iFolder, const char* acName, bool fTrusted)) {
    while (rFolder.IsOpen() && acName[0] != '\0') Step(Into);
    return std::move(rFolder);
  }
  int Folder() const { return rFolder.Get(); }
  const char* Name() const { return acName; }
  bool IsTrusted() const { return fTrusted; }

 private:
  void Step(Descriptor (*Into)(int iFolder, const char* acName, bool fTrusted)) {
    rFolder = Into(rFolder.Get(), acName, fTrusted);
    NextName();
  }
  void NextName() {
    const std::size_t uiStart = std::min(strPath.find_first_not_of('/', uiPos), strPath.size());
    uiPos = std::min(strPath.find('/', uiStart), strPath.size());
    fTrusted = uiStart < uiTrusted;
    const std::size_t uiLength = strPath.copy(acName, sizeof acName - 1, uiStart);
    acName[std::min(uiLength, uiPos - uiStart)] = '\0';
  }

  const std::string_view strPath;
  const std::size_t uiTrusted;
  std::size_t uiPos = 0;  // behind acName
  Descriptor rFolder;
  bool fTrusted = true;       // acName
  char acName[NAME_MAX + 2];  // a name that is too long stays so, for the system to refuse
};

// -- a path where nothing opens any more ------------------------------------------------------------------------------

bool IsOutOfDescriptors() {
  return errno == EMFILE || errno == ENFILE;
}

// Whether each folder below the trusted ones is one itself, and no link to one. Weaker than a walk: whoever exchanges
// one behind the look has the use of the path led elsewhere.
bool IsStraight(std::string_view strPath) {
  char acFolder[PATH_MAX];
  for (std::size_t uiEnd = strPath.find('/', TrustedBytes(strPath)); uiEnd != std::string_view::npos;
       uiEnd = strPath.find('/', uiEnd + 1)) {
    const std::string_view strFolder = strPath.substr(0, uiEnd);
    errno = ENAMETOOLONG;
    if (strFolder.size() >= sizeof acFolder) return false;
    acFolder[strFolder.copy(acFolder, sizeof acFolder - 1)] = '\0';
    struct stat rStat {};
    if (lstat(acFolder, &rStat) != 0) return false;
    errno = ENOTDIR;
    if (!S_ISDIR(rStat.st_mode)) return false;
    errno = EPERM;
    if (strFolder.substr(strFolder.rfind('/')) == "/..") return false;
  }
  return true;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& rFrom) noexcept {
  if (this != &rFrom) {
    Close();
    iFd = rFrom.Release();
  }
  return *this;
}

int Descriptor::Release() {
  return std::exchange(iFd, -1);
}

void Descriptor::Close() const {
  const int iErrno = errno;
  if (iFd >= 0) (void)close(iFd);  // what was written is the owner's concern
  errno = iErrno;
}

Descriptor OpenAnew(const char* acPath) {
  Walk rWalk(acPath);
  if (!rWalk.ToLastName()) return Descriptor();
  return (rWalk.IsTrusted() ? EmptyAt : ReplaceAt)(rWalk.Folder(), rWalk.Name());
}

FILE* OpenFileAnew(const std::string& strPath) {
  Descriptor rFile = OpenAnew(strPath.c_str());
  FILE* const hFile = rFile.IsOpen() ? fdopen(rFile.Get(), "w") : nullptr;
  if (hFile != nullptr) (void)rFile.Release();  // the C library closes it from now on
  return hFile;
}

Descriptor OpenPlain(const char* acPath, int iAccess) {
  Walk rWalk(acPath);
  return rWalk.ToLastName() ? OpenPlainAt(rWalk.Folder(), rWalk.Name(), iAccess) : Descriptor();
}

bool MakeWay(const char* acPath) {
  Walk rWalk(acPath);
  return rWalk.ToLastName() && MakeWayAt(rWalk.Folder(), rWalk.Name());
}

bool LookAt(const char* acPath, struct stat& rStat) {
  Walk rWalk(acPath);
  if (rWalk.ToLastName()) return fstatat(rWalk.Folder(), rWalk.Name(), &rStat, AT_SYMLINK_NOFOLLOW) == 0;
  return IsOutOfDescriptors() && IsStraight(acPath) && lstat(acPath, &rStat) == 0;
}

bool IsPlainFile(const char* acPath) {
  struct stat rStat {};
  if (!LookAt(acPath, rStat)) return false;
  errno = EPERM;
  return IsPlain(rStat);
}

bool RemoveName(const char* acPath) {
  Walk rWalk(acPath);
  if (rWalk.ToLastName()) return unlinkat(rWalk.Folder(), rWalk.Name(), 0) == 0;
  return IsOutOfDescriptors() && IsStraight(acPath) && unlinkat(AT_FDCWD, acPath, 0) == 0;
}

bool MoveTo(const char* acFrom, const char* acTo) {
  Walk rFrom(acFrom);
  Walk rTo(acTo);
  return rFrom.ToLastName() && rTo.ToLastName() &&
         renameat2(rFrom.Folder(), rFrom.Name(), rTo.Folder(), rTo.Name(), RENAME_NOREPLACE) == 0;
}

Descriptor OpenFolder(const char* acPath) {
  return Walk(acPath).ToEnd(EnterFolder);
}

Descriptor MakeFolders(const char* acPath) {
  return Walk(acPath).ToEnd(MakeFolder);
}
