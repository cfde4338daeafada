// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace quorvex::test {

// A text and the server hosts that it names. Constant data: tables of strings that construct
// themselves take the compilers many times as long.
struct HostCase {
  const char* name;
  std::string_view text;
  // In order; what is not used stays empty.
  std::array<std::string_view, 4> hosts = {};

  [[nodiscard]] std::vector<std::string> Hosts() const {
    std::vector<std::string> used;
    for (const std::string_view host : hosts) {
      if (!host.empty()) {
        used.emplace_back(host);
      }
    }
    return used;
  }
};

}  // namespace quorvex::test
