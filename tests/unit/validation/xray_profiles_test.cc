// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/unit/validation/profile_files.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLeast = 25;

TEST(AnOrdinaryXrayProfile, Passes) {
  for (const std::filesystem::path& file : test::ProfileFiles("xray", kLeast)) {
    EXPECT_EQ(test::Refusal("xray", test::TextOf(file)), "") << file.filename();
  }
}

// Positive control: the files are read, and a profile of each layout can fail.
TEST(AnOrdinaryXrayProfile, IsRefusedWithOneOptionTooMany) {
  for (const std::filesystem::path& file : test::ProfileFiles("xray", kLeast)) {
    std::string text = test::TextOf(file);
    text.insert(text.find('{') + 1, R"("Metrics": {"listen": "127.0.0.1:1"},)");
    EXPECT_EQ(test::Refusal("xray", text), "Xray API listeners are not permitted in VPN profiles.")
        << file.filename();
  }
}

}  // namespace
}  // namespace quorvex::linux_service
