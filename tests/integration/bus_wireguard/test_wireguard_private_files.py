# SPDX-License-Identifier: Apache-2.0
"""The private files under faults: links and other things in their place, a full or read-only file
system, failing system calls. strace makes calls on one path fail; everything else is real."""

import pytest

from wireguard_flow import (
    CLEAR_GROUND, CONFIG, DIRECTORY, NOT_CLEANED_UP, OPENVPN_PID, PROFILE, SING_BOX_CONFIG, UP,
    XRAY_CONFIG, base_name, failure, mode_of, profile, stop_failure, straced, without_dns)

pytestmark = pytest.mark.bus

CREATE_DIRECTORY = "Unable to create the private runtime directory: "
SECURE_DIRECTORY = "Unable to secure the private runtime directory: "
CREATE_FILE = "Unable to create the private VPN configuration: "
SECURE_FILE = "Unable to secure the private VPN configuration: "
WRITE_FILE = "Unable to write the private VPN configuration: "
PERSIST_FILE = "Unable to persist the private VPN configuration: "
OPEN_FOR_REMOVAL = "Unable to open private runtime data for removal: "
CANNOT_CLEAR = "Unable to clear private runtime data."
NOT_REGULAR = "Private runtime data is not a regular file."
REMOVE_FILE = "Unable to remove private runtime data: "
# More than one page, so that the first write is cut short by a file system of one page.
LONG_PROFILE = profile() + "# " + "x" * 6000 + "\n"


def test_a_link_in_the_place_of_the_configuration_is_not_followed(flow):
    flow.start()
    flow.world.put_file("/run/target", "untouched\n", mode=0o640)
    flow.world.path(DIRECTORY).mkdir(0o700)
    flow.world.path(CONFIG).symlink_to("/run/target")
    assert flow.connect() == failure(CREATE_FILE + "Too many levels of symbolic links")
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND
    assert flow.world.path("/run/target").read_bytes() == b"untouched\n"
    assert mode_of(flow.world.path("/run/target")) == 0o640
    assert flow.files() == ["quorvexvpn.conf"]
    assert flow.world.path(CONFIG).is_symlink()


def test_a_link_to_nowhere_is_not_followed_either(flow):
    flow.start()
    flow.world.path(DIRECTORY).mkdir(0o700)
    flow.world.path(CONFIG).symlink_to("/run/nowhere")
    assert flow.connect() == failure(CREATE_FILE + "Too many levels of symbolic links")
    assert not flow.world.path("/run/nowhere").exists()


def test_a_directory_in_the_place_of_the_configuration_is_left_alone(flow):
    flow.start()
    flow.world.path(CONFIG).mkdir(parents=True)
    assert flow.connect() == failure(CREATE_FILE + "Is a directory")
    assert flow.files() == ["quorvexvpn.conf"]


@pytest.mark.parametrize("make, text", [
    pytest.param("mkdir {0}", OPEN_FOR_REMOVAL + "Is a directory", id="directory"),
    pytest.param("ln -s /run/target {0}", OPEN_FOR_REMOVAL + "Too many levels of symbolic links",
                 id="link"),
    pytest.param("mknod {0} c 1 3", NOT_REGULAR, id="null device"),
])
@pytest.mark.parametrize("path", [SING_BOX_CONFIG, XRAY_CONFIG], ids=base_name)
def test_what_is_no_regular_file_is_not_removed(flow, path, make, text):
    flow.world.put_file("/run/target", "untouched\n")
    flow.world.run(["/bin/sh", "-c", f"mkdir -m 700 {DIRECTORY} && {make.format(path)}"])
    flow.world.start_service()
    assert flow.snapshot() == stop_failure(text)
    assert flow.repair_required()
    assert flow.files() == [path.rpartition("/")[2]]
    assert flow.world.path("/run/target").read_bytes() == b"untouched\n"
    flow.commands()
    assert flow.connect() == failure(text + NOT_CLEANED_UP)
    assert UP not in flow.commands()


def test_a_link_in_the_place_of_the_pid_file_is_unlinked_and_not_followed(flow):
    flow.world.put_file("/run/target", "untouched\n")
    flow.world.path(DIRECTORY).mkdir(0o700)
    flow.world.path(OPENVPN_PID).symlink_to("/run/target")
    flow.world.start_service()
    assert flow.snapshot() == {"stage": "disconnected"}
    assert flow.files() == []
    assert flow.world.path("/run/target").read_bytes() == b"untouched\n"


def test_a_directory_in_the_place_of_the_pid_file_is_ignored(flow):
    flow.world.path(OPENVPN_PID).mkdir(parents=True)
    flow.world.start_service()
    assert flow.snapshot() == {"stage": "disconnected"}
    assert flow.files() == ["openvpn.pid"]


def mount_directory(flow, options: str) -> None:
    flow.world.path(DIRECTORY).mkdir(mode=0o755)
    flow.world.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", DIRECTORY])


def test_a_full_file_system_leaves_no_partial_file(flow):
    mount_directory(flow, "size=4096")
    flow.start()
    assert flow.connect_without_recovery(LONG_PROFILE) == []
    assert flow.settled("error") == failure(WRITE_FILE + "No space left on device")
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND
    assert not flow.repair_required()
    # The page is free again.
    assert flow.connect()["stage"] == "connected"


def test_a_file_system_without_a_free_inode(flow):
    mount_directory(flow, "nr_inodes=1")
    flow.start()
    assert flow.connect() == failure(CREATE_FILE + "No space left on device")
    assert flow.files() == []


def test_a_read_only_file_system(flow):
    mount_directory(flow, "ro")
    flow.start()
    assert flow.connect() == failure(SECURE_DIRECTORY + "Read-only file system")


def test_an_older_file_is_replaced_and_tightened(flow):
    """Clearing the ground removes it, so this one appears between that and the writing."""
    flow.start()
    older = f"umask 0; mkdir -m 777 {DIRECTORY}; yes old | head -c 9999 > {CONFIG}"
    flow.dns_helper.on("revert", shell=older)
    gate = flow.wg_quick.gate("up")
    flow.begin_connect()
    flow.world.wait_call("wg-quick", "up")
    config = flow.world.path(CONFIG)
    assert config.read_bytes() == without_dns(PROFILE)
    assert mode_of(config) == 0o600
    gate.open()
    flow.settled("connected")


@pytest.mark.parametrize("path, fault, sentence", [
    pytest.param(DIRECTORY, "mkdir,mkdirat:error=EACCES", CREATE_DIRECTORY + "Permission denied",
                 id="create directory"),
    pytest.param(DIRECTORY, "chmod,fchmodat:error=EPERM",
                 SECURE_DIRECTORY + "Operation not permitted", id="set directory mode"),
    pytest.param(CONFIG, "openat:error=EMFILE", CREATE_FILE + "Too many open files", id="open"),
    pytest.param(CONFIG, "fchmod:error=EPERM", SECURE_FILE + "Operation not permitted",
                 id="set file mode"),
    pytest.param(CONFIG, "write:error=EIO", WRITE_FILE + "Input/output error", id="write"),
    pytest.param(CONFIG, "fsync:error=EIO", PERSIST_FILE + "Input/output error", id="flush"),
])
def test_each_step_of_writing_has_its_own_sentence(flow, path, fault, sentence):
    flow.start(**straced(path, inject=fault))
    assert flow.connect_without_recovery() == []
    assert flow.settled("error") == failure(sentence)
    assert flow.commands() == CLEAR_GROUND + CLEAR_GROUND


def test_a_write_of_nothing_is_a_failure(flow):
    flow.start(**straced(CONFIG, inject="write:retval=0"))
    assert flow.connect_without_recovery() == []
    # Such a call sets no error, so the text after the colon is that of whatever failed last.
    assert flow.settled("error")["lastError"].startswith(WRITE_FILE)


def test_what_could_not_be_opened_is_not_unlinked(flow):
    """A file that is there and cannot be opened is none of ours."""
    flow.start(**straced(CONFIG, inject="openat:error=EMFILE"))
    # Put there by the test, since the faults reach the stand-ins too.
    flow.dns_helper.on("revert", react=lambda call: flow.put_private(CONFIG, "old\n"), times=1)
    # The recovery after the failure cannot open it either, and says so by its suffix.
    assert flow.connect() == failure(CREATE_FILE + "Too many open files" + NOT_CLEANED_UP)
    assert flow.world.path(CONFIG).read_text() == "old\n"


def test_an_interrupted_write_is_repeated(flow):
    flow.start(**straced(CONFIG, inject="write:error=EINTR:when=1..3"))
    assert flow.connect()["stage"] == "connected"
    assert flow.world.path(CONFIG).read_bytes() == without_dns(PROFILE)


@pytest.mark.parametrize("fault, sentence", [
    pytest.param("openat:error=EACCES", OPEN_FOR_REMOVAL + "Permission denied", id="open"),
    pytest.param("fstat,newfstatat:error=EIO", NOT_REGULAR, id="look"),
    pytest.param("pwrite64:error=EIO", CANNOT_CLEAR, id="clear"),
    pytest.param("pwrite64:error=ENOSPC:when=2", CANNOT_CLEAR, id="clear the second block"),
    pytest.param("pwrite64:retval=0", CANNOT_CLEAR, id="clear nothing"),
    pytest.param("unlink,unlinkat:error=EBUSY", REMOVE_FILE + "Device or resource busy",
                 id="unlink"),
])
def test_each_step_of_removing_has_its_own_sentence(flow, fault, sentence):
    flow.put_private(SING_BOX_CONFIG, b"s" * 5000)
    flow.world.start_service(**straced(SING_BOX_CONFIG, inject=fault))
    assert flow.snapshot() == stop_failure(sentence)
    assert flow.files() == ["sing-box.json"]
    assert flow.repair_required()


@pytest.mark.parametrize("fault", [
    pytest.param("pwrite64:error=EINTR:when=1..2", id="interrupted clearing"),
    pytest.param("fsync:error=EIO", id="failing flush"),
    pytest.param("unlink,unlinkat:error=ENOENT", id="somebody else unlinked it"),
])
def test_some_faults_of_removing_are_none(flow, fault):
    flow.put_private(SING_BOX_CONFIG, b"s" * 5000)
    flow.world.run(["ln", SING_BOX_CONFIG, "/run/second-name"])
    flow.world.start_service(**straced(SING_BOX_CONFIG, inject=fault))
    assert flow.snapshot() == {"stage": "disconnected"}
    assert flow.world.path("/run/second-name").read_bytes() == b"\0" * 5000


def test_a_pid_file_that_cannot_be_cleared_is_unlinked_all_the_same(flow):
    flow.put_private(OPENVPN_PID)
    flow.world.start_service(**straced(OPENVPN_PID, inject="pwrite64:error=EIO"))
    assert flow.snapshot() == {"stage": "disconnected"}
    assert flow.files() == []
