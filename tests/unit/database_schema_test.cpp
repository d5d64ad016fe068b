#include <cstdlib>

#include "LogSink.h"
#include "PgServer.h"

// sql/schema.sql: what a new installation gets. That its types suit libdbi show the tests of the operations.

namespace {

using pg::DatabaseFixture;

class SchemaTest : public DatabaseFixture {};

void LoadSchema() {
  ASSERT_EQ(std::system("psql -Xq -v ON_ERROR_STOP=1 -f " MORVEX_SOURCE_DIR "/sql/schema.sql >/tmp/schema.out 2>&1"),
            0);
  ASSERT_EQ(std::system("test ! -s /tmp/schema.out"), 0) << "the schema says something on loading";
}

// The whole database as text. pg_dump frames it with a random word, which is left out.
void Dump(const std::string& strFile) {
  ASSERT_EQ(std::system(("pg_dump | grep -v restrict >" + strFile).c_str()), 0);
}

}  // namespace

TEST_F(SchemaTest, LoadingItAgainChangesNothing) {
  pg::Sql(
      "INSERT INTO Configs VALUES ('a','1','crec'); INSERT INTO Contacts (name) VALUES ('x'); "
      "INSERT INTO Calls DEFAULT VALUES; INSERT INTO ActiveCalls DEFAULT VALUES");
  Dump("/tmp/before.sql");
  LoadSchema();
  Dump("/tmp/after.sql");
  EXPECT_EQ(std::system("test -s /tmp/before.sql && diff /tmp/before.sql /tmp/after.sql"), 0);
}

TEST_F(SchemaTest, LoadsIntoAnEmptyDatabaseAsIntoThisOne) {
  Dump("/tmp/here.sql");
  pg::Sql("CREATE DATABASE fresh ENCODING 'UTF8' TEMPLATE template0");
  ASSERT_EQ(setenv("PGDATABASE", "fresh", 1), 0);
  LoadSchema();
  Dump("/tmp/fresh.sql");
  ASSERT_EQ(setenv("PGDATABASE", "morvex", 1), 0);
  EXPECT_EQ(std::system("test -s /tmp/here.sql && diff /tmp/here.sql /tmp/fresh.sql"), 0);
  pg::Sql("DROP DATABASE fresh");
}

TEST_F(SchemaTest, SequencesBearTheNamesThatTheDaemonAsksFor) {
  EXPECT_EQ(pg::Sql("SELECT sequencename FROM pg_sequences ORDER BY 1"),
            "activecalls_id_seq\ncallerids_id_seq\ncalls_id_seq\ncontacts_id_seq\nlines_id_seq\nrecorders_id_seq");
  for (const char* acTable : {"Calls", "ActiveCalls", "Contacts", "CallerIDs", "Lines", "recorders"}) {
    EXPECT_EQ(pg::Sql(std::string("SELECT pg_get_serial_sequence('") + acTable + "','id')::regclass = ('" + acTable +
                      "_id_seq')::regclass"),
              "t")
        << acTable;
  }
}

TEST_F(SchemaTest, ActiveCallsHasTheColumnsOfCalls) {
  const std::string strColumns =
      "SELECT attname, format_type(atttypid, atttypmod), attnotnull FROM pg_attribute WHERE attnum > 0 AND attrelid = ";
  EXPECT_EQ(pg::Sql(strColumns + "'ActiveCalls'::regclass ORDER BY 1"),
            pg::Sql(strColumns + "'Calls'::regclass ORDER BY 1"));
}

TEST_F(SchemaTest, TypesAreWhatLibdbiReads) {
  const struct {
    const char* acColumns;
    const char* acType;
  } rRows[] = {
      {"('contacts','id'),('callerids','id'),('callerids','contactid'),('lines','id'),('lines','contactid'),"
       "('recorders','id'),('localidmapping','dstid'),('localidmapping','updatetime')",
       "bigint"},
      {"('calls','id'),('activecalls','id'),('callerids','islocal'),('activecalls','category'),"
       "('activecalls','processingstate'),('userphones','accid'),('users','rod'),('users','enabled')",
       "integer"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acType);
    EXPECT_EQ(pg::Sql("SELECT DISTINCT data_type FROM information_schema.columns WHERE (table_name::text, "
                      "column_name::text) IN (" +
                      std::string(rRow.acColumns) + ")"),
              rRow.acType);
  }
}

TEST_F(SchemaTest, EveryColumnOfACallMayBeLeftOut) {
  pg::Sql("INSERT INTO Calls DEFAULT VALUES; INSERT INTO ActiveCalls DEFAULT VALUES");
  EXPECT_EQ(pg::Sql("SELECT id,connected,connectedcallerid,category,notes,callextra FROM Calls"),
            "1||(null)|0|(null)|(null)");
}

TEST_F(SchemaTest, ColumnsReadWithoutANullTestCannotBeNull) {
  EXPECT_EQ(pg::Sql("SELECT table_name, column_name FROM information_schema.columns WHERE table_schema='public' AND "
                    "column_name IN ('name','value','target') AND is_nullable = 'YES'"),
            "");
}

TEST_F(SchemaTest, CallIsStoredWithoutTheRowsThatItRefersTo) {
  EXPECT_EQ(pg::Sql("INSERT INTO Calls (recorderid,lineid,localcallerid,localcontact,remotecallerid,remotecontact,"
                    "connectedcallerid,connectedcontact) VALUES ('0','-1','0','-1','-1','77','-1','-1') RETURNING id"),
            "1");
}

TEST_F(SchemaTest, NumberBelongsToAnExistingContact) {
  DatabaseConnection rConn;
  ASSERT_TRUE(rConn.Connect());
  EXPECT_FALSE(rConn.ExecNonQuery("INSERT INTO CallerIDs (callerid,contactid) VALUES ('21',99)"));
  EXPECT_EQ(pg::TakeLogLines().size(), 1U);
  pg::Sql("INSERT INTO Contacts VALUES (99)");
  EXPECT_TRUE(rConn.ExecNonQuery("INSERT INTO CallerIDs (callerid,contactid) VALUES ('21',99)"));
}

namespace {

// As many rows as an appliance gathers in a while, so that the server's planner has a reason to choose. ActiveCalls
// holds more than there can be lines: a handful it would rightly read as a whole.
void FillTables() {
  pg::Sql(
      "INSERT INTO recorders (recid) SELECT 'r' || i FROM generate_series(1,500) i;"
      "INSERT INTO Configs SELECT 'p' || i, 'v', 's' || i % 20 FROM generate_series(1,5000) i;"
      "INSERT INTO Contacts (name) SELECT 'c' || i FROM generate_series(1,5000) i;"
      "INSERT INTO CallerIDs (callerid,contactid) SELECT '030' || i, i FROM generate_series(1,5000) i;"
      "INSERT INTO Lines (contactid,recorderid,linenr) SELECT i, i / 30, i % 30 FROM generate_series(1,5000) i;"
      "INSERT INTO Calls (localcontact,remotecontact,connectedcontact,localcallerid,remotecallerid,local,remote,"
      "connected,lineid,startdate,remoteid) SELECT i % 200, i % 5000, CASE WHEN i % 20 = 0 THEN i % 200 END, i % 200, "
      "i % 5000, i % 200, '030' || i % 5000, CASE WHEN i % 20 = 0 THEN i % 200 || '' ELSE '' END, i % 240, "
      "1700000000 + i * 60, 'id' || i FROM generate_series(1,20000) i;"
      "INSERT INTO ActiveCalls (localcallerid) SELECT i FROM generate_series(1,2000) i;"
      "INSERT INTO IdMap SELECT 't' || i, 'v', 'notes' FROM generate_series(1,2000) i;"
      "INSERT INTO LocalIdMapping SELECT i, i, 0 FROM generate_series(1,2000) i;"
      "INSERT INTO Users (accid) SELECT i FROM generate_series(1,2000) i;"
      "INSERT INTO UserPhones SELECT i, i FROM generate_series(1,2000) i;");
  pg::Sql("ANALYZE");
}

}  // namespace

TEST_F(SchemaTest, LookUpsUseTheirIndexesOnFilledTables) {
  const struct {
    const char* acLabel;
    const char* acStatement;
    std::vector<std::string> astrIndexes;  // all of these, and no table read as a whole
  } rRows[] = {
      // the daemon's
      {"setting", "SELECT value FROM Configs WHERE param='p7'", {"configs_param"}},
      {"part", "SELECT param,value FROM Configs WHERE part='s7'", {"configs_part"}},
      {"writing a setting", "DELETE FROM Configs WHERE param='p7'", {"configs_param"}},
      {"recorder", "SELECT id FROM recorders WHERE recid='r7'", {"recorders_recid_key"}},
      {"number",
       "SELECT id,contactid,islocal from callerids where callerid='0307' AND deleted=0",
       {"callerids_callerid"}},
      {"numbers of a contact", "SELECT id,callerid from callerids where contactid=7", {"callerids_contactid"}},
      {"contact", "SELECT name FROM Contacts WHERE id=7", {"contacts_pkey"}},
      {"line", "SELECT id,contactid FROM Lines WHERE linenr=7 AND recorderid=2", {"lines_recorderid_linenr_key"}},
      {"back in a contact's calls",
       "SELECT id FROM Calls WHERE localcontact=7 ORDER BY startdate DESC LIMIT 3",
       {"calls_localcontact"}},
      {"removing a number",
       "DELETE FROM CallerIDs WHERE id='7' AND NOT EXISTS (SELECT 1 FROM Calls WHERE localcallerid=CallerIDS.id OR "
       "remotecallerid=CallerIDS.id)",
       {"callerids_pkey", "calls_localcallerid", "calls_remotecallerid"}},
      {"removing a contact",
       "DELETE FROM Contacts WHERE id='7' AND NOT EXISTS (SELECT 1 FROM CallerIDs WHERE contactid=Contacts.id)",
       {"contacts_pkey", "callerids_contactid"}},
      {"active call", "SELECT callextra FROM ActiveCalls WHERE id=7", {"activecalls_pkey"}},
      {"changing an active call", "UPDATE ActiveCalls SET  category=1 WHERE id=7", {"activecalls_pkey"}},
      {"end of an active call", "DELETE FROM ActiveCalls WHERE id=7", {"activecalls_pkey"}},
      {"preset", "SELECT value,target FROM IdMap  WHERE theid='t7'", {"idmap_pkey"}},
      {"mapping", "SELECT * FROM LocalIdMapping  WHERE srcid=7", {"localidmapping_srcid"}},
      {"users of a phone", "SELECT accid FROM UserPhones WHERE contactid=7", {"userphones_pkey"}},
      {"user", "SELECT rod FROM Users WHERE accid=7", {"users_pkey"}},
      // the web side's
      {"numbers by their beginning", "SELECT * FROM CallerIDs WHERE callerid LIKE '03077%'", {"callerids_callerid"}},
      {"use of a number, local", "SELECT 1 FROM Calls WHERE localcallerid=7", {"calls_localcallerid"}},
      {"use of a number, remote", "SELECT 1 FROM Calls WHERE remotecallerid=7", {"calls_remotecallerid"}},
      {"latest calls with a contact",
       "SELECT * FROM Calls WHERE remotecontact=7 ORDER BY startdate DESC LIMIT 3",
       {"calls_remotecontact"}},
      {"latest calls connected to a contact",
       "SELECT * FROM Calls WHERE connectedcontact=20 ORDER BY startdate DESC LIMIT 3",
       {"calls_connectedcontact"}},
      {"calls of a contact on a day",
       "SELECT * FROM Calls WHERE localcontact=7 AND startdate BETWEEN 1700000000 AND 1700086400",
       {"calls_localcontact"}},
      {"calls by the local number", "SELECT * FROM Calls WHERE local='7'", {"calls_local"}},
      {"calls by the beginning of a number", "SELECT * FROM Calls WHERE remote LIKE '03077%'", {"calls_remote"}},
      {"calls by the connected number", "SELECT * FROM Calls WHERE connected='20'", {"calls_connected"}},
      {"calls of a line", "SELECT * FROM Calls WHERE lineid=7 ORDER BY startdate DESC", {"calls_line"}},
      {"calls of a day", "SELECT * FROM Calls WHERE startdate BETWEEN 1700000000 AND 1700086400", {"calls_startdate"}},
      {"call by its recording", "SELECT * FROM Calls WHERE remoteid='id7'", {"calls_remoteid"}},
      {"lines of a contact", "SELECT * FROM Lines WHERE contactid=7", {"lines_contactid"}},
      {"contact by its name", "SELECT * FROM Contacts WHERE name='c7'", {"contacts_name"}},
      {"phones of a user", "SELECT contactid FROM UserPhones WHERE accid=7", {"userphones_accid"}},
  };
  FillTables();
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    const std::string strPlan = pg::Sql(std::string("EXPLAIN (COSTS OFF) ") + rRow.acStatement);
    for (const std::string& strIndex : rRow.astrIndexes) {
      EXPECT_NE((strPlan + "\n").find(" " + strIndex), std::string::npos) << strIndex << "\n" << strPlan;
    }
    EXPECT_EQ(strPlan.find("Seq Scan"), std::string::npos) << strPlan;
  }
}
