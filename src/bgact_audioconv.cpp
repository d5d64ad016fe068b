// Finishing a recording. The worker part is a row of external commands on files, none of which stops the next one: a
// call whose audio could not be converted, checked or encrypted still gets its row. What a command has made is on disk
// before its source is deleted, and before the row says so. A command follows whatever stands under the names that it
// is given, and others can write in these folders: so none is run on what is not a plain file of our own. The main part
// moves the row, and takes along what the web side has added to it while the call ran and the worker worked.
#include "bgact.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>

#include "bgact_tracker.h"
#include "callcodes.h"
#include "datafile.h"
#include "durable.h"
#include "filedir.h"
#include "fstring.h"
#include "idatabase.h"
#include "irecorder.h"
#include "logging.h"
#include "plainfile.h"
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

constexpr const char* RESCUE_FOLDER = "/rescued/";
constexpr int RESCUE_TRIES = 100;  // each with another name

// Whether a command must keep away from this name. From one that is free it may: it fails, and its status tells.
bool IsForeign(const std::string& strPath) {
  return !IsPlainFile(strPath.c_str()) && errno != ENOENT;
}

// Runs a command that reads one file and writes another. Its status; -1 when it could not run.
int ExecFromTo(const std::string& strCommand, const std::string& strFrom, const std::string& strTo) {
  if (IsForeign(strFrom)) return -1;
  if (!MakeWay(strTo.c_str()) && errno != ENOENT) return -1;
  return execCmd(strCommand);
}

bool CopyFile(const std::string& strFrom, const std::string& strTo) {
  return ExecFromTo("cp " + escapeShellArg(strFrom) + " " + escapeShellArg(strTo), strFrom, strTo) == 0;
}

void LogSyncError() {
  LogCapiError("Sync of recording file");
}

// Makes what a tool has made outlive a power cut. A file that is not there is told by whoever asked for it.
bool MakeDurable(const std::string& strPath) {
  if (SyncFile(strPath)) return true;
  if (errno != ENOENT) LogSyncError();
  return false;
}

std::string CheckSum(const std::string& strType, const std::string& strFileName) {
  for (const CheckSumTool& rTool : CHECKSUM_TOOLS) {
    if (strType == rTool.acType && !IsForeign(strFileName)) return calcSum(rTool.acProgram, strFileName);
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
  DeleteOrTell(strFullFilenameFinal + ".raw");
  DeleteOrTell(strFullFilenameFinal + ".info");
  if (prRecorder->fRecCheck && !IsForeign(strFullFilenameFinal)) {
    (void)execCmd("morvex_reccheck " + escapeShellArg(strFullFilenameFinal) + " " +
                  escapeShellArg(ToStdString(iDuration)));
  }
  if (prRecorder->fALE) Encrypt();
  AddCheckSum();
}

void AudioConvAct::Convert() {
  switch (eRecEnc) {
    case RECENC_G711A:
    case RECENC_G711U:
      if (!prRecorder->fALE) KeepInPlace();
      break;
    case RECENC_GSM:
      ReplaceSource(ConvertToGsm());
      break;
    case RECENC_MP3:
      ReplaceSource(ConvertToMp3());
      break;
  }
}

// The channel wrote the final file. Somebody can have taken it away since; or there never was one, for a reason that
// the log tells without the name.
void AudioConvAct::KeepInPlace() {
  if (SyncFile(strFullFilenameFinal)) return;
  if (errno == ENOENT) {
    ReportLoss();
  } else {
    LogSyncError();
  }
}

// The final file takes the place of the one that the channel wrote. Where that is to be encrypted and the disk did not
// take it, the source outlives a power cut until the encrypted file is on disk.
void AudioConvAct::ReplaceSource(bool fWhole) {
  {
    const Descriptor rFinal = OpenPlain(strFullFilenameFinal.c_str(), O_RDONLY);
    if (rFinal.IsOpen()) (void)fchmod(rFinal.Get(), RECORDING_MODE);
  }
  const bool fDurable = fWhole && MakeDurable(strFullFilenameFinal);
  if (!fDurable && !prRecorder->fALE) {
    RescueSource();
    return;
  }
  fSourceStays = fWhole && !fDurable;
  if (!fSourceStays) DeleteOrTell(strFullFilename);
  if (!fWhole) ReportLoss();
}

// Where the source is the only whole copy, somebody may still make something of it. It keeps its name, which is the
// call's id. By a rename: it needs no room, and nothing that a neighbour has put there is read.
void AudioConvAct::RescueSource() {
  struct stat rStat {};
  const bool fSeen = LookAt(strFullFilename.c_str(), rStat);
  if (fSeen ? !S_ISREG(rStat.st_mode) : errno == ENOENT) {
    DeleteOrTell(strFullFilename);
    ReportLoss();
    return;
  }
  const std::string strFolder = prRecorder->strArchiveRoot + RESCUE_FOLDER;
  const std::string strWanted = strFolder + ExtractFileName(strFullFilename);
  (void)MakeFolders(strFolder.c_str());
  std::string strRescued = strWanted;
  bool fMoved = MoveTo(strFullFilename.c_str(), strRescued.c_str());
  for (int i = 1; !fMoved && errno == EEXIST && i < RESCUE_TRIES; i++) {
    strRescued = strWanted + "." + ToStdString(i);
    fMoved = MoveTo(strFullFilename.c_str(), strRescued.c_str());
  }
  if (!fMoved) strRescued = strFullFilename;  // it stays where it is, rather than go
  lg(LOG_ERR, "Recording rescued: %s", strRescued.c_str());
  (void)SyncFile(strRescued);
  (void)SyncNames(strFullFilename);
}

// Clear audio is not left about where there is encryption, whatever becomes of the recording.
void AudioConvAct::Encrypt() {
  const std::string strCommand =
      "morvex_crypt -e -i " + escapeShellArg(strFullFilenameFinal) + " -o " + escapeShellArg(strArchiveFilename);
  const bool fStored =
      ExecFromTo(strCommand, strFullFilenameFinal, strArchiveFilename) == 0 && MakeDurable(strArchiveFilename);
  if (fSourceStays) DeleteOrTell(strFullFilename);
  DeleteOrTell(strFullFilenameFinal);
  if (!fStored) ReportLoss();
}

void AudioConvAct::ReportLoss() {
  if (!fLost) lg(LOG_ERR, "Recording lost: %s", strArchiveFilename.c_str());
  fLost = true;
}

bool AudioConvAct::ConvertToGsm() {
  const std::string strCommand =
      "sox " + escapeShellArg(strFullFilename) + " -e gsm-full-rate " + escapeShellArg(strFullFilenameFinal);
  if (ExecFromTo(strCommand, strFullFilename, strFullFilenameFinal) == 0) {
    rCallInfo.AddUtf8("encoding", ToStdString(ENCODING_GSM));
    return true;
  }
  return CopyFile(strFullFilename, strFullFilenameFinal);  // the name stays, and the row says what the file holds
}

// After a failure only the final name changes. The archive name keeps its ".mp3": the encrypted file goes there under
// that name, and without encryption no checksum is found; see Mp3FallbackKeepsTheArchiveName. The side files keep
// theirs too and stay, also where the live copy is clear audio of what is encrypted.
bool AudioConvAct::ConvertToMp3() {
  const std::string bitrate = fStereo ? MP3_KBIT_STEREO : MP3_KBIT_MONO;
  const std::string strCommand = "sox " + escapeShellArg(strFullFilename) + " -C " + escapeShellArg(bitrate) + ".4 " +
                                 escapeShellArg(strFullFilenameFinal);
  if (ExecFromTo(strCommand, strFullFilename, strFullFilenameFinal) == 0) {
    rCallInfo.AddUtf8("encoding", ToStdString(ENCODING_MP3));
    return true;
  }
  lg(LOG_ERR, "Conversion to MP3 failed, fn: %s", strFullFilename.c_str());
  DeleteOrTell(strFullFilenameFinal);  // a part of it, which no row would name
  strFullFilenameFinal = RemoveFileExtension(strFullFilenameFinal) + ".wav";
  rCallInfo.AddUtf8("filename", ExtractFileName(strFullFilenameFinal));
  return CopyFile(strFullFilename, strFullFilenameFinal);
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
