#include "platform/store/Fetch.h"

#include <curl/curl.h>

#include <cstdio>
#include <functional>
#include <mutex>

#include "platform/foundation/Log.h"

namespace platform {
namespace {

struct Transfer {
  std::function<bool(const char*, std::size_t)> sink;  // false: stop
  std::uint64_t received = 0;
  std::uint64_t maximum = 0;
  bool tooLarge = false;
  const std::atomic<bool>* cancel = nullptr;
};

std::size_t write(char* data, std::size_t size, std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const std::size_t bytes = size * count;
  transfer.received += bytes;
  if (transfer.received > transfer.maximum) {
    transfer.tooLarge = true;
    return 0;  // makes curl stop with a write error
  }
  return transfer.sink(data, bytes) ? bytes : 0;
}

int progress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto& transfer = *static_cast<Transfer*>(user);
  return transfer.cancel && transfer.cancel->load() ? 1 : 0;
}

std::string perform(const std::string& url, Transfer& transfer, const FetchLimits& limits) {
  static std::once_flag initialised;
  std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  transfer.maximum = limits.maximumBytes;
  CURL* curl = curl_easy_init();
  if (!curl) return "cannot start a transfer";
  char message[CURL_ERROR_SIZE] = {};
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, message);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https,file");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 5L);
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, limits.timeoutSeconds);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, limits.stallSeconds);
  curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits.maximumBytes));
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, write);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progress);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  const CURLcode result = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  if (result == CURLE_OK) return {};
  if (transfer.tooLarge || result == CURLE_FILESIZE_EXCEEDED)
    return "larger than " + std::to_string(limits.maximumBytes) + " bytes";
  if (result == CURLE_ABORTED_BY_CALLBACK) return "cancelled";
  if (result == CURLE_HTTP_RETURNED_ERROR) return "HTTP " + std::to_string(status);
  return printable(message[0] ? message : curl_easy_strerror(result));
}

}  // namespace

std::string fetchToString(const std::string& url, std::string* body, const FetchLimits& limits,
                          const std::atomic<bool>* cancel) {
  body->clear();
  Transfer transfer;
  transfer.cancel = cancel;
  transfer.sink = [body](const char* data, std::size_t bytes) {
    body->append(data, bytes);
    return true;
  };
  return perform(url, transfer, limits);
}

std::string fetchToFile(const std::string& url, const std::filesystem::path& file,
                        const FetchLimits& limits, const std::atomic<bool>* cancel) {
  std::FILE* out = std::fopen(file.c_str(), "wb");
  if (!out) return "cannot write " + file.string();
  Transfer transfer;
  transfer.cancel = cancel;
  transfer.sink = [out](const char* data, std::size_t bytes) {
    return std::fwrite(data, 1, bytes, out) == bytes;
  };
  std::string error = perform(url, transfer, limits);
  if (std::fclose(out) != 0 && error.empty()) error = "cannot write " + file.string();
  return error;
}

}  // namespace platform
