// SPDX-License-Identifier: Apache-2.0
#include "control/failure.h"

#include <algorithm>
#include <array>

#include "control/exit_codes.h"

namespace quorvex::control {
namespace {

constexpr const char* kAskDoctor = "Run \"quorvexvpnctl doctor\" to see what is missing.";
constexpr const char* kAskPolkit =
    "polkit decides about org.quorvexvpn.manage: answer its dialog, start pkttyagent for a session "
    "without one, or have a rule added (quorvexvpnctl(1), AUTHORIZATION).";
constexpr const char* kTryLater = "Wait for it to end, or run \"quorvexvpnctl disconnect\".";

struct Meaning {
  std::string_view name;
  int exitCode;
  const char* hint;
};

constexpr std::array kMeanings = {
    Meaning{"org.quorvexvpn.Error.ShuttingDown", kExitUnreachable, ""},
    Meaning{"org.quorvexvpn.Error.NotAuthorized", kExitNotAuthorized, kAskPolkit},
    Meaning{"org.quorvexvpn.Error.WireGuardUnavailable", kExitFailure, kAskDoctor},
    Meaning{"org.quorvexvpn.Error.InvalidProfile", kExitProfileRefused, ""},
    Meaning{"org.quorvexvpn.Error.RuntimeUnavailable", kExitConnectionFailed, kAskDoctor},
    Meaning{"org.quorvexvpn.Error.Busy", kExitBusy, kTryLater},
    // The bus's own policy.
    Meaning{"org.freedesktop.DBus.Error.AccessDenied", kExitNotAuthorized, kAskDoctor},
    Meaning{"org.freedesktop.DBus.Error.ServiceUnknown", kExitUnreachable, kAskDoctor},
    Meaning{"org.freedesktop.DBus.Error.NameHasNoOwner", kExitUnreachable, kAskDoctor},
    Meaning{"org.freedesktop.DBus.Error.NoReply", kExitUnreachable, kAskDoctor},
    Meaning{"org.freedesktop.DBus.Error.Disconnected", kExitUnreachable, kAskDoctor},
};

// Every way in which the bus fails to start the service.
constexpr std::string_view kActivationErrors = "org.freedesktop.DBus.Error.Spawn.";

}  // namespace

Failure FailureOfBusError(std::string_view errorName, const std::string& message) {
  const std::string& text = message.empty() ? "The service gave no reason." : message;
  if (errorName.starts_with(kActivationErrors)) {
    return {kExitUnreachable, text, kAskDoctor};
  }
  const auto* found = std::ranges::find(kMeanings, errorName, &Meaning::name);
  if (found == kMeanings.end()) {
    return {errorName.empty() ? kExitUnreachable : kExitFailure, text, kAskDoctor};
  }
  return {found->exitCode, text, found->hint};
}

}  // namespace quorvex::control
