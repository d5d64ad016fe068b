// SmallDisk: a file system of its own on a folder, which a test fills and empties. For programs in a sandbox.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <string>

class SmallDisk {
 public:
  explicit SmallDisk(const std::string& strOn) : strFolder(strOn), strFiller(strOn + "/filler") {
    EXPECT_EQ(0, mount("none", strFolder.c_str(), "tmpfs", 0, "size=256k,mode=777"));
  }
  ~SmallDisk() { (void)umount2(strFolder.c_str(), MNT_DETACH); }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  // Takes all the room that is left. New files can still be made, and stay empty.
  void Fill() const {
    const int iFile = open(strFiller.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const char acPage[4096] = {};
    while (write(iFile, acPage, sizeof acPage) > 0) continue;
    EXPECT_EQ(ENOSPC, errno);
    (void)close(iFile);
  }
  // Gives it back.
  void MakeRoom() const { EXPECT_EQ(0, unlink(strFiller.c_str())); }

 private:
  const std::string strFolder;
  const std::string strFiller;
};
