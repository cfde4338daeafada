// SPDX-License-Identifier: Apache-2.0
#include "service/key_pair.h"

#include <gio/gio.h>

#include <cstring>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"
#include "runtime/secure_clear.h"

namespace quorvex::service_front {
namespace {

using linux_service::kTimeoutBinary;
using linux_service::kWireGuardTool;
using linux_service::SecureClear;

constexpr char kUnavailable[] =
    "wireguard-tools is unavailable. Repair the QuorvexVPN installation.";
constexpr char kGenerationFailed[] = "WireGuard key generation failed.";
constexpr char kDerivationFailed[] = "Public-key derivation failed.";

constexpr auto kCollect = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                        G_SUBPROCESS_FLAGS_STDERR_SILENCE);
constexpr auto kFeedAndCollect =
    static_cast<GSubprocessFlags>(kCollect | G_SUBPROCESS_FLAGS_STDIN_PIPE);

// Not the runtime's command runner: keys pass through pipes here, and every copy of the private one
// is wiped. `input` may be null.
bool RunWg(const char* verb, GSubprocessFlags flags, const char* input, GCharPtr* output,
           GErrorSlot* failure) {
  const GObjectPtr<GSubprocess> process(g_subprocess_new(flags, failure->Out(), kTimeoutBinary,
                                                         "--signal=TERM", "--kill-after=1s", "5s",
                                                         kWireGuardTool, verb, nullptr));
  if (process == nullptr) {
    return false;
  }
  char* collected = nullptr;
  const bool communicated = g_subprocess_communicate_utf8(process.get(), input, nullptr, &collected,
                                                          nullptr, failure->Out()) != FALSE;
  output->reset(collected);
  return communicated && g_subprocess_get_successful(process.get()) != FALSE;
}

// Leading and trailing white space goes, in place. A tool that wrote nothing gives "".
const char* Trimmed(const GCharPtr& text) {
  return text != nullptr ? g_strchomp(g_strchug(text.get())) : "";
}

void Wipe(const GCharPtr& text) {
  if (text != nullptr) {
    explicit_bzero(text.get(), std::strlen(text.get()));
  }
}

bool ToolsAreInstalled() {
  return g_file_test(kWireGuardTool, G_FILE_TEST_IS_EXECUTABLE) != FALSE &&
         g_file_test(kTimeoutBinary, G_FILE_TEST_IS_EXECUTABLE) != FALSE;
}

bool DerivePublicKey(const std::string& privateKey, GCharPtr* output, GErrorSlot* failure) {
  std::string input;
  input.reserve(privateKey.size() + 1);
  input.append(privateKey).push_back('\n');
  const bool derived = RunWg("pubkey", kFeedAndCollect, input.c_str(), output, failure);
  SecureClear(&input);
  return derived;
}

}  // namespace

bool GenerateWireGuardKeyPair(std::string* privateKey, std::string* publicKey, std::string* error) {
  if (!ToolsAreInstalled()) {
    *error = kUnavailable;
    return false;
  }
  GErrorSlot failure;
  GCharPtr generated;
  if (!RunWg("genkey", kCollect, nullptr, &generated, &failure)) {
    *error = failure.MessageOr(kGenerationFailed);
    return false;
  }
  privateKey->assign(Trimmed(generated));
  GCharPtr derived;
  const bool success = DerivePublicKey(*privateKey, &derived, &failure);
  Wipe(generated);
  if (!success) {
    SecureClear(privateKey);
    *error = failure.MessageOr(kDerivationFailed);
    return false;
  }
  publicKey->assign(Trimmed(derived));
  return !privateKey->empty() && !publicKey->empty();
}

}  // namespace quorvex::service_front
