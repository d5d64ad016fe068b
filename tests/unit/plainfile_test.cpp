#include "plainfile.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "TestTools.h"

namespace {
std::function<void()> AfterUnlink;  // what a neighbour does behind each name that goes
}  // namespace

extern "C" int unlinkat(int iFolder, const char* acName, int iFlags) noexcept {
  static auto* const Unlink = reinterpret_cast<int (*)(int, const char*, int)>(dlsym(RTLD_NEXT, "unlinkat"));
  const int iResult = Unlink(iFolder, acName, iFlags);
  const int iErrno = errno;
  if (AfterUnlink) AfterUnlink();
  errno = iErrno;
  return iResult;
}

namespace {

namespace fs = std::filesystem;

constexpr uid_t NEIGHBOUR = 65534;

// Each test has an empty folder of the recordings, and one elsewhere for what must not be touched.
class PlainFile : public testing::Test {
 protected:
  PlainFile() {
    fs::remove_all("/recordings");
    fs::remove_all("/tmp/private");
    fs::create_directories("/recordings/2024/01");
    fs::create_directories("/tmp/private/folder");
    WriteTestFile(SECRET, "secret");
    (void)chmod(SECRET.c_str(), 0600);
    rOldMask = umask(0);
  }
  ~PlainFile() override { umask(rOldMask); }

  static struct stat Look(const std::string& strPath) {
    struct stat rStat {};
    EXPECT_EQ(0, lstat(strPath.c_str(), &rStat)) << strPath;
    return rStat;
  }
  // What a folder holds under names that were made to free another.
  static std::vector<std::string> PutAside(const std::string& strFolder) {
    std::vector<std::string> astrFound;
    for (const auto& rEntry : fs::directory_iterator(strFolder)) {
      if (rEntry.path().filename().string().rfind("aside_", 0) == 0) astrFound.push_back(rEntry.path());
    }
    return astrFound;
  }
  void ExpectSecretIsUntouched() {
    EXPECT_EQ("secret", ReadTestFile(SECRET));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0600), Look(SECRET).st_mode);
    EXPECT_TRUE(fs::is_empty("/tmp/private/folder"));
  }

  const std::string SECRET = "/tmp/private/secret";
  const std::string NAME = "/recordings/2024/01/file";
  mode_t rOldMask = 0;
};

void BindSocket(const std::string& strPath) {
  sockaddr_un rAddress{};
  rAddress.sun_family = AF_UNIX;
  (void)strPath.copy(rAddress.sun_path, sizeof rAddress.sun_path - 1);
  const Descriptor rSocket(socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(0, bind(rSocket.Get(), reinterpret_cast<sockaddr*>(&rAddress), sizeof rAddress));
}

// What a neighbour can leave under a name, each in its own way no plain file.
struct Obstacle {
  const char* acLabel;
  void (*Put)(const std::string& strName);
};
const Obstacle OBSTACLES[] = {
    {"link to a file", [](const std::string& strName) { fs::create_symlink("/tmp/private/secret", strName); }},
    {"link to nothing", [](const std::string& strName) { fs::create_symlink("/tmp/private/made", strName); }},
    {"link to a folder", [](const std::string& strName) { fs::create_symlink("/tmp/private/folder", strName); }},
    {"FIFO", [](const std::string& strName) { ASSERT_EQ(0, mkfifo(strName.c_str(), 0666)); }},
    {"socket", BindSocket},
    {"device", [](const std::string& strName) { ASSERT_EQ(0, mknod(strName.c_str(), S_IFCHR | 0666, 0x0107)); }},
    {"second name", [](const std::string& strName) { fs::create_hard_link("/tmp/private/secret", strName); }},
    {"file of another user",
     [](const std::string& strName) {
       WriteTestFile(strName, "foreign");
       ASSERT_EQ(0, chown(strName.c_str(), NEIGHBOUR, NEIGHBOUR));
     }},
    {"empty folder", [](const std::string& strName) { fs::create_directory(strName); }},
};

}  // namespace

// -- writing anew -----------------------------------------------------------------------------------------------------

TEST_F(PlainFile, MissingFileIsMadeForAll) {
  const Descriptor rFile = OpenAnew(NAME.c_str());
  ASSERT_TRUE(rFile.IsOpen());
  EXPECT_EQ(4, write(rFile.Get(), "text", 4));
  EXPECT_EQ("text", ReadTestFile(NAME));
  EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0666), Look(NAME).st_mode);
}

TEST_F(PlainFile, OwnPlainFileIsEmptiedAndKeepsItsPlaceAndMode) {
  const std::string strName = "/tmp/private/folder/file";
  WriteTestFile(strName, "what was there before");
  ASSERT_EQ(0, chmod(strName.c_str(), 0640));
  const ino_t iBefore = Look(strName).st_ino;
  const Descriptor rFile = OpenAnew(strName.c_str());
  ASSERT_TRUE(rFile.IsOpen());
  EXPECT_EQ(0, Look(strName).st_size);
  EXPECT_EQ(iBefore, Look(strName).st_ino);
  EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0640), Look(strName).st_mode);
}

TEST_F(PlainFile, InASharedFolderAnOwnPlainFileIsReplaced) {
  WriteTestFile(NAME, "what was there before");
  const Descriptor rBefore = OpenPlain(NAME.c_str(), O_RDONLY);
  const Descriptor rFile = OpenAnew(NAME.c_str());
  ASSERT_TRUE(rFile.IsOpen());
  EXPECT_EQ("", ReadTestFile(NAME));
  char acText[4];
  EXPECT_EQ(4, read(rBefore.Get(), acText, sizeof acText));
}

TEST_F(PlainFile, WhatIsNoPlainFileMakesWayForOneThatIs) {
  for (const Obstacle& rRow : OBSTACLES) {
    SCOPED_TRACE(rRow.acLabel);
    rRow.Put(NAME);
    {
      const Descriptor rFile = OpenAnew(NAME.c_str());
      ASSERT_TRUE(rFile.IsOpen()) << strerror(errno);
      EXPECT_EQ(4, write(rFile.Get(), "text", 4));
    }
    EXPECT_EQ("text", ReadTestFile(NAME));
    EXPECT_TRUE(S_ISREG(Look(NAME).st_mode));
    EXPECT_EQ(0U, Look(NAME).st_uid);
    EXPECT_EQ(1U, Look(NAME).st_nlink);
    ExpectSecretIsUntouched();
    EXPECT_FALSE(fs::exists("/tmp/private/made"));
    fs::remove_all(NAME);
  }
  EXPECT_EQ(0U, PutAside("/recordings/2024/01").size());
}

TEST_F(PlainFile, FolderWithSomethingInItIsKeptBeside) {
  fs::create_directory(NAME);
  WriteTestFile(NAME + "/inner", "kept");
  ASSERT_TRUE(OpenAnew(NAME.c_str()).IsOpen());
  EXPECT_TRUE(S_ISREG(Look(NAME).st_mode));
  ASSERT_EQ(1U, PutAside("/recordings/2024/01").size());
  EXPECT_EQ("kept", ReadTestFile(PutAside("/recordings/2024/01")[0] + "/inner"));
}

TEST_F(PlainFile, LastNameIsNotFollowedOutsideSharedFoldersEither) {
  fs::create_symlink(SECRET, "/tmp/private/link");
  ASSERT_TRUE(OpenAnew("/tmp/private/link").IsOpen());
  EXPECT_TRUE(S_ISREG(Look("/tmp/private/link").st_mode));
  ExpectSecretIsUntouched();
}

TEST_F(PlainFile, NothingIsMadeWhereTheFolderDoesNotOpen) {
  const std::string strTooLong(256, 'x');
  const struct {
    const char* acLabel;
    std::string strPath;
    int iErrno;
  } rRows[] = {
      {"no folder", "/recordings/2024/02/file", ENOENT},
      {"no name", "", ENOENT},
      {"a file in its place", SECRET + "/file", ENOTDIR},
      {"a name that is too long", "/recordings/2024/01/" + strTooLong, ENAMETOOLONG},
      {"a folder's name that is too long", "/recordings/" + strTooLong + "/file", ENAMETOOLONG},
      {"a way out", "/recordings/2024/../../tmp/private/folder/file", EPERM},
  };
  for (const auto& rRow : rRows) {
    errno = 0;
    EXPECT_FALSE(OpenAnew(rRow.strPath.c_str()).IsOpen()) << rRow.acLabel;
    EXPECT_EQ(rRow.iErrno, errno) << rRow.acLabel;
    ExpectSecretIsUntouched();
  }
}

TEST_F(PlainFile, FileOfTheLibraryWritesFromTheStart) {
  WriteTestFile(NAME, "what was there before");
  FILE* const hFile = OpenFileAnew(NAME);
  ASSERT_NE(nullptr, hFile);
  EXPECT_EQ(4, fprintf(hFile, "text"));
  EXPECT_EQ(0, fclose(hFile));
  EXPECT_EQ("text", ReadTestFile(NAME));
  EXPECT_EQ(nullptr, OpenFileAnew("/recordings/2024/02/file"));
}

TEST_F(PlainFile, ChildrenInheritNothing) {
  const Descriptor rNew = OpenAnew(NAME.c_str());
  const Descriptor rOld = OpenPlain(NAME.c_str(), O_RDONLY);
  const Descriptor rFolder = OpenFolder("/recordings/2024");
  for (const Descriptor* prOpen : {&rNew, &rOld, &rFolder}) {
    ASSERT_TRUE(prOpen->IsOpen());
    EXPECT_EQ(FD_CLOEXEC, fcntl(prOpen->Get(), F_GETFD));
  }
}

// Nobody can foresee who is faster each time; whoever it is, the foreign file stays as it is. The neighbour here may do
// more than one who is not root: give every file a second name.
TEST_F(PlainFile, NeighbourWhoIsFasterHasNoForeignFileOpened) {
  std::atomic<bool> fStop{false};
  std::thread rNeighbour([&] {
    const std::string strOther = NAME + "_other";
    const auto Exchange = [&] {
      return renameat2(AT_FDCWD, strOther.c_str(), AT_FDCWD, NAME.c_str(), RENAME_EXCHANGE) == 0;
    };
    for (bool isLink = false; !fStop; isLink = !isLink) {
      (void)unlink(strOther.c_str());
      (void)(isLink ? symlink(SECRET.c_str(), strOther.c_str()) : link(SECRET.c_str(), strOther.c_str()));
      if (Exchange() && isLink) (void)Exchange();
      if (!isLink) (void)unlink(NAME.c_str());
    }
  });
  for (int i = 0; i < 5000; i++) {
    const Descriptor rFile = OpenAnew(NAME.c_str());
    if (rFile.IsOpen()) (void)!write(rFile.Get(), "x", 1);
  }
  fStop = true;
  rNeighbour.join();
  ExpectSecretIsUntouched();
}

TEST_F(PlainFile, NeighbourWhoIsFasterEachTimeIsGivenUp) {
  const std::string strPrivate = "/tmp/private/name";
  const struct {
    const char* acLabel;
    std::string strName;
    bool (*Try)(const std::string& strName);
  } ROWS[] = {
      {"a file anew in a shared folder", NAME,
       [](const std::string& strName) { return OpenAnew(strName.c_str()).IsOpen(); }},
      {"a file anew elsewhere", strPrivate,
       [](const std::string& strName) { return OpenAnew(strName.c_str()).IsOpen(); }},
      {"way for a tool", NAME, [](const std::string& strName) { return MakeWay(strName.c_str()); }},
  };
  for (const auto& rRow : ROWS) {
    SCOPED_TRACE(rRow.acLabel);
    int iTimes = 0;
    AfterUnlink = [&] {
      iTimes++;
      (void)symlink(SECRET.c_str(), rRow.strName.c_str());
    };
    fs::create_symlink(SECRET, rRow.strName);
    EXPECT_FALSE(rRow.Try(rRow.strName));
    AfterUnlink = nullptr;
    EXPECT_EQ(iTimes, 20);
    EXPECT_TRUE(fs::is_symlink(rRow.strName));
    fs::remove(rRow.strName);
    ExpectSecretIsUntouched();
  }
}

TEST_F(PlainFile, OnAReadOnlyDiskNothingIsMadeAndNothingMakesWay) {
  const std::string strFolder = "/recordings/2024/01";
  fs::create_symlink(SECRET, NAME);
  fs::create_directory(strFolder + "/folder");
  ASSERT_EQ(0, mount(strFolder.c_str(), strFolder.c_str(), nullptr, MS_BIND, nullptr));
  ASSERT_EQ(0, mount(nullptr, strFolder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
  const auto IsRefused = [](bool fDone) { return !fDone && errno == EROFS; };
  for (const std::string& strName : {NAME, strFolder + "/folder", strFolder + "/new"}) {
    SCOPED_TRACE(strName);
    EXPECT_TRUE(IsRefused(OpenAnew(strName.c_str()).IsOpen()));
  }
  EXPECT_TRUE(IsRefused(MakeWay(NAME.c_str())));
  EXPECT_TRUE(IsRefused(MakeWay((strFolder + "/folder").c_str())));
  EXPECT_TRUE(IsRefused(RemoveName(NAME.c_str())));
  EXPECT_TRUE(IsRefused(MakeFolders((strFolder + "/02").c_str()).IsOpen()));
  EXPECT_TRUE(IsRefused(MakeFolders((NAME + "/02").c_str()).IsOpen()));
  ASSERT_EQ(0, umount2(strFolder.c_str(), MNT_DETACH));
  EXPECT_TRUE(fs::is_symlink(NAME));
  ExpectSecretIsUntouched();
}

// -- links on the way -------------------------------------------------------------------------------------------------

TEST_F(PlainFile, LinkOnTheWayBelowASharedFolderIsNotFollowed) {
  for (const std::string strShared : {"/recordings", "/dev/shm"}) {
    fs::create_symlink("/tmp/private/folder", strShared + "/link");
    const std::string strName = strShared + "/link/file";
    EXPECT_FALSE(OpenAnew(strName.c_str()).IsOpen());
    EXPECT_EQ(ENOTDIR, errno);
    EXPECT_FALSE(OpenFolder((strShared + "/link").c_str()).IsOpen());
    ExpectSecretIsUntouched();
    WriteTestFile("/tmp/private/folder/file", "");
    EXPECT_FALSE(OpenPlain(strName.c_str(), O_RDONLY).IsOpen());
    EXPECT_FALSE(MakeWay(strName.c_str()));
    EXPECT_TRUE(fs::remove("/tmp/private/folder/file"));
    EXPECT_TRUE(fs::remove(strShared + "/link"));
  }
}

TEST_F(PlainFile, SharedFolderItselfMayBeALink) {
  fs::rename("/recordings", "/tmp/private/disk");
  fs::create_directory_symlink("/tmp/private/disk", "/recordings");
  EXPECT_TRUE(MakeFolders("/recordings/2024/02").IsOpen());
  EXPECT_TRUE(OpenAnew("/recordings/2024/02/file").IsOpen());
  EXPECT_TRUE(fs::exists("/tmp/private/disk/2024/02/file"));
  EXPECT_TRUE(fs::remove("/recordings"));
}

TEST_F(PlainFile, LinksElsewhereAreTheInstallations) {
  fs::create_directory_symlink("/tmp/private/folder", "/tmp/private/link");
  EXPECT_TRUE(OpenAnew("/tmp/private/link/file").IsOpen());
  EXPECT_TRUE(fs::exists("/tmp/private/folder/file"));
}

// -- what is there ----------------------------------------------------------------------------------------------------

TEST_F(PlainFile, PlainFileOpensWithItsBytes) {
  WriteTestFile(NAME, "text");
  char acText[8] = {};
  EXPECT_EQ(4, read(OpenPlain(NAME.c_str(), O_RDONLY).Get(), acText, sizeof acText));
  EXPECT_STREQ("text", acText);
  EXPECT_EQ(1, write(OpenPlain(NAME.c_str(), O_WRONLY).Get(), "T", 1));
  EXPECT_EQ("Text", ReadTestFile(NAME));
}

TEST_F(PlainFile, AllElseDoesNotOpenAndStays) {
  EXPECT_FALSE(OpenPlain(NAME.c_str(), O_RDONLY).IsOpen());
  EXPECT_EQ(ENOENT, errno);
  for (const Obstacle& rRow : OBSTACLES) {
    rRow.Put(NAME);
    const ino_t iBefore = Look(NAME).st_ino;
    for (const int iAccess : {O_RDONLY, O_WRONLY, O_RDWR}) {
      errno = 0;
      EXPECT_FALSE(OpenPlain(NAME.c_str(), iAccess).IsOpen()) << rRow.acLabel;
      EXPECT_EQ(EPERM, errno) << rRow.acLabel;
    }
    EXPECT_EQ(iBefore, Look(NAME).st_ino) << rRow.acLabel;
    fs::remove_all(NAME);
  }
}

TEST_F(PlainFile, WayIsMadeForATool) {
  EXPECT_TRUE(MakeWay(NAME.c_str()));
  WriteTestFile(NAME, "text");
  EXPECT_TRUE(MakeWay(NAME.c_str()));
  EXPECT_EQ("text", ReadTestFile(NAME));
  for (const Obstacle& rRow : OBSTACLES) {
    fs::remove_all(NAME);
    rRow.Put(NAME);
    EXPECT_TRUE(MakeWay(NAME.c_str())) << rRow.acLabel;
    struct stat rStat {};
    EXPECT_EQ(-1, lstat(NAME.c_str(), &rStat)) << rRow.acLabel;
    ExpectSecretIsUntouched();
  }
}

TEST_F(PlainFile, LookSeesTheNameItself) {
  struct stat rStat {};
  EXPECT_FALSE(LookAt(NAME.c_str(), rStat));
  EXPECT_EQ(ENOENT, errno);
  fs::create_symlink(SECRET, NAME);
  EXPECT_TRUE(LookAt(NAME.c_str(), rStat));
  EXPECT_TRUE(S_ISLNK(rStat.st_mode));
  fs::create_directory_symlink("/tmp/private", "/recordings/way");
  EXPECT_FALSE(LookAt("/recordings/way/secret", rStat));
}

TEST_F(PlainFile, RemovedNameLeavesWhatItLeadsTo) {
  for (const Obstacle& rRow : OBSTACLES) {
    SCOPED_TRACE(rRow.acLabel);
    fs::remove_all(NAME);
    rRow.Put(NAME);
    const bool fFolder = S_ISDIR(Look(NAME).st_mode);
    EXPECT_EQ(!fFolder, RemoveName(NAME.c_str()));
    EXPECT_EQ(fFolder, fs::exists(fs::symlink_status(NAME)));
    ExpectSecretIsUntouched();
  }
  fs::create_directory_symlink("/tmp/private", "/recordings/way");
  EXPECT_FALSE(RemoveName("/recordings/way/secret"));
  ExpectSecretIsUntouched();
}

// From none up to as many as lead to the last folder but one.
TEST_F(PlainFile, NoDescriptorIsNeededToLookAndToRemove) {
  for (int iFree = 0; iFree < 4; iFree++) {
    SCOPED_TRACE(iFree);
    WriteTestFile(NAME, "text");
    fs::create_symlink(SECRET, "/recordings/2024/link");
    struct stat rStat {};
    {
      const testtools::NoMoreDescriptors rLimit(iFree);
      EXPECT_TRUE(IsPlainFile(NAME.c_str()));
      EXPECT_TRUE(LookAt("/recordings/2024/link", rStat));
      EXPECT_TRUE(RemoveName(NAME.c_str()));
      EXPECT_TRUE(RemoveName("/recordings/2024/link"));
      EXPECT_FALSE(RemoveName("/recordings/2024/01"));
      EXPECT_FALSE(RemoveName(NAME.c_str()));
      EXPECT_EQ(ENOENT, errno);
      EXPECT_FALSE(IsPlainFile(NAME.c_str()));
      EXPECT_EQ(ENOENT, errno);
    }
    EXPECT_TRUE(S_ISLNK(rStat.st_mode));
    EXPECT_FALSE(fs::exists(NAME));
    EXPECT_FALSE(fs::is_symlink("/recordings/2024/link"));
    ExpectSecretIsUntouched();
  }
}

TEST_F(PlainFile, WithoutDescriptorsNoLinkIsFollowedEither) {
  fs::create_directory_symlink("/tmp/private", "/recordings/way");
  const struct {
    const char* acLabel;
    std::string strPath;
    int iErrno;
  } rRows[] = {
      {"link", "/recordings/way/secret", ENOTDIR},
      {"link behind two slashes", "/recordings//way//secret", ENOTDIR},
      {"a folder behind a link", "/recordings/way/folder/secret", ENOTDIR},
      {"a way out", "/recordings/2024/../../tmp/private/secret", EPERM},
      {"no folder", "/recordings/2023/secret", ENOENT},
      {"a path that is too long", "/recordings/" + std::string(PATH_MAX, 'x') + "/secret", ENAMETOOLONG},
  };
  const testtools::NoMoreDescriptors rLimit;
  for (const auto& rRow : rRows) {
    struct stat rStat {};
    EXPECT_FALSE(LookAt(rRow.strPath.c_str(), rStat)) << rRow.acLabel;
    EXPECT_FALSE(RemoveName(rRow.strPath.c_str())) << rRow.acLabel;
    EXPECT_EQ(rRow.iErrno, errno) << rRow.acLabel;
    EXPECT_EQ(0, access(SECRET.c_str(), F_OK)) << rRow.acLabel;
  }
}

TEST_F(PlainFile, WithoutDescriptorsTheSharedFolderMayBeALinkToo) {
  fs::rename("/recordings", "/tmp/private/disk");
  fs::create_directory_symlink("/tmp/private/disk", "/recordings");
  WriteTestFile(NAME, "text");
  {
    const testtools::NoMoreDescriptors rLimit;
    EXPECT_TRUE(RemoveName(NAME.c_str()));
  }
  EXPECT_FALSE(fs::exists(NAME));
  EXPECT_TRUE(fs::remove("/recordings"));
}

TEST_F(PlainFile, OnlyAPlainFileIsOne) {
  WriteTestFile(NAME, "text");
  EXPECT_TRUE(IsPlainFile(NAME.c_str()));
  for (const Obstacle& rRow : OBSTACLES) {
    SCOPED_TRACE(rRow.acLabel);
    fs::remove_all(NAME);
    rRow.Put(NAME);
    EXPECT_FALSE(IsPlainFile(NAME.c_str()));
    EXPECT_EQ(EPERM, errno);
  }
}

TEST_F(PlainFile, MovedFileReplacesNone) {
  WriteTestFile(NAME, "text");
  WriteTestFile("/recordings/taken", "other");
  EXPECT_FALSE(MoveTo(NAME.c_str(), "/recordings/taken"));
  EXPECT_EQ(EEXIST, errno);
  EXPECT_TRUE(MoveTo(NAME.c_str(), "/recordings/free"));
  EXPECT_EQ("text", ReadTestFile("/recordings/free"));
  EXPECT_EQ("other", ReadTestFile("/recordings/taken"));
  fs::create_directory_symlink("/tmp/private/folder", "/recordings/way");
  EXPECT_FALSE(MoveTo("/recordings/free", "/recordings/way/free"));
  ExpectSecretIsUntouched();
}

// -- folders ----------------------------------------------------------------------------------------------------------

TEST_F(PlainFile, MissingFoldersAreMadeForAll) {
  const Descriptor rFolder = MakeFolders("/recordings/2024/02/03");
  ASSERT_TRUE(rFolder.IsOpen());
  EXPECT_EQ(0, fsync(rFolder.Get()));
  for (const char* acPath : {"/recordings/2024/02", "/recordings/2024/02/03"}) {
    EXPECT_EQ(static_cast<mode_t>(S_IFDIR | 0777), Look(acPath).st_mode) << acPath;
  }
  EXPECT_EQ(Look("/recordings/2024/02/03").st_ino, [&] {
    struct stat rStat {};
    EXPECT_EQ(0, fstat(rFolder.Get(), &rStat));
    return rStat.st_ino;
  }());
}

TEST_F(PlainFile, WhatIsNoFolderIsKeptBesideAFolderThatIs) {
  for (const Obstacle& rRow : OBSTACLES) {
    if (strcmp(rRow.acLabel, "empty folder") == 0) continue;
    SCOPED_TRACE(rRow.acLabel);
    fs::remove_all("/recordings/2024");
    rRow.Put("/recordings/2024");
    const ino_t iBefore = Look("/recordings/2024").st_ino;
    EXPECT_TRUE(MakeFolders("/recordings/2024/01").IsOpen());
    EXPECT_TRUE(S_ISDIR(Look("/recordings/2024").st_mode));
    EXPECT_TRUE(S_ISDIR(Look("/recordings/2024/01").st_mode));
    ExpectSecretIsUntouched();
    ASSERT_EQ(1U, PutAside("/recordings").size());
    EXPECT_EQ(iBefore, Look(PutAside("/recordings")[0]).st_ino);
    fs::remove(PutAside("/recordings")[0]);
  }
}

TEST_F(PlainFile, OutsideSharedFoldersNothingMakesWayForAFolder) {
  EXPECT_FALSE(MakeFolders((SECRET + "/below").c_str()).IsOpen());
  EXPECT_EQ(ENOTDIR, errno);
  ExpectSecretIsUntouched();
}
