#pragma once

// The window's "MIDI learn" menu: every control input of the instrument (by group), a click
// waits for the next controller message and binds it; the bound ones listed to forget; while it
// waits, the menu's title says for which control. Also the right-click menu of the generic
// editor's controls ("MIDI learn", "Forget"). Main thread.

#include <QMenu>

class MidiLearn;

class MidiLearnMenu : public QMenu {
 public:
  MidiLearnMenu(MidiLearn& learn, QWidget* parent = nullptr);

  // Makes the menu's entries for the instrument of the moment (also when it opens).
  void rebuild();

  // Gives every control of an editor view marked with the property "controlSymbol" (the generic
  // editor's) a right-click menu with "MIDI learn" and "Forget".
  void attachToEditor(QWidget* editor);

  // Starts learning for `symbol`, the title showing it until a controller is heard.
  void learn(const std::string& symbol);

 private:
  void showTitle();
  MidiLearn& learn_;
};
