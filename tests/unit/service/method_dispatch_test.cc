// SPDX-License-Identifier: Apache-2.0
#include "service/method_dispatch.h"

#include <gtest/gtest.h>

#include "service/dictionaries.h"
#include "service/introspection.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/service/service_fixture.h"

namespace quorvex::service_front {
namespace {

using test::Message;
using test::Print;

const Message kEmptyReply = {"", "()"};
const Message kRefusedWhileShuttingDown = {"org.quorvexvpn.Error.ShuttingDown",
                                           "The QuorvexVPN service is shutting down."};
const Message kDenied = {"org.quorvexvpn.Error.NotAuthorized",
                         "Authorization to manage the VPN was denied."};
const Message kNotImplemented = {"org.quorvexvpn.Error.UnknownMethod",
                                 "The requested method is not implemented."};

struct MethodCase {
  const char* name;
  // In GLib's text format; null: none.
  const char* parameters;
};

constexpr MethodCase kOpenMethods[] = {
    {"Initialize", nullptr},      {"GetRuntimeInfo", nullptr},
    {"GetCapabilities", nullptr}, {"GetConnectionSnapshot", nullptr},
    {"GetNetworkPath", nullptr},  {"RequestVpnPermission", nullptr}};
constexpr MethodCase kGuardedMethods[] = {
    {"GenerateWireGuardKeyPair", nullptr},
    {"Connect", "({'id': <'p'>, 'protocol': <'wireguard'>, 'rawConfig': <'secret'>},)"},
    {"Disconnect", nullptr}};
// Declared on the test's bus, but not known to the service.
constexpr MethodCase kUndispatched[] = {{"Fence", nullptr}, {"connect", nullptr}};

// The service on a real connection, under an interface that declares more than the service handles:
// GDBus itself refuses methods that are not declared.
class ABusClient : public test::ServiceOnBusTest {
 protected:
  void SetUp() override {
    ServiceOnBusTest::SetUp();
    std::string xml = kIntrospectionXml;
    xml.insert(xml.find("</interface>"), "<method name='Fence'/><method name='connect'/>");
    const GDBusNodeInfoPtr node(g_dbus_node_info_new_for_xml(xml.c_str(), nullptr));
    ASSERT_NE(node, nullptr);
    registration = g_dbus_connection_register_object(bus.Service(), linux_service::kObjectPath,
                                                     node->interfaces[0], &kInterfaceVTable,
                                                     service.get(), nullptr, nullptr);
    ASSERT_NE(registration, 0U);
  }
  void TearDown() override {
    g_dbus_connection_unregister_object(bus.Service(), registration);
    ServiceOnBusTest::TearDown();
  }

  Message Call(const MethodCase& method, const char* sender = nullptr) {
    GVariant* parameters = nullptr;
    if (method.parameters != nullptr) {
      parameters = g_variant_parse(nullptr, method.parameters, nullptr, nullptr, nullptr);
    }
    return bus.Call(method.name, parameters, sender);
  }
  void ExpectNothingHappened() {
    EXPECT_EQ(service->generation.load(), 0U);
    EXPECT_EQ(service->activeWorkers.load(), 0);
    EXPECT_FALSE(service->disconnectPending.load());
    EXPECT_EQ(ReadSnapshot(service.get()).stage, "disconnected");
    EXPECT_EQ(bus.Received().size(), 1U) << "Only the reply was to arrive.";
  }

  guint registration = 0;
};

class AnyMethod : public ABusClient, public ::testing::WithParamInterface<MethodCase> {};

INSTANTIATE_TEST_SUITE_P(Open, AnyMethod, ::testing::ValuesIn(kOpenMethods), test::CaseName());
INSTANTIATE_TEST_SUITE_P(Guarded, AnyMethod, ::testing::ValuesIn(kGuardedMethods),
                         test::CaseName());
INSTANTIATE_TEST_SUITE_P(Unknown, AnyMethod, ::testing::ValuesIn(kUndispatched), test::CaseName());

TEST_P(AnyMethod, IsRefusedDuringTheShutdown) {
  service->shuttingDown = true;
  EXPECT_EQ(Call(GetParam()), kRefusedWhileShuttingDown);
  EXPECT_EQ(Call(GetParam(), ":1.7"), kRefusedWhileShuttingDown);
  EXPECT_TRUE(journal.Entries().empty());
}

class AnUnknownMethod : public ABusClient, public ::testing::WithParamInterface<MethodCase> {};

INSTANTIATE_TEST_SUITE_P(Names, AnUnknownMethod, ::testing::ValuesIn(kUndispatched),
                         test::CaseName());

TEST_P(AnUnknownMethod, IsAnsweredSo) {
  EXPECT_EQ(Call(GetParam()), kNotImplemented);
}

class AGuardedMethod : public ABusClient, public ::testing::WithParamInterface<MethodCase> {};

INSTANTIATE_TEST_SUITE_P(All, AGuardedMethod, ::testing::ValuesIn(kGuardedMethods),
                         test::CaseName());

TEST_P(AGuardedMethod, IsDeniedToACallerWithoutNameAndWithoutAWord) {
  EXPECT_EQ(Call(GetParam()), kDenied);
  EXPECT_TRUE(journal.Entries().empty());
  ExpectNothingHappened();
}

// There is no system bus in this world, and so no polkit.
TEST_P(AGuardedMethod, IsDeniedWithAWarningWhenPolkitCannotBeAsked) {
  EXPECT_EQ(Call(GetParam(), ":1.7"), kDenied);
  const auto entries = journal.Entries();
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].first, G_LOG_LEVEL_WARNING);
  EXPECT_TRUE(entries[0].second.starts_with("Polkit authorization failed: ")) << entries[0].second;
  EXPECT_GT(entries[0].second.size(), std::string("Polkit authorization failed: ").size());
  ExpectNothingHappened();
}

TEST_F(ABusClient, WithoutNameIsNotPermittedAndNobodyIsAsked) {
  EXPECT_EQ(bus.Call("RequestVpnPermission"), (Message{"", "(false,)"}));
  EXPECT_TRUE(journal.Entries().empty());
}

TEST_F(ABusClient, IsNotPermittedWhenPolkitCannotBeAsked) {
  EXPECT_EQ(bus.Call("RequestVpnPermission", nullptr, ":1.7"), (Message{"", "(false,)"}));
  const auto entries = journal.Entries();
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].first, G_LOG_LEVEL_WARNING);
  EXPECT_TRUE(entries[0].second.starts_with("Polkit permission request failed: "))
      << entries[0].second;
}

TEST_F(ABusClient, GetsSnapshotAndPathAsSignalsBeforeTheReplyOfInitialize) {
  SetSnapshot(service.get(), "error", "p1", "It broke.", 0);
  EXPECT_EQ(bus.Call("Initialize"), kEmptyReply);
  const std::vector<Message> messages = bus.Received();
  ASSERT_EQ(messages.size(), 4U);
  const Message snapshot = {"SnapshotChanged",
                            "({'stage': <'error'>, 'activeProfileId': <'p1'>, 'lastError': <'It "
                            "broke.'>},)"};
  EXPECT_EQ(messages[0], snapshot);
  EXPECT_EQ(messages[1], snapshot);
  EXPECT_EQ(messages[2].name, "NetworkPathChanged");
  EXPECT_EQ(messages[3], kEmptyReply);
}

TEST_F(ABusClient, ReadsTheRuntimeInfo) {
  EXPECT_EQ(bus.Call("GetRuntimeInfo").text, "(" + Print(RuntimeDictionary(*service)) + ",)");
}

TEST_F(ABusClient, ReadsTheCapabilities) {
  EXPECT_EQ(bus.Call("GetCapabilities").text, "(" + Print(CapabilityDictionary()) + ",)");
}

TEST_F(ABusClient, ReadsTheSnapshot) {
  EXPECT_EQ(bus.Call("GetConnectionSnapshot").text, "({'stage': <'disconnected'>},)");
}

TEST_F(ABusClient, ReadsTheNetworkPath) {
  const std::string text = bus.Call("GetNetworkPath").text;
  EXPECT_TRUE(text.starts_with(
      "({'status': <'unsatisfied'>, 'isReachable': <false>, 'interfaceType': <'unknown'>, "
      "'isExpensive': <false>, 'isConstrained': <false>, 'timestampEpochMillis': <int64 "))
      << text;
}

TEST_F(ABusClient, ReadsWithoutAnyAuthorisation) {
  for (const char* method :
       {"GetRuntimeInfo", "GetCapabilities", "GetConnectionSnapshot", "GetNetworkPath"}) {
    EXPECT_EQ(bus.Call(method, nullptr, ":1.7").name, "") << method;
  }
  EXPECT_TRUE(journal.Entries().empty()) << "Polkit was asked.";
}

}  // namespace
}  // namespace quorvex::service_front
