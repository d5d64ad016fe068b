#include "recorder_trace.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "LambdaAct.h"
#include "RecorderBench.h"
#include "SmallDisk.h"
#include "TestFiles.h"
#include "TestTime.h"
#include "TestTools.h"
#include "ftime.h"
#include "logging.h"

using testtools::Await;

namespace {

constexpr const char* BIT = "/recordings/log/trace.bit";
constexpr const char* WAV = "/recordings/log/trace.wav";
constexpr const char* DCH = "/recordings/log/dch.log";
constexpr const char* DMSG = "/recordings/log/dmsg.log";
constexpr const char* DCH_HEADER = "[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\n";
constexpr const char* DMSG_HEADER = "[Ch] Seconds\n";

// A trace of driver channel 2. What happens during it is queued beforehand, as actions.
class TraceTest : public RecorderBench {
 protected:
  void SetUp() override {
    (void)mkdir("/recordings/log", 0777);
    for (const char* acName : {BIT, WAV, DCH, DMSG}) (void)unlink(acName);
    simcards::AddBoard(0, 4, CH_DST);
    rRecorder.fBitStreamTracing = true;
    rRecorder.iBitStreamChNr = 2;
    testtime::rFrozen = 1000000;
    Forget();
  }
  void TearDown() override {
    testtime::rFrozen = 0;
    fAppTerminate = false;
    simcards::Reset();
  }

  // The simulated driver says nothing by itself, so that files hold what a test puts there.
  static void SilenceDriver() {
    simcards::FailNext("SsmStartRecBitFlow", 1, -1, "off");
    simcards::FailNext("DTRSendRawData2A3", 1, -1, "off");
  }
  void During(const std::function<void()>& rRun) { rBoot.queue(new LambdaAct(rRun)); }
  void TraceUntilHere() {
    During([this] { rRecorder.fBitStreamTracing = false; });
    RunBitStreamTrace(rBoot, rRecorder);
  }
  static void Data(int nCh, BYTE ucCmd, std::vector<BYTE> aucData) {
    char szTime[] = "10:11:12.345";
    EXPECT_EQ(DSTCallback(0, szTime, nCh, 0, ucCmd, static_cast<WORD>(aucData.size()), aucData.data(), nullptr), 1);
  }
  static void Event(int nCh, DST_EVENT rEvent, BYTE ucProcessType = 1) {
    EXPECT_EQ(DSTCallback(0, nullptr, nCh, ucProcessType, 0, 0, nullptr, &rEvent), 1);
  }
  static DST_EVENT MakeDstEvent(DWORD dwCode, DWORD dwSub, DWORD dwXtra, DWORD dwLength, const std::string& strText) {
    DST_EVENT rEvent;
    rEvent.dwEventCode = dwCode;
    rEvent.dwSubReason = dwSub;
    rEvent.dwXtraInfo = dwXtra;
    rEvent.dwDataLength = dwLength;
    (void)memcpy(rEvent.pucBuffer, strText.data(), strText.size());
    return rEvent;
  }
};

// -- the run ----------------------------------------------------------------------------------------------------------

TEST_F(TraceTest, DriverIsSwitchedOnAndOffInOrder) {
  TraceUntilHere();
  EXPECT_EQ(simcards::TakeCalls(),
            Texts({"SsmStartRecBitFlow(2)", "SsmRecToFile(2,\"/recordings/log/trace.wav\",6,0,4294967295,0,0)",
                   "DTRSendRawData2A3(4294967295,2,255,1)", "SsmStopRecBitFlow(2)", "SsmStopRecToFile(2)",
                   "DTRSendRawData2A3(4294967295,2,255,0)"}));
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Starting bit stream tracing on channel 2", "5 Stopped bit stream tracing"}));
}

TEST_F(TraceTest, RefusingDriverStopsNothing) {
  for (const char* acName : {"SsmStartRecBitFlow", "SsmRecToFile", "DTRSendRawData2A3", "SsmStopRecBitFlow"}) {
    simcards::FailNext(acName, 9, -1, "refused");
  }
  TraceUntilHere();
  EXPECT_EQ(simcards::TakeCalls().size(), 6u);
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER);
}

TEST_F(TraceTest, EmptyTraceLeavesHeadersAlone) {
  SilenceDriver();
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(BIT), "");
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER);
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER);
}

TEST_F(TraceTest, OldFilesAreReplaced) {
  for (const char* acName : {BIT, WAV, DCH, DMSG}) WriteTestFile(acName, std::string(5000, 'x'));
  SilenceDriver();
  simcards::FailNext("SsmRecToFile", 1, -1, "off");
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(BIT), "");
  EXPECT_EQ(ReadTestFile(WAV), "(no file)");
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER);
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER);
}

TEST_F(TraceTest, TerminationClosesTheTraceAtOnce) {
  fAppTerminate = true;
  RunBitStreamTrace(rBoot, rRecorder);
  EXPECT_TRUE(rRecorder.fBitStreamTracing);
  EXPECT_NE(ReadTestFile(DCH), "(no file)");
  EXPECT_EQ(simcards::TakeCalls().size(), 6u);
}

TEST_F(TraceTest, TerminationDuringTheTraceEndsIt) {
  During([] { fAppTerminate = true; });
  RunBitStreamTrace(rBoot, rRecorder);
  EXPECT_TRUE(rRecorder.fBitStreamTracing);
}

TEST_F(TraceTest, QueuedActionsGoOnWithPauses) {
  SilenceDriver();
  int iRun = 0;
  for (int i = 0; i < 3; i++) During([&iRun] { iRun++; });
  rBoot.queue(nullptr);
  const StopWatch rWatch;
  TraceUntilHere();
  EXPECT_EQ(iRun, 3);
  EXPECT_GE(rWatch.Seconds(), 1.5);  // 200 ms before each of five looks, and half a second at the end
}

TEST_F(TraceTest, ActionBehindTheEndOfTheTraceStillRunsInIt) {
  SilenceDriver();
  bool fRun = false;
  During([this] { rRecorder.fBitStreamTracing = false; });
  During([&fRun] { fRun = true; });
  RunBitStreamTrace(rBoot, rRecorder);
  EXPECT_TRUE(fRun);  // the queue is run until it is empty
}

TEST_F(TraceTest, ChannelOfTheStartIsTracedToTheEnd) {
  During([this] { rRecorder.iBitStreamChNr = 3; });
  TraceUntilHere();
  const Texts astrCalls = simcards::TakeCalls();
  EXPECT_EQ(astrCalls[3], "SsmStopRecBitFlow(2)");
}

// -- callbacks --------------------------------------------------------------------------------------------------------

TEST_F(TraceTest, CallbacksWithoutATraceDoNothing) {
  BYTE aucBits[] = {1, 2, 3};
  EXPECT_EQ(RecRawDataCallBack(2, 3, aucBits, 0, 0), 1);
  Data(2, 0x2e, {1});
  Event(2, MakeDstEvent(0x1008, 0, 0, 0, "x"));
  SilenceDriver();
  TraceUntilHere();
  EXPECT_EQ(RecRawDataCallBack(2, 3, aucBits, 0, 0), 1);
  Data(2, 0x2e, {1});
  EXPECT_EQ(ReadTestFile(BIT), "");
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER);
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER);
}

TEST_F(TraceTest, RawBitsGoToTheirFileAsTheyCome) {
  SilenceDriver();
  During([] {
    BYTE aucBits[] = {0x00, 0x7e, 0xff, 0x0a};
    EXPECT_EQ(RecRawDataCallBack(2, 4, aucBits, 5, 6), 1);
    EXPECT_EQ(RecRawDataCallBack(2, 2, aucBits, 0, 0), 1);
  });
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(BIT), std::string("\x00\x7e\xff\x0a\x00\x7e", 6));
}

TEST_F(TraceTest, DataLines) {
  SilenceDriver();
  During([] {
    Data(2, 0x2e, {0x00, 0x0f, 0xff});
    Data(2, 0x2f, {});
    Data(2, 0x30, {0x10});
    Data(2, 0x31, {0x10});
    Data(2, 0x32, {0x10});
    Data(2, 0x2d, {0x10});
    Data(3, 0x2e, {0x10});  // another channel
    Data(2, 0x2e, std::vector<BYTE>(1000, 1));
  });
  TraceUntilHere();
  std::string strLong;
  for (int i = 0; i < 1000; i++) strLong += " 1 ";
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER +
                                   std::string("10:11:12.345 DST ch[  2] CmdType[S] Len[  3] Data-->  0  f ff \n"
                                               "10:11:12.345 DST ch[  2] CmdType[U] Len[  0] Data--> \n"
                                               "10:11:12.345 DST ch[  2] CmdType[D] Len[  1] Data--> 10 \n"
                                               "10:11:12.345 DST ch[  2] CmdType[V] Len[  1] Data--> 10 \n"
                                               "10:11:12.345 DST ch[  2] CmdType[?] Len[  1] Data--> 10 \n"
                                               "10:11:12.345 DST ch[  2] CmdType[?] Len[  1] Data--> 10 \n"
                                               "10:11:12.345 DST ch[  2] CmdType[S] Len[1000] Data--> ") +
                                   strLong + "\n");
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER);
}

TEST_F(TraceTest, EventLines) {
  SilenceDriver();
  During([] {
    Event(2, MakeDstEvent(0x0008, 0x2, 0xffffffff, 4, "abcd"));
    testtime::rFrozen += 75;
    Event(2, MakeDstEvent(0x1008, 0x1, 0, 11, "John Smith "));
    Event(3, MakeDstEvent(0x1008, 0x1, 0, 1, "x"));                       // another channel
    Event(2, MakeDstEvent(0x1008, 0x1, 0, 1, "x"), /*ucProcessType=*/2);  // neither data nor event
  });
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER + std::string("[02]        0 00000008 00000002 ffffffff 00000004\n"
                                                        "[02]       75 00001008 00000001 00000000 0000000b\n"));
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER + std::string("[02]       75 LCD message\nJohn Smith \n"));
}

TEST_F(TraceTest, DisplayTextThatFillsItsBufferEndsWithIt) {
  SilenceDriver();
  During([] { Event(2, MakeDstEvent(0x1008, 0, 0, 0x41414141, std::string(255, 'y'))); });
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(DMSG),
            DMSG_HEADER + std::string("[02]        0 LCD message\n") + std::string(255, 'y') + "\n");
}

TEST_F(TraceTest, CallbacksWithoutDataAreSafe) {
  SilenceDriver();
  During([] {
    EXPECT_EQ(DSTCallback(0, nullptr, 2, 0, 0x2e, 1, nullptr, nullptr), 1);
    EXPECT_EQ(DSTCallback(0, nullptr, 2, 1, 0, 0, nullptr, nullptr), 1);
  });
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER + std::string(" DST ch[  2] CmdType[S] Len[  1] Data--> \n"));
}

TEST_F(TraceTest, FilesThatCannotBeOpenedAreLeftOut) {
  ASSERT_EQ(rmdir("/recordings/log"), 0);
  During([] {
    BYTE aucBits[] = {1};
    EXPECT_EQ(RecRawDataCallBack(2, 1, aucBits, 0, 0), 1);
    Data(2, 0x2e, {1});
    Event(2, MakeDstEvent(0x1008, 0, 0, 0, "x"));
  });
  TraceUntilHere();
  EXPECT_EQ(simcards::TakeCalls().size(), 6u);
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Starting bit stream tracing on channel 2",
                   "3 C-api error at OpenTraceFile /recordings/log/trace.bit: No such file or directory",
                   "3 C-api error at OpenTraceFile /recordings/log/dch.log: No such file or directory",
                   "3 C-api error at OpenTraceFile /recordings/log/dmsg.log: No such file or directory",
                   "5 Stopped bit stream tracing"}));
}

TEST_F(TraceTest, FullDiskIsToldOnceAFile) {
  SilenceDriver();
  simcards::FailNext("SsmRecToFile", 1, -1, "off");
  const SmallDisk rDisk("/recordings/log");
  rDisk.Fill();
  During([] {
    std::vector<BYTE> aucBits(10000);
    for (int i = 0; i < 3; i++) {
      EXPECT_EQ(RecRawDataCallBack(2, 10000, aucBits.data(), 0, 0), 1);
      Data(2, 0x2e, std::vector<BYTE>(5000, 1));
    }
    Event(2, MakeDstEvent(0x1008, 0, 0, 0, "held back until the close"));
  });
  TraceUntilHere();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Starting bit stream tracing on channel 2",
                                         "3 C-api error at Write to /recordings/log/trace.bit: No space left on device",
                                         "3 C-api error at Write to /recordings/log/dch.log: No space left on device",
                                         "3 C-api error at Write to /recordings/log/dmsg.log: No space left on device",
                                         "5 Stopped bit stream tracing"}));
}

TEST_F(TraceTest, NextTraceTellsOfAFullDiskAgain) {
  const SmallDisk rDisk("/recordings/log");
  rDisk.Fill();
  for (int i = 0; i < 2; i++) {
    SilenceDriver();
    simcards::FailNext("SsmRecToFile", 1, -1, "off");
    rRecorder.fBitStreamTracing = true;
    TraceUntilHere();
    EXPECT_EQ(logsink::TakeTexts()[1], "3 C-api error at Write to /recordings/log/dch.log: No space left on device");
  }
}

TEST_F(TraceTest, WhatANeighbourLeftUnderItsNamesMakesWay) {
  SilenceDriver();
  simcards::FailNext("SsmRecToFile", 1, -1, "off");
  WriteTestFile("/tmp/foreign", "foreign");
  ASSERT_EQ(mkdir(BIT, 0777), 0);
  ASSERT_EQ(mkfifo(DCH, 0666), 0);
  ASSERT_EQ(symlink("/tmp/foreign", DMSG), 0);
  TraceUntilHere();
  EXPECT_EQ(ReadTestFile(BIT), "");
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER);
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER);
  EXPECT_EQ(ReadTestFile("/tmp/foreign"), "foreign");
}

TEST_F(TraceTest, MissingDisplayFileLeavesTheEventLine) {
  SilenceDriver();
  simcards::FailNext("SsmRecToFile", 1, -1, "off");
  During([] { Event(2, MakeDstEvent(0x1008, 1, 2, 3, "x")); });
  {
    const testtools::NoMoreDescriptors rLimit(/*iBut=*/3);  // two files, and while one is opened one more
    TraceUntilHere();
  }
  EXPECT_EQ(logsink::TakeTexts()[1], "3 C-api error at OpenTraceFile /recordings/log/dmsg.log: Too many open files");
  EXPECT_EQ(ReadTestFile(DCH), DCH_HEADER + std::string("[02]        0 00001008 00000001 00000002 00000003\n"));
}

TEST_F(TraceTest, DriversOwnThreadsFillTheFiles) {
  During([] {
    simcards::PushEvent(E_RCV_DSTDChannel, 2, 0x1008, 0, 0, "DISPLAY");
    EXPECT_TRUE(Await([] {
      struct stat rStat {};
      return stat(BIT, &rStat) == 0 && rStat.st_size > 0;
    }));
  });
  TraceUntilHere();
  const std::string strDch = ReadTestFile(DCH);
  EXPECT_NE(strDch.find(" DST ch[  2] CmdType[S] Len["), std::string::npos) << strDch;
  EXPECT_NE(strDch.find("[02]        0 00001008 "), std::string::npos) << strDch;
  EXPECT_EQ(ReadTestFile(DMSG), DMSG_HEADER + std::string("[02]        0 LCD message\nDISPLAY\n"));
}

}  // namespace
