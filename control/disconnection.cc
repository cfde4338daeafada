// SPDX-License-Identifier: Apache-2.0
#include "control/disconnection.h"

#include "control/exit_codes.h"

namespace quorvex::control {
namespace {

constexpr const char* kServiceEnded = "The service ended before the tunnel was down.";

Snapshot SnapshotIn(GVariant* reply) {
  const GVariantPtr dictionary(g_variant_get_child_value(reply, 0));
  return ReadSnapshot(dictionary.get());
}

}  // namespace

// The final stage may have been published before the service's answer arrives, so it is asked for
// once behind it.
void Disconnection::Begin(Conversation* conversation) {
  begun = true;
  conversation->Call("Disconnect", nullptr, [this, conversation](GVariant*, const auto& refusal) {
    if (refusal) {
      Finish(refusal);
      return;
    }
    following = true;
    conversation->Call("GetConnectionSnapshot", nullptr,
                       [this](GVariant* reply, const auto& failure) {
                         if (failure) {
                           Finish(failure);
                         } else {
                           Take(SnapshotIn(reply));
                         }
                       });
  });
}

void Disconnection::Take(const Snapshot& snapshot) {
  if (!following) {
    return;
  }
  if (snapshot.stage == "disconnected") {
    Finish({});
  } else if (snapshot.stage == "error") {
    Finish(Failure{kExitFailure, snapshot.lastError, ""});
  }
}

void Disconnection::TakeEndOfService() {
  if (begun) {
    Finish(Failure{kExitUnreachable, kServiceEnded, ""});
  }
}

void Disconnection::Finish(const std::optional<Failure>& failure) {
  if (!over) {
    over = true;
    done(failure);
  }
}

}  // namespace quorvex::control
