// SPDX-License-Identifier: Apache-2.0
//
// The methods of the bus interface: one table of names, authorisation and handlers.
#pragma once

#include <gio/gio.h>

namespace quorvex::service_front {

// Dispatches every call; `userData` is the Service. Runs on the main thread, and blocks it while
// polkit asks the user and while a key pair is made.
void HandleMethodCall(GDBusConnection* connection, const char* sender, const char* objectPath,
                      const char* interfaceName, const char* methodName, GVariant* parameters,
                      GDBusMethodInvocation* invocation, gpointer userData);

// HandleMethodCall alone: the interface has no properties.
extern const GDBusInterfaceVTable kInterfaceVTable;

}  // namespace quorvex::service_front
