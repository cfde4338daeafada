// SPDX-License-Identifier: Apache-2.0
#include "service/workers.h"

#include <memory>
#include <mutex>

#include "runtime/secret_traces.h"
#include "runtime/secure_clear.h"
#include "service/service.h"
#include "service/snapshot.h"

namespace quorvex::service_front {
namespace {

using linux_service::EngineName;
using linux_service::SecureClear;

constexpr char kUncleanSuffix[] = " The failed engine could not be fully cleaned up.";

bool IsCurrent(const ConnectRequest& request) {
  return request.service->generation.load() == request.generation;
}

bool IsCancelled(const ConnectRequest& request) {
  return request.service->shuttingDown.load() || !IsCurrent(request);
}

// The last act of every worker under the engine lock: the shutdown counts on it.
void FinishWorker(Service* service) {
  service->finishedWorkers.fetch_add(1);
  service->activeWorkers.fetch_sub(1);
  service->workersIdle.notify_all();
}

// A kill switch that cannot be applied does not fail the connection.
void ApplyKillSwitchFor(const ConnectRequest& request) {
  std::string killError;
  const auto cancelled = [&request] { return IsCancelled(request); };
  if (request.service->runtime.ApplyLeakProtection(request.rawConfig, cancelled, &killError)) {
    EmitLog(request.service, "info", "Kill switch active for this tunnel.");
  } else {
    EmitLog(request.service, "warning", "Kill switch could not be applied: " + killError);
  }
}

void FinishStarted(ConnectRequest* request, std::string* error) {
  Service* service = request->service;
  service->runtimeClean.exchange(true);
  if (!IsCurrent(*request)) {
    SecureClear(&request->rawConfig);
    service->runtimeClean.exchange(service->runtime.Stop(error));
    return;
  }
  if (request->killSwitch) {
    ApplyKillSwitchFor(*request);
  }
  SecureClear(&request->rawConfig);
  SetSnapshot(service, "connected", request->profileId, "", NowEpochMillis());
  EmitLog(service, "info", std::string(EngineName(request->engine)) + " tunnel connected.");
}

void FinishFailed(ConnectRequest* request, std::string* error) {
  Service* service = request->service;
  SecureClear(&request->rawConfig);
  std::string recoveryError;
  const bool recovered = service->runtime.Recover(&recoveryError);
  service->runtimeClean.exchange(recovered);
  if (!recovered) {
    error->append(kUncleanSuffix);
  }
  if (IsCurrent(*request)) {
    SetSnapshot(service, "error", request->profileId, *error, 0);
    EmitLog(service, "error", std::string(EngineName(request->engine)) + " connection failed.");
  }
}

void CarryOut(ConnectRequest* request) {
  Service* service = request->service;
  if (!IsCurrent(*request)) {
    SecureClear(&request->rawConfig);
    return;
  }
  SetSnapshot(service, "connecting", request->profileId, "", 0);
  std::string error;
  const bool started = service->runtime.Start(
      request->engine, request->protocol, request->rawConfig,
      [request] { return IsCancelled(*request); }, &error);
  if (started) {
    FinishStarted(request, &error);
  } else {
    FinishFailed(request, &error);
  }
}

}  // namespace

gpointer ConnectWorker(gpointer data) {
  const std::unique_ptr<ConnectRequest> request(static_cast<ConnectRequest*>(data));
  const std::scoped_lock lock(request->service->engineMutex);
  CarryOut(request.get());
  linux_service::WipeSecretTraces();
  FinishWorker(request->service);
  return nullptr;
}

gpointer DisconnectWorker(gpointer data) {
  auto* service = static_cast<Service*>(data);
  const std::scoped_lock lock(service->engineMutex);
  std::string error;
  const bool stopped = service->runtime.Stop(&error);
  service->runtimeClean.exchange(stopped);
  if (stopped) {
    SetSnapshot(service, "disconnected", "", "", 0);
    EmitLog(service, "info", "VPN tunnel disconnected.");
  } else {
    SetSnapshot(service, "error", "", error, 0);
    EmitLog(service, "error", "VPN disconnect cleanup failed.");
  }
  service->disconnectPending.exchange(false);
  FinishWorker(service);
  return nullptr;
}

gboolean PollActiveEngine(gpointer data) {
  auto* service = static_cast<Service*>(data);
  if (service->activeWorkers.load() != 0) {
    return G_SOURCE_CONTINUE;
  }
  const std::unique_lock lock(service->engineMutex, std::try_to_lock);
  if (!lock.owns_lock()) {
    return G_SOURCE_CONTINUE;
  }
  std::string error;
  if (service->runtime.PollUnexpectedExit(&error)) {
    service->runtimeClean.exchange(false);
    SetSnapshot(service, "error", ReadSnapshot(service).activeProfileId, error, 0);
    EmitLog(service, "error", "The active VPN engine stopped unexpectedly.");
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace quorvex::service_front
