// ChannelBench: what stands around a channel in a test: simulated cards, recorder and database fakes, a clock that the
// test moves, and readers for the files that others would read.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "BaseChannel.h"
#include "FakeRecorder.h"
#include "LogSink.h"
#include "ftime.h"
#include "simcards.h"

using Texts = std::vector<std::string>;

// A line with the virtual answers of the base class, where a test does not set others.
class TestChannel : public BaseChannel {
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
    SSM_EVENT rEvent = simcards::MakeEvent(wEventCode, rChannel.iDrvCh, dwParam);
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
};
