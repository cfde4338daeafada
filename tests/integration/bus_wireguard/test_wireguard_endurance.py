# SPDX-License-Identifier: Apache-2.0
"""Many connects and disconnects in one run of the service leave it as it was."""

import pytest

from quorvex_world.procfs import status_fields
from wireguard_flow import BRING_UP, CLEAR_GROUND, PROFILE, REMOVE_KILL_SWITCH, STOP_TUNNEL, failure

pytestmark = [pytest.mark.bus, pytest.mark.slow]

WARM_UP = 5
ROUNDS = 20
# Pages freed a little later or earlier; a configuration forgotten in each round is far more.
MEMORY_SLACK_KIB = 512
# 64 KiB, so that a forgotten copy shows.
LONG_PROFILE = PROFILE + ("# " + "x" * 61 + "\n") * 1024


def picture(service) -> dict:
    fields = status_fields(service.host_pid)
    descriptors = sorted(target.partition(":")[0] for target in service.fds().values())
    return {"threads": sorted(service.threads().values()), "descriptors": descriptors,
            "memory": int(fields["RssAnon"].split()[0])}


def rounds(flow, run_one) -> None:
    service = flow.start()
    for _ in range(WARM_UP):
        run_one()
    before = picture(service)
    for _ in range(ROUNDS):
        run_one()
    after = picture(service)
    assert after["threads"] == before["threads"]
    assert after["descriptors"] == before["descriptors"]
    assert service.children() == []
    if not flow.keeps_freed_memory():
        assert after["memory"] - before["memory"] <= MEMORY_SLACK_KIB


def test_twenty_tunnels_leave_descriptors_threads_and_memory_as_they_were(flow):
    def run_one() -> None:
        assert flow.connect(LONG_PROFILE, kill_switch=True)["stage"] == "connected"
        assert flow.commands() == CLEAR_GROUND + BRING_UP + [REMOVE_KILL_SWITCH]
        assert flow.disconnect() == {"stage": "disconnected"}
        assert flow.commands() == STOP_TUNNEL
        assert flow.files() == []
    rounds(flow, run_one)


def test_twenty_failures_leave_descriptors_threads_and_memory_as_they_were(flow):
    flow.wg_quick.on("up", exit_status=1)

    def run_one() -> None:
        assert flow.connect(LONG_PROFILE) == failure("WireGuard failed to connect.")
    rounds(flow, run_one)


