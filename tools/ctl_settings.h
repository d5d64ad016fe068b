// ctl_settings: the settings that the recorder reads, as Configs has them: listed.
// What a setting means, where it belongs and which values it takes stands in src/settingstable.h.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

#include "ctl_socket.h"

struct SettingRow;

// A row of Configs.
struct ConfigRow {
  std::string strParam, strValue, strPart;
};

// All rows by name. False when the database cannot be read; strError tells why. strConnection: libpq connection text;
// empty: the daemon's own database.
bool ReadConfigs(std::vector<ConfigRow>& vRows, std::string& strError, const std::string& strConnection = "");

// -- list -------------------------------------------------------------------------------------------------------------
// The key as people see it: with "<board>_" or the directory in front.
std::string KeyText(const SettingRow& rRow);
// The allowed values in words: "1 to 4".
std::string ValuesText(const SettingRow& rRow);
// The row of a key as people write it: with or without the board in front. Null: there is none.
const SettingRow* FindSetting(const std::string& strKey);
// A table for people: a line for each row of Configs that is a setting, and one for each setting that is not set.
std::string SettingsToText(const std::vector<ConfigRow>& vRows);
// All of one setting, with its rows.
std::string SettingToText(const SettingRow& rRow, const std::vector<ConfigRow>& vRows);
// For scripts: one object a setting. prOnly: null, or the one that is wanted.
nlohmann::json SettingsToJson(const std::vector<ConfigRow>& vRows, const SettingRow* prOnly = nullptr);
// docs/settings.md, whole.
std::string SettingsToMarkdown();

// -- the subcommands --------------------------------------------------------------------------------------------------
struct SettingsView {
  std::string strKey;  // empty: all
  bool fJson = false;
  bool fMarkdown = false;
};
// Prints, and gives the exit status.
int RunSettings(const SettingsView& rView);
