#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tools/collector/MemoryTables.h"
#include "tools/collector/Store.h"

namespace kx::collector {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

Record message(const std::string &device = "D", const std::string &bundle = "B") {
  Record record;
  record.time = 1700000000123;
  record.kind = "message";
  record.accepted = true;
  record.status = 200;
  record.device = device;
  record.bundle = bundle;
  record.method = "POST";
  record.target = "/messages";
  record.body = std::string("\x1F\x8B\0", 3);
  record.text = "[{\"ifa\":\"D\"}]";
  return record;
}

Record refusal(const std::string &reason) {
  Record record;
  record.kind = "other";
  record.status = 404;
  record.reason = reason;
  return record;
}

std::vector<std::uint64_t> idsOf(const RecordPage &page) {
  std::vector<std::uint64_t> ids;
  for (const RecordSummary &summary : page.requests) ids.push_back(summary.id);
  return ids;
}

/// In memory, and in a file.
class StoreTest : public ::testing::TestWithParam<bool> {
 protected:
  std::unique_ptr<Store> open(std::size_t keep = Store::defaultKeep) const {
    if (!GetParam()) return std::make_unique<Store>(std::nullopt, keep);
    return std::make_unique<Store>(temporary_.path() + "/requests", keep);
  }

 private:
  const TemporaryDirectory temporary_;
};

INSTANTIATE_TEST_SUITE_P(Everywhere, StoreTest, ::testing::Bool());

TEST_P(StoreTest, GivesBackWhatItWasGiven) {
  const auto store = open();
  Record given = message();
  given.reason = "why";
  given.accepted = false;
  given.packedSize = 3;
  given.unpackedSize = 13;
  given.warnings = {"one", "\xC3\xBC \"two\""};
  given.fault = "dropped";
  given.eventId = "E";
  given.eventTime = -5;
  given.latitude = 48.123456789012345;
  given.longitude = -0.0;
  given.horizontalAccuracy = 0;
  given.microseconds = {1, 2, 3};
  given.remoteAddress = "127.0.0.1:1";
  given.headerFields = {{"A", "1"}, {"A", "2"}};
  given.offending = OffendingBytes{7, std::string("\0\xFF", 2)};
  given.answerFields = {{"X", "y"}};
  EXPECT_EQ(store->append(given), 1u);
  const auto found = store->record(1);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->time, given.time);
  EXPECT_EQ(found->kind, given.kind);
  EXPECT_EQ(found->accepted, given.accepted);
  EXPECT_EQ(found->status, given.status);
  EXPECT_EQ(found->reason, given.reason);
  EXPECT_EQ(found->device, given.device);
  EXPECT_EQ(found->bundle, given.bundle);
  EXPECT_EQ(found->packedSize, given.packedSize);
  EXPECT_EQ(found->unpackedSize, given.unpackedSize);
  EXPECT_EQ(found->warnings, given.warnings);
  EXPECT_EQ(found->fault, given.fault);
  EXPECT_EQ(found->eventId, given.eventId);
  EXPECT_EQ(found->eventTime, given.eventTime);
  EXPECT_EQ(found->latitude, given.latitude);
  EXPECT_EQ(found->longitude, given.longitude);
  EXPECT_EQ(found->horizontalAccuracy, given.horizontalAccuracy);
  EXPECT_EQ(found->microseconds.receive, 1);
  EXPECT_EQ(found->microseconds.work, 2);
  EXPECT_EQ(found->microseconds.send, 3);
  EXPECT_EQ(found->method, given.method);
  EXPECT_EQ(found->target, given.target);
  EXPECT_EQ(found->remoteAddress, given.remoteAddress);
  EXPECT_EQ(found->headerFields, given.headerFields);
  EXPECT_EQ(found->body, given.body);
  EXPECT_EQ(found->text, given.text);
  ASSERT_TRUE(found->offending);
  EXPECT_EQ(found->offending->offset, 7u);
  EXPECT_EQ(found->offending->bytes, given.offending->bytes);
  EXPECT_EQ(found->answerFields, given.answerFields);
}

TEST_P(StoreTest, LeavesOutWhatThereIsNot) {
  const auto store = open();
  store->append(refusal(""));
  const auto found = store->record(1);
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->device);
  EXPECT_FALSE(found->bundle);
  EXPECT_FALSE(found->fault);
  EXPECT_FALSE(found->eventTime);
  EXPECT_FALSE(found->latitude);
  EXPECT_FALSE(found->text);
  EXPECT_FALSE(found->offending);
  EXPECT_THAT(found->warnings, IsEmpty());
  EXPECT_FALSE(store->record(0));
  EXPECT_FALSE(store->record(2));
}

TEST_P(StoreTest, FindsTextsAsTheyAreWhateverIsInThem) {
  const auto store = open();
  store->append(message("%_'\"\\", std::string("a\0b", 3)));
  RecordFilter filter;
  filter.device = "%_'\"\\";
  filter.bundle = std::string("a\0b", 3);
  EXPECT_THAT(store->requests(filter, 10).requests, SizeIs(1));
  filter.device = "%";
  EXPECT_THAT(store->requests(filter, 10).requests, IsEmpty());
  filter = {};
  filter.text = "_";
  EXPECT_THAT(store->requests(filter, 10).requests, IsEmpty());
  filter.text = "IFA\":\"d";
  EXPECT_THAT(store->requests(filter, 10).requests, SizeIs(1));
}

TEST_P(StoreTest, KeepsTheNewest) {
  const auto store = open(2);
  for (int count = 0; count < 5; ++count) store->append(message());
  EXPECT_THAT(idsOf(store->requests({}, 10)), ElementsAre(4, 5));
  EXPECT_FALSE(store->record(3));
  EXPECT_EQ(store->lastId(), 5u);
}

TEST_P(StoreTest, CountsOnWhenAllWasForgotten) {
  const auto store = open();
  store->append(message());
  store->reset();
  EXPECT_EQ(store->resets(), 1u);
  EXPECT_EQ(store->counts({}).all, 0u);
  EXPECT_EQ(store->append(message()), 2u);
  EXPECT_THAT(idsOf(store->requests({}, 10)), ElementsAre(2));
}

TEST_P(StoreTest, KnowsWhatADeviceHasSentBefore) {
  const auto store = open();
  store->append(message("D"));
  store->append(message("E"));
  store->append(message("D", "another"));
  store->append(message("D"));
  EXPECT_EQ(store->previous(*store->record(4)), 1u);
  EXPECT_FALSE(store->previous(*store->record(3)));
  EXPECT_FALSE(store->previous(*store->record(1)));
}

TEST_P(StoreTest, TellsOfChanges) {
  std::atomic<int> changes{0};
  const auto store = open();
  store->onChange([&changes] { ++changes; });
  store->append(message());
  EXPECT_TRUE(eventually([&changes] { return changes > 0; }));
  store->onChange({});
  const int before = changes;
  store->append(message());
  store->reset();
  EXPECT_EQ(changes, before);
}

TEST_P(StoreTest, AWarningMayComeLater) {
  const auto store = open();
  store->append(message());
  const auto from = store->changedSince(UINT64_MAX).second;
  store->addWarning(1, "first");
  store->addWarning(1, "second");
  store->addWarning(7, "of nothing");
  EXPECT_THAT(store->record(1)->warnings, ElementsAre("first", "second"));
  EXPECT_EQ(store->counts({}).warned, 1u);
  EXPECT_THAT(store->changedSince(from).first, ElementsAre(1, 1, 7));
  EXPECT_THAT(store->changedSince(from + 3).first, IsEmpty());
}

TEST_P(StoreTest, MayBeUsedOnManyThreads) {
  const auto store = open();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&store] {
      for (int count = 0; count < 100; ++count) {
        const std::uint64_t id = store->append(message());
        EXPECT_TRUE(store->record(id));  // what was written is there to be read
        store->setSendTime(id, 1);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(store->counts({}).all, 400u);
}

TEST_P(StoreTest, KeepsHowLongEachAnswerTook) {
  const auto store = open();
  // Some are written by then, and some are not.
  for (std::int64_t number = 1; number <= 2500; ++number) {
    const std::uint64_t id = store->append(message());
    store->setSendTime(id, 10 * number);
    if (number % 700 == 0) store->setSendTime(id - 500, 1);
    if (number % 900 == 0) store->addWarning(id, "late");
  }
  for (const RecordSummary &summary : store->requests({}, 2500).requests) {
    const bool isSetTwice = (summary.id + 500) % 700 == 0 && summary.id <= 2000;
    EXPECT_EQ(summary.microseconds.send, isSetTwice ? 1 : static_cast<std::int64_t>(10 * summary.id));
    EXPECT_THAT(summary.warnings, SizeIs(summary.id % 900 == 0 ? 1 : 0)) << summary.id;
  }
}

TEST_P(StoreTest, WhatIsForgottenAtOnceStaysForgotten) {
  const auto store = open();
  const std::uint64_t id = store->append(message());
  store->setSendTime(id, 7);
  store->reset();
  store->setSendTime(id, 8);
  EXPECT_EQ(store->counts({}).all, 0u);
  const std::uint64_t next = store->append(message());
  store->setSendTime(next, 9);
  EXPECT_EQ(store->record(next)->microseconds.send, 9);
}

TEST_P(StoreTest, HeaderFieldsAreKeptWhateverIsInThem) {
  const auto store = open();
  Record given = message();
  given.headerFields = {{"A", ""}, {"\"", "\\"}, {"tab", "\t\x7F"}, {"\xC3\xBC", "a, b;c=\"d\""}};
  EXPECT_EQ(store->record(store->append(given))->headerFields, given.headerFields);
}

TEST_P(StoreTest, PagesTellWhetherThereAreMore) {
  const auto store = open();
  for (int count = 0; count < 3; ++count) store->append(message());
  EXPECT_TRUE(store->requests({}, 2).more);
  EXPECT_FALSE(store->requests({}, 3).more);
  EXPECT_THAT(idsOf(store->requests({}, 2, /*newestFirst=*/true)), ElementsAre(3, 2));
}

TEST(StoreInMemoryTest, KeepsAsManyAsFitTheOldestGoFirst) {
  Store store(std::nullopt, 100, /*maximumSize=*/10000);
  Record record = message();
  record.body = std::string(900, 'x');
  record.text = std::string(500, 'x');
  record.headerFields = {{"X", std::string(800, 'x')}};
  for (int count = 0; count < 10; ++count) store.append(record);
  EXPECT_THAT(idsOf(store.requests({}, 20)), ElementsAre(8, 9, 10));
  EXPECT_FALSE(store.record(7));
  // One that is longer than all that may be kept is there alone.
  record.text = std::string(20000, 'x');
  store.append(record);
  EXPECT_THAT(idsOf(store.requests({}, 20)), ElementsAre(11));
  store.reset();
  for (int count = 0; count < 8; ++count) store.append(message());
  EXPECT_EQ(store.counts({}).all, 8u);
}

TEST(StoreInMemoryTest, WhatIsKeptIsBoundedByItsNumberToo) {
  Store store(std::nullopt, 2, /*maximumSize=*/10000);
  for (int count = 0; count < 5; ++count) store.append(message());
  EXPECT_THAT(idsOf(store.requests({}, 10)), ElementsAre(4, 5));
}

TEST(StoreInMemoryTest, IsKeptAtOnce) {
  Store store;
  bool isKept = false;
  store.append(message(), [&isKept](const std::exception_ptr &failure) { isKept = failure == nullptr; });
  EXPECT_TRUE(isKept);
}

TEST(StoreInMemoryTest, ManyAreFoundInEitherDirection) {
  Store store;
  for (int count = 0; count < 1600; ++count) store.append(count % 800 == 7 ? refusal("odd") : message());
  RecordFilter filter;
  filter.accepted = false;
  EXPECT_THAT(idsOf(store.requests(filter, 10)), ElementsAre(8, 808));
  EXPECT_THAT(idsOf(store.requests(filter, 10, /*newestFirst=*/true)), ElementsAre(808, 8));
  filter = {};
  filter.after = 1597;
  EXPECT_THAT(idsOf(store.requests(filter, 10)), ElementsAre(1598, 1599, 1600));
  EXPECT_THAT(idsOf(store.requests(filter, 10, /*newestFirst=*/true)), ElementsAre(1600, 1599, 1598));
  filter.after = UINT64_MAX >> 1;
  EXPECT_THAT(idsOf(store.requests(filter, 10)), IsEmpty());
  filter = {};
  filter.before = 3;
  EXPECT_THAT(idsOf(store.requests(filter, 10, /*newestFirst=*/true)), ElementsAre(2, 1));
  filter.text = "ODD";
  EXPECT_THAT(idsOf(store.requests(filter, 10)), IsEmpty());
  filter.before = 809;
  EXPECT_THAT(idsOf(store.requests(filter, 10, /*newestFirst=*/true)), ElementsAre(808, 8));
  EXPECT_EQ(store.previous(*store.record(1600)), 1599u);
  EXPECT_THAT(store.devices(), SizeIs(1));
  EXPECT_EQ(store.devices().front().messages, 1598u);
  EXPECT_THAT(store.records({}, 3), SizeIs(3));
}

TEST(StoreInMemoryTest, WhoeverReadsMayGoOnWhenWhatIsReadHasGone) {
  RecordMemory memory(2, SIZE_MAX);
  for (int count = 0; count < 2; ++count) memory.append(message());
  const auto read = memory.entries({1, 2}, /*newestFirst=*/false, 10);
  memory.addWarning(2, "late");
  memory.reset();
  memory.setSendTime(2, 5);
  memory.append(message());
  ASSERT_THAT(read, SizeIs(2));
  EXPECT_EQ(read[1].record->id, 2u);
  EXPECT_THAT(read[1].record->warnings, IsEmpty());
  EXPECT_EQ(read[1].send, 0);
  EXPECT_THAT(memory.entries({1, 2}, false, 10), IsEmpty());
  EXPECT_THAT(memory.entries({0, UINT64_MAX}, true, 10), SizeIs(1));
}

TEST(StoreInMemoryTest, ItsTablesAreForReadingInAnyOrder) {
  RecordMemory memory(10, SIZE_MAX);
  for (const char *device : {"B", "A", "C"}) memory.append(message(device));
  Database database(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  addMemoryTables(database, memory);
  EXPECT_EQ(database.number("SELECT id FROM request ORDER BY device"), 2);
  EXPECT_EQ(database.number("SELECT id FROM request ORDER BY device DESC"), 3);
  EXPECT_EQ(database.number("SELECT id FROM request WHERE id >= 2 AND id <= 2"), 2);
  EXPECT_EQ(database.number("SELECT count(*) FROM request WHERE id < -1"), 0);
  EXPECT_THROW(database.execute("DELETE FROM request"), DatabaseError);
}

TEST(StoreInAFileTest, TellsWhenItIsKept) {
  const TemporaryDirectory temporary;
  const std::string file = temporary.path() + "/requests";
  Store store(file);
  std::promise<std::int64_t> there;
  store.append(message(), [&there, &file](const std::exception_ptr &failure) {
    // Another process would find it by now.
    Database other(file, SQLITE_OPEN_READWRITE);
    there.set_value(failure ? -1 : other.number("SELECT count(*) FROM content"));
  });
  EXPECT_EQ(there.get_future().get(), 1);
}

TEST(StoreInAFileTest, WhoeverAppendsDoesNotWaitForTheThreadThatWrites) {
  const TemporaryDirectory temporary;
  std::promise<void> goOn;
  const std::shared_future<void> mayGoOn = goOn.get_future();
  Store store(temporary.path() + "/requests");
  store.onChange([mayGoOn] { mayGoOn.wait(); });
  for (int count = 0; count < 100; ++count) store.append(message());
  EXPECT_EQ(store.lastId(), 100u);
  goOn.set_value();
  EXPECT_EQ(store.counts({}).all, 100u);
}

TEST(StoreInAFileTest, WhatIsTooOldGoesWithItsContent) {
  const TemporaryDirectory temporary;
  const std::string file = temporary.path() + "/requests";
  Store store(file, 2);
  for (int count = 0; count < 5; ++count) store.append(message());
  EXPECT_EQ(store.counts({}).all, 2u);
  Database other(file, SQLITE_OPEN_READWRITE);
  EXPECT_EQ(other.number("SELECT count(*) FROM content"), 2);
}

TEST(StoreInAFileTest, IsBoundedByItsNumberAlone) {
  const TemporaryDirectory temporary;
  {
    Store store(temporary.path() + "/requests", 3, /*maximumSize=*/1);
    for (int count = 0; count < 5; ++count) store.append(message());
    EXPECT_THAT(idsOf(store.requests({}, 10)), ElementsAre(3, 4, 5));
  }
  // Those of the time before count, too.
  Store store(temporary.path() + "/requests", 3);
  store.append(message());
  EXPECT_THAT(idsOf(store.requests({}, 10)), ElementsAre(4, 5, 6));
}

TEST(StoreInAFileTest, TellsWhenItCouldNotBeWritten) {
  const TemporaryDirectory temporary;
  const std::string file = temporary.path() + "/requests";
  Store store(file);
  {
    Database other(file, SQLITE_OPEN_READWRITE);
    other.execute("DROP TABLE content");
  }
  std::promise<bool> failed;
  store.append(message(),
               [&failed](const std::exception_ptr &failure) { failed.set_value(failure != nullptr); });
  EXPECT_TRUE(failed.get_future().get());
  // What was written of it is taken back.
  EXPECT_EQ(store.counts({}).all, 0u);
}

TEST(StoreInAFileTest, AMessageIsRememberedOverRestarts) {
  const TemporaryDirectory temporary;
  const std::string file = temporary.path() + "/requests";
  {
    Store store(file);
    for (const char *id : {"1", "2", "3"}) {
      Record record = message();
      record.eventId = id;
      record.accepted = *id != '2';
      store.append(record);
    }
  }
  Store store(file);
  EXPECT_THAT(store.latestEventIds(10), ElementsAre("1", "3"));
  EXPECT_THAT(store.latestEventIds(1), ElementsAre("3"));
}

}  // namespace
}  // namespace kx::collector
