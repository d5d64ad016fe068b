#include "database.h"

#include <malloc.h>

#include <ctime>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>

#include "LogSink.h"
#include "PgServer.h"
#include "TestClocks.h"
#include "logging.h"

// The connection: opening, pinging, losing and regaining it, quoting, errors, and the wait at start.

namespace {

using pg::DatabaseFixture;

std::vector<timespec> rPauses;   // pauses of the wait so far
std::function<void()> rOnPause;  // runs in each of them
constexpr char ERROR_FILE[] = "/var/morvex/data/err_crec.dat";

std::string FileText(const std::string& strName) {
  std::ostringstream rText;
  rText << std::ifstream(strName).rdbuf();
  return rText.str();
}

}  // namespace

// Stands in for the C library's: the pauses of the wait take no time, but that for which messages are counted as
// repeated, and a test may act in them.
extern "C" int nanosleep(const timespec* prPause, timespec* /*prRest*/) {
  rPauses.push_back(*prPause);
  testclocks::rFloodSkipS += prPause->tv_sec;
  if (rOnPause) rOnPause();
  return 0;
}

// -- opening ----------------------------------------------------------------------------------------------------------

class ConnectionTest : public DatabaseFixture {
 protected:
  void SetUp() override {
    DatabaseFixture::SetUp();
    ASSERT_TRUE(rConn.Connect());
  }

  DatabaseConnection rConn;
};

TEST_F(ConnectionTest, OpensDatabaseMorvexAsRoot) {
  DatabaseResult rResult(rConn.Query("SELECT current_user::text AS u, current_database()::text AS d"));
  ASSERT_TRUE(rResult.NextRow());
  EXPECT_EQ(rResult.GetString("u"), "root");
  EXPECT_EQ(rResult.GetString("d"), "morvex");
}

TEST_F(ConnectionTest, ConnectWithUserKeepsTheName) {
  pg::Sql("CREATE ROLE guest LOGIN");
  {
    DatabaseConnection rOther;
    EXPECT_TRUE(rOther.Connect("guest"));
    EXPECT_EQ(rOther.strDbUser, "guest");
    DatabaseResult rResult(rOther.Query("SELECT current_user::text AS u"));
    ASSERT_TRUE(rResult.NextRow());
    EXPECT_EQ(rResult.GetString("u"), "guest");
  }
  pg::Sql("DROP ROLE guest");
}

TEST_F(ConnectionTest, RefusedConnectKeepsTheFailedHandleAndTellsTheReason) {
  const struct {
    const char* acLabel;
    bool fNotifyError;
    const char* acPrio;
  } rRows[] = {{"told as an error", true, "3"}, {"told as a warning", false, "4"}};
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    void* hConn = nullptr;
    EXPECT_EQ(getDbConnection(&hConn, "nobody_here", rRow.fNotifyError), 1);
    EXPECT_NE(hConn, nullptr);
    EXPECT_EQ(logsink::TakeTexts(),
              Texts{std::string(rRow.acPrio) +
                    " DB connect error 0 connection to server on socket \"/var/run/postgresql/.s.PGSQL.5432\" failed: "
                    "FATAL:  role \"nobody_here\" does not exist\n\n"});
    if (hConn != nullptr) dbi_conn_close(hConn);
  }
}

// A machine without the driver package: dbi_conn_new then gives no handle at all.
TEST(DriverTest, WithoutTheDriverEachOperationFailsAndSaysSo) {
  (void)dbi_initialize("/tmp");  // a directory without drivers
  (void)logsink::Take();
  {
    Database rDatabase;
    const Texts astrLines = {"3 DB connect error -1 no libdbi driver for PostgreSQL\n"};
    for (int i = 0; i < 2; i++) {
      EXPECT_EQ(rDatabase.GetConfig("any"), "");
      EXPECT_EQ(logsink::TakeTexts(), astrLines) << "operation " << i;
    }
  }
  Database::Deinit();
}

TEST_F(ConnectionTest, DestructorClosesTheConnection) {
  {
    DatabaseConnection rOther;
    ASSERT_TRUE(rOther.Connect());
    EXPECT_TRUE(pg::AwaitConnections(3));  // with the fixture's two
  }
  EXPECT_TRUE(pg::AwaitConnections(2));
}

// -- keeping it alive -------------------------------------------------------------------------------------------------

TEST_F(ConnectionTest, ReconnectOnlyPingsALiveConnection) {
  void* const hBefore = rConn.conn;
  (void)pg::TakeStatements();
  EXPECT_TRUE(rConn.Reconnect());
  EXPECT_EQ(rConn.conn, hBefore);
  EXPECT_EQ(pg::TakeStatements(), Texts{"SELECT 1"});
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(DatabaseFixture, FirstOperationConnectsWithoutALostLine) {
  Database rFresh;
  (void)pg::TakeStatements();
  EXPECT_EQ(rFresh.GetContactName(1), "");
  EXPECT_EQ(pg::TakeStatements(), Texts{"SELECT name FROM Contacts WHERE id=1"});  // no ping either
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(DatabaseFixture, FirstOperationInAnOutageLogsOnlyTheFailedConnect) {
  const pg::Outage rOutage;
  Database rFresh;
  EXPECT_EQ(rFresh.GetConfigInt("any"), 0);
  EXPECT_EQ(pg::TakeLogLines(), Texts{pg::OUTAGE_LINES[1]});
}

TEST_F(DatabaseFixture, EachOperationInAnOutageTriesOnceWithoutAPause) {
  rPauses.clear();
  {
    const pg::Outage rOutage;
    const Texts astrWhole = {
        "7 Lost DB connection, need reconnect...",
        "3 DB connect error 0 connection to server on socket \"/var/run/postgresql/.s.PGSQL.5432\" failed: No such "
        "file or directory\n\tIs the server running locally and accepting connections on that socket?\n\n"};
    for (int i = 0; i < 3; i++) {
      EXPECT_EQ(rDatabase.GetConfig("any"), "");
      EXPECT_EQ(logsink::TakeTexts(), astrWhole) << "operation " << i;
    }
    EXPECT_EQ("3 " + FileText(ERROR_FILE), astrWhole[1]);
  }
  EXPECT_TRUE(rPauses.empty());
}

TEST_F(DatabaseFixture, OperationAfterAnOutageReconnectsByItself) {
  pg::Sql("INSERT INTO Configs VALUES ('a','yes','crec')");
  {
    const pg::Outage rOutage;
    EXPECT_EQ(rDatabase.GetConfig("a"), "");
  }
  (void)logsink::Take();
  (void)pg::TakeStatements();
  EXPECT_EQ(rDatabase.GetConfig("a"), "yes");
  EXPECT_EQ(logsink::TakeTexts(), Texts{"7 Lost DB connection, need reconnect..."});
  EXPECT_EQ(pg::TakeStatements(), Texts{"SELECT value FROM Configs WHERE param='a'"});
  EXPECT_EQ(rDatabase.GetConfig("a"), "yes");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(DatabaseFixture, ServerRestartedBetweenOperationsGoesUnnoticed) {
  pg::Sql("INSERT INTO Configs VALUES ('a','yes','crec')");
  pg::Server("restart");
  EXPECT_EQ(rDatabase.GetConfig("a"), "yes");  // the driver's ping opens the connection anew
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

// -- running statements -----------------------------------------------------------------------------------------------

TEST_F(ConnectionTest, QueryGivesRowsInOrderAndNullOnFailure) {
  DatabaseResult rRows(
      rConn.Query("SELECT x::integer AS x, (x * 5000000000) AS big, NULL::text AS empty, NULL::integer "
                  "AS none FROM generate_series(1::bigint, 2) x"));
  ASSERT_FALSE(rRows.Failed());
  for (int i = 1; i <= 2; i++) {
    ASSERT_TRUE(rRows.NextRow());
    EXPECT_EQ(rRows.GetInt("x"), i);
    EXPECT_EQ(rRows.GetLongLong("big"), i * 5000000000LL);
    EXPECT_EQ(rRows.GetString("empty"), "");
    EXPECT_EQ(rRows.GetInt("none"), 0);
  }
  EXPECT_FALSE(rRows.NextRow());

  EXPECT_EQ(rConn.Query("SELECT nonsense"), nullptr);
  EXPECT_EQ(logsink::TakeTexts(), Texts());  // the bare query leaves telling to its caller
}

TEST_F(ConnectionTest, FailedResultReadsAsNoRows) {
  DatabaseResult rFailed(nullptr);
  EXPECT_TRUE(rFailed.Failed());
  EXPECT_FALSE(rFailed.NextRow());
}

TEST_F(ConnectionTest, ExecNonQueryTellsWhetherTheStatementRan) {
  EXPECT_TRUE(rConn.ExecNonQuery("INSERT INTO Configs VALUES ('a','b','c')"));
  EXPECT_EQ(pg::Sql("SELECT * FROM Configs"), "a|b|c");
  EXPECT_TRUE(rConn.ExecNonQuery("DELETE FROM Configs WHERE param='other'"));  // no row is no failure
  EXPECT_EQ(logsink::TakeTexts(), Texts());
  EXPECT_FALSE(rConn.ExecNonQuery("INSERT INTO Lines DEFAULT VALUES"));
  EXPECT_EQ(pg::TakeLogLines().size(), 1U);
}

TEST_F(ConnectionTest, ErrorIsLoggedWithCodeTextAndFourFrames) {
  EXPECT_FALSE(rConn.ExecNonQuery("DELETE FROM nosuch"));
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(astrLines.size(), 5U);
  const std::string strError =
      "DB error code 6844177 6844177: ERROR:  relation \"nosuch\" does not exist\n"
      "LINE 1: DELETE FROM nosuch\n"
      "                    ^\n\n";
  EXPECT_EQ(astrLines[0], "3 " + strError);
  for (std::size_t i = 1; i < astrLines.size(); i++) {
    EXPECT_EQ(astrLines[i].rfind("6 stack: ", 0), 0U) << astrLines[i];
    EXPECT_NE(astrLines[i].find("database_test"), std::string::npos) << astrLines[i];
  }
  EXPECT_EQ(FileText(ERROR_FILE), strError);
}

// What is no UTF-8 the server refuses, as text and not as a statement.
TEST_F(ConnectionTest, LiteralOfAnyBytesIsReadBackUnchangedOrRefused) {
  const std::string strSpecial = "'\"\\$;-/*%\n\r\t?:";
  std::mt19937 rRandom(20'151'203);
  int iRefused = 0;
  constexpr int TEXTS = 3000;
  for (int i = 0; i < TEXTS; i++) {
    std::string strText(1 + rRandom() % 40, ' ');
    const unsigned uiAbove = i % 2 == 0 ? 128 : 256;
    for (char& ch : strText) {
      ch = rRandom() % 3 == 0 ? strSpecial[rRandom() % strSpecial.size()]
                              : static_cast<char>(1 + rRandom() % (uiAbove - 1));
    }
    DatabaseResult rResult(rConn.Query("SELECT " + rConn.Quote(strText) + "::text AS t, 1 AS one"));
    if (rResult.Failed()) {
      iRefused++;
      const char* acError = "";
      (void)dbi_conn_error(rConn.conn, &acError);
      EXPECT_NE(std::string(acError).find("invalid byte sequence"), std::string::npos) << acError;
      continue;
    }
    ASSERT_TRUE(rResult.NextRow());
    EXPECT_EQ(rResult.GetString("t"), strText);
    EXPECT_EQ(rResult.GetInt("one"), 1);
  }
  EXPECT_LE(iRefused, TEXTS / 2) << "ASCII is never refused";
}

TEST_F(ConnectionTest, ErrorsLeaveNothingBehindButTheLast) {
  const auto Fail = [this](int iTimes) {
    for (int i = 0; i < iTimes; i++) EXPECT_FALSE(rConn.ExecNonQuery("DELETE FROM nosuch"));
    LogLeftOut();
    (void)logsink::Take();
  };
  Fail(10);
  const std::size_t iBefore = mallinfo2().uordblks;
  Fail(400);
  EXPECT_LT(mallinfo2().uordblks, iBefore + 40'000);  // the frames of an error are 400 bytes
}

TEST_F(ConnectionTest, QuoteGivesALiteralThatTheServerReadsBackUnchanged) {
  const struct {
    const char* acLabel;
    const char* acText;
    const char* acLiteral;
  } rRows[] = {
      {"empty text", "", "''"},
      {"plain", "Sales", "'Sales'"},
      {"quote", "it's", "'it''s'"},
      {"two quotes", "''", "''''''"},
      {"backslash stays single", "a\\n", "'a\\n'"},
      {"line ends", "a\r\nb", "'a\r\nb'"},
      {"UTF-8", "B\xc3\xbcro", "'B\xc3\xbcro'"},
      {"attempt to leave the literal", "'; DROP TABLE Calls; --", "'''; DROP TABLE Calls; --'"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    EXPECT_EQ(rConn.Quote(rRow.acText), rRow.acLiteral);
    DatabaseResult rResult(rConn.Query(std::string("SELECT ") + rRow.acLiteral + "::text AS t"));
    ASSERT_TRUE(rResult.NextRow());
    EXPECT_EQ(rResult.GetString("t"), rRow.acText);
  }
}

TEST(QuoteTest, WithoutAConnectionThereIsNoWayOn) {
  DatabaseConnection rUnopened;
  EXPECT_THROW((void)rUnopened.Quote("a"), std::runtime_error);
}

TEST_F(ConnectionTest, KeysAndValuesStandInTheSameOrder) {
  StringMap rMap;
  EXPECT_EQ(rConn.GetKeys(rMap), "");
  EXPECT_EQ(rConn.GetValuesQuoted(rMap), "");
  rMap.AddUtf8("remote", "it's");
  EXPECT_EQ(rConn.GetKeys(rMap), "remote");
  EXPECT_EQ(rConn.GetValuesQuoted(rMap), "'it''s'");
  rMap.AddUtf8("duration", "12");
  rMap.AddUtf8("local", "");
  EXPECT_EQ(rConn.GetKeys(rMap), "duration,local,remote");
  EXPECT_EQ(rConn.GetValuesQuoted(rMap), "'12','','it''s'");
}

// -- the wait at start ------------------------------------------------------------------------------------------------

// As in a process of its own: libdbi starts before each test and is shut down behind it. (With another connection open
// first, libdbi would lose track of the failed handles once that one is closed.)
class WaitTest : public testing::Test {
 protected:
  void SetUp() override {
    Database::Init();
    rPauses.clear();
    (void)logsink::Take();
    (void)pg::TakeStatements();
  }
  void TearDown() override {
    rOnPause = nullptr;
    Database::Deinit();
  }
};

namespace {

constexpr char WAITING_LINE[] = "5 Waiting to connect to database";

// Each failed attempt as the wait logs it.
const std::string& FailedAttemptLine() {
  static const std::string strLine = "4 " + pg::OUTAGE_LINES[1].substr(2);
  return strLine;
}

}  // namespace

TEST_F(WaitTest, ServerThatIsUpIsAcceptedAtOnce) {
  Database rDatabase;
  EXPECT_EQ(rDatabase.WaitForConnection(), 0);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"5 We can connect to database"});
  EXPECT_EQ(pg::TakeStatements(), Texts());  // the connection serves no statement
  EXPECT_TRUE(rPauses.empty());
}

TEST_F(WaitTest, HandleOfTheSuccessfulAttemptIsClosed) {
  Database rDatabase;
  EXPECT_EQ(rDatabase.WaitForConnection(), 0);
  EXPECT_TRUE(pg::AwaitConnections(0));
}

TEST_F(WaitTest, SetDbUserReachesTheWaitOnly) {
  Database rDatabase;
  rDatabase.SetDbUser("nobody_here");
  rOnPause = [&] { rDatabase.SetDbUser("root"); };
  EXPECT_EQ(rDatabase.WaitForConnection(), 0);
  EXPECT_EQ(pg::TakeLogLines(),
            (Texts{"4 DB connect error 0 connection to server on socket "
                   "\"/var/run/postgresql/.s.PGSQL.5432\" failed: FATAL:  role \"nobody_here\" does "
                   "not exist",
                   WAITING_LINE, "5 We can connect to database"}));
  rDatabase.SetDbUser("nobody_here");
  (void)pg::TakeStatements();
  (void)rDatabase.GetConfig("a");  // connects as root all the same
  EXPECT_EQ(logsink::TakeTexts(), Texts());
  EXPECT_EQ(pg::TakeStatements(), Texts{"SELECT value FROM Configs WHERE param='a'"});
}

TEST_F(WaitTest, SixtyFailedAttemptsGiveUp) {
  Database rDatabase;
  const pg::Outage rOutage;
  EXPECT_EQ(rDatabase.WaitForConnection(), 1);
  Texts astrExpected;
  for (int i = 1; i < 60; i++) {
    astrExpected.push_back(FailedAttemptLine());
    astrExpected.push_back(WAITING_LINE);
  }
  astrExpected.push_back(FailedAttemptLine());
  astrExpected.push_back("5 Failed to connect to database");
  EXPECT_EQ(pg::TakeLogLines(), astrExpected);
  ASSERT_EQ(rPauses.size(), 59U);
  for (const timespec& rPause : rPauses) {
    EXPECT_EQ(rPause.tv_sec, 1);
    EXPECT_EQ(rPause.tv_nsec, 0);
  }
}

TEST_F(WaitTest, ServerThatComesUpMeanwhileIsAccepted) {
  Database rDatabase;
  const struct {
    const char* acLabel;
    std::size_t iStartInPause;
  } rRows[] = {{"in the third pause", 3}, {"just in time for the 60th attempt", 59}};
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rPauses.clear();
    pg::Server("stop");
    rOnPause = [&] {
      if (rPauses.size() == rRow.iStartInPause) pg::Server("start");
    };
    EXPECT_EQ(rDatabase.WaitForConnection(), 0);
    Texts astrExpected;
    for (std::size_t i = 0; i < rRow.iStartInPause; i++) {
      astrExpected.push_back(FailedAttemptLine());
      astrExpected.push_back(WAITING_LINE);
    }
    astrExpected.push_back("5 We can connect to database");
    EXPECT_EQ(pg::TakeLogLines(), astrExpected);
    EXPECT_EQ(rPauses.size(), rRow.iStartInPause);
  }
}
