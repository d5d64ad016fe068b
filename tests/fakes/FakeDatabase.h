// FakeDatabase: the database as state in memory, for tests of channels, actions and the recorder.
// Every operation that changes something, or that a test may want to see asked, adds a text to astrCalls; with
// fNoteReads set the plain reads of settings and rows do too. Tests set the public maps beforehand and read them
// afterwards.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Texts.h"
#include "idatabase.h"

class FakeDatabase : public AbsentDatabase {
 public:
  int WaitForConnection() override { return fDown ? AbsentDatabase::WaitForConnection() : 0; }
  void SetDbUser(const std::string& strUser) override { Note("SetDbUser " + strUser); }
  void InitRecorder(const std::string& strRecId, const std::string& strName) override {
    Note("InitRecorder " + strRecId + " " + strName);
  }
  long long GetRecorderID() override { return iRecorderID; }

  int AddCall(const StringMap& rCallInfo) override { return AddCallGeneric("Calls", rCallInfo); }
  int AddActiveCall(const StringMap& rCallInfo) override { return AddCallGeneric("ActiveCalls", rCallInfo); }
  int AddCallGeneric(const std::string& strTable, const StringMap& rCallInfo) override {
    if (fDown) return AbsentDatabase::AddCallGeneric(strTable, rCallInfo);
    rTables[strTable][++iLastRowId] = rCallInfo.data;
    Note("Add " + strTable + " " + std::to_string(iLastRowId));
    return iLastRowId;
  }
  void DeleteActiveCall(int iID) override {
    Note("DeleteActiveCall " + std::to_string(iID));
    rTables["ActiveCalls"].erase(iID);
  }
  int GetCallBack(int iContactID, int iBack) override {
    Note("GetCallBack " + std::to_string(iContactID) + " " + std::to_string(iBack));
    return iCallBack;
  }
  void UpdateActiveCallRemoteContact(int iID, Contact& rContact, const std::string& strRemote) override {
    NoteContact("UpdateActiveCallRemoteContact", iID, rContact, strRemote);
  }
  void UpdateActiveCallLocalContact(int iID, Contact& rContact, const std::string& strLocal) override {
    NoteContact("UpdateActiveCallLocalContact", iID, rContact, strLocal);
  }
  void UpdateActiveCallConnectedNum(int iID, Contact& rContact, const std::string& strConnected) override {
    NoteContact("UpdateActiveCallConnectedNum", iID, rContact, strConnected);
  }
  void UpdateActiveCallCategory(int iID, int iCategory) override {
    Note("UpdateActiveCallCategory " + std::to_string(iID) + " " + std::to_string(iCategory));
  }
  bool UpdateActiveCall(int iID, const StringMap& rCallInfo) override {
    Note("UpdateActiveCall " + std::to_string(iID));
    if (fDown) return AbsentDatabase::UpdateActiveCall(iID, rCallInfo);
    for (const auto& [strKey, strValue] : rCallInfo.data) rTables["ActiveCalls"][iID][strKey] = strValue;
    return true;
  }
  void SetActiveCallExtra(int iID, const std::string& strKey, const std::string& strValue) override {
    Note("SetActiveCallExtra " + std::to_string(iID) + " " + strKey + "=" + strValue);
    rExtra[iID][strKey] = strValue;
  }
  StdStringMap GetActiveCallExtra(int iID) override {
    NoteRead("GetActiveCallExtra " + std::to_string(iID));
    return rExtra[iID];
  }
  StdStringMap GetActiveCallCarryOver(int iID) override {
    Note("GetActiveCallCarryOver " + std::to_string(iID));
    return rCarryOver;
  }

  Contact GetOrCreateLineContact(int iChannel, long long iRecorder, const std::string& strName) override {
    if (fDown) return AbsentDatabase::GetOrCreateLineContact(iChannel, iRecorder, strName);
    Contact rContact;
    Note("GetOrCreateLineContact " + std::to_string(iChannel) + " '" + strName + "'");
    rContact.iLineID = 100 + iChannel;
    rContact.iContactID = 1000 + iChannel;
    return rContact;
  }
  // Numbers known beforehand stand in rNumbers; the lookup that creates nothing hides fLocal, as the real one does.
  Contact GetCallerIDContact(const std::string& strCallerID) override {
    Note("GetCallerIDContact " + strCallerID);
    if (fDown) return AbsentDatabase::GetCallerIDContact(strCallerID);
    Contact rContact;
    if (const auto it = rNumbers.find(strCallerID); it != rNumbers.end()) {
      rContact = it->second;
      rContact.fLocal = false;
    }
    return rContact;
  }
  Contact GetOrCreateCallerIDContact(const std::string& strCallerID, const std::string& strCallerID2, bool fLocal,
                                     const std::string& strName) override {
    Note("GetOrCreateCallerIDContact " + strCallerID + " " + (fLocal ? "local" : "remote") + " '" + strName + "'");
    if (fDown) return AbsentDatabase::GetOrCreateCallerIDContact(strCallerID, strCallerID2, fLocal, strName);
    const auto it = rNumbers.find(strCallerID);
    if (it != rNumbers.end()) return it->second;
    Contact rContact;
    rContact.iCallerID = 5000 + static_cast<long long>(rNumbers.size());
    rContact.iContactID = 6000 + static_cast<long long>(rNumbers.size());
    Contact rStored = rContact;
    rStored.fLocal = fLocal;  // seen only by the next call, as in the real one
    rNumbers[strCallerID] = rStored;
    return rContact;
  }
  void DeleteIfUnused(Contact rContact) override { Note("DeleteIfUnused " + std::to_string(rContact.iContactID)); }
  std::string GetContactName(int iContactId) override {
    NoteRead("GetContactName " + std::to_string(iContactId));
    return rContactNames[iContactId];
  }

  void GetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override {
    NoteRead("GetConfigsPart " + strPart);
    if (fDown) return AbsentDatabase::GetConfigsPart(rConfigs, strPart);
    for (const auto& [strParam, strValue] : rParts[strPart]) rConfigs[strParam] = strValue;
  }
  std::string GetConfig(const std::string& strParam) override {
    if (fDown) return AbsentDatabase::GetConfig(strParam);
    for (const auto& [strPart, rMap] : rParts) {
      if (const auto it = rMap.find(strParam); it != rMap.end()) return it->second;
    }
    return "";
  }
  int GetConfigInt(const std::string& strParam) override {
    NoteRead("GetConfigInt " + strParam);
    return TextToInt(GetConfig(strParam));
  }
  void SetConfigsPart(StdStringMap& rConfigs, const std::string& strPart) override {
    for (const auto& [strParam, strValue] : rConfigs) {
      Note("SetConfig " + strPart + " " + strParam + "=" + strValue);
      for (auto& [strOther, rMap] : rParts) rMap.erase(strParam);
      rParts[strPart][strParam] = strValue;
    }
  }
  void GetUsersOfPhone(int iContactID, std::vector<int>& aiAccIDs) override {
    Note("GetUsersOfPhone " + std::to_string(iContactID));
    for (const int iAccId : rUsersOfPhone[iContactID]) aiAccIDs.push_back(iAccId);
  }
  std::string GetUserStringOnAccID(int iAccID, const std::string& strField) override {
    return rUserFields[iAccID][strField];
  }
  int GetUserIntOnAccID(int iAccID, const std::string& strField) override {
    return TextToInt(rUserFields[iAccID][strField]);
  }
  IdMapEntry GetIdMapEntry(const std::string& strLocalNum) override {
    NoteRead("GetIdMapEntry " + strLocalNum);
    return rIdMap[strLocalNum];
  }
  CallerIdContact GetCustomLocal(long long iContactID) override {
    NoteRead("GetCustomLocal " + std::to_string(iContactID));
    return rCustomLocals[iContactID];
  }

  Texts TakeCalls() {
    Texts astrTaken;
    astrTaken.swap(astrCalls);
    return astrTaken;
  }

  bool fNoteReads = false;
  bool fDown = false;  // the server is away: every operation gives its default
  long long iRecorderID = 7;
  int iLastRowId = 0;
  int iCallBack = -1;
  Texts astrCalls;
  std::map<std::string, std::map<int, StdStringMap>> rTables;  // table -> row id -> columns
  std::map<int, StdStringMap> rExtra;
  StdStringMap rCarryOver;
  std::map<std::string, Contact> rNumbers;
  std::map<int, std::string> rContactNames;
  std::map<std::string, StdStringMap> rParts;  // part -> param -> value
  std::map<int, std::vector<int>> rUsersOfPhone;
  std::map<int, StdStringMap> rUserFields;
  std::map<std::string, IdMapEntry> rIdMap;
  std::map<long long, CallerIdContact> rCustomLocals;

 private:
  void Note(const std::string& strText) { astrCalls.push_back(strText); }
  void NoteRead(const std::string& strText) {
    if (fNoteReads) Note(strText);
  }
  void NoteContact(const char* acName, int iID, const Contact& rContact, const std::string& strText) {
    Note(std::string(acName) + " " + std::to_string(iID) + " " + rContact.StdStrCallerID() + " " +
         rContact.StdStrContactID() + " " + strText);
  }
};
