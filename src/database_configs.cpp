// Settings, the recorder's own row, and the accounts of the web side. Settings are texts by name, grouped in parts;
// what they mean is the readers' business. The look-ups here are silent, all but that of the recorder's row: a query
// that fails reads as one without rows.
#include "database.h"

#include "callcodes.h"

// -- settings ---------------------------------------------------------------------------------------------------------

// No filter by part: SetConfigsPart keeps a name unique over all parts.
std::string Database::GetConfig(const std::string& strParam) {
  if (!rSharedConn.Reconnect()) return "";
  DatabaseResult rResult(rSharedConn.Query("SELECT value FROM Configs WHERE param=" + rSharedConn.Quote(strParam)));
  return rResult.NextRow() ? rResult.GetString("value") : "";
}

int Database::GetConfigInt(const std::string& strParam) {
  return TextToInt(GetConfig(strParam));
}

void Database::GetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) {
  if (!rSharedConn.Reconnect()) return;
  DatabaseResult rResult(rSharedConn.Query("SELECT param,value FROM Configs WHERE part=" + rSharedConn.Quote(strPart)));
  while (rResult.NextRow()) rConfigs[rResult.GetString("param")] = rResult.GetString("value");
}

// The one transaction of the daemon: readers see all entries or none. It deletes by name alone, so a setting moves here
// from whatever part held it. A failed statement spoils the whole transaction for the server; the rest is sent
// regardless and each failure logged, and the COMMIT at the end clears the connection for the next operation.
void Database::SetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) {
  if (!rSharedConn.Reconnect()) return;
  (void)rSharedConn.ExecNonQuery("BEGIN");
  for (const auto& [strParam, strValue] : rConfigs) ReplaceConfig(strParam, strValue, strPart);
  (void)rSharedConn.ExecNonQuery("COMMIT");
}

void Database::ReplaceConfig(const std::string& strParam, const std::string& strValue, const std::string& strPart) {
  const std::string strQuotedParam = rSharedConn.Quote(strParam);
  (void)rSharedConn.ExecNonQuery("DELETE FROM Configs WHERE param=" + strQuotedParam);
  (void)rSharedConn.ExecNonQuery("INSERT INTO Configs(param,value,part) VALUES (" + strQuotedParam + "," +
                                 rSharedConn.Quote(strValue) + "," + rSharedConn.Quote(strPart) + ")");
}

// -- the recorder -----------------------------------------------------------------------------------------------------

void Database::InitRecorder(const std::string& strRecId, const std::string& strName) {
  if (!rSharedConn.Reconnect()) return;
  const std::string strQuotedId = rSharedConn.Quote(strRecId);
  {
    DatabaseResult rResult(rSharedConn.Query("SELECT id FROM recorders WHERE recid=" + strQuotedId));
    if (rResult.Failed()) {
      rSharedConn.LogError();
      return;
    }
    if (rResult.NextRow()) {
      iRecorderID = rResult.GetLongLong("id");
      return;
    }
  }
  if (rSharedConn.ExecNonQuery("INSERT INTO recorders(recid,name,rectype,options)  VALUES (" + strQuotedId + "," +
                               rSharedConn.Quote(strName) + "," + ToStdString(RECORDER_OF_CARDS) + ",'')")) {
    iRecorderID = rSharedConn.SequenceLast("recorders_id_seq");
  }
}

// -- accounts ---------------------------------------------------------------------------------------------------------

void Database::GetUsersOfPhone(int iContactID, std::vector<int>& aiAccIDs) {
  if (!rSharedConn.Reconnect()) return;
  DatabaseResult rResult(rSharedConn.Query("SELECT accid FROM UserPhones WHERE contactid=" + ToStdString(iContactID)));
  while (rResult.NextRow()) aiAccIDs.push_back(rResult.GetInt("accid"));
}

std::string Database::GetUserStringOnAccID(int iAccID, const std::string& strField) {
  if (!rSharedConn.Reconnect()) return "";
  DatabaseResult rResult(rSharedConn.Query("SELECT " + strField + " FROM Users WHERE accid=" + ToStdString(iAccID)));
  return rResult.NextRow() ? rResult.GetString(strField.c_str()) : "";
}

int Database::GetUserIntOnAccID(int iAccID, const std::string& strField) {
  if (!rSharedConn.Reconnect()) return 0;
  DatabaseResult rResult(rSharedConn.Query("SELECT " + strField + " FROM Users WHERE accid=" + ToStdString(iAccID)));
  return rResult.NextRow() ? rResult.GetInt(strField.c_str()) : 0;
}
