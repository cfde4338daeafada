// SPDX-License-Identifier: Apache-2.0
#include "service/snapshot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/unit/runtime/case_name.h"
#include "tests/unit/service/service_fixture.h"

namespace quorvex::service_front {
namespace {

using test::Message;
using test::Print;

using ASnapshot = test::ServiceTest;

TEST_F(ASnapshot, BeginsDisconnected) {
  const Snapshot snapshot = ReadSnapshot(service.get());
  EXPECT_EQ(snapshot.stage, "disconnected");
  EXPECT_EQ(snapshot.activeProfileId, "");
  EXPECT_EQ(snapshot.lastError, "");
  EXPECT_EQ(snapshot.connectedAtEpochMillis, 0);
}

TEST_F(ASnapshot, ReadsAsItWasStored) {
  SetSnapshot(service.get(), "connected", "p1", "text", 5);
  const Snapshot snapshot = ReadSnapshot(service.get());
  EXPECT_EQ(snapshot.stage, "connected");
  EXPECT_EQ(snapshot.activeProfileId, "p1");
  EXPECT_EQ(snapshot.lastError, "text");
  EXPECT_EQ(snapshot.connectedAtEpochMillis, 5);
}

TEST_F(ASnapshot, IsNeverReadHalfStored) {
  constexpr int kRounds = 20000;
  std::atomic<bool> done{false};
  std::thread writer([this, &done] {
    for (int round = 0; round < kRounds; ++round) {
      // Short or too long for a string without memory of its own, in turn.
      const char letter = static_cast<char>('a' + round % 26);
      const std::string word(round % 2 == 0 ? 3 : 40, letter);
      SetSnapshot(service.get(), word, word, word, letter);
    }
    done = true;
  });
  int torn = 0;
  while (!done) {
    const Snapshot snapshot = ReadSnapshot(service.get());
    if (snapshot.connectedAtEpochMillis != 0 &&
        (snapshot.stage != snapshot.activeProfileId || snapshot.stage != snapshot.lastError ||
         snapshot.stage.front() != snapshot.connectedAtEpochMillis)) {
      ++torn;
    }
  }
  writer.join();
  EXPECT_EQ(torn, 0);
}

struct DictionaryCase {
  const char* name;
  Snapshot snapshot;
  const char* dictionary;
};

class ASnapshotsDictionary : public ASnapshot,
                             public ::testing::WithParamInterface<DictionaryCase> {};

INSTANTIATE_TEST_SUITE_P(
    Cases, ASnapshotsDictionary,
    ::testing::Values(
        DictionaryCase{"Disconnected", {"disconnected", "", "", 0}, "{'stage': <'disconnected'>}"},
        DictionaryCase{"Preparing",
                       {"preparing", "p1", "", 0},
                       "{'stage': <'preparing'>, 'activeProfileId': <'p1'>}"},
        DictionaryCase{"Connected",
                       {"connected", "p1", "", 1700000000123},
                       "{'stage': <'connected'>, 'activeProfileId': <'p1'>, "
                       "'connectedAtEpochMillis': <int64 1700000000123>}"},
        DictionaryCase{"ConnectedAtOne",
                       {"connected", "", "", 1},
                       "{'stage': <'connected'>, 'connectedAtEpochMillis': <int64 1>}"},
        DictionaryCase{"ConnectedAtZero",
                       {"connected", "p1", "", 0},
                       "{'stage': <'connected'>, 'activeProfileId': <'p1'>}"},
        DictionaryCase{"ConnectedBeforeTheEpoch",
                       {"connected", "p1", "", -1},
                       "{'stage': <'connected'>, 'activeProfileId': <'p1'>}"},
        DictionaryCase{"Error",
                       {"error", "p1", "It broke.", 0},
                       "{'stage': <'error'>, 'activeProfileId': <'p1'>, "
                       "'lastError': <'It broke.'>}"},
        DictionaryCase{"ErrorWithoutProfile",
                       {"error", "", "It broke.", 0},
                       "{'stage': <'error'>, 'lastError': <'It broke.'>}"},
        DictionaryCase{"ErrorWithoutText", {"error", "", "", 0}, "{'stage': <'error'>}"},
        DictionaryCase{"EmptyStage", {"", "", "", 0}, "{'stage': <''>}"},
        DictionaryCase{"Everything",
                       {"a", "b", "c", 4},
                       "{'stage': <'a'>, 'activeProfileId': <'b'>, 'lastError': <'c'>, "
                       "'connectedAtEpochMillis': <int64 4>}"}),
    test::CaseName());

TEST_P(ASnapshotsDictionary, HoldsOnlyWhatIsSet) {
  const Snapshot& snapshot = GetParam().snapshot;
  SetSnapshot(service.get(), snapshot.stage, snapshot.activeProfileId, snapshot.lastError,
              snapshot.connectedAtEpochMillis);
  const GVariantPtr dictionary = SnapshotVariant(service.get());
  EXPECT_EQ(Print(dictionary), GetParam().dictionary);
  EXPECT_FALSE(g_variant_is_floating(dictionary.get()));
}

using APublication = test::ServiceOnBusTest;

const std::vector<std::string> kBroadcast = {"/org/quorvexvpn/Service1", "org.quorvexvpn.Service1",
                                             "none"};

TEST_F(APublication, OfASnapshotIsABroadcastOfItsDictionary) {
  SetSnapshot(service.get(), "preparing", "p1", "", 0);
  EXPECT_EQ(bus.Received(),
            (std::vector<Message>{
                {"SnapshotChanged", "({'stage': <'preparing'>, 'activeProfileId': <'p1'>},)"}}));
  EXPECT_EQ(bus.LastSignalHeaders(), kBroadcast);
}

TEST_F(APublication, IsRepeatedEvenWhenNothingChanged) {
  SetSnapshot(service.get(), "disconnected", "", "", 0);
  SetSnapshot(service.get(), "disconnected", "", "", 0);
  EXPECT_EQ(bus.Received(),
            std::vector<Message>(2, {"SnapshotChanged", "({'stage': <'disconnected'>},)"}));
}

TEST_F(APublication, DoesNotUseItsValueUp) {
  const GVariantPtr value = SnapshotVariant(service.get());
  EmitDictionarySignal(bus.Service(), "SnapshotChanged", value.get());
  EmitDictionarySignal(bus.Service(), "NetworkPathChanged", value.get());
  EXPECT_EQ(Print(value), "{'stage': <'disconnected'>}");
  EXPECT_EQ(bus.Received().size(), 2U);
}

TEST_F(APublication, OnAClosedConnectionIsOnlyAWarning) {
  g_dbus_connection_close_sync(bus.Service(), nullptr, nullptr);
  SetSnapshot(service.get(), "connecting", "p1", "", 0);
  EXPECT_EQ(ReadSnapshot(service.get()).stage, "connecting");
  EXPECT_EQ(
      journal.Entries(),
      (std::vector<test::Journal::Entry>{
          {G_LOG_LEVEL_WARNING, "Unable to emit SnapshotChanged: The connection is closed"}}));
}

TEST_F(ASnapshot, IsOnlyStoredBeforeThereIsABus) {
  SetSnapshot(service.get(), "error", "", "It broke.", 0);
  EXPECT_EQ(ReadSnapshot(service.get()).lastError, "It broke.");
  EXPECT_TRUE(journal.Entries().empty());
}

class ALogEntry : public test::ServiceOnBusTest,
                  public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Levels, ALogEntry, ::testing::Values("info", "warning", "error"),
                         [](const auto& level) { return std::string(level.param); });

TEST_P(ALogEntry, ReachesTheBusWithLevelMessageAndTime) {
  const std::int64_t before = NowEpochMillis();
  EmitLog(service.get(), GetParam(), "100% 'done'");
  const std::int64_t after = NowEpochMillis();
  const std::vector<Message> messages = bus.Received();
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0].name, "LogEmitted");
  const std::string head = std::string("({'level': <'") + GetParam() +
                           "'>, 'message': <\"100% 'done'\">, 'timestamp': <int64 ";
  ASSERT_TRUE(messages[0].text.starts_with(head)) << messages[0].text;
  const std::int64_t timestamp = std::stoll(messages[0].text.substr(head.size()));
  EXPECT_GE(timestamp, before);
  EXPECT_LE(timestamp, after);
  EXPECT_EQ(messages[0].text, head + std::to_string(timestamp) + ">},)");
}

TEST_P(ALogEntry, ReachesTheJournalAlwaysAtTheSameLevel) {
  EmitLog(service.get(), GetParam(), "100% 'done' %s");
  EXPECT_EQ(journal.Entries(),
            (std::vector<test::Journal::Entry>{{G_LOG_LEVEL_MESSAGE, "100% 'done' %s"}}));
}

TEST_F(ASnapshot, LetsLogEntriesReachTheJournalBeforeThereIsABus) {
  EmitLog(service.get(), "info", "early");
  EXPECT_EQ(journal.Entries(), (std::vector<test::Journal::Entry>{{G_LOG_LEVEL_MESSAGE, "early"}}));
}

TEST(TheWallClock, IsReadInMilliseconds) {
  const std::int64_t seconds = std::time(nullptr);
  const std::int64_t now = NowEpochMillis();
  EXPECT_GE(now, seconds * 1000);
  EXPECT_LT(now, (seconds + 60) * 1000);
}

}  // namespace
}  // namespace quorvex::service_front
