// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "runtime/glib_ptr.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/wireguard_text.h"
#include "validation/engine_rules.h"
#include "validation/wireguard_rules.h"

namespace quorvex::linux_service {
namespace {

using test::kInterface;
using test::kPeer;
using test::Times;
using test::WithAllowedIps;
using test::WithDns;
using test::WithInterface;
using test::WithPeer;

constexpr char kInterfaceDirective[] = "The WireGuard Interface contains an unsupported directive.";
constexpr char kPeerDirective[] = "The WireGuard Peer contains an unsupported directive.";
constexpr char kDnsNotLiteral[] = "WireGuard DNS entries must be literal IPv4 or IPv6 addresses.";
constexpr char kTooManyDns[] = "WireGuard profiles may contain at most eight DNS servers.";
constexpr char kTableOff[] = "WireGuard Table=off is not allowed for a full VPN tunnel.";
constexpr char kIncompleteProfile[] =
    "WireGuard profiles require Interface PrivateKey, Address, DNS, a complete Peer, and a default "
    "AllowedIPs route.";

std::string RefusalOf(const std::string& text) {
  return test::SentenceOf(ValidateWireGuard(text));
}

TEST(AWireGuardDns, IsALiteralAddress) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"Ipv4", WithDns("DNS = 203.0.113.53")},
       {"Ipv6", WithDns("DNS = 2606:4700:4700::1111")},
       {"Both", WithDns("DNS = 1.1.1.1, 2606:4700:4700::1111")},
       {"Ipv6OfEveryForm", WithDns("DNS=::, ::1,FE80::1 ,\t::ffff:1.2.3.4\t,1:2:3:4:5:6:7:8")},
       {"TheSameTwice", WithDns("DNS = 1.1.1.1, 1.1.1.1\ndns = 1.1.1.1")},
       {"ASearchDomain", WithDns("DNS = 1.1.1.1, example.com"), kDnsNotLiteral},
       {"ASearchDomainFirst", WithDns("DNS = example.com, 1.1.1.1"), kDnsNotLiteral},
       {"ASearchDomainOnASecondLine", WithDns("DNS = 1.1.1.1\nDNS = lan"), kDnsNotLiteral},
       {"OneComma", WithDns("DNS = ,"), kDnsNotLiteral},
       {"ALeadingComma", WithDns("DNS = ,1.1.1.1"), kDnsNotLiteral},
       {"ATrailingComma", WithDns("DNS = 1.1.1.1,"), kDnsNotLiteral},
       {"ADoubleComma", WithDns("DNS = 1.1.1.1, ,1.0.0.1"), kDnsNotLiteral},
       {"BlanksForCommas", WithDns("DNS = 1.1.1.1 1.0.0.1"), kDnsNotLiteral},
       {"ASemicolonForAComma", WithDns("DNS = 1.1.1.1;1.0.0.1"), kDnsNotLiteral},
       {"ACommentBehindIt", WithDns("DNS = 1.1.1.1 # first"), kDnsNotLiteral},
       {"APrefixLength", WithDns("DNS = 1.1.1.1/32"), kDnsNotLiteral},
       {"ThreeNumbers", WithDns("DNS = 1.1.1"), kDnsNotLiteral},
       {"FiveNumbers", WithDns("DNS = 1.1.1.1.1"), kDnsNotLiteral},
       {"ALargeNumber", WithDns("DNS = 256.1.1.1"), kDnsNotLiteral},
       {"OneNumber", WithDns("DNS = 16843009"), kDnsNotLiteral},
       {"Brackets", WithDns("DNS = [::1]"), kDnsNotLiteral},
       {"AnInterface", WithDns("DNS = fe80::1%eth0"), kDnsNotLiteral},
       {"APort", WithDns("DNS = 1.1.1.1:53"), kDnsNotLiteral}});
}

TEST(AWireGuardDns, HasAtMostEightServers) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"EightOnALine", WithDns("DNS = ::1" + Times(7, ",1.1.1.1"))},
       {"NineOnALine", WithDns("DNS = ::1" + Times(8, ",1.1.1.1")), kTooManyDns},
       {"EightOnEightLines", WithDns(Times(8, "DNS = 1.1.1.1\n"))},
       {"NineOnNineLines", WithDns(Times(9, "DNS = 1.1.1.1\n")), kTooManyDns},
       {"FourAndFour", WithDns(Times(2, "DNS=::1,::2,::3,::4\n"))},
       {"FourAndFive", WithDns("DNS=::1,::2,::3,::4\nDNS=::5,::6,::7,::8,::9"), kTooManyDns},
       {"FiveAndFive", WithDns(Times(2, "DNS=::1,::2,::3,::4,::5\n")), kTooManyDns},
       {"EightAndOneThatIsNone", WithDns("DNS = ::1" + Times(7, ",1.1.1.1") + ",lan"),
        kDnsNotLiteral},
       {"NineAndOneThatIsNone", WithDns("DNS = ::1" + Times(8, ",1.1.1.1") + ",lan"),
        kTooManyDns}});
}

TEST(AWireGuardTable, IsAnythingButOff) {
  test::ExpectVerdicts(ValidateWireGuard,
                       {{"Off", WithInterface("Table = off"), kTableOff},
                        {"OffInCapitals", WithInterface("TABLE = OFF"), kTableOff},
                        {"OffInMixedCase", WithInterface("table=\tOff "), kTableOff},
                        {"OffBehindAnother", WithInterface("Table=auto\nTable=off"), kTableOff},
                        {"Auto", WithInterface("Table = auto")},
                        {"Number", WithInterface("Table = 1234")},
                        {"Offset", WithInterface("Table = offset")},
                        {"OffAndMore", WithInterface("Table = off # never")},
                        {"InPeer", WithPeer("Table = auto"), kPeerDirective}});
}

TEST(WireGuardAllowedIps, HoldADefaultRouteSomewhere) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"Ipv4Default", WithAllowedIps("AllowedIPs = 0.0.0.0/0")},
       {"Ipv6Default", WithAllowedIps("AllowedIPs = ::/0")},
       {"BothDefaults", WithAllowedIps("AllowedIPs = 0.0.0.0/0, ::/0")},
       {"DefaultAmongOthers", WithAllowedIps("AllowedIPs=10.0.0.0/8,\t::/0 ,x,,")},
       {"DefaultOnASecondLine", WithAllowedIps("AllowedIPs = x\nallowedips = ::/0")},
       {"DefaultOnAnEarlierLine", WithAllowedIps("AllowedIPs = ::/0\nAllowedIPs = x")},
       {"DefaultInTheSecondPeer", WithAllowedIps("AllowedIPs = 10.0.0.0/8") + kPeer},
       {"DefaultInTheFirstPeer",
        kInterface + kPeer + "[Peer]\nPublicKey=k\nEndpoint=e\nAllowedIPs = 10.0.0.0/8"},
       {"Halves", WithAllowedIps("AllowedIPs = 0.0.0.0/1, 128.0.0.0/1"), kIncompleteProfile},
       {"Ipv6Halves", WithAllowedIps("AllowedIPs = ::/1, 8000::/1"), kIncompleteProfile},
       {"OtherSpellings",
        WithAllowedIps("AllowedIPs = 0/0, 0.0.0.0/00, 0.0.0.0, ::, 0::/0, ::0/0, ::/00"),
        kIncompleteProfile},
       {"DefaultWithBlanks", WithAllowedIps("AllowedIPs = 0.0.0.0 /0, :: /0"), kIncompleteProfile},
       {"DefaultWithAComment", WithAllowedIps("AllowedIPs = 0.0.0.0/0 # all"), kIncompleteProfile},
       {"Unchecked", WithAllowedIps("AllowedIPs = nonsense"), kIncompleteProfile},
       {"CommasOnly", WithAllowedIps("AllowedIPs = ,,"), kIncompleteProfile}});
}

TEST(AWireGuardKey, MayBeRepeated) {
  test::ExpectVerdicts(
      ValidateWireGuard,
      {{"InInterface", WithInterface("PrivateKey = x\nAddress = ::1/128\nMTU = 1\nMTU = 2")},
       {"InPeer", WithPeer("PublicKey = x\nEndpoint = x\nAllowedIPs = x\n"
                           "PresharedKey = x\nPresharedKey = y")}});
}

const std::vector<std::string> kInterfaceKeys = {"PrivateKey", "Address", "MTU", "Table",
                                                 "ListenPort"};
const std::vector<std::string> kPeerKeys = {"PublicKey", "PresharedKey", "AllowedIPs", "Endpoint",
                                            "PersistentKeepalive"};
const std::vector<std::string> kAmneziaKeys = {"Jc",
                                               "Jmin",
                                               "Jmax",
                                               "S1",
                                               "S2",
                                               "S3",
                                               "S4",
                                               "H1",
                                               "H2",
                                               "H3",
                                               "H4",
                                               "I1",
                                               "I2",
                                               "I3",
                                               "I4",
                                               "I5",
                                               "HeaderProtectionKey",
                                               "ContentPaddingAddition",
                                               "RekeyAfterTime",
                                               "RekeyTimeout",
                                               "RejectAfterTime",
                                               "KeepaliveTimeout",
                                               "MaxHandshakeAttempts",
                                               "RandomTrailers",
                                               "DisableCookies"};

std::string Lower(const std::string& text) {
  return std::string(GCharPtr(g_ascii_strdown(text.c_str(), -1)).get());
}

std::string Upper(const std::string& text) {
  return std::string(GCharPtr(g_ascii_strup(text.c_str(), -1)).get());
}

TEST(AnInterface, AcceptsItsKeysWithAnyValue) {
  for (const std::string& key : kInterfaceKeys) {
    for (const std::string& spelling : {key, Lower(key), Upper(key)}) {
      SCOPED_TRACE(spelling);
      EXPECT_EQ(RefusalOf(WithInterface(spelling + " = some thing, 7")), "");
    }
  }
}

TEST(AnInterface, AcceptsEveryAmneziaKeyWithAnyValue) {
  ASSERT_EQ(kAmneziaKeys.size(), 25U);
  for (const std::string& key : kAmneziaKeys) {
    for (const std::string& spelling : {key, Lower(key), Upper(key)}) {
      SCOPED_TRACE(spelling);
      EXPECT_EQ(RefusalOf(WithInterface(spelling + " = <b 0xf00>, = 7")), "");
      EXPECT_TRUE(WireGuardConfigRequiresAmnezia(WithInterface(spelling + " = 4")));
    }
  }
}

TEST(AnInterface, AcceptsNoOtherKey) {
  std::vector<std::string> others = {
      "PublicKey", "PresharedKey", "AllowedIPs", "Endpoint", "PersistentKeepalive",
      "FwMark",    "Private Key",  "DNSSearch",  "J",        "Jd",
      "S0",        "S5",           "H0",         "H5",       "I0",
      "I6",        "Jc1",          "Name"};
  for (const std::string& key : others) {
    SCOPED_TRACE(key);
    EXPECT_EQ(RefusalOf(WithInterface(key + " = 4")), kInterfaceDirective);
  }
}

TEST(APeer, AcceptsItsKeysWithAnyValue) {
  for (const std::string& key : kPeerKeys) {
    for (const std::string& spelling : {key, Lower(key), Upper(key)}) {
      SCOPED_TRACE(spelling);
      EXPECT_EQ(RefusalOf(WithPeer(spelling + " = some thing, 7")), "");
    }
  }
}

TEST(APeer, AcceptsNoOtherKey) {
  std::vector<std::string> others = {"PrivateKey", "Address", "DNS",        "MTU",
                                     "ListenPort", "FwMark",  "Public Key", "AdvancedSecurity"};
  others.insert(others.end(), kAmneziaKeys.begin(), kAmneziaKeys.end());
  for (const std::string& key : others) {
    SCOPED_TRACE(key);
    EXPECT_EQ(RefusalOf(WithPeer(key + " = 1.1.1.1")), kPeerDirective);
  }
}

TEST(AnAmneziaKey, IsKnownInLowerCaseOnly) {
  for (const std::string& key : kAmneziaKeys) {
    SCOPED_TRACE(key);
    EXPECT_TRUE(IsAmneziaInterfaceKey(Lower(key)));
    EXPECT_FALSE(IsAmneziaInterfaceKey(Upper(key)));
    EXPECT_FALSE(IsAmneziaInterfaceKey(" " + Lower(key)));
    EXPECT_FALSE(IsAmneziaInterfaceKey(Lower(key) + "x"));
  }
  for (const char* key : {"", "j", "mtu", "privatekey", "postup"}) {
    EXPECT_FALSE(IsAmneziaInterfaceKey(key)) << key;
  }
}

struct AmneziaCase {
  const char* name;
  std::string text;
  bool required;
};

class AConfigurationForAmnezia : public ::testing::TestWithParam<AmneziaCase> {};

INSTANTIATE_TEST_SUITE_P(
    Keys, AConfigurationForAmnezia,
    ::testing::Values(AmneziaCase{"None", kInterface + kPeer, false},
                      AmneziaCase{"Nothing", "", false},
                      AmneziaCase{"One", WithInterface("Jc = 4"), true},
                      AmneziaCase{"First", "[Interface]\njc=4\n", true},
                      AmneziaCase{"LastWithoutLineFeed", "[Interface]\nMTU = 1\nI5 = x", true},
                      AmneziaCase{"WithWhiteSpace", "\t[Interface]\r\n \v S1 \t= 10\r\n", true},
                      AmneziaCase{"WithoutValue", "[Interface]\nS1 =\n", true},
                      AmneziaCase{"WithoutEqualSign", "[Interface]\nS1\nS1 10\n", false},
                      AmneziaCase{"AsAValue", "[Interface]\nMTU = S1\nTable = S1 = 2\n", false},
                      AmneziaCase{"AsPartOfAKey", "[Interface]\nS11 = 2\nxS1 = 2\nS 1 = 2\n",
                                  false},
                      AmneziaCase{"InComments", "[Interface]\n# S1 = 2\n;S1 = 2\n", false},
                      AmneziaCase{"InPeer", WithPeer("Jc = 4"), false},
                      AmneziaCase{"BeforeAnyHeader", "Jc = 4\n[Interface]\n", false}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Headers, AConfigurationForAmnezia,
    ::testing::Values(
        AmneziaCase{"WithBlanks", "[ interface ]\nS1 = 10\n", true},
        AmneziaCase{"InCapitals", "[INTERFACE]\nS1 = 10\n", true},
        AmneziaCase{"WithTextBehind", "[Interface] # x = y\nS1 = 10\n", true},
        AmneziaCase{"WithASecondBracket", "[Interface]]\nS1 = 10\n", true},
        AmneziaCase{"WithoutClosingBracket", "[Interface\nS1 = 10\n", false},
        AmneziaCase{"ClosingTheInterfaceWithoutBracket", "[Interface]\n[Peer\nS1 = 10\n", false},
        AmneziaCase{"ClosingTheInterfaceWithoutName", "[Interface]\n[]\nS1 = 10\n", false},
        AmneziaCase{"OfTwoWords", "[Interface x]\nS1 = 10\n", false},
        AmneziaCase{"BehindAPeer", "[Peer]\nS1 = 10\n[Interface]\nS1 = 10\n", true},
        AmneziaCase{"OfAnotherName", "[Interfaces]\nS1 = 10\n[Foo]\nS1 = 10\n", false}),
    test::CaseName());

TEST_P(AConfigurationForAmnezia, IsRecognised) {
  EXPECT_EQ(WireGuardConfigRequiresAmnezia(GetParam().text), GetParam().required);
}

}  // namespace
}  // namespace quorvex::linux_service
