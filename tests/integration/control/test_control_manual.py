# SPDX-License-Identifier: Apache-2.0
"""The manual pages: without warnings, and saying what the programs do."""

from __future__ import annotations

import json
import re
import shutil
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from control_steps import COMMANDS

pytestmark = pytest.mark.bus

REPOSITORY = Path(__file__).resolve().parents[3]
INTERFACE = REPOSITORY / "data/org.quorvexvpn.Service1.xml"


@pytest.fixture
def interface_page(request) -> Path:
    service = request.config.getoption("--service") or REPOSITORY / "build/dev/service/quorvexvpn-service"
    return Path(service).resolve().parents[1] / "man/org.quorvexvpn.Service1.5"


def written_pages() -> list[Path]:
    return sorted([*REPOSITORY.glob("man/*.[1-9]"), *REPOSITORY.glob("data/*.[1-9]")])


def flat(text: str) -> str:
    """A page's words in one line, without roff's escapes."""
    return " ".join(text.replace("\\-", "-").replace("\\(aq", "'").split())


def complaints(page: Path) -> str:
    """What groff says about a page when every warning is on."""
    formatted = subprocess.run(["groff", "-man", "-ww", "-Tutf8", "-Kutf8", "-rHY=0", str(page)], capture_output=True,
                               text=True, timeout=30)
    return formatted.stderr


@pytest.mark.skipif(not shutil.which("groff"), reason="groff is not installed")
@pytest.mark.parametrize("page", written_pages(), ids=lambda page: page.name)
def test_a_page_is_set_without_a_warning(page):
    if page.read_text().startswith(".so "):
        assert (page.parent / page.read_text().split("/")[-1].strip()).exists()
    else:
        assert complaints(page) == ""


@pytest.mark.skipif(not shutil.which("groff"), reason="groff is not installed")
def test_the_page_that_is_made_is_set_without_a_warning(interface_page, tmp_path):
    assert complaints(interface_page) == ""
    broken = tmp_path / "broken.1"
    broken.write_text(".TH A 1\n.XY\n")
    assert complaints(broken) != "", "groff says nothing even where it must"


def test_every_member_of_the_interface_has_its_entry(interface_page):
    page = interface_page.read_text()
    members = [member for member in ElementTree.parse(INTERFACE).getroot().find("interface")]
    assert len(members) == 12
    for member in members:
        assert f'\n.BR {member.get("name")} "' in page
    for place in ("@METHODS@", "@SIGNALS@"):
        assert place not in page


def test_every_error_of_the_service_is_in_the_interface_s_page(interface_page):
    errors = set(re.findall(r"org\.quorvexvpn\.Error\.\w+", (REPOSITORY / "service/bus_errors.h").read_text()))
    assert len(errors) == 7
    assert errors == set(re.findall(r"org\.quorvexvpn\.Error\.\w+", interface_page.read_text()))


def test_the_page_of_the_command_has_every_exit_code():
    header = (REPOSITORY / "control/exit_codes.h").read_text()
    codes = {int(number) for number in re.findall(r"kExit\w+ = (\d+);", header)}
    page = (REPOSITORY / "man/quorvexvpnctl.1").read_text()
    listed = page.partition(".SH EXIT STATUS")[2].partition(".SH JSON")[0]
    assert {int(number) for number in re.findall(r"^\.BR? .*?(\d+)", listed, re.M)} | {
        int(number) for number in re.findall(r'^\.BR (?:\d+) ", " (\d+)', listed, re.M)} == codes


def test_the_page_of_the_command_has_every_command_and_option(control):
    page = flat((REPOSITORY / "man/quorvexvpnctl.1").read_text())
    shown = control.run("--help").stdout
    options = set(re.findall(r"--[a-z-]+", shown))
    assert {"--json", "--kill-switch", "--protocol"} <= options
    for word in [*COMMANDS, *options]:
        assert word in page, word


@pytest.mark.parametrize("command, words", [
    ("status", ()), ("disconnect", ()), ("keygen", ()), ("check", ("/tmp/home.conf",)),
    ("connect", ("/tmp/home.conf",)), ("doctor", ())])
def test_the_page_of_the_command_has_every_json_member(control, command, words):
    control.put_profile()
    control.world.start_service()
    page = (REPOSITORY / "man/quorvexvpnctl.1").read_text()
    listed = page.partition(".SH JSON")[2].partition(".SH AUTHORIZATION")[0]
    entry = listed.partition(f"\n.B {command}\n")[2].partition("\n.TP")[0]
    answer = control.run(command, *words, "--json", user="alice")
    members = list(json.loads(answer.stdout))
    assert members == [word for word in re.findall(r"[a-zA-Z]\w+", entry) if word in members]
