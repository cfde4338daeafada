// SPDX-License-Identifier: Apache-2.0
#include "control/profile.h"

#include "control/exit_codes.h"
#include "control/output.h"
#include "control/protocol_guess.h"
#include "runtime/engine_catalogue.h"
#include "validation/profile_validation.h"

namespace quorvex::control {

using linux_service::EngineForProtocol;
using linux_service::EngineKind;
using linux_service::EngineName;

namespace {

// The rules for identifier and size come before those of the protocol, so without one only they can
// say something else than that it is unknown.
bool PassesForAnyProtocol(const Profile& profile) {
  return linux_service::ValidateProfile(profile.id, "", profile.config.text).message ==
         linux_service::ValidateProfile("profile", "", "text").message;
}

}  // namespace

bool LoadProfile(const CommandLine& line, Profile* profile, Failure* failure) {
  const std::string& path = line.arguments.front();
  if (!ReadProfileFile(path, &profile->config, failure)) {
    return false;
  }
  profile->id = line.id.empty() ? ProfileIdOf(path) : line.id;
  profile->protocol = line.protocol;
  if (line.protocol.empty()) {
    ProtocolGuess guess = GuessProtocol(path, profile->config.text);
    profile->protocol = guess.protocol;
    profile->reason = guess.reason;
  }
  if (profile->protocol.empty() && PassesForAnyProtocol(*profile)) {
    *failure = {kExitUsage, "The profile does not show its protocol: " + profile->reason + ".",
                "Say it with --protocol, for example --protocol wireGuard."};
    return false;
  }
  return true;
}

Verdict Judge(const Profile& profile) {
  const auto result =
      linux_service::ValidateProfile(profile.id, profile.protocol, profile.config.text);
  if (result.valid) {
    return {};
  }
  return {result.message, LocateFault(profile.protocol, profile.config.text, result.message)};
}

std::string ProfileText(const Profile& profile) {
  const EngineKind engine = EngineForProtocol(profile.protocol);
  const std::string whose =
      engine == EngineKind::kUnsupported ? "Profile" : EngineName(engine) + std::string(" profile");
  const std::string protocol =
      profile.protocol.empty() ? "unknown protocol" : "protocol " + Printable(profile.protocol);
  return whose + " \"" + Printable(profile.id) + "\", " + protocol +
         (profile.reason.empty() ? "" : ": " + profile.reason);
}

std::string WhereText(const Verdict& verdict) {
  return verdict.place ? "Where: " + DescribePlace(*verdict.place) + "."
                       : "Where: no single place in the text.";
}

}  // namespace quorvex::control
