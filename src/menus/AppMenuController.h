#pragma once

// The settings menu: background audio, which MIDI inputs play, and the MIDI channel they are
// filtered to. Every choice takes effect at once and is stored ("background-audio",
// "MIDI-<source name>", "MIDI-CHANNEL"). The table is read live from the store and the MIDI
// wrapper at every reload. A hidden "Sessions" row (the section's count is 1) leads to the
// sessions list. Made anew for every presentation. Main thread.

#include "platform/ui/TableViewController.h"

class PGMidi;
namespace platform {
class UserDefaults;
}

class AppMenuController : public platform::TableViewController {
 public:
  // `midi` and `defaults` default to the shared MIDI wrapper and the user's store.
  explicit AppMenuController(PGMidi* midi = nullptr, platform::UserDefaults* defaults = nullptr);

  std::int64_t numberOfSectionsInTableView() override { return 3; }
  std::int64_t numberOfRowsInSection(std::int64_t section) override;
  QString titleForHeaderInSection(std::int64_t section) override;
  platform::TableViewCell cellForRowAtIndexPath(platform::IndexPath indexPath) override;
  void didSelectRowAtIndexPath(platform::IndexPath indexPath) override;

 private:
  PGMidi* midi_;
  platform::UserDefaults* defaults_;
};
