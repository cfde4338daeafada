// SPDX-License-Identifier: Apache-2.0
#include "runtime/json_text.h"

#include <gtest/gtest.h>

namespace quorvex::linux_service {
namespace {

TEST(AWrittenTree, IsTheSameWhateverSizeWasExpected) {
  const GObjectPtr<JsonParser> parser = ParseJson(R"({"a": ["a long text", 1, true, null]})");
  ASSERT_NE(parser, nullptr);
  for (const std::size_t size : {1U, 8U, 4096U}) {
    std::string text = "before";
    EXPECT_TRUE(WriteJson(json_parser_get_root(parser.get()), size, &text));
    EXPECT_EQ(text, R"({"a":["a long text",1,true,null]})");
  }
}

TEST(AWrittenTree, ThatIsNotThereIsAFailure) {
  std::string text = "before";
  EXPECT_FALSE(WriteJson(nullptr, 16, &text));
  EXPECT_EQ(text, "");
}

TEST(AnObjectMember, OfAnotherKindIsReplacedByANewOne) {
  const GObjectPtr<JsonParser> parser = ParseJson(R"({"a": "text", "b": {"c": 1}})");
  JsonObject* root = RootObject(parser.get());
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(json_object_get_size(ObjectMemberOrNew(root, "a")), 0U);
  EXPECT_EQ(json_object_get_size(ObjectMemberOrNew(root, "b")), 1U);
  EXPECT_EQ(json_object_get_size(ObjectMemberOrNew(root, "missing")), 0U);
  EXPECT_EQ(ObjectMemberOrNew(root, "missing"), json_object_get_object_member(root, "missing"));
}

}  // namespace
}  // namespace quorvex::linux_service
