// SPDX-License-Identifier: Apache-2.0
//
// Rules, routes, tables and links in a real kernel: what is listed, and that exactly what is meant
// is deleted.
#include <linux/netfilter.h>
#include <linux/rtnetlink.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "runtime/kernel_links.h"
#include "runtime/kernel_routes.h"
#include "runtime/nft_tables.h"
#include "runtime/routing_rules.h"
#include "tests/unit/runtime/kernel_world.h"

namespace quorvex::linux_service {
namespace {

using namespace std::string_literals;

using test::Output;
using test::Shell;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

using ARoutingRule = test::KernelWorld;
using AKernelRoute = test::KernelWorld;
using AnNftTable = test::KernelWorld;
using ALink = test::KernelWorld;

std::vector<RoutingRule> ListRules() {
  std::vector<RoutingRule> rules;
  std::string error;
  EXPECT_TRUE(ListRoutingRules(&rules, &error)) << error;
  return rules;
}

RoutingRule RuleAt(std::uint8_t family, std::uint32_t priority) {
  for (RoutingRule& rule : ListRules()) {
    if (rule.family == family && rule.priority == priority) {
      return std::move(rule);
    }
  }
  ADD_FAILURE() << "no rule at " << priority;
  return {};
}

TEST_F(ARoutingRule, IsListedWithItsParts) {
  Shell("ip -6 rule add not fwmark 51820 lookup 51821 priority 77 protocol 5");
  const RoutingRule rule = RuleAt(AF_INET6, 77);
  EXPECT_TRUE(rule.inverted);
  EXPECT_EQ(rule.mark, 51820U);
  EXPECT_EQ(rule.table, 51821U);
  EXPECT_EQ(rule.maker, 5U);
  EXPECT_EQ(rule.suppressed, UINT32_MAX);
  Shell("ip -6 rule del priority 77");
}

TEST_F(ARoutingRule, ThatPassesDefaultRoutesOverSaysSo) {
  Shell("ip rule add lookup main suppress_prefixlength 0 priority 78");
  const RoutingRule rule = RuleAt(AF_INET, 78);
  EXPECT_EQ(rule.suppressed, 0U);
  EXPECT_FALSE(rule.inverted);
  Shell("ip rule del priority 78");
}

TEST_F(ARoutingRule, IsDeletedAloneAmongItsLike) {
  Shell(
      "ip rule add fwmark 1 lookup 7 priority 80; ip rule add fwmark 2 lookup 7 priority 80;"
      "ip rule add from 192.0.2.9 fwmark 1 lookup 7 priority 80");
  std::string error;
  const std::vector<RoutingRule> rules = ListRules();
  const auto second = std::ranges::find(rules, 2U, &RoutingRule::mark);
  ASSERT_NE(second, rules.end());
  EXPECT_TRUE(DeleteRoutingRule(*second, &error)) << error;
  EXPECT_THAT(Rules(),
              AllOf(HasSubstr("from all fwmark 0x1 lookup 7"),
                    HasSubstr("from 192.0.2.9 fwmark 0x1 lookup 7"), Not(HasSubstr("0x2"))));
  EXPECT_TRUE(DeleteRoutingRule(*second, &error)) << "gone already: " << error;
  Shell("ip rule del priority 80; ip rule del priority 80");
}

// sing-box's way past its own table.
TEST_F(ARoutingRule, ThatLeadsToAnotherRuleIsDeleted) {
  Shell("ip rule add priority 9000 fwmark 0x2024 goto 9002; ip rule add priority 9002 type nop");
  std::string error;
  EXPECT_TRUE(DeleteRoutingRule(RuleAt(AF_INET, 9000), &error)) << error;
  EXPECT_TRUE(DeleteRoutingRule(RuleAt(AF_INET, 9002), &error)) << error;
}

TEST_F(ARoutingRule, KeepsItsDescriptionWhenItsInterfaceGoes) {
  Shell("ip link add gone0 type veth; ip rule add iif gone0 lookup 7 priority 81");
  const std::string description = RuleAt(AF_INET, 81).description;
  Shell("ip link del gone0");
  EXPECT_EQ(RuleAt(AF_INET, 81).description, description);
  Shell("ip rule del priority 81");
}

std::vector<KernelRoute> List() {
  std::vector<KernelRoute> routes;
  std::string error;
  EXPECT_TRUE(ListRoutes(&routes, &error)) << error;
  return routes;
}

KernelRoute RouteTo(const std::string& destination) {
  for (KernelRoute& route : List()) {
    if (route.destination == destination && route.table == RT_TABLE_MAIN &&
        !route.gateway.empty()) {
      return std::move(route);
    }
  }
  ADD_FAILURE() << "no such route";
  return {};
}

TEST_F(AKernelRoute, IsListedWithItsParts) {
  Shell("ip route add 198.51.100.8 via 192.0.2.1 proto 42");
  const KernelRoute route = RouteTo("\xc6\x33\x64\x08");
  EXPECT_EQ(route.family, AF_INET);
  EXPECT_EQ(route.prefixLength, 32);
  EXPECT_EQ(route.protocol, 42);
  EXPECT_EQ(route.gateway, "\xc0\x00\x02\x01"s);
  EXPECT_NE(route.device, 0U);
}

TEST_F(AKernelRoute, OfAnotherTableSaysWhich) {
  Shell("ip -6 route add default dev cable0 table 51820");
  const std::vector<KernelRoute> routes = List();
  const auto found = std::ranges::find(routes, 51820U, &KernelRoute::table);
  ASSERT_NE(found, routes.end());
  EXPECT_EQ(found->family, AF_INET6);
}

TEST_F(AKernelRoute, IsDeletedAloneAmongItsLike) {
  Shell(
      "ip route add 198.51.100.8 via 192.0.2.1 metric 5;"
      "ip route add 198.51.100.8 via 192.0.2.1 metric 6;"
      "ip -6 route add 2001:db8:7::7 via 2001:db8::1");
  std::string error;
  EXPECT_TRUE(DeleteRoute(RouteTo("\xc6\x33\x64\x08"), &error)) << error;
  const std::string left = Routes();
  EXPECT_NE(left.find("metric 5") == std::string::npos, left.find("metric 6") == std::string::npos);
  EXPECT_THAT(left, HasSubstr("2001:db8:7::7 via 2001:db8::1"));
}

TEST_F(AKernelRoute, ThatHasGoneCountsAsDeleted) {
  Shell("ip route add 198.51.100.8 via 192.0.2.1");
  const KernelRoute route = RouteTo("\xc6\x33\x64\x08");
  Shell("ip route del 198.51.100.8");
  std::string error;
  EXPECT_TRUE(DeleteRoute(route, &error)) << error;
}

TEST_F(AKernelRoute, IsPutBackFromItsDescription) {
  const std::string whole = Routes();
  KernelRoute route;
  for (const KernelRoute& each : List()) {
    if (each.prefixLength == 0 && each.family == AF_INET) {
      ASSERT_TRUE(ReadRoute(each.description, &route));
    }
  }
  Shell("ip -4 route del default");
  std::string error;
  EXPECT_TRUE(RestoreRoute(route, &error)) << error;
  EXPECT_EQ(Routes(), whole);
  EXPECT_TRUE(RestoreRoute(route, &error)) << "there already: " << error;
}

TEST_F(AKernelRoute, WhoseLinkHasGoneIsNotPutBack) {
  const KernelRoute route = RouteTo("");
  Shell("ip link set cable0 down");
  std::string error;
  EXPECT_TRUE(RestoreRoute(route, &error)) << error;
  EXPECT_THAT(Output("ip -4 route"), Not(HasSubstr("default")));
}

TEST_F(AKernelRoute, IsNotReadFromAnythingElse) {
  KernelRoute route;
  EXPECT_FALSE(ReadRoute("", &route));
  EXPECT_FALSE(ReadRoute("short", &route));
  EXPECT_FALSE(ReadRoute(std::string(100'000, 'x'), &route));
}

std::vector<NftTable> ListTables() {
  std::vector<NftTable> tables;
  std::string error;
  EXPECT_TRUE(ListNftTables(&tables, &error)) << error;
  return tables;
}

void AddTable(const std::string& name, const std::string& rule) {
  Shell("nft 'add table " + name + "; add chain " + name + " c; add rule " + name + " c " + rule +
        "'");
}

NftTableUse UseOfOnlyTable(const std::string& interface) {
  NftTableUse use;
  std::string error;
  EXPECT_TRUE(SearchNftTable(ListTables().at(0), interface, &use, &error)) << error;
  return use;
}

bool NamesInterface(const std::string& interface) {
  return UseOfOnlyTable(interface).namesInterface;
}

TEST_F(AnNftTable, IsListedWithFamilyNameAndHandle) {
  AddTable("ip6 one", "accept");
  AddTable("inet two", "accept");
  const std::vector<NftTable> tables = ListTables();
  ASSERT_EQ(tables.size(), 2U);
  const auto two = std::ranges::find(tables, "two", &NftTable::name);
  ASSERT_NE(two, tables.end());
  EXPECT_EQ(two->family, NFPROTO_INET);
  EXPECT_THAT(Output("nft -a list ruleset"),
              HasSubstr("table inet two { # handle " + std::to_string(two->handle)));
}

TEST_F(AnNftTable, ThatComparesTheInterfaceNamesIt) {
  AddTable("inet two", "iifname != \"quorvex-sbox0\" accept");
  ASSERT_EQ(ListTables().size(), 1U);
  EXPECT_TRUE(NamesInterface("quorvex-sbox0"));
  EXPECT_FALSE(NamesInterface("quorvex-sbox"));
  EXPECT_FALSE(NamesInterface("quorvex-sbox01"));
  EXPECT_FALSE(NamesInterface("a-name-of-more-than-fifteen"));
}

TEST_F(AnNftTable, ThatOnlySpeaksOfTheInterfaceDoesNot) {
  AddTable("inet two", "accept comment \"quorvex-sbox0\"");
  EXPECT_FALSE(NamesInterface("quorvex-sbox0"));
}

TEST_F(AnNftTable, IsSearchedThroughManyRules) {
  Shell(
      "(echo 'table inet two { chain c {';"
      " for i in $(seq 2000); do echo \"ip daddr 192.0.2.$((i % 250)) accept\"; done;"
      " printf 'oifname \"quorvex-sbox0\" accept\n}\n}\n') | nft -f -");
  EXPECT_TRUE(NamesInterface("quorvex-sbox0"));
}

TEST_F(AnNftTable, ThatComparesNothingNamesNoInterface) {
  AddTable("ip6 one", "ip6 saddr :: accept");
  EXPECT_FALSE(NamesInterface("a-name-of-more-than-fifteen"));
}

TEST_F(AnNftTable, HasItsRulesCounted) {
  Shell("nft 'add table inet two; add chain inet two c'");
  EXPECT_EQ(UseOfOnlyTable("any").rules, 0U);
  Shell("nft 'add rule inet two c accept; add rule inet two c drop'");
  EXPECT_EQ(UseOfOnlyTable("any").rules, 2U);
}

TEST_F(AnNftTable, ThatCannotBeSearchedIsNotTakenForEmpty) {
  AddTable("inet two", "accept");
  const NftTable table = ListTables().at(0);
  rlimit usual = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none = {0, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  NftTableUse use;
  std::string error;
  const bool searched = SearchNftTable(table, "any", &use, &error);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
  EXPECT_FALSE(searched);
  EXPECT_EQ(error, "Unable to list the rules of nftables: Too many open files");
}

TEST_F(AnNftTable, ThatHasGoneHasNoRules) {
  AddTable("inet two", "accept");
  const NftTable table = ListTables().at(0);
  Shell("nft delete table inet two");
  NftTableUse use;
  std::string error;
  EXPECT_TRUE(SearchNftTable(table, "any", &use, &error)) << error;
  EXPECT_EQ(use.rules, 0U);
}

TEST_F(AnNftTable, IsDeletedAloneAmongItsLike) {
  AddTable("ip one", "accept");
  AddTable("ip6 one", "accept");
  const std::vector<NftTable> tables = ListTables();
  const auto six = std::ranges::find(tables, NFPROTO_IPV6, &NftTable::family);
  ASSERT_NE(six, tables.end());
  std::string error;
  EXPECT_TRUE(DeleteNftTable(*six, &error)) << error;
  EXPECT_THAT(Tables(), AllOf(HasSubstr("table ip one"), Not(HasSubstr("table ip6 one"))));
}

TEST_F(AnNftTable, OfTheSameNameMadeLaterIsAnother) {
  AddTable("inet two", "accept");
  const NftTable first = ListTables().front();
  Shell("nft delete table inet two");
  AddTable("inet two", "drop");
  std::string error;
  EXPECT_TRUE(DeleteNftTable(first, &error)) << error;
  EXPECT_THAT(Tables(), HasSubstr("table inet two"));
}

constexpr std::array kTun = {"tun"};

TEST_F(ALink, OfTheKindIsDeleted) {
  Shell("ip tuntap add dev quorvex-xray0 mode tun");
  std::string error;
  EXPECT_TRUE(DeleteLink("quorvex-xray0", kTun, &error)) << error;
  EXPECT_THAT(Output("ip link"), Not(HasSubstr("quorvex-xray0")));
  EXPECT_TRUE(DeleteLink("quorvex-xray0", kTun, &error)) << "gone already: " << error;
}

TEST_F(ALink, OfAnotherKindStays) {
  Shell("ip link add quorvex-xray0 type veth");
  std::string error;
  EXPECT_TRUE(DeleteLink("quorvex-xray0", kTun, &error)) << error;
  EXPECT_THAT(Output("ip link"), HasSubstr("quorvex-xray0"));
  Shell("ip link del quorvex-xray0");
}

}  // namespace
}  // namespace quorvex::linux_service
