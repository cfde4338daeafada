# SPDX-License-Identifier: Apache-2.0
"""How the process engines are run: which command, in which surroundings, between which others."""

import json
import os
import signal

import pytest

from engine_flow import ENGINE_DIRECTORY, OPENVPN, SING_BOX, XRAY, names
from quorvex_world.procfs import descriptors, status_fields
from wireguard_flow import APPLY_KILL_SWITCH, CLEAR_GROUND, environment_of, mode_of

pytestmark = pytest.mark.bus


def test_an_engine_comes_up_and_goes_down(flow, engine):
    flow.start()
    assert flow.attempt(engine)["stage"] == "connected"
    assert flow.launches(engine) == CLEAR_GROUND + engine.launch + list(engine.look)
    assert flow.stages() == ["preparing", "connecting", "connected"]
    assert flow.logs() == [("info", f"Preparing {engine.name} tunnel."),
                           ("info", f"{engine.name} tunnel connected.")]
    assert flow.files() == names(engine.files)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert flow.commands() == engine.stop
    assert flow.files() == []
    assert not flow.engine_lives(engine)


def test_an_engine_is_the_services_own_child_and_under_no_time_limit(flow, engine):
    flow.start()
    call = flow.up(engine)
    assert call.argv == [engine.program, *engine.arguments]
    assert [host_pid for host_pid, _ in call.ancestors] == [flow.world.service.host_pid]


def test_the_check_runs_to_its_end_before_the_engine_is_run(flow):
    gate = flow.tools["sing-box"].gate("check")
    flow.start()
    flow.begin(SING_BOX)
    check = flow.world.wait_call("sing-box", "check")
    assert [name for _, name in check.ancestors] == ["timeout", "quorvexvpn-serv"]
    assert flow.world.calls("sing-box", "run") == []
    assert flow.files() == ["sing-box.json"]
    gate.open()
    flow.settled("connected")


def test_an_engine_works_in_the_directory_of_the_engines(flow, engine):
    flow.start()
    call = flow.up(engine)
    assert os.readlink(f"/proc/{call.host_pid}/cwd") == ENGINE_DIRECTORY


@pytest.mark.parametrize("inherited", [None, "/elsewhere"])
def test_an_engine_gets_the_services_environment_and_where_xrays_data_lies(
        flow, engine, inherited):
    service = flow.start(env={"XRAY_LOCATION_ASSET": inherited, "MARK": "from the unit"})
    call = flow.up(engine)
    assert call.env["MARK"] == "from the unit"
    assert call.env == {**environment_of(service), "XRAY_LOCATION_ASSET": ENGINE_DIRECTORY}


def test_an_engine_has_neither_input_nor_outputs_nor_anything_of_the_services(flow, engine):
    flow.start()
    call = flow.up(engine)
    opened = descriptors(call.host_pid)
    assert {number: opened.pop(number) for number in (0, 1, 2)} == dict.fromkeys(
        (0, 1, 2), "/dev/null")
    # The stand-in's own line to the test.
    assert len(opened) == 1 and all(target.startswith("socket:") for target in opened.values())


def test_what_an_engine_writes_is_not_in_the_journal(flow, engine):
    flow.behave(engine, shell=f"echo to stdout; echo to stderr >&2; {engine.come_up}", hang=True)
    service = flow.start()
    flow.up(engine)
    assert flow.disconnect() == {"stage": "disconnected"}
    assert not [line for line in service.journal if "to std" in line]


def test_an_engine_can_be_stopped_by_signals_as_any_program(flow, engine):
    flow.start()
    status = status_fields(flow.up(engine).host_pid)
    assert int(status["SigBlk"], 16) == 0
    ignored = int(status["SigIgn"], 16)
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGPIPE, signal.SIGHUP, signal.SIGCHLD):
        assert not ignored >> (number - 1) & 1, number


def test_the_private_file_is_for_root_alone_while_the_engine_runs(flow, engine):
    flow.start()
    flow.up(engine)
    path = flow.world.path(engine.config)
    assert (mode_of(path), mode_of(path.parent)) == (0o600, 0o700)
    assert (path.lstat().st_uid, path.lstat().st_gid) == (0, 0)


def test_openvpn_reads_the_profile_on_the_services_device(flow):
    flow.start()
    flow.up(OPENVPN)
    expected = OPENVPN.profile.replace("dev tun5", "dev tun-quorvexvpn")
    assert "\ndev tun6\n" in expected, "a line of an inline block"
    assert flow.world.path(OPENVPN.config).read_text() == expected


def test_sing_box_reads_the_service_s_own_tunnel(flow):
    flow.start()
    flow.up(SING_BOX)
    written = json.loads(flow.world.path(SING_BOX.config).read_text())
    profile = json.loads(SING_BOX.profile)
    assert written == {
        "dns": {"servers": [{"type": "tls", "server": "1.1.1.1", "detour": "proxy"}]},
        "inbounds": [{
            "type": "tun", "tag": "quorvex-tun", "interface_name": "quorvex-sbox0",
            "address": ["172.19.0.1/30", "fdfe:dcba:9876::1/126"], "auto_route": True,
            "strict_route": True, "auto_redirect": True, "iproute2_table_index": 2022,
            "iproute2_rule_index": 9000}],
        "outbounds": profile["outbounds"],
        "route": {"auto_detect_interface": True, "final": "proxy",
                  "rules": [{"action": "sniff"}, {"protocol": "dns", "action": "hijack-dns"}]}}


def test_xray_reads_the_service_s_own_tunnel(flow):
    flow.start()
    flow.up(XRAY)
    written = json.loads(flow.world.path(XRAY.config).read_text())
    profile = json.loads(XRAY.profile)
    assert written == {
        "inbounds": [{"protocol": "tun", "tag": "quorvex-tun", "settings": {
            "name": "quorvex-xray0", "gateway": ["172.20.0.1/30", "fdfe:dcba:9877::1/126"],
            "autoSystemRoutingTable": ["0.0.0.0/0", "::/0"], "autoOutboundsInterface": "auto"}}],
        "outbounds": profile["outbounds"],
        "routing": {"rules": [{"type": "field", "inboundTag": ["quorvex-tun"],
                               "outboundTag": "proxy"}]}}


@pytest.mark.parametrize("protocol, chosen", [
    ("VLESS", "l"), ("xray-reality", "l"), ("dravo", "l"), ("vmess", "m"), ("sing-box", "m")])
def test_the_protocol_selects_the_outbound_of_sing_box(flow, protocol, chosen):
    profile = json.loads(SING_BOX.profile)
    profile["outbounds"] = [{"type": kind, "tag": tag, "server": "203.0.113.9"} for kind, tag in (
        ("direct", "d"), ("vmess", "m"), ("vless", "l"))]
    flow.start()
    flow.connected(json.dumps(profile), protocol=protocol)
    written = json.loads(flow.world.path(SING_BOX.config).read_text())
    assert written["route"]["final"] == chosen


def test_the_kill_switch_closes_after_the_tunnel_is_up_and_opens_before_it_goes(flow, engine):
    flow.start()
    assert flow.attempt(engine, kill_switch=True)["stage"] == "connected"
    expected = CLEAR_GROUND + engine.launch + list(engine.look) + [APPLY_KILL_SWITCH]
    assert flow.launches(engine) == expected
    assert f'oifname "{engine.interface}" accept' in flow.world.calls("nft")[-1].stdin
    gate = flow.nft.gate()
    removal = len(flow.world.calls("nft")) + 1
    flow.begin_disconnect()
    flow.world.wait_call("nft", count=removal)
    assert flow.engine_lives(engine)
    gate.open()
    assert flow.settled("disconnected") == {"stage": "disconnected"}
    assert not flow.has_kill_switch()


def test_a_shutdown_takes_the_engine_down(flow, engine):
    service = flow.start()
    flow.up(engine)
    assert service.stop() == 0
    # The second removal is the engine owner's own, when it is destroyed.
    assert flow.commands() == engine.stop + engine.stop[:1]
    assert not flow.engine_lives(engine)
    assert flow.files() == []


def test_every_engine_can_follow_every_other(flow):
    flow.start()
    previous = None
    for engine in (SING_BOX, XRAY, OPENVPN, SING_BOX, OPENVPN, XRAY, SING_BOX):
        assert flow.attempt(engine)["stage"] == "connected"
        if previous:
            assert not flow.engine_lives(previous)
        assert flow.files() == names(engine.files)
        previous = engine


def test_an_engine_goes_down_before_the_next_comes_up(flow, engine):
    flow.start()
    earlier = flow.up(engine)
    later = XRAY if engine is SING_BOX else SING_BOX
    flow.attempt(later)
    assert flow.launches(later) == engine.stop + CLEAR_GROUND[1:] + later.launch + list(later.look)
    assert earlier.ended < flow.running(later).began


def test_wireguard_and_the_engines_can_follow_each_other(flow, engine):
    flow.start()
    flow.connected()
    assert flow.attempt(engine)["stage"] == "connected"
    assert not flow.interface_exists()
    assert flow.files() == names(engine.files)
    assert flow.connect()["stage"] == "connected"
    assert not flow.engine_lives(engine)
    assert flow.files() == ["quorvexvpn.conf"]
