// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "control/command_line.h"
#include "control/failure.h"
#include "control/fault_place.h"
#include "control/profile_file.h"

namespace quorvex::control {

// A profile as it is sent to the service.
struct Profile {
  std::string id;
  std::string protocol;
  // Why this protocol; empty when the user said it.
  std::string reason;
  SecretText config;
};

// Reads the profile that the command line names and, where it does not say it, guesses the
// protocol.
[[nodiscard]] bool LoadProfile(const CommandLine& line, Profile* profile, Failure* failure);

// What the service's rules say of a profile: the sentence, empty when it passes, and the place.
struct Verdict {
  std::string sentence;
  std::optional<FaultPlace> place;
};
[[nodiscard]] Verdict Judge(const Profile& profile);

// "WireGuard profile \"home\" (protocol wireGuard, as the text has ...)".
[[nodiscard]] std::string ProfileText(const Profile& profile);

// "Where: line 3 (PostUp)." or that no single place is to blame.
[[nodiscard]] std::string WhereText(const Verdict& verdict);

}  // namespace quorvex::control
