// SPDX-License-Identifier: Apache-2.0
#include "runtime/sing_box_config.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/json_parts.h"

namespace quorvex::linux_service {
namespace {

using test::JsonText;
using test::SaysJson;

constexpr char kUntouched[] = "as before";

constexpr char kBareInbound[] = R"({"type": "tun", "auto_route": true})";
constexpr char kProxy[] = R"({"type": "vless", "tag": "proxy"})";

std::string Root(const std::string& inbounds, const std::string& outbounds,
                 const std::string& more = "") {
  return R"({"inbounds": )" + inbounds + R"(, "outbounds": )" + outbounds + more + "}";
}

// A profile with this inbound, with these outbounds, or with more members.
std::string WithInbound(const std::string& inbound) {
  return Root("[" + inbound + "]", std::string("[") + kProxy + "]");
}
std::string WithOutbounds(const std::string& elements) {
  return Root(std::string("[") + kBareInbound + "]", "[" + elements + "]");
}
std::string With(const std::string& more) {
  return Root(std::string("[") + kBareInbound + "]", std::string("[") + kProxy + "]", ", " + more);
}

// The new text; a failure fails the test and gives an empty object.
std::string Normalized(const std::string& protocol, const std::string& configuration) {
  std::string normalized;
  std::string error = kUntouched;
  EXPECT_TRUE(NormalizeSingBox(protocol, configuration, &normalized, &error)) << configuration;
  EXPECT_EQ(error, kUntouched);
  return normalized.empty() ? "{}" : normalized;
}

struct PartCase {
  const char* name;
  std::string configuration;
  // The member of the root that is looked at, and what it says then.
  const char* member;
  std::string expected;
};

class ASingBoxProfile : public ::testing::TestWithParam<PartCase> {};

TEST_P(ASingBoxProfile, IsRewrittenForTheServicesTunnel) {
  const JsonText tree(Normalized("vless", GetParam().configuration));
  EXPECT_TRUE(
      SaysJson(json_object_get_member(tree.Object(), GetParam().member), GetParam().expected));
}

// The inbound as the service wants it, without its type, and with more members.
std::string TakenOver(const std::string& more) {
  return R"([{"tag": "quorvex-tun", "interface_name": "quorvex-sbox0",
              "address": ["172.19.0.1/30", "fdfe:dcba:9876::1/126"], "auto_route": true,
              "strict_route": true, "auto_redirect": true, "iproute2_table_index": 2022,
              "iproute2_rule_index": 9000)" +
         more + "}]";
}

INSTANTIATE_TEST_SUITE_P(
    Inbound, ASingBoxProfile,
    ::testing::Values(
        PartCase{"Bare", WithInbound(kBareInbound), "inbounds", TakenOver(R"(, "type": "tun")")},
        PartCase{"Empty", WithInbound("{}"), "inbounds", TakenOver("")},
        PartCase{"TheTypeStaysAsItIs", WithInbound(R"({"type": "TUN"})"), "inbounds",
                 TakenOver(R"(, "type": "TUN")")},
        PartCase{"WhatTheProfileSaidIsOverwritten",
                 WithInbound(R"({"type": "tun", "tag": "mine", "interface_name": "tun9",
                                 "address": ["10.0.0.1/8"], "auto_route": false,
                                 "strict_route": false, "auto_redirect": false,
                                 "iproute2_table_index": 254, "iproute2_rule_index": 1})"),
                 "inbounds", TakenOver(R"(, "type": "tun")")},
        PartCase{"WhateverItsKind",
                 WithInbound(R"({"tag": null, "interface_name": {}, "address": "10.0.0.1/8",
                                 "auto_route": "true", "strict_route": 0, "auto_redirect": [],
                                 "iproute2_table_index": "2022", "iproute2_rule_index": null})"),
                 "inbounds", TakenOver("")},
        PartCase{"OtherMembersStay",
                 WithInbound(R"({"type": "tun", "stack": "gvisor", "mtu": 1400, "gso": true,
                                 "udp_timeout": "5m", "platform": {"http_proxy": {}},
                                 "loopback_address": []})"),
                 "inbounds", TakenOver(R"(, "type": "tun", "stack": "gvisor", "mtu": 1400,
                                           "gso": true, "udp_timeout": "5m",
                                           "platform": {"http_proxy": {}},
                                           "loopback_address": [])")}),
    test::CaseName());

constexpr char kNewRoute[] =
    R"({"auto_detect_interface": true, "final": "proxy",
        "rules": [{"action": "sniff"}, {"protocol": "dns", "action": "hijack-dns"}]})";

INSTANTIATE_TEST_SUITE_P(
    Route, ASingBoxProfile,
    ::testing::Values(
        PartCase{"Missing", WithInbound(kBareInbound), "route", kNewRoute},
        PartCase{"Empty", With(R"("route": {})"), "route", kNewRoute},
        PartCase{"AString", With(R"("route": "direct")"), "route", kNewRoute},
        PartCase{"Null", With(R"("route": null)"), "route", kNewRoute},
        PartCase{"AnArray", With(R"("route": [{"final": "direct"}])"), "route", kNewRoute},
        PartCase{"WhatTheProfileSaidIsOverwritten",
                 With(R"("route": {"auto_detect_interface": false, "final": "direct",
                                   "rules": [{"ip_is_private": true, "outbound": "direct"}]})"),
                 "route", kNewRoute},
        PartCase{"RulesThatAreNoArray", With(R"("route": {"rules": "none"})"), "route", kNewRoute},
        PartCase{
            "OtherMembersStay",
            With(R"("route": {"rules": [1, 2, 3], "override_android_vpn": true, "rule_set": []})"),
            "route",
            R"({"auto_detect_interface": true, "final": "proxy",
                "rules": [{"action": "sniff"}, {"protocol": "dns", "action": "hijack-dns"}],
                "override_android_vpn": true, "rule_set": []})"}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Dns, ASingBoxProfile,
    ::testing::Values(
        PartCase{"EveryServerGoesThroughTheProxy",
                 With(R"("dns": {"servers": [{"type": "tls", "server": "1.1.1.1"},
                                             {"type": "udp", "detour": "direct"}, {}]})"),
                 "dns", R"({"servers": [{"type": "tls", "server": "1.1.1.1", "detour": "proxy"},
                                        {"type": "udp", "detour": "proxy"},
                                        {"detour": "proxy"}]})"},
        PartCase{"ElementsThatAreNoObjectsStay",
                 With(R"("dns": {"servers": ["1.1.1.1", 8, null, [{"type": "udp"}], {}]})"), "dns",
                 R"({"servers": ["1.1.1.1", 8, null, [{"type": "udp"}], {"detour": "proxy"}]})"},
        PartCase{"NothingElseChanges",
                 With(R"("dns": {"servers": [], "final": "a", "strategy": "prefer_ipv4",
                                 "rules": [{"server": "a"}]})"),
                 "dns", R"({"servers": [], "final": "a", "strategy": "prefer_ipv4",
                            "rules": [{"server": "a"}]})"},
        PartCase{"WithoutServers", With(R"("dns": {"final": "a"})"), "dns", R"({"final": "a"})"},
        PartCase{"ServersThatAreNoArray", With(R"("dns": {"servers": {"type": "udp"}})"), "dns",
                 R"({"servers": {"type": "udp"}})"},
        PartCase{"NoObject", With(R"("dns": [{"servers": [{}]}])"), "dns",
                 R"([{"servers": [{}]}])"}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(TheRest, ASingBoxProfile,
                         ::testing::Values(PartCase{"OfTheRootStays",
                                                    With(R"("log": {"level": "warn"})"), "log",
                                                    R"({"level": "warn"})"},
                                           PartCase{"OfTheOutboundsStays",
                                                    WithOutbounds(R"({"type": "direct", "tag": "d"},
                                                {"type": "vless", "tag": "proxy", "uuid": "x"})"),
                                                    "outbounds",
                                                    R"([{"type": "direct", "tag": "d"},
                                   {"type": "vless", "tag": "proxy", "uuid": "x"}])"}),
                         test::CaseName());

TEST(ASingBoxRewrite, AddsNoDns) {
  const JsonText tree(Normalized("vless", WithInbound(kBareInbound)));
  EXPECT_FALSE(json_object_has_member(tree.Object(), "dns"));
  EXPECT_EQ(json_object_get_size(tree.Object()), 3U) << "inbounds, outbounds and route";
}

TEST(ASingBoxRewrite, IsCompact) {
  const std::string text = Normalized("vless", With("\n\"log\": {\n  \"level\": \"warn\"\n}"));
  EXPECT_EQ(text.find_first_of(" \t\n"), std::string::npos) << text;
}

TEST(ASingBoxRewrite, WritesNumbersAndTextsAsTheyWere) {
  const std::string text = Normalized(
      "vless", With(R"("log": {"a": 9007199254740993, "b": -1, "c": 1.5, "d": "\"\\\u00e9п"})"));
  EXPECT_NE(text.find(R"("a":9007199254740993,"b":-1,"c":1.5,"d":"\"\\éп")"), std::string::npos)
      << text;
}

// What would narrow the tunnel down, or move it.
class AMemberOfTheInbound : public ::testing::TestWithParam<const char*> {};

TEST_P(AMemberOfTheInbound, IsRemoved) {
  for (const char* value : {R"("text")", R"(["list"])", "7", "null", "{}"}) {
    const std::string inbound =
        R"({"stack": "system", ")" + std::string(GetParam()) + "\": " + value + "}";
    const JsonText tree(Normalized("vless", WithInbound(inbound)));
    EXPECT_TRUE(SaysJson(json_object_get_member(tree.Object(), "inbounds"),
                         TakenOver(R"(, "stack": "system")")));
  }
}

INSTANTIATE_TEST_SUITE_P(ThatNarrowsTheTunnel, AMemberOfTheInbound,
                         ::testing::Values("route_address", "inet4_route_address",
                                           "inet6_route_address", "route_exclude_address",
                                           "inet4_route_exclude_address",
                                           "inet6_route_exclude_address", "route_address_set",
                                           "route_exclude_address_set", "include_interface",
                                           "exclude_interface", "include_uid", "include_uid_range",
                                           "exclude_uid", "exclude_uid_range", "include_package",
                                           "exclude_package", "include_android_user",
                                           "include_mac_address", "exclude_mac_address", "netns"),
                         [](const auto& testCase) { return std::string(testCase.param); });

struct ProxyCase {
  const char* name;
  const char* protocol;
  const char* outbounds;
  const char* tag;
};

class ASelectedProtocol : public ::testing::TestWithParam<ProxyCase> {};

TEST_P(ASelectedProtocol, ChoosesTheProxyOfRoutesAndDns) {
  const std::string outbounds = WithOutbounds(GetParam().outbounds);
  const std::string configuration =
      outbounds.substr(0, outbounds.size() - 1) + R"(, "dns": {"servers": [{}]}})";
  const JsonText tree(Normalized(GetParam().protocol, configuration));
  JsonObject* route = json_object_get_object_member(tree.Object(), "route");
  ASSERT_NE(route, nullptr);
  EXPECT_STREQ(json_object_get_string_member(route, "final"), GetParam().tag);
  EXPECT_TRUE(SaysJson(json_object_get_member(tree.Object(), "dns"),
                       R"({"servers": [{"detour": ")" + std::string(GetParam().tag) + R"("}]})"));
}

constexpr char kEveryProtocol[] =
    R"({"type": "direct", "tag": "direct"}, {"type": "block", "tag": "block"},
       {"type": "dns", "tag": "dns"}, {"type": "vmess", "tag": "m"}, {"type": "vless", "tag": "l"},
       {"type": "trojan", "tag": "t"}, {"type": "shadowsocks", "tag": "s"},
       {"type": "hysteria2", "tag": "h"}, {"type": "tuic", "tag": "u"})";

constexpr ProxyCase kByName[] = {
    {"Vless", "vless", kEveryProtocol, "l"},
    {"Vmess", "vmess", kEveryProtocol, "m"},
    {"Trojan", "trojan", kEveryProtocol, "t"},
    {"Shadowsocks", "shadowsocks", kEveryProtocol, "s"},
    {"Hysteria2", "hysteria2", kEveryProtocol, "h"},
    {"Tuic", "tuic", kEveryProtocol, "u"},
    {"InCapitals", "VLESS", kEveryProtocol, "l"},
    {"XrayReality", "xray-reality", kEveryProtocol, "l"},
    {"XrayRealityInCapitals", "Xray-REALITY", kEveryProtocol, "l"},
    {"Dravo", "dravo", kEveryProtocol, "l"},
    {"SingBoxTakesTheFirstProxy", "sing-box", kEveryProtocol, "m"},
    {"SingboxToo", "SingBox", kEveryProtocol, "m"},
};

constexpr ProxyCase kByOutbound[] = {
    {"TypesInCapitals", "vless", R"({"type": "VLess", "tag": "proxy"})", "proxy"},
    {"TheFirstOfSeveral", "vless",
     R"({"type": "vless", "tag": "a"}, {"type": "vless", "tag": "b"})", "a"},
    {"NoProxyTypesInCapitals", "sing-box",
     R"({"type": "DIRECT", "tag": "a"}, {"type": "Block", "tag": "b"}, {"type": "Dns", "tag": "c"},
        {"type": "wireguard", "tag": "d"})",
     "d"},
    {"AnyTypeAtAll", "singbox", R"({"type": "no such type", "tag": "a"})", "a"},
    {"AnEmptyType", "singbox", R"({"type": "", "tag": "a"})", "a"},
    {"TagsThatAreEmpty", "vless", R"({"type": "vless", "tag": ""}, {"type": "vless", "tag": "b"})",
     "b"},
    {"TagsThatAreMissing", "vless", R"({"type": "vless"}, {"type": "vless", "tag": "b"})", "b"},
    {"TagsThatAreNoText", "vless",
     R"({"type": "vless", "tag":1}, {"type": "vless", "tag": null}, {"type": "vless", "tag": "b"})",
     "b"},
    {"TypesThatAreMissing", "sing-box", R"({"tag": "a"}, {"type": "vless", "tag": "b"})", "b"},
    {"TypesThatAreNoText", "sing-box",
     R"({"type": 1, "tag": "a"}, {"type": ["vless"], "tag": "a"}, {"type": "vless", "tag": "b"})",
     "b"},
    {"ElementsThatAreNoObjects", "vless",
     R"("vless", null, 1, [{"type": "vless", "tag": "a"}], {"type": "vless", "tag": "b"})", "b"},
    {"TagsInAnyScript", "vless", R"({"type": "vless", "tag": "прокси 🚀"})", "прокси 🚀"},
};

INSTANTIATE_TEST_SUITE_P(Names, ASelectedProtocol, ::testing::ValuesIn(kByName), test::CaseName());
INSTANTIATE_TEST_SUITE_P(Outbounds, ASelectedProtocol, ::testing::ValuesIn(kByOutbound),
                         test::CaseName());

struct FailureCase {
  const char* name;
  const char* protocol;
  std::string configuration;
  const char* sentence;
};

class AnUnusableConfiguration : public ::testing::TestWithParam<FailureCase> {};

TEST_P(AnUnusableConfiguration, IsRefusedInWords) {
  std::string normalized = kUntouched;
  std::string error;
  EXPECT_FALSE(
      NormalizeSingBox(GetParam().protocol, GetParam().configuration, &normalized, &error));
  EXPECT_EQ(error, GetParam().sentence);
  EXPECT_EQ(normalized, kUntouched);
}

constexpr char kMalformed[] = "Unable to normalize the Sing-box configuration.";
constexpr char kInvalidRoot[] = "The Sing-box configuration root is invalid.";
constexpr char kInvalidInbound[] = "The Sing-box TUN inbound is invalid.";
constexpr char kNoProxy[] = "The selected Sing-box proxy outbound is unavailable.";

INSTANTIATE_TEST_SUITE_P(Texts, AnUnusableConfiguration,
                         ::testing::Values(FailureCase{"NoJson", "vless", "[Interface]\n",
                                                       kMalformed},
                                           FailureCase{"CutShort", "vless", "{", kMalformed},
                                           FailureCase{"Empty", "vless", "", kInvalidRoot},
                                           FailureCase{"OnlyBlanks", "vless", " \n", kInvalidRoot},
                                           FailureCase{"AnArray", "vless", "[]", kInvalidRoot},
                                           FailureCase{"AString", "vless", "\"{}\"", kInvalidRoot},
                                           FailureCase{"Null", "vless", "null", kInvalidRoot}),
                         test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Inbounds, AnUnusableConfiguration,
    ::testing::Values(FailureCase{"Missing", "vless", "{}", kInvalidInbound},
                      FailureCase{"AnObject", "vless", Root("{}", "[]"), kInvalidInbound},
                      FailureCase{"Null", "vless", Root("null", "[]"), kInvalidInbound},
                      FailureCase{"None", "vless", Root("[]", "[]"), kInvalidInbound},
                      FailureCase{"Two", "vless", Root("[{}, {}]", "[]"), kInvalidInbound},
                      FailureCase{"OneString", "vless", Root("[\"tun\"]", "[]"), kInvalidInbound},
                      FailureCase{"OneNull", "vless", Root("[null]", "[]"), kInvalidInbound},
                      FailureCase{"OneArray", "vless", Root("[[{}]]", "[]"), kInvalidInbound}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Outbounds, AnUnusableConfiguration,
    ::testing::Values(FailureCase{"Missing", "vless", R"({"inbounds": [{}]})", kNoProxy},
                      FailureCase{"AnObject", "vless",
                                  Root("[{}]", R"({"type": "vless", "tag": "a"})"), kNoProxy},
                      FailureCase{"None", "vless", WithOutbounds(""), kNoProxy},
                      FailureCase{"OfOtherTypes", "tuic",
                                  WithOutbounds(R"({"type": "vless", "tag": "a"})"), kNoProxy},
                      FailureCase{"OfATypeThatOnlyBeginsSo", "vless",
                                  WithOutbounds(R"({"type": "vless2", "tag": "a"})"), kNoProxy},
                      FailureCase{"WithBlanksAroundTheType", "vless",
                                  WithOutbounds(R"({"type": " vless ", "tag": "a"})"), kNoProxy},
                      FailureCase{"WithAnEmptyTag", "vless",
                                  WithOutbounds(R"({"type": "vless", "tag": ""})"), kNoProxy},
                      FailureCase{"OnlyDirect", "sing-box",
                                  WithOutbounds(R"({"type": "direct", "tag": "a"})"), kNoProxy},
                      FailureCase{"ATypeThatIsNeverAProxy", "direct",
                                  WithOutbounds(R"({"type": "direct", "tag": "a"})"), kNoProxy}),
    test::CaseName());

}  // namespace
}  // namespace quorvex::linux_service
