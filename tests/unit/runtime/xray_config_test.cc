// SPDX-License-Identifier: Apache-2.0
#include "runtime/xray_config.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/json_parts.h"

namespace quorvex::linux_service {
namespace {

using test::JsonText;
using test::SaysJson;

constexpr char kUntouched[] = "as before";
constexpr char kProxy[] = R"({"protocol": "vless", "tag": "proxy"})";

std::string Root(const std::string& inbounds, const std::string& outbounds,
                 const std::string& more = "") {
  return R"({"inbounds": )" + inbounds + R"(, "outbounds": )" + outbounds + more + "}";
}

// A profile with this inbound, with these outbounds, or with more members.
std::string WithInbound(const std::string& inbound) {
  return Root("[" + inbound + "]", std::string("[") + kProxy + "]");
}
std::string WithOutbounds(const std::string& elements) {
  return Root(R"([{"protocol": "tun"}])", "[" + elements + "]");
}
std::string With(const std::string& more) {
  return Root(R"([{"protocol": "tun"}])", std::string("[") + kProxy + "]", ", " + more);
}

// The new text; a failure fails the test and gives an empty object.
std::string Normalized(const std::string& configuration) {
  std::string normalized;
  std::string error = kUntouched;
  EXPECT_TRUE(NormalizeXray(configuration, &normalized, &error)) << configuration;
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

class AnXrayProfile : public ::testing::TestWithParam<PartCase> {};

TEST_P(AnXrayProfile, IsRewrittenForTheServicesTunnel) {
  const JsonText tree(Normalized(GetParam().configuration));
  EXPECT_TRUE(
      SaysJson(json_object_get_member(tree.Object(), GetParam().member), GetParam().expected));
}

// The inbound with the settings as the service wants them, and more members of either.
std::string TakenOver(const std::string& moreSettings, const std::string& moreOfInbound) {
  return R"([{"tag": "quorvex-tun", "settings": {"name": "quorvex-xray0",
              "gateway": ["172.20.0.1/30", "fdfe:dcba:9877::1/126"],
              "autoSystemRoutingTable": ["0.0.0.0/0", "::/0"], "autoOutboundsInterface": "auto")" +
         moreSettings + "}" + moreOfInbound + "}]";
}

INSTANTIATE_TEST_SUITE_P(
    Inbound, AnXrayProfile,
    ::testing::Values(
        PartCase{"Bare", WithInbound(R"({"protocol": "tun"})"), "inbounds",
                 TakenOver("", R"(, "protocol": "tun")")},
        PartCase{"Empty", WithInbound("{}"), "inbounds", TakenOver("", "")},
        PartCase{"EmptySettings", WithInbound(R"({"settings": {}})"), "inbounds",
                 TakenOver("", "")},
        PartCase{"SettingsThatAreAString", WithInbound(R"({"settings": "tun0"})"), "inbounds",
                 TakenOver("", "")},
        PartCase{"SettingsThatAreNull", WithInbound(R"({"settings": null})"), "inbounds",
                 TakenOver("", "")},
        PartCase{"SettingsThatAreAnArray", WithInbound(R"({"settings": [{"MTU": 1}]})"), "inbounds",
                 TakenOver("", "")},
        PartCase{"WhatTheProfileSaidIsOverwritten", WithInbound(R"({"tag": "mine",
                                 "settings": {"name": "tun9", "gateway": ["10.0.0.1/8"],
                                              "autoSystemRoutingTable": [],
                                              "autoOutboundsInterface": "eth0"}})"),
                 "inbounds", TakenOver("", "")},
        PartCase{"WhateverItsKind", WithInbound(R"({"tag": 1,
                                 "settings": {"name": {}, "gateway": "10.0.0.1/8",
                                              "autoSystemRoutingTable": null,
                                              "autoOutboundsInterface": ["eth0"]}})"),
                 "inbounds", TakenOver("", "")},
        PartCase{"OtherMembersStay",
                 WithInbound(R"({"protocol": "TUN", "port": 0, "sniffing": {"enabled": true},
                                 "settings": {"MTU": 1400, "userLevel": 0}})"),
                 "inbounds",
                 TakenOver(R"(, "MTU": 1400, "userLevel": 0)",
                           R"(, "protocol": "TUN", "port": 0, "sniffing": {"enabled": true})")}),
    test::CaseName());

constexpr char kNewRouting[] =
    R"({"rules": [{"type": "field", "inboundTag": ["quorvex-tun"], "outboundTag": "proxy"}]})";

INSTANTIATE_TEST_SUITE_P(
    Routing, AnXrayProfile,
    ::testing::Values(
        PartCase{"Missing", WithInbound("{}"), "routing", kNewRouting},
        PartCase{"Empty", With(R"("routing": {})"), "routing", kNewRouting},
        PartCase{"AString", With(R"("routing": "direct")"), "routing", kNewRouting},
        PartCase{"Null", With(R"("routing": null)"), "routing", kNewRouting},
        PartCase{"AnArray", With(R"("routing": [{"rules": []}])"), "routing", kNewRouting},
        PartCase{"RulesOfTheProfileGo",
                 With(R"("routing": {"rules": [{"ip": ["geoip:private"], "outboundTag": "direct"},
                                               {"outboundTag": "block"}]})"),
                 "routing", kNewRouting},
        PartCase{"RulesThatAreNoArray", With(R"("routing": {"rules": "none"})"), "routing",
                 kNewRouting},
        PartCase{"OtherMembersStay",
                 With(R"("routing": {"domainStrategy": "AsIs", "balancers": [], "rules": [1]})"),
                 "routing",
                 R"({"domainStrategy": "AsIs", "balancers": [],
                     "rules": [{"type": "field", "inboundTag": ["quorvex-tun"],
                                "outboundTag": "proxy"}]})"}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    TheRest, AnXrayProfile,
    ::testing::Values(PartCase{"OfTheRootStays", With(R"("dns": {"servers": ["1.1.1.1", {}]})"),
                               "dns", R"({"servers": ["1.1.1.1", {}]})"},
                      PartCase{"OfTheOutboundsStays",
                               WithOutbounds(R"({"protocol": "freedom", "tag": "d"},
                                                {"protocol": "vless", "tag": "proxy",
                                                 "settings": {"vnext": [{"port": 443}]}})"),
                               "outbounds",
                               R"([{"protocol": "freedom", "tag": "d"},
                                   {"protocol": "vless", "tag": "proxy",
                                    "settings": {"vnext": [{"port": 443}]}}])"}),
    test::CaseName());

TEST(AnXrayRewrite, AddsNothingElse) {
  const JsonText tree(Normalized(WithInbound("{}")));
  EXPECT_EQ(json_object_get_size(tree.Object()), 3U) << "inbounds, outbounds and routing";
}

TEST(AnXrayRewrite, IsCompact) {
  const std::string text = Normalized(With("\n\"log\": {\n  \"loglevel\": \"warning\"\n}"));
  EXPECT_EQ(text.find_first_of(" \t\n"), std::string::npos) << text;
}

TEST(AnXrayRewrite, WritesNumbersAndTextsAsTheyWere) {
  const std::string text =
      Normalized(With(R"("log": {"a": 9007199254740993, "b": -1, "c": 1.5, "d": "\"\\\u00e9п"})"));
  EXPECT_NE(text.find(R"("a":9007199254740993,"b":-1,"c":1.5,"d":"\"\\éп")"), std::string::npos)
      << text;
}

struct ProxyCase {
  const char* name;
  const char* outbounds;
  const char* tag;
};

class TheOutbounds : public ::testing::TestWithParam<ProxyCase> {};

TEST_P(TheOutbounds, GiveTheFirstProxyAllTraffic) {
  const JsonText tree(Normalized(WithOutbounds(GetParam().outbounds)));
  EXPECT_TRUE(SaysJson(json_object_get_member(tree.Object(), "routing"),
                       R"({"rules": [{"type": "field", "inboundTag": ["quorvex-tun"],
                                      "outboundTag": ")" +
                           std::string(GetParam().tag) + R"("}]})"));
}

constexpr ProxyCase kProxies[] = {
    {"OneProxy", R"({"protocol": "vless", "tag": "a"})", "a"},
    {"AfterFreedom",
     R"({"protocol": "freedom", "tag": "direct"}, {"protocol": "vless", "tag": "proxy"})", "proxy"},
    {"AfterAllThatAreNone",
     R"({"protocol": "dns", "tag": "a"}, {"protocol": "blackhole", "tag": "b"},
        {"protocol": "freedom", "tag": "c"}, {"protocol": "shadowsocks", "tag": "d"})",
     "d"},
    {"WhateverTheLetterCase",
     R"({"protocol": "Freedom", "tag": "a"}, {"protocol": "BLACKHOLE", "tag": "b"},
        {"protocol": "Dns", "tag": "c"}, {"protocol": "VMess", "tag": "d"})",
     "d"},
    {"TheFirstOfSeveral", R"({"protocol": "vmess", "tag": "a"}, {"protocol": "vless", "tag": "b"})",
     "a"},
    {"AnyProtocolAtAll", R"({"protocol": "no such protocol", "tag": "a"})", "a"},
    {"AnEmptyProtocol", R"({"protocol": "", "tag": "a"})", "a"},
    {"ProtocolsOfOtherKinds",
     R"({"protocol": 1, "tag": "a"}, {"protocol": ["vless"], "tag": "b"}, {"tag": "c"},
        {"protocol": null, "tag": "d"}, {"protocol": "vless", "tag": "e"})",
     "e"},
    {"TagsOfOtherKinds",
     R"({"protocol": "vless", "tag": ""}, {"protocol": "vless"}, {"protocol": "vless", "tag": 1},
        {"protocol": "vless", "tag": null}, {"protocol": "vless", "tag": "e"})",
     "e"},
    {"ElementsThatAreNoObjects",
     R"("vless", null, 1, [{"protocol": "vless", "tag": "a"}], {"protocol": "vless", "tag": "b"})",
     "b"},
    {"TagsInAnyScript", R"({"protocol": "vless", "tag": "прокси 🚀"})", "прокси 🚀"},
};

INSTANTIATE_TEST_SUITE_P(Of, TheOutbounds, ::testing::ValuesIn(kProxies), test::CaseName());

struct FailureCase {
  const char* name;
  std::string configuration;
  const char* sentence;
};

class AnUnusableXrayConfiguration : public ::testing::TestWithParam<FailureCase> {};

TEST_P(AnUnusableXrayConfiguration, IsRefusedInWords) {
  std::string normalized = kUntouched;
  std::string error;
  EXPECT_FALSE(NormalizeXray(GetParam().configuration, &normalized, &error));
  EXPECT_EQ(error, GetParam().sentence);
  EXPECT_EQ(normalized, kUntouched);
}

constexpr char kMalformed[] = "Unable to normalize the Xray configuration.";
constexpr char kInvalidRoot[] = "The Xray configuration root is invalid.";
constexpr char kNoInbound[] = "The Xray TUN inbound is unavailable.";
constexpr char kInvalidInbound[] = "The Xray TUN inbound is invalid.";
constexpr char kNoProxy[] = "The Xray proxy outbound is unavailable.";

INSTANTIATE_TEST_SUITE_P(Texts, AnUnusableXrayConfiguration,
                         ::testing::Values(FailureCase{"NoJson", "[Interface]\n", kMalformed},
                                           FailureCase{"CutShort", "{", kMalformed},
                                           FailureCase{"Empty", "", kInvalidRoot},
                                           FailureCase{"OnlyBlanks", " \n", kInvalidRoot},
                                           FailureCase{"AnArray", "[]", kInvalidRoot},
                                           FailureCase{"AString", "\"{}\"", kInvalidRoot},
                                           FailureCase{"Null", "null", kInvalidRoot}),
                         test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Inbounds, AnUnusableXrayConfiguration,
    ::testing::Values(FailureCase{"Missing", "{}", kNoInbound},
                      FailureCase{"AnObject", Root("{}", "[]"), kNoInbound},
                      FailureCase{"Null", Root("null", "[]"), kNoInbound},
                      FailureCase{"None", Root("[]", "[]"), kNoInbound},
                      FailureCase{"Two", Root("[{}, {}]", "[]"), kNoInbound},
                      FailureCase{"OneString", Root("[\"tun\"]", "[]"), kInvalidInbound},
                      FailureCase{"OneNull", Root("[null]", "[]"), kInvalidInbound},
                      FailureCase{"OneArray", Root("[[{}]]", "[]"), kInvalidInbound}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Outbounds, AnUnusableXrayConfiguration,
    ::testing::Values(FailureCase{"Missing", R"({"inbounds": [{}]})", kNoProxy},
                      FailureCase{"AnObject", Root("[{}]", kProxy), kNoProxy},
                      FailureCase{"None", WithOutbounds(""), kNoProxy},
                      FailureCase{"OnlyBlackholeAndDns",
                                  WithOutbounds(R"({"protocol": "blackhole", "tag": "a"},
                                     {"protocol": "dns", "tag": "b"})"),
                                  kNoProxy},
                      FailureCase{"OnlyFreedom",
                                  WithOutbounds(R"({"protocol": "Freedom", "tag": "a"})"),
                                  kNoProxy},
                      FailureCase{"WithAnEmptyTag",
                                  WithOutbounds(R"({"protocol": "vless", "tag": ""})"), kNoProxy}),
    test::CaseName());

}  // namespace
}  // namespace quorvex::linux_service
