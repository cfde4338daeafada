#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A stand-in for the service, for tests of the worlds themselves only.

It owns the name and answers as little as a world can be tried with. `Say` writes to the journal,
`Run` runs a command line, `Crash` aborts, and SIGTERM ends it with status 0.
"""

import os
import signal
import subprocess
import sys

from gi.repository import Gio, GLib

NAME = "org.quorvexvpn.Service1"
PATH = "/org/quorvexvpn/Service1"
XML = f"""<node><interface name="{NAME}">
  <method name="GetConnectionSnapshot"><arg type="a{{sv}}" direction="out"/></method>
  <method name="Connect"><arg type="a{{sv}}" direction="in"/></method>
  <method name="Fail"/>
  <method name="Crash"/>
  <method name="Say"><arg type="a{{sv}}" direction="in"/></method>
  <method name="Run"><arg type="a{{sv}}" direction="in"/></method>
  <signal name="SnapshotChanged"><arg type="a{{sv}}"/></signal>
  <signal name="LogEmitted"><arg type="a{{sv}}"/></signal>
</interface></node>"""


def emit(bus, name, **fields):
    bus.emit_signal(None, PATH, NAME, name, GLib.Variant("(a{sv})", (fields,)))


def on_call(bus, sender, path, interface, method, parameters, invocation):
    if method == "Fail":
        invocation.return_dbus_error(f"{NAME}.Failed", "As asked.")
    elif method == "Crash":
        os.abort()
    elif method == "GetConnectionSnapshot":
        answer = {"stage": GLib.Variant("s", "disconnected"), "time": GLib.Variant("x", 7)}
        invocation.return_value(GLib.Variant("(a{sv})", (answer,)))
    else:
        on_command(bus, method, parameters)
        invocation.return_value(None)


def on_command(bus, method, parameters):
    (argument,) = parameters.unpack()
    if method == "Say":
        print(argument["text"], file=sys.stderr, flush=True)
    elif method == "Run":
        subprocess.run(argument["argv"], input=argument.get("input", ""), text=True, check=False)
    else:
        print(parameters.print_(True), file=sys.stderr, flush=True)
        emit(bus, "SnapshotChanged", stage=GLib.Variant("s", "connected"))


def on_bus(bus, name):
    interface = Gio.DBusNodeInfo.new_for_xml(XML).interfaces[0]
    bus.register_object(PATH, interface, on_call, None, None)
    emit(bus, "LogEmitted", level=GLib.Variant("s", "info"),
         message=GLib.Variant("s", "started"), timestamp=GLib.Variant("x", 1))


loop = GLib.MainLoop()
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
Gio.bus_own_name(Gio.BusType.SYSTEM, NAME, Gio.BusNameOwnerFlags.NONE, on_bus, None,
                 lambda *_: loop.quit())
loop.run()
