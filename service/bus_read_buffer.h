// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gio/gio.h>

#include <cstddef>

namespace quorvex::service_front {

// Has the bus library overwrite its read buffer, which still holds the last message as it came off
// the wire, profile and all: the buffer is kept for the next message, so the service sends itself
// one that is longer than `messageSize` bytes (the size of the message's arguments) and holds
// nothing but zeros. Returns at once; a null connection is ignored. Best effort, any thread.
void OverwriteBusReadBuffer(GDBusConnection* connection, std::size_t messageSize);

}  // namespace quorvex::service_front
