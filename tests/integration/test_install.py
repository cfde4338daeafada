# SPDX-License-Identifier: Apache-2.0
"""What `cmake --install` places, and what the placed files say."""

from __future__ import annotations

import configparser
import os
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

pytestmark = pytest.mark.bus

DATA = Path(__file__).resolve().parents[2] / "data"

UNIT = "usr/lib/systemd/system/quorvexvpn.service"
WORST_SCORE = 21

EXPECTED_FILES = {
    "usr/bin/quorvexvpnctl",
    "usr/bin/quorvexvpnctl",
    "usr/libexec/quorvexvpn-service",
    "usr/libexec/quorvexvpn-release",
    "usr/lib/systemd/system/quorvexvpn.service",
    "usr/share/bash-completion/completions/quorvexvpnctl",
    "usr/share/dbus-1/interfaces/org.quorvexvpn.Service1.xml",
    "usr/share/dbus-1/system-services/org.quorvexvpn.Service1.service",
    "usr/share/dbus-1/system.d/org.quorvexvpn.Service1.conf",
    "usr/lib/tmpfiles.d/quorvexvpn.conf",
    "usr/share/polkit-1/actions/org.quorvexvpn.policy",
    "usr/share/bash-completion/completions/quorvexvpnctl",
    "usr/share/fish/vendor_completions.d/quorvexvpnctl.fish",
    "usr/share/zsh/vendor-completions/_quorvexvpnctl",
    "usr/share/man/man1/quorvexvpnctl.1",
    "usr/share/man/man5/org.quorvexvpn.Service1.5",
    "usr/share/man/man8/quorvexvpn-service.8",
    "usr/share/man/man8/quorvexvpn-release.8",
    "usr/share/fish/vendor_completions.d/quorvexvpnctl.fish",
    "usr/share/man/man1/quorvexvpnctl.1",
    "usr/share/man/man5/org.quorvexvpn.Service1.5",
    "usr/share/zsh/vendor-completions/_quorvexvpnctl",
}


@pytest.fixture(scope="module")
def installed(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The build tree of the executable under test, installed below a folder of the test's own."""
    root = tmp_path_factory.mktemp("install")
    build = Path(request.config.getoption("--service")).resolve().parents[1]
    subprocess.run(["cmake", "--install", str(build), "--prefix", "/usr"], check=True,
                   env={**os.environ, "DESTDIR": str(root)}, stdout=subprocess.DEVNULL)
    return root


def read_unit(path: Path) -> configparser.ConfigParser:
    # systemd lets a list come in several lines of one name.
    parser = configparser.ConfigParser(strict=False)
    parser.optionxform = str  # type: ignore[method-assign,assignment]
    parser.read(path)
    return parser


def test_exactly_the_service_and_its_data_are_placed(installed: Path) -> None:
    placed = {str(path.relative_to(installed)) for path in installed.rglob("*") if path.is_file()}
    assert placed == EXPECTED_FILES


def test_the_working_directory_of_the_engines_is_placed(installed: Path) -> None:
    assert (installed / "usr/libexec/quorvexvpn").is_dir()


def test_the_bus_starts_the_service_as_root_through_systemd(installed: Path) -> None:
    activation = read_unit(
        installed / "usr/share/dbus-1/system-services/org.quorvexvpn.Service1.service")
    assert dict(activation["D-BUS Service"]) == {
        "Name": "org.quorvexvpn.Service1",
        "Exec": "/usr/libexec/quorvexvpn-service",
        "User": "root",
        "SystemdService": "quorvexvpn.service",
    }


@pytest.mark.parametrize("name, value", [
    pytest.param("Type", "dbus", id="it is up when it has its name"),
    pytest.param("BusName", "org.quorvexvpn.Service1", id="and this is the name"),
    pytest.param("ExecStart", "/usr/libexec/quorvexvpn-service", id="the service, without arguments"),
    pytest.param("ExecStopPost", "-/usr/libexec/quorvexvpn-release", id="nobody stays locked out"),
    pytest.param("KillMode", "mixed", id="the service ends its engines itself, in order"),
    pytest.param("Restart", "on-failure", id="a crash is followed by a recovery"),
    pytest.param("NotifyAccess", "main", id="engines do not report in its name"),
    pytest.param("OOMPolicy", "continue", id="an engine without memory does not end the service"),
    pytest.param("LimitCORE", "0", id="no core file with keys in it"),
    pytest.param("RuntimeDirectoryMode", "0700", id="root alone sees the private files"),
    pytest.param("RuntimeDirectoryPreserve", "yes", id="the next start finds what a stop could not clear"),
])
def test_the_unit_runs_the_service_so(installed: Path, name: str, value: str) -> None:
    assert read_unit(installed / UNIT)["Service"][name] == value


def judge(unit: Path) -> subprocess.CompletedProcess:
    """Exit status 1 when the unit is softer than it may be."""
    return subprocess.run(
        ["systemd-analyze", "security", "--no-pager", "--offline=yes", f"--threshold={WORST_SCORE}", str(unit)],
        capture_output=True, text=True, check=False)


def test_the_unit_is_as_hard_as_it_can_be(installed: Path) -> None:
    """systemd's own score, from 0 (nothing to fear) to 100 tenths; what keeps it from 0 is explained in the unit."""
    judged = judge(installed / UNIT)
    print(judged.stdout.splitlines()[-1], f"(at most {WORST_SCORE / 10})")
    assert judged.returncode == 0, judged.stdout + judged.stderr


def test_a_softer_unit_is_noticed(installed: Path, tmp_path: Path) -> None:
    """The control beside it: the same unit without one line is judged too soft."""
    softer = tmp_path / "quorvexvpn.service"
    softer.write_text((installed / UNIT).read_text().replace("PrivateDevices=yes\n", ""))
    assert judge(softer).returncode == 1


def test_systemd_finds_no_fault_with_the_unit(installed: Path) -> None:
    """In a root of its own, where nothing of what the unit names is installed."""
    judged = subprocess.run(["systemd-analyze", "verify", "--man=no", f"--root={installed}", "quorvexvpn.service"],
                            capture_output=True, text=True, check=False)
    complaints = [line for line in judged.stderr.splitlines()
                  if "quorvexvpn.service:" in line and "not found" not in line]
    assert complaints == []


def test_polkit_asks_for_an_administrator_and_remembers_only_an_active_session() -> None:
    action = ElementTree.parse(DATA / "org.quorvexvpn.policy").find("action")
    assert action is not None and action.get("id") == "org.quorvexvpn.manage"
    defaults = action.find("defaults")
    assert defaults is not None
    assert {entry.tag: entry.text for entry in defaults} == {
        "allow_any": "auth_admin",
        "allow_inactive": "auth_admin",
        "allow_active": "auth_admin_keep",
    }


def test_only_root_may_own_the_name() -> None:
    policies = ElementTree.parse(DATA / "org.quorvexvpn.Service1.conf").getroot()
    owners = {policy.get("user") or policy.get("context")
              for policy in policies for rule in policy if rule.get("own")}
    assert owners == {"root"}
