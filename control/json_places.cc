// SPDX-License-Identifier: Apache-2.0
//
// The fault is the innermost member without which the profile passes. Where a profile has several
// faults no single one is; then each of the root's members is put into a plain profile that passes,
// and the one that brings the sentence with it is searched in the same way.
#include "control/json_places.h"

#include <json-glib/json-glib.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "control/json_spans.h"
#include "runtime/engine_catalogue.h"
#include "runtime/glib_ptr.h"
#include "runtime/secure_clear.h"
#include "validation/engine_rules.h"
#include "validation/json_guards.h"
#include "validation/profile_validation.h"

namespace quorvex::control {
namespace {

using linux_service::EngineKind;
using linux_service::SecureClear;
using linux_service::ValidateProfile;
using linux_service::ValidationResult;

// Bytes that may be given to the rules in one search: some tenths of a second.
constexpr std::size_t kMostBytesAsked = std::size_t{4} << 20;

struct PlainMember {
  std::string_view name;
  std::string text;
};

std::vector<PlainMember> PlainProfile(const std::string& protocol) {
  if (linux_service::EngineForProtocol(protocol) == EngineKind::kXray) {
    return {{"inbounds", R"("inbounds":[{"protocol":"tun"}])"},
            {"outbounds", R"("outbounds":[{"protocol":"vless","tag":"proxy"}])"}};
  }
  std::string type = linux_service::CanonicalSingBoxProtocol(protocol);
  type = type == "singbox" || type == "sing-box" ? "vless" : type;
  return {{"dns", R"("dns":{"servers":[{"type":"https","server":"1.1.1.1"}]})"},
          {"inbounds", R"("inbounds":[{"type":"tun","auto_route":true}])"},
          {"outbounds",
           R"("outbounds":[{"type":")" + type + R"(","tag":"proxy","server":"vpn.example"}])"}};
}

// The rules, the sentence in question, and a text to ask about, which holds the profile's keys.
class Asker {
 public:
  Asker(const std::string& byProtocol, const std::string& sentence)
      : protocol(byProtocol), message(sentence) {}
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;
  ~Asker() { SecureClear(&text); }

  [[nodiscard]] bool PassesWithout(const std::string& json, const JsonSpan& span) {
    return Ask(json, span).valid;
  }
  // Whether the rules say something else without the span.
  [[nodiscard]] bool DependsOn(const std::string& json, const JsonSpan& span) {
    return Ask(json, span).message != message;
  }
  [[nodiscard]] bool Complains(const std::string& json) const {
    return ValidateProfile("profile", protocol, json).message == message;
  }
  [[nodiscard]] bool MayAskOn() const { return asked < kMostBytesAsked; }

 private:
  [[nodiscard]] ValidationResult Ask(const std::string& json, const JsonSpan& without) {
    text.assign(json);
    text.erase(without.cutBegin, without.cutEnd - without.cutBegin);
    asked += text.size();
    return ValidateProfile("profile", protocol, text);
  }

  const std::string& protocol;
  const std::string& message;
  std::string text;
  std::size_t asked = 0;
};

FaultPlace PlaceAt(const std::string& json, std::size_t offset, std::string name) {
  const std::string_view before = std::string_view(json).substr(0, offset);
  const std::size_t lineStart = before.rfind('\n') + 1;
  return {static_cast<std::size_t>(std::ranges::count(before, '\n')) + 1, offset - lineStart + 1,
          std::move(name)};
}

// The first span, of those from `from` on, without which the text passes.
const JsonSpan* SpanThatSpoils(Asker* asker, const std::string& json,
                               const std::vector<JsonSpan>& spans, std::size_t from) {
  for (const JsonSpan& span : spans) {
    if (!asker->MayAskOn()) {
      return nullptr;
    }
    if (span.begin >= from && asker->PassesWithout(json, span)) {
      return &span;
    }
  }
  return nullptr;
}

bool Contains(const JsonSpan& outer, const JsonSpan& inner) {
  return outer.begin <= inner.begin && inner.end <= outer.end;
}

// The innermost span that holds all that the sentence depends on: where two members only together
// are a fault, the object that has both. Null when that is no span of those from `from` on.
const JsonSpan* SpanInvolved(Asker* asker, const std::string& json,
                             const std::vector<JsonSpan>& spans, std::size_t from) {
  std::vector<const JsonSpan*> involved;
  for (const JsonSpan& span : spans) {
    const bool holdsOne = std::ranges::any_of(
        involved, [&span](const JsonSpan* inner) { return Contains(span, *inner); });
    if (!asker->MayAskOn()) {
      return nullptr;
    }
    if (span.begin >= from && !holdsOne && asker->DependsOn(json, span)) {
      involved.push_back(&span);
    }
  }
  const auto found = std::ranges::find_if(spans, [&involved](const JsonSpan& span) {
    return !involved.empty() && std::ranges::all_of(involved, [&span](const JsonSpan* inner) {
      return Contains(span, *inner);
    });
  });
  return found == spans.end() ? nullptr : &*found;
}

// One member of the profile, put last into a plain one.
class Transplant {
 public:
  Transplant(const std::string& protocol, std::string_view member, const std::string& path) {
    text.reserve(member.size() + 512);
    text = "{";
    for (const PlainMember& plain : PlainProfile(protocol)) {
      text.append(plain.name == path ? "" : plain.text + ",");
    }
    begin = text.size();
    text.append(member).append("}");
  }
  Transplant(const Transplant&) = delete;
  Transplant& operator=(const Transplant&) = delete;
  ~Transplant() { SecureClear(&text); }

  [[nodiscard]] const std::string& Text() const { return text; }
  // Where the member begins in the text.
  [[nodiscard]] std::size_t Begin() const { return begin; }

 private:
  std::string text;
  std::size_t begin = 0;
};

std::optional<FaultPlace> LocateInMember(Asker* asker, const std::string& protocol,
                                         const std::string& json, const JsonSpan& member) {
  const Transplant alone(protocol,
                         std::string_view(json).substr(member.begin, member.end - member.begin),
                         member.path);
  if (!asker->Complains(alone.Text())) {
    return {};
  }
  const std::vector<JsonSpan> spans = ReadJsonSpans(alone.Text());
  const JsonSpan* inner = SpanThatSpoils(asker, alone.Text(), spans, alone.Begin());
  if (inner == nullptr) {
    inner = SpanInvolved(asker, alone.Text(), spans, alone.Begin());
  }

  if (inner == nullptr) {
    return PlaceAt(json, member.begin, member.path);
  }
  return PlaceAt(json, member.begin + (inner->begin - alone.Begin()), inner->path);
}

std::optional<FaultPlace> LocateInTree(const std::string& protocol, const std::string& json,
                                       const std::string& message) {
  const std::vector<JsonSpan> spans = ReadJsonSpans(json);
  Asker whole(protocol, message);
  if (const JsonSpan* span = SpanThatSpoils(&whole, json, spans, 0)) {
    return PlaceAt(json, span->begin, span->path);
  }
  Asker parts(protocol, message);
  for (const JsonSpan& span : spans) {
    if (span.depth != 1) {
      continue;
    }
    if (auto place = LocateInMember(&parts, protocol, json, span)) {
      return place;
    }
  }
  return {};
}

void NotePlace(JsonParser* parser, gpointer /*error*/, gpointer data) {
  auto* place = static_cast<FaultPlace*>(data);
  place->line = json_parser_get_current_line(parser);
  place->column = json_parser_get_current_pos(parser) + 1;
}

// Where the parser gave up; nothing when the parser itself is content.
std::optional<FaultPlace> LocateBrokenJson(const std::string& json) {
  const GObjectPtr<JsonParser> parser(json_parser_new());
  FaultPlace place;
  g_signal_connect(parser.get(), "error", G_CALLBACK(NotePlace), &place);
  if (json_parser_load_from_data(parser.get(), json.data(), static_cast<gssize>(json.size()),
                                 nullptr) != FALSE ||
      place.line == 0) {
    return {};
  }
  return place;
}

}  // namespace

std::optional<FaultPlace> LocateInJson(const std::string& protocol, const std::string& rawConfig,
                                       const std::string& message) {
  if (message == linux_service::kJsonMalformed) {
    if (auto place = LocateBrokenJson(rawConfig)) {
      return place;
    }
  }
  return LocateInTree(protocol, rawConfig, message);
}

}  // namespace quorvex::control
