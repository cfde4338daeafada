// SPDX-License-Identifier: Apache-2.0
//
// Plain calls on the system bus that wait for their answer.
#pragma once

#include <gio/gio.h>

#include "control/failure.h"
#include "runtime/glib_ptr.h"

namespace quorvex::control {

using BusPtr = GObjectPtr<GDBusConnection>;

// Who is called: one object's interface.
struct Peer {
  const char* name;
  const char* path;
  const char* interface;
};
extern const Peer kServicePeer;
extern const Peer kBusPeer;
extern const Peer kPolkitPeer;
extern const Peer kSystemdPeer;

// For calls that nobody is asked about.
inline constexpr int kPatienceMs = 25000;
// polkit's dialog waits for a person.
inline constexpr int kDialogPatienceMs = 600000;

// Null, with `failure`, when there is no system bus.
[[nodiscard]] BusPtr OpenBus(Failure* failure);

// The reply of the given type, a tuple; null, with `failure`, otherwise. Lets polkit ask the user.
// `parameters` may be floating and may be null.
[[nodiscard]] GVariantPtr CallAndWait(GDBusConnection* bus, const Peer& peer, const char* method,
                                      GVariant* parameters, const char* replyType, int patienceMs,
                                      Failure* failure);

// The dictionary that the service answers a method without arguments with.
[[nodiscard]] GVariantPtr AskService(GDBusConnection* bus, const char* method, int patienceMs,
                                     Failure* failure);

// What a failed call means.
[[nodiscard]] Failure FailureOfError(GError* error);

}  // namespace quorvex::control
