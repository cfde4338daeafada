// SPDX-License-Identifier: Apache-2.0
#include "validation/sing_box_options.h"

#include "validation/sing_box_sentences.h"

namespace quorvex::linux_service {
namespace {

constexpr JsonOption kLogOptions[] = {
    Plain("disabled"),
    Plain("level"),
    ForbiddenText("output", kSingBoxLogFile),
    Plain("timestamp"),
};
constexpr JsonOptionTable kLog = {kSingBoxLogFile, kLogOptions};

// What a rule compares a connection or a question with: names of files and processes among them
// are only compared.
constexpr JsonOption kMatchOptions[] = {
    Plain("inbound"),
    Plain("ip_version"),
    Plain("query_type"),
    Plain("network"),
    Plain("auth_user"),
    Plain("protocol"),
    Plain("domain"),
    Plain("domain_suffix"),
    Plain("domain_keyword"),
    Plain("domain_regex"),
    Plain("geosite"),
    Plain("source_geoip"),
    Plain("geoip"),
    Plain("ip_cidr"),
    Plain("ip_is_private"),
    Plain("ip_accept_any"),
    Plain("source_ip_cidr"),
    Plain("source_ip_is_private"),
    Plain("source_port"),
    Plain("source_port_range"),
    Plain("port"),
    Plain("port_range"),
    Plain("process_name"),
    Plain("process_path"),
    Plain("process_path_regex"),
    Plain("package_name"),
    Plain("user"),
    Plain("user_id"),
    Plain("outbound"),
    Plain("clash_mode"),
    Plain("network_type"),
    Plain("network_is_expensive"),
    Plain("network_is_constrained"),
    Plain("wifi_ssid"),
    Plain("wifi_bssid"),
    Plain("rule_set"),
    Plain("rule_set_ip_cidr_match_source"),
    Plain("rule_set_ip_cidr_accept_empty"),
    Plain("rule_set_ipcidr_match_source"),
    Plain("invert"),
};

// What a DNS rule does with a question it matches.
constexpr JsonOption kDnsActionOptions[] = {
    Plain("type"),     Plain("mode"),          Plain("action"),      Plain("server"),
    Plain("strategy"), Plain("disable_cache"), Plain("rewrite_ttl"), Plain("client_subnet"),
    Plain("method"),   Plain("no_drop"),       Plain("rcode"),       Plain("answer"),
    Plain("ns"),       Plain("extra"),
};
constexpr JsonOptionTable kMatch = {kSingBoxNoDns, kMatchOptions};
constexpr JsonOptionTable kDnsAction = {kSingBoxNoDns, kDnsActionOptions};
constexpr const JsonOptionTable* kDnsRuleParts[] = {&kMatch, &kDnsAction};

// A logical rule holds rules of the same kind.
struct DnsRule {
  static const JsonOptionTable kTable;
  static constexpr JsonOption kOptions[] = {Objects("rules", kTable)};
};
constexpr JsonOptionTable DnsRule::kTable = {kSingBoxNoDns, kOptions, kDnsRuleParts};

constexpr JsonOption kDnsServerOptions[] = {
    Plain("type"), Plain("tag"),    Free("detour"),  Object("tls", kSingBoxTls),
    Plain("path"), Plain("method"), Free("headers"),
};
constexpr const JsonOptionTable* kToServer[] = {&kSingBoxServer, &kSingBoxDial};
constexpr JsonOptionTable kDnsServer = {kSingBoxDnsNotRemote, kDnsServerOptions, kToServer};

constexpr JsonOption kFakeIpOptions[] = {Plain("enabled"), Plain("inet4_range"),
                                         Plain("inet6_range")};
constexpr JsonOptionTable kFakeIp = {kSingBoxNoDns, kFakeIpOptions};

constexpr JsonOption kDnsOptions[] = {
    Objects("servers", kDnsServer),
    Objects("rules", DnsRule::kTable),
    Plain("final"),
    Plain("reverse_mapping"),
    Plain("strategy"),
    Plain("disable_cache"),
    Plain("disable_expire"),
    Plain("independent_cache"),
    Plain("cache_capacity"),
    Plain("client_subnet"),
    Object("fakeip", kFakeIp),
};
constexpr JsonOptionTable kDns = {kSingBoxNoDns, kDnsOptions};

constexpr JsonOption kHttpProxyOptions[] = {Forbidden("enabled", kSingBoxBadInbound),
                                            Plain("server"), Plain("server_port"),
                                            Plain("bypass_domain"), Plain("match_domain")};
constexpr JsonOptionTable kHttpProxy = {kSingBoxBadInbound, kHttpProxyOptions};
constexpr JsonOption kPlatformOptions[] = {Object("http_proxy", kHttpProxy)};
constexpr JsonOptionTable kPlatform = {kSingBoxBadInbound, kPlatformOptions};

// What is free here is fixed or removed by the service.
constexpr JsonOption kTunOptions[] = {
    Plain("type"),
    Free("tag"),
    Free("interface_name"),
    Free("address"),
    Free("auto_route"),
    Free("strict_route"),
    Free("auto_redirect"),
    Free("iproute2_table_index"),
    Free("iproute2_rule_index"),
    Free("route_address"),
    Free("inet4_route_address"),
    Free("inet6_route_address"),
    Free("route_exclude_address"),
    Free("inet4_route_exclude_address"),
    Free("inet6_route_exclude_address"),
    Free("route_address_set"),
    Free("route_exclude_address_set"),
    Free("include_interface"),
    Free("exclude_interface"),
    Free("include_uid"),
    Free("include_uid_range"),
    Free("exclude_uid"),
    Free("exclude_uid_range"),
    Free("include_package"),
    Free("exclude_package"),
    Free("include_android_user"),
    Free("include_mac_address"),
    Free("exclude_mac_address"),
    Free("netns"),
    Plain("mtu"),
    Plain("auto_redirect_input_mark"),
    Plain("auto_redirect_output_mark"),
    Forbidden("auto_redirect_iproute2_fallback_rule_index", kSingBoxBadInbound),
    Plain("loopback_address"),
    Plain("udp_timeout"),
    Plain("stack"),
    Object("platform", kPlatform),
    Plain("sniff"),
    Plain("sniff_override_destination"),
    Plain("sniff_timeout"),
    Plain("domain_strategy"),
    Plain("udp_disable_domain_unmapping"),
    Plain("detour"),
    Plain("gso"),
    Forbidden("inet4_address", kSingBoxBadInbound),
    Forbidden("inet6_address", kSingBoxBadInbound),
    Plain("endpoint_independent_nat"),
};
constexpr JsonOptionTable kTun = {kSingBoxBadInbound, kTunOptions};

constexpr JsonOption kGeoOptions[] = {
    Forbidden("path", kSingBoxExternalResource),
    Forbidden("download_url", kSingBoxExternalResource),
    Plain("download_detour"),
};
constexpr JsonOptionTable kGeo = {kSingBoxExternalResource, kGeoOptions};

// A rule set's own rules are plain comparisons.
struct HeadlessRule {
  static const JsonOptionTable kTable;
  static constexpr JsonOption kOptions[] = {Plain("type"), Plain("mode"), Objects("rules", kTable)};
};
constexpr const JsonOptionTable* kHeadlessRuleParts[] = {&kMatch};
constexpr JsonOptionTable HeadlessRule::kTable = {kSingBoxExternalResource, kOptions,
                                                  kHeadlessRuleParts};

constexpr JsonOption kInlineSetOptions[] = {Objects("rules", HeadlessRule::kTable)};
constexpr JsonOptionTable kInlineSet = {kSingBoxExternalResource, kInlineSetOptions};
constexpr JsonOption kLocalSetOptions[] = {Forbidden("path", kSingBoxExternalResource)};
constexpr JsonOptionTable kLocalSet = {kSingBoxExternalResource, kLocalSetOptions};
constexpr JsonOption kRemoteSetOptions[] = {
    Forbidden("url", kSingBoxExternalResource),
    Plain("download_detour"),
    Plain("update_interval"),
};
constexpr JsonOptionTable kRemoteSet = {kSingBoxExternalResource, kRemoteSetOptions};
constexpr JsonVariant kRuleSetTypes[] = {
    {"", &kInlineSet}, {"inline", &kInlineSet}, {"local", &kLocalSet}, {"remote", &kRemoteSet}};
constexpr JsonOption kRuleSetOptions[] = {Plain("type"), Plain("tag"), Plain("format")};
constexpr JsonOptionTable kRuleSet = {
    kSingBoxExternalResource, kRuleSetOptions, {}, "type", kRuleSetTypes};

constexpr JsonOption kRouteOptions[] = {
    Free("auto_detect_interface"),
    Free("final"),
    Free("rules"),
    Object("geoip", kGeo, kSingBoxExternalResource),
    Object("geosite", kGeo, kSingBoxExternalResource),
    Objects("rule_set", kRuleSet, kSingBoxExternalResource),
    Plain("find_process"),
    Plain("override_android_vpn"),
    Forbidden("default_interface", kSingBoxNoAutoRoute),
    Plain("default_mark"),
    Object("default_domain_resolver", kSingBoxResolver),
    Plain("default_network_strategy"),
    Plain("default_network_type"),
    Plain("default_fallback_network_type"),
    Plain("default_fallback_delay"),
};
constexpr JsonOptionTable kRoute = {kSingBoxNoAutoRoute, kRouteOptions};

constexpr JsonOption kNtpOptions[] = {
    Plain("enabled"),
    Plain("interval"),
    Forbidden("write_to_system", kSingBoxExternalResource),
};
constexpr JsonOptionTable kNtp = {kSingBoxExternalResource, kNtpOptions, kToServer};

constexpr JsonOption kCertificateOptions[] = {
    Plain("store"),
    Plain("certificate"),
    Forbidden("certificate_path", kSingBoxFileMember),
    Forbidden("certificate_directory_path", kSingBoxFileMember),
};
constexpr JsonOptionTable kCertificate = {kSingBoxFileMember, kCertificateOptions};

constexpr JsonOption kRootOptions[] = {
    Plain("$schema"),
    Object("log", kLog, kSingBoxLogFile),
    Object("dns", kDns, kSingBoxNoDns),
    Object("ntp", kNtp, kSingBoxExternalResource),
    Object("certificate", kCertificate, kSingBoxFileMember),
    Objects("endpoints", kSingBoxEndpoint, kSingBoxNoOutbound),
    Objects("inbounds", kTun, kSingBoxNotOneInbound),
    Objects("outbounds", kSingBoxOutbound, kSingBoxNoOutbound),
    Object("route", kRoute, kSingBoxNoAutoRoute),
    Forbidden("services", kSingBoxExperimental),
    Forbidden("experimental", kSingBoxExperimental),
};

}  // namespace

constexpr JsonOptionTable kSingBoxOptions = {kSingBoxExternalResource, kRootOptions};

}  // namespace quorvex::linux_service
