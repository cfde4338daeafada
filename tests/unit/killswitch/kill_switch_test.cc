// SPDX-License-Identifier: Apache-2.0
//
// The real nft, on a network of the test's own.
#include "killswitch/kill_switch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "killswitch/ruleset.h"
#include "runtime/constants.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using test::ReadFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kUntouched[] = "as before";
constexpr char kUnavailable[] = "nftables is unavailable. Repair the QuorvexVPN installation.";
constexpr char kCannotRun[] = "Unable to run the nftables leak-protection command.";
constexpr char kFailed[] = "The nftables leak-protection command failed.";
constexpr char kReadInput[] = "cat >/run/scratch/input";
constexpr char kRemoval[] = "table inet quorvexvpn\ndelete table inet quorvexvpn\n";

// The whole rule set of this network, as nft lists it.
std::string Listing() {
  test::Shell("nft list ruleset >/run/scratch/listing");
  return ReadFile("/run/scratch/listing");
}

// What nft lists for a kill switch whose last rules are these; a set of one goes without braces.
std::string Table(const std::string& interface, const std::string& serverRules) {
  return "table inet quorvexvpn {\n"
         "\tchain output {\n"
         "\t\ttype filter hook output priority filter; policy drop;\n"
         "\t\toifname \"lo\" accept\n"
         "\t\toifname \"" +
         interface +
         "\" accept\n"
         "\t\tmeta l4proto ipv6-icmp accept\n"
         "\t\tudp dport { 67, 68, 546, 547 } accept\n" +
         serverRules + "\t}\n}\n";
}

class AKillSwitch : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    test::Shell("nft flush ruleset");
  }
  bool Apply(const std::string& interface, const std::vector<std::string>& addresses) {
    return ApplyKillSwitch(interface, addresses, &error);
  }
  bool Remove() { return RemoveKillSwitch(&error); }
  std::string error = kUntouched;
};

TEST_F(AKillSwitch, IsOneTableWithOneChain) {
  EXPECT_TRUE(Apply("tun-quorvexvpn", {"198.51.100.7", "2001:db8::5"}));
  EXPECT_EQ(Listing(), Table("tun-quorvexvpn",
                             "\t\tip daddr 198.51.100.7 accept\n"
                             "\t\tip6 daddr 2001:db8::5 accept\n"));
  EXPECT_EQ(error, kUntouched);
}

TEST_F(AKillSwitch, AppliedTwiceIsStillOneTableWithOneChain) {
  EXPECT_TRUE(Apply("quorvexvpn", {"198.51.100.7"}));
  EXPECT_TRUE(Apply("quorvexvpn", {"198.51.100.7"}));
  EXPECT_EQ(Listing(), Table("quorvexvpn", "\t\tip daddr 198.51.100.7 accept\n"));
}

TEST_F(AKillSwitch, ReplacesAnEarlierOneWhole) {
  EXPECT_TRUE(Apply("quorvexvpn", {"198.51.100.7"}));
  test::Shell("nft add chain inet quorvexvpn stranger");
  EXPECT_TRUE(Apply("quorvex-sbox0", {"2001:db8::5"}));
  EXPECT_EQ(Listing(), Table("quorvex-sbox0", "\t\tip6 daddr 2001:db8::5 accept\n"));
}

TEST_F(AKillSwitch, HoldsServersThatAreGivenMoreThanOnce) {
  EXPECT_TRUE(
      Apply("quorvexvpn", {"192.0.2.1", "2001:db8::5", "192.0.2.2", "2001:DB8:0::5", "192.0.2.1"}));
  EXPECT_EQ(Listing(), Table("quorvexvpn",
                             "\t\tip daddr { 192.0.2.1, 192.0.2.2 } accept\n"
                             "\t\tip6 daddr { 2001:db8::5 } accept\n"));
}

TEST_F(AKillSwitch, HoldsMoreServersThanAPipe) {
  std::vector<std::string> addresses;
  for (int number = 0; number < 5000; ++number) {
    addresses.push_back("10.0." + std::to_string(number / 256) + "." +
                        std::to_string(number % 256));
  }
  EXPECT_TRUE(Apply("quorvexvpn", addresses));
  const std::string listing = Listing();
  EXPECT_NE(listing.find("10.0.0.0,"), std::string::npos);
  EXPECT_NE(listing.find("10.0.19.135 "), std::string::npos);
}

TEST_F(AKillSwitch, LeavesTheTablesOfOthersAlone) {
  constexpr char kOthers[] = "table inet other {\n}\ntable ip quorvexvpn {\n}\n";
  test::Shell("nft add table inet other; nft add table ip quorvexvpn");
  ASSERT_EQ(Listing(), kOthers);
  EXPECT_TRUE(Apply("quorvexvpn", {"192.0.2.1"}));
  EXPECT_EQ(Listing(), kOthers + Table("quorvexvpn", "\t\tip daddr 192.0.2.1 accept\n"));
  EXPECT_TRUE(Remove());
  EXPECT_EQ(Listing(), kOthers);
}

TEST_F(AKillSwitch, IsGoneOnceRemoved) {
  EXPECT_TRUE(Apply("quorvexvpn", {"192.0.2.1"}));
  EXPECT_TRUE(Remove());
  EXPECT_EQ(Listing(), "");
  EXPECT_EQ(error, kUntouched);
}

TEST_F(AKillSwitch, IsRemovedWhenThereIsNone) {
  EXPECT_TRUE(Remove());
  EXPECT_TRUE(Remove());
  EXPECT_EQ(Listing(), "");
  EXPECT_EQ(error, kUntouched);
}

TEST_F(AKillSwitch, IsReportedWhileItIsThere) {
  EXPECT_FALSE(KillSwitchInstalled());
  EXPECT_TRUE(Apply("quorvexvpn", {"192.0.2.1"}));
  EXPECT_TRUE(KillSwitchInstalled());
  EXPECT_TRUE(Remove());
  EXPECT_FALSE(KillSwitchInstalled());
}

TEST_F(AKillSwitch, IsNotMistakenForTablesOfOthers) {
  test::Shell("nft add table inet quorvexvpn2; nft add table ip quorvexvpn");
  EXPECT_FALSE(KillSwitchInstalled());
  test::Shell("nft add table inet quorvexvpn");
  EXPECT_TRUE(KillSwitchInstalled());
}

struct RefusalCase {
  const char* name;
  std::string interface;
  std::vector<std::string> addresses;
  const char* error;
};

class ARefusedKillSwitch : public AKillSwitch, public ::testing::WithParamInterface<RefusalCase> {};

INSTANTIATE_TEST_SUITE_P(
    Reasons, ARefusedKillSwitch,
    ::testing::Values(
        RefusalCase{
            "Interface", "tun 0", {"192.0.2.1"}, "The tunnel interface name is not usable."},
        RefusalCase{"Addresses",
                    "quorvexvpn",
                    {"vpn.example"},
                    "No server address was available for the leak-protection ruleset."}),
    test::CaseName());

TEST_P(ARefusedKillSwitch, LeavesTheEarlierOneAsItWas) {
  EXPECT_TRUE(Apply("quorvex-xray0", {"192.0.2.1"}));
  EXPECT_FALSE(Apply(GetParam().interface, GetParam().addresses));
  EXPECT_EQ(error, GetParam().error);
  EXPECT_EQ(Listing(), Table("quorvex-xray0", "\t\tip daddr 192.0.2.1 accept\n"));
}

TEST_P(ARefusedKillSwitch, LeavesNothingWhereNothingWas) {
  EXPECT_FALSE(Apply(GetParam().interface, GetParam().addresses));
  EXPECT_EQ(error, GetParam().error);
  EXPECT_EQ(Listing(), "");
}

// The real nft, with one line more than it was handed: the kernel knows no such chain.
constexpr char kSpoilScript[] =
    "{ cat; echo 'add rule inet quorvexvpn nowhere accept'; } | /run/scratch/nft \"$@\"";

TEST_F(AKillSwitch, IsLeftAsItWasWhenNftRefusesTheLastLine) {
  EXPECT_TRUE(Apply("quorvex-xray0", {"192.0.2.1"}));
  test::Shell("cp /usr/sbin/nft /run/scratch/nft");
  StandIn(kNftBinary, kSpoilScript);
  EXPECT_FALSE(Apply("quorvexvpn", {"192.0.2.9"}));
  EXPECT_EQ(error, kFailed);
  EXPECT_FALSE(Remove());
  TearDown();
  EXPECT_EQ(Listing(), Table("quorvex-xray0", "\t\tip daddr 192.0.2.1 accept\n"));
}

TEST_F(AKillSwitch, ThatCannotBeBuiltRunsNothing) {
  Record(kTimeoutBinary);
  EXPECT_FALSE(Apply("", {"192.0.2.1"}));
  EXPECT_FALSE(Apply("quorvexvpn", {}));
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(AKillSwitch, IsHandedToNftInOneScript) {
  std::string ruleset;
  ASSERT_TRUE(BuildKillSwitchRuleset("quorvexvpn", {"192.0.2.1"}, &ruleset, &error));
  Record(kNftBinary, kReadInput);
  EXPECT_TRUE(Apply("quorvexvpn", {"192.0.2.1"}));
  EXPECT_THAT(Calls(), ElementsAre("/usr/sbin/nft <-f> <->"));
  EXPECT_EQ(ReadFile("/run/scratch/input"), ruleset);
}

TEST_F(AKillSwitch, IsDeclaredBeforeItIsDeleted) {
  Record(kNftBinary, kReadInput);
  EXPECT_TRUE(Remove());
  EXPECT_THAT(Calls(), ElementsAre("/usr/sbin/nft <-f> <->"));
  EXPECT_EQ(ReadFile("/run/scratch/input"), kRemoval);
}

TEST_F(AKillSwitch, IsAskedForByNameAndFamily) {
  Record(kNftBinary, "exit 0");
  EXPECT_TRUE(KillSwitchInstalled());
  EXPECT_THAT(Calls(), ElementsAre("/usr/sbin/nft <list> <table> <inet> <quorvexvpn>"));
}

struct BrokenCase {
  const char* name;
  // What is broken about nft or timeout; run in the private world.
  const char* damage;
  const char* applyError;
  // Null where removing succeeds.
  const char* removeError;
};

class ABrokenInstallation : public AKillSwitch, public ::testing::WithParamInterface<BrokenCase> {
 protected:
  void SetUp() override {
    AKillSwitch::SetUp();
    // Noted as displaced, so that both are put back.
    StandIn(kNftBinary, "touch /run/scratch/started; exit 0");
    StandIn(kTimeoutBinary, "shift 3; exec \"$@\"");
    test::Shell(GetParam().damage);
  }
};

INSTANTIATE_TEST_SUITE_P(
    Faults, ABrokenInstallation,
    ::testing::Values(
        BrokenCase{"NftMissing", "rm /usr/sbin/nft", kUnavailable, nullptr},
        BrokenCase{"NftNotExecutable", "chmod 644 /usr/sbin/nft", kUnavailable, nullptr},
        BrokenCase{"NftAndTimeoutMissing", "rm /usr/sbin/nft /usr/bin/timeout", kUnavailable,
                   nullptr},
        BrokenCase{"TimeoutMissing", "rm /usr/bin/timeout", kCannotRun, kCannotRun},
        BrokenCase{"TimeoutNotExecutable", "chmod 644 /usr/bin/timeout", kCannotRun, kCannotRun},
        BrokenCase{"NftFails", "echo '#!/bin/sh\nexit 1' >/usr/sbin/nft", kFailed, kFailed},
        BrokenCase{"NftDies", "echo '#!/bin/sh\nkill -KILL $$' >/usr/sbin/nft", kFailed, kFailed}),
    test::CaseName());

TEST_P(ABrokenInstallation, MakesApplyingFail) {
  EXPECT_FALSE(Apply("quorvexvpn", {"192.0.2.1"}));
  EXPECT_EQ(error, GetParam().applyError);
  EXPECT_FALSE(test::Exists("/run/scratch/started"));
}

TEST_P(ABrokenInstallation, MakesRemovingFailOnlyWhenNftIsThere) {
  const bool succeeds = GetParam().removeError == nullptr;
  EXPECT_EQ(Remove(), succeeds);
  EXPECT_EQ(error, succeeds ? kUntouched : GetParam().removeError);
  EXPECT_FALSE(test::Exists("/run/scratch/started"));
}

TEST_P(ABrokenInstallation, ReportsNoKillSwitch) {
  EXPECT_FALSE(KillSwitchInstalled());
}

TEST_F(AKillSwitch, IsRemovedWithoutNftAndWithoutRunningAnything) {
  Record(kTimeoutBinary);
  Uninstall(kNftBinary);
  EXPECT_TRUE(Remove());
  EXPECT_THAT(Calls(), IsEmpty());
}

}  // namespace
}  // namespace quorvex::linux_service
