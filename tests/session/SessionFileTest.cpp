// The session file: every field survives a write and a read; what is not a session of this
// version, or larger than any session, is refused whole; values of the wrong type or out of range
// are skipped, each with a line for the musician, and the rest is taken; the file read is never
// changed; a file that cannot be written leaves the previous one whole.

#include "session/SessionFile.h"

#include <gtest/gtest.h>

#include <QFile>
#include <filesystem>
#include <fstream>

#include "support/FileSizeLimit.h"
#include "support/TemporaryFolder.h"

namespace {

session::Session fullSession() {
  session::Session s;
  s.instrumentUri = QStringLiteral("urn:pelma:synth");
  s.instrumentState = QStringLiteral("@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n");
  s.pattern.steps[0].keys = {{60, 128}, {64, 90}};
  s.pattern.steps[0].tie = true;
  s.pattern.steps[15].keys = {{127, 1}};
  s.pattern.gate = 0.99;
  s.pattern.swing = 0.25;
  s.pattern.tempo = 187;
  s.autoStep = true;
  s.keyboard = {6, true, true, true, true};
  s.midiLearn = {QVariantMap{{"controller", 74}, {"symbol", "cutoff"}},
                 QVariantMap{{"controller", 1}, {"symbol", "mod_2"}, {"channel", 16}}};
  return s;
}

QByteArray withValue(const char* from, const char* to) {
  return session::toJson(fullSession()).replace(from, to);
}

TEST(SessionFile, KeepsEveryFieldThroughAFile) {
  TemporaryFolder folder;
  const QString path = QString::fromStdString((folder.path() / "a.pelmasession").string());
  ASSERT_FALSE(session::writeSessionFile(path, fullSession()));
  const auto read = session::readSessionFile(path, session::Session{});
  EXPECT_TRUE(read.read);
  EXPECT_TRUE(read.problems.isEmpty()) << read.problems.join('\n').toStdString();
  EXPECT_EQ(read.session, fullSession());
}

TEST(SessionFile, RefusesWhatIsNotASessionOfThisVersionOrTooLarge) {
  const session::Session base = fullSession();
  const QByteArray whole = session::toJson(base);
  const QByteArray refused[] = {
      whole.left(whole.size() / 2),  // cut short
      "<?xml version=\"1.0\"?><plist/>",
      withValue("\"pelma-session\"", "\"pelma-bank\""),
      withValue("\"version\": 1", "\"version\": 2"),
      QByteArray("{\"format\": \"pelma-session\", \"version\": 1, \"x\": ") + QByteArray(40, '[') +
          QByteArray(40, ']') + "}",
  };
  for (const QByteArray& text : refused) {
    const auto read = session::fromJson(text, base);
    EXPECT_FALSE(read.read) << text.left(60).toStdString();
    EXPECT_EQ(read.problems.size(), 1);
    EXPECT_EQ(read.session, base);
  }
  TemporaryFolder folder;
  const auto large = folder.path() / "large.pelmasession";
  std::filesystem::resize_file(folder.write("large.pelmasession", ""),
                               session::kMaximumFileBytes + 1);
  const auto read = session::readSessionFile(QString::fromStdString(large.string()), base);
  EXPECT_FALSE(read.read);
  EXPECT_TRUE(read.problems.join("").contains("larger than"))
      << read.problems.join("").toStdString();
}

TEST(SessionFile, SkipsValuesOutOfRangeAndTakesTheRestLeavingTheFileAsItWas) {
  session::Session expected = fullSession();
  QByteArray text = session::toJson(expected);
  text.replace("\"gate\": 0.99", "\"gate\": 2")
      .replace("\"tempo\": 187", "\"tempo\": \"fast\"")
      .replace("\"note\": 127", "\"note\": 200")
      .replace("\"octave\": 6", "\"octave\": -1")
      .replace("\"controller\": 74", "\"controller\": 300")
      .replace("\"symbol\": \"mod_2\"", "\"symbol\": \"../x\"");
  text.replace("\"hold\": true", "\"hold\": false");  // a valid change is still taken
  TemporaryFolder folder;
  const auto file = folder.write("bad.pelmasession", text.toStdString());
  const session::Session base;
  const auto read = session::readSessionFile(QString::fromStdString(file.string()), base);
  EXPECT_TRUE(read.read);
  EXPECT_EQ(read.problems.size(), 6) << read.problems.join('\n').toStdString();
  expected.pattern.gate = base.pattern.gate;
  expected.pattern.tempo = base.pattern.tempo;
  expected.pattern.steps[15].keys.clear();
  expected.keyboard.octave = base.keyboard.octave;
  expected.keyboard.hold = false;
  expected.midiLearn.clear();
  EXPECT_EQ(read.session, expected);
  std::ifstream again(file, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(again), {}), text.toStdString());
}

// A disk that fills up while the file is written (a file size limit stands in for it: it stops
// root as well, whom a read-only folder does not): the reason comes back, the previous file is
// whole and no temporary file is left beside it.
TEST(SessionFile, AFileThatCannotBeWrittenLeavesThePreviousOneWhole) {
  TemporaryFolder folder;
  const auto previous = folder.write("kept.pelmasession", "previous");
  std::optional<QString> error;
  {
    const FileSizeLimit limit(64);
    error = session::writeSessionFile(QString::fromStdString(previous.string()), fullSession());
  }
  ASSERT_TRUE(error);
  EXPECT_FALSE(error->isEmpty());
  std::ifstream again(previous, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(again), {}), "previous");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

}  // namespace
