// SPDX-License-Identifier: Apache-2.0
//
// Writes one JSON value, for `--json`.
#pragma once

#include <json-glib/json-glib.h>

#include <cstdint>
#include <string>

#include "runtime/glib_ptr.h"

namespace quorvex::control {

// Members come out in the order in which they are put in. An object is open from the beginning.
class JsonText {
 public:
  JsonText();

  JsonText& String(const char* name, const std::string& value);
  // Null where the text is empty.
  JsonText& StringOrNull(const char* name, const std::string& value);
  JsonText& Boolean(const char* name, bool value);
  JsonText& Integer(const char* name, std::int64_t value);
  JsonText& Null(const char* name);

  JsonText& OpenObject(const char* name);
  JsonText& CloseObject();
  JsonText& OpenArray(const char* name);
  // An object as the next element of the open array.
  JsonText& OpenElement();
  JsonText& CloseArray();

  // Closes the first object; the text is one line without its end.
  [[nodiscard]] std::string End();

 private:
  JsonBuilder* Member(const char* name);

  GObjectPtr<JsonBuilder> builder;
};

}  // namespace quorvex::control
