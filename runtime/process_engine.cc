// SPDX-License-Identifier: Apache-2.0
#include "runtime/engine_runtime.h"

namespace quorvex::linux_service {
namespace {

constexpr char kNotInThisVersion[] = " tunnels cannot be started by this version of the service.";

}  // namespace

// sing-box, Xray and OpenVPN are validated, listed and looked for, but this version has no launch
// for them: the request fails with a sentence before anything is written or run.
bool EngineRuntime::StartProcessEngine(EngineKind engine, const std::string& /*protocol*/,
                                       const std::string& /*configuration*/,
                                       const std::function<bool()>& /*cancelled*/,
                                       std::string* error) {
  *error = std::string(EngineName(engine)) + kNotInThisVersion;
  return false;
}

}  // namespace quorvex::linux_service
