// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "runtime/constants.h"
#include "service/service.h"
#include "tests/unit/runtime/private_world.h"
#include "tests/unit/service/journal.h"
#include "tests/unit/service/peer_bus.h"

namespace quorvex::test {

// A service record that is not on any bus and has no engine up. Without nft, stopping it at the end
// runs nothing.
class ServiceTest : public PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    Uninstall(linux_service::kNftBinary);
    service = std::make_unique<service_front::Service>();
  }
  void TearDown() override {
    service->connection.reset();
    service->loop.reset();
    g_mutex_clear(&service->snapshotMutex);
    service.reset();
    PrivateWorld::TearDown();
  }
  std::unique_ptr<service_front::Service> service;
  Journal journal;
};

// The same on a connection whose other end the test holds.
class ServiceOnBusTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    service->connection.reset(static_cast<GDBusConnection*>(g_object_ref(bus.Service())));
  }
  PeerBus bus;
};

// GLib's own text of a value, with types.
[[nodiscard]] inline std::string Print(const GVariantPtr& value) {
  return GCharPtr(g_variant_print(value.get(), TRUE)).get();
}

}  // namespace quorvex::test
