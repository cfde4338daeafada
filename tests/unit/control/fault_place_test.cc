// SPDX-License-Identifier: Apache-2.0
#include "control/fault_place.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/validation/sample_profiles.h"
#include "validation/profile_validation.h"

namespace quorvex::control {
namespace {

using linux_service::ValidateProfile;

// The place that the rules' own sentence leads to; "passes" or "nowhere" in words.
std::string PlaceIn(const std::string& protocol, const std::string& text) {
  const auto verdict = ValidateProfile("home", protocol, text);
  if (verdict.valid) {
    return "passes";
  }
  const auto place = LocateFault(protocol, text, verdict.message);
  return place ? DescribePlace(*place) : "nowhere";
}

std::string With(std::string text, const std::string& found, const std::string& replacement) {
  const std::size_t place = text.find(found);
  EXPECT_NE(place, std::string::npos) << found;
  return text.replace(place, found.size(), replacement);
}

struct PlaceCase {
  const char* name;
  const char* protocol;
  std::string text;
  const char* place;
};

class ARefusedProfile : public ::testing::TestWithParam<PlaceCase> {};

TEST_P(ARefusedProfile, ShowsWhere) {
  EXPECT_EQ(PlaceIn(GetParam().protocol, GetParam().text), GetParam().place);
}

PlaceCase WireGuard(const char* name, const std::string& found, const std::string& replacement,
                    const char* place) {
  return {name, "wireGuard", With(test::kWireGuardProfile, found, replacement), place};
}

INSTANTIATE_TEST_SUITE_P(
    WireGuard, ARefusedProfile,
    ::testing::Values(
        WireGuard("Whole", "DNS", "DNS", "passes"),
        WireGuard("Hook", "DNS", "PostUp = x\nDNS", "line 4 (PostUp)"),
        WireGuard("HookInAnyCase", "DNS", "  postup=x\nDNS", "line 4 (postup)"),
        WireGuard("TwoHooksShowTheFirst", "DNS", "PreUp = x\nPostUp = x\nDNS", "line 4 (PreUp)"),
        WireGuard("LastLine", "AllowedIPs", "Color = red\nAllowedIPs", "line 8"),
        WireGuard("EmptyValue", "Address = 10.0.0.2/32", "Address =", "line 3 (Address)"),
        WireGuard("NoEqualsSign", "DNS = 1.1.1.1", "DNS 1.1.1.1", "line 4"),
        WireGuard("FirstLine", "[Interface]", "x\n[Interface]", "line 1"),
        WireGuard("SecondInterface", "[Peer]", "[Interface]\n[Peer]", "line 5 ([Interface])"),
        WireGuard("PeerFirst", "[Interface]", "[Peer]\n[Interface]", "line 1 ([Peer])"),
        WireGuard("NameServerByName", "1.1.1.1", "dns.example", "line 4 (DNS)"),
        WireGuard("TableOff", "DNS", "Table = off\nDNS", "line 4 (Table)"),
        WireGuard("TableOffBeforeAComment", "DNS", "Table = off # x\nDNS", "line 4 (Table)"),
        WireGuard("CommentsAndBlankLinesCount", "DNS", "# x\n\n; y\nPostUp = x\nDNS",
                  "line 7 (PostUp)"),
        WireGuard("CarriageReturns", "[Interface]\n", "[Interface]\r\nPostUp = x\r\n",
                  "line 2 (PostUp)"),
        WireGuard("IncompletePeer", "Endpoint = vpn.example:51820\n", "", "line 5 ([Peer])"),
        WireGuard("IncompletePeerBeforeAnother", "[Peer]", "[Peer]\nPublicKey = x\n[Peer]",
                  "line 7 ([Peer])"),
        WireGuard("MissingName", "DNS = 1.1.1.1\n", "", "nowhere"),
        WireGuard("MissingDefaultRoute", "0.0.0.0/0", "10.0.0.0/8", "nowhere")),
    test::CaseName());

PlaceCase OpenVpn(const char* name, const std::string& found, const std::string& replacement,
                  const char* place) {
  return {name, "openVpn", With(test::kOpenVpnProfile, found, replacement), place};
}

INSTANTIATE_TEST_SUITE_P(
    OpenVpn, ARefusedProfile,
    ::testing::Values(
        OpenVpn("Whole", "client", "client", "passes"),
        OpenVpn("Script", "dev tun", "up /bin/sh\ndev tun", "line 2 (up)"),
        OpenVpn("ScriptWithDashes", "dev tun", "--up /bin/sh\ndev tun", "line 2 (--up)"),
        OpenVpn("QuotedDirective", "dev tun", "\"log\" /x\ndev tun", "line 2"),
        OpenVpn("UnknownDirective", "dev tun", "hunter2 x\ndev tun", "line 2"),
        OpenVpn("TooManyWords", "dev tun", "nobind x\ndev tun", "line 2 (nobind)"),
        OpenVpn("Proxy", "dev tun", "http-proxy h 1 file\ndev tun", "line 2 (http-proxy)"),
        OpenVpn("UnmatchedTag", "dev tun", "</ca>\ndev tun", "line 2 (</ca>)"),
        OpenVpn("UnknownBlock", "<ca>", "<up>\nx\n</up>\n<ca>", "line 4 (<up>)"),
        OpenVpn("BlockWithoutEnd", "</ca>\n", "</ca>\n<key>\nx\n", "line 7 (<key>)"),
        OpenVpn("OnlyBlockWithoutEnd", "</ca>\n", "", "line 4 (<ca>)"),
        OpenVpn("FileOutside", "dev tun", "cert /x\ndev tun", "line 2 (cert)"),
        OpenVpn("TwoFilesOutside", "dev tun", "cert /x\nkey /y\ndev tun", "nowhere"),
        OpenVpn("NoRemote", "remote vpn.example 1194\n", "", "nowhere"),
        OpenVpn("DeviceTap", "dev tun", "dev tap", "nowhere"),
        OpenVpn("SecondDevice", "dev tun", "dev tun\ndev tap", "line 3 (dev)")),
    test::CaseName());

PlaceCase SingBox(const char* name, const std::string& found, const std::string& replacement,
                  const char* place) {
  return {name, "singBox", With(test::kSingBoxProfile, found, replacement), place};
}

INSTANTIATE_TEST_SUITE_P(
    SingBox, ARefusedProfile,
    ::testing::Values(
        SingBox("Whole", "dns", "dns", "passes"),
        SingBox("Experimental", "\"dns\"", "\"experimental\": {}, \"dns\"",
                "line 2, column 3 (experimental)"),
        SingBox("LogFile", "\"dns\"", "\"log\": {\"output\": \"/x\"},\n\"dns\"",
                "line 2, column 11 (log.output)"),
        SingBox("CertificateFile", "\"tag\"", "\"tls\": {\"key_path\": \"/x\"}, \"tag\"",
                "line 4, column 43 (outbounds[0].tls.key_path)"),
        SingBox("SecondInbound", "\"auto_route\": true}",
                "\"auto_route\": true}, {\"type\": \"x\"}", "line 3, column 53 (inbounds[1])"),
        SingBox("LocalNameServer", "\"https\"", "\"local\"", "line 2, column 23 (dns.servers[0])"),
        SingBox("SeveralFaults", "\"dns\"",
                "\"log\": {\"output\": \"/x\"}, \"experimental\": 1,\n\"dns\"",
                "line 2, column 28 (experimental)"),
        SingBox("FaultBesideOneThatIsMissing", "\"auto_route\": true",
                "\"a\": {\"keyfile\": \"/x\"}", "line 3, column 38 (inbounds[0].a.keyfile)"),
        SingBox("NameThatIsNoOption", "\"tag\"", "\"a b\": {\"key_path\": \"/x\"}, \"tag\"",
                "line 4, column 43 (outbounds[0].?.key_path)"),
        SingBox("NothingButAComma", "\"dns\":", "\"dns\",", "line 2, column 8"),
        PlaceCase{"Array", "singBox", "[]", "nowhere"},
        PlaceCase{"MissingEverything", "singBox", "{}", "nowhere"},
        SingBox("OtherProtocol", "\"vless\"", "\"direct\"", "line 4, column 17 (outbounds[0])")),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Xray, ARefusedProfile,
    ::testing::Values(
        PlaceCase{"Whole", "xray", test::kXrayProfile, "passes"},
        PlaceCase{"Api", "xray",
                  With(test::kXrayProfile, "\"inbounds\"", "\"api\": {},\n\"inbounds\""),
                  "line 2, column 3 (api)"},
        PlaceCase{"CertificateFile", "xray",
                  With(test::kXrayProfile, "\"tag\"",
                       "\"streamSettings\": {\"tlsSettings\": {\"keyFile\": \"/x\"}}, \"tag\""),
                  "line 3, column 74 (outbounds[0].streamSettings.tlsSettings.keyFile)"}),
    test::CaseName());

TEST(ARefusedProfile, OfManyLinesOrElementsIsLookedAtWithinSeconds) {
  std::string lines = test::kWireGuardProfile;
  while (lines.size() < 500000) {
    lines += "#\n";
  }
  std::string elements = R"({"experimental": {}, "dns": [0)";
  while (elements.size() < 100000) {
    elements += ",0";
  }
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(PlaceIn("wireGuard", lines + "PostUp = x\n").substr(0, 5), "line ");
  // Whether a place is found is left open; that the search ends is not.
  static_cast<void>(PlaceIn("singBox", elements + "]}"));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(30));
}

TEST(APlace, IsDescribedByWhatIsKnownOfIt) {
  EXPECT_EQ(DescribePlace({7, 0, "PostUp"}), "line 7 (PostUp)");
  EXPECT_EQ(DescribePlace({7, 0, ""}), "line 7");
  EXPECT_EQ(DescribePlace({7, 3, "dns"}), "line 7, column 3 (dns)");
}

}  // namespace
}  // namespace quorvex::control
