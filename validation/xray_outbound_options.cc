// SPDX-License-Identifier: Apache-2.0
//
// Outbounds. One table holds the settings of all protocols but WireGuard: no name means a harmless
// thing in one of them and a refused one in another.
#include "validation/xray_options.h"
#include "validation/xray_sentences.h"
#include "validation/xray_value_judges.h"

namespace quorvex::linux_service {
namespace {

constexpr const JsonOptionTable* kNotesPart[] = {&kXrayNotes};

constexpr JsonOption kServerOptions[] = {
    Judged("address", ComplaintAboutXrayAddress),
    Plain("port"),
    Plain("level"),
    Plain("email"),
    Plain("id"),
    Plain("user"),
    Plain("pass"),
    Plain("password"),
    Plain("method"),
    Plain("security"),
    Plain("encryption"),
    Plain("experiments"),
    Plain("flow"),
    Plain("seed"),
    Plain("padding"),
    Plain("xorMode"),
    Plain("seconds"),
    Plain("testpre"),
    Plain("testseed"),
    // Connections from the far side into this machine's networks.
    Forbidden("reverse", kXrayNotOneInbound),
};
constexpr JsonOptionTable kServer = {
    .sentence = kXrayExternalResource, .options = kServerOptions, .parts = kNotesPart};
constexpr const JsonOptionTable* kServerPart[] = {&kServer};

constexpr JsonOption kServersOptions[] = {Objects("users", kServer)};
constexpr JsonOptionTable kServers = {
    .sentence = kXrayExternalResource, .options = kServersOptions, .parts = kServerPart};

constexpr JsonOption kDnsRuleOptions[] = {
    Plain("action"), Plain("qType"), Plain("qtype"), Judged("domain", ComplaintAboutXrayMatchers),
    Plain("rCode"),
};
constexpr JsonOptionTable kDnsRule = {.sentence = kXrayExternalResource,
                                      .options = kDnsRuleOptions};

constexpr JsonOption kFinalRuleOptions[] = {
    Plain("action"),     Plain("network"), Plain("port"), Judged("ip", ComplaintAboutXrayMatchers),
    Plain("blockDelay"),
};
constexpr JsonOptionTable kFinalRule = {.sentence = kXrayExternalResource,
                                        .options = kFinalRuleOptions};

constexpr JsonOption kSettingsOptions[] = {
    Objects("vnext", kServers),
    Objects("servers", kServers),
    // Of http.
    Plain("headers"),
    // Of freedom.
    Plain("domainStrategy"),
    Plain("targetStrategy"),
    Plain("redirect"),
    Plain("userLevel"),
    Plain("fragment"),
    Plain("noise"),
    Plain("noises"),
    Plain("proxyProtocol"),
    Judged("ipsBlocked", ComplaintAboutXrayMatchers),
    Objects("finalRules", kFinalRule),
    // Of blackhole.
    Plain("response"),
    // Of dns.
    Judged("network", ComplaintAboutXrayNetwork),
    Judged("rewriteNetwork", ComplaintAboutXrayNetwork),
    Judged("rewriteAddress", ComplaintAboutXrayAddress),
    Plain("rewritePort"),
    Objects("rules", kDnsRule),
    Plain("nonIPQuery"),
    Plain("blockTypes"),
    // Of loopback.
    Plain("inboundTag"),
    Object("sniffing", kXraySniffingOptions),
    // Of hysteria.
    Plain("version"),
    // Of masque.
    Plain("remoteDNS"),
};
constexpr JsonOptionTable kSettings = {
    .sentence = kXrayExternalResource, .options = kSettingsOptions, .parts = kServerPart};

constexpr JsonOption kWireGuardSettingsOptions[] = {
    // ComplaintAboutXrayWireGuard wants it true.
    Plain("noKernelTun"),
    Plain("secretKey"),
    Plain("address"),
    Plain("peers"),
    Plain("mtu"),
    Plain("MTU"),
    Plain("reserved"),
    Plain("remoteDNS"),
    Plain("workers"),
    Plain("domainStrategy"),
    // Xray's own mark of the two ends, which its reader lets a profile write.
    Judged(
        "IsClient", [](JsonNode*) { return kXrayNotOneInbound; }, kXrayNotOneInbound),
};

constexpr JsonOption kProxyOptions[] = {Object("settings", kSettings)};
constexpr JsonOptionTable kProxy = {.sentence = kXrayExternalResource, .options = kProxyOptions};
constexpr JsonOption kWireGuardOptions[] = {Judged("settings", ComplaintAboutXrayWireGuard)};
constexpr JsonOptionTable kWireGuard = {.sentence = kXrayExternalResource,
                                        .options = kWireGuardOptions};

constexpr JsonVariant kProtocols[] = {
    {"wireguard", &kWireGuard}, {"vless", &kProxy},    {"vmess", &kProxy},
    {"trojan", &kProxy},        {"socks", &kProxy},    {"shadowsocks", &kProxy},
    {"http", &kProxy},          {"hysteria", &kProxy}, {"masque", &kProxy},
    {"freedom", &kProxy},       {"direct", &kProxy},   {"blackhole", &kProxy},
    {"block", &kProxy},         {"dns", &kProxy},      {"loopback", &kProxy},
};

constexpr JsonOption kOutboundOptions[] = {
    // The rules and the service choose the proxy by these two.
    Judged("protocol", ComplaintAboutXrayProtocol, kXrayNoProxy),
    {.name = "tag", .sentence = kXrayNoProxy},
    Plain("sendThrough"),
    Object("streamSettings", kXrayStreamOptions),
    Plain("proxySettings"),
    Plain("mux"),
    Plain("targetStrategy"),
    Plain("domainStrategy"),
};

}  // namespace

constinit const JsonOptionTable kXrayWireGuardOptions = {.sentence = kXrayNotOneInbound,
                                                         .options = kWireGuardSettingsOptions};
constinit const JsonOptionTable kXrayOutboundOptions = {.sentence = kXrayExternalResource,
                                                        .options = kOutboundOptions,
                                                        .parts = kNotesPart,
                                                        .selector = "protocol",
                                                        .variants = kProtocols};

}  // namespace quorvex::linux_service
