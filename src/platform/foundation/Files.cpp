#include "platform/foundation/Files.h"

#include <fcntl.h>
#include <serd/serd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <system_error>

#include "platform/foundation/Log.h"

namespace platform {
namespace fs = std::filesystem;

namespace {

// Copies `from` into the new `to` without following links; false on the first failure.
bool copyWithoutLinks(const fs::path& from, const fs::path& to) {
  std::error_code error;
  const auto status = fs::symlink_status(from, error);
  if (error) return false;
  if (fs::is_symlink(status)) {
    log("Not copied: {} is a link", printable(from.string()));
    return true;  // left out; the rest of the folder is copied
  }
  if (fs::is_directory(status)) {
    fs::create_directory(to, error);
    if (error) return false;
    for (fs::directory_iterator it(from, error), end; !error && it != end; it.increment(error))
      if (!copyWithoutLinks(it->path(), to / it->path().filename())) return false;
    return !error;
  }
  if (!fs::is_regular_file(status)) return true;  // devices, sockets, pipes: left out
  return fs::copy_file(from, to, error) && !error;
}

}  // namespace

bool copyItemWithoutReplacing(const fs::path& from, const fs::path& to) {
  std::error_code error;
  const auto source = fs::symlink_status(from, error);
  if (fs::exists(fs::symlink_status(to, error)) || !fs::exists(source)) return false;
  if (fs::is_symlink(source)) {
    log("Not copied: {} is a link", printable(from.string()));
    return false;
  }
  const fs::path partial = to.parent_path() / ("." + to.filename().string() + ".partial");
  fs::remove_all(partial, error);
  if (copyWithoutLinks(from, partial) && !fs::exists(fs::symlink_status(to, error))) {
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

std::optional<fs::path> pathOfFileUrl(std::string_view url) {
  if (!url.starts_with("file:")) return std::nullopt;
  std::string text(url.substr(0, url.find_first_of("?#")));
  // serd stops at an escaped NUL and takes what came before it: such a URL names nothing.
  if (text.find('\0') != std::string::npos || text.find("%00") != std::string::npos)
    return std::nullopt;
  if (!text.starts_with("file://")) text.insert(5, "//");  // "file:/a" has no authority
  std::uint8_t* host = nullptr;
  std::unique_ptr<std::uint8_t, decltype(&serd_free)> path(
      serd_file_uri_parse(reinterpret_cast<const std::uint8_t*>(text.c_str()), &host), serd_free);
  std::unique_ptr<std::uint8_t, decltype(&serd_free)> hostOwner(host, serd_free);
  if (!path) return std::nullopt;
  const std::string hostName = host ? reinterpret_cast<const char*>(host) : "";
  if (!hostName.empty() && hostName != "localhost") return std::nullopt;
  fs::path result(reinterpret_cast<const char*>(path.get()));
  if (!result.is_absolute()) return std::nullopt;
  return result;
}

std::optional<std::string> readFileUpTo(const fs::path& file, std::uint64_t maximumBytes,
                                        std::string* error) {
  const auto fail = [&](std::string why) -> std::optional<std::string> {
    if (error) *error = std::move(why);
    return std::nullopt;
  };
  struct Descriptor {
    int fd;
    ~Descriptor() {
      if (fd >= 0) ::close(fd);
    }
  } const opened{::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)};
  const int fd = opened.fd;
  if (fd < 0) return fail("cannot be opened");
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return fail("is not a regular file");
  if (static_cast<std::uint64_t>(info.st_size) > maximumBytes)
    return fail("is larger than " + std::to_string(maximumBytes) + " bytes");
  std::string text;
  char buffer[64 * 1024];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0) return fail("cannot be read");
    if (got == 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
    if (text.size() > maximumBytes)  // grew while being read
      return fail("is larger than " + std::to_string(maximumBytes) + " bytes");
  }
  return text;
}

bool jsonNestingWithin(std::string_view json, int maximumDepth) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (inString) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maximumDepth) return false;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return true;
}

}  // namespace platform
