// durable: what has been written outlives a power cut.
// A file can be on disk and its name not, or the name of a folder above it; all are waited for.
// Threads:   any; no state. Blocks for as long as the disk takes, so recordings are synced on a worker.
// Errors:    nothing is logged; errno is that of the refused system call.
#pragma once

#include <string>

// A plain file (plainfile.h) with its bytes, its name and the names of the folders of its path; the root directory and
// a relative path's working directory are there anyway. False when one is refused.
bool SyncFile(const std::string& strPath);
// The names alone, of whatever is at the end of the path.
bool SyncNames(const std::string& strPath);
