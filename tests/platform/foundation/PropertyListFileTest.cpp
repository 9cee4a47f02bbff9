#include "platform/foundation/PropertyListFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/foundation/Log.h"
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

// Arrays nested 200,000 deep (behind a comment and character data that hold close tags, which
// must not count), a file past the size asked for, and a link: each refused with one log line.
TEST(PropertyListFile, RefusesDocumentsPastItsBoundsWithOneLogLine) {
  TemporaryFolder folder;
  std::string deep =
      "<plist><dict><key>c</key><string><![CDATA[</a></a></a>]]></string><!-- </a></a> -->"
      "<key>k</key>";
  for (int i = 0; i < 200000; ++i)
    deep += "<array>";
  for (int i = 0; i < 200000; ++i)
    deep += "</array>";
  const auto deepFile = folder.write("deep.plist", deep + "</dict></plist>");
  const auto smallFile = folder.write("small.plist", "<plist><dict></dict></plist>");
  std::filesystem::create_symlink(smallFile, folder.path() / "link.plist");
  LogCapture log;
  EXPECT_FALSE(readPropertyList(deepFile));
  EXPECT_FALSE(readPropertyList(smallFile, 10));
  EXPECT_FALSE(readPropertyList(folder.path() / "link.plist"));
  EXPECT_EQ(log.lines().size(), 3u);
  EXPECT_TRUE(readPropertyList(smallFile));
}

}  // namespace
}  // namespace platform
