#pragma once

// The keyboard screen: the performance strip at the bottom of the host window. It turns key
// presses and releases, wheel moves and the panic button into calls on its delegate (the host
// screen), toggles hold, lock, velocity and key size, shifts the octave, and hands the sequencer
// button to an action the host may install.
//
// It is made from one of two interface files: "PianoViewController" (tablet layout) or
// "PianoViewControlleriPhone" (phone layout). Main thread only.

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>

#include "frameworks/krui/KRGradientLayer.h"
#include "frameworks/krui/PianoViewDelegate.h"
#include "keyboard/KRPianoViewDelegate.h"
#include "platform/ui/Popover.h"
#include "platform/ui/StripScale.h"

class KRBankStoreController;

class KRPianoView;
class KRWheelControl;
class PianoView;
class QLabel;
namespace platform {
class Button;
}

class PianoViewController : public QWidget, public KRPianoViewDelegate, public PianoViewDelegate {
 public:
  static constexpr const char* kTabletInterface = "PianoViewController";
  static constexpr const char* kPhoneInterface = "PianoViewControlleriPhone";

  // Loads the named interface file (an unknown name is logged and the tablet one used), connects
  // the buttons and runs viewDidLoad.
  explicit PianoViewController(const QString& nibName, QWidget* parent = nullptr);
  ~PianoViewController() override;

  KRPianoView* pianoView() const { return pianoView_; }
  void setPianoView(KRPianoView* view) { pianoView_ = view; }
  PianoView* pianoView2() const { return pianoView2_; }
  void setPianoView2(PianoView* view) { pianoView2_ = view; }
  const std::shared_ptr<KRPianoViewDelegate>& delegate() const { return delegate_; }
  // Held strongly.
  void setDelegate(std::shared_ptr<KRPianoViewDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  const std::function<void(std::int32_t)>& externalAction() const { return externalAction_; }
  void setExternalAction(std::function<void(std::int32_t)> action) {
    externalAction_ = std::move(action);
  }

  // Outlets.
  platform::Button* holdButton() const { return holdButton_; }
  platform::Button* velocityButton() const { return velocityButton_; }
  platform::Button* sizeButton() const { return sizeButton_; }
  platform::Button* lockButton() const { return lockButton_; }
  platform::Button* panicButton() const { return panicButton_; }
  platform::Button* seqButton() const { return seqButton_; }
  platform::Button* appMenuButton() const { return appMenuButton_; }
  platform::Button* shopButton() const { return shopButton_; }
  platform::Button* octavePlusButton() const { return octavePlusButton_; }
  platform::Button* octaveMinusButton() const { return octaveMinusButton_; }
  KRWheelControl* pitchWheel() const { return pitchWheel_; }
  KRWheelControl* modWheel() const { return modWheel_; }
  QLabel* octaveLabel() const { return octaveLabel_; }
  const KRGradientLayer& gradientLayer() const { return gradientLayer_; }

  void viewDidLoad();
  void viewWillLayoutSubviews();

  // Actions.
  void octavePlus(platform::Button* sender);
  void octaveMinus(platform::Button* sender);
  void holdButtonPressed(platform::Button* sender);
  void velocityButtonPressed(platform::Button* sender);
  void lockButtonPressed(platform::Button* sender);
  void sizeButtonPressed(platform::Button* sender);
  void panicButtonPressed(platform::Button* sender);
  void seqButtonPressed(platform::Button* sender);
  // Opens a new settings menu in a popover beside the button.
  void appMenuButtonPressed(platform::Button* sender);
  // Opens the bank shop in a popover beside the button: the same shop screen every time (it keeps
  // the products it fetched), titled "Banks shop", with a Done button.
  void shopButtonPressed(platform::Button* sender);
  KRBankStoreController* storeController() const;
  // Closes whatever popover this screen shows.
  void dismissAppMenu();
  // The popover shown now, or null.
  platform::Popover* presentedPopover() const { return presented_; }
  void pitchWheelModified();
  void modWheelModified();

  // PianoViewDelegate: the keys pianoView2 plays.
  void pianoKeyPressed(std::int32_t key, float velocity) override;
  void pianoKeyReleased(std::int32_t key) override;
  // KRPianoViewDelegate's wheel operations; the wheels report through the *Modified actions.
  void pitchWheelChanged(float value) override;
  void modWheelChanged(float value) override;

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  platform::StripScale stripScale_;
  // The screen has no panic of its own; the panic button goes to the delegate.
  void panic() override {}

  template <typename Ui>
  void bindOutlets(Ui& ui);
  void connectActions();
  void showOctave();

  platform::Button* holdButton_ = nullptr;
  platform::Button* velocityButton_ = nullptr;
  platform::Button* sizeButton_ = nullptr;
  KRWheelControl* pitchWheel_ = nullptr;
  KRWheelControl* modWheel_ = nullptr;
  platform::Button* lockButton_ = nullptr;
  QLabel* octaveLabel_ = nullptr;
  KRGradientLayer gradientLayer_;
  KRPianoView* pianoView_ = nullptr;
  PianoView* pianoView2_ = nullptr;
  std::shared_ptr<KRPianoViewDelegate> delegate_;
  std::function<void(std::int32_t)> externalAction_;

  platform::Button* panicButton_ = nullptr;
  platform::Button* seqButton_ = nullptr;
  platform::Button* appMenuButton_ = nullptr;
  platform::Button* shopButton_ = nullptr;
  platform::Button* octavePlusButton_ = nullptr;
  platform::Button* octaveMinusButton_ = nullptr;
  QPointer<platform::Popover> presented_;
  QPointer<KRBankStoreController> storeController_;  // made in viewDidLoad, kept between showings
};
