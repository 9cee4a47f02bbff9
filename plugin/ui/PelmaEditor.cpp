#include "ui/PelmaEditor.h"

#include <lv2/atom/util.h>
#include <lv2/midi/midi.h>
#include <lv2/ui/ui.h>

#include <QComboBox>
#include <QListView>
#include <QPainter>
#include <QSignalBlocker>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "lv2/PelmaUris.h"
#include "ui/EditorLook.h"
#include "ui/LevelMeter.h"
#include "ui/ParameterControl.h"
#include "ui/ParameterText.h"

namespace pelma::ui {
namespace {

// The groups in two rows of about fifteen controls each.
const std::vector<std::vector<Group>> kRows = {
    {Group::Oscillators, Group::Filter},
    {Group::FilterEnvelope, Group::AmpEnvelope, Group::Modulation, Group::Output}};

constexpr int kMinimumFontPixels = 8;
constexpr int kMaximumLabelLines = 3;
constexpr int kMaximumBanks = 16384;

std::vector<std::size_t> parametersOf(Group group) {
  std::vector<std::size_t> indices;
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    if (kParameters[i].group == group) indices.push_back(i);
  }
  return indices;
}

int longestWord(const QFontMetrics& metrics, const QString& text) {
  int widest = 0;
  for (const QString& word : text.split(QLatin1Char(' '), Qt::SkipEmptyParts))
    widest = std::max(widest, metrics.horizontalAdvance(word));
  return widest;
}

// The narrowest width at which `text`, wrapped at spaces, takes at most `lines` lines.
int widthForLines(const QFontMetrics& metrics, const QString& text, int lines) {
  int width = longestWord(metrics, text);
  while (metrics.boundingRect(QRect(0, 0, width, 1 << 16), Qt::TextWordWrap, text).height() >
         lines * metrics.lineSpacing())
    width += 2;
  return width;
}

QString comboStyle(int fontPixels) {
  return QStringLiteral(
             "QComboBox { background: rgb(54,64,73); color: rgb(255,209,117); border: 1px solid "
             "black; border-radius: 4px; padding: 0 %1px; font-size: %2px; font-weight: bold; }"
             "QComboBox QAbstractItemView { background: rgb(30,35,40); color: rgb(204,204,204); "
             "selection-background-color: rgb(255,209,117); selection-color: black; "
             "font-size: %2px; }")
      .arg(fontPixels / 2)
      .arg(fontPixels);
}

}  // namespace

PelmaEditor::PelmaEditor(LV2_URID_Map* map, Output output, QWidget* parent)
    : QWidget(parent), output_(std::move(output)) {
  auto urid = [map](const char* uri) { return map->map(map->handle, uri); };
  uris_ = {urid(LV2_ATOM__Object),
           urid(LV2_ATOM__Int),
           urid(LV2_ATOM__String),
           urid(LV2_ATOM__Tuple),
           urid(LV2_ATOM__Vector),
           urid(LV2_ATOM__Float),
           urid(LV2_ATOM__eventTransfer),
           urid(LV2_MIDI__MidiEvent),
           urid(kDescribeUri),
           urid(kBankMessageUri),
           urid(kBankIndexUri),
           urid(kBankCountUri),
           urid(kBankNameUri),
           urid(kPatchNamesUri),
           urid(kSelectionUri),
           urid(kProgramIndexUri),
           urid(kValuesUri)};
  setObjectName(QStringLiteral("pelmaEditor"));
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    auto* control = new ParameterControl(i, this);
    connect(control, &ParameterControl::valueChanged, this, [this, control] {
      output_.control(kFirstParameterPort + static_cast<std::uint32_t>(control->index()),
                      control->value());
    });
    controls_[i] = control;
  }
  bankBox_ = new QComboBox(this);
  bankBox_->setObjectName(QStringLiteral("bank"));
  patchBox_ = new QComboBox(this);
  patchBox_->setObjectName(QStringLiteral("patch"));
  for (QComboBox* box : {bankBox_, patchBox_}) {
    box->setView(new QListView(box));  // lets the style sheet reach the list's items
    box->setFocusPolicy(Qt::NoFocus);
  }
  connect(bankBox_, &QComboBox::activated, this, [this](int bank) { choose(bank, 0); });
  connect(patchBox_, &QComboBox::activated, this, [this](int program) { choose(bank_, program); });
  meter_ = new LevelMeter(this);
  meter_->setObjectName(QStringLiteral("level"));
  resize(kDesignSize);
  layOut();
}

void PelmaEditor::requestDescription() {
  const LV2_Atom_Object request{{sizeof(LV2_Atom_Object_Body), uris_.atomObject},
                                {0, uris_.describe}};
  output_.event(request.atom);
}

void PelmaEditor::choose(int bank, int program) {
  // The plug-in's own MIDI bank select and program change: the same path a keyboard takes.
  struct {
    LV2_Atom atom;
    std::uint8_t bytes[4];
  } message{{3, uris_.midiEvent}, {}};
  for (auto bytes : {std::array<std::uint8_t, 3>{0xB0, 0, static_cast<std::uint8_t>(bank >> 7)},
                     {0xB0, 32, static_cast<std::uint8_t>(bank & 0x7F)},
                     {0xC0, static_cast<std::uint8_t>(program & 0x7F), 0}}) {
    message.atom.size = bytes[0] == 0xC0 ? 2 : 3;
    std::memcpy(message.bytes, bytes.data(), 3);
    output_.event(message.atom);
  }
}

void PelmaEditor::portEvent(std::uint32_t port, std::uint32_t size, std::uint32_t format,
                            const void* buffer) {
  if (!buffer) return;
  if (format == 0 && size == sizeof(float)) {
    float value;
    std::memcpy(&value, buffer, sizeof value);
    if (port >= kFirstParameterPort && port < kBankPort) {
      controls_[port - kFirstParameterPort]->setValue(value);
    } else if (port == kLevelPort) {
      meter_->setLevel(value);
    }
  } else if (format == uris_.eventTransfer && size >= sizeof(LV2_Atom)) {
    const auto* atom = static_cast<const LV2_Atom*>(buffer);
    if (sizeof(LV2_Atom) + atom->size <= size) receive(atom);
  }
}

void PelmaEditor::receive(const LV2_Atom* atom) {
  if (atom->type != uris_.atomObject || atom->size < sizeof(LV2_Atom_Object_Body)) return;
  const auto* object = reinterpret_cast<const LV2_Atom_Object*>(atom);
  if (object->body.otype == uris_.bankMessage) receiveBank(object);
  if (object->body.otype == uris_.selection) receiveSelection(object);
}

void PelmaEditor::receiveBank(const LV2_Atom_Object* object) {
  const LV2_Atom *index = nullptr, *count = nullptr, *name = nullptr, *names = nullptr;
  lv2_atom_object_get(object, uris_.bankIndex, &index, uris_.bankCount, &count, uris_.bankName,
                      &name, uris_.patchNames, &names, 0);
  if (!index || !count || index->type != uris_.atomInt || count->type != uris_.atomInt) return;
  const int bank = reinterpret_cast<const LV2_Atom_Int*>(index)->body;
  const int banks = reinterpret_cast<const LV2_Atom_Int*>(count)->body;
  if (banks < 1 || banks > kMaximumBanks || bank < 0 || bank >= banks) return;
  banks_.resize(static_cast<std::size_t>(banks));
  BankNames& entry = banks_[static_cast<std::size_t>(bank)];
  entry = {};
  if (name && name->type == uris_.atomString)
    entry.name = QString::fromUtf8(static_cast<const char*>(LV2_ATOM_BODY_CONST(name)));
  if (names && names->type == uris_.atomTuple) {
    LV2_ATOM_TUPLE_FOREACH(reinterpret_cast<const LV2_Atom_Tuple*>(names), item) {
      if (item->type == uris_.atomString)
        entry.patches << QString::fromUtf8(static_cast<const char*>(LV2_ATOM_BODY_CONST(item)));
    }
  }
  showBanks();
}

void PelmaEditor::receiveSelection(const LV2_Atom_Object* object) {
  const LV2_Atom *bank = nullptr, *program = nullptr, *values = nullptr;
  lv2_atom_object_get(object, uris_.bankIndex, &bank, uris_.programIndex, &program, uris_.values,
                      &values, 0);
  if (bank && program && bank->type == uris_.atomInt && program->type == uris_.atomInt) {
    bank_ = reinterpret_cast<const LV2_Atom_Int*>(bank)->body;
    program_ = reinterpret_cast<const LV2_Atom_Int*>(program)->body;
    showBanks();
  }
  if (values && values->type == uris_.atomVector) {
    const auto* vector = reinterpret_cast<const LV2_Atom_Vector*>(values);
    if (vector->body.child_type != uris_.atomFloat || vector->body.child_size != sizeof(float))
      return;
    const std::size_t count = std::min<std::size_t>(
        (values->size - sizeof(LV2_Atom_Vector_Body)) / sizeof(float), kParameterCount);
    const auto* floats = reinterpret_cast<const float*>(&vector->body + 1);
    for (std::size_t i = 0; i < count; ++i)
      controls_[i]->setValue(floats[i]);
  }
}

void PelmaEditor::showBanks() {
  const QSignalBlocker blockBanks(bankBox_), blockPatches(patchBox_);
  QStringList names;
  for (std::size_t i = 0; i < banks_.size(); ++i)
    names << (banks_[i].name.isEmpty() ? QStringLiteral("Bank %1").arg(i + 1) : banks_[i].name);
  QStringList shown;
  for (int i = 0; i < bankBox_->count(); ++i)
    shown << bankBox_->itemText(i);
  if (shown != names) {
    bankBox_->clear();
    bankBox_->addItems(names);
  }
  bankBox_->setCurrentIndex(bank_ < bankBox_->count() ? bank_ : -1);
  showPatches(bank_);
}

void PelmaEditor::showPatches(int bank) {
  QStringList names;
  if (bank >= 0 && static_cast<std::size_t>(bank) < banks_.size()) {
    const QStringList& patches = banks_[static_cast<std::size_t>(bank)].patches;
    for (int i = 0; i < patches.size(); ++i)
      names << QStringLiteral("%1  %2").arg(i + 1, 3, 10, QLatin1Char('0')).arg(patches[i]);
  }
  QStringList shown;
  for (int i = 0; i < patchBox_->count(); ++i)
    shown << patchBox_->itemText(i);
  if (shown != names) {
    patchBox_->clear();
    patchBox_->addItems(names);
  }
  patchBox_->setCurrentIndex(program_ < patchBox_->count() ? program_ : -1);
}

void PelmaEditor::resizeEvent(QResizeEvent*) {
  layOut();
}

void PelmaEditor::layOut() {
  const double scale = std::clamp(
      std::min(width() / double(kDesignSize.width()), height() / double(kDesignSize.height())), 0.5,
      2.0);
  // The largest text that lets every label fit its cell in two lines, or else three; at the
  // smallest sizes the cells share the width by what their labels need.
  for (int font = std::max(kMinimumFontPixels, static_cast<int>(std::lround(11 * scale)));
       font > kMinimumFontPixels - 2; --font) {
    for (int lines = 2; lines <= kMaximumLabelLines; ++lines) {
      if (layOutRows(font, lines)) return;
    }
  }
}

bool PelmaEditor::layOutRows(int fontPixels, int labelLines) {
  const double scale = std::clamp(
      std::min(width() / double(kDesignSize.width()), height() / double(kDesignSize.height())), 0.5,
      2.0);
  const int margin = std::max(3, static_cast<int>(std::lround(6 * scale)));
  const int pad = std::max(3, static_cast<int>(std::lround(5 * scale)));
  const int cellGap = std::max(2, static_cast<int>(std::lround(4 * scale)));
  const int titlePixels = std::max(kMinimumFontPixels - 1, fontPixels * 9 / 10);
  QFont font = this->font();
  font.setPixelSize(fontPixels);
  const QFontMetrics metrics(font);
  QFont bold = font;
  bold.setBold(true);
  const QFontMetrics boldMetrics(bold);

  const int headerHeight = std::max(fontPixels * 2 + 6, static_cast<int>(std::lround(38 * scale)));
  header_ = QRect(margin, margin, width() - 2 * margin, headerHeight);
  const int rowTop = header_.bottom() + 1 + margin;
  const int rowHeight = (height() - rowTop - 2 * margin) / 2;
  const int titleBand = titlePixels + pad + 2;
  const int labelHeight = labelLines * metrics.lineSpacing();
  const int textGap = fontPixels / 3;
  int knob = std::min(rowHeight - titleBand - pad - labelHeight - textGap,
                      static_cast<int>(std::lround(60 * scale)));

  // Width each control needs: its longest label word, its value's, or its switch labels.
  auto needed = [&](std::size_t i) {
    const Parameter& p = kParameters[i];
    int width = std::max(widthForLines(metrics, parameterLabel(i), labelLines), fontPixels * 3);
    if (p.kind == Kind::Choice) {
      for (int v = static_cast<int>(p.minimum); v <= static_cast<int>(p.maximum); ++v)
        width = std::max(width, boldMetrics.horizontalAdvance(valueText(i, float(v))) + 8);
    } else {
      for (float v : {p.minimum, p.maximum, p.defaultValue})
        width = std::max(width, widthForLines(metrics, valueText(i, v), labelLines));
    }
    return width;
  };

  panels_.clear();
  std::vector<QRect> cells(kParameterCount);
  int narrowest = width();
  for (std::size_t row = 0; row < kRows.size(); ++row) {
    const auto& groups = kRows[row];
    std::vector<std::size_t> members;
    int fixed = static_cast<int>(groups.size() - 1) * margin;
    for (Group group : groups) {
      auto indices = parametersOf(group);
      fixed += 2 * pad + static_cast<int>(indices.size() - 1) * cellGap;
      members.insert(members.end(), indices.begin(), indices.end());
    }
    std::vector<int> widths;
    int total = 0, widest = 0;
    for (std::size_t i : members) {
      widths.push_back(needed(i));
      total += widths.back();
      widest = std::max(widest, widths.back());
    }
    const int available = width() - 2 * margin - fixed;
    if (total > available) return false;
    const int even = available / static_cast<int>(members.size());
    const int extra = (available - total) / static_cast<int>(members.size());
    for (int& w : widths)
      w = even >= widest ? even : w + extra;

    const int top = rowTop + static_cast<int>(row) * (rowHeight + margin);
    int x = margin;
    std::size_t n = 0;
    for (std::size_t g = 0; g < groups.size(); ++g) {
      const int left = x;
      x += pad;
      for (std::size_t i : parametersOf(groups[g])) {
        cells[i] = QRect(x, top + titleBand, widths[n], rowHeight - titleBand - pad);
        narrowest = std::min(narrowest, widths[n]);
        x += widths[n++] + cellGap;
      }
      x += pad - cellGap;
      const int right = g + 1 == groups.size() ? width() - margin : x;
      panels_.push_back({groups[g], QRect(left, top, right - left, rowHeight)});
      x += margin;
    }
  }
  knob = std::min(knob, narrowest - 2);
  if (knob < 16) return false;

  fontPixels_ = fontPixels;
  titlePixels_ = titlePixels;
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    const int height = knob + textGap + labelHeight;
    const QRect& cell = cells[i];
    controls_[i]->setGeometry(cell.x(), cell.y() + (cell.height() - height) / 2, cell.width(),
                              height);
    controls_[i]->setMetrics(knob, fontPixels);
  }

  // Header: name, bank and patch choosers with their captions, the meter at the right.
  QFont logo = bold;
  logo.setPixelSize(headerHeight * 11 / 20);
  logo.setLetterSpacing(QFont::PercentageSpacing, 115);
  const int comboHeight = std::min(headerHeight - 8, fontPixels * 2 + 4);
  const int comboTop = header_.top() + (headerHeight - comboHeight) / 2;
  int x = header_.left() + pad * 2 + QFontMetrics(logo).horizontalAdvance(QStringLiteral("PELMA")) +
          margin * 3;
  const int captionWidth = QFontMetrics(bold).horizontalAdvance(QStringLiteral("PATCH")) + pad;
  const int meterWidth = std::max(60, header_.width() / 7);
  const int chooserSpace = header_.right() - pad * 2 - meterWidth - margin * 3 - x;
  const int bankWidth = (chooserSpace - 2 * captionWidth - margin * 2) * 2 / 5;
  const int patchWidth = chooserSpace - 2 * captionWidth - margin * 2 - bankWidth;
  bankBox_->setStyleSheet(comboStyle(fontPixels));
  patchBox_->setStyleSheet(comboStyle(fontPixels));
  bankBox_->setGeometry(x + captionWidth, comboTop, bankWidth, comboHeight);
  x += captionWidth + bankWidth + margin * 2;
  patchBox_->setGeometry(x + captionWidth, comboTop, patchWidth, comboHeight);
  const int meterHeight = std::max(8, comboHeight * 2 / 3);
  meter_->setGeometry(header_.right() - pad * 2 - meterWidth,
                      header_.top() + (headerHeight - meterHeight) / 2, meterWidth, meterHeight);
  update();
  return true;
}

void PelmaEditor::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  QLinearGradient background(0, 0, 0, height());
  background.setColorAt(0, look::kBackgroundTop);
  background.setColorAt(1, look::kBackgroundBottom);
  painter.fillRect(rect(), background);

  painter.setPen(QPen(look::kPanelBorder, 1));
  painter.setBrush(look::kPanel);
  painter.drawRoundedRect(QRectF(header_).adjusted(0.5, 0.5, -0.5, -0.5), 5, 5);
  QFont bold = font();
  bold.setBold(true);
  QFont logo = bold;
  logo.setPixelSize(header_.height() * 11 / 20);
  logo.setLetterSpacing(QFont::PercentageSpacing, 115);
  painter.setFont(logo);
  painter.setPen(look::kAmber);
  const int pad = std::max(3, fontPixels_ / 2);
  painter.drawText(header_.adjusted(pad * 2, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter,
                   QStringLiteral("PELMA"));
  bold.setPixelSize(titlePixels_);
  painter.setFont(bold);
  painter.setPen(look::kDimText);
  for (auto [box, caption] : {std::pair{bankBox_, "BANK"}, std::pair{patchBox_, "PATCH"}}) {
    const QRect captionRect(box->x() - 200, box->y(), 200 - pad, box->height());
    painter.drawText(captionRect, Qt::AlignRight | Qt::AlignVCenter, QString::fromLatin1(caption));
  }

  for (const Panel& panel : panels_) {
    painter.setPen(QPen(look::kPanelBorder, 1));
    painter.setBrush(look::kPanel);
    painter.drawRoundedRect(QRectF(panel.frame).adjusted(0.5, 0.5, -0.5, -0.5), 5, 5);
    painter.setPen(look::kAmber);
    QFont title = bold;
    title.setLetterSpacing(QFont::PercentageSpacing, 110);
    painter.setFont(title);
    painter.drawText(panel.frame.adjusted(pad * 2, pad / 2, -pad, 0), Qt::AlignLeft | Qt::AlignTop,
                     groupTitle(panel.group));
  }
}

}  // namespace pelma::ui
