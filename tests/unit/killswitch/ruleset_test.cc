// SPDX-License-Identifier: Apache-2.0
#include "killswitch/ruleset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using Addresses = std::vector<std::string>;

constexpr char kUntouched[] = "as before";
constexpr char kBadInterface[] = "The tunnel interface name is not usable.";
constexpr char kNoAddress[] = "No server address was available for the leak-protection ruleset.";

class ARuleset : public ::testing::Test {
 protected:
  bool Build(const std::string& interface, const Addresses& addresses) {
    return BuildKillSwitchRuleset(interface, addresses, &ruleset, &error);
  }
  std::string ruleset = kUntouched;
  std::string error = kUntouched;
};

TEST_F(ARuleset, IsThirteenLinesForServersOfBothFamilies) {
  ASSERT_TRUE(Build("tun-quorvexvpn", {"198.51.100.7", "2001:db8::5"}));
  EXPECT_EQ(ruleset,
            "table inet quorvexvpn\n"
            "delete table inet quorvexvpn\n"
            "table inet quorvexvpn {\n"
            "  chain output {\n"
            "    type filter hook output priority 0; policy drop;\n"
            "    oifname \"lo\" accept\n"
            "    oifname \"tun-quorvexvpn\" accept\n"
            "    meta l4proto ipv6-icmp accept\n"
            "    udp dport { 67, 68, 546, 547 } accept\n"
            "    ip daddr { 198.51.100.7 } accept\n"
            "    ip6 daddr { 2001:db8::5 } accept\n"
            "  }\n"
            "}\n");
  EXPECT_EQ(error, kUntouched);
}

TEST_F(ARuleset, HasNoIpv6LineForIpv4ServersOnly) {
  ASSERT_TRUE(Build("quorvexvpn", {"198.51.100.7", "203.0.113.9"}));
  EXPECT_EQ(ruleset,
            "table inet quorvexvpn\n"
            "delete table inet quorvexvpn\n"
            "table inet quorvexvpn {\n"
            "  chain output {\n"
            "    type filter hook output priority 0; policy drop;\n"
            "    oifname \"lo\" accept\n"
            "    oifname \"quorvexvpn\" accept\n"
            "    meta l4proto ipv6-icmp accept\n"
            "    udp dport { 67, 68, 546, 547 } accept\n"
            "    ip daddr { 198.51.100.7, 203.0.113.9 } accept\n"
            "  }\n"
            "}\n");
}

TEST_F(ARuleset, HasNoIpv4LineForIpv6ServersOnly) {
  ASSERT_TRUE(Build("quorvex-sbox0", {"2001:db8::5", "2001:db8::4"}));
  EXPECT_EQ(ruleset,
            "table inet quorvexvpn\n"
            "delete table inet quorvexvpn\n"
            "table inet quorvexvpn {\n"
            "  chain output {\n"
            "    type filter hook output priority 0; policy drop;\n"
            "    oifname \"lo\" accept\n"
            "    oifname \"quorvex-sbox0\" accept\n"
            "    meta l4proto ipv6-icmp accept\n"
            "    udp dport { 67, 68, 546, 547 } accept\n"
            "    ip6 daddr { 2001:db8::5, 2001:db8::4 } accept\n"
            "  }\n"
            "}\n");
}

// As many addresses as a case needs; the others stay null.
using CaseAddresses = std::array<const char*, 9>;

Addresses Used(const CaseAddresses& listed) {
  return {listed.begin(), std::ranges::find(listed, nullptr)};
}

struct ServersCase {
  const char* name;
  CaseAddresses addresses;
  // The lines that let packets out to servers.
  const char* rules;
};

class ServersOfARuleset : public ARuleset, public ::testing::WithParamInterface<ServersCase> {};

constexpr ServersCase kServers[] = {
    {"One", {"198.51.100.7"}, "    ip daddr { 198.51.100.7 } accept\n"},
    {"InTheirOrder",
     {"203.0.113.9", "198.51.100.7", "192.0.2.1"},
     "    ip daddr { 203.0.113.9, 198.51.100.7, 192.0.2.1 } accept\n"},
    {"OfMixedFamilies",
     {"2001:db8::2", "203.0.113.9", "2001:db8::1", "192.0.2.1"},
     "    ip daddr { 203.0.113.9, 192.0.2.1 } accept\n"
     "    ip6 daddr { 2001:db8::2, 2001:db8::1 } accept\n"},
    {"GivenTwice",
     {"192.0.2.1", "192.0.2.1", "2001:db8::1", "2001:db8::1"},
     "    ip daddr { 192.0.2.1, 192.0.2.1 } accept\n"
     "    ip6 daddr { 2001:db8::1, 2001:db8::1 } accept\n"},
    {"Unchanged",
     {"2001:DB8:0:0:0:0:0:5", "::ffff:192.0.2.1"},
     "    ip6 daddr { 2001:DB8:0:0:0:0:0:5, ::ffff:192.0.2.1 } accept\n"},
    {"BetweenHostNames",
     {"vpn.example", "192.0.2.1", "", "198.51.100.7", "a b", "2001:db8::1", "::g"},
     "    ip daddr { 192.0.2.1, 198.51.100.7 } accept\n"
     "    ip6 daddr { 2001:db8::1 } accept\n"},
    {"BetweenWhatOnlyLooksLikeThem",
     {"192.0.2.1:80", "192.0.2", "192.0.2.256", "192.0.2.0/24", "[2001:db8::1]", "2001:db8::/32",
      "1.2.3.4 }", " 192.0.2.7", "2001:db8::5"},
     "    ip6 daddr { 2001:db8::5 } accept\n"},
};

INSTANTIATE_TEST_SUITE_P(Lists, ServersOfARuleset, ::testing::ValuesIn(kServers), test::CaseName());

TEST_P(ServersOfARuleset, AreTheLastRules) {
  ASSERT_TRUE(Build("quorvexvpn", Used(GetParam().addresses)));
  constexpr char kBefore[] = "    udp dport { 67, 68, 546, 547 } accept\n";
  const std::size_t before = ruleset.find(kBefore);
  ASSERT_NE(before, std::string::npos);
  EXPECT_EQ(ruleset.substr(before), kBefore + std::string(GetParam().rules) + "  }\n}\n");
}

struct NameCase {
  const char* name;
  std::string_view interface;
};

class AUsableInterfaceName : public ARuleset, public ::testing::WithParamInterface<NameCase> {};

constexpr NameCase kUsableNames[] = {
    {"OfSingBox", "quorvex-sbox0"},
    {"OfXray", "quorvex-xray0"},
    {"OfWireGuard", "quorvexvpn"},
    {"OfOpenVpn", "tun-quorvexvpn"},
    {"OneByteLong", "a"},
    {"FifteenBytesLong", "abcdefghijklmno"},
    {"TheBoundsOfEachRange", "azAZ09"},
    {"OnlyPunctuation", "-._"},
};

INSTANTIATE_TEST_SUITE_P(Names, AUsableInterfaceName, ::testing::ValuesIn(kUsableNames),
                         test::CaseName());

TEST_P(AUsableInterfaceName, StandsInQuotesInItsRule) {
  ASSERT_TRUE(Build(std::string(GetParam().interface), {"192.0.2.1"}));
  EXPECT_NE(ruleset.find("    oifname \"lo\" accept\n    oifname \"" +
                         std::string(GetParam().interface) + "\" accept\n    meta l4proto"),
            std::string::npos)
      << ruleset;
}

class AnUnusableInterfaceName : public ARuleset, public ::testing::WithParamInterface<NameCase> {};

constexpr NameCase kUnusableNames[] = {
    {"Empty", ""},
    {"SixteenBytesLong", "abcdefghijklmnop"},
    {"WithABlank", "tun 0"},
    {"WithAQuote", "tun\"0"},
    {"WithASingleQuote", "tun'0"},
    {"WithASlash", "tun/0"},
    {"WithABackslash", "tun\\0"},
    {"WithALineFeed", "tun0\n"},
    {"WithAColon", "eth0:1"},
    {"WithAPlus", "tun+"},
    {"WithAStar", "tun*"},
    {"WithAComma", "tun,0"},
    {"WithABrace", "tun}"},
    {"WithASemicolon", "tun;"},
    {"WithTheByteBeforeCapitalA", "@"},
    {"WithTheByteAfterCapitalZ", "["},
    {"WithTheByteBeforeSmallA", "`"},
    {"WithTheByteAfterSmallZ", "{"},
    {"WithDelete", "tun\x7f"},
    {"WithALetterOutsideAscii", "t\xc3\xbcn0"},
    {"WithALatin1Letter", "t\xfcn0"},
    {"WithNul", std::string_view("tun\0", 4)},
};

INSTANTIATE_TEST_SUITE_P(Names, AnUnusableInterfaceName, ::testing::ValuesIn(kUnusableNames),
                         test::CaseName());

TEST_P(AnUnusableInterfaceName, IsRefused) {
  EXPECT_FALSE(Build(std::string(GetParam().interface), {"192.0.2.1"}));
  EXPECT_EQ(error, kBadInterface);
  EXPECT_EQ(ruleset, kUntouched);
}

TEST_P(AnUnusableInterfaceName, IsToBlameBeforeTheWantOfAddresses) {
  EXPECT_FALSE(Build(std::string(GetParam().interface), {}));
  EXPECT_EQ(error, kBadInterface);
}

TEST_F(ARuleset, HasNoRoomForAVeryLongInterfaceName) {
  EXPECT_FALSE(Build(std::string(5000, 'a'), {"192.0.2.1"}));
  EXPECT_EQ(error, kBadInterface);
}

struct NoAddressCase {
  const char* name;
  CaseAddresses addresses;
};

class AListWithoutAddress : public ARuleset, public ::testing::WithParamInterface<NoAddressCase> {};

constexpr NoAddressCase kListsWithoutAddress[] = {
    {"Empty", {}},
    {"OfOneHostName", {"vpn.example"}},
    {"OfHostNames", {"a.example", "localhost", "b"}},
    {"OfAnEmptyText", {""}},
    {"OfAddressesWithPorts", {"192.0.2.1:443", "[2001:db8::1]:443"}},
    {"OfNetworks", {"192.0.2.0/24", "2001:db8::/32"}},
};

INSTANTIATE_TEST_SUITE_P(Lists, AListWithoutAddress, ::testing::ValuesIn(kListsWithoutAddress),
                         test::CaseName());

TEST_P(AListWithoutAddress, IsRefused) {
  EXPECT_FALSE(Build("quorvexvpn", Used(GetParam().addresses)));
  EXPECT_EQ(error, kNoAddress);
  EXPECT_EQ(ruleset, kUntouched);
}

}  // namespace
}  // namespace quorvex::linux_service
