#include "midi/MidiLearn.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <QTimer>
#include <QVariantMap>
#include <algorithm>
#include <variant>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/ControlPorts.h"
#include "platform/foundation/Log.h"

namespace {

// A session's map is short (one entry per controller at most); a longer list is not read on.
constexpr int kMaxEntries = 128;
constexpr int kMaxSymbol = 256;
// How often the main thread looks for the controller the audio thread heard while learning.
constexpr int kListenIntervalMs = 20;

// An entry from the session's form, or the reason it is refused.
std::variant<MidiLearnEntry, std::string> readEntry(const QVariant& item) {
  if (item.typeId() != QMetaType::QVariantMap) return std::string("an entry that is not a map");
  const QVariantMap map = item.toMap();
  const QVariant controller = map.value(QStringLiteral("controller"));
  const QVariant symbol = map.value(QStringLiteral("symbol"));
  const QVariant channel = map.value(QStringLiteral("channel"));
  bool number = false;
  const double value = controller.toDouble(&number);
  if (!number || value != static_cast<int>(value) || value < 0 || value > 127)
    return std::string("a controller number outside 0 to 127");
  if (symbol.typeId() != QMetaType::QString || symbol.toString().isEmpty() ||
      symbol.toString().size() > kMaxSymbol)
    return std::string("a control without a name");
  MidiLearnEntry entry{static_cast<int>(value), symbol.toString().toStdString(), 0};
  if (channel.isValid()) {
    const double c = channel.toDouble(&number);
    if (!number || c != static_cast<int>(c) || c < 1 || c > 16)
      return std::string("a channel outside 1 to 16");
    entry.channel = static_cast<int>(c);
  }
  return entry;
}

}  // namespace

MidiLearn::MidiLearn() : listen_(std::make_unique<QTimer>()) {
  listen_->setInterval(kListenIntervalMs);
  QObject::connect(listen_.get(), &QTimer::timeout, [this] { heardController(); });
}

MidiLearn::~MidiLearn() {
  cancelLearning();
}

void MidiLearn::setInstrument(std::shared_ptr<platform::AudioUnit> unit) {
  cancelLearning();
  unit_ = std::move(unit);
  if (const std::string dropped = dropUnknownSymbols(); !dropped.empty())
    platform::log("MIDI learn: {}", dropped);
  publish();
}

std::optional<int> MidiLearn::controllerFor(const std::string& symbol) const {
  for (const MidiLearnEntry& entry : entries_) {
    if (entry.symbol == symbol) return entry.controller;
  }
  return std::nullopt;
}

void MidiLearn::learn(const std::string& symbol, std::function<void(int)> learned) {
  cancelLearning();
  if (!unit_) return;
  learning_ = symbol;
  learned_ = std::move(learned);
  unit_->listenForControllers(true);
  listen_->start();
}

void MidiLearn::cancelLearning() {
  listen_->stop();
  if (unit_ && !learning_.empty()) unit_->listenForControllers(false);
  learning_.clear();
  learned_ = nullptr;
}

void MidiLearn::heardController() {
  const int controller = unit_ ? unit_->takeHeardController() : -1;
  if (controller < 0) return;
  const std::string symbol = learning_;
  auto learned = std::move(learned_);
  cancelLearning();
  bind(controller, symbol);
  platform::log("MIDI learn: controller {} drives {}", controller, symbol);
  if (learned) learned(controller);
}

void MidiLearn::bind(int controller, const std::string& symbol, int channel) {
  if (controller < 0 || controller > 127 || symbol.empty()) return;
  std::erase_if(entries_, [&](const MidiLearnEntry& entry) {
    return entry.controller == controller || entry.symbol == symbol;
  });
  entries_.push_back({controller, symbol, channel});
  std::sort(entries_.begin(), entries_.end(),
            [](const auto& a, const auto& b) { return a.controller < b.controller; });
  publish();
  if (onChange) onChange();
}

void MidiLearn::forget(const std::string& symbol) {
  if (std::erase_if(entries_, [&](const MidiLearnEntry& e) { return e.symbol == symbol; }) == 0)
    return;
  publish();
  if (onChange) onChange();
}

QVariantList MidiLearn::toVariant() const {
  QVariantList list;
  for (const MidiLearnEntry& entry : entries_) {
    QVariantMap map{{QStringLiteral("controller"), entry.controller},
                    {QStringLiteral("symbol"), QString::fromStdString(entry.symbol)}};
    if (entry.channel) map.insert(QStringLiteral("channel"), entry.channel);
    list.append(map);
  }
  return list;
}

std::string MidiLearn::fromVariant(const QVariant& variant) {
  cancelLearning();
  entries_.clear();
  std::vector<std::string> problems;
  if (variant.isValid() && variant.typeId() != QMetaType::QVariantList) {
    problems.push_back("the MIDI learn map is not a list");
  }
  const QVariantList list = variant.toList();
  if (list.size() > kMaxEntries)
    problems.push_back(
        fmt::format("only the first {} of {} entries were read", kMaxEntries, list.size()));
  for (int i = 0; i < std::min<int>(list.size(), kMaxEntries); ++i) {
    auto entry = readEntry(list[i]);
    if (auto* problem = std::get_if<std::string>(&entry)) {
      problems.push_back(fmt::format("entry {} has {}", i + 1, *problem));
      continue;
    }
    const auto& read = std::get<MidiLearnEntry>(entry);
    const bool taken = std::any_of(entries_.begin(), entries_.end(), [&](const auto& e) {
      return e.controller == read.controller || e.symbol == read.symbol;
    });
    if (taken) {
      problems.push_back(fmt::format("entry {} repeats a controller or control", i + 1));
      continue;
    }
    entries_.push_back(read);
  }
  if (std::string dropped = dropUnknownSymbols(); !dropped.empty())
    problems.push_back(std::move(dropped));
  publish();
  if (onChange) onChange();
  if (problems.empty()) return {};
  std::string message = "MIDI learn: " + fmt::format("{}", fmt::join(problems, "; "));
  platform::log("{}", platform::printable(message, 400));
  return message;
}

std::string MidiLearn::dropUnknownSymbols() {
  if (!unit_) return {};
  const std::vector<std::string> known = unit_->parameterSymbols();
  std::vector<std::string> dropped;
  std::erase_if(entries_, [&](const MidiLearnEntry& entry) {
    if (std::find(known.begin(), known.end(), entry.symbol) != known.end()) return false;
    dropped.push_back(platform::printable(entry.symbol, 40));
    return true;
  });
  if (dropped.empty()) return {};
  return fmt::format("{} has no control {}; dropped", unit_->name(), fmt::join(dropped, ", "));
}

void MidiLearn::publish() {
  if (!unit_) return;
  const std::vector<platform::ControlPort> ports = platform::controlPorts(unit_->uri());
  std::vector<platform::AudioUnit::ControllerBinding> bindings;
  for (const MidiLearnEntry& entry : entries_) {
    const auto port = std::find_if(ports.begin(), ports.end(),
                                   [&](const auto& p) { return p.symbol == entry.symbol; });
    if (port != ports.end())
      bindings.push_back({static_cast<std::uint8_t>(entry.controller), *port});
  }
  unit_->setControllerBindings(bindings);
}
