// SPDX-License-Identifier: Apache-2.0
//
// TLS, REALITY and the masks over transports.
#include "validation/xray_options.h"
#include "validation/xray_sentences.h"
#include "validation/xray_value_judges.h"

namespace quorvex::linux_service {
namespace {

constexpr JsonOption kCertificateOptions[] = {
    ForbiddenText("certificateFile", kXrayFileMember),
    ForbiddenText("keyFile", kXrayFileMember),
    Plain("certificate"),
    Plain("key"),
    Plain("usage"),
    Plain("ocspStapling"),
    Plain("oneTimeLoading"),
    Plain("buildChain"),
};
constexpr JsonOptionTable kCertificate = {.sentence = kXrayFileMember,
                                          .options = kCertificateOptions};

constexpr JsonOption kTlsOptions[] = {
    Objects("certificates", kCertificate),
    Plain("serverName"),
    Plain("alpn"),
    Plain("fingerprint"),
    Plain("allowInsecure"),
    Plain("enableSessionResumption"),
    Plain("disableSystemRoot"),
    Plain("useSystemCA"),
    Plain("minVersion"),
    Plain("maxVersion"),
    Plain("cipherSuites"),
    Plain("curvePreferences"),
    Plain("rejectUnknownSni"),
    Plain("pinnedPeerCertSha256"),
    Plain("verifyPeerCertByName"),
    Plain("echServerKeys"),
    Plain("echConfigList"),
    Object("echSockopt", kXraySocketOptions),
    // The secrets of all connections, appended to a file.
    ForbiddenText("masterKeyLog", kXrayFileMember),
    // Older versions' and panels'.
    Plain("allowInsecureCiphers"),
    Plain("disableSessionResumption"),
    Plain("preferServerCipherSuites"),
    Plain("pinnedPeerCertificateChainSha256"),
    Plain("pinnedPeerCertificatePublicKeySha256"),
    Plain("verifyPeerCertInNames"),
    Plain("echForceQuery"),
    Plain("show"),
    Plain("publicKey"),
    Plain("shortId"),
    Plain("spiderX"),
    Plain("settings"),
};

constexpr JsonOption kRealityOptions[] = {
    ForbiddenText("masterKeyLog", kXrayFileMember),
    Plain("show"),
    Plain("fingerprint"),
    Plain("serverName"),
    Plain("password"),
    Plain("publicKey"),
    Plain("shortId"),
    Plain("mldsa65Verify"),
    Plain("spiderX"),
    // A server's, which hands strangers on to another address or a socket of the machine.
    Forbidden("target", kXrayNotOneInbound),
    Forbidden("dest", kXrayNotOneInbound),
    Plain("type"),
    Plain("xver"),
    Plain("serverNames"),
    Plain("shortIds"),
    Plain("privateKey"),
    Plain("minClientVer"),
    Plain("maxClientVer"),
    Plain("maxTimeDiff"),
    Plain("mldsa65Seed"),
    Plain("limitFallbackUpload"),
    Plain("limitFallbackDownload"),
    Plain("settings"),
    // Apps write TLS's beside it.
    Plain("alpn"),
    Plain("allowInsecure"),
};

// The router opens a port to this machine.
constexpr JsonOption kPortMappingOptions[] = {
    Forbidden("enabled", kXrayNotOneInbound),
    Plain("timeout"),
    Plain("lifetime"),
};
constexpr JsonOptionTable kPortMapping = {.sentence = kXrayNotOneInbound,
                                          .options = kPortMappingOptions};

// Of all kinds of masks.
constexpr JsonOption kMaskSettingsOptions[] = {
    Plain("clients"),
    Plain("servers"),
    Plain("errors"),
    Plain("mode"),
    Plain("client"),
    Plain("server"),
    Plain("packets"),
    Plain("length"),
    Plain("lengths"),
    Plain("delay"),
    Plain("delays"),
    Plain("maxSplit"),
    Plain("reset"),
    Plain("noise"),
    Plain("header"),
    Plain("value"),
    Plain("password"),
    Plain("packetSize"),
    Plain("ascii"),
    Plain("customTable"),
    Plain("custom_table"),
    Plain("customTables"),
    Plain("custom_tables"),
    Plain("paddingMin"),
    Plain("padding_min"),
    Plain("paddingMax"),
    Plain("padding_max"),
    Plain("domain"),
    Plain("domains"),
    Plain("resolvers"),
    Plain("extraPoll"),
    Plain("hostname"),
    Plain("profiles"),
    Plain("dgram"),
    Plain("ips"),
    Plain("url"),
    Plain("stunServers"),
    Plain("ipMode"),
    Plain("interval"),
    Plain("remoteIPs"),
    Plain("remotePorts"),
    Object("tlsConfig", kXrayTlsOptions, kXrayFileMember),
    Object("portMapping", kPortMapping, kXrayNotOneInbound),
};
constexpr JsonOptionTable kMaskSettings = {.sentence = kXrayExternalResource,
                                           .options = kMaskSettingsOptions};

constexpr JsonOption kMaskOptions[] = {Plain("type"), Object("settings", kMaskSettings)};

}  // namespace

constinit const JsonOptionTable kXrayTlsOptions = {.sentence = kXrayFileMember,
                                                   .options = kTlsOptions};
constinit const JsonOptionTable kXrayRealityOptions = {.sentence = kXrayFileMember,
                                                       .options = kRealityOptions};
constinit const JsonOptionTable kXrayMaskOptions = {.sentence = kXrayExternalResource,
                                                    .options = kMaskOptions};

}  // namespace quorvex::linux_service
