#pragma once

// The console log: one line per event, written to standard error by default. Texts are formatted
// with {fmt}; callers pass the exact text of the event. Tests capture lines with LogCapture.
// Thread-safe; never call it from the audio thread.

#include <fmt/format.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Receives every logged line, without its line break.
using LogSink = std::function<void(std::string_view line)>;

// Writes one line to the current sink.
void logLine(std::string_view line);

// Formats one line with {fmt} and logs it.
template <typename... Args>
void log(fmt::format_string<Args...> format, Args&&... args) {
  logLine(fmt::format(format, std::forward<Args>(args)...));
}

// A text from outside made fit for one log line: control characters (a line break, escape
// sequences) written as \xNN, and cut to `limit` bytes.
std::string loggable(std::string_view text, std::size_t limit = 200);

// Replaces the sink and returns the previous one; an empty sink restores standard error.
LogSink setLogSink(LogSink sink);

// Collects the lines logged while it exists (on any thread) instead of printing them.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const;
  bool contains(std::string_view line) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
  LogSink previous_;
};

}  // namespace platform
