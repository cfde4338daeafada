// SPDX-License-Identifier: Apache-2.0
//
// A private network with one link, and the kernel's own view of it through ip and nft.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/unit/runtime/private_world.h"

namespace quorvex::test {

// What a command writes.
inline std::string Output(const std::string& command) {
  Shell("{ " + command + "; } > /run/output");
  return ReadFile("/run/output");
}

// `cable0`, 192.0.2.2/24 and 2001:db8::2/64, with default routes through 192.0.2.1 and
// 2001:db8::1. Whatever a test adds to routes, rules and tables is gone after it.
class KernelWorld : public PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    Shell(
        // Without addresses that come when the kernel is ready.
        "ip link add cable0 type veth peer name cable0-far &&"
        "ip link set cable0 addrgenmode none && ip link set cable0-far addrgenmode none &&"
        "ip link set cable0-far up && ip link set cable0 up && ip addr add 192.0.2.2/24 dev cable0 "
        "&&"
        "ip addr add 2001:db8::2/64 dev cable0 nodad &&"
        "ip route add default via 192.0.2.1 metric 100 &&"
        "ip -6 route add default via 2001:db8::1 metric 100");
    before = Rules();
  }
  void TearDown() override {
    Shell("ip link del cable0; nft flush ruleset");
    EXPECT_EQ(Rules(), before) << "a test must remove its rules";
    PrivateWorld::TearDown();
  }
  [[nodiscard]] static std::string Rules() { return Output("ip -4 rule; ip -6 rule"); }
  [[nodiscard]] static std::string Routes() {
    return Output("ip -4 route show table all; ip -6 route show table all");
  }
  [[nodiscard]] static std::string Tables() { return Output("nft list ruleset"); }

 private:
  std::string before;
};

}  // namespace quorvex::test
