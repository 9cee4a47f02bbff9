#include "platform/foundation/PropertyListFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TemporaryFolder.h"

namespace platform {
namespace {

// Saving over the same file is ViewControllerTest's (the instrument's state saved twice).
TEST(PropertyListFile, WritesAndReadsBackEveryKindOfValue) {
  const PropertyDictionary state{
      {"uri", "urn:pelma:synth"},
      {"count", std::int64_t{-42}},
      {"gain", 0.25},
      {"on", true},
      {"blob", PropertyData{0, 1, 2, 255}},
      {"list", PropertyArray{1, "two", 3.5}},
      {"ports", PropertyDictionary{{"cutoff", 1200.0}, {"empty", PropertyDictionary{}}}},
  };
  TemporaryFolder folder;
  const auto path = folder.path() / "state.plist";
  ASSERT_TRUE(writePropertyList(state, path));
  EXPECT_FALSE(std::filesystem::exists(path.string() + ".partial"));
  const auto read = readPropertyList(path);
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, state);
}

TEST(PropertyListFile, RefusesWhatIsNotAPropertyList) {
  TemporaryFolder folder;
  EXPECT_FALSE(readPropertyList(folder.path() / "missing.plist"));
  EXPECT_FALSE(readPropertyList(folder.write("broken.plist", "<plist><dict><key>a</key>")));
  EXPECT_FALSE(writePropertyList({}, std::filesystem::path("/nonexistent-folder/x.plist")));
}

}  // namespace
}  // namespace platform
