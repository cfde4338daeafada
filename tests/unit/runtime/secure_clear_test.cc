// SPDX-License-Identifier: Apache-2.0
//
// What a string's memory holds when it is given back. A program of its own, because it replaces the
// global operators through which strings take and give memory.
#include "runtime/secure_clear.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace {

// The block to look at when it is released, and what it held then.
const void* watchedBlock = nullptr;
std::array<char, 8192> lastContents{};
int releases = 0;

void Release(void* block) noexcept {
  if (block != nullptr && block == watchedBlock) {
    ++releases;
    std::memcpy(lastContents.data(), block,
                std::min(malloc_usable_size(block), lastContents.size()));
  }
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* block = std::malloc(size)) {
    return block;
  }
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
  Release(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  Release(block);
}

namespace quorvex::linux_service {
namespace {

class ALongSecret : public ::testing::Test {
 protected:
  void SetUp() override {
    // NUL bytes in it end nothing.
    value[7] = '\0';
    watchedBlock = value.data();
    releases = 0;
    lastContents.fill('?');
  }
  void TearDown() override { watchedBlock = nullptr; }
  [[nodiscard]] static std::string_view Released() { return {lastContents.data(), kSize}; }

  static constexpr std::size_t kSize = 5000;
  std::string value = std::string(kSize, 's');
};

TEST_F(ALongSecret, IsGivenBackAsZeros) {
  SecureClear(&value);
  ASSERT_EQ(releases, 1);
  EXPECT_EQ(Released(), std::string(kSize, '\0'));
}

TEST_F(ALongSecret, WouldOtherwiseBeGivenBackAsItIs) {
  value.clear();
  value.shrink_to_fit();
  ASSERT_EQ(releases, 1);
  EXPECT_NE(Released().find("sssssss"), std::string_view::npos);
}

TEST_F(ALongSecret, LeavesAnEmptyStringWithoutSpareCapacity) {
  SecureClear(&value);
  EXPECT_EQ(value, "");
  EXPECT_EQ(value.c_str()[0], '\0');
  EXPECT_EQ(value.capacity(), std::string().capacity());
  value = "used again";
  EXPECT_EQ(value, "used again");
}

// A short text lies inside the string object, whose bytes may be looked at.
bool ObjectHolds(const std::string& value, std::string_view text) {
  std::array<char, sizeof value> bytes{};
  std::memcpy(bytes.data(), &value, sizeof value);
  return std::string_view(bytes.data(), bytes.size()).find(text) != std::string_view::npos;
}

TEST(AShortSecret, LeavesNoByteInTheString) {
  std::string value = "pass-phrase";
  ASSERT_TRUE(ObjectHolds(value, "pass-phrase"));
  SecureClear(&value);
  EXPECT_EQ(value, "");
  EXPECT_FALSE(ObjectHolds(value, "ass"));
  EXPECT_FALSE(ObjectHolds(value, "phrase"));
}

TEST(AnEmptySecret, StaysEmpty) {
  std::string value;
  SecureClear(&value);
  EXPECT_EQ(value, "");
}

TEST(NoSecret, IsIgnored) {
  SecureClear(nullptr);
}

static_assert(noexcept(SecureClear(nullptr)));

}  // namespace
}  // namespace quorvex::linux_service
