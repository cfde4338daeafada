# SPDX-License-Identifier: Apache-2.0
"""The command as people and scripts run it in a world: its output, its end, its files."""

from __future__ import annotations

import json
import shutil
from dataclasses import dataclass
from pathlib import Path

from quorvex_world import Completed, Process, World
from quorvex_world.service import passed_environment

INSTALLED = "/usr/bin/quorvexvpnctl"

# How it ends, as the man page lists it.
OK, FAILURE, USAGE, UNREACHABLE, NOT_AUTHORIZED, REFUSED, NOT_CONNECTED, BUSY, OPEN = range(9)
INTERRUPTED, TERMINATED = 130, 143

COMMANDS = {"status", "connect", "disconnect", "watch", "keygen", "check", "doctor"}

KEY = "cHJpdmF0ZS1rZXktb2YtdGhlLXRlc3Q="
PROFILE = f"""[Interface]
PrivateKey = {KEY}
Address = 10.0.0.2/32
DNS = 1.1.1.1
[Peer]
PublicKey = cHVibGljLWtleS1vZi10aGUtdGVzdA==
Endpoint = 192.0.2.1:51820
AllowedIPs = 0.0.0.0/0
"""
HOOKED = PROFILE.replace("DNS =", "PostUp = touch /tmp/canary\nDNS =")


def executable_beside(service: str | None, world: World) -> Path:
    """The command of the build tree that the service under test is from."""
    return Path(service or world.executable).resolve().parents[1] / "control/quorvexvpnctl"


@dataclass
class Control:
    """The installed command; alice may manage the VPN, bob may not."""

    world: World
    service: str | None

    def __post_init__(self) -> None:
        shutil.copyfile(executable_beside(self.service, self.world), self.world.path(INSTALLED))
        self.world.path(INSTALLED).chmod(0o755)
        # What a build with a sanitizer looks for.
        self.environment = passed_environment(self.world)

    def put_profile(self, text: str = PROFILE, name: str = "home.conf") -> str:
        """A profile in alice's folder; the path."""
        path = f"/tmp/{name}"
        self.world.put_file(path, text)
        return path

    def run(self, *words: str, user: str = "alice", **more) -> Completed:
        return self.world.run([INSTALLED, *words], user=user, check=False,
                              **{"timeout": 30, "env": self.environment, **more})

    def json(self, *words: str, status: int = OK, user: str = "alice", **more) -> dict:
        """The one object that `--json` prints; nothing else may be printed."""
        completed = self.run(*words, "--json", user=user, **more)
        assert completed.status == status, completed
        assert completed.stderr == ""
        assert completed.stdout.count("\n") == 1, completed.stdout
        return json.loads(completed.stdout)

    def start(self, *words: str, user: str = "alice") -> Process:
        """The command running on its own; `lines` are both its outputs."""
        return self.world.spawn([INSTALLED, *words], user=user, env=self.environment)
