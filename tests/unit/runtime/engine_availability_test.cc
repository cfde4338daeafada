// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <set>

#include "runtime/constants.h"
#include "runtime/engine_runtime.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::WriteFile;

using Engines = std::set<EngineKind>;
const Engines kAll = {EngineKind::kSingBox, EngineKind::kXray, EngineKind::kWireGuard,
                      EngineKind::kOpenVpn};

constexpr std::array kPrograms = {kSingBoxBinary,  kXrayBinary,    kWireGuardQuick,  kWireGuardTool,
                                  kAmneziaWgQuick, kAmneziaWgTool, kAmneziaWgEngine, kOpenVpnBinary,
                                  kIpBinary,       kNftBinary,     kTimeoutBinary,   kResolveCtl,
                                  kDnsHelper};
constexpr std::array kDataFiles = {kXrayGeoIp, kXrayGeoSite};

// The files of every engine stand where they belong; each test takes some away. What they do is of
// no interest here.
class AnInstallation : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    for (const char* program : kPrograms) {
      StandIn(program, "exit 0");
    }
    for (const char* data : kDataFiles) {
      Uninstall(data);
      WriteFile(data, "data");
    }
  }

  void ExpectAvailable(const Engines& engines) {
    for (const EngineKind engine : kAll) {
      EXPECT_EQ(runtime.IsAvailable(engine), engines.contains(engine)) << EngineName(engine);
    }
    EXPECT_EQ(runtime.AvailabilitySummary(), SummaryOf(engines));
  }

  EngineRuntime runtime;

 private:
  static std::string SummaryOf(const Engines& engines) {
    const auto word = [&engines](EngineKind engine) {
      return std::string(engines.contains(engine) ? "ready" : "missing");
    };
    return "Sing-box " + word(EngineKind::kSingBox) + "; Xray " + word(EngineKind::kXray) +
           "; WireGuard " + word(EngineKind::kWireGuard) + "; OpenVPN " +
           word(EngineKind::kOpenVpn);
  }
};

TEST_F(AnInstallation, ThatIsCompleteHasEveryEngine) {
  ExpectAvailable(kAll);
  EXPECT_EQ(runtime.AvailabilitySummary(),
            "Sing-box ready; Xray ready; WireGuard ready; OpenVPN ready");
}

TEST_F(AnInstallation, HasNoEngineOfAnUnknownKind) {
  for (const std::uint32_t value : {0U, 5U, 7U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(runtime.IsAvailable(static_cast<EngineKind>(value))) << value;
  }
}

TEST_F(AnInstallation, ThatIsEmptyHasNoEngine) {
  for (const char* program : kPrograms) {
    Uninstall(program);
  }
  ExpectAvailable({});
  EXPECT_EQ(runtime.AvailabilitySummary(),
            "Sing-box missing; Xray missing; WireGuard missing; OpenVPN missing");
}

TEST_F(AnInstallation, IsLookedUpAfresh) {
  Uninstall(kSingBoxBinary);
  EXPECT_FALSE(runtime.IsAvailable(EngineKind::kSingBox));
  StandIn(kSingBoxBinary, "exit 0");
  EXPECT_TRUE(runtime.IsAvailable(EngineKind::kSingBox));
}

// Which engines go with one program.
struct ProgramCase {
  const char* name;
  const char* path;
  Engines without;
};

class AProgram : public AnInstallation, public ::testing::WithParamInterface<ProgramCase> {};

const Engines kNotWireGuard = {EngineKind::kSingBox, EngineKind::kXray, EngineKind::kOpenVpn};
const Engines kOnlyProxies = {EngineKind::kSingBox, EngineKind::kXray};
const Engines kNotXray = {EngineKind::kSingBox, EngineKind::kWireGuard, EngineKind::kOpenVpn};

INSTANTIATE_TEST_SUITE_P(
    All, AProgram,
    ::testing::Values(
        ProgramCase{"SingBox",
                    kSingBoxBinary,
                    {EngineKind::kXray, EngineKind::kWireGuard, EngineKind::kOpenVpn}},
        ProgramCase{"Xray", kXrayBinary, kNotXray},
        ProgramCase{"WgQuick", kWireGuardQuick, kNotWireGuard},
        ProgramCase{"Wg", kWireGuardTool, kNotWireGuard},
        ProgramCase{"OpenVpn",
                    kOpenVpnBinary,
                    {EngineKind::kSingBox, EngineKind::kXray, EngineKind::kWireGuard}},
        ProgramCase{"Ip", kIpBinary, {}}, ProgramCase{"DnsHelper", kDnsHelper, kOnlyProxies},
        ProgramCase{"ResolveCtl", kResolveCtl, kOnlyProxies},
        ProgramCase{"Timeout", kTimeoutBinary, kOnlyProxies},
        ProgramCase{"AwgQuick", kAmneziaWgQuick, kAll}, ProgramCase{"Awg", kAmneziaWgTool, kAll},
        ProgramCase{"AmneziaWgGo", kAmneziaWgEngine, kAll}, ProgramCase{"Nft", kNftBinary, kAll}),
    test::CaseName());

TEST_P(AProgram, WhenMissingTakesItsEnginesAway) {
  Uninstall(GetParam().path);
  ExpectAvailable(GetParam().without);
}

TEST_P(AProgram, CountsAsMissingWhenItMayNotBeExecuted) {
  Uninstall(GetParam().path);
  WriteFile(GetParam().path, "#!/bin/sh\n", 0644);
  ExpectAvailable(GetParam().without);
}

TEST_P(AProgram, MayBeASymbolicLink) {
  Uninstall(GetParam().path);
  std::filesystem::create_symlink("/bin/true", GetParam().path);
  ExpectAvailable(kAll);
}

class AnXrayDataFile : public AnInstallation, public ::testing::WithParamInterface<const char*> {
 protected:
  // Replaces the file by whatever the test makes of the free path.
  const char* Free() {
    Uninstall(GetParam());
    return GetParam();
  }
};

INSTANTIATE_TEST_SUITE_P(Both, AnXrayDataFile, ::testing::ValuesIn(kDataFiles),
                         [](const ::testing::TestParamInfo<const char*>& testCase) {
                           return testCase.param == kXrayGeoIp ? "GeoIp" : "GeoSite";
                         });

TEST_P(AnXrayDataFile, WhenMissingTakesXrayAway) {
  Free();
  ExpectAvailable(kNotXray);
}

TEST_P(AnXrayDataFile, DoesNotCountAsASymbolicLinkToARegularFile) {
  WriteFile("/run/scratch/data", "data");
  std::filesystem::create_symlink("/run/scratch/data", Free());
  ExpectAvailable(kNotXray);
}

TEST_P(AnXrayDataFile, DoesNotCountAsADirectory) {
  std::filesystem::create_directory(Free());
  ExpectAvailable(kNotXray);
}

TEST_P(AnXrayDataFile, MayBeEmptyAndClosedToAll) {
  WriteFile(Free(), "", 0000);
  ExpectAvailable(kAll);
}

}  // namespace
}  // namespace quorvex::linux_service
