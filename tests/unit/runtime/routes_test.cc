// SPDX-License-Identifier: Apache-2.0
#include "runtime/routes.h"

#include <gtest/gtest.h>

#include "runtime/constants.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

struct ListingCase {
  const char* name;
  const char* listing;
  const char* prefix;
  const char* interface;
  bool found;
};

class AListing : public ::testing::TestWithParam<ListingCase> {};

INSTANTIATE_TEST_SUITE_P(
    Cases, AListing,
    ::testing::Values(
        ListingCase{"Empty", "", "default", "quorvexvpn", false},
        ListingCase{"OneLine", "default dev quorvexvpn scope link\n", "default", "quorvexvpn",
                    true},
        ListingCase{"WithoutNewline", "default dev quorvexvpn", "default", "quorvexvpn", true},
        ListingCase{"WithGateway", "default via 10.0.0.1 dev quorvexvpn table 51820\n", "default",
                    "quorvexvpn", true},
        ListingCase{"LaterLine", "10.0.0.0/8 dev eth0\n\ndefault dev quorvexvpn\n", "default",
                    "quorvexvpn", true},
        ListingCase{"OtherDevice", "default dev eth0\n", "default", "quorvexvpn", false},
        ListingCase{"OtherPrefix", "10.0.0.0/8 dev quorvexvpn\n", "default", "quorvexvpn", false},
        ListingCase{"PrefixAndDeviceOnDifferentLines",
                    "default via 10.0.0.1\n10.0.0.0/8 dev quorvexvpn\n", "default", "quorvexvpn",
                    false},
        ListingCase{"PrefixNotAtTheBeginning", " default dev quorvexvpn\n", "default", "quorvexvpn",
                    false},
        ListingCase{"PrefixInsideTheLine", "unreachable default dev quorvexvpn\n", "default",
                    "quorvexvpn", false},
        ListingCase{"PrefixInOtherLetters", "Default dev quorvexvpn\n", "default", "quorvexvpn",
                    false},
        ListingCase{"DeviceInOtherLetters", "default dev QUORVEXVPN\n", "default", "quorvexvpn",
                    false},
        ListingCase{"LongerDeviceNameMatches", "default dev quorvexvpn0 scope link\n", "default",
                    "quorvexvpn", true},
        ListingCase{"DeviceNameWithoutTheWord", "default via quorvexvpn\n", "default", "quorvexvpn",
                    false},
        ListingCase{"DeviceWordNeedsItsBlanks", "default xdev quorvexvpn\n", "default",
                    "quorvexvpn", false},
        ListingCase{"DeviceNameOnlyEndsAsWanted", "default dev tun-quorvexvpn\n", "default",
                    "quorvexvpn", false},
        ListingCase{"LongerPrefixMatches", "0.0.0.0/10 dev tun-quorvexvpn\n", "0.0.0.0/1",
                    "tun-quorvexvpn", true},
        ListingCase{"HalfRoute", "128.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn\n", "128.0.0.0/1",
                    "tun-quorvexvpn", true}),
    test::CaseName());

TEST_P(AListing, HasTheRouteOrNot) {
  EXPECT_EQ(OutputContainsRoute(GetParam().listing, GetParam().prefix, GetParam().interface),
            GetParam().found);
}

constexpr char kIpv4[] = "/usr/sbin/ip <-4> <route> <show> <table> <all>";
constexpr char kIpv6[] = "/usr/sbin/ip <-6> <route> <show> <table> <all>";
constexpr char kTable2022[] = "/usr/sbin/ip <-4> <route> <show> <table> <2022> <default>";

constexpr char kElsewhere[] = "default via 192.168.0.1 dev eth0\n";
constexpr char kFails[] = "fails";

// What the system's own tool would have to be coaxed into printing.
struct RouteCase {
  const char* name;
  EngineKind engine;
  // What `ip -4` and `ip -6` print; kFails: a listing and then exit status 1.
  std::string ipv4;
  std::string ipv6;
  bool full;
  std::vector<std::string> queries;
};

class AFullRoute : public test::PrivateWorld, public ::testing::WithParamInterface<RouteCase> {
 protected:
  // A failing query prints what would suffice, so that only its status tells.
  static std::string Answer(const std::string& listing) {
    if (listing == kFails) {
      return "for d in quorvex-sbox0 quorvex-xray0 quorvexvpn tun-quorvexvpn; do "
             "echo default dev $d; done; exit 1";
    }
    return "printf '%s' '" + listing + "'; exit 0";
  }
  void SetUp() override {
    PrivateWorld::SetUp();
    Record(kIpBinary, "case $1 in -4) " + Answer(GetParam().ipv4) + ";; -6) " +
                          Answer(GetParam().ipv6) + ";; esac");
  }
};

TEST_P(AFullRoute, IsSeenAsTheEngineInstallsIt) {
  EXPECT_EQ(HasFullRoute(GetParam().engine), GetParam().full);
}

TEST_P(AFullRoute, IsAskedForWithNoMoreQueriesThanNeeded) {
  static_cast<void>(HasFullRoute(GetParam().engine));
  EXPECT_EQ(Calls(), GetParam().queries);
}

INSTANTIATE_TEST_SUITE_P(
    SingBox, AFullRoute,
    ::testing::Values(RouteCase{"There",
                                EngineKind::kSingBox,
                                "default via 172.19.0.2 dev quorvex-sbox0\n",
                                "",
                                true,
                                {kTable2022}},
                      RouteCase{"Elsewhere",
                                EngineKind::kSingBox,
                                kElsewhere,
                                "default dev quorvex-sbox0\n",
                                false,
                                {kTable2022}},
                      RouteCase{"EmptyTable", EngineKind::kSingBox, "", "", false, {kTable2022}},
                      RouteCase{"OnlyHalfRoutes",
                                EngineKind::kSingBox,
                                "0.0.0.0/1 dev quorvex-sbox0\n128.0.0.0/1 dev quorvex-sbox0\n",
                                "",
                                false,
                                {kTable2022}},
                      RouteCase{"Fails", EngineKind::kSingBox, kFails, "", false, {kTable2022}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Xray, AFullRoute,
    ::testing::Values(
        RouteCase{"Both",
                  EngineKind::kXray,
                  "default dev quorvex-xray0 metric 1\n",
                  "default dev quorvex-xray0 metric 1\n",
                  true,
                  {kIpv4, kIpv6}},
        RouteCase{"OnlyIpv4",
                  EngineKind::kXray,
                  "default dev quorvex-xray0\n",
                  kElsewhere,
                  false,
                  {kIpv4, kIpv6}},
        RouteCase{"OnlyIpv6",
                  EngineKind::kXray,
                  kElsewhere,
                  "default dev quorvex-xray0\n",
                  false,
                  {kIpv4, kIpv6}},
        RouteCase{"Neither", EngineKind::kXray, "", "", false, {kIpv4, kIpv6}},
        RouteCase{
            "Ipv4Fails", EngineKind::kXray, kFails, "default dev quorvex-xray0\n", false, {kIpv4}},
        RouteCase{"Ipv6Fails",
                  EngineKind::kXray,
                  "default dev quorvex-xray0\n",
                  kFails,
                  false,
                  {kIpv4, kIpv6}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    WireGuard, AFullRoute,
    ::testing::Values(
        RouteCase{"Ipv4",
                  EngineKind::kWireGuard,
                  "default dev quorvexvpn table 51820 scope link\n",
                  kFails,
                  true,
                  {kIpv4}},
        RouteCase{"OnlyIpv6",
                  EngineKind::kWireGuard,
                  kElsewhere,
                  "default dev quorvexvpn table 51820 metric 1024\n",
                  true,
                  {kIpv4, kIpv6}},
        RouteCase{"Neither", EngineKind::kWireGuard, kElsewhere, kElsewhere, false, {kIpv4, kIpv6}},
        RouteCase{"LongerInterfaceName",
                  EngineKind::kWireGuard,
                  "default dev quorvexvpn0\n",
                  "",
                  true,
                  {kIpv4}},
        RouteCase{"HalfRoutesDoNotCount",
                  EngineKind::kWireGuard,
                  "0.0.0.0/1 dev quorvexvpn\n128.0.0.0/1 dev quorvexvpn\n",
                  "",
                  false,
                  {kIpv4, kIpv6}},
        RouteCase{"Ipv4Fails",
                  EngineKind::kWireGuard,
                  kFails,
                  "default dev quorvexvpn\n",
                  false,
                  {kIpv4}},
        RouteCase{"Ipv6Fails", EngineKind::kWireGuard, kElsewhere, kFails, false, {kIpv4, kIpv6}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OpenVpn, AFullRoute,
    ::testing::Values(
        RouteCase{"Default",
                  EngineKind::kOpenVpn,
                  "default via 10.9.0.1 dev tun-quorvexvpn\n",
                  "",
                  true,
                  {kIpv4}},
        RouteCase{"BothHalves",
                  EngineKind::kOpenVpn,
                  "default via 192.168.0.1 dev eth0\n0.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn\n"
                  "128.0.0.0/1 via 10.9.0.1 dev tun-quorvexvpn\n",
                  "",
                  true,
                  {kIpv4}},
        RouteCase{"OnlyTheLowerHalf",
                  EngineKind::kOpenVpn,
                  "0.0.0.0/1 dev tun-quorvexvpn\n",
                  "default dev tun-quorvexvpn\n",
                  false,
                  {kIpv4}},
        RouteCase{"OnlyTheUpperHalf",
                  EngineKind::kOpenVpn,
                  "128.0.0.0/1 dev tun-quorvexvpn\n",
                  "",
                  false,
                  {kIpv4}},
        RouteCase{"HalvesThroughAnotherDevice",
                  EngineKind::kOpenVpn,
                  "0.0.0.0/1 dev tun-quorvexvpn\n128.0.0.0/1 dev eth0\n",
                  "",
                  false,
                  {kIpv4}},
        RouteCase{"Fails", EngineKind::kOpenVpn, kFails, "", false, {kIpv4}}),
    test::CaseName());

INSTANTIATE_TEST_SUITE_P(NoEngine, AFullRoute,
                         ::testing::Values(RouteCase{"Unsupported",
                                                     EngineKind::kUnsupported,
                                                     "default dev \ndefault dev quorvexvpn\n",
                                                     "",
                                                     false,
                                                     {}},
                                           RouteCase{"UnknownValue",
                                                     static_cast<EngineKind>(7),
                                                     "default dev quorvexvpn\n",
                                                     "",
                                                     false,
                                                     {}}),
                         test::CaseName());

class ARouteQuery : public test::PrivateWorld {};

TEST_F(ARouteQuery, ThatCannotBeMadeMeansNoFullRoute) {
  Uninstall(kIpBinary);
  EXPECT_FALSE(HasFullRoute(EngineKind::kWireGuard));
}

// The kernel and the real tool, without stand-ins.
TEST_F(ARouteQuery, SeesTheKernelsOwnRoutes) {
  test::Shell("ip tuntap add dev quorvexvpn mode tun && ip link set quorvexvpn up");
  EXPECT_FALSE(HasFullRoute(EngineKind::kWireGuard));
  test::Shell("ip -6 route add default dev quorvexvpn table 51820");
  EXPECT_TRUE(HasFullRoute(EngineKind::kWireGuard));
  test::Shell("ip link del quorvexvpn");
  EXPECT_FALSE(HasFullRoute(EngineKind::kWireGuard));
}

}  // namespace
}  // namespace quorvex::linux_service
