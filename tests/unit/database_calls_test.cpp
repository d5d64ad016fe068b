#include <functional>

#include "LogSink.h"
#include "PgServer.h"
#include "datafile.h"

// Calls and active calls on the real server.

namespace {

using namespace std::string_literals;
using pg::DatabaseFixture;
using pg::Told;

class CallsTest : public DatabaseFixture {};

StringMap Row(const StdStringMap& rColumns) {
  StringMap rRow;
  rRow.data = rColumns;
  return rRow;
}

Contact Party(long long iCallerID, long long iContactID) {
  Contact rContact;
  rContact.iCallerID = iCallerID;
  rContact.iContactID = iContactID;
  return rContact;
}

}  // namespace

// -- adding and removing rows -----------------------------------------------------------------------------------------

TEST_F(CallsTest, AddCallSendsAllValuesQuotedInKeyOrder) {
  int iID = 0;
  EXPECT_EQ(Sent([&] {
              iID = rDatabase.AddCall(Row({{"startdate", "1700000000"}, {"local", "it's 21"}, {"duration", "12"}}));
            }),
            (Texts{"INSERT INTO Calls(duration,local,startdate) VALUES ('12','it''s 21','1700000000')",
                   "SELECT currval('Calls_id_seq')"}));
  EXPECT_EQ(iID, 1);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"5 Added Calls to database (ID: 1)"});
  EXPECT_EQ(pg::Sql("SELECT id,duration,local,startdate,connected,connectedcallerid,notes FROM Calls"),
            "1|12|it's 21|1700000000||(null)|(null)");
}

TEST_F(CallsTest, AddActiveCallHasIdsOfItsOwn) {
  (void)rDatabase.AddCall(Row({{"linenr", "1"}}));
  (void)rDatabase.AddCall(Row({{"linenr", "2"}}));
  (void)logsink::Take();
  int iID = 0;
  EXPECT_EQ(Sent([&] {
              iID = rDatabase.AddActiveCall(Row({{"linenr", "3"}}));
            }),
            (Texts{"INSERT INTO ActiveCalls(linenr) VALUES ('3')", "SELECT currval('ActiveCalls_id_seq')"}));
  EXPECT_EQ(iID, 1);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"5 Added ActiveCalls to database (ID: 1)"});
  EXPECT_EQ(pg::Sql("SELECT id,linenr FROM ActiveCalls"), "1|3");
}

TEST_F(CallsTest, IdThatCannotBeReadIsTold) {
  (void)pg::Sql("ALTER SEQUENCE activecalls_id_seq RENAME TO away");
  EXPECT_EQ(rDatabase.AddActiveCall(Row({{"linenr", "3"}})), 0);
  (void)pg::Sql("ALTER SEQUENCE away RENAME TO activecalls_id_seq");
  EXPECT_EQ(logsink::TakeTexts(),
            (Texts{"3 DB error, new row without id: ActiveCalls_id_seq", "5 Added ActiveCalls to database (ID: 0)"}));
  EXPECT_EQ(pg::Sql("SELECT id,linenr FROM ActiveCalls"), "1|3");
}

TEST_F(CallsTest, EveryColumnOfTheRowBuilderIsTaken) {
  const StringMap rFull = Row({{"callextra", "a: b\r\n"},
                               {"category", "1"},
                               {"connected", "33"},
                               {"connectedcallerid", "5"},
                               {"connectedcontact", "6"},
                               {"direction", "2"},
                               {"directory", "2024/01/31/14"},
                               {"duration", "10"},
                               {"encoding", "551"},
                               {"encryption", "0"},
                               {"filename", "20240131_142305_007_42.wav"},
                               {"flags", "16"},
                               {"isarchived", "1"},
                               {"isconnected", "1"},
                               {"lineid", "-1"},
                               {"linenr", "7"},
                               {"local", "21"},
                               {"localcallerid", "0"},
                               {"localcontact", "-1"},
                               {"localfull", "21"},
                               {"notes", "n"},
                               {"notes2", "n2"},
                               {"notes3", "n3"},
                               {"notes4", "n4"},
                               {"notes5", "n5"},
                               {"processingstate", "128"},
                               {"recorderid", "0"},
                               {"remote", "0301"},
                               {"remotecallerid", "8"},
                               {"remotecontact", "9"},
                               {"remotefull", "0301"},
                               {"remoteid", "20240131_142305_007_42"},
                               {"source", "1"},
                               {"startdate", "1706711000"},
                               {"waittime", "3"}});
  EXPECT_EQ(rDatabase.AddCall(rFull), 1);
  EXPECT_EQ(rDatabase.AddActiveCall(rFull), 1);
  std::string strColumns;
  std::string strValues;
  for (const auto& [strKey, strValue] : rFull.data) {
    strColumns += (strColumns.empty() ? "" : ",") + strKey;
    strValues += (strValues.empty() ? "" : "|") + strValue;
  }
  EXPECT_EQ(pg::Sql("SELECT " + strColumns + " FROM Calls"), strValues);
  EXPECT_EQ(pg::Sql("SELECT " + strColumns + " FROM ActiveCalls"), strValues);
}

TEST_F(CallsTest, EmptyMapSendsEmptyListsAndFails) {
  int iID = 0;
  EXPECT_EQ(Sent([&] { iID = rDatabase.AddCall(StringMap()); }), Texts{"INSERT INTO Calls() VALUES ()"});
  EXPECT_EQ(iID, -1);
  EXPECT_EQ(pg::TakeLogLines(), Texts{"3 DB error code 6819553 6819553: ERROR:  syntax error at or near \")\""});
}

TEST_F(CallsTest, DeleteActiveCallRemovesThatRowOnly) {
  pg::Sql("INSERT INTO ActiveCalls (id) VALUES (4), (5)");
  EXPECT_EQ(Sent([&] { rDatabase.DeleteActiveCall(4); }), Texts{"DELETE FROM ActiveCalls WHERE id=4"});
  EXPECT_EQ(pg::Sql("SELECT id FROM ActiveCalls"), "5");
  rDatabase.DeleteActiveCall(4);  // gone already: nothing to report
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

// -- looking back -----------------------------------------------------------------------------------------------------

TEST_F(CallsTest, CallBackCountsFromTheNewest) {
  pg::Sql("INSERT INTO Calls (id,localcontact,startdate) VALUES (11,3,200), (12,3,300), (13,3,100), (14,4,400)");
  const struct {
    const char* acLabel;
    int iBack;
    int iID;
  } rRows[] = {{"the newest", 1, 12},
               {"the second", 2, 11},
               {"the oldest", 3, 13},
               {"behind the oldest", 4, -1},
               {"no step back", 0, -1}};
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    const std::string strSelect =
        "SELECT id FROM Calls WHERE localcontact=3 ORDER BY startdate DESC LIMIT " + std::to_string(rRow.iBack);
    int iID = 0;
    EXPECT_EQ(Sent([&] { iID = rDatabase.GetCallBack(3, rRow.iBack); }), Texts{strSelect});
    EXPECT_EQ(iID, rRow.iID);
    EXPECT_EQ(logsink::TakeTexts(), Texts{"7 " + strSelect});
  }
}

TEST_F(CallsTest, CallBackOfANegativeCountFails) {
  EXPECT_EQ(rDatabase.GetCallBack(3, -1), -1);
  const Texts astrLines = pg::TakeLogLines();
  ASSERT_EQ(astrLines.size(), 2U);
  EXPECT_EQ(astrLines[0], "7 SELECT id FROM Calls WHERE localcontact=3 ORDER BY startdate DESC LIMIT -1");
  EXPECT_NE(astrLines[1].find("LIMIT must not be negative"), std::string::npos) << astrLines[1];
}

// -- changing the active row ------------------------------------------------------------------------------------------

TEST_F(CallsTest, ContactUpdatesSendTheirStatements) {
  pg::Sql("INSERT INTO ActiveCalls (id) VALUES (4)");
  Contact rParty = Party(8, 9);
  EXPECT_EQ(Sent([&] { rDatabase.UpdateActiveCallRemoteContact(4, rParty, "it's 0301"); }),
            Texts{"UPDATE ActiveCalls SET   remotecallerid=8 ,remotecontact=9 ,remote='it''s 0301' "
                  ",remotefull='it''s 0301' WHERE id=4"});
  EXPECT_EQ(Sent([&] { rDatabase.UpdateActiveCallLocalContact(4, rParty, "21"); }),
            Texts{"UPDATE ActiveCalls SET   localcallerid=8 ,localcontact=9 ,local='21' ,localfull='21' WHERE id=4"});
  EXPECT_EQ(Sent([&] { rDatabase.UpdateActiveCallConnectedNum(4, rParty, "33"); }),
            Texts{"UPDATE ActiveCalls SET   connectedcallerid=8 ,connectedcontact=9 ,connected='33' WHERE id=4"});
  EXPECT_EQ(Sent([&] { rDatabase.UpdateActiveCallCategory(4, 2); }),
            Texts{"UPDATE ActiveCalls SET  category=2 WHERE id=4"});
  EXPECT_EQ(pg::Sql("SELECT remotecallerid,remotecontact,remote,remotefull,localcallerid,localcontact,local,localfull,"
                    "connectedcallerid,connectedcontact,connected,category FROM ActiveCalls"),
            "8|9|it's 0301|it's 0301|8|9|21|21|8|9|33|2");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(CallsTest, UnknownContactClearsTheLinksAndKeepsTheNumber) {
  pg::Sql(
      "INSERT INTO ActiveCalls (id,remotecallerid,remotecontact,localcallerid,localcontact,connectedcallerid,"
      "connectedcontact) VALUES (4,1,2,3,4,5,6)");
  Contact rUnknown;
  EXPECT_EQ(Sent([&] { rDatabase.UpdateActiveCallRemoteContact(4, rUnknown, "0301"); }),
            Texts{"UPDATE ActiveCalls SET   remotecallerid=NULL ,remotecontact=NULL ,remote='0301' ,remotefull='0301' "
                  "WHERE id=4"});
  rDatabase.UpdateActiveCallLocalContact(4, rUnknown, "21");
  rDatabase.UpdateActiveCallConnectedNum(4, rUnknown, "33");
  EXPECT_EQ(pg::Sql("SELECT remotecallerid,remotecontact,remote,remotefull,localcallerid,localcontact,local,localfull,"
                    "connectedcallerid,connectedcontact,connected FROM ActiveCalls"),
            "(null)|(null)|0301|0301|(null)|(null)|21|21|(null)|(null)|33");
}

TEST_F(CallsTest, UpdateActiveCallJoinsThePairsInKeyOrder) {
  pg::Sql("INSERT INTO ActiveCalls (id) VALUES (4)");
  bool fDone = false;
  EXPECT_EQ(Sent([&] {
              fDone = rDatabase.UpdateActiveCall(4, Row({{"notes", "it's"}, {"duration", "12"}}));
            }),
            Texts{"UPDATE ActiveCalls SET duration='12' , notes='it''s' WHERE id=4"});
  EXPECT_TRUE(fDone);
  EXPECT_EQ(pg::Sql("SELECT duration,notes FROM ActiveCalls"), "12|it's");
}

TEST_F(CallsTest, UpdateActiveCallOfAnEmptyMapFails) {
  bool fDone = true;
  EXPECT_EQ(Sent([&] { fDone = rDatabase.UpdateActiveCall(4, StringMap()); }),
            Texts{"UPDATE ActiveCalls SET  WHERE id=4"});
  EXPECT_FALSE(fDone);
  EXPECT_EQ(pg::TakeLogLines(), Texts{"3 DB error code 6819553 6819553: ERROR:  syntax error at or near \"WHERE\""});
}

TEST_F(CallsTest, UpdatesOfARowThatIsGoneReportNothing) {
  Contact rParty;
  rDatabase.UpdateActiveCallRemoteContact(4, rParty, "1");
  rDatabase.UpdateActiveCallLocalContact(4, rParty, "1");
  rDatabase.UpdateActiveCallConnectedNum(4, rParty, "1");
  rDatabase.UpdateActiveCallCategory(4, 1);
  EXPECT_TRUE(rDatabase.UpdateActiveCall(4, Row({{"notes", "x"}})));
  EXPECT_EQ(logsink::TakeTexts(), Texts());
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM ActiveCalls"), "0");
}

// -- callextra --------------------------------------------------------------------------------------------------------

TEST_F(CallsTest, ExtraOfARowIsReadAsAMap) {
  pg::Sql("INSERT INTO ActiveCalls (id,callextra) VALUES (4,E'b: 2\\r\\na: 1\\r\\n'), (5,NULL)");
  StdStringMap rExtra;
  EXPECT_EQ(Sent([&] { rExtra = rDatabase.GetActiveCallExtra(4); }),
            Texts{"SELECT callextra FROM ActiveCalls WHERE id=4"});
  EXPECT_EQ(Told(rExtra), "[a=1][b=2]");
  EXPECT_EQ(Told(rDatabase.GetActiveCallExtra(5)), "");  // NULL
  EXPECT_EQ(Told(rDatabase.GetActiveCallExtra(6)), "");  // no row
}

TEST_F(CallsTest, SettingOneKeyKeepsTheOthers) {
  pg::Sql("INSERT INTO ActiveCalls (id,callextra) VALUES (4,E'web: its own\\r\\nsilencing: 0\\r\\n'), (5,NULL)");
  EXPECT_EQ(Sent([&] { rDatabase.SetActiveCallExtra(4, "silencing", "1"); }),
            (Texts{"SELECT callextra FROM ActiveCalls WHERE id=4",
                   "UPDATE ActiveCalls SET callextra='silencing: 1\r\nweb: its own\r\n' WHERE id=4"}));
  EXPECT_EQ(Told(rDatabase.GetActiveCallExtra(4)), "[silencing=1][web=its own]");
  rDatabase.SetActiveCallExtra(5, "to-keep", "1");
  EXPECT_EQ(Told(rDatabase.GetActiveCallExtra(5)), "[to-keep=1]");
}

TEST_F(CallsTest, SettingAKeyOfARowThatIsGoneWritesNothing) {
  EXPECT_EQ(Sent([&] { rDatabase.SetActiveCallExtra(4, "to-keep", "1"); }),
            Texts{"SELECT callextra FROM ActiveCalls WHERE id=4"});
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(CallsTest, SpecialBytesOfAValueSurvive) {
  pg::Sql("INSERT INTO ActiveCalls (id,callextra) VALUES (4,'')");
  const std::string strValue = "cr\rlf\nback\\slash nul\0 quote' end"s;
  rDatabase.SetActiveCallExtra(4, "odd", strValue);
  EXPECT_EQ(rDatabase.GetActiveCallExtra(4)["odd"], strValue);
  EXPECT_EQ(pg::Sql("SELECT callextra FROM ActiveCalls"), "odd: cr\\rlf\\nback\\\\slash nul\\0 quote' end\r");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(CallsTest, FailedWriteOfTheExtraIsLogged) {
  pg::Sql("INSERT INTO ActiveCalls (id,callextra) VALUES (4,'')");
  const pg::RefusingTable rRefusing("ActiveCalls");
  rDatabase.SetActiveCallExtra(4, "to-keep", "1");
  EXPECT_EQ(pg::TakeLogLines(), Texts{pg::RefusingTableLine("activecalls")});
  EXPECT_EQ(pg::Sql("SELECT callextra FROM ActiveCalls"), "");
}

// -- the carry-over ---------------------------------------------------------------------------------------------------

TEST_F(CallsTest, CarryOverHoldsWhatTheWebSideMayChange) {
  pg::Sql(
      "INSERT INTO ActiveCalls (id,notes,notes2,notes3,notes4,notes5,category,processingstate,callextra,remote) "
      "VALUES (4,'one','two','three','four','f\xc3\xbcnf',-7,128,E'a: 1\\r\\n','0301')");
  StdStringMap rCarryOver;
  EXPECT_EQ(
      Sent([&] { rCarryOver = rDatabase.GetActiveCallCarryOver(4); }),
      Texts{"SELECT notes, notes2,  notes3, notes4, notes5,  category, processingstate, callextra FROM ActiveCalls "
            "WHERE id=4"});
  EXPECT_EQ(Told(rCarryOver),
            "[callextra=a: 1\r\n][category=-7][notes=one][notes2=two][notes3=three][notes4=four][notes5=f\xc3\xbcnf]"
            "[processingstate=128]");
}

TEST_F(CallsTest, CarryOverOfNullColumnsHasEveryKey) {
  pg::Sql("INSERT INTO ActiveCalls (id) VALUES (4)");
  EXPECT_EQ(Told(rDatabase.GetActiveCallCarryOver(4)),
            "[callextra=][category=0][notes=][notes2=][notes3=][notes4=][notes5=][processingstate=0]");
}

TEST_F(CallsTest, CarryOverOfARowThatIsGoneIsEmpty) {
  EXPECT_EQ(Told(rDatabase.GetActiveCallCarryOver(4)), "");
}

// -- failures ---------------------------------------------------------------------------------------------------------

namespace {

// The answer of an operation without one.
template <class Operation>
std::string Nothing(Operation rOperation) {
  rOperation();
  return "";
}

Contact rAnyParty;

const struct {
  const char* acLabel;
  std::function<std::string(IDatabase&)> Run;
  const char* acDefault;
  const char* acTable;
  const char* acLogged;  // at LOG_DEBUG before the query, nullptr: nothing
} rFailureRows[] = {
    {"AddCall",
     [](IDatabase& rDb) {
       return std::to_string(rDb.AddCall(Row({{"notes", "x"}})));
     },
     "-1", "calls", nullptr},
    {"AddActiveCall",
     [](IDatabase& rDb) {
       return std::to_string(rDb.AddActiveCall(Row({{"notes", "x"}})));
     },
     "-1", "activecalls", nullptr},
    {"AddCallGeneric",
     [](IDatabase& rDb) {
       return std::to_string(rDb.AddCallGeneric("Calls", Row({{"notes", "x"}})));
     },
     "-1", "calls", nullptr},
    {"DeleteActiveCall", [](IDatabase& rDb) { return Nothing([&] { rDb.DeleteActiveCall(1); }); }, "", "activecalls",
     nullptr},
    {"GetCallBack", [](IDatabase& rDb) { return std::to_string(rDb.GetCallBack(3, 1)); }, "-1", "calls",
     "7 SELECT id FROM Calls WHERE localcontact=3 ORDER BY startdate DESC LIMIT 1"},
    {"UpdateActiveCallRemoteContact",
     [](IDatabase& rDb) { return Nothing([&] { rDb.UpdateActiveCallRemoteContact(1, rAnyParty, "2"); }); }, "",
     "activecalls", nullptr},
    {"UpdateActiveCallLocalContact",
     [](IDatabase& rDb) { return Nothing([&] { rDb.UpdateActiveCallLocalContact(1, rAnyParty, "2"); }); }, "",
     "activecalls", nullptr},
    {"UpdateActiveCallConnectedNum",
     [](IDatabase& rDb) { return Nothing([&] { rDb.UpdateActiveCallConnectedNum(1, rAnyParty, "2"); }); }, "",
     "activecalls", nullptr},
    {"UpdateActiveCallCategory", [](IDatabase& rDb) { return Nothing([&] { rDb.UpdateActiveCallCategory(1, 2); }); },
     "", "activecalls", nullptr},
    {"UpdateActiveCall",
     [](IDatabase& rDb) {
       return std::string(rDb.UpdateActiveCall(1, Row({{"notes", "x"}})) ? "true" : "false");
     },
     "false", "activecalls", nullptr},
    {"SetActiveCallExtra", [](IDatabase& rDb) { return Nothing([&] { rDb.SetActiveCallExtra(1, "a", "b"); }); }, "",
     "activecalls", nullptr},
    {"GetActiveCallExtra", [](IDatabase& rDb) { return Told(rDb.GetActiveCallExtra(1)); }, "", "activecalls", nullptr},
    {"GetActiveCallCarryOver", [](IDatabase& rDb) { return Told(rDb.GetActiveCallCarryOver(1)); }, "", "activecalls",
     nullptr},
};

}  // namespace

TEST_F(CallsTest, WithoutAServerEachOperationLogsAndGivesItsDefault) {
  AbsentDatabase rAbsent;  // stands for this in tests and tools
  const pg::Outage rOutage;
  for (const auto& rRow : rFailureRows) {
    SCOPED_TRACE(rRow.acLabel);
    EXPECT_EQ(rRow.Run(rDatabase), rRow.acDefault);
    EXPECT_EQ(pg::TakeLogLines(), pg::OUTAGE_LINES);
    EXPECT_EQ(rRow.Run(rAbsent), rRow.acDefault);
  }
}

TEST_F(CallsTest, FailedQueryIsLoggedAndGivesTheDefault) {
  for (const auto& rRow : rFailureRows) {
    SCOPED_TRACE(rRow.acLabel);
    const pg::MissingTable rMissing(rRow.acTable);
    EXPECT_EQ(rRow.Run(rDatabase), rRow.acDefault);
    Texts astrExpected;
    if (rRow.acLogged != nullptr) astrExpected.push_back(rRow.acLogged);
    astrExpected.push_back(pg::MissingTableLine(rRow.acTable));
    EXPECT_EQ(pg::TakeLogLines(), astrExpected);
  }
}
