#include "presets/PresetsMenu.h"

#include <QInputDialog>
#include <QMessageBox>

#include "platform/audio/AudioUnit.h"
#include "platform/ui/Alert.h"
#include "presets/PresetLibrary.h"

namespace {

// A preset's name as a menu entry: bounded (names come from files), '&' shown as itself.
QString entryText(const std::string& name) {
  QString text = QString::fromStdString(name);
  if (text.size() > 80) text = text.left(79) + QChar(0x2026);
  return text.replace('&', QStringLiteral("&&"));
}

}  // namespace

PresetsMenu::PresetsMenu(std::function<std::shared_ptr<platform::AudioUnit>()> instrument,
                         QWidget* window, QWidget* parent)
    : QMenu(tr("Presets"), parent), instrument_(std::move(instrument)), window_(window) {
  setObjectName("presetsMenu");
  connect(this, &QMenu::aboutToShow, this, &PresetsMenu::rebuild);
  rebuild();
}

void PresetsMenu::report(const std::string& problem) {
  if (!problem.empty())
    platform::presentAlert(window_, tr("Presets"), QString::fromStdString(problem));
}

void PresetsMenu::askToSave() {
  auto unit = instrument_();
  if (!unit) return;
  bool ok = false;
  const QString name = QInputDialog::getText(
      window_, tr("Save preset"),
      tr("Name of the preset for %1:").arg(QString::fromStdString(unit->name())), QLineEdit::Normal,
      QString(), &ok);
  if (!ok) return;
  presets::PresetLibrary library(unit);
  if (library.exists(name.toStdString()) &&
      QMessageBox::question(window_, tr("Save preset"),
                            tr("A preset named \u201C%1\u201D exists. Replace it?").arg(name)) !=
          QMessageBox::Yes)
    return;
  report(library.save(name.toStdString()));
}

void PresetsMenu::rebuild() {
  clear();
  qDeleteAll(findChildren<QMenu*>(Qt::FindDirectChildrenOnly));
  auto unit = instrument_();
  if (!unit) {  // the menu stays enabled: it is made again when it opens
    addAction(tr("No instrument yet"))->setEnabled(false);
    return;
  }
  presets::PresetLibrary library(unit);
  const std::vector<presets::Preset> all = library.presets();

  addAction(tr("Save preset\u2026"), this, [this] { askToSave(); });
  QMenu* rename = addMenu(tr("Rename preset"));
  QMenu* remove = addMenu(tr("Delete preset"));
  addAction(tr("Reset to default"), this,
            [this, unit] { report(presets::PresetLibrary(unit).resetToDefault()); });
  for (const presets::Preset& preset : all) {
    if (!preset.own) continue;
    const QString name = QString::fromStdString(preset.name);
    rename->addAction(entryText(preset.name), this, [this, unit, preset, name] {
      bool ok = false;
      const QString newName = QInputDialog::getText(window_, tr("Rename preset"), tr("New name:"),
                                                    QLineEdit::Normal, name, &ok);
      if (ok && newName != name)
        report(presets::PresetLibrary(unit).rename(preset, newName.toStdString()));
    });
    remove->addAction(entryText(preset.name), this, [this, unit, preset, name] {
      if (QMessageBox::question(window_, tr("Delete preset"),
                                tr("Delete the preset \u201C%1\u201D?").arg(name)) ==
          QMessageBox::Yes)
        report(presets::PresetLibrary(unit).remove(preset));
    });
  }
  rename->setEnabled(!rename->isEmpty());
  remove->setEnabled(!remove->isEmpty());

  // The user's own first, then those installed with the instrument.
  for (const bool own : {true, false}) {
    bool first = true;
    for (const presets::Preset& preset : all) {
      if (preset.own != own) continue;
      if (first) addSection(own ? tr("Your presets") : tr("Installed presets"));
      first = false;
      QAction* action = addAction(entryText(preset.name), this, [this, unit, preset] {
        report(presets::PresetLibrary(unit).load(preset));
      });
      action->setData(QString::fromStdString(preset.uri));
    }
  }
}
