// The variable-size message ring that carries plug-in worker requests and replies.

#include "platform/foundation/ByteRing.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ByteRing, DeliversEveryMessageInOrderAlsoEmptyOnesAndWrapsAround) {
  platform::ByteRing ring(64);
  char buffer[64];
  for (int round = 0; round < 10; ++round) {  // 10 rounds pass the 64-byte end several times
    ASSERT_TRUE(ring.write("", 0));
    ASSERT_TRUE(ring.write("worker", 6));
    auto size = ring.read(buffer, sizeof buffer);
    ASSERT_TRUE(size);
    EXPECT_EQ(*size, 0u);
    size = ring.read(buffer, sizeof buffer);
    ASSERT_TRUE(size);
    EXPECT_EQ(std::string(buffer, *size), "worker");
    EXPECT_FALSE(ring.read(buffer, sizeof buffer));
  }
  // A message that does not fit the reader's buffer is skipped, not left blocking the ring.
  ASSERT_TRUE(ring.write("too long", 8));
  ASSERT_TRUE(ring.write("ok", 2));
  const auto size = ring.read(buffer, 4);
  ASSERT_TRUE(size);
  EXPECT_EQ(std::string(buffer, *size), "ok");
  EXPECT_FALSE(ring.write(buffer, 64));  // never more than fits
}

}  // namespace
