// SPDX-License-Identifier: Apache-2.0
#include "control/commands.h"
#include "control/conversation.h"
#include "control/disconnection.h"
#include "control/exit_codes.h"
#include "control/json_text.h"
#include "control/output.h"
#include "control/progress.h"

namespace quorvex::control {
namespace {

constexpr const char* kNoService = "The QuorvexVPN service does not answer.";
constexpr const char* kAskDoctor = "Run \"quorvexvpnctl doctor\" to see what is missing.";

// One run of the command.
class DisconnectRun {
 public:
  DisconnectRun(BusPtr bus, bool json)
      : progress(ProgressKind(json)),
        disconnection([this](const std::optional<Failure>& result) { Finish(result); }),
        conversation(std::move(bus), Conversation::Start::kIfNeeded,
                     {.snapshot = [this](const Snapshot& snapshot) { Hear(snapshot); },
                      .log = {},
                      .networkPath = {},
                      .appeared = [this] { Begin(); },
                      .vanished = [this] { LoseService(); },
                      .interrupted = {}}) {}

  // Nothing when the tunnel is down.
  std::optional<Failure> Run() {
    conversation.EverySecond([this] { progress.Tick(); });
    conversation.Run();
    progress.End();
    return failure;
  }

 private:
  void Begin() {
    if (!disconnection.HasBegun()) {
      disconnection.Begin(&conversation);
    }
  }
  void Hear(const Snapshot& snapshot) {
    if (snapshot.stage == "disconnecting") {
      progress.Stage(snapshot.stage);
    }
    disconnection.Take(snapshot);
  }
  void LoseService() {
    disconnection.TakeEndOfService();
    if (!disconnection.HasBegun()) {
      Finish(Failure{kExitUnreachable, kNoService, kAskDoctor});
    }
  }
  void Finish(const std::optional<Failure>& result) {
    failure = result;
    conversation.Quit();
  }

  Progress progress;
  std::optional<Failure> failure;
  Disconnection disconnection;
  Conversation conversation;
};

}  // namespace

int RunDisconnect(const CommandLine& line) {
  Failure noBus;
  BusPtr bus = OpenBus(&noBus);
  if (bus == nullptr) {
    return Report(noBus, line.json);
  }
  if (const auto failure = DisconnectRun(std::move(bus), line.json).Run()) {
    return Report(*failure, line.json);
  }
  Print(line.json ? JsonText().String("stage", "disconnected").End() + "\n" : "disconnected\n");
  return kExitOk;
}

}  // namespace quorvex::control
