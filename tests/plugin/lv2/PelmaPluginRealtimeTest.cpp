// The plug-in's run() must not allocate: every operator new in this program is counted while the
// host is inside run(), for a session that plays notes, bends, changes patches and moves controls.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "../../support/TemporaryFolder.h"
#include "../host/Lv2Instrument.h"
#include "lv2/PelmaUris.h"

namespace {

std::atomic<bool> counting{false};
std::atomic<int> allocations{0};

}  // namespace

void* operator new(std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
// Not inlined: the compiler would otherwise pair its own idea of new with this free().
[[gnu::noinline]] void operator delete(void* p) noexcept {
  std::free(p);
}
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

TEST(PelmaRealtimeTest, RunNeverAllocates) {
  TemporaryFolder banks(true);
  banks.write("mine.plb", "pelma-bank 1\nname = Mine\n[A]\ncutoff = 500\nend\n");
  Lv2Instrument synth(pelma::kPluginUri, 48000);
  Lv2Instrument::beforeRun = [] { counting = true; };
  Lv2Instrument::afterRun = [] { counting = false; };

  for (std::uint8_t key = 40; key < 60; ++key)
    synth.midi({0x90, key, 128});
  synth.render(4800);
  synth.midi({0xE0, 0x00, 0x80});
  synth.midi({0xB0, 1, 127});
  synth.midi({0xB0, 64, 127});
  synth.setControl("cutoff", 300);
  synth.setControl("program", 2);
  synth.render(4800, 77);
  synth.midi({0xB0, 32, 1});
  synth.midi({0xC0, 0});
  synth.midi({0xB0, 123, 0});
  synth.midi({0xB0, 120, 0});
  synth.render(4800, 1);

  Lv2Instrument::beforeRun = nullptr;
  Lv2Instrument::afterRun = nullptr;
  EXPECT_EQ(allocations.load(), 0);
  EXPECT_GT(synth.left().size(), 0u);
}

}  // namespace
