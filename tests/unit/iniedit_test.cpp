#include "iniedit.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "LogSink.h"
#include "TestFiles.h"

using namespace std::string_literals;

namespace {
std::string strRefused;           // the step that fails once: then empty
std::vector<std::string> rSteps;  // those that order matters for

int iRefusal = EIO;

bool IsRefused(const std::string& strStep) {
  if (strStep != strRefused) return false;
  strRefused.clear();
  errno = iRefusal;
  return true;
}

template <typename F>
F* Real(const char* acName) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, acName));
}
}  // namespace

// This program stands in for the calls by which a file is exchanged, so that each can fail.
extern "C" FILE* fopen(const char* acPath, const char* acMode) {
  return IsRefused("fopen") ? nullptr : Real<FILE*(const char*, const char*)>("fopen")(acPath, acMode);
}

extern "C" size_t fread(void* pvBuffer, size_t uiSize, size_t uiCount, FILE* hFile) {
  if (!IsRefused("fread")) return Real<size_t(void*, size_t, size_t, FILE*)>("fread")(pvBuffer, uiSize, uiCount, hFile);
  (void)fputc('x', hFile);  // a stream that is open for reading has an error then
  return 0;
}

extern "C" int open(const char* acPath, int iFlags, ...) {
  va_list rArgs;
  va_start(rArgs, iFlags);
  const mode_t uiMode = va_arg(rArgs, mode_t);
  va_end(rArgs);
  return IsRefused("open") ? -1 : Real<int(const char*, int, mode_t)>("open")(acPath, iFlags, uiMode);
}

extern "C" ssize_t write(int iFd, const void* pvBytes, size_t uiBytes) {
  return IsRefused("write") ? -1 : Real<ssize_t(int, const void*, size_t)>("write")(iFd, pvBytes, uiBytes);
}

extern "C" int fsync(int iFd) {
  struct stat rStat {};
  (void)fstat(iFd, &rStat);
  const std::string strStep = S_ISDIR(rStat.st_mode) ? "fsync folder" : "fsync file";
  rSteps.push_back(strStep);
  return IsRefused(strStep) ? -1 : Real<int(int)>("fsync")(iFd);
}

extern "C" int rename(const char* acFrom, const char* acTo) noexcept {
  rSteps.emplace_back("rename");
  return IsRefused("rename") ? -1 : Real<int(const char*, const char*)>("rename")(acFrom, acTo);
}

namespace {

struct MergeRow {
  const char* acLabel;
  std::function<void(IniData&)> Want;
  std::string strBefore, strAfter;
};

// Runs each row through a real file, and through merge, which must agree.
void ExpectMerged(const std::vector<MergeRow>& rRows) {
  for (const MergeRow& rRow : rRows) {
    IniData rIni;
    rRow.Want(rIni);
    WriteTestFile("file.ini", rRow.strBefore);
    rIni.update("file.ini");
    EXPECT_EQ(ReadTestFile("file.ini"), rRow.strAfter) << rRow.acLabel;
    EXPECT_EQ(rIni.merge(rRow.strBefore), rRow.strAfter) << rRow.acLabel;
    EXPECT_EQ(ReadTestFile("file.ini.tmp"), "(no file)") << rRow.acLabel;
  }
}

void WantNothing(IniData& /*rIni*/) {}
void WantA(IniData& rIni) {
  rIni.set("s", "a", "1");
}
void WantDefaultA(IniData& rIni) {
  rIni.setDefault("s", "a", "1");
}

class IniEditTest : public testing::Test {
 protected:
  void SetUp() override {
    char acFolder[] = "/tmp/iniedit_XXXXXX";
    ASSERT_NE(mkdtemp(acFolder), nullptr);
    ASSERT_EQ(chdir(acFolder), 0);
    (void)logsink::Take();
  }
};

TEST_F(IniEditTest, LinesOfTheFileStayAsTheyAre) {
  const std::string strMixed =
      "first = line\n"
      "; comment in front\n"
      "\n"
      "[s]  ; text behind the header\n"
      "z = 26 ; comment\n"
      "b=2\r\n"
      "# a comment with = in it\n"
      "\t\n"
      "[empty]\n"
      "[t]\n"
      "no sign\n";
  ExpectMerged({
      {"nothing wanted", WantNothing, strMixed, strMixed},
      {"nothing wanted, no last line end", WantNothing, "[s]\na=1", "[s]\na=1"},
      {"empty file", WantNothing, "", ""},
      {"bytes that are no text", WantNothing, "[s]\n\xFF\xFE\x01 = \x80\n", "[s]\n\xFF\xFE\x01 = \x80\n"},
      {"order is kept, new keys close their section", WantA, strMixed,
       "first = line\n"
       "; comment in front\n"
       "\n"
       "[s]  ; text behind the header\n"
       "z = 26 ; comment\n"
       "b=2\r\n"
       "# a comment with = in it\n"
       "\t\n"
       "a=1\n"
       "[empty]\n"
       "[t]\n"
       "no sign\n"},
  });
}

TEST_F(IniEditTest, SetKeyIsRewritten) {
  ExpectMerged({
      {"another value", WantA, "[s]\na=0\n", "[s]\na=1\n"},
      {"blanks around the sign are gone", WantA, "[s]\n a\t = 0\n", "[s]\na=1\n"},
      {"text behind the value is gone", WantA, "[s]\na=0 ; why\n", "[s]\na=1\n"},
      {"CR LF becomes LF", WantA, "[s]\r\na=0\r\nb=2\r\n", "[s]\r\na=1\nb=2\r\n"},
      {"a missing line end is added", WantA, "[s]\na=0", "[s]\na=1\n"},
      {"a second line with the key stays", WantA, "[s]\na=0\na = 9\n", "[s]\na=1\na = 9\n"},
      {"in its place among others", WantA, "[s]\nz=9\na=0\nb=2\n", "[s]\nz=9\na=1\nb=2\n"},
      {"key of another section stays", WantA, "[t]\na=0\n[s]\na=0\n", "[t]\na=0\n[s]\na=1\n"},
      {"key in front of the first header stays", WantA, "a=0\n[s]\n", "a=0\n[s]\na=1\n"},
      {"case of the key counts", WantA, "[s]\nA=0\n", "[s]\nA=0\na=1\n"},
      {"case of the section counts", WantA, "[S]\na=0\n", "[S]\na=0\n[s]\na=1\n"},
      {"a sign in the value", WantA, "[s]\na=b=c\n", "[s]\na=1\n"},
      {"a commented key is another key", WantA, "[s]\n;a=0\n", "[s]\n;a=0\na=1\n"},
      {"value with a sign and blanks", [](IniData& rIni) { rIni.set("s", "a", " b = c "); }, "[s]\na=0\n",
       "[s]\na= b = c \n"},
      {"empty value", [](IniData& rIni) { rIni.set("s", "a", ""); }, "[s]\na=0\n", "[s]\na=\n"},
      {"empty key", [](IniData& rIni) { rIni.set("s", "", "1"); }, "[s]\n=0\n", "[s]\n=1\n"},
      {"key of blanks keeps them", [](IniData& rIni) { rIni.set("s", "  ", "1"); }, "[s]\n  =0\n =0\n",
       "[s]\n  =1\n =0\n"},
      {"the later of two sets",
       [](IniData& rIni) {
         rIni.set("s", "a", "1");
         rIni.set("s", "a", "2");
       },
       "[s]\na=0\n", "[s]\na=2\n"},
  });
}

TEST_F(IniEditTest, MissingKeysGoInFrontOfTheNextHeader) {
  const auto WantMany = [](IniData& rIni) {
    rIni.set("s", "b", "2");
    rIni.set("s", "a", "1");
    rIni.set("s", "B", "3");
    rIni.setDefault("s", "d", "4");
    rIni.setDefault("s", "c", "5");
  };
  ExpectMerged({
      {"set keys by byte order, then defaults", WantMany, "[s]\n[t]\n", "[s]\nB=3\na=1\nb=2\nc=5\nd=4\n[t]\n"},
      {"at the end of the file", WantMany, "[s]\n", "[s]\nB=3\na=1\nb=2\nc=5\nd=4\n"},
      {"behind blank lines and comments", WantA, "[s]\nz=9\n\n; next section\n\n[t]\n",
       "[s]\nz=9\n\n; next section\n\na=1\n[t]\n"},
      {"a last line without its end takes the key on", WantA, "[s]\nz=9", "[s]\nz=9a=1\n"},
      {"a header without its end too", WantA, "[s]", "[s]a=1\n"},
      {"and so the header of a new section", WantA, "[t]\nz=9", "[t]\nz=9[s]\na=1\n"},
  });
}

TEST_F(IniEditTest, DefaultGivesWayToTheFile) {
  const auto WantBoth = [](IniData& rIni) {
    rIni.set("s", "a", "1");
    rIni.setDefault("s", "a", "2");
  };
  ExpectMerged({
      {"the line of the file stays", WantDefaultA, "[s]\n a = 0 ; mine\n", "[s]\n a = 0 ; mine\n"},
      {"missing key is added", WantDefaultA, "[s]\nb=2\n", "[s]\nb=2\na=1\n"},
      {"key of another section does not count", WantDefaultA, "[t]\na=0\n[s]\n", "[t]\na=0\n[s]\na=1\n"},
      {"set and default of one key, key in the file", WantBoth, "[s]\na=0\n", "[s]\na=1\n"},
      {"set and default of one key, section without the key", WantBoth, "[s]\n", "[s]\na=1\na=2\n"},
      {"the later of two defaults",
       [](IniData& rIni) {
         rIni.setDefault("s", "a", "1");
         rIni.setDefault("s", "a", "2");
       },
       "[s]\n", "[s]\na=2\n"},
  });
}

TEST_F(IniEditTest, ReplacedSectionLosesItsKeyLines) {
  const auto WantReplaced = [](IniData& rIni) { rIni.replaceSection("s"); };
  const auto WantTable = [](IniData& rIni) {
    rIni.replaceSection("s");
    rIni.set("s", "b", "2");
    rIni.set("s", "a", "1");
    rIni.setDefault("s", "z", "8");
    rIni.setDefault("s", "y", "7");
  };
  ExpectMerged({
      {"key lines go, other lines stay", WantReplaced, "[s] x\na=0\n; comment\n\n# with = sign\nb = 1\n[t]\na=0\n",
       "[s] x\n; comment\n\n[t]\na=0\n"},
      {"set keys and all defaults close it, behind its comments", WantTable, "[s]\na=0\nz=0\n; comment\n\n[t]\nz=0\n",
       "[s]\n; comment\n\na=1\nb=2\ny=7\nz=8\n[t]\nz=0\n"},
      {"one that the file lacks is a new section", WantTable, "[t]\na=0\n", "[t]\na=0\n[s]\na=1\nb=2\ny=7\nz=8\n"},
      {"one that nobody fills is not made", WantReplaced, "[t]\na=0\n", "[t]\na=0\n"},
      {"lines in front of the first header", [](IniData& rIni) { rIni.replaceSection(""); }, "a=0\n; c\n[s]\na=0\n",
       "; c\n[s]\na=0\n"},
      {"both blocks of a section", WantReplaced, "[s]\na=0\n[t]\nt=0\n[s]\nb=0\n", "[s]\n[t]\nt=0\n[s]\n"},
  });
}

TEST_F(IniEditTest, HeaderReachesToTheLastBracket) {
  const auto WantNamed = [](const char* acName) { return [acName](IniData& rIni) { rIni.set(acName, "a", "1"); }; };
  ExpectMerged({
      {"text behind it is copied", WantA, "[s] tail\n", "[s] tail\na=1\n"},
      {"a bracket in the tail belongs to the name", WantNamed("s] x"), "[s] x] y\n", "[s] x] y\na=1\n"},
      {"blanks belong to the name", WantNamed(" s "), "[ s ]\n[s]\n", "[ s ]\na=1\n[s]\n"},
      {"a sign in the name makes no key line", WantNamed("a=b"), "[a=b]\n", "[a=b]\na=1\n"},
      {"a header without its bracket is dropped", WantA, "[s]\n[broken\na=0\n", "[s]\na=1\n"},
      {"and with a sign too", WantA, "[s]\n[a=0\n", "[s]\na=1\n"},
      {"a blank in front makes it another line", WantA, "[t]\n [s]\n", "[t]\n [s]\n[s]\na=1\n"},
      {"an empty name", WantNothing, "[]\na=0\n", "[]\na=0\n"},
      {"a lone bracket", WantNothing, "[\n[", ""},
  });
}

TEST_F(IniEditTest, SectionThatOccursTwiceIsAppliedTwice) {
  ExpectMerged({
      {"the key in both", WantA, "[s]\na=0\n[t]\n[s]\na=9\n", "[s]\na=1\n[t]\n[s]\na=1\n"},
      {"the key in the first", WantA, "[s]\na=0\n[s]\nb=2\n", "[s]\na=1\n[s]\nb=2\na=1\n"},
      {"a default", WantDefaultA, "[s]\na=0\n[s]\nb=2\n", "[s]\na=0\n[s]\nb=2\na=1\n"},
  });
}

TEST_F(IniEditTest, NewSectionsGoToTheEnd) {
  ExpectMerged({
      {"set and then defaults, into an empty file",
       [](IniData& rIni) {
         rIni.setDefault("s", "a", "2");
         rIni.set("s", "b", "1");
       },
       "", "[s]\nb=1\na=2\n"},
      {"sections by name, those of defaults alone last",
       [](IniData& rIni) {
         rIni.setDefault("a", "k", "1");
         rIni.setDefault("b", "k", "2");
         rIni.set("z", "k", "3");
         rIni.set("y", "k", "4");
         rIni.setDefault("y", "l", "5");
       },
       "[b]\n", "[b]\nk=2\n[y]\nk=4\nl=5\n[z]\nk=3\n[a]\nk=1\n"},
  });
}

TEST_F(IniEditTest, KeyInBothOfANewSectionStandsTwice) {
  ExpectMerged({{"forced value first",
                 [](IniData& rIni) {
                   rIni.set("s", "a", "1");
                   rIni.set("s", "b", "2");
                   rIni.setDefault("s", "a", "0");
                 },
                 "[t]\n", "[t]\n[s]\na=1\nb=2\na=0\n"}});
}

TEST_F(IniEditTest, KeysOfTheEmptySectionAreNeverMerged) {
  const auto WantEmpty = [](IniData& rIni) {
    rIni.set("", "a", "1");
    rIni.setDefault("", "b", "2");
  };
  ExpectMerged({
      {"an empty file", WantEmpty, "", ""},
      {"lines in front of the first header", WantEmpty, "a=0\n[s]\n", "a=0\n[s]\n"},
      {"a file that starts with a header", WantEmpty, "[s]\nx=1\n", "[s]\nx=1\n"},
      {"only a header of that name loads them", WantEmpty, "[]\na=0\n", "[]\na=1\nb=2\n"},
  });
  IniData rIni;
  WantEmpty(rIni);
  rIni.overwrite("file.ini");
  EXPECT_EQ(ReadTestFile("file.ini"), "[]\na=1\n");
}

TEST_F(IniEditTest, LongLineIsTakenInPieces) {
  const std::string strPiece(4999, 'x');
  ExpectMerged({
      {"the sign in the second piece", WantA, "[s]\n" + strPiece + "y=0\n", "[s]\n" + strPiece + "y=0\na=1\n"},
      {"a second piece with a key that is set", WantA, "[s]\n" + strPiece + "a=0\n", "[s]\n" + strPiece + "a=1\n"},
      {"one byte earlier it is one piece", WantA, "[s]\n" + strPiece.substr(2) + "=\na=0\n",
       "[s]\n" + strPiece.substr(2) + "=\na=1\n"},
      {"a second piece that looks like a header", WantA, strPiece + "[s]\n", strPiece + "[s]\na=1\n"},
      {"a line that fills the piece with its end", WantA, "[s]\n" + strPiece.substr(1) + "\na=0\n",
       "[s]\n" + strPiece.substr(1) + "\na=1\n"},
      {"the line end alone in the second piece", WantA, "[s]\n" + strPiece + "\na=0\n", "[s]\n" + strPiece + "\na=1\n"},
      {"a replaced section loses only the piece with the sign", [](IniData& rIni) { rIni.replaceSection("s"); },
       "[s]\n" + strPiece + "y=0\n", "[s]\n" + strPiece},
  });
}

TEST_F(IniEditTest, LinesWithNulBytesAreCopiedWhole) {
  const auto WantReplaced = [](IniData& rIni) { rIni.replaceSection("s"); };
  ExpectMerged({
      {"a NUL in front makes no key line", WantReplaced, "[s]\n\0a=0\n"s, "[s]\n\0a=0\n"s},
      {"a NUL inside", WantA, "[s]\nx\0y=0\nz\0\n"s, "[s]\nx\0y=0\nz\0\na=1\n"s},
  });
}

TEST_F(IniEditTest, MissingFileGetsTheSetValuesAlone) {
  IniData rIni;
  rIni.set("t", "b", "2");
  rIni.set("s", "a", "1");
  rIni.setDefault("s", "c", "3");
  rIni.setDefault("u", "d", "4");
  rIni.replaceSection("s");
  EXPECT_TRUE(rIni.update("new.ini"));
  EXPECT_EQ(ReadTestFile("new.ini"), "[s]\na=1\n[t]\nb=2\n");
  EXPECT_EQ(ReadTestFile("new.ini.tmp"), "(no file)");
  EXPECT_EQ(logsink::TakeTexts(), std::vector<std::string>{});
}

TEST_F(IniEditTest, MissingFileWithDefaultsOnlyBecomesEmpty) {
  IniData rIni;
  rIni.setDefault("s", "a", "1");
  rIni.update("new.ini");
  EXPECT_EQ(ReadTestFile("new.ini"), "");
}

TEST_F(IniEditTest, OverwriteWritesWhatDumpTells) {
  IniData rIni;
  EXPECT_EQ(rIni.dump(), "");
  rIni.set("t", "b", "2");
  rIni.set("s", "z", "");
  rIni.set("s", "a", "1");
  rIni.setDefault("s", "c", "3");
  const std::string strText = "[s]\na=1\nz=\n[t]\nb=2\n";
  EXPECT_EQ(rIni.dump(), strText);
  WriteTestFile("file.ini", "a much longer text that was there before, with = and [header]\n");
  rIni.overwrite("file.ini");
  EXPECT_EQ(ReadTestFile("file.ini"), strText);
}

TEST_F(IniEditTest, FileThatCannotBeWrittenIsSkipped) {
  IniData rIni;
  rIni.set("s", "a", "1");
  EXPECT_FALSE(rIni.overwrite("missing folder/file.ini"));
  EXPECT_FALSE(rIni.update("missing folder/file.ini"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(ReadTestFile("missing folder/file.ini"), "(no file)");
  EXPECT_EQ(logsink::TakeTexts(), std::vector<std::string>{});
}

TEST_F(IniEditTest, NoTemporaryFileLeavesTheFileAsItIs) {
  WriteTestFile("file.ini", "[s]\na=0\n");
  ASSERT_EQ(mkdir("file.ini.tmp", 0700), 0);
  IniData rIni;
  rIni.set("s", "a", "1");
  rIni.update("file.ini");
  EXPECT_EQ(ReadTestFile("file.ini"), "[s]\na=0\n");
  EXPECT_EQ(logsink::TakeTexts(), std::vector<std::string>{});
}

TEST_F(IniEditTest, NewFileTakesThePlaceOfTheOld) {
  WriteTestFile("it's the file.ini", "[s]\na=0\n");
  ASSERT_EQ(chmod("it's the file.ini", 0640), 0);
  ASSERT_EQ(chown("it's the file.ini", 1, 1), 0);
  ASSERT_EQ(link("it's the file.ini", "second name"), 0);
  WriteTestFile("it's the file.ini.tmp", "left by a crash");
  ASSERT_EQ(chmod("it's the file.ini.tmp", 0600), 0);
  const mode_t rOldMask = umask(0);
  IniData rIni;
  rIni.set("s", "a", "1");
  rIni.update("it's the file.ini");
  umask(rOldMask);
  EXPECT_EQ(ReadTestFile("it's the file.ini"), "[s]\na=1\n");
  EXPECT_EQ(ReadTestFile("second name"), "[s]\na=0\n");
  EXPECT_EQ(ReadTestFile("it's the file.ini.tmp"), "(no file)");
  struct stat rStat {};
  ASSERT_EQ(stat("it's the file.ini", &rStat), 0);
  EXPECT_EQ(rStat.st_mode & 07777, 0666u);
  EXPECT_EQ(rStat.st_uid, 0u);
  EXPECT_EQ(logsink::TakeTexts(),
            std::vector<std::string>{"5 Command: cp -p 'it'\\''s the file.ini.tmp' 'it'\\''s the file.ini'"});
}

TEST_F(IniEditTest, LinkStaysAndItsFileIsExchanged) {
  ASSERT_EQ(mkdir("elsewhere", 0700), 0);
  WriteTestFile("elsewhere/tuned.ini", "[s]\na=0\n");
  ASSERT_EQ(symlink("elsewhere/tuned.ini", "file.ini"), 0);
  IniData rIni;
  rIni.set("s", "a", "1");
  rIni.update("file.ini");
  struct stat rStat {};
  ASSERT_EQ(lstat("file.ini", &rStat), 0);
  EXPECT_TRUE(S_ISLNK(rStat.st_mode));
  EXPECT_EQ(ReadTestFile("elsewhere/tuned.ini"), "[s]\na=1\n");
  EXPECT_EQ(ReadTestFile("elsewhere/tuned.ini.tmp"), "(no file)");
}

TEST_F(IniEditTest, FileThatALinkWaitsForIsMadeAtItsEnd) {
  ASSERT_EQ(mkdir("elsewhere", 0700), 0);
  ASSERT_EQ(symlink("next.ini", "elsewhere/first.ini"), 0);
  ASSERT_EQ(symlink("elsewhere/first.ini", "file.ini"), 0);
  ASSERT_EQ(symlink("no folder/tuned.ini", "nowhere.ini"), 0);
  ASSERT_EQ(symlink("round.ini", "round.ini"), 0);
  IniData rIni;
  rIni.set("s", "a", "1");
  for (const char* acName : {"file.ini", "nowhere.ini", "round.ini"}) {
    const bool fPlace = acName == "file.ini"s;
    EXPECT_EQ(rIni.update(acName), fPlace) << acName;
    EXPECT_EQ(rIni.overwrite(acName), fPlace) << acName;
    if (acName == "round.ini"s) {
      EXPECT_EQ(errno, ELOOP);
    }
    struct stat rStat {};
    ASSERT_EQ(lstat(acName, &rStat), 0);
    EXPECT_TRUE(S_ISLNK(rStat.st_mode)) << acName;
  }
  EXPECT_EQ(ReadTestFile("elsewhere/next.ini"), "[s]\na=1\n");
  EXPECT_EQ(ReadTestFile("elsewhere/next.ini.tmp"), "(no file)");
  EXPECT_EQ(ReadTestFile(".tmp"), "(no file)");
}

TEST_F(IniEditTest, LinkUnderTheTemporaryNameIsNotFollowed) {
  WriteTestFile("file.ini", "[s]\na=0\n");
  WriteTestFile("bystander", "stays");
  ASSERT_EQ(symlink("bystander", "file.ini.tmp"), 0);
  IniData rIni;
  rIni.set("s", "a", "1");
  rIni.update("file.ini");
  EXPECT_EQ(ReadTestFile("file.ini"), "[s]\na=1\n");
  EXPECT_EQ(ReadTestFile("bystander"), "stays");
}

// A file of 905 lines on a disk that somebody else has filled.
TEST_F(IniEditTest, FullDiskLeavesTheFileWhole) {
  ASSERT_EQ(mkdir("disk", 0700), 0);
  ASSERT_EQ(mount("none", "disk", "tmpfs", 0, "size=64k"), 0);
  std::string strTuned = "[s]\n";
  for (int i = 0; i < 904; i++) strTuned += "key" + std::to_string(i) + "=hand-tuned\n";
  WriteTestFile("disk/file.ini", strTuned);
  std::ofstream rFiller("disk/filler");
  while (rFiller << std::string(100, 'x') << std::flush) {
  }
  IniData rIni;
  rIni.set("s", "a", "1");
  EXPECT_FALSE(rIni.update("disk/file.ini"));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(ReadTestFile("disk/file.ini"), strTuned);
  EXPECT_EQ(ReadTestFile("disk/file.ini.tmp"), "(no file)");
  EXPECT_FALSE(rIni.update("disk/new.ini"));
  EXPECT_EQ(ReadTestFile("disk/new.ini"), "(no file)");  // a short one would be taken for somebody's
  EXPECT_EQ(logsink::TakeTexts(), std::vector<std::string>{});

  ASSERT_EQ(unlink("disk/filler"), 0);
  rFiller.close();
  EXPECT_TRUE(rIni.update("disk/file.ini"));
  EXPECT_EQ(ReadTestFile("disk/file.ini"), strTuned + "a=1\n");
  ASSERT_EQ(umount("disk"), 0);
}

TEST_F(IniEditTest, NewFileIsOnDiskBeforeItTakesThePlace) {
  WriteTestFile("file.ini", "[s]\na=0\n");
  rSteps.clear();
  IniData rIni;
  rIni.set("s", "a", "1");
  rIni.update("file.ini");
  EXPECT_EQ(rSteps, (std::vector<std::string>{"fsync file", "rename", "fsync folder"}));
}

TEST_F(IniEditTest, RefusedStepLeavesTheOldFileAndNoTemporary) {
  for (const char* acStep : {"fopen", "fread", "open", "write", "fsync file", "rename"}) {
    SCOPED_TRACE(acStep);
    WriteTestFile("file.ini", "[s]\na=0\n");
    IniData rIni;
    rIni.set("s", "a", "1");
    strRefused = acStep;
    errno = 0;
    EXPECT_FALSE(rIni.update("file.ini"));
    EXPECT_EQ(errno, acStep == "fread"s ? EBADF : EIO);  // as the stand-in fails
    EXPECT_EQ(strRefused, "");
    EXPECT_EQ(ReadTestFile("file.ini"), "[s]\na=0\n");
    EXPECT_EQ(ReadTestFile("file.ini.tmp"), "(no file)");
  }
}

TEST_F(IniEditTest, InterruptedWriteGoesOn) {
  WriteTestFile("file.ini", "[s]\na=0\n");
  IniData rIni;
  rIni.set("s", "a", "1");
  strRefused = "write";
  iRefusal = EINTR;
  rIni.update("file.ini");
  iRefusal = EIO;
  EXPECT_EQ(strRefused, "");
  EXPECT_EQ(ReadTestFile("file.ini"), "[s]\na=1\n");
}

TEST_F(IniEditTest, UpdateLeavesTheObjectAsItIs) {
  IniData rIni;
  rIni.set("s", "a", "1");
  rIni.setDefault("s", "b", "2");
  for (const char* acName : {"one.ini", "two.ini"}) {
    WriteTestFile(acName, "[s]\n");
    rIni.update(acName);
    rIni.update(acName);
    EXPECT_EQ(ReadTestFile(acName), "[s]\na=1\nb=2\n") << acName;
  }
}

// A file of whole lines, each section once, with every bracket closed: the lines that nobody asked for are all kept in
// order, and a second merge changes nothing.
TEST_F(IniEditTest, MergeOfGeneratedFilesIsStable) {
  std::mt19937 rRandom(3);
  const auto Pick = [&rRandom](const std::vector<std::string>& astrOf) { return astrOf[rRandom() % astrOf.size()]; };
  for (int i = 0; i < 500; i++) {
    IniData rIni;
    for (int iKey = 0; iKey < 4; iKey++) rIni.set(Pick({"s", "t", "u"}), Pick({"a", "b"}), Pick({"1", "2", ""}));
    rIni.setDefault(Pick({"s", "t"}), "c", "3");
    std::string strText, strForeign;
    for (const char* acSection : {"s", "v", "t"}) {
      strText += "["s + acSection + "]\n";
      for (auto iLine = rRandom() % 6; iLine > 0; iLine--) {
        const std::string strLine = Pick({"a=7\n", " b = 8\n", "c=9\n", "\n", "; note\n", "x=1\n", "# a = b\n"});
        strText += strLine;
        if (strLine == "x=1\n" || strLine == "# a = b\n" || strLine == "; note\n" || strLine == "\n")
          strForeign += strLine;
      }
    }
    const std::string strMerged = rIni.merge(strText);
    std::string strKept;
    std::istringstream rLines(strMerged);
    for (std::string strLine; std::getline(rLines, strLine);) {
      if (strLine == "x=1" || strLine == "# a = b" || strLine == "; note" || strLine.empty()) strKept += strLine + "\n";
    }
    EXPECT_EQ(strKept, strForeign) << strText;
    EXPECT_EQ(rIni.merge(strMerged), strMerged) << strText;
  }
}

}  // namespace
