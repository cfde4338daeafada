// SPDX-License-Identifier: Apache-2.0
#include "runtime/secret_traces.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

namespace quorvex::linux_service {
namespace {

constexpr std::size_t kStackSize = 1024UL * 1024;
constexpr std::string_view kSecret = "a secret that must not stay on the stack";

// How far below the thread's first frames the secret is left.
struct Depth {
  std::size_t bytes;
  bool wiped;
};

// Leaves the secret where a function that has returned had its variables.
[[gnu::noinline]] void LeaveSecret(std::size_t depth) {
  std::array<volatile char, 4096> frame;
  if (depth > frame.size()) {
    frame[0] = 0;
    LeaveSecret(depth - frame.size());
    // Not a tail call: the frame below must be below.
    frame[1] = 0;
    return;
  }
  for (std::size_t index = 0; index < kSecret.size(); ++index) {
    frame[index] = kSecret[index];
  }
}

void* Work(void* data) {
  const auto* depth = static_cast<const Depth*>(data);
  LeaveSecret(depth->bytes);
  if (depth->wiped) {
    WipeSecretTraces();
  }
  return nullptr;
}

// Sanitizers watch over the frames on the stack, which is read as plain memory here.
__attribute__((no_sanitize("address", "thread"))) bool Contains(const std::vector<char>& memory) {
  for (std::size_t start = 0; start + kSecret.size() <= memory.size(); ++start) {
    std::size_t same = 0;
    while (same < kSecret.size() && memory.data()[start + same] == kSecret[same]) {
      ++same;
    }
    if (same == kSecret.size()) {
      return true;
    }
  }
  return false;
}

// Whether the stack of a thread that has ended still holds the secret.
bool SecretStays(Depth depth) {
  std::vector<char> stack(kStackSize);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(pthread_attr_setstack(&attributes, stack.data(), stack.size()), 0);
  pthread_t thread = {};
  EXPECT_EQ(pthread_create(&thread, &attributes, Work, &depth), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
  return Contains(stack);
}

class ASecretOnTheStack : public ::testing::TestWithParam<std::size_t> {};

TEST_P(ASecretOnTheStack, StaysUnlessItIsWiped) {
  EXPECT_TRUE(SecretStays({.bytes = GetParam(), .wiped = false})) << "The search finds it.";
  EXPECT_FALSE(SecretStays({.bytes = GetParam(), .wiped = true}));
}

INSTANTIATE_TEST_SUITE_P(Depths, ASecretOnTheStack,
                         ::testing::Values(1024U, 16U * 1024, 64U * 1024, 100U * 1024));

}  // namespace
}  // namespace quorvex::linux_service
