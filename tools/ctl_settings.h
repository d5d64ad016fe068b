// ctl_settings: the settings that the recorder reads, as Configs has them: listed, checked and set.
// What a setting means, where it belongs and which values it takes stands in src/settingstable.h.
// Files:     ctl_settings.cpp lists and documents, ctl_settings_check.cpp finds what the recorder would not take as it
//            was meant, ctl_settings_set.cpp writes. The database is asked in one transaction each, within 3 seconds.
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
// The part of Configs that its rows stand in, or the daemon does not see them; empty: any, and for files.
const char* PartOf(const SettingRow& rRow);
// A table for people: a line for each row of Configs that is a setting, and one for each setting that is not set.
std::string SettingsToText(const std::vector<ConfigRow>& vRows);
// All of one setting, with its rows.
std::string SettingToText(const SettingRow& rRow, const std::vector<ConfigRow>& vRows);
// For scripts: one object a setting. prOnly: null, or the one that is wanted.
nlohmann::json SettingsToJson(const std::vector<ConfigRow>& vRows, const SettingRow* prOnly = nullptr);
// docs/settings.md, whole.
std::string SettingsToMarkdown();

// -- check ------------------------------------------------------------------------------------------------------------
struct SettingFinding {
  std::string strParam, strPart;
  std::string strText;  // a sentence without its end
};
// Keys in a part where the recorder does not see them, unknown keys, values that it takes otherwise than they look.
// Configs is not the recorder's alone: an unknown key counts in part "crec", and elsewhere when a known one is like it.
std::vector<SettingFinding> CheckSettings(const std::vector<ConfigRow>& vRows);
// What is wrong with a value, of a channel list with that of one channel; empty: nothing.
std::string CheckValue(const SettingRow& rRow, const std::string& strValue);
// The same with a whole list, item by item, and with the number of channels of the board where the rows tell it.
std::vector<std::string> CheckWholeValue(const SettingRow& rRow, const std::string& strBoard,
                                         const std::string& strValue, const std::vector<ConfigRow>& vRows);
// How many channels a board has; -1: the rows do not tell.
int ChannelsOfBoard(const std::string& strBoard, const std::vector<ConfigRow>& vRows);
// " (is it RecEnc?)" or the like, empty when no key is like it.
std::string NearestSettingText(const std::string& strKey);
std::string FindingsToText(const std::vector<SettingFinding>& vFindings);
nlohmann::json FindingsToJson(const std::vector<SettingFinding>& vFindings);

// -- set --------------------------------------------------------------------------------------------------------------
struct SettingChange {
  std::string strKey, strValue;
  std::string strBoard;  // empty: the key names the board or has none
  std::string strPart;   // empty: where the setting belongs
  int iChannel = -1;     // of a channel list: the item to change; -1: the whole list
};
// What a change comes to.
struct SettingPlan {
  std::string strComplaint;  // empty: the change makes sense
  ECtlExit eExit = CTL_OK;   // with a complaint
  const SettingRow* prRow = nullptr;
  std::string strParam, strPart;
  bool fWasSet = false;
  std::string strBefore, strAfter;
};
SettingPlan PlanChange(const SettingChange& rChange, const std::vector<ConfigRow>& vRows);
// The name, and a line each for the value before and after; control characters masked.
std::string PlanToText(const SettingPlan& rPlan);

// -- the subcommands --------------------------------------------------------------------------------------------------
struct SettingsView {
  std::string strKey;  // empty: all
  bool fCheck = false;
  bool fJson = false;
  bool fMarkdown = false;
};
// Print, and give the exit status.
int RunSettings(const SettingsView& rView);
int RunSet(const SettingChange& rChange);
