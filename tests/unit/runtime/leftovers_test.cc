// SPDX-License-Identifier: Apache-2.0
//
// What each engine leaves, put there by hand as the real engines were seen to do it, beside things
// that look alike and belong to somebody else.
#include "runtime/leftovers.h"

#include "tests/unit/runtime/kernel_world.h"

namespace quorvex::linux_service {
namespace {

using test::Output;
using test::Shell;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Leftovers : public test::KernelWorld {
 protected:
  void Note(EngineKind engine) {
    record = {};
    record.engine = engine;
    std::string error;
    ASSERT_TRUE(NoteWhatStands(&record, &error)) << error;
    noted = State();
  }
  // As when the tunnel is up.
  void NoteUp(bool isSettled = true) {
    std::string error;
    GroundRecord changes;
    ASSERT_TRUE(NoteWhatChanged(record, &changes, &error)) << error;
    record.addedRules = changes.addedRules;
    record.addedRoutes = changes.addedRoutes;
    record.takenRoutes = changes.takenRoutes;
    record.isSettled = isSettled;
  }
  void Remove() {
    std::string error;
    EXPECT_TRUE(RemoveLeftovers(record, &error)) << error;
  }
  void ExpectAsNoted() { EXPECT_EQ(State(), noted); }
  static std::string State() { return Rules() + Routes() + Tables(); }

  GroundRecord record;
  std::string noted;
};

void AddSingBoxRules(const std::string& family) {
  Shell("ip " + family +
        " rule add priority 9000 fwmark 0x2024 goto 9002;"
        "ip " +
        family +
        " rule add priority 9001 fwmark 0x2023 lookup 2022;"
        "ip " +
        family +
        " rule add priority 9002 type nop;"
        "ip " +
        family + " rule add priority 32768 lookup 2022");
}

void AddSingBoxTable(const std::string& interface) {
  Shell(
      "nft 'add table inet sing-box; add chain inet sing-box output { type nat hook output "
      "priority "
      "-150; }; add rule inet sing-box output meta l4proto tcp redirect to :38121; add chain inet "
      "sing-box prerouting; add rule inet sing-box prerouting iifname \"" +
      interface + "\" return'");
}

void RemoveSingBoxRules() {
  Shell(
      "for p in 9000 9001 9002 32768; do ip -4 rule del priority $p; ip -6 rule del priority $p; "
      "done 2>/dev/null || :");
}

TEST_F(Leftovers, OfSingBoxAreItsTableAndItsRulesInBothFamilies) {
  Note(EngineKind::kSingBox);
  AddSingBoxRules("-4");
  AddSingBoxRules("-6");
  AddSingBoxTable("quorvex-sbox0");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfSingBoxAreNotWhatStoodBefore) {
  Shell(
      "ip rule add priority 9005 from 192.0.2.99 lookup 77; ip rule add priority 32768 lookup 77");
  Note(EngineKind::kSingBox);
  AddSingBoxRules("-6");
  Remove();
  ExpectAsNoted();
  Shell("ip rule del priority 9005; ip rule del priority 32768");
}

TEST_F(Leftovers, OfSingBoxAreNotRulesOfOtherNumbers) {
  Note(EngineKind::kSingBox);
  Shell(
      "for p in 8999 9011 32769; do ip rule add priority $p lookup 2022; done;"
      "ip rule add priority 32768 lookup 77");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
  Shell("for p in 8999 9011 32769 32768; do ip rule del priority $p; done");
}

TEST_F(Leftovers, OfSingBoxIsATableThatItHasNotFinished) {
  Note(EngineKind::kSingBox);
  Shell("nft 'add table inet sing-box; add set inet sing-box s { type ipv4_addr; }'");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfSingBoxIsNoUnfinishedTableThatStoodBefore) {
  Shell("nft 'add table inet sing-box; add set inet sing-box s { type ipv4_addr; }'");
  Note(EngineKind::kSingBox);
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfSingBoxAreNotTheTableOfAnotherSingBox) {
  Note(EngineKind::kSingBox);
  AddSingBoxTable("other0");
  Remove();
  EXPECT_THAT(Tables(), HasSubstr("table inet sing-box"));
}

TEST_F(Leftovers, OfSingBoxAreNotTheRulesOfAnotherSingBoxThatIsUp) {
  Note(EngineKind::kSingBox);
  AddSingBoxRules("-4");
  Shell("ip route add default dev cable0 table 2022");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
  RemoveSingBoxRules();
}

void AddQuickRules(const std::string& family, int mark) {
  const std::string number = std::to_string(mark);
  Shell("ip " + family + " rule add not fwmark " + number + " table " + number +
        ";"
        "ip " +
        family + " rule add table main suppress_prefixlength 0");
}

TEST_F(Leftovers, OfWireGuardAreItsRulesTablesAndSockets) {
  Note(EngineKind::kWireGuard);
  AddQuickRules("-4", 51820);
  AddQuickRules("-6", 51820);
  Shell(
      "nft 'add table ip wg-quick-quorvexvpn; add table ip6 wg-quick-quorvexvpn';"
      "mkdir -p /run/wireguard /run/amneziawg;"
      "python3 -c 'import socket\nfor d in (\"wireguard\", \"amneziawg\"):\n"
      " socket.socket(socket.AF_UNIX).bind(f\"/run/{d}/quorvexvpn.sock\")'");
  Remove();
  ExpectAsNoted();
  EXPECT_FALSE(test::Exists("/run/wireguard/quorvexvpn.sock"));
  EXPECT_FALSE(test::Exists("/run/amneziawg/quorvexvpn.sock"));
}

TEST_F(Leftovers, OfWireGuardHaveTheMarkThatTheProfileChose) {
  Note(EngineKind::kWireGuard);
  AddQuickRules("-4", 4242);
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfWireGuardStandWhereverTheKernelPutThem) {
  Shell("ip rule add priority 100 from 192.0.2.99 lookup 77");
  Note(EngineKind::kWireGuard);
  AddQuickRules("-4", 51820);
  EXPECT_THAT(Rules(), HasSubstr("98:"));
  Remove();
  ExpectAsNoted();
  Shell("ip rule del priority 100");
}

TEST_F(Leftovers, OfWireGuardIsHalfAPairToo) {
  Note(EngineKind::kWireGuard);
  Shell("ip rule add table main suppress_prefixlength 0; ip -6 rule add not fwmark 7 table 7");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfWireGuardAreNotATunnelOfSomebodyElse) {
  AddQuickRules("-4", 51820);
  Shell("ip route add default dev cable0 table 51820");
  Note(EngineKind::kWireGuard);
  AddQuickRules("-4", 51821);
  Remove();
  ExpectAsNoted();
  Shell("ip rule del not fwmark 51820 table 51820; ip rule del table main suppress_prefixlength 0");
}

TEST_F(Leftovers, OfWireGuardAreNotATunnelOfSomebodyElseThatCameLater) {
  Note(EngineKind::kWireGuard);
  AddQuickRules("-4", 51820);
  AddQuickRules("-4", 51821);
  Shell("ip route add default dev cable0 table 51821; nft add table ip wg-quick-other");
  Remove();
  EXPECT_THAT(Rules(),
              AllOf(HasSubstr("not from all fwmark 0xca6d lookup 51821"),
                    HasSubstr("lookup main suppress_prefixlength 0"), Not(HasSubstr("51820"))));
  EXPECT_THAT(Tables(), HasSubstr("wg-quick-other"));
  Shell("ip rule del not fwmark 51821 table 51821; ip rule del table main suppress_prefixlength 0");
}

TEST_F(Leftovers, OfOpenVpnAreHostRoutesToItsServers) {
  Shell("ip route add 198.51.100.9 via 192.0.2.1");
  Note(EngineKind::kOpenVpn);
  record.servers = {"\xc6\x33\x64\x08", "\xc6\x33\x64\x09",
                    std::string("\x20\x01\x0d\xb8\0\x07\0\0\0\0\0\0\0\0\0\x07", 16)};
  Shell(
      "ip route add 198.51.100.8 via 192.0.2.1;"
      "ip -6 route add 2001:db8:7::7 via 2001:db8::1 metric 1");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfOpenVpnAreNotOtherRoutesNorRoutesThatAnotherProgramSigned) {
  Note(EngineKind::kOpenVpn);
  record.servers = {"\xc6\x33\x64\x08"};
  Shell(
      "ip route add 198.51.100.10 via 192.0.2.1; ip route add 198.51.100.8/31 via 192.0.2.1;"
      "ip route add 198.51.100.8 via 192.0.2.1 proto static metric 7;"
      "ip route add 198.51.100.8 via 192.0.2.1 table 77");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
}

TEST_F(Leftovers, OfOpenVpnIsTheDefaultRouteThatItTookAway) {
  Note(EngineKind::kOpenVpn);
  Shell("ip -4 route del default");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfOpenVpnIsNoDefaultRouteWhenTheMachineHasAnother) {
  Note(EngineKind::kOpenVpn);
  Shell("ip -4 route del default; ip -4 route add default via 192.0.2.77");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
}

// With a default route of its own in the place of the machine's.
void TakeDefault(const std::string& which) {
  Shell(
      "ip tuntap add dev tun-quorvexvpn mode tun && ip link set tun-quorvexvpn up;"
      "ip -4 route del default " +
      which + "; ip -4 route add default dev tun-quorvexvpn");
}

void EndTunnel() {
  Shell("ip link del tun-quorvexvpn");
}

TEST_F(Leftovers, OfOpenVpnThatWasUpAreNotDefaultRoutesThatVanishedOtherwise) {
  Note(EngineKind::kOpenVpn);
  Shell("ip -4 route del default metric 100");
  NoteUp();
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
}

TEST_F(Leftovers, OfOpenVpnThatWasUpAreNotRoutesThroughOtherGateways) {
  Note(EngineKind::kOpenVpn);
  Shell(
      "ip route add 203.0.113.0/24 via 192.0.2.77; ip route add 203.0.113.5 via 192.0.2.1 metric "
      "9");
  NoteUp();
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
}

TEST_F(Leftovers, ThatCameAfterTheFirstNoteAreKnownByTheirForm) {
  Note(EngineKind::kSingBox);
  NoteUp(false);
  AddSingBoxRules("-4");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfOpenVpnThatWasUpAreAllItsRoutesPastTheTunnel) {
  Note(EngineKind::kOpenVpn);
  Shell(
      "ip route add 198.51.100.0/24 via 192.0.2.1; ip -6 route add 2001:db8:7::7 via 2001:db8::1");
  NoteUp();
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfOpenVpnThatWasUpAreNotWhatCameLater) {
  Note(EngineKind::kOpenVpn);
  record.servers = {"\xc6\x33\x64\x08"};
  NoteUp();
  Shell(
      "ip route add 198.51.100.8 via 192.0.2.3; ip route add 198.51.100.8 via 192.0.2.1 metric 50;"
      "ip route add 198.51.100.9 via 192.0.2.1; ip -4 route del default metric 100");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
}

TEST_F(Leftovers, OfOpenVpnThatWasUpAreRoutesToItsOtherServers) {
  Note(EngineKind::kOpenVpn);
  record.servers = {"\xc6\x33\x64\x08"};
  NoteUp();
  Shell("ip route add 198.51.100.8 via 192.0.2.1");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfOpenVpnThatWasUpAreTheDefaultRoutesThatItTookEvenBesideOthers) {
  Shell("ip -4 route add default via 192.0.2.7 metric 600");
  Note(EngineKind::kOpenVpn);
  TakeDefault("metric 100");
  NoteUp();
  EndTunnel();
  Remove();
  ExpectAsNoted();
}

// OpenVPN's own way of putting it back.
TEST_F(Leftovers, OfOpenVpnIsADefaultRouteThatCameBackBare) {
  Shell(
      "ip -4 route del default; ip -4 route add default via 192.0.2.1 proto dhcp metric 100 src "
      "192.0.2.2");
  Note(EngineKind::kOpenVpn);
  TakeDefault("metric 100");
  NoteUp();
  EndTunnel();
  Shell("ip -4 route add default via 192.0.2.1");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, ThatWereNotedAreRemoved) {
  Note(EngineKind::kSingBox);
  AddSingBoxRules("-4");
  NoteUp();
  Shell("ip route add default dev cable0 table 2022; ip route del default table 2022");
  Remove();
  ExpectAsNoted();
}

TEST_F(Leftovers, OfATunnelThatWasUpAreNotWhatLooksLikeItAndCameLater) {
  Note(EngineKind::kWireGuard);
  AddQuickRules("-4", 51820);
  NoteUp();
  AddQuickRules("-6", 51820);
  Remove();
  EXPECT_THAT(Output("ip -6 rule"), HasSubstr("lookup 51820"));
  EXPECT_THAT(Output("ip -4 rule"), Not(HasSubstr("lookup 51820")));
  Shell(
      "ip -6 rule del not fwmark 51820 table 51820; ip -6 rule del table main "
      "suppress_prefixlength 0");
}

TEST_F(Leftovers, OfWireGuardAreNotRulesWithFurtherSelectors) {
  Note(EngineKind::kWireGuard);
  Shell(
      "ip rule add from 198.51.100.0/24 lookup main suppress_prefixlength 0 priority 50;"
      "ip rule add iif cable0 lookup main suppress_prefixlength 0 priority 51;"
      "ip rule add not from 198.51.100.0/24 fwmark 7 lookup 7 priority 52;"
      "ip rule add not fwmark 8/0xff lookup 8 priority 53;"
      "ip rule add not fwmark 9 lookup 9 priority 54 protocol static;"
      "ip rule add not fwmark 10 lookup 10 priority 55; ip route add blackhole default table 10");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
  Shell("for p in 50 51 52 53 54 55; do ip rule del priority $p; done; ip route flush table 10");
}

TEST_F(Leftovers, OfSingBoxAreNotARangeThatLeadsElsewhere) {
  Note(EngineKind::kSingBox);
  Shell(
      "ip rule add priority 9000 fwmark 0x2024 goto 9002; ip rule add priority 9001 fwmark 0x2023 "
      "lookup 2122; ip rule add priority 9002 type nop");
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
  Shell("for p in 9000 9001 9002; do ip rule del priority $p; done");
}

TEST_F(Leftovers, OfXrayAreNone) {
  Note(EngineKind::kXray);
  AddSingBoxRules("-4");
  AddQuickRules("-4", 51820);
  const std::string after = State();
  Remove();
  EXPECT_EQ(State(), after);
  RemoveSingBoxRules();
  Shell("ip rule del not fwmark 51820 table 51820; ip rule del table main suppress_prefixlength 0");
}

TEST_F(Leftovers, AreRemovedTwiceAsWell) {
  Note(EngineKind::kSingBox);
  AddSingBoxRules("-4");
  Remove();
  Remove();
  ExpectAsNoted();
}

}  // namespace
}  // namespace quorvex::linux_service
