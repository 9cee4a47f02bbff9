#pragma once

// Fetching a URL (http, https or file) with libcurl, bounded: redirects followed (at most five),
// a size limit, an overall timeout, and a transfer that stalls (under 1 byte/s for `stallSeconds`)
// given up. Any thread; blocks until done.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

namespace platform {

struct FetchLimits {
  std::uint64_t maximumBytes = 64ull << 20;
  long timeoutSeconds = 600;
  long stallSeconds = 20;
};

// Empty on success, otherwise a one-line reason ("HTTP 404", "larger than 1024 bytes", ...).
// `cancel`, when it turns true, stops the transfer within a second ("cancelled").
std::string fetchToString(const std::string& url, std::string* body, const FetchLimits& limits,
                          const std::atomic<bool>* cancel = nullptr);

// Writes the body to `file` (replacing it).
std::string fetchToFile(const std::string& url, const std::filesystem::path& file,
                        const FetchLimits& limits, const std::atomic<bool>* cancel = nullptr);

}  // namespace platform
