#pragma once

// Small file and URL helpers shared by everything that brings files in from outside.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Copies a file or a whole folder to `to`, through a hidden ".NAME.partial" beside it renamed
// into place, so that nobody sees half a copy. Symbolic links are never followed: `from` being
// one refuses the copy, and one inside the folder is left out; either gives one log line. Fails,
// changing nothing, when `to` exists or `from` does not.
bool copyItemWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

// "%2F"-style escapes decoded; nothing when an escape is malformed or decodes to a NUL byte.
std::optional<std::string> percentDecoded(std::string_view text);

// The local path of a "file:" URL ("file:///a%20b", "file://localhost/a", "file:/a"), escapes
// decoded; nothing for another scheme, another host, a relative path or a NUL byte. The URL's
// query and fragment are not part of the path. Through serd's file URI parser.
std::optional<std::filesystem::path> pathOfFileUrl(std::string_view url);

// A regular file's bytes when it has at most `maximumBytes`; nothing (with the reason in `error`
// when given) when it is missing, not a regular file, a link, or larger.
std::optional<std::string> readFileUpTo(const std::filesystem::path& file,
                                        std::uint64_t maximumBytes, std::string* error = nullptr);

// True when JSON text nests arrays and objects at most `maximumDepth` deep (strings skipped), so
// that reading it and walking it stay within bounds. Any text, valid JSON or not.
bool jsonNestingWithin(std::string_view json, int maximumDepth);

}  // namespace platform
