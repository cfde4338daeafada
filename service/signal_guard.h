// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace quorvex::service_front {

// Keeps SIGTERM and SIGINT handled, to no effect, until the process ends. The sources that begin
// the shutdown go after their first signal, and GLib would then give the signal its default action
// back: a second one would kill the service in the middle of its clean-up. Main thread.
void KeepStopSignalsHandled();

// A tool that ends before it has read its input must not take the service with it: the write fails
// with EPIPE instead. Children get the default action back from GLib. Before any thread is started.
void IgnoreBrokenPipes();

}  // namespace quorvex::service_front
