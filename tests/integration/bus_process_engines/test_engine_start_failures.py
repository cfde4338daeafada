# SPDX-License-Identifier: Apache-2.0
"""What a failing start of a process engine tells, and that it leaves nothing behind."""

import signal

import pytest

from engine_flow import ENGINE_DIRECTORY, OPENVPN, SING_BOX
from wireguard_flow import CLEAR_GROUND, DIRECTORY, NOT_CLEANED_UP, failure

pytestmark = pytest.mark.bus

CHECK_FAILED = "Sing-box rejected the generated configuration."
# GLib would give a file without a header to the shell, as shells do.
NO_PROGRAM = b"#!/no/such/interpreter\n"


def expect_a_clean_failure(flow, engine, commands: list[str], sentence: str) -> None:
    """The recovery after a failed connect removes files, too, so the start's own work is looked at
    before it."""
    assert flow.files_before_recovery(engine) == []
    assert flow.settled("error") == failure(sentence)
    # The ground, the attempt, the recovery.
    assert flow.launches(engine) == CLEAR_GROUND + commands + CLEAR_GROUND
    assert flow.stages() == ["preparing", "connecting", "error"]
    assert flow.logs() == [("info", f"Preparing {engine.name} tunnel."),
                           ("error", f"{engine.name} connection failed.")]
    assert not flow.repair_required()
    assert flow.world.service.children() == []


@pytest.mark.parametrize("behaviour", [
    pytest.param({"exit_status": 1, "stderr": "FATAL decode config\n"}, id="refused"),
    pytest.param({"exit_status": 124}, id="as if out of time"),
    pytest.param({"die_by": signal.SIGSEGV}, id="died"),
])
def test_a_configuration_that_the_check_refuses_is_never_run(flow, behaviour):
    flow.tools["sing-box"].on("check", **behaviour)
    flow.start()
    expect_a_clean_failure(flow, SING_BOX, SING_BOX.launch[:1], CHECK_FAILED)
    assert flow.world.calls("sing-box", "run") == []


@pytest.mark.slow
def test_a_check_that_hangs_is_stopped_and_refused(flow):
    flow.tools["sing-box"].on("check", hang=True)
    flow.start()
    expect_a_clean_failure(flow, SING_BOX, SING_BOX.launch[:1], CHECK_FAILED)


def test_a_program_that_cannot_be_executed_is_told_in_the_systems_words(flow, engine):
    """sing-box's program goes bad between its check and its run."""
    flow.world.put_file("/run/world/no-program", NO_PROGRAM, mode=0o755)
    flow.tools["sing-box"].on("check", shell=f"mv /run/world/no-program {SING_BOX.program}")
    if not engine.is_checked:
        flow.world.put_file(engine.program, NO_PROGRAM, mode=0o755)
    flow.start()
    expect_a_clean_failure(
        flow, engine, engine.launch[:-1],
        f"Failed to execute child process “{engine.program}” (No such file or directory)")


def test_the_directory_of_the_engines_must_be_there(flow):
    flow.world.run(["rm", "-r", ENGINE_DIRECTORY])
    flow.start()
    expect_a_clean_failure(
        flow, OPENVPN, [],
        f"Failed to change to directory “{ENGINE_DIRECTORY}” (No such file or directory)")


def test_a_private_file_that_cannot_be_written_keeps_the_engine_from_running(flow, engine):
    flow.world.run(["mkdir", "-p", DIRECTORY])
    flow.world.run(["mount", "-t", "tmpfs", "-o", "ro", "none", DIRECTORY])
    flow.start()
    expect_a_clean_failure(
        flow, engine, [],
        "Unable to secure the private runtime directory: Read-only file system")


def test_a_private_file_that_stays_is_told_after_the_reason(flow):
    """Something else takes the file's place after the ground has been cleared of it."""
    flow.start()
    flow.dns_helper.on("revert", shell=f"mkdir -p {SING_BOX.config}", times=1)
    sentence = "Unable to create the private VPN configuration: Is a directory"
    assert flow.attempt(SING_BOX) == failure(sentence + NOT_CLEANED_UP)
    assert flow.world.calls("sing-box") == []
    assert flow.repair_required()


@pytest.mark.parametrize("behaviour", [
    pytest.param({}, id="status 0"),
    pytest.param({"exit_status": 1, "stderr": "no\n"}, id="status 1"),
    pytest.param({"die_by": signal.SIGKILL}, id="killed"),
])
def test_an_engine_that_exits_at_once_fails_the_start(flow, engine, behaviour):
    flow.behave(engine, **behaviour)
    flow.start()
    expect_a_clean_failure(flow, engine, engine.launch + engine.clean_up, engine.not_up)


def test_the_end_of_an_engine_is_noticed_at_the_next_poll(flow, engine):
    gate = flow.gate(engine)
    flow.behave(engine, exit_status=1)
    flow.start()
    flow.begin(engine)
    call = flow.wait_run(engine)
    gate.open()
    flow.settled("error")
    # Half a second, and the clean-up, on a machine that has other things to do.
    assert flow.alice.wait_stage("error").time - call.ended < 2


def test_an_engine_that_ends_is_not_up_whatever_tunnel_there_is(flow, engine):
    """Whether it lives is asked first: the tunnel appears only after the engine's end."""
    flow.behave(engine, shell=f"(sleep 0.1; {engine.come_up}) &", exit_status=1)
    flow.start()
    assert flow.attempt(engine) == failure(engine.not_up)


def test_a_failed_start_can_be_tried_again(flow, engine):
    flow.behave(engine, exit_status=1, times=1)
    flow.start()
    assert flow.attempt(engine) == failure(engine.not_up)
    assert flow.attempt(engine)["stage"] == "connected"


def test_a_dns_revert_that_fails_after_a_failed_start_is_told_by_the_recovery(flow):
    """The start's own clean-up says nothing; the recovery after it fails on the same helper."""
    flow.behave(OPENVPN, exit_status=1)
    flow.start()
    flow.dns_helper.on("revert", exit_status=1)
    flow.dns_helper.on("revert", times=1)
    assert flow.attempt(OPENVPN) == failure(OPENVPN.not_up + NOT_CLEANED_UP)
    assert flow.files() == ["openvpn.ovpn"]
    assert flow.repair_required()
