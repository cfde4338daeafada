// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "control/connect_result.h"
#include "control/doctor_findings.h"
#include "control/output.h"
#include "control/status.h"
#include "control/watch_events.h"
#include "tests/unit/runtime/case_name.h"

namespace quorvex::control {
namespace {

using linux_service::EngineKind;

constexpr std::int64_t kBegun = 1700000000000;
constexpr std::int64_t kNow = kBegun + 125000;

Status Connected() {
  Status status;
  status.snapshot = {"connected", "home", "", kBegun};
  status.network = {true, kNow};
  status.engine = EngineKind::kWireGuard;
  status.route = {true, true};
  return status;
}

TEST(AStatus, IsOneJsonObjectWithAllMembers) {
  EXPECT_EQ(StatusJson(Connected(), kNow),
            R"({"stage":"connected","profile":"home","lastError":null,)"
            R"("connectedSince":"2023-11-14T22:13:20Z","connectedSeconds":125,)"
            R"("engine":"WireGuard","interface":"quorvexvpn",)"
            R"("fullRoute":{"ipv4":true,"ipv6":true},"killSwitch":"unknown",)"
            R"("networkReachable":true})");
}

TEST(AStatus, WithoutATunnelHasNullMembers) {
  Status status;
  status.snapshot.stage = "disconnected";
  status.killSwitch = KillSwitch::kOff;
  EXPECT_EQ(StatusJson(status, kNow),
            R"({"stage":"disconnected","profile":null,"lastError":null,"connectedSince":null,)"
            R"("connectedSeconds":null,"engine":null,"interface":null,)"
            R"("fullRoute":{"ipv4":false,"ipv6":false},"killSwitch":"off",)"
            R"("networkReachable":false})");
}

TEST(AStatus, LeavesOutForPeopleWhatIsNot) {
  Status status;
  status.snapshot.stage = "disconnected";
  EXPECT_EQ(StatusText(status, kNow),
            "Stage         disconnected\n"
            "Kill switch   unknown, the kernel tells root alone\n"
            "Network       not reachable\n");
}

TEST(AStatus, ShowsAFailureWithItsSentence) {
  Status status;
  status.snapshot = {"error", "home", "It failed.", 0};
  const std::string text = StatusText(status, kNow);
  EXPECT_NE(text.find("Profile       home\nError         It failed.\n"), std::string::npos) << text;
}

struct RouteCase {
  const char* name;
  FullRoute route;
  const char* text;
};

class ARoute : public ::testing::TestWithParam<RouteCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, ARoute,
    ::testing::Values(RouteCase{"Both", {true, true}, "all IPv4 and IPv6 through the tunnel"},
                      RouteCase{"Ipv4", {true, false}, "all IPv4 through the tunnel"},
                      RouteCase{"Ipv6", {false, true}, "all IPv6 through the tunnel"},
                      RouteCase{"None", {false, false}, "none through the tunnel"}),
    test::CaseName());

TEST_P(ARoute, IsShownByFamilies) {
  Status status = Connected();
  status.route = GetParam().route;
  EXPECT_NE(StatusText(status, kNow).find(std::string("Routes        ") + GetParam().text + "\n"),
            std::string::npos);
}

TEST(AStatus, KeepsATerminalFromASnapshotSControlCharacters) {
  Status status = Connected();
  status.snapshot.profile = "a\x1b[2Jb";
  EXPECT_NE(StatusText(status, kNow).find("a?[2Jb"), std::string::npos);
}

struct DurationCase {
  const char* name;
  std::int64_t seconds;
  const char* text;
};

class ADuration : public ::testing::TestWithParam<DurationCase> {};

INSTANTIATE_TEST_SUITE_P(All, ADuration,
                         ::testing::Values(DurationCase{"OfAClockSetBack", -5, "0 s"},
                                           DurationCase{"Zero", 0, "0 s"},
                                           DurationCase{"LastSecond", 59, "59 s"},
                                           DurationCase{"FirstMinute", 60, "1 min 0 s"},
                                           DurationCase{"LastMinute", 3599, "59 min 59 s"},
                                           DurationCase{"FirstHour", 3600, "1 h 0 min"},
                                           DurationCase{"LastHour", 86399, "23 h 59 min"},
                                           DurationCase{"FirstDay", 86400, "1 d 0 h"},
                                           DurationCase{"Days", 200000, "2 d 7 h"}),
                         test::CaseName());

TEST_P(ADuration, HasTwoUnitsAtMost) {
  EXPECT_EQ(DurationText(GetParam().seconds), GetParam().text);
}

TEST(AFailure, IsTwoLinesForPeopleAndOneObjectForScripts) {
  const Failure failure = {4, "Denied.", "Ask."};
  EXPECT_EQ(FailureText(failure), "quorvexvpnctl: Denied.\n  Ask.\n");
  EXPECT_EQ(FailureJson(failure), R"({"error":"Denied.","hint":"Ask.","exitCode":4})");
  EXPECT_EQ(FailureText({1, "No.", ""}), "quorvexvpnctl: No.\n");
  EXPECT_EQ(FailureJson({1, "\"No\"\n", ""}), R"({"error":"\"No\"\n","hint":null,"exitCode":1})");
}

TEST(AnEvent, OfEachKindHasItsLine) {
  EXPECT_EQ(WatchJson(StageEvent({"error", "home", "No.", 0}, 5)),
            R"({"time":5,"event":"stage","stage":"error","profile":"home","lastError":"No."})");
  EXPECT_EQ(WatchJson(LogEvent({"info", "Hello.", 6})),
            R"({"time":6,"event":"log","level":"info","message":"Hello."})");
  EXPECT_EQ(WatchJson(NetworkEvent({true, 7})), R"({"time":7,"event":"network","reachable":true})");
  EXPECT_EQ(WatchJson(ServiceEvent(false, 8)), R"({"time":8,"event":"service","running":false})");
}

TEST(AnEvent, ForPeopleGoesUnderItsKindOrLevel) {
  EXPECT_EQ(WatchText(StageEvent({"error", "home", "No.", 0}, 5)).substr(8),
            "  stage    error (home): No.");
  EXPECT_EQ(WatchText(LogEvent({"warning", "Hm.", 6})).substr(8), "  warning  Hm.");
  EXPECT_EQ(WatchText(NetworkEvent({false, 7})).substr(8), "  network  unreachable");
  EXPECT_EQ(WatchText(ServiceEvent(true, 8)).substr(8), "  service  running");
}

TEST(AConnection, ThatIsUpSaysSo) {
  ConnectResult result;
  result.exitCode = kExitOk;
  result.killSwitch = ConnectFollower::KillSwitch::kActive;
  result.milliseconds = 1280;
  EXPECT_EQ(ConnectText(result, "home", "vless"),
            "connected in 1.2 s: home, Sing-box through quorvex-sbox0\n");
  EXPECT_EQ(ConnectJson(result, "home", "vless"),
            R"({"connected":true,"profile":"home","protocol":"vless","engine":"Sing-box",)"
            R"("interface":"quorvex-sbox0","killSwitch":"on","milliseconds":1280,"error":null,)"
            R"("hint":null,"exitCode":0})");
}

TEST(AConnection, WithoutItsKillSwitchIsNotPraised) {
  ConnectResult result;
  result.exitCode = kExitNoKillSwitch;
  result.killSwitch = ConnectFollower::KillSwitch::kNotApplied;
  EXPECT_NE(ConnectText(result, "home", "wg").find("NOT active"), std::string::npos);
  EXPECT_NE(ConnectJson(result, "home", "wg").find(R"("killSwitch":"failed")"), std::string::npos);
}

TEST(TheDoctor, IsContentUnlessSomethingIsMissingOrLeftOver) {
  const auto with = [](FindingState state) {
    return IsHealthy({{FindingState::kOk, "a", "b", ""}, {state, "c", "d", "e"}});
  };
  EXPECT_TRUE(with(FindingState::kOk));
  EXPECT_TRUE(with(FindingState::kNote));
  EXPECT_TRUE(with(FindingState::kUnknown));
  EXPECT_FALSE(with(FindingState::kMissing));
  EXPECT_FALSE(with(FindingState::kLeftover));
}

TEST(TheDoctor, PutsTheAdviceUnderTheFinding) {
  const Findings findings = {{FindingState::kOk, "bus", "fine", ""},
                             {FindingState::kMissing, "WireGuard", "no wg", "Install it."}};
  EXPECT_EQ(FindingsText(findings),
            "ok        bus       fine\n"
            "missing   WireGuard no wg\n"
            "                    Install it.\n");
  EXPECT_EQ(FindingsJson(findings),
            R"({"healthy":false,"findings":[{"state":"ok","topic":"bus","text":"fine",)"
            R"("advice":null},{"state":"missing","topic":"WireGuard","text":"no wg",)"
            R"("advice":"Install it."}]})");
}

}  // namespace
}  // namespace quorvex::control
