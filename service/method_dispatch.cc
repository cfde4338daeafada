// SPDX-License-Identifier: Apache-2.0
#include "service/method_dispatch.h"

#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "runtime/secret_traces.h"
#include "runtime/secure_clear.h"
#include "service/authorization.h"
#include "service/bus_errors.h"
#include "service/dictionaries.h"
#include "service/dictionary_builder.h"
#include "service/key_pair.h"
#include "service/network_path.h"
#include "service/service.h"
#include "service/workers.h"
#include "validation/profile_validation.h"

namespace quorvex::service_front {
namespace {

using linux_service::EngineForProtocol;
using linux_service::EngineKind;
using linux_service::EngineName;
using linux_service::SecureClear;
using linux_service::ValidateProfile;
using linux_service::ValidationResult;
using linux_service::WipeSecretTraces;

constexpr char kRuntimeMissing[] = " runtime is missing. Repair the QuorvexVPN installation.";

// One call on its way to its handler. The handler takes the invocation over by replying.
struct Call {
  Service* service;
  GVariant* parameters;
  GDBusMethodInvocation* invocation;
};

void ReplyEmpty(const Call& call) {
  g_dbus_method_invocation_return_value(call.invocation, nullptr);
}

void ReplyDictionary(const Call& call, const GVariantPtr& dictionary) {
  g_dbus_method_invocation_return_value(call.invocation,
                                        g_variant_new("(@a{sv})", dictionary.get()));
}

void HandleInitialize(const Call& call) {
  GDBusConnection* connection = call.service->connection.get();
  EmitDictionarySignal(connection, "SnapshotChanged", SnapshotVariant(call.service).get());
  EmitDictionarySignal(connection, "NetworkPathChanged", NetworkPathVariant(call.service).get());
  ReplyEmpty(call);
}

void HandleGetRuntimeInfo(const Call& call) {
  ReplyDictionary(call, RuntimeDictionary(*call.service));
}

void HandleGetCapabilities(const Call& call) {
  ReplyDictionary(call, CapabilityDictionary());
}

void HandleGetConnectionSnapshot(const Call& call) {
  ReplyDictionary(call, SnapshotVariant(call.service));
}

void HandleGetNetworkPath(const Call& call) {
  ReplyDictionary(call, NetworkPathVariant(call.service));
}

// How a client asks ahead of time: the answer is yes or no, never an error.
void HandleRequestVpnPermission(const Call& call) {
  const char* sender = g_dbus_method_invocation_get_sender(call.invocation);
  GErrorSlot error;
  const bool granted = sender != nullptr && IsAuthorized(sender, true, error.Out());
  if (error.IsSet()) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "Polkit permission request failed: %s",
          error.MessageOr(""));
  }
  g_dbus_method_invocation_return_value(call.invocation,
                                        g_variant_new("(b)", granted ? TRUE : FALSE));
}

void HandleGenerateWireGuardKeyPair(const Call& call) {
  std::string privateKey;
  std::string publicKey;
  std::string error;
  if (!GenerateWireGuardKeyPair(&privateKey, &publicKey, &error)) {
    ReturnError(call.invocation, kWireGuardUnavailable, error);
    return;
  }
  DictionaryBuilder keys;
  keys.AddString("privateKey", privateKey.c_str());
  keys.AddString("publicKey", publicKey.c_str());
  SecureClear(&privateKey);
  ReplyDictionary(call, keys.End());
}

struct Profile {
  std::string id;
  std::string protocol;
  bool killSwitch = false;
  std::string rawConfig;
};

Profile ReadProfile(GVariant* parameters) {
  GVariant* dictionary = nullptr;
  g_variant_get(parameters, "(@a{sv})", &dictionary);
  const GVariantPtr owned(dictionary);
  Profile profile;
  profile.id = LookupString(dictionary, "id");
  profile.protocol = LookupString(dictionary, "protocol");
  profile.killSwitch = LookupBoolean(dictionary, "killSwitch", false);
  profile.rawConfig = LookupString(dictionary, "rawConfig");
  return profile;
}

void StartDetachedThread(const char* name, GThreadFunc function, gpointer data) {
  g_thread_unref(g_thread_new(name, function, data));
}

void StartConnect(Service* service, EngineKind engine, Profile profile) {
  const std::uint64_t generation = service->generation.fetch_add(1) + 1;
  SetSnapshot(service, "preparing", profile.id, "", 0);
  EmitLog(service, "info", std::string("Preparing ") + EngineName(engine) + " tunnel.");
  auto request = std::make_unique<ConnectRequest>();
  request->service = service;
  request->generation = generation;
  request->engine = engine;
  request->profileId = profile.id;
  request->protocol = profile.protocol;
  request->rawConfig = std::move(profile.rawConfig);
  request->killSwitch = profile.killSwitch;
  StartDetachedThread("quorvex-engine-connect", ConnectWorker, request.release());
}

// Every refusal wipes the configuration before it replies.
void RefuseConnect(const Call& call, Profile* profile, const BusError& error,
                   const std::string& message) {
  SecureClear(&profile->rawConfig);
  ReturnError(call.invocation, error, message);
}

ValidationResult Validate(const Profile& profile) {
  ValidationResult verdict = ValidateProfile(profile.id, profile.protocol, profile.rawConfig);
  WipeSecretTraces();
  return verdict;
}

void HandleConnect(const Call& call) {
  Service* service = call.service;
  Profile profile = ReadProfile(call.parameters);
  const ValidationResult verdict = Validate(profile);
  if (!verdict.valid) {
    RefuseConnect(call, &profile, kInvalidProfile, verdict.message);
    return;
  }
  const EngineKind engine = EngineForProtocol(profile.protocol);
  if (!service->runtime.IsAvailable(engine)) {
    RefuseConnect(call, &profile, kRuntimeUnavailable,
                  std::string(EngineName(engine)) + kRuntimeMissing);
    return;
  }
  std::int32_t idle = 0;
  if (!service->activeWorkers.compare_exchange_strong(idle, 1)) {
    RefuseConnect(call, &profile, kBusy, kBusy.message);
    return;
  }
  StartConnect(service, engine, std::move(profile));
  ReplyEmpty(call);
}

// Accepted even when no engine runs, and while a connect worker runs; a second request folds into
// the first.
void HandleDisconnect(const Call& call) {
  Service* service = call.service;
  service->generation.fetch_add(1);
  bool pending = false;
  if (service->disconnectPending.compare_exchange_strong(pending, true)) {
    service->activeWorkers.fetch_add(1);
    SetSnapshot(service, "disconnecting", ReadSnapshot(service).activeProfileId, "", 0);
    StartDetachedThread("quorvex-engine-disconnect", DisconnectWorker, service);
  }
  ReplyEmpty(call);
}

struct MethodRow {
  const char* name;
  bool needsAuthorization;
  void (*handle)(const Call& call);
};

constexpr std::array kMethods = {
    MethodRow{"Initialize", false, HandleInitialize},
    MethodRow{"GetRuntimeInfo", false, HandleGetRuntimeInfo},
    MethodRow{"GetCapabilities", false, HandleGetCapabilities},
    MethodRow{"GetConnectionSnapshot", false, HandleGetConnectionSnapshot},
    MethodRow{"GetNetworkPath", false, HandleGetNetworkPath},
    // Asks polkit itself and answers no instead of failing.
    MethodRow{"RequestVpnPermission", false, HandleRequestVpnPermission},
    MethodRow{"GenerateWireGuardKeyPair", true, HandleGenerateWireGuardKeyPair},
    MethodRow{"Connect", true, HandleConnect},
    MethodRow{"Disconnect", true, HandleDisconnect},
};

}  // namespace

void HandleMethodCall(GDBusConnection* /*connection*/, const char* /*sender*/,
                      const char* /*objectPath*/, const char* /*interfaceName*/,
                      const char* methodName, GVariant* parameters,
                      GDBusMethodInvocation* invocation, gpointer userData) {
  auto* service = static_cast<Service*>(userData);
  if (service->shuttingDown.load()) {
    ReturnError(invocation, kShuttingDown);
    return;
  }
  for (const MethodRow& method : kMethods) {
    if (std::strcmp(method.name, methodName) != 0) {
      continue;
    }
    if (!method.needsAuthorization || AuthorizeInvocation(invocation, true)) {
      method.handle({service, parameters, invocation});
    }
    return;
  }
  ReturnError(invocation, kUnknownMethod);
}

const GDBusInterfaceVTable kInterfaceVTable = {HandleMethodCall, nullptr, nullptr, {}};

}  // namespace quorvex::service_front
