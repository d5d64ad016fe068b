// FlakyDatabase: a database whose calls fail as an input says, and that knows which rows of calls in progress are open.
// A call that fails gives its default and changes nothing.
#pragma once

#include <set>
#include <string>

#include "FakeDatabase.h"
#include "FuzzCheck.h"

class FlakyDatabase : public IDatabase {
 public:
  // Each bit of the text is a call, again and again: 1 fails. An empty text: none does.
  explicit FlakyDatabase(std::string strBits) : strFailures(std::move(strBits)) {}

  bool CanFail() const { return !strFailures.empty(); }

  int WaitForConnection() override { return Next().WaitForConnection(); }
  void SetDbUser(const std::string& strUser) override { Next().SetDbUser(strUser); }
  void InitRecorder(const std::string& strRecId, const std::string& strName) override {
    Next().InitRecorder(strRecId, strName);
  }
  long long GetRecorderID() override { return Next().GetRecorderID(); }

  int AddCall(const StringMap& rCallInfo) override { return Next().AddCall(rCallInfo); }
  int AddActiveCall(const StringMap& rCallInfo) override {
    const int iID = Next().AddActiveCall(rCallInfo);
    if (iID != -1) rOpenRows.insert(iID);
    return iID;
  }
  int AddCallGeneric(const std::string& strTable, const StringMap& rCallInfo) override {
    return Next().AddCallGeneric(strTable, rCallInfo);
  }
  void DeleteActiveCall(int iID) override {
    Next().DeleteActiveCall(iID);
    FuzzCheck(rOpenRows.erase(iID) == 1, "a row is deleted once");
  }
  int GetCallBack(int iContactID, int iBack) override { return Next().GetCallBack(iContactID, iBack); }
  void UpdateActiveCallRemoteContact(int iID, Contact& rContact, const std::string& strRemote) override {
    Open(iID).UpdateActiveCallRemoteContact(iID, rContact, strRemote);
  }
  void UpdateActiveCallLocalContact(int iID, Contact& rContact, const std::string& strLocal) override {
    Open(iID).UpdateActiveCallLocalContact(iID, rContact, strLocal);
  }
  void UpdateActiveCallConnectedNum(int iID, Contact& rContact, const std::string& strConnected) override {
    Open(iID).UpdateActiveCallConnectedNum(iID, rContact, strConnected);
  }
  void UpdateActiveCallCategory(int iID, int iCategory) override { Open(iID).UpdateActiveCallCategory(iID, iCategory); }
  bool UpdateActiveCall(int iID, const StringMap& rCallInfo) override {
    return Open(iID).UpdateActiveCall(iID, rCallInfo);
  }
  void SetActiveCallExtra(int iID, const std::string& strKey, const std::string& strValue) override {
    Open(iID).SetActiveCallExtra(iID, strKey, strValue);
  }
  StdStringMap GetActiveCallExtra(int iID) override { return Open(iID).GetActiveCallExtra(iID); }
  StdStringMap GetActiveCallCarryOver(int iID) override { return Open(iID).GetActiveCallCarryOver(iID); }

  Contact GetOrCreateLineContact(int iChannel, long long iRecorder, const std::string& strName) override {
    return Next().GetOrCreateLineContact(iChannel, iRecorder, strName);
  }
  Contact GetCallerIDContact(const std::string& strCallerID) override { return Next().GetCallerIDContact(strCallerID); }
  Contact GetOrCreateCallerIDContact(const std::string& strCallerID, const std::string& strCallerID2, bool fLocal,
                                     const std::string& strName) override {
    return Next().GetOrCreateCallerIDContact(strCallerID, strCallerID2, fLocal, strName);
  }
  void DeleteIfUnused(Contact rContact) override { Next().DeleteIfUnused(rContact); }
  std::string GetContactName(int iContactId) override { return Next().GetContactName(iContactId); }

  void GetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override {
    Next().GetConfigsPart(rConfigs, strPart);
  }
  std::string GetConfig(const std::string& strParam) override { return Next().GetConfig(strParam); }
  int GetConfigInt(const std::string& strParam) override { return Next().GetConfigInt(strParam); }
  void SetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override {
    Next().SetConfigsPart(rConfigs, strPart);
  }
  void GetUsersOfPhone(int iContactID, std::vector<int>& aiAccIDs) override {
    Next().GetUsersOfPhone(iContactID, aiAccIDs);
  }
  std::string GetUserStringOnAccID(int iAccID, const std::string& strField) override {
    return Next().GetUserStringOnAccID(iAccID, strField);
  }
  int GetUserIntOnAccID(int iAccID, const std::string& strField) override {
    return Next().GetUserIntOnAccID(iAccID, strField);
  }
  IdMapEntry GetIdMapEntry(const std::string& strLocalNum) override { return Next().GetIdMapEntry(strLocalNum); }
  CallerIdContact GetCustomLocal(long long iContactID) override { return Next().GetCustomLocal(iContactID); }

  FakeDatabase rUp;
  std::set<int> rOpenRows;  // begun, and nobody has asked to delete them

 private:
  IDatabase& Next() {
    (void)rUp.TakeCalls();
    if (strFailures.empty()) return rUp;
    const std::size_t uiBit = uiCalls++ % (8 * strFailures.size());
    const bool fFails = (strFailures[uiBit / 8] >> (uiBit % 8) & 1) != 0;
    return fFails ? static_cast<IDatabase&>(rDown) : rUp;
  }
  // For a row that is named: -1 stands for one that could not be made.
  IDatabase& Open(int iID) {
    FuzzCheck(iID == -1 || rOpenRows.count(iID) == 1, "a row is used only while it is open");
    return Next();
  }

  AbsentDatabase rDown;
  std::string strFailures;
  std::size_t uiCalls = 0;
};
