// SPDX-License-Identifier: Apache-2.0
#include "control/protocol_guess.h"

#include <gtest/gtest.h>

#include "runtime/engine_catalogue.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/validation/sample_profiles.h"

namespace quorvex::control {
namespace {

struct GuessCase {
  const char* name;
  const char* path;
  std::string text;
  const char* protocol;
};

class AProfileOfUnknownProtocol : public ::testing::TestWithParam<GuessCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, AProfileOfUnknownProtocol,
    ::testing::Values(
        GuessCase{"WireGuard", "a.conf", test::kWireGuardProfile, "wireGuard"},
        GuessCase{"WireGuardByAnyName", "a.ovpn", test::kWireGuardProfile, "wireGuard"},
        GuessCase{"WireGuardInCapitals", "a", "[INTERFACE]\nPrivateKey = x\n", "wireGuard"},
        GuessCase{"WireGuardBehindAComment", "a", "# mine\n\n [Interface]\r\n", "wireGuard"},
        GuessCase{"AmneziaWg", "a.conf", "[Interface]\nJc = 4\n", "amneziawg"},
        GuessCase{"AmneziaKeyOfAPeerIsNone", "a.conf", "[Interface]\n[Peer]\nJc = 4\n",
                  "wireGuard"},
        GuessCase{"OpenVpn", "a.ovpn", test::kOpenVpnProfile, "openVpn"},
        GuessCase{"OpenVpnByAnyName", "a.conf", test::kOpenVpnProfile, "openVpn"},
        GuessCase{"OpenVpnByNameAlone", "A.OVPN", "<ca>\nx\n</ca>\n", "openVpn"},
        GuessCase{"SingBox", "a.json", test::kSingBoxProfile, "singBox"},
        GuessCase{"SingBoxByItsRoute", "a", R"({"route": {}})", "singBox"},
        GuessCase{"SingBoxBehindAByteOrderMark", "a", "\xEF\xBB\xBF {\"route\": {}}", "singBox"},
        GuessCase{"Xray", "a.json", test::kXrayProfile, "xray"},
        GuessCase{"XrayByItsRouting", "a.conf", R"({"routing": {}})", "xray"},
        GuessCase{"BrokenJson", "a.json", R"({"outbounds": [)", "singBox"},
        GuessCase{"JsonOfNeither", "a.json", "{}", ""},
        GuessCase{"JsonOfBoth", "a.json", R"({"route": {}, "routing": {}})", ""},
        GuessCase{"BothKindsOfLines", "a.conf", "client\n[Interface]\n", ""},
        GuessCase{"Prose", "a.conf", "hello\n", ""}, GuessCase{"Nothing", "a", "", ""},
        GuessCase{"AWordInsideAnother", "a", "clientele\nremoted x\n", ""}),
    test::CaseName());

TEST_P(AProfileOfUnknownProtocol, ShowsItByItsText) {
  const ProtocolGuess guess = GuessProtocol(GetParam().path, GetParam().text);
  EXPECT_EQ(guess.protocol, GetParam().protocol);
  EXPECT_FALSE(guess.reason.empty());
}

TEST_P(AProfileOfUnknownProtocol, GetsANameThatTheServiceKnows) {
  const ProtocolGuess guess = GuessProtocol(GetParam().path, GetParam().text);
  EXPECT_EQ(
      linux_service::EngineForProtocol(guess.protocol) == linux_service::EngineKind::kUnsupported,
      guess.protocol.empty());
}

}  // namespace
}  // namespace quorvex::control
