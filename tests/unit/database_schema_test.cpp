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

TEST_F(SchemaTest, LookUpsHaveTheirIndexes) {
  const struct {
    const char* acLabel;
    const char* acSelect;
    const char* acIndex;
  } rRows[] = {
      {"setting", "SELECT value FROM Configs WHERE param='a'", "configs_param"},
      {"part", "SELECT param,value FROM Configs WHERE part='crec'", "configs_part"},
      {"recorder", "SELECT id FROM recorders WHERE recid='a'", "recorders_recid_key"},
      {"number", "SELECT id FROM callerids WHERE callerid='21' AND deleted=0", "callerids_callerid"},
      {"numbers of a contact", "SELECT id FROM callerids WHERE contactid=1", "callerids_contactid"},
      {"line", "SELECT id FROM Lines WHERE linenr=1 AND recorderid=2", "lines_recorderid_linenr_key"},
      {"back in a contact's calls", "SELECT id FROM Calls WHERE localcontact=1 ORDER BY startdate DESC LIMIT 3",
       "calls_localcontact"},
      {"latest calls with a contact", "SELECT * FROM Calls WHERE remotecontact=1 ORDER BY startdate DESC LIMIT 3",
       "calls_remotecontact"},
      {"use of a number, local", "SELECT 1 FROM Calls WHERE localcallerid=1", "calls_localcallerid"},
      {"use of a number, remote", "SELECT 1 FROM Calls WHERE remotecallerid=1", "calls_remotecallerid"},
      {"calls by the local number", "SELECT * FROM Calls WHERE local='21'", "calls_local"},
      {"calls by the beginning of a number", "SELECT * FROM Calls WHERE remote LIKE '030%'", "calls_remote"},
      {"calls of a line", "SELECT * FROM Calls WHERE lineid=1 ORDER BY startdate DESC", "calls_line"},
      {"calls of a day", "SELECT * FROM Calls WHERE startdate BETWEEN 1 AND 2", "calls_startdate"},
      {"call by its recording", "SELECT * FROM Calls WHERE remoteid='x'", "calls_remoteid"},
      {"preset", "SELECT value FROM IdMap WHERE theid='21'", "idmap_pkey"},
      {"mapping", "SELECT * FROM LocalIdMapping WHERE srcid=1", "localidmapping_srcid"},
      {"users of a phone", "SELECT accid FROM UserPhones WHERE contactid=1", "userphones_pkey"},
      {"phones of a user", "SELECT contactid FROM UserPhones WHERE accid=1", "userphones_accid"},
      {"user", "SELECT rod FROM Users WHERE accid=1", "users_pkey"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    const std::string strPlan = pg::Sql(std::string("SET enable_seqscan=off; EXPLAIN (COSTS OFF) ") + rRow.acSelect);
    EXPECT_NE((strPlan + "\n").find(std::string(" ") + rRow.acIndex), std::string::npos) << strPlan;
  }
}
