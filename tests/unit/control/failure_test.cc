// SPDX-License-Identifier: Apache-2.0
#include "control/failure.h"

#include <gtest/gtest.h>

#include "control/exit_codes.h"
#include "control/json_text.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::control {
namespace {

// Scripts have these numbers written in them.
static_assert(kExitOk == 0 && kExitFailure == 1 && kExitUsage == 2 && kExitUnreachable == 3);
static_assert(kExitNotAuthorized == 4 && kExitProfileRefused == 5 && kExitConnectionFailed == 6);
static_assert(kExitBusy == 7 && kExitNoKillSwitch == 8);
static_assert(kExitInterrupted == 130 && kExitTerminated == 143);

struct ErrorCase {
  const char* name;
  const char* errorName;
  int exitCode;
};

class AnErrorOfTheBus : public ::testing::TestWithParam<ErrorCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, AnErrorOfTheBus,
    ::testing::Values(
        ErrorCase{"ShuttingDown", "org.quorvexvpn.Error.ShuttingDown", 3},
        ErrorCase{"NotAuthorized", "org.quorvexvpn.Error.NotAuthorized", 4},
        ErrorCase{"WireGuardUnavailable", "org.quorvexvpn.Error.WireGuardUnavailable", 1},
        ErrorCase{"InvalidProfile", "org.quorvexvpn.Error.InvalidProfile", 5},
        ErrorCase{"RuntimeUnavailable", "org.quorvexvpn.Error.RuntimeUnavailable", 6},
        ErrorCase{"Busy", "org.quorvexvpn.Error.Busy", 7},
        ErrorCase{"UnknownMethod", "org.quorvexvpn.Error.UnknownMethod", 1},
        ErrorCase{"AccessDenied", "org.freedesktop.DBus.Error.AccessDenied", 4},
        ErrorCase{"ServiceUnknown", "org.freedesktop.DBus.Error.ServiceUnknown", 3},
        ErrorCase{"NameHasNoOwner", "org.freedesktop.DBus.Error.NameHasNoOwner", 3},
        ErrorCase{"NoReply", "org.freedesktop.DBus.Error.NoReply", 3},
        ErrorCase{"SpawnChildExited", "org.freedesktop.DBus.Error.Spawn.ChildExited", 3},
        ErrorCase{"SpawnServiceNotFound", "org.freedesktop.DBus.Error.Spawn.ServiceNotFound", 3},
        ErrorCase{"OnThisSide", "", 3}, ErrorCase{"Unknown", "org.example.Error.Odd", 1}),
    test::CaseName());

TEST_P(AnErrorOfTheBus, HasItsExitCodeAndKeepsItsSentence) {
  const Failure failure = FailureOfBusError(GetParam().errorName, "A sentence.");
  EXPECT_EQ(failure.exitCode, GetParam().exitCode);
  EXPECT_EQ(failure.message, "A sentence.");
}

TEST(AnErrorOfTheBus, WithoutASentenceSaysThat) {
  EXPECT_EQ(FailureOfBusError("org.quorvexvpn.Error.WireGuardUnavailable", "").message,
            "The service gave no reason.");
}

TEST(AJsonText, IsTextWhateverTheBytesOfAFilesName) {
  EXPECT_EQ(JsonText().String("file", "h\xff.conf").End(), "{\"file\":\"h\ufffd.conf\"}");
}

TEST(ARefusalByPolkit, SaysWhatToDoInOneLine) {
  const std::string hint = FailureOfBusError("org.quorvexvpn.Error.NotAuthorized", "Denied.").hint;
  EXPECT_NE(hint.find("pkttyagent"), std::string::npos);
  EXPECT_NE(hint.find("rule"), std::string::npos);
  EXPECT_EQ(hint.find('\n'), std::string::npos);
}

}  // namespace
}  // namespace quorvex::control
