// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_runtime.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "runtime/constants.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::Exists;
using test::ReadFile;
using test::WriteFile;

constexpr char kUntouched[] = "as before";
constexpr char kRemoveKillSwitch[] = "/usr/sbin/nft <-f> <->";
constexpr char kRevertOpenVpnDns[] = "/usr/libexec/quorvexvpn-dns <revert>";
const std::vector<std::string> kOnlyKillSwitch = {kRemoveKillSwitch};

// nft reads its script before it ends.
constexpr char kSucceed[] = "exec cat >/dev/null";
constexpr char kFail[] = "cat >/dev/null; exit 1";

bool NeverCancelled() {
  return false;
}
bool AlreadyCancelled() {
  return true;
}

// Every tool is a stand-in that records and succeeds.
class AnIdleRuntime : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    for (const char* program :
         {kSingBoxBinary, kXrayBinary, kWireGuardQuick, kWireGuardTool, kAmneziaWgQuick,
          kAmneziaWgTool, kAmneziaWgEngine, kOpenVpnBinary, kResolveCtl, kDnsHelper}) {
      Record(program);
    }
    Record(kNftBinary, kSucceed);
    for (const char* data : {kXrayGeoIp, kXrayGeoSite}) {
      Uninstall(data);
      WriteFile(data, "data");
    }
    runtime = std::make_unique<EngineRuntime>();
  }
  void TearDown() override {
    runtime.reset();
    PrivateWorld::TearDown();
  }
  bool Start(EngineKind engine, const std::function<bool()>& cancelled) {
    return runtime->Start(engine, "protocol", "[Interface]\n", cancelled, &error);
  }
  std::unique_ptr<EngineRuntime> runtime;
  std::string error = kUntouched;
};

TEST_F(AnIdleRuntime, StartsNothingByComingIntoBeing) {
  EXPECT_TRUE(Calls().empty());
  EXPECT_FALSE(Exists(kRuntimeDirectory));
}

TEST_F(AnIdleRuntime, OnlyRemovesTheKillSwitchWhenStopped) {
  EXPECT_TRUE(runtime->Stop(&error));
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(Calls(), kOnlyKillSwitch);
}

TEST_F(AnIdleRuntime, LeavesTheFilesOfProcessEnginesToTheRecovery) {
  WriteFile(kSingBoxConfig, "left");
  EXPECT_TRUE(runtime->Stop(&error));
  EXPECT_EQ(ReadFile(kSingBoxConfig), "left");
}

TEST_F(AnIdleRuntime, ReportsAKillSwitchThatStays) {
  Record(kNftBinary, kFail);
  EXPECT_FALSE(runtime->Stop(&error));
  EXPECT_EQ(error, "The nftables leak-protection command failed.");
}

TEST_F(AnIdleRuntime, TakesDownATunnelThatACrashLeft) {
  WriteFile(kWireGuardConfig, "left");
  test::Shell("ip tuntap add dev quorvexvpn mode tun");
  Record(kWireGuardQuick, "exec ip link del quorvexvpn");
  EXPECT_TRUE(runtime->Stop(&error));
  EXPECT_EQ(Calls(), (std::vector<std::string>{
                         kRemoveKillSwitch, "/usr/libexec/quorvexvpn-dns <revert-wireguard>",
                         "/usr/bin/wg-quick <down> </run/quorvexvpn/quorvexvpn.conf>"}));
  EXPECT_FALSE(Exists(kWireGuardConfig));
}

TEST_F(AnIdleRuntime, RemovesAConfigurationThatACrashLeft) {
  WriteFile(kWireGuardConfig, "left");
  EXPECT_TRUE(runtime->Stop(&error));
  EXPECT_FALSE(Exists(kWireGuardConfig));
  EXPECT_EQ(Calls(), kOnlyKillSwitch);
}

TEST_F(AnIdleRuntime, ReportsAForeignInterfaceRatherThanTheKillSwitch) {
  test::Shell("ip tuntap add dev quorvexvpn mode tun");
  Record(kNftBinary, kFail);
  EXPECT_FALSE(runtime->Stop(&error));
  EXPECT_EQ(error,
            "The WireGuard interface exists without its private configuration; administrator "
            "repair is required.");
  EXPECT_EQ(Calls(), kOnlyKillSwitch);
  test::Shell("ip link del quorvexvpn");
}

TEST_F(AnIdleRuntime, HasNoEngineThatCouldDie) {
  EXPECT_FALSE(runtime->PollUnexpectedExit(&error));
  EXPECT_EQ(error, kUntouched);
  EXPECT_TRUE(Calls().empty());
}

TEST_F(AnIdleRuntime, HasNoTunnelToProtect) {
  EXPECT_FALSE(runtime->ApplyLeakProtection("[Peer]\nEndpoint = 192.0.2.1:1\n", &error));
  EXPECT_EQ(error, "No tunnel interface is active.");
  EXPECT_TRUE(Calls().empty());
}

TEST_F(AnIdleRuntime, IsStoppedWhenItIsDestroyed) {
  runtime.reset();
  EXPECT_EQ(Calls(), kOnlyKillSwitch);
}

TEST_F(AnIdleRuntime, MayBeDestroyedAlthoughItsStopFails) {
  Record(kNftBinary, kFail);
  runtime.reset();
  EXPECT_EQ(Calls(), kOnlyKillSwitch);
}

TEST_F(AnIdleRuntime, TouchesNothingForACancelledRequest) {
  WriteFile(kSingBoxConfig, "left");
  for (const EngineKind engine : {EngineKind::kWireGuard, EngineKind::kUnsupported}) {
    EXPECT_FALSE(Start(engine, AlreadyCancelled));
    EXPECT_EQ(error, "The VPN connection request was cancelled.");
  }
  EXPECT_TRUE(Calls().empty());
  EXPECT_EQ(ReadFile(kSingBoxConfig), "left");
}

TEST_F(AnIdleRuntime, ThrowsForAnEmptyCallable) {
  EXPECT_THROW(static_cast<void>(Start(EngineKind::kWireGuard, {})), std::bad_function_call);
}

struct UnavailableCase {
  const char* name;
  EngineKind engine;
  const char* missing;
  const char* message;
};

class AnUnavailableEngine : public AnIdleRuntime,
                            public ::testing::WithParamInterface<UnavailableCase> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, AnUnavailableEngine,
    ::testing::Values(
        UnavailableCase{"SingBox", EngineKind::kSingBox, kSingBoxBinary,
                        "Sing-box runtime is unavailable. Repair the QuorvexVPN installation."},
        UnavailableCase{"Xray", EngineKind::kXray, kXrayGeoIp,
                        "Xray runtime is unavailable. Repair the QuorvexVPN installation."},
        UnavailableCase{"WireGuard", EngineKind::kWireGuard, kDnsHelper,
                        "WireGuard runtime is unavailable. Repair the QuorvexVPN installation."},
        UnavailableCase{"OpenVpn", EngineKind::kOpenVpn, kResolveCtl,
                        "OpenVPN runtime is unavailable. Repair the QuorvexVPN installation."},
        UnavailableCase{"Unsupported", EngineKind::kUnsupported, kAmneziaWgTool,
                        "Unsupported runtime is unavailable. Repair the QuorvexVPN "
                        "installation."}),
    test::CaseName());

TEST_P(AnUnavailableEngine, IsReportedAndStopsNothing) {
  Uninstall(GetParam().missing);
  WriteFile(kSingBoxConfig, "left");
  EXPECT_FALSE(Start(GetParam().engine, NeverCancelled));
  EXPECT_EQ(error, GetParam().message);
  EXPECT_TRUE(Calls().empty());
  EXPECT_EQ(ReadFile(kSingBoxConfig), "left");
}

// What an earlier run of every engine left is cleared, whichever way it is asked for.
class ARecovery : public AnIdleRuntime {
 protected:
  void SetUp() override {
    AnIdleRuntime::SetUp();
    for (const char* file :
         {kWireGuardConfig, kSingBoxConfig, kXrayConfig, kOpenVpnConfig, kOpenVpnPid}) {
      WriteFile(file, "left");
    }
  }
  static void Block(const char* path) {
    test::Shell(std::string("rm ") + path + " && mkdir " + path);
  }
};

TEST_F(ARecovery, RemovesKillSwitchAndEveryFileAndRevertsDns) {
  EXPECT_TRUE(runtime->Recover(&error));
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(Calls(), (std::vector<std::string>{kRemoveKillSwitch, kRevertOpenVpnDns}));
  for (const char* file :
       {kWireGuardConfig, kSingBoxConfig, kXrayConfig, kOpenVpnConfig, kOpenVpnPid}) {
    EXPECT_FALSE(Exists(file)) << file;
  }
}

TEST_F(ARecovery, IsRunBeforeAnEngineStarts) {
  // The second question comes after the ground has been cleared.
  int questions = 0;
  EXPECT_FALSE(Start(EngineKind::kWireGuard, [&questions] { return ++questions == 2; }));
  EXPECT_EQ(error, "The VPN connection request was cancelled.");
  EXPECT_EQ(questions, 2);
  EXPECT_EQ(Calls(), (std::vector<std::string>{kRemoveKillSwitch, kRevertOpenVpnDns}));
  EXPECT_FALSE(Exists(kOpenVpnConfig));
}

TEST_F(ARecovery, StopsAtTheKillSwitchThatStays) {
  Record(kNftBinary, kFail);
  EXPECT_FALSE(runtime->Recover(&error));
  EXPECT_EQ(error, "The nftables leak-protection command failed.");
  EXPECT_FALSE(Exists(kWireGuardConfig)) << "The engine is stopped all the same.";
  EXPECT_TRUE(Exists(kSingBoxConfig));
}

TEST_F(ARecovery, StopsAtTheFirstFileThatStays) {
  Block(kXrayConfig);
  EXPECT_FALSE(runtime->Recover(&error));
  EXPECT_EQ(error, "Unable to open private runtime data for removal: Is a directory");
  EXPECT_FALSE(Exists(kSingBoxConfig));
  EXPECT_TRUE(Exists(kOpenVpnConfig));
  EXPECT_EQ(Calls(), kOnlyKillSwitch);
}

TEST_F(ARecovery, ThatFailsKeepsAnEngineFromStarting) {
  Block(kSingBoxConfig);
  int questions = 0;
  EXPECT_FALSE(Start(EngineKind::kWireGuard, [&questions] {
    ++questions;
    return false;
  }));
  EXPECT_EQ(error, "Unable to open private runtime data for removal: Is a directory");
  EXPECT_EQ(questions, 1);
}

TEST_F(ARecovery, ReportsAFailedDnsRevert) {
  Record(kDnsHelper, "exit 1");
  EXPECT_FALSE(runtime->Recover(&error));
  EXPECT_EQ(error, "Unable to revert OpenVPN DNS state.");
}

}  // namespace
}  // namespace quorvex::linux_service
