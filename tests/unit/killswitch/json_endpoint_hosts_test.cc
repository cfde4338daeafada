// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "killswitch/endpoint_hosts.h"
#include "tests/unit/killswitch/host_case.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using test::HostCase;
using test::kLongestHost;
using test::kTooLongHost;

using Hosts = std::vector<std::string>;

std::string Outbounds(const std::string& elements) {
  return R"({"outbounds": [)" + elements + "]}";
}

std::string Server(const std::string& host) {
  return R"({"server": ")" + host + R"("})";
}

// One outbound with these `settings`.
std::string Settings(const std::string& members) {
  return Outbounds(R"({"settings": {)" + members + "}}");
}

std::string Address(const std::string& host) {
  return R"({"address": ")" + host + R"("})";
}

class ASingBoxConfiguration : public ::testing::TestWithParam<HostCase> {};

INSTANTIATE_TEST_SUITE_P(
    Outbounds, ASingBoxConfiguration,
    ::testing::Values(
        HostCase{"OneServer", Outbounds(Server("vpn.example")), {"vpn.example"}},
        HostCase{"SeveralInOrder",
                 Outbounds(Server("b") + "," + Server("a") + "," + Server("c")),
                 {"b", "a", "c"}},
        HostCase{"TheSameTwice",
                 Outbounds(Server("a") + "," + Server("b") + "," + Server("a")),
                 {"a", "b"}},
        HostCase{"TheSameButForBlanks", Outbounds(Server("a") + "," + Server(" a ")), {"a"}},
        HostCase{"TheSameButForLetterCase",
                 Outbounds(Server("vpn.example") + "," + Server("VPN.example")),
                 {"vpn.example", "VPN.example"}},
        HostCase{"EveryTypeAndTag",
                 Outbounds(R"({"type": "vless", "tag": "proxy", "server": "a"},
                              {"type": "direct", "server": "b"},
                              {"type": "block", "tag": "", "server": "c"},
                              {"type": 7, "server": "d"})"),
                 {"a", "b", "c", "d"}},
        HostCase{"ThePortIsNotRead", Outbounds(R"({"server": "a", "server_port": 443})"), {"a"}},
        HostCase{"ColonsStay",
                 Outbounds(Server("a:443") + "," + Server("[2001:db8::1]")),
                 {"a:443", "[2001:db8::1]"}},
        HostCase{"EscapesAreRead", Outbounds(Server(R"(v\u0070n\u002eexample)")), {"vpn.example"}},
        HostCase{"MembersAroundIt",
                 R"({"log": {}, "outbounds": [{"server": "a"}], "server": "b"})",
                 {"a"}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Elements, ASingBoxConfiguration,
    ::testing::Values(
        HostCase{"ThatAreNoObjects",
                 Outbounds(R"("a", 1, true, null, ["b", {"server": "c"}], {"server": "d"})"),
                 {"d"}},
        HostCase{"WithoutServer", Outbounds(R"({"type": "direct"}, {}, {"server": "a"})"), {"a"}},
        HostCase{"WithANumber", Outbounds(R"({"server": 1}, {"server": 1.5})"), {}},
        HostCase{"WithABoolean", Outbounds(R"({"server": true}, {"server": false})"), {}},
        HostCase{"WithNull", Outbounds(R"({"server": null})"), {}},
        HostCase{"WithAnArray", Outbounds(R"({"server": ["a"]})"), {}},
        HostCase{"WithAnObject", Outbounds(R"({"server": {"server": "a"}})"), {}},
        HostCase{"WithAnotherLetterCase", Outbounds(R"({"Server": "a"})"), {}},
        HostCase{"WithSettingsOfXray",
                 Outbounds(R"({"settings": {"vnext": [{"address": "a"}], "server": "b"}})"),
                 {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Texts, ASingBoxConfiguration,
    ::testing::Values(
        HostCase{"Trimmed", Outbounds(Server(R"(\t \r\nvpn.example \r\n\t)")), {"vpn.example"}},
        HostCase{"InnerBlanksStay", Outbounds(Server(R"( a \t b )")), {"a \t b"}},
        HostCase{"OtherWhiteSpaceStays", Outbounds(Server(R"( \u000b\fa\f )")), {"\v\fa\f"}},
        HostCase{"TheNoBreakSpaceStays",
                 Outbounds(Server(R"(\u00a0a)")),
                 {"\xc2\xa0"
                  "a"}},
        HostCase{"Empty", Outbounds(Server("")), {}},
        HostCase{"OnlyBlanks", Outbounds(Server(R"( \t\r\n)")), {}},
        HostCase{"TheShortest", Outbounds(Server("h")), {"h"}},
        HostCase{"TheLongest", Outbounds(Server(kLongestHost)), {kLongestHost}},
        HostCase{"TheLongestBetweenBlanks",
                 Outbounds(Server("  " + kLongestHost + " ")),
                 {kLongestHost}},
        HostCase{"OneByteTooLong", Outbounds(Server(kTooLongHost) + "," + Server("a")), {"a"}},
        HostCase{"TooLongInBytesOnly", Outbounds(Server(kLongestHost.substr(1) + "\xc3\xa4")), {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Otherwise, ASingBoxConfiguration,
    ::testing::Values(HostCase{"Empty", "", {}}, HostCase{"OnlyBlanks", " \n", {}},
                      HostCase{"NoJson", "remote vpn.example 1194\nEndpoint = a\n", {}},
                      HostCase{"CutOff", R"({"outbounds": [{"server": "a"})", {}},
                      HostCase{"NoUtf8", Outbounds(Server("a\xff")), {}},
                      HostCase{"AnArray", R"([{"outbounds": [{"server": "a"}]}])", {}},
                      HostCase{"AString", R"("outbounds")", {}}, HostCase{"ANumber", "1", {}},
                      HostCase{"Null", "null", {}}, HostCase{"NoOutbounds", "{}", {}},
                      HostCase{"NoOutbound", Outbounds(""), {}},
                      HostCase{"AnObjectOfOutbounds", R"({"outbounds": {"server": "a"}})", {}},
                      HostCase{"AStringOfOutbounds", R"({"outbounds": "a"})", {}},
                      HostCase{"NullOutbounds", R"({"outbounds": null})", {}},
                      HostCase{"OutboundsElsewhere",
                               R"({"inbounds": [{"server": "a"}],
                                   "endpoints": [{"server": "b"}],
                                   "dns": {"servers": [{"server": "c"}]},
                                   "route": {"outbounds": [{"server": "d"}]}})",
                               {}}),
    test::CaseName());

TEST_P(ASingBoxConfiguration, NamesTheServersOfItsOutbounds) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kSingBox, GetParam().text), GetParam().hosts);
}

class AnXrayConfiguration : public ::testing::TestWithParam<HostCase> {};

INSTANTIATE_TEST_SUITE_P(
    Outbounds, AnXrayConfiguration,
    ::testing::Values(
        HostCase{"OneVnext", Settings(R"("vnext": [{"address": "a", "port": 443}])"), {"a"}},
        HostCase{"OneServer", Settings(R"("servers": [{"address": "a", "port": 443}])"), {"a"}},
        HostCase{"SeveralVnextInOrder",
                 Settings(R"("vnext": [{"address": "b"}, {"address": "a"}, {"address": "b"}])"),
                 {"b", "a"}},
        HostCase{"VnextBeforeServers",
                 Settings(R"("servers": [{"address": "s1"}, {"address": "s2"}],
                             "vnext": [{"address": "v1"}, {"address": "v2"}])"),
                 {"v1", "v2", "s1", "s2"}},
        HostCase{"OutboundByOutbound",
                 Outbounds(R"({"settings": {"servers": [{"address": "s1"}]}},
                              {"settings": {"vnext": [{"address": "v2"}],
                                            "servers": [{"address": "s1"}, {"address": "s2"}]}},
                              {"settings": {"vnext": [{"address": "v3"}]}})"),
                 {"s1", "v2", "s2", "v3"}},
        HostCase{"TheSameButForLetterCase",
                 Settings(R"("vnext": [{"address": "a"}, {"address": "A"}])"),
                 {"a", "A"}},
        HostCase{"EveryProtocolAndTag",
                 Outbounds(R"({"protocol": "freedom", "settings": {"vnext": [{"address": "a"}]}},
                              {"protocol": 7, "tag": "x",
                               "settings": {"servers": [{"address": "b"}]}})"),
                 {"a", "b"}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Settings, AnXrayConfiguration,
    ::testing::Values(
        HostCase{"Missing", Outbounds(R"({"vnext": [{"address": "a"}], "address": "b"}, {})"), {}},
        HostCase{"ThatAreNoObject",
                 Outbounds(R"({"settings": null}, {"settings": "a"}, {"settings": 1},
                              {"settings": [{"vnext": [{"address": "a"}]}]})"),
                 {}},
        HostCase{"Empty", Settings(""), {}},
        HostCase{"WithEmptyArrays", Settings(R"("vnext": [], "servers": [])"), {}},
        HostCase{"WithAnObjectForAnArray",
                 Settings(R"("vnext": {"address": "a"}, "servers": [{"address": "b"}])"),
                 {"b"}},
        HostCase{"WithScalarsForArrays", Settings(R"("vnext": "a", "servers": null)"), {}},
        HostCase{"WithAnotherLetterCase", Settings(R"("Vnext": [{"address": "a"}])"), {}},
        HostCase{"WithAnAddressOfTheirOwn", Settings(R"("address": "a", "server": "b")"), {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Elements, AnXrayConfiguration,
    ::testing::Values(
        HostCase{"OfTheOutboundsThatAreNoObjects",
                 Outbounds(R"("a", 1, null, [{"settings": {"vnext": [{"address": "b"}]}}],
                              {"settings": {"vnext": [{"address": "c"}]}})"),
                 {"c"}},
        HostCase{"ThatAreNoObjects",
                 Settings(R"("vnext": ["a", 1, null, [{"address": "b"}], {"address": "c"}])"),
                 {"c"}},
        HostCase{"WithoutAddress",
                 Settings(R"("servers": [{"port": 1}, {}, {"server": "b"}, {"address": "a"}])"),
                 {"a"}},
        HostCase{"WithoutAString",
                 Settings(R"("servers": [{"address": 1}, {"address": true}, {"address": null},
                                         {"address": ["a"]}, {"address": {"address": "b"}}])"),
                 {}},
        HostCase{"TrimmedOnes", Settings(R"("vnext": [{"address": "\t a \r\n"}])"), {"a"}},
        HostCase{
            "TheLongest", Settings("\"vnext\": [" + Address(kLongestHost) + "]"), {kLongestHost}},
        HostCase{"OneByteTooLong", Settings("\"vnext\": [" + Address(kTooLongHost) + "]"), {}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Otherwise, AnXrayConfiguration,
    ::testing::Values(HostCase{"Empty", "", {}}, HostCase{"NoJson", "Endpoint = a\n", {}},
                      HostCase{"CutOff", R"({"outbounds": [)", {}},
                      HostCase{"AnArray", "[" + Settings("") + "]", {}},
                      HostCase{"NoOutbounds", "{}", {}}, HostCase{"NoOutbound", Outbounds(""), {}},
                      HostCase{"AnObjectOfOutbounds",
                               R"({"outbounds": {"settings": {"vnext": [{"address": "a"}]}}})",
                               {}},
                      HostCase{"TheServersOfSingBox", Outbounds(Server("a")), {}}),
    test::CaseName());

TEST_P(AnXrayConfiguration, NamesTheAddressesOfItsOutbounds) {
  EXPECT_EQ(CollectEndpointHosts(EngineKind::kXray, GetParam().text), GetParam().hosts);
}

struct NoEngineCase {
  const char* name;
  EngineKind kind;
};

class AKindWithoutEngine : public ::testing::TestWithParam<NoEngineCase> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, AKindWithoutEngine,
    ::testing::Values(NoEngineCase{"Unsupported", EngineKind::kUnsupported},
                      NoEngineCase{"TheFirstUnknown", static_cast<EngineKind>(5)},
                      NoEngineCase{"TheLastUnknown", static_cast<EngineKind>(0xffffffffU)}),
    test::CaseName());

TEST_P(AKindWithoutEngine, NamesNoHost) {
  EXPECT_EQ(CollectEndpointHosts(GetParam().kind, Outbounds(Server("a"))), Hosts{});
  EXPECT_EQ(CollectEndpointHosts(GetParam().kind, "Endpoint = a\nremote a\n"), Hosts{});
}

}  // namespace
}  // namespace quorvex::linux_service
