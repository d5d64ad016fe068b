#include <dlfcn.h>

#include <functional>

#include "LogSink.h"
#include "PgServer.h"

// Settings, the recorder's row, and accounts, on the real server.

namespace {

using pg::DatabaseFixture;
using pg::Told;

std::function<void()> rAfterPing;  // runs behind each ping, once the answer stands

class ConfigsTest : public DatabaseFixture {
 protected:
  void TearDown() override { rAfterPing = nullptr; }
};

std::string Told(const std::vector<int>& aiNumbers) {
  std::string strText;
  for (const int iNumber : aiNumbers) strText.append("[").append(std::to_string(iNumber)).append("]");
  return strText;
}

}  // namespace

// Stands in for libdbi's, so that a test can break the connection between a good ping and the first statement.
extern "C" int dbi_conn_ping(dbi_conn hConn) {
  static const auto Real = reinterpret_cast<int (*)(dbi_conn)>(dlsym(RTLD_NEXT, "dbi_conn_ping"));
  const int iAlive = Real(hConn);
  if (rAfterPing) rAfterPing();
  return iAlive;
}

// -- settings ---------------------------------------------------------------------------------------------------------

TEST_F(ConfigsTest, ConfigIsFoundInWhateverPart) {
  pg::Sql("INSERT INTO Configs VALUES ('it''s','yes','o'), ('empty','','crec')");
  std::string strValue;
  EXPECT_EQ(Sent([&] { strValue = rDatabase.GetConfig("it's"); }),
            Texts{"SELECT value FROM Configs WHERE param='it''s'"});
  EXPECT_EQ(strValue, "yes");
  EXPECT_EQ(rDatabase.GetConfig("empty"), "");
  EXPECT_EQ(rDatabase.GetConfig("missing"), "");
}

TEST_F(ConfigsTest, ConfigIntIsTheNumberInFrontOfTheText) {
  const struct {
    const char* acLabel;
    const char* acValue;
    int iNumber;
  } rRows[] = {
      {"number", "42", 42},   {"negative", "-7", -7}, {"leading blanks", "  5", 5}, {"trailing letters", "12abc", 12},
      {"no digits", "on", 0}, {"empty", "", 0},       {"decimal only", "0x10", 0}};
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    pg::Sql("TRUNCATE Configs; INSERT INTO Configs VALUES ('n','" + std::string(rRow.acValue) + "','crec')");
    int iNumber = -1;
    EXPECT_EQ(Sent([&] { iNumber = rDatabase.GetConfigInt("n"); }), Texts{"SELECT value FROM Configs WHERE param='n'"});
    EXPECT_EQ(iNumber, rRow.iNumber);
  }
  EXPECT_EQ(rDatabase.GetConfigInt("missing"), 0);
}

TEST_F(ConfigsTest, PartIsMergedOverTheMap) {
  pg::Sql("INSERT INTO Configs VALUES ('a','1','crec'), ('b','','crec'), ('c','3','o')");
  StdStringMap rConfigs = {{"a", "old"}, {"gone from the part", "stays"}};
  EXPECT_EQ(Sent([&] { rDatabase.GetConfigsPart(rConfigs, "crec"); }),
            Texts{"SELECT param,value FROM Configs WHERE part='crec'"});
  EXPECT_EQ(Told(rConfigs), "[a=1][b=][gone from the part=stays]");
}

TEST_F(ConfigsTest, NullInASettingReadsAsEmptyText) {
  pg::Sql("ALTER TABLE Configs ALTER value DROP NOT NULL; INSERT INTO Configs VALUES ('a',NULL,'crec')");
  StdStringMap rConfigs = {{"a", "old"}};
  rDatabase.GetConfigsPart(rConfigs, "crec");
  EXPECT_EQ(Told(rConfigs), "[a=]");
  EXPECT_EQ(rDatabase.GetConfig("a"), "");
  pg::Sql("TRUNCATE Configs; ALTER TABLE Configs ALTER value SET NOT NULL");
}

TEST_F(ConfigsTest, WritingAPartReplacesEachSettingInOneTransaction) {
  pg::Sql("INSERT INTO Configs VALUES ('a','old','crec'), ('other','stays','crec')");
  StdStringMap rConfigs = {{"b", ""}, {"a", "it's"}};
  EXPECT_EQ(
      Sent([&] { rDatabase.SetConfigsPart(rConfigs, "crec"); }),
      (Texts{"BEGIN", "DELETE FROM Configs WHERE param='a'",
             "INSERT INTO Configs(param,value,part) VALUES ('a','it''s','crec')", "DELETE FROM Configs WHERE param='b'",
             "INSERT INTO Configs(param,value,part) VALUES ('b','','crec')", "COMMIT"}));
  EXPECT_EQ(Told(rConfigs), "[a=it's][b=]");
  EXPECT_EQ(pg::Sql("SELECT * FROM Configs ORDER BY param"), "a|it's|crec\nb||crec\nother|stays|crec");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(ConfigsTest, WritingAnEmptyMapIsAnEmptyTransaction) {
  StdStringMap rConfigs;
  EXPECT_EQ(Sent([&] { rDatabase.SetConfigsPart(rConfigs, "crec"); }), (Texts{"BEGIN", "COMMIT"}));
}

TEST_F(ConfigsTest, SettingInTwoPartsBecomesOneOnWriting) {
  for (const char* acPart : {"o", "crec"}) {
    SCOPED_TRACE(acPart);
    pg::Sql("TRUNCATE Configs; INSERT INTO Configs VALUES ('a','1','o'), ('a','2','crec')");
    StdStringMap rConfigs = {{"a", "3"}};
    rDatabase.SetConfigsPart(rConfigs, acPart);
    EXPECT_EQ(pg::Sql("SELECT * FROM Configs"), std::string("a|3|") + acPart);
  }
}

TEST_F(ConfigsTest, FailedStatementsOfATransactionAreAllLoggedAndTheNextWriteWorks) {
  StdStringMap rConfigs = {{"a", "1"}, {"b", "2"}};
  const std::string strAborted =
      "3 DB error code 3624914 3624914: ERROR:  current transaction is aborted, commands ignored until end of "
      "transaction block";
  {
    const pg::RefusingTable rRefusing("Configs");
    EXPECT_EQ(Sent([&] { rDatabase.SetConfigsPart(rConfigs, "crec"); }).size(), 6U);
    EXPECT_EQ(pg::TakeLogLines(), (Texts{pg::RefusingTableLine("configs"), strAborted, strAborted}));
  }
  rDatabase.SetConfigsPart(rConfigs, "crec");
  EXPECT_EQ(pg::TakeLogLines(), Texts());
  EXPECT_EQ(pg::Sql("SELECT * FROM Configs ORDER BY param"), "a|1|crec\nb|2|crec");
}

TEST_F(ConfigsTest, FailedCommitIsLogged) {
  pg::Sql("ALTER TABLE Configs ADD CONSTRAINT once UNIQUE (value) DEFERRABLE INITIALLY DEFERRED");
  StdStringMap rConfigs = {{"a", "same"}, {"b", "same"}};
  rDatabase.SetConfigsPart(rConfigs, "crec");
  EXPECT_EQ(pg::TakeLogLines(), Texts{"3 DB error code 3505685 3505685: ERROR:  duplicate key value violates unique "
                                      "constraint \"once\""});
  pg::Sql("ALTER TABLE Configs DROP CONSTRAINT once");
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Configs"), "0");
}

TEST_F(ConfigsTest, ConnectionLostBehindThePingFailsEveryStatement) {
  rAfterPing = [] {
    pg::Sql(
        "SELECT pg_terminate_backend(pid, 10000) FROM pg_stat_activity WHERE backend_type='client backend' AND "
        "pid<>pg_backend_pid()");
  };
  StdStringMap rConfigs = {{"a", "1"}};
  rDatabase.SetConfigsPart(rConfigs, "crec");
  const std::string strDead = "3 DB error code 0 no connection to the server";
  EXPECT_EQ(pg::TakeLogLines(), (Texts{"3 DB error code 0 FATAL:  terminating connection due to administrator command",
                                       strDead, strDead, strDead}));  // BEGIN, DELETE, INSERT, COMMIT
  rAfterPing = nullptr;
  rDatabase.SetConfigsPart(rConfigs, "crec");
  EXPECT_EQ(pg::Sql("SELECT * FROM Configs"), "a|1|crec");
}

// -- the recorder -----------------------------------------------------------------------------------------------------

TEST_F(ConfigsTest, NewRecorderGetsARow) {
  EXPECT_EQ(rDatabase.GetRecorderID(), 0);
  EXPECT_EQ(Sent([&] { rDatabase.InitRecorder("S'1", "Recorder S'1"); }),
            (Texts{"SELECT id FROM recorders WHERE recid='S''1'",
                   "INSERT INTO recorders(recid,name,rectype,options)  VALUES ('S''1','Recorder S''1',50,'')",
                   "SELECT currval('recorders_id_seq')"}));
  EXPECT_EQ(rDatabase.GetRecorderID(), 1);
  EXPECT_EQ(pg::Sql("SELECT * FROM recorders"), "1|S'1|Recorder S'1|50|");
}

TEST_F(ConfigsTest, SecondStartFindsTheRowAndKeepsItsName) {
  pg::Sql("INSERT INTO recorders (id,recid,name) VALUES (5000000000,'S1','First name')");
  EXPECT_EQ(Sent([&] { rDatabase.InitRecorder("S1", "Second name"); }),
            Texts{"SELECT id FROM recorders WHERE recid='S1'"});
  EXPECT_EQ(rDatabase.GetRecorderID(), 5000000000);
  EXPECT_EQ(pg::Sql("SELECT recid,name FROM recorders"), "S1|First name");
}

TEST_F(ConfigsTest, FailedInsertOfTheRecorderLeavesItsId) {
  rDatabase.InitRecorder("S1", "x");
  const pg::RefusingTable rRefusing("recorders");
  rDatabase.InitRecorder("S2", "x");
  EXPECT_EQ(pg::TakeLogLines(), Texts{pg::RefusingTableLine("recorders")});
  EXPECT_EQ(rDatabase.GetRecorderID(), 1);
}

// -- accounts ---------------------------------------------------------------------------------------------------------

TEST_F(ConfigsTest, UsersOfAPhoneAreAppended) {
  pg::Sql("INSERT INTO Users (accid) VALUES (1), (2), (3); INSERT INTO UserPhones VALUES (1,20), (2,20), (3,21)");
  std::vector<int> aiAccIDs = {9};
  EXPECT_EQ(Sent([&] { rDatabase.GetUsersOfPhone(20, aiAccIDs); }),
            Texts{"SELECT accid FROM UserPhones WHERE contactid=20"});
  rDatabase.GetUsersOfPhone(21, aiAccIDs);
  rDatabase.GetUsersOfPhone(22, aiAccIDs);
  EXPECT_EQ(Told(aiAccIDs), "[9][1][2][3]");
}

TEST_F(ConfigsTest, UserFieldsAreReadByName) {
  pg::Sql(
      "ALTER TABLE Users ADD name text; INSERT INTO Users (accid,rod,enabled,name) VALUES (4,2,1,'Anna'), "
      "(5,1,0,NULL)");
  int iValue = -1;
  EXPECT_EQ(Sent([&] { iValue = rDatabase.GetUserIntOnAccID(4, "rod"); }),
            Texts{"SELECT rod FROM Users WHERE accid=4"});
  EXPECT_EQ(iValue, 2);
  EXPECT_EQ(rDatabase.GetUserIntOnAccID(4, "enabled"), 1);
  EXPECT_EQ(rDatabase.GetUserIntOnAccID(5, "enabled"), 0);
  EXPECT_EQ(rDatabase.GetUserIntOnAccID(6, "enabled"), 0);  // no such account
  std::string strValue;
  EXPECT_EQ(Sent([&] { strValue = rDatabase.GetUserStringOnAccID(4, "name"); }),
            Texts{"SELECT name FROM Users WHERE accid=4"});
  EXPECT_EQ(strValue, "Anna");
  EXPECT_EQ(rDatabase.GetUserStringOnAccID(5, "name"), "");
  EXPECT_EQ(rDatabase.GetUserStringOnAccID(6, "name"), "");
  pg::Sql("ALTER TABLE Users DROP name");
}

// -- failures ---------------------------------------------------------------------------------------------------------

namespace {

const struct {
  const char* acLabel;
  std::function<std::string(IDatabase&)> Run;
  const char* acDefault;
  const char* acTable;
  bool fLogsFailedQuery;  // and not only the lack of a connection
} rFailureRows[] = {
    {"InitRecorder",
     [](IDatabase& rDb) {
       rDb.InitRecorder("S2", "x");
       return std::to_string(rDb.GetRecorderID());
     },
     "1", "recorders", true},
    {"GetConfig", [](IDatabase& rDb) { return rDb.GetConfig("a"); }, "", "configs", false},
    {"GetConfigInt", [](IDatabase& rDb) { return std::to_string(rDb.GetConfigInt("a")); }, "0", "configs", false},
    {"GetConfigsPart",
     [](IDatabase& rDb) {
       StdStringMap rConfigs = {{"a", "kept"}};
       rDb.GetConfigsPart(rConfigs, "crec");
       return Told(rConfigs);
     },
     "[a=kept]", "configs", false},
    {"SetConfigsPart",
     [](IDatabase& rDb) {
       StdStringMap rConfigs;
       rDb.SetConfigsPart(rConfigs, "crec");
       return Told(rConfigs);
     },
     "", "configs", false},  // an empty map asks no table; failures of its statements have tests of their own
    {"GetUsersOfPhone",
     [](IDatabase& rDb) {
       std::vector<int> aiAccIDs = {9};
       rDb.GetUsersOfPhone(1, aiAccIDs);
       return Told(aiAccIDs);
     },
     "[9]", "userphones", false},
    {"GetUserStringOnAccID", [](IDatabase& rDb) { return rDb.GetUserStringOnAccID(1, "accid"); }, "", "users", false},
    {"GetUserIntOnAccID", [](IDatabase& rDb) { return std::to_string(rDb.GetUserIntOnAccID(1, "accid")); }, "0",
     "users", false},
};

}  // namespace

TEST_F(ConfigsTest, WithoutAServerEachOperationLogsAndGivesItsDefault) {
  rDatabase.InitRecorder("S1", "x");
  {
    AbsentDatabase rAbsent;  // stands for this in tests and tools
    const pg::Outage rOutage;
    for (const auto& rRow : rFailureRows) {
      SCOPED_TRACE(rRow.acLabel);
      EXPECT_EQ(rRow.Run(rDatabase), rRow.acDefault);
      EXPECT_EQ(pg::TakeLogLines(), pg::OUTAGE_LINES);
      // The real one keeps the id that it got before the outage, the other never had one.
      EXPECT_EQ(rRow.Run(rAbsent), std::string("InitRecorder") == rRow.acLabel ? "0" : rRow.acDefault);
    }
    StdStringMap rConfigs = {{"a", "lost"}};
    rDatabase.SetConfigsPart(rConfigs, "crec");
  }
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Configs"), "0");  // nothing is kept for later
}

TEST_F(ConfigsTest, FailedQueryGivesTheDefaultAndOnlySomeLogIt) {
  rDatabase.InitRecorder("S1", "x");
  for (const auto& rRow : rFailureRows) {
    SCOPED_TRACE(rRow.acLabel);
    const pg::MissingTable rMissing(rRow.acTable);
    EXPECT_EQ(rRow.Run(rDatabase), rRow.acDefault);
    EXPECT_EQ(pg::TakeLogLines(), rRow.fLogsFailedQuery ? Texts{pg::MissingTableLine(rRow.acTable)} : Texts());
  }
}
