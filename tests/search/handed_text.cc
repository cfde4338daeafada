// SPDX-License-Identifier: Apache-2.0
//
// Says what the service makes of profiles: whether it refuses one, and which text it would hand to
// the engine. For the searches, which ask for many in one process.
//
// Standard input holds records "PROTOCOL LENGTH\n" with LENGTH bytes of profile behind each. For
// each one comes "accepted LENGTH\n" with the engine's text, "refused LENGTH\n" with the rule's
// sentence, or "failed LENGTH\n" with the sentence of the rewriting that followed. With the
// argument
// --rules-only the engine's own reading is not asked: the positive control of every search.
#include <iostream>
#include <string>
#include <vector>

#include "runtime/engine_catalogue.h"
#include "runtime/openvpn_config.h"
#include "runtime/server_hand_over.h"
#include "runtime/server_look_up.h"
#include "runtime/sing_box_config.h"
#include "runtime/wireguard_config.h"
#include "runtime/xray_config.h"
#include "validation/engine_rules.h"
#include "validation/profile_validation.h"

namespace quorvex::linux_service {
namespace {

ValidationResult ValidateByRulesOnly(const std::string& protocol, const std::string& profile) {
  switch (EngineForProtocol(protocol)) {
    case EngineKind::kSingBox:
      return ValidateSingBox(protocol, profile);
    case EngineKind::kXray:
      return ValidateXray(profile);
    case EngineKind::kWireGuard:
      return ValidateWireGuard(profile);
    case EngineKind::kOpenVpn:
      return ValidateOpenVpn(profile);
    case EngineKind::kUnsupported:
      break;
  }
  return {false, "Not a protocol."};
}

bool Rewrite(const std::string& protocol, const std::string& profile, std::string* text,
             std::string* error) {
  switch (EngineForProtocol(protocol)) {
    case EngineKind::kSingBox:
      return NormalizeSingBox(protocol, profile, text, error);
    case EngineKind::kXray:
      return NormalizeXray(profile, text, error);
    case EngineKind::kWireGuard:
      *text = RewriteWireGuardConfig(profile).text;
      return true;
    case EngineKind::kOpenVpn:
      *text = RewriteOpenVpnConfig(profile);
      return true;
    case EngineKind::kUnsupported:
      break;
  }
  return false;
}

// As if every server by name had been looked up.
void HandOver(EngineKind engine, const std::string& profile, std::string* text) {
  std::vector<NamedServer> servers;
  for (const std::string& name : CollectServerNames(engine, profile)) {
    servers.push_back({name, {"198.51.100.8", "fd00::7"}});
  }
  static_cast<void>(HandOverServers(engine, servers, text));
}

void Answer(const char* verdict, const std::string& text) {
  std::cout << verdict << ' ' << text.size() << '\n' << text << std::flush;
}

void Judge(bool rulesOnly, const std::string& protocol, const std::string& profile) {
  const ValidationResult verdict = rulesOnly ? ValidateByRulesOnly(protocol, profile)
                                             : ValidateProfile("search", protocol, profile);
  if (!verdict.valid) {
    Answer("refused", verdict.message);
    return;
  }
  std::string text;
  std::string error;
  if (Rewrite(protocol, profile, &text, &error)) {
    HandOver(EngineForProtocol(protocol), profile, &text);
    Answer("accepted", text);
  } else {
    Answer("failed", error);
  }
}

// False at the end of the records.
bool ReadRecord(std::string* protocol, std::string* profile) {
  std::size_t length = 0;
  if (!(std::cin >> *protocol >> length) || std::cin.get() != '\n') {
    return false;
  }
  profile->resize(length);
  std::cin.read(profile->data(), static_cast<std::streamsize>(length));
  return std::cin.gcount() == static_cast<std::streamsize>(length);
}

}  // namespace
}  // namespace quorvex::linux_service

int main(int count, char** arguments) {
  const bool rulesOnly = count > 1 && std::string(arguments[1]) == "--rules-only";
  std::string protocol;
  std::string profile;
  while (quorvex::linux_service::ReadRecord(&protocol, &profile)) {
    quorvex::linux_service::Judge(rulesOnly, protocol, profile);
  }
  return 0;
}
