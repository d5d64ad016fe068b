// Paths are taken as texts, and only plainfile takes them apart. DeleteFn is the one way in which a recording
// goes, as an appliance can be told to overwrite what it deletes.
#include "filedir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "logging.h"
#include "plainfile.h"
#include "shell.h"

namespace {

constexpr const char* SECURE_DELETE_MARKER = "/var/morvex/conf/opt_secure_delete";  // only its presence counts
constexpr int READ_BYTES = 100;  // a piece ends at a line end or here; a NUL hides the rest of its piece alone

// A link leads elsewhere, and the bytes of a file with a second name may be somebody else's.
bool MayBeOverwritten(const struct stat& rStat) {
  return S_ISREG(rStat.st_mode) && rStat.st_nlink == 1;
}

}  // namespace

void EnsurePath(const std::string& strPath) {
  (void)MakeFolders(strPath.c_str());  // the use of the folder shows a failure
}

std::string RemoveFileExtension(const std::string& path) {
  return path.substr(0, path.rfind('.'));
}

std::string ExtractFileName(const std::string& path) {
  const size_t iSlash = path.rfind('/');
  return iSlash == std::string::npos ? path : path.substr(iSlash + 1);
}

bool file_exists(const std::string& strFileName) {
  struct stat rStat;
  return stat(strFileName.c_str(), &rStat) == 0;
}

std::string StdGetFileContent(const std::string& strFileName) {
  std::string strContent;
  const StdFile hFile(fopen(strFileName.c_str(), "re"));
  if (!hFile) return strContent;
  char acPiece[READ_BYTES];
  while (fgets(acPiece, sizeof acPiece, hFile.get()) != nullptr) strContent += acPiece;
  return strContent;
}

// The marker is looked for each time, so that secure deletion begins without a restart. A file that is not there counts
// as failed both ways.
bool DeleteFn(const char* pathname) {
  if (pathname == nullptr) return false;
  struct stat rStat {};
  if (!file_exists(SECURE_DELETE_MARKER)) return RemoveName(pathname);
  if (!LookAt(pathname, rStat)) return false;
  if (!MayBeOverwritten(rStat)) return RemoveName(pathname);
  (void)execCmd("shred -u " + escapeShellArg(pathname));  // the look at the file tells more than the tool's status
  if (!LookAt(pathname, rStat)) return errno == ENOENT;
  errno = EIO;
  return false;
}

// A disk that is read-only refuses before it looks whether anything is there.
void DeleteOrTell(const std::string& strPath) {
  if (DeleteFn(strPath.c_str())) return;
  const int iErrno = errno;
  struct stat rStat {};
  if (!LookAt(strPath.c_str(), rStat) && errno == ENOENT) return;
  errno = iErrno;
  LogCapiError(("Remove " + strPath).c_str());
}
