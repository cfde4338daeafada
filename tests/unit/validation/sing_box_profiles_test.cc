// SPDX-License-Identifier: Apache-2.0
//
// Profiles as providers write them, one file each. A file's name begins with the protocol that
// selects it.
#include <gtest/gtest.h>

#include "tests/unit/validation/profile_files.h"

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kLeast = 25;

std::string ProtocolOf(const std::filesystem::path& file) {
  const std::string name = file.stem().string();
  return name.substr(0, name.find('-'));
}

TEST(AnOrdinarySingBoxProfile, Passes) {
  for (const std::filesystem::path& file : test::ProfileFiles("sing-box", kLeast)) {
    EXPECT_EQ(test::Refusal(ProtocolOf(file), test::TextOf(file)), "") << file.filename();
  }
}

// Positive control: the files are read, and a profile of each layout can fail.
TEST(AnOrdinarySingBoxProfile, IsRefusedWithOneOptionTooMany) {
  for (const std::filesystem::path& file : test::ProfileFiles("sing-box", kLeast)) {
    std::string text = test::TextOf(file);
    text.insert(text.find('{') + 1, R"("Log": {"output": "/tmp/x"},)");
    EXPECT_EQ(test::Refusal(ProtocolOf(file), text),
              "Sing-box profiles may not write logs to files.")
        << file.filename();
  }
}

}  // namespace
}  // namespace quorvex::linux_service
