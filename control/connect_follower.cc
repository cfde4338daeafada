// SPDX-License-Identifier: Apache-2.0
#include "control/connect_follower.h"

#include <string_view>

namespace quorvex::control {
namespace {

constexpr std::string_view kKillSwitchActive = "Kill switch active for this tunnel.";
constexpr std::string_view kKillSwitchNotApplied = "Kill switch could not be applied: ";

}  // namespace

bool ConnectFollower::Take(const Snapshot& snapshot) {
  const bool ours = snapshot.profile == profileId;
  if (state == State::kAsked) {
    state = ours && snapshot.stage == "preparing" ? State::kFollowing : State::kAsked;
    return state == State::kFollowing;
  }
  if (IsOver()) {
    return false;
  }
  if (snapshot.stage == "connected" && ours) {
    state = State::kConnected;
  } else if (snapshot.stage == "error") {
    state = State::kFailed;
    error = snapshot.lastError;
  } else if (snapshot.stage == "disconnecting" || snapshot.stage == "disconnected") {
    state = State::kDisconnected;
  }
  return true;
}

void ConnectFollower::Take(const LogEntry& entry) {
  if (state != State::kFollowing) {
    return;
  }
  if (entry.message == kKillSwitchActive) {
    killSwitch = KillSwitch::kActive;
  } else if (entry.message.starts_with(kKillSwitchNotApplied)) {
    killSwitch = KillSwitch::kNotApplied;
  }
}

}  // namespace quorvex::control
