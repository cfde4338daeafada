// SPDX-License-Identifier: Apache-2.0
#include "control/commands.h"
#include "control/exit_codes.h"
#include "control/json_text.h"
#include "control/output.h"
#include "control/profile.h"
#include "runtime/engine_catalogue.h"

namespace quorvex::control {
namespace {

void PutPlace(const std::optional<FaultPlace>& place, JsonText* json) {
  if (!place) {
    json->Null("place");
    return;
  }
  json->OpenObject("place").Integer("line", static_cast<std::int64_t>(place->line));
  if (place->column == 0) {
    json->Null("column");
  } else {
    json->Integer("column", static_cast<std::int64_t>(place->column));
  }
  json->StringOrNull("option", place->name).CloseObject();
}

std::string VerdictJson(const Profile& profile, const Verdict& verdict) {
  JsonText json;
  json.Boolean("valid", verdict.sentence.empty())
      .String("profile", profile.id)
      .String("protocol", profile.protocol)
      .String("engine",
              linux_service::EngineName(linux_service::EngineForProtocol(profile.protocol)))
      .StringOrNull("error", verdict.sentence);
  PutPlace(verdict.place, &json);
  return json.End() + "\n";
}

std::string VerdictText(const Profile& profile, const Verdict& verdict) {
  const std::string head = ProfileText(profile) + "\n";
  return verdict.sentence.empty()
             ? head + "The profile passes the rules.\n"
             : head + "Refused: " + verdict.sentence + "\n" + WhereText(verdict) + "\n";
}

}  // namespace

int RunCheck(const CommandLine& line) {
  Failure failure;
  Profile profile;
  if (!LoadProfile(line, &profile, &failure)) {
    return Report(failure, line.json);
  }
  const Verdict verdict = Judge(profile);
  Print(line.json ? VerdictJson(profile, verdict) : VerdictText(profile, verdict));
  return verdict.sentence.empty() ? kExitOk : kExitProfileRefused;
}

}  // namespace quorvex::control
