// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/sing_box_sentences_expected.h"
#include "validation/engine_rules.h"

namespace quorvex::linux_service {
namespace {

using namespace test::sing_box;

const std::string kDns = R"("dns": {"servers": [{"type": "https", "server": "1.1.1.1"}]})";
const std::string kInbounds = R"("inbounds": [{"type": "tun", "auto_route": true}])";
const std::string kOutbounds = R"("outbounds": [{"type": "vless", "tag": "proxy"}])";

// Each is a sound profile but for the members given.
std::string With(const std::string& members) {
  return "{" + members + ", " + kDns + ", " + kInbounds + ", " + kOutbounds + "}";
}

std::string WithDns(const std::string& dns) {
  return "{" + dns + (dns.empty() ? "" : ", ") + kInbounds + ", " + kOutbounds + "}";
}

std::string WithServers(const std::string& servers) {
  return WithDns(R"("dns": {"servers": [)" + servers + "]}");
}

std::string WithInbounds(const std::string& inbounds) {
  return "{" + inbounds + (inbounds.empty() ? "" : ", ") + kDns + ", " + kOutbounds + "}";
}

std::string WithOutbounds(const std::string& outbounds) {
  return "{" + kDns + ", " + kInbounds + (outbounds.empty() ? "" : ", ") + outbounds + "}";
}

ValidationResult ValidateVless(const std::string& text) {
  return ValidateSingBox("vless", text);
}

TEST(ASingBoxProfile, IsAJsonObjectWithinLimits) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"Malformed", "{", kMalformed},
       {"Array", "[" + With(R"("a": 1)") + "]", kNotAnObject},
       {"Deep", With(R"("a": )" + test::Times(65, "[") + test::Times(65, "]")), kTooComplex},
       {"WithOtherMembers", With(R"("route": {"rules": []}, "ntp": null, "log": null)")}});
}

TEST(ASingBoxProfile, HasNoExperimentalServices) {
  test::ExpectVerdicts(ValidateVless,
                       {{"Empty", With(R"("experimental": {})"), kExperimental},
                        {"Null", With(R"("experimental": null)"), kExperimental},
                        {"False", With(R"("experimental": false)"), kExperimental},
                        {"Full", With(R"("experimental": {"clash_api": {}})"), kExperimental},
                        {"Elsewhere", With(R"("a": {"experimental": {}})")}});
}

TEST(ASingBoxProfile, WritesNoLogFile) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"ToAFile", With(R"("log": {"output": "/var/log/x"})"), kLogFile},
       {"ToStdout", With(R"("log": {"output": "stdout"})"), kLogFile},
       {"ToNowhere", With(R"("log": {"output": ""})")},
       {"WithAnOutputOfAnotherKind", With(R"("log": {"output": ["x"], "level": "info"})")},
       {"Empty", With(R"("log": {})")},
       {"OfAnotherKind", With(R"("log": [{"output": "/var/log/x"}])")},
       {"Text", With(R"("log": "/var/log/x")")},
       {"Elsewhere", With(R"("a": {"log": {"output": "x"}})")}});
}

TEST(ASingBoxProfile, NamesNoFile) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"Certificate", With(R"("tls": {"certificate_path": "/etc/x.pem"})"), kFileMember},
       {"KeyInAnOutbound", WithOutbounds(R"("outbounds": [{"type": "vless", "tag": "a",
                                     "tls": {"KeyFile": ["/etc/x.pem"]}}])"),
        kFileMember},
       {"EmptyKey", With(R"("tls": {"key_path": ""})")},
       {"GeoData", With(R"("route": {"rules": ["EXT:custom.dat:cn"]})"), kExternal},
       {"GeoSite", With(R"("route": {"rules": ["geosite:cn"]})")},
       {"LocalRuleSet", With(R"("route": {"rule_set": [{"type": "LOCAL", "path": "/tmp/r.srs"}]})"),
        kExternal},
       {"RemoteRuleSet",
        With(R"("route": {"rule_set": [{"type": "remote", "path": "/tmp/r.srs"}]})")}});
}

TEST(ASingBoxProfile, NeedsDnsServers) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"Missing", WithDns(""), kNoDns},
       {"Null", WithDns(R"("dns": null)"), kNoDns},
       {"Array", WithDns(R"("dns": [{"servers": []}])"), kNoDns},
       {"Text", WithDns(R"("dns": "1.1.1.1")"), kNoDns},
       {"WithoutServers", WithDns(R"("dns": {})"), kNoDnsServer},
       {"WithNullServers", WithDns(R"("dns": {"servers": null})"), kNoDnsServer},
       {"WithServersObject", WithDns(R"("dns": {"servers": {"type": "udp", "server": "1.1.1.1"}})"),
        kNoDnsServer},
       {"WithNoServer", WithServers(""), kNoDnsServer}});
}

TEST(ASingBoxProfile, HasOnlyCompleteRemoteDnsServers) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"Text", WithServers(R"("1.1.1.1")"), kDnsNotStructured},
       {"Null", WithServers("null"), kDnsNotStructured},
       {"Array", WithServers(R"([{"type": "udp", "server": "1.1.1.1"}])"), kDnsNotStructured},
       {"Empty", WithServers("{}"), kDnsIncomplete},
       {"WithoutServer", WithServers(R"({"type": "udp"})"), kDnsIncomplete},
       {"LocalWithoutServer", WithServers(R"({"type": "local"})"), kDnsIncomplete},
       {"WithoutType", WithServers(R"({"server": "1.1.1.1"})"), kDnsIncomplete},
       {"WithEmptyServer", WithServers(R"({"type": "udp", "server": ""})"), kDnsIncomplete},
       {"WithEmptyType", WithServers(R"({"type": "", "server": "1.1.1.1"})"), kDnsIncomplete},
       {"WithServerOfAnotherKind", WithServers(R"({"type": "udp", "server": ["a"]})"),
        kDnsIncomplete},
       {"WithTypeOfAnotherKind", WithServers(R"({"type": 1, "server": "a"})"), kDnsIncomplete},
       {"WithMembersInCapitals", WithServers(R"({"Type": "udp", "SERVER": "a"})"), kDnsIncomplete},
       {"Second", WithServers(R"({"type": "udp", "server": "a"}, "b")"), kDnsNotStructured},
       {"SecondIncomplete", WithServers(R"({"type": "udp", "server": "a"}, {})"), kDnsIncomplete},
       {"FirstOfTwo", WithServers(R"({"type": "local", "server": "a"}, {})"), kDnsNotRemote}});
}

TEST(ASingBoxProfile, HasOneTunInboundWithAutoRoute) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"Missing", WithInbounds(""), kNoInbound},
       {"Null", WithInbounds(R"("inbounds": null)"), kNoInbound},
       {"Object", WithInbounds(R"("inbounds": {"type": "tun", "auto_route": true})"), kNoInbound},
       {"Empty", WithInbounds(R"("inbounds": [])"), kNotOneInbound},
       {"TunAndMixed", WithInbounds(R"("inbounds": [{"type": "tun", "auto_route": true},
                                                 {"type": "mixed"}])"),
        kNotOneInbound},
       {"TunAndNull", WithInbounds(R"("inbounds": [{"type": "tun", "auto_route": true}, null])"),
        kNotOneInbound},
       {"Text", WithInbounds(R"("inbounds": ["tun"])"), kBadInbound},
       {"NullElement", WithInbounds(R"("inbounds": [null])"), kBadInbound},
       {"ArrayElement", WithInbounds(R"("inbounds": [[{"type": "tun", "auto_route": true}]])"),
        kBadInbound},
       {"Mixed", WithInbounds(R"("inbounds": [{"type": "mixed", "auto_route": true}])"),
        kNoAutoRoute},
       {"WithoutType", WithInbounds(R"("inbounds": [{"auto_route": true}])"), kNoAutoRoute},
       {"WithoutAutoRoute", WithInbounds(R"("inbounds": [{"type": "tun"}])"), kNoAutoRoute},
       {"WithFalseAutoRoute", WithInbounds(R"("inbounds": [{"type": "tun", "auto_route": false}])"),
        kNoAutoRoute},
       {"WithTextAutoRoute", WithInbounds(R"("inbounds": [{"type": "tun", "auto_route": "true"}])"),
        kNoAutoRoute},
       {"WithNumberAutoRoute", WithInbounds(R"("inbounds": [{"type": "tun", "auto_route": 1}])"),
        kNoAutoRoute},
       {"InCapitals",
        WithInbounds(R"("inbounds": [{"auto_route": true, "type": "TUN", "a": 1}])")}});
}

TEST(ASingBoxProfile, NeedsATaggedProxyOfItsProtocol) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"Missing", WithOutbounds(""), kNoOutbound},
       {"Null", WithOutbounds(R"("outbounds": null)"), kNoOutbound},
       {"Object", WithOutbounds(R"("outbounds": {"type": "vless", "tag": "a"})"), kNoOutbound},
       {"Empty", WithOutbounds(R"("outbounds": [])"), kNoOutbound},
       {"DirectOnly", WithOutbounds(R"("outbounds": [{"type": "direct", "tag": "a"}])"), kNoProxy},
       {"OfOtherKinds", WithOutbounds(R"("outbounds": ["vless", null, 1, [{"type": "vless",
                                                                       "tag": "a"}]])"),
        kNoProxy},
       {"Untagged", WithOutbounds(R"("outbounds": [{"type": "vless"}])"), kNoProxy},
       {"WithEmptyTag", WithOutbounds(R"("outbounds": [{"type": "vless", "tag": ""}])"), kNoProxy},
       {"WithTagOfAnotherKind", WithOutbounds(R"("outbounds": [{"type": "vless", "tag": 1}])"),
        kNoProxy},
       {"WithoutType", WithOutbounds(R"("outbounds": [{"tag": "vless"}])"), kNoProxy},
       {"WithTypeOfAnotherKind", WithOutbounds(R"("outbounds": [{"type": ["vless"], "tag": "a"}])"),
        kNoProxy},
       {"OfAnotherProtocol", WithOutbounds(R"("outbounds": [{"type": "vmess", "tag": "a"}])"),
        kNoProxy},
       {"OfALongerType", WithOutbounds(R"("outbounds": [{"type": "vless ", "tag": "a"}])"),
        kNoProxy},
       {"BehindOthers",
        WithOutbounds(R"("outbounds": [null, {"type": "direct", "tag": "a"}, {"tag": "b"},
                                     {"type": "vless"}, {"type": "vmess", "tag": "c"},
                                     {"type": "VLESS", "tag": "d"}, {"type": "block"}])")}});
}

TEST(ASingBoxProfile, IsRefusedByTheFirstRuleThatFails) {
  test::ExpectVerdicts(
      ValidateVless,
      {{"ExperimentalBeforeLog", R"({"log": {"output": "x"}, "experimental": 1, "keyfile": "x"})",
        kExperimental},
       {"LogBeforeFiles", R"({"keyfile": "x", "a": "ext:x", "log": {"output": "x"}})", kLogFile},
       {"FilesBeforeResources", R"({"a": "ext:x", "keyfile": "x"})", kFileMember},
       {"ResourcesBeforeDns", R"({"dns": "ext:x"})", kExternal},
       {"DnsBeforeInbounds", R"({"inbounds": []})", kNoDns},
       {"DnsServersBeforeInbounds", R"({"dns": {"servers": [{}]}})", kDnsIncomplete},
       {"InboundsBeforeOutbounds", "{" + kDns + "}", kNoInbound},
       {"ABadInboundBeforeOutbounds", "{" + kDns + R"(, "inbounds": [1]})", kBadInbound},
       {"ANonTunInboundBeforeOutbounds", "{" + kDns + R"(, "inbounds": [{}]})", kNoAutoRoute},
       {"TheCountOfInboundsBeforeTheirKind", "{" + kDns + R"(, "inbounds": [1, 2]})",
        kNotOneInbound}});
}

TEST(ASingBoxDnsServer, IsOfARemoteNetworkType) {
  const auto refusal = [](const std::string& type) {
    return test::SentenceOf(ValidateSingBox(
        "vless", WithServers(R"({"type": ")" + type + R"(", "server": "1.1.1.1"})")));
  };
  for (const char* type : {"tcp", "udp", "tls", "https", "quic", "h3", "HTTPS", "Udp", "H3"}) {
    EXPECT_EQ(refusal(type), "") << type;
  }
  for (const char* type : {"local", "hosts", "dhcp", "fakeip", "tailscale", "resolved", "legacy",
                           "http", "h2", "udp ", "tcp-tls", "rcode"}) {
    EXPECT_EQ(refusal(type), kDnsNotRemote) << type;
  }
}

std::string RefusalOfOutbound(const std::string& protocol, const std::string& type) {
  return test::SentenceOf(ValidateSingBox(
      protocol, WithOutbounds(R"("outbounds": [{"type": ")" + type + R"(", "tag": "proxy"}])")));
}

TEST(ASingBoxProtocol, NeedsAnOutboundOfItsType) {
  const std::vector<std::string> types = {"vless",       "vmess",     "trojan",
                                          "shadowsocks", "hysteria2", "tuic"};
  for (const std::string& protocol : types) {
    for (const std::string& type : types) {
      EXPECT_EQ(RefusalOfOutbound(protocol, type), protocol == type ? "" : kNoProxy)
          << protocol << " with " << type;
    }
  }
  EXPECT_EQ(RefusalOfOutbound("Hysteria2", "HYSTERIA2"), "");
  EXPECT_EQ(RefusalOfOutbound("trojan", "sing-box"), kNoProxy);
}

TEST(ASingBoxProtocol, MayStandForVless) {
  for (const char* protocol : {"xray-reality", "XRAY-Reality", "dravo", "Dravo"}) {
    SCOPED_TRACE(protocol);
    EXPECT_EQ(RefusalOfOutbound(protocol, "VLESS"), "");
    EXPECT_EQ(RefusalOfOutbound(protocol, "vmess"), kNoProxy);
    EXPECT_EQ(RefusalOfOutbound(protocol, protocol), kNoProxy);
    EXPECT_EQ(test::Refusal(protocol, WithOutbounds(R"("outbounds": [{"type": "vless"}])")),
              kNoProxy);
  }
}

TEST(ASingBoxProtocol, MayStandForEveryProxy) {
  for (const char* protocol : {"singbox", "sing-box", "SingBox", "SING-BOX"}) {
    SCOPED_TRACE(protocol);
    for (const char* type : {"vless", "shadowsocks", "selector", "ssh", "anything", " direct"}) {
      EXPECT_EQ(RefusalOfOutbound(protocol, type), "") << type;
    }
    for (const char* type : {"direct", "block", "dns", "DIRECT", "Block", "DNS", ""}) {
      EXPECT_EQ(RefusalOfOutbound(protocol, type), kNoProxy) << type;
    }
  }
}

}  // namespace
}  // namespace quorvex::linux_service
