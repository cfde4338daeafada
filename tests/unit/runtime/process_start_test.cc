// SPDX-License-Identifier: Apache-2.0
//
// Ends of a process engine's start that cannot be brought about over the bus: validation turns what
// cannot be rewritten away before, and a cancelled connect publishes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "runtime/constants.h"
#include "runtime/engine_runtime.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::Exists;

constexpr char kRunForever[] = "exec sleep 60";
constexpr char kCancelled[] = "The VPN connection request was cancelled.";

constexpr char kSingBoxProfile[] =
    R"({"inbounds": [{"type": "tun"}], "outbounds": [{"type": "vless", "tag": "proxy"}]})";
constexpr char kXrayProfile[] =
    R"({"inbounds": [{"protocol": "tun"}], "outbounds": [{"protocol": "vless", "tag": "proxy"}]})";
constexpr char kOpenVpnProfile[] = "client\nremote 192.0.2.1 1194\ndev tun\n";

bool NeverCancelled() {
  return false;
}

// Engines are stand-ins that record and run on.
class AProcessEngine : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    Uninstall(kNftBinary);
    Record(kSingBoxBinary, std::string("[ \"$1\" = check ] || ") + kRunForever);
    Record(kXrayBinary, kRunForever);
    Record(kOpenVpnBinary, kRunForever);
    Record(kResolveCtl);
    Record(kDnsHelper);
    for (const char* data : {kXrayGeoIp, kXrayGeoSite}) {
      Uninstall(data);
      test::WriteFile(data, "data");
    }
    runtime = std::make_unique<EngineRuntime>();
  }
  void TearDown() override {
    runtime.reset();
    PrivateWorld::TearDown();
  }
  static bool Ran(const char* program) {
    const std::vector<std::string> calls = Calls();
    return std::ranges::any_of(
        calls, [program](const std::string& call) { return call.starts_with(program); });
  }
  std::unique_ptr<EngineRuntime> runtime;
  std::string error;
};

struct UnusableCase {
  const char* name;
  EngineKind engine;
  const char* program;
  const char* config;
  const char* text;
  const char* sentence;
};

class AnUnusableText : public AProcessEngine, public ::testing::WithParamInterface<UnusableCase> {};

INSTANTIATE_TEST_SUITE_P(
    Of, AnUnusableText,
    ::testing::Values(UnusableCase{"SingBox", EngineKind::kSingBox, kSingBoxBinary, kSingBoxConfig,
                                   "{", "Unable to normalize the Sing-box configuration."},
                      UnusableCase{"SingBoxWithoutItsProxy", EngineKind::kSingBox, kSingBoxBinary,
                                   kSingBoxConfig, R"({"inbounds": [{}], "outbounds": []})",
                                   "The selected Sing-box proxy outbound is unavailable."},
                      UnusableCase{"Xray", EngineKind::kXray, kXrayBinary, kXrayConfig, "[]",
                                   "The Xray configuration root is invalid."}),
    test::CaseName());

TEST_P(AnUnusableText, IsToldBeforeAnythingIsWrittenOrRun) {
  EXPECT_FALSE(runtime->Start(GetParam().engine, "vless", GetParam().text, NeverCancelled, &error));
  EXPECT_EQ(error, GetParam().sentence);
  EXPECT_FALSE(Exists(GetParam().config));
  EXPECT_FALSE(Exists(kRuntimeDirectory));
  EXPECT_FALSE(Ran(GetParam().program));
}

struct WithdrawnCase {
  const char* name;
  EngineKind engine;
  const char* profile;
  const char* config;
};

class AWithdrawnStart : public AProcessEngine,
                        public ::testing::WithParamInterface<WithdrawnCase> {};

INSTANTIATE_TEST_SUITE_P(Of, AWithdrawnStart,
                         ::testing::Values(WithdrawnCase{"SingBox", EngineKind::kSingBox,
                                                         kSingBoxProfile, kSingBoxConfig},
                                           WithdrawnCase{"Xray", EngineKind::kXray, kXrayProfile,
                                                         kXrayConfig},
                                           WithdrawnCase{"OpenVpn", EngineKind::kOpenVpn,
                                                         kOpenVpnProfile, kOpenVpnConfig}),
                         test::CaseName());

TEST_P(AWithdrawnStart, IsToldAndLeavesTheRuntimeIdle) {
  // Asked before every look; the file is there once the looking begins.
  const auto cancelled = [] { return Exists(GetParam().config); };
  EXPECT_FALSE(runtime->Start(GetParam().engine, "vless", GetParam().profile, cancelled, &error));
  EXPECT_EQ(error, kCancelled);
  EXPECT_FALSE(Exists(GetParam().config));
  EXPECT_FALSE(runtime->PollUnexpectedExit(&error)) << "There is no engine that could die.";
  EXPECT_FALSE(runtime->ApplyLeakProtection(GetParam().profile, &error));
  EXPECT_EQ(error, "No tunnel interface is active.");
}

}  // namespace
}  // namespace quorvex::linux_service
