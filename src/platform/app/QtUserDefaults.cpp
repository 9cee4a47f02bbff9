// The user-defaults store on QSettings, in the platform's native format (an INI file under
// $XDG_CONFIG_HOME/pelma/ on Linux). The file is the user's to edit, so every value read is
// checked: a boolean must be one, an integer must be one and within its key's range. Anything
// else is ignored, as if the key were absent, with one log line.

#include <QSettings>
#include <limits>

#include "platform/foundation/Log.h"
#include "platform/foundation/UserDefaults.h"

namespace platform {
namespace {

struct IntegerRange {
  std::int64_t minimum = std::numeric_limits<std::int64_t>::min();
  std::int64_t maximum = std::numeric_limits<std::int64_t>::max();
};

// The keys whose integers have a narrower range than any integer.
IntegerRange rangeOf(const std::string& key) {
  if (key == "MIDI-CHANNEL") return {0, 16};  // 0 is omni
  return {};
}

class QtUserDefaults final : public UserDefaults {
 public:
  QtUserDefaults() : settings_(QSettings::NativeFormat, QSettings::UserScope, "pelma", "Pelma") {}

  bool hasKey(const std::string& key) const override { return settings_.contains(qKey(key)); }

  std::optional<bool> boolForKey(const std::string& key) const override {
    if (!hasKey(key)) return std::nullopt;
    const QVariant value = settings_.value(qKey(key));
    if (value.typeId() == QMetaType::Bool) return value.toBool();
    const QString text = value.toString().trimmed().toLower();
    if (text == QStringLiteral("true") || text == QStringLiteral("1")) return true;
    if (text == QStringLiteral("false") || text == QStringLiteral("0")) return false;
    return ignored(key, value);
  }

  std::optional<std::int64_t> integerForKey(const std::string& key) const override {
    if (!hasKey(key)) return std::nullopt;
    const QVariant value = settings_.value(qKey(key));
    bool isInteger = false;
    const qlonglong number = value.toString().trimmed().toLongLong(&isInteger);
    const IntegerRange range = rangeOf(key);
    if (!isInteger || number < range.minimum || number > range.maximum) return ignored(key, value);
    return number;
  }

  std::optional<std::string> stringForKey(const std::string& key) const override {
    if (!hasKey(key)) return std::nullopt;
    const QVariant value = settings_.value(qKey(key));
    std::string text = value.toString().toStdString();
    if (!value.canConvert<QString>() || text.size() > kMaxStringLength) return ignored(key, value);
    return text;
  }

  void setBool(const std::string& key, bool value) override {
    settings_.setValue(qKey(key), value);
  }
  void setInteger(const std::string& key, std::int64_t value) override {
    settings_.setValue(qKey(key), static_cast<qlonglong>(value));
  }
  void setString(const std::string& key, const std::string& value) override {
    settings_.setValue(qKey(key), QString::fromStdString(value));
  }
  void removeObjectForKey(const std::string& key) override { settings_.remove(qKey(key)); }
  void synchronize() override { settings_.sync(); }

 private:
  static QString qKey(const std::string& key) { return QString::fromStdString(key); }
  static std::nullopt_t ignored(const std::string& key, const QVariant& value) {
    log("Preference {} = {} is not a value it can have; the default is used", printable(key, 80),
        printable(value.toString().toStdString(), 80));
    return std::nullopt;
  }
  mutable QSettings settings_;
};

}  // namespace

UserDefaults& UserDefaults::standardUserDefaults() {
  static QtUserDefaults defaults;
  return defaults;
}

}  // namespace platform
