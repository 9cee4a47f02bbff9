#include "platform/foundation/Log.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>

namespace platform {
namespace {

std::mutex& sinkMutex() {
  static std::mutex mutex;
  return mutex;
}

LogSink& currentSink() {
  static LogSink sink;
  return sink;
}

void writeToStandardError(std::string_view line) {
  std::string text(line);
  text.push_back('\n');
  // One write per line, so lines from different threads never interleave.
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

void logLine(std::string_view line) {
  std::lock_guard lock(sinkMutex());
  if (currentSink()) {
    currentSink()(line);
  } else {
    writeToStandardError(line);
  }
}

LogSink setLogSink(LogSink sink) {
  std::lock_guard lock(sinkMutex());
  return std::exchange(currentSink(), std::move(sink));
}

struct LogCapture::State {
  mutable std::mutex mutex;
  std::vector<std::string> lines;
};

LogCapture::LogCapture() : state_(std::make_unique<State>()) {
  previous_ = setLogSink([state = state_.get()](std::string_view line) {
    std::lock_guard lock(state->mutex);
    state->lines.emplace_back(line);
  });
}

LogCapture::~LogCapture() {
  setLogSink(std::move(previous_));
}

std::vector<std::string> LogCapture::lines() const {
  std::lock_guard lock(state_->mutex);
  return state_->lines;
}

bool LogCapture::contains(std::string_view line) const {
  std::lock_guard lock(state_->mutex);
  return std::find(state_->lines.begin(), state_->lines.end(), line) != state_->lines.end();
}

std::string loggable(std::string_view text, std::size_t limit) {
  text = text.substr(0, limit);
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      line += fmt::format("\\x{:02x}", byte);
    } else {
      line += c;
    }
  }
  return line;
}

}  // namespace platform
