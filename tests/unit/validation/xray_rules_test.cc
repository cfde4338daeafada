// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/xray_sentences_expected.h"
#include "validation/engine_rules.h"

namespace quorvex::linux_service {
namespace {

using namespace test::xray;

const std::string kInbounds = R"("inbounds": [{"protocol": "tun"}])";
const std::string kOutbounds = R"("outbounds": [{"protocol": "vless", "tag": "proxy"}])";

// Each is a sound profile but for the members given.
std::string With(const std::string& members) {
  return "{" + members + ", " + kInbounds + ", " + kOutbounds + "}";
}

std::string WithInbounds(const std::string& inbounds) {
  return "{" + inbounds + (inbounds.empty() ? "" : ", ") + kOutbounds + "}";
}

std::string WithOutbounds(const std::string& outbounds) {
  return "{" + kInbounds + (outbounds.empty() ? "" : ", ") + outbounds + "}";
}

TEST(AnXrayProfile, IsAJsonObjectWithinLimits) {
  test::ExpectVerdicts(
      ValidateXray,
      {{"Malformed", "{", kMalformed},
       {"Array", "[" + With(R"("a": 1)") + "]", kNotAnObject},
       {"Deep", With(R"("a": )" + test::Times(65, "[") + test::Times(65, "]")), kTooComplex},
       {"WithOtherMembers", With(R"("dns": {}, "experimental": {}, "log": null)")}});
}

TEST(AnXrayProfile, HasNoApi) {
  test::ExpectVerdicts(ValidateXray,
                       {{"Null", With(R"("api": null)"), kApi},
                        {"Empty", With(R"("api": {})"), kApi},
                        {"False", With(R"("api": false)"), kApi},
                        {"Full", With(R"("api": {"tag": "api", "services": []})"), kApi},
                        {"Elsewhere", With(R"("routing": {"api": {}})")}});
}

TEST(AnXrayProfile, WritesNoLogFile) {
  test::ExpectVerdicts(
      ValidateXray, {{"Level", With(R"("log": {"loglevel": "warning"})")},
                     {"Access", With(R"("log": {"access": "/var/log/x"})"), kLogFile},
                     {"Error", With(R"("log": {"error": "/var/log/x"})"), kLogFile},
                     {"None", With(R"("log": {"access": "none"})"), kLogFile},
                     {"NoneForErrors", With(R"("log": {"access": "", "error": "none"})"), kLogFile},
                     {"EmptyError", With(R"("log": {"error": ""})")},
                     {"EmptyAccess", With(R"("log": {"access": "", "error": ""})")},
                     {"OfOtherKinds", With(R"("log": {"access": ["x"], "error": 1})")},
                     {"Array", With(R"("log": [{"access": "/var/log/x"}])")},
                     {"Text", With(R"("log": "/var/log/x")")},
                     {"Elsewhere", With(R"("a": {"log": {"access": "x"}})")}});
}

TEST(AnXrayProfile, NamesNoFile) {
  test::ExpectVerdicts(
      ValidateXray,
      {{"Certificate", WithOutbounds(R"("outbounds": [{"protocol": "vless", "tag": "a",
                                     "streamSettings": {"tlsSettings": {"certificates":
                                     [{"certificateFile": "/etc/x.pem"}]}}}])"),
        kFileMember},
       {"Key", With(R"("tls": {"keyFile": "/etc/x.pem"})"), kFileMember},
       {"EmptyKey", With(R"("tls": {"keyFile": ""})")},
       {"GeoData", With(R"("routing": {"rules": [{"domain": ["ext:custom.dat:cn"]}]})"), kExternal},
       {"GeoIpData",
        With(R"("routing": {"rules": [{"ip": ["geoip:cn", "ext-ip:custom.dat:cn"]}]})"), kExternal},
       {"GeoSite", With(R"("routing": {"rules": [{"domain": ["geosite:cn"]}]})")},
       {"LocalFile", With(R"("a": {"type": "local", "path": "/etc/x"})"), kExternal}});
}

TEST(AnXrayProfile, HasOneTunInbound) {
  test::ExpectVerdicts(
      ValidateXray,
      {{"Missing", WithInbounds(""), kNoInbound},
       {"Null", WithInbounds(R"("inbounds": null)"), kNoInbound},
       {"Object", WithInbounds(R"("inbounds": {"protocol": "tun"})"), kNoInbound},
       {"Empty", WithInbounds(R"("inbounds": [])"), kNotOneInbound},
       {"TunAndSocks", WithInbounds(R"("inbounds": [{"protocol": "tun"}, {"protocol": "socks"}])"),
        kNotOneInbound},
       {"TunAndNull", WithInbounds(R"("inbounds": [{"protocol": "tun"}, null])"), kNotOneInbound},
       {"Text", WithInbounds(R"("inbounds": ["tun"])"), kNotTun},
       {"NullElement", WithInbounds(R"("inbounds": [null])"), kNotTun},
       {"ArrayElement", WithInbounds(R"("inbounds": [[{"protocol": "tun"}]])"), kNotTun},
       {"Socks", WithInbounds(R"("inbounds": [{"protocol": "socks"}])"), kNotTun},
       {"WithoutProtocol", WithInbounds(R"("inbounds": [{"type": "tun"}])"), kNotTun},
       {"WithProtocolOfAnotherKind", WithInbounds(R"("inbounds": [{"protocol": ["tun"]}])"),
        kNotTun},
       {"InCapitals", WithInbounds(R"("inbounds": [{"a": 1, "protocol": "TUN"}])")}});
}

TEST(AnXrayProfile, NeedsATaggedProxy) {
  test::ExpectVerdicts(
      ValidateXray,
      {{"Missing", WithOutbounds(""), kNoOutbound},
       {"Null", WithOutbounds(R"("outbounds": null)"), kNoOutbound},
       {"Object", WithOutbounds(R"("outbounds": {"protocol": "vless", "tag": "a"})"), kNoOutbound},
       {"Empty", WithOutbounds(R"("outbounds": [])"), kNoProxy},
       {"FreedomAndProxy", WithOutbounds(R"("outbounds": [{"protocol": "freedom", "tag": "direct"},
                                                   {"protocol": "VLESS", "tag": "proxy"}])")},
       {"NoProxyAmongThem", WithOutbounds(R"("outbounds": [{"protocol": "freedom", "tag": "a"},
                                                   {"protocol": "BlackHole", "tag": "b"},
                                                   {"protocol": "DNS", "tag": "c"}])"),
        kNoProxy},
       {"OfAnyOtherProtocol",
        WithOutbounds(R"("outbounds": [{"protocol": "direct", "tag": "a"}])")},
       {"OfOtherKinds", WithOutbounds(R"("outbounds": ["vless", null, [{"protocol": "vless",
                                                                    "tag": "a"}]])"),
        kNoProxy},
       {"Untagged", WithOutbounds(R"("outbounds": [{"protocol": "vless"}])"), kNoProxy},
       {"WithEmptyTag", WithOutbounds(R"("outbounds": [{"protocol": "vless", "tag": ""}])"),
        kNoProxy},
       {"WithTagOfAnotherKind", WithOutbounds(R"("outbounds": [{"protocol": "vless", "tag": 1}])"),
        kNoProxy},
       {"WithoutProtocol", WithOutbounds(R"("outbounds": [{"tag": "a"}])"), kNoProxy},
       {"WithEmptyProtocol", WithOutbounds(R"("outbounds": [{"protocol": "", "tag": "a"}])"),
        kNoProxy},
       {"WithProtocolOfAnotherKind",
        WithOutbounds(R"("outbounds": [{"protocol": true, "tag": "a"}])"), kNoProxy}});
}

TEST(AnXrayProfile, IsRefusedByTheFirstRuleThatFails) {
  test::ExpectVerdicts(
      ValidateXray,
      {{"ApiBeforeLog", R"({"log": {"access": "x"}, "api": 1})", kApi},
       {"LogBeforeFiles", R"({"keyfile": "x", "a": "ext:x", "log": {"error": "x"}})", kLogFile},
       {"FilesBeforeResources", R"({"a": "ext:x", "keyfile": "x"})", kFileMember},
       {"ResourcesBeforeInbounds", R"({"inbounds": ["ext:x", 1]})", kExternal},
       {"InboundsBeforeOutbounds", "{}", kNoInbound},
       {"TheCountOfInboundsBeforeTheirProtocol", R"({"inbounds": [1, 2]})", kNotOneInbound},
       {"TheProtocolBeforeOutbounds", R"({"inbounds": [1]})", kNotTun}});
}

TEST(AnXrayProtocol, MatchesEveryProxy) {
  for (const char* protocol : {"xray", "xray-core", "XRAY"}) {
    for (const char* outbound : {"vless", "vmess", "trojan", "shadowsocks", "wireguard"}) {
      EXPECT_EQ(
          test::Refusal(protocol, WithOutbounds(R"("outbounds": [{"protocol": ")" +
                                                std::string(outbound) + R"(", "tag": "a"}])")),
          "")
          << protocol << " with " << outbound;
    }
  }
}

}  // namespace
}  // namespace quorvex::linux_service
