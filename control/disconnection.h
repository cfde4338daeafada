// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <utility>

#include "control/conversation.h"
#include "control/failure.h"
#include "control/messages.h"

namespace quorvex::control {

// Asks the service to disconnect and follows it to its end.
class Disconnection {
 public:
  // Runs once, with what it failed with if it did.
  using Done = std::function<void(const std::optional<Failure>& failure)>;

  explicit Disconnection(Done whenOver) : done(std::move(whenOver)) {}

  void Begin(Conversation* conversation);
  [[nodiscard]] bool HasBegun() const { return begun; }
  // To be told of every snapshot and of the service's end, also before Begin.
  void Take(const Snapshot& snapshot);
  void TakeEndOfService();

 private:
  void Finish(const std::optional<Failure>& failure);

  Done done;
  bool begun = false;
  // The service has agreed: from now on a final stage is this disconnect's.
  bool following = false;
  bool over = false;
};

}  // namespace quorvex::control
