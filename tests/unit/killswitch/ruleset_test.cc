// SPDX-License-Identifier: Apache-2.0
#include "killswitch/ruleset.h"

#include <gtest/gtest.h>

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

struct ServersCase {
  const char* name;
  Addresses addresses;
  // The lines that let packets out to servers.
  std::string rules;
};

class ServersOfARuleset : public ARuleset, public ::testing::WithParamInterface<ServersCase> {};

INSTANTIATE_TEST_SUITE_P(
    Lists, ServersOfARuleset,
    ::testing::Values(
        ServersCase{"One", {"198.51.100.7"}, "    ip daddr { 198.51.100.7 } accept\n"},
        ServersCase{"InTheirOrder",
                    {"203.0.113.9", "198.51.100.7", "192.0.2.1"},
                    "    ip daddr { 203.0.113.9, 198.51.100.7, 192.0.2.1 } accept\n"},
        ServersCase{"OfMixedFamilies",
                    {"2001:db8::2", "203.0.113.9", "2001:db8::1", "192.0.2.1"},
                    "    ip daddr { 203.0.113.9, 192.0.2.1 } accept\n"
                    "    ip6 daddr { 2001:db8::2, 2001:db8::1 } accept\n"},
        ServersCase{"GivenTwice",
                    {"192.0.2.1", "192.0.2.1", "2001:db8::1", "2001:db8::1"},
                    "    ip daddr { 192.0.2.1, 192.0.2.1 } accept\n"
                    "    ip6 daddr { 2001:db8::1, 2001:db8::1 } accept\n"},
        ServersCase{"Unchanged",
                    {"2001:DB8:0:0:0:0:0:5", "::ffff:192.0.2.1"},
                    "    ip6 daddr { 2001:DB8:0:0:0:0:0:5, ::ffff:192.0.2.1 } accept\n"},
        ServersCase{"BetweenHostNames",
                    {"vpn.example", "192.0.2.1", "", "198.51.100.7", "a b", "2001:db8::1", "::g"},
                    "    ip daddr { 192.0.2.1, 198.51.100.7 } accept\n"
                    "    ip6 daddr { 2001:db8::1 } accept\n"},
        ServersCase{"BetweenWhatOnlyLooksLikeThem",
                    {"192.0.2.1:80", "192.0.2", "192.0.2.256", "192.0.2.0/24", "[2001:db8::1]",
                     "2001:db8::/32", "1.2.3.4 }", " 192.0.2.7", "2001:db8::5"},
                    "    ip6 daddr { 2001:db8::5 } accept\n"}),
    test::CaseName());

TEST_P(ServersOfARuleset, AreTheLastRules) {
  ASSERT_TRUE(Build("quorvexvpn", GetParam().addresses));
  constexpr char kBefore[] = "    udp dport { 67, 68, 546, 547 } accept\n";
  const std::size_t before = ruleset.find(kBefore);
  ASSERT_NE(before, std::string::npos);
  EXPECT_EQ(ruleset.substr(before), kBefore + GetParam().rules + "  }\n}\n");
}

struct NameCase {
  const char* name;
  std::string interface;
};

class AUsableInterfaceName : public ARuleset, public ::testing::WithParamInterface<NameCase> {};

INSTANTIATE_TEST_SUITE_P(Names, AUsableInterfaceName,
                         ::testing::Values(NameCase{"OfSingBox", "quorvex-sbox0"},
                                           NameCase{"OfXray", "quorvex-xray0"},
                                           NameCase{"OfWireGuard", "quorvexvpn"},
                                           NameCase{"OfOpenVpn", "tun-quorvexvpn"},
                                           NameCase{"OneByteLong", "a"},
                                           NameCase{"FifteenBytesLong", "abcdefghijklmno"},
                                           NameCase{"TheBoundsOfEachRange", "azAZ09"},
                                           NameCase{"OnlyPunctuation", "-._"}),
                         test::CaseName());

TEST_P(AUsableInterfaceName, StandsInQuotesInItsRule) {
  ASSERT_TRUE(Build(GetParam().interface, {"192.0.2.1"}));
  EXPECT_NE(ruleset.find("    oifname \"lo\" accept\n    oifname \"" + GetParam().interface +
                         "\" accept\n    meta l4proto"),
            std::string::npos)
      << ruleset;
}

class AnUnusableInterfaceName : public ARuleset, public ::testing::WithParamInterface<NameCase> {};

INSTANTIATE_TEST_SUITE_P(
    Names, AnUnusableInterfaceName,
    ::testing::Values(NameCase{"Empty", ""}, NameCase{"SixteenBytesLong", "abcdefghijklmnop"},
                      NameCase{"VeryLong", std::string(5000, 'a')}, NameCase{"WithABlank", "tun 0"},
                      NameCase{"WithAQuote", "tun\"0"}, NameCase{"WithASingleQuote", "tun'0"},
                      NameCase{"WithASlash", "tun/0"}, NameCase{"WithABackslash", "tun\\0"},
                      NameCase{"WithALineFeed", "tun0\n"}, NameCase{"WithAColon", "eth0:1"},
                      NameCase{"WithAPlus", "tun+"}, NameCase{"WithAStar", "tun*"},
                      NameCase{"WithAComma", "tun,0"}, NameCase{"WithABrace", "tun}"},
                      NameCase{"WithASemicolon", "tun;"},
                      NameCase{"WithNeighboursOfTheCapitals", "@"},
                      NameCase{"WithTheByteAfterZ", "["}, NameCase{"WithTheByteBeforeA", "`"},
                      NameCase{"WithTheByteAfterLowerZ", "{"}, NameCase{"WithDelete", "tun\x7f"},
                      NameCase{"WithALetterOutsideAscii", "t\xc3\xbcn0"},
                      NameCase{"WithALatin1Letter", "t\xfcn0"},
                      NameCase{"WithNul", std::string("tun\0", 4)}),
    test::CaseName());

TEST_P(AnUnusableInterfaceName, IsRefused) {
  EXPECT_FALSE(Build(GetParam().interface, {"192.0.2.1"}));
  EXPECT_EQ(error, kBadInterface);
  EXPECT_EQ(ruleset, kUntouched);
}

TEST_P(AnUnusableInterfaceName, IsToBlameBeforeTheWantOfAddresses) {
  EXPECT_FALSE(Build(GetParam().interface, {}));
  EXPECT_EQ(error, kBadInterface);
}

struct NoAddressCase {
  const char* name;
  Addresses addresses;
};

class AListWithoutAddress : public ARuleset, public ::testing::WithParamInterface<NoAddressCase> {};

INSTANTIATE_TEST_SUITE_P(
    Lists, AListWithoutAddress,
    ::testing::Values(NoAddressCase{"Empty", {}}, NoAddressCase{"OfOneHostName", {"vpn.example"}},
                      NoAddressCase{"OfHostNames", {"a.example", "localhost", "b"}},
                      NoAddressCase{"OfAnEmptyText", {""}},
                      NoAddressCase{"OfAddressesWithPorts", {"192.0.2.1:443", "[2001:db8::1]:443"}},
                      NoAddressCase{"OfNetworks", {"192.0.2.0/24", "2001:db8::/32"}}),
    test::CaseName());

TEST_P(AListWithoutAddress, IsRefused) {
  EXPECT_FALSE(Build("quorvexvpn", GetParam().addresses));
  EXPECT_EQ(error, kNoAddress);
  EXPECT_EQ(ruleset, kUntouched);
}

}  // namespace
}  // namespace quorvex::linux_service
