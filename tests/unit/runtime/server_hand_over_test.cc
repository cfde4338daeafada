// SPDX-License-Identifier: Apache-2.0
#include "runtime/server_hand_over.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/json_parts.h"

namespace quorvex::linux_service {
namespace {

using test::JsonText;
using test::SaysJson;

const std::vector<NamedServer> kOneServer = {{"vpn.test", {"198.51.100.8", "fd00::7"}}};

struct HandOverCase {
  const char* name;
  const char* before;
  const char* after;
};

class ASingBoxConfiguration : public ::testing::TestWithParam<HandOverCase> {};

INSTANTIATE_TEST_SUITE_P(
    Of, ASingBoxConfiguration,
    ::testing::Values(
        HandOverCase{"OneOutbound",
                     R"({"dns":{"servers":[{"tag":"far","type":"https","server":"1.1.1.1"}]},
                "outbounds":[{"type":"vless","tag":"a","server":"vpn.test"}]})",
                     R"({"dns":{"servers":[{"tag":"far","type":"https","server":"1.1.1.1"},
                                  {"type":"hosts","tag":"quorvex-servers",
                                   "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                       "rules":[{"domain":["vpn.test"],"server":"quorvex-servers"}]},
                "outbounds":[{"type":"vless","tag":"a","server":"vpn.test",
                              "domain_resolver":"quorvex-servers"}]})"},
        HandOverCase{"OutboundsElsewhere",
                     R"({"dns":{"servers":[]},"outbounds":[7,{"server":"vpn.test"},
                         {"server":"198.51.100.9"},{"server":"other.test"},{"type":"direct"}]})",
                     R"({"dns":{"servers":[{"type":"hosts","tag":"quorvex-servers",
                         "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                         "rules":[{"domain":["vpn.test"],"server":"quorvex-servers"}]},
                         "outbounds":[7,{"server":"vpn.test","domain_resolver":"quorvex-servers"},
                         {"server":"198.51.100.9"},{"server":"other.test"},{"type":"direct"}]})"},
        HandOverCase{"OwnRules",
                     R"({"dns":{"servers":[],"rules":[{"domain":["x.test"],"server":"far"}]},
                         "outbounds":[]})",
                     R"({"dns":{"servers":[{"type":"hosts","tag":"quorvex-servers",
                         "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                         "rules":[{"domain":["vpn.test"],"server":"quorvex-servers"},
                                  {"domain":["x.test"],"server":"far"}]},"outbounds":[]})"},
        HandOverCase{"OwnResolver",
                     R"({"dns":{"servers":[]},
                         "outbounds":[{"server":"vpn.test","domain_resolver":"far"}]})",
                     R"({"dns":{"servers":[{"type":"hosts","tag":"quorvex-servers",
                         "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                         "rules":[{"domain":["vpn.test"],"server":"quorvex-servers"}]},
                         "outbounds":[{"server":"vpn.test",
                                       "domain_resolver":"quorvex-servers"}]})"},
        HandOverCase{"OwnResolverWithWishes",
                     R"({"dns":{"servers":[]},"outbounds":[{"server":"vpn.test",
                         "domain_resolver":{"server":"far","strategy":"ipv4_only"}}]})",
                     R"({"dns":{"servers":[{"type":"hosts","tag":"quorvex-servers",
                         "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                         "rules":[{"domain":["vpn.test"],"server":"quorvex-servers"}]},
                         "outbounds":[{"server":"vpn.test","domain_resolver":
                         {"server":"quorvex-servers","strategy":"ipv4_only"}}]})"},
        HandOverCase{"ATakenTag",
                     R"({"dns":{"servers":[{"tag":"quorvex-servers"},{"tag":"quorvex-servers+"}]},
                         "outbounds":[]})",
                     R"({"dns":{"servers":[{"tag":"quorvex-servers"},{"tag":"quorvex-servers+"},
                         {"type":"hosts","tag":"quorvex-servers++",
                          "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                         "rules":[{"domain":["vpn.test"],"server":"quorvex-servers++"}]},
                         "outbounds":[]})"},
        HandOverCase{"AWireGuardEndpoint",
                     R"({"dns":{"servers":[]},"outbounds":[],
                         "endpoints":[{"peers":[{"address":"fd00::1"},{"address":"vpn.test"}]},
                                      {"peers":[{"address":"198.51.100.9"}]}]})",
                     R"({"dns":{"servers":[{"type":"hosts","tag":"quorvex-servers",
                         "predefined":{"vpn.test":["198.51.100.8","fd00::7"]}}],
                         "rules":[{"domain":["vpn.test"],"server":"quorvex-servers"}]},
                         "outbounds":[],
                         "endpoints":[{"peers":[{"address":"fd00::1"},{"address":"vpn.test"}],
                                       "domain_resolver":"quorvex-servers"},
                                      {"peers":[{"address":"198.51.100.9"}]}]})"},
        HandOverCase{"NoDns", R"({"outbounds":[{"server":"vpn.test"}]})",
                     R"({"outbounds":[{"server":"vpn.test"}]})"},
        HandOverCase{"DnsWithoutServers", R"({"dns":{},"outbounds":[{"server":"vpn.test"}]})",
                     R"({"dns":{},"outbounds":[{"server":"vpn.test"}]})"}),
    test::CaseName());

TEST_P(ASingBoxConfiguration, GetsTheAddressesOfItsServers) {
  std::string text = GetParam().before;
  ASSERT_TRUE(HandOverServers(EngineKind::kSingBox, kOneServer, &text));
  EXPECT_TRUE(SaysJson(JsonText(text).Root(), GetParam().after));
}

class AnXrayConfiguration : public ::testing::TestWithParam<HandOverCase> {};

constexpr char kXrayHosts[] = R"("dns":{"hosts":{"full:vpn.test":["198.51.100.8","fd00::7"]}})";

INSTANTIATE_TEST_SUITE_P(
    With, AnXrayConfiguration,
    ::testing::Values(
        HandOverCase{"VNext", R"({"outbounds":[{"settings":{"vnext":[{"address":"vpn.test"}]}}]})",
                     R"({"outbounds":[{"settings":{"vnext":[{"address":"vpn.test"}]},
                         "streamSettings":{"sockopt":{"domainStrategy":"UseIP"}}}],)"},
        HandOverCase{"Servers",
                     R"({"outbounds":[{"settings":{"servers":[{"address":"vpn.test"}]}}]})",
                     R"({"outbounds":[{"settings":{"servers":[{"address":"vpn.test"}]},
                         "streamSettings":{"sockopt":{"domainStrategy":"UseIP"}}}],)"},
        HandOverCase{"AnAddressOfItsSettings",
                     R"({"outbounds":[{"settings":{"address":"vpn.test"}}]})",
                     R"({"outbounds":[{"settings":{"address":"vpn.test"},
                         "streamSettings":{"sockopt":{"domainStrategy":"UseIP"}}}],)"},
        HandOverCase{"AWireGuardPeer",
                     R"({"outbounds":[{"settings":{"peers":[{"endpoint":"vpn.test:51820"}]}}]})",
                     R"({"outbounds":[{"settings":{"peers":[{"endpoint":"vpn.test:51820"}]},
                         "streamSettings":{"sockopt":{"domainStrategy":"UseIP"}}}],)"},
        HandOverCase{"StreamSettings",
                     R"({"outbounds":[{"settings":{"address":"vpn.test"},
                         "streamSettings":{"network":"ws","sockopt":{"mark":7}}}]})",
                     R"({"outbounds":[{"settings":{"address":"vpn.test"},"streamSettings":
                         {"network":"ws","sockopt":{"mark":7,"domainStrategy":"UseIP"}}}],)"},
        HandOverCase{"OutboundsElsewhere",
                     R"({"outbounds":[7,{"protocol":"freedom"},
                                      {"settings":{"address":"198.51.100.9"}}]})",
                     R"({"outbounds":[7,{"protocol":"freedom"},
                                      {"settings":{"address":"198.51.100.9"}}],)"}),
    test::CaseName());

TEST_P(AnXrayConfiguration, GetsTheAddressesOfItsServers) {
  std::string text = GetParam().before;
  ASSERT_TRUE(HandOverServers(EngineKind::kXray, kOneServer, &text));
  EXPECT_TRUE(SaysJson(JsonText(text).Root(), std::string(GetParam().after) + kXrayHosts + "}"));
}

struct StrategyCase {
  const char* name;
  const char* own;
  const char* handed;
  std::vector<std::string> addresses;
};

class AnXrayStrategy : public ::testing::TestWithParam<StrategyCase> {};

INSTANTIATE_TEST_SUITE_P(
    Of, AnXrayStrategy,
    ::testing::Values(
        StrategyCase{"AsIsBringsTheLoopBack", "AsIs", "UseIP", {"198.51.100.8"}},
        StrategyCase{"NothingBringsTheLoopBack", "", "UseIP", {"198.51.100.8"}},
        StrategyCase{"ForceIpIsKept", "ForceIP", "ForceIP", {"198.51.100.8"}},
        StrategyCase{"UseIpV4IsKept", "UseIPv4", "UseIPv4", {"198.51.100.8", "fd00::7"}},
        StrategyCase{"UseIpV4FindsNoIpV6", "UseIPv4", "UseIP", {"fd00::7"}},
        StrategyCase{"ForceIpV6IsKept", "forceipv6", "forceipv6", {"fd00::7"}},
        StrategyCase{"ForceIpV6FindsNoIpV4", "ForceIPv6", "UseIP", {"198.51.100.8"}},
        StrategyCase{"APreferenceFindsTheOther", "UseIPv6v4", "UseIPv6v4", {"198.51.100.8"}},
        StrategyCase{"TheOtherPreferenceToo", "UseIPv4v6", "UseIPv4v6", {"fd00::7"}}),
    test::CaseName());

TEST_P(AnXrayStrategy, IsKeptIfItFindsTheAddresses) {
  const auto configuration = [](const std::string& strategy) {
    return R"({"outbounds":[{"settings":{"address":"vpn.test"},
            "streamSettings":{"sockopt":{"domainStrategy":")" +
           strategy + R"("}}}]})";
  };
  std::string text = configuration(GetParam().own);
  ASSERT_TRUE(HandOverServers(EngineKind::kXray, {{"vpn.test", GetParam().addresses}}, &text));
  const JsonText handed(text);
  json_object_remove_member(handed.Object(), "dns");
  EXPECT_TRUE(SaysJson(handed.Root(), configuration(GetParam().handed)));
}

struct HostsCase {
  const char* name;
  const char* own;
  const char* handed;
};

class XrayHosts : public ::testing::TestWithParam<HostsCase> {};

INSTANTIATE_TEST_SUITE_P(
    Of, XrayHosts,
    ::testing::Values(
        HostsCase{"AnotherName", R"({"x.test":"198.51.100.1"})",
                  R"({"x.test":"198.51.100.1","full:vpn.test":["198.51.100.8","fd00::7"]})"},
        HostsCase{"OwnAddress", R"({"vpn.test":"198.51.100.1"})", R"({"vpn.test":"198.51.100.1"})"},
        HostsCase{"OwnAddresses", R"({"full:vpn.test":["198.51.100.1","fd00::1"]})",
                  R"({"full:vpn.test":["198.51.100.1","fd00::1"]})"},
        HostsCase{"AnAliasBringsTheLoopBack", R"({"vpn.test":"x.test"})",
                  R"({"full:vpn.test":["198.51.100.8","fd00::7"]})"},
        HostsCase{"AnAliasAmongAddresses", R"({"full:vpn.test":["198.51.100.1","x.test"]})",
                  R"({"full:vpn.test":["198.51.100.8","fd00::7"]})"},
        HostsCase{"NoAddresses", R"({"vpn.test":[]})",
                  R"({"full:vpn.test":["198.51.100.8","fd00::7"]})"}),
    test::CaseName());

TEST_P(XrayHosts, AreKeptIfTheyNeedNoLookUp) {
  std::string text =
      std::string(R"({"dns":{"servers":["1.1.1.1"],"hosts":)") + GetParam().own + "}}";
  ASSERT_TRUE(HandOverServers(EngineKind::kXray, kOneServer, &text));
  EXPECT_TRUE(SaysJson(
      JsonText(text).Root(),
      std::string(R"({"dns":{"servers":["1.1.1.1"],"hosts":)") + GetParam().handed + "}}"));
}

class ATextWithoutLookUps : public ::testing::TestWithParam<EngineKind> {};

INSTANTIATE_TEST_SUITE_P(For, ATextWithoutLookUps,
                         ::testing::Values(EngineKind::kSingBox, EngineKind::kXray,
                                           EngineKind::kWireGuard, EngineKind::kOpenVpn));

TEST_P(ATextWithoutLookUps, StaysAsItIsToTheByte) {
  const std::string before = R"({ "outbounds" : [ { "server" : "198.51.100.8" } ] })";
  std::string text = before;
  ASSERT_TRUE(HandOverServers(GetParam(), {}, &text));
  EXPECT_EQ(text, before);
}

TEST(ATextOfAnotherEngine, StaysAsItIsToTheByte) {
  std::string text = "remote vpn.test 1194\n";
  ASSERT_TRUE(HandOverServers(EngineKind::kOpenVpn, kOneServer, &text));
  EXPECT_EQ(text, "remote vpn.test 1194\n");
}

TEST(ATextThatIsNoObject, IsLeftAlone) {
  std::string text = "[]";
  EXPECT_FALSE(HandOverServers(EngineKind::kSingBox, kOneServer, &text));
  EXPECT_EQ(text, "[]");
}

struct NamesCase {
  const char* name;
  EngineKind engine;
  const char* profile;
  std::vector<std::string> names;
};

class TheServersOf : public ::testing::TestWithParam<NamesCase> {};

INSTANTIATE_TEST_SUITE_P(
    Names, TheServersOf,
    ::testing::Values(
        NamesCase{"WireGuard",
                  EngineKind::kWireGuard,
                  "[Peer]\nEndpoint = vpn.test:51820\n[Peer]\nEndpoint = 198.51.100.8:1\n",
                  {"vpn.test"}},
        NamesCase{"OpenVpn",
                  EngineKind::kOpenVpn,
                  "remote b.test 1194\nremote a.test\nremote 198.51.100.8\nremote b.test\n",
                  {"b.test", "a.test"}},
        NamesCase{
            "WireGuardBehindAComment",
            EngineKind::kWireGuard,
            "#Endpoint = a.test:1\nEndpoint = vpn.test:51820 # home: 1\nEndpoint=b.test:2#c\n",
            {"vpn.test", "b.test"}},
        NamesCase{"OpenVpnInQuotes",
                  EngineKind::kOpenVpn,
                  "remote \"vpn.test\" 1194\nremote '198.51.100.8'\n--remote b.test\n",
                  {"vpn.test", "b.test"}},
        NamesCase{
            "OpenVpnNotInABlock",
            EngineKind::kOpenVpn,
            "<auth-user-pass>\nremote hunter2\nremote s3cret\n</auth-user-pass>\nremote a.test\n",
            {"a.test"}},
        NamesCase{"OpenVpnProxies",
                  EngineKind::kOpenVpn,
                  "http-proxy p.test 8080\nsocks-proxy s.test\nremote a.test\n",
                  {"p.test", "s.test", "a.test"}},
        NamesCase{"AScopeIsNoName",
                  EngineKind::kXray,
                  R"({"outbounds":[{"settings":{"address":"fe80::1%eth0"}}]})",
                  {}},
        NamesCase{"SingBoxEndpoints",
                  EngineKind::kSingBox,
                  R"({"endpoints":[{"peers":[{"address":"a.test"},{"address":"fd00::1"}]}]})",
                  {"a.test"}},
        NamesCase{"SingBox",
                  EngineKind::kSingBox,
                  R"({"outbounds":[{"server":"vpn.test"},{"server":"fd00::7"}]})",
                  {"vpn.test"}},
        NamesCase{"Xray",
                  EngineKind::kXray,
                  R"({"outbounds":[{"settings":{"address":"c.test"}},
                      {"settings":{"vnext":[{"address":"a.test"},{"address":"fd00::7"}]}},
                      {"settings":{"peers":[{"endpoint":"b.test:51820"},{"endpoint":"[fd00::8]:1"},
                                            {"endpoint":"198.51.100.8:2"}]}}]})",
                  {"c.test", "a.test", "b.test"}},
        NamesCase{"ATextThatCannotBeRead", EngineKind::kXray, "{", {}}),
    test::CaseName());

TEST_P(TheServersOf, AreTakenByNameOnceEach) {
  EXPECT_EQ(CollectServerNames(GetParam().engine, GetParam().profile), GetParam().names);
}

}  // namespace
}  // namespace quorvex::linux_service
