// SPDX-License-Identifier: Apache-2.0
#include "control/bus.h"

#include "control/exit_codes.h"
#include "runtime/constants.h"

namespace quorvex::control {

const Peer kServicePeer = {linux_service::kBusName, linux_service::kObjectPath,
                           linux_service::kInterfaceName};
const Peer kBusPeer = {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
const Peer kPolkitPeer = {"org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
                          "org.freedesktop.PolicyKit1.Authority"};
const Peer kSystemdPeer = {"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                           "org.freedesktop.systemd1.Manager"};

Failure FailureOfError(GError* error) {
  const GCharPtr remote(g_dbus_error_get_remote_error(error));
  g_dbus_error_strip_remote_error(error);
  return FailureOfBusError(remote != nullptr ? remote.get() : "", error->message);
}

BusPtr OpenBus(Failure* failure) {
  GError* error = nullptr;
  BusPtr bus(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error));
  if (bus == nullptr) {
    *failure = {kExitUnreachable, std::string("There is no system bus: ") + error->message, ""};
    g_clear_error(&error);
    return nullptr;
  }
  // Its end is for each command to report.
  g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  return bus;
}

GVariantPtr CallAndWait(GDBusConnection* bus, const Peer& peer, const char* method,
                        GVariant* parameters, const char* replyType, int patienceMs,
                        Failure* failure) {
  GError* error = nullptr;
  GVariantPtr reply(g_dbus_connection_call_sync(
      bus, peer.name, peer.path, peer.interface, method, parameters, G_VARIANT_TYPE(replyType),
      G_DBUS_CALL_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION, patienceMs, nullptr, &error));
  if (reply == nullptr) {
    *failure = FailureOfError(error);
    g_clear_error(&error);
  }
  return reply;
}

GVariantPtr AskService(GDBusConnection* bus, const char* method, int patienceMs, Failure* failure) {
  const GVariantPtr reply =
      CallAndWait(bus, kServicePeer, method, nullptr, "(a{sv})", patienceMs, failure);
  return reply != nullptr ? GVariantPtr(g_variant_get_child_value(reply.get(), 0)) : nullptr;
}

}  // namespace quorvex::control
