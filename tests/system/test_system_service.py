# SPDX-License-Identifier: Apache-2.0
"""The installed service on a booted machine: how it is started, who may ask it, how it is watched and
what it may do."""

import signal

import pytest

from system_machine import PACKAGE, REPOSITORY, RULES, UNIT

pytestmark = [pytest.mark.system, pytest.mark.slow]

REFUSED = "org.quorvexvpn.Error.NotAuthorized: Authorization to manage the VPN was denied."
# Seconds; long enough for a busy machine, short enough to wait for.
WATCHDOG = 3


def test_the_package_starts_nothing_and_the_bus_starts_the_service(bare_machine, package):
    bare_machine.install(package)
    assert bare_machine.container.unit_property("ActiveState") == "inactive"
    assert "'stage': <'disconnected'>" in bare_machine.ask("GetConnectionSnapshot", user="bob")
    assert bare_machine.container.unit_property("ActiveState") == "active"
    [line] = bare_machine.container.unit_journal("quorvexvpn.service")[-1:]
    assert line.endswith("Started quorvexvpn.service - QuorvexVPN service.") or "service started." in line


@pytest.mark.parametrize("user", ["alice", "bob"])
def test_without_a_rule_nobody_without_rights_may_do_anything(machine, user):
    machine.run(f"rm {RULES}")
    machine.container.wait(lambda: machine.ask("RequestVpnPermission", user=user).strip() == "(false,)", "the refusal")
    for method in ("Disconnect", "GenerateWireGuardKeyPair"):
        refused = machine.call(method, user=user, check=False)
        assert refused.status == 1 and REFUSED in refused.stderr
    machine.allow("alice")


def test_a_rule_lets_its_user_in_and_no_other(machine):
    machine.allow("alice")
    assert "'privateKey'" in machine.ask("GenerateWireGuardKeyPair", user="alice")
    assert machine.call("GenerateWireGuardKeyPair", user="bob", check=False).status == 1
    assert machine.ask("RequestVpnPermission", user="root").strip() == "(true,)"


def test_all_engines_are_found_by_the_service_under_its_unit(machine):
    assert "'nativeBridgeReady': <true>" in machine.ask("GetRuntimeInfo")


def test_the_private_directories_are_root_s_alone(machine):
    machine.ask("GetConnectionSnapshot")
    shown = machine.output("stat -c '%A %U %n' /run/quorvexvpn /run/quorvexvpn-ground "
                           "/run/wireguard /run/amneziawg")
    assert shown.splitlines() == ["drwx------ root /run/quorvexvpn", "drwx------ root /run/quorvexvpn-ground",
                                  "drwxr-xr-x root /run/wireguard", "drwxr-xr-x root /run/amneziawg"]


def test_the_running_unit_is_as_hard_as_the_file_says(machine):
    """systemd's own judgement of the loaded unit, as the offline test has it of the file."""
    told = machine.output(["systemd-analyze", "security", "--no-pager", "--threshold=23", UNIT])
    print(told.splitlines()[-1])


def test_systemd_has_no_complaint_about_the_unit(machine):
    judged = machine.run(["systemd-analyze", "verify", f"/lib/systemd/system/{UNIT}"])
    assert "quorvexvpn" not in judged.stdout + judged.stderr


def test_a_frozen_service_is_replaced_and_the_machine_is_open_again(machine):
    before = machine.picture()
    with shorter_watchdog(machine):
        machine.connect("WireGuard")
        frozen = machine.service_pid()
        machine.run(["kill", f"-{signal.SIGSTOP.value}", str(frozen)])
        machine.container.wait(lambda: machine.service_pid() not in (0, frozen), "another service", timeout=40)
        assert machine.stage() == "disconnected"
        machine.expect_picture(before)
        assert machine.seen_from() == "10.99.0.1"
        assert any("Watchdog timeout" in line for line in machine.container.unit_journal())


def test_a_service_that_keeps_dying_is_left_alone_and_the_machine_open(machine):
    before = machine.picture()
    machine.connect("WireGuard")

    def kill_again() -> bool:
        if pid := machine.service_pid():
            machine.run(["kill", f"-{signal.SIGKILL.value}", str(pid)], check=False)
        return machine.container.unit_property("ActiveState") == "failed"

    try:
        machine.container.wait(kill_again, "systemd's patience to end", timeout=60)
        machine.expect_picture(before)
        assert machine.seen_from() == "10.99.0.1"
        assert any("Start request repeated too quickly" in line for line in machine.container.unit_journal())
    finally:
        machine.run(["systemctl", "reset-failed", UNIT])
    assert machine.stage() == "disconnected"


def test_a_question_that_nobody_answers_is_no_hang(machine):
    with shorter_watchdog(machine):
        machine.ask("GetConnectionSnapshot")
        asked = machine.service_pid()
        machine.run("systemctl kill --signal=STOP polkit.service")
        try:
            machine.run(f"timeout {3 * WATCHDOG} gdbus call --system --dest org.quorvexvpn.Service1 --object-path "
                        "/org/quorvexvpn/Service1 --method org.quorvexvpn.Service1.Disconnect", user="alice",
                        check=False)
        finally:
            machine.run("systemctl kill --signal=CONT polkit.service")
        assert machine.stage() in ("disconnected", "disconnecting")
        assert machine.service_pid() == asked


def test_the_package_s_own_test_passes(machine):
    """What autopkgtest would run, in the machine that it asks for."""
    script = (REPOSITORY / "debian/tests/installed").read_bytes()
    machine.container.put_file("/root/installed", script, mode=0o755)
    machine.run(f"mv {RULES} /root/ && /root/installed 2>&1; status=$?; "
                f"mv /root/50-test.rules {RULES}; exit $status")


def test_the_completions_load(machine):
    loaded = machine.output(["bash", "-ic", ". /usr/share/bash-completion/bash_completion; "
                             "_completion_loader quorvexvpnctl; complete -p quorvexvpnctl"])
    assert "quorvexvpnctl" in loaded


def test_core_files_are_not_written(machine):
    machine.ask("GetConnectionSnapshot")
    limits = machine.output(f"cat /proc/{machine.service_pid()}/limits")
    [cores] = [line.split()[4:6] for line in limits.splitlines() if line.startswith("Max core file size")]
    assert cores == ["0", "0"]


def test_the_package_s_files_are_as_it_brought_them(machine):
    assert machine.output(["dpkg", "--verify", PACKAGE]) == ""


class shorter_watchdog:
    """The unit with a short interval, by a drop-in of the administrator's."""

    def __init__(self, machine):
        self._machine = machine

    def __enter__(self) -> None:
        self._machine.container.put_file(f"/run/systemd/system/{UNIT}.d/watchdog.conf",
                                         f"[Service]\nWatchdogSec={WATCHDOG}\n")
        self._restart()

    def __exit__(self, *_) -> None:
        self._machine.run(f"rm -r /run/systemd/system/{UNIT}.d")
        self._restart()

    def _restart(self) -> None:
        self._machine.run(f"systemctl daemon-reload && systemctl reset-failed {UNIT}; systemctl restart {UNIT}")
