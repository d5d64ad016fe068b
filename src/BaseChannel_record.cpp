// The identity of a recording part, its place on disk, and its columns in the database.
// Each part has one id (strDbRemoteId), from which the file name follows. One set of columns (FillCallInfo) goes first
// into the active row while the call runs, later into the lasting row. Which contacts stand in these columns depends on
// the numbers known, on whether the far party is local too, and on the direction (FindParties, FillPartyColumns).
// FinalizeRecording is the single exit of a part.
#include "BaseChannel.h"

#include <syslog.h>

#include <climits>
#include <cstdio>

#include "datafile.h"
#include "filedir.h"
#include "logging.h"

namespace {

constexpr int REC_UNIQ_MODULO = 100;                               // two digits of strDbRemoteId
constexpr std::size_t LONGEST_SECOND_ENDING = sizeof ".g711" - 1;  // ".info" is as long, ".raw" shorter

// Local time by a strftime format.
std::string TimeText(time_t rTime, const char* acFormat) {
  struct tm rLocalTime {};
  localtime_r(&rTime, &rLocalTime);
  char acText[64];
  return std::string(acText, strftime(acText, sizeof acText, acFormat, &rLocalTime));
}

// Decimal text, filled with zeros to a width; a longer number takes the places it needs.
std::string Padded(int iValue, int iWidth) {
  char acText[24];
  (void)snprintf(acText, sizeof acText, "%0*d", iWidth, iValue);  // any int fits
  return acText;
}

// A file name in UTF-8 cut to so many bytes, without a part of a character at its end.
std::string CutName(const std::string& strName, std::size_t uiBytes) {
  while (uiBytes < strName.size() && (strName[uiBytes] & 0xc0) == 0x80) uiBytes--;
  return strName.substr(0, uiBytes);
}

// A row without its contact, or a contact without its row, is what a failed look-up leaves.
bool IsLine(const Contact& rContact) {
  return rContact.iLineID > 0 && rContact.iContactID > 0;
}

bool IsNumber(const Contact& rContact) {
  return rContact.iCallerID > 0 && rContact.iContactID > 0;
}

// One party in the columns of a row: numbers in UTF-8, and the contact unless there is none.
struct Side {
  std::string strNum;
  long long iCallerID = 0;
  long long iContactID = 0;
  bool fContact = true;
};

void AddSide(StringMap* rCallInfo, const std::string& strColumn, const Side& rSide) {
  rCallInfo->AddUtf8(strColumn, rSide.strNum);
  rCallInfo->AddUtf8(strColumn + "full", rSide.strNum);
  if (!rSide.fContact) return;
  rCallInfo->AddUtf8(strColumn + "callerid", std::to_string(rSide.iCallerID));
  rCallInfo->AddUtf8(strColumn + "contact", std::to_string(rSide.iContactID));
}

}  // namespace

// -- id and file names ------------------------------------------------------------------------------------------------

void BaseChannel::DetermineDbRemoteId() {
  strDbRemoteId = TimeText(rStartTime, "%Y%m%d_%H%M%S") + "_" + Padded(iChannel, 3) + "_" +
                  Padded(iRecUniqCnt % REC_UNIQ_MODULO, 2);
}

void BaseChannel::DetermineFilename() {
  const ERecEncodings eRecEnc = prRecorder->eRecEnc;
  const bool fToConvert = eRecEnc == RECENC_GSM || eRecEnc == RECENC_MP3;
  const std::string strEnding = eRecEnc == RECENC_MP3 ? ".mp3" : ".wav";
  strFilename = strDbRemoteId;
  if (prRecorder->fLineNameInFileName) {
    IDatabase* const prDB = prRecorder->GetDatabaseHandle();
    const Contact rContact = LineContact(prDB);
    strFilename += "_";
    std::size_t uiOther = strFilename.size() + strEnding.size();
    if (fToConvert || prRecorder->fMonitoring) uiOther += LONGEST_SECOND_ENDING;
    const std::string strName = prDB->GetContactName(static_cast<int>(rContact.iContactID));
    strFilename += MakeValidFileNameStr(CutName(strName, NAME_MAX - uiOther));
  }
  strFilename += strEnding;
  strDirectory = TimeText(rStartTime, "%Y/%m/%d/%H");

  EnsurePath(prRecorder->strArchiveRoot + "/" + strDirectory);
  EnsurePath(prRecorder->strRecordingRoot + "/" + strDirectory);
  strFullFilenameFinal = prRecorder->strRecordingRoot + "/" + strDirectory + "/" + strFilename;
  strFullFilename = strFullFilenameFinal;
  strArchiveFilename = prRecorder->strArchiveRoot + "/" + strDirectory + "/" + strFilename;
  // The audio is G.711 while the call runs; the ending marks a file that is still to be converted.
  if (fToConvert) strFullFilename += ".g711";
}

// -- contacts of a call -----------------------------------------------------------------------------------------------

Contact BaseChannel::LineContact(IDatabase* prDB) const {
  return prDB->GetOrCreateLineContact(iChannel, prDB->GetRecorderID(), "");
}

Contact BaseChannel::LocalNumContact(IDatabase* prDB) const {
  return prDB->GetOrCreateCallerIDContact(GetLocalNum(), "", /*fLocal=*/true, "");
}

Contact BaseChannel::RemoteNumContact(IDatabase* prDB) const {
  return prDB->GetOrCreateCallerIDContact(Latin1ToUtf8(GetDbRemoteNum()), "", /*fLocal=*/false, "");
}

// A running call creates no contact for the far party. One that was too short or barred leaves none behind; the rules
// of keeping behind these ask for the contact, and make it.
Contact BaseChannel::KnownRemoteContact(IDatabase* prDB) const {
  return prDB->GetCallerIDContact(Latin1ToUtf8(GetDbRemoteNum()));
}

// On an incoming call the number that it was connected to is one of this site.
Contact BaseChannel::ConnectedNumContact(IDatabase* prDB) const {
  return prDB->GetOrCreateCallerIDContact(Latin1ToUtf8(strConnectedNum), "", /*fLocal=*/fIncoming, "");
}

bool BaseChannel::IsInternal(const Contact& rContactRemote) const {
  return !prRecorder->fCardNotInternal && rContactRemote.iContactID != -1 && rContactRemote.fLocal;
}

struct BaseChannel::Parties {
  Contact rLocalLine;  // the line; its contact is that of the local number when there is one
  Contact rLocalNum;
  Contact rRemote;
  std::string strDbRemoteNum;  // Latin-1
  std::string strLocalNum;     // UTF-8; empty without fHaveLocal
  bool fHaveLocal = false;     // a local number identifies the local side, not the line
  bool fInternal = false;
};

// Asks only for what the rules of keeping have not found a moment ago.
BaseChannel::Parties BaseChannel::FindParties(IDatabase* prDB, bool fFinal, const Judged& rJudged) const {
  Parties rParties;
  rParties.rLocalLine = IsLine(rJudged.rLocal) ? rJudged.rLocal : LineContact(prDB);
  rParties.strDbRemoteNum = GetDbRemoteNum();
  if (IsNumber(rJudged.rRemote)) {
    rParties.rRemote = rJudged.rRemote;
  } else {
    rParties.rRemote = fFinal ? RemoteNumContact(prDB) : KnownRemoteContact(prDB);
  }
  rParties.fInternal = IsInternal(rParties.rRemote);
  if (rParties.fInternal) {
    lg(LOG_NOTICE, "[%d] Other %s is also local: internal call", iChannel, rParties.strDbRemoteNum.c_str());
  }
  rParties.fHaveLocal = QUseLocalNum();
  if (rParties.fHaveLocal) {
    rParties.strLocalNum = GetLocalNum();
    rParties.rLocalNum = IsNumber(rJudged.rLocal) ? rJudged.rLocal : LocalNumContact(prDB);
    rParties.rLocalLine.iContactID = rParties.rLocalNum.iContactID;
  }
  return rParties;
}

// -- columns of a call row --------------------------------------------------------------------------------------------

void BaseChannel::FillCallInfo(StringMap* rCallInfo, IDatabase* prDB, bool fFinal) {
  FillCallInfo(rCallInfo, prDB, fFinal, {});
}

void BaseChannel::FillCallInfo(StringMap* rCallInfo, IDatabase* prDB, bool fFinal, const Judged& rJudged) {
  const Parties rParties = FindParties(prDB, fFinal, rJudged);
  iActiveContactLocal = static_cast<int>(rParties.rLocalLine.iContactID);
  FillPartColumns(rCallInfo, rParties, fFinal);
  FillPartyColumns(rCallInfo, rParties);
  if (fHasConnectedNum) FillConnectedColumns(rCallInfo, prDB);
  rCallInfo->AddUtf8("direction", ToStdString(Direction(rParties.fInternal)));
  rCallInfo->AddUtf8("recorderid", std::to_string(prDB->GetRecorderID()));
  rCallInfo->AddUtf8("callextra", ArrayToString({}));
  if (!rParties.fHaveLocal) return;
  const IdMapEntry rEntry = prDB->GetIdMapEntry(rParties.strLocalNum);  // lets a mapped number fill in a note
  if (rEntry.fFound && (rEntry.strTarget == "notes" || rEntry.strTarget == "notes2")) {
    rCallInfo->AddUtf8(rEntry.strTarget, rEntry.strValue);
  }
}

// What the part itself knows. A waiting call has the file name and the duration of the part before it, or none.
void BaseChannel::FillPartColumns(StringMap* rCallInfo, const Parties& rParties, bool fFinal) const {
  rCallInfo->AddUtf8("startdate", std::to_string(rStartTime));
  rCallInfo->AddUtf8("duration", ToStdString(iDuration));
  rCallInfo->AddUtf8("filename", strFilename);
  rCallInfo->AddUtf8("isconnected", "1");
  rCallInfo->AddUtf8("linenr", ToStdString(iChannel));
  rCallInfo->AddUtf8("waittime", ToStdString(iWaitTime));
  rCallInfo->AddUtf8("source", ToStdString(iRecSource));
  rCallInfo->AddUtf8("isarchived", fFinal || fRecording ? "1" : "0");
  rCallInfo->AddUtf8("encoding", ToStdString(iEncoding));
  rCallInfo->AddUtf8("encryption", "0");
  rCallInfo->AddUtf8("processingstate", "0");
  rCallInfo->AddUtf8("flags", ToStdString(prRecorder->fALE ? FLAG_ENCRYPTED : 0));
  rCallInfo->AddUtf8("directory", strDirectory);
  rCallInfo->AddUtf8("lineid", std::to_string(rParties.rLocalLine.iLineID));
  rCallInfo->AddUtf8("remoteid", strDbRemoteId);
}

void BaseChannel::FillPartyColumns(StringMap* rCallInfo, const Parties& rParties) const {
  Side rFar;
  rFar.strNum = Latin1ToUtf8(rParties.strDbRemoteNum);
  rFar.iCallerID = rParties.rRemote.iCallerID;
  rFar.iContactID = rParties.rRemote.iContactID;
  rFar.fContact = rParties.rRemote.iContactID != -1;
  Side rOwn;
  rOwn.strNum = rParties.strLocalNum;
  if (rParties.fHaveLocal) rOwn.iCallerID = rParties.rLocalNum.iCallerID;
  rOwn.iContactID = iActiveContactLocal;
  // An internal incoming call is filed under the party that called. The test switch turns every call over.
  const bool fSwap = (rParties.fInternal && fIncoming) || prRecorder->fCrecTestSwapLocRem;
  AddSide(rCallInfo, "remote", fSwap ? rOwn : rFar);
  AddSide(rCallInfo, "local", fSwap ? rFar : rOwn);
}

void BaseChannel::FillConnectedColumns(StringMap* rCallInfo, IDatabase* prDB) const {
  const Contact rContact = ConnectedNumContact(prDB);
  rCallInfo->AddLatin1("connected", strConnectedNum);
  rCallInfo->AddUtf8("connectedcallerid", std::to_string(rContact.iCallerID));
  rCallInfo->AddUtf8("connectedcontact", std::to_string(rContact.iContactID));
}

ECallDirection BaseChannel::Direction(bool fInternal) const {
  if (prRecorder->fCrecTestSwapLocRem) {  // turns outgoing calls over, and files all others as outgoing
    return !fInternal && !fIncoming ? DIRECTION_INCOMING : DIRECTION_OUTGOING;
  }
  if (fInternal) return DIRECTION_INTERNAL;
  return fIncoming ? DIRECTION_INCOMING : DIRECTION_OUTGOING;
}

// -- rows and the end of a part ---------------------------------------------------------------------------------------

void BaseChannel::AddActive() {
  StringMap rCallInfo;
  IDatabase* const prDB = prRecorder->GetDatabaseHandle();
  FillCallInfo(&rCallInfo, prDB, /*fFinal=*/false);
  iActiveCallID = prDB->AddActiveCall(rCallInfo);
}

void BaseChannel::RemoveActive() {
  if (iActiveCallID == -1) return;
  prRecorder->GetDatabaseHandle()->DeleteActiveCall(iActiveCallID);
  iActiveCallID = -1;
}

void BaseChannel::FinalizeRecording(bool fClearInfo) {
  fRecOnDmdStart = false;
  StopRecording(fClearInfo);
  if (fClearInfo) ClearInfo();
  AlwaysClearInfo();
  RemoveActive();  // a kept recording has handed its row over; all others lose it here
}
