#pragma once

// Small file and URL helpers shared by everything that brings files in from outside.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Copies a file or a whole folder to `to`, through a hidden ".NAME.partial" beside it renamed
// into place, so that nobody sees half a copy. Fails, changing nothing, when `to` exists or
// `from` does not.
bool copyItemWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

// "%2F"-style escapes decoded; nothing when an escape is malformed or decodes to a NUL byte.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace platform
