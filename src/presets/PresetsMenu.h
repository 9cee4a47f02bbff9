#pragma once

// The window's "Presets" menu: the instrument's presets by name (a click loads one), "Save
// preset…", the user's own presets to rename or delete, and "Reset to default". It is made again
// each time it opens, so it lists what the world holds at that moment. A problem is shown in the
// window as one alert. Main thread.

#include <QMenu>
#include <functional>
#include <memory>

namespace platform {
class AudioUnit;
}

class PresetsMenu : public QMenu {
 public:
  // `instrument` gives the instrument of the moment (null while there is none); `window` is where
  // dialogs and alerts appear.
  PresetsMenu(std::function<std::shared_ptr<platform::AudioUnit>()> instrument, QWidget* window,
              QWidget* parent = nullptr);

  // Makes the menu's entries for the instrument of the moment (also when it opens).
  void rebuild();

 private:
  void report(const std::string& problem);
  void askToSave();

  std::function<std::shared_ptr<platform::AudioUnit>()> instrument_;
  QWidget* window_;
};
