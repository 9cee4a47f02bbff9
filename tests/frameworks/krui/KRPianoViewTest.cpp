#include "frameworks/krui/KRPianoView.h"

#include <gtest/gtest.h>

#include <QTest>

#include "support/KeyRecorder.h"

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

// The octave's range is seen through the screen's octave buttons (PianoViewControllerTest).
TEST_F(KRPianoViewTest, KeysShiftedBelowNoteZeroStaySilent) {
  piano.setOctave(0);
  piano.setPianoShift(0);  // starts at -11 -> -10 (D)
  QTest::mouseClick(&piano, Qt::LeftButton, {}, QPoint(15, 100));
  QTest::mouseClick(&piano, Qt::LeftButton, {}, QPoint(195, 100));  // key 6 = note 0
  EXPECT_EQ(recorder.take(), (Events{"on 0", "off 0"}));
}

TEST_F(KRPianoViewTest, OctaveChangesWhatIsPlayedButNotWhatIsReleased) {
  piano.setOctave(5);
  QTest::mouseClick(&piano, Qt::LeftButton, {}, QPoint(15, 100));
  QTest::keyPress(&piano, Qt::Key_Z);
  piano.setOctave(3);
  QTest::keyRelease(&piano, Qt::Key_Z);
  EXPECT_EQ(recorder.take(), (Events{"on 60", "off 60", "on 60", "off 60"}));
}

}  // namespace
