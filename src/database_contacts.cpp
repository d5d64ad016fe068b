// Contacts: finding or creating the rows under which calls are filed. A contact is a person or a line; numbers
// (CallerIDs) and lines (Lines) point to it. Operations that create look first and insert two rows when nothing is
// found: the contact, then what points to it. The two commit separately, so a failure of the second leaves a contact
// that nothing points to, and the result then has iContactID without the other id. A contact whose id cannot be read
// stays alone too, and the result knows none: a number or line with contact 0 would be found under it for ever, while
// one that has no row yet gets its contact at the next look-up.
#include "database.h"

#include <sstream>

namespace {

// Ids leave these operations as 32-bit text, but for GetOrCreateLineContact; the sequences stay far below that. In rows
// of calls all but the local contact are whole; see FillCallInfo in BaseChannel_record.cpp.
std::string IdText(long long iID) {
  return ToStdString(static_cast<int>(iID));
}

// What each look-up takes from the row that it finds.
void TakeNumber(const DatabaseResult& rRow, Contact& rContact) {
  rContact.iCallerID = rRow.GetLongLong("id");
  rContact.iContactID = rRow.GetLongLong("contactid");
}

void TakeNumberAndLocal(const DatabaseResult& rRow, Contact& rContact) {
  TakeNumber(rRow, rContact);
  rContact.fLocal = rRow.GetInt("islocal") != 0;
}

void TakeLine(const DatabaseResult& rRow, Contact& rContact) {
  rContact.iLineID = rRow.GetLongLong("id");
  rContact.iContactID = rRow.GetLongLong("contactid");
}

}  // namespace

// The rows are given back before the caller inserts any.
Database::EFind Database::Find(const std::string& strSelect, void (*Take)(const DatabaseResult&, Contact&),
                               Contact& rContact) {
  DatabaseResult rResult(rSharedConn.Query(strSelect));
  if (rResult.Failed()) {
    rSharedConn.LogError();
    return FIND_FAILED;
  }
  if (!rResult.NextRow()) return FIND_NONE;
  Take(rResult, rContact);
  return FIND_ROW;
}

// -- numbers ----------------------------------------------------------------------------------------------------------

std::string Database::SelectCallerID(const std::string& strCallerID) {
  return "SELECT id,contactid,islocal from callerids where callerid=" + rSharedConn.Quote(strCallerID) +
         " AND deleted=0";
}

// islocal is not read here: whether a number in a running call is local is decided by the look-up that creates.
Contact Database::GetCallerIDContact(const std::string& strCallerID) {
  Contact rContact;
  if (rSharedConn.Reconnect()) (void)Find(SelectCallerID(strCallerID), TakeNumber, rContact);  // else the default
  return rContact;
}

// An existing row never changes. fLocal of the result comes from the row alone, so it is false for a number made here.
Contact Database::GetOrCreateCallerIDContact(const std::string& strCallerID, const std::string& /*strCallerID2*/,
                                             bool fLocal, const std::string& strName) {
  Contact rContact;
  if (!rSharedConn.Reconnect()) return rContact;
  if (Find(SelectCallerID(strCallerID), TakeNumberAndLocal, rContact) != FIND_NONE) return rContact;
  rContact.iContactID = CreateContact(strName);
  if (rContact.iContactID == -1) return rContact;
  const std::string strInsert = "INSERT INTO CallerIDs (callerid,callerid2,islocal,contactid) VALUES (" +
                                rSharedConn.Quote(strCallerID) + ",''," + (fLocal ? "1" : "0") + "," +
                                IdText(rContact.iContactID) + ")";
  if (rSharedConn.ExecNonQuery(strInsert)) rContact.iCallerID = rSharedConn.SequenceLast("callerids_id_seq");
  return rContact;
}

long long Database::CreateContact(const std::string& strName) {
  const std::string strInsert =
      "INSERT INTO Contacts (name,extra,parentcontact) VALUES (" + rSharedConn.Quote(strName) + ",'',0)";
  if (!rSharedConn.ExecNonQuery(strInsert)) return -1;
  const long long iID = rSharedConn.SequenceLast("contacts_id_seq");
  return iID != 0 ? iID : -1;
}

// Lines are not looked at: a contact that only a line holds counts as unused. Ids of -1 match no row.
void Database::DeleteIfUnused(Contact rContact) {
  if (!rSharedConn.Reconnect()) return;
  (void)rSharedConn.ExecNonQuery(  // logged there; the contact is tried all the same
      "DELETE FROM CallerIDs WHERE id=" + rSharedConn.Quote(IdText(rContact.iCallerID)) +
      " AND NOT EXISTS (SELECT 1 FROM Calls WHERE localcallerid=CallerIDS.id OR remotecallerid=CallerIDS.id)"
      " AND NOT EXISTS (SELECT 1 FROM ActiveCalls WHERE localcallerid=CallerIDS.id OR remotecallerid=CallerIDS.id);");
  (void)rSharedConn.ExecNonQuery("DELETE FROM Contacts WHERE id=" + rSharedConn.Quote(IdText(rContact.iContactID)) +
                                 " AND NOT EXISTS (SELECT 1 FROM CallerIDs WHERE contactid=Contacts.id)");
}

// -- lines ------------------------------------------------------------------------------------------------------------

Contact Database::GetOrCreateLineContact(int iChannel, long long iRecorder, const std::string& strName) {
  Contact rContact;
  if (!rSharedConn.Reconnect()) return rContact;
  std::ostringstream rSelect;
  rSelect << "SELECT id,contactid FROM Lines WHERE linenr=" << iChannel << " AND recorderid=" << iRecorder;
  if (Find(rSelect.str(), TakeLine, rContact) != FIND_NONE) return rContact;
  rContact.iContactID = CreateContact(strName);
  if (rContact.iContactID == -1) return rContact;
  std::ostringstream rInsert;
  rInsert << "INSERT INTO Lines (contactid,recorderid,linenr) VALUES (" << rContact.iContactID << "," << iRecorder
          << "," << iChannel << ")";
  if (rSharedConn.ExecNonQuery(rInsert.str())) rContact.iLineID = rSharedConn.SequenceLast("lines_id_seq");
  return rContact;
}

// -- look-ups ---------------------------------------------------------------------------------------------------------

std::string Database::GetContactName(int iContactId) {
  if (!rSharedConn.Reconnect()) return "";
  DatabaseResult rResult(rSharedConn.Query("SELECT name FROM Contacts WHERE id=" + ToStdString(iContactId)));
  return rResult.NextRow() ? rResult.GetString("name") : "";
}

// Deleted numbers count too, and of several numbers the server decides which comes first.
CallerIdContact Database::GetCustomLocal(long long iContactID) {
  CallerIdContact rCustom;
  if (!rSharedConn.Reconnect()) return rCustom;
  {
    DatabaseResult rMapping(rSharedConn.Query("SELECT * FROM LocalIdMapping  WHERE srcid=" + IdText(iContactID)));
    if (!rMapping.NextRow()) return rCustom;
    rCustom.fFound = true;
    rCustom.iContactID = rMapping.GetLongLong("dstid");
    rCustom.iUpdateTime = rMapping.GetLongLong("updatetime");
  }
  DatabaseResult rNumber(
      rSharedConn.Query("SELECT id,callerid from callerids where contactid=" + IdText(rCustom.iContactID)));
  if (rNumber.NextRow()) {
    rCustom.iCallerID = rNumber.GetLongLong("id");
    rCustom.strText = rNumber.GetString("callerid");
  }
  return rCustom;
}

IdMapEntry Database::GetIdMapEntry(const std::string& strLocalNum) {
  IdMapEntry rEntry;
  if (!rSharedConn.Reconnect()) return rEntry;
  DatabaseResult rResult(
      rSharedConn.Query("SELECT value,target FROM IdMap  WHERE theid=" + rSharedConn.Quote(strLocalNum)));
  if (rResult.NextRow()) {
    rEntry.fFound = true;
    rEntry.strValue = rResult.GetString("value");
    rEntry.strTarget = rResult.GetString("target");
  }
  return rEntry;
}
