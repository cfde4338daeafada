# SPDX-License-Identifier: Apache-2.0
"""Certificates for OpenVPN, made by the real openssl once in a run of tests."""

import functools
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

KEY = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes"


@dataclass(frozen=True)
class Credentials:
    """One side's certificate and key, as PEM text."""

    certificate: str
    key: str


@dataclass(frozen=True)
class Authority:
    """An authority and the two sides that it vouches for."""

    certificate: str
    server: Credentials
    client: Credentials


@functools.cache
def authority() -> Authority:
    with tempfile.TemporaryDirectory(prefix="quorvex-certificates-") as name:
        folder = Path(name)
        _openssl(folder, f"req -x509 {KEY} -keyout ca.key -out ca.crt -days 3 -subj /CN=authority")
        sides = [_issue(folder, side) for side in ("server", "client")]
        return Authority((folder / "ca.crt").read_text(), *sides)


def _issue(folder: Path, side: str) -> Credentials:
    _openssl(folder, f"req {KEY} -keyout {side}.key -out {side}.csr -subj /CN={side} "
                     f"-addext keyUsage=digitalSignature -addext extendedKeyUsage={side}Auth")
    _openssl(folder, f"x509 -req -in {side}.csr -CA ca.crt -CAkey ca.key -CAcreateserial "
                     f"-copy_extensions copy -out {side}.crt -days 3")
    return Credentials((folder / f"{side}.crt").read_text(), (folder / f"{side}.key").read_text())


def _openssl(folder: Path, words: str) -> None:
    subprocess.run(["openssl", *words.split()], cwd=folder, check=True, capture_output=True)
