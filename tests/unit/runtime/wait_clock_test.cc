// SPDX-License-Identifier: Apache-2.0
//
// Waiting for a child while the wall clock is set. A program of its own, because it answers for the
// clock: setting the real one would move it for the whole machine.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>

#include "runtime/child_process.h"
#include "runtime/glib_ptr.h"
#include "tests/unit/runtime/case_name.h"

namespace {

// By how much each look at the wall clock finds it moved.
std::atomic<std::time_t> secondsPerLook{0};
std::atomic<std::time_t> secondsMoved{0};

}  // namespace

// Takes the place of the C library's for every library in the process.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (clock == CLOCK_REALTIME) {
    time->tv_sec += secondsMoved += secondsPerLook;
  }
  return result;
}

namespace quorvex::linux_service {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct JumpCase {
  const char* name;
  std::time_t secondsPerLook;
};

class AWaitWhileTheClockIsSet : public ::testing::TestWithParam<JumpCase> {
 protected:
  void SetUp() override {
    GErrorSlot error;
    child.reset(
        g_subprocess_new(G_SUBPROCESS_FLAGS_NONE, error.Out(), "/bin/sleep", "1000", nullptr));
    ASSERT_NE(child, nullptr) << error.MessageOr("");
    secondsPerLook = GetParam().secondsPerLook;
  }
  void TearDown() override {
    secondsPerLook = 0;
    secondsMoved = 0;
    g_subprocess_force_exit(child.get());
    g_subprocess_wait(child.get(), nullptr, nullptr);
  }
  GObjectPtr<GSubprocess> child;
};

INSTANTIATE_TEST_SUITE_P(Jumps, AWaitWhileTheClockIsSet,
                         ::testing::Values(JumpCase{"Forward", 3600}, JumpCase{"Back", -3600}),
                         test::CaseName());

TEST_P(AWaitWhileTheClockIsSet, IsNeitherStretchedNorShortened) {
  constexpr milliseconds kTimeout{300};
  const auto began = steady_clock::now();
  EXPECT_FALSE(WaitForProcess(child.get(), kTimeout));
  const auto elapsed = steady_clock::now() - began;
  EXPECT_GE(elapsed, kTimeout);
  EXPECT_LT(elapsed, std::chrono::seconds(10));
}

TEST_P(AWaitWhileTheClockIsSet, WouldSeeTheClockJump) {
  const auto began = std::chrono::system_clock::now();
  const auto elapsed = std::chrono::system_clock::now() - began;
  EXPECT_GT(std::chrono::abs(elapsed), std::chrono::minutes(30));
}

}  // namespace
}  // namespace quorvex::linux_service
