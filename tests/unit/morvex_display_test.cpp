// The program as its user sees it: arguments, standard input and output, exit status.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "SimConfigFiles.h"
#include "TestFiles.h"

namespace {

struct Outcome {
  std::string strOutput;  // both streams
  int iStatus = -1;
};

Outcome RunTool(const std::string& strArguments) {
  Outcome rOutcome;
  FILE* hPipe = popen((BuildDir() + "/tools/morvex_display " + strArguments + " 2>&1").c_str(), "r");
  if (hPipe == nullptr) return rOutcome;
  char acBuf[4096];
  for (std::size_t n = 0; (n = fread(acBuf, 1, sizeof acBuf, hPipe)) > 0;) rOutcome.strOutput.append(acBuf, n);
  const int iWait = pclose(hPipe);
  if (WIFEXITED(iWait)) rOutcome.iStatus = WEXITSTATUS(iWait);
  return rOutcome;
}

constexpr const char* FILE_NAME = "/tmp/displays";

}  // namespace

TEST(MorvexDisplay, HeadingOfADisplayHoldsNoControlCharacters) {
  WriteTestFile(FILE_NAME, "a\x1b[31m\tb\\nM\xfcller\n");
  const std::string strOutput = RunTool(FILE_NAME).strOutput;
  EXPECT_EQ("--- 0 s: a?[31m?b\\nM\xfcller", strOutput.substr(0, strOutput.find('\n')));
}

TEST(MorvexDisplay, PlainList) {
  WriteTestFile(FILE_NAME,
                "# a site\n"
                "Mon 12.03.2015 14:30\n"
                "\n"
                "Von: 021234567\\nJansen\n"
                "0-1234\n"
                "^5678\\nback\\\\slash\n");
  const Outcome rOutcome = RunTool(std::string("--busy 3 --local 99 ") + FILE_NAME);
  EXPECT_EQ(
      "--- 0 s: Mon 12.03.2015 14:30\n"
      "[1] Message change:Mon 12.03.2015 14:30\n"
      "    12: too short\n"
      "    03: too short\n"
      "    2015: in the middle of a line and not introduced\n"
      "    14: too short\n"
      "    30: too short\n"
      "--- 1 s: Von: 021234567\\nJansen\n"
      "[1] Message change:Von: 021234567\n"
      "Jansen\n"
      "[1] Remote: 021234567\n"
      "    021234567: taken\n"
      "    => remote number: 021234567\n"
      "--- 2 s: 0-1234\n"
      "[1] Message change:0-1234\n"
      "    0: too short\n"
      "    1234: no longer than the known number\n"
      "--- 3 s: ^5678\\nback\\slash\n"
      "[1] Message change:^5678\n"
      "back\\slash\n"
      "    5678: no longer than the known number\n",
      rOutcome.strOutput);
  EXPECT_EQ(0, rOutcome.iStatus);
}

TEST(MorvexDisplay, LogOfATrace) {
  WriteTestFile(FILE_NAME,
                "[Ch] Seconds\n"
                "[03]        0 LCD message\n"
                "LINE 1\n"
                "CALLING\n"
                "[04]        1 LCD message\n"
                "123456\n"
                "[03]        4 LCD message\n"
                "LINE 1\n"
                "TALKING TO  Jansen\n");
  EXPECT_EQ(
      "--- 0 s: LINE 1\\nCALLING\n"
      "[1] Message change:LINE 1\n"
      "CALLING\n"
      "    1: too short\n"
      "--- 4 s: LINE 1\\nTALKING TO  Jansen\n"
      "[1] Message change:LINE 1\n"
      "TALKING TO  Jansen\n"
      "[1] Remote: Jansen\n"
      "    1: too short\n"
      "    => remote number: Jansen\n",
      RunTool(std::string("--pbx NEC --busy 0 --channel 3 ") + FILE_NAME).strOutput);
}

TEST(MorvexDisplay, StandardInput) {
  EXPECT_EQ(
      "--- 0 s: 12345 Jan\\nx\n"
      "[1] Message change:12345 Jan\n"
      "x\n"
      "[1] Detected name: 'Jan'\n"
      "[1] Remote: 12345\n"
      "    12345: taken\n"
      "    => remote number: 12345\n"
      "    => name: Jan\n",
      RunTool("--ringing --pilot - <<'END'\n12345 Jan\\nx\nEND\n:").strOutput);
}

TEST(MorvexDisplay, StartModeAndStateAreOptions) {
  WriteTestFile(FILE_NAME, "1234.\\n2222\\n3333\n");
  const std::string strFile = FILE_NAME;
  const std::string strHead = "--- 0 s: 1234.\\n2222\\n3333\n[1] Message change:1234.\n2222\n3333\n";
  EXPECT_EQ(strHead +
                "[1] Remote: 3333\n"
                "    1234: ends in a full stop\n"
                "    2222: the line's own number\n"
                "    3333: taken\n"
                "    => remote number: 3333\n",
            RunTool("--start-mode mutelight+tone --local 2222 " + strFile).strOutput);
  EXPECT_EQ(strHead +
                "[1] Remote: \n"
                "    1234: taken, a better one may follow\n"
                "    2222: taken\n"
                "    => remote number: (none)\n",
            RunTool("--remote 777 --previous 3333 " + strFile).strOutput);
}

TEST(MorvexDisplay, FileThatCannotBeReadIsAnError) {
  const Outcome rOutcome = RunTool("/tmp/no/such/file");
  EXPECT_EQ("Cannot read /tmp/no/such/file\n", rOutcome.strOutput);
  EXPECT_EQ(1, rOutcome.iStatus);
}

TEST(MorvexDisplay, DirectoryIsRefusedAndAnEmptyFileIsNot) {
  const Outcome rDirectory = RunTool("/tmp");
  EXPECT_EQ("Cannot read /tmp\n", rDirectory.strOutput);
  EXPECT_EQ(1, rDirectory.iStatus);
  WriteTestFile(FILE_NAME, "");
  const Outcome rEmpty = RunTool(FILE_NAME);
  EXPECT_EQ("", rEmpty.strOutput);
  EXPECT_EQ(0, rEmpty.iStatus);
}

TEST(MorvexDisplay, WrongArgumentsAreRefused) {
  for (const char* acArguments : {"", "--start-mode loud -", "--busy -1 -", "--unknown -"}) {
    EXPECT_NE(0, RunTool(acArguments).iStatus) << acArguments;
  }
}

TEST(MorvexDisplay, NumberOutOfItsRangeIsToldInPlainWords) {
  const Outcome rOutcome = RunTool("--busy -3 -");
  EXPECT_NE(rOutcome.iStatus, 0);
  EXPECT_EQ("--busy: '-3' is no number of 0 or more\nRun with --help for more information.\n", rOutcome.strOutput);
}
