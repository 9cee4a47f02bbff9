// The user-defaults store on QSettings, in the platform's native format (an INI file under
// $XDG_CONFIG_HOME/pelma/ on Linux).

#include <QSettings>

#include "platform/foundation/UserDefaults.h"

namespace platform {
namespace {

class QtUserDefaults final : public UserDefaults {
 public:
  QtUserDefaults() : settings_(QSettings::NativeFormat, QSettings::UserScope, "pelma", "Pelma") {}

  bool hasKey(const std::string& key) const override { return settings_.contains(qKey(key)); }

  std::optional<bool> boolForKey(const std::string& key) const override {
    if (!hasKey(key)) return std::nullopt;
    return settings_.value(qKey(key)).toBool();
  }

  std::optional<std::int64_t> integerForKey(const std::string& key) const override {
    if (!hasKey(key)) return std::nullopt;
    return settings_.value(qKey(key)).toLongLong();
  }

  void setBool(const std::string& key, bool value) override {
    settings_.setValue(qKey(key), value);
  }
  void setInteger(const std::string& key, std::int64_t value) override {
    settings_.setValue(qKey(key), static_cast<qlonglong>(value));
  }
  void removeObjectForKey(const std::string& key) override { settings_.remove(qKey(key)); }
  void synchronize() override { settings_.sync(); }

 private:
  static QString qKey(const std::string& key) { return QString::fromStdString(key); }
  mutable QSettings settings_;
};

}  // namespace

UserDefaults& UserDefaults::standardUserDefaults() {
  static QtUserDefaults defaults;
  return defaults;
}

}  // namespace platform
