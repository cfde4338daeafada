# SPDX-License-Identifier: Apache-2.0
"""The real message bus and the real polkit of a world, with the project's own policies."""

import shutil
from pathlib import Path

from .process import Process

POLKIT_NAME = "org.freedesktop.PolicyKit1"
DEBIAN_BUS_POLICIES = "/usr/share/dbus-1/system.d"
RULES_FILE = "/etc/polkit-1/rules.d/50-test.rules"
RULES = """
polkit.addRule(function(action, subject) {
  if (action.id == "org.quorvexvpn.manage" && [%s].indexOf(subject.user) >= 0) {
    return polkit.Result.YES;
  }
});
"""


def install_policies(world, data: Path) -> None:
    """Puts the project's two policies where a package would, beside the one polkit needs itself."""
    own_bus_policy = data / "org.quorvexvpn.Service1.conf"
    for source in (Path(DEBIAN_BUS_POLICIES, f"{POLKIT_NAME}.conf"), own_bus_policy):
        shutil.copyfile(source, world.path(f"{DEBIAN_BUS_POLICIES}/{source.name}"))
    actions = world.path("/usr/share/polkit-1/actions/org.quorvexvpn.policy")
    shutil.copyfile(data / "org.quorvexvpn.policy", actions)


def start_bus(world) -> Process:
    """Debian's system configuration as it is; only activation finds nothing in this world."""
    world.path("/run/dbus").mkdir(mode=0o755, exist_ok=True)
    world.path("/run/dbus/system_bus_socket").unlink(missing_ok=True)
    bus = world.spawn([
        "/usr/bin/dbus-daemon", "--config-file=/usr/share/dbus-1/system.conf", "--nofork",
        "--nopidfile", "--nosyslog", "--print-address=1"])
    bus.wait_line("unix:")
    return bus


def write_rules(world, users: list[str]) -> None:
    names = ", ".join(f'"{user}"' for user in users)
    world.put_file(RULES_FILE, RULES % names if users else "")


def start_polkit(world) -> Process:
    """Returns once polkitd owns its name; it has read its rules by then."""
    polkit = world.spawn(["/usr/lib/polkit-1/polkitd"])
    # Its first start on a busy machine may take long; a test that hangs shows all the same.
    polkit.wait_line(f"Acquired the name {POLKIT_NAME}", timeout=60)
    return polkit
