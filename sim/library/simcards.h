// simcards: control of the simulated card library from the same process.
// libshpa3.so, built of this directory, stands in for the card maker's library: same interface, cards made of software.
// Tests link it and steer it through these functions; a running daemon is steered through its Unix socket (cardsim).
// Threads:   any; one lock inside. The library's own pacing thread writes audio and reports it by events.
// Channels:  driver channels and circuit numbers as the library interface has them.
#pragma once

#include <string>
#include <vector>

#include "shpa3api.h"

namespace simcards {

// -- without SsmStartCti: a bench of channels for unit tests ----------------------------------------------------------
// Forgets boards, channels, events, faults, recorded calls and audio; stops the pacing thread.
void Reset();
// Makes channels 0 to iCount - 1 of one type on board iBoardId, appended after those that exist. No pacing thread runs
// until StartPacing, so a test that fills the ring and pushes events by hand is not disturbed.
void AddBoard(int iBoardId, int iCount, int iChType);

// Where SsmStartCti looks for the cards in the machine, until Reset; without it "/usr/local/lib/shcti/simcards.conf".
void SetConfFile(const std::string& strPath);

// -- facts and state --------------------------------------------------------------------------------------------------
void SetChState(int nCh, int iState);  // what SsmGetChState returns; no event
void SetVoltage(int nCh, int iVoltage);
void SetCallerId(int nCh, const std::string& strCallerId);  // what SsmGetCallerIdA returns until SsmClearCallerId
struct SpyInfo {
  int iCallInCh = -1;
  int iCallOutCh = -1;
  std::string strCaller, strCallee, strConnected;
};
void SetSpyInfo(int nCic, const SpyInfo& rInfo);

// -- events -----------------------------------------------------------------------------------------------------------
// Queues an event for SsmWaitForEventA; `strData` is what pvBuffer will hold. On a bench all events are on and
// E_PROC_RecordMem comes each half ring, until SsmSetEvent says otherwise; after SsmStartCti events are off until then.
void PushEvent(WORD wEventCode, int nReference, DWORD dwParam, DWORD dwSubReason = 0, DWORD dwXtraInfo = 0,
               const std::string& strData = "");
// The same record by value, for tests that hand it to a channel directly; strData must outlive the use.
SSM_EVENT MakeEvent(WORD wEventCode, int nReference, DWORD dwParam, DWORD dwSubReason = 0,
                    std::string* prData = nullptr);

// -- faults and record of calls ---------------------------------------------------------------------------------------
// The next iTimes calls of an operation (by its name, "SsmRecToMem") fail with this result and SsmGetLastErrMsg text.
void FailNext(const std::string& strOperation, int iTimes, int iResult, const std::string& strText);
// Every call of a library operation since the last TakeCalls, one text a call with its arguments in decimal:
// "SsmRecToMem(3,6,4096,0)" (pointers are left out), "SsmClearCallerId(3)"; texts stand in double quotes:
// "SsmStartCti("/a/ShConfig.ini","/a/ShIndex.ini")". SsmWaitForEventA, SsmGetLastErrMsg and all Get operations are not
// listed.
std::vector<std::string> TakeCalls();

// -- audio ------------------------------------------------------------------------------------------------------------
// What a channel "hears", one at a time; the next call replaces it. Bytes are in the law of the recording's format.
void PlaySilence(int nCh);
void PlayTone(int nCh, double dHz, double dLevelDb);
// Byte k since the recording started is CountingByte(k), so that each byte of a recording can be checked.
void PlayCounting(int nCh);
BYTE CountingByte(long long k);
// A G.711 (raw .al, .ul) or WAV file (8 kHz, G.711 or 16-bit, mono); false when it cannot be read. Silence follows it.
bool PlayFile(int nCh, const std::string& strPath, bool fLoop = false);
// Starts and stops the pacing thread: 8000 bytes a second a channel, times dSpeed. While it runs, llReserved2 of a
// report tells when the bytes were due, in nanoseconds of CLOCK_MONOTONIC; else it is 0.
void StartPacing(double dSpeed = 1.0);
void StopPacing();
// Advances the audio of all recording channels by iBytes at once, without the pacing thread: writes the rings and
// queues E_PROC_RecordMem as SsmSetEvent asked.
void Advance(int iBytes);
// One channel hears these bytes, whatever it plays, and reports them at once: for tests of pieces that come unequal or
// late. Nothing on a channel that does not record into memory.
void Hear(int nCh, const std::string& strBytes);
// What the library has cost since the process began, in seconds of CPU time.
struct Cost {
  double dPacingS = 0;   // of the pacing thread
  double dTakingS = 0;   // inside SsmWaitForEventA, on the program's own threads, without the waiting; from samples
  long long iTakes = 0;  // calls of SsmWaitForEventA
};
Cost TheCost();
// Bytes that were overwritten in a ring before the event that announced them was taken.
long long Overruns();

}  // namespace simcards
