// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

#include "runtime/glib_ptr.h"

namespace quorvex::service_front {

struct Service;

// The network path as "a{sv}": whether the machine has a network, and fixed answers for what this
// service does not measure. Any thread.
[[nodiscard]] GVariantPtr NetworkPathVariant(Service* service);

// Follows the default network monitor, if GLib has one; otherwise the path stays "unsatisfied".
// Main thread.
void WatchNetwork(Service* service);

// Ends what WatchNetwork began. Main thread.
void UnwatchNetwork(Service* service);

}  // namespace quorvex::service_front
