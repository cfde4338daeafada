// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

namespace quorvex::service_front {

// Callbacks of the name's ownership, on the main thread; `userData` is the Service.

// Registers the object. A failure here is a defect of the build and aborts the process.
void BusAcquired(GDBusConnection* connection, const char* name, gpointer userData);

// The name was lost or could not be acquired: the service stops and exits with status 1.
void NameLost(GDBusConnection* connection, const char* name, gpointer userData);

}  // namespace quorvex::service_front
