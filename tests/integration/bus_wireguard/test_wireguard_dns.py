# SPDX-License-Identifier: Apache-2.0
"""DNS lines leave the configuration, as the bytes that `up` sees show, and go to the DNS helper."""

from dataclasses import dataclass

import pytest

from quorvex_world import BusError
from wireguard_flow import CONFIG, DIRECTORY, DNS_HELPER, PRIVATE_KEY, PUBLIC_KEY, mode_of, profile

pytestmark = pytest.mark.bus

KEYS = f"PrivateKey = {PRIVATE_KEY}\nAddress = 10.8.0.2/32\n"
PEER = f"[Peer]\nPublicKey = {PUBLIC_KEY}\nEndpoint = 203.0.113.9:51820\nAllowedIPs = 0.0.0.0/0\n"


@dataclass
class Rewrite:
    """A profile, the file that `up` must find and the servers that the helper must get."""

    config: str
    file: str
    servers: list[str]


def case(name: str, before: str, after: str, *servers: str, peer: str = PEER):
    """One profile whose Interface section begins with the keys and goes on with `before`."""
    head = f"[Interface]\n{KEYS}"
    return pytest.param(Rewrite(head + before + peer, head + after + peer, list(servers)), id=name)


@pytest.mark.parametrize("rewrite", [
    case("one server", "DNS = 10.8.0.1\n", "", "10.8.0.1"),
    case("lower case, blanks around the comma", "dns = 10.0.0.1 , 10.0.0.2\n", "",
         "10.0.0.1", "10.0.0.2"),
    case("mixed case, no blanks", "dNs=10.0.0.2,10.0.0.1\n", "", "10.0.0.2", "10.0.0.1"),
    case("both families", "DNS = 1.1.1.1, 2606:4700:4700::1111\n", "",
         "1.1.1.1", "2606:4700:4700::1111"),
    case("several lines", "DNS = 10.0.0.3\nMTU = 1400\nDNS = 10.0.0.1,10.0.0.2\n", "MTU = 1400\n",
         "10.0.0.3", "10.0.0.1", "10.0.0.2"),
    case("the same server twice", "DNS = 10.0.0.1, 10.0.0.1\n", "", "10.0.0.1", "10.0.0.1"),
    case("eight servers",
         "DNS = 1.0.0.1,1.0.0.2,1.0.0.3,1.0.0.4\nDNS = 1.0.0.5,1.0.0.6,1.0.0.7,1.0.0.8\n", "",
         *(f"1.0.0.{number}" for number in range(1, 9))),
    case("indented with a tab", "\t DNS\t=\t10.0.0.1\t\n", "", "10.0.0.1"),
    case("an indented key stays as it is", "  MTU=1400  \nDNS = 10.0.0.1\n", "  MTU=1400  \n",
         "10.0.0.1"),
    case("comments stay", "# DNS = 9.9.9.9\n;DNS = 9.9.9.9\n#DNS=9.9.9.9\nDNS = 10.0.0.1\n",
         "# DNS = 9.9.9.9\n;DNS = 9.9.9.9\n#DNS=9.9.9.9\n", "10.0.0.1"),
    case("empty lines stay", "\n\nDNS = 10.0.0.1\n \n", "\n\n \n", "10.0.0.1"),
    case("comments in the peer stay", "DNS = 10.0.0.1\n", "", "10.0.0.1",
         peer=PEER + "# dns = 9.9.9.9\n"),
    case("carriage returns stay", "DNS = 10.0.0.1 \r\nMTU = 1400\r\n", "MTU = 1400\r\n",
         "10.0.0.1"),
    case("two peers", "DNS = 10.0.0.1\n", "", "10.0.0.1", peer=PEER + "\n" + PEER),
    case("bytes beyond ASCII", "# Schlüssel für München\nDNS = 10.0.0.1\n",
         "# Schlüssel für München\n", "10.0.0.1"),
])
def test_dns_lines_leave_the_file_and_go_to_the_helper(flow, rewrite):
    expect_rewrite(flow, rewrite)


def test_headers_count_in_any_case_and_indentation(flow):
    text = f"  [INTERFACE]\t\ndns = 10.0.0.1\n{KEYS} [pEER] \r\n" + PEER.partition("\n")[2]
    expect_rewrite(flow, Rewrite(text, text.replace("dns = 10.0.0.1\n", ""), ["10.0.0.1"]))


def test_a_text_without_a_last_line_end_gets_one(flow):
    text = profile().removesuffix("\n")
    expect_rewrite(flow, Rewrite(text, text.replace("DNS = 10.8.0.1\n", "") + "\n", ["10.8.0.1"]))


def test_a_text_of_two_megabytes_arrives_whole(flow):
    filler = "# 0123456789abcdef0123456789abcdef\n"
    text = profile() + filler * ((2_097_152 - len(profile())) // len(filler))
    expect_rewrite(flow, Rewrite(text, text.replace("DNS = 10.8.0.1\n", ""), ["10.8.0.1"]))


def expect_rewrite(flow, rewrite: Rewrite) -> None:
    gate = flow.wg_quick.gate("up")
    flow.start()
    flow.begin_connect(rewrite.config)
    flow.world.wait_call("wg-quick", "up")
    written = flow.world.path(CONFIG).read_bytes()
    gate.open()
    assert flow.settled("connected", "error")["stage"] == "connected"
    assert written == rewrite.file.encode()
    assert [call.argv for call in flow.world.calls("quorvexvpn-dns", "apply-wireguard")] == [
        [DNS_HELPER, "apply-wireguard", *rewrite.servers]]


@pytest.mark.parametrize("line", ["DNS = 10.8.0.9", "dns=10.8.0.9"])
def test_a_dns_line_of_a_peer_is_refused_before_anything_is_written(flow, line):
    """The rewriting would leave such a line alone; no profile gets there with one."""
    flow.start()
    with pytest.raises(BusError) as refusal:
        flow.alice.connect("p1", "wireGuard", profile() + line + "\n")
    assert refusal.value.name == "org.quorvexvpn.Error.InvalidProfile"
    assert refusal.value.message == "The WireGuard Peer contains an unsupported directive."
    expect_untouched(flow)


def test_a_profile_without_dns_is_refused_before_anything_is_written(flow):
    flow.start()
    with pytest.raises(BusError) as refusal:
        flow.alice.connect("p1", "wireGuard", profile(dns="# no server"))
    assert refusal.value.message == (
        "WireGuard profiles require Interface PrivateKey, Address, DNS, a complete Peer, "
        "and a default AllowedIPs route.")
    expect_untouched(flow)


def expect_untouched(flow) -> None:
    assert flow.commands() == []
    assert not flow.world.path(DIRECTORY).exists()
    assert flow.snapshot() == {"stage": "disconnected"}


@pytest.mark.parametrize("umask", [0o000, 0o022, 0o777], ids=lambda value: f"umask {value:03o}")
def test_the_file_is_for_root_alone_whatever_the_umask(flow, umask):
    gate = flow.wg_quick.gate("up")
    flow.start(umask=umask)
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    assert mode_of(flow.world.path(CONFIG)) == 0o600
    assert mode_of(flow.world.path(DIRECTORY)) == 0o700
    status = flow.world.path(CONFIG).stat()
    assert (status.st_uid, status.st_gid, status.st_nlink) == (0, 0, 1)
    gate.open()
    assert flow.settled("connected")["stage"] == "connected"


@pytest.mark.parametrize("mode", [0o755, 0o777, 0o500, 0o2770], ids=lambda value: f"{value:04o}")
def test_a_directory_of_another_mode_is_tightened(flow, mode):
    directory = flow.world.path(DIRECTORY)
    directory.mkdir()
    directory.chmod(mode)
    flow.start()
    # Only writing tightens it; the start-up has nothing to write.
    assert mode_of(directory) == mode
    flow.connected()
    assert mode_of(directory) == 0o700
