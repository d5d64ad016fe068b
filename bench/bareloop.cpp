// bareloop: what the statements of calls take by themselves: the same statements and pings through the same library,
// one after the other on one connection, and nothing else.
//
// usage: bareloop CALLS START_FILE END_FILE UP
//
// The files hold what the server has logged of one call's beginning and end, separated by NUL bytes; "{id}" stands for
// the id that the insertion into ActiveCalls gave. So many calls are UP when one begins or ends, as a table that holds
// more rows is slower: 1 if each ends before the next begins, CALLS if all have begun before the first ends. Prints the
// seconds of all beginnings and of all ends.
// The calls without an instance handle, as the daemon has them.
#define LIBDBI_API_DEPRECATED
#include <dbi/dbi.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* PING = "SELECT 1";  // how the library's ping shows in the server's log
constexpr const char* SEQUENCE = "SELECT currval('";
constexpr const char* CALL_SEQUENCE = "ActiveCalls_id_seq";
constexpr const char* ID = "{id}";

dbi_conn hConn = nullptr;

[[noreturn]] void Die(const char* acWhat) {
  const char* acText = "";
  if (hConn != nullptr) (void)dbi_conn_error(hConn, &acText);
  fprintf(stderr, "bareloop: %s: %s\n", acWhat, acText);
  std::exit(1);
}

void Connect() {
  (void)dbi_initialize(nullptr);
  hConn = dbi_conn_new("pgsql");
  if (hConn == nullptr) Die("no driver for PostgreSQL");
  (void)dbi_conn_set_option(hConn, "username", "root");
  (void)dbi_conn_set_option(hConn, "dbname", "morvex");
  if (dbi_conn_connect(hConn) < 0) Die("connect");
}

std::vector<std::string> Statements(const char* acFile) {
  std::ifstream rFile(acFile, std::ios::binary);
  if (!rFile) Die(acFile);
  const std::string strAll{std::istreambuf_iterator<char>(rFile), {}};
  std::vector<std::string> astrStatements;
  for (std::size_t iAt = 0; iAt < strAll.size();) {
    const std::size_t iEnd = strAll.find('\0', iAt);
    astrStatements.push_back(strAll.substr(iAt, iEnd - iAt));
    if (iEnd == std::string::npos) break;
    iAt = iEnd + 1;
  }
  return astrStatements;
}

void Query(std::string strStatement, unsigned long long uiId) {
  for (std::size_t iAt; (iAt = strStatement.find(ID)) != std::string::npos;) {
    strStatement.replace(iAt, strlen(ID), std::to_string(uiId));
  }
  const dbi_result hResult = dbi_conn_query(hConn, strStatement.c_str());
  if (hResult == nullptr) Die(strStatement.c_str());
  while (dbi_result_next_row(hResult) != 0) {
  }
  (void)dbi_result_free(hResult);
}

unsigned long long SequenceLast(const std::string& strStatement) {
  const std::size_t iStart = strlen(SEQUENCE);
  const std::string strSequence = strStatement.substr(iStart, strStatement.find('\'', iStart) - iStart);
  const unsigned long long uiId = dbi_conn_sequence_last(hConn, strSequence.c_str());
  return strSequence == CALL_SEQUENCE ? uiId : 0;
}

// The seconds that it took. Sets uiId where the call gets one.
double Run(const std::vector<std::string>& astrStatements, unsigned long long& uiId) {
  const Clock::time_point rBegin = Clock::now();
  for (const std::string& strStatement : astrStatements) {
    if (strStatement == PING) {
      if (dbi_conn_ping(hConn) == 0) Die("ping");
    } else if (strStatement.compare(0, strlen(SEQUENCE), SEQUENCE) == 0) {
      if (const unsigned long long uiNew = SequenceLast(strStatement); uiNew != 0) uiId = uiNew;
    } else {
      Query(strStatement, uiId);
    }
  }
  return std::chrono::duration<double>(Clock::now() - rBegin).count();
}

}  // namespace

int main(int iArgs, char** acArgs) {
  if (iArgs != 5) {
    fprintf(stderr, "usage: bareloop CALLS START_FILE END_FILE UP\n");
    return 2;
  }
  const auto uiCalls = std::strtoul(acArgs[1], nullptr, 10);
  const std::vector<std::string> astrStart = Statements(acArgs[2]);
  const std::vector<std::string> astrEnd = Statements(acArgs[3]);
  const auto uiUp = std::strtoul(acArgs[4], nullptr, 10);
  Connect();
  std::vector<unsigned long long> vIds(uiCalls);
  double dStarts = 0;
  double dEnds = 0;
  std::size_t uiEnded = 0;
  for (std::size_t uiBegun = 0; uiBegun < uiCalls;) {
    dStarts += Run(astrStart, vIds[uiBegun++]);
    while (uiEnded < uiBegun && (uiBegun - uiEnded >= uiUp || uiBegun == uiCalls)) {
      dEnds += Run(astrEnd, vIds[uiEnded++]);
    }
  }
  printf("{\"starts_s\": %.6f, \"ends_s\": %.6f}\n", dStarts, dEnds);
  dbi_conn_close(hConn);
  return 0;
}
