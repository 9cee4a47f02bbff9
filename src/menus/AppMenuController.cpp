#include "menus/AppMenuController.h"

#include "frameworks/pelma/MIDIManager.h"
#include "menus/SessionsMenuController.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/ui/NavigationController.h"

namespace {

constexpr const char* kBackgroundAudio = "background-audio";
constexpr const char* kMidiChannel = "MIDI-CHANNEL";
constexpr std::int64_t kChannelRows = 17;  // omni and channels 1 to 16

}  // namespace

AppMenuController::AppMenuController(PGMidi* midi, platform::UserDefaults* defaults)
    : midi_(midi ? midi : MIDIManager::sharedMIDIManager().pgMidi()),
      defaults_(defaults ? defaults : &platform::UserDefaults::standardUserDefaults()) {
  setTitle(QStringLiteral("Settings"));
}

std::int64_t AppMenuController::numberOfRowsInSection(std::int64_t section) {
  if (section == 0) return 1;  // "Sessions" (row 1) stays hidden
  if (section == 2) return kChannelRows;
  return static_cast<std::int64_t>(midi_->sources().size());
}

QString AppMenuController::titleForHeaderInSection(std::int64_t section) {
  if (section == 2) return QStringLiteral("Active MIDI channel");
  if (section == 1) return QStringLiteral("Active MIDI inputs");
  return QString();
}

platform::TableViewCell AppMenuController::cellForRowAtIndexPath(platform::IndexPath indexPath) {
  using platform::CellAccessory;
  const auto mark = [](bool on) { return on ? CellAccessory::checkmark : CellAccessory::none; };
  if (indexPath.section == 1) {
    const auto& source = midi_->sources().at(static_cast<std::size_t>(indexPath.row));
    return {QString::fromStdString(source->name()), mark(source->isActive())};
  }
  if (indexPath.section == 2) {
    return {indexPath.row == 0 ? QStringLiteral("Omni") : QString::number(indexPath.row),
            mark(indexPath.row == midi_->channel())};
  }
  if (indexPath.row == 1) return {QStringLiteral("Sessions"), CellAccessory::disclosureIndicator};
  return {QStringLiteral("Background audio"),
          mark(defaults_->boolForKey(kBackgroundAudio).value_or(false))};
}

void AppMenuController::didSelectRowAtIndexPath(platform::IndexPath indexPath) {
  if (indexPath.section == 0 && indexPath.row == 1) {
    if (auto* navigation = platform::NavigationController::of(this))
      navigation->pushViewController(new SessionsMenuController);
    return;
  }
  if (indexPath.section == 0) {
    const std::optional<bool> stored = defaults_->boolForKey(kBackgroundAudio);
    defaults_->setBool(kBackgroundAudio, stored ? !*stored : true);
    defaults_->synchronize();
  } else if (indexPath.section == 1) {
    const auto& source = midi_->sources().at(static_cast<std::size_t>(indexPath.row));
    source->setIsActive(!source->isActive());
    if (!source->name().empty()) {
      defaults_->setBool("MIDI-" + source->name(), source->isActive());
      defaults_->synchronize();
    }
  } else {
    midi_->setChannel(static_cast<std::int32_t>(indexPath.row));
    defaults_->setInteger(kMidiChannel, midi_->channel());
  }
  reloadData();
}
