// SPDX-License-Identifier: Apache-2.0
//
// Everything about the service that is fixed at compile time: names on the bus, paths of the
// programs it runs, paths of its private files and names of its interfaces. Nothing here can be
// changed at run time; that is the point.
#pragma once

namespace quorvex::linux_service {

// The bus.
inline constexpr char kBusName[] = "org.quorvexvpn.Service1";
inline constexpr char kObjectPath[] = "/org/quorvexvpn/Service1";
inline constexpr char kInterfaceName[] = "org.quorvexvpn.Service1";
inline constexpr char kPolkitAction[] = "org.quorvexvpn.manage";

// Engines and their data files.
inline constexpr char kSingBoxBinary[] = "/usr/libexec/quorvexvpn/sing-box";
inline constexpr char kXrayBinary[] = "/usr/libexec/quorvexvpn/xray";
inline constexpr char kXrayGeoIp[] = "/usr/libexec/quorvexvpn/geoip.dat";
inline constexpr char kXrayGeoSite[] = "/usr/libexec/quorvexvpn/geosite.dat";
inline constexpr char kWireGuardQuick[] = "/usr/bin/wg-quick";
inline constexpr char kWireGuardTool[] = "/usr/bin/wg";
inline constexpr char kAmneziaWgRuntimeDirectory[] = "/usr/libexec/quorvexvpn";
inline constexpr char kAmneziaWgQuick[] = "/usr/libexec/quorvexvpn/awg-quick";
inline constexpr char kAmneziaWgTool[] = "/usr/libexec/quorvexvpn/awg";
inline constexpr char kAmneziaWgEngine[] = "/usr/libexec/quorvexvpn/amneziawg-go";
inline constexpr char kOpenVpnBinary[] = "/usr/sbin/openvpn";

// Tools.
inline constexpr char kIpBinary[] = "/usr/sbin/ip";
inline constexpr char kNftBinary[] = "/usr/sbin/nft";
inline constexpr char kTimeoutBinary[] = "/usr/bin/timeout";
inline constexpr char kResolveCtl[] = "/usr/bin/resolvectl";
inline constexpr char kDnsHelper[] = "/usr/libexec/quorvexvpn-dns";

// Private runtime files.
inline constexpr char kRuntimeDirectory[] = "/run/quorvexvpn";
inline constexpr char kWireGuardConfig[] = "/run/quorvexvpn/quorvexvpn.conf";
inline constexpr char kSingBoxConfig[] = "/run/quorvexvpn/sing-box.json";
inline constexpr char kXrayConfig[] = "/run/quorvexvpn/xray.json";
inline constexpr char kOpenVpnConfig[] = "/run/quorvexvpn/openvpn.ovpn";
inline constexpr char kOpenVpnPid[] = "/run/quorvexvpn/openvpn.pid";

// What stood on the machine before an engine was started; outside the folder of configurations, so
// that it outlives them.
inline constexpr char kGroundDirectory[] = "/run/quorvexvpn-ground";
inline constexpr char kGroundRecord[] = "/run/quorvexvpn-ground/record";
// Where the service's own connection to the bus begins, for the moment in which it is made.
inline constexpr char kBusSocket[] = "/run/quorvexvpn-ground/bus";

// Tunnel interfaces, and the directories by which the kernel shows that they exist.
inline constexpr char kSingBoxInterface[] = "quorvex-sbox0";
inline constexpr char kXrayInterface[] = "quorvex-xray0";
inline constexpr char kWireGuardInterface[] = "quorvexvpn";
inline constexpr char kOpenVpnInterface[] = "tun-quorvexvpn";
inline constexpr char kSingBoxInterfacePath[] = "/sys/class/net/quorvex-sbox0";
inline constexpr char kXrayInterfacePath[] = "/sys/class/net/quorvex-xray0";
inline constexpr char kWireGuardInterfacePath[] = "/sys/class/net/quorvexvpn";
inline constexpr char kOpenVpnInterfacePath[] = "/sys/class/net/tun-quorvexvpn";

// What every tunnel in user space is made with.
inline constexpr char kTunDevice[] = "/dev/net/tun";

// The kill switch's table in the inet family of nftables.
inline constexpr char kKillSwitchTable[] = "quorvexvpn";

}  // namespace quorvex::linux_service
