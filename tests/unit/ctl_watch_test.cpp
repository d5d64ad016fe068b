#include "ctl_watch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

TEST(FitScreen, LinesThatFitStayAsTheyAre) {
  EXPECT_EQ(FitScreen("one\n\nthree\n", 3, 5, ">"), (Lines{"one", "", "three"}));
  EXPECT_EQ(FitScreen("", 3, 5, ">"), Lines());
}

TEST(FitScreen, LinesThatAreLeftOutAreCounted) {
  EXPECT_EQ(FitScreen("1\n2\n3\n4\n", 3, 80, ">"), (Lines{"1", "2", "2 more lines"}));
  EXPECT_EQ(FitScreen("1\n2\n3\n4\n", 1, 80, ">"), (Lines{"4 more lines"}));
  EXPECT_EQ(FitScreen("1\n2\n3\n4\n", 0, 80, ">"), Lines());
}

TEST(FitScreen, LineThatIsCutEndsWithTheSign) {
  EXPECT_EQ(FitScreen("12345\n123456\n", 3, 5, ">"), (Lines{"12345", "1234>"}));
  EXPECT_EQ(FitScreen("123456\n", 3, 5, "\xe2\x80\xa6"), (Lines{"1234\xe2\x80\xa6"}));
  EXPECT_EQ(FitScreen("12\n", 3, 1, ">"), (Lines{">"}));
  EXPECT_EQ(FitScreen("1\n2\n3\n", 2, 4, ">"), (Lines{"1", "2 m>"})) << "the count, too";
}

TEST(FitScreen, CharactersOfUtf8TakeAColumnEach) {
  EXPECT_EQ(FitScreen("M\xc3\xbcller\n", 1, 6, ">"), (Lines{"M\xc3\xbcller"}));
  EXPECT_EQ(FitScreen("M\xc3\xbcller\n", 1, 3, ">"), (Lines{"M\xc3\xbc>"}));
  EXPECT_EQ(FitScreen("M\xc3\xbcller\n", 1, 2, ">"), (Lines{"M>"}));
}

}  // namespace
