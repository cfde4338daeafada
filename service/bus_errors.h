// SPDX-License-Identifier: Apache-2.0
//
// The service's error vocabulary on the bus.
#pragma once

#include <gio/gio.h>

#include <string>

namespace quorvex::service_front {

struct BusError {
  const char* name;
  // The fixed message; null where the message comes from the failing step.
  const char* message;
};

inline constexpr BusError kShuttingDown = {"org.quorvexvpn.Error.ShuttingDown",
                                           "The QuorvexVPN service is shutting down."};
inline constexpr BusError kNotAuthorized = {"org.quorvexvpn.Error.NotAuthorized",
                                            "Authorization to manage the VPN was denied."};
inline constexpr BusError kWireGuardUnavailable = {"org.quorvexvpn.Error.WireGuardUnavailable",
                                                   nullptr};
inline constexpr BusError kInvalidProfile = {"org.quorvexvpn.Error.InvalidProfile", nullptr};
inline constexpr BusError kRuntimeUnavailable = {"org.quorvexvpn.Error.RuntimeUnavailable",
                                                 nullptr};
inline constexpr BusError kBusy = {"org.quorvexvpn.Error.Busy",
                                   "Another VPN engine operation is already in progress."};
inline constexpr BusError kUnknownMethod = {"org.quorvexvpn.Error.UnknownMethod",
                                            "The requested method is not implemented."};

// Both take the invocation over.
inline void ReturnError(GDBusMethodInvocation* invocation, const BusError& error) {
  g_dbus_method_invocation_return_dbus_error(invocation, error.name, error.message);
}
inline void ReturnError(GDBusMethodInvocation* invocation, const BusError& error,
                        const std::string& message) {
  g_dbus_method_invocation_return_dbus_error(invocation, error.name, message.c_str());
}

}  // namespace quorvex::service_front
