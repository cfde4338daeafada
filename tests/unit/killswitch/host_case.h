// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace quorvex::test {

// A configuration and the server hosts that it names, in order.
struct HostCase {
  const char* name;
  std::string text;
  std::vector<std::string> hosts;
};

// Hosts around the longest length that counts.
inline const std::string kLongestHost(255, 'h');
inline const std::string kTooLongHost(256, 'h');

}  // namespace quorvex::test
