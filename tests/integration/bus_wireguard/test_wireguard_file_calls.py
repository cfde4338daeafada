# SPDX-License-Identifier: Apache-2.0
"""The system calls on the private files, one by one, as strace sees them."""

import re

import pytest

from wireguard_flow import (
    CONFIG, PROFILE, SING_BOX_CONFIG, TRACE, XRAY_CONFIG, base_name, straced, without_dns)

pytestmark = pytest.mark.bus

CALLS = "openat,fchmod,write,pwrite64,fsync,close,unlink,unlinkat"


def traced_calls(flow, service) -> list[str]:
    """The calls without process number and result, descriptors as `fd`, data left out."""
    service.stop()
    calls = []
    for line in flow.world.path(TRACE).read_text().splitlines():
        if found := re.match(r"\d+ +(\w+\(.*)\) += \S+", line):
            call = re.sub(r'"(?!/)(?:[^"\\]|\\.)*"(\.\.\.)?', "DATA", found[1]) + ")"
            calls.append(re.sub(r"\((\d+)\b", "(fd", call))
    return calls


def opened_for_removal(path: str) -> str:
    return f'openat(AT_FDCWD, "{path}", O_WRONLY|O_NOFOLLOW|O_CLOEXEC)'


def clearing(*blocks: tuple[int, int]) -> list[str]:
    return [f"pwrite64(fd, DATA, {length}, {offset})" for length, offset in blocks]


@pytest.mark.parametrize("size, blocks", [
    (0, []),
    (1, [(1, 0)]),
    (4096, [(4096, 0)]),
    (4097, [(4096, 0), (1, 4096)]),
    (10_000, [(4096, 0), (4096, 4096), (1808, 8192)]),
])
@pytest.mark.parametrize("path", [SING_BOX_CONFIG, CONFIG], ids=base_name)
def test_a_leftover_is_cleared_in_blocks_flushed_closed_and_unlinked(flow, path, size, blocks):
    flow.put_private(path, b"s" * size)
    service = flow.world.start_service(**straced(path, trace=CALLS))
    expected = [opened_for_removal(path), *clearing(*blocks), "fsync(fd)", "close(fd)",
                f'unlink("{path}")']
    assert traced_calls(flow, service)[:len(expected)] == expected
    assert flow.files() == []


def test_a_leftover_that_is_not_there_is_only_looked_for(flow):
    service = flow.world.start_service(**straced(XRAY_CONFIG, trace=CALLS))
    assert traced_calls(flow, service) == [opened_for_removal(XRAY_CONFIG)]


def test_the_configuration_is_created_for_root_written_once_flushed_and_closed(flow):
    service = flow.start(**straced(CONFIG, trace=CALLS))
    flow.connected()
    flags = "O_WRONLY|O_CREAT|O_TRUNC|O_NOFOLLOW|O_CLOEXEC"
    assert traced_calls(flow, service)[:5] == [
        f'openat(AT_FDCWD, "{CONFIG}", {flags}, 0600)', "fchmod(fd, 0600)",
        f"write(fd, DATA, {len(without_dns(PROFILE))})", "fsync(fd)", "close(fd)"]


def test_the_configuration_is_cleared_before_it_is_unlinked_at_a_disconnect(flow):
    service = flow.start(**straced(CONFIG, trace=CALLS))
    flow.connected()
    flow.disconnect()
    assert traced_calls(flow, service)[-5:] == [
        opened_for_removal(CONFIG), *clearing((len(without_dns(PROFILE)), 0)), "fsync(fd)",
        "close(fd)", f'unlink("{CONFIG}")']
