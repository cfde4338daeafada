// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

namespace quorvex::service_front {

// Keeps the bus library from remembering what callers sent. GDBus reads every message into one
// buffer, which it keeps for the next message, so a profile would stand there, key and all, until
// something longer arrives. From now on each incoming call of Connect is followed by a message of
// zeros from the service to itself, as long as the call was; that holds for calls, too, that are
// refused before a handler sees them. Best effort: a message that cannot be built or sent leaves
// the buffer to the next long one. Main thread; the work is done on the bus library's own thread.
void KeepBusReadBufferClean(GDBusConnection* connection);

}  // namespace quorvex::service_front
