#pragma once

// Pelma's editor as a Qt widget: every parameter as a knob or switch in labelled groups, the bank
// and patch chooser, and the output meter. It knows the plug-in only through LV2 messages: what
// it changes goes out through `Output`, and what the plug-in reports comes in through
// portEvent() (control values, the level, and the plug-in's bank and selection messages).

#include <lv2/atom/atom.h>
#include <lv2/urid/urid.h>

#include <QWidget>
#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "dsp/Parameters.h"

class QComboBox;

namespace pelma::ui {

class LevelMeter;
class ParameterControl;

class PelmaEditor : public QWidget {
 public:
  struct Output {
    std::function<void(std::uint32_t port, float value)> control;
    std::function<void(const LV2_Atom& atom)> event;  // to the control port
  };
  static constexpr QSize kDesignSize{1024, 335};

  PelmaEditor(LV2_URID_Map* map, Output output, QWidget* parent = nullptr);

  void portEvent(std::uint32_t port, std::uint32_t size, std::uint32_t format, const void* buffer);
  // Asks the plug-in for its banks and selection.
  void requestDescription();

  // For tests and the gallery.
  ParameterControl* control(std::size_t index) const { return controls_[index]; }
  QComboBox* bankChooser() const { return bankBox_; }
  QComboBox* patchChooser() const { return patchBox_; }
  LevelMeter* meter() const { return meter_; }
  int fontPixels() const { return fontPixels_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  struct BankNames {
    QString name;
    QStringList patches;
  };
  struct Panel {
    Group group;
    QRect frame;
  };

  void receive(const LV2_Atom* atom);
  void receiveBank(const LV2_Atom_Object* object);
  void receiveSelection(const LV2_Atom_Object* object);
  void showBanks();
  void showPatches(int bank);
  void choose(int bank, int program);
  void layOut();
  bool layOutRows(int fontPixels, int labelLines);

  struct Uris {
    LV2_URID atomObject, atomInt, atomString, atomTuple, atomVector, atomFloat, eventTransfer,
        midiEvent, describe, bankMessage, bankIndex, bankCount, bankName, patchNames, selection,
        programIndex, values;
  } uris_;
  Output output_;
  std::array<ParameterControl*, kParameterCount> controls_{};
  QComboBox* bankBox_;
  QComboBox* patchBox_;
  LevelMeter* meter_;
  std::vector<BankNames> banks_;
  int bank_ = 0, program_ = 0;
  std::vector<Panel> panels_;
  QRect header_;
  int fontPixels_ = 11, titlePixels_ = 10;
};

}  // namespace pelma::ui
