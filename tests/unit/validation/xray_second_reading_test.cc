// SPDX-License-Identifier: Apache-2.0
//
// What Xray makes of a profile that the rules have passed. What each case does when Xray gets it
// was seen with Xray 26.10.10 run as root.
#include "validation/xray_second_reading.h"

#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/xray_sentences_expected.h"
#include "validation/engine_rules.h"

namespace quorvex::linux_service {
namespace {

using namespace test::xray;

using test::ProfileCase;

const std::string kInbounds = R"("inbounds": [{"protocol": "tun"}])";
const std::string kOutbounds = R"("outbounds": [{"protocol": "vless", "tag": "proxy"}])";

// Each is a sound profile but for the members given.
std::string With(const std::string& members) {
  return "{" + members + ", " + kInbounds + ", " + kOutbounds + "}";
}

std::string WithInInbound(const std::string& members) {
  return R"({"inbounds": [{"protocol": "tun", )" + members + "}], " + kOutbounds + "}";
}

std::string WithInTun(const std::string& members) {
  return WithInInbound(R"("settings": {)" + members + "}");
}

std::string WithOutbounds(const std::string& outbounds) {
  return "{" + kInbounds + R"(, "outbounds": [)" + outbounds + "]}";
}

std::string WithInOutbound(const std::string& members) {
  return WithOutbounds(R"({"protocol": "vless", "tag": "proxy", )" + members + "}");
}

std::string WithInSettings(const std::string& members) {
  return WithInOutbound(R"("settings": {)" + members + "}");
}

std::string WithInStream(const std::string& members) {
  return WithInOutbound(R"("streamSettings": {)" + members + "}");
}

std::string WithInTls(const std::string& members) {
  return WithInStream(R"("tlsSettings": {)" + members + "}");
}

std::string WithWireGuard(const std::string& settings) {
  return WithOutbounds(R"({"protocol": "WireGuard", "tag": "proxy", "settings": {)" + settings +
                       "}}");
}

// The rules alone let each of them through; otherwise the cases would show nothing of the second
// reading.
void ExpectHidden(const std::vector<ProfileCase>& profiles) {
  test::ExpectVerdicts(ValidateAsXrayReads, profiles);
  for (const ProfileCase& profile : profiles) {
    EXPECT_EQ(test::SentenceOf(ValidateXray(profile.text)), "") << profile.name;
  }
}

TEST(XraysReading, TakesOtherSpellingsForTheSameOption) {
  ExpectHidden({
      {"Log", With(R"("Log": {"access": "/x"})"), kLogFile},
      {"LogAccess", With(R"("log": {"Access": "/x"})"), kLogFile},
      {"LogWithLongS", With("\"log\": {\"acce\xC5\xBF\xC5\xBF\": \"/x\"}"), kLogFile},
      {"LogInCapitals", With(R"("log": {"ERROR": "/x"})"), kLogFile},
      {"EmptyLogAccess", With(R"("log": {"Access": ""})"), kLogFile},
      {"Api", With(R"("API": {"tag": "a", "listen": "127.0.0.1:1"})"), kApi},
      {"ApiNull", With(R"("Api": null)"), kApi},
      {"Metrics", With(R"("Metrics": {"listen": "127.0.0.1:1"})"), kApi},
      {"Inbounds", With(R"("Inbounds": [{"protocol": "socks", "port": 1}])"), kNotOneInbound},
      {"InboundsWithLongS", With("\"inbound\xC5\xBF\": []"), kNotOneInbound},
      {"Outbounds", With(R"("OutBounds": [{"protocol": "freedom"}])"), kNoOutbound},
      {"Routing", With(R"("Routing": {"rules": []})"), kNotOneInbound},
      {"Rules", With(R"("routing": {"Rules": []})"), kNotOneInbound},
      {"Protocol", WithInInbound(R"("Protocol": "socks")"), kNotTun},
      {"Settings", WithInInbound(R"("Settings": {"name": "other"})"), kNotOneInbound},
      {"Tag", WithInInbound(R"("Tag": "other")"), kNotOneInbound},
      {"TunName", WithInTun(R"("Name": "other")"), kNotOneInbound},
      {"TunGateway", WithInTun(R"("GATEWAY": [])"), kNotOneInbound},
      {"TunRoutes", WithInTun(R"("autosystemroutingtable": [])"), kNotOneInbound},
      {"TunDevice", WithInTun(R"("AutoOutboundsInterface": "")"), kNotOneInbound},
      {"ProxyProtocol", WithInOutbound(R"("Protocol": "freedom")"), kNoProxy},
      {"ProxyTag", WithInOutbound(R"("TAG": "other")"), kNoProxy},
      {"KeyFileWithKelvin",
       WithInTls("\"certificates\": [{\"\xE2\x84\xAA"
                 "eyFile\": \"/x\"}]"),
       kFileMember},
  });
}

TEST(XraysReading, FoldsLettersAlone) {
  test::ExpectVerdicts(ValidateAsXrayReads, {{"Underscore", With(R"("a_p_i": null)")},
                                             {"Hyphen", With(R"("met-rics": {})")},
                                             {"AnotherLetter", With("\"l\xC3\xB6g\": {}")}});
}

TEST(XraysReading, OpensNoPort) {
  ExpectHidden({
      {"Metrics", With(R"("metrics": {"listen": "127.0.0.1:1"})"), kApi},
      {"BrowserDialer", With(R"("env": {"XRAY_BROWSER_DIALER": "127.0.0.1:1"})"), kExternal},
      {"InboundPort", WithInInbound(R"("port": 1080)"), kNotOneInbound},
      {"InboundListen", WithInInbound(R"("listen": "127.0.0.1")"), kNotOneInbound},
      {"InboundSocket", WithInInbound(R"("listen": "/run/x")"), kNotOneInbound},
      {"Allocate", WithInInbound(R"("allocate": {"strategy": "random"})"), kNotOneInbound},
      {"OldInbound", With(R"("inbound": {"protocol": "socks", "port": 1})"), kNotOneInbound},
      {"OldInbounds", With(R"("inboundDetour": [{"port": 1}])"), kNotOneInbound},
      {"Reverse", With(R"("reverse": {"portals": [{"tag": "a"}]})"), kNotOneInbound},
      {"ReverseOfVless", WithInSettings(R"("reverse": {"tag": "a"})"), kNotOneInbound},
      {"ReverseOfUser", WithInSettings(R"("vnext": [{"users": [{"reverse": {"tag": "a"}}]}])"),
       kNotOneInbound},
      {"RouterPort", WithInStream(R"("finalmask": {"udp": [{"type": "realm", "settings":
                                      {"portMapping": {"enabled": true}}}]})"),
       kNotOneInbound},
      {"Fallback", WithInStream(R"("realitySettings": {"dest": "/run/x"})"), kNotOneInbound},
      {"AnyAddress", WithInStream(R"("sockopt": {"tproxy": "tproxy"})"), kNotOneInbound},
      {"DnsSocket", WithOutbounds(R"({"protocol": "vless", "tag": "proxy"},
                                     {"protocol": "dns", "settings": {"network": "unix"}})"),
       kExternal},
  });
}

TEST(XraysReading, TouchesNoFile) {
  ExpectHidden({
      {"TlsSecrets", WithInTls(R"("masterKeyLog": "/x")"), kFileMember},
      {"RealitySecrets", WithInStream(R"("realitySettings": {"masterKeyLog": "/x"})"), kFileMember},
      {"Deep", WithInStream(R"("xhttpSettings": {"extra": {"downloadSettings": {"tlsSettings":
                               {"masterKeyLog": "/x"}}}})"),
       kFileMember},
      {"InAMask", WithInStream(R"("finalmask": {"udp": [{"settings": {"tlsConfig":
                                  {"masterKeyLog": "/x"}}}]})"),
       kFileMember},
      {"InTheInbound",
       WithInInbound(R"("streamSettings": {"tlsSettings": {"masterKeyLog": "/x"}})"), kFileMember},
      {"DnsScript", With(R"("dns": {"script": "/x.lua"})"), kExternal},
      {"RoutingScript", With(R"("routing": {"script": "x.lua"})"), kExternal},
      {"GeoData", With(R"("geodata": {"assets": [{"url": "https://a.test/x", "file": "x"}]})"),
       kExternal},
      {"Drive", WithInStream(R"("network": "XDrive")"), kExternal},
      {"DriveByItsOtherName", WithInStream(R"("method": "xdrive")"), kExternal},
      {"DriveWithDottedI", WithInStream("\"network\": \"xdr\xC4\xB0ve\""), kExternal},
      {"DriveFolder", WithInStream(R"("xdriveSettings": {"service": "local"})"), kExternal},
      {"Masquerade", WithInStream(R"("hysteriaSettings": {"masquerade": {"dir": "/"}})"),
       kExternal},
      {"LocalSocketOfOld", WithInStream(R"("dsSettings": {"path": "/run/x"})"), kExternal},
      {"TransportOfOld", With(R"("transport": {"dsSettings": {"path": "/run/x"}})"), kExternal},
      {"Environment", With(R"("env": {"XRAY_LOCATION_ASSET": "/x"})"), kExternal},
  });
}

TEST(XraysReading, FindsListsInFilesBehindEverySpelling) {
  const std::string server = R"("dns": {"servers": [{"address": "1.1.1.1", )";
  ExpectHidden({
      {"Reversed", With(server + R"("expectIPs": ["!ext:a.dat:cn"]}]})"), kExternal},
      {"TwiceReversed", With(server + R"("unexpectedIPs": ["!!ext-ip:a.dat:cn"]}]})"), kExternal},
      {"BehindAComma", With(server + R"("domains": "a.test,ext:a.dat:cn"}]})"), kExternal},
      {"Site", With(server + R"("domains": ["ext-site:a.dat:cn"]}]})"), kExternal},
      {"Domain", With(server + R"("domains": ["ext-domain:a.dat:cn"]}]})"), kExternal},
      {"NameOfAHost", With(R"("dns": {"hosts": {"ext:a.dat:cn": "1.1.1.1"}})"), kExternal},
      {"Sniffing", WithInInbound(R"("sniffing": {"ipsExcluded": ["!ext:a.dat:cn"]})"), kExternal},
      {"FinalRule", WithInSettings(R"("finalRules": [{"ip": ["!ext:a.dat:cn"]}])"), kExternal},
      {"DnsRule", WithInSettings(R"("rules": [{"domain": "a,ext:a.dat:cn"}])"), kExternal},
  });
}

TEST(XraysReading, TakesNothingFromTheEnvironment) {
  ExpectHidden({
      {"Server", WithInSettings(R"("address": "env:HOME")"), kExternal},
      {"OneOfMany", WithInSettings(R"("vnext": [{"address": "env:HOME"}])"), kExternal},
      {"DnsServer", With(R"("dns": {"servers": ["1.1.1.1", "env:HOME"]})"), kExternal},
      {"DnsServerObject", With(R"("dns": {"servers": [{"address": "env:HOME"}]})"), kExternal},
      {"Host", With(R"("dns": {"hosts": {"a.test": ["1.1.1.1", "env:HOME"]}})"), kExternal},
      {"Stream", WithInStream(R"("address": "env:HOME")"), kExternal},
  });
}

TEST(XraysReading, LeavesTheMachinesSettingsAlone) {
  ExpectHidden({
      {"KernelTun", WithWireGuard(R"("secretKey": "a")"), kNotOneInbound},
      {"KernelTunAskedFor", WithWireGuard(R"("noKernelTun": false)"), kNotOneInbound},
      {"KernelTunInAnotherSpelling", WithWireGuard(R"("noKernelTun": true, "NoKernelTun": false)"),
       kNotOneInbound},
      {"TheOtherEnd", WithWireGuard(R"("noKernelTun": true, "isClient": false)"), kNotOneInbound},
      {"SystemDns", WithInTun(R"("autoSystemDnsToGateway": true)"), kNotOneInbound},
      {"RawSocketOption", WithInStream(R"("sockopt": {"customSockopt": [{"opt": "1"}]})"),
       kExternal},
      {"Device", WithInStream(R"("sockopt": {"interface": "lo"})"), kNotOneInbound},
  });
}

TEST(XraysReading, KnowsWhichOutboundIsNoProxy) {
  const auto first = [](const std::string& protocol) {
    return WithOutbounds(R"({"protocol": ")" + protocol +
                         R"(", "tag": "a"}, {"protocol": "vless", "tag": "b"})");
  };
  ExpectHidden({{"Direct", first("direct"), kNoProxy},
                {"DirectInCapitals", first("DIRECT"), kNoProxy},
                {"DirectWithDottedI", first("d\xC4\xB0rect"), kNoProxy},
                {"Block", first("block"), kNoProxy},
                {"BlockWithKelvin", first("bloc\xE2\x84\xAA"), kNoProxy},
                {"FreedomBehindTheProxy", WithOutbounds(R"({"protocol": "vless", "tag": "b"},
                                  {"protocol": "d\u0130rect", "tag": "a"})"),
                 kNoProxy},
                {"Loopback", first("loopback"), kNoProxy},
                {"Unknown", first("teleport"), kNoProxy}});
  EXPECT_EQ(test::SentenceOf(ValidateAsXrayReads(
                WithOutbounds(R"({"protocol": "vless", "tag": "b"}, {"protocol": "direct"},
                                 {"protocol": "Freedom", "tag": "d"})"))),
            "");
}

TEST(XraysReading, PassesWhatItDoesNotKnowOnlyIfThatIsInert) {
  test::ExpectVerdicts(
      ValidateAsXrayReads,
      {{"Notes", With(R"("remarks": "DE / Berlin", "ps": "/x", "meta": {"path": "/x"})")},
       {"NotesOfAnOutbound", WithInOutbound(R"("remarks": "a/b")")},
       {"Number", With(R"("latency": 3)")},
       {"UserOfAnOldPanel",
        WithInSettings(R"("vnext": [{"users": [{"alterId": 64, "t50": ""}]}])")},
       {"Path", With(R"("future": {"where": "/etc"})"), kExternal},
       {"Listener", With(R"("future": {"listen": 1})"), kExternal},
       {"TunOption", WithInTun(R"("stack": "gvisor")")},
       {"TunProgram", WithInTun(R"("postScript": "x")"), kNotOneInbound}});
}

TEST(XraysReading, LeavesAloneWhatTheServiceReplaces) {
  test::ExpectVerdicts(
      ValidateAsXrayReads,
      {{"Rules", With(R"("routing": {"rules": [{"Webhook": {"url": "https://a.test"}}]})")},
       {"TunSettings", WithInTun(R"("name": "xray0", "gateway": ["10.0.0.1/24"], "mtu": 1500)")},
       {"TunSettingsOfOld", WithInTun(R"("name": "xray0", "MTU": 1500, "userLevel": 8)")},
       {"Tag", WithInInbound(R"("tag": "tun-in", "port": 0, "listen": "")")},
       {"SettingsOfAnotherKind", WithInInbound(R"("settings": "/x")")}});
}

TEST(XraysReading, LeavesNamesOfTheUsersOwnAlone) {
  test::ExpectVerdicts(
      ValidateAsXrayReads,
      {{"Headers",
        WithInStream(R"("wsSettings": {"path": "/api", "headers": {"PATH": "/x", "path": "/y"}})")},
       {"Hosts", With(R"("dns": {"hosts": {"A.test": "1.1.1.1", "a.test": "1.0.0.1"}})")},
       {"Levels", With(R"("policy": {"levels": {"0": {"connIdle": 1}, "8": {}}})")}});
}

TEST(XraysReading, IsOfWhatJsonGlibWritesBack) {
  test::ExpectVerdicts(ValidateAsXrayReads,
                       {{"Number", With(R"("a": 18446744073709551616)"), kMalformed},
                        {"Cut", With(R"("a": "b\u0000c")"), kMalformed}});
}

TEST(XraysReading, ComesAfterTheRules) {
  EXPECT_EQ(test::Refusal("xray", With(R"("api": {}, "Log": {"access": "/x"})")), kApi);
  EXPECT_EQ(test::Refusal("xray", With(R"("Log": {"access": "/x"})")), kLogFile);
  EXPECT_EQ(test::Refusal("xray", With(R"("log": {})")), "");
}

}  // namespace
}  // namespace quorvex::linux_service
