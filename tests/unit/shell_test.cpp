#include "shell.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <string>
#include <vector>

#include "LogSink.h"
#include "TestTools.h"

using testtools::NoMoreDescriptors;

namespace {

class ShellTest : public testing::Test {
 protected:
  void SetUp() override { (void)logsink::Take(); }
};

TEST(EscapeShellArg, WrapsInSingleQuotes) {
  const struct {
    const char *acLabel, *acPlain, *acQuoted;
  } rRows[] = {
      {"a word", "word", "'word'"},
      {"empty", "", "''"},
      {"a quote inside", "it's", "'it'\\''s'"},
      {"only a quote", "'", "''\\'''"},
      {"two quotes", "''", "''\\'''\\'''"},
      {"other signs stay", "a \"$b\" `c` \\d;e\n", "'a \"$b\" `c` \\d;e\n'"},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(escapeShellArg(rRow.acPlain), rRow.acQuoted) << rRow.acLabel;
}

TEST(EscapeShellArg, ShellReadsBackEveryByte) {
  for (int i = 1; i < 256; i++) {
    const std::string strText = std::string("a") + static_cast<char>(i) + static_cast<char>(i) + "z";
    EXPECT_EQ(stdSystem("printf %s " + escapeShellArg(strText)), strText) << "byte " << i;
  }
}

TEST(EscapeShellArg, ShellReadsBackAnyText) {
  const std::string strSpecial = "'\"\\$`;&|<>(){}[]*?!#~\n\r\t -=%";
  std::mt19937 rRandom(20'151'203);
  for (int i = 0; i < 20; i++) {
    std::string strCommand = "printf '%s\\001\\001'";
    std::string strExpected;
    for (int iArg = 0; iArg < 100; iArg++) {
      std::string strText(rRandom() % 30, ' ');
      for (char& ch : strText) {
        ch = rRandom() % 2 == 0 ? strSpecial[rRandom() % strSpecial.size()] : static_cast<char>(2 + rRandom() % 254);
      }
      strCommand += " " + escapeShellArg(strText);
      strExpected += strText + "\1\1";
    }
    EXPECT_EQ(stdSystem(strCommand), strExpected);
  }
}

TEST_F(ShellTest, StdSystemReturnsTheWholeOutput) {
  const struct {
    const char* acLabel;
    std::string strCommand, strOutput;
  } rRows[] = {
      {"one line", "echo hello", "hello\n"},
      {"no output", "true", ""},
      {"no line end", "printf abc", "abc"},
      {"several lines", "printf 'a\\n\\nb\\n'", "a\n\nb\n"},
      {"a line longer than a piece", "printf %0700d 7", std::string(699, '0') + "7"},
      {"a line as long as a piece", "printf %0299d 7", std::string(298, '0') + "7"},
      {"the status plays no part", "echo a; exit 3", "a\n"},
      {"a pipeline", "echo abc | tr a-z A-Z", "ABC\n"},
      {"an unknown command", "no_such_command 2>/dev/null", ""},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(stdSystem(rRow.strCommand), rRow.strOutput) << rRow.acLabel;
    EXPECT_EQ(logsink::TakeTexts(), Texts{"5 Command: " + rRow.strCommand}) << rRow.acLabel;
  }
}

TEST_F(ShellTest, StandardErrorIsNotCaptured) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(stdSystem("echo a; echo b >&2"), "a\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "b\n");
}

TEST_F(ShellTest, ExecCmdReturnsTheStatusOfPclose) {
  const struct {
    const char *acLabel, *acCommand;
    int iStatus;
  } rRows[] = {
      {"success", "true", 0},
      {"output is dropped", "echo hello", 0},
      {"failure", "false", 1 << 8},
      {"an exit code is not the status", "exit 3", 3 << 8},
      {"unknown command", "no_such_command 2>/dev/null", 127 << 8},
      {"death by a signal", "kill -9 $$", SIGKILL},
      {"more output than a pipe holds", "head -c 300000 /dev/zero | tr '\\0' x", 0},
      {"many lines", "seq 100000", 0},
  };
  for (const auto& rRow : rRows) {
    EXPECT_EQ(execCmd(rRow.acCommand), rRow.iStatus) << rRow.acLabel;
    EXPECT_EQ(logsink::TakeTexts(), Texts{std::string("5 Exec: ") + rRow.acCommand}) << rRow.acLabel;
  }
}

TEST_F(ShellTest, CommandsWithoutAPipeGiveTheirDefaults) {
  std::string strOutput = "not asked";
  int iStatus = 0;
  {
    const NoMoreDescriptors rLimit;
    strOutput = stdSystem("echo hello");
    iStatus = execCmd("true");
  }
  EXPECT_EQ(strOutput, "");
  EXPECT_EQ(iStatus, -1);
  EXPECT_EQ(logsink::TakeTexts(), (Texts{"5 Command: echo hello", "5 Exec: true"}));
}

}  // namespace
