// SPDX-License-Identifier: Apache-2.0
//
// Reads a profile from a file or from standard input.
#pragma once

#include <string>

#include "control/failure.h"

namespace quorvex::control {

// A profile's text, which holds keys: overwritten when it goes.
class SecretText {
 public:
  SecretText() = default;
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  ~SecretText();

  std::string text;
};

// Reads `path`, or standard input for "-", into `secret`. At most one byte more than a profile may
// have is read, so that a too large one is refused without being read whole. False with `failure`
// when it cannot be read, or is nothing that the bus could carry: it takes UTF-8 alone.
[[nodiscard]] bool ReadProfileFile(const std::string& path, SecretText* secret, Failure* failure);

// The name that a file's profile goes by: the file's own without folder and last extension; "stdin"
// for "-". Control characters become "_", broken UTF-8 a replacement character.
[[nodiscard]] std::string ProfileIdOf(const std::string& path);

}  // namespace quorvex::control
