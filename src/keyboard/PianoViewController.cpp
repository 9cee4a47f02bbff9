#include "keyboard/PianoViewController.h"

#include <QLabel>

#include "banks/KRBankStoreController.h"
#include "frameworks/krui/KRPianoView.h"
#include "frameworks/krui/PianoView.h"
#include "keyboard/KRWheelControl.h"
#include "menus/AppMenuController.h"
#include "platform/ui/Button.h"
#include "platform/ui/DeviceIdiom.h"
#include "platform/ui/InterfaceFile.h"
#include "platform/ui/NavigationController.h"
#include "platform/ui/Palette.h"
#include "platform/ui/Popover.h"
#include "ui_PianoViewController.h"
#include "ui_PianoViewControlleriPhone.h"

namespace {

bool isPhone() {
  return platform::userInterfaceIdiom() == platform::UserInterfaceIdiom::phone;
}

}  // namespace

PianoViewController::PianoViewController(const QString& nibName, QWidget* parent)
    : QWidget(parent) {
  setAttribute(Qt::WA_StyledBackground);  // the interface file's background colour
  platform::loadInterfaceFile<Ui::PianoViewController, Ui::PianoViewControlleriPhone>(
      this, nibName, kTabletInterface, kPhoneInterface, [this](auto& ui) { bindOutlets(ui); });
  octaveLabel_->setStyleSheet(
      QStringLiteral("color: %1;").arg(platform::palette::css(platform::palette::kAccent)));
  // The octave buttons act on pianoView; the keys are played on pianoView2, laid over it.
  pianoView_->setPlayingKeyboard(pianoView2_);
  connectActions();
  viewDidLoad();
  stripScale_ = platform::StripScale(this);  // the interface file's size is the design
}

PianoViewController::~PianoViewController() {
  delete storeController_.data();  // kept outside the widget tree between showings
}

template <typename Ui>
void PianoViewController::bindOutlets(Ui& ui) {
  holdButton_ = ui.holdButton;
  velocityButton_ = ui.velocityButton;
  sizeButton_ = ui.sizeButton;
  pitchWheel_ = ui.pitchWheel;
  modWheel_ = ui.modWheel;
  lockButton_ = ui.lockButton;
  octaveLabel_ = ui.octaveLabel;
  pianoView_ = ui.pianoView;
  pianoView2_ = ui.pianoView2;
  panicButton_ = ui.panicButton;
  seqButton_ = ui.seqButton;
  appMenuButton_ = ui.appMenuButton;
  shopButton_ = ui.shopButton;
  octavePlusButton_ = ui.octavePlusButton;
  octaveMinusButton_ = ui.octaveMinusButton;
}

void PianoViewController::connectActions() {
  platform::connectAction(octavePlusButton_, this, &PianoViewController::octavePlus);
  platform::connectAction(octaveMinusButton_, this, &PianoViewController::octaveMinus);
  platform::connectAction(holdButton_, this, &PianoViewController::holdButtonPressed);
  platform::connectAction(velocityButton_, this, &PianoViewController::velocityButtonPressed);
  platform::connectAction(lockButton_, this, &PianoViewController::lockButtonPressed);
  platform::connectAction(sizeButton_, this, &PianoViewController::sizeButtonPressed);
  platform::connectAction(panicButton_, this, &PianoViewController::panicButtonPressed);
  platform::connectAction(seqButton_, this, &PianoViewController::seqButtonPressed);
  platform::connectAction(appMenuButton_, this, &PianoViewController::appMenuButtonPressed);
  platform::connectAction(shopButton_, this, &PianoViewController::shopButtonPressed);
}

void PianoViewController::viewDidLoad() {
  pitchWheel_->setValue(0.5f);
  pitchWheel_->setResetToZero(true);
  modWheel_->setValue(0.0f);

  pianoView2_->setDelegate(this);

  pitchWheel_->addTarget(this, [this] { pitchWheelModified(); });
  modWheel_->addTarget(this, [this] { modWheelModified(); });

  // Kept sized with the view but never drawn: the screen's background is the interface file's.
  gradientLayer_ = KRGradientLayer{};
  gradientLayer_.startPoint = {0.5, 1.0};
  gradientLayer_.endPoint = {0.5, 0.0};
  gradientLayer_.frame = QRectF(0.0, 0.0, width(), height());
  gradientLayer_.startColor = QColor::fromRgbF(0.1f, 0.1f, 0.1f, 1.0f);
  gradientLayer_.endColor = QColor::fromRgbF(0.15f, 0.15f, 0.15f, 1.0f);

  pianoView2_->setPianoShift(11);
  pianoView2_->setNumKeysVisible(isPhone() ? 8 : 15);
  pianoView2_->refreshKeyboard();

  storeController_ = new KRBankStoreController;
}

void PianoViewController::viewWillLayoutSubviews() {
  gradientLayer_.frame = QRectF(0.0, 0.0, width(), height());
  pianoView2_->refreshKeyboard();
}

void PianoViewController::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  stripScale_.apply();
  viewWillLayoutSubviews();
}

void PianoViewController::octavePlus(platform::Button* /*sender*/) {
  pianoView_->setOctave(pianoView_->octave() + 1);
  showOctave();
}

void PianoViewController::octaveMinus(platform::Button* /*sender*/) {
  pianoView_->setOctave(pianoView_->octave() - 1);
  showOctave();
}

// Shows the octave the keyboard kept, whatever was asked of it.
void PianoViewController::showOctave() {
  octaveLabel_->setText(QStringLiteral("Octave %1").arg(pianoView_->octave()));
}

void PianoViewController::holdButtonPressed(platform::Button* /*sender*/) {
  holdButton_->setSelected(!holdButton_->isSelected());
  pianoView2_->setHold(holdButton_->isSelected());
}

void PianoViewController::velocityButtonPressed(platform::Button* /*sender*/) {
  velocityButton_->setSelected(!velocityButton_->isSelected());
}

void PianoViewController::lockButtonPressed(platform::Button* /*sender*/) {
  lockButton_->setSelected(!lockButton_->isSelected());
  pianoView2_->setIsLocked(lockButton_->isSelected());
}

// Phones alternate between 8 and 15 keys, other idioms between 15 and 22; the button is lit
// while the larger count (the smaller keys) shows.
void PianoViewController::sizeButtonPressed(platform::Button* /*sender*/) {
  const std::int32_t n = pianoView2_->numKeysVisible();
  const std::int32_t small = isPhone() ? 8 : 15;
  const std::int32_t large = isPhone() ? 15 : 22;
  sizeButton_->setSelected(n == small);
  pianoView2_->setNumKeysVisible(n == small ? large : small);
  pianoView2_->refreshKeyboard();
}

void PianoViewController::panicButtonPressed(platform::Button* /*sender*/) {
  if (delegate_) delegate_->panic();
  pianoView2_->panic();
}

void PianoViewController::seqButtonPressed(platform::Button* sender) {
  sender->setSelected(!sender->isSelected());
  if (externalAction_) externalAction_(0);
}

void PianoViewController::appMenuButtonPressed(platform::Button* sender) {
  dismissAppMenu();
  auto* menu = new AppMenuController;
  auto* navigation = new platform::NavigationController(menu);
  navigation->setRightBarButton(menu, QStringLiteral("Done"), [this] { dismissAppMenu(); });
  presented_ = new platform::Popover(navigation, QSize(320, 300));
  presented_->present(this, sender->geometry());
}

KRBankStoreController* PianoViewController::storeController() const {
  return storeController_.data();
}

void PianoViewController::shopButtonPressed(platform::Button* sender) {
  if (!storeController_) return;
  dismissAppMenu();
  storeController_->setTitle(QStringLiteral("Banks shop"));
  auto* navigation = new platform::NavigationController(storeController_);
  navigation->setRightBarButton(storeController_, QStringLiteral("Done"),
                                [this] { dismissAppMenu(); });
  presented_ = new platform::Popover(navigation, QSize(320, 300));
  // The shop outlives its popover: taken out before the popover and its content are deleted.
  presented_->setCloseHandler([shop = storeController_] {
    if (shop) shop->setParent(nullptr);
  });
  presented_->present(this, sender->geometry());
}

void PianoViewController::dismissAppMenu() {
  if (presented_) presented_->dismiss();
}

void PianoViewController::pitchWheelModified() {
  if (delegate_) delegate_->pitchWheelChanged(pitchWheel_->value());
}

void PianoViewController::modWheelModified() {
  if (delegate_) delegate_->modWheelChanged(modWheel_->value());
}

void PianoViewController::pianoKeyPressed(std::int32_t key, float velocity) {
  if (delegate_) delegate_->pianoKeyPressed(key, velocityButton_->isSelected() ? velocity : 1.0f);
}

void PianoViewController::pianoKeyReleased(std::int32_t key) {
  if (delegate_) delegate_->pianoKeyReleased(key);
}

void PianoViewController::pitchWheelChanged(float /*value*/) {}

void PianoViewController::modWheelChanged(float /*value*/) {}
