// SPDX-License-Identifier: Apache-2.0
#include "validation/openvpn_options.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace quorvex::linux_service {
namespace {

// All that OpenVPN 2.6.14 knows and no profile may use, what the rules forbid among it.
constexpr char kRefused[] =
    "allow-nonadmin allow-recursive-routing askpass auth-gen-token auth-gen-token-secret "
    "auth-token auth-token-user auth-user-pass-optional auth-user-pass-verify bcast-buffers bind "
    "bind-dev capath ccd-exclusive cd chroot client-cert-not-required client-config-dir "
    "client-connect client-crresponse client-disconnect client-to-client compat-names config "
    "connect-freq connect-freq-initial connection cryptoapicert daemon dev-node dhcp-internal "
    "disable down duplicate-cn engine errors-to-stderr force-tls-key-material-export genkey "
    "gremlin group hash-size help http-proxy-override http-proxy-user-pass ifconfig-ipv6-pool "
    "ifconfig-ipv6-push ifconfig-noexec ifconfig-pool ifconfig-pool-persist ifconfig-push "
    "ifconfig-push-constraint ip-remote-hint ipchange iproute iroute iroute-ipv6 key-derivation "
    "keying-material-exporter learn-address lladdr local log log-append machine-readable-output "
    "management management-client management-client-auth management-client-group "
    "management-client-user management-external-cert management-external-key "
    "management-forget-disconnect management-hold management-log-cache management-query-passwords "
    "management-query-proxy management-query-remote management-signal management-up-down mark "
    "max-clients max-routes-per-client memstats mktun mlock mode msg-channel mtu-dynamic "
    "multihome nice no-name-remapping no-replay opt-verify parameter peer-id pkcs11-cert-private "
    "pkcs11-id pkcs11-id-management pkcs11-id-type pkcs11-pin-cache pkcs11-private-mode "
    "pkcs11-protected-authentication pkcs11-providers pkcs11-sign-mode pkcs11-slot "
    "pkcs11-slot-type plugin port-share preresolve protocol-flags providers providers-path "
    "pull-filter push "
    "push-continuation push-remove push-reset rdns-internal remap-usr1 replay-persist rmtun "
    "route-noexec route-nopull route-pre-down route-up script-security server server-bridge "
    "server-ipv6 service setcon setenv setenv-safe show-adapters show-ciphers show-curves "
    "show-digests show-engines show-gateway show-groups show-net show-pkcs11-ids "
    "show-pkcs11-objects show-pkcs11-slots show-tls show-valid-subnets single-session "
    "stale-routes-check static-challenge status syslog tcp-queue-limit test-crypto "
    "tls-crypt-v2-verify tls-export-cert tls-server tls-verify tmp-dir up "
    "use-prediction-resistance user username-as-common-name verify-client-cert version "
    "vlan-accept vlan-pvid vlan-tagging win-sys writepid x509-track x509-username-field ";

TEST(AnOptionOfOpenVpn, IsNotPermittedByDefault) {
  std::istringstream refused(kRefused);
  std::size_t count = 0;
  for (std::string name; refused >> name; ++count) {
    EXPECT_EQ(FindOpenVpnOption(name), nullptr) << name;
    EXPECT_EQ(IndexOfIgnorableOpenVpnOption(name), kIgnorableOpenVpnOptions) << name;
  }
  EXPECT_EQ(count, 171U);
}

TEST(AnOptionOfOpenVpn, IsKnownByItsWholeNameOnly) {
  for (const char* name :
       {"", "d", "de", "devv", "Dev", "-dev", "--dev", "dev ", "z", "\xFF", "verify-x509-name2"}) {
    EXPECT_EQ(FindOpenVpnOption(name), nullptr) << name;
  }
  for (const char* name : {"allow-compression", "dev", "verb", "verify-x509-name"}) {
    ASSERT_NE(FindOpenVpnOption(name), nullptr) << name;
    EXPECT_EQ(FindOpenVpnOption(name)->name, name);
  }
}

TEST(MaterialOfOpenVpn, IsWhatMayStandInABlock) {
  for (const char* name : {"ca", "cert", "key", "dh", "tls-auth", "tls-crypt", "tls-crypt-v2",
                           "auth-user-pass", "crl-verify", "extra-certs", "secret", "pkcs12"}) {
    ASSERT_NE(FindOpenVpnOption(name), nullptr) << name;
    EXPECT_EQ(FindOpenVpnOption(name)->arguments, OpenVpnArguments::kMaterial) << name;
  }
}

TEST(AnIgnorableOption, IsNoneThatOpenVpnObeys) {
  for (const char* name :
       {"block-outside-dns", "dhcp-pre-release", "dhcp-release", "dhcp-renew", "ip-win32",
        "key-method", "keysize", "ncp-disable", "no-iv", "pause-exit", "register-dns",
        "show-net-up", "tap-sleep", "tls-remote", "windows-driver"}) {
    EXPECT_LT(IndexOfIgnorableOpenVpnOption(name), kIgnorableOpenVpnOptions) << name;
    EXPECT_EQ(FindOpenVpnOption(name), nullptr) << name;
  }
  EXPECT_EQ(IndexOfIgnorableOpenVpnOption("dns-updown"), kIgnorableOpenVpnOptions);
}

}  // namespace
}  // namespace quorvex::linux_service
