// SPDX-License-Identifier: Apache-2.0
//
// How long workers may take before the watchdog hears nothing any more.
#include "service/watchdog.h"

#include <gtest/gtest.h>

#include <chrono>

namespace quorvex::service_front {
namespace {

using std::chrono::seconds;

constexpr seconds kLongest = WorkerPulse::kLongestWorker;

// Looks at one moment of a clock of the test's own.
class APulse : public testing::Test {
 protected:
  bool BeatsAt(seconds moment, std::int32_t active, std::uint64_t finished) {
    return pulse_.Beats(active, finished, std::chrono::steady_clock::time_point(moment));
  }

 private:
  WorkerPulse pulse_;
};

TEST_F(APulse, BeatsForEverWithoutWorkers) {
  EXPECT_TRUE(BeatsAt(seconds(1), 0, 0));
  EXPECT_TRUE(BeatsAt(seconds(1) + 10 * kLongest, 0, 0));
}

TEST_F(APulse, BeatsForAsLongAsAWorkerMayTake) {
  EXPECT_TRUE(BeatsAt(seconds(1), 1, 0));
  EXPECT_TRUE(BeatsAt(seconds(1) + kLongest, 1, 0));
}

TEST_F(APulse, StopsWhenAWorkerTakesLonger) {
  EXPECT_TRUE(BeatsAt(seconds(1), 1, 0));
  EXPECT_FALSE(BeatsAt(seconds(2) + kLongest, 1, 0));
}

TEST_F(APulse, StopsAlsoWhenOthersWaitForTheHangingOne) {
  EXPECT_TRUE(BeatsAt(seconds(1), 1, 7));
  EXPECT_TRUE(BeatsAt(seconds(2), 2, 7));
  EXPECT_FALSE(BeatsAt(seconds(2) + kLongest, 2, 7));
}

TEST_F(APulse, CountsAnewWithEachWorkerThatFinishes) {
  EXPECT_TRUE(BeatsAt(seconds(1), 1, 0));
  EXPECT_TRUE(BeatsAt(seconds(1) + kLongest, 1, 1));
  EXPECT_TRUE(BeatsAt(seconds(1) + 2 * kLongest, 1, 1));
  EXPECT_FALSE(BeatsAt(seconds(2) + 2 * kLongest, 1, 1));
}

TEST_F(APulse, CountsFromTheWorkerThatFollowsAQuietTime) {
  EXPECT_TRUE(BeatsAt(seconds(1), 0, 3));
  EXPECT_TRUE(BeatsAt(10 * kLongest, 1, 3));
  EXPECT_TRUE(BeatsAt(11 * kLongest, 1, 3));
}

TEST_F(APulse, BeatsAgainWhenTheSlowWorkerFinishesAfterAll) {
  EXPECT_TRUE(BeatsAt(seconds(1), 1, 0));
  EXPECT_FALSE(BeatsAt(2 * kLongest, 1, 0));
  EXPECT_TRUE(BeatsAt(3 * kLongest, 0, 1));
}

}  // namespace
}  // namespace quorvex::service_front
