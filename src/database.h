// database: the one door to PostgreSQL, through libdbi.
// Files:     connection and waiting (database.cpp), contacts and lines (database_contacts.cpp), calls
//            (database_calls.cpp), settings, recorders and users (database_configs.cpp). Tables: sql/schema.sql.
// Threads:   main only: one connection without a lock.
// Ownership: DatabaseConnection owns its libdbi handle, DatabaseResult the rows of one query.
// Errors:    see idatabase.h. No operation blocks, queues or retries: one reconnect a call, then the default. A query
//            that fails on a live connection reads as one without rows. Writes log it, and so do the reads of
//            database_calls.cpp, GetCallerIDContact and what finds or creates a row; other look-ups are silent.
// SQL:       strings go in through Quote, numbers as decimal text, each statement commits by itself.
#pragma once

// libdbi marks the calls without an instance handle as deprecated in favour of those with one. The instances serve
// programs that share libdbi with their plugins; this process is its only user, so the plain calls are the right ones.
#define LIBDBI_API_DEPRECATED
#include <dbi/dbi.h>

#include <string>

#include "idatabase.h"

// Opens a connection to the local server. 0: connected, 1: failed; *conn receives the handle in both cases.
// A failure is logged at LOG_ERR when fNotifyError is set, otherwise at LOG_WARNING.
int getDbConnection(void** conn, const char* acDbUser, bool fNotifyError);

class DatabaseConnection {
 public:
  DatabaseConnection() = default;
  ~DatabaseConnection();
  DatabaseConnection(const DatabaseConnection&) = delete;
  DatabaseConnection& operator=(const DatabaseConnection&) = delete;

  // Both open a new handle, true when connected; the second changes the user for good.
  bool Connect();
  bool Connect(const std::string& strUser);
  // Makes sure of the connection: a ping, and one attempt to connect when it fails.
  bool Reconnect();
  dbi_result Query(const std::string& strQuery);     // null on failure; the caller frees it
  bool ExecNonQuery(const std::string& strCommand);  // false, and logged, on failure
  // The id that this connection drew last from a sequence; 0, and logged, when it cannot be read.
  long long SequenceLast(const std::string& strSequence);
  // The text as an SQL literal, quotes included. Needs a live connection, throws without one: call Reconnect first.
  std::string Quote(const std::string& strText);
  // Both walk the same sorted map, so the n-th key belongs to the n-th value. Keys go bare, values through Quote.
  std::string GetKeys(const StringMap& rMap);
  std::string GetValuesQuoted(const StringMap& rMap);
  // Logs the error of the last query and the way that led to it.
  void LogError();

  dbi_conn conn = nullptr;  // owned; null before the first attempt to connect. Stays set when an attempt failed.
  std::string strDbUser = "root";
};

// The rows of one query, freed at the end of the scope.
class DatabaseResult {
 public:
  explicit DatabaseResult(dbi_result hRows) : hResult(hRows) {}  // takes hRows over; null: the query failed
  ~DatabaseResult();
  DatabaseResult(const DatabaseResult&) = delete;
  DatabaseResult& operator=(const DatabaseResult&) = delete;

  bool Failed() const { return hResult == nullptr; }
  bool NextRow();  // false behind the last row, and for a failed query
  // Columns of the current row by name; NULL reads as an empty text or 0. The column's type decides what fits:
  // GetInt wants integer, GetLongLong wants bigint.
  std::string GetString(const char* acColumn) const;
  int GetInt(const char* acColumn) const;
  long long GetLongLong(const char* acColumn) const;

 private:
  dbi_result hResult;
};

class Database : public IDatabase {
 public:
  // Once per process, around all Database objects.
  static void Init();
  static void Deinit();

  int WaitForConnection() override;
  void SetDbUser(const std::string& strUser) override;
  void InitRecorder(const std::string& strRecId, const std::string& strName) override;
  long long GetRecorderID() override;
  int AddCall(const StringMap& rCallInfo) override;
  int AddActiveCall(const StringMap& rCallInfo) override;
  int AddCallGeneric(const std::string& strTable, const StringMap& rCallInfo) override;
  void DeleteActiveCall(int iID) override;
  int GetCallBack(int iContactID, int iBack) override;
  void UpdateActiveCallRemoteContact(int iID, Contact& rContact, const std::string& strRemote) override;
  void UpdateActiveCallLocalContact(int iID, Contact& rContact, const std::string& strLocal) override;
  void UpdateActiveCallConnectedNum(int iID, Contact& rContact, const std::string& strConnected) override;
  void UpdateActiveCallCategory(int iID, int iCategory) override;
  bool UpdateActiveCall(int iID, const StringMap& rCallInfo) override;
  void SetActiveCallExtra(int iID, const std::string& strKey, const std::string& strValue) override;
  StdStringMap GetActiveCallExtra(int iID) override;
  StdStringMap GetActiveCallCarryOver(int iID) override;
  Contact GetOrCreateLineContact(int iChannel, long long iRecorderID, const std::string& strName) override;
  Contact GetCallerIDContact(const std::string& strCallerID) override;
  Contact GetOrCreateCallerIDContact(const std::string& strCallerID, const std::string& strCallerID2, bool fLocal,
                                     const std::string& strName) override;
  void DeleteIfUnused(Contact rContact) override;
  std::string GetContactName(int iContactId) override;
  void GetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override;
  std::string GetConfig(const std::string& strParam) override;
  int GetConfigInt(const std::string& strParam) override;
  void SetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override;
  void GetUsersOfPhone(int iContactID, std::vector<int>& aiAccIDs) override;
  std::string GetUserStringOnAccID(int iAccID, const std::string& strField) override;
  int GetUserIntOnAccID(int iAccID, const std::string& strField) override;
  IdMapEntry GetIdMapEntry(const std::string& strLocalNum) override;
  CallerIdContact GetCustomLocal(long long iContactID) override;

 private:
  // -- contacts: the steps that find-or-create operations share
  // A failed query, which is logged, is not taken for a missing row: a second row of the same number would follow.
  enum EFind { FIND_ROW, FIND_NONE, FIND_FAILED };
  // Hands the first row of a query to Take; leaves rContact alone when there is none.
  EFind Find(const std::string& strSelect, void (*Take)(const DatabaseResult&, Contact&), Contact& rContact);
  // Inserts a row into Contacts and gives its id; -1, and logged, on failure, also when only the id cannot be read.
  long long CreateContact(const std::string& strName);
  std::string SelectCallerID(const std::string& strCallerID);

  // -- calls
  // UPDATE of one row of ActiveCalls; strAssignments as they follow "SET ".
  bool ChangeActiveCall(int iID, const std::string& strAssignments);
  // Reads callextra as it stands; false without a row, and on a failed query, which is logged.
  bool ReadActiveCallExtra(int iID, std::string& strExtra);

  // -- settings
  // The two statements of one setting within SetConfigsPart's transaction.
  void ReplaceConfig(const std::string& strParam, const std::string& strValue, const std::string& strPart);

  // Two user names on purpose: this one serves WaitForConnection only, all SQL runs as DatabaseConnection's.
  std::string strDbUser = "root";
  long long iRecorderID = 0;
  DatabaseConnection rSharedConn;
};
