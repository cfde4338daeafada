// SPDX-License-Identifier: Apache-2.0
#include "runtime/wireguard_engine.h"

#include <gtest/gtest.h>

#include "runtime/constants.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::Exists;
using test::ReadFile;
using test::WriteFile;

constexpr char kUntouched[] = "as before";
constexpr char kRevertDns[] = "/usr/libexec/quorvexvpn-dns <revert-wireguard>";
constexpr char kDown[] = "/usr/bin/wg-quick <down> </run/quorvexvpn/quorvexvpn.conf>";

TEST(TheAmneziaEnvironment, NamesThePathAndThenTheUserSpaceEngine) {
  const EnvironmentList expected = {
      {"PATH", "/usr/libexec/quorvexvpn:/usr/sbin:/usr/bin"},
      {"WG_QUICK_USERSPACE_IMPLEMENTATION", "/usr/libexec/quorvexvpn/amneziawg-go"}};
  EXPECT_EQ(AmneziaEnvironment(), expected);
}

class AWireGuardDnsCommand : public test::PrivateWorld {
 protected:
  std::string error = kUntouched;
};

TEST_F(AWireGuardDnsCommand, RunsTheHelperWithItsArgumentsInOrder) {
  Record(kDnsHelper);
  EXPECT_TRUE(RunWireGuardDnsCommand({"apply-wireguard", "10.0.0.1", "", "a b"}, &error));
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(Calls(), std::vector<std::string>{
                         "/usr/libexec/quorvexvpn-dns <apply-wireguard> <10.0.0.1> <> <a b>"});
}

TEST_F(AWireGuardDnsCommand, FailsInTheRunnersWords) {
  Record(kDnsHelper, "exit 7");
  EXPECT_FALSE(RunWireGuardDnsCommand({"revert-wireguard"}, &error));
  EXPECT_EQ(error, "Child process exited with code 7");
}

TEST_F(AWireGuardDnsCommand, IsRunWithoutLookingForTheHelper) {
  Record(kTimeoutBinary, "exit 0");
  Uninstall(kDnsHelper);
  EXPECT_TRUE(RunWireGuardDnsCommand({"revert-wireguard"}, &error));
  EXPECT_EQ(Calls().size(), 1U);
}

// The tools are stand-ins; the interface is a real one of the kernel.
class AWireGuardStop : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    Record(kWireGuardQuick, "exec ip link del quorvexvpn");
    Record(kAmneziaWgQuick, "exec ip link del quorvexvpn");
    Record(kDnsHelper);
  }
  void TearDown() override {
    test::Shell("ip link del quorvexvpn 2>/dev/null; true");
    PrivateWorld::TearDown();
  }
  static void LeaveConfiguration() { WriteFile(kWireGuardConfig, "left"); }
  static void LeaveInterface() { test::Shell("ip tuntap add dev quorvexvpn mode tun"); }
  static void LeaveBoth() {
    LeaveConfiguration();
    LeaveInterface();
  }
  static bool InterfaceIsThere() { return Exists(kWireGuardInterfacePath); }
  bool Stop() { return StopWireGuard(&error); }
  std::string error = kUntouched;
};

TEST_F(AWireGuardStop, HasNothingToDoWithoutConfigurationAndInterface) {
  EXPECT_TRUE(Stop());
  EXPECT_EQ(error, kUntouched);
  EXPECT_TRUE(Calls().empty());
}

TEST_F(AWireGuardStop, LeavesAnInterfaceWithoutConfigurationToTheAdministrator) {
  LeaveInterface();
  EXPECT_FALSE(Stop());
  EXPECT_EQ(error,
            "The WireGuard interface exists without its private configuration; administrator "
            "repair is required.");
  EXPECT_TRUE(Calls().empty());
  EXPECT_TRUE(InterfaceIsThere());
}

TEST_F(AWireGuardStop, DoesNotTakeASymbolicLinkForTheConfiguration) {
  LeaveBoth();
  test::Shell(
      "mv /run/quorvexvpn/quorvexvpn.conf /run/scratch/elsewhere && "
      "ln -s /run/scratch/elsewhere /run/quorvexvpn/quorvexvpn.conf");
  EXPECT_FALSE(Stop());
  EXPECT_TRUE(error.starts_with("The WireGuard interface exists without")) << error;
  EXPECT_TRUE(Calls().empty());
}

TEST_F(AWireGuardStop, OnlyRemovesTheConfigurationWithoutAnInterface) {
  LeaveConfiguration();
  EXPECT_TRUE(Stop());
  EXPECT_EQ(error, kUntouched);
  EXPECT_FALSE(Exists(kWireGuardConfig));
  EXPECT_TRUE(Calls().empty());
}

TEST_F(AWireGuardStop, RevertsDnsAndThenTakesTheTunnelDown) {
  LeaveBoth();
  EXPECT_TRUE(Stop());
  EXPECT_EQ(error, kUntouched);
  EXPECT_EQ(Calls(), (std::vector<std::string>{kRevertDns, kDown}));
  EXPECT_FALSE(Exists(kWireGuardConfig));
  EXPECT_FALSE(InterfaceIsThere());
}

TEST_F(AWireGuardStop, KeepsTheConfigurationWhenTheTunnelStays) {
  LeaveBoth();
  Record(kWireGuardQuick, "exit 1");
  EXPECT_FALSE(Stop());
  EXPECT_EQ(error, "WireGuard disconnect cleanup failed.");
  EXPECT_EQ(ReadFile(kWireGuardConfig), "left");
  EXPECT_TRUE(InterfaceIsThere());
}

TEST_F(AWireGuardStop, DoesNotTakeTheToolsWordForIt) {
  LeaveBoth();
  Record(kWireGuardQuick, "exit 0");
  EXPECT_FALSE(Stop());
  EXPECT_EQ(error, "WireGuard reported disconnect but its interface still exists.");
  EXPECT_EQ(ReadFile(kWireGuardConfig), "left");
}

TEST_F(AWireGuardStop, ReportsAFailedDnsRevertWhenAllElseSucceeded) {
  LeaveBoth();
  Record(kDnsHelper, "exit 1");
  EXPECT_FALSE(Stop());
  EXPECT_EQ(error, "WireGuard disconnected but DNS cleanup failed.");
  EXPECT_FALSE(Exists(kWireGuardConfig));
  EXPECT_FALSE(InterfaceIsThere());
}

TEST_F(AWireGuardStop, ReportsAFailedTakeDownBeforeAFailedDnsRevert) {
  LeaveBoth();
  Record(kDnsHelper, "exit 1");
  Record(kWireGuardQuick, "exit 1");
  EXPECT_FALSE(Stop());
  EXPECT_EQ(error, "WireGuard disconnect cleanup failed.");
}

TEST_F(AWireGuardStop, ReportsAConfigurationThatCannotBeRemoved) {
  LeaveBoth();
  Record(kDnsHelper, "exit 1");
  // A mount point cannot be unlinked.
  test::Shell("mount --bind /run/quorvexvpn/quorvexvpn.conf /run/quorvexvpn/quorvexvpn.conf");
  EXPECT_FALSE(Stop());
  test::Shell("umount /run/quorvexvpn/quorvexvpn.conf");
  EXPECT_EQ(error, "Unable to remove private runtime data: Device or resource busy");
}

}  // namespace
}  // namespace quorvex::linux_service
