#pragma once

// Treats denormal floats as zero while it exists, so decaying filters and envelopes never drop
// into the slow denormal path. Restores the previous mode when it goes out of scope.

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace pelma {

class ScopedFlushDenormals {
 public:
#if defined(__SSE__)
  ScopedFlushDenormals() noexcept : saved_(_mm_getcsr()) {
    constexpr unsigned kFlushToZero = 0x8000, kDenormalsAreZero = 0x0040;
    _mm_setcsr(saved_ | kFlushToZero | kDenormalsAreZero);
  }
  ~ScopedFlushDenormals() {
    _mm_setcsr(saved_);
  }

 private:
  unsigned saved_;
#else
  ScopedFlushDenormals() noexcept = default;
#endif
  ScopedFlushDenormals(const ScopedFlushDenormals&) = delete;
  ScopedFlushDenormals& operator=(const ScopedFlushDenormals&) = delete;
};

}  // namespace pelma
