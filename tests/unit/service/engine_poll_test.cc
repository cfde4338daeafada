// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "service/bus_lifecycle.h"
#include "service/workers.h"
#include "tests/unit/service/service_fixture.h"

namespace quorvex::service_front {
namespace {

class TheEnginePoll : public test::ServiceTest {
 protected:
  // Polls while another thread, as a worker would, holds the engine lock.
  gboolean PollBesideAHolder() {
    std::promise<void> held;
    std::promise<void> released;
    std::thread holder([this, &held, &released] {
      const std::scoped_lock lock(service->engineMutex);
      held.set_value();
      released.get_future().wait();
    });
    held.get_future().wait();
    const gboolean kept = PollActiveEngine(service.get());
    released.set_value();
    holder.join();
    return kept;
  }
};

TEST_F(TheEnginePoll, KeepsItsTimerAndSaysNothingWhileNoEngineDied) {
  EXPECT_EQ(PollActiveEngine(service.get()), G_SOURCE_CONTINUE);
  EXPECT_EQ(ReadSnapshot(service.get()).stage, "disconnected");
  EXPECT_TRUE(service->runtimeClean.load());
  EXPECT_TRUE(journal.Entries().empty());
}

TEST_F(TheEnginePoll, NeverWaitsForTheEngineLock) {
  EXPECT_EQ(PollBesideAHolder(), G_SOURCE_CONTINUE);
}

TEST_F(TheEnginePoll, DoesNotEvenTryTheLockWhileAWorkerIsCounted) {
  service->activeWorkers.store(1);
  EXPECT_EQ(PollBesideAHolder(), G_SOURCE_CONTINUE);
}

TEST_F(TheEnginePoll, GivesTheLockBack) {
  static_cast<void>(PollActiveEngine(service.get()));
  EXPECT_TRUE(std::async(std::launch::async, [this] {
                const std::unique_lock lock(service->engineMutex, std::try_to_lock);
                return lock.owns_lock();
              }).get());
}

using AnAcquiredBus = test::ServiceOnBusTest;

TEST_F(AnAcquiredBus, ReplacesAnEarlierConnection) {
  const test::PeerBus second;
  BusAcquired(second.Service(), "", service.get());
  EXPECT_EQ(service->connection.get(), second.Service());
  EXPECT_NE(service->registrationId, 0U);
  g_dbus_connection_unregister_object(second.Service(), service->registrationId);
}

TEST_F(AnAcquiredBus, MustTakeTheObject) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto registerTwice = [this] {
    g_log_set_default_handler(g_log_default_handler, nullptr);
    BusAcquired(bus.Service(), "", service.get());
    BusAcquired(bus.Service(), "", service.get());
  };
  EXPECT_DEATH(registerTwice(), "Unable to register D-Bus object: ");
}

}  // namespace
}  // namespace quorvex::service_front
