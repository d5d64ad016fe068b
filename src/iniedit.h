// iniedit: merges wanted settings into an INI file without disturbing what the file already holds.
// The card driver's files are tuned by hand: some keys are forced, defaults fill gaps, whole tables are rewritten, and
// comments, order and unknown keys stay. A write-only engine: it never hands back what a file holds.
// Text:      "[section]" lines, "key=value" lines, and lines of neither kind, which are copied. There is no comment
//            syntax: a comment with a "=" is a key line with a key that nobody sets. No quoting, no continuation.
// Threads:   main, at start. The name of the temporary file is fixed, so one writer a file.
// Errors:    nothing is logged; a file that cannot be opened, read or written stays as it is, whole. The result is
//            false then, and errno that of the refused step.
#pragma once

#include <map>
#include <set>
#include <string>

using IniSectionData = std::map<std::string, std::string>;

class IniData {
 public:
  // The key gets this value, whatever stands in the file.
  void set(const std::string& strSection, const std::string& strKey, const std::string& strValue);
  // The key gets this value only if its section in the file lacks it.
  void setDefault(const std::string& strSection, const std::string& strKey, const std::string& strValue);
  // The key lines of this section in the file are dropped; only what was set stands afterwards.
  void replaceSection(const std::string& strSection);
  // Merges into the file, by a new file "<file>.tmp" that takes its place and so has an owner and a mode of its own. A
  // missing file gets what overwrite writes, so no defaults. May run again.
  bool update(const std::string& strPath) const;
  // Puts a new file with the forced values alone in the place of whatever file has this name.
  bool overwrite(const std::string& strPath) const;
  // The text that overwrite would write.
  std::string dump() const;
  // The text that update would put in the place of a file with this text; lines are kept byte for byte, in order.
  std::string merge(const std::string& strText) const;

 private:
  std::map<std::string, IniSectionData> data;     // values to force
  std::map<std::string, IniSectionData> defData;  // values to add if the key is missing
  std::set<std::string> toReplace;                // sections whose key lines are dropped
};
