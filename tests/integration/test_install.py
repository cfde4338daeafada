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

EXPECTED_FILES = {
    "usr/libexec/quorvexvpn-service",
    "usr/lib/systemd/system/quorvexvpn.service",
    "usr/share/dbus-1/interfaces/org.quorvexvpn.Service1.xml",
    "usr/share/dbus-1/system-services/org.quorvexvpn.Service1.service",
    "usr/share/dbus-1/system.d/org.quorvexvpn.Service1.conf",
    "usr/share/polkit-1/actions/org.quorvexvpn.policy",
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
    parser = configparser.ConfigParser()
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


def test_the_unit_ends_the_engines_with_the_service(installed: Path) -> None:
    unit = read_unit(installed / "usr/lib/systemd/system/quorvexvpn.service")
    assert unit["Service"]["KillMode"] == "control-group"
    assert unit["Service"]["Type"] == "dbus"
    assert unit["Service"]["BusName"] == "org.quorvexvpn.Service1"
    assert unit["Service"]["ExecStart"] == "/usr/libexec/quorvexvpn-service"


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
