// SPDX-License-Identifier: Apache-2.0
#include "service/network_path.h"

#include <gtest/gtest.h>

#include "service/snapshot.h"
#include "tests/unit/service/service_fixture.h"

namespace quorvex::service_front {
namespace {

using test::Message;
using test::Print;

class ANetworkPath : public test::ServiceOnBusTest {
 protected:
  void TearDown() override {
    UnwatchNetwork(service.get());
    ServiceOnBusTest::TearDown();
  }
  bool Becomes(bool available) {
    return test::Eventually([this, available] {
      g_main_context_iteration(nullptr, FALSE);
      return service->networkAvailable.load() == available;
    });
  }
  static std::string Expected(bool reachable) {
    return std::string("{'status': <'") + (reachable ? "satisfied" : "unsatisfied") +
           "'>, 'isReachable': <" + (reachable ? "true" : "false") +
           ">, 'interfaceType': <'unknown'>, 'isExpensive': <false>, 'isConstrained': <false>, "
           "'timestampEpochMillis': <int64 ";
  }
};

TEST_F(ANetworkPath, IsUnsatisfiedWithoutAMonitor) {
  const std::int64_t before = NowEpochMillis();
  const std::string text = Print(NetworkPathVariant(service.get()));
  ASSERT_TRUE(text.starts_with(Expected(false))) << text;
  const std::int64_t timestamp = std::stoll(text.substr(Expected(false).size()));
  EXPECT_GE(timestamp, before);
  EXPECT_LE(timestamp, NowEpochMillis());
  EXPECT_TRUE(text.ends_with(">}"));
}

TEST_F(ANetworkPath, IsSatisfiedWhenThereIsANetwork) {
  service->networkAvailable = true;
  const std::string text = Print(NetworkPathVariant(service.get()));
  EXPECT_TRUE(text.starts_with(Expected(true))) << text;
}

TEST_F(ANetworkPath, IsPublishedAtEveryNotificationEvenWithoutAChange) {
  WatchNetwork(service.get());
  ASSERT_NE(service->networkMonitor, nullptr);
  for (const bool available : {true, true, false}) {
    g_signal_emit_by_name(service->networkMonitor.get(), "network-changed",
                          available ? TRUE : FALSE);
    EXPECT_EQ(service->networkAvailable.load(), available);
  }
  const std::vector<Message> messages = bus.Received();
  ASSERT_EQ(messages.size(), 3U);
  for (const std::size_t index : {0U, 1U, 2U}) {
    EXPECT_EQ(messages[index].name, "NetworkPathChanged");
    EXPECT_TRUE(messages[index].text.starts_with("(" + Expected(index < 2)));
  }
}

TEST_F(ANetworkPath, FollowsTheKernelsRoutes) {
  WatchNetwork(service.get());
  EXPECT_FALSE(service->networkAvailable.load());
  test::Shell(
      "ip tuntap add dev wan mode tun && ip addr add 192.0.2.1/24 dev wan && "
      "ip link set wan up && ip route add default dev wan");
  EXPECT_TRUE(Becomes(true));
  EXPECT_TRUE(Print(NetworkPathVariant(service.get())).starts_with(Expected(true)));
  test::Shell("ip link del wan");
  EXPECT_TRUE(Becomes(false));
  EXPECT_FALSE(bus.Received().empty());
}

TEST_F(ANetworkPath, IsNoLongerFollowedAfterwards) {
  WatchNetwork(service.get());
  const GObjectPtr<GNetworkMonitor> monitor(
      static_cast<GNetworkMonitor*>(g_object_ref(service->networkMonitor.get())));
  UnwatchNetwork(service.get());
  g_signal_emit_by_name(monitor.get(), "network-changed", TRUE);
  EXPECT_FALSE(service->networkAvailable.load());
  EXPECT_TRUE(bus.Received().empty());
}

}  // namespace
}  // namespace quorvex::service_front
