// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/sample_profiles.h"

namespace quorvex::linux_service {
namespace {

using test::FilledUpTo;
using test::Refusal;
using test::SentenceOf;

constexpr char kBadIdentifier[] = "The profile identifier is invalid.";
constexpr char kBadSize[] = "The VPN configuration is empty or too large.";
constexpr char kUnknownProtocol[] =
    "This Linux build does not recognize the selected VPN protocol.";
constexpr char kMalformed[] = "The JSON VPN configuration is malformed.";
constexpr char kInvalidLine[] = "The WireGuard configuration contains an invalid line.";
constexpr char kNoClient[] = "OpenVPN profiles require client mode, a remote, and TUN—not TAP.";

constexpr std::size_t kLargest = 2097152;

// The verdict on a profile that is sound but for its identifier.
std::string RefusalOfIdentifier(const std::string& identifier) {
  return SentenceOf(ValidateProfile(identifier, "wireguard", test::kWireGuardProfile));
}

TEST(AProfileIdentifier, IsRefusedWhenEmpty) {
  EXPECT_EQ(RefusalOfIdentifier(""), kBadIdentifier);
}

TEST(AProfileIdentifier, HasOneTo256Bytes) {
  EXPECT_EQ(RefusalOfIdentifier("p"), "");
  EXPECT_EQ(RefusalOfIdentifier(std::string(255, 'p')), "");
  EXPECT_EQ(RefusalOfIdentifier(std::string(256, 'p')), "");
  EXPECT_EQ(RefusalOfIdentifier(std::string(257, 'p')), kBadIdentifier);
  EXPECT_EQ(RefusalOfIdentifier(std::string(100000, 'p')), kBadIdentifier);
}

TEST(AProfileIdentifier, IsCountedInBytesNotLetters) {
  EXPECT_EQ(RefusalOfIdentifier(test::Times(128, "é")), "");
  EXPECT_EQ(RefusalOfIdentifier(test::Times(129, "é")), kBadIdentifier);
}

TEST(AProfileIdentifier, MayHoldEveryByteButControlCharacters) {
  for (int byte = 0; byte <= 0xFF; ++byte) {
    SCOPED_TRACE(byte);
    const char* expected = byte < 0x20 || byte == 0x7F ? kBadIdentifier : "";
    const std::string single(1, static_cast<char>(byte));
    EXPECT_EQ(RefusalOfIdentifier(single), expected);
    EXPECT_EQ(RefusalOfIdentifier("first" + single), expected);
    EXPECT_EQ(RefusalOfIdentifier(single + "last"), expected);
    EXPECT_EQ(RefusalOfIdentifier("a" + single + "b"), expected);
  }
}

TEST(AProfileIdentifier, MayBeAnAccentedWordOrABlank) {
  EXPECT_EQ(RefusalOfIdentifier("château"), "");
  EXPECT_EQ(RefusalOfIdentifier(" "), "");
  EXPECT_EQ(RefusalOfIdentifier("a\tb"), kBadIdentifier);
}

struct EngineText {
  const char* name;
  const char* protocol;
  const char* profile;
  // What refuses a configuration of nothing but "x" for this engine.
  const char* refusalOfJunk;
};

class AConfiguration : public ::testing::TestWithParam<EngineText> {};

INSTANTIATE_TEST_SUITE_P(
    Of, AConfiguration,
    ::testing::Values(EngineText{"SingBox", "vless", test::kSingBoxProfile, kMalformed},
                      EngineText{"Xray", "xray", test::kXrayProfile, kMalformed},
                      EngineText{"WireGuard", "wireguard", test::kWireGuardProfile, kInvalidLine},
                      EngineText{"OpenVpn", "openvpn", test::kOpenVpnProfile, kNoClient}),
    test::CaseName());

TEST_P(AConfiguration, PassesWhenPlain) {
  EXPECT_EQ(Refusal(GetParam().protocol, GetParam().profile), "");
}

TEST_P(AConfiguration, IsRefusedWhenEmpty) {
  EXPECT_EQ(Refusal(GetParam().protocol, ""), kBadSize);
}

TEST_P(AConfiguration, IsHeldToTheRulesOfItsEngineFromOneByteOn) {
  EXPECT_EQ(Refusal(GetParam().protocol, "x"), GetParam().refusalOfJunk);
}

TEST_P(AConfiguration, HasAtMostTwoMebibytes) {
  EXPECT_EQ(Refusal(GetParam().protocol, FilledUpTo(kLargest, GetParam().profile, '\n')), "");
  EXPECT_EQ(Refusal(GetParam().protocol, FilledUpTo(kLargest + 1, GetParam().profile, '\n')),
            kBadSize);
}

TEST_P(AConfiguration, ReachesTheRulesOfItsEngineAtFullSize) {
  EXPECT_EQ(Refusal(GetParam().protocol, std::string(kLargest, 'x')), GetParam().refusalOfJunk);
  EXPECT_EQ(Refusal(GetParam().protocol, std::string(kLargest + 1, 'x')), kBadSize);
}

TEST_P(AConfiguration, HoldsNoNul) {
  const std::string profile = GetParam().profile;
  const std::string nul(1, '\0');
  EXPECT_EQ(Refusal(GetParam().protocol, nul), kBadSize);
  EXPECT_EQ(Refusal(GetParam().protocol, nul + profile), kBadSize);
  EXPECT_EQ(Refusal(GetParam().protocol, profile + nul), kBadSize);
  EXPECT_EQ(Refusal(GetParam().protocol, profile + nul + profile), kBadSize);
  EXPECT_EQ(Refusal(GetParam().protocol, "x" + nul + "x"), kBadSize);
}

TEST_P(AConfiguration, WinsOverAnUnknownProtocolWhenItsSizeIsWrong) {
  EXPECT_EQ(Refusal("gopher", ""), kBadSize);
  EXPECT_EQ(Refusal("gopher", std::string(kLargest + 1, 'x')), kBadSize);
  EXPECT_EQ(Refusal("gopher", std::string(1, '\0')), kBadSize);
  EXPECT_EQ(Refusal("gopher", GetParam().profile), kUnknownProtocol);
}

TEST_P(AConfiguration, LosesToABadIdentifier) {
  EXPECT_EQ(SentenceOf(ValidateProfile("", GetParam().protocol, "")), kBadIdentifier);
  EXPECT_EQ(SentenceOf(ValidateProfile("a\n", GetParam().protocol, "x")), kBadIdentifier);
  EXPECT_EQ(SentenceOf(ValidateProfile("", "gopher", "")), kBadIdentifier);
  EXPECT_EQ(SentenceOf(ValidateProfile("", "gopher", GetParam().profile)), kBadIdentifier);
}

// The engine shows in what refuses a text that suits none.
TEST(AProtocol, SelectsTheRulesInAnyLetterCase) {
  const std::vector<std::pair<std::vector<std::string>, const char*>> engines = {
      {{"vless", "vmess", "trojan", "singbox", "sing-box", "shadowsocks", "hysteria2", "tuic",
        "dravo", "xray-reality", "XRAY-REALITY", "Sing-Box", "xray", "xray-core", "XRAY-Core"},
       kMalformed},
      {{"wireguard", "wire-guard", "wg", "amneziawg", "WireGuard", "AmneziaWG"}, kInvalidLine},
      {{"openvpn", "open-vpn", "openvpn3", "openvpn3-core", "ovpn", "openvpn-tcp", "openvpn-udp",
        "OPENVPN-UDP"},
       kNoClient},
      {{"", "gopher", "reality", " wg", "wg ", "wireguard\n", "vless2", "unsupported"},
       kUnknownProtocol}};
  for (const auto& [protocols, refusal] : engines) {
    for (const std::string& protocol : protocols) {
      SCOPED_TRACE(protocol);
      EXPECT_EQ(Refusal(protocol, "x"), refusal);
    }
  }
}

TEST(AProtocol, TellsXrayFromSingBox) {
  EXPECT_EQ(Refusal("xray", R"({"api": 1})"),
            "Xray API listeners are not permitted in VPN profiles.");
  EXPECT_EQ(Refusal("xray-reality", R"({"api": 1})"),
            "Sing-box profiles require app-owned remote DNS configuration.");
}

TEST(AProfile, IsJudgedOnAnyThread) {
  std::string here = Refusal("wireguard", test::kWireGuardProfile);
  std::string there = "not judged";
  std::thread([&there] { there = Refusal("wireguard", test::kWireGuardProfile); }).join();
  EXPECT_EQ(here, "");
  EXPECT_EQ(there, "");
}

}  // namespace
}  // namespace quorvex::linux_service
