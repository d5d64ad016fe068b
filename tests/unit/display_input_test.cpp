#include "display_input.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

// "<second> <text>" a display.
std::vector<std::string> Read(const std::string& strContent, int iTraceCh = -1) {
  std::vector<std::string> astrDisplays;
  for (const DisplayText& rDisplay : ReadDisplays(strContent, iTraceCh)) {
    astrDisplays.push_back(std::to_string(rDisplay.iSecond) + " " + rDisplay.strText);
  }
  return astrDisplays;
}

constexpr const char* HEADER = "[Ch] Seconds\n";

}  // namespace

// -- a plain list -----------------------------------------------------------------------------------------------------

TEST(DisplayList, OneDisplayALineOneLineASecond) {
  EXPECT_THAT(Read("first\nsecond\nthird"), ElementsAre("0 first", "1 second", "2 third"));
  EXPECT_THAT(Read("first\n"), ElementsAre("0 first")) << "the last line end makes no display";
  EXPECT_THAT(Read(""), ElementsAre());
}

TEST(DisplayList, EmptyLinesAndRemarksTakeNoTime) {
  EXPECT_THAT(Read("# a site\n\nfirst\n\n#\nsecond\n"), ElementsAre("0 first", "1 second"));
  EXPECT_THAT(Read(" # first\n"), ElementsAre("0  # first")) << "a remark begins at the first place";
}

TEST(DisplayList, EscapesStandForLineFeedAndBackslash) {
  EXPECT_THAT(Read("a\\nb\n"), ElementsAre("0 a\nb"));
  EXPECT_THAT(Read("\\n\n"), ElementsAre("0 \n"));
  EXPECT_THAT(Read("a\\\\nb\n"), ElementsAre("0 a\\nb"));
  EXPECT_THAT(Read("a\\tb\\\n"), ElementsAre("0 a\\tb\\")) << "any other backslash stays";
}

TEST(DisplayList, LineEndsOfOtherSystemsAreTaken) {
  EXPECT_THAT(Read("first\r\n\r\nsecond\r\n"), ElementsAre("0 first", "1 second"));
  EXPECT_THAT(Read("a\rb\n"), ElementsAre("0 a\rb"));
}

TEST(DisplayList, BytesStayAsTheyAre) {
  EXPECT_THAT(Read("M\374ller\t1 \n"), ElementsAre("0 M\374ller\t1 "));
}

// -- the log of a trace -----------------------------------------------------------------------------------------------

TEST(DisplayTrace, IsKnownByItsHeader) {
  EXPECT_TRUE(IsTraceLog(HEADER));
  EXPECT_TRUE(IsTraceLog("[Ch] Seconds\n[00]        0 LCD message\n\n"));
  EXPECT_FALSE(IsTraceLog("[Ch] Seconds")) << "cut off";
  EXPECT_FALSE(IsTraceLog("[Ch] Seconds  EventCo. SubReas. XtraInfo DataLen.\n")) << "the log of all signalling";
  EXPECT_FALSE(IsTraceLog("\n[Ch] Seconds\n"));
  EXPECT_FALSE(IsTraceLog(""));
}

TEST(DisplayTrace, EachEntryIsOneDisplay) {
  const std::string strTrace = std::string(HEADER) +
                               "[02]        0 LCD message\n12345 Jansen\n"
                               "[02]       17 LCD message\nline 1\nline 2\n"
                               "[02] 12345678 LCD message\nlast\n";
  EXPECT_THAT(Read(strTrace), ElementsAre("0 12345 Jansen", "17 line 1\nline 2", "12345678 last"));
  EXPECT_THAT(Read(HEADER), ElementsAre());
}

TEST(DisplayTrace, LineFeedsOfTheTextStay) {
  const std::string strTrace = std::string(HEADER) +
                               "[02]        1 LCD message\n\n"
                               "[02]        2 LCD message\na\n\n"
                               "[02]        3 LCD message\n\nb\n"
                               "[02]        4 LCD message\n\n\n\n";
  EXPECT_THAT(Read(strTrace), ElementsAre("1 ", "2 a\n", "3 \nb", "4 \n\n"));
}

TEST(DisplayTrace, OneChannelCanBeChosen) {
  const std::string strTrace = std::string(HEADER) +
                               "[02]        1 LCD message\ntwo\n"
                               "[111]        2 LCD message\nmany\nlines\n"
                               "[02]        3 LCD message\ntwo again\n";
  EXPECT_THAT(Read(strTrace), ElementsAre("1 two", "2 many\nlines", "3 two again"));
  EXPECT_THAT(Read(strTrace, 2), ElementsAre("1 two", "3 two again"));
  EXPECT_THAT(Read(strTrace, 111), ElementsAre("2 many\nlines"));
  EXPECT_THAT(Read(strTrace, 0), ElementsAre());
}

TEST(DisplayTrace, TextThatOnlyLooksLikeAnEntryIsText) {
  const std::string strTrace = std::string(HEADER) +
                               "[02]        1 LCD message\n[02] LCD message\n"
                               "[02]        2 LCD message\n[02]        3 LCD messages\n# no remark\n";
  EXPECT_THAT(Read(strTrace), ElementsAre("1 [02] LCD message", "2 [02]        3 LCD messages\n# no remark"));
}

TEST(DisplayTrace, EscapesHaveNoMeaning) {
  EXPECT_THAT(Read(std::string(HEADER) + "[02]        1 LCD message\na\\nb\n"), ElementsAre("1 a\\nb"));
}
