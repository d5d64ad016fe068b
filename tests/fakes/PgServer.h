// PgServer: the sandbox's real PostgreSQL server, as tests look at it from outside the code under test.
// Rows are read and written by psql; statements are read back from the server's log, as the server received them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Texts.h"
#include "database.h"

namespace pg {

// Runs SQL behind the back of the code under test, unlogged. Rows come one a line, columns joined by "|", NULL as
// "(null)"; a failure fails the test.
std::string Sql(const std::string& strSql);
// The statements of clients since the last call, oldest first, each word for word.
Texts TakeStatements();
// "start", "stop" (connections end too) or "restart"; returns when done.
void Server(const std::string& strVerb);
// Waits until this many connections are open: a server process lives on for a moment after its client has gone.
bool AwaitConnections(int iCount);

// A table that is not there for a while: each statement on it fails on a live connection.
class MissingTable {
 public:
  explicit MissingTable(const std::string& strTable);
  ~MissingTable();

 private:
  std::string strTable;
};

// A table that can be read but refuses new and changed rows for a while.
class RefusingTable {
 public:
  explicit RefusingTable(const std::string& strTable);
  ~RefusingTable();

 private:
  std::string strTable;
};

// The lines that TakeLogLines gives for a statement on such a table; the name in lower case.
std::string MissingTableLine(const std::string& strTable);
std::string RefusingTableLine(const std::string& strTable);

// A server that is away for a while.
class Outage {
 public:
  Outage() { Server("stop"); }
  ~Outage() { Server("start"); }
};

// Log lines as "<prio> <text>", each error cut to its first line. Checks that the stack, which names addresses, follows
// every query error as four lines of LOG_INFO, and leaves these out.
Texts TakeLogLines();
// What one operation logs when the server is away: with a connection that broke, and with none before.
extern const Texts OUTAGE_LINES;

// What an operation answered, as one text "[key=value][key=value]".
std::string Told(const StdStringMap& rMap);

// A database with empty tables, ids that start at 1, and a connection that is open.
class DatabaseFixture : public testing::Test {
 protected:
  static void SetUpTestSuite() { Database::Init(); }
  static void TearDownTestSuite() { Database::Deinit(); }
  void SetUp() override;

  // The statements that an operation sends, without the ping that must come first.
  template <class Operation>
  Texts Sent(Operation rOperation) {
    (void)TakeStatements();
    rOperation();
    Texts astrSent = TakeStatements();
    if (astrSent.empty() || astrSent.front() != "SELECT 1") {
      ADD_FAILURE() << "the operation did not begin with a ping";
      return astrSent;
    }
    astrSent.erase(astrSent.begin());
    return astrSent;
  }

  Database rDatabase;
};

}  // namespace pg
