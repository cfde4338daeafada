// SPDX-License-Identifier: Apache-2.0
#include "runtime/command_runner.h"

#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

constexpr std::array kCapturePrefix = {kTimeoutBinary, "--signal=TERM", "--kill-after=1s", "3s"};

// What `timeout` exits with when it had to stop the command.
constexpr int kTimeoutExitStatus = 124;

constexpr char kNoTimeoutCommand[] = "The required coreutils timeout command is unavailable.";
constexpr char kTimedOut[] = "The VPN engine operation timed out.";
constexpr char kFailed[] = "The VPN engine command failed.";

constexpr auto kSilence = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_SILENCE |
                                                        G_SUBPROCESS_FLAGS_STDERR_SILENCE);
constexpr auto kCapture = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                        G_SUBPROCESS_FLAGS_STDERR_SILENCE);

bool TimeoutCommandIsExecutable() {
  return g_file_test(kTimeoutBinary, G_FILE_TEST_IS_EXECUTABLE) != FALSE;
}

ArgumentVector WithPrefix(const std::array<const char*, 4>& prefix, const ArgumentVector& argv) {
  ArgumentVector full(prefix.begin(), prefix.end());
  full.insert(full.end(), argv.begin(), argv.end());
  full.push_back(nullptr);
  return full;
}

// The last step of every status command: null means that the child could not be started, with
// the reason in `failure`.
bool WaitForSuccess(GSubprocess* process, GErrorSlot* failure, std::string* error) {
  if (process != nullptr) {
    if (g_subprocess_wait_check(process, nullptr, failure->Out()) != FALSE) {
      return true;
    }
    if (g_subprocess_get_if_exited(process) != FALSE &&
        g_subprocess_get_exit_status(process) == kTimeoutExitStatus) {
      *error = kTimedOut;
      return false;
    }
  }
  *error = failure->MessageOr(kFailed);
  return false;
}

}  // namespace

bool RunCommand(const ArgumentVector& argv, std::string* error) {
  return RunCommandWithEnvironment(argv, {}, error);
}

bool RunCommandWithEnvironment(const ArgumentVector& argv, const EnvironmentList& environment,
                               std::string* error) {
  if (!TimeoutCommandIsExecutable()) {
    *error = kNoTimeoutCommand;
    return false;
  }
  const GObjectPtr<GSubprocessLauncher> launcher(g_subprocess_launcher_new(kSilence));
  for (const auto& [name, value] : environment) {
    g_subprocess_launcher_setenv(launcher.get(), name.c_str(), value.c_str(), TRUE);
  }
  GErrorSlot failure;
  const GObjectPtr<GSubprocess> process(g_subprocess_launcher_spawnv(
      launcher.get(), WithPrefix(kStatusPrefix, argv).data(), failure.Out()));
  return WaitForSuccess(process.get(), &failure, error);
}

bool CaptureCommand(const ArgumentVector& argv, std::string* output) {
  if (!TimeoutCommandIsExecutable()) {
    return false;
  }
  GErrorSlot failure;
  const GObjectPtr<GSubprocess> process(
      g_subprocess_newv(WithPrefix(kCapturePrefix, argv).data(), kCapture, failure.Out()));
  if (process == nullptr) {
    return false;
  }
  char* collected = nullptr;
  const bool communicated =
      g_subprocess_communicate_utf8(process.get(), nullptr, nullptr, &collected, nullptr,
                                    failure.Out()) != FALSE;
  const GCharPtr text(collected);
  if (!communicated || g_subprocess_get_successful(process.get()) == FALSE) {
    return false;
  }
  *output = text != nullptr ? text.get() : "";
  return true;
}

std::string TrimWhitespace(const std::string& text) {
  const auto isSpace = [](unsigned char byte) { return std::isspace(byte) != 0; };
  const auto first = std::ranges::find_if_not(text, isSpace);
  const auto last = std::find_if_not(text.rbegin(), std::make_reverse_iterator(first), isSpace);
  return {first, last.base()};
}

}  // namespace quorvex::linux_service
