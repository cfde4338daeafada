// SPDX-License-Identifier: Apache-2.0
#include <glib.h>

#include <functional>
#include <string>

#include "control/commands.h"
#include "control/conversation.h"
#include "control/exit_codes.h"
#include "control/json_text.h"
#include "control/output.h"
#include "control/watch_events.h"

namespace quorvex::control {
namespace {

// One run of the command.
class WatchRun {
 public:
  WatchRun(BusPtr bus, bool inJson)
      : json(inJson),
        conversation(
            std::move(bus), Conversation::Start::kNever,
            {.snapshot = [this](const Snapshot& snapshot) { Show(StageEvent(snapshot, Now())); },
             .log = [this](const LogEntry& entry) { Show(LogEvent(entry)); },
             .networkPath = [this](const NetworkPath& path) { ShowNetwork(path); },
             .appeared = [this] { Welcome(); },
             .vanished = [this] { Part(); },
             .interrupted = [this](int) { conversation.Quit(); }}) {}

  // False when the bus has ended.
  bool Run() {
    conversation.Run();
    return !conversation.BusHasEnded();
  }

 private:
  // A service may come back; a bus that comes back does not know us any more.
  void Part() {
    Show(ServiceEvent(false, Now()));
    if (conversation.BusHasEnded()) {
      conversation.Quit();
    }
  }
  static std::int64_t Now() { return g_get_real_time() / 1000; }
  void Show(const WatchEvent& event) { Print((json ? WatchJson(event) : WatchText(event)) + "\n"); }
  // The network reports each route that comes or goes; people want to know when that matters.
  void ShowNetwork(const NetworkPath& path) {
    const WatchEvent event = NetworkEvent(path);
    if (json || event.word != network) {
      Show(event);
    }
    network = event.word;
  }
  // How things stand, as what comes from now on are changes to it.
  void Welcome() {
    Show(ServiceEvent(true, Now()));
    network.clear();
    Ask("GetConnectionSnapshot",
        [this](GVariant* dictionary) { Show(StageEvent(ReadSnapshot(dictionary), Now())); });
    Ask("GetNetworkPath",
        [this](GVariant* dictionary) { ShowNetwork(ReadNetworkPath(dictionary)); });
  }
  void Ask(const char* method, const std::function<void(GVariant* dictionary)>& hear) {
    // A service that goes meanwhile is shown by its vanishing.
    conversation.Call(method, nullptr, [hear](GVariant* reply, const auto& failure) {
      if (!failure) {
        hear(GVariantPtr(g_variant_get_child_value(reply, 0)).get());
      }
    });
  }

  bool json;
  // What was last shown of the network.
  std::string network;
  Conversation conversation;
};

}  // namespace

int RunWatch(const CommandLine& line) {
  Failure failure;
  BusPtr bus = OpenBus(&failure);
  if (bus == nullptr) {
    return Report(failure, line.json);
  }
  EndWithReader();
  if (WatchRun(std::move(bus), line.json).Run()) {
    return kExitOk;
  }
  return Report({kExitUnreachable, "The system bus has ended.", ""}, line.json);
}

}  // namespace quorvex::control
