// SPDX-License-Identifier: Apache-2.0
//
// What holds for the hosts of every configuration format.
#include "killswitch/endpoint_hosts.h"

#include <gtest/gtest.h>

#include "tests/unit/runtime/case_name.h"

namespace quorvex::linux_service {
namespace {

using Hosts = std::vector<std::string>;

struct FormatCase {
  const char* name;
  EngineKind kind;
  // The text around a host.
  const char* before;
  const char* after;
};

class AHost : public ::testing::TestWithParam<FormatCase> {
 protected:
  static std::string Text(const std::string& host) {
    return GetParam().before + host + GetParam().after;
  }
  static Hosts Collect(const std::string& text) {
    return CollectEndpointHosts(GetParam().kind, text);
  }
};

constexpr FormatCase kFormats[] = {
    {"OfSingBox", EngineKind::kSingBox, R"({"outbounds": [{"server": ")", R"("}]})"},
    {"OfXrayVnext", EngineKind::kXray, R"({"outbounds": [{"settings": {"vnext": [{"address": ")",
     R"("}]}}]})"},
    {"OfXrayServers", EngineKind::kXray,
     R"({"outbounds": [{"settings": {"servers": [{"address": ")", R"("}]}}]})"},
    {"OfWireGuard", EngineKind::kWireGuard, "[Peer]\nEndpoint = ", ":51820\n"},
    {"OfWireGuardInBrackets", EngineKind::kWireGuard, "[Peer]\nEndpoint = [", "]:51820\n"},
    {"OfOpenVpn", EngineKind::kOpenVpn, "client\nremote ", " 1194 udp\n"},
};

INSTANTIATE_TEST_SUITE_P(Each, AHost, ::testing::ValuesIn(kFormats), test::CaseName());

TEST_P(AHost, IsCollectedAsWritten) {
  EXPECT_EQ(Collect(Text("VPN-1.example")), Hosts{"VPN-1.example"});
}

TEST_P(AHost, MayBeOneByteLong) {
  EXPECT_EQ(Collect(Text("h")), Hosts{"h"});
}

TEST_P(AHost, MayBe255BytesLong) {
  const std::string longest(255, 'h');
  EXPECT_EQ(Collect(Text(longest)), Hosts{longest});
}

TEST_P(AHost, MayNotBe256BytesLong) {
  EXPECT_EQ(Collect(Text(std::string(256, 'h'))), Hosts{});
}

TEST_P(AHost, IsMeasuredInBytes) {
  // 255 letters, of which the last takes two bytes.
  EXPECT_EQ(Collect(Text(std::string(254, 'h') + "\xc3\xa4")), Hosts{});
}

TEST_P(AHost, IsMeasuredWithoutTheBlanksAround) {
  const std::string longest(255, 'h');
  EXPECT_EQ(Collect(Text("   " + longest + "  ")), Hosts{longest});
}

struct NoEngineCase {
  const char* name;
  EngineKind kind;
};

class AKindWithoutEngine : public ::testing::TestWithParam<NoEngineCase> {};

constexpr NoEngineCase kNoEngines[] = {
    {"Unsupported", EngineKind::kUnsupported},
    {"TheFirstUnknown", static_cast<EngineKind>(5)},
    {"TheLastUnknown", static_cast<EngineKind>(0xffffffffU)},
};

INSTANTIATE_TEST_SUITE_P(Kinds, AKindWithoutEngine, ::testing::ValuesIn(kNoEngines),
                         test::CaseName());

TEST_P(AKindWithoutEngine, NamesNoHost) {
  for (const FormatCase& format : kFormats) {
    EXPECT_EQ(
        CollectEndpointHosts(GetParam().kind, format.before + std::string("a") + format.after),
        Hosts{})
        << format.name;
  }
}

}  // namespace
}  // namespace quorvex::linux_service
