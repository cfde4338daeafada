// SPDX-License-Identifier: Apache-2.0
//
// Ownership of GLib's objects. Each alias is a unique_ptr of pointer size with a stateless
// deleter, so it serves as local and as member alike; g_autoptr does not, because GCC ignores
// the cleanup attribute on class members and the object leaks without a word.
#pragma once

#include <gio/gio.h>

#include <memory>

namespace quorvex {

// Calls a release function that takes the pointer (or one to a base of it).
template <auto Release>
struct ReleaseWith {
  template <typename T>
  void operator()(T* pointer) const noexcept {
    // Nothing is left to do about a release that fails.
    static_cast<void>(Release(pointer));
  }
};

template <typename T>
using GObjectPtr = std::unique_ptr<T, ReleaseWith<g_object_unref>>;

using GCharPtr = std::unique_ptr<char, ReleaseWith<g_free>>;
using GMainContextPtr = std::unique_ptr<GMainContext, ReleaseWith<g_main_context_unref>>;
using GMainLoopPtr = std::unique_ptr<GMainLoop, ReleaseWith<g_main_loop_unref>>;
using GSourcePtr = std::unique_ptr<GSource, ReleaseWith<g_source_unref>>;
using GVariantPtr = std::unique_ptr<GVariant, ReleaseWith<g_variant_unref>>;
using GDBusNodeInfoPtr = std::unique_ptr<GDBusNodeInfo, ReleaseWith<g_dbus_node_info_unref>>;

// A slot for GLib's error out-parameters: pass `error.Out()` to a call, then ask.
class GErrorSlot {
 public:
  GErrorSlot() = default;
  GErrorSlot(const GErrorSlot&) = delete;
  GErrorSlot& operator=(const GErrorSlot&) = delete;
  ~GErrorSlot() { g_clear_error(&error); }

  // Empties the slot and hands out its address.
  [[nodiscard]] GError** Out() {
    g_clear_error(&error);
    return &error;
  }
  [[nodiscard]] bool IsSet() const { return error != nullptr; }
  [[nodiscard]] bool Matches(GQuark domain, int code) const {
    return g_error_matches(error, domain, code) != FALSE;
  }
  // The error's own text, or `fallback` when no error is set.
  [[nodiscard]] const char* MessageOr(const char* fallback) const {
    return error != nullptr ? error->message : fallback;
  }

 private:
  GError* error = nullptr;
};

// Takes over a new or floating variant as a full reference.
[[nodiscard]] inline GVariantPtr TakeVariant(GVariant* value) {
  return GVariantPtr(g_variant_ref_sink(value));
}

}  // namespace quorvex
