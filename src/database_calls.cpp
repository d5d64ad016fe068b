// Calls: a row of ActiveCalls lives as long as the call and its finishing, a row of Calls lasts. One row builder fills
// both tables, so one insert serves both. The web side edits notes, category, processing state and callextra of the
// active row meanwhile; GetActiveCallCarryOver fetches these for the lasting row. An update of a row that is gone
// changes nothing and reports nothing.
#include "database.h"

#include <syslog.h>

#include "datafile.h"
#include "logging.h"

// -- adding and removing rows -----------------------------------------------------------------------------------------

int Database::AddCall(const StringMap& rCallInfo) {
  return AddCallGeneric("Calls", rCallInfo);
}

int Database::AddActiveCall(const StringMap& rCallInfo) {
  return AddCallGeneric("ActiveCalls", rCallInfo);
}

int Database::AddCallGeneric(const std::string& strTable, const StringMap& rCallInfo) {
  if (!rSharedConn.Reconnect()) return -1;
  const std::string strInsert = "INSERT INTO " + strTable + "(" + rSharedConn.GetKeys(rCallInfo) + ") VALUES (" +
                                rSharedConn.GetValuesQuoted(rCallInfo) + ")";
  if (!rSharedConn.ExecNonQuery(strInsert)) return -1;
  const int iID = static_cast<int>(rSharedConn.SequenceLast(strTable + "_id_seq"));
  lg(LOG_NOTICE, "Added %s to database (ID: %d)", strTable.c_str(), iID);
  return iID;
}

void Database::DeleteActiveCall(int iID) {
  if (!rSharedConn.Reconnect()) return;
  (void)rSharedConn.ExecNonQuery("DELETE FROM ActiveCalls WHERE id=" + ToStdString(iID));  // logged there
}

// -- looking back -----------------------------------------------------------------------------------------------------

int Database::GetCallBack(int iContactID, int iBack) {
  if (!rSharedConn.Reconnect()) return -1;
  const std::string strSelect = "SELECT id FROM Calls WHERE localcontact=" + ToStdString(iContactID) +
                                " ORDER BY startdate DESC LIMIT " + ToStdString(iBack);
  lg(LOG_DEBUG, "%s", strSelect.c_str());
  DatabaseResult rResult(rSharedConn.Query(strSelect));
  if (rResult.Failed()) {
    rSharedConn.LogError();
    return -1;
  }
  for (int iRow = 1; rResult.NextRow(); iRow++) {
    if (iRow == iBack) return rResult.GetInt("id");
  }
  return -1;  // the contact has fewer calls, or iBack is 0
}

// -- changing the active row ------------------------------------------------------------------------------------------

bool Database::ChangeActiveCall(int iID, const std::string& strAssignments) {
  return rSharedConn.ExecNonQuery("UPDATE ActiveCalls SET " + strAssignments + " WHERE id=" + ToStdString(iID));
}

// The blanks below belong to the statements: people search the server's log for them as they stand.

void Database::UpdateActiveCallRemoteContact(int iID, Contact& rContact, const std::string& strRemote) {
  if (!rSharedConn.Reconnect()) return;
  const std::string strQuoted = rSharedConn.Quote(strRemote);
  (void)ChangeActiveCall(iID, "  remotecallerid=" + rContact.StdStrCallerID() + " ,remotecontact=" +
                                  rContact.StdStrContactID() + " ,remote=" + strQuoted + " ,remotefull=" + strQuoted);
}

void Database::UpdateActiveCallLocalContact(int iID, Contact& rContact, const std::string& strLocal) {
  if (!rSharedConn.Reconnect()) return;
  const std::string strQuoted = rSharedConn.Quote(strLocal);
  (void)ChangeActiveCall(iID, "  localcallerid=" + rContact.StdStrCallerID() + " ,localcontact=" +
                                  rContact.StdStrContactID() + " ,local=" + strQuoted + " ,localfull=" + strQuoted);
}

void Database::UpdateActiveCallConnectedNum(int iID, Contact& rContact, const std::string& strConnected) {
  if (!rSharedConn.Reconnect()) return;
  (void)ChangeActiveCall(iID, "  connectedcallerid=" + rContact.StdStrCallerID() + " ,connectedcontact=" +
                                  rContact.StdStrContactID() + " ,connected=" + rSharedConn.Quote(strConnected));
}

void Database::UpdateActiveCallCategory(int iID, int iCategory) {
  if (!rSharedConn.Reconnect()) return;
  (void)ChangeActiveCall(iID, " category=" + ToStdString(iCategory));
}

// An empty map sends a statement without assignments, which the server refuses: the caller learns it from the result.
bool Database::UpdateActiveCall(int iID, const StringMap& rCallInfo) {
  if (!rSharedConn.Reconnect()) return false;
  std::string strAssignments;
  for (const auto& [strKey, strValue] : rCallInfo.data) {
    if (!strAssignments.empty()) strAssignments += " , ";
    strAssignments += strKey + "=" + rSharedConn.Quote(strValue);
  }
  return ChangeActiveCall(iID, strAssignments);
}

// -- callextra and the carry-over -------------------------------------------------------------------------------------

bool Database::ReadActiveCallExtra(int iID, std::string& strExtra) {
  DatabaseResult rResult(rSharedConn.Query("SELECT callextra FROM ActiveCalls WHERE id=" + ToStdString(iID)));
  if (rResult.Failed()) rSharedConn.LogError();
  if (!rResult.NextRow()) return false;
  strExtra = rResult.GetString("callextra");
  return true;
}

// Two statements without a transaction: a write by the web side between them is lost. This process is the only other
// writer, on one thread, so nothing of ours can get between.
void Database::SetActiveCallExtra(int iID, const std::string& strKey, const std::string& strValue) {
  if (!rSharedConn.Reconnect()) return;
  std::string strExtra;
  if (!ReadActiveCallExtra(iID, strExtra)) return;
  StdStringMap rExtra = StringToArray(strExtra);
  rExtra[strKey] = strValue;
  (void)ChangeActiveCall(iID, "callextra=" + rSharedConn.Quote(ArrayToString(rExtra)));
}

StdStringMap Database::GetActiveCallExtra(int iID) {
  if (!rSharedConn.Reconnect()) return {};
  std::string strExtra;
  if (!ReadActiveCallExtra(iID, strExtra)) return {};
  return StringToArray(strExtra);
}

StdStringMap Database::GetActiveCallCarryOver(int iID) {
  StdStringMap rCarryOver;
  if (!rSharedConn.Reconnect()) return rCarryOver;
  DatabaseResult rResult(
      rSharedConn.Query("SELECT notes, notes2,  notes3, notes4, notes5,  category, processingstate, callextra"
                        " FROM ActiveCalls WHERE id=" +
                        ToStdString(iID)));
  if (rResult.Failed()) rSharedConn.LogError();
  if (!rResult.NextRow()) return rCarryOver;
  for (const char* acNotes : {"notes", "notes2", "notes3", "notes4", "notes5"}) {
    rCarryOver[acNotes] = rResult.GetString(acNotes);
  }
  for (const char* acNumber : {"category", "processingstate"}) {
    rCarryOver[acNumber] = ToStdString(rResult.GetInt(acNumber));
  }
  rCarryOver["callextra"] = rResult.GetString("callextra");
  return rCarryOver;
}
