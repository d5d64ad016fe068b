// Start and end, channel facts, events and faults of the card library.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "CardBench.h"
#include "SimConfigFiles.h"
#include "Texts.h"

namespace {

using Clock = std::chrono::steady_clock;

class Shpa3 : public CardBench {
 protected:
  static EVENT_SET_INFO Polled() {
    EVENT_SET_INFO rSetting;
    rSetting.dwWorkMode = EVENT_POLLING;
    return rSetting;
  }
};

TEST_F(Shpa3, ChannelFactsFollowTheBoards) {
  simcards::AddBoard(0, 2, CH_ANALOG);
  simcards::AddBoard(1, 3, CH_DST);
  simcards::AddBoard(2, 60, CH_ISDN_USR);
  EXPECT_EQ(3, SsmGetMaxUsableBoard());
  EXPECT_EQ(65, SsmGetMaxCh());
  const struct {
    int nCh, iBoard, iBoardCh, iType, iVoltage;
  } arRows[] = {{0, 0, 0, 3, 48}, {1, 0, 1, 3, 48}, {4, 1, 2, 12, 0}, {5, 2, 0, 7, 0}, {64, 2, 59, 7, 0}};
  for (const auto& rRow : arRows) {
    int iBoard = -1, iBoardCh = -1;
    EXPECT_EQ(SSM_OK, SsmGetChHdInfo(rRow.nCh, &iBoard, &iBoardCh));
    EXPECT_EQ(rRow.iBoard, iBoard) << rRow.nCh;
    EXPECT_EQ(rRow.iBoardCh, iBoardCh) << rRow.nCh;
    EXPECT_EQ(rRow.iType, SsmGetChType(rRow.nCh)) << rRow.nCh;
    EXPECT_EQ(0, SsmGetChState(rRow.nCh)) << rRow.nCh;
    EXPECT_EQ(rRow.iVoltage, SsmGetLineVoltage(rRow.nCh)) << rRow.nCh;
  }
}

TEST_F(Shpa3, UnknownChannelsFailWithTheirNumber) {
  simcards::AddBoard(0, 2, CH_ANALOG);
  int iBoard = -1, iBoardCh = -1;
  BYTE acRing[16];
  char acNumber[SPY_NUMBER_BYTES];
  const struct {
    int iResult;
    std::string strText;
  } arRows[] = {
      {SsmGetChHdInfo(2, &iBoard, &iBoardCh), (LastError())},
      {SsmGetChType(-1), (LastError())},
      {SsmRecToMem(2, 6, acRing, 16, 0), (LastError())},
      {SsmStopRecToMem(-7), (LastError())},
      {SsmClearCallerId(2), (LastError())},
      {DTRSetMixerVolume(2, 0, 1, 2), (LastError())},
      {SpyGetCallerId(0, acNumber), (LastError())},
  };
  const char* const acTexts[] = {
      "SsmGetChHdInfo: channel 2 does not exist",   "SsmGetChType: channel -1 does not exist",
      "SsmRecToMem: channel 2 does not exist",      "SsmStopRecToMem: channel -7 does not exist",
      "SsmClearCallerId: channel 2 does not exist", "DTRSetMixerVolume: channel 2 does not exist",
      "SpyGetCallerId: circuit 0 does not exist"};
  for (std::size_t i = 0; i < std::size(arRows); i++) {
    EXPECT_EQ(-1, arRows[i].iResult) << acTexts[i];
    EXPECT_EQ(acTexts[i], arRows[i].strText);
  }
  EXPECT_EQ(-1, iBoard);
}

TEST_F(Shpa3, ClosedDriverRefusesEverything) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  EXPECT_EQ(SSM_OK, SsmCloseCti());
  EXPECT_EQ(-1, SsmGetMaxCh());
  EXPECT_EQ("SsmGetMaxCh: the driver is not started", LastError());
  SSM_EVENT rEvent;
  EXPECT_EQ(-1, SsmCloseCti());
  simcards::PushEvent(E_CHG_ChState, 0, 1);
  EXPECT_EQ(-1, SsmWaitForEventA(0, &rEvent));
}

TEST_F(Shpa3, VersionIsFilledIn) {
  SSM_VERSION rVersion;
  EXPECT_EQ(SSM_OK, SsmGetDllVersion(&rVersion));
  EXPECT_EQ(5, rVersion.ucMajor);
  EXPECT_EQ(4, rVersion.ucMinor);
  EXPECT_EQ(1, rVersion.usInternal);
  EXPECT_EQ(8, rVersion.usBuild);
}

TEST_F(Shpa3, EventsComeInOrderWithAllTheirValues) {
  simcards::AddBoard(0, 2, CH_DST);
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x1008, 2, 3, std::string("a\0b", 3));
  simcards::PushEvent(E_CHG_ChState, 0, S_CALL_OFFLINE);
  char acBuffer[1024] = "xxxxx";
  SSM_EVENT rEvent;
  rEvent.pvBuffer = acBuffer;
  rEvent.dwBufferLength = sizeof acBuffer;
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(0, &rEvent));
  EXPECT_EQ(E_RCV_DSTDChannel, rEvent.wEventCode);
  EXPECT_EQ(1, rEvent.nReference);
  EXPECT_EQ(0x1008U, rEvent.dwParam);
  EXPECT_EQ(2U, rEvent.dwSubReason);
  EXPECT_EQ(3U, rEvent.dwXtraInfo);
  EXPECT_EQ(acBuffer, rEvent.pvBuffer);
  EXPECT_EQ(sizeof acBuffer, rEvent.dwBufferLength);
  EXPECT_EQ(3U, rEvent.dwDataLength);
  EXPECT_EQ(std::string("a\0bxx", 5), std::string(acBuffer, 5)) << "nothing is written behind the data";
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(0, &rEvent));
  EXPECT_EQ(E_CHG_ChState, rEvent.wEventCode);
  EXPECT_EQ(0U, rEvent.dwDataLength);
  EXPECT_EQ(SSM_EVENT_TIMEOUT, SsmWaitForEventA(0, &rEvent));
}

TEST_F(Shpa3, DataThatDoesNotFitIsPointedAt) {
  simcards::AddBoard(0, 1, CH_DST);
  const std::string strLong(1025, 'y');
  simcards::PushEvent(E_RCV_DSTDChannel, 0, 0x1008, 0, 0, strLong);
  simcards::PushEvent(E_RCV_DSTDChannel, 0, 0x1008, 0, 0, "z");
  char acBuffer[1024];
  SSM_EVENT rEvent;
  rEvent.pvBuffer = acBuffer;
  rEvent.dwBufferLength = sizeof acBuffer;
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(0, &rEvent));
  EXPECT_NE(acBuffer, rEvent.pvBuffer);
  EXPECT_EQ(strLong, std::string(static_cast<char*>(rEvent.pvBuffer), rEvent.dwDataLength));
  SSM_EVENT rBare;  // without a buffer of the caller's
  ASSERT_EQ(SSM_OK, SsmWaitForEventA(0, &rBare));
  EXPECT_EQ("z", std::string(static_cast<char*>(rBare.pvBuffer), rBare.dwDataLength));
}

TEST_F(Shpa3, WaitEndsWithItsTimeOrWithTheEvent) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  SSM_EVENT rEvent;
  Clock::time_point rStart = Clock::now();
  EXPECT_EQ(SSM_EVENT_TIMEOUT, SsmWaitForEventA(30, &rEvent));
  EXPECT_GE(Clock::now() - rStart, std::chrono::milliseconds(30));
  std::thread rLine([] { simcards::PushEvent(E_CHG_ChState, 0, 1); });
  rStart = Clock::now();
  EXPECT_EQ(SSM_OK, SsmWaitForEventA(60000, &rEvent));
  EXPECT_LT(Clock::now() - rStart, std::chrono::seconds(30));
  rLine.join();
}

TEST_F(Shpa3, EventSettings) {
  simcards::AddBoard(0, 2, CH_ANALOG);
  EVENT_SET_INFO rSetting = Polled();
  EXPECT_EQ(SSM_OK, SsmSetEvent(E_CHG_ChState, 0, 0, nullptr));
  simcards::PushEvent(E_CHG_ChState, 0, 1);
  simcards::PushEvent(E_CHG_ChState, 1, 1);
  EXPECT_EQ("24 ref 1: 1\n", Events()) << "off for one channel";
  EXPECT_EQ(SSM_OK, SsmSetEvent(E_CHG_ChState, -1, 1, &rSetting));
  simcards::PushEvent(E_CHG_ChState, 0, 2);
  EXPECT_EQ("24 ref 0: 2\n", Events()) << "the broader setting came later";
  rSetting.dwWorkMode = NO_EVENT;
  EXPECT_EQ(SSM_OK, SsmSetEvent(0xFFFF, -1, 1, &rSetting));
  simcards::PushEvent(E_CHG_RcvDTMF, 0, '1');
  EXPECT_EQ("", Events());
}

TEST_F(Shpa3, WrongEventSettingsAreRefused) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  EVENT_SET_INFO rCallback = Polled(), rNever = Polled(), rStrange = Polled();
  rCallback.dwWorkMode = EVENT_CALLBACK;
  rNever.dwOutParamVal = MEM_BYTES;
  rStrange.dwOutParamVal = 4;
  const struct {
    WORD wEvent;
    EVENT_SET_INFO* prSetting;
    const char* acText;
  } arRows[] = {{125, &rNever, "SsmSetEvent: no such event"},
                {21, nullptr, "SsmSetEvent: no setting given"},
                {21, &rCallback, "SsmSetEvent: only polled events are simulated"},
                {21, &rStrange, "SsmSetEvent: no such way of reporting"},
                {21, &rNever, "SsmSetEvent: a report every 0 bytes"}};
  for (const auto& rRow : arRows) {
    EXPECT_EQ(-1, SsmSetEvent(rRow.wEvent, -1, 1, rRow.prSetting)) << rRow.acText;
    EXPECT_EQ(rRow.acText, LastError());
  }
}

TEST_F(Shpa3, OrderedFaultsComeAsOftenAsOrdered) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  simcards::FailNext("SsmClearCallerId", 2, 5, "out of order");
  simcards::FailNext("SsmGetCallerIdA", 1, -1, "no id");
  simcards::FailNext("SsmWaitForEventA", 1, -2, "no event");
  EXPECT_EQ(5, SsmClearCallerId(0));
  EXPECT_EQ("out of order", LastError());
  EXPECT_EQ(5, SsmClearCallerId(0));
  EXPECT_EQ(SSM_OK, SsmClearCallerId(0));
  EXPECT_EQ(nullptr, SsmGetCallerIdA(0));
  EXPECT_EQ("no id", LastError());
  EXPECT_STREQ("", SsmGetCallerIdA(0));
  SSM_EVENT rEvent;
  EXPECT_EQ(-2, SsmWaitForEventA(0, &rEvent));
  EXPECT_EQ(SSM_EVENT_TIMEOUT, SsmWaitForEventA(0, &rEvent));
  simcards::FailNext("SsmClearCallerId", 3, 5, "x");
  simcards::FailNext("SsmClearCallerId", 0, 5, "x");
  EXPECT_EQ(SSM_OK, SsmClearCallerId(0));
}

TEST_F(Shpa3, CallsAreListedWithTheirArguments) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  EVENT_SET_INFO rSetting = Polled();
  BYTE acRing[16];
  EXPECT_EQ(SSM_OK, SsmSetEvent(0xFFFF, -1, 1, &rSetting));
  EXPECT_EQ(SSM_OK, SsmRecToMem(0, 6, acRing, 16, 0));
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(0));
  EXPECT_EQ(SSM_OK, SsmSetLogAttribute(2, 36, -1, "/recordings/log"));
  EXPECT_EQ(-1, SsmRecToFile(0, "/nowhere/x", 6, 0, 0xFFFFFFFF, 0, 0));
  (void)SsmGetChState(0);
  (void)SsmGetCallerIdA(0);
  EXPECT_EQ(
      (Texts{"SsmSetEvent(65535,-1,1)", "SsmRecToMem(0,6,16,0)", "SsmStopRecToMem(0)",
             "SsmSetLogAttribute(2,36,-1,\"/recordings/log\")", "SsmRecToFile(0,\"/nowhere/x\",6,0,4294967295,0,0)"}),
      simcards::TakeCalls());
  EXPECT_EQ(Texts{}, simcards::TakeCalls());
}

TEST_F(Shpa3, LongTextsOfFailuresAreCut) {
  simcards::AddBoard(0, 1, CH_ANALOG);
  simcards::FailNext("SsmClearCallerId", 1, -1, std::string(1000, 'e'));
  EXPECT_EQ(-1, SsmClearCallerId(0));
  EXPECT_EQ(std::string(299, 'e'), LastError());
}

// The two builds of the library, looked up as the daemon does it: by name.
TEST(Shpa3Library, OlderBuildLacksOneOperationOnly) {
  void* prFull = dlopen("libshpa3.so", RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(nullptr, prFull);
  EXPECT_NE(nullptr, dlsym(prFull, "SsmClearR2callToneBuf"));
  void* prOlder = dlopen((BuildDir() + "/sim/no_r2/libshpa3.so").c_str(), RTLD_LAZY | RTLD_LOCAL);
  ASSERT_NE(nullptr, prOlder) << dlerror();
  EXPECT_EQ(nullptr, dlsym(prOlder, "SsmClearR2callToneBuf"));
  for (const char* acOperation :
       {"SsmStartCti",          "SsmCloseCti",      "SsmGetDllVersion",   "SsmSetLogAttribute", "SsmGetLastErrMsg",
        "SsmGetMaxUsableBoard", "SsmGetMaxCh",      "SsmGetChHdInfo",     "SsmGetChType",       "SsmGetChState",
        "SsmGetLineVoltage",    "SsmSetEvent",      "SsmWaitForEventA",   "SsmRecToMem",        "SsmStopRecToMem",
        "SsmRecToFile",         "SsmStopRecToFile", "SsmStartRecBitFlow", "SsmStopRecBitFlow",  "DTRSendRawData2A3",
        "SsmSetRecVolume",      "SsmSetRecAGC",     "DTRSetMixerVolume",  "SsmSetBargeInSens",  "SsmClearCallerId",
        "SsmClearRxDtmfBuf",    "SsmGetCallerIdA",  "SpyGetCallInCh",     "SpyGetCallOutCh",    "SpyGetCallerId",
        "SpyGetCalleeId",       "SpyGetConId"}) {
    EXPECT_NE(nullptr, dlsym(prFull, acOperation)) << acOperation;
    EXPECT_NE(nullptr, dlsym(prOlder, acOperation)) << acOperation;
  }
  dlclose(prOlder);
  dlclose(prFull);
}

}  // namespace
