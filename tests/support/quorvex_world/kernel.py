# SPDX-License-Identifier: Apache-2.0
"""The few system calls that Python 3.11 has no function for."""

import ctypes
import fcntl
import os
import socket
import struct

CLONE_NEWNS = 0x00020000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY = 1
MS_REMOUNT = 32
MS_BIND = 4096
MS_REC = 16384
MS_PRIVATE = 1 << 18
MNT_DETACH = 2

_SIOCSIFFLAGS = 0x8914
_IFF_UP = 1
_SYS_MOUNT_SETATTR = 442
_AT_FDCWD = -100
_AT_RECURSIVE = 0x8000
_MOUNT_ATTR_RDONLY = 1

_libc = ctypes.CDLL(None, use_errno=True)


def _checked(result: int, what: str) -> None:
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def unshare(flags: int) -> None:
    _checked(_libc.unshare(flags), "unshare")


def enter_network(path: str) -> None:
    """Moves the calling process into the network namespace that `path` names."""
    with open(path, "rb") as namespace:
        _checked(_libc.setns(namespace.fileno(), CLONE_NEWNET), f"setns {path}")


def mount(source: str, target: str, kind: str = "", flags: int = 0, options: str = "") -> None:
    result = _libc.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags),
                         options.encode())
    _checked(result, f"mount {kind or 'bind'} on {target}")


def detach(target: str) -> None:
    _checked(_libc.umount2(target.encode(), MNT_DETACH), f"detach {target}")


def make_tree_read_only(target: str) -> None:
    """Makes a mount and all mounts below it read-only in this mount namespace alone."""
    attributes = struct.pack("QQQQ", _MOUNT_ATTR_RDONLY, 0, 0, 0)
    result = _libc.syscall(_SYS_MOUNT_SETATTR, _AT_FDCWD, target.encode(), _AT_RECURSIVE,
                           attributes, len(attributes))
    _checked(result, f"make {target} read-only")


def raise_loopback() -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, _SIOCSIFFLAGS, struct.pack("16sH14x", b"lo", _IFF_UP))
