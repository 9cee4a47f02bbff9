#include "platform/foundation/SnapshotPublisher.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

// Counts live instances, to see when the publisher frees a snapshot.
struct Counted {
  explicit Counted(int v) : value(v) { ++live; }
  ~Counted() { --live; }
  int value;
  static inline int live = 0;
};

TEST(SnapshotPublisher, FreesReplacedSnapshotsOnlyWhenNoReaderHoldsThem) {
  {
    SnapshotPublisher<Counted> publisher(std::make_unique<Counted>(1));
    auto reader = publisher.makeReader();
    const Counted* held = reader.acquire();
    EXPECT_EQ(held->value, 1);

    publisher.publish(std::make_unique<Counted>(2));
    EXPECT_EQ(Counted::live, 2);  // 1 is still held by the reader
    EXPECT_EQ(held->value, 1);

    publisher.publish(std::make_unique<Counted>(3));
    EXPECT_EQ(Counted::live, 2);  // 2 was never held: freed at once
    EXPECT_EQ(publisher.retiredCount(), 1u);

    EXPECT_EQ(reader.acquire()->value, 3);  // taking the newest lets go of 1
    publisher.reclaim();
    EXPECT_EQ(Counted::live, 1);
    EXPECT_EQ(publisher.retiredCount(), 0u);
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(SnapshotPublisher, ReaderSlotsAreLimitedAndReused) {
  SnapshotPublisher<Counted> publisher(std::make_unique<Counted>(0));
  std::vector<SnapshotPublisher<Counted>::Reader> readers;
  for (std::size_t i = 0; i < SnapshotPublisher<Counted>::kMaxReaders; ++i) {
    readers.push_back(publisher.makeReader());
  }
  EXPECT_THROW(publisher.makeReader(), std::length_error);
  readers.pop_back();
  auto again = publisher.makeReader();
  EXPECT_TRUE(again);
  EXPECT_EQ(again.acquire()->value, 0);
}

}  // namespace
}  // namespace platform
