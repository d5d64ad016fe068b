// database: the one door to PostgreSQL, through libdbi.
// Threads:   main only: one connection without a lock.
// Ownership: DatabaseConnection owns its libdbi handle.
// Errors:    see idatabase.h. No operation blocks, queues or retries: one reconnect a call, then the default.
#pragma once

#include <dbi/dbi.h>

#include <string>

#include "idatabase.h"

// Opens a connection to the local server. 0: connected, 1: failed; *conn receives the handle in both cases.
int getDbConnection(void** conn, const char* acDbUser, bool fNotifyError);

class DatabaseConnection {
 public:
  DatabaseConnection() = default;
  ~DatabaseConnection();
  DatabaseConnection(const DatabaseConnection&) = delete;
  DatabaseConnection& operator=(const DatabaseConnection&) = delete;

  bool Connect();
  bool Connect(const std::string& strDbUser);
  // Makes sure of the connection: a ping, and one attempt to connect when it fails.
  bool Reconnect();
  dbi_result Query(const std::string& strQuery);  // null on failure; the caller frees it
  bool ExecNonQuery(const std::string& strQuery);
  // The text as an SQL literal, quotes included. Needs a live connection.
  std::string Quote(const std::string& strText);
  std::string GetKeys(const StringMap& rMap);
  std::string GetValuesQuoted(const StringMap& rMap);
  void LogError();

  dbi_conn conn = nullptr;
  std::string strDbUser = "root";
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
  // Two user names on purpose: this one serves WaitForConnection only, all SQL runs as DatabaseConnection's.
  std::string strDbUser = "root";
  long long iRecorderID = 0;
  DatabaseConnection rSharedConn;
};
