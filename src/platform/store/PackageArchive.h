#pragma once

// Content packages: zip archives unpacked into a folder. Every entry must stay inside the folder:
// an absolute name, a ".." component or a symbolic link refuses the whole package, and so does a
// package that would unpack past its limits.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace platform {

struct UnpackLimits {
  std::uint64_t totalBytes = 0;  // everything unpacked together
  std::uint64_t entryBytes = 0;  // one entry
  std::size_t entries = 0;

  // For a package the catalog says has `packageSize` bytes: 20 times that unpacked, and never
  // more than 256 MiB in all, 64 MiB an entry or 4096 entries. Banks are text; they compress a
  // few times, not a thousand.
  static UnpackLimits forPackageOf(std::uint64_t packageSize);
};

// Empty on success; otherwise a one-line reason, and `folder` does not exist afterwards.
std::string unpackPackage(const std::filesystem::path& archive, const std::filesystem::path& folder,
                          const UnpackLimits& limits);

// The SHA-256 of a file's bytes as lower-case hex; empty when it cannot be read.
std::string sha256OfFile(const std::filesystem::path& file);

}  // namespace platform
