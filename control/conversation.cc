// SPDX-License-Identifier: Apache-2.0
#include "control/conversation.h"

#include <glib-unix.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "runtime/constants.h"

namespace quorvex::control {
namespace {

// A call on its way; it outlives the conversation only to be dropped.
struct PendingCall {
  GObjectPtr<GCancellable> ended;
  Conversation::Answer answer;
};

void CallDone(GObject* bus, GAsyncResult* result, gpointer data) {
  const std::unique_ptr<PendingCall> call(static_cast<PendingCall*>(data));
  GError* error = nullptr;
  const GVariantPtr reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error));
  std::optional<Failure> failure;
  if (reply == nullptr) {
    failure = FailureOfError(error);
    g_clear_error(&error);
  }
  if (g_cancellable_is_cancelled(call->ended.get()) == FALSE) {
    call->answer(reply.get(), failure);
  }
}

template <typename... Words>
void Tell(const std::function<void(Words...)>& handler, const std::decay_t<Words>&... words) {
  if (handler) {
    handler(words...);
  }
}

gboolean SourceReady(gpointer act) {
  return (*static_cast<std::function<bool()>*>(act))() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void DropAct(gpointer act) {
  std::unique_ptr<std::function<bool()>>(static_cast<std::function<bool()>*>(act)).reset();
}

}  // namespace

Conversation::Conversation(BusPtr openBus, Start start, Handlers wanted)
    : bus(std::move(openBus)),
      handlers(std::move(wanted)),
      loop(g_main_loop_new(nullptr, FALSE)),
      ended(g_cancellable_new()) {
  const auto flags = start == Start::kIfNeeded ? G_BUS_NAME_WATCHER_FLAGS_AUTO_START
                                               : G_BUS_NAME_WATCHER_FLAGS_NONE;
  watchId = g_bus_watch_name_on_connection(bus.get(), linux_service::kBusName, flags, OnAppeared,
                                           OnVanished, this, nullptr);
  if (handlers.interrupted) {
    for (const int number : {SIGINT, SIGTERM}) {
      Attach(g_unix_signal_source_new(number), [this, number] {
        handlers.interrupted(number);
        return true;
      });
    }
  }
}

Conversation::~Conversation() {
  g_cancellable_cancel(ended.get());
  Unsubscribe();
  g_bus_unwatch_name(watchId);
  for (const GSourcePtr& source : sources) {
    g_source_destroy(source.get());
  }
}

// By the owner's unique name: by the well-known one GLib drops what comes before it has asked the
// bus for the owner.
void Conversation::OnAppeared(GDBusConnection* bus, const char* /*name*/, const char* owner,
                              gpointer self) {
  auto* conversation = static_cast<Conversation*>(self);
  conversation->Unsubscribe();
  conversation->subscriptionId = g_dbus_connection_signal_subscribe(
      bus, owner, linux_service::kInterfaceName, nullptr, linux_service::kObjectPath, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, self, nullptr);
  Tell(conversation->handlers.appeared);
}

// Without a bus it is the bus that has ended.
void Conversation::OnVanished(GDBusConnection* bus, const char* /*name*/, gpointer self) {
  auto* conversation = static_cast<Conversation*>(self);
  conversation->busHasEnded = bus == nullptr;
  conversation->Unsubscribe();
  Tell(conversation->handlers.vanished);
}

void Conversation::OnSignal(GDBusConnection* /*bus*/, const char* /*sender*/, const char* /*path*/,
                            const char* /*interface*/, const char* signal, GVariant* parameters,
                            gpointer self) {
  if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(a{sv})")) != FALSE) {
    const GVariantPtr dictionary(g_variant_get_child_value(parameters, 0));
    static_cast<Conversation*>(self)->HearSignal(signal, dictionary.get());
  }
}

void Conversation::HearSignal(const char* signal, GVariant* dictionary) const {
  if (std::strcmp(signal, "SnapshotChanged") == 0) {
    Tell(handlers.snapshot, ReadSnapshot(dictionary));
  } else if (std::strcmp(signal, "LogEmitted") == 0) {
    Tell(handlers.log, ReadLogEntry(dictionary));
  } else if (std::strcmp(signal, "NetworkPathChanged") == 0) {
    Tell(handlers.networkPath, ReadNetworkPath(dictionary));
  }
}

void Conversation::Unsubscribe() {
  if (subscriptionId != 0) {
    g_dbus_connection_signal_unsubscribe(bus.get(), std::exchange(subscriptionId, 0U));
  }
}

void Conversation::Call(const char* method, GVariant* parameters, Answer answer) {
  auto call = std::make_unique<PendingCall>(PendingCall{
      GObjectPtr<GCancellable>(G_CANCELLABLE(g_object_ref(ended.get()))), std::move(answer)});
  g_dbus_connection_call(bus.get(), kServicePeer.name, kServicePeer.path, kServicePeer.interface,
                         method, parameters, nullptr,
                         G_DBUS_CALL_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION, kDialogPatienceMs,
                         ended.get(), CallDone, call.release());
}

void Conversation::Attach(GSource* source, std::function<bool()> act) {
  sources.emplace_back(source);
  g_source_set_callback(source, SourceReady,
                        std::make_unique<std::function<bool()>>(std::move(act)).release(), DropAct);
  g_source_attach(source, nullptr);
}

void Conversation::After(unsigned milliseconds, std::function<void()> act) {
  Attach(g_timeout_source_new(milliseconds), [act = std::move(act)] {
    act();
    return false;
  });
}

void Conversation::EverySecond(std::function<void()> act) {
  constexpr guint kSecond = 1000;
  Attach(g_timeout_source_new(kSecond), [act = std::move(act)] {
    act();
    return true;
  });
}

}  // namespace quorvex::control
