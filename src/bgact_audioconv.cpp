// Finishing a recording. The worker part is a row of external commands on files, none of which stops the next one: a
// call whose audio could not be converted, checked or encrypted still gets its row. The main part moves the row, and
// takes along what the web side has added to it while the call ran and the worker worked.
#include "bgact.h"

#include <sys/stat.h>
#include <syslog.h>

#include "bgact_tracker.h"
#include "callcodes.h"
#include "datafile.h"
#include "filedir.h"
#include "fstring.h"
#include "idatabase.h"
#include "irecorder.h"
#include "logging.h"
#include "shell.h"

namespace {

constexpr const char* MP3_KBIT_MONO = "16";
constexpr const char* MP3_KBIT_STEREO = "32";

struct CheckSumTool {
  const char* acType;  // setting CalcChecksum
  const char* acProgram;
};
constexpr CheckSumTool CHECKSUM_TOOLS[] = {
    {"md5", "md5sum"},
    {"sha1", "sha1sum"},
    {"sha256", "sha256sum"},
    {"sha512", "sha512sum"},
};

void CopyFile(const std::string& strFrom, const std::string& strTo) {
  // A failed copy loses the audio and keeps the row: the file that was written goes in any case.
  (void)execCmd("cp " + escapeShellArg(strFrom) + " " + escapeShellArg(strTo));
}

std::string CheckSum(const std::string& strType, const std::string& strFileName) {
  for (const CheckSumTool& rTool : CHECKSUM_TOOLS) {
    if (strType == rTool.acType) return calcSum(rTool.acProgram, strFileName);
  }
  return "";
}

// What was in both texts keeps the value of the finished call; what only the running call had survives.
std::string MergeCallExtra(const std::string& strCarried, const std::string& strOwn) {
  StdStringMap rMerged = StringToArray(strCarried);
  for (const auto& [strKey, strValue] : StringToArray(strOwn)) rMerged[strKey] = strValue;
  return ArrayToString(rMerged);
}

}  // namespace

std::string calcSum(const std::string& strProgram, const std::string& strFileName) {
  const std::string strOutput = stdSystem(strProgram + " -b " + escapeShellArg(strFileName));
  const std::size_t iBlank = strOutput.find(' ');
  return iBlank == std::string::npos ? "" : strOutput.substr(0, iBlank);
}

// -- on a worker ------------------------------------------------------------------------------------------------------

void AudioConvAct::performThread() {
  Convert();
  // The side files of live monitoring; most calls have none.
  (void)DeleteFn((strFullFilenameFinal + ".raw").c_str());
  (void)DeleteFn((strFullFilenameFinal + ".info").c_str());
  if (prRecorder->fRecCheck) {
    (void)execCmd("morvex_reccheck " + escapeShellArg(strFullFilenameFinal) + " " +
                  escapeShellArg(ToStdString(iDuration)));
  }
  if (prRecorder->fALE) {
    (void)execCmd("morvex_crypt -e -i " + escapeShellArg(strFullFilenameFinal) + " -o " +
                  escapeShellArg(strArchiveFilename));
    (void)DeleteFn(strFullFilenameFinal.c_str());  // also when that failed: clear audio is not left about
  }
  AddCheckSum();
}

void AudioConvAct::Convert() {
  switch (eRecEnc) {
    case RECENC_G711A:
    case RECENC_G711U:
      break;  // the channel wrote the final file
    case RECENC_GSM:
      ConvertToGsm();
      ReplaceSource();
      break;
    case RECENC_MP3:
      ConvertToMp3();
      ReplaceSource();
      break;
  }
}

// The final file takes the place of the one that the channel wrote.
void AudioConvAct::ReplaceSource() const {
  (void)chmod(strFullFilenameFinal.c_str(), RECORDING_MODE);
  (void)DeleteFn(strFullFilename.c_str());
}

void AudioConvAct::ConvertToGsm() {
  if (execCmd("sox " + escapeShellArg(strFullFilename) + " -e gsm-full-rate " + escapeShellArg(strFullFilenameFinal)) ==
      0) {
    rCallInfo.AddUtf8("encoding", ToStdString(ENCODING_GSM));
    return;
  }
  CopyFile(strFullFilename, strFullFilenameFinal);  // the name stays, and the row says what the file holds
}

// After a failure only the final name changes. The archive name keeps its ".mp3": the encrypted file goes there under
// that name, and without encryption no checksum is found; see Mp3FallbackKeepsTheArchiveName.
void AudioConvAct::ConvertToMp3() {
  const std::string bitrate = fStereo ? MP3_KBIT_STEREO : MP3_KBIT_MONO;
  if (execCmd("sox " + escapeShellArg(strFullFilename) + " -C " + escapeShellArg(bitrate) + ".4 " +
              escapeShellArg(strFullFilenameFinal)) == 0) {
    rCallInfo.AddUtf8("encoding", ToStdString(ENCODING_MP3));
    return;
  }
  lg(LOG_ERR, "Conversion to MP3 failed, fn: %s", strFullFilename.c_str());
  strFullFilenameFinal = RemoveFileExtension(strFullFilenameFinal) + ".wav";
  rCallInfo.AddUtf8("filename", ExtractFileName(strFullFilenameFinal));
  CopyFile(strFullFilename, strFullFilenameFinal);
}

// The sum is of the file as it lies in the archive: of the encrypted one when there is encryption.
void AudioConvAct::AddCheckSum() {
  StdStringMap rExtra = StringToArray(rCallInfo.data["callextra"]);
  const std::string strSum = CheckSum(strCheckSumType, strArchiveFilename);
  rExtra["chk"] = strSum;  // in every case: an earlier sum was of another file
  if (!strSum.empty()) rExtra["chktype"] = strCheckSumType;
  rCallInfo.AddUtf8("callextra", ArrayToString(rExtra));
}

// -- on the main thread -----------------------------------------------------------------------------------------------

void AudioConvAct::performMain() {
  MergeCarryOver(prDB->GetActiveCallCarryOver(iActiveCallID));
  if (fStoreOnDemandDelay) {
    KeepActive();
  } else {
    MoveToCalls();
  }
}

void AudioConvAct::MergeCarryOver(const StdStringMap& rCarryOver) {
  for (const auto& [strKey, strCarried] : rCarryOver) {
    const auto itOwn = rCallInfo.data.find(strKey);
    if (itOwn == rCallInfo.data.end()) {
      rCallInfo.AddUtf8(strKey, strCarried);
    } else if (strKey == "callextra") {
      itOwn->second = MergeCallExtra(strCarried, itOwn->second);
    } else if (strKey == "processingstate") {  // bits; each side sets its own
      itOwn->second = ToStdString(TextToInt(itOwn->second) | TextToInt(strCarried));
    }
  }
}

void AudioConvAct::MoveToCalls() {
  prDB->DeleteActiveCall(iActiveCallID);
  const int iID = prDB->AddCall(rCallInfo);  // -1 goes on as it comes: the row is lost, the log says why
  if (fToEmail) prRecorder->EmailRecording(iID, iEmailContactID);
  if (prRecorder->fNeedCallPost) {
    auto* prPost = new CallPostAct;
    prPost->iCallID = iID;
    queueAction(prPost);
  }
}

void AudioConvAct::KeepActive() {
  const int iState = TextToInt(ValueOf(rCallInfo.data, "processingstate"));
  rCallInfo.AddUtf8("processingstate", ToStdString(iState | STATE_UNDECIDED));
  if (fToEmail) {  // a mark for whoever decides later; nothing is mailed
    StdStringMap rExtra = StringToArray(rCallInfo.data["callextra"]);
    rExtra["to-email"] = "L";
    rCallInfo.AddUtf8("callextra", ArrayToString(rExtra));
  }
  (void)prDB->UpdateActiveCall(iActiveCallID, rCallInfo);
}
