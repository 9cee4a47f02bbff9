#include "platform/foundation/Files.h"

#include <system_error>

namespace platform {
namespace fs = std::filesystem;

bool copyItemWithoutReplacing(const fs::path& from, const fs::path& to) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(to, error)) || !fs::exists(from, error)) return false;
  const fs::path partial = to.parent_path() / ("." + to.filename().string() + ".partial");
  fs::remove_all(partial, error);
  fs::copy(from, partial, fs::copy_options::recursive, error);
  if (!error && !fs::exists(fs::symlink_status(to))) {
    fs::rename(partial, to, error);
    if (!error) return true;
  }
  std::error_code ignored;
  fs::remove_all(partial, ignored);
  return false;
}

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexDigit(text[i + 1]), low = hexDigit(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  if (out.find('\0') != std::string::npos) return std::nullopt;
  return out;
}

}  // namespace platform
