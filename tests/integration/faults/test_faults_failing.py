# SPDX-License-Identifier: Apache-2.0
"""One step of the service's work fails: the phase ends in time and in words, nothing crashes, and all can be cleaned.

All steps of all phases: tests/search/step_failures.py.
"""

import pytest

from engine_steps import by_engine
from fault_cases import Outcome, Step, chosen, failure_at, steps_of, try_failure
from fault_steps import ENGINES, PHASES, Machines
from quorvex_world import SingBoxServer, TunnelServer, WireGuardServer

pytestmark = pytest.mark.tunnel

FAILURES = 2

# Which command a phase's n-th process is. `nft` is written to through a pipe. Of sing-box's connect only the beginning:
# how often it asks for routes is a matter of time.
STARTS = {
    ("WireGuard", "connect"): ["nft to remove", "helper to revert OpenVPN's DNS", "wg-quick up", "ip",
                               "helper to set DNS", "nft to close"],
    ("WireGuard", "disconnect"): ["nft to remove", "helper to revert DNS", "wg-quick down"],
    ("WireGuard", "recovery"): ["nft to remove", "helper to revert DNS", "wg-quick down",
                                "helper to revert OpenVPN's DNS"],
    ("WireGuard", "shutdown"): ["nft to remove", "helper to revert DNS", "wg-quick down"],
    ("Sing-box", "connect"): ["nft to remove", "helper to revert OpenVPN's DNS", "sing-box check", "sing-box run",
                              "ip"],
    ("Sing-box", "disconnect"): ["nft to remove"],
}

CANNOT_REMOVE = "Unable to run the nftables leak-protection command."
REMOVAL_FAILED = "The nftables leak-protection command failed."
NOT_CLOSED = "Kill switch could not be applied: "
BUSY = "Unable to remove private runtime data: Device or resource busy"
NO_ACCESS = "Unable to open private runtime data for removal: Permission denied"
NOT_CLEARED = "Unable to clear private runtime data."
FORCED = "Sing-box required forced termination; route cleanup needs verification."


def writing(path: str) -> dict[str, str]:
    """The sentences of a private file that cannot be written, by the step that fails."""
    return {
        "chmod /run/quorvexvpn": "Unable to secure the private runtime directory: Operation not permitted",
        f"fchmod {path}": "Unable to secure the private VPN configuration: Operation not permitted",
        f"write {path}": "Unable to write the private VPN configuration: No space left on device",
        f"fsync {path}": "Unable to persist the private VPN configuration: Input/output error",
    }


def removing(path: str) -> dict[str, str]:
    return {f"open {path}": NO_ACCESS, f"pwrite {path}": NOT_CLEARED, f"unlink {path}": BUSY}


CLEARING_THE_GROUND = {
    "nft to remove": CANNOT_REMOVE,
    "write pipe": REMOVAL_FAILED,
    "helper to revert OpenVPN's DNS": "Unable to revert OpenVPN DNS state.",
    "open /run/quorvexvpn/xray.json": NO_ACCESS,
    "open /run/quorvexvpn/openvpn.ovpn": NO_ACCESS,
}
STOPPING_WIREGUARD = {
    "nft to remove": CANNOT_REMOVE,
    "write pipe": REMOVAL_FAILED,
    "helper to revert DNS": "WireGuard disconnected but DNS cleanup failed.",
    "wg-quick down": "WireGuard disconnect cleanup failed.",
    **removing(WireGuardServer.config),
}
# What is given as the reason, by the step that failed.
REASONS = {
    (WireGuardServer, "connect"): {
        **CLEARING_THE_GROUND, **writing(WireGuardServer.config),
        "open /run/quorvexvpn/sing-box.json": NO_ACCESS,
        f"open {WireGuardServer.config}": "Unable to create the private VPN configuration: Permission denied",
        "wg-quick up": "WireGuard failed to connect.",
        "ip": "WireGuard did not install a full-tunnel route.",
        "helper to set DNS": "WireGuard connected but DNS setup failed.",
    },
    (WireGuardServer, "disconnect"): STOPPING_WIREGUARD,
    (WireGuardServer, "recovery"): {
        **STOPPING_WIREGUARD,
        "helper to revert OpenVPN's DNS": "Unable to revert OpenVPN DNS state.",
        "open /run/quorvexvpn/sing-box.json": NO_ACCESS,
    },
    (WireGuardServer, "shutdown"): STOPPING_WIREGUARD,
    (SingBoxServer, "connect"): {
        **CLEARING_THE_GROUND, **writing(SingBoxServer.config),
        # The first one looks for a leftover, the second one writes.
        f"open {SingBoxServer.config}": NO_ACCESS,
        f"open {SingBoxServer.config}, number 2": "Unable to create the private VPN configuration: Permission denied",
        "sing-box check": "Sing-box rejected the generated configuration.",
        "sing-box run": "Failed to fork (Resource temporarily unavailable)",
    },
    (SingBoxServer, "disconnect"): {
        "nft to remove": CANNOT_REMOVE,
        "write pipe": REMOVAL_FAILED,
        "kill TERM": FORCED,
        **removing(SingBoxServer.config),
    },
}
# What is logged with it. A recovery has no bus yet, and a shutdown says it in the stage alone.
CLOSINGS = {"connect": "{} connection failed.", "disconnect": "VPN disconnect cleanup failed."}
# A connect that stands although a step failed, and the warning that says so.
WARNINGS = {(WireGuardServer, "connect"): {"nft to close": NOT_CLOSED + CANNOT_REMOVE,
                                           "write pipe, number 2": NOT_CLOSED + REMOVAL_FAILED},
            (SingBoxServer, "connect"): {"write pipe, number 2": NOT_CLOSED + REMOVAL_FAILED}}
# Steps whose failure is nobody's concern.
UNHEARD = {(WireGuardServer, "disconnect"): [f"fsync {WireGuardServer.config}"],
           (SingBoxServer, "disconnect"): [f"fsync {SingBoxServer.config}"],
           (WireGuardServer, "connect"): ["open /run/quorvexvpn/openvpn.pid"],
           (SingBoxServer, "connect"): ["open /run/quorvexvpn/openvpn.pid", "ip"]}
ENDS = {"connect": "connected", "disconnect": "disconnected"}


def step_called(kind: type[TunnelServer], phase: str, name: str) -> Step:
    starts = STARTS[kind.engine, phase]
    if name in starts:
        return Step("start a process", starts.index(name) + 1)
    what, _, nth = name.partition(", number ")
    return Step(what, int(nth or 1))


def cases(table: dict) -> pytest.MarkDecorator:
    listed = [(kind, phase, name) for (kind, phase), names in table.items() for name in names]
    return pytest.mark.parametrize("kind, phase, name", [
        pytest.param(*case, id=f"{case[0].engine} {case[1]}: {case[2]}") for case in listed])


def fail(machines: Machines, kind: type[TunnelServer], phase: str, name: str) -> Outcome:
    with machines.use(kind) as machine:
        outcome = try_failure(machine, failure_at(phase, step_called(kind, phase, name)))
    assert outcome.hit, "the phase never came to that step"
    return outcome


@cases(REASONS)
def test_the_reason_is_told(machines, kind, phase, name):
    outcome = fail(machines, kind, phase, name)
    assert (outcome.snapshot["stage"], outcome.error) == ("error", REASONS[kind, phase][name])
    if phase in CLOSINGS:
        assert ("error", CLOSINGS[phase].format(kind.engine)) in outcome.logs
    assert outcome.status == (1 if phase == "shutdown" else None)
    assert outcome.repair == (phase in ("disconnect", "recovery"))


@cases(WARNINGS)
def test_a_kill_switch_that_cannot_be_loaded_is_a_warning(machines, kind, phase, name):
    outcome = fail(machines, kind, phase, name)
    assert ("warning", WARNINGS[kind, phase][name]) in outcome.logs
    assert outcome.snapshot["stage"] == "connected"


@cases(UNHEARD)
def test_some_failures_change_nothing(machines, kind, phase, name):
    outcome = fail(machines, kind, phase, name)
    assert outcome.snapshot["stage"] == ENDS[phase]
    assert not [log for log in outcome.logs if log[0] != "info"]


@by_engine(ENGINES)
@pytest.mark.parametrize("phase, call", [("connect", "write"), ("disconnect", "pwrite")])
def test_an_interrupted_write_is_repeated(machines, kind, phase, call):
    with machines.use(kind) as machine:
        outcome = try_failure(machine, failure_at(phase, Step(f"{call} {kind.config}", 1), "EINTR"))
    assert outcome.hit.endswith("EINTR")
    assert (outcome.snapshot["stage"], outcome.left) == (ENDS[phase], "")


@by_engine(ENGINES)
@pytest.mark.parametrize("phase", PHASES)
def test_any_step_may_fail(machines, kind, phase):
    with machines.use(kind) as machine:
        failures = [failure_at(phase, step) for step in steps_of(machine, phase)]
        for number, failure in enumerate(chosen(phase).sample(failures, FAILURES)):
            print(failure)
            try_failure(machine, failure, use=number == 0)
