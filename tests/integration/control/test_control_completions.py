# SPDX-License-Identifier: Apache-2.0
"""Completion in the three shells, each asked by itself what it would offer."""

import fcntl
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import termios
import time
from pathlib import Path

import pytest

from control_steps import COMMANDS

pytestmark = pytest.mark.bus

COMPLETIONS = Path(__file__).resolve().parents[3] / "completions"
ENGINES = {"wireguard", "openvpn", "sing-box", "xray"}
PROTOCOLS = {"wireGuard", "amneziawg", "openVpn", "singBox", "vless", "vmess", "trojan", "shadowsocks", "hysteria2",
             "tuic", "dravo", "xray-reality", "xray"}

BASH = """
. "$1/quorvexvpnctl.bash"
COMP_WORDS=("${@:2}")
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_quorvexvpnctl
printf '%s\\n' "${COMPREPLY[@]}"
"""


def run(*argv: str) -> set[str]:
    completed = subprocess.run(argv, capture_output=True, text=True, timeout=30, check=True)
    assert completed.stderr == ""
    return {line.split("\t")[0] for line in completed.stdout.splitlines() if line}


def in_bash(*words: str) -> set[str]:
    return run("/bin/bash", "--norc", "-c", BASH, "bash", str(COMPLETIONS), *words)


def in_fish(*words: str) -> set[str]:
    line = " ".join(words)
    return run("fish", "--no-config", "-c", f"source {COMPLETIONS}/quorvexvpnctl.fish; complete -C '{line}'")


@pytest.fixture(params=[in_bash, in_fish], ids=["bash", "fish"])
def offers(request):
    shell = request.param.__name__.removeprefix("in_")
    if not shutil.which(shell):
        pytest.skip(f"{shell} is not installed")
    return request.param


def test_all_commands_are_offered(offers):
    assert offers("quorvexvpnctl", "") == COMMANDS


def test_a_command_that_is_begun_is_completed(offers):
    assert offers("quorvexvpnctl", "dis") == {"disconnect"}


def test_the_engines_are_offered_to_doctor(offers):
    assert offers("quorvexvpnctl", "doctor", "") == ENGINES


def test_the_protocols_are_offered_behind_their_option(offers):
    assert offers("quorvexvpnctl", "connect", "--protocol", "") == PROTOCOLS


@pytest.mark.parametrize("command, options", [
    ("connect", {"--protocol", "--kill-switch", "--id"}), ("check", {"--protocol", "--id"}),
    ("status", {"--connected"}), ("watch", set())])
def test_each_command_has_its_options_and_no_others(offers, command, options):
    offered = {word.rstrip("=") for word in offers("quorvexvpnctl", command, "--")}
    assert offered == {"--json", "--help", "--version", *options}


def test_files_are_offered_where_a_profile_is_wanted(offers, tmp_path):
    (tmp_path / "home.conf").touch()
    assert offers("quorvexvpnctl", "check", f"{tmp_path}/ho") == {f"{tmp_path}/home.conf"}
    assert offers("quorvexvpnctl", "watch", f"{tmp_path}/ho") == set()


def test_bash_takes_an_option_with_its_value_in_one_word():
    assert in_bash("quorvexvpnctl", "connect", "--protocol", "=", "wi") == {"wireGuard"}
    assert in_bash("quorvexvpnctl", "connect", "--protocol", "=") == PROTOCOLS


class Zsh:
    """zsh completes only what is typed, so this types on a terminal of its own."""

    def __init__(self, folder: Path):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.environ.update(TERM="xterm", ZDOTDIR=str(folder), COLUMNS="200", PS1="")
            os.execvp("zsh", ["zsh", "--no-rcs", "--interactive"])
        # A terminal without size lists nothing.
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 60, 200, 0, 0))
        self.type(f"fpath=({COMPLETIONS} $fpath); autoload -Uz compinit; compinit -u -D; echo rea''dy\n")
        self.read_until("ready\r\n")

    def type(self, text: str) -> None:
        os.write(self.terminal, text.encode())

    def read_until(self, wanted: str) -> str:
        seen, deadline = "", time.monotonic() + 20
        while wanted not in seen:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.terminal], [], [], left)[0]:
                raise TimeoutError(f"zsh has not shown {wanted!r} but {seen!r}")
            seen += os.read(self.terminal, 4096).decode(errors="replace")
        return seen

    def close(self) -> None:
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        os.close(self.terminal)


@pytest.fixture
def zsh(tmp_path):
    if not shutil.which("zsh"):
        pytest.skip("zsh is not installed")
    shell = Zsh(tmp_path)
    yield shell
    shell.close()


def test_zsh_offers_all_commands_with_what_they_do(zsh):
    zsh.type("quorvexvpnctl \t")
    shown = zsh.read_until("what the tunnel does now")
    assert all(command in shown for command in COMMANDS)


@pytest.mark.parametrize("typed, completed", [
    ("quorvexvpnctl dis\t", "connect"), ("quorvexvpnctl doctor si\t", "ng-box"),
    ("quorvexvpnctl connect --kil\t", "l-switch"), ("quorvexvpnctl connect --protocol=wi\t", "reGuard"),
    ("quorvexvpnctl --json sta\t", "tus"),
])
def test_zsh_completes_what_is_begun(zsh, typed, completed):
    zsh.type(typed)
    zsh.read_until(completed)


def test_zsh_offers_files_where_a_profile_is_wanted(zsh, tmp_path):
    (tmp_path / "home.conf").touch()
    zsh.type(f"quorvexvpnctl check {tmp_path}/ho\t")
    zsh.read_until("me.conf")
