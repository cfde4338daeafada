// SPDX-License-Identifier: Apache-2.0
//
// What a command failed with, and how an error of the bus becomes that.
#pragma once

#include <string>
#include <string_view>

namespace quorvex::control {

struct Failure {
  int exitCode = 0;
  // One sentence for people.
  std::string message;
  // What to do about it; may be empty.
  std::string hint;
};

// `errorName` is the error's name on the bus, or empty when the call failed on this side; `message`
// is what came with it.
[[nodiscard]] Failure FailureOfBusError(std::string_view errorName, const std::string& message);

}  // namespace quorvex::control
