// SPDX-License-Identifier: Apache-2.0
//
// Which processes of the machine count as an earlier run's, and how they end. The engines are
// copies of sleep and of the shell under the engines' names: what the real ones do is not shown
// here.
#include "runtime/orphans.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "runtime/constants.h"
#include "runtime/process_table.h"
#include "tests/unit/runtime/kernel_world.h"

namespace quorvex::linux_service {
namespace {

using std::chrono::milliseconds;
using test::Shell;

// Starts a script that outlives the shell which starts it, so that it is nobody's child of ours.
pid_t StartOrphan(const std::string& command) {
  Shell("cd /; (setsid " + command + " </dev/null >/dev/null 2>&1 & echo $! > /run/pid)");
  return static_cast<pid_t>(std::stol(test::ReadFile("/run/pid")));
}

bool IsAlive(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/stat";
  return test::Exists(path) && test::ReadFile(path).find(") Z") == std::string::npos;
}

// In another process than this one, which is the first of its world and so the parent of all
// orphans.
template <typename Function>
void InAnotherProcess(Function function) {
  const pid_t child = fork();
  if (child == 0) {
    function();
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

class Orphans : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    Install(kSingBoxBinary);
    Install(kOpenVpnBinary);
    Shell(
        "rm -f /run/ready /run/done; cp /bin/bash /run/somebody-elses-sing-box; touch /run/loop;"
        "printf 'trap \"exit 0\" TERM; while :; do sleep 0.01; done' > /run/obey;"
        "printf 'trap \"\" TERM; touch /run/ready; while :; do sleep 0.01; done' > /run/ignore");
  }
  void TearDown() override {
    for (const pid_t pid : started) {
      kill(pid, SIGKILL);
    }
    PrivateWorld::TearDown();
  }
  // A shell in the place of the program: its arguments are a script and what the script ignores.
  void Install(const std::string& path) {
    Uninstall(path);
    Shell("mkdir -p $(dirname " + path + "); cp /bin/bash " + path);
  }
  pid_t Start(const std::string& command) {
    started.push_back(StartOrphan(command));
    const pid_t pid = started.back();
    // Not the shell any more that starts it, nor setsid.
    EXPECT_TRUE(test::Eventually([pid] {
      const std::string words = test::ReadFile("/proc/" + std::to_string(pid) + "/cmdline");
      return !words.empty() && words.find("setsid") == std::string::npos;
    }));
    return pid;
  }
  std::vector<pid_t> started;
};

TEST_F(Orphans, AreEnginesWithOurConfiguration) {
  const pid_t orphan = Start(std::string(kSingBoxBinary) + " /run/obey run -c " + kSingBoxConfig);
  InAnotherProcess(EndOrphans);
  EXPECT_FALSE(IsAlive(orphan));
}

TEST_F(Orphans, AreEnginesWhoseProgramAnUpgradeReplaced) {
  const pid_t orphan = Start(std::string(kOpenVpnBinary) + " /run/obey --config " + kOpenVpnConfig);
  Shell(std::string("rm ") + kOpenVpnBinary + "; cp /bin/sleep " + kOpenVpnBinary);
  InAnotherProcess(EndOrphans);
  EXPECT_FALSE(IsAlive(orphan));
}

TEST_F(Orphans, AreEndedByForceWhenTheyDoNotObey) {
  const pid_t orphan = Start(std::string(kSingBoxBinary) + " /run/ignore run -c " + kSingBoxConfig);
  ASSERT_TRUE(test::Eventually([] { return test::Exists("/run/ready"); }));
  const auto began = std::chrono::steady_clock::now();
  InAnotherProcess(EndOrphans);
  EXPECT_FALSE(IsAlive(orphan));
  EXPECT_GE(std::chrono::steady_clock::now() - began, milliseconds(8000));
}

TEST_F(Orphans, AreNotTheSameProgramWithAnotherConfiguration) {
  const pid_t other =
      Start(std::string(kSingBoxBinary) + " /run/obey run -c /etc/sing-box/config.json");
  const pid_t longer =
      Start(std::string(kSingBoxBinary) + " /run/obey run -c " + kSingBoxConfig + ".old");
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(other));
  EXPECT_TRUE(IsAlive(longer));
}

TEST_F(Orphans, AreNotAnotherProgramWithOurConfiguration) {
  const pid_t other =
      Start(std::string("/run/somebody-elses-sing-box /run/obey ") + kSingBoxConfig);
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(other));
}

TEST_F(Orphans, AreNotInAnotherNetwork) {
  const pid_t other =
      Start(std::string("unshare -n ") + kSingBoxBinary + " /run/obey run -c " + kSingBoxConfig);
  ASSERT_TRUE(test::Eventually([other] {
    return test::ReadFile("/proc/" + std::to_string(other) + "/cmdline")
        .starts_with("/usr/libexec");
  }));
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(other));
}

TEST_F(Orphans, AreNotOurOwnChildren) {
  InAnotherProcess([] {
    const pid_t child = fork();
    if (child == 0) {
      execl(kSingBoxBinary, kSingBoxBinary, "/run/obey", "run", "-c", kSingBoxConfig, nullptr);
      _exit(1);
    }
    const std::string commandLine = "/proc/" + std::to_string(child) + "/cmdline";
    const bool runs = test::Eventually(
        [&commandLine] { return test::ReadFile(commandLine).starts_with("/usr/libexec"); });
    EndOrphans();
    _exit(runs && IsAlive(child) ? 0 : 1);
  });
}

TEST_F(Orphans, AreToolsAtWorkForUs) {
  StandIn(kWireGuardQuick, "trap 'exit 0' TERM; while :; do sleep 0.01; done");
  const pid_t orphan = Start(std::string(kTimeoutBinary) + " --signal=TERM --kill-after=3s 12s " +
                             kWireGuardQuick + " up " + kWireGuardConfig);
  InAnotherProcess(EndOrphans);
  EXPECT_FALSE(IsAlive(orphan));
  EXPECT_TRUE(FindProcesses([](const RunningProcess& process) {
                return HasArgument(process, kWireGuardConfig);
              }).empty());
}

// As `ip` does, which wg-quick runs to remove the interface: the kernel finishes it all the same.
constexpr char kSlowHelper[] =
    "/bin/bash -c 'trap \"sleep 0.5; touch /run/done; exit\" TERM; touch /run/ready;"
    " while :; do sleep 0.01; done' /run/helper\n";

TEST_F(Orphans, AreProgramsThatSuchAToolRuns) {
  StandIn(kWireGuardQuick, kSlowHelper);
  Start(std::string(kTimeoutBinary) + " --signal=TERM --kill-after=3s 12s " + kWireGuardQuick +
        " down " + kWireGuardConfig);
  ASSERT_TRUE(test::Eventually([] { return test::Exists("/run/ready"); }));
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(test::Exists("/run/done"));
}

TEST_F(Orphans, AreProgramsThatAToolRunsWhoseTimeoutHasEnded) {
  StandIn(kWireGuardQuick, kSlowHelper);
  const pid_t timeout = Start(std::string(kTimeoutBinary) + " --signal=TERM --kill-after=3s 12s " +
                              kWireGuardQuick + " down " + kWireGuardConfig);
  ASSERT_TRUE(test::Eventually([] { return test::Exists("/run/ready"); }));
  kill(timeout, SIGKILL);
  ASSERT_TRUE(test::Eventually([timeout] {
    waitpid(timeout, nullptr, WNOHANG);
    return kill(timeout, 0) != 0;
  }));
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(test::Exists("/run/done"));
}

TEST_F(Orphans, AreNotTheGroupOfASomebodyWhoRunsTheToolByHand) {
  StandIn(kWireGuardQuick, "while :; do sleep 0.01; done");
  Shell(std::string("printf '") + kWireGuardQuick + " down " + kWireGuardConfig +
        " & while :; do sleep 0.01; done' > /run/by-hand");
  const pid_t other = Start("/bin/bash /run/by-hand");
  ASSERT_TRUE(test::Eventually([] {
    return !FindProcesses([](const RunningProcess& process) {
              return HasArgument(process, kWireGuardConfig);
            }).empty();
  }));
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(other));
}

TEST_F(Orphans, AreNotToolsOfSomebodyElse) {
  StandIn(kNftBinary, "trap 'exit 0' TERM; while :; do sleep 0.01; done");
  const pid_t other = Start(std::string(kTimeoutBinary) + " --signal=TERM --kill-after=3s 13s " +
                            kNftBinary + " -f /run/rules");
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(other));
}

TEST_F(Orphans, AreNftOfOurKillSwitch) {
  StandIn(kNftBinary, "trap 'exit 0' TERM; while :; do sleep 0.01; done");
  const pid_t orphan = Start(std::string(kTimeoutBinary) + " --signal=TERM --kill-after=1s 5s " +
                             kNftBinary + " -f /run/rules");
  InAnotherProcess(EndOrphans);
  EXPECT_FALSE(IsAlive(orphan));
}

TEST_F(Orphans, AreNotProcessesOfAnotherUser) {
  Shell("chmod 755 /run");
  const pid_t other = Start(std::string("setpriv --reuid 65534 ") + kSingBoxBinary +
                            " /run/obey run -c " + kSingBoxConfig);
  ASSERT_TRUE(test::Eventually([other] {
    return test::ReadFile("/proc/" + std::to_string(other) + "/cmdline")
        .starts_with("/usr/libexec");
  }));
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(other));
}

TEST_F(Orphans, AreNotAComparisonOfOurFileWithTheTool) {
  const pid_t editor =
      Start(std::string("/bin/bash /run/obey ") + kWireGuardQuick + " " + kWireGuardConfig);
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(editor));
}

TEST_F(Orphans, AreNotAnEditorOnOurFile) {
  const pid_t editor = Start(std::string("/bin/bash /run/obey ") + kWireGuardConfig);
  InAnotherProcess(EndOrphans);
  EXPECT_TRUE(IsAlive(editor));
}

class WireGuardServers : public Orphans {
 protected:
  void SetUp() override {
    Orphans::SetUp();
    Install("/usr/bin/wireguard-go");
  }
};

TEST_F(WireGuardServers, OfOurInterfaceAreEndedEvenFrozen) {
  // The shell takes the interface's name for that of a script beside it.
  Shell("mkdir -p /run/cwd; cp /run/obey /run/cwd/quorvexvpn");
  Shell(
      "cd /run/cwd; (setsid /usr/bin/wireguard-go quorvexvpn </dev/null >/dev/null 2>&1 & echo $! "
      "> "
      "/run/pid)");
  const auto server = static_cast<pid_t>(std::stol(test::ReadFile("/run/pid")));
  started.push_back(server);
  ASSERT_TRUE(test::Eventually([server] {
    return test::ReadFile("/proc/" + std::to_string(server) + "/cmdline")
        .starts_with("/usr/bin/wireguard-go");
  }));
  kill(server, SIGSTOP);
  InAnotherProcess(EndWireGuardServers);
  EXPECT_FALSE(IsAlive(server));
}

TEST_F(WireGuardServers, OfAnotherInterfaceLive) {
  const pid_t other = Start("/usr/bin/wireguard-go /run/obey");
  InAnotherProcess(EndWireGuardServers);
  EXPECT_TRUE(IsAlive(other));
}

}  // namespace
}  // namespace quorvex::linux_service
