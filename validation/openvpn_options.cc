// SPDX-License-Identifier: Apache-2.0
//
// The option table of OpenVPN 2.6.14, cut down to what a client behind this service needs. What
// is left out on purpose, beside everything that the rules forbid and all that only servers have:
// - `local`, `bind`, `bind-dev`, `multihome`, `lport` other than 0: sockets at a place of the
//   profile's choice; as a client OpenVPN else binds to nothing, `port` or not.
// - `mode`, `tls-server`, `proto tcp-server`: a server.
// - `ip-remote-hint`, `http-proxy-override`: another server than the one that `remote` shows to the
//   kill switch.
// - `preresolve`: the same if it has an address, and without one OpenVPN does not end at SIGTERM
//   while a name is looked up in vain.
// - `mark`, `nice`, `mlock`, `lladdr`: root's rights over packets, processes and links.
// - `static-challenge`: a question of the profile's own wording in the system's password dialog.
// - `x509-track`, `keying-material-exporter`, `parameter`: what hooks and plug-ins would read.
// - `genkey`, `test-crypto`, `version`, `help`, `show-...`: OpenVPN does that and ends.
// - `remap-usr1`, `errors-to-stderr`, `machine-readable-output`, `memstats`, `gremlin`: how it runs
//   is the service's affair.
// - `no-replay`, `auth-token`, `protocol-flags`, `peer-id`, ...: no profile has them.
#include "validation/openvpn_options.h"

#include <algorithm>
#include <array>

#include "validation/openvpn_names.h"

namespace quorvex::linux_service {
namespace {

constexpr auto kOptions = std::to_array<OpenVpnOption>({
    {"allow-compression", 1, 1},
    {"allow-pull-fqdn", 0, 0},
    {"auth", 1, 1},
    {"auth-nocache", 0, 0},
    {"auth-retry", 1, 1},
    {"auth-user-pass", 0, 1, OpenVpnArguments::kMaterial},
    {"block-ipv6", 0, 0},
    {"ca", 0, 1, OpenVpnArguments::kMaterial},
    {"cert", 0, 1, OpenVpnArguments::kMaterial},
    {"cipher", 1, 1},
    {"client", 0, 0},
    {"client-nat", 4, 4},
    {"comp-lzo", 0, 1},
    {"comp-noadapt", 0, 0},
    {"compat-mode", 1, 2},
    {"compress", 0, 1},
    {"connect-retry", 1, 2},
    {"connect-retry-max", 1, 1},
    {"connect-timeout", 1, 1},
    {"crl-verify", 0, 1, OpenVpnArguments::kMaterial},
    {"data-ciphers", 1, 1},
    {"data-ciphers-fallback", 1, 1},
    {"dev", 1, 1, OpenVpnArguments::kDevice},
    {"dev-type", 1, 1, OpenVpnArguments::kDeviceType},
    {"dh", 0, 1, OpenVpnArguments::kMaterial},
    {"dhcp-option", 1, 2},
    {"disable-dco", 0, 0},
    {"disable-occ", 0, 0},
    {"dns", 2, 15},
    {"down-pre", 0, 0},
    {"ecdh-curve", 1, 1},
    {"echo", 0, 15},
    {"explicit-exit-notify", 0, 1},
    {"extra-certs", 0, 1, OpenVpnArguments::kMaterial},
    {"fast-io", 0, 0},
    {"float", 0, 0},
    {"fragment", 1, 2},
    {"hand-window", 1, 1},
    {"http-proxy", 2, 4, OpenVpnArguments::kHttpProxy},
    {"http-proxy-option", 1, 3},
    {"http-proxy-retry", 0, 15},
    {"http-proxy-timeout", 1, 1},
    {"ifconfig", 2, 2},
    {"ifconfig-ipv6", 2, 2},
    {"ifconfig-nowarn", 0, 0},
    {"ignore-unknown-option", 1, 15, OpenVpnArguments::kIgnoredNames},
    {"inactive", 1, 2},
    {"keepalive", 2, 2},
    {"key", 0, 1, OpenVpnArguments::kMaterial},
    {"key-direction", 1, 1},
    {"link-mtu", 1, 1},
    {"lport", 1, 1, OpenVpnArguments::kAnyPort},
    {"max-packet-size", 1, 1},
    {"max-routes", 0, 1},
    {"mssfix", 0, 2},
    {"mtu-disc", 1, 1},
    {"mtu-test", 0, 0},
    {"mute", 1, 1},
    {"mute-replay-warnings", 0, 0},
    {"ncp-ciphers", 1, 1},
    {"nobind", 0, 0},
    {"ns-cert-type", 1, 1},
    {"passtos", 0, 0},
    {"peer-fingerprint", 1, 1},
    {"persist-key", 0, 0},
    {"persist-local-ip", 0, 0},
    {"persist-remote-ip", 0, 0},
    {"persist-tun", 0, 0},
    {"ping", 1, 1},
    {"ping-exit", 1, 1},
    {"ping-restart", 1, 1},
    {"ping-timer-rem", 0, 0},
    {"pkcs12", 0, 1, OpenVpnArguments::kMaterial},
    {"port", 1, 1},
    {"prng", 1, 2},
    {"proto", 1, 1, OpenVpnArguments::kProtocol},
    {"proto-force", 1, 1, OpenVpnArguments::kProtocol},
    {"pull", 0, 0},
    {"push-peer-info", 0, 0},
    {"rcvbuf", 1, 1},
    {"redirect-gateway", 0, 15},
    {"redirect-private", 0, 15},
    {"remote", 1, 3, OpenVpnArguments::kRemote},
    {"remote-cert-eku", 1, 1},
    {"remote-cert-ku", 0, 15},
    {"remote-cert-tls", 1, 1},
    {"remote-random", 0, 0},
    {"remote-random-hostname", 0, 0},
    {"reneg-bytes", 1, 1},
    {"reneg-pkts", 1, 1},
    {"reneg-sec", 1, 2},
    {"replay-window", 1, 2},
    {"resolv-retry", 1, 1},
    {"route", 1, 4},
    {"route-delay", 0, 2},
    {"route-gateway", 1, 1},
    {"route-ipv6", 1, 3},
    {"route-ipv6-gateway", 1, 1},
    {"route-method", 1, 1},
    {"route-metric", 1, 1},
    {"rport", 1, 1},
    {"secret", 0, 1, OpenVpnArguments::kMaterial},
    {"server-poll-timeout", 1, 1},
    {"session-timeout", 1, 1},
    {"shaper", 1, 1},
    {"sndbuf", 1, 1},
    {"socket-flags", 0, 15},
    {"socks-proxy", 1, 3, OpenVpnArguments::kSocksProxy},
    {"socks-proxy-retry", 0, 15},
    {"status-version", 1, 1},
    {"suppress-timestamps", 0, 0},
    {"tcp-nodelay", 0, 0},
    {"tls-auth", 0, 1, OpenVpnArguments::kMaterial},
    {"tls-cert-profile", 1, 1},
    {"tls-cipher", 1, 1},
    {"tls-ciphersuites", 1, 1},
    {"tls-client", 0, 0},
    {"tls-crypt", 0, 1, OpenVpnArguments::kMaterial},
    {"tls-crypt-v2", 0, 1, OpenVpnArguments::kMaterial},
    {"tls-exit", 0, 0},
    {"tls-groups", 1, 1},
    {"tls-timeout", 1, 1},
    {"tls-version-max", 1, 1},
    {"tls-version-min", 1, 2},
    {"topology", 1, 1},
    {"tran-window", 1, 1},
    {"tun-ipv6", 0, 0},
    {"tun-mtu", 1, 2},
    {"tun-mtu-extra", 1, 1},
    {"tun-mtu-max", 1, 2},
    {"txqueuelen", 1, 1},
    {"udp-mtu", 1, 1},
    {"up-delay", 0, 0},
    {"up-restart", 0, 0},
    {"verb", 1, 1},
    {"verify-hash", 1, 2},
    {"verify-x509-name", 1, 2},
});

constexpr auto kSearchedOptions = SortedForSearch(kOptions, &OpenVpnOption::name);

constexpr std::array<std::string_view, kIgnorableOpenVpnOptions> kIgnorable = {
    "block-outside-dns", "dhcp-pre-release", "dhcp-release", "dhcp-renew", "ip-win32",
    "key-method",        "keysize",          "ncp-disable",  "no-iv",      "pause-exit",
    "register-dns",      "show-net-up",      "tap-sleep",    "tls-remote", "windows-driver",
};

}  // namespace

const OpenVpnOption* FindOpenVpnOption(std::string_view name) {
  const auto* const found =
      std::ranges::lower_bound(kSearchedOptions, name, ShorterFirst(), &OpenVpnOption::name);
  return found != kSearchedOptions.end() && found->name == name ? found : nullptr;
}

std::size_t IndexOfIgnorableOpenVpnOption(std::string_view name) {
  return static_cast<std::size_t>(std::ranges::find(kIgnorable, name) - kIgnorable.begin());
}

}  // namespace quorvex::linux_service
