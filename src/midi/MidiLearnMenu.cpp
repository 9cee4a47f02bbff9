#include "midi/MidiLearnMenu.h"

#include <QMenuBar>
#include <map>

#include "midi/MidiLearn.h"
#include "platform/audio/AudioUnit.h"
#include "platform/audio/ControlPorts.h"

namespace {

QString portName(const platform::ControlPort& port) {
  return QString::fromStdString(port.name.empty() ? port.symbol : port.name);
}

}  // namespace

MidiLearnMenu::MidiLearnMenu(MidiLearn& learn, QWidget* parent)
    : QMenu(tr("MIDI learn"), parent), learn_(learn) {
  setObjectName("midiLearnMenu");
  connect(this, &QMenu::aboutToShow, this, &MidiLearnMenu::rebuild);
  rebuild();
}

void MidiLearnMenu::showTitle() {
  const std::string& symbol = learn_.learning();
  if (symbol.empty() || !learn_.instrument()) {
    setTitle(tr("MIDI learn"));
    return;
  }
  QString name = QString::fromStdString(symbol);
  for (const platform::ControlPort& port : platform::controlPorts(learn_.instrument()->uri())) {
    if (port.symbol == symbol) name = portName(port);
  }
  setTitle(tr("MIDI learn: move a controller for %1\u2026").arg(name));
}

void MidiLearnMenu::learn(const std::string& symbol) {
  learn_.learn(symbol, [this](int) { showTitle(); });
  showTitle();
}

void MidiLearnMenu::rebuild() {
  clear();
  qDeleteAll(findChildren<QMenu*>(Qt::FindDirectChildrenOnly));
  const auto& unit = learn_.instrument();
  if (!unit) {  // the menu stays enabled: it is made again when it opens
    addAction(tr("No instrument yet"))->setEnabled(false);
    return;
  }
  const std::vector<platform::ControlPort> ports = platform::controlPorts(unit->uri());
  if (!learn_.learning().empty())
    addAction(tr("Stop waiting for a controller"), this, [this] {
      learn_.cancelLearning();
      showTitle();
    });
  // The bound controls, to forget; then every control, by group, to learn.
  for (const platform::ControlPort& port : ports) {
    if (const auto controller = learn_.controllerFor(port.symbol))
      addAction(tr("Forget %1 (CC %2)").arg(portName(port)).arg(*controller), this,
                [this, symbol = port.symbol] { learn_.forget(symbol); });
  }
  addSection(tr("Learn a controller for"));
  std::map<std::string, QMenu*> groups;
  for (const platform::ControlPort& port : ports) {
    const std::string groupName = port.group.empty() ? "Controls" : port.group;
    QMenu*& group = groups[groupName];
    if (!group) group = addMenu(QString::fromStdString(groupName));
    const auto controller = learn_.controllerFor(port.symbol);
    group->addAction(
        controller ? tr("%1 (CC %2)").arg(portName(port)).arg(*controller) : portName(port), this,
        [this, symbol = port.symbol] { learn(symbol); });
  }
}

void MidiLearnMenu::attachToEditor(QWidget* editor) {
  if (!editor) return;
  for (QWidget* control : editor->findChildren<QWidget*>()) {
    const QString symbol = control->property("controlSymbol").toString();
    if (symbol.isEmpty() || control->contextMenuPolicy() == Qt::CustomContextMenu) continue;
    control->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(control, &QWidget::customContextMenuRequested, control,
            [this, control, symbol = symbol.toStdString()](const QPoint& at) {
              QMenu menu;
              menu.addAction(tr("MIDI learn"), this, [this, symbol] { learn(symbol); });
              const auto controller = learn_.controllerFor(symbol);
              QAction* forget =
                  menu.addAction(controller ? tr("Forget (CC %1)").arg(*controller) : tr("Forget"),
                                 this, [this, symbol] { learn_.forget(symbol); });
              forget->setEnabled(controller.has_value());
              menu.exec(control->mapToGlobal(at));
            });
  }
}
