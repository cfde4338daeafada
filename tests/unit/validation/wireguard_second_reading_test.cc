// SPDX-License-Identifier: Apache-2.0
//
// What wg-quick makes of a profile that the rules have passed.
#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/wireguard_text.h"
#include "validation/engine_rules.h"

namespace quorvex::linux_service {
namespace {

using test::ProfileCase;

constexpr char kIncompleteProfile[] =
    "WireGuard profiles require Interface PrivateKey, Address, DNS, a complete Peer, and a default "
    "AllowedIPs route.";

const std::vector<ProfileCase> kHidden = {
    {"TableOff", test::WithInterface("Table = off # x"),
     "WireGuard Table=off is not allowed for a full VPN tunnel."},
    {"TableOffWithoutBlanks", test::WithInterface("Table=OFF#"),
     "WireGuard Table=off is not allowed for a full VPN tunnel."},
    {"ADefaultRouteInAComment", test::WithAllowedIps("AllowedIPs = 10.0.0.0/8 # , 0.0.0.0/0"),
     kIncompleteProfile},
    {"NoValue", test::WithInterface("MTU = # 1420"),
     "WireGuard directive values may not be empty."},
};

TEST(TheSecondReading, RefusesWhatACommentHides) {
  for (const ProfileCase& profile : kHidden) {
    EXPECT_EQ(test::Refusal("wireguard", profile.text), profile.sentence) << profile.name;
  }
}

// Otherwise the cases above would show nothing.
TEST(TheSecondReading, IsNeededBesideTheRules) {
  for (const ProfileCase& profile : {kHidden[0], kHidden[2], kHidden[3]}) {
    EXPECT_EQ(test::SentenceOf(ValidateWireGuard(profile.text)), "") << profile.name;
  }
}

TEST(TheSecondReading, LeavesOrdinaryCommentsAlone) {
  for (const char* lines : {"MTU = 1420 # as the provider says", "# Table = off",
                            "ListenPort = 51820 # a = b", "Table = auto #off", "#"}) {
    EXPECT_EQ(test::Refusal("wireguard", test::WithInterface(lines)), "") << lines;
  }
  EXPECT_EQ(test::Refusal("wireguard", test::WithPeer("PersistentKeepalive = 25 # seconds")), "");
}

}  // namespace
}  // namespace quorvex::linux_service
