// LineBench: the bench with one line on it, for the tests of recording decisions, numbers and call rows.
// The line number is 7, so its line row is 107 and its contact 1007; the driver channel is 0. Driver channel 1 is a
// second line, to be linked. The clock stands at a known time of day until PassSeconds moves it on.
#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>

#include "ChannelBench.h"
#include "filedir.h"

// A line of no special kind, with more virtual answers in the hands of the test.
class BenchLine : public TestChannel {
 public:
  bool GetNewRecOnDmd() override { return fForceRecOnDmd || fRecOnDmd; }
  void WhenDigitExpiring() override { astrExpiring.push_back(strDigits); }
  void ClearInfo() override {
    iClearInfos++;
    BaseChannel::ClearInfo();
  }

  bool fForceRecOnDmd = false;
  Texts astrExpiring;  // strDigits at each WhenDigitExpiring
  int iClearInfos = 0;
};

class LineBench : public ChannelBench {
 protected:
  static constexpr int LINE = 7;
  static constexpr int DRIVER_CH = 0;
  static constexpr int LINKED_CH = 1;
  static constexpr time_t LINE_START = 1706711025;  // 14:23:45 on the last day of a January, a Wednesday

  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    umask(0);  // as the daemon runs
    SetSimTime(rNow = LINE_START);
    InitLine(rChannel, LINE, DRIVER_CH);
    InitLine(rLinked, LINE + 1, LINKED_CH);
    rRecorder.vChannels = {&rChannel, &rLinked};
    rChannel.iClearInfos = 0;
  }

  // A call as a subclass would report it.
  void SetInCall(bool fInCall) {
    rChannel.fInCall_ChState = fInCall;
    rChannel.InCallMaybeChanged();
  }
  // A part of this length that is recorded and then finished; the start's own traces are dropped.
  void RecordSeconds(int iSeconds) {
    rChannel.TryStartRecording();
    PassSeconds(iSeconds);
    ForgetTraces();
  }
  void SetConfig(const char* acKey, const char* acValue) { rDatabase.rParts["o"][acKey] = acValue; }
  const StdStringMap& ActiveRow() { return rDatabase.rTables["ActiveCalls"][rChannel.iActiveCallID]; }
  std::size_t ActiveRows() { return rDatabase.rTables["ActiveCalls"].size(); }
  std::size_t KeptRows() { return rDatabase.rTables["Calls"].size(); }

  FakeDatabase& rDatabase = rRecorder.rDatabase;
  BenchLine rChannel;
  BenchLine rLinked;
};
