// SPDX-License-Identifier: Apache-2.0
#include "runtime/child_process.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "runtime/glib_ptr.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::Eventually;

// Longer than any test may take: a wait that comes back earlier did not wait for its deadline.
constexpr milliseconds kForEver = std::chrono::hours(1);
constexpr milliseconds kSoon{300};
// "At once" on a busy machine.
constexpr milliseconds kSoonEnough{10000};

// A child of GLib's, killed and reaped at the end of the test.
class Child {
 public:
  explicit Child(const std::vector<const char*>& arguments) {
    std::vector<const char*> argv = arguments;
    argv.push_back(nullptr);
    GErrorSlot error;
    process.reset(g_subprocess_newv(argv.data(), G_SUBPROCESS_FLAGS_NONE, error.Out()));
    EXPECT_NE(process, nullptr) << error.MessageOr("");
    // A child that has already ended may have none.
    const char* identifier = g_subprocess_get_identifier(Get());
    pid = identifier != nullptr ? identifier : "";
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    g_subprocess_force_exit(Get());
    Reap();
  }

  [[nodiscard]] GSubprocess* Get() const { return process.get(); }
  void Signal(int number) { g_subprocess_send_signal(Get(), number); }
  void Reap() { g_subprocess_wait(Get(), nullptr, nullptr); }

  // The state's letter as /proc shows it after the name; '-' when there is no such process.
  [[nodiscard]] char State() const {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t nameEnd = line.rfind(')');
    return nameEnd == std::string::npos ? '-' : line.at(nameEnd + 2);
  }
  [[nodiscard]] bool Reaches(char state) const {
    return Eventually([this, state] { return State() == state; });
  }

 private:
  GObjectPtr<GSubprocess> process;
  std::string pid;
};

class AChild : public test::PrivateWorld {};

struct StateCase {
  const char* name;
  std::vector<const char*> argv;
  // Sent once the child has reached its first state; 0: none.
  int signal;
  char state;
  bool alive;
};

class AChildsState : public AChild, public ::testing::WithParamInterface<StateCase> {};

INSTANTIATE_TEST_SUITE_P(
    Letters, AChildsState,
    ::testing::Values(
        StateCase{"Sleeping", {"/bin/sleep", "1000"}, 0, 'S', true},
        StateCase{"Running", {"/bin/sh", "-c", "while :; do :; done"}, 0, 'R', true},
        StateCase{"DiskWait", {QUORVEX_CHILD_STATES, "disk-wait"}, 0, 'D', true},
        StateCase{"Stopped", {"/bin/sleep", "1000"}, SIGSTOP, 'T', true},
        StateCase{"ZombieThatNobodyReaped", {QUORVEX_CHILD_STATES, "zombie"}, 0, 'Z', false}),
    test::CaseName());

TEST_P(AChildsState, SaysWhetherItIsAlive) {
  Child child(GetParam().argv);
  if (GetParam().signal != 0) {
    child.Signal(GetParam().signal);
  }
  ASSERT_TRUE(child.Reaches(GetParam().state)) << child.State();
  // Not reaped: the answer comes from the letter.
  ASSERT_NE(g_subprocess_get_identifier(child.Get()), nullptr);
  EXPECT_EQ(ProcessIsAlive(child.Get()), GetParam().alive);
}

TEST_F(AChild, ThatHasBeenReapedIsNotAlive) {
  Child child({"/bin/true"});
  child.Reap();
  ASSERT_EQ(g_subprocess_get_identifier(child.Get()), nullptr);
  EXPECT_FALSE(ProcessIsAlive(child.Get()));
}

TEST_F(AChild, IsNotAliveWhenProcessesCannotBeLookedUp) {
  Child child({"/bin/sleep", "1000"});
  ASSERT_TRUE(ProcessIsAlive(child.Get()));
  ASSERT_EQ(mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0);
  EXPECT_FALSE(ProcessIsAlive(child.Get()));
  ASSERT_EQ(umount("/proc"), 0);
}

// A blank in the program's name ends the name early, and the next letter passes for the state. The
// engines' names have none.
TEST_F(AChild, WithABlankInItsNameIsJudgedByTheLetterAfterIt) {
  std::filesystem::copy_file("/bin/sleep", "/run/scratch/run Z");
  std::filesystem::copy_file("/bin/sleep", "/run/scratch/run S");
  Child misjudged({"/run/scratch/run Z", "1000"});
  Child judged({"/run/scratch/run S", "1000"});
  ASSERT_TRUE(misjudged.Reaches('S'));
  ASSERT_TRUE(judged.Reaches('S'));
  EXPECT_FALSE(ProcessIsAlive(misjudged.Get()));
  EXPECT_TRUE(ProcessIsAlive(judged.Get()));
}

class AWait : public AChild {
 protected:
  bool WaitFor(const Child& child, milliseconds timeout) {
    const auto began = steady_clock::now();
    const bool ended = WaitForProcess(child.Get(), timeout);
    elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - began);
    return ended;
  }
  milliseconds elapsed{0};
};

TEST_F(AWait, ForAReapedChildIsOverAtOnce) {
  Child child({"/bin/true"});
  child.Reap();
  EXPECT_TRUE(WaitFor(child, kForEver));
  EXPECT_LT(elapsed, kSoonEnough);
}

TEST_F(AWait, EndsWithTheChild) {
  Child child({"/bin/sh", "-c", "sleep 0.3; touch /run/scratch/ended"});
  EXPECT_TRUE(WaitFor(child, kForEver));
  EXPECT_TRUE(test::Exists("/run/scratch/ended"));
  EXPECT_LT(elapsed, kSoonEnough);
  EXPECT_EQ(child.State(), '-');
}

TEST_F(AWait, CountsAnyEndOfTheChild) {
  Child failed({"/bin/false"});
  EXPECT_TRUE(WaitFor(failed, kForEver));
  Child killed({"/bin/sleep", "1000"});
  killed.Signal(SIGKILL);
  EXPECT_TRUE(WaitFor(killed, kForEver));
}

TEST_F(AWait, GivesUpAtItsDeadlineAndLeavesTheChildAlone) {
  Child child({"/bin/sleep", "1000"});
  EXPECT_FALSE(WaitFor(child, kSoon));
  EXPECT_GE(elapsed, kSoon);
  EXPECT_LT(elapsed, kSoonEnough);
  EXPECT_TRUE(ProcessIsAlive(child.Get()));
}

// The end of the time may fall anywhere into the beginning of the wait, so that is tried often.
TEST_F(AWait, MayHaveNoTimeAtAll) {
  Child child({"/bin/sleep", "1000"});
  for (int round = 0; round < 300; ++round) {
    ASSERT_FALSE(WaitFor(child, milliseconds(0)));
    ASSERT_LT(elapsed, kSoonEnough);
  }
  EXPECT_TRUE(ProcessIsAlive(child.Get()));
}

TEST_F(AWait, ForAChildThatIgnoresTheSignalGivesUp) {
  Child child(
      {"/bin/sh", "-c", "trap '' TERM; touch /run/scratch/ready; while :; do sleep 1; done"});
  ASSERT_TRUE(Eventually([] { return test::Exists("/run/scratch/ready"); }));
  child.Signal(SIGTERM);
  EXPECT_FALSE(WaitFor(child, kSoon));
  EXPECT_TRUE(ProcessIsAlive(child.Get()));
}

TEST_F(AWait, CanBeRepeatedUntilTheChildEnds) {
  Child child({"/bin/sleep", "1000"});
  EXPECT_FALSE(WaitFor(child, milliseconds(20)));
  EXPECT_FALSE(WaitFor(child, milliseconds(20)));
  child.Signal(SIGTERM);
  EXPECT_TRUE(WaitFor(child, kForEver));
}

std::ptrdiff_t ThreadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// A thread that was joined may show for a moment; one that still waits for an hour stays.
TEST_F(AWait, LeavesNoThreadBehind) {
  Child running({"/bin/sleep", "1000"});
  Child ended({"/bin/true"});
  ended.Reap();
  const std::ptrdiff_t before = ThreadCount();
  EXPECT_FALSE(WaitFor(running, milliseconds(20)));
  EXPECT_TRUE(WaitFor(ended, kForEver));
  EXPECT_TRUE(Eventually([before] { return ThreadCount() == before; }));
}

TEST_F(AWait, MayRunBesideAnother) {
  Child running({"/bin/sleep", "1000"});
  Child ending({"/bin/sleep", "0.1"});
  std::thread other([&] { EXPECT_FALSE(WaitForProcess(running.Get(), kSoon)); });
  EXPECT_TRUE(WaitForProcess(ending.Get(), kForEver));
  other.join();
}

}  // namespace
}  // namespace quorvex::linux_service
