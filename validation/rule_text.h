// SPDX-License-Identifier: Apache-2.0
//
// What all rule sets share: how a verdict is made, and how text is read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "validation/profile_validation.h"

namespace quorvex::linux_service {

// A refusal with its sentence.
[[nodiscard]] ValidationResult Invalid(std::string message);
[[nodiscard]] ValidationResult Valid();

// Whether `byte` is white space, as the standard classification sees it. Here rather than in the
// library, like the letters: it is asked for every byte of a profile.
[[nodiscard]] constexpr bool IsSpace(char byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

[[nodiscard]] constexpr char LowercaseAscii(char byte) {
  constexpr char kDistance = 'a' - 'A';
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + kDistance) : byte;
}

// The part of `text` without leading and trailing white space.
[[nodiscard]] std::string_view Trim(std::string_view text);

[[nodiscard]] std::string LowercaseAscii(std::string_view text);

// Compares without a copy, for texts that may hold secrets.
[[nodiscard]] bool EqualsIgnoringCase(std::string_view left, std::string_view right);

// The pieces of `text` between commas, each trimmed, empty ones included; none for an empty text.
[[nodiscard]] std::vector<std::string_view> SplitAtCommas(std::string_view text);

// Takes the next line, without its line feed, off `rest`, which must not be empty.
[[nodiscard]] std::string_view TakeLine(std::string_view* rest);

// Whether a trimmed line says nothing: empty, or a comment beginning with "#" or ";".
[[nodiscard]] bool IsBlankOrComment(std::string_view line);

}  // namespace quorvex::linux_service
