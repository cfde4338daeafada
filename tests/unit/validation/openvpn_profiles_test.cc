// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/unit/validation/profile_files.h"
#include "validation/openvpn_sentences.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLeast = 25;

TEST(AnOrdinaryOpenVpnProfile, Passes) {
  for (const std::filesystem::path& file : test::ProfileFiles("openvpn", kLeast)) {
    EXPECT_EQ(test::Refusal("openvpn", test::TextOf(file)), "") << file.filename();
  }
}

// Positive control: the files are read to their ends, and a profile of each layout can fail.
TEST(AnOrdinaryOpenVpnProfile, IsRefusedWithOneLineTooMany) {
  for (const std::filesystem::path& file : test::ProfileFiles("openvpn", kLeast)) {
    const std::string text = test::TextOf(file) + "\n\"log\" /root/x\n";
    EXPECT_EQ(test::Refusal("openvpn", text), kOpenVpnForbidden) << file.filename();
  }
}

}  // namespace
}  // namespace quorvex::linux_service
