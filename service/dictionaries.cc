// SPDX-License-Identifier: Apache-2.0
#include "service/dictionaries.h"

#include <algorithm>
#include <array>

#include "runtime/engine_catalogue.h"
#include "service/dictionary_builder.h"
#include "service/service.h"

namespace quorvex::service_front {
namespace {

using linux_service::EngineKind;

constexpr char kRepairSuffix[] = "; cleanup repair required";

// The spelling is part of the contract; null-terminated for GLib.
constexpr std::array<const char*, 16> kSupportedProtocols = {
    "singBox", "vless",       "vmess",        "trojan", "shadowsocks", "hysteria2",
    "tuic",    "dravo",       "xray-reality", "xray",   "wireGuard",   "amneziawg",
    "openVpn", "openvpn-tcp", "openvpn-udp",  nullptr};

constexpr std::array kAllEngines = {EngineKind::kSingBox, EngineKind::kXray, EngineKind::kWireGuard,
                                    EngineKind::kOpenVpn};

}  // namespace

std::string LookupString(GVariant* dictionary, const char* key) {
  const char* value = nullptr;
  if (dictionary == nullptr || g_variant_lookup(dictionary, key, "&s", &value) == FALSE) {
    return {};
  }
  return value;
}

bool LookupBoolean(GVariant* dictionary, const char* key, bool fallback) {
  gboolean value = fallback ? TRUE : FALSE;
  return dictionary != nullptr && g_variant_lookup(dictionary, key, "b", &value) != FALSE &&
         value != FALSE;
}

GVariantPtr RuntimeDictionary(const Service& service) {
  const bool clean = service.runtimeClean.load();
  const auto available = [&service](EngineKind engine) {
    return service.runtime.IsAvailable(engine);
  };
  DictionaryBuilder runtime;
  runtime.AddString("platformName", "linux");
  runtime.AddString("summary",
                    (service.runtime.AvailabilitySummary() + (clean ? "" : kRepairSuffix)).c_str());
  runtime.AddBoolean("nativeBridgeReady", std::ranges::all_of(kAllEngines, available) && clean);
  runtime.AddBoolean("singBoxRuntimeDetected", available(EngineKind::kSingBox));
  runtime.AddBoolean("xrayRuntimeDetected", available(EngineKind::kXray));
  runtime.AddBoolean("wireGuardRuntimeDetected", available(EngineKind::kWireGuard));
  runtime.AddBoolean("openVpnRuntimeDetected", available(EngineKind::kOpenVpn));
  return runtime.End();
}

GVariantPtr CapabilityDictionary() {
  DictionaryBuilder capabilities;
  capabilities.AddBoolean("supportsLifecycle", true);
  capabilities.AddBoolean("supportsTrafficStats", false);
  capabilities.AddBoolean("supportsSplitTunnel", false);
  capabilities.Add("supportedProtocols", g_variant_new_strv(kSupportedProtocols.data(), -1));
  return capabilities.End();
}

}  // namespace quorvex::service_front
