// SPDX-License-Identifier: Apache-2.0
//
// Where in a refused profile the fault lies. The rules give a sentence and no place; the place is
// found by asking them again about parts of the text, so it can never disagree with their verdict.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace quorvex::control {

struct FaultPlace {
  // Both count from 1; a column of 0 stands for the whole line.
  std::size_t line = 0;
  std::size_t column = 0;
  // The option's name or its path, for example "PostUp" or "outbounds[0].tls.key_path"; never a
  // value, and empty where the text has something else than a known name.
  std::string name;
};

// The place of the fault for which the rules refused this profile with `message`. Nothing when the
// sentence is about what is missing, or when several places share in it. Pure; takes time within a
// fixed bound.
[[nodiscard]] std::optional<FaultPlace> LocateFault(const std::string& protocol,
                                                    const std::string& rawConfig,
                                                    const std::string& message);

// "line 7 (PostUp)", "line 3, column 12 (outbounds[0].tls.key_path)".
[[nodiscard]] std::string DescribePlace(const FaultPlace& place);

}  // namespace quorvex::control
