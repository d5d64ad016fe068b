// ChannelBench: what stands around a channel in a test: simulated cards, recorder and database fakes, a clock that the
// test moves, and readers for the files that others would read.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "FakeRecorder.h"
#include "LogSink.h"
#include "OpenChannel.h"
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

class ChannelBench : public ::testing::Test {
 protected:
  static constexpr int LINES = 4;           // driver channels 0 to 3
  static constexpr time_t START = 1000000;  // the clock's first value

  ChannelBench() {
    simcards::Reset();
    simcards::AddBoard(0, LINES, CH_ANALOG);
    SetSimTime(rNow);
    rRecorder.rChannelParams = {{"Trigger", "1"},
                                {"SilenceTimeOut", "15"}};  // what the recorder gives when none is set
  }
  ~ChannelBench() override { simcards::Reset(); }

  void PassSeconds(int iSeconds) { SetSimTime(rNow += iSeconds); }

  // One second: the clock, then the channel.
  void Tick(BaseChannel& rChannel) {
    PassSeconds(1);
    rChannel.Periodic();
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

  static std::string FileBytes(const std::string& strName) {
    std::string strBytes;
    if (FILE* hFile = fopen(strName.c_str(), "rb"); hFile != nullptr) {
      char acBuf[4096];
      for (std::size_t n = 0; (n = fread(acBuf, 1, sizeof acBuf, hFile)) > 0;) strBytes.append(acBuf, n);
      (void)fclose(hFile);
    }
    return strBytes;
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
