// SPDX-License-Identifier: Apache-2.0
//
// The dictionaries of single methods: what is read from Connect's profile, and what GetRuntimeInfo
// and GetCapabilities answer.
#pragma once

#include <gio/gio.h>

#include <string>

#include "runtime/glib_ptr.h"

namespace quorvex::service_front {

struct Service;

// The value of a string entry; empty when the dictionary is null, or the entry is missing or of
// another type.
[[nodiscard]] std::string LookupString(GVariant* dictionary, const char* key);

// The value of a boolean entry; false when the dictionary is null, or the entry is missing or of
// another type.
[[nodiscard]] bool LookupBoolean(GVariant* dictionary, const char* key, bool fallback);

[[nodiscard]] GVariantPtr RuntimeDictionary(const Service& service);

// Constant: says nothing about which engines are installed.
[[nodiscard]] GVariantPtr CapabilityDictionary();

}  // namespace quorvex::service_front
