#include "filedir.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "LogSink.h"
#include "TestFiles.h"
#include "TestTools.h"
#include "fstring.h"

using namespace std::string_literals;

namespace {

constexpr const char* MARKER = "/var/morvex/conf/opt_secure_delete";

// Each test has a folder of its own as working directory.
class FiledirTest : public testing::Test {
 protected:
  void SetUp() override {
    char acFolder[] = "/tmp/filedir_XXXXXX";
    ASSERT_NE(mkdtemp(acFolder), nullptr);
    strFolder = acFolder;
    ASSERT_EQ(chdir(acFolder), 0);
    rOldMask = umask(0);
    (void)logsink::Take();
  }
  void TearDown() override {
    umask(rOldMask);
    unlink(MARKER);
  }
  static mode_t Mode(const std::string& strPath) {
    struct stat rStat = {};
    EXPECT_EQ(stat(strPath.c_str(), &rStat), 0) << strPath;
    return rStat.st_mode;
  }

  std::string strFolder;
  mode_t rOldMask = 0;
};

using EnsurePathTest = FiledirTest;

TEST_F(EnsurePathTest, MakesAllFolders) {
  EnsurePath(strFolder + "/2024/01/31");
  for (const char* acPart : {"/2024", "/2024/01", "/2024/01/31"}) {
    EXPECT_EQ(Mode(strFolder + acPart), static_cast<mode_t>(S_IFDIR | 0777)) << acPart;
  }
}

TEST_F(EnsurePathTest, LeavesWhatIsThere) {
  ASSERT_EQ(mkdir("a", 0700), 0);
  WriteTestFile("a/file", "content");
  EnsurePath("a/b");
  EnsurePath("a/b");
  EXPECT_EQ(Mode("a"), static_cast<mode_t>(S_IFDIR | 0700));
  EXPECT_EQ(Mode("a/b"), static_cast<mode_t>(S_IFDIR | 0777));
  EXPECT_EQ(ReadTestFile("a/file"), "content");
}

TEST_F(EnsurePathTest, TakesEveryFormOfAPath) {
  const struct {
    const char *acLabel, *acPath, *acMade;
  } rRows[] = {
      {"relative", "r1/r2", "r1/r2"},        {"one character", "x", "x"},
      {"trailing slash", "t1/t2/", "t1/t2"}, {"doubled slash", "d1//d2", "d1/d2"},
      {"dots in front", "./p1/p2", "p1/p2"}, {"blank and quote", "b 'q/c", "b 'q/c"},
  };
  for (const auto& rRow : rRows) {
    EnsurePath(rRow.acPath);
    EXPECT_TRUE(file_exists(strFolder + "/" + rRow.acMade)) << rRow.acLabel;
  }
}

TEST_F(EnsurePathTest, EmptyPathAndRootMakeNothing) {
  EnsurePath("");
  EnsurePath("/");
  EXPECT_EQ(rmdir(strFolder.c_str()), 0) << "the folder is not empty";
}

TEST_F(EnsurePathTest, FileInTheWayIsKept) {
  WriteTestFile("file", "content");
  EnsurePath("file/below");
  EXPECT_EQ(ReadTestFile("file"), "content");
}

TEST_F(EnsurePathTest, LinkBelowTheRecordingsIsNotFollowed) {
  ASSERT_EQ(mkdir("foreign", 0777), 0);
  ASSERT_EQ(symlink((strFolder + "/foreign").c_str(), "/recordings/2024"), 0);
  EnsurePath("/recordings/2024/01");
  EXPECT_EQ(rmdir("foreign"), 0) << "the folder is not empty";
  struct stat rStat = {};
  EXPECT_EQ(lstat("/recordings/2024", &rStat), 0);
  EXPECT_EQ(rStat.st_mode, static_cast<mode_t>(S_IFDIR | 0777));
  EXPECT_TRUE(file_exists("/recordings/2024/01"));
}

TEST(RemoveFileExtension, CutsAtTheLastDot) {
  const struct {
    const char *acLabel, *acPath, *acRest;
  } rRows[] = {
      {"an extension", "/a/b.wav", "/a/b"},
      {"two extensions", "b.tar.gz", "b.tar"},
      {"none", "/a/b", "/a/b"},
      {"dot file", ".profile", ""},
      {"dot at the end", "b.", "b"},
      {"the only dot stands in a folder", "/a.d/b", "/a"},
      {"empty", "", ""},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(RemoveFileExtension(rRow.acPath), rRow.acRest) << rRow.acLabel;
}

TEST(ExtractFileName, CutsAtTheLastSlash) {
  const struct {
    const char *acLabel, *acPath, *acName;
  } rRows[] = {
      {"whole path", "/a/b/c.wav", "c.wav"},
      {"no slash", "c.wav", "c.wav"},
      {"slash at the end", "/a/b/", ""},
      {"root", "/", ""},
      {"empty", "", ""},
  };
  for (const auto& rRow : rRows) EXPECT_EQ(ExtractFileName(rRow.acPath), rRow.acName) << rRow.acLabel;
}

TEST_F(FiledirTest, FileExistsCountsFoldersAndFollowsLinks) {
  WriteTestFile("file", "");
  ASSERT_EQ(symlink("file", "link"), 0);
  ASSERT_EQ(symlink("nothing", "dangling"), 0);
  EXPECT_TRUE(file_exists("file"));
  EXPECT_TRUE(file_exists(strFolder));
  EXPECT_TRUE(file_exists("link"));
  EXPECT_FALSE(file_exists("dangling"));
  EXPECT_FALSE(file_exists("missing"));
  EXPECT_FALSE(file_exists("file/below"));
  EXPECT_FALSE(file_exists(""));
}

TEST_F(FiledirTest, FileContentIsReadInPiecesOf99Bytes) {
  const std::string strLong(99, 'x');
  const struct {
    const char* acLabel;
    std::string strFile, strRead;
  } rRows[] = {
      {"empty", "", ""},
      {"lines", "a\nb\r\n\nc\n", "a\nb\r\n\nc\n"},
      {"no last line end", "a\nb", "a\nb"},
      {"one line as long as a piece", strLong + "\n", strLong + "\n"},
      {"one byte less", strLong.substr(1) + "\n", strLong.substr(1) + "\n"},
      {"a line of many pieces", std::string(1000, 'y') + "\nend", std::string(1000, 'y') + "\nend"},
      {"a NUL cuts its line", "ab\0cd\nef\n"s, "abef\n"},
      {"a NUL in front cuts the whole line", "\0cd\nef\n"s, "ef\n"},
      {"a NUL cuts its piece of a long line only", "ab\0"s + strLong + "tail\n", "ab" + strLong.substr(96) + "tail\n"},
  };
  for (const auto& rRow : rRows) {
    WriteTestFile("file", rRow.strFile);
    EXPECT_EQ(StdGetFileContent("file"), rRow.strRead) << rRow.acLabel;
  }
}

TEST_F(FiledirTest, MissingFileReadsLikeAnEmptyOne) {
  EXPECT_EQ(StdGetFileContent("missing"), "");
  EXPECT_EQ(StdGetFileContent(strFolder), "");
}

class DeleteFnTest : public FiledirTest {
 protected:
  static void SecureOn() { WriteTestFile(MARKER, ""); }
};

TEST_F(DeleteFnTest, PlainDeletionLeavesTheBytesAlone) {
  WriteTestFile("file", "recording");
  ASSERT_EQ(link("file", "second name"), 0);
  EXPECT_TRUE(DeleteFn("file"));
  EXPECT_FALSE(file_exists("file"));
  EXPECT_EQ(ReadTestFile("second name"), "recording");
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
}

TEST_F(DeleteFnTest, SecureDeletionDestroysTheBytes) {
  SecureOn();
  WriteTestFile("file", "recording");
  std::ifstream rBytes("file");  // keeps them readable when the name is gone
  EXPECT_TRUE(DeleteFn("file"));
  EXPECT_FALSE(file_exists("file"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(rBytes), {}).find("recording"), std::string::npos);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"5 Exec: shred -u 'file'"});
}

TEST_F(DeleteFnTest, FileThatIsNotShreddedStaysAndCountsAsFailed) {
  SecureOn();
  WriteTestFile("file", "recording");
  testtools::WriteScript(strFolder + "/shred", "#!/bin/sh\nexit 1\n");
  const std::string strPath = StdStringNullSafe(getenv("PATH"));
  for (const std::string& strTools : {strFolder, strFolder + "/no tools"}) {
    ASSERT_EQ(setenv("PATH", strTools.c_str(), 1), 0);
    EXPECT_FALSE(DeleteFn("file"));
    EXPECT_EQ(logsink::TakeTexts(), Texts{"5 Exec: shred -u 'file'"});
  }
  ASSERT_EQ(setenv("PATH", strPath.c_str(), 1), 0);
  {
    const testtools::NoMoreDescriptors rNone;
    EXPECT_FALSE(DeleteFn("file"));
  }
  EXPECT_EQ(ReadTestFile("file"), "recording");
}

TEST_F(DeleteFnTest, SecureDeletionOfASecondNameLeavesTheBytesAlone) {
  SecureOn();
  WriteTestFile("somebody's", "precious");
  ASSERT_EQ(link("somebody's", "file"), 0);
  EXPECT_TRUE(DeleteFn("file"));
  EXPECT_FALSE(file_exists("file"));
  EXPECT_EQ(ReadTestFile("somebody's"), "precious");
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
}

TEST_F(DeleteFnTest, LinkAndFifoAreUnlinkedAndNotFollowed) {
  for (const bool fSecure : {false, true}) {
    if (fSecure) SecureOn();
    WriteTestFile("somebody's", "precious");
    ASSERT_EQ(symlink("somebody's", "link"), 0);
    ASSERT_EQ(symlink("nothing", "dangling"), 0);
    ASSERT_EQ(mkfifo("fifo", 0666), 0);
    for (const char* acName : {"link", "dangling", "fifo"}) {
      EXPECT_TRUE(DeleteFn(acName)) << acName;
      struct stat rStat = {};
      EXPECT_NE(lstat(acName, &rStat), 0) << acName;
    }
    EXPECT_EQ(ReadTestFile("somebody's"), "precious");
    EXPECT_EQ(logsink::TakeTexts(), Texts{});
  }
}

TEST_F(DeleteFnTest, NothingIsDeletedBehindALinkBelowTheRecordings) {
  WriteTestFile("file", "precious");
  ASSERT_EQ(symlink(strFolder.c_str(), "/recordings/way"), 0);
  for (const bool fSecure : {false, true}) {
    if (fSecure) SecureOn();
    EXPECT_FALSE(DeleteFn("/recordings/way/file"));
    EXPECT_EQ(ReadTestFile("file"), "precious");
  }
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
  ASSERT_EQ(unlink("/recordings/way"), 0);
}

TEST_F(DeleteFnTest, MarkerCountsByItsPresence) {
  ASSERT_EQ(mkdir(MARKER, 0700), 0);
  WriteTestFile("file", "recording");
  EXPECT_TRUE(DeleteFn("file"));
  EXPECT_EQ(logsink::TakeTexts(), Texts{"5 Exec: shred -u 'file'"});
  ASSERT_EQ(rmdir(MARKER), 0);
}

TEST_F(DeleteFnTest, MissingFileGivesFalse) {
  EXPECT_FALSE(DeleteFn("missing"));
  SecureOn();
  EXPECT_FALSE(DeleteFn("missing"));
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
}

TEST_F(DeleteFnTest, FolderIsNotDeleted) {
  ASSERT_EQ(mkdir("folder", 0700), 0);
  EXPECT_FALSE(DeleteFn("folder"));
  SecureOn();
  EXPECT_FALSE(DeleteFn("folder"));
  EXPECT_TRUE(file_exists("folder"));
}

TEST_F(DeleteFnTest, AnyFileNameIsSafe) {
  for (const bool fSecure : {false, true}) {
    if (fSecure) SecureOn();
    for (const char* acName : {"a b", "it's", "$(touch made)", "a;touch made", "*", "a\nb", "\"q\"", "back\\slash"}) {
      WriteTestFile(acName, "recording");
      WriteTestFile("bystander", "stays");
      EXPECT_TRUE(DeleteFn(acName)) << acName;
      EXPECT_FALSE(file_exists(acName)) << acName;
      EXPECT_FALSE(file_exists("made")) << acName;
      EXPECT_EQ(ReadTestFile("bystander"), "stays") << acName;
    }
  }
}

TEST_F(DeleteFnTest, FileThatIsNotThereIsNotTold) {
  WriteTestFile("file", "recording");
  DeleteOrTell("file");
  DeleteOrTell("file");
  DeleteOrTell("no folder/file");
  SecureOn();
  DeleteOrTell("file");
  DeleteOrTell("no folder/file");
  EXPECT_EQ(logsink::TakeTexts(), Texts{});
}

TEST_F(DeleteFnTest, ReadOnlyDiskIsToldOfFilesAlone) {
  WriteTestFile("file", "recording");
  ASSERT_EQ(mount(strFolder.c_str(), strFolder.c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, strFolder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  DeleteOrTell(strFolder + "/no file");
  DeleteOrTell(strFolder + "/file");
  ASSERT_EQ(umount2(strFolder.c_str(), MNT_DETACH), 0);
  EXPECT_EQ(logsink::TakeTexts(), Texts{"3 C-api error at Remove " + strFolder + "/file: Read-only file system"});
}

TEST_F(DeleteFnTest, WhatCannotBeRemovedIsTold) {
  ASSERT_EQ(mkdir("folder", 0700), 0);
  for (const bool fSecure : {false, true}) {
    if (fSecure) SecureOn();
    DeleteOrTell("folder");
    EXPECT_EQ(logsink::TakeTexts(), Texts{"3 C-api error at Remove folder: Is a directory"});
  }
}

TEST_F(DeleteFnTest, WithoutDescriptorsWhatIsToBeShreddedIsTold) {
  for (const bool fSecure : {false, true}) {
    WriteTestFile("file", "recording");
    if (fSecure) SecureOn();
    {
      const testtools::NoMoreDescriptors rLimit;
      DeleteOrTell("file");
    }
    EXPECT_EQ(
        logsink::TakeTexts(),
        fSecure ? Texts({"5 Exec: shred -u 'file'", "3 C-api error at Remove file: Input/output error"}) : Texts());
    EXPECT_EQ(file_exists("file"), fSecure);
  }
}

TEST_F(DeleteFnTest, FileThatTheToolLeavesIsTold) {
  SecureOn();
  WriteTestFile("file", "recording");
  const std::string strPath = getenv("PATH");
  ASSERT_EQ(setenv("PATH", strFolder.c_str(), 1), 0);  // no "shred" there
  DeleteOrTell("file");
  ASSERT_EQ(setenv("PATH", strPath.c_str(), 1), 0);
  EXPECT_EQ(logsink::TakeTexts(),
            (Texts{"5 Exec: shred -u 'file'", "3 C-api error at Remove file: Input/output error"}));
  EXPECT_EQ(ReadTestFile("file"), "recording");
}

TEST_F(DeleteFnTest, NullNameGivesFalse) {
  EXPECT_FALSE(DeleteFn(nullptr));
  SecureOn();
  EXPECT_FALSE(DeleteFn(nullptr));
}

}  // namespace
