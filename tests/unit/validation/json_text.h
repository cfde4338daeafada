// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>

#include "runtime/glib_ptr.h"

namespace quorvex::test {

// The tree of a JSON text, straight from json-glib.
class JsonText {
 public:
  explicit JsonText(const std::string& text) : parser(json_parser_new()) {
    EXPECT_TRUE(json_parser_load_from_data(parser.get(), text.data(),
                                           static_cast<gssize>(text.size()), nullptr))
        << text.substr(0, 200);
  }

  [[nodiscard]] JsonNode* Root() const { return json_parser_get_root(parser.get()); }
  [[nodiscard]] JsonObject* Object() const { return json_node_get_object(Root()); }

 private:
  GObjectPtr<JsonParser> parser;
};

}  // namespace quorvex::test
