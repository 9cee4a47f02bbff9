#pragma once

// MIDI learn: which MIDI controller (CC number) drives which control input of the instrument.
//
// A control is chosen, the next controller message that reaches the instrument (from any MIDI
// source or the keyboard) names its controller, and from then on that controller moves the
// control over its range on the audio thread (see AudioUnit::setControllerBindings); "forget"
// unbinds it. One controller drives one control and one control has one controller. The map is
// kept with the session as a list (toVariant/fromVariant). Main thread.

#include <QVariant>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QTimer;

namespace platform {
class AudioUnit;
}

struct MidiLearnEntry {
  int controller = 0;  // 0..127
  std::string symbol;  // the control input's port symbol
  int channel = 0;     // 1..16 as the session gave it, 0 when it gave none (see toVariant)
};

class MidiLearn {
 public:
  MidiLearn();
  ~MidiLearn();
  MidiLearn(const MidiLearn&) = delete;
  MidiLearn& operator=(const MidiLearn&) = delete;

  // The instrument the map drives (null: none). Entries naming controls it does not have are
  // dropped, with one log line.
  void setInstrument(std::shared_ptr<platform::AudioUnit> unit);
  const std::shared_ptr<platform::AudioUnit>& instrument() const { return unit_; }

  const std::vector<MidiLearnEntry>& entries() const { return entries_; }
  std::optional<int> controllerFor(const std::string& symbol) const;

  // Binds the next controller heard to `symbol` (replacing what either was bound to); `learned`
  // is then called with its number. A second learn or cancelLearning ends the first.
  void learn(const std::string& symbol, std::function<void(int controller)> learned = {});
  void cancelLearning();
  // The control waiting for a controller, or empty.
  const std::string& learning() const { return learning_; }

  void bind(int controller, const std::string& symbol, int channel = 0);
  void forget(const std::string& symbol);

  // The map as the session keeps it: a list of maps {"controller": 0..127, "symbol": text}, with
  // "channel": 1..16 only on entries that came with one. MIDI reaches the instrument after the
  // input's own channel choice, so every entry answers its controller on whichever channel
  // passed it; a channel given is kept as it came.
  QVariantList toVariant() const;
  // Replaces the map with `variant`'s entries. Anything but a list of such maps, a controller
  // outside 0..127, a channel outside 1..16 or a symbol that is not text is refused; a symbol the
  // instrument has no control for is dropped. Returns one message saying what was left out, or
  // an empty string when everything was taken.
  std::string fromVariant(const QVariant& variant);

  // Called after every change of the map (for the session to note it).
  std::function<void()> onChange;

 private:
  void publish();
  void heardController();
  std::string dropUnknownSymbols();

  std::shared_ptr<platform::AudioUnit> unit_;
  std::vector<MidiLearnEntry> entries_;
  std::string learning_;
  std::function<void(int)> learned_;
  std::unique_ptr<QTimer> listen_;
};
