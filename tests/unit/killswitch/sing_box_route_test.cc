// SPDX-License-Identifier: Apache-2.0
//
// The routing rule in a real kernel, seen through the real ip.
#include "killswitch/sing_box_route.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/runtime/kernel_world.h"

namespace quorvex::linux_service {
namespace {

using test::Output;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kOurs[] = "9100:\tnot from all fwmark 0x2024 lookup 2022";

class TheWayIntoSingBox : public test::PrivateWorld {
 protected:
  void TearDown() override {
    std::string error;
    EXPECT_TRUE(RemoveSingBoxRoute(&error)) << error;
    EXPECT_EQ(Rules(), before);
    PrivateWorld::TearDown();
  }
  static std::string Rules() { return Output("ip -4 rule; ip -6 rule"); }
  static void Add(std::uint32_t mark = kSingBoxDefaultMark,
                  LocalNetworks local = LocalNetworks::kInside) {
    std::string error;
    ASSERT_TRUE(AddSingBoxRoute(mark, local, &error)) << error;
  }
  std::string before = Rules();
};

TEST_F(TheWayIntoSingBox, IsOneRuleInEachFamily) {
  Add();
  EXPECT_THAT(Output("ip -4 rule"), HasSubstr(kOurs));
  EXPECT_THAT(Output("ip -6 rule"), HasSubstr(kOurs));
}

TEST_F(TheWayIntoSingBox, IsTheSameAddedTwice) {
  Add();
  const std::string once = Rules();
  Add();
  EXPECT_EQ(Rules(), once);
}

TEST_F(TheWayIntoSingBox, HasTheMarkThatItIsGiven) {
  Add(0x2024);
  Add(0xFFFFFFFE);
  EXPECT_THAT(Rules(), AllOf(HasSubstr("fwmark 0xfffffffe lookup 2022"), Not(HasSubstr("0x2024"))));
}

TEST_F(TheWayIntoSingBox, PassesByTheLocalNetworksOnDemand) {
  Add(kSingBoxDefaultMark, LocalNetworks::kOutside);
  const std::string outside = Rules();
  EXPECT_THAT(outside, HasSubstr("9099:\tfrom all lookup main suppress_prefixlength 0"));
  EXPECT_THAT(outside, HasSubstr(kOurs));
  Add();
  EXPECT_THAT(Rules(), AllOf(HasSubstr(kOurs), Not(HasSubstr("9099:"))));
  Add(kSingBoxDefaultMark, LocalNetworks::kOutside);
  EXPECT_EQ(Rules(), outside);
}

TEST_F(TheWayIntoSingBox, IsNeverGoneWhileTheLocalNetworksChangeSides) {
  Add();
  test::Shell(
      "ip monitor rule > /run/changes & echo $! > /run/monitor; until ip rule add lookup 77; do :; "
      "done;"
      "until grep -q 77 /run/changes; do ip rule del lookup 77; ip rule add lookup 77; done; ip "
      "rule del lookup 77");
  Add(kSingBoxDefaultMark, LocalNetworks::kOutside);
  test::Shell("until grep -q 9099 /run/changes; do :; done; kill $(cat /run/monitor)");
  EXPECT_THAT(Output("grep 9100: /run/changes || :"), Not(HasSubstr("Deleted")));
}

TEST_F(TheWayIntoSingBox, IsRemovedOnce) {
  Add();
  std::string error;
  EXPECT_TRUE(RemoveSingBoxRoute(&error)) << error;
  EXPECT_EQ(Rules(), before);
  EXPECT_TRUE(RemoveSingBoxRoute(&error)) << error;
}

TEST_F(TheWayIntoSingBox, LeavesARuleOfSomebodyElseWithTheSamePriorityAndTable) {
  test::Shell("ip -4 rule add not fwmark 0x99 lookup 2022 priority 9100");
  test::Shell("ip -4 rule add from 192.0.2.1 lookup 2022 priority 9101");
  const std::string withTheirs = Rules();
  Add();
  std::string error;
  EXPECT_TRUE(RemoveSingBoxRoute(&error)) << error;
  EXPECT_EQ(Rules(), withTheirs);
  test::Shell("ip -4 rule del not fwmark 0x99 lookup 2022 priority 9100");
  test::Shell("ip -4 rule del from 192.0.2.1 lookup 2022 priority 9101");
}

TEST_F(TheWayIntoSingBox, IsFoundAmongManyRules) {
  test::Shell(
      "for i in $(seq 10000 10600); do echo \"rule add lookup 77 priority $i\"; done | ip -batch "
      "-");
  Add();
  std::string error;
  EXPECT_TRUE(RemoveSingBoxRoute(&error)) << error;
  EXPECT_THAT(Rules(), Not(HasSubstr("9100:")));
  test::Shell("while ip -4 rule del lookup 77 2>/dev/null; do :; done");
}

TEST_F(TheWayIntoSingBox, DecidesWhichWayAPacketGoes) {
  test::Shell(
      "for link in cable0 tunnel0; do"
      "  ip link add $link type veth peer name $link-far &&"
      "  ip link set $link up && ip link set $link-far up || exit;"
      "done;"
      "ip route add default dev cable0 metric 100 && ip route add default dev tunnel0 table 2022");
  EXPECT_THAT(Output("ip route get 203.0.113.9"), HasSubstr("dev cable0"));
  Add();
  EXPECT_THAT(Output("ip route get 203.0.113.9"), HasSubstr("dev tunnel0"));
  EXPECT_THAT(Output("ip route get 203.0.113.9 mark 0x2024"), HasSubstr("dev cable0"));
  test::Shell("ip route add 192.0.2.0/24 dev cable0");
  EXPECT_THAT(Output("ip route get 192.0.2.7"), HasSubstr("dev tunnel0"));
  Add(kSingBoxDefaultMark, LocalNetworks::kOutside);
  EXPECT_THAT(Output("ip route get 192.0.2.7"), HasSubstr("dev cable0"));
  EXPECT_THAT(Output("ip route get 203.0.113.9"), HasSubstr("dev tunnel0"));
  test::Shell("ip link del cable0; ip link del tunnel0");
}

}  // namespace
}  // namespace quorvex::linux_service
