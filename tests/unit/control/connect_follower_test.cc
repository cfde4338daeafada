// SPDX-License-Identifier: Apache-2.0
#include "control/connect_follower.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace quorvex::control {
namespace {

using State = ConnectFollower::State;
using KillSwitch = ConnectFollower::KillSwitch;

ConnectFollower After(std::initializer_list<Snapshot> snapshots) {
  ConnectFollower follower("home");
  for (const Snapshot& snapshot : snapshots) {
    follower.Take(snapshot);
  }
  return follower;
}

const Snapshot kPreparing = {"preparing", "home", "", 0};
const Snapshot kConnecting = {"connecting", "home", "", 0};
const Snapshot kConnected = {"connected", "home", "", 1};

TEST(AConnect, IsFollowedFromPreparingToConnected) {
  EXPECT_EQ(After({}).GetState(), State::kAsked);
  EXPECT_EQ(After({kPreparing}).GetState(), State::kFollowing);
  EXPECT_EQ(After({kPreparing, kConnecting}).GetState(), State::kFollowing);
  EXPECT_EQ(After({kPreparing, kConnecting, kConnected}).GetState(), State::kConnected);
}

TEST(AConnect, DoesNotTakeAnEarlierTunnelForItsOwn) {
  EXPECT_EQ(After({kConnected}).GetState(), State::kAsked);
  EXPECT_EQ(After({{"error", "home", "Old.", 0}}).GetState(), State::kAsked);
  EXPECT_EQ(After({{"disconnected", "", "", 0}}).GetState(), State::kAsked);
}

TEST(AConnect, DoesNotTakeAnotherProfileForItsOwn) {
  EXPECT_EQ(After({{"preparing", "office", "", 0}}).GetState(), State::kAsked);
  EXPECT_EQ(After({kPreparing, {"connected", "office", "", 1}}).GetState(), State::kFollowing);
}

TEST(AConnect, FailsWithTheServiceSSentence) {
  const ConnectFollower follower = After({kPreparing, kConnecting, {"error", "home", "No.", 0}});
  EXPECT_EQ(follower.GetState(), State::kFailed);
  EXPECT_EQ(follower.Error(), "No.");
}

TEST(AConnect, EndsWhenSomebodyDisconnects) {
  EXPECT_EQ(After({kPreparing, {"disconnecting", "home", "", 0}}).GetState(), State::kDisconnected);
  EXPECT_EQ(After({kPreparing, {"disconnected", "", "", 0}}).GetState(), State::kDisconnected);
}

TEST(AConnect, StaysAsItEnded) {
  EXPECT_EQ(After({kPreparing, kConnected, {"error", "home", "Later.", 0}}).GetState(),
            State::kConnected);
}

KillSwitch KillSwitchAfter(const std::string& message, bool following) {
  ConnectFollower follower = following ? After({kPreparing}) : After({});
  follower.Take(LogEntry{"info", message, 0});
  return follower.GetKillSwitch();
}

TEST(AConnect, KnowsTheKillSwitchByTheLog) {
  EXPECT_EQ(KillSwitchAfter("Kill switch active for this tunnel.", true), KillSwitch::kActive);
  EXPECT_EQ(KillSwitchAfter("Kill switch could not be applied: nft failed.", true),
            KillSwitch::kNotApplied);
  EXPECT_EQ(KillSwitchAfter("Preparing WireGuard tunnel.", true), KillSwitch::kSilent);
}

TEST(AConnect, DoesNotTakeAnEarlierKillSwitchForItsOwn) {
  EXPECT_EQ(KillSwitchAfter("Kill switch active for this tunnel.", false), KillSwitch::kSilent);
}

}  // namespace
}  // namespace quorvex::control
