// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "killswitch/endpoint_hosts.h"
#include "tests/unit/killswitch/host_case.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using test::HostCase;

std::string Outbounds(std::string_view elements) {
  return R"({"outbounds": [)" + std::string(elements) + "]}";
}

// One outbound with these members of its `settings`.
std::string Settings(std::string_view members) {
  return Outbounds(R"({"settings": {)" + std::string(members) + "}}");
}

class OutboundsOfSingBox : public ::testing::TestWithParam<HostCase> {};

constexpr HostCase kSingBoxServers[] = {
    {"One", R"({"server": "vpn.example"})", {"vpn.example"}},
    {"SeveralInOrder", R"({"server": "b"}, {"server": "a"}, {"server": "c"})", {"b", "a", "c"}},
    {"TheSameTwice", R"({"server": "a"}, {"server": "b"}, {"server": "a"})", {"a", "b"}},
    {"TheSameButForBlanks", R"({"server": "a"}, {"server": " a "})", {"a"}},
    {"TheSameButForLetterCase",
     R"({"server": "vpn.example"}, {"server": "VPN.example"})",
     {"vpn.example", "VPN.example"}},
    {"EveryTypeAndTag",
     R"({"type": "vless", "tag": "proxy", "server": "a"}, {"type": "direct", "server": "b"},
        {"type": "block", "tag": "", "server": "c"}, {"type": 7, "server": "d"})",
     {"a", "b", "c", "d"}},
    {"ThePortIsNotRead", R"({"server": "a", "server_port": 443})", {"a"}},
    {"ColonsStay",
     R"({"server": "a:443"}, {"server": "[2001:db8::1]"})",
     {"a:443", "[2001:db8::1]"}},
    {"EscapesAreRead", R"({"server": "v\u0070n\u002eexample"})", {"vpn.example"}},
};

constexpr HostCase kSingBoxElements[] = {
    {"ThatAreNoObjects", R"("a", 1, true, null, ["b", {"server": "c"}], {"server": "d"})", {"d"}},
    {"WithoutServer", R"({"type": "direct"}, {}, {"server": "a"})", {"a"}},
    {"WithANumber", R"({"server": 1}, {"server": 1.5})"},
    {"WithABoolean", R"({"server": true}, {"server": false})"},
    {"WithNull", R"({"server": null})"},
    {"WithAnArray", R"({"server": ["a"]})"},
    {"WithAnObject", R"({"server": {"server": "a"}})"},
    {"WithAnotherLetterCase", R"({"Server": "a"})"},
    {"WithSettingsOfXray", R"({"settings": {"vnext": [{"address": "a"}], "server": "b"}})"},
};

constexpr HostCase kSingBoxTexts[] = {
    {"Trimmed", R"({"server": "\t \r\nvpn.example \r\n\t"})", {"vpn.example"}},
    {"WithInnerBlanks", R"({"server": " a \t b "})", {"a \t b"}},
    {"WithOtherWhiteSpace", R"({"server": " \u000b\fa\f "})", {"\v\fa\f"}},
    {"WithANoBreakSpace", R"({"server": "\u00a0x"})", {"\xc2\xa0x"}},
    {"Empty", R"({"server": ""}, {"server": "a"})", {"a"}},
    {"OnlyBlanks", R"({"server": " \t\r\n"}, {"server": "a"})", {"a"}},
};

INSTANTIATE_TEST_SUITE_P(Servers, OutboundsOfSingBox, ::testing::ValuesIn(kSingBoxServers),
                         test::CaseName());
INSTANTIATE_TEST_SUITE_P(Elements, OutboundsOfSingBox, ::testing::ValuesIn(kSingBoxElements),
                         test::CaseName());
INSTANTIATE_TEST_SUITE_P(Texts, OutboundsOfSingBox, ::testing::ValuesIn(kSingBoxTexts),
                         test::CaseName());

TEST_P(OutboundsOfSingBox, NameTheirServers) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kSingBox, Outbounds(GetParam().text)),
            GetParam().Hosts());
}

class OutboundsOfXray : public ::testing::TestWithParam<HostCase> {};

constexpr HostCase kXrayOutbounds[] = {
    {"OutboundByOutbound",
     R"({"settings": {"servers": [{"address": "s1"}]}},
        {"settings": {"vnext": [{"address": "v2"}],
                      "servers": [{"address": "s1"}, {"address": "s2"}]}},
        {"settings": {"vnext": [{"address": "v3"}]}})",
     {"s1", "v2", "s2", "v3"}},
    {"EveryProtocolAndTag",
     R"({"protocol": "freedom", "settings": {"vnext": [{"address": "a"}]}},
        {"protocol": 7, "tag": "x", "settings": {"servers": [{"address": "b"}]}})",
     {"a", "b"}},
    {"ThatAreNoObjects",
     R"("a", 1, null, [{"settings": {"vnext": [{"address": "b"}]}}],
        {"settings": {"vnext": [{"address": "c"}]}})",
     {"c"}},
    {"WithoutSettings", R"({"vnext": [{"address": "a"}], "address": "b"}, {}, {"server": "c"})"},
    {"WithSettingsThatAreNoObject",
     R"({"settings": null}, {"settings": "a"}, {"settings": 1},
        {"settings": [{"vnext": [{"address": "b"}]}]})"},
};

INSTANTIATE_TEST_SUITE_P(Cases, OutboundsOfXray, ::testing::ValuesIn(kXrayOutbounds),
                         test::CaseName());

TEST_P(OutboundsOfXray, NameTheAddressesInTheirSettings) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kXray, Outbounds(GetParam().text)),
            GetParam().Hosts());
}

class SettingsOfXray : public ::testing::TestWithParam<HostCase> {};

constexpr HostCase kXraySettings[] = {
    {"OneVnext", R"("vnext": [{"address": "a", "port": 443}])", {"a"}},
    {"OneServer", R"("servers": [{"address": "a", "port": 443}])", {"a"}},
    {"SeveralInOrder",
     R"("vnext": [{"address": "b"}, {"address": "a"}, {"address": "b"}])",
     {"b", "a"}},
    {"VnextBeforeServers",
     R"("servers": [{"address": "s1"}, {"address": "s2"}],
        "vnext": [{"address": "v1"}, {"address": "v2"}])",
     {"v1", "v2", "s1", "s2"}},
    {"TheSameInBoth", R"("vnext": [{"address": "a"}], "servers": [{"address": "a"}])", {"a"}},
    {"TheSameButForLetterCase", R"("vnext": [{"address": "a"}, {"address": "A"}])", {"a", "A"}},
    {"None", ""},
    {"EmptyArrays", R"("vnext": [], "servers": [])"},
    {"AnObjectForAnArray", R"("vnext": {"address": "a"}, "servers": [{"address": "b"}])", {"b"}},
    {"ScalarsForArrays", R"("vnext": "a", "servers": null)"},
    {"AnotherLetterCase", R"("Vnext": [{"address": "a"}])"},
    {"AnAddressOfTheirOwn", R"("address": "a", "server": "b")"},
    {"ElementsThatAreNoObjects",
     R"("vnext": ["a", 1, null, [{"address": "b"}], {"address": "c"}])",
     {"c"}},
    {"ElementsWithoutAddress",
     R"("servers": [{"port": 1}, {}, {"server": "b"}, {"address": "a"}])",
     {"a"}},
    {"AddressesThatAreNoText",
     R"("servers": [{"address": 1}, {"address": true}, {"address": null}, {"address": ["a"]},
                    {"address": {"address": "b"}}])"},
    {"TrimmedAddresses", R"("vnext": [{"address": "\t a \r\n"}])", {"a"}},
};

INSTANTIATE_TEST_SUITE_P(Cases, SettingsOfXray, ::testing::ValuesIn(kXraySettings),
                         test::CaseName());

TEST_P(SettingsOfXray, NameTheirAddresses) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kXray, Settings(GetParam().text)), GetParam().Hosts());
}

class AJsonText : public ::testing::TestWithParam<HostCase> {};

// Each would name a host in both formats, if its shape were right.
constexpr HostCase kShapes[] = {
    {"MembersAroundTheOutbounds",
     R"({"log": {}, "outbounds": [{"server": "a", "settings": {"vnext": [{"address": "a"}]}}],
         "server": "b", "address": "c"})",
     {"a"}},
    {"Empty", ""},
    {"OnlyBlanks", " \n"},
    {"NoJson", "remote vpn.example 1194\nEndpoint = a\n"},
    {"CutOff", R"({"outbounds": [{"server": "a", "settings": {"vnext": [{"address": "a"}]}}])"},
    {"NoUtf8", "{\"outbounds\": [{\"server\": \"a\xff\"}]}"},
    {"AnArray", R"([{"outbounds": [{"server": "a"}]}])"},
    {"AString", R"("outbounds")"},
    {"ANumber", "1"},
    {"Null", "null"},
    {"NoOutbounds", "{}"},
    {"AnEmptyArrayOfOutbounds", R"({"outbounds": []})"},
    {"AnObjectOfOutbounds",
     R"({"outbounds": {"server": "a", "settings": {"vnext": [{"address": "a"}]}}})"},
    {"AStringOfOutbounds", R"({"outbounds": "a"})"},
    {"NullOutbounds", R"({"outbounds": null})"},
    {"OutboundsInAnotherLetterCase", R"({"Outbounds": [{"server": "a"}]})"},
    {"OutboundsElsewhere",
     R"({"inbounds": [{"server": "a"}], "endpoints": [{"server": "b"}],
         "dns": {"servers": [{"server": "c"}]},
         "route": {"outbounds": [{"server": "d", "settings": {"vnext": [{"address": "e"}]}}]}})"},
};

INSTANTIATE_TEST_SUITE_P(Shapes, AJsonText, ::testing::ValuesIn(kShapes), test::CaseName());

TEST_P(AJsonText, NamesHostsOnlyInItsOutbounds) {
  const std::string text(GetParam().text);
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kSingBox, text), GetParam().Hosts());
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kXray, text), GetParam().Hosts());
}

}  // namespace
}  // namespace quorvex::linux_service
