// SPDX-License-Identifier: Apache-2.0
#include "runtime/command_runner.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::PrivateWorld;
using test::ReadFile;
using test::WriteFile;

constexpr char kUntouched[] = "as before";
constexpr char kNoTimeout[] = "The required coreutils timeout command is unavailable.";
constexpr char kTimedOut[] = "The VPN engine operation timed out.";

using Runner = bool (*)(const ArgumentVector& argv, std::string* error);

bool RunPlainly(const ArgumentVector& argv, std::string* error) {
  return RunCommand(argv, error);
}

bool RunWithVariable(const ArgumentVector& argv, std::string* error) {
  return RunCommandWithEnvironment(argv, {{"QUORVEX_CASE", "set"}}, error);
}

// What GLib itself says when it cannot start this program.
std::string StartFailureOf(const char* program) {
  GErrorSlot error;
  const GObjectPtr<GSubprocess> process(
      g_subprocess_new(G_SUBPROCESS_FLAGS_NONE, error.Out(), program, nullptr));
  EXPECT_EQ(process, nullptr);
  return error.MessageOr("it did start");
}

struct RunnerCase {
  const char* name;
  Runner run;
};

// Both status entry points, held to the same words.
class AStatusCommand : public PrivateWorld, public ::testing::WithParamInterface<RunnerCase> {
 protected:
  bool Run(const ArgumentVector& argv) { return GetParam().run(argv, &error); }
  bool RunShell(const char* script) { return Run({"/bin/sh", "-c", script}); }
  std::string error = kUntouched;
};

INSTANTIATE_TEST_SUITE_P(EntryPoints, AStatusCommand,
                         ::testing::Values(RunnerCase{"RunCommand", RunPlainly},
                                           RunnerCase{"RunCommandWithEnvironment",
                                                      RunWithVariable}),
                         test::CaseName());

TEST_P(AStatusCommand, GetsTwelveSecondsAndThreeMoreUnderTimeout) {
  Record(kTimeoutBinary);
  EXPECT_TRUE(Run({"/usr/bin/tool", "up", "a b", ""}));
  EXPECT_EQ(Calls(), std::vector<std::string>{"/usr/bin/timeout <--signal=TERM> <--kill-after=3s> "
                                              "<12s> </usr/bin/tool> <up> <a b> <>"});
}

TEST_P(AStatusCommand, LeavesTheErrorAloneWhenItSucceeds) {
  EXPECT_TRUE(Run({"/bin/true"}));
  EXPECT_EQ(error, kUntouched);
}

TEST_P(AStatusCommand, ReadsTheNullDeviceAndWritesToIt) {
  EXPECT_TRUE(
      RunShell("for n in 0 1 2; do all=\"$all$(readlink /proc/$$/fd/$n) \"; done; "
               "printf %s \"$all\" >/run/scratch/fds"));
  EXPECT_EQ(ReadFile("/run/scratch/fds"), "/dev/null /dev/null /dev/null ");
}

TEST_P(AStatusCommand, KeepsItsOutputFromTheJournal) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(RunShell("echo out; echo err >&2"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_P(AStatusCommand, InheritsTheEnvironment) {
  g_setenv("QUORVEX_INHERITED", "from the service", TRUE);
  EXPECT_TRUE(RunShell("printf %s \"$QUORVEX_INHERITED\" >/run/scratch/value"));
  g_unsetenv("QUORVEX_INHERITED");
  EXPECT_EQ(ReadFile("/run/scratch/value"), "from the service");
}

TEST_P(AStatusCommand, TurnsExitStatus124IntoATimeOut) {
  EXPECT_FALSE(RunShell("exit 124"));
  EXPECT_EQ(error, kTimedOut);
}

TEST_P(AStatusCommand, PassesOnWhatGLibSaysOfAnotherStatus) {
  for (const auto& [script, message] : std::vector<std::pair<const char*, const char*>>{
           {"exit 1", "Child process exited with code 1"},
           {"exit 123", "Child process exited with code 123"},
           {"exit 125", "Child process exited with code 125"},
           {"exit 255", "Child process exited with code 255"}}) {
    EXPECT_FALSE(RunShell(script)) << script;
    EXPECT_EQ(error, message);
  }
}

TEST_P(AStatusCommand, PassesOnWhatGLibSaysOfASignal) {
  EXPECT_FALSE(RunShell("kill -KILL $$"));
  EXPECT_EQ(error, "Child process killed by signal 9");
}

TEST_P(AStatusCommand, ThatIsNotThereFailsWithTheStatusOfTimeout) {
  EXPECT_FALSE(Run({"/nonexistent/tool"}));
  EXPECT_EQ(error, "Child process exited with code 127");
}

TEST_P(AStatusCommand, WithoutArgumentsIsRejectedByTimeout) {
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(error, "Child process exited with code 125");
}

TEST_P(AStatusCommand, WithoutArgumentsStillBringsThePrefix) {
  Record(kTimeoutBinary);
  EXPECT_TRUE(Run({}));
  EXPECT_EQ(Calls(),
            std::vector<std::string>{"/usr/bin/timeout <--signal=TERM> <--kill-after=3s> <12s>"});
}

TEST_P(AStatusCommand, IsNotStartedWithoutTimeout) {
  Uninstall(kTimeoutBinary);
  EXPECT_FALSE(Run({"/bin/touch", "/run/scratch/started"}));
  EXPECT_EQ(error, kNoTimeout);
  EXPECT_FALSE(test::Exists("/run/scratch/started"));
}

TEST_P(AStatusCommand, IsNotStartedUnderATimeoutThatMayNotBeExecuted) {
  Uninstall(kTimeoutBinary);
  WriteFile(kTimeoutBinary, "#!/bin/sh\ntouch /run/scratch/started\n", 0644);
  EXPECT_FALSE(Run({"/bin/true"}));
  EXPECT_EQ(error, kNoTimeout);
  EXPECT_FALSE(test::Exists("/run/scratch/started"));
}

TEST_P(AStatusCommand, SaysWhatGLibSaysWhenTimeoutCannotBeStarted) {
  Uninstall(kTimeoutBinary);
  WriteFile(kTimeoutBinary, "#!/nonexistent/interpreter\n", 0755);
  EXPECT_FALSE(Run({"/bin/true"}));
  EXPECT_EQ(error, StartFailureOf(kTimeoutBinary));
  EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;
}

class ACommandWithEnvironment : public PrivateWorld {
 protected:
  // What the child sees of a variable; "unset" when it has none.
  std::string Seen(const EnvironmentList& environment, const std::string& variable) {
    const std::string script = "printf %s \"${" + variable + "-unset}\" >/run/scratch/value";
    std::string error;
    EXPECT_TRUE(RunCommandWithEnvironment({"/bin/sh", "-c", script.c_str()}, environment, &error))
        << error;
    return ReadFile("/run/scratch/value");
  }
};

TEST_F(ACommandWithEnvironment, ReplacesThePathEntirely) {
  EXPECT_EQ(Seen({{"PATH", "/usr/libexec/quorvexvpn:/usr/sbin:/usr/bin"}}, "PATH"),
            "/usr/libexec/quorvexvpn:/usr/sbin:/usr/bin");
}

TEST_F(ACommandWithEnvironment, SeesEveryListedVariable) {
  const EnvironmentList environment = {{"QUORVEX_A", "1"}, {"QUORVEX_B", "two = 2"}};
  EXPECT_EQ(Seen(environment, "QUORVEX_A"), "1");
  EXPECT_EQ(Seen(environment, "QUORVEX_B"), "two = 2");
}

TEST_F(ACommandWithEnvironment, SeesTheLastOfTwoValues) {
  EXPECT_EQ(Seen({{"QUORVEX_A", "first"}, {"QUORVEX_A", "last"}}, "QUORVEX_A"), "last");
}

TEST_F(ACommandWithEnvironment, LeavesTheServicesOwnEnvironmentAlone) {
  EXPECT_EQ(Seen({{"QUORVEX_A", "1"}}, "QUORVEX_A"), "1");
  EXPECT_EQ(g_getenv("QUORVEX_A"), nullptr);
  EXPECT_EQ(Seen({}, "QUORVEX_A"), "unset");
}

class ACapturedCommand : public PrivateWorld {
 protected:
  bool RunShell(const char* script) { return CaptureCommand({"/bin/sh", "-c", script}, &output); }
  std::string output = kUntouched;
};

TEST_F(ACapturedCommand, GetsThreeSecondsAndOneMoreUnderTimeout) {
  Record(kTimeoutBinary);
  EXPECT_TRUE(CaptureCommand({"/usr/sbin/ip", "-4", "route"}, &output));
  EXPECT_EQ(Calls(), std::vector<std::string>{"/usr/bin/timeout <--signal=TERM> <--kill-after=1s> "
                                              "<3s> </usr/sbin/ip> <-4> <route>"});
}

TEST_F(ACapturedCommand, ReplacesTheOutputByWhatItWrote) {
  EXPECT_TRUE(RunShell("printf 'default dev x\\n\\303\\244\\n'"));
  EXPECT_EQ(output, "default dev x\n\xc3\xa4\n");
}

TEST_F(ACapturedCommand, GivesAnEmptyTextWhenItWritesNothing) {
  EXPECT_TRUE(RunShell("exit 0"));
  EXPECT_EQ(output, "");
}

TEST_F(ACapturedCommand, MayWriteMoreThanAPipeHolds) {
  EXPECT_TRUE(RunShell("head -c 1000000 /dev/zero | tr '\\0' x"));
  EXPECT_EQ(output, std::string(1000000, 'x'));
}

TEST_F(ACapturedCommand, ReadsTheNullDeviceAndKeepsItsErrorsToItself) {
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(RunShell("readlink /proc/self/fd/0; echo err >&2"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(output, "/dev/null\n");
}

struct FailedCapture {
  const char* name;
  const char* script;
};

class AFailedCapture : public ACapturedCommand,
                       public ::testing::WithParamInterface<FailedCapture> {};

INSTANTIATE_TEST_SUITE_P(Reasons, AFailedCapture,
                         ::testing::Values(FailedCapture{"ExitStatus1WithoutOutput", "exit 1"},
                                           FailedCapture{"ExitStatus1AfterOutput",
                                                         "echo lost; exit 1"},
                                           FailedCapture{"ExitStatus124", "echo lost; exit 124"},
                                           FailedCapture{"Signal", "echo lost; kill -KILL $$"},
                                           FailedCapture{"InvalidUtf8", "printf 'a\\377b'"},
                                           FailedCapture{"CutUtf8", "printf 'a\\303'"}),
                         test::CaseName());

TEST_P(AFailedCapture, LeavesTheOutputAsItWas) {
  EXPECT_FALSE(RunShell(GetParam().script));
  EXPECT_EQ(output, kUntouched);
}

TEST_F(ACapturedCommand, IsNotStartedWithoutTimeout) {
  Uninstall(kTimeoutBinary);
  EXPECT_FALSE(RunShell("touch /run/scratch/started"));
  EXPECT_EQ(output, kUntouched);
  EXPECT_FALSE(test::Exists("/run/scratch/started"));
}

TEST_F(ACapturedCommand, IsNotStartedUnderATimeoutThatMayNotBeExecuted) {
  Uninstall(kTimeoutBinary);
  WriteFile(kTimeoutBinary, "#!/bin/sh\necho wrong\n", 0644);
  EXPECT_FALSE(RunShell("exit 0"));
  EXPECT_EQ(output, kUntouched);
}

TEST_F(ACapturedCommand, FailsWhenTimeoutCannotBeStarted) {
  Uninstall(kTimeoutBinary);
  WriteFile(kTimeoutBinary, "#!/nonexistent/interpreter\n", 0755);
  EXPECT_FALSE(RunShell("exit 0"));
  EXPECT_EQ(output, kUntouched);
}

struct TrimCase {
  const char* name;
  std::string text;
  std::string trimmed;
};

class TrimmedText : public ::testing::TestWithParam<TrimCase> {};

INSTANTIATE_TEST_SUITE_P(
    Cases, TrimmedText,
    ::testing::Values(TrimCase{"Nothing", "", ""}, TrimCase{"OnlyWhiteSpace", " \t\n\v\f\r", ""},
                      TrimCase{"OneBlank", " ", ""}, TrimCase{"NothingToTrim", "ab", "ab"},
                      TrimCase{"InnerBlankStays", "\t a b \r\n", "a b"},
                      TrimCase{"EveryKindOfWhiteSpace", " \t\n\v\f\rx \t\n\v\f\r", "x"},
                      TrimCase{"OnlyInFront", "  x", "x"}, TrimCase{"OnlyBehind", "x  ", "x"},
                      TrimCase{"NoBreakSpaceStays", "\xc2\xa0x", "\xc2\xa0x"},
                      TrimCase{"NulIsNoWhiteSpace", std::string(" \0 ", 3), std::string("\0", 1)}),
    test::CaseName());

TEST_P(TrimmedText, LosesWhiteSpaceAtItsEndsOnly) {
  EXPECT_EQ(TrimWhitespace(GetParam().text), GetParam().trimmed);
}

}  // namespace
}  // namespace quorvex::linux_service
