// SPDX-License-Identifier: Apache-2.0
#include "service/authorization.h"

#include <polkit/polkit.h>

#include "runtime/constants.h"
#include "runtime/glib_ptr.h"
#include "service/bus_errors.h"
#include "service/watchdog.h"

namespace quorvex::service_front {

bool IsAuthorized(const char* busName, bool allowInteraction, GError** error) {
  // A person may think about the question for as long as they like.
  const WatchdogPatience patience(WatchdogPatience::kNoLimit);
  const GObjectPtr<PolkitAuthority> authority(polkit_authority_get_sync(nullptr, error));
  if (authority == nullptr) {
    return false;
  }
  // The unique bus name, never a process id: a number can be reused while polkit looks.
  const GObjectPtr<PolkitSubject> subject(polkit_system_bus_name_new(busName));
  const auto flags = allowInteraction ? POLKIT_CHECK_AUTHORIZATION_FLAGS_ALLOW_USER_INTERACTION
                                      : POLKIT_CHECK_AUTHORIZATION_FLAGS_NONE;
  const GObjectPtr<PolkitAuthorizationResult> result(polkit_authority_check_authorization_sync(
      authority.get(), subject.get(), linux_service::kPolkitAction, nullptr, flags, nullptr,
      error));
  return result != nullptr && polkit_authorization_result_get_is_authorized(result.get()) != FALSE;
}

bool AuthorizeInvocation(GDBusMethodInvocation* invocation, bool allowInteraction) {
  const char* sender = g_dbus_method_invocation_get_sender(invocation);
  GErrorSlot error;
  if (sender != nullptr && IsAuthorized(sender, allowInteraction, error.Out())) {
    return true;
  }
  if (error.IsSet()) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "Polkit authorization failed: %s", error.MessageOr(""));
  }
  ReturnError(invocation, kNotAuthorized);
  return false;
}

}  // namespace quorvex::service_front
