// SPDX-License-Identifier: Apache-2.0
//
// Whatever GLib or json-glib complain about fails the test that runs: a configuration, however
// odd, must never reach their precondition checks.
#include <glib.h>
#include <gtest/gtest.h>

namespace quorvex::test {
namespace {

void Fail(const char* domain, GLogLevelFlags /*level*/, const char* message, gpointer /*data*/) {
  ADD_FAILURE() << (domain != nullptr ? domain : "") << ": " << message;
}

class GLibComplaints : public ::testing::Environment {
 public:
  void SetUp() override { g_log_set_default_handler(Fail, nullptr); }
  void TearDown() override { g_log_set_default_handler(g_log_default_handler, nullptr); }
};

// GoogleTest owns it.
[[maybe_unused]] const auto* const kRegistered =
    ::testing::AddGlobalTestEnvironment(new GLibComplaints);

}  // namespace
}  // namespace quorvex::test
