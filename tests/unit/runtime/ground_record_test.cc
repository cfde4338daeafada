// SPDX-License-Identifier: Apache-2.0
//
// The record of what stood before an engine: its text, its file, and what half of it is worth.
#include "runtime/ground_record.h"

#include <gtest/gtest.h>

#include "runtime/constants.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

using namespace std::string_literals;

GroundRecord Sample() {
  return {EngineKind::kOpenVpn,
          {"\x02\x00\xff"s, "rule"},
          {"\n "s},
          {"12"},
          {"\xc6\x33\x64\x08"s},
          {"a"},
          {"b", "c"},
          {"d"},
          true};
}

void ExpectSample(const std::optional<GroundRecord>& read) {
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->engine, Sample().engine);
  EXPECT_EQ(read->rules, Sample().rules);
  EXPECT_EQ(read->routes, Sample().routes);
  EXPECT_EQ(read->tables, Sample().tables);
  EXPECT_EQ(read->servers, Sample().servers);
  EXPECT_EQ(read->isSettled, Sample().isSettled);
  EXPECT_EQ(read->addedRules, Sample().addedRules);
  EXPECT_EQ(read->addedRoutes, Sample().addedRoutes);
  EXPECT_EQ(read->takenRoutes, Sample().takenRoutes);
}

TEST(AGroundText, IsReadableLines) {
  EXPECT_EQ(WriteGroundText(Sample()),
            "engine 4\nrule 0200ff\nrule 72756c65\nroute 0a20\ntable 3132\nserver "
            "c6336408\nadded-rule 61\n"
            "added-route 62\nadded-route 63\ntaken-route 64\nsettled\nwhole\n");
}

TEST(AGroundText, ReadsBackAsItWasWritten) {
  ExpectSample(ReadGroundText(WriteGroundText(Sample())));
}

TEST(AGroundText, ThatIsCutAnywhereIsNone) {
  const std::string whole = WriteGroundText(Sample());
  // The last line's own end carries nothing.
  for (std::size_t length = 0; length < whole.size() - 1; ++length) {
    EXPECT_FALSE(ReadGroundText(whole.substr(0, length)).has_value()) << length;
  }
}

TEST(AGroundText, IsAddedToByWhatFollows) {
  GroundRecord changes;
  changes.addedRules = {"later"};
  changes.isSettled = true;
  GroundRecord first = Sample();
  first.isSettled = false;
  const std::optional<GroundRecord> read =
      ReadGroundText(WriteGroundText(first) + WriteGroundText(changes));
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->engine, EngineKind::kOpenVpn);
  EXPECT_EQ(read->rules, Sample().rules);
  EXPECT_EQ(read->addedRules, (std::vector<std::string>{"a", "later"}));
  EXPECT_TRUE(read->isSettled);
}

TEST(AGroundText, StandsWhenWhatFollowsIsCutAnywhere) {
  GroundRecord changes;
  changes.addedRules = {"later"};
  const std::string first = WriteGroundText(Sample());
  const std::string both = first + WriteGroundText(changes);
  for (std::size_t length = first.size(); length < both.size() - 1; ++length) {
    ExpectSample(ReadGroundText(both.substr(0, length)));
  }
}

TEST(AGroundText, OfZerosIsNone) {
  EXPECT_FALSE(ReadGroundText(std::string(100, '\0')).has_value());
}

TEST(AGroundText, WithAnotherWordOrOddDigitsIsNone) {
  for (const char* text : {"engine 1\nroute 0\nwhole\n", "engine 1\nroute 0g\nwhole\n",
                           "engine one\nwhole\n", "chain 00\nwhole\n", "rule\nwhole\n",
                           "engine 1 \nwhole\n", "engine -1\nwhole\n", "rule +1\nwhole\n"}) {
    EXPECT_FALSE(ReadGroundText(text).has_value()) << text;
  }
}

std::optional<GroundRecord> Loaded() {
  std::optional<GroundRecord> record;
  std::string error;
  EXPECT_TRUE(LoadGroundRecord(&record, &error)) << error;
  return record;
}

class AGroundRecord : public test::PrivateWorld {
 protected:
  void TearDown() override {
    std::string error;
    EXPECT_TRUE(RemoveGroundRecord(&error)) << error;
    EXPECT_FALSE(test::Exists(kGroundDirectory));
    PrivateWorld::TearDown();
  }
};

TEST_F(AGroundRecord, IsAFileForRootAlone) {
  std::string error;
  ASSERT_TRUE(StoreGroundRecord(Sample(), &error)) << error;
  EXPECT_EQ(test::ModeOf(kGroundDirectory), 0700U);
  EXPECT_EQ(test::ModeOf(kGroundRecord), 0600U);
  ExpectSample(Loaded());
}

TEST_F(AGroundRecord, IsAddedTo) {
  std::string error;
  GroundRecord first = Sample();
  first.addedRules.clear();
  ASSERT_TRUE(StoreGroundRecord(first, &error)) << error;
  GroundRecord changes;
  changes.addedRules = Sample().addedRules;
  ASSERT_TRUE(AppendGroundRecord(changes, &error)) << error;
  ExpectSample(Loaded());
}

TEST_F(AGroundRecord, ThatIsNotThereCannotBeAddedTo) {
  std::string error;
  EXPECT_FALSE(AppendGroundRecord(Sample(), &error));
  EXPECT_FALSE(test::Exists(kGroundRecord));
}

TEST_F(AGroundRecord, ThatIsNotThereIsNone) {
  EXPECT_FALSE(Loaded().has_value());
}

TEST_F(AGroundRecord, ThatCannotBeReadIsNotTakenForNone) {
  test::Shell(std::string("mkdir -p ") + kGroundRecord);
  std::optional<GroundRecord> record;
  std::string error;
  EXPECT_FALSE(LoadGroundRecord(&record, &error));
  EXPECT_NE(error, "");
  test::Shell(std::string("rmdir ") + kGroundRecord);
}

TEST_F(AGroundRecord, IsRemovedWithItsFolder) {
  std::string error;
  ASSERT_TRUE(StoreGroundRecord(Sample(), &error)) << error;
  EXPECT_TRUE(RemoveGroundRecord(&error)) << error;
  EXPECT_FALSE(test::Exists(kGroundDirectory));
}

TEST_F(AGroundRecord, LeavesAFolderThatHoldsMore) {
  std::string error;
  ASSERT_TRUE(StoreGroundRecord(Sample(), &error)) << error;
  const std::string other = std::string(kGroundDirectory) + "/other";
  test::WriteFile(other, "");
  EXPECT_TRUE(RemoveGroundRecord(&error)) << error;
  EXPECT_TRUE(test::Exists(other));
  test::Shell("rm " + other);
}

TEST_F(AGroundRecord, ThatWasNeverWrittenCostsItsFolderToo) {
  test::Shell(std::string("mkdir ") + kGroundDirectory);
  std::string error;
  EXPECT_TRUE(RemoveGroundRecord(&error)) << error;
  EXPECT_FALSE(test::Exists(kGroundDirectory));
}

TEST_F(AGroundRecord, ThatCannotBeRemovedSaysWhy) {
  test::Shell(std::string("mkdir -p ") + kGroundRecord);
  std::string error;
  EXPECT_FALSE(RemoveGroundRecord(&error));
  EXPECT_EQ(error, "Unable to open private runtime data for removal: Is a directory");
  test::Shell(std::string("rmdir ") + kGroundRecord);
}

}  // namespace
}  // namespace quorvex::linux_service
