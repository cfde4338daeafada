# SPDX-License-Identifier: Apache-2.0
"""A desktop user whose session can show polkit's dialog: one process with an authentication agent, calling the service.

Runs inside a world under the user's own id, with the methods to call, one after the other, as arguments. Prints what
happens, a JSON list a line: ["asked", action, message, cookie, administrators] when polkit wants the dialog, then
["answered", text] or ["refused", error name]. The dialog stays open until SIGUSR1 closes it; SIGUSR2 ends it after
somebody else has told polkit who authenticated.
"""

import json
import os
import signal
import sys

from gi.repository import Gio, GLib

AGENT_PATH = "/agent"
AGENT = """<node><interface name="org.freedesktop.PolicyKit1.AuthenticationAgent">
  <method name="BeginAuthentication">
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{ss}" direction="in"/><arg type="s" direction="in"/><arg type="a(sa{sv})" direction="in"/>
  </method>
  <method name="CancelAuthentication"><arg type="s" direction="in"/></method>
</interface></node>"""
AUTHORITY = ("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
             "org.freedesktop.PolicyKit1.Authority")
SERVICE = ("org.quorvexvpn.Service1", "/org/quorvexvpn/Service1", "org.quorvexvpn.Service1")


def tell(*words) -> None:
    print(json.dumps(words), flush=True)


class Desktop:
    def __init__(self):
        self.bus = Gio.bus_get_sync(Gio.BusType.SYSTEM)
        self.loop = GLib.MainLoop()
        self.dialog: Gio.DBusMethodInvocation | None = None

    def register(self) -> None:
        interface = Gio.DBusNodeInfo.new_for_xml(AGENT).interfaces[0]
        self.bus.register_object(AGENT_PATH, interface, self.on_call, None, None)
        # The 22nd field after the name in brackets; polkit tells processes of one number apart by it.
        with open("/proc/self/stat") as stat:
            started = int(stat.read().rpartition(")")[2].split()[19])
        subject = ("unix-process", {"pid": GLib.Variant("u", os.getpid()), "start-time": GLib.Variant("t", started),
                                    "uid": GLib.Variant("i", os.getuid())})
        self.bus.call_sync(*AUTHORITY, "RegisterAuthenticationAgent",
                           GLib.Variant("((sa{sv})ss)", (subject, "C", AGENT_PATH)), None,
                           Gio.DBusCallFlags.NONE, -1, None)

    def on_call(self, bus, sender, path, interface, method, parameters, invocation) -> None:
        if method != "BeginAuthentication":
            invocation.return_value(None)
            return
        action, message, _, _, cookie, identities = parameters.unpack()
        self.dialog = invocation
        tell("asked", action, message, cookie, [[kind, details.get("uid")] for kind, details in identities])

    def confirm(self) -> bool:
        self.dialog.return_value(None)
        return True

    def cancel(self) -> bool:
        self.dialog.return_dbus_error("org.freedesktop.PolicyKit1.Error.Cancelled", "The user closed the dialog.")
        return True

    def ask(self, methods: list[str]) -> None:
        self.methods = methods
        if not methods:
            self.loop.quit()
            return
        self.bus.call(*SERVICE, methods[0], None, None, Gio.DBusCallFlags.NONE, 60_000, None, self.on_answer)

    def on_answer(self, bus, result) -> None:
        try:
            tell("answered", bus.call_finish(result).print_(True))
        except GLib.Error as error:
            tell("refused", Gio.DBusError.get_remote_error(error))
        self.ask(self.methods[1:])


desktop = Desktop()
desktop.register()
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1, desktop.cancel)
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR2, desktop.confirm)
desktop.ask(sys.argv[1:])
desktop.loop.run()
