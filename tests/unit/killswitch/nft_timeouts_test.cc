// SPDX-License-Identifier: Apache-2.0
//
// An nft that hangs, waited for in full.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

#include "killswitch/kill_switch.h"
#include "runtime/constants.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr char kFailed[] = "The nftables leak-protection command failed.";

// Starting a shell on a busy machine; far below the sleep.
constexpr Seconds kSlack{2.5};

// Each writes down its process id before it hangs.
constexpr char kHang[] = "echo $$ >/run/scratch/pid; exec sleep 60";
constexpr char kIgnoreTermination[] = "trap '' TERM; echo $$ >/run/scratch/pid; sleep 60; sleep 60";

class AHangingNft : public test::PrivateWorld {
 protected:
  void ExpectElapsed(Seconds expected) const {
    const Seconds elapsed = steady_clock::now() - began;
    EXPECT_GE(elapsed.count(), expected.count());
    EXPECT_LT(elapsed.count(), (expected + kSlack).count());
  }
  static void ExpectItsEnd() {
    const pid_t child = std::stoi(test::ReadFile("/run/scratch/pid"));
    // A killed child whose parent is gone is a zombie until this world's first process reaps it.
    EXPECT_TRUE(test::Eventually([child] {
      return kill(child, 0) != 0 ||
             test::ReadFile("/proc/" + std::to_string(child) + "/stat").find(") Z ") !=
                 std::string::npos;
    }));
  }
  std::string error = "as before";

 private:
  steady_clock::time_point began = steady_clock::now();
};

TEST_F(AHangingNft, IsEndedAfterFiveSecondsWhileApplying) {
  StandIn(kNftBinary, kHang);
  EXPECT_FALSE(ApplyKillSwitch("quorvexvpn", {"192.0.2.1"}, &error));
  EXPECT_EQ(error, kFailed);
  ExpectElapsed(Seconds(5));
  ExpectItsEnd();
}

TEST_F(AHangingNft, IsEndedAfterFiveSecondsWhileRemoving) {
  StandIn(kNftBinary, kHang);
  EXPECT_FALSE(RemoveKillSwitch(&error));
  EXPECT_EQ(error, kFailed);
  ExpectElapsed(Seconds(5));
  ExpectItsEnd();
}

TEST_F(AHangingNft, IsEndedAfterFiveSecondsWhileAsked) {
  StandIn(kNftBinary, kHang);
  EXPECT_FALSE(KillSwitchInstalled());
  ExpectElapsed(Seconds(5));
  ExpectItsEnd();
}

TEST_F(AHangingNft, ThatIgnoresTheSignalIsKilledAfterSixSeconds) {
  StandIn(kNftBinary, kIgnoreTermination);
  EXPECT_FALSE(RemoveKillSwitch(&error));
  EXPECT_EQ(error, kFailed);
  ExpectElapsed(Seconds(6));
  ExpectItsEnd();
}

}  // namespace
}  // namespace quorvex::linux_service
