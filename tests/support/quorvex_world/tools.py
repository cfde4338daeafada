# SPDX-License-Identifier: Apache-2.0
"""Ready sets of tools for a world."""

DNS_HELPER = "/usr/libexec/quorvexvpn-dns"
RESOLVECTL = "/usr/bin/resolvectl"

# What a test sees of wg-quick: an interface of that name and a default route through it.
UP = """
/media/bin/ip tuntap add dev quorvexvpn mode tun &&
/media/bin/ip link set quorvexvpn up &&
/media/bin/ip -4 route add default dev quorvexvpn
"""
DOWN = "/media/bin/ip link delete dev quorvexvpn"


def standard_tools(world) -> dict:
    """Stand-ins that make WireGuard available without a server, recorders for the plain tools."""
    tools = real_tools(world)
    wg_quick = world.stand_in("/usr/bin/wg-quick")
    wg_quick.on("up", shell=UP).on("down", shell=DOWN)
    tools["wg-quick"] = wg_quick
    for path in ("/usr/bin/wg", "/usr/sbin/ip", "/usr/sbin/nft"):
        tools[path.rpartition("/")[2]] = world.recorder(path)
    return tools


def real_tools(world) -> dict:
    """Real tools; stand-ins only for the DNS helper, which is not part of this project, and for
    resolvectl, which Debian has only beside systemd-resolved."""
    return {"quorvexvpn-dns": world.stand_in(DNS_HELPER),
            "resolvectl": world.stand_in(RESOLVECTL)}
