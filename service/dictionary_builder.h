// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <glib.h>

#include "runtime/glib_ptr.h"

namespace quorvex::service_front {

// Builds an "a{sv}" whose entries keep the order in which they were added.
class DictionaryBuilder {
 public:
  DictionaryBuilder() { g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT); }
  DictionaryBuilder(const DictionaryBuilder&) = delete;
  DictionaryBuilder& operator=(const DictionaryBuilder&) = delete;
  ~DictionaryBuilder() { g_variant_builder_clear(&builder); }

  // Takes a floating `value` over.
  void Add(const char* key, GVariant* value) {
    g_variant_builder_add(&builder, "{sv}", key, value);
  }
  void AddString(const char* key, const char* value) { Add(key, g_variant_new_string(value)); }
  void AddBoolean(const char* key, bool value) {
    Add(key, g_variant_new_boolean(value ? TRUE : FALSE));
  }
  void AddInt64(const char* key, gint64 value) { Add(key, g_variant_new_int64(value)); }

  // The finished dictionary as a full reference; the builder is empty afterwards.
  [[nodiscard]] GVariantPtr End() { return TakeVariant(g_variant_builder_end(&builder)); }

 private:
  GVariantBuilder builder;
};

}  // namespace quorvex::service_front
