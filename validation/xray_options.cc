// SPDX-License-Identifier: Apache-2.0
#include "validation/xray_options.h"

#include "validation/xray_sentences.h"
#include "validation/xray_value_judges.h"

namespace quorvex::linux_service {
namespace {

constexpr JsonOption kNoteOptions[] = {
    Free("remarks"), Free("remark"),      Free("ps"),      Free("comment"), Free("_comment"),
    Free("note"),    Free("description"), Free("$schema"), Free("meta"),    Free("_meta"),
};

constexpr const JsonOptionTable* kNotesPart[] = {&kXrayNotes};

constexpr JsonOption kLogOptions[] = {
    ForbiddenText("access", kXrayLogFile),
    ForbiddenText("error", kXrayLogFile),
    Plain("loglevel"),
    Plain("logLevel"),
    Plain("dnsLog"),
    Plain("maskAddress"),
};
constexpr JsonOptionTable kLog = {.sentence = kXrayLogFile, .options = kLogOptions};

// Without a listener the figures can be had by a route alone, and the service sets the routes.
constexpr JsonOption kMetricsOptions[] = {Plain("tag"), Forbidden("listen", kXrayApi)};
constexpr JsonOptionTable kMetrics = {.sentence = kXrayApi, .options = kMetricsOptions};

constexpr JsonOption kRoutingOptions[] = {
    // The service writes the rules.
    Free("rules"),
    Plain("domainStrategy"),
    Plain("domainMatcher"),
    Plain("balancers"),
    // A program in Lua, run as root.
    Forbidden("script", kXrayExternalResource),
};
constexpr JsonOptionTable kRouting = {.sentence = kXrayNotOneInbound, .options = kRoutingOptions};

constexpr JsonOption kDnsOptions[] = {
    Judged("servers", ComplaintAboutXrayDnsServers),
    Judged("hosts", ComplaintAboutXrayHosts),
    Judged("clientIp", ComplaintAboutXrayAddress),
    Judged("clientIP", ComplaintAboutXrayAddress),
    Plain("tag"),
    Plain("queryStrategy"),
    Plain("disableCache"),
    Plain("serveStale"),
    Plain("serveExpiredTTL"),
    Plain("disableFallback"),
    Plain("disableFallbackIfMatch"),
    Plain("enableParallelQuery"),
    // Everybody may read the one file that this means.
    Plain("useSystemHosts"),
    Forbidden("script", kXrayExternalResource),
};
constexpr JsonOptionTable kDns = {.sentence = kXrayExternalResource, .options = kDnsOptions};

constexpr JsonOption kDnsServerOptions[] = {
    Judged("address", ComplaintAboutXrayAddress),
    Judged("clientIp", ComplaintAboutXrayAddress),
    Judged("clientIP", ComplaintAboutXrayAddress),
    Plain("id"),
    Plain("port"),
    Plain("tag"),
    Plain("skipFallback"),
    Plain("finalQuery"),
    Plain("queryStrategy"),
    Plain("timeoutMs"),
    Plain("disableCache"),
    Plain("serveStale"),
    Plain("serveExpiredTTL"),
    Judged("domains", ComplaintAboutXrayMatchers),
    Judged("expectIPs", ComplaintAboutXrayMatchers),
    Judged("expectedIPs", ComplaintAboutXrayMatchers),
    Judged("unexpectedIPs", ComplaintAboutXrayMatchers),
};

constexpr JsonOption kRootOptions[] = {
    Plain("version"),
    Object("log", kLog, kXrayLogFile),
    Object("routing", kRouting, kXrayNotOneInbound),
    Object("dns", kDns),
    Objects("inbounds", kXrayInboundOptions, kXrayNotOneInbound),
    Judged("outbounds", ComplaintAboutXrayOutbounds, kXrayNoOutbound),
    Plain("policy"),
    Forbidden("api", kXrayApi),
    Object("metrics", kMetrics, kXrayApi),
    Plain("stats"),
    // Both spellings are in use.
    Plain("fakeDns"),
    Plain("fakedns"),
    Plain("observatory"),
    Plain("burstObservatory"),
    // The far side would reach into the machine's networks.
    Forbidden("reverse", kXrayNotOneInbound),
    // Variables of the process, one of which opens a port and others of which move its files.
    Forbidden("env", kXrayExternalResource),
    // Lists that Xray fetches and writes by a timetable.
    Forbidden("geodata", kXrayExternalResource),
    // Gone since long; older versions read the transports of all connections there, sockets of the
    // machine among them.
    Forbidden("transport", kXrayExternalResource),
    Forbidden("inbound", kXrayNotOneInbound),
    Forbidden("inboundDetour", kXrayNotOneInbound),
    Forbidden("outbound", kXrayNoOutbound),
    Forbidden("outboundDetour", kXrayNoOutbound),
};

constexpr JsonOption kSniffingOptions[] = {
    Plain("enabled"),
    Plain("destOverride"),
    Judged("domainsExcluded", ComplaintAboutXrayMatchers),
    Judged("ipsExcluded", ComplaintAboutXrayMatchers),
    Plain("metadataOnly"),
    Plain("routeOnly"),
};

constexpr JsonOption kTunOptions[] = {
    // The service sets these four.
    Free("name"),
    Free("gateway"),
    Free("autoSystemRoutingTable"),
    Free("autoOutboundsInterface"),
    Plain("desc"),
    Plain("mtu"),
    Plain("MTU"),
    Plain("dns"),
    Plain("userLevel"),
    // Runs resolvectl and turns the machine's name look-up over.
    Forbidden("autoSystemDnsToGateway", kXrayNotOneInbound),
    Plain("autoSystemWfpBlockLeak"),
};
constexpr JsonOptionTable kTun = {.sentence = kXrayNotOneInbound, .options = kTunOptions};

constexpr JsonOption kInboundOptions[] = {
    {.name = "protocol", .sentence = kXrayNotTun},
    // The service sets it.
    Free("tag"),
    // A TUN device has no port: 0 is what its users write.
    Forbidden("port", kXrayNotOneInbound),
    Forbidden("listen", kXrayNotOneInbound),
    Forbidden("allocate", kXrayNotOneInbound),
    Object("settings", kTun),
    Object("streamSettings", kXrayStreamOptions),
    Object("sniffing", kXraySniffingOptions),
};

}  // namespace

constinit const JsonOptionTable kXrayNotes = {.sentence = kXrayExternalResource,
                                              .options = kNoteOptions};
constinit const JsonOptionTable kXrayDnsServerOptions = {
    .sentence = kXrayExternalResource, .options = kDnsServerOptions, .parts = kNotesPart};
constinit const JsonOptionTable kXraySniffingOptions = {.sentence = kXrayExternalResource,
                                                        .options = kSniffingOptions};
constinit const JsonOptionTable kXrayInboundOptions = {
    .sentence = kXrayNotOneInbound, .options = kInboundOptions, .parts = kNotesPart};
constinit const JsonOptionTable kXrayOptions = {
    .sentence = kXrayExternalResource, .options = kRootOptions, .parts = kNotesPart};

}  // namespace quorvex::linux_service
