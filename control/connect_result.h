// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "control/connect_follower.h"
#include "control/exit_codes.h"
#include "control/failure.h"

namespace quorvex::control {

// How a `connect` ended.
struct ConnectResult {
  int exitCode = kExitFailure;
  // Nothing when the tunnel is up.
  std::optional<Failure> failure;
  ConnectFollower::KillSwitch killSwitch = ConnectFollower::KillSwitch::kSilent;
  std::int64_t milliseconds = 0;
};

// Of a tunnel that is up; lines for people.
[[nodiscard]] std::string ConnectText(const ConnectResult& result, const std::string& profileId,
                                      const std::string& protocol);
// Of either end; one line without its end.
[[nodiscard]] std::string ConnectJson(const ConnectResult& result, const std::string& profileId,
                                      const std::string& protocol);

}  // namespace quorvex::control
