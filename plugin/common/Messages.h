#pragma once

// Where the plug-in code's messages go, one line each: standard error (after "Pelma: ") until a
// sink is set. The plug-in module sets the LV2 host's log:log when the host offers it (hosts name
// the plug-in themselves); a program that links the bank code sends them to its own log.

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace pelma {

struct MessageSink {
  void (*write)(void* context, std::string_view line);
  void* context;
};

// From now on messages go to `sink` (nullptr: standard error). The sink must stay valid until it
// is replaced; clearMessageSink replaces it only if it is still the one in use.
void setMessageSink(const MessageSink* sink);
void clearMessageSink(const MessageSink* sink);

void messageLine(std::string_view line);

template <typename... Args>
void message(fmt::format_string<Args...> format, Args&&... args) {
  messageLine(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace pelma
