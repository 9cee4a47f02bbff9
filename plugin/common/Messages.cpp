#include "common/Messages.h"

#include <atomic>
#include <cstdio>
#include <string>

namespace pelma {
namespace {

std::atomic<const MessageSink*> currentSink{nullptr};

}  // namespace

void setMessageSink(const MessageSink* sink) {
  currentSink.store(sink);
}

void clearMessageSink(const MessageSink* sink) {
  currentSink.compare_exchange_strong(sink, nullptr);
}

void messageLine(std::string_view line) {
  if (const MessageSink* sink = currentSink.load()) {
    sink->write(sink->context, line);
    return;
  }
  std::string text = "Pelma: " + std::string(line) + '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);  // one write, so lines never interleave
}

}  // namespace pelma
