// SPDX-License-Identifier: Apache-2.0
//
// The private files' system calls in their order, and what becomes of a file when one of them
// fails. The answers of failing calls are made up: no real disk fails on demand.
#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "runtime/constants.h"
#include "runtime/private_files.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"
#include "tests/unit/runtime/system_call_watch.h"

namespace quorvex::linux_service {
namespace {

using test::Answer;
using test::Exists;
using test::ReadFile;
using test::SystemCall;
using test::WriteFile;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr char kUntouched[] = "as before";
constexpr char kContents[] = "the secret";

// All that the two operations may need, under every name that the C library may choose.
const std::vector<const char*> kFileCalls = {
    "mkdir", "mkdirat", "chmod", "fchmodat",   "open",     "openat",    "fchmod", "write",
    "fsync", "close",   "fstat", "newfstatat", "pwrite64", "ftruncate", "unlink", "unlinkat"};

// One name for what the C library calls by several.
std::string PlainName(const std::string& name) {
  for (const auto& [alias, plain] : {std::pair{"mkdirat", "mkdir"},
                                     {"fchmodat", "chmod"},
                                     {"openat", "open"},
                                     {"newfstatat", "fstat"},
                                     {"unlinkat", "unlink"},
                                     {"pwrite64", "pwrite"}}) {
    if (name == alias) {
      return plain;
    }
  }
  return name;
}

std::vector<std::string> NamesOf(const std::vector<SystemCall>& calls) {
  std::vector<std::string> names;
  for (const SystemCall& call : calls) {
    names.push_back(PlainName(call.name));
  }
  return names;
}

// Lets the first `count` calls of one kind fail; all others do their work.
class FailFirst {
 public:
  FailFirst(std::string callName, int number, int calls)
      : name(std::move(callName)), errorNumber(number), count(calls) {}
  Answer operator()(const SystemCall& call) {
    if (PlainName(call.name) == name && count > 0) {
      --count;
      return Answer::Fail(errorNumber);
    }
    return Answer::Proceed();
  }

 private:
  std::string name;
  int errorNumber;
  int count;
};

Answer Proceed(const SystemCall& /*call*/) {
  return Answer::Proceed();
}

class FileCalls : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    // GLib reads the character set for its first error text; that is no call of ours.
    ASSERT_NE(g_strerror(EIO), nullptr);
  }
  // The result of the operation; its calls are in `calls`.
  bool Write(const test::Judge& judge) {
    bool written = false;
    const std::string contents = kContents;
    calls = test::Watch(kFileCalls, judge,
                        [&] { written = WritePrivateFile(kXrayConfig, contents, &error); });
    return written;
  }
  bool Remove(const test::Judge& judge) {
    bool removed = false;
    calls =
        test::Watch(kFileCalls, judge, [&] { removed = SecureRemoveFile(kXrayConfig, &error); });
    return removed;
  }
  std::vector<SystemCall> calls;
  std::string error = kUntouched;
};

using AWrite = FileCalls;
using ARemovalStep = FileCalls;

TEST_F(AWrite, TakesItsStepsInOrder) {
  EXPECT_TRUE(Write(Proceed));
  EXPECT_THAT(NamesOf(calls),
              ElementsAre("mkdir", "chmod", "open", "fchmod", "write", "fsync", "close"));
}

TEST_F(AWrite, OpensWithoutFollowingLinksOrLeakingTheDescriptor) {
  EXPECT_TRUE(Write(Proceed));
  ASSERT_EQ(calls.size(), 7U);
  ASSERT_EQ(calls[2].name, "openat");
  // The kernel's own O_LARGEFILE is no choice of ours.
  EXPECT_EQ(static_cast<int>(calls[2].arguments[2]) & ~O_LARGEFILE,
            O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
  EXPECT_EQ(calls[2].arguments[3], 0600U);
}

TEST_F(AWrite, DoesNothingMoreWithoutItsDirectory) {
  EXPECT_FALSE(Write(FailFirst("mkdir", EROFS, 2)));
  EXPECT_EQ(error, "Unable to create the private runtime directory: Read-only file system");
  // Making the directory may look at the folders above it.
  EXPECT_THAT(NamesOf(calls), Each(AnyOf("mkdir", "fstat")));
}

struct WriteFault {
  const char* name;
  const char* call;
  int errorNumber;
  const char* message;
  // The calls from the failing one on.
  std::vector<std::string> rest;
};

class AFailedWrite : public FileCalls, public ::testing::WithParamInterface<WriteFault> {};

INSTANTIATE_TEST_SUITE_P(
    Steps, AFailedWrite,
    ::testing::Values(
        WriteFault{"SecureDirectory",
                   "chmod",
                   EPERM,
                   "Unable to secure the private runtime directory: Operation not permitted",
                   {"chmod"}},
        WriteFault{"CreateFile",
                   "open",
                   EMFILE,
                   "Unable to create the private VPN configuration: Too many open files",
                   {"open"}},
        WriteFault{"SecureFile",
                   "fchmod",
                   EPERM,
                   "Unable to secure the private VPN configuration: Operation not permitted",
                   {"fchmod", "close", "unlink"}},
        WriteFault{"WriteContents",
                   "write",
                   EIO,
                   "Unable to write the private VPN configuration: Input/output error",
                   {"write", "close", "unlink"}},
        WriteFault{"Flush",
                   "fsync",
                   EDQUOT,
                   "Unable to persist the private VPN configuration: Disk quota exceeded",
                   {"fsync", "close", "unlink"}}),
    test::CaseName());

TEST_P(AFailedWrite, NamesItsStepAndUndoesTheFile) {
  const WriteFault& fault = GetParam();
  EXPECT_FALSE(Write(FailFirst(fault.call, fault.errorNumber, 1)));
  EXPECT_EQ(error, fault.message);
  EXPECT_FALSE(Exists(kXrayConfig));
  std::vector<std::string> names = NamesOf(calls);
  names.erase(names.begin(), std::ranges::find(names, fault.call));
  EXPECT_EQ(names, fault.rest);
}

// The text must belong to the call that failed, not to the clean-up after it.
TEST_F(AWrite, ReportsTheFirstFailureWhenTheCleanUpFailsToo) {
  EXPECT_FALSE(Write([](const SystemCall& call) {
    const std::string name = PlainName(call.name);
    if (name == "fsync") {
      return Answer::Fail(EIO);
    }
    return name == "close" || name == "unlink" ? Answer::Fail(EINTR) : Answer::Proceed();
  }));
  EXPECT_EQ(error, "Unable to persist the private VPN configuration: Input/output error");
}

TEST_F(AWrite, LeavesTheOlderFileWhenItCannotOpenIt) {
  WriteFile(kXrayConfig, "older");
  EXPECT_FALSE(Write(FailFirst("open", EACCES, 1)));
  EXPECT_EQ(ReadFile(kXrayConfig), "older");
}

TEST_F(AWrite, IsRepeatedWhenInterrupted) {
  EXPECT_TRUE(Write(FailFirst("write", EINTR, 3)));
  EXPECT_EQ(ReadFile(kXrayConfig), kContents);
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(std::ranges::count(NamesOf(calls), "write"), 4);
}

// Does the call itself, but shorter, which it can because both threads share memory and
// descriptors. Not through the C library: to ThreadSanitizer that would be a use beside the thread
// that waits.
Answer DoShorter(const SystemCall& call, int number, std::uint64_t longest) {
  return Answer::Return(syscall(number, call.arguments[0], call.arguments[1],
                                std::min(call.arguments[2], longest), call.arguments[3]));
}

Answer WriteThreeBytes(const SystemCall& call) {
  return call.name == "write" ? DoShorter(call, SYS_write, 3) : Answer::Proceed();
}

TEST_F(AWrite, GoesOnWhereAShortWriteEnded) {
  EXPECT_TRUE(Write(WriteThreeBytes));
  EXPECT_EQ(ReadFile(kXrayConfig), kContents);
  EXPECT_EQ(std::ranges::count(NamesOf(calls), "write"), 4);
}

TEST_F(AWrite, FailsWhenNothingIsWritten) {
  EXPECT_FALSE(Write([](const SystemCall& call) {
    return call.name == "write" ? Answer::Return(0) : Answer::Proceed();
  }));
  EXPECT_TRUE(error.starts_with("Unable to write the private VPN configuration: ")) << error;
  EXPECT_FALSE(Exists(kXrayConfig));
}

// The calls of one removal, with what the pwrites got.
struct Overwrite {
  std::uint64_t length;
  std::uint64_t offset;
  bool operator==(const Overwrite&) const = default;
};

std::vector<Overwrite> OverwritesIn(const std::vector<SystemCall>& calls) {
  std::vector<Overwrite> overwrites;
  for (const SystemCall& call : calls) {
    if (call.name == "pwrite64") {
      overwrites.push_back({call.arguments[2], call.arguments[3]});
    }
  }
  return overwrites;
}

TEST_F(ARemovalStep, ClearsInBlocksFromTheBeginningAndFlushesBeforeItUnlinks) {
  WriteFile(kXrayConfig, std::string(10000, 's'));
  EXPECT_TRUE(Remove(Proceed));
  EXPECT_THAT(OverwritesIn(calls),
              ElementsAre(Overwrite{4096, 0}, Overwrite{4096, 4096}, Overwrite{1808, 8192}));
  EXPECT_THAT(NamesOf(calls), ElementsAre("open", "fstat", "pwrite", "pwrite", "pwrite", "fsync",
                                          "close", "unlink"));
  EXPECT_EQ(static_cast<int>(calls[0].arguments[2]) & ~O_LARGEFILE,
            O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
}

TEST_F(ARemovalStep, WritesNothingToAnEmptyFile) {
  WriteFile(kXrayConfig, "");
  EXPECT_TRUE(Remove(Proceed));
  EXPECT_THAT(NamesOf(calls), ElementsAre("open", "fstat", "fsync", "close", "unlink"));
}

TEST_F(ARemovalStep, IsRepeatedWhenInterrupted) {
  WriteFile(kXrayConfig, std::string(5000, 's'));
  EXPECT_TRUE(Remove(FailFirst("pwrite", EINTR, 2)));
  EXPECT_THAT(OverwritesIn(calls), ElementsAre(Overwrite{4096, 0}, Overwrite{4096, 0},
                                               Overwrite{4096, 0}, Overwrite{904, 4096}));
  EXPECT_FALSE(Exists(kXrayConfig));
  EXPECT_EQ(error, kUntouched);
}

TEST_F(ARemovalStep, GoesOnWhereAShortWriteEnded) {
  WriteFile(kXrayConfig, std::string(5000, 's'));
  std::filesystem::create_hard_link(kXrayConfig, "/run/quorvexvpn/second-name");
  EXPECT_TRUE(Remove([](const SystemCall& call) {
    return call.name == "pwrite64" ? DoShorter(call, SYS_pwrite64, 3000) : Answer::Proceed();
  }));
  EXPECT_THAT(OverwritesIn(calls), ElementsAre(Overwrite{4096, 0}, Overwrite{2000, 3000}));
  EXPECT_EQ(ReadFile("/run/quorvexvpn/second-name"), std::string(5000, '\0'));
}

TEST_F(ARemovalStep, IgnoresAFailedFlush) {
  WriteFile(kXrayConfig, kContents);
  EXPECT_TRUE(Remove(FailFirst("fsync", EIO, 1)));
  EXPECT_EQ(error, kUntouched);
  EXPECT_FALSE(Exists(kXrayConfig));
}

TEST_F(ARemovalStep, SucceedsWhenTheFileHasGoneBeforeItIsUnlinked) {
  WriteFile(kXrayConfig, kContents);
  EXPECT_TRUE(Remove(FailFirst("unlink", ENOENT, 1)));
  EXPECT_EQ(error, kUntouched);
}

struct RemovalFault {
  const char* name;
  const char* call;
  int errorNumber;
  const char* message;
  std::string left;
  std::vector<std::string> rest;
};

class AFailedRemoval : public FileCalls, public ::testing::WithParamInterface<RemovalFault> {};

INSTANTIATE_TEST_SUITE_P(
    Steps, AFailedRemoval,
    ::testing::Values(
        RemovalFault{"Open",
                     "open",
                     EACCES,
                     "Unable to open private runtime data for removal: Permission denied",
                     kContents,
                     {"open"}},
        RemovalFault{"Inspect",
                     "fstat",
                     EIO,
                     "Private runtime data is not a regular file.",
                     kContents,
                     {"fstat", "close"}},
        RemovalFault{"Clear",
                     "pwrite",
                     EIO,
                     "Unable to clear private runtime data.",
                     kContents,
                     {"pwrite", "close"}},
        RemovalFault{"Unlink",
                     "unlink",
                     EPERM,
                     "Unable to remove private runtime data: Operation not permitted",
                     std::string(10, '\0'),
                     {"unlink"}}),
    test::CaseName());

TEST_P(AFailedRemoval, NamesItsStepAndLeavesTheFile) {
  const RemovalFault& fault = GetParam();
  WriteFile(kXrayConfig, kContents);
  EXPECT_FALSE(Remove(FailFirst(fault.call, fault.errorNumber, 1)));
  EXPECT_EQ(error, fault.message);
  EXPECT_EQ(ReadFile(kXrayConfig), fault.left);
  std::vector<std::string> names = NamesOf(calls);
  names.erase(names.begin(), std::ranges::find(names, fault.call));
  EXPECT_EQ(names, fault.rest);
}

TEST_F(ARemovalStep, LeavesAPartlyClearedFileWhenNothingMoreIsWritten) {
  WriteFile(kXrayConfig, std::string(5000, 's'));
  EXPECT_FALSE(Remove([blocks = 0](const SystemCall& call) mutable {
    return call.name == "pwrite64" && ++blocks == 2 ? Answer::Return(0) : Answer::Proceed();
  }));
  EXPECT_EQ(error, "Unable to clear private runtime data.");
  EXPECT_EQ(ReadFile(kXrayConfig), std::string(4096, '\0') + std::string(904, 's'));
}

}  // namespace
}  // namespace quorvex::linux_service
