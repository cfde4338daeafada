// SPDX-License-Identifier: Apache-2.0
//
// Where the members and elements of a JSON text lie in it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quorvex::control {

struct JsonSpan {
  // Of a member from its name on, of an element its value.
  std::size_t begin = 0;
  std::size_t end = 0;
  // What to take out so that the rest stays well-formed: the span and one comma.
  std::size_t cutBegin = 0;
  std::size_t cutEnd = 0;
  // 1 for the root's own members.
  unsigned depth = 0;
  // For example "outbounds[0].tls"; "?" stands for a member whose name is no option's.
  std::string path;
};

// All members and elements below the root, the inner ones before the outer. Empty when the text is
// not JSON by the letter (comments, single quotes) or nested deeper than any profile may be.
[[nodiscard]] std::vector<JsonSpan> ReadJsonSpans(std::string_view json);

}  // namespace quorvex::control
