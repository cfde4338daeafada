# SPDX-License-Identifier: Apache-2.0
"""What the installed bus policy and the installed polkit policy allow, as the real bus and the real polkit see it."""

import pytest

from front_steps import Front, refusal, reply
from quorvex_world import BUS_NAME, INTERFACE, OBJECT_PATH, BusError

pytestmark = pytest.mark.bus

ACCESS_DENIED = "org.freedesktop.DBus.Error.AccessDenied"
STANDARD = "org.freedesktop.DBus."
USERS = ["alice", "bob", "nobody", "root"]
# polkit's own numbers of its implicit authorisations.
AUTH_ADMIN, AUTH_ADMIN_KEEP = 2, 4


def send(front: Front, user: str, interface: str, member: str, path: str = OBJECT_PATH, signature: str = "()",
         *arguments):
    return front.world.client(user).raw_call_async(BUS_NAME, path, interface, member, signature, *arguments)


@pytest.mark.parametrize("user", ["alice", "bob", "nobody"])
def test_an_ordinary_user_cannot_own_the_name(world, user):
    with pytest.raises(BusError) as refused_name:
        world.client(user).own_name(BUS_NAME)
    assert refused_name.value.name == ACCESS_DENIED


def test_root_can_own_the_name(world):
    assert world.client("root").own_name(BUS_NAME) == 1


@pytest.mark.parametrize("user", USERS)
def test_everybody_may_call_and_read(shared_front, user):
    assert reply(shared_front.world.client(user), "GetConnectionSnapshot")[1] == "({'stage': <'disconnected'>},)"


@pytest.mark.parametrize("user", USERS)
def test_everybody_hears_the_signals(shared_front, user):
    client = shared_front.world.client(user)
    client.mark()
    shared_front.alice.call("Initialize")
    client.wait_signal("SnapshotChanged")
    client.wait_signal("NetworkPathChanged")


@pytest.mark.parametrize("user", USERS)
def test_everybody_may_use_the_standard_interfaces(shared_front, user):
    assert INTERFACE in send(shared_front, user, STANDARD + "Introspectable", "Introspect").result()
    assert send(shared_front, user, STANDARD + "Peer", "Ping").result() is None
    assert send(shared_front, user, STANDARD + "Properties", "GetAll", OBJECT_PATH, "(s)", INTERFACE).result() == {}


@pytest.mark.parametrize("user", ["alice", "bob"])
@pytest.mark.parametrize("interface", ["org.example.Other", "org.freedesktop.DBus.ObjectManager",
                                       "org.freedesktop.Application"])
def test_other_interfaces_do_not_reach_the_service(shared_front, user, interface):
    assert refusal(send(shared_front, user, interface, "GetAll"))[0] == ACCESS_DENIED


def test_polkit_has_read_the_action_with_its_defaults(shared_front):
    actions = shared_front.root.raw_call(
        "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
        "org.freedesktop.PolicyKit1.Authority", "EnumerateActions", "(s)", "C")
    [action] = [one for one in actions if one[0] == "org.quorvexvpn.manage"]
    any_session, inactive, active = action[6:9]
    assert (any_session, inactive, active) == (AUTH_ADMIN, AUTH_ADMIN, AUTH_ADMIN_KEEP)
    assert not any(one[0].startswith("org.quorvexvpn.") for one in actions if one is not action)


def test_without_a_rule_only_root_is_allowed(make_world):
    with make_world(allow=()) as world:
        front = Front(world)
        front.start()
        assert [reply(world.client(user), "RequestVpnPermission")[1] for user in USERS] == [
            "(false,)", "(false,)", "(false,)", "(true,)"]
