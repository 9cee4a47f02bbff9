#include "sequencer/KRSeqBlockView.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "sequencer/KRStepSequenceStep.h"

namespace {

TEST(KRSeqBlockViewTest, NoteNamesCountOctavesFromZeroInKeyOrder) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  KRStepSequenceStep step;
  for (int note : {67, 0, 61, 127, -1}) {
    step.keys().push_back(std::make_shared<KRStepSequenceKey>());
    step.keys().back()->setNumber(note);
  }
  block.setStep(step);
  // A negative number still gets a name instead of reading outside the table.
  EXPECT_EQ(block.labelText(), "G5 C0 C#5 G10 B0 ");
}

}  // namespace
