// TestFiles: whole files as texts, for tests that compare what a part of the daemon has written.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

inline void WriteTestFile(const std::string& strPath, const std::string& strText) {
  std::ofstream(strPath, std::ios::binary | std::ios::trunc) << strText;
}

// All bytes of a file; "(no file)" when it cannot be opened, so that a missing file differs from an empty one.
inline std::string ReadTestFile(const std::string& strPath) {
  std::ifstream rFile(strPath, std::ios::binary);
  if (!rFile) return "(no file)";
  std::ostringstream rText;
  rText << rFile.rdbuf();
  return rText.str();
}
