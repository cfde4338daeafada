// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>
#include <string_view>

#include "validation/sing_box_options.h"
#include "validation/sing_box_sentences.h"

namespace quorvex::linux_service {
namespace {

// Takes a name or a value off a plugin's options, up to one of `ends`; a backslash makes the byte
// behind it plain.
std::string TakePluginText(std::string_view* rest, std::string_view ends) {
  std::string text;
  while (!rest->empty() && ends.find(rest->front()) == std::string_view::npos) {
    if (rest->front() == '\\') {
      rest->remove_prefix(1);
    }
    text.append(rest->substr(0, 1));
    rest->remove_prefix(std::min<std::size_t>(1, rest->size()));
  }
  return text;
}

// The v2ray plugin, which is built in, reads its certificate from the file that "cert" names.
const char* JudgePluginOptions(JsonNode* value) {
  const char* text = JsonTextOf(value);
  std::string_view rest = text == nullptr ? "" : text;
  while (!rest.empty()) {
    if (TakePluginText(&rest, "=;") == "cert") {
      return kSingBoxFileMember;
    }
    if (rest.starts_with('=')) {
      rest.remove_prefix(1);
      TakePluginText(&rest, ";");
    }
    rest.remove_prefix(std::min<std::size_t>(1, rest.size()));
  }
  return nullptr;
}

// Of an object whose options are all its own.
constexpr JsonOptionTable Only(std::span<const JsonOption> options) {
  return {kSingBoxNoProxy, options};
}

constexpr JsonOption kBrutalOptions[] = {Plain("enabled"), Plain("up_mbps"), Plain("down_mbps")};
constexpr JsonOptionTable kBrutal = Only(kBrutalOptions);

constexpr JsonOption kMultiplexOptions[] = {
    Plain("enabled"),     Plain("protocol"), Plain("max_connections"),  Plain("min_streams"),
    Plain("max_streams"), Plain("padding"),  Object("brutal", kBrutal),
};
constexpr JsonOptionTable kMultiplex = Only(kMultiplexOptions);

constexpr JsonOption kUdpOverTcpOptions[] = {Plain("enabled"), Plain("version")};
constexpr JsonOptionTable kUdpOverTcp = Only(kUdpOverTcpOptions);

// Header names are the user's own.
constexpr JsonOption kHttpOptions[] = {
    Plain("host"),   Plain("path"),         Plain("method"),
    Free("headers"), Plain("idle_timeout"), Plain("ping_timeout"),
};
constexpr JsonOptionTable kHttp = Only(kHttpOptions);

constexpr JsonOption kWebSocketOptions[] = {Plain("path"), Free("headers"), Plain("max_early_data"),
                                            Plain("early_data_header_name")};
constexpr JsonOptionTable kWebSocket = Only(kWebSocketOptions);

constexpr JsonOption kGrpcOptions[] = {Plain("service_name"), Plain("idle_timeout"),
                                       Plain("ping_timeout"), Plain("permit_without_stream")};
constexpr JsonOptionTable kGrpc = Only(kGrpcOptions);

constexpr JsonOption kHttpUpgradeOptions[] = {Plain("host"), Plain("path"), Free("headers")};
constexpr JsonOptionTable kHttpUpgrade = Only(kHttpUpgradeOptions);

constexpr JsonOptionTable kNoOptions = Only({});

constexpr JsonVariant kTransports[] = {{"http", &kHttp},
                                       {"ws", &kWebSocket},
                                       {"quic", &kNoOptions},
                                       {"grpc", &kGrpc},
                                       {"httpupgrade", &kHttpUpgrade}};
constexpr JsonOption kTransportOptions[] = {Plain("type")};
constexpr JsonOptionTable kTransport = {
    kSingBoxNoProxy, kTransportOptions, {}, "type", kTransports};

// What all connections to one server have in common.
constexpr const JsonOptionTable* kToServer[] = {&kSingBoxServer, &kSingBoxDial};

constexpr JsonOptionTable ToServer(std::span<const JsonOption> options) {
  return {kSingBoxNoProxy, options, kToServer};
}

constexpr JsonOption kDirectOptions[] = {Plain("override_address"), Plain("override_port"),
                                         Plain("proxy_protocol")};
constexpr const JsonOptionTable* kDialOnly[] = {&kSingBoxDial};
constexpr JsonOptionTable kDirect = {kSingBoxNoProxy, kDirectOptions, kDialOnly};

constexpr JsonOption kSocksOptions[] = {Plain("version"), Plain("username"), Plain("password"),
                                        Plain("network"), Object("udp_over_tcp", kUdpOverTcp)};
constexpr JsonOptionTable kSocks = ToServer(kSocksOptions);

constexpr JsonOption kHttpProxyOptions[] = {Plain("username"), Plain("password"),
                                            Object("tls", kSingBoxTls), Plain("path"),
                                            Free("headers")};
constexpr JsonOptionTable kHttpProxy = ToServer(kHttpProxyOptions);

constexpr JsonOption kShadowsocksOptions[] = {
    Plain("method"),
    Plain("password"),
    Plain("plugin"),
    Judged("plugin_opts", JudgePluginOptions),
    Plain("network"),
    Object("udp_over_tcp", kUdpOverTcp),
    Object("multiplex", kMultiplex),
};
constexpr JsonOptionTable kShadowsocks = ToServer(kShadowsocksOptions);

constexpr JsonOption kVmessOptions[] = {
    Plain("uuid"),
    Plain("security"),
    Plain("alter_id"),
    Plain("global_padding"),
    Plain("authenticated_length"),
    Plain("network"),
    Object("tls", kSingBoxTls),
    Plain("packet_encoding"),
    Object("multiplex", kMultiplex),
    Object("transport", kTransport),
};
constexpr JsonOptionTable kVmess = ToServer(kVmessOptions);

constexpr JsonOption kVlessOptions[] = {
    Plain("uuid"),
    Plain("flow"),
    Plain("network"),
    Object("tls", kSingBoxTls),
    Object("multiplex", kMultiplex),
    Object("transport", kTransport),
    Plain("packet_encoding"),
};
constexpr JsonOptionTable kVless = ToServer(kVlessOptions);

constexpr JsonOption kTrojanOptions[] = {
    Plain("password"),
    Plain("network"),
    Object("tls", kSingBoxTls),
    Object("multiplex", kMultiplex),
    Object("transport", kTransport),
};
constexpr JsonOptionTable kTrojan = ToServer(kTrojanOptions);

constexpr JsonOption kHysteriaOptions[] = {
    Plain("server_ports"), Plain("hop_interval"),
    Plain("up"),           Plain("up_mbps"),
    Plain("down"),         Plain("down_mbps"),
    Plain("obfs"),         Plain("auth"),
    Plain("auth_str"),     Plain("recv_window_conn"),
    Plain("recv_window"),  Plain("disable_mtu_discovery"),
    Plain("network"),      Object("tls", kSingBoxTls),
};
constexpr JsonOptionTable kHysteria = ToServer(kHysteriaOptions);

constexpr JsonOption kObfsOptions[] = {Plain("type"), Plain("password")};
constexpr JsonOptionTable kObfs = Only(kObfsOptions);

constexpr JsonOption kHysteria2Options[] = {
    Plain("server_ports"), Plain("hop_interval"), Plain("up_mbps"),
    Plain("down_mbps"),    Object("obfs", kObfs), Plain("password"),
    Plain("network"),      Plain("brutal_debug"), Object("tls", kSingBoxTls),
};
constexpr JsonOptionTable kHysteria2 = ToServer(kHysteria2Options);

constexpr JsonOption kTuicOptions[] = {
    Plain("uuid"),           Plain("password"),        Plain("congestion_control"),
    Plain("udp_relay_mode"), Plain("udp_over_stream"), Plain("zero_rtt_handshake"),
    Plain("heartbeat"),      Plain("network"),         Object("tls", kSingBoxTls),
};
constexpr JsonOptionTable kTuic = ToServer(kTuicOptions);

constexpr JsonOption kShadowTlsOptions[] = {Plain("version"), Plain("password"),
                                            Object("tls", kSingBoxTls)};
constexpr JsonOptionTable kShadowTls = ToServer(kShadowTlsOptions);

constexpr JsonOption kAnyTlsOptions[] = {Object("tls", kSingBoxTls), Plain("password"),
                                         Plain("idle_session_check_interval"),
                                         Plain("idle_session_timeout"), Plain("min_idle_session")};
constexpr JsonOptionTable kAnyTls = ToServer(kAnyTlsOptions);

constexpr JsonOption kSshOptions[] = {
    Plain("user"),
    Plain("password"),
    Plain("private_key"),
    Forbidden("private_key_path", kSingBoxFileMember),
    Plain("private_key_passphrase"),
    Plain("host_key"),
    Plain("host_key_algorithms"),
    Plain("client_version"),
};
constexpr JsonOptionTable kSsh = ToServer(kSshOptions);

constexpr JsonOption kOldWireGuardPeerOptions[] = {Plain("public_key"), Plain("pre_shared_key"),
                                                   Plain("allowed_ips"), Plain("reserved")};
constexpr const JsonOptionTable* kServerOnly[] = {&kSingBoxServer};
constexpr JsonOptionTable kOldWireGuardPeer = {kSingBoxNoProxy, kOldWireGuardPeerOptions,
                                               kServerOnly};
constexpr JsonOption kOldWireGuardOptions[] = {
    Forbidden("system_interface", kSingBoxNotOneInbound),
    Plain("gso"),
    Forbidden("interface_name", kSingBoxNotOneInbound),
    Plain("local_address"),
    Plain("private_key"),
    Objects("peers", kOldWireGuardPeer),
    Plain("peer_public_key"),
    Plain("pre_shared_key"),
    Plain("reserved"),
    Plain("workers"),
    Plain("mtu"),
    Plain("network"),
};
constexpr JsonOptionTable kOldWireGuard = ToServer(kOldWireGuardOptions);

constexpr JsonOption kSelectorOptions[] = {Plain("outbounds"), Plain("default"),
                                           Plain("interrupt_exist_connections")};
constexpr JsonOptionTable kSelector = Only(kSelectorOptions);

constexpr JsonOption kUrlTestOptions[] = {
    Plain("outbounds"), Plain("url"),          Plain("interval"),
    Plain("tolerance"), Plain("idle_timeout"), Plain("interrupt_exist_connections")};
constexpr JsonOptionTable kUrlTest = Only(kUrlTestOptions);

// Tor is a program of the profile's choice, with arguments and a folder.
constexpr JsonVariant kOutboundTypes[] = {
    {"direct", &kDirect},
    {"block", &kNoOptions},
    {"dns", &kNoOptions},
    {"selector", &kSelector},
    {"urltest", &kUrlTest},
    {"socks", &kSocks},
    {"http", &kHttpProxy},
    {"vless", &kVless},
    {"vmess", &kVmess},
    {"trojan", &kTrojan},
    {"hysteria", &kHysteria},
    {"hysteria2", &kHysteria2},
    {"tuic", &kTuic},
    {"shadowtls", &kShadowTls},
    {"shadowsocks", &kShadowsocks},
    {"anytls", &kAnyTls},
    {"ssh", &kSsh},
    {"wireguard", &kOldWireGuard},
    {"tor", nullptr, kSingBoxExternalResource},
};
constexpr JsonOption kTypeAndTag[] = {Plain("type"), Plain("tag")};

constexpr JsonOption kWireGuardPeerOptions[] = {
    Plain("address"),        Plain("port"),        Plain("public_key"),
    Plain("pre_shared_key"), Plain("allowed_ips"), Plain("persistent_keepalive_interval"),
    Plain("reserved"),
};
constexpr JsonOptionTable kWireGuardPeer = Only(kWireGuardPeerOptions);
constexpr JsonOption kWireGuardOptions[] = {
    Forbidden("system", kSingBoxNotOneInbound),
    Forbidden("name", kSingBoxNotOneInbound),
    Plain("mtu"),
    Plain("address"),
    Plain("private_key"),
    Forbidden("listen_port", kSingBoxNotOneInbound),
    Objects("peers", kWireGuardPeer),
    Plain("udp_timeout"),
    Plain("workers"),
};
constexpr JsonOptionTable kWireGuard = {kSingBoxNoProxy, kWireGuardOptions, kDialOnly};
// Tailscale keeps its state in a folder and takes its settings from a service of its own.
constexpr JsonVariant kEndpointTypes[] = {{"wireguard", &kWireGuard},
                                          {"tailscale", nullptr, kSingBoxExternalResource}};

}  // namespace

constexpr JsonOptionTable kSingBoxOutbound = {
    kSingBoxNoProxy, kTypeAndTag, {}, "type", kOutboundTypes};
constexpr JsonOptionTable kSingBoxEndpoint = {
    kSingBoxNoProxy, kTypeAndTag, {}, "type", kEndpointTypes};

}  // namespace quorvex::linux_service
