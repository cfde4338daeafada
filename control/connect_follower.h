// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include "control/messages.h"

namespace quorvex::control {

// Follows the stages of one connect. Snapshots of what was before it, or of another profile, may
// still be under way when it is asked for; its own begin with "preparing".
class ConnectFollower {
 public:
  enum class State { kAsked, kFollowing, kConnected, kFailed, kDisconnected };
  enum class KillSwitch { kSilent, kActive, kNotApplied };

  // `wanted` is the profile's id.
  explicit ConnectFollower(std::string wanted) : profileId(std::move(wanted)) {}

  // Whether the snapshot belongs to this connect.
  bool Take(const Snapshot& snapshot);
  void Take(const LogEntry& entry);

  [[nodiscard]] State GetState() const { return state; }
  [[nodiscard]] bool IsOver() const { return state > State::kFollowing; }
  [[nodiscard]] KillSwitch GetKillSwitch() const { return killSwitch; }
  // The service's sentence, once the connect has failed.
  [[nodiscard]] const std::string& Error() const { return error; }

 private:
  std::string profileId;
  State state = State::kAsked;
  KillSwitch killSwitch = KillSwitch::kSilent;
  std::string error;
};

}  // namespace quorvex::control
