// Recording, set-up of channels, numbers and digits of the card library. Rings and reports are in simcards_record_test.

#include <gtest/gtest.h>

#include "CardBench.h"

namespace {

class Shpa3Channels : public CardBench {
 protected:
  Shpa3Channels() { simcards::AddBoard(0, 2, CH_ANALOG); }
  BYTE acRing[64] = {};
};

TEST_F(Shpa3Channels, RecordingThatCannotBeIsRefused) {
  EXPECT_EQ(-1, SsmRecToMem(0, 5, acRing, 64, 0));
  EXPECT_EQ("SsmRecToMem: format 5 is not supported", LastError());
  EXPECT_EQ(-1, SsmRecToMem(0, 6, nullptr, 64, 0));
  EXPECT_EQ("SsmRecToMem: no buffer given", LastError());
  EXPECT_EQ(SSM_OK, SsmRecToMem(0, 6, acRing, 64, 0));
  EXPECT_EQ(-1, SsmRecToMem(0, 6, acRing, 64, 0));
  EXPECT_EQ("SsmRecToMem: channel 0 is being recorded", LastError());
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(0));
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(0)) << "stopping what does not run is no failure";
  EXPECT_EQ(SSM_OK, SsmRecToMem(0, 7, acRing, 64, 0));
}

TEST_F(Shpa3Channels, RecordingToFileThatCannotBeIsRefused) {
  EXPECT_EQ(-1, SsmRecToFile(0, nullptr, 6, 0, 0, 0, 0));
  EXPECT_EQ("SsmRecToFile: no file name given", LastError());
  EXPECT_EQ(-1, SsmRecToFile(0, "/dev/null", 1, 0, 0, 0, 0));
  EXPECT_EQ("SsmRecToFile: format 1 is not supported", LastError());
  EXPECT_EQ(SSM_OK, SsmRecToFile(0, "/dev/null", 6, 0, 0, 0, 0));
  EXPECT_EQ(-1, SsmRecToFile(0, "/dev/null", 6, 0, 0, 0, 0));
  EXPECT_EQ("SsmRecToFile: channel 0 is recorded to a file already", LastError());
  EXPECT_EQ(SSM_OK, SsmStopRecToFile(0));
}

TEST_F(Shpa3Channels, SetUpIsTakenOnEveryChannel) {
  EXPECT_EQ(SSM_OK, SsmSetRecVolume(1, -3));
  EXPECT_EQ(SSM_OK, SsmSetRecAGC(1, 1));
  EXPECT_EQ(SSM_OK, DTRSetMixerVolume(1, 0, 4, 5));
  EXPECT_EQ(SSM_OK, SsmSetBargeInSens(1, 6));
  EXPECT_EQ((std::vector<std::string>{"SsmSetRecVolume(1,-3)", "SsmSetRecAGC(1,1)", "DTRSetMixerVolume(1,0,4,5)",
                                      "SsmSetBargeInSens(1,6)"}),
            simcards::TakeCalls());
}

TEST_F(Shpa3Channels, CallerIdTextStaysWhileOthersChangeIt) {
  simcards::SetCallerId(0, "0301");
  const char* acGiven = SsmGetCallerIdA(0);
  simcards::SetCallerId(0, "a longer text that needs memory of its own");
  EXPECT_STREQ("0301", acGiven);
  EXPECT_STREQ("a longer text that needs memory of its own", SsmGetCallerIdA(0));
  EXPECT_EQ(nullptr, SsmGetCallerIdA(2));
}

TEST_F(Shpa3Channels, CircuitFactsAreThoseOfTheTest) {
  simcards::SpyInfo rInfo;
  rInfo.iCallInCh = 1;
  rInfo.iCallOutCh = 31;
  rInfo.strCaller = "030";
  rInfo.strCallee = std::string(100, '9');
  simcards::SetSpyInfo(1, rInfo);
  char acNumber[SPY_NUMBER_BYTES];
  EXPECT_EQ(1, SpyGetCallInCh(1));
  EXPECT_EQ(31, SpyGetCallOutCh(1));
  EXPECT_EQ(SSM_OK, SpyGetCallerId(1, acNumber));
  EXPECT_STREQ("030", acNumber);
  EXPECT_EQ(SSM_OK, SpyGetCalleeId(1, acNumber));
  EXPECT_EQ(std::string(63, '9'), acNumber) << "a long number is cut to the buffer";
  EXPECT_EQ(SSM_OK, SpyGetConId(1, acNumber));
  EXPECT_STREQ("", acNumber);
  EXPECT_EQ(-1, SpyGetCallInCh(2));
  EXPECT_EQ("SpyGetCallInCh: circuit 2 does not exist", LastError());
}

}  // namespace
