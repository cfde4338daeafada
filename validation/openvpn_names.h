// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <string_view>

namespace quorvex::linux_service {

// An order to search names in: the shorter one comes first, so that few comparisons touch letters.
struct ShorterFirst {
  constexpr bool operator()(std::string_view left, std::string_view right) const {
    return left.size() != right.size() ? left.size() < right.size() : left < right;
  }
};

// A table to be read, made one to be searched in that order.
template <typename Table, typename Projection = std::identity>
constexpr Table SortedForSearch(Table table, Projection name = {}) {
  std::ranges::sort(table, ShorterFirst(), name);
  return table;
}

// Whether a profile may not have the directive, in lower case, whatever its arguments.
[[nodiscard]] bool IsForbiddenOpenVpnDirective(std::string_view directive);

}  // namespace quorvex::linux_service
