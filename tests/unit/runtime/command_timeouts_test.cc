// SPDX-License-Identifier: Apache-2.0
//
// The commands' real time-outs, waited for in full.
#include <gtest/gtest.h>

#include <chrono>

#include "runtime/command_runner.h"
#include "runtime/constants.h"
#include "runtime/routes.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// For a busy machine; the commands' own ends lie beyond it.
constexpr Seconds kSlack{5};

class AHangingCommand : public test::PrivateWorld {
 protected:
  [[nodiscard]] Seconds Elapsed() const { return steady_clock::now() - began; }
  void ExpectElapsed(Seconds expected) const {
    EXPECT_GE(Elapsed().count(), expected.count());
    EXPECT_LT(Elapsed().count(), (expected + kSlack).count());
  }
  std::string text = "as before";

 private:
  steady_clock::time_point began = steady_clock::now();
};

TEST_F(AHangingCommand, IsEndedAfterTwelveSecondsWithItsSentence) {
  EXPECT_FALSE(RunCommand({"/bin/sh", "-c", "sleep 20; exit 0"}, &text));
  EXPECT_EQ(text, "The VPN engine operation timed out.");
  ExpectElapsed(Seconds(12));
}

TEST_F(AHangingCommand, WithEnvironmentIsEndedAfterTwelveSecondsWithItsSentence) {
  EXPECT_FALSE(RunCommandWithEnvironment({"/bin/sleep", "20"}, {{"A", "b"}}, &text));
  EXPECT_EQ(text, "The VPN engine operation timed out.");
  ExpectElapsed(Seconds(12));
}

TEST_F(AHangingCommand, ThatIgnoresTheSignalIsKilledAfterFifteenSecondsInGLibsWords) {
  EXPECT_FALSE(RunCommand({"/bin/sh", "-c", "trap '' TERM; sleep 30; sleep 30"}, &text));
  // `timeout` sends the last signal to its whole process group, and so dies of it as well.
  EXPECT_EQ(text, "Child process killed by signal 9");
  ExpectElapsed(Seconds(15));
}

TEST_F(AHangingCommand, IsNoLongerCapturedAfterThreeSeconds) {
  EXPECT_FALSE(CaptureCommand({"/bin/sh", "-c", "echo lost; exec sleep 20"}, &text));
  EXPECT_EQ(text, "as before");
  ExpectElapsed(Seconds(3));
}

// A listing that would suffice comes before the hang.
TEST_F(AHangingCommand, MeansNoFullRoute) {
  StandIn(kIpBinary, "echo default dev quorvexvpn; exec sleep 20");
  EXPECT_FALSE(HasFullRoute(EngineKind::kWireGuard));
  ExpectElapsed(Seconds(3));
}

}  // namespace
}  // namespace quorvex::linux_service
