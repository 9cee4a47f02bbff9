// The editor's layout at the sizes hosts give it: the phone view (667 x 200), the design size
// (1024 x 335), a wide tablet window and twice the design size. Every control must sit inside
// the editor without overlapping another, and every label and value must fit where it is drawn.

#include <gtest/gtest.h>

#include <QComboBox>
#include <QFontMetrics>
#include <QLabel>

#include "platform/audio/Lv2World.h"
#include "ui/LevelMeter.h"
#include "ui/ParameterControl.h"
#include "ui/ParameterText.h"
#include "ui/PelmaEditor.h"

namespace {

using namespace pelma;
using pelma::ui::PelmaEditor;

PelmaEditor::Output ignoreOutput() {
  return {[](std::uint32_t, float) {}, [](const LV2_Atom&) {}};
}

bool fits(const QFontMetrics& metrics, const QRect& area, const QString& text) {
  const QRect used = metrics.boundingRect(area, Qt::AlignHCenter | Qt::TextWordWrap, text);
  return area.contains(used);
}

class EditorLayout : public ::testing::TestWithParam<QSize> {};

TEST_P(EditorLayout, EveryControlFitsAndNoLabelIsClipped) {
  PelmaEditor editor(platform::Lv2World::shared()->mapFeature(), ignoreOutput());
  editor.resize(GetParam());
  editor.grab();  // lays out and paints as shown
  EXPECT_GE(editor.fontPixels(), 8) << "readable";

  QFont font = editor.font();
  font.setPixelSize(editor.fontPixels());
  const QFontMetrics metrics(font);
  QFont bold = font;
  bold.setBold(true);
  const QFontMetrics boldMetrics(bold);
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    const ui::ParameterControl* control = editor.control(i);
    const QRect frame = control->geometry();
    SCOPED_TRACE(kParameters[i].symbol);
    EXPECT_TRUE(editor.rect().contains(frame));
    for (std::size_t j = 0; j < i; ++j)
      EXPECT_FALSE(frame.intersects(editor.control(j)->geometry())) << kParameters[j].symbol;
    const QRect label = control->labelRect();
    EXPECT_TRUE(fits(metrics, label, ui::parameterLabel(i)));
    const Parameter& p = kParameters[i];
    for (float v : {p.minimum, p.maximum, p.defaultValue}) {
      if (p.kind == Kind::Choice) {
        for (int c = static_cast<int>(p.minimum); c <= static_cast<int>(p.maximum); ++c)
          EXPECT_LE(boldMetrics.horizontalAdvance(ui::valueText(i, float(c))), frame.width());
      } else {
        EXPECT_TRUE(fits(metrics, label, ui::valueText(i, v))) << ui::valueText(i, v).toStdString();
      }
    }
  }
  for (QWidget* header :
       {static_cast<QWidget*>(editor.bankChooser()), static_cast<QWidget*>(editor.patchChooser()),
        static_cast<QWidget*>(editor.meter())}) {
    EXPECT_TRUE(editor.rect().contains(header->geometry())) << header->objectName().toStdString();
    EXPECT_GT(header->width(), 40);
    for (std::size_t i = 0; i < kParameterCount; ++i)
      EXPECT_FALSE(header->geometry().intersects(editor.control(i)->geometry()));
  }
  EXPECT_FALSE(editor.bankChooser()->geometry().intersects(editor.patchChooser()->geometry()));
}

INSTANTIATE_TEST_SUITE_P(Sizes, EditorLayout,
                         ::testing::Values(QSize(667, 200), QSize(1024, 335), QSize(1366, 447),
                                           QSize(2048, 670)),
                         [](const auto& info) {
                           return std::to_string(info.param.width()) + "x" +
                                  std::to_string(info.param.height());
                         });

TEST(ParameterText, KnobPositionsRoundTripAndValuesRead) {
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    const Parameter& p = kParameters[i];
    EXPECT_FLOAT_EQ(ui::valueFromNormalised(i, 0), p.minimum) << p.symbol;
    EXPECT_FLOAT_EQ(ui::valueFromNormalised(i, 1), p.maximum) << p.symbol;
    EXPECT_NEAR(ui::valueFromNormalised(i, ui::normalisedValue(i, p.defaultValue)), p.defaultValue,
                std::abs(p.defaultValue) * 1e-4 + 1e-6)
        << p.symbol;
  }
  EXPECT_NEAR(ui::normalisedValue(kCutoff, 632.456f), 0.5f, 1e-3) << "cutoff turns logarithmically";
  EXPECT_EQ(ui::valueText(kCutoff, 8000), QStringLiteral("8.00 kHz"));
  EXPECT_EQ(ui::valueText(kAmpAttack, 0.003f), QStringLiteral("3 ms"));
  EXPECT_EQ(ui::valueText(kVolume, -12), QStringLiteral("-12.0 dB"));
  EXPECT_EQ(ui::valueText(kOsc2Semitones, 7), QStringLiteral("+7 st"));
  EXPECT_EQ(ui::valueText(kFilterType, 2), QStringLiteral("Highpass"));
}

}  // namespace
