// SPDX-License-Identifier: Apache-2.0
//
// Asks polkit whether a caller may manage the VPN. Nothing is cached: every privileged call asks
// again. Runs on the main thread and blocks it for the whole exchange, including the user's answer
// to an authentication dialog.
#pragma once

#include <gio/gio.h>

namespace quorvex::service_front {

// Whether polkit authorises the owner of the unique bus name for org.quorvexvpn.manage. A failure
// to ask is a no, with the reason in `error` (may be null); a challenge is a no as well.
[[nodiscard]] bool IsAuthorized(const char* busName, bool allowInteraction, GError** error);

// Whether the caller of a method may proceed. On false the reply NotAuthorized has been sent and
// the invocation is gone.
[[nodiscard]] bool AuthorizeInvocation(GDBusMethodInvocation* invocation, bool allowInteraction);

}  // namespace quorvex::service_front
