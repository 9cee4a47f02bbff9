// Nothing the audio thread reaches in the plug-in allocates or frees: every operator new and
// delete in this program is counted while it runs inside the audio graph's render, for a session
// that plays notes, bends, changes patches and banks and moves controls.

#include <gtest/gtest.h>

#include "../PelmaRig.h"
#include "support/AudioAnalysis.h"
#include "support/AudioThreadAllocations.h"
#include "support/BankText.h"
#include "support/TemporaryFolder.h"

namespace {

TEST(PelmaRealtimeTest, RenderingNeverAllocates) {
  TemporaryFolder banks(true);
  banks.write("mine.plb", testing_support::bankText("Mine"));
  for (std::uint32_t block : {256u, 77u, 1u}) {
    PelmaRig synth(block);
    for (std::uint8_t key = 40; key < 60; ++key)
      synth.midi(0x90, key, 128);
    synth.render(4800);
    synth.midi(0xE0, 0x00, 0x80);
    synth.midi(0xB0, 1, 127);
    synth.midi(0xB0, 64, 127);
    synth.set("cutoff", 300);
    synth.set("program", 2);
    synth.unit->sendObjectMessage(pelma::kRefreshBanksUri);
    const auto sound = synth.render(4800);
    EXPECT_GT(testing_support::rms(sound.data(), sound.size()), 0.01) << block;
    synth.midi(0xB0, 32, 1);
    synth.midi(0xC0, 0);
    synth.midi(0xB0, 123, 0);
    synth.midi(0xB0, 120, 0);
    synth.render(4800);
  }
  EXPECT_EQ(testing_support::audioThreadAllocations.load(), 0);
}

}  // namespace
