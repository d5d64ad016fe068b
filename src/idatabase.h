// idatabase: the interface of all database work, as channels, actions and the recorder hold it.
// Threads:   main only; workers run no SQL.
// Ownership: results are values; nobody keeps a pointer into the database.
// Errors:    each operation makes sure of the connection first. When there is none it logs and returns its default:
//            -1 for a row id, 0, false, an empty text or map, a default Contact. Callers go on.
// Text:      UTF-8.
#pragma once

#include <string>
#include <vector>

#include "fstring.h"

// Database identities of one party; -1: not known.
struct Contact {
  long long iCallerID = -1;   // row in CallerIDs
  long long iContactID = -1;  // row in Contacts
  long long iLineID = -1;     // row in Lines
  bool fLocal = false;        // the number belongs to this site

  // The ids as SQL text, "NULL" for -1.
  std::string StdStrCallerID() const { return IdOrNull(iCallerID); }
  std::string StdStrContactID() const { return IdOrNull(iContactID); }

 private:
  // 32-bit text, unlike most ids in rows that a channel fills: the sequences stay far below that.
  static std::string IdOrNull(long long iID) { return iID == -1 ? "NULL" : ToStdString(static_cast<int>(iID)); }
};

// A replacement of a line's own contact by another. Ids default to 0 here, unlike in Contact.
struct CallerIdContact {
  bool fFound = false;
  long long iCallerID = 0;
  long long iContactID = 0;
  std::string strText;        // number of that contact, UTF-8
  long long iUpdateTime = 0;  // seconds since 1970
};

// Preset of a call column for a local number.
struct IdMapEntry {
  bool fFound = false;
  std::string strValue;
  std::string strTarget;  // "notes" or "notes2"; anything else has no effect
};

class IDatabase {
 public:
  virtual ~IDatabase() = default;

  // -- connection and recorder ----------------------------------------------------------------------------------------
  // Waits for the server, one attempt a second, 60 at most. 0: connected; 1: gave up.
  virtual int WaitForConnection() = 0;
  // Changes the user name of WaitForConnection alone; all SQL runs as "root".
  virtual void SetDbUser(const std::string& strUser) = 0;
  // Finds or makes the row of this recorder; an existing row keeps its name.
  virtual void InitRecorder(const std::string& strRecId, const std::string& strName) = 0;
  virtual long long GetRecorderID() = 0;  // 0 until InitRecorder succeeded

  // -- calls ----------------------------------------------------------------------------------------------------------
  // All three return the new row id, -1 on failure.
  virtual int AddCall(const StringMap& rCallInfo) = 0;
  virtual int AddActiveCall(const StringMap& rCallInfo) = 0;
  virtual int AddCallGeneric(const std::string& strTable, const StringMap& rCallInfo) = 0;
  virtual void DeleteActiveCall(int iID) = 0;
  // The iBack-th newest call of a local contact (1: the newest); -1 when there is none.
  virtual int GetCallBack(int iContactID, int iBack) = 0;
  // These three link one party of the row and write its number, the first two also as the full number. An unknown
  // contact clears the link and keeps the number.
  virtual void UpdateActiveCallRemoteContact(int iID, Contact& rContact, const std::string& strRemote) = 0;
  virtual void UpdateActiveCallLocalContact(int iID, Contact& rContact, const std::string& strLocal) = 0;
  virtual void UpdateActiveCallConnectedNum(int iID, Contact& rContact, const std::string& strConnected) = 0;
  virtual void UpdateActiveCallCategory(int iID, int iCategory) = 0;
  // Sets each column of the map; false when the statement failed, as it does for an empty map. No such row is no
  // failure.
  virtual bool UpdateActiveCall(int iID, const StringMap& rCallInfo) = 0;
  // Reads callextra, sets one key and writes it back; nothing when the row is gone.
  virtual void SetActiveCallExtra(int iID, const std::string& strKey, const std::string& strValue) = 0;
  virtual StdStringMap GetActiveCallExtra(int iID) = 0;
  // The columns that the web side may have changed during the call.
  virtual StdStringMap GetActiveCallCarryOver(int iID) = 0;

  // -- contacts -------------------------------------------------------------------------------------------------------
  // Finds or makes the row of a line, with a contact of its own; the name given first stays. iChannel is the line
  // number that users see. Sets iLineID and iContactID alone.
  virtual Contact GetOrCreateLineContact(int iChannel, long long iRecorderID, const std::string& strName) = 0;
  // Creates nothing, and leaves fLocal false whatever the row says.
  virtual Contact GetCallerIDContact(const std::string& strCallerID) = 0;
  // Finds or makes the row of a number, with a contact of that name. An existing row never changes; strCallerID2 is
  // part of the interface, always "" in the daemon, and not stored. fLocal of the result tells what the row said
  // before, so it is false for a number made here.
  virtual Contact GetOrCreateCallerIDContact(const std::string& strCallerID, const std::string& strCallerID2,
                                             bool fLocal, const std::string& strName) = 0;
  // Removes the number when no call on either side has it, then the contact when no number is left to it.
  // Part of the interface; nothing in the daemon calls it.
  virtual void DeleteIfUnused(Contact rContact) = 0;
  virtual std::string GetContactName(int iContactId) = 0;

  // -- configuration and users ----------------------------------------------------------------------------------------
  // Merges the rows of a part over what the map holds.
  virtual void GetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) = 0;
  // The value in whatever part; the second reads the decimal number in front of it, 0 without one.
  virtual std::string GetConfig(const std::string& strParam) = 0;
  virtual int GetConfigInt(const std::string& strParam) = 0;
  // Replaces each row by param alone, whatever part it stood in.
  virtual void SetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) = 0;
  // Appends to the vector.
  virtual void GetUsersOfPhone(int iContactID, std::vector<int>& aiAccIDs) = 0;
  // strField goes bare into the statement: only the program's own column names. The first is part of the interface;
  // nothing in the daemon calls it.
  virtual std::string GetUserStringOnAccID(int iAccID, const std::string& strField) = 0;
  virtual int GetUserIntOnAccID(int iAccID, const std::string& strField) = 0;
  // Both tell by fFound whether there is an entry. How long a replacement holds is for the caller to decide.
  virtual IdMapEntry GetIdMapEntry(const std::string& strLocalNum) = 0;
  virtual CallerIdContact GetCustomLocal(long long iContactID) = 0;
};

// A database that is away for good: every operation gives its default, and nothing else happens.
class AbsentDatabase : public IDatabase {
 public:
  int WaitForConnection() override { return 1; }
  void SetDbUser(const std::string&) override {}
  void InitRecorder(const std::string&, const std::string&) override {}
  long long GetRecorderID() override { return 0; }
  int AddCall(const StringMap&) override { return -1; }
  int AddActiveCall(const StringMap&) override { return -1; }
  int AddCallGeneric(const std::string&, const StringMap&) override { return -1; }
  void DeleteActiveCall(int) override {}
  int GetCallBack(int, int) override { return -1; }
  void UpdateActiveCallRemoteContact(int, Contact&, const std::string&) override {}
  void UpdateActiveCallLocalContact(int, Contact&, const std::string&) override {}
  void UpdateActiveCallConnectedNum(int, Contact&, const std::string&) override {}
  void UpdateActiveCallCategory(int, int) override {}
  bool UpdateActiveCall(int, const StringMap&) override { return false; }
  void SetActiveCallExtra(int, const std::string&, const std::string&) override {}
  StdStringMap GetActiveCallExtra(int) override { return {}; }
  StdStringMap GetActiveCallCarryOver(int) override { return {}; }
  Contact GetOrCreateLineContact(int, long long, const std::string&) override { return {}; }
  Contact GetCallerIDContact(const std::string&) override { return {}; }
  Contact GetOrCreateCallerIDContact(const std::string&, const std::string&, bool, const std::string&) override {
    return {};
  }
  void DeleteIfUnused(Contact) override {}
  std::string GetContactName(int) override { return ""; }
  void GetConfigsPart(StdStringMap&, const std::string&) override {}
  std::string GetConfig(const std::string&) override { return ""; }
  int GetConfigInt(const std::string&) override { return 0; }
  void SetConfigsPart(StdStringMap&, const std::string&) override {}
  void GetUsersOfPhone(int, std::vector<int>&) override {}
  std::string GetUserStringOnAccID(int, const std::string&) override { return ""; }
  int GetUserIntOnAccID(int, const std::string&) override { return 0; }
  IdMapEntry GetIdMapEntry(const std::string&) override { return {}; }
  CallerIdContact GetCustomLocal(long long) override { return {}; }
};
