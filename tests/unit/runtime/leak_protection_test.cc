// SPDX-License-Identifier: Apache-2.0
#include "runtime/leak_protection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "killswitch/kill_switch.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

bool Never() {
  return false;
}

constexpr char kNamed[] = "[Peer]\nEndpoint = vpn.test:51820\nEndpoint = 198.51.100.7:51820\n";

class TheAddressesLetThrough : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    test::Shell("cp /etc/hosts /run/hosts && mount --bind /run/hosts /etc/hosts");
  }
  void TearDown() override {
    test::Shell("umount /etc/hosts");
    PrivateWorld::TearDown();
  }
  static void Answer(const std::string& address) {
    test::WriteFile("/run/answer", address + " vpn.test\n");
    test::Shell("cat /run/answer > /etc/hosts");
  }
};

TEST_F(TheAddressesLetThrough, AreThoseOfNowAndThenThoseOfBefore) {
  Answer("198.51.100.8");
  EXPECT_THAT(AddressesToLetThrough(EngineKind::kWireGuard, kNamed,
                                    {{"vpn.test", {"203.0.113.9", "198.51.100.8"}}}, Never),
              ElementsAre("198.51.100.8", "198.51.100.7", "203.0.113.9"));
}

TEST_F(TheAddressesLetThrough, AreThoseOfBeforeWhenTheNameHasNoneAnyMore) {
  Answer("#");
  EXPECT_THAT(
      AddressesToLetThrough(EngineKind::kWireGuard, kNamed, {{"vpn.test", {"203.0.113.9"}}}, Never),
      ElementsAre("198.51.100.7", "203.0.113.9"));
}

TEST_F(TheAddressesLetThrough, AreNotLookedUpOnceCancelled) {
  Answer("198.51.100.8");
  EXPECT_THAT(AddressesToLetThrough(EngineKind::kWireGuard, kNamed, {}, [] { return true; }),
              ElementsAre("198.51.100.7"));
}

TEST_F(TheAddressesLetThrough, AreAlsoThoseThatOnlyTheEngineSees) {
  EXPECT_THAT(
      AddressesToLetThrough(EngineKind::kOpenVpn, "remote \"198.51.100.7\" 1194\n", {}, Never),
      ElementsAre("198.51.100.7"));
  EXPECT_THAT(AddressesToLetThrough(EngineKind::kXray,
                                    R"({"outbounds":[{"settings":{"address":"198.51.100.7"}}]})",
                                    {}, Never),
              ElementsAre("198.51.100.7"));
}

TEST_F(TheAddressesLetThrough, HoldTheIpv4AddressThatAnIpv6TextStandsFor) {
  EXPECT_THAT(
      AddressesToLetThrough(EngineKind::kOpenVpn, "remote 0::FFFF:198.51.100.7\n", {}, Never),
      ElementsAre("0::FFFF:198.51.100.7", "198.51.100.7"));
  EXPECT_THAT(AddressesToLetThrough(EngineKind::kOpenVpn, "remote ::ffff:c633:6407\n", {}, Never),
              ElementsAre("::ffff:c633:6407", "198.51.100.7"));
}

TEST_F(TheAddressesLetThrough, AreTheConfigurationsAloneWhenTheyAreLiteral) {
  const std::string literal = "remote 198.51.100.7\nremote fd00::7\nremote 198.51.100.7\n";
  EXPECT_EQ(AddressesToLetThrough(EngineKind::kOpenVpn, literal, {}, Never),
            CollectEndpointAddresses(EngineKind::kOpenVpn, literal));
}

struct ReadableCase {
  const char* name;
  std::vector<std::string> before;
  std::vector<std::string> after;
};

class AnAddressList : public ::testing::TestWithParam<ReadableCase> {};

INSTANTIATE_TEST_SUITE_P(
    Of, AnAddressList,
    ::testing::Values(
        ReadableCase{"OrdinaryAddresses",
                     {"198.51.100.7", "2001:DB8::05", "::FFFF:192.0.2.1", "::0.0.0.1"},
                     {"198.51.100.7", "2001:DB8::05", "::FFFF:192.0.2.1", "::0.0.0.1"}},
        ReadableCase{"AnIpv4Tail",
                     {"198.51.100.7", "2001:db8::192.0.2.1"},
                     {"198.51.100.7", "2001:db8::c000:201"}},
        ReadableCase{"AMappedAddressInOtherWords",
                     {"198.51.100.7", "0::FFFF:192.0.2.1"},
                     {"198.51.100.7", "::ffff:192.0.2.1"}},
        ReadableCase{"AScope", {"fe80::1%1", "198.51.100.7"}, {"198.51.100.7"}},
        ReadableCase{
            "AScopeBesideAnIpv4Tail", {"fe80::1%1", "2001:db8::192.0.2.1"}, {"2001:db8::c000:201"}},
        ReadableCase{"AnUnreadableAddressAlone", {"2001:db8::192.0.2.1"}, {"2001:db8::192.0.2.1"}},
        ReadableCase{"ScopesAlone", {"fe80::1%1", "fe80::2%1"}, {"fe80::1%1", "fe80::2%1"}},
        ReadableCase{"Nothing", {}, {}}),
    test::CaseName());

TEST_P(AnAddressList, IsMadeReadable) {
  std::vector<std::string> addresses = GetParam().before;
  MakeReadableForNft(&addresses);
  EXPECT_EQ(addresses, GetParam().after);
}

class ARuleSetOfOddAddresses : public test::PrivateWorld {
 protected:
  void TearDown() override {
    EXPECT_TRUE(RemoveKillSwitch(&error)) << error;
    PrivateWorld::TearDown();
  }
  std::string error;
};

TEST_F(ARuleSetOfOddAddresses, IsTakenByNftOnceMadeReadable) {
  std::vector<std::string> addresses = {"2001:db8::192.0.2.1", "0::ffff:192.0.2.1", "198.51.100.7"};
  EXPECT_FALSE(ApplyKillSwitch("quorvexvpn", addresses, &error));
  MakeReadableForNft(&addresses);
  EXPECT_TRUE(ApplyKillSwitch("quorvexvpn", addresses, &error)) << error;
}

TEST_F(ARuleSetOfOddAddresses, ChangesNothingWhenNftRefusesIt) {
  ASSERT_TRUE(ApplyKillSwitch("quorvexvpn", {"198.51.100.7"}, &error)) << error;
  test::Shell("nft list ruleset > /run/before");
  EXPECT_FALSE(ApplyKillSwitch("quorvexvpn", {"2001:db8::192.0.2.1"}, &error));
  EXPECT_EQ(error, "The nftables leak-protection command failed.");
  test::Shell("nft list ruleset > /run/after && cmp /run/before /run/after");
}

struct MarkCase {
  const char* name;
  const char* inbound;
  const char* rule;
};

class TheWayIntoATunnel : public test::PrivateWorld {
 protected:
  void TearDown() override {
    CloseWayIntoTunnel();
    PrivateWorld::TearDown();
  }
  static std::string Open(EngineKind engine, const std::string& inbound) {
    OpenWayIntoTunnel(engine, R"({"inbounds":[{"type":"tun")" + inbound + "}]}",
                      LocalNetworks::kInside);
    test::Shell("ip -4 rule > /run/rules; ip -6 rule >> /run/rules");
    return test::ReadFile("/run/rules");
  }
};

class SingBoxsOwnMark : public TheWayIntoATunnel, public ::testing::WithParamInterface<MarkCase> {};

INSTANTIATE_TEST_SUITE_P(
    Is, SingBoxsOwnMark,
    ::testing::Values(
        MarkCase{"TheDefault", "", "fwmark 0x2024 lookup 2022"},
        MarkCase{"ANumber", R"(,"auto_redirect_output_mark":77)", "fwmark 0x4d lookup 2022"},
        MarkCase{"AHexadecimalText", R"(,"auto_redirect_output_mark":"0x77")",
                 "fwmark 0x77 lookup 2022"},
        MarkCase{"ADecimalText", R"(,"auto_redirect_output_mark":"77")", "fwmark 0x4d lookup 2022"},
        MarkCase{"ZeroForNotSet", R"(,"auto_redirect_output_mark":0)",
                 "fwmark 0x2024 lookup 2022"}),
    test::CaseName());

TEST_P(SingBoxsOwnMark, OpensTheWay) {
  EXPECT_THAT(Open(EngineKind::kSingBox, GetParam().inbound), HasSubstr(GetParam().rule));
}

TEST_F(TheWayIntoATunnel, IsOpenForEveryEngineButSingBox) {
  EXPECT_THAT(Open(EngineKind::kXray, ""), Not(HasSubstr("9100:")));
}

TEST_F(TheWayIntoATunnel, StaysClosedForAnUnreadableMark) {
  for (const char* mark : {"\"x\"", "\"0x\"", "\"077\"", "-1", "4294967296", "[]", "\"0x77 \""}) {
    EXPECT_THAT(Open(EngineKind::kSingBox, std::string(",\"auto_redirect_output_mark\":") + mark),
                Not(HasSubstr("9100:")))
        << mark;
  }
}

}  // namespace
}  // namespace quorvex::linux_service
