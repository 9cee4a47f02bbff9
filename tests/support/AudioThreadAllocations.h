#pragma once

// Replaces operator new and delete for the whole test program and counts every call made on the
// audio thread (inside the audio callback or an offline render). Include it in exactly one
// source file of a program.

#include <atomic>
#include <cstdlib>
#include <new>

#include "platform/foundation/AudioThread.h"

namespace testing_support {
inline std::atomic<long> audioThreadAllocations{0};
}

void* operator new(std::size_t size) {
  if (platform::onAudioThread()) testing_support::audioThreadAllocations++;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  if (p && platform::onAudioThread()) testing_support::audioThreadAllocations++;
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  operator delete(p);
}
