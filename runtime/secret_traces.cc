// SPDX-License-Identifier: Apache-2.0
#include "runtime/secret_traces.h"

#include <array>
#include <cstring>

namespace quorvex::linux_service {
namespace {

// Deeper than any configuration within the limits of validation takes json-glib.
constexpr std::size_t kStackBelow = 128UL * 1024;

// The C library copies by way of other registers for each class of sizes.
constexpr std::array<std::size_t, 9> kSizeClasses = {16, 32, 64, 128, 256, 512, 1024, 4096, 16384};

constexpr std::array<char, kSizeClasses.back()> kZeros{};

// Not inlined, so that its array lies below the caller's frame, where what was called before lay.
[[gnu::noinline]] void WipeBelow() noexcept {
  std::array<char, kStackBelow> below;
  for (const volatile std::size_t size : kSizeClasses) {
    // Through volatile: a copy of a known size would be done by the compiler in its own way.
    std::memcpy(below.data(), kZeros.data(), size);
  }
  explicit_bzero(below.data(), below.size());
}

}  // namespace

void WipeSecretTraces() noexcept {
  WipeBelow();
}

}  // namespace quorvex::linux_service
