// ChannelBench: what stands around a channel in a test: simulated cards, recorder and database fakes, and the clock.
// Both clocks of a channel, GetSrTime and time, stand at a known time of day until the test moves them.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "FakeRecorder.h"
#include "LogSink.h"
#include "OpenChannel.h"
#include "TestFiles.h"
#include "TestTime.h"
#include "ftime.h"
#include "simcards.h"

inline Contact MakeContact(long long iCallerID, long long iContactID, bool fLocal) {
  Contact rContact;
  rContact.iCallerID = iCallerID;
  rContact.iContactID = iContactID;
  rContact.fLocal = fLocal;
  return rContact;
}

// A line with the virtual answers of the base class, where a test does not set others.
class TestChannel : public OpenChannel<BaseChannel> {
 public:
  bool CanStereo() override { return fStereoLine; }
  void WhenNewRing() override { iNewRings++; }
  void AlwaysClearInfo() override {
    iAlwaysClears++;
    BaseChannel::AlwaysClearInfo();
  }

  bool fStereoLine = false;
  int iNewRings = 0;
  int iAlwaysClears = 0;
};

const std::string LOUD(4000, '\xaa');   // a window of full scale in A-law, 70 dB
const std::string QUIET(4000, '\xd5');  // of silence in A-law, -1 dB

// What line 5 tells of an outgoing call that may not be recorded.
constexpr const char* REFUSED = "5 [5] Not recording because not in number filter";
const Texts STARTS = {"5 [5] Call starts", "5 [5] Outgoing call", REFUSED};
const Texts STOPS = {"5 [5] Call stops"};

class ChannelBench : public ::testing::Test {
 protected:
  static constexpr int LINES = 4;           // driver channels 0 to 3
  static constexpr time_t START = 1000000;  // the clock's first value

  ChannelBench() {
    simcards::Reset();
    simcards::AddBoard(0, LINES, CH_ANALOG);
    (void)setenv("TZ", "UTC", 1);
    tzset();
    SetClock(START);
    rRecorder.rChannelParams = {{"Trigger", "1"},
                                {"SilenceTimeOut", "15"}};  // what the recorder gives when none is set
  }
  ~ChannelBench() override {
    simcards::Reset();
    testtime::rFrozen = 0;
  }

  void BarRecording() { rRecorder.iNumberFilterType = 1; }  // the start of a call then shows as the refusal
  void AllowRecording() { rRecorder.iNumberFilterType = 0; }

  void SetClock(time_t rTime) {
    SetSimTime(rNow = rTime);
    testtime::rFrozen = rTime;
  }
  void PassSeconds(int iSeconds) { SetClock(rNow + iSeconds); }
  // Time passes, second by second, as the main loop tells it to the lines of rRecorder.vChannels.
  void Seconds(int iSeconds) {
    for (int i = 0; i < iSeconds; i++) {
      PassSeconds(1);
      for (BaseChannel* prChannel : rRecorder.vChannels) prChannel->Periodic();
    }
  }

  static void Send(BaseChannel& rChannel, WORD wEventCode, DWORD dwParam) {
    const int iDrvCh = rChannel.*&OpenChannel<BaseChannel>::iDrvCh;
    SSM_EVENT rEvent = simcards::MakeEvent(wEventCode, iDrvCh, dwParam);
    rChannel.HandleEvent(&rEvent);
  }

  // Init, and forgets the traces of it.
  void InitLine(BaseChannel& rChannel, int iLine, int iDrvCh = 0) {
    rChannel.Init(iLine, 0, iDrvCh, &rRecorder, iDrvCh);
    ForgetTraces();
  }
  void ForgetTraces() {
    (void)logsink::Take();
    (void)simcards::TakeCalls();
    (void)rRecorder.TakeCalls();
    (void)rRecorder.rDatabase.TakeCalls();
  }

  // -- what happens on the lines; the lines stand in rRecorder.vChannels ----------------------------------------------
  // The card hears these bytes on one driver channel, and reports them; nothing while that channel does not record.
  void Hear(int iDrvCh, const std::string& strBytes) {
    simcards::Hear(iDrvCh, strBytes);
    TakeCardEvents();
  }
  // As the main loop does: hands the events that wait to the channels, until none is left.
  void TakeCardEvents() {
    char acData[1024];
    SSM_EVENT rEvent;
    rEvent.pvBuffer = acData;
    rEvent.dwBufferLength = sizeof acData;
    while (SsmWaitForEventA(0, &rEvent) == SSM_OK) rRecorder.HandleEvent(&rEvent);
  }

  // -- what others see of it; each of these four forgets what it tells ------------------------------------------------
  static Texts Log() { return logsink::TakeTexts(); }
  static Texts Cards() { return simcards::TakeCalls(); }
  Texts Orders() { return rRecorder.TakeCalls(); }  // to the recorder
  Texts Queries() { return rRecorder.rDatabase.TakeCalls(); }

  // The newest row of a table; empty without one.
  StdStringMap ActiveRow() { return NewestRow("ActiveCalls"); }
  StdStringMap KeptRow() { return NewestRow("Calls"); }
  std::string Active(const char* acColumn) { return ColumnOf(ActiveRow(), acColumn); }
  std::string Kept(const char* acColumn) { return ColumnOf(KeptRow(), acColumn); }
  std::size_t ActiveRows() { return rRecorder.rDatabase.rTables["ActiveCalls"].size(); }
  std::size_t KeptRows() { return rRecorder.rDatabase.rTables["Calls"].size(); }

  // Of this process; only differences mean something.
  static int OpenDescriptors() {
    int iCount = 0;
    DIR* hDir = opendir("/proc/self/fd");
    while (readdir(hDir) != nullptr) iCount++;
    (void)closedir(hDir);
    return iCount;
  }

  time_t rNow = START;
  FakeRecorder rRecorder;

 private:
  StdStringMap NewestRow(const char* acTable) {
    const std::map<int, StdStringMap>& rRows = rRecorder.rDatabase.rTables[acTable];
    return rRows.empty() ? StdStringMap() : rRows.rbegin()->second;
  }
  static std::string ColumnOf(const StdStringMap& rRow, const char* acColumn) {
    const auto it = rRow.find(acColumn);
    return it == rRow.end() ? "(none)" : it->second;
  }
};
