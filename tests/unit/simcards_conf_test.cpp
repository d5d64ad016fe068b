#include "simcards_conf.h"

#include <gtest/gtest.h>

#include "SimConfigFiles.h"
#include "shpa3api.h"

namespace simcards {
namespace {

class SimConfTest : public testing::Test {
 protected:
  // The error of this text without its file name; empty when there is none.
  std::string Read(const std::string& strText) {
    rFiles.Write("conf", strText);
    rConf = SimConf();
    std::string strError;
    const bool fDone = ReadConf(rFiles.Path("conf"), rConf, strError);
    EXPECT_EQ(fDone, strError.empty());
    const std::string strPrefix = rFiles.Path("conf") + ":";
    return strError.rfind(strPrefix, 0) == 0 ? strError.substr(strPrefix.size()) : strError;
  }

  SimConfigFiles rFiles;
  SimConf rConf;
};

TEST_F(SimConfTest, EveryWord) {
  EXPECT_EQ("", Read("# the machine\n\ncard ATP-8A 100 8\n  card \"DST 24\" \"7 7\" 24 # stations\n"
                     "channel 100 5 type -1\nstart_failures 3 Board 1 does not answer\nfail SsmSetEvent 2\nsocket "
                     "/tmp/x\nspeed 2.5\nslip off\n"));
  ASSERT_EQ(2U, rConf.vCards.size());
  EXPECT_EQ("ATP-8A", rConf.vCards[0].strModel);
  EXPECT_EQ("100", rConf.vCards[0].strSerial);
  EXPECT_EQ(8, rConf.vCards[0].iChannels);
  EXPECT_EQ("DST 24", rConf.vCards[1].strModel);
  EXPECT_EQ("7 7", rConf.vCards[1].strSerial);
  EXPECT_EQ(-1, (rConf.rChTypes[{"100", 5}]));
  EXPECT_EQ(3, rConf.iStartFailures);
  EXPECT_EQ("Board 1 does not answer", rConf.strStartText);
  EXPECT_EQ((std::map<std::string, int>{{"SsmSetEvent", 2}}), rConf.rFaults);
  EXPECT_EQ("/tmp/x", rConf.strSocket);
  EXPECT_DOUBLE_EQ(2.5, rConf.dSpeed);
  EXPECT_FALSE(rConf.fSlip);
}

TEST_F(SimConfTest, DefaultsWithoutAnyLine) {
  EXPECT_EQ("", Read(""));
  EXPECT_TRUE(rConf.vCards.empty());
  EXPECT_EQ(0, rConf.iStartFailures);
  EXPECT_EQ("Board 0 is not ready", rConf.strStartText);
  EXPECT_EQ("/tmp/cardsim", rConf.strSocket);
  EXPECT_DOUBLE_EQ(1.0, rConf.dSpeed);
  EXPECT_TRUE(rConf.fSlip);
}

TEST_F(SimConfTest, ErrorsNameLineAndWhatWasExpected) {
  const struct {
    const char *acText, *acError;
  } arRows[] = {
      {"\ncrad X 1 2\n",
       "2: expected \"card\", \"channel\", \"start_failures\", \"fail\", \"socket\", \"speed\" or \"slip\", found "
       "\"crad\""},
      {"card\n", "1: expected a card model, found the end of the line"},
      {"card X 1\n", "1: expected a number of channels, found the end of the line"},
      {"card X 1 0\n", "1: expected a number of channels from 1 to 4096, found \"0\""},
      {"card X 1 2 3\n", "1: expected the end of the line, found \"3\""},
      {"card X 1 2\ncard X 1 2\n", "2: serial number 1 stands twice"},
      {"channel 9 0 type 3\n", "1: expected the serial number of a card above, found \"9\""},
      {"card X 1 2\nchannel 1 2 type 3\n", "2: expected a channel of the card from 0 to 1, found \"2\""},
      {"card X 1 2\nchannel 1 1 typ 3\n", "2: expected \"type\", found \"typ\""},
      {"speed 0\n", "1: expected a speed from 0.01 to 1000, found \"0\""},
      {"speed fast\n", "1: expected a speed from 0.01 to 1000, found \"fast\""},
      {"slip of\n", "1: expected \"on\" or \"off\", found \"of\""},
      {"socket \"/tmp/x\n", "1: expected a closing quote"},
  };
  for (const auto& rRow : arRows) EXPECT_EQ(rRow.acError, Read(rRow.acText)) << rRow.acText;
}

TEST_F(SimConfTest, EachWrongLineIsTold) {
  const std::string strFile = rFiles.Path("conf");
  EXPECT_EQ("1: expected a number of channels, found \"many\"; " + strFile +
                ":3: expected \"on\" or \"off\", found \"of\"; " + strFile +
                ":4: expected a speed from 0.01 to 1000, found \"0\"",
            Read("card X 1 many\ncard Y 2 8\nslip of\nspeed 0\n"));
}

TEST_F(SimConfTest, MissingFileMeansNoCards) {
  std::string strError;
  EXPECT_FALSE(ReadConf("/nowhere/simcards.conf", rConf, strError));
  EXPECT_EQ("no simulated cards: cannot read /nowhere/simcards.conf: No such file or directory", strError);
}

TEST(SimFamily, FirstThreeLettersDecide) {
  const struct {
    const char* acModel;
    EFamily eFamily;
    int iChType;
  } arRows[] = {{"ATP-24A", FAMILY_ATP, CH_ANALOG},   {"DST-24B", FAMILY_DST, CH_DST},
                {"SHR-16", FAMILY_DST, CH_DST},       {"DTP-120", FAMILY_DTP, CH_ISDN_USR},
                {"SHT-8", FAMILY_SHT, CH_ANALOG},     {"atp-1", FAMILY_UNKNOWN, CH_UNKNOWN},
                {"XATP", FAMILY_UNKNOWN, CH_UNKNOWN}, {"", FAMILY_UNKNOWN, CH_UNKNOWN}};
  for (const auto& rRow : arRows) {
    EXPECT_EQ(rRow.eFamily, FamilyOf(rRow.acModel)) << rRow.acModel;
    EXPECT_EQ(rRow.iChType, ChTypeOf(rRow.eFamily)) << rRow.acModel;
  }
}

}  // namespace
}  // namespace simcards
