#include "PgServer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "LogSink.h"

namespace {

constexpr char STATEMENT_MARK[] = "LOG:  statement: ";
constexpr char FAILED_MARK[] = "STATEMENT:  ";
constexpr std::size_t STACK_LINES = 4;

std::streamoff iLogPos = 0;  // statements before it have been taken

std::string ShellQuoted(const std::string& strText) {
  std::string strQuoted = "'";
  for (const char ch : strText) strQuoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
  return strQuoted + "'";
}

}  // namespace

namespace pg {

std::string Sql(const std::string& strSql) {
  const std::string strCommand =
      "PGOPTIONS='-c log_statement=none -c client_min_messages=warning' psql -XqAt -v "
      "ON_ERROR_STOP=1 -P null='(null)' -c " +
      ShellQuoted(strSql) + " 2>&1";
  FILE* prPipe = popen(strCommand.c_str(), "r");
  std::string strOutput;
  char acPiece[4096];
  while (prPipe != nullptr && fgets(acPiece, sizeof acPiece, prPipe) != nullptr) strOutput += acPiece;
  if (prPipe == nullptr || pclose(prPipe) != 0) ADD_FAILURE() << strSql << "\n" << strOutput;
  while (!strOutput.empty() && strOutput.back() == '\n') strOutput.pop_back();
  return strOutput;
}

// The server writes each statement before it runs it, and the further lines of a statement behind a tab. What it cannot
// parse it writes only with the error, so that is where such a statement is taken from.
Texts TakeStatements() {
  std::ifstream rLog(getenv("PGLOG"));
  rLog.seekg(iLogPos);
  Texts astrStatements;
  bool fInStatement = false;
  bool fSyntaxError = false;
  std::string strLine;
  while (std::getline(rLog, strLine)) {
    iLogPos += static_cast<std::streamoff>(strLine.size()) + 1;
    if (fInStatement && !strLine.empty() && strLine[0] == '\t') {
      astrStatements.back() += "\n" + strLine.substr(1);
      continue;
    }
    if (beginsWith(strLine, "ERROR:  ")) fSyntaxError = beginsWith(strLine, "ERROR:  syntax error");
    const char* acMark = fSyntaxError && beginsWith(strLine, FAILED_MARK) ? FAILED_MARK : STATEMENT_MARK;
    fInStatement = beginsWith(strLine, acMark);
    if (fInStatement) astrStatements.push_back(strLine.substr(strlen(acMark)));
  }
  return astrStatements;
}

void Server(const std::string& strVerb) {
  ASSERT_EQ(std::system((std::string(MORVEX_SOURCE_DIR "/script/sandbox-pg ") + strVerb).c_str()), 0)
      << "sandbox-pg " << strVerb;
}

bool AwaitConnections(int iCount) {
  const std::string strSelect =
      "SELECT count(*) FROM pg_stat_activity WHERE backend_type='client backend' AND pid<>pg_backend_pid()";
  for (int iTry = 0; iTry < 500; iTry++) {  // each try takes the time of a psql run
    if (Sql(strSelect) == std::to_string(iCount)) return true;
  }
  return false;
}

MissingTable::MissingTable(const std::string& strName) : strTable(strName) {
  Sql("ALTER TABLE " + strTable + " RENAME TO missing_for_a_while");
}

MissingTable::~MissingTable() {
  Sql("ALTER TABLE missing_for_a_while RENAME TO " + strTable);
}

RefusingTable::RefusingTable(const std::string& strName) : strTable(strName) {
  Sql("ALTER TABLE " + strTable + " ADD CONSTRAINT refused CHECK (false) NOT VALID");
}

RefusingTable::~RefusingTable() {
  Sql("ALTER TABLE " + strTable + " DROP CONSTRAINT refused");
}

// libdbi makes its code from SQLSTATE, read as a number in base 36: 42P01 and 23514 here.
std::string MissingTableLine(const std::string& strTable) {
  return "3 DB error code 6844177 6844177: ERROR:  relation \"" + strTable + "\" does not exist";
}

std::string RefusingTableLine(const std::string& strTable) {
  return "3 DB error code 3505720 3505720: ERROR:  new row for relation \"" + strTable +
         "\" violates check constraint \"refused\"";
}

Texts TakeLogLines() {
  Texts astrLines;
  std::size_t iStackLines = STACK_LINES;  // seen since the last query error
  for (const std::string& strText : logsink::TakeTexts()) {
    if (strText.rfind("6 stack: ", 0) == 0) {
      iStackLines++;
      continue;
    }
    EXPECT_EQ(iStackLines, STACK_LINES) << "before: " << strText;
    const bool isError = strText.rfind("3 DB error code ", 0) == 0;
    iStackLines = isError ? 0 : STACK_LINES;
    astrLines.push_back(strText.substr(0, strText.find('\n')));
  }
  EXPECT_EQ(iStackLines, STACK_LINES) << "at the end of the log";
  return astrLines;
}

const Texts OUTAGE_LINES = {
    "7 Lost DB connection, need reconnect...",
    "3 DB connect error 0 connection to server on socket \"/var/run/postgresql/.s.PGSQL.5432\" failed: No such file or "
    "directory"};

std::string Told(const StdStringMap& rMap) {
  std::string strText;
  for (const auto& [strKey, strValue] : rMap)
    strText.append("[").append(strKey).append("=").append(strValue).append("]");
  return strText;
}

void DatabaseFixture::SetUp() {
  Sql("TRUNCATE Configs, recorders, Contacts, CallerIDs, Lines, Calls, ActiveCalls, IdMap, LocalIdMapping, Users, "
      "UserPhones RESTART IDENTITY");
  (void)logsink::Take();
  ASSERT_EQ(rDatabase.GetConfig("none"), "");  // opens the connection
  ASSERT_EQ(logsink::TakeTexts(), Texts());
}

}  // namespace pg
