// SPDX-License-Identifier: Apache-2.0
#include "runtime/server_hand_over.h"

#include "runtime/json_text.h"
#include "runtime/secure_clear.h"
#include "runtime/sing_box_servers.h"
#include "runtime/xray_servers.h"

namespace quorvex::linux_service {
namespace {

// What the addresses add to the text, generously.
std::size_t AddedText(const std::vector<NamedServer>& servers) {
  std::size_t size = 1024;
  for (const NamedServer& server : servers) {
    size += 4 * server.name.size() + 64 * (server.addresses.size() + 2);
  }
  return size;
}

}  // namespace

bool HandOverServers(EngineKind engine, const std::vector<NamedServer>& servers,
                     std::string* text) {
  const bool wantsServers = engine == EngineKind::kSingBox || engine == EngineKind::kXray;
  if (servers.empty() || !wantsServers) {
    return true;
  }
  const GObjectPtr<JsonParser> parser = ParseJson(*text);
  JsonObject* root = parser == nullptr ? nullptr : RootObject(parser.get());
  if (root == nullptr) {
    return false;
  }
  (engine == EngineKind::kSingBox ? HandToSingBox : HandToXray)(servers, root);
  std::string written;
  if (!WriteJson(json_parser_get_root(parser.get()), text->size() + AddedText(servers), &written)) {
    return false;
  }
  SecureClear(text);
  text->swap(written);
  return true;
}

}  // namespace quorvex::linux_service
