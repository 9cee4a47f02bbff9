#include "frameworks/krui/KRPianoView.h"

#include <gtest/gtest.h>

#include <QTest>

#include "frameworks/krui/KeyRecorder.h"

namespace {

class KRPianoViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    piano.resize(450, 120);  // 15 keys of 30
    piano.setDelegate(&recorder);
  }

  KeyRecorder recorder;
  KRPianoView piano;
};

TEST_F(KRPianoViewTest, OctaveMovesTheKeyboardWithinZeroToSeven) {
  EXPECT_EQ(piano.octave(), 4);
  piano.setOctave(5);
  EXPECT_EQ(piano.lowestKey(), 60);
  piano.setOctave(8);
  EXPECT_EQ(piano.octave(), 7);
  piano.setOctave(-1);
  EXPECT_EQ(piano.octave(), 0);
  EXPECT_EQ(piano.lowestKey(), 0);

  // At both ends the widest keyboard stays within MIDI notes.
  piano.setNumKeysVisible(22);
  EXPECT_EQ(piano.keys().front().note, 0);
  piano.setOctave(7);
  int highest = 0;
  for (const auto& key : piano.keys())
    highest = std::max(highest, key.note);
  EXPECT_EQ(highest, 120);
}

TEST_F(KRPianoViewTest, OctaveChangesWhatMouseAndComputerKeysPlay) {
  piano.setOctave(5);
  QTest::mouseClick(&piano, Qt::LeftButton, {}, QPoint(15, 100));
  QTest::keyClick(&piano, Qt::Key_Z);
  EXPECT_EQ(recorder.take(), (Events{"on 60", "off 60", "on 60", "off 60"}));
}

TEST_F(KRPianoViewTest, AKeyHeldAcrossAnOctaveChangeReleasesTheNoteItPlayed) {
  QTest::mousePress(&piano, Qt::LeftButton, {}, QPoint(15, 100));
  QTest::keyPress(&piano, Qt::Key_Z);  // the same note: no second press
  piano.setOctave(3);
  QTest::mouseRelease(&piano, Qt::LeftButton, {}, QPoint(15, 100));
  QTest::keyRelease(&piano, Qt::Key_Z);
  EXPECT_EQ(recorder.take(), (Events{"on 48", "off 48"}));
}

TEST_F(KRPianoViewTest, KeysBelowMidiNoteZeroAreSilent) {
  piano.setOctave(0);
  piano.setPianoShift(0);  // starts at -11 -> -10 (D)
  EXPECT_EQ(piano.lowestKey(), -10);
  QTest::mouseClick(&piano, Qt::LeftButton, {}, QPoint(15, 100));
  QTest::mouseClick(&piano, Qt::LeftButton, {}, QPoint(195, 100));  // key 6 = C0 = note 0
  EXPECT_EQ(recorder.take(), (Events{"on 0", "off 0"}));
}

}  // namespace
