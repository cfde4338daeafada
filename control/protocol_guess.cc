// SPDX-License-Identifier: Apache-2.0
#include "control/protocol_guess.h"

#include <json-glib/json-glib.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "runtime/glib_ptr.h"
#include "validation/json_guards.h"
#include "validation/profile_validation.h"
#include "validation/rule_text.h"

namespace quorvex::control {
namespace {

using linux_service::EqualsIgnoringCase;
using linux_service::JsonArrayMember;
using linux_service::JsonMemberHasNonEmptyString;
using linux_service::JsonObjectElement;
using linux_service::TakeLine;
using linux_service::Trim;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Lines that every client profile of OpenVPN has one of, and no other format has.
constexpr std::array<std::string_view, 4> kOpenVpnWords = {"client", "remote", "dev", "tls-client"};
// Members that one of the two JSON engines has alone.
constexpr std::array kSingBoxMembers = {"route", "experimental", "ntp", "endpoints"};
constexpr std::array kXrayMembers = {"routing", "policy", "transport",
                                     "stats",   "api",    "burstObservatory"};
constexpr std::array kConnectionLists = {"outbounds", "inbounds"};

std::string_view FirstWord(std::string_view line) {
  return line.substr(0, line.find_first_of(" \t"));
}

struct LineSigns {
  bool interfaceSection = false;
  bool openVpnWord = false;
};

LineSigns ReadLines(std::string_view rest) {
  LineSigns signs;
  while (!rest.empty()) {
    const std::string_view line = Trim(TakeLine(&rest));
    signs.interfaceSection = signs.interfaceSection || EqualsIgnoringCase(line, "[interface]");
    signs.openVpnWord = signs.openVpnWord ||
                        std::ranges::find(kOpenVpnWords, FirstWord(line)) != kOpenVpnWords.end();
  }
  return signs;
}

ProtocolGuess GuessWireGuard(const std::string& rawConfig) {
  if (linux_service::WireGuardConfigRequiresAmnezia(rawConfig)) {
    return {"amneziawg", "its [Interface] section has keys that only AmneziaWG knows"};
  }
  return {"wireGuard", "the text has an [Interface] section"};
}

// How many of an array's objects say what they are by `name`.
int CountByMember(JsonObject* root, const char* list, const char* name) {
  JsonArray* array = JsonArrayMember(root, list);
  int count = 0;
  for (guint index = 0; array != nullptr && index < json_array_get_length(array); ++index) {
    count += JsonMemberHasNonEmptyString(JsonObjectElement(array, index), name) ? 1 : 0;
  }
  return count;
}

template <typename Names>
int CountMembers(JsonObject* root, const Names& names) {
  return static_cast<int>(std::ranges::count_if(
      names, [root](const char* name) { return json_object_has_member(root, name) != FALSE; }));
}

ProtocolGuess GuessByShape(JsonObject* root) {
  int singBox = CountMembers(root, kSingBoxMembers);
  int xray = CountMembers(root, kXrayMembers);
  for (const char* list : kConnectionLists) {
    singBox += CountByMember(root, list, "type");
    xray += CountByMember(root, list, "protocol");
  }
  if (singBox > 0 && xray == 0) {
    return {"singBox", "the JSON has sing-box's members"};
  }
  if (xray > 0 && singBox == 0) {
    return {"xray", "the JSON has Xray's members"};
  }
  return {"", singBox == 0 ? "the JSON has the members of neither sing-box nor Xray"
                           : "the JSON has members of both sing-box and Xray"};
}

ProtocolGuess GuessJson(const std::string& rawConfig) {
  GObjectPtr<JsonParser> parser;
  JsonObject* root = nullptr;
  if (!linux_service::ParseJsonObject(rawConfig, &parser, &root).valid) {
    return {"singBox", "the text begins as JSON, though it is none that any engine could read"};
  }
  return GuessByShape(root);
}

ProtocolGuess GuessByExtension(const std::string& path) {
  const std::string lowered = linux_service::LowercaseAscii(path);
  if (lowered.ends_with(".ovpn")) {
    return {"openVpn", "the file's name ends in .ovpn"};
  }
  return {"",
          "the text has neither an [Interface] section nor OpenVPN's directives, and is no JSON"};
}

}  // namespace

ProtocolGuess GuessProtocol(const std::string& path, const std::string& rawConfig) {
  std::string_view text = rawConfig;
  if (text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  if (Trim(text).starts_with('{')) {
    return GuessJson(rawConfig);
  }
  const LineSigns signs = ReadLines(text);
  if (signs.interfaceSection && signs.openVpnWord) {
    return {"", "the text has both an [Interface] section and OpenVPN's directives"};
  }
  if (signs.interfaceSection) {
    return GuessWireGuard(rawConfig);
  }
  if (signs.openVpnWord) {
    return {"openVpn", "the text has OpenVPN's directives"};
  }
  return GuessByExtension(path);
}

}  // namespace quorvex::control
