// SPDX-License-Identifier: Apache-2.0
#include "killswitch/nft_runner.h"

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

constexpr char kUnavailable[] = "nftables is unavailable. Repair the QuorvexVPN installation.";
constexpr char kCannotRun[] = "Unable to run the nftables leak-protection command.";
constexpr char kFailed[] = "The nftables leak-protection command failed.";

constexpr auto kFlags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE |
                                                      G_SUBPROCESS_FLAGS_STDOUT_SILENCE |
                                                      G_SUBPROCESS_FLAGS_STDERR_SILENCE);

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

std::vector<const char*> CommandLine(const std::vector<std::string>& arguments) {
  std::vector<const char*> argv(kNftPrefix.begin(), kNftPrefix.end());
  argv.push_back(kNftBinary);
  for (const std::string& argument : arguments) {
    argv.push_back(argument.c_str());
  }
  argv.push_back(nullptr);
  return argv;
}

}  // namespace

bool RunNft(const std::vector<std::string>& arguments, const std::string& input,
            std::string* error) {
  if (g_file_test(kNftBinary, G_FILE_TEST_IS_EXECUTABLE) == FALSE) {
    return Fail(kUnavailable, error);
  }
  const GObjectPtr<GSubprocess> process(
      g_subprocess_newv(CommandLine(arguments).data(), kFlags, nullptr));
  if (process == nullptr) {
    return Fail(kCannotRun, error);
  }
  const bool communicated =
      g_subprocess_communicate_utf8(process.get(), input.empty() ? nullptr : input.c_str(), nullptr,
                                    nullptr, nullptr, nullptr) != FALSE;
  return (communicated && g_subprocess_get_successful(process.get()) != FALSE) ||
         Fail(kFailed, error);
}

}  // namespace quorvex::linux_service
