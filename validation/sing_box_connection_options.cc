// SPDX-License-Identifier: Apache-2.0
#include "validation/sing_box_options.h"
#include "validation/sing_box_sentences.h"

namespace quorvex::linux_service {
namespace {

constexpr JsonOption kResolverOptions[] = {
    Plain("server"),      Plain("strategy"),      Plain("disable_cache"),
    Plain("rewrite_ttl"), Plain("client_subnet"),
};

constexpr JsonOption kServerOptions[] = {Plain("server"), Plain("server_port")};

constexpr JsonOption kDialOptions[] = {
    Plain("detour"),
    Forbidden("bind_interface", kSingBoxNoAutoRoute),
    Plain("inet4_bind_address"),
    Plain("inet6_bind_address"),
    Forbidden("protect_path", kSingBoxExternalResource),
    Plain("routing_mark"),
    Plain("reuse_addr"),
    Forbidden("netns", kSingBoxExternalResource),
    Plain("connect_timeout"),
    Plain("tcp_fast_open"),
    Plain("tcp_multi_path"),
    Plain("udp_fragment"),
    Object("domain_resolver", kSingBoxResolver),
    Plain("network_strategy"),
    Plain("network_type"),
    Plain("fallback_network_type"),
    Plain("fallback_delay"),
    Plain("domain_strategy"),
};

constexpr JsonOption kEchOptions[] = {
    Plain("enabled"),
    Plain("config"),
    Forbidden("config_path", kSingBoxFileMember),
    Plain("pq_signature_schemes_enabled"),
    Plain("dynamic_record_sizing_disabled"),
};
constexpr JsonOptionTable kEch = {kSingBoxFileMember, kEchOptions};

constexpr JsonOption kUtlsOptions[] = {Plain("enabled"), Plain("fingerprint")};
constexpr JsonOptionTable kUtls = {kSingBoxFileMember, kUtlsOptions};

constexpr JsonOption kRealityOptions[] = {Plain("enabled"), Plain("public_key"), Plain("short_id")};
constexpr JsonOptionTable kReality = {kSingBoxFileMember, kRealityOptions};

constexpr JsonOption kTlsOptions[] = {
    Plain("enabled"),
    Plain("disable_sni"),
    Plain("server_name"),
    Plain("insecure"),
    Plain("alpn"),
    Plain("min_version"),
    Plain("max_version"),
    Plain("cipher_suites"),
    Plain("certificate"),
    Forbidden("certificate_path", kSingBoxFileMember),
    Plain("fragment"),
    Plain("fragment_fallback_delay"),
    Plain("record_fragment"),
    Object("ech", kEch),
    Object("utls", kUtls),
    Object("reality", kReality),
};

}  // namespace

constexpr JsonOptionTable kSingBoxResolver = {kSingBoxNoDns, kResolverOptions};
constexpr JsonOptionTable kSingBoxServer = {kSingBoxNoProxy, kServerOptions};
constexpr JsonOptionTable kSingBoxDial = {kSingBoxNoProxy, kDialOptions};
constexpr JsonOptionTable kSingBoxTls = {kSingBoxFileMember, kTlsOptions};

}  // namespace quorvex::linux_service
