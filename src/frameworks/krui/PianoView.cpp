#include "frameworks/krui/PianoView.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTouchEvent>
#include <algorithm>
#include <array>
#include <utility>

#include "platform/foundation/Log.h"
#include "platform/ui/Palette.h"

namespace {

constexpr std::int64_t kMousePointer = -1;
// Computer keys get ids above every touch point id.
constexpr std::int64_t kComputerKeyBase = std::int64_t{1} << 32;

constexpr qreal kBlackKeyWidth = 0.58;   // of a white key's width
constexpr qreal kBlackKeyHeight = 0.62;  // of the keyboard's height
constexpr qreal kKeyCornerRadius = 3.0;

const QColor kBackground(28, 30, 33);
const QColor kWhiteKey(244, 244, 240);
const QColor kBlackKey(24, 25, 28);
const QColor kKeyOutline(70, 70, 74);
const QColor kSoundingWhiteKey = platform::palette::kAccent;
const QColor kSoundingBlackKey(196, 140, 48);
const QColor kKeyName(120, 120, 120);

bool isBlack(std::int32_t note) {
  static constexpr std::array<bool, 12> kBlack = {false, true,  false, true,  false, false,
                                                  true,  false, true,  false, true,  false};
  return kBlack[static_cast<std::size_t>(((note % 12) + 12) % 12)];
}

bool isPlayable(std::int32_t note) {
  return note >= 0 && note <= 127;
}

bool isComputerKey(std::int64_t id) {
  return id >= kComputerKeyBase;
}
bool isTouch(std::int64_t id) {
  return id >= 0 && id < kComputerKeyBase;
}
bool isAnyPointer(std::int64_t /*id*/) {
  return true;
}

// Semitones above the base C for each letter of the two rows.
const std::map<int, std::int32_t>& computerKeyOffsets() {
  static const std::map<int, std::int32_t> offsets = {
      {Qt::Key_Z, 0},      {Qt::Key_S, 1},  {Qt::Key_X, 2},       {Qt::Key_D, 3},
      {Qt::Key_C, 4},      {Qt::Key_V, 5},  {Qt::Key_G, 6},       {Qt::Key_B, 7},
      {Qt::Key_H, 8},      {Qt::Key_N, 9},  {Qt::Key_J, 10},      {Qt::Key_M, 11},
      {Qt::Key_Comma, 12}, {Qt::Key_L, 13}, {Qt::Key_Period, 14}, {Qt::Key_Semicolon, 15},
      {Qt::Key_Slash, 16}, {Qt::Key_Q, 12}, {Qt::Key_2, 13},      {Qt::Key_W, 14},
      {Qt::Key_3, 15},     {Qt::Key_E, 16}, {Qt::Key_R, 17},      {Qt::Key_5, 18},
      {Qt::Key_T, 19},     {Qt::Key_6, 20}, {Qt::Key_Y, 21},      {Qt::Key_7, 22},
      {Qt::Key_U, 23},     {Qt::Key_I, 24}, {Qt::Key_9, 25},      {Qt::Key_O, 26},
      {Qt::Key_0, 27},     {Qt::Key_P, 28},
  };
  return offsets;
}

QString noteName(std::int32_t note) {
  static constexpr std::array<const char*, 12> kNames = {"C",  "C#", "D",  "D#", "E",  "F",
                                                         "F#", "G",  "G#", "A",  "A#", "B"};
  return QStringLiteral("%1%2")
      .arg(kNames[static_cast<std::size_t>(((note % 12) + 12) % 12)])
      .arg(note / 12);
}

}  // namespace

PianoView::PianoView(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_AcceptTouchEvents);
  setFocusPolicy(Qt::StrongFocus);
  layoutKeys();
}

void PianoView::setPianoShift(std::int32_t shift) {
  if (shift < -kMaxPianoShift || shift > kMaxPianoShift) {
    const std::int32_t kept = std::clamp(shift, -kMaxPianoShift, kMaxPianoShift);
    platform::log("PianoView: piano shift {} is out of range; using {}", shift, kept);
    shift = kept;
  }
  pianoShift_ = shift;
  refreshKeyboard();
}

void PianoView::setNumKeysVisible(std::int32_t count) {
  if (count < 1 || count > kMaxNumKeysVisible) {
    const std::int32_t kept = std::clamp(count, 1, kMaxNumKeysVisible);
    platform::log("PianoView: cannot show {} keys; showing {}", count, kept);
    count = kept;
  }
  numKeysVisible_ = count;
  refreshKeyboard();
}

void PianoView::setBaseOctave(std::int32_t octave) {
  octave_ = octave;
  refreshKeyboard();
}

void PianoView::refreshKeyboard() {
  layoutKeys();
  update();
}

std::int32_t PianoView::lowestKey() const {
  const std::int32_t start = 12 * (octave_ - 1) + pianoShift_ + 1;
  return isBlack(start) ? start + 1 : start;
}

void PianoView::layoutKeys() {
  keys_.clear();
  const qreal whiteWidth = static_cast<qreal>(width()) / numKeysVisible_;
  const qreal blackWidth = whiteWidth * kBlackKeyWidth;
  std::vector<Key> blackKeys;
  std::int32_t note = lowestKey();
  for (std::int32_t i = 0; i < numKeysVisible_; ++i, ++note) {
    keys_.push_back(Key{note, QRectF(i * whiteWidth, 0.0, whiteWidth, height()), false});
    // A black key sits on the border to the next white key, if there is one on screen.
    if (isBlack(note + 1) && i + 1 < numKeysVisible_) {
      ++note;
      const qreal border = (i + 1) * whiteWidth;
      blackKeys.push_back(
          Key{note, QRectF(border - blackWidth / 2, 0.0, blackWidth, height() * kBlackKeyHeight),
              true});
    }
  }
  keys_.insert(keys_.end(), blackKeys.begin(), blackKeys.end());
}

const PianoView::Key* PianoView::keyAt(QPointF point) const {
  if (!QRectF(rect()).contains(point)) return nullptr;
  const Key* found = nullptr;
  for (const Key& key : keys_) {
    if (key.rect.contains(point)) found = &key;  // black keys come last and win
  }
  return found;
}

float PianoView::velocityAt(const Key& key, QPointF point) {
  if (key.rect.height() <= 0.0) return 1.0f;
  const qreal depth = std::clamp((point.y() - key.rect.top()) / key.rect.height(), 0.0, 1.0);
  return kMinVelocity + (1.0f - kMinVelocity) * static_cast<float>(depth);
}

std::optional<std::int32_t> PianoView::computerKeyNote(int qtKey) const {
  const auto& offsets = computerKeyOffsets();
  const auto found = offsets.find(qtKey);
  if (found == offsets.end()) return std::nullopt;
  const std::int32_t lowest = lowestKey();
  const std::int32_t baseC = lowest - ((lowest % 12) + 12) % 12;
  return baseC + found->second;
}

// --- Pointers and notes ---------------------------------------------------------------------

void PianoView::pointerDown(PointerId id, std::optional<std::int32_t> note, float velocity) {
  if (pointers_.count(id)) pointerUp(id);
  if (note && !isPlayable(*note)) note.reset();
  Pointer& pointer = pointers_[id] = Pointer{note, false};
  if (!note) return;
  if (latched_.count(*note)) {
    // Pressing a key that hold keeps sounding stops it.
    latched_.erase(*note);
    reportReleased(*note);
    return;
  }
  attach(pointer, velocity);
}

void PianoView::pointerMove(PointerId id, std::optional<std::int32_t> note, float velocity) {
  const auto found = pointers_.find(id);
  if (found == pointers_.end() || locked_) return;
  if (note && !isPlayable(*note)) note.reset();
  Pointer& pointer = found->second;
  if (pointer.key == note) return;
  detach(pointer);
  pointer.key = note;
  if (note) attach(pointer, velocity);
}

void PianoView::pointerUp(PointerId id) {
  const auto found = pointers_.find(id);
  if (found == pointers_.end()) return;
  detach(found->second);
  pointers_.erase(found);
}

void PianoView::releaseAllPointers(bool (*which)(PointerId)) {
  std::vector<PointerId> ids;
  for (const auto& [id, pointer] : pointers_) {
    if (which(id)) ids.push_back(id);
  }
  for (PointerId id : ids) {
    pointerUp(id);
  }
}

void PianoView::attach(Pointer& pointer, float velocity) {
  const std::int32_t note = *pointer.key;
  pointer.sounding = true;
  latched_.erase(note);  // a pointer holds it now
  if (!sounding_.count(note)) reportPressed(note, velocity);
}

void PianoView::detach(Pointer& pointer) {
  if (!std::exchange(pointer.sounding, false)) return;
  const std::int32_t note = *pointer.key;
  if (anyPointerOn(note)) return;
  if (hold_) {
    latched_.insert(note);
  } else {
    reportReleased(note);
  }
}

bool PianoView::anyPointerOn(std::int32_t note) const {
  return std::any_of(pointers_.begin(), pointers_.end(), [note](const auto& entry) {
    return entry.second.sounding && entry.second.key == note;
  });
}

void PianoView::reportPressed(std::int32_t note, float velocity) {
  sounding_.insert(note);
  update();
  if (PianoViewDelegate* delegate = delegate_.get()) delegate->pianoKeyPressed(note, velocity);
}

void PianoView::reportReleased(std::int32_t note) {
  if (!sounding_.erase(note)) return;
  update();
  if (PianoViewDelegate* delegate = delegate_.get()) delegate->pianoKeyReleased(note);
}

void PianoView::setHold(bool hold) {
  hold_ = hold;
  if (hold) return;
  const std::set<std::int32_t> latched = std::exchange(latched_, {});
  for (std::int32_t note : latched)
    reportReleased(note);
}

void PianoView::setIsLocked(bool locked) {
  locked_ = locked;
}

void PianoView::panic() {
  for (auto& [id, pointer] : pointers_) {
    pointer.sounding = false;  // still down, but silent until it moves to another key
  }
  latched_.clear();
  const std::set<std::int32_t> sounding = sounding_;
  for (std::int32_t note : sounding)
    reportReleased(note);
}

// --- Events ---------------------------------------------------------------------------------

void PianoView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  const Key* key = keyAt(event->position());
  pointerDown(kMousePointer, key ? std::optional(key->note) : std::nullopt,
              key ? velocityAt(*key, event->position()) : 1.0f);
}

void PianoView::mouseMoveEvent(QMouseEvent* event) {
  const Key* key = keyAt(event->position());
  pointerMove(kMousePointer, key ? std::optional(key->note) : std::nullopt,
              key ? velocityAt(*key, event->position()) : 1.0f);
}

void PianoView::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) pointerUp(kMousePointer);
}

bool PianoView::event(QEvent* event) {
  switch (event->type()) {
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd: {
      for (const QEventPoint& point : static_cast<QTouchEvent*>(event)->points()) {
        const PointerId id = point.id();
        const Key* key = keyAt(point.position());
        const std::optional<std::int32_t> note = key ? std::optional(key->note) : std::nullopt;
        const float velocity = key ? velocityAt(*key, point.position()) : 1.0f;
        if (point.state() == QEventPoint::Pressed) pointerDown(id, note, velocity);
        if (point.state() == QEventPoint::Updated) pointerMove(id, note, velocity);
        if (point.state() == QEventPoint::Released) pointerUp(id);
      }
      event->accept();
      return true;
    }
    case QEvent::TouchCancel:
      releaseAllPointers(isTouch);
      event->accept();
      return true;
    default:
      return QWidget::event(event);
  }
}

void PianoView::keyPressEvent(QKeyEvent* event) {
  const std::optional<std::int32_t> note = computerKeyNote(event->key());
  if (!note) {
    QWidget::keyPressEvent(event);
    return;
  }
  if (!event->isAutoRepeat())
    pointerDown(kComputerKeyBase + event->key(), note, kComputerKeyVelocity);
}

void PianoView::keyReleaseEvent(QKeyEvent* event) {
  if (!computerKeyNote(event->key())) {
    QWidget::keyReleaseEvent(event);
    return;
  }
  if (!event->isAutoRepeat()) pointerUp(kComputerKeyBase + event->key());
}

// Keys released while another window has the focus never reach this view: let them go now.
void PianoView::focusOutEvent(QFocusEvent* event) {
  releaseAllPointers(isComputerKey);
  QWidget::focusOutEvent(event);
}

void PianoView::hideEvent(QHideEvent* /*event*/) {
  releaseAllPointers(isAnyPointer);
}

void PianoView::resizeEvent(QResizeEvent* /*event*/) {
  layoutKeys();
}

// --- Drawing --------------------------------------------------------------------------------

void PianoView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.fillRect(rect(), kBackground);

  QFont nameFont = font();
  nameFont.setPixelSize(std::clamp(static_cast<int>(height() / 12), 8, 12));
  painter.setFont(nameFont);

  for (const Key& key : keys_) {
    // Keys hang from the top edge: only the front corners are rounded.
    const QRectF r = key.rect.adjusted(0.5, -kKeyCornerRadius, -0.5, -0.5);
    QPainterPath shape;
    shape.addRoundedRect(r, kKeyCornerRadius, kKeyCornerRadius);
    const bool sounding = isSounding(key.note);
    QColor fill = key.black ? kBlackKey : kWhiteKey;
    if (sounding) fill = key.black ? kSoundingBlackKey : kSoundingWhiteKey;
    painter.save();
    painter.setClipRect(key.rect);
    painter.fillPath(shape, fill);
    painter.strokePath(shape, QPen(kKeyOutline, 1.0));
    painter.restore();
    if (!key.black && ((key.note % 12) + 12) % 12 == 0) {
      painter.setPen(kKeyName);
      painter.drawText(key.rect.adjusted(0, 0, 0, -6), Qt::AlignHCenter | Qt::AlignBottom,
                       noteName(key.note));
    }
  }
}
