// Opening, keeping and using the one connection. Nothing connects ahead of time: each operation of Database begins with
// Reconnect, so the first one opens the connection and every later one notices by itself that the server came back.
#include "database.h"

#include <execinfo.h>
#include <syslog.h>

#include <cassert>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "logging.h"
#include "mainthread.h"

namespace {

constexpr char DB_DRIVER[] = "pgsql";
constexpr char DB_NAME[] = "morvex";
constexpr int CONNECT_ATTEMPTS = 60;  // a server that starts together with the daemon is up within a minute
constexpr std::chrono::seconds CONNECT_PAUSE{1};
constexpr int BACKTRACE_FRAMES = 5;  // enough to tell which operation failed, and for whom

// The last error of a handle. There is no handle at all when libdbi does not find its PostgreSQL driver.
int LastError(dbi_conn hConn, const char** acText) {
  if (hConn == nullptr) {
    *acText = "no libdbi driver for PostgreSQL";
    return DBI_ERROR_BADPTR;
  }
  return dbi_conn_error(hConn, acText);
}

std::string Join(const std::string& strLeft, const std::string& strRight) {
  return strLeft.empty() ? strRight : strLeft + "," + strRight;
}

}  // namespace

// No host, port or password: the local server over its socket, which knows us by our system account.
int getDbConnection(void** conn, const char* acDbUser, bool fNotifyError) {
  *conn = dbi_conn_new(DB_DRIVER);
  if (*conn != nullptr) {
    (void)dbi_conn_set_option(*conn, "username", acDbUser);  // fails only for lack of memory; connecting fails then
    (void)dbi_conn_set_option(*conn, "dbname", DB_NAME);
    if (dbi_conn_connect(*conn) >= 0) return 0;
  }
  const char* acText = "";
  const int iCode = LastError(*conn, &acText);
  lg(fNotifyError ? LOG_ERR : LOG_WARNING, "DB connect error %d %s\n", iCode, acText);
  return 1;
}

// -- DatabaseConnection -----------------------------------------------------------------------------------------------

DatabaseConnection::~DatabaseConnection() {
  if (conn != nullptr) dbi_conn_close(conn);
}

bool DatabaseConnection::Connect() {
  return getDbConnection(&conn, strDbUser.c_str(), /*fNotifyError=*/true) == 0;
}

bool DatabaseConnection::Connect(const std::string& strUser) {
  strDbUser = strUser;
  return Connect();
}

// A failed handle stays in conn until the next call, whose ping fails on it: so an outage costs one attempt a call.
bool DatabaseConnection::Reconnect() {
  assert(OnMainThread());
  if (conn != nullptr) {
    if (dbi_conn_ping(conn) != 0) return true;
    lg(LOG_DEBUG, "Lost DB connection, need reconnect...");
    dbi_conn_close(conn);
    conn = nullptr;
  }
  return Connect();
}

dbi_result DatabaseConnection::Query(const std::string& strQuery) {
  return dbi_conn_query(conn, strQuery.c_str());
}

bool DatabaseConnection::ExecNonQuery(const std::string& strCommand) {
  const DatabaseResult rResult(Query(strCommand));
  if (rResult.Failed()) LogError();
  return !rResult.Failed();
}

long long DatabaseConnection::SequenceLast(const std::string& strSequence) {
  const auto iID = static_cast<long long>(dbi_conn_sequence_last(conn, strSequence.c_str()));
  // Ids begin at 1. The row is there, under an id that its makers do not know; the library has no error for it.
  if (iID == 0) lg(LOG_ERR, "DB error, new row without id: %s", strSequence.c_str());
  return iID;
}

std::string DatabaseConnection::Quote(const std::string& strText) {
  char* acQuoted = nullptr;
  if (conn != nullptr) (void)dbi_conn_quote_string_copy(conn, strText.c_str(), &acQuoted);
  // The one exception of the daemon. Only a caller that forgot Reconnect, or the end of memory, leads here; a statement
  // with a value left out could do harm, so there is no default to go on with. Nobody catches it: the process ends and
  // the crash handler logs where.
  if (acQuoted == nullptr) throw std::runtime_error("Quote without a database connection");
  std::string strQuoted = acQuoted;
  free(acQuoted);
  return strQuoted;
}

std::string DatabaseConnection::GetKeys(const StringMap& rMap) {
  std::string strKeys;
  for (const auto& [strKey, strValue] : rMap.data) strKeys = Join(strKeys, strKey);
  return strKeys;
}

std::string DatabaseConnection::GetValuesQuoted(const StringMap& rMap) {
  std::string strValues;
  for (const auto& [strKey, strValue] : rMap.data) strValues = Join(strValues, Quote(strValue));
  return strValues;
}

void DatabaseConnection::LogError() {
  const char* acText = "";
  const int iCode = LastError(conn, &acText);
  lg(LOG_ERR, "DB error code %d %s\n", iCode, acText);

  static void* raFrames[BACKTRACE_FRAMES];  // main thread only, like the connection
  const int iFrames = backtrace(raFrames, BACKTRACE_FRAMES);
  // The symbols of the last error stay: together with raFrames they tell in a core dump what failed.
  static char** acSymbols = nullptr;
  free(static_cast<void*>(acSymbols));
  acSymbols = backtrace_symbols(raFrames, iFrames);
  if (acSymbols == nullptr) return;
  for (int i = 1; i < iFrames; i++) lg(LOG_INFO, "stack: %s", acSymbols[i]);  // frame 0 is this function
}

// -- DatabaseResult ---------------------------------------------------------------------------------------------------

DatabaseResult::~DatabaseResult() {
  if (hResult != nullptr) (void)dbi_result_free(hResult);
}

bool DatabaseResult::NextRow() {
  return hResult != nullptr && dbi_result_next_row(hResult) != 0;
}

std::string DatabaseResult::GetString(const char* acColumn) const {
  return StdStringNullSafe(dbi_result_get_string(hResult, acColumn));
}

int DatabaseResult::GetInt(const char* acColumn) const {
  return dbi_result_get_int(hResult, acColumn);
}

long long DatabaseResult::GetLongLong(const char* acColumn) const {
  return dbi_result_get_longlong(hResult, acColumn);
}

// -- Database: process-wide set-up and the wait at start --------------------------------------------------------------

void Database::Init() {
  (void)dbi_initialize(nullptr);  // without drivers each attempt to connect fails, and says so
}

void Database::Deinit() {
  dbi_shutdown();
}

// Uses a handle of its own, and its own user name. The handles of failed attempts stay open: a wait that fails ends the
// process, and Deinit closes them.
int Database::WaitForConnection() {
  int iRetry = CONNECT_ATTEMPTS;
  while (true) {
    dbi_conn hConn = nullptr;
    if (getDbConnection(&hConn, strDbUser.c_str(), /*fNotifyError=*/false) == 0) {
      dbi_conn_close(hConn);
      lg(LOG_NOTICE, "We can connect to database");
      return 0;
    }
    if (--iRetry == 0) {
      lg(LOG_NOTICE, "Failed to connect to database");
      return 1;
    }
    lg(LOG_NOTICE, "Waiting to connect to database");
    std::this_thread::sleep_for(CONNECT_PAUSE);
  }
}

void Database::SetDbUser(const std::string& strUser) {
  strDbUser = strUser;
}

long long Database::GetRecorderID() {
  return iRecorderID;
}
