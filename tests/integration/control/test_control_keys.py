# SPDX-License-Identifier: Apache-2.0
"""`keygen`: a key pair of the real tool, through the service."""

import pytest

from control_steps import FAILURE, OK

pytestmark = pytest.mark.bus


def test_the_public_key_belongs_to_the_private_one(control):
    control.world.start_service()
    keys = control.json("keygen")
    derived = control.world.run(["/media/bin/wg", "pubkey"], input=keys["privateKey"] + "\n").stdout.strip()
    assert keys == {"privateKey": keys["privateKey"], "publicKey": derived}


def test_the_lines_fit_into_a_profile(control):
    control.world.start_service()
    answer = control.run("keygen")
    assert answer.status == OK
    private, public = answer.stdout.splitlines()
    assert private.startswith("PrivateKey = ") and public.startswith("PublicKey = ")
    assert len(private.partition(" = ")[2]) == 44


def test_without_the_tool_it_says_what_is_missing(control):
    control.world.remove_tool("/usr/bin/wg")
    control.world.start_service()
    answer = control.run("keygen")
    assert answer.status == FAILURE
    assert answer.stderr.startswith(
        "quorvexvpnctl: wireguard-tools is unavailable. Repair the QuorvexVPN installation.\n")
