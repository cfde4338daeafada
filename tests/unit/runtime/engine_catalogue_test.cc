// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_catalogue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <type_traits>

#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

static_assert(std::is_same_v<std::underlying_type_t<EngineKind>, std::uint32_t>);
static_assert(static_cast<std::uint32_t>(EngineKind::kUnsupported) == 0);
static_assert(static_cast<std::uint32_t>(EngineKind::kSingBox) == 1);
static_assert(static_cast<std::uint32_t>(EngineKind::kXray) == 2);
static_assert(static_cast<std::uint32_t>(EngineKind::kWireGuard) == 3);
static_assert(static_cast<std::uint32_t>(EngineKind::kOpenVpn) == 4);

struct EngineCase {
  const char* name;
  EngineKind kind;
  const char* engineName;
  const char* interface;
};

class AnEngine : public ::testing::TestWithParam<EngineCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, AnEngine,
    ::testing::Values(
        EngineCase{"Unsupported", EngineKind::kUnsupported, "Unsupported", ""},
        EngineCase{"SingBox", EngineKind::kSingBox, "Sing-box", "quorvex-sbox0"},
        EngineCase{"Xray", EngineKind::kXray, "Xray", "quorvex-xray0"},
        EngineCase{"WireGuard", EngineKind::kWireGuard, "WireGuard", "quorvexvpn"},
        EngineCase{"OpenVpn", EngineKind::kOpenVpn, "OpenVPN", "tun-quorvexvpn"},
        EngineCase{"FirstUnknownValue", static_cast<EngineKind>(5), "Unsupported", ""},
        EngineCase{"SomeUnknownValue", static_cast<EngineKind>(7), "Unsupported", ""},
        EngineCase{"LargestValue", static_cast<EngineKind>(0xFFFFFFFFU), "Unsupported", ""}),
    test::CaseName());

TEST_P(AnEngine, HasItsName) {
  EXPECT_STREQ(EngineName(GetParam().kind), GetParam().engineName);
}

TEST_P(AnEngine, HasItsInterface) {
  EXPECT_STREQ(TunnelInterfaceFor(GetParam().kind), GetParam().interface);
}

struct ProtocolCase {
  const char* protocol;
  EngineKind engine;
};

constexpr ProtocolCase kProtocols[] = {
    {"vless", EngineKind::kSingBox},       {"vmess", EngineKind::kSingBox},
    {"trojan", EngineKind::kSingBox},      {"singbox", EngineKind::kSingBox},
    {"sing-box", EngineKind::kSingBox},    {"shadowsocks", EngineKind::kSingBox},
    {"hysteria2", EngineKind::kSingBox},   {"tuic", EngineKind::kSingBox},
    {"dravo", EngineKind::kSingBox},       {"xray-reality", EngineKind::kSingBox},
    {"xray", EngineKind::kXray},           {"xray-core", EngineKind::kXray},
    {"wireguard", EngineKind::kWireGuard}, {"wire-guard", EngineKind::kWireGuard},
    {"wg", EngineKind::kWireGuard},        {"amneziawg", EngineKind::kWireGuard},
    {"openvpn", EngineKind::kOpenVpn},     {"open-vpn", EngineKind::kOpenVpn},
    {"openvpn3", EngineKind::kOpenVpn},    {"openvpn3-core", EngineKind::kOpenVpn},
    {"ovpn", EngineKind::kOpenVpn},        {"openvpn-tcp", EngineKind::kOpenVpn},
    {"openvpn-udp", EngineKind::kOpenVpn},
};

// The spellings that the service lists for its clients.
constexpr ProtocolCase kListedSpellings[] = {
    {"singBox", EngineKind::kSingBox},
    {"wireGuard", EngineKind::kWireGuard},
    {"openVpn", EngineKind::kOpenVpn},
};

constexpr ProtocolCase kNoProtocols[] = {
    {"", EngineKind::kUnsupported},          {"reality", EngineKind::kUnsupported},
    {"sing_box", EngineKind::kUnsupported},  {"hysteria", EngineKind::kUnsupported},
    {"xraycore", EngineKind::kUnsupported},  {"wireguard2", EngineKind::kUnsupported},
    {"amnezia", EngineKind::kUnsupported},   {"awg", EngineKind::kUnsupported},
    {"openvpn2", EngineKind::kUnsupported},  {"open", EngineKind::kUnsupported},
    {"vles", EngineKind::kUnsupported},      {"vlesss", EngineKind::kUnsupported},
    {"x-ray", EngineKind::kUnsupported},     {"unsupported", EngineKind::kUnsupported},
    {"Sing-box ", EngineKind::kUnsupported}, {"wırequard", EngineKind::kUnsupported},
};

class AProtocol : public ::testing::TestWithParam<ProtocolCase> {
 protected:
  [[nodiscard]] static std::string Uppercase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char byte) {
      return static_cast<char>(std::toupper(byte));
    });
    return text;
  }
  // Every second letter in upper case.
  [[nodiscard]] static std::string Mixed(std::string text) {
    for (std::size_t index = 0; index < text.size(); index += 2) {
      text[index] = Uppercase(text.substr(index, 1)).front();
    }
    return text;
  }
};

std::string ProtocolName(const ::testing::TestParamInfo<ProtocolCase>& testCase) {
  std::string name = testCase.param.protocol;
  std::ranges::replace(name, '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Table, AProtocol, ::testing::ValuesIn(kProtocols), ProtocolName);

TEST_P(AProtocol, SelectsItsEngineInAnyLetterCase) {
  const std::string protocol = GetParam().protocol;
  EXPECT_EQ(EngineForProtocol(protocol), GetParam().engine);
  EXPECT_EQ(EngineForProtocol(Uppercase(protocol)), GetParam().engine);
  EXPECT_EQ(EngineForProtocol(Mixed(protocol)), GetParam().engine);
}

TEST_P(AProtocol, IsNotTrimmed) {
  const std::string protocol = GetParam().protocol;
  for (const char* blank : {" ", "\t", "\n", "\r"}) {
    EXPECT_EQ(EngineForProtocol(blank + protocol), EngineKind::kUnsupported);
    EXPECT_EQ(EngineForProtocol(protocol + blank), EngineKind::kUnsupported);
  }
  EXPECT_EQ(EngineForProtocol(protocol + std::string(1, '\0')), EngineKind::kUnsupported);
}

TEST(AProtocolList, SpellsNamesThatSelectTheirEngines) {
  for (const ProtocolCase& spelling : kListedSpellings) {
    EXPECT_EQ(EngineForProtocol(spelling.protocol), spelling.engine) << spelling.protocol;
  }
}

TEST(AnUnknownProtocol, SelectsNoEngine) {
  for (const ProtocolCase& unknown : kNoProtocols) {
    EXPECT_EQ(EngineForProtocol(unknown.protocol), unknown.engine) << unknown.protocol;
  }
}

}  // namespace
}  // namespace quorvex::linux_service
