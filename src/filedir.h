// filedir: helpers on paths and files, and DeleteFn, through which every recording is removed.
// Threads:   any; no state. DeleteFn blocks while a secure deletion runs, so recordings are deleted on a worker.
// Errors:    DeleteFn reports by its result and errno, DeleteOrTell logs; the rest is silent.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

// A file of the C library that closes itself; null when fopen failed.
struct FileCloser {
  void operator()(FILE* hFile) const { (void)fclose(hFile); }  // failed writes are the owner's concern
};
using StdFile = std::unique_ptr<FILE, FileCloser>;

// Creates all folders of a path with mode 0777 (the daemon runs with an empty umask); see MakeFolders.
void EnsurePath(const std::string& strPath);
// All before the last "." of the whole path, or the path itself.
std::string RemoveFileExtension(const std::string& path);
// All behind the last "/", or the path itself.
std::string ExtractFileName(const std::string& path);
// True when stat succeeds; folders count.
bool file_exists(const std::string& strFileName);
// The text of a file; empty when it cannot be opened. For text files: a NUL cuts the piece that holds it.
std::string StdGetFileContent(const std::string& strFileName);
// Removes a file, with "shred" when /var/morvex/conf/opt_secure_delete exists. True when the file is gone by this call.
// What is no regular file, or has a second name, is only unlinked. Else errno tells why: EIO when "shred" has left it.
bool DeleteFn(const char* pathname);
// DeleteFn for a file that need not exist. One that is there and stays is logged: nothing else would tell of it.
void DeleteOrTell(const std::string& strPath);
