#include "frameworks/pelma/PlugInEditor.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "frameworks/krui/KRSlider.h"
#include "frameworks/pelma/X11PlugInEditor.h"
#include "platform/audio/ControlPorts.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/ui/Button.h"
#include "platform/ui/Palette.h"

namespace {

using platform::ControlPort;

constexpr int kSliderSteps = 1000;

// Slider position (0..kSliderSteps) for a port value, and back.
int sliderPosition(const ControlPort& p, float value) {
  return static_cast<int>(std::lround(platform::unitPosition(p, value) * kSliderSteps));
}
float sliderValue(const ControlPort& p, int position) {
  return platform::valueAtPosition(p, static_cast<double>(position) / kSliderSteps);
}

QString valueText(const ControlPort& p, float value) {
  if (p.integer || std::abs(value) >= 100.0f)
    return QString::number(static_cast<long>(std::lround(value)));
  return QString::number(value, 'g', 3);
}

// One control of the editor: shows the port's value and writes the user's changes.
class ControlView : public QWidget {
 public:
  ControlView(ControlPort port, std::shared_ptr<platform::AudioUnit> unit, QWidget* parent)
      : QWidget(parent), port_(std::move(port)), unit_(std::move(unit)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(2);
    auto* name = new QLabel(QString::fromStdString(port_.name), this);
    name->setObjectName("controlName");
    layout->addWidget(name);
    setToolTip(QString::fromStdString(port_.comment));
    setProperty("controlSymbol", QString::fromStdString(port_.symbol));  // for MIDI learn's menu
    if (!port_.choices.empty()) {
      choice_ = new QComboBox(this);
      for (const auto& [value, label] : port_.choices)
        choice_->addItem(QString::fromStdString(label), value);
      QObject::connect(choice_, &QComboBox::activated, this, [this](int index) {
        unit_->setParameterValue(port_.symbol, choice_->itemData(index).toFloat());
      });
      layout->addWidget(choice_);
    } else if (port_.toggled) {
      toggle_ = new platform::Button(this);
      toggle_->setText(QStringLiteral("On"));
      QObject::connect(toggle_, &QAbstractButton::clicked, this, [this] {
        toggle_->setSelected(!toggle_->isSelected());
        unit_->setParameterValue(port_.symbol,
                                 toggle_->isSelected() ? port_.maximum : port_.minimum);
      });
      layout->addWidget(toggle_);
    } else {
      auto* row = new QHBoxLayout;
      slider_ = new QSlider(Qt::Horizontal, this);
      slider_->setRange(0, kSliderSteps);
      value_ = new QLabel(this);
      value_->setObjectName("controlValue");
      value_->setMinimumWidth(48);
      value_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
      QObject::connect(slider_, &QSlider::sliderMoved, this, [this](int position) {
        const float value = sliderValue(port_, position);
        unit_->setParameterValue(port_.symbol, value);
        value_->setText(valueText(port_, value));
      });
      row->addWidget(slider_, 1);
      row->addWidget(value_);
      layout->addLayout(row);
    }
    refresh();
  }

  // Shows the port's current value, unless the user is moving this control.
  void refresh() {
    const float value = unit_->parameterValue(port_.symbol);
    if (choice_ && !choice_->view()->isVisible()) {
      int best = 0;
      for (int i = 1; i < choice_->count(); ++i) {
        if (std::abs(choice_->itemData(i).toFloat() - value) <
            std::abs(choice_->itemData(best).toFloat() - value))
          best = i;
      }
      choice_->setCurrentIndex(best);
    } else if (toggle_) {
      toggle_->setSelected(value > (port_.minimum + port_.maximum) / 2);
    } else if (slider_ && !slider_->isSliderDown()) {
      slider_->setValue(sliderPosition(port_, value));
      value_->setText(valueText(port_, value));
    }
  }

 private:
  ControlPort port_;
  std::shared_ptr<platform::AudioUnit> unit_;
  QComboBox* choice_ = nullptr;
  platform::Button* toggle_ = nullptr;
  QSlider* slider_ = nullptr;
  QLabel* value_ = nullptr;
};

constexpr int kColumnsPerGroup = 4;

// `ownEditorLeftOut`: the plug-in's own editor needs the plug-in in this process; one line says so.
QWidget* makeGenericEditor(std::shared_ptr<platform::AudioUnit> unit, QWidget* owner,
                           bool ownEditorLeftOut) {
  auto* scroll = new QScrollArea(owner);
  scroll->setObjectName("genericEditor");
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  using namespace platform::palette;
  scroll->setStyleSheet(
      QStringLiteral("#genericEditor, #genericEditorContent { background-color: rgb(28, 32, 36); }"
                     "QGroupBox { color: %1; font-weight: 600; border: 1px solid %2;"
                     " border-radius: 6px; margin-top: 14px; padding: 6px 4px 4px 4px; }"
                     "QGroupBox::title { subcontrol-origin: margin; left: 10px; padding: 0 4px; }"
                     "#controlName { color: %3; font-size: 12px; }"
                     "#controlValue { color: rgb(150, 160, 170); font-size: 11px; }"
                     "#editorTitle { color: %4; font-size: 16px; font-weight: 600; }")
          .arg(css(kAccent), css(kBorder), css(kSecondaryText), css(kText)));
  auto* content = new QWidget;
  content->setObjectName("genericEditorContent");
  auto* layout = new QVBoxLayout(content);
  auto* title = new QLabel(QString::fromStdString(unit->name()), content);
  title->setObjectName("editorTitle");
  layout->addWidget(title);
  if (ownEditorLeftOut) {
    auto* notice =
        new QLabel(QStringLiteral("Its own editor opens only with pelma --in-process (it needs the "
                                  "instrument in this process)."),
                   content);
    notice->setObjectName("ownEditorNotice");
    layout->addWidget(notice);
  }

  std::vector<ControlView*> controls;
  std::map<std::string, QGridLayout*> groups;
  auto* boxes = new QGridLayout;
  boxes->setSpacing(8);
  layout->addLayout(boxes);
  for (ControlPort& port : platform::controlPorts(unit->uri())) {
    const std::string group = port.group.empty() ? "Controls" : port.group;
    QGridLayout*& grid = groups[group];
    if (!grid) {
      auto* box = new QGroupBox(QString::fromStdString(group), content);
      grid = new QGridLayout(box);
      grid->setAlignment(Qt::AlignTop);  // boxes side by side share a height; controls stay up
      const int index = static_cast<int>(groups.size()) - 1;
      boxes->addWidget(box, index / 2, index % 2);
    }
    auto* view = new ControlView(std::move(port), unit, content);
    const int n = grid->count();
    grid->addWidget(view, n / kColumnsPerGroup, n % kColumnsPerGroup);
    controls.push_back(view);
  }
  layout->addStretch(1);
  scroll->setWidget(content);

  // The instrument may change its controls (presets, state restored): show them as they are.
  auto* follow = new QTimer(scroll);
  QObject::connect(follow, &QTimer::timeout, scroll, [controls] {
    for (ControlView* view : controls)
      view->refresh();
  });
  follow->start(100);
  return scroll;
}

}  // namespace

void requestViewController(
    std::shared_ptr<platform::AudioUnit> unit, QWidget* owner,
    std::function<void(std::shared_ptr<AudioUnitViewController>)> completion) {
  platform::dispatchAsyncMain([unit, owner, completion] {
    bool ownNeedsThisProcess = false;
    if (auto own = unit ? makeX11Editor(unit, owner, &ownNeedsThisProcess) : nullptr) {
      completion(std::move(own));
      return;
    }
    QWidget* view = unit ? makeGenericEditor(unit, owner, ownNeedsThisProcess) : nullptr;
    if (view) platform::log("Plug-in editor: generic, from the ports of {}", unit->name());
    if (view && ownNeedsThisProcess)
      platform::log("Plug-in editor: {}: its own editor needs it in this process (--in-process)",
                    unit->name());
    completion(std::make_shared<AudioUnitViewController>(view));
  });
}
