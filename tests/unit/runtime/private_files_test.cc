// SPDX-License-Identifier: Apache-2.0
#include "runtime/private_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>

#include "runtime/constants.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

namespace fs = std::filesystem;
using test::Exists;
using test::ModeOf;
using test::ReadFile;
using test::WriteFile;

constexpr char kUntouched[] = "as before";

class APrivateFile : public test::PrivateWorld {
 protected:
  bool Write(const std::string& contents) { return WritePrivateFile(path, contents, &error); }
  const char* path = kSingBoxConfig;
  std::string error = kUntouched;
};

TEST_F(APrivateFile, IsWrittenIntoADirectoryOfItsOwn) {
  EXPECT_TRUE(Write("secret"));
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(ReadFile(path), "secret");
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(ModeOf(kRuntimeDirectory), 0700U);
}

TEST_F(APrivateFile, IsPrivateUnderAnyUmask) {
  const mode_t before = umask(0);
  EXPECT_TRUE(Write("secret"));
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(ModeOf(kRuntimeDirectory), 0700U);
  fs::remove_all(kRuntimeDirectory);
  umask(0777);
  EXPECT_TRUE(Write("secret"));
  umask(before);
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(ModeOf(kRuntimeDirectory), 0700U);
}

TEST_F(APrivateFile, TightensADirectoryThatWasOpen) {
  fs::create_directories(kRuntimeDirectory);
  ASSERT_EQ(chmod(kRuntimeDirectory, 0755), 0);
  EXPECT_TRUE(Write("secret"));
  EXPECT_EQ(ModeOf(kRuntimeDirectory), 0700U);
}

TEST_F(APrivateFile, ReplacesAnOlderOneAndItsMode) {
  WriteFile(path, "older and longer", 0644);
  const ino_t inode = [this] {
    struct stat status = {};
    EXPECT_EQ(stat(path, &status), 0);
    return status.st_ino;
  }();
  EXPECT_TRUE(Write("new"));
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(ModeOf(path), 0600U);
  struct stat status = {};
  ASSERT_EQ(stat(path, &status), 0);
  EXPECT_EQ(status.st_ino, inode) << "The older file was to be truncated, not replaced.";
}

TEST_F(APrivateFile, MayBeEmpty) {
  EXPECT_TRUE(Write(""));
  EXPECT_EQ(ReadFile(path), "");
  EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(APrivateFile, MayHoldAnything) {
  std::string contents(3000000, 'x');
  contents[1] = '\0';
  EXPECT_TRUE(Write(contents));
  EXPECT_EQ(ReadFile(path), contents);
}

TEST_F(APrivateFile, IsNotWrittenThroughASymbolicLink) {
  WriteFile("/run/scratch/target", "theirs");
  fs::create_directories(kRuntimeDirectory);
  fs::create_symlink("/run/scratch/target", path);
  EXPECT_FALSE(Write("secret"));
  EXPECT_EQ(error,
            "Unable to create the private VPN configuration: Too many levels of symbolic links");
  EXPECT_EQ(ReadFile("/run/scratch/target"), "theirs");
  EXPECT_EQ(ModeOf("/run/scratch/target"), 0644U);
  EXPECT_TRUE(fs::is_symlink(path));
}

TEST_F(APrivateFile, DoesNotCreateTheTargetOfADanglingLink) {
  fs::create_directories(kRuntimeDirectory);
  fs::create_symlink("/run/scratch/target", path);
  EXPECT_FALSE(Write("secret"));
  EXPECT_FALSE(Exists("/run/scratch/target"));
}

TEST_F(APrivateFile, DoesNotReplaceADirectory) {
  fs::create_directories(path);
  EXPECT_FALSE(Write("secret"));
  EXPECT_EQ(error, "Unable to create the private VPN configuration: Is a directory");
  EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(APrivateFile, NeedsADirectoryWhereItsDirectoryBelongs) {
  WriteFile(kRuntimeDirectory, "in the way");
  EXPECT_FALSE(Write("secret"));
  EXPECT_EQ(error, "Unable to create the private runtime directory: Not a directory");
  EXPECT_EQ(ReadFile(kRuntimeDirectory), "in the way");
}

class APrivateFileOnAFullDisk : public APrivateFile {
 protected:
  void SetUp() override {
    APrivateFile::SetUp();
    test::Shell("mkdir /run/quorvexvpn && mount -t tmpfs -o size=16k tmpfs /run/quorvexvpn");
  }
  void TearDown() override {
    test::Shell("umount /run/quorvexvpn");
    APrivateFile::TearDown();
  }
};

TEST_F(APrivateFileOnAFullDisk, IsUnlinkedAgain) {
  EXPECT_TRUE(Write(std::string(10000, 'x')));
  EXPECT_FALSE(Write(std::string(100000, 'x')));
  EXPECT_EQ(error, "Unable to write the private VPN configuration: No space left on device");
  EXPECT_FALSE(Exists(path));
}

class ARemoval : public test::PrivateWorld {
 protected:
  bool Remove() { return SecureRemoveFile(path, &error); }
  const char* path = kXrayConfig;
  std::string error = kUntouched;
};

TEST_F(ARemoval, OfNothingSucceeds) {
  EXPECT_TRUE(Remove());
  EXPECT_EQ(error, kUntouched);
}

TEST_F(ARemoval, OfAnEmptyPathSucceeds) {
  EXPECT_TRUE(SecureRemoveFile("", &error));
  EXPECT_EQ(error, kUntouched);
}

TEST_F(ARemoval, LeavesZerosOfTheSameLengthBehind) {
  // A second name of the same file shows what the first one held when it went.
  for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 10000U}) {
    WriteFile(path, std::string(size, 's'));
    fs::remove("/run/quorvexvpn/second-name");
    fs::create_hard_link(path, "/run/quorvexvpn/second-name");
    EXPECT_TRUE(Remove());
    EXPECT_FALSE(Exists(path));
    EXPECT_EQ(ReadFile("/run/quorvexvpn/second-name"), std::string(size, '\0')) << size;
  }
  EXPECT_EQ(error, kUntouched);
}

TEST_F(ARemoval, OfAnEmptyFileUnlinksIt) {
  WriteFile(path, "");
  EXPECT_TRUE(Remove());
  EXPECT_FALSE(Exists(path));
  EXPECT_EQ(error, kUntouched);
}

TEST_F(ARemoval, DoesNotFollowASymbolicLink) {
  WriteFile("/run/scratch/target", "theirs");
  fs::create_directories(kRuntimeDirectory);
  fs::create_symlink("/run/scratch/target", path);
  EXPECT_FALSE(Remove());
  EXPECT_EQ(error,
            "Unable to open private runtime data for removal: Too many levels of symbolic links");
  EXPECT_EQ(ReadFile("/run/scratch/target"), "theirs");
  EXPECT_TRUE(fs::is_symlink(path));
}

TEST_F(ARemoval, LeavesADirectoryAlone) {
  fs::create_directories(path);
  EXPECT_FALSE(Remove());
  EXPECT_EQ(error, "Unable to open private runtime data for removal: Is a directory");
  EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(ARemoval, LeavesACharacterDeviceAlone) {
  fs::create_directories(kRuntimeDirectory);
  ASSERT_EQ(mknod(path, S_IFCHR | 0600, makedev(1, 3)), 0);
  EXPECT_FALSE(Remove());
  EXPECT_EQ(error, "Private runtime data is not a regular file.");
  EXPECT_TRUE(fs::is_character_file(path));
}

TEST_F(ARemoval, SaysWhyAFileCannotBeUnlinkedAndHasClearedIt) {
  // A mount point cannot be unlinked.
  WriteFile(path, "secret");
  test::Shell("mount --bind /run/quorvexvpn/xray.json /run/quorvexvpn/xray.json");
  EXPECT_FALSE(Remove());
  test::Shell("umount /run/quorvexvpn/xray.json");
  EXPECT_EQ(error, "Unable to remove private runtime data: Device or resource busy");
  EXPECT_EQ(ReadFile(path), std::string(6, '\0'));
}

}  // namespace
}  // namespace quorvex::linux_service
