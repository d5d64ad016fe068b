// A line, then ISDN call phases, each a record whose three numbers come from the input, or a text where the length is
// not that of a record. What the channel makes of one record is worked out here once more.
#include <cstring>

#include "DstLine.h"

namespace {

constexpr DWORD PHASES[] = {DMSG_BRI_PROGRESS, DMSG_BRI_ALERTING, DMSG_BRI_CONNECTED, DMSG_BRI_RELEASED};

// A number of the record: text up to a NUL, or all 32 bytes when there is none.
std::string Field(const std::string& strRecord, size_t iOffset) {
  const std::string strField = strRecord.substr(iOffset, 32);
  return strField.substr(0, strField.find('\0'));
}

// A number of up to 34 bytes: longer ones run into the field behind, as a record that is not sound may do.
void PutNumber(std::string& strRecord, size_t iOffset, FuzzBytes& rBytes) {
  const std::string strNumber = rBytes.Text(rBytes.Below(35));
  strRecord.replace(iOffset, strNumber.size(), strNumber);
}

std::string MakeRecord(FuzzBytes& rBytes) {
  std::string strRecord(ISDN_RECORD_EXTENDED_BYTES, '\0');
  strRecord[4] = static_cast<char>(rBytes.Below(3));
  PutNumber(strRecord, 12, rBytes);
  PutNumber(strRecord, 76, rBytes);
  PutNumber(strRecord, 140, rBytes);
  return strRecord;
}

// On a line that holds no further call, the record's numbers become the line's.
void CheckNumbers(const OpenTelephone& rChannel, const std::string& strRecord) {
  const std::string strCaller = Field(strRecord, 12);
  const std::string strCalled = Field(strRecord, 76);
  const std::string strConnect = Field(strRecord, 140);
  const bool fIncoming = strRecord[4] == 1;
  std::string strRemote = fIncoming ? strCaller : strCalled;
  std::string strLocal = fIncoming ? strCalled : strCaller;
  if (fIncoming && strConnect.size() > 1) strLocal = strConnect;
  if (!fIncoming && strConnect.size() > 2) strRemote = rChannel.strConnectedNum;
  FuzzCheck(rChannel.strRemoteNum == strRemote, "the record's remote number is the line's");
  FuzzCheck(rChannel.strLocalNum == strLocal, "the record's local number is the line's");
  FuzzCheck(rChannel.fIncoming == fIncoming, "the record's direction is the line's");
}

void OnePhase(DstLine& rLine, FuzzBytes& rBytes) {
  OpenTelephone& rChannel = rLine.rChannel;
  const DWORD dwPhase = PHASES[rBytes.Below(std::size(PHASES))];
  std::string strRecord = MakeRecord(rBytes);
  const unsigned uiLength = rBytes.Byte();
  const bool isRecord = uiLength < 224;
  strRecord.resize(isRecord ? (uiLength % 2 == 0 ? ISDN_RECORD_BYTES : ISDN_RECORD_EXTENDED_BYTES) : uiLength - 24);
  const bool isStillRecord = strRecord.size() == ISDN_RECORD_BYTES;

  const size_t iBusyBefore = rChannel.vBusyCalls.size();
  rLine.Send(E_RCV_DSTDChannel, dwPhase, rBytes.Below(3), strRecord);
  const size_t iBusy = rChannel.vBusyCalls.size();
  const bool isEnded = iBusy == 0 && !rChannel.fCallBusy;  // the list ends with the line's call
  if (!isRecord && !isStillRecord) {
    FuzzCheck(iBusy == iBusyBefore || isEnded, "a text changes no list of calls");
    return;
  }
  FuzzCheck(rChannel.iPbxType != PBX_TENOVIS, "a line that speaks records is known by it");
  const bool isMultiCall = rChannel.iPbxType == PBX_TENOVIS_ISDN;
  if (!isMultiCall) {
    FuzzCheck(iBusy == 0, "the list grows only where it is read");
  } else if (dwPhase == DMSG_BRI_CONNECTED) {
    FuzzCheck(iBusy == iBusyBefore + 1 || isEnded, "a connected call joins the list");
  } else if (dwPhase == DMSG_BRI_RELEASED) {
    FuzzCheck(iBusy == iBusyBefore - (iBusyBefore > 0 ? 1 : 0) || isEnded, "a release shortens the list by one");
  } else {
    FuzzCheck(iBusy == iBusyBefore || isEnded, "other phases leave the list alone");
  }
  const bool isLeftAlone = isMultiCall && iBusyBefore > 0 && dwPhase != DMSG_BRI_CONNECTED;
  // Alerting is a ring too, which may drop the number at once; a release ends the call and its numbers.
  if (!isLeftAlone && dwPhase != DMSG_BRI_RELEASED && dwPhase != DMSG_BRI_ALERTING) CheckNumbers(rChannel, strRecord);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  FuzzBytes rBytes(prData, iSize);
  DstLine rLine(rBytes);
  while (!rBytes.IsOver()) OnePhase(rLine, rBytes);
  return 0;
}
