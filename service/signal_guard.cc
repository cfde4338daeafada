// SPDX-License-Identifier: Apache-2.0
#include "service/signal_guard.h"

#include <glib-unix.h>

#include <csignal>

namespace quorvex::service_front {
namespace {

gboolean Ignore(gpointer /*userData*/) {
  return G_SOURCE_CONTINUE;
}

}  // namespace

void KeepStopSignalsHandled() {
  g_unix_signal_add(SIGTERM, Ignore, nullptr);
  g_unix_signal_add(SIGINT, Ignore, nullptr);
}

void IgnoreBrokenPipes() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

}  // namespace quorvex::service_front
