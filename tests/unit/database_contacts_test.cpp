#include <functional>

#include "LogSink.h"
#include "PgServer.h"

// Contacts, numbers, lines, and the look-ups around them, on the real server.

namespace {

using pg::DatabaseFixture;

class ContactsTest : public DatabaseFixture {};

// What an operation answered, as one text.
std::string Told(const Contact& rContact) {
  return std::to_string(rContact.iCallerID) + " " + std::to_string(rContact.iContactID) + " " +
         std::to_string(rContact.iLineID) + (rContact.fLocal ? " local" : " remote");
}

std::string Told(const CallerIdContact& rCustom) {
  return (rCustom.fFound ? "found " : "none ") + std::to_string(rCustom.iCallerID) + " " +
         std::to_string(rCustom.iContactID) + " '" + rCustom.strText + "' " + std::to_string(rCustom.iUpdateTime);
}

std::string Told(const IdMapEntry& rEntry) {
  return (rEntry.fFound ? "found '" : "none '") + rEntry.strValue + "' '" + rEntry.strTarget + "'";
}

constexpr char DEFAULT_CONTACT[] = "-1 -1 -1 remote";

}  // namespace

// -- value types ------------------------------------------------------------------------------------------------------

TEST(ContactTest, DefaultsAreUnknownInContactAndZeroInCustomLocal) {
  EXPECT_EQ(Told(Contact()), DEFAULT_CONTACT);
  EXPECT_EQ(Told(CallerIdContact()), "none 0 0 '' 0");
  EXPECT_EQ(Told(IdMapEntry()), "none '' ''");
}

TEST(ContactTest, UnknownIdIsNullInSql) {
  Contact rContact;
  EXPECT_EQ(rContact.StdStrCallerID(), "NULL");
  EXPECT_EQ(rContact.StdStrContactID(), "NULL");
  rContact.iCallerID = 12;
  rContact.iContactID = 0;
  EXPECT_EQ(rContact.StdStrCallerID(), "12");
  EXPECT_EQ(rContact.StdStrContactID(), "0");
  rContact.iCallerID = -2;
  rContact.iContactID = 2147483647;
  EXPECT_EQ(rContact.StdStrCallerID(), "-2");
  EXPECT_EQ(rContact.StdStrContactID(), "2147483647");
}

TEST(ContactTest, IdOfMoreThan32BitsIsCutInSql) {
  Contact rContact;
  rContact.iCallerID = 2147483648;
  rContact.iContactID = 4294967298;
  EXPECT_EQ(rContact.StdStrCallerID(), "-2147483648");
  EXPECT_EQ(rContact.StdStrContactID(), "2");
}

TEST_F(ContactsTest, IdOfMoreThan32BitsIsCutInEachStatement) {
  Contact rContact;
  rContact.iCallerID = 4294967297;
  rContact.iContactID = 4294967298;
  const Texts astrSent = Sent([&] { rDatabase.DeleteIfUnused(rContact); });
  ASSERT_EQ(astrSent.size(), 2U);
  EXPECT_EQ(astrSent[0].rfind("DELETE FROM CallerIDs WHERE id='1' AND", 0), 0U);
  EXPECT_EQ(astrSent[1].rfind("DELETE FROM Contacts WHERE id='2' AND", 0), 0U);
  EXPECT_EQ(Sent([&] { (void)rDatabase.GetCustomLocal(4294967299); }),
            Texts{"SELECT * FROM LocalIdMapping  WHERE srcid=3"});
}

// -- numbers ----------------------------------------------------------------------------------------------------------

TEST_F(ContactsTest, NewNumberMakesContactAndCallerId) {
  Contact rContact;
  EXPECT_EQ(Sent([&] { rContact = rDatabase.GetOrCreateCallerIDContact("0301", "0302", false, "M\xc3\xbcller's"); }),
            (Texts{"SELECT id,contactid,islocal from callerids where callerid='0301' AND deleted=0",
                   "INSERT INTO Contacts (name,extra,parentcontact) VALUES ('M\xc3\xbcller''s','',0)",
                   "SELECT currval('contacts_id_seq')",
                   "INSERT INTO CallerIDs (callerid,callerid2,islocal,contactid) VALUES ('0301','',0,1)",
                   "SELECT currval('callerids_id_seq')"}));
  EXPECT_EQ(Told(rContact), "1 1 -1 remote");
  EXPECT_EQ(pg::Sql("SELECT * FROM Contacts"), "1|M\xc3\xbcller's||0");
  EXPECT_EQ(pg::Sql("SELECT * FROM CallerIDs"), "1|0301||0|1|0");  // the second number is not stored
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(ContactsTest, EmptyNameMakesAContactWithAnEmptyName) {
  EXPECT_EQ(rDatabase.GetOrCreateCallerIDContact("0301", "", false, "").iContactID, 1);
  EXPECT_EQ(pg::Sql("SELECT * FROM Contacts"), "1|||0");
}

TEST_F(ContactsTest, NewLocalNumberTellsSoOnlyFromTheNextCallOn) {
  EXPECT_EQ(Told(rDatabase.GetOrCreateCallerIDContact("21", "", true, "")), "1 1 -1 remote");
  EXPECT_EQ(pg::Sql("SELECT islocal FROM CallerIDs"), "1");
  EXPECT_EQ(Told(rDatabase.GetOrCreateCallerIDContact("21", "", true, "")), "1 1 -1 local");
}

TEST_F(ContactsTest, ExistingNumberIsFoundAndNeverChanges) {
  pg::Sql(
      "INSERT INTO Contacts (id,name) VALUES (5000000000,'Old'); "
      "INSERT INTO CallerIDs (id,callerid,islocal,contactid) VALUES (6000000000,'21',1,5000000000)");
  const Texts astrSelect = {"SELECT id,contactid,islocal from callerids where callerid='21' AND deleted=0"};
  Contact rContact;
  EXPECT_EQ(Sent([&] { rContact = rDatabase.GetOrCreateCallerIDContact("21", "22", false, "New"); }), astrSelect);
  EXPECT_EQ(Told(rContact), "6000000000 5000000000 -1 local");
  EXPECT_EQ(pg::Sql("SELECT name FROM Contacts"), "Old");
  EXPECT_EQ(pg::Sql("SELECT * FROM CallerIDs"), "6000000000|21||1|5000000000|0");

  EXPECT_EQ(Sent([&] { rContact = rDatabase.GetCallerIDContact("21"); }), astrSelect);
  EXPECT_EQ(Told(rContact), "6000000000 5000000000 -1 remote");  // this look-up leaves islocal unread
}

TEST_F(ContactsTest, LookUpOfAnUnknownNumberCreatesNothing) {
  EXPECT_EQ(Told(rDatabase.GetCallerIDContact("0301")), DEFAULT_CONTACT);
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM CallerIDs"), "0");
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Contacts"), "0");
}

TEST_F(ContactsTest, DeletedNumberIsInvisibleAndGetsANewRow) {
  pg::Sql(
      "INSERT INTO Contacts VALUES (77); INSERT INTO CallerIDs (id,callerid,contactid,deleted) VALUES (7,'21',77,2)");
  EXPECT_EQ(Told(rDatabase.GetCallerIDContact("21")), DEFAULT_CONTACT);
  EXPECT_EQ(Told(rDatabase.GetOrCreateCallerIDContact("21", "", false, "")), "1 1 -1 remote");
  EXPECT_EQ(Told(rDatabase.GetCallerIDContact("21")), "1 1 -1 remote");
  EXPECT_EQ(pg::Sql("SELECT id,deleted FROM CallerIDs ORDER BY id"), "1|0\n7|2");
}

TEST_F(ContactsTest, FailedInsertOfTheContactGivesTheDefault) {
  const pg::RefusingTable rRefusing("Contacts");
  EXPECT_EQ(Told(rDatabase.GetOrCreateCallerIDContact("21", "", true, "")), DEFAULT_CONTACT);
  EXPECT_EQ(Told(rDatabase.GetOrCreateLineContact(1, 2, "")), DEFAULT_CONTACT);
  EXPECT_EQ(pg::TakeLogLines(), (Texts{pg::RefusingTableLine("contacts"), pg::RefusingTableLine("contacts")}));
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM CallerIDs"), "0");
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Lines"), "0");
}

TEST_F(ContactsTest, FailedInsertOfTheNumberLeavesTheContact) {
  const pg::RefusingTable rRefusing("CallerIDs");
  EXPECT_EQ(Told(rDatabase.GetOrCreateCallerIDContact("21", "", true, "Anna")), "-1 1 -1 remote");
  EXPECT_EQ(pg::TakeLogLines(), Texts{pg::RefusingTableLine("callerids")});
  EXPECT_EQ(pg::Sql("SELECT id,name FROM Contacts"), "1|Anna");
}

TEST_F(ContactsTest, NumberOfAContactWithoutIdWaitsForTheNextLookUp) {
  pg::Sql("ALTER SEQUENCE contacts_id_seq RENAME TO away");
  Contact rContact;
  EXPECT_EQ(Sent([&] { rContact = rDatabase.GetOrCreateCallerIDContact("21", "", true, "Anna"); }),
            (Texts{"SELECT id,contactid,islocal from callerids where callerid='21' AND deleted=0",
                   "INSERT INTO Contacts (name,extra,parentcontact) VALUES ('Anna','',0)",
                   "SELECT currval('contacts_id_seq')"}));
  pg::Sql("ALTER SEQUENCE away RENAME TO contacts_id_seq");
  EXPECT_EQ(Told(rContact), DEFAULT_CONTACT);
  EXPECT_EQ(pg::TakeLogLines(), Texts{"3 DB error, new row without id: contacts_id_seq"});
  EXPECT_EQ(Told(rDatabase.GetOrCreateCallerIDContact("21", "", true, "Anna")), "1 2 -1 remote");
  EXPECT_EQ(pg::Sql("SELECT id,name FROM Contacts ORDER BY id"), "1|Anna\n2|Anna");
}

// -- lines ------------------------------------------------------------------------------------------------------------

TEST_F(ContactsTest, NewLineMakesContactAndLine) {
  Contact rContact;
  EXPECT_EQ(Sent([&] { rContact = rDatabase.GetOrCreateLineContact(7, 5000000000, "Sales"); }),
            (Texts{"SELECT id,contactid FROM Lines WHERE linenr=7 AND recorderid=5000000000",
                   "INSERT INTO Contacts (name,extra,parentcontact) VALUES ('Sales','',0)",
                   "SELECT currval('contacts_id_seq')",
                   "INSERT INTO Lines (contactid,recorderid,linenr) VALUES (1,5000000000,7)",
                   "SELECT currval('lines_id_seq')"}));
  EXPECT_EQ(Told(rContact), "-1 1 1 remote");
  EXPECT_EQ(pg::Sql("SELECT * FROM Lines"), "1|1|5000000000|7");
}

TEST_F(ContactsTest, ContactIdAbove32BitsGoesInFullIntoTheLine) {
  pg::Sql("SELECT setval('contacts_id_seq', 5000000000)");
  EXPECT_EQ(rDatabase.GetOrCreateLineContact(7, 1, "").iContactID, 5000000001);
  EXPECT_EQ(pg::Sql("SELECT contactid FROM Lines"), "5000000001");
}

TEST_F(ContactsTest, ExistingLineKeepsItsFirstName) {
  const Contact rFirst = rDatabase.GetOrCreateLineContact(7, 2, "Sales");
  Contact rSecond;
  EXPECT_EQ(Sent([&] { rSecond = rDatabase.GetOrCreateLineContact(7, 2, "Support"); }),
            Texts{"SELECT id,contactid FROM Lines WHERE linenr=7 AND recorderid=2"});
  EXPECT_EQ(Told(rSecond), Told(rFirst));
  EXPECT_EQ(pg::Sql("SELECT name FROM Contacts"), "Sales");
}

TEST_F(ContactsTest, SameLineNumberOfAnotherRecorderIsAnotherLine) {
  EXPECT_EQ(Told(rDatabase.GetOrCreateLineContact(7, 1, "")), "-1 1 1 remote");
  EXPECT_EQ(Told(rDatabase.GetOrCreateLineContact(7, 2, "")), "-1 2 2 remote");
}

TEST_F(ContactsTest, FailedInsertOfTheLineLeavesTheContact) {
  const pg::RefusingTable rRefusing("Lines");
  EXPECT_EQ(Told(rDatabase.GetOrCreateLineContact(7, 1, "Sales")), "-1 1 -1 remote");
  EXPECT_EQ(pg::TakeLogLines(), Texts{pg::RefusingTableLine("lines")});
}

TEST_F(ContactsTest, LineOfAContactWithoutIdWaitsForTheNextLookUp) {
  pg::Sql("ALTER SEQUENCE contacts_id_seq RENAME TO away");
  EXPECT_EQ(Told(rDatabase.GetOrCreateLineContact(7, 1, "Sales")), DEFAULT_CONTACT);
  pg::Sql("ALTER SEQUENCE away RENAME TO contacts_id_seq");
  EXPECT_EQ(pg::TakeLogLines(), Texts{"3 DB error, new row without id: contacts_id_seq"});
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Lines"), "0");
  EXPECT_EQ(Told(rDatabase.GetOrCreateLineContact(7, 1, "")), "-1 2 1 remote");
  EXPECT_EQ(pg::Sql("SELECT id,name FROM Contacts ORDER BY id"), "1|Sales\n2|");
}

// -- removal ----------------------------------------------------------------------------------------------------------

TEST_F(ContactsTest, UnusedNumberAndContactAreDeleted) {
  const Contact rContact = rDatabase.GetOrCreateCallerIDContact("21", "", false, "");
  (void)rDatabase.GetOrCreateCallerIDContact("22", "", false, "");
  EXPECT_EQ(
      Sent([&] { rDatabase.DeleteIfUnused(rContact); }),
      (Texts{
          "DELETE FROM CallerIDs WHERE id='1' AND NOT EXISTS (SELECT 1 FROM Calls WHERE localcallerid=CallerIDS.id OR "
          "remotecallerid=CallerIDS.id) AND NOT EXISTS (SELECT 1 FROM ActiveCalls WHERE localcallerid=CallerIDS.id OR "
          "remotecallerid=CallerIDS.id);",
          "DELETE FROM Contacts WHERE id='1' AND NOT EXISTS (SELECT 1 FROM CallerIDs WHERE contactid=Contacts.id)"}));
  EXPECT_EQ(pg::Sql("SELECT id FROM CallerIDs"), "2");
  EXPECT_EQ(pg::Sql("SELECT id FROM Contacts"), "2");
}

TEST_F(ContactsTest, NumberOfACallIsKeptWithItsContact) {
  const struct {
    const char* acLabel;
    const char* acInsert;
  } rRows[] = {
      {"local side of a call", "INSERT INTO Calls (localcallerid) VALUES (1)"},
      {"remote side of a call", "INSERT INTO Calls (remotecallerid) VALUES (1)"},
      {"local side of an active call", "INSERT INTO ActiveCalls (localcallerid) VALUES (1)"},
      {"remote side of an active call", "INSERT INTO ActiveCalls (remotecallerid) VALUES (1)"},
  };
  const Contact rContact = rDatabase.GetOrCreateCallerIDContact("21", "", false, "");
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    pg::Sql(rRow.acInsert);
    rDatabase.DeleteIfUnused(rContact);
    EXPECT_EQ(pg::Sql("SELECT count(*) FROM CallerIDs"), "1");
    EXPECT_EQ(pg::Sql("SELECT count(*) FROM Contacts"), "1");
    pg::Sql("TRUNCATE Calls, ActiveCalls");
  }
}

TEST_F(ContactsTest, ContactWithAnotherNumberIsKept) {
  const Contact rContact = rDatabase.GetOrCreateCallerIDContact("21", "", false, "");
  pg::Sql("INSERT INTO CallerIDs (callerid,contactid) VALUES ('22',1)");
  rDatabase.DeleteIfUnused(rContact);
  EXPECT_EQ(pg::Sql("SELECT callerid FROM CallerIDs"), "22");
  EXPECT_EQ(pg::Sql("SELECT id FROM Contacts"), "1");
}

TEST_F(ContactsTest, ContactThatOnlyALineHoldsCountsAsUnused) {
  rDatabase.DeleteIfUnused(rDatabase.GetOrCreateLineContact(1, 1, "Sales"));
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Contacts"), "0");
  EXPECT_EQ(pg::Sql("SELECT contactid FROM Lines"), "1");
  EXPECT_EQ(logsink::TakeTexts(), Texts());
}

TEST_F(ContactsTest, UnknownIdsGoOutAndMatchNothing) {
  (void)rDatabase.GetOrCreateCallerIDContact("21", "", false, "");
  const Texts astrSent = Sent([&] { rDatabase.DeleteIfUnused(Contact()); });
  ASSERT_EQ(astrSent.size(), 2U);
  EXPECT_EQ(astrSent[0].rfind("DELETE FROM CallerIDs WHERE id='-1' AND", 0), 0U);
  EXPECT_EQ(astrSent[1].rfind("DELETE FROM Contacts WHERE id='-1' AND", 0), 0U);
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Contacts"), "1");
}

TEST_F(ContactsTest, FailedDeleteOfTheNumberStillTriesTheContact) {
  const Contact rContact = rDatabase.GetOrCreateLineContact(1, 1, "");
  const pg::MissingTable rMissing("Calls");
  EXPECT_EQ(Sent([&] { rDatabase.DeleteIfUnused(rContact); }).size(), 2U);
  EXPECT_EQ(pg::TakeLogLines(), Texts{pg::MissingTableLine("calls")});
  EXPECT_EQ(pg::Sql("SELECT count(*) FROM Contacts"), "0");
}

// -- look-ups ---------------------------------------------------------------------------------------------------------

TEST_F(ContactsTest, ContactNameIsThatOfTheRow) {
  pg::Sql("INSERT INTO Contacts (id,name) VALUES (3,'Sales \xe2\x82\xac'), (4,'')");
  std::string strName;
  EXPECT_EQ(Sent([&] { strName = rDatabase.GetContactName(3); }), Texts{"SELECT name FROM Contacts WHERE id=3"});
  EXPECT_EQ(strName, "Sales \xe2\x82\xac");
  EXPECT_EQ(rDatabase.GetContactName(4), "");
  EXPECT_EQ(rDatabase.GetContactName(5), "");
}

TEST_F(ContactsTest, MappingLeadsToTheNumberOfItsTarget) {
  pg::Sql(
      "INSERT INTO Contacts VALUES (9); INSERT INTO CallerIDs (id,callerid,contactid,deleted) VALUES (4,'21',9,1); "
      "INSERT INTO LocalIdMapping (srcid,dstid,updatetime) VALUES (3,9,5000000000)");
  CallerIdContact rCustom;
  EXPECT_EQ(
      Sent([&] { rCustom = rDatabase.GetCustomLocal(3); }),
      (Texts{"SELECT * FROM LocalIdMapping  WHERE srcid=3", "SELECT id,callerid from callerids where contactid=9"}));
  EXPECT_EQ(Told(rCustom), "found 4 9 '21' 5000000000");  // a deleted number counts here
}

TEST_F(ContactsTest, MappingToAContactWithoutNumberIsFoundWithEmptyText) {
  pg::Sql("INSERT INTO LocalIdMapping (srcid,dstid,updatetime) VALUES (3,9,12)");
  EXPECT_EQ(Told(rDatabase.GetCustomLocal(3)), "found 0 9 '' 12");
}

TEST_F(ContactsTest, WithoutMappingOneSelectIsSent) {
  CallerIdContact rCustom;
  EXPECT_EQ(Sent([&] { rCustom = rDatabase.GetCustomLocal(3); }), Texts{"SELECT * FROM LocalIdMapping  WHERE srcid=3"});
  EXPECT_EQ(Told(rCustom), "none 0 0 '' 0");
}

TEST_F(ContactsTest, FailedSelectOfTheMappedNumberLeavesTheRest) {
  pg::Sql("INSERT INTO LocalIdMapping (srcid,dstid,updatetime) VALUES (3,9,12)");
  const pg::MissingTable rMissing("CallerIDs");
  EXPECT_EQ(Told(rDatabase.GetCustomLocal(3)), "found 0 9 '' 12");
  EXPECT_EQ(pg::TakeLogLines(), Texts());
}

TEST_F(ContactsTest, IdMapEntryTellsValueAndTarget) {
  pg::Sql("INSERT INTO IdMap (theid,value,target) VALUES ('it''s 21','VIP','notes2')");
  IdMapEntry rEntry;
  EXPECT_EQ(Sent([&] { rEntry = rDatabase.GetIdMapEntry("it's 21"); }),
            Texts{"SELECT value,target FROM IdMap  WHERE theid='it''s 21'"});
  EXPECT_EQ(Told(rEntry), "found 'VIP' 'notes2'");
  EXPECT_EQ(Told(rDatabase.GetIdMapEntry("22")), "none '' ''");
}

// -- failures ---------------------------------------------------------------------------------------------------------

namespace {

const struct {
  const char* acLabel;
  std::function<std::string(IDatabase&)> Run;
  const char* acDefault;
  const char* acTable;    // the first table asked
  bool fLogsFailedQuery;  // and not only the lack of a connection
} rFailureRows[] = {
    {"GetOrCreateLineContact", [](IDatabase& rDb) { return Told(rDb.GetOrCreateLineContact(1, 2, "x")); },
     DEFAULT_CONTACT, "lines", true},
    {"GetCallerIDContact", [](IDatabase& rDb) { return Told(rDb.GetCallerIDContact("21")); }, DEFAULT_CONTACT,
     "callerids", true},
    {"GetOrCreateCallerIDContact",
     [](IDatabase& rDb) { return Told(rDb.GetOrCreateCallerIDContact("21", "", true, "x")); }, DEFAULT_CONTACT,
     "callerids", true},
    {"DeleteIfUnused",
     [](IDatabase& rDb) {
       rDb.DeleteIfUnused(Contact());
       return std::string();
     },
     "", "contacts", true},
    {"GetContactName", [](IDatabase& rDb) { return rDb.GetContactName(1); }, "", "contacts", false},
    {"GetIdMapEntry", [](IDatabase& rDb) { return Told(rDb.GetIdMapEntry("21")); }, "none '' ''", "idmap", false},
    {"GetCustomLocal", [](IDatabase& rDb) { return Told(rDb.GetCustomLocal(1)); }, "none 0 0 '' 0", "localidmapping",
     false},
};

}  // namespace

TEST_F(ContactsTest, WithoutAServerEachOperationLogsAndGivesItsDefault) {
  AbsentDatabase rAbsent;  // stands for this in tests and tools
  const pg::Outage rOutage;
  for (const auto& rRow : rFailureRows) {
    SCOPED_TRACE(rRow.acLabel);
    EXPECT_EQ(rRow.Run(rDatabase), rRow.acDefault);
    EXPECT_EQ(pg::TakeLogLines(), pg::OUTAGE_LINES);
    EXPECT_EQ(rRow.Run(rAbsent), rRow.acDefault);
  }
}

TEST_F(ContactsTest, FailedQueryGivesTheDefaultAndOnlySomeLogIt) {
  for (const auto& rRow : rFailureRows) {
    SCOPED_TRACE(rRow.acLabel);
    const pg::MissingTable rMissing(rRow.acTable);
    EXPECT_EQ(rRow.Run(rDatabase), rRow.acDefault);
    EXPECT_EQ(pg::TakeLogLines(), rRow.fLogsFailedQuery ? Texts{pg::MissingTableLine(rRow.acTable)} : Texts());
  }
}
