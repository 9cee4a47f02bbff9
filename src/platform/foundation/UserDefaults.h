#pragma once

// The user-defaults store: small preferences that outlive the process, by key.

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  // The store of this user and application.
  static UserDefaults& standardUserDefaults();

  virtual bool hasKey(const std::string& key) const = 0;
  // The stored value as a boolean; nothing when the key is absent.
  virtual std::optional<bool> boolForKey(const std::string& key) const = 0;
  virtual std::optional<std::int64_t> integerForKey(const std::string& key) const = 0;
  // The stored text; nothing when the key is absent or holds more than kMaxStringLength bytes.
  virtual std::optional<std::string> stringForKey(const std::string& key) const = 0;
  virtual void setBool(const std::string& key, bool value) = 0;
  virtual void setInteger(const std::string& key, std::int64_t value) = 0;
  virtual void setString(const std::string& key, const std::string& value) = 0;

  static constexpr std::size_t kMaxStringLength = 4096;
  virtual void removeObjectForKey(const std::string& key) = 0;
  // Writes pending changes to disk now.
  virtual void synchronize() = 0;
};

}  // namespace platform
