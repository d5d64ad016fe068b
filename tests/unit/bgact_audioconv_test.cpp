#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "FakeDatabase.h"
#include "FakeRecorder.h"
#include "LogSink.h"
#include "TestTools.h"
#include "bgact.h"
#include "datafile.h"
#include "shell.h"

using testtools::Exists;
using testtools::WriteScript;

namespace {

constexpr const char* TOOLS_DIR = "/tmp/tools";
constexpr const char* TOOLS_LOG = "/tmp/tools.log";

std::string MadeBy(const std::string& strCommand) {
  std::string strOutput = stdSystem(strCommand);
  (void)logsink::Take();
  return strOutput;
}

// Real sox, cp and checksum programs; morvex_reccheck and morvex_crypt are scripts that write their arguments down.
class AudioConvTest : public testing::Test {
 protected:
  void SetUp() override {
    rAct.prDB = &rRecorder.rDatabase;
    rAct.prRecorder = &rRecorder;
    rAct.iActiveCallID = 41;
    rAct.iDuration = 12;
    rAct.rCallInfo.data = {
        {"remoteid", "r1"}, {"encoding", "0"}, {"filename", "call.wav"}, {"callextra", "line: 3\r\n"}};
    (void)mkdir(TOOLS_DIR, 0777);
    const std::string strNote =
        "for a in \"$@\"; do printf '<%s>' \"$a\" >> " + std::string(TOOLS_LOG) + "; done\necho >> " + TOOLS_LOG + "\n";
    WriteScript(TOOLS_DIR + std::string("/morvex_reccheck"),
                "#!/bin/sh\nprintf reccheck >> " + std::string(TOOLS_LOG) + "\n" + strNote + "exit 3\n");
    WriteScript(TOOLS_DIR + std::string("/morvex_crypt"), "#!/bin/sh\nprintf crypt >> " + std::string(TOOLS_LOG) +
                                                              "\n" + strNote +
                                                              "(printf 'sealed:'; cat \"$3\") > \"$5\"\n");
    const std::string strPath = getenv("PATH");
    if (strPath.find(TOOLS_DIR) != 0) (void)setenv("PATH", (TOOLS_DIR + (":" + strPath)).c_str(), 1);
    (void)unlink(TOOLS_LOG);
    (void)stdSystem("rm -rf /recordings/* /tmp/area; mkdir -p /tmp/area");
    (void)logsink::Take();
  }

  // The names as a channel builds them: the final one, and behind it what a conversion starts from.
  void UseNames(ERecEncodings eRecEnc, const std::string& strFinal, const std::string& strArchive = "") {
    rAct.eRecEnc = eRecEnc;
    rAct.strFullFilenameFinal = strFinal;
    rAct.strFullFilename = strFinal;
    if (eRecEnc == RECENC_GSM || eRecEnc == RECENC_MP3) rAct.strFullFilename += ".g711";
    rAct.strArchiveFilename = strArchive.empty() ? strFinal : strArchive;
  }
  // A second of sound as a channel writes it: 8 kHz A-law in a WAV file.
  void RecordSound(int iChannels = 1) {
    (void)MadeBy("sox -n -r 8000 -e a-law -t wav -c " + std::to_string(iChannels) + " " +
                 escapeShellArg(rAct.strFullFilename) + " synth 1 sine 440");
  }
  void RecordText(const std::string& strText) { WriteTestFile(rAct.strFullFilename, strText); }

  // The row in Calls, as the main thread makes it of what the worker has left.
  StdStringMap RowOfCall() {
    rAct.performMain();
    return LastRow();
  }
  StdStringMap LastRow() { return rRecorder.rDatabase.rTables["Calls"][rRecorder.rDatabase.iLastRowId]; }
  std::string Extra() { return RowOfCall()["callextra"]; }
  int Mode(const std::string& strPath) const {
    struct stat rStat {};
    return stat(strPath.c_str(), &rStat) == 0 ? static_cast<int>(rStat.st_mode & 07777) : -1;
  }
  Texts TakeDbCalls() { return rRecorder.rDatabase.TakeCalls(); }

  FakeRecorder rRecorder;
  AudioConvAct rAct;
};

// -- conversion -------------------------------------------------------------------------------------------------------

TEST_F(AudioConvTest, PlainG711RunsNoCommandAndGetsAnEmptySum) {
  for (const ERecEncodings eRecEnc : {RECENC_G711A, RECENC_G711U}) {
    UseNames(eRecEnc, "/recordings/call.wav");
    RecordText("audio");
    rAct.performThread();
    EXPECT_EQ(logsink::TakeTexts(), Texts());
    EXPECT_EQ(ReadTestFile("/recordings/call.wav"), "audio");
    const StdStringMap rExpected = {
        {"remoteid", "r1"}, {"encoding", "0"}, {"filename", "call.wav"}, {"callextra", "chk: \r\nline: 3\r\n"}};
    EXPECT_EQ(RowOfCall(), rExpected);
  }
}

TEST_F(AudioConvTest, SideFilesAreRemovedBesideTheFinalName) {
  UseNames(RECENC_G711A, "/recordings/call.wav");
  RecordText("audio");
  WriteTestFile("/recordings/call.wav.raw", "x");
  WriteTestFile("/recordings/call.wav.info", "x");
  rAct.performThread();
  EXPECT_FALSE(Exists("/recordings/call.wav.raw"));
  EXPECT_FALSE(Exists("/recordings/call.wav.info"));
  EXPECT_TRUE(Exists("/recordings/call.wav"));
}

TEST_F(AudioConvTest, GsmConversionReplacesTheSourceAndNotesTheEncoding) {
  UseNames(RECENC_GSM, "/recordings/call.wav");
  RecordSound();
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Exec: sox '/recordings/call.wav.g711' -e gsm-full-rate '/recordings/call.wav'"}));
  EXPECT_EQ(RowOfCall()["encoding"], "551");
  EXPECT_EQ(RowOfCall()["filename"], "call.wav");
  EXPECT_FALSE(Exists("/recordings/call.wav.g711"));
  EXPECT_EQ(Mode("/recordings/call.wav"), 0777);
  EXPECT_EQ(MadeBy("soxi -e /recordings/call.wav"), "GSM\n");
}

TEST_F(AudioConvTest, FailedGsmConversionKeepsTheDataUnderTheFinalName) {
  UseNames(RECENC_GSM, "/recordings/call.wav");
  RecordText("no sound file at all");
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Exec: sox '/recordings/call.wav.g711' -e gsm-full-rate '/recordings/call.wav'",
                   "5 Exec: cp '/recordings/call.wav.g711' '/recordings/call.wav'"}));
  EXPECT_EQ(ReadTestFile("/recordings/call.wav"), "no sound file at all");
  EXPECT_FALSE(Exists("/recordings/call.wav.g711"));
  EXPECT_EQ(Mode("/recordings/call.wav"), 0777);
  EXPECT_EQ(RowOfCall()["encoding"], "0");
  EXPECT_EQ(RowOfCall()["filename"], "call.wav");
}

TEST_F(AudioConvTest, Mp3ConversionReplacesTheSourceAndNotesTheEncoding) {
  UseNames(RECENC_MP3, "/recordings/call.mp3");
  RecordSound();
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Exec: sox '/recordings/call.mp3.g711' -C '16'.4 '/recordings/call.mp3'"}));
  EXPECT_EQ(RowOfCall()["encoding"], "801");
  EXPECT_FALSE(Exists("/recordings/call.mp3.g711"));
  EXPECT_EQ(Mode("/recordings/call.mp3"), 0777);
  EXPECT_EQ(MadeBy("soxi -t /recordings/call.mp3"), "mp3\n");
}

TEST_F(AudioConvTest, StereoMp3HasTwiceTheBits) {
  UseNames(RECENC_MP3, "/recordings/call.mp3");
  rAct.fStereo = true;
  RecordSound(2);
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Exec: sox '/recordings/call.mp3.g711' -C '32'.4 '/recordings/call.mp3'"}));
  EXPECT_EQ(MadeBy("soxi -c /recordings/call.mp3"), "2\n");
}

TEST_F(AudioConvTest, FailedMp3ConversionBecomesAWavFile) {
  UseNames(RECENC_MP3, "/recordings/call.v2.mp3");
  rAct.rCallInfo.data["filename"] = "call.v2.mp3";
  RecordText("no sound file at all");
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Exec: sox '/recordings/call.v2.mp3.g711' -C '16'.4 '/recordings/call.v2.mp3'",
                   "3 Conversion to MP3 failed, fn: /recordings/call.v2.mp3.g711",
                   "5 Exec: cp '/recordings/call.v2.mp3.g711' '/recordings/call.v2.wav'"}));
  EXPECT_EQ(ReadTestFile("/recordings/call.v2.wav"), "no sound file at all");
  EXPECT_FALSE(Exists("/recordings/call.v2.mp3.g711"));
  EXPECT_EQ(Mode("/recordings/call.v2.wav"), 0777);
  const StdStringMap rExpected = {
      {"remoteid", "r1"}, {"encoding", "0"}, {"filename", "call.v2.wav"}, {"callextra", "chk: \r\nline: 3\r\n"}};
  EXPECT_EQ(RowOfCall(), rExpected);
}

TEST_F(AudioConvTest, Mp3FallbackKeepsTheArchiveName) {
  UseNames(RECENC_MP3, "/tmp/area/call.mp3", "/recordings/call.mp3");
  rRecorder.fALE = true;
  rAct.strCheckSumType = "md5";
  RecordText("raw");
  rAct.performThread();
  EXPECT_EQ(ReadTestFile("/recordings/call.mp3"), "sealed:raw");
  EXPECT_FALSE(Exists("/recordings/call.wav"));
  EXPECT_FALSE(Exists("/tmp/area/call.wav"));
}

TEST_F(AudioConvTest, Mp3FallbackWithoutEncryptionHasNoSumAndLeavesSideFilesBehind) {
  UseNames(RECENC_MP3, "/recordings/call.mp3");
  rAct.strCheckSumType = "md5";
  RecordText("raw");
  WriteTestFile("/recordings/call.mp3.raw", "x");
  WriteTestFile("/recordings/call.mp3.info", "x");
  WriteTestFile("/recordings/call.wav.raw", "x");
  rAct.performThread();
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
  EXPECT_TRUE(Exists("/recordings/call.mp3.raw"));
  EXPECT_TRUE(Exists("/recordings/call.mp3.info"));
  EXPECT_FALSE(Exists("/recordings/call.wav.raw"));
}

TEST_F(AudioConvTest, FailedCopyLosesTheAudioAndKeepsTheRow) {
  UseNames(RECENC_GSM, "/recordings/no such folder/call.wav");
  rAct.strFullFilename = "/recordings/call.wav.g711";
  RecordText("no sound file at all");
  rAct.performThread();
  EXPECT_FALSE(Exists("/recordings/call.wav.g711"));
  EXPECT_EQ(RowOfCall()["encoding"], "0");
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
}

// -- names ------------------------------------------------------------------------------------------------------------

TEST_F(AudioConvTest, SingleQuoteInANameReachesEveryTool) {
  UseNames(RECENC_MP3, "/tmp/area/O'Neill call.mp3", "/recordings/O'Neill call.mp3");
  rRecorder.fRecCheck = true;
  rRecorder.fALE = true;
  rAct.strCheckSumType = "md5";
  RecordSound();
  rAct.performThread();
  EXPECT_EQ(RowOfCall()["encoding"], "801");
  EXPECT_EQ(ReadTestFile(TOOLS_LOG),
            "reccheck</tmp/area/O'Neill call.mp3><12>\n"
            "crypt<-e><-i></tmp/area/O'Neill call.mp3><-o></recordings/O'Neill call.mp3>\n");
  EXPECT_EQ(ReadTestFile("/recordings/O'Neill call.mp3").substr(0, 7), "sealed:");
  const std::string strSum = MadeBy("md5sum \"/recordings/O'Neill call.mp3\"").substr(0, 32);
  EXPECT_EQ(Extra(), "chk: " + strSum + "\r\nchktype: md5\r\nline: 3\r\n");
}

TEST_F(AudioConvTest, SingleQuoteInANameReachesTheCopy) {
  UseNames(RECENC_GSM, "/recordings/O'Neill $HOME.wav");
  RecordText("no sound");
  rAct.performThread();
  EXPECT_EQ(ReadTestFile("/recordings/O'Neill $HOME.wav"), "no sound");
}

// -- check and encryption ---------------------------------------------------------------------------------------------

TEST_F(AudioConvTest, FailedCheckIsIgnored) {
  UseNames(RECENC_G711A, "/recordings/call.wav");
  rRecorder.fRecCheck = true;
  RecordText("audio");
  rAct.performThread();  // the script ends with 3
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Exec: morvex_reccheck '/recordings/call.wav' '12'"}));
  EXPECT_EQ(ReadTestFile(TOOLS_LOG), "reccheck</recordings/call.wav><12>\n");
  EXPECT_EQ(ReadTestFile("/recordings/call.wav"), "audio");
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
}

TEST_F(AudioConvTest, EncryptionMovesTheClearFileIntoTheArchive) {
  UseNames(RECENC_G711A, "/tmp/area/call.wav", "/recordings/call.wav");
  rRecorder.fALE = true;
  RecordText("audio");
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Exec: morvex_crypt -e -i '/tmp/area/call.wav' -o '/recordings/call.wav'"}));
  EXPECT_FALSE(Exists("/tmp/area/call.wav"));
  EXPECT_EQ(ReadTestFile("/recordings/call.wav"), "sealed:audio");
}

TEST_F(AudioConvTest, FailedEncryptionStillRemovesTheClearFile) {
  UseNames(RECENC_G711A, "/tmp/area/call.wav", "/recordings/call.wav");
  rRecorder.fALE = true;
  WriteScript(TOOLS_DIR + std::string("/morvex_crypt"), "#!/bin/sh\nexit 1\n");
  RecordText("audio");
  rAct.performThread();
  EXPECT_FALSE(Exists("/tmp/area/call.wav"));
  EXPECT_FALSE(Exists("/recordings/call.wav"));
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
}

TEST_F(AudioConvTest, MissingToolsStopNothing) {
  UseNames(RECENC_G711A, "/tmp/area/call.wav", "/recordings/call.wav");
  rRecorder.fRecCheck = true;
  rRecorder.fALE = true;
  (void)unlink((TOOLS_DIR + std::string("/morvex_crypt")).c_str());
  (void)unlink((TOOLS_DIR + std::string("/morvex_reccheck")).c_str());
  RecordText("audio");
  rAct.performThread();
  EXPECT_FALSE(Exists("/tmp/area/call.wav"));
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
}

// -- checksum ---------------------------------------------------------------------------------------------------------

struct SumRow {
  const char* acType;
  const char* acTool;  // null: none of the known types
};

TEST_F(AudioConvTest, CheckSumTypesAndTheirTools) {
  const SumRow rRows[] = {{"md5", "md5sum"}, {"sha1", "sha1sum"}, {"sha256", "sha256sum"}, {"sha512", "sha512sum"},
                          {"", nullptr},     {"MD5", nullptr},    {"md5 ", nullptr},       {"crc32", nullptr}};
  UseNames(RECENC_G711A, "/recordings/call.wav");
  RecordText("audio");
  for (const SumRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acType);
    rAct.rCallInfo.data["callextra"] = "chk: old\r\n";  // an earlier sum is lost in any case
    rAct.strCheckSumType = rRow.acType;
    rAct.performThread();
    if (rRow.acTool == nullptr) {
      EXPECT_EQ(logsink::TakeTexts(), Texts());
      EXPECT_EQ(Extra(), "chk: \r\n");
      continue;
    }
    EXPECT_EQ(logsink::TakeTexts(), Texts({std::string("5 Command: ") + rRow.acTool + " -b '/recordings/call.wav'"}));
    const std::string strOutput = MadeBy(std::string(rRow.acTool) + " < /recordings/call.wav");
    EXPECT_EQ(Extra(), "chk: " + strOutput.substr(0, strOutput.find(' ')) + "\r\nchktype: " + rRow.acType + "\r\n");
  }
}

TEST_F(AudioConvTest, MissingCallExtraBecomesOneWithASum) {
  UseNames(RECENC_G711A, "/recordings/call.wav");
  rAct.rCallInfo.data.erase("callextra");
  rAct.performThread();
  EXPECT_EQ(Extra(), "chk: \r\n");
}

TEST_F(AudioConvTest, SumIsTheFirstWordOrNothing) {
  WriteScript(TOOLS_DIR + std::string("/worded"), "#!/bin/sh\necho \"$1 $2\"\n");
  WriteScript(TOOLS_DIR + std::string("/oneword"), "#!/bin/sh\necho nothing\n");
  EXPECT_EQ(calcSum("worded", "a b"), "-b");
  EXPECT_EQ(calcSum("oneword", "a b"), "");
  EXPECT_EQ(calcSum("nosuchtool", "a b"), "");
}

// -- main thread: the carry-over --------------------------------------------------------------------------------------

TEST_F(AudioConvTest, CarriedColumnsFillGapsAndLoseAgainstOwnOnes) {
  rAct.rCallInfo.data = {{"remoteid", "r1"}, {"notes", "own"}};
  rRecorder.rDatabase.rCarryOver = {{"notes", "carried"}, {"notes2", "carried too"}, {"category", "5"}};
  rAct.performMain();
  const StdStringMap rExpected = {{"remoteid", "r1"}, {"notes", "own"}, {"notes2", "carried too"}, {"category", "5"}};
  EXPECT_EQ(rRecorder.rDatabase.rTables["Calls"][1], rExpected);
}

TEST_F(AudioConvTest, CarriedCallExtraIsMergedAndTheOwnValueWins) {
  rAct.rCallInfo.data["callextra"] = "a: 2\r\nchk: sum\r\n";
  rRecorder.rDatabase.rCarryOver = {{"callextra", "a: 1\r\nb: line\\r\\nfeed\r\n"}};
  rAct.performMain();
  EXPECT_EQ(rRecorder.rDatabase.rTables["Calls"][1]["callextra"], "a: 2\r\nb: line\\r\\nfeed\r\nchk: sum\r\n");
}

struct StateRow {
  const char* acLabel;
  const char* acOwn;
  const char* acCarried;
  const char* acExpected;
};

TEST_F(AudioConvTest, CarriedProcessingStateAddsItsBits) {
  const StateRow rRows[] = {
      {"both have bits of their own", "1", "4", "5"},
      {"a common bit stays one", "3", "1", "3"},
      {"an empty carried value is 0", "2", "", "2"},
      {"an empty own value is 0", "", "8", "8"},
      {"text is 0, and is replaced by a number", "none", "none", "0"},
  };
  for (const StateRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rAct.rCallInfo.data = {{"processingstate", rRow.acOwn}};
    rRecorder.rDatabase.rCarryOver = {{"processingstate", rRow.acCarried}};
    rAct.performMain();
    EXPECT_EQ(LastRow()["processingstate"], rRow.acExpected);
  }
}

// -- main thread: the rows --------------------------------------------------------------------------------------------

TEST_F(AudioConvTest, RowLeavesActiveCallsBeforeItEntersCalls) {
  rAct.performMain();
  EXPECT_EQ(TakeDbCalls(), Texts({"GetActiveCallCarryOver 41", "DeleteActiveCall 41", "Add Calls 1"}));
  EXPECT_EQ(
      LastRow(),
      (StdStringMap{{"remoteid", "r1"}, {"encoding", "0"}, {"filename", "call.wav"}, {"callextra", "line: 3\r\n"}}));
  EXPECT_EQ(rRecorder.TakeCalls(), Texts());
}

TEST_F(AudioConvTest, EmailNamesTheNewRowAndTheLocalContact) {
  rAct.fToEmail = true;
  rAct.iEmailContactID = 77;
  rRecorder.rDatabase.iLastRowId = 8;
  rAct.performMain();
  EXPECT_EQ(rRecorder.TakeCalls(), Texts({"EmailRecording 9 77"}));
}

TEST_F(AudioConvTest, FailedInsertIsUsedAsItComes) {
  rAct.fToEmail = true;
  rAct.iEmailContactID = 77;
  rRecorder.rDatabase.fDown = true;
  rAct.performMain();
  EXPECT_EQ(rRecorder.TakeCalls(), Texts({"EmailRecording -1 77"}));
}

TEST_F(AudioConvTest, UndecidedCallStaysActive) {
  rAct.fStoreOnDemandDelay = true;
  const char* const aacStates[][2] = {{"1", "129"}, {"128", "128"}, {"", "128"}};
  for (const auto& [acBefore, acAfter] : aacStates) {
    SCOPED_TRACE(acBefore);
    rAct.rCallInfo.data["processingstate"] = acBefore;
    rAct.performMain();
    EXPECT_EQ(TakeDbCalls(), Texts({"GetActiveCallCarryOver 41", "UpdateActiveCall 41"}));
    EXPECT_EQ(rRecorder.rDatabase.rTables["ActiveCalls"][41]["processingstate"], acAfter);
  }
}

TEST_F(AudioConvTest, UndecidedCallWithoutAStateGetsOne) {
  rAct.fStoreOnDemandDelay = true;
  rAct.performMain();
  StdStringMap rExpected = {{"remoteid", "r1"},
                            {"encoding", "0"},
                            {"filename", "call.wav"},
                            {"callextra", "line: 3\r\n"},
                            {"processingstate", "128"}};
  EXPECT_EQ(rRecorder.rDatabase.rTables["ActiveCalls"][41], rExpected);
  EXPECT_TRUE(rRecorder.rDatabase.rTables["Calls"].empty());
}

TEST_F(AudioConvTest, UndecidedCallForEmailIsMarkedAndNotMailed) {
  rAct.fStoreOnDemandDelay = true;
  rAct.fToEmail = true;
  rRecorder.fNeedCallPost = true;
  rAct.performMain();
  EXPECT_EQ(rRecorder.rDatabase.rTables["ActiveCalls"][41]["callextra"], "line: 3\r\nto-email: L\r\n");
  EXPECT_EQ(rRecorder.TakeCalls(), Texts());
  EXPECT_EQ(logsink::TakeTexts(), Texts());  // and no post-call work
}

TEST_F(AudioConvTest, WithoutAPoolTheWholeRunsOnTheCallersThread) {
  auto* prAct = new AudioConvAct;
  prAct->prDB = &rRecorder.rDatabase;
  prAct->prRecorder = &rRecorder;
  prAct->iActiveCallID = 5;
  queueAction(prAct);
  EXPECT_EQ(TakeDbCalls(), Texts({"GetActiveCallCarryOver 5", "DeleteActiveCall 5", "Add Calls 1"}));
  EXPECT_EQ(rRecorder.rDatabase.rTables["Calls"][1], (StdStringMap{{"callextra", "chk: \r\n"}}));
}

}  // namespace
