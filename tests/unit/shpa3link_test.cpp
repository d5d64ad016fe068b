#include "shpa3link.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogSink.h"
#include "simcards.h"

using testing::Test;

TEST(Shpa3Link, OptionalFunctionIsNotLinkedAtStart) {
  EXPECT_EQ(nullptr, SsmClearR2callToneBuf_FP);
}

TEST(Shpa3Link, FailureIsLoggedAsErrorWithPlaceAndText) {
  simcards::Reset();
  simcards::AddBoard(0, 1, CH_ANALOG);
  simcards::FailNext("SsmStopRecToMem", 1, -1, "channel is 100% busy %s");
  (void)logsink::Take();
  EXPECT_EQ(-1, SsmStopRecToMem(0));
  LogSsmError("SsmStopRecMem");
  EXPECT_EQ((std::vector<std::string>{"3 Error in SsmStopRecMem: channel is 100% busy %s"}), logsink::TakeTexts());
  simcards::Reset();
}

TEST(Shpa3Link, LongFailureTextIsCutAtTheBuffer) {
  simcards::Reset();
  simcards::AddBoard(0, 1, CH_ANALOG);
  simcards::FailNext("SsmStopRecToMem", 1, -1, std::string(400, 'x'));
  (void)logsink::Take();
  EXPECT_EQ(-1, SsmStopRecToMem(0));
  LogSsmError("here");
  const std::vector<std::string> astrLines = logsink::TakeTexts();
  ASSERT_EQ(1U, astrLines.size());
  const std::string strHead = "3 Error in here: ";
  EXPECT_EQ(strHead + std::string(SSM_ERR_MSG_BYTES - 1, 'x'), astrLines[0]);
  simcards::Reset();
}
