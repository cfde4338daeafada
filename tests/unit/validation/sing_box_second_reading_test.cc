// SPDX-License-Identifier: Apache-2.0
//
// What passes the rules as it is written, and is refused for what sing-box would read in it.
#include <string>
#include <vector>

#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/sing_box_sentences_expected.h"
#include "validation/engine_rules.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {
namespace {

using namespace test::sing_box;

// A profile with members of its own at one place; all others are plain.
struct Members {
  std::string root = {};
  std::string dns = {};
  std::string server = {};
  std::string inbound = {};
  std::string outbound = {};
  std::string outbounds = {};
  std::string route = {};
};

std::string WithComma(const std::string& members) {
  return members.empty() ? "" : ", " + members;
}

std::string Profile(const Members& members) {
  return R"({"dns": {"servers": [{"type": "https", "server": "1.1.1.1")" +
         WithComma(members.server) + "}]" + WithComma(members.dns) +
         R"(}, "inbounds": [{"type": "tun", "auto_route": true)" + WithComma(members.inbound) +
         R"(}], "outbounds": [{"type": "vless", "tag": "proxy", "server": "198.51.100.8")" +
         WithComma(members.outbound) + "}" + WithComma(members.outbounds) +
         R"(], "route": {"a": 1)" + WithComma(members.route) + "}" + WithComma(members.root) + "}";
}

// Holds the profiles to their sentences, and shows that each one of them passes the rules.
void ExpectSecondVerdicts(const std::vector<test::ProfileCase>& profiles) {
  for (const test::ProfileCase& profile : profiles) {
    EXPECT_EQ(test::SentenceOf(ValidateSingBox("vless", profile.text)), "") << profile.name;
  }
  test::ExpectVerdicts(
      [](const std::string& text) { return ValidateProfile("profile", "vless", text); }, profiles);
}

TEST(ASingBoxProfileAsReadByTheEngine, PassesWhenItIsPlain) {
  ExpectSecondVerdicts({{"Plain", Profile({})}});
}

TEST(ASingBoxProfileAsReadByTheEngine, SurvivesBeingWrittenByJsonGlib) {
  ExpectSecondVerdicts({
      {"TwoToThe64", Profile({.outbound = R"("server_port": 18446744073709551616)"}), kMalformed},
      {"Infinity", Profile({.root = R"("a": 1e400)"}), kMalformed},
      {"Nul", Profile({.outbound = R"("uuid": "x\u0000y")"}), kMalformed},
      {"NulInAName", Profile({.root = R"("a\u0000b": 1)"}), kMalformed},
      {"HalfASurrogatePair", Profile({.outbound = R"("uuid": "\ud800x")"}), kMalformed},
      {"Hexadecimal", Profile({.outbound = R"("server_port": 0x1bb)"})},
      {"Comments", Profile({.outbound = R"(/* here */ "server_port": 443)"})},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, HasNoOptionInAnotherSpelling) {
  ExpectSecondVerdicts({
      {"Log", Profile({.root = R"("Log": {"output": "/tmp/x"})"}), kLogFile},
      {"LogOutput", Profile({.root = R"("log": {"Output": "/tmp/x"})"}), kLogFile},
      {"LogOutputInCapitals", Profile({.root = R"("log": {"output": "", "OUTPUT": "/tmp/x"})"}),
       kLogFile},
      {"Experimental", Profile({.root = R"("Experimental": {"cache_file": {"enabled": true}})"}),
       kExperimental},
      {"ExperimentalWithALongS", Profile({.root = R"("eXperimental": {})"}), kExperimental},
      {"ServicesWithALongS", Profile({.root = "\"\u017Fervices\": [{\"type\": \"ssm-api\"}]"}),
       kExperimental},
      {"SecondInbounds",
       Profile({.root = R"("Inbounds": [{"type": "mixed", "listen": "0.0.0.0"}])"}),
       kNotOneInbound},
      {"SecondDns", Profile({.root = R"("DNS": {"servers": [{"type": "local"}]})"}), kNoDns},
      {"SecondServers", Profile({.dns = R"("Servers": [{"type": "local"}])"}), kNoDns},
      {"ServersWithALongS", Profile({.dns = "\"\u017Fervers\": [{\"type\": \"local\"}]"}), kNoDns},
      {"DnsServerType", Profile({.server = R"("Type": "local")"}), kDnsNotRemote},
      {"SecondOutbounds", Profile({.root = R"("OUTBOUNDS": [{"type": "direct"}])"}), kNoOutbound},
      {"OutboundType", Profile({.outbound = R"("Type": "tor")"}), kNoProxy},
      {"Server", Profile({.outbound = R"("Server": "198.51.100.9")"}), kNoProxy},
      {"SecondRoute", Profile({.root = R"("Route": {"final": "direct"})"}), kNoAutoRoute},
      {"Final", Profile({.route = R"("Final": "direct")"}), kNoAutoRoute},
      {"InterfaceName", Profile({.inbound = R"("Interface_Name": "eth0")"}), kBadInbound},
      {"AutoRoute", Profile({.inbound = R"("Auto_Route": false)"}), kBadInbound},
      {"NetworkWithAKelvinSign",
       Profile({.outbounds = "{\"type\": \"trojan\", \"tag\": \"b\", \"networ\u212A\": \"tcp\"}"}),
       kNoProxy},
      {"CertificatePathWithNothing", Profile({.outbound = R"("tls": {"Certificate_path": ""})"}),
       kFileMember},
      {"OfAnotherOption", Profile({.outbound = R"("transport": {"type": "ws", "Path": "/x"})"}),
       kNoProxy},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, NamesNoFile) {
  ExpectSecondVerdicts({
      {"Ech", Profile({.outbound = R"("tls": {"ech": {"config_path": "/etc/x"}})"}), kFileMember},
      {"EchOfADnsServer", Profile({.server = R"("tls": {"ech": {"config_path": "x"}})"}),
       kFileMember},
      {"ClientKeyOfALaterVersion", Profile({.outbound = R"("tls": {"client_key_path": "/etc/x"})"}),
       kFileMember},
      {"SshKey", Profile({.outbounds = R"({"type": "ssh", "private_key_path": "/root/.ssh/id"})"}),
       kFileMember},
      {"CertificateFolder",
       Profile({.root = R"("certificate": {"certificate_directory_path": ["/etc"]})"}),
       kFileMember},
      {"PluginCertificate",
       Profile({.outbounds = R"({"type": "shadowsocks", "tag": "s", "plugin": "v2ray-plugin",
                                "plugin_opts": "tls;host=x.test;cert=/etc/x.pem"})"}),
       kFileMember},
      {"PluginCertificateEscaped",
       Profile({.outbounds = R"({"type": "shadowsocks", "plugin_opts": "ce\\rt=/etc/x.pem"})"}),
       kFileMember},
      {"GeoData", Profile({.route = R"("geoip": {"path": "/etc/x"})"}), kExternal},
      {"RuleSet",
       Profile({.route = R"("rule_set": [{"Type": "local", "tag": "a", "path": "/x"}])"}),
       kExternal},
      {"HostsOfALaterVersion", Profile({.dns = R"("hosts_path": "/etc/hosts")"}), kNoDns},
      {"NetworkNamespace", Profile({.outbound = R"("netns": "/run/netns/x")"}), kExternal},
      {"ProtectSocket", Profile({.outbound = R"("protect_path": "/run/x.sock")"}), kExternal},
      {"OfTheClockServer", Profile({.root = R"("ntp": {"server": "x", "netns": "/x"})"}),
       kExternal},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, RunsNoProgramAndKeepsNoState) {
  ExpectSecondVerdicts({
      {"Tor", Profile({.outbounds = R"({"type": "tor", "executable_path": "/tmp/x"})"}), kExternal},
      {"TorInCapitals", Profile({.outbounds = R"({"type": "TOR", "tag": "t"})"}), kExternal},
      {"Tailscale", Profile({.root = R"("endpoints": [{"type": "tailscale", "tag": "ts"}])"}),
       kExternal},
      {"Clock", Profile({.root = R"("ntp": {"enabled": true, "write_to_system": true})"}),
       kExternal},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, OpensNoPortAndNoOtherDevice) {
  ExpectSecondVerdicts({
      {"Services", Profile({.root = R"("services": [{"type": "resolved"}])"}), kExperimental},
      {"WireGuardPort",
       Profile({.root = R"("endpoints": [{"type": "wireguard", "listen_port": 51820}])"}),
       kNotOneInbound},
      {"WireGuardDevice",
       Profile({.root = R"("endpoints": [{"type": "wireguard", "system": true, "name": "wg9"}])"}),
       kNotOneInbound},
      {"OldWireGuardDevice",
       Profile({.outbounds = R"({"type": "wireguard", "tag": "w", "system_interface": true})"}),
       kNotOneInbound},
      {"ListeningInbound", Profile({.inbound = R"("listen": "0.0.0.0", "listen_port": 1080)"}),
       kBadInbound},
      {"SystemProxy",
       Profile({.inbound = R"("platform": {"http_proxy": {"enabled": true, "server_port": 1}})"}),
       kBadInbound},
      {"SecondAddress", Profile({.inbound = R"("inet4_address": "10.9.9.1/30")"}), kBadInbound},
      {"FallbackRule", Profile({.inbound = R"("auto_redirect_iproute2_fallback_rule_index": 1)"}),
       kBadInbound},
      {"Device", Profile({.outbound = R"("bind_interface": "eth0")"}), kNoAutoRoute},
      {"DefaultDevice", Profile({.route = R"("default_interface": "eth0")"}), kNoAutoRoute},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, LoadsNoLists) {
  ExpectSecondVerdicts({
      {"RemoteRuleSet",
       Profile(
           {.route = R"("rule_set": [{"type": "remote", "tag": "a", "url": "https://x.test"}])"}),
       kExternal},
      {"RemoteRuleSetWithAPath",
       Profile({.route = R"("rule_set": [{"type": "remote", "path": "/tmp/r.srs"}])"}), kExternal},
      {"GeoDownload", Profile({.route = R"("geosite": {"download_url": "https://x.test"})"}),
       kExternal},
      {"InlineRuleSet",
       Profile({.route = R"("rule_set": [{"tag": "a", "rules": [{"domain": "x.test"}]}])"})},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, MaySayAnythingThatTheServiceReplaces) {
  ExpectSecondVerdicts({
      {"Rules", Profile({.route = R"("rules": [{"Outbound": "direct", "x_path": "/etc/x"}])"})},
      {"Final", Profile({.route = R"("final": "direct", "auto_detect_interface": false)"})},
      {"Detour", Profile({.server = R"("detour": "direct")"})},
      {"Tun", Profile({.inbound = R"("interface_name": "eth0", "address": ["10.0.0.1/8"],
                                     "tag": "t", "strict_route": false, "auto_redirect": false,
                                     "iproute2_table_index": 254, "iproute2_rule_index": 1)"})},
      {"TunLimits", Profile({.inbound = R"("netns": "/run/netns/x", "include_uid": [0],
                                           "route_address": "10.0.0.0/8",
                                           "exclude_package": "x/y")"})},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, MayHoldWhatTheEngineDoesNotRead) {
  ExpectSecondVerdicts({
      {"ForeignMembers", Profile({.root = R"("comment": "mine", "a": {"b": [1, null]})"})},
      {"ALogOfAnotherKind", Profile({.root = R"("log": [{"output": "/var/log/x"}])"})},
      {"AnOutputOfAnotherKind", Profile({.root = R"("log": {"output": ["x"]})"})},
      {"AnUnknownOutbound", Profile({.outbounds = R"({"type": "new", "tag": "n", "path": "/"})"})},
      {"EmptyMembers", Profile({.root = R"("tls": {"keyfile": ""}, "services": [])"})},
      {"AnEmptyLocalRuleSet", Profile({.route = R"("rule_set": [{"type": "local", "path": ""}])"})},
  });
}

TEST(ASingBoxProfileAsReadByTheEngine, MaySpellHeadersAtWill) {
  ExpectSecondVerdicts({
      {"Headers", Profile({.outbound = R"("transport": {"type": "ws", "path": "/Path",
                            "headers": {"Host": "x.test", "HOST": ["y.test"], "Log": "/etc"}})"})},
      {"HeadersOfADnsServer", Profile({.server = R"("headers": {"User-Agent": "a/b"})"})},
  });
}

}  // namespace
}  // namespace quorvex::linux_service
