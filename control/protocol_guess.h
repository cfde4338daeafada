// SPDX-License-Identifier: Apache-2.0
//
// Which protocol a profile is for, by what its text looks like.
#pragma once

#include <string>

namespace quorvex::control {

struct ProtocolGuess {
  // As the service spells it, for example "wireGuard"; empty when the text does not tell.
  std::string protocol;
  // What told, for people: completes "because ...". Where nothing did, what was looked for.
  std::string reason;
};

// `path` counts by its extension, and only where the text alone says nothing. Pure; keeps nothing
// of the text.
[[nodiscard]] ProtocolGuess GuessProtocol(const std::string& path, const std::string& rawConfig);

}  // namespace quorvex::control
