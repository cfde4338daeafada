// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_catalogue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "runtime/constants.h"

namespace quorvex::linux_service {
namespace {

struct EngineRow {
  EngineKind kind;
  const char* name;
  const char* interface;
};

constexpr std::array kEngines = {
    EngineRow{EngineKind::kSingBox, "Sing-box", kSingBoxInterface},
    EngineRow{EngineKind::kXray, "Xray", kXrayInterface},
    EngineRow{EngineKind::kWireGuard, "WireGuard", kWireGuardInterface},
    EngineRow{EngineKind::kOpenVpn, "OpenVPN", kOpenVpnInterface},
};
constexpr EngineRow kNoEngine = {EngineKind::kUnsupported, "Unsupported", ""};

struct ProtocolRow {
  std::string_view protocol;
  EngineKind engine;
};

// "xray-reality" runs on sing-box: only the literal names of Xray select Xray.
constexpr std::array kProtocols = {
    ProtocolRow{"vless", EngineKind::kSingBox},
    ProtocolRow{"vmess", EngineKind::kSingBox},
    ProtocolRow{"trojan", EngineKind::kSingBox},
    ProtocolRow{"singbox", EngineKind::kSingBox},
    ProtocolRow{"sing-box", EngineKind::kSingBox},
    ProtocolRow{"shadowsocks", EngineKind::kSingBox},
    ProtocolRow{"hysteria2", EngineKind::kSingBox},
    ProtocolRow{"tuic", EngineKind::kSingBox},
    ProtocolRow{"dravo", EngineKind::kSingBox},
    ProtocolRow{"xray-reality", EngineKind::kSingBox},
    ProtocolRow{"xray", EngineKind::kXray},
    ProtocolRow{"xray-core", EngineKind::kXray},
    ProtocolRow{"wireguard", EngineKind::kWireGuard},
    ProtocolRow{"wire-guard", EngineKind::kWireGuard},
    ProtocolRow{"wg", EngineKind::kWireGuard},
    ProtocolRow{"amneziawg", EngineKind::kWireGuard},
    ProtocolRow{"openvpn", EngineKind::kOpenVpn},
    ProtocolRow{"open-vpn", EngineKind::kOpenVpn},
    ProtocolRow{"openvpn3", EngineKind::kOpenVpn},
    ProtocolRow{"openvpn3-core", EngineKind::kOpenVpn},
    ProtocolRow{"ovpn", EngineKind::kOpenVpn},
    ProtocolRow{"openvpn-tcp", EngineKind::kOpenVpn},
    ProtocolRow{"openvpn-udp", EngineKind::kOpenVpn},
};

std::string Lowercase(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return text;
}

const EngineRow& RowFor(EngineKind kind) {
  const auto* row = std::ranges::find(kEngines, kind, &EngineRow::kind);
  return row == kEngines.end() ? kNoEngine : *row;
}

}  // namespace

EngineKind EngineForProtocol(const std::string& protocol) {
  const std::string wanted = Lowercase(protocol);
  const auto* row = std::ranges::find(kProtocols, wanted, &ProtocolRow::protocol);
  return row == kProtocols.end() ? EngineKind::kUnsupported : row->engine;
}

const char* EngineName(EngineKind kind) {
  return RowFor(kind).name;
}

const char* TunnelInterfaceFor(EngineKind kind) {
  return RowFor(kind).interface;
}

}  // namespace quorvex::linux_service
