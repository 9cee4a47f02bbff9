#pragma once

// Property lists as files: XML property lists, written atomically (a temporary file renamed into
// place, so a reader never sees half a file) and read back.

#include <cstdint>
#include <filesystem>
#include <optional>

#include "platform/foundation/PropertyList.h"

namespace platform {

// False when the file cannot be written; nothing is changed then.
bool writePropertyList(const PropertyDictionary& dictionary, const std::filesystem::path& path);

inline constexpr std::uint64_t kMaximumPropertyListBytes = 16 << 20;
inline constexpr int kMaximumPropertyListDepth = 64;

// Nothing when the file is missing or is not a property list with a dictionary at its top. A
// file larger than `maximumBytes`, nested deeper than kMaximumPropertyListDepth, or that is a
// link or not a regular file is refused with one log line.
std::optional<PropertyDictionary> readPropertyList(
    const std::filesystem::path& path, std::uint64_t maximumBytes = kMaximumPropertyListBytes);

}  // namespace platform
