#pragma once

// Content packages: zip archives unpacked into a folder. Every entry must stay inside the folder:
// an absolute name, a ".." component or a symbolic link refuses the whole package.

#include <filesystem>
#include <string>

namespace platform {

// Empty on success; otherwise a one-line reason, and `folder` does not exist afterwards.
std::string unpackPackage(const std::filesystem::path& archive,
                          const std::filesystem::path& folder);

// The SHA-256 of a file's bytes as lower-case hex; empty when it cannot be read.
std::string sha256OfFile(const std::filesystem::path& file);

}  // namespace platform
