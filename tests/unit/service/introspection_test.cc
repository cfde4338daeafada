// SPDX-License-Identifier: Apache-2.0
#include "service/introspection.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/glib_ptr.h"
#include "service/method_dispatch.h"

namespace quorvex::service_front {
namespace {

void AppendArguments(GDBusArgInfo** arguments, const char* direction, std::string* line) {
  for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
    *line +=
        std::string(" ") + direction + " " + (*arguments)->name + ":" + (*arguments)->signature;
  }
}

class TheIntrospection : public ::testing::Test {
 protected:
  void SetUp() override {
    GErrorSlot error;
    node.reset(g_dbus_node_info_new_for_xml(kIntrospectionXml, error.Out()));
    ASSERT_NE(node, nullptr) << error.MessageOr("");
    ASSERT_NE(node->interfaces[0], nullptr);
  }
  [[nodiscard]] const GDBusInterfaceInfo* Interface() const { return node->interfaces[0]; }
  GDBusNodeInfoPtr node;
};

TEST_F(TheIntrospection, BeginsWithANewline) {
  EXPECT_EQ(kIntrospectionXml[0], '\n');
  EXPECT_EQ(std::string(kIntrospectionXml).find("<node>"), 1U);
}

TEST_F(TheIntrospection, HoldsOneInterfaceAndNothingElse) {
  EXPECT_EQ(node->path, nullptr);
  EXPECT_EQ(node->nodes[0], nullptr);
  EXPECT_EQ(node->interfaces[1], nullptr);
  EXPECT_STREQ(Interface()->name, "org.quorvexvpn.Service1");
}

TEST_F(TheIntrospection, DeclaresTheMethodsInOrder) {
  std::vector<std::string> methods;
  for (GDBusMethodInfo** method = Interface()->methods; *method != nullptr; ++method) {
    std::string line = (*method)->name;
    AppendArguments((*method)->in_args, "in", &line);
    AppendArguments((*method)->out_args, "out", &line);
    methods.push_back(line);
  }
  EXPECT_EQ(
      methods,
      (std::vector<std::string>{
          "Initialize", "GetRuntimeInfo out runtime:a{sv}",
          "GetCapabilities out capabilities:a{sv}", "GetConnectionSnapshot out snapshot:a{sv}",
          "GetNetworkPath out path:a{sv}", "RequestVpnPermission out granted:b",
          "GenerateWireGuardKeyPair out keyPair:a{sv}", "Connect in profile:a{sv}", "Disconnect"}));
}

TEST_F(TheIntrospection, DeclaresTheSignalsInOrder) {
  std::vector<std::string> signals;
  for (GDBusSignalInfo** signal = Interface()->signals; *signal != nullptr; ++signal) {
    std::string line = (*signal)->name;
    AppendArguments((*signal)->args, "with", &line);
    signals.push_back(line);
  }
  EXPECT_EQ(signals, (std::vector<std::string>{"SnapshotChanged with snapshot:a{sv}",
                                               "LogEmitted with entry:a{sv}",
                                               "NetworkPathChanged with path:a{sv}"}));
}

// The parsed form keeps methods and signals apart; the text has one order.
TEST_F(TheIntrospection, DeclaresTheSignalsAfterTheMethods) {
  const std::string text = kIntrospectionXml;
  EXPECT_GT(text.find("<signal"), text.rfind("<method"));
}

TEST_F(TheIntrospection, DeclaresNoProperties) {
  EXPECT_TRUE(Interface()->properties == nullptr || Interface()->properties[0] == nullptr);
}

TEST(TheInterfaceTable, HandlesMethodsOnly) {
  EXPECT_EQ(kInterfaceVTable.method_call, &HandleMethodCall);
  EXPECT_EQ(kInterfaceVTable.get_property, nullptr);
  EXPECT_EQ(kInterfaceVTable.set_property, nullptr);
}

}  // namespace
}  // namespace quorvex::service_front
