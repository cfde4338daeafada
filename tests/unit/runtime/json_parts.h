// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>

#include "runtime/glib_ptr.h"
#include "tests/unit/validation/json_text.h"

namespace quorvex::test {

// Whether the node says what the JSON text says, member by member, in whatever order.
inline ::testing::AssertionResult SaysJson(JsonNode* actual, const std::string& expected) {
  if (actual == nullptr) {
    return ::testing::AssertionFailure() << "missing, instead of " << expected;
  }
  if (json_node_equal(actual, JsonText(expected).Root()) != FALSE) {
    return ::testing::AssertionSuccess();
  }
  const GCharPtr text(json_to_string(actual, FALSE));
  return ::testing::AssertionFailure() << text.get() << " instead of " << expected;
}

}  // namespace quorvex::test
