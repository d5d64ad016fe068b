#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "DiskSteps.h"
#include "FakeDatabase.h"
#include "FakeRecorder.h"
#include "LogSink.h"
#include "TestTools.h"
#include "bgact.h"
#include "datafile.h"
#include "fstring.h"
#include "shell.h"

using testtools::Exists;
using testtools::WriteScript;

namespace {

constexpr const char* TOOLS_DIR = "/tmp/tools";
constexpr const char* TOOLS_LOG = "/tmp/tools.log";
constexpr const char* SECURE_DELETE = "/var/morvex/conf/opt_secure_delete";

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
    const std::string strPath = StdStringNullSafe(getenv("PATH"));
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

TEST_F(AudioConvTest, CheckIsOfTheWavFileAfterAFailedMp3Conversion) {
  UseNames(RECENC_MP3, "/recordings/call.mp3");
  rRecorder.fRecCheck = true;
  RecordText("no sound file at all");
  rAct.performThread();
  EXPECT_EQ(ReadTestFile(TOOLS_LOG), "reccheck</recordings/call.wav><12>\n");
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

TEST_F(AudioConvTest, FailedEncryptionStillRemovesTheClearFileAndTellsOfTheLoss) {
  UseNames(RECENC_G711A, "/tmp/area/call.wav", "/recordings/call.wav");
  rRecorder.fALE = true;
  WriteScript(TOOLS_DIR + std::string("/morvex_crypt"), "#!/bin/sh\nexit 1\n");
  RecordText("audio");
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"5 Exec: morvex_crypt -e -i '/tmp/area/call.wav' -o '/recordings/call.wav'",
                                         "3 Recording lost: /recordings/call.wav"}));
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

// -- the last copy ----------------------------------------------------------------------------------------------------

constexpr const char* NO_SOX = "#!/bin/sh\nexit 1\n";

class LastCopyTest : public AudioConvTest {
 protected:
  void SetUp() override {
    AudioConvTest::SetUp();
    (void)disksteps::Take();
  }
  void TearDown() override {
    disksteps::Refuse = nullptr;
    for (const char* acTool : {"/sox", "/cp"}) (void)unlink((TOOLS_DIR + std::string(acTool)).c_str());
    (void)unlink(SECURE_DELETE);
    AudioConvTest::TearDown();
  }
  static void PutTool(const std::string& strName, const std::string& strText) {
    WriteScript(TOOLS_DIR + ("/" + strName), strText);
  }
  // Errors alone: "<text>".
  static Texts TakeErrors() {
    Texts astrErrors;
    for (const logsink::Line& rLine : logsink::Take()) {
      if (rLine.iPrio <= LOG_ERR) astrErrors.push_back(rLine.strText);
    }
    return astrErrors;
  }
};

TEST_F(LastCopyTest, SourceOfAFailedCopyIsRescued) {
  UseNames(RECENC_GSM, "/recordings/no such folder/call.wav");
  rAct.strFullFilename = "/recordings/call.wav.g711";
  RecordText("no sound file at all");
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(),
            Texts({"5 Exec: sox '/recordings/call.wav.g711' -e gsm-full-rate '/recordings/no such folder/call.wav'",
                   "5 Exec: cp '/recordings/call.wav.g711' '/recordings/no such folder/call.wav'",
                   "3 Recording rescued: /recordings/rescued/call.wav.g711"}));
  EXPECT_FALSE(Exists("/recordings/call.wav.g711"));
  EXPECT_EQ(ReadTestFile("/recordings/rescued/call.wav.g711"), "no sound file at all");
  EXPECT_EQ(RowOfCall()["encoding"], "0");
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
}

TEST_F(LastCopyTest, Mp3WithoutAnyToolIsRescuedToo) {
  PutTool("sox", NO_SOX);
  PutTool("cp", NO_SOX);
  UseNames(RECENC_MP3, "/recordings/call.mp3");
  RecordText("audio");
  rAct.performThread();
  EXPECT_EQ(TakeErrors(), Texts({"Conversion to MP3 failed, fn: /recordings/call.mp3.g711",
                                 "Recording rescued: /recordings/rescued/call.mp3.g711"}));
  EXPECT_EQ(ReadTestFile("/recordings/rescued/call.mp3.g711"), "audio");
  EXPECT_EQ(RowOfCall()["filename"], "call.wav");
}

TEST_F(LastCopyTest, ProcessThatCannotForkKeepsTheSource) {
  UseNames(RECENC_GSM, "/recordings/call.wav");
  RecordText("audio");
  {
    const testtools::NoMoreDescriptors rNone;
    rAct.performThread();
  }
  EXPECT_EQ(TakeErrors(), Texts({"Recording rescued: /recordings/call.wav.g711"}));
  EXPECT_EQ(ReadTestFile("/recordings/call.wav.g711"), "audio");
}

// No command runs, so there is nothing but the clear file; that needs no descriptor to go.
TEST_F(LastCopyTest, ClearAudioGoesAlsoWithoutDescriptors) {
  rRecorder.fALE = true;
  for (const ERecEncodings eRecEnc : {RECENC_G711A, RECENC_GSM, RECENC_MP3}) {
    UseNames(eRecEnc, "/recordings/rectmp/day/call", "/recordings/day/call");
    (void)MadeBy("mkdir -p /recordings/day /recordings/rectmp/day");
    RecordText("audio");
    WriteTestFile("/recordings/rectmp/day/call", "clear");
    WriteTestFile("/recordings/rectmp/day/call.raw", "clear");
    {
      const testtools::NoMoreDescriptors rNone;
      rAct.performThread();
    }
    EXPECT_EQ(MadeBy("find /recordings -type f"), eRecEnc == RECENC_MP3 ? "/recordings/rectmp/day/call.raw\n" : "");
  }
}

TEST_F(LastCopyTest, RescuedRecordingReplacesNoOther) {
  PutTool("sox", NO_SOX);
  PutTool("cp", NO_SOX);
  for (const char* acText : {"first", "second", "third"}) {
    UseNames(RECENC_GSM, "/recordings/call.wav");
    RecordText(acText);
    rAct.performThread();
  }
  EXPECT_EQ(TakeErrors(), Texts({"Recording rescued: /recordings/rescued/call.wav.g711",
                                 "Recording rescued: /recordings/rescued/call.wav.g711.1",
                                 "Recording rescued: /recordings/rescued/call.wav.g711.2"}));
  EXPECT_EQ(ReadTestFile("/recordings/rescued/call.wav.g711"), "first");
  EXPECT_EQ(ReadTestFile("/recordings/rescued/call.wav.g711.2"), "third");
}

TEST_F(LastCopyTest, SecureDeletionSparesWhatIsRescued) {
  WriteTestFile(SECURE_DELETE, "");
  PutTool("sox", NO_SOX);
  PutTool("cp", NO_SOX);
  UseNames(RECENC_GSM, "/recordings/call.wav");
  RecordText("audio");
  rAct.performThread();
  EXPECT_EQ(ReadTestFile("/recordings/rescued/call.wav.g711"), "audio");
  for (const std::string& strLine : logsink::TakeTexts()) EXPECT_EQ(strLine.find("shred"), std::string::npos);
}

TEST_F(LastCopyTest, SecureDeletionTakesAllThatFinishingRemoves) {
  WriteTestFile(SECURE_DELETE, "");
  rRecorder.fALE = true;
  UseNames(RECENC_MP3, "/tmp/area/call.mp3", "/recordings/call.mp3");
  RecordSound();
  std::vector<std::ifstream> arBytes;  // they keep the bytes readable when the names are gone
  for (const char* acName : {"/tmp/area/call.mp3.raw", "/tmp/area/call.mp3.info"}) {
    WriteTestFile(acName, "recording");
    arBytes.emplace_back(acName);
  }
  rAct.performThread();
  const Texts astrLog = logsink::TakeTexts();
  Texts astrShredded;
  std::copy_if(astrLog.begin(), astrLog.end(), std::back_inserter(astrShredded),
               [](const std::string& strLine) { return strLine.find("shred") != std::string::npos; });
  EXPECT_EQ(astrShredded,
            Texts({"5 Exec: shred -u '/tmp/area/call.mp3.g711'", "5 Exec: shred -u '/tmp/area/call.mp3.raw'",
                   "5 Exec: shred -u '/tmp/area/call.mp3.info'", "5 Exec: shred -u '/tmp/area/call.mp3'"}));
  for (std::ifstream& rBytes : arBytes) {
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(rBytes), {}).find("recording"), std::string::npos);
  }
  EXPECT_EQ(MadeBy("ls /tmp/area"), "");
  EXPECT_EQ(ReadTestFile("/recordings/call.mp3").substr(0, 7), "sealed:");
}

TEST_F(LastCopyTest, FolderOfRescuedRecordingsOnAnotherDiskLeavesTheSourceInItsPlace) {
  PutTool("sox", NO_SOX);
  PutTool("cp", NO_SOX);
  ASSERT_EQ(mkdir("/recordings/rescued", 0777), 0);
  ASSERT_EQ(mount("none", "/recordings/rescued", "tmpfs", 0, ""), 0);
  UseNames(RECENC_GSM, "/recordings/call.wav");
  RecordText("audio");
  rAct.performThread();
  ASSERT_EQ(umount("/recordings/rescued"), 0);
  EXPECT_EQ(TakeErrors(), Texts({"Recording rescued: /recordings/call.wav.g711"}));
  EXPECT_EQ(ReadTestFile("/recordings/call.wav.g711"), "audio");
}

TEST_F(LastCopyTest, NeighboursLinkIsNoFolderOfRescuedRecordings) {
  PutTool("sox", NO_SOX);
  PutTool("cp", NO_SOX);
  ASSERT_EQ(symlink("/tmp/area", "/recordings/rescued"), 0);
  UseNames(RECENC_GSM, "/recordings/call.wav");
  RecordText("audio");
  rAct.performThread();
  EXPECT_FALSE(Exists("/tmp/area/call.wav.g711"));
  EXPECT_EQ(ReadTestFile("/recordings/rescued/call.wav.g711"), "audio");
}

TEST_F(LastCopyTest, PartOfAFailedConversionGoes) {
  PutTool("sox", "#!/bin/sh\nfor last; do :; done\necho part > \"$last\"\nexit 1\n");
  UseNames(RECENC_MP3, "/recordings/call.mp3");
  rAct.strCheckSumType = "md5";
  RecordText("audio");
  rAct.performThread();
  EXPECT_FALSE(Exists("/recordings/call.mp3"));
  EXPECT_EQ(ReadTestFile("/recordings/call.wav"), "audio");
  EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
}

TEST_F(LastCopyTest, ClearAudioIsNotRescuedWhereThereIsEncryption) {
  PutTool("sox", NO_SOX);
  PutTool("cp", NO_SOX);
  rRecorder.fALE = true;
  for (const ERecEncodings eRecEnc : {RECENC_GSM, RECENC_MP3}) {
    UseNames(eRecEnc, "/tmp/area/call.wav", "/recordings/call.wav");
    RecordText("audio");
    rAct.performThread();
    EXPECT_FALSE(Exists("/tmp/area/call.wav.g711"));
    EXPECT_FALSE(Exists("/recordings/rescued"));
  }
  Texts astrErrors = TakeErrors();
  EXPECT_EQ(std::count(astrErrors.begin(), astrErrors.end(), "Recording lost: /recordings/call.wav"), 1);
}

TEST_F(LastCopyTest, PlainRecordingThatWasTakenAwayIsToldAsLost) {
  const AudioConvAct rFresh = rAct;
  for (const ERecEncodings eRecEnc : {RECENC_G711A, RECENC_G711U}) {
    for (const char* acTaken : {"/recordings/day/call.wav", "/recordings/day"}) {
      SCOPED_TRACE(acTaken);
      (void)MadeBy("mkdir -p /recordings/day");
      rAct = rFresh;
      UseNames(eRecEnc, "/recordings/day/call.wav");
      RecordText("audio");
      ASSERT_EQ(rename(acTaken, "/recordings/elsewhere"), 0);
      rAct.performThread();
      EXPECT_EQ(logsink::TakeTexts(), Texts({"3 Recording lost: /recordings/day/call.wav"}));
      EXPECT_EQ(RowOfCall()["filename"], "call.wav");
      (void)MadeBy("rm -rf /recordings/*");
    }
  }
}

// The folder goes while the file is waited for.
TEST_F(LastCopyTest, PlainRecordingWhoseFolderGoesMeanwhileIsToldAsLost) {
  (void)MadeBy("mkdir -p /recordings/day");
  UseNames(RECENC_G711A, "/recordings/day/call.wav");
  RecordText("audio");
  disksteps::Refuse = [](const std::string& strStep) {
    if (strStep == "fsync /recordings/day/call.wav") (void)rename("/recordings/day", "/recordings/elsewhere");
    return 0;
  };
  rAct.performThread();
  EXPECT_EQ(logsink::TakeTexts(), Texts({"3 Recording lost: /recordings/day/call.wav"}));
}

// -- power loss -------------------------------------------------------------------------------------------------------

using PowerLossTest = LastCopyTest;

struct PowerLossRow {
  const char* acLabel;
  ERecEncodings eRecEnc;
  bool fALE;
  bool fToolsFail;
  Texts astrSteps;
};

TEST_F(PowerLossTest, FileIsOnDiskBeforeItsSourceGoesAndBeforeItsRow) {
  const PowerLossRow rRows[] = {
      {"G.711",
       RECENC_G711A,
       false,
       false,
       {"fsync /recordings/day/call", "fsync /recordings/day", "fsync /recordings"}},
      {"GSM",
       RECENC_GSM,
       false,
       false,
       {"fsync /recordings/day/call", "fsync /recordings/day", "fsync /recordings",
        "unlink /recordings/day/call.g711"}},
      {"MP3",
       RECENC_MP3,
       false,
       false,
       {"fsync /recordings/day/call", "fsync /recordings/day", "fsync /recordings",
        "unlink /recordings/day/call.g711"}},
      {"copy in the place of GSM",
       RECENC_GSM,
       false,
       true,
       {"fsync /recordings/day/call", "fsync /recordings/day", "fsync /recordings",
        "unlink /recordings/day/call.g711"}},
      {"copy in the place of MP3",
       RECENC_MP3,
       false,
       true,
       {"fsync /recordings/day/call.wav", "fsync /recordings/day", "fsync /recordings",
        "unlink /recordings/day/call.g711"}},
      {"encrypted G.711",
       RECENC_G711U,
       true,
       false,
       {"fsync /recordings/day/call", "fsync /recordings/day", "fsync /recordings",
        "unlink /recordings/rectmp/day/call"}},
      {"encrypted MP3",
       RECENC_MP3,
       true,
       false,
       {"fsync /recordings/rectmp/day/call", "fsync /recordings/rectmp/day", "fsync /recordings/rectmp",
        "fsync /recordings", "unlink /recordings/rectmp/day/call.g711", "fsync /recordings/day/call",
        "fsync /recordings/day", "fsync /recordings", "unlink /recordings/rectmp/day/call"}},
  };
  (void)MadeBy("mkdir -p /recordings/day /recordings/rectmp/day");
  for (const PowerLossRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    PutTool("sox", rRow.fToolsFail ? NO_SOX : "#!/bin/sh\nfor last; do :; done\necho made > \"$last\"\n");
    rRecorder.fALE = rRow.fALE;
    UseNames(rRow.eRecEnc, rRow.fALE ? "/recordings/rectmp/day/call" : "/recordings/day/call", "/recordings/day/call");
    RecordText("audio");
    (void)disksteps::Take();
    rAct.performThread();
    EXPECT_EQ(disksteps::Take(), rRow.astrSteps);
    (void)MadeBy("rm -f /recordings/day/* /recordings/rectmp/day/*");
  }
}

TEST_F(PowerLossTest, SourceOfWhatIsNotOnDiskIsRescued) {
  for (const char* acStep : {"fsync /recordings/call.mp3", "fsync /recordings"}) {
    SCOPED_TRACE(acStep);
    UseNames(RECENC_MP3, "/recordings/call.mp3");
    RecordSound();
    disksteps::Refuse = [acStep](const std::string& strStep) { return strStep == acStep ? EIO : 0; };
    rAct.performThread();
    disksteps::Refuse = nullptr;
    EXPECT_EQ(TakeErrors(), Texts({"C-api error at Sync of recording file: Input/output error",
                                   "Recording rescued: /recordings/rescued/call.mp3.g711"}));
    EXPECT_EQ(MadeBy("soxi -e /recordings/rescued/call.mp3.g711"), "A-law\n");
    EXPECT_EQ(MadeBy("soxi -t /recordings/call.mp3"), "mp3\n");
    (void)MadeBy("rm -rf /recordings/*");
  }
}

TEST_F(PowerLossTest, SourceStaysUntilTheEncryptedFileIsOnDiskWhereTheClearOneIsNot) {
  (void)MadeBy("mkdir -p /recordings/day /recordings/rectmp/day");
  rRecorder.fALE = true;
  for (const ERecEncodings eRecEnc : {RECENC_GSM, RECENC_MP3}) {
    PutTool("sox", "#!/bin/sh\nfor last; do :; done\necho made > \"$last\"\n");
    UseNames(eRecEnc, "/recordings/rectmp/day/call", "/recordings/day/call");
    RecordText("audio");
    (void)disksteps::Take();
    disksteps::Refuse = [](const std::string& strStep) {
      return strStep == "fsync /recordings/rectmp/day/call" ? EIO : 0;
    };
    rAct.performThread();
    disksteps::Refuse = nullptr;
    EXPECT_EQ(disksteps::Take(),
              Texts({"fsync /recordings/day/call", "fsync /recordings/day", "fsync /recordings",
                     "unlink /recordings/rectmp/day/call.g711", "unlink /recordings/rectmp/day/call"}));
    EXPECT_EQ(TakeErrors(), Texts({"C-api error at Sync of recording file: Input/output error"}));
    EXPECT_EQ(ReadTestFile("/recordings/day/call"), "sealed:made\n");
  }
}

TEST_F(PowerLossTest, ClearAudioGoesAlsoWhenNeitherFileIsOnDisk) {
  rRecorder.fALE = true;
  UseNames(RECENC_GSM, "/tmp/area/call", "/recordings/call");
  RecordSound();
  disksteps::Refuse = [](const std::string& strStep) { return strStep.rfind("fsync", 0) == 0 ? EIO : 0; };
  rAct.performThread();
  EXPECT_EQ(TakeErrors(),
            Texts({"C-api error at Sync of recording file: Input/output error",
                   "C-api error at Sync of recording file: Input/output error", "Recording lost: /recordings/call"}));
  EXPECT_EQ(MadeBy("ls /tmp/area"), "");
}

TEST_F(PowerLossTest, PlainRecordingThatIsNotOnDiskIsToldAndStays) {
  UseNames(RECENC_G711A, "/recordings/call.wav");
  RecordText("audio");
  disksteps::Refuse = [](const std::string& /*strStep*/) { return ENOSPC; };
  rAct.performThread();
  EXPECT_EQ(TakeErrors(), Texts({"C-api error at Sync of recording file: No space left on device"}));
  EXPECT_EQ(ReadTestFile("/recordings/call.wav"), "audio");
}

TEST_F(PowerLossTest, FileThatStaysAfterItsStepIsTold) {
  UseNames(RECENC_GSM, "/recordings/call.wav");
  rRecorder.fALE = true;
  for (const char* acFile : {"call.wav.g711", "call.wav.raw", "call.wav.info", "call.wav"}) {
    SCOPED_TRACE(acFile);
    RecordSound();
    for (const char* acSide : {"/recordings/call.wav.raw", "/recordings/call.wav.info"}) WriteTestFile(acSide, "x");
    disksteps::Refuse = [acFile](const std::string& strStep) {
      return strStep == std::string("unlink /recordings/") + acFile ? EIO : 0;
    };
    rAct.performThread();
    disksteps::Refuse = nullptr;
    const std::string strTold = std::string("C-api error at Remove /recordings/") + acFile + ": Input/output error";
    const Texts astrErrors = TakeErrors();
    EXPECT_EQ(std::count(astrErrors.begin(), astrErrors.end(), strTold), 1);
    EXPECT_TRUE(Exists(std::string("/recordings/") + acFile));
  }
}

TEST_F(PowerLossTest, EncryptedFileThatIsNotOnDiskCountsAsLost) {
  rRecorder.fALE = true;
  UseNames(RECENC_G711A, "/tmp/area/call.wav", "/recordings/call.wav");
  RecordText("audio");
  disksteps::Refuse = [](const std::string& strStep) { return strStep == "fsync /recordings/call.wav" ? EIO : 0; };
  rAct.performThread();
  EXPECT_EQ(TakeErrors(), Texts({"C-api error at Sync of recording file: Input/output error",
                                 "Recording lost: /recordings/call.wav"}));
  EXPECT_FALSE(Exists("/tmp/area/call.wav"));
}

// -- neighbours -------------------------------------------------------------------------------------------------------

// Whoever can write in the folders puts something else under the names of a recording, before the tools come to them.
class NeighbourTest : public LastCopyTest {
 protected:
  void SetUp() override {
    LastCopyTest::SetUp();
    WriteTestFile("/tmp/secret", "secret");
    (void)chmod("/tmp/secret", 0600);
  }
  static void ExpectSecretIsKept() {
    EXPECT_EQ(ReadTestFile("/tmp/secret"), "secret");
    struct stat rStat {};
    ASSERT_EQ(stat("/tmp/secret", &rStat), 0);
    EXPECT_EQ(rStat.st_mode & 07777, 0600u);
    EXPECT_EQ(MadeBy("grep -rl secret /recordings | grep -v -e rescued -e '[.]g711$'"), "");
  }
};

struct Trap {
  const char* acLabel;
  void (*Put)(const std::string& strName);
};
constexpr Trap TRAPS[] = {
    {"link", [](const std::string& strName) { ASSERT_EQ(symlink("/tmp/secret", strName.c_str()), 0); }},
    {"second name", [](const std::string& strName) { ASSERT_EQ(link("/tmp/secret", strName.c_str()), 0); }},
    {"FIFO", [](const std::string& strName) { ASSERT_EQ(mkfifo(strName.c_str(), 0666), 0); }},
};

TEST_F(NeighbourTest, WhatStandsUnderTheFinalNameMakesWay) {
  for (const Trap& rTrap : TRAPS) {
    for (const ERecEncodings eRecEnc : {RECENC_GSM, RECENC_MP3}) {
      SCOPED_TRACE(rTrap.acLabel);
      UseNames(eRecEnc, eRecEnc == RECENC_GSM ? "/recordings/call.wav" : "/recordings/call.mp3");
      RecordSound();
      rTrap.Put(rAct.strFullFilenameFinal);
      rAct.performThread();
      EXPECT_EQ(Mode(rAct.strFullFilenameFinal), 0777);
      EXPECT_EQ(MadeBy("soxi -D " + rAct.strFullFilenameFinal).substr(0, 2), "1.");
      ExpectSecretIsKept();
      (void)MadeBy("rm -rf /recordings/*");
    }
  }
}

TEST_F(NeighbourTest, WhatStandsUnderTheNamesOfACopyOrAnArchiveMakesWay) {
  rRecorder.fALE = true;
  for (const Trap& rTrap : TRAPS) {
    SCOPED_TRACE(rTrap.acLabel);
    UseNames(RECENC_MP3, "/tmp/area/call.mp3", "/recordings/call.mp3");
    RecordText("no sound");
    rTrap.Put("/tmp/area/call.wav");
    rTrap.Put("/recordings/call.mp3");
    rAct.performThread();
    EXPECT_EQ(ReadTestFile("/recordings/call.mp3"), "sealed:no sound");
    ExpectSecretIsKept();
    (void)MadeBy("rm -rf /recordings/* /tmp/area/*");
  }
}

TEST_F(NeighbourTest, WhatStandsUnderTheSourcesNameIsNotConverted) {
  for (const bool fSecureDelete : {false, true}) {
    if (fSecureDelete) WriteTestFile(SECURE_DELETE, "");
    for (const Trap& rTrap : TRAPS) {
      for (const ERecEncodings eRecEnc : {RECENC_GSM, RECENC_MP3}) {
        SCOPED_TRACE(rTrap.acLabel);
        UseNames(eRecEnc, "/recordings/call.wav");
        rTrap.Put(rAct.strFullFilename);
        rAct.performThread();
        for (const std::string& strLine : logsink::TakeTexts()) EXPECT_EQ(strLine.find("Exec"), std::string::npos);
        EXPECT_FALSE(Exists("/recordings/call.wav"));
        EXPECT_FALSE(Exists("/recordings/call.wav.g711"));
        ExpectSecretIsKept();
        (void)MadeBy("rm -rf /recordings/*");
      }
    }
  }
}

TEST_F(NeighbourTest, NoToolReadsWhatStandsUnderTheNameOfAPlainRecording) {
  rRecorder.fRecCheck = true;
  rAct.strCheckSumType = "md5";
  for (const bool fALE : {false, true}) {
    for (const Trap& rTrap : TRAPS) {
      SCOPED_TRACE(rTrap.acLabel);
      rRecorder.fALE = fALE;
      UseNames(RECENC_G711A, fALE ? "/tmp/area/call.wav" : "/recordings/call.wav", "/recordings/call.wav");
      rTrap.Put(rAct.strFullFilename);
      rAct.performThread();
      for (const std::string& strLine : logsink::TakeTexts()) EXPECT_EQ(strLine.find("Exec"), std::string::npos);
      EXPECT_EQ(ReadTestFile(TOOLS_LOG), "(no file)");
      EXPECT_EQ(Extra(), "chk: \r\nline: 3\r\n");
      EXPECT_EQ(ReadTestFile("/tmp/secret"), "secret");
      (void)MadeBy("rm -rf /recordings/* /tmp/area/*");
    }
  }
}

TEST_F(NeighbourTest, NothingIsMadeBehindALinkInPlaceOfTheFolder) {
  ASSERT_EQ(mkdir("/recordings/day", 0777), 0);
  UseNames(RECENC_GSM, "/recordings/day/call.wav");
  RecordSound();
  (void)MadeBy("mv /recordings/day /recordings/away; ln -s /tmp/area /recordings/day; cp /recordings/away/* /tmp/area");
  rAct.performThread();
  EXPECT_FALSE(Exists("/tmp/area/call.wav"));
  EXPECT_TRUE(Exists("/tmp/area/call.wav.g711"));
  for (const std::string& strLine : logsink::TakeTexts()) EXPECT_EQ(strLine.find("Exec"), std::string::npos);
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
