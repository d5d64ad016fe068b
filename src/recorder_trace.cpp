// The recorder is deaf during a trace, since no event is taken from the driver.
// The driver writes trace.wav by itself. It calls us back, on threads of its own, with raw bits (trace.bit) and with
// signalling (dch.log, and the display messages among it into dmsg.log).
#include "recorder_trace.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "filedir.h"
#include "lock.h"
#include "logging.h"
#include "plainfile.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "shpa3api.h"

namespace {

constexpr const char* TRACE_WAV = "/recordings/log/trace.wav";
constexpr const char* TRACE_BIT = "/recordings/log/trace.bit";
constexpr const char* TRACE_DCH = "/recordings/log/dch.log";
constexpr const char* TRACE_DMSG = "/recordings/log/dmsg.log";

constexpr useconds_t TRACE_POLL_US = 200'000;
constexpr useconds_t DRIVER_SETTLE_US = 500'000;  // for calls that are on their way when the driver is switched off

constexpr char CMD_TYPES[] = "SUDV";  // from CMD_STATUS on
constexpr int BUFFER_CHARS = sizeof(DST_EVENT::pucBuffer);

// One of the files. One that could not be opened is null, and its part of the trace is missing.
struct TraceFile {
  const char* const acName;
  FILE* hFile = nullptr;
  bool fFailed = false;  // a write has failed, and that is told

  bool IsOpen() const { return hFile != nullptr; }
};

// The driver's threads write while the main thread opens and closes.
Mutex rTraceMutex;
TraceFile hRawBitFile GUARDED_BY(rTraceMutex) = {TRACE_BIT};
TraceFile hCasTraceFile GUARDED_BY(rTraceMutex) = {TRACE_DCH};  // not open: no trace, the callbacks have nothing to do
TraceFile hCasMsgTraceFile GUARDED_BY(rTraceMutex) = {TRACE_DMSG};
int g_iTraceChNr GUARDED_BY(rTraceMutex) = -1;  // driver channel
time_t g_tTraceStartTime GUARDED_BY(rTraceMutex) = 0;

// -- failures ---------------------------------------------------------------------------------------------------------

// Failures found under the lock, which are told behind it: made before the lock, this goes after it.
class TraceErrors {
 public:
  TraceErrors() = default;
  ~TraceErrors() {
    for (const Failure& rFailure : rFailures) {
      errno = rFailure.iErrno;
      LogCapiError(rFailure.strWhere.c_str());
    }
  }
  TraceErrors(const TraceErrors&) = delete;
  TraceErrors& operator=(const TraceErrors&) = delete;

  void Note(const char* acWhat, const TraceFile& rFile) {
    const int iErrno = errno;
    rFailures.push_back({std::string(acWhat) + rFile.acName, iErrno});
  }
  // A full disk refuses each write; one message a file is enough.
  void NoteFailedWrite(TraceFile& rFile) {
    if (!rFile.fFailed) Note("Write to ", rFile);
    rFile.fFailed = true;
  }
  void CheckWrites(TraceFile& rFile) {
    if (rFile.IsOpen() && ferror(rFile.hFile) != 0) NoteFailedWrite(rFile);
  }

 private:
  struct Failure {
    std::string strWhere;
    int iErrno;
  };
  std::vector<Failure> rFailures;
};

// -- files ------------------------------------------------------------------------------------------------------------

void OpenTraceFile(TraceFile& rFile, const char* acHeader, TraceErrors& rErrors) {
  rFile.fFailed = false;
  rFile.hFile = OpenFileAnew(rFile.acName);
  if (rFile.IsOpen()) {
    (void)fputs(acHeader, rFile.hFile);  // held back; a later write or the close shows a failure
  } else {
    rErrors.Note("OpenTraceFile ", rFile);
  }
}

void OpenBitFile(int iDrvCh) {
  for (const char* acName : {TRACE_WAV, TRACE_BIT, TRACE_DCH, TRACE_DMSG}) DeleteOrTell(acName);
  TraceErrors rErrors;
  const MutexLock rLock(rTraceMutex);
  g_iTraceChNr = iDrvCh;
  OpenTraceFile(hRawBitFile, "", rErrors);
}

void OpenSignallingFiles() {
  TraceErrors rErrors;
  const MutexLock rLock(rTraceMutex);
  OpenTraceFile(hCasTraceFile, "[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\n", rErrors);
  OpenTraceFile(hCasMsgTraceFile, "[Ch] Seconds\n", rErrors);
  g_tTraceStartTime = time(nullptr);
}

void CloseFiles() {
  TraceErrors rErrors;
  const MutexLock rLock(rTraceMutex);
  for (TraceFile* prFile : {&hRawBitFile, &hCasTraceFile, &hCasMsgTraceFile}) {
    if (prFile->IsOpen() && fclose(prFile->hFile) != 0) rErrors.NoteFailedWrite(*prFile);
    prFile->hFile = nullptr;
  }
}

// -- lines ------------------------------------------------------------------------------------------------------------

char CmdTypeChar(BYTE ucCmd) {
  const int iType = ucCmd - CMD_STATUS;
  return iType >= 0 && iType < static_cast<int>(sizeof CMD_TYPES) - 1 ? CMD_TYPES[iType] : '?';
}

void WriteDataLine(const char* szTime, int nCh, BYTE ucCmd, WORD wLen, const BYTE* pucData) REQUIRES(rTraceMutex) {
  FILE* const hFile = hCasTraceFile.hFile;
  (void)fprintf(hFile, "%s DST ch[%3d] CmdType[%c] Len[%3u] Data--> ", szTime != nullptr ? szTime : "", nCh,
                CmdTypeChar(ucCmd), static_cast<unsigned int>(wLen));
  for (WORD i = 0; i < wLen && pucData != nullptr; i++) {
    (void)fprintf(hFile, "%2x ", static_cast<unsigned int>(pucData[i]));
  }
  (void)fputc('\n', hFile);
}

void WriteEventLine(int nCh, const DST_EVENT& rEvent) REQUIRES(rTraceMutex) {
  const int iSeconds = static_cast<int>(time(nullptr) - g_tTraceStartTime);
  (void)fprintf(hCasTraceFile.hFile, "[%02d] %8d %08x %08x %08x %08x\n", nCh, iSeconds, rEvent.dwEventCode,
                rEvent.dwSubReason, rEvent.dwXtraInfo, rEvent.dwDataLength);
  if (rEvent.dwEventCode != DMSG_DISPLAY || !hCasMsgTraceFile.IsOpen()) return;
  (void)fprintf(hCasMsgTraceFile.hFile, "[%02d] %8d LCD message\n%.*s\n", nCh, iSeconds, BUFFER_CHARS,
                reinterpret_cast<const char*>(rEvent.pucBuffer));
}

}  // namespace

// -- called by the driver ---------------------------------------------------------------------------------------------

BOOL RecRawDataCallBack(int /*nCh*/, DWORD dwLen, LPBYTE pucData, WORD /*tmpDataDiscardedTimes*/,
                        WORD /*tmpWriteToFileFailedTimes*/) {
  TraceErrors rErrors;
  const MutexLock rLock(rTraceMutex);
  if (hRawBitFile.IsOpen()) (void)fwrite(pucData, dwLen, 1, hRawBitFile.hFile);
  rErrors.CheckWrites(hRawBitFile);
  return 1;
}

int DSTCallback(DWORD /*dwNum*/, char* szTime, int nCh, BYTE ucProcessType, BYTE ucCmd, WORD wLen, BYTE* pucData,
                void* pDSTEvent) {
  TraceErrors rErrors;
  const MutexLock rLock(rTraceMutex);
  if (!hCasTraceFile.IsOpen() || nCh != g_iTraceChNr) return 1;
  if (ucProcessType == PROCESS_DATA) WriteDataLine(szTime, nCh, ucCmd, wLen, pucData);
  if (ucProcessType == PROCESS_EVENT && pDSTEvent != nullptr) {
    WriteEventLine(nCh, *static_cast<const DST_EVENT*>(pDSTEvent));
  }
  rErrors.CheckWrites(hCasTraceFile);
  rErrors.CheckWrites(hCasMsgTraceFile);
  return 1;
}

// -- the trace mode of the main loop ----------------------------------------------------------------------------------

void RunBitStreamTrace(TRecorderBoot& rBoot, CRecorder& rRecorder) {
  const int iDrvCh = rRecorder.iBitStreamChNr;  // a second start during a trace does not move it
  char acZero[1] = {0};
  lg(LOG_NOTICE, "Starting bit stream tracing on channel %d", iDrvCh);
  OpenBitFile(iDrvCh);
  (void)SsmStartRecBitFlow(iDrvCh, RecRawDataCallBack);
  (void)SsmRecToFile(iDrvCh, TRACE_WAV, SSM_FORMAT_ALAW, 0, static_cast<DWORD>(-1), 0, 0);
  OpenSignallingFiles();
  (void)DTRSendRawData2A3(DTR_ALL, acZero, iDrvCh, DTR_CALLBACK_TYPE, DTR_ON, reinterpret_cast<LPBYTE>(DSTCallback));

  while (!fAppTerminate && rRecorder.fBitStreamTracing) {  // the action that ends the trace comes through the queue
    (void)usleep(TRACE_POLL_US);
    while (rBoot.RunOneAction()) (void)usleep(TRACE_POLL_US);
  }

  (void)SsmStopRecBitFlow(iDrvCh);
  (void)SsmStopRecToFile(iDrvCh);
  (void)DTRSendRawData2A3(DTR_ALL, acZero, iDrvCh, DTR_CALLBACK_TYPE, DTR_OFF, nullptr);
  (void)usleep(DRIVER_SETTLE_US);
  CloseFiles();
  lg(LOG_NOTICE, "Stopped bit stream tracing");
}
