#pragma once

// Property lists as files: XML property lists, written atomically (a temporary file renamed into
// place, so a reader never sees half a file) and read back.

#include <filesystem>
#include <optional>

#include "platform/foundation/PropertyList.h"

namespace platform {

// False when the file cannot be written; nothing is changed then.
bool writePropertyList(const PropertyDictionary& dictionary, const std::filesystem::path& path);

// Nothing when the file is missing or is not a property list with a dictionary at its top.
std::optional<PropertyDictionary> readPropertyList(const std::filesystem::path& path);

}  // namespace platform
