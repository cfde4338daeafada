// SPDX-License-Identifier: Apache-2.0
//
// Small programs in the place of nft and timeout, for exact recording and for faults. What the real
// nft does stands in kill_switch_test.cc.
#include "killswitch/nft_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "runtime/constants.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::Exists;
using test::ReadFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kUntouched[] = "as before";
constexpr char kUnavailable[] = "nftables is unavailable. Repair the QuorvexVPN installation.";
constexpr char kCannotRun[] = "Unable to run the nftables leak-protection command.";
constexpr char kFailed[] = "The nftables leak-protection command failed.";
constexpr char kInput[] = "/run/scratch/input";
constexpr char kReadInput[] = "cat >/run/scratch/input";

class AnNftCommand : public test::PrivateWorld {
 protected:
  AnNftCommand() {
    // As in the service: a child that ends without reading must not end it.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  }
  bool Run(const std::vector<std::string>& arguments, const std::string& input = "") {
    return RunNft(arguments, input, &error);
  }
  std::string error = kUntouched;
};

TEST_F(AnNftCommand, GetsFiveSecondsAndOneMoreUnderTimeout) {
  Record(kTimeoutBinary, "cat >/dev/null");
  EXPECT_TRUE(Run({"-f", "-"}, "list ruleset\n"));
  EXPECT_THAT(Calls(), ElementsAre("/usr/bin/timeout <--signal=TERM> <--kill-after=1s> <5s> "
                                   "</usr/sbin/nft> <-f> <->"));
}

TEST_F(AnNftCommand, IsGivenItsArgumentsAsTheyAre) {
  Record(kNftBinary);
  EXPECT_TRUE(Run({"list", "two words", "", "$HOME", "--help"}));
  EXPECT_TRUE(Run({}));
  EXPECT_THAT(Calls(),
              ElementsAre("/usr/sbin/nft <list> <two words> <> <$HOME> <--help>", "/usr/sbin/nft"));
}

TEST_F(AnNftCommand, LeavesTheErrorAloneWhenItSucceeds) {
  StandIn(kNftBinary, "exit 0");
  EXPECT_TRUE(Run({}));
  EXPECT_EQ(error, kUntouched);
}

TEST_F(AnNftCommand, ReadsItsInputToTheLastByte) {
  StandIn(kNftBinary, kReadInput);
  EXPECT_TRUE(Run({"-f", "-"}, "table inet a\n# \xc3\xa4 \"b\" $c"));
  EXPECT_EQ(ReadFile(kInput), "table inet a\n# \xc3\xa4 \"b\" $c");
}

TEST_F(AnNftCommand, ReadsMoreThanAPipeHolds) {
  StandIn(kNftBinary, kReadInput);
  const std::string input(std::size_t{1} << 20U, 'x');
  EXPECT_TRUE(Run({"-f", "-"}, input));
  EXPECT_EQ(ReadFile(kInput), input);
}

TEST_F(AnNftCommand, HasAPipeForItsInputAndTheNullDeviceForItsOutput) {
  StandIn(kNftBinary,
          "for n in 0 1 2; do file=$(readlink /proc/$$/fd/$n); all=\"$all${file%%:*} \"; done; "
          "printf %s \"$all\" >/run/scratch/files");
  EXPECT_TRUE(Run({"list"}));
  EXPECT_EQ(ReadFile("/run/scratch/files"), "pipe /dev/null /dev/null ");
}

TEST_F(AnNftCommand, KeepsItsWordsToItself) {
  StandIn(kNftBinary, "echo out; echo err >&2; exit 1");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(error, kFailed);
}

TEST_F(AnNftCommand, InheritsTheEnvironment) {
  StandIn(kNftBinary, "tr '\\0' '\\n' </proc/$$/environ | sort >/run/scratch/environment");
  ASSERT_EQ(setenv("QUORVEX_INHERITED", "from the service", 1), 0);
  std::vector<std::string> expected;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    expected.emplace_back(*variable);
  }
  EXPECT_TRUE(Run({}));
  unsetenv("QUORVEX_INHERITED");
  std::istringstream lines(ReadFile("/run/scratch/environment"));
  std::vector<std::string> seen;
  for (std::string line; std::getline(lines, line);) {
    seen.push_back(line);
  }
  EXPECT_THAT(seen, ::testing::UnorderedElementsAreArray(expected));
}

struct FailureCase {
  const char* name;
  const char* script;
  std::string input;
};

class AFailingNft : public AnNftCommand, public ::testing::WithParamInterface<FailureCase> {};

INSTANTIATE_TEST_SUITE_P(Ways, AFailingNft,
                         ::testing::Values(FailureCase{"Status1", "cat >/dev/null; exit 1", "x"},
                                           FailureCase{"Status1WithoutInput", "exit 1", ""},
                                           FailureCase{"Status255", "exit 255", ""},
                                           FailureCase{"TheStatusOfATimeOut", "exit 124", ""},
                                           FailureCase{"TermSignal", "kill -TERM $$", ""},
                                           FailureCase{"KillSignal", "kill -KILL $$", ""},
                                           FailureCase{"InputNotRead", "exec <&-; exit 0",
                                                       std::string(std::size_t{1} << 20U, 'x')},
                                           FailureCase{"InputNotReadAndStatus1", "exit 1",
                                                       std::string(std::size_t{1} << 20U, 'x')}),
                         test::CaseName());

TEST_P(AFailingNft, IsReportedInOneSentence) {
  StandIn(kNftBinary, GetParam().script);
  EXPECT_FALSE(Run({"-f", "-"}, GetParam().input));
  EXPECT_EQ(error, kFailed);
}

TEST_F(AnNftCommand, FailsWhenNftCannotBeExecutedByTimeout) {
  Uninstall(kNftBinary);
  test::WriteFile(kNftBinary, "#!/nonexistent/interpreter\n", 0755);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kFailed);
}

TEST_F(AnNftCommand, IsNotRunWithoutNft) {
  Record(kTimeoutBinary);
  Uninstall(kNftBinary);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kUnavailable);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(AnNftCommand, IsNotRunThroughADanglingLink) {
  Record(kTimeoutBinary);
  Uninstall(kNftBinary);
  std::filesystem::create_symlink("/nonexistent/nft", kNftBinary);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kUnavailable);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(AnNftCommand, IsNotRunWhenNftMayNotBeExecuted) {
  Record(kTimeoutBinary);
  Uninstall(kNftBinary);
  test::WriteFile(kNftBinary, "#!/bin/sh\n", 0644);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kUnavailable);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(AnNftCommand, IsNotRunWithoutTimeout) {
  StandIn(kNftBinary, "touch /run/scratch/started");
  Uninstall(kTimeoutBinary);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kCannotRun);
  EXPECT_FALSE(Exists("/run/scratch/started"));
}

TEST_F(AnNftCommand, IsNotRunUnderATimeoutThatMayNotBeExecuted) {
  StandIn(kNftBinary, "touch /run/scratch/started");
  Uninstall(kTimeoutBinary);
  test::WriteFile(kTimeoutBinary, "#!/bin/sh\n", 0644);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kCannotRun);
  EXPECT_FALSE(Exists("/run/scratch/started"));
}

TEST_F(AnNftCommand, CannotBeRunUnderATimeoutThatDoesNotStart) {
  Uninstall(kTimeoutBinary);
  test::WriteFile(kTimeoutBinary, "#!/nonexistent/interpreter\n", 0755);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kCannotRun);
}

TEST_F(AnNftCommand, MissesNftBeforeTimeout) {
  Uninstall(kNftBinary);
  Uninstall(kTimeoutBinary);
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, kUnavailable);
}

}  // namespace
}  // namespace quorvex::linux_service
