# SPDX-License-Identifier: Apache-2.0
"""What the documents show of the command is what it shows."""

import re
from pathlib import Path

import pytest

import record_session

pytestmark = pytest.mark.tunnel

REPOSITORY = Path(__file__).resolve().parents[3]


@pytest.fixture(scope="module")
def session(request) -> str:
    from quorvex_world import World
    service = request.config.getoption("--service")
    with World(service=service, writable=request.config.getoption("--world-writable")) as world:
        return record_session.settled(record_session.record(world, service))


def test_the_recorded_session_is_what_happens(session):
    assert session == record_session.settled((REPOSITORY / "docs/session.txt").read_text())


def test_the_readme_shows_pieces_of_that_session(session):
    section = (REPOSITORY / "README.md").read_text().partition("## From the terminal")[2].partition("\n## ")[0]
    shown = record_session.settled("".join(re.findall(r"```console\n(.*?)```", section, re.S)))
    commands = [piece for piece in re.split(r"^(?=\w+[$#] )", shown, flags=re.M) if piece.strip()]
    assert len(commands) >= 4
    for piece in commands:
        assert piece.strip() + "\n" in session
