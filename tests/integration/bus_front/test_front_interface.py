# SPDX-License-Identifier: Apache-2.0
"""The bus interface itself: its introspection, and the exact shape of every constant or simple answer."""

import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from front_steps import EMPTY_REPLY, PROFILE, refusal, refused, reply
from quorvex_world import BUS_NAME, INTERFACE, OBJECT_PATH, Variant

pytestmark = pytest.mark.bus

INTERFACE_FILE = Path(__file__).resolve().parents[3] / "data/org.quorvexvpn.Service1.xml"

# Kind, name, and each argument as name, type, direction, in the order of the contract.
MEMBERS = [
    ("method", "Initialize", []),
    ("method", "GetRuntimeInfo", [("runtime", "a{sv}", "out")]),
    ("method", "GetCapabilities", [("capabilities", "a{sv}", "out")]),
    ("method", "GetConnectionSnapshot", [("snapshot", "a{sv}", "out")]),
    ("method", "GetNetworkPath", [("path", "a{sv}", "out")]),
    ("method", "RequestVpnPermission", [("granted", "b", "out")]),
    ("method", "GenerateWireGuardKeyPair", [("keyPair", "a{sv}", "out")]),
    ("method", "Connect", [("profile", "a{sv}", "in")]),
    ("method", "Disconnect", []),
    ("signal", "SnapshotChanged", [("snapshot", "a{sv}", None)]),
    ("signal", "LogEmitted", [("entry", "a{sv}", None)]),
    ("signal", "NetworkPathChanged", [("path", "a{sv}", None)]),
]
PROTOCOLS = ["singBox", "vless", "vmess", "trojan", "shadowsocks", "hysteria2", "tuic", "dravo", "xray-reality",
             "xray", "wireGuard", "amneziawg", "openVpn", "openvpn-tcp", "openvpn-udp"]
CAPABILITIES = (
    "({'supportsLifecycle': <true>, 'supportsTrafficStats': <false>, 'supportsSplitTunnel': <false>, "
    f"'supportedProtocols': <{PROTOCOLS}>}},)")

DBUS_ERROR = "org.freedesktop.DBus.Error."


def members_of(document: str) -> list[tuple]:
    """Everything that the interface element declares, in its order; anything unknown shows as it is."""
    node = ElementTree.fromstring(document)
    [interface] = [one for one in node.findall("interface") if one.get("name") == INTERFACE]
    return [(member.tag, member.get("name"), [argument_of(one) for one in member]) for member in interface]


def argument_of(element: ElementTree.Element) -> tuple:
    assert element.tag == "arg", element.tag
    return element.get("name"), element.get("type"), element.get("direction")


def test_the_introspection_is_the_contract(shared_front):
    assert members_of(shared_front.alice.introspect()) == MEMBERS


def test_the_installed_interface_file_is_the_contract(shared_front):
    assert members_of(INTERFACE_FILE.read_text()) == MEMBERS


def test_the_object_has_no_children_and_no_other_interface_of_ours(shared_front):
    node = ElementTree.fromstring(shared_front.alice.introspect())
    ours = [one.get("name") for one in node.findall("interface")
            if not one.get("name").startswith("org.freedesktop.DBus.")]
    assert ours == [INTERFACE]
    assert node.findall("node") == []


def test_there_are_no_properties(shared_front):
    everything = shared_front.alice.raw_call(
        BUS_NAME, OBJECT_PATH, "org.freedesktop.DBus.Properties", "GetAll", "(s)", INTERFACE)
    assert everything == {}


def test_the_capabilities_are_constant(shared_front):
    assert reply(shared_front.alice, "GetCapabilities") == ("(a{sv})", CAPABILITIES)


def test_the_capabilities_do_not_depend_on_what_is_installed(front):
    front.start()
    for tool in ("/usr/bin/wg-quick", "/usr/bin/wg", "/usr/sbin/ip", "/usr/bin/timeout"):
        front.world.remove_tool(tool)
    assert reply(front.alice, "GetCapabilities") == ("(a{sv})", CAPABILITIES)


def test_the_snapshot_of_an_idle_service_holds_its_stage_alone(shared_front):
    assert reply(shared_front.alice, "GetConnectionSnapshot") == ("(a{sv})", "({'stage': <'disconnected'>},)")


def test_initialize_replies_with_nothing(shared_front):
    assert reply(shared_front.alice, "Initialize") == EMPTY_REPLY


def test_disconnect_replies_with_nothing(front):
    front.start()
    assert reply(front.alice, "Disconnect") == EMPTY_REPLY


def test_connect_replies_with_nothing(front):
    front.start()
    pending = front.alice.connect_async("p1", "wireGuard", PROFILE)
    body = pending.reply()
    assert (body.signature, body.text) == EMPTY_REPLY
    front.settled("connected")


def test_the_permission_is_one_boolean(shared_front):
    assert reply(shared_front.alice, "RequestVpnPermission") == ("(b)", "(true,)")


@pytest.mark.parametrize("method, signature, arguments", [
    pytest.param("Connect", "()", (), id="Connect without a profile"),
    pytest.param("Connect", "(s)", ("p1",), id="Connect with a text"),
    pytest.param("Connect", "(a{ss})", ({"id": "p1"},), id="Connect with a dictionary of texts"),
    pytest.param("Connect", "(a{sv}b)", ({"id": Variant("s", "p1")}, True), id="Connect with one argument more"),
    pytest.param("Disconnect", "(s)", ("p1",), id="Disconnect with an argument"),
    pytest.param("GetCapabilities", "(b)", (True,), id="GetCapabilities with an argument"),
])
def test_a_wrong_signature_is_refused_by_the_library(shared_front, method, signature, arguments):
    pending = shared_front.alice.raw_call_async(BUS_NAME, OBJECT_PATH, INTERFACE, method, signature, *arguments)
    assert refusal(pending)[0] == DBUS_ERROR + "InvalidArgs"
    assert shared_front.snapshot() == {"stage": "disconnected"}


@pytest.mark.parametrize("method", ["Reload", "connect", "Connect2", "GetConnectionSnapshots"])
def test_an_unknown_method_is_refused_by_the_library(shared_front, method):
    assert refused(shared_front.alice, method)[0] == DBUS_ERROR + "UnknownMethod"


@pytest.mark.parametrize("path", ["/", "/org/quorvexvpn", "/org/quorvexvpn/Service1/child"])
def test_there_is_no_second_object(shared_front, path):
    pending = shared_front.alice.raw_call_async(BUS_NAME, path, INTERFACE, "GetCapabilities")
    assert refusal(pending)[0] == DBUS_ERROR + "UnknownMethod"
