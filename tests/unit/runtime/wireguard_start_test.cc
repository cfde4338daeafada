// SPDX-License-Identifier: Apache-2.0
//
// Ends of a WireGuard start that nobody hears of on the bus: a cancelled connect publishes nothing,
// and validation turns a profile without DNS away before.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "runtime/constants.h"
#include "runtime/engine_runtime.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::Exists;

constexpr char kProfile[] =
    "[Interface]\nPrivateKey = a\nDNS = 10.0.0.1\n[Peer]\nAllowedIPs = 0.0.0.0/0\n";

// The tools are stand-ins that make and remove a real interface with a real route.
constexpr char kQuick[] =
    "if [ \"$1\" = up ]; then\n"
    "  ip tuntap add dev quorvexvpn mode tun && ip link set quorvexvpn up &&\n"
    "    ip route add default dev quorvexvpn\n"
    "else\n"
    "  ip link del quorvexvpn\n"
    "fi\n";
constexpr char kQuickThatStaysUp[] =
    "[ \"$1\" = up ] || exit 1\n"
    "ip tuntap add dev quorvexvpn mode tun && ip link set quorvexvpn up &&\n"
    "  ip route add default dev quorvexvpn\n";

class AWireGuardStart : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    Uninstall(kNftBinary);
    Record(kWireGuardQuick, kQuick);
    Record(kWireGuardTool);
    Record(kResolveCtl);
    Record(kDnsHelper);
    runtime = std::make_unique<EngineRuntime>();
  }
  void TearDown() override {
    runtime.reset();
    test::Shell("ip link del quorvexvpn 2>/dev/null; true");
    PrivateWorld::TearDown();
  }
  // The request is withdrawn at the question of this number, counted from 1; 0: never.
  bool Start(const std::string& profile, int withdrawnAt) {
    const auto cancelled = [this, withdrawnAt] { return ++questions == withdrawnAt; };
    return runtime->Start(EngineKind::kWireGuard, "wireguard", profile, cancelled, &error);
  }
  static bool Ran(const std::string& call) {
    const std::vector<std::string> calls = Calls();
    return std::find(calls.begin(), calls.end(), call) != calls.end();
  }
  std::unique_ptr<EngineRuntime> runtime;
  std::string error;
  int questions = 0;
};

TEST_F(AWireGuardStart, AsksThreeTimesWhetherItIsStillWanted) {
  EXPECT_TRUE(Start(kProfile, 0)) << error;
  EXPECT_EQ(questions, 3);
  EXPECT_TRUE(Exists(kWireGuardInterfacePath));
}

TEST_F(AWireGuardStart, IsNotBegunWhenItIsWithdrawnWhileTheGroundIsCleared) {
  EXPECT_FALSE(Start(kProfile, 2));
  EXPECT_EQ(error, "The VPN connection request was cancelled.");
  EXPECT_FALSE(Ran("/usr/bin/wg-quick <up> </run/quorvexvpn/quorvexvpn.conf>"));
  EXPECT_FALSE(Exists(kWireGuardConfig));
}

TEST_F(AWireGuardStart, TakesTheTunnelDownAgainWhenItIsWithdrawnAtTheEnd) {
  EXPECT_FALSE(Start(kProfile, 3));
  EXPECT_EQ(error, "The VPN connection request was cancelled.");
  EXPECT_TRUE(Ran("/usr/bin/wg-quick <down> </run/quorvexvpn/quorvexvpn.conf>"));
  EXPECT_FALSE(Exists(kWireGuardInterfacePath));
  EXPECT_FALSE(Exists(kWireGuardConfig));
}

TEST_F(AWireGuardStart, SaysWhenAWithdrawnTunnelCouldNotBeTakenDown) {
  Record(kWireGuardQuick, kQuickThatStaysUp);
  EXPECT_FALSE(Start(kProfile, 3));
  EXPECT_EQ(error, "The cancelled WireGuard connection could not be cleaned up.");
  EXPECT_TRUE(Exists(kWireGuardConfig));
}

TEST_F(AWireGuardStart, NeedsADnsServer) {
  EXPECT_FALSE(Start("[Interface]\nPrivateKey = a\n", 0));
  EXPECT_EQ(error, "WireGuard did not provide a DNS server.");
  EXPECT_FALSE(Exists(kWireGuardConfig));
  EXPECT_FALSE(Ran("/usr/bin/wg-quick <up> </run/quorvexvpn/quorvexvpn.conf>"));
}

TEST_F(AWireGuardStart, DoesNotCountADnsServerOfAPeer) {
  EXPECT_FALSE(Start("[Interface]\nPrivateKey = a\n[Peer]\nDNS = 10.0.0.1\n", 0));
  EXPECT_EQ(error, "WireGuard did not provide a DNS server.");
  EXPECT_FALSE(Exists(kWireGuardConfig));
}

}  // namespace
}  // namespace quorvex::linux_service
