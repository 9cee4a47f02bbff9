// The built pelma.lv2 bundle played by the host's audio unit: MIDI at frame 0 of each block,
// audio measured for pitch, level, clicks and silence.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>

#include "../PelmaRig.h"
#include "support/AudioAnalysis.h"
#include "support/TemporaryFolder.h"

using namespace testing_support;

namespace {

constexpr double kRate = 48000;

class PelmaSoundTest : public ::testing::Test {
 protected:
  TemporaryFolder banks_{true};  // an empty bank folder: only the factory bank

  // One sine oscillator through an open filter.
  static std::unique_ptr<PelmaRig> makeSine(std::uint32_t block = 256, double rate = kRate) {
    auto synth = std::make_unique<PelmaRig>(block, rate);
    synth->set("osc1_wave", pelma::kSine);
    synth->set("cutoff", 20000);
    return synth;
  }
  static std::size_t seconds(double s, double rate = kRate) {
    return static_cast<std::size_t>(s * rate);
  }
  static double level(const std::vector<float>& sound) { return rms(sound.data(), sound.size()); }
  static double loudest(const std::vector<float>& sound, std::size_t from = 0) {
    return peak(sound.data() + from, sound.size() - from);
  }
  // The pitch of a tone expected near `near` Hz (within a few semitones, so that no octave of it
  // is taken for it).
  static double pitch(const std::vector<float>& sound, double near, double rate = kRate) {
    return estimatePitch(sound.data(), sound.size(), rate, near / 1.3, near * 1.3);
  }
};

TEST_F(PelmaSoundTest, A4IsTuned440AtEverySampleRateAndBlockLength) {
  struct Case {
    double rate;
    std::uint32_t block;
  };
  for (Case c : {Case{44100, 256}, Case{48000, 1}, Case{48000, 17}, Case{48000, 4096},
                 Case{96000, 256}, Case{192000, 256}}) {
    auto synth = makeSine(c.block, c.rate);
    synth->midi(0x90, 69, 100);
    synth->render(seconds(0.1, c.rate));
    auto sound = synth->render(seconds(0.5, c.rate));
    EXPECT_NEAR(cents(pitch(sound, 440, c.rate), 440.0), 0.0, 1.0) << c.rate << " " << c.block;
    EXPECT_GT(level(sound), 0.05) << c.rate << " " << c.block;
  }
}

TEST_F(PelmaSoundTest, PitchBendMovesTwoSemitonesEachWay) {
  auto synth = makeSine();
  synth->midi(0x90, 69, 100);
  synth->render(seconds(0.1));
  struct Case {
    std::uint8_t lsb, msb;
    double semitones;
  };
  // 0, 8192 and 16383 as 14-bit values; 16384 is the host's wheel at its top.
  for (Case c : {Case{0x00, 0x00, -2.0}, Case{0x00, 0x40, 0.0}, Case{0x7F, 0x7F, 2.0},
                 Case{0x00, 0x80, 2.0}}) {
    synth->midi(0xE0, c.lsb, c.msb);
    synth->render(1024);
    double expected = 440.0 * std::pow(2.0, c.semitones / 12.0);
    EXPECT_NEAR(cents(pitch(synth->render(seconds(0.5)), expected), expected), 0.0, 1.0)
        << int(c.lsb) << " " << int(c.msb);
  }
}

TEST_F(PelmaSoundTest, Velocity128PlaysLike127AtFullLevel) {
  auto play = [](std::uint8_t velocity) {
    PelmaRig synth;
    synth.midi(0x90, 60, velocity);
    return synth.render(seconds(0.5));
  };
  auto full = play(127);
  EXPECT_EQ(play(128), full);
  EXPECT_GT(level(full), 0.05);
  EXPECT_LT(level(play(40)), 0.6 * level(full));
}

TEST_F(PelmaSoundTest, AllSoundOffSilencesWithinTheBlock) {
  for (std::uint8_t status : {0xB0, 0xB5}) {
    PelmaRig synth;
    for (std::uint8_t key : {48, 55, 60, 64})
      synth.midi(0x90, key, 110);
    synth.render(seconds(0.3));
    synth.midi(status, 120, 0);
    auto block = synth.render(256);
    EXPECT_GT(peak(block.data(), 8), 0.0);  // a short fade, not a click
    EXPECT_EQ(loudest(block, 32), 0.0) << int(status);
    EXPECT_EQ(loudest(synth.render(256)), 0.0);
  }
}

// Each case: notes played, then messages that must keep them sounding, then the release.
TEST_F(PelmaSoundTest, NoteOffsPedalAndAllNotesOffRelease) {
  using Messages = std::vector<std::array<std::uint8_t, 3>>;
  struct Case {
    Messages play, held, release;
  };
  for (const Case& c : {Case{{{0x9A, 60, 100}}, {}, {{0x8A, 60, 0}}},     // channel 11
                        Case{{{0x93, 62, 100}}, {}, {{0x93, 62, 0}}},     // note on, velocity 0
                        Case{{{0x90, 0x90, 64}}, {}, {{0x80, 0x90, 0}}},  // a key byte not MIDI
                        Case{{{0xB0, 64, 127}, {0x90, 60, 100}}, {{0x80, 60, 0}}, {{0xB0, 64, 0}}},
                        Case{{{0x90, 60, 100}, {0x90, 67, 100}}, {}, {{0xB0, 123, 0}}}}) {
    SCOPED_TRACE(int(c.release[0][0]));
    PelmaRig synth;
    synth.set("amp_release", 0.01f);
    const auto send = [&](const Messages& messages) {
      for (const auto& m : messages)
        synth.midi(m[0], m[1], m[2]);
    };
    send(c.play);
    EXPECT_GT(level(synth.render(seconds(0.2))), 0.02);
    send(c.held);
    synth.render(seconds(0.3));
    EXPECT_GT(level(synth.render(2048)), 0.02);
    send(c.release);
    synth.render(seconds(0.2));
    EXPECT_EQ(loudest(synth.render(256)), 0.0);
  }
}

TEST_F(PelmaSoundTest, SeventeenthNoteStealsAVoiceWithoutClickOrStuckNote) {
  auto synth = makeSine();
  synth->set("amp_release", 0.05f);
  for (std::uint8_t key = 48; key < 64; ++key) {
    synth->midi(0x90, key, static_cast<std::uint8_t>(70 + key));
    synth->render(256);
  }
  synth->render(seconds(0.2));
  auto sound = synth->render(4096);
  const double usual = largestCurvature(sound.data(), sound.size());
  EXPECT_GT(usual, 0.0);
  // Key 47 takes the voice of key 48, the oldest, louder: the sum of smooth sines stays smooth.
  // A restarted phase or level would jump by about 0.2; a sine's curvature here is near 0.001.
  synth->midi(0x90, 47, 127);
  auto after = synth->render(4096);
  sound.insert(sound.end(), after.begin(), after.end());
  // From the last samples before the note: a jump would sit right at the block boundary.
  EXPECT_LT(largestCurvature(sound.data() + 4094, sound.size() - 4094), 1.5 * usual);
  EXPECT_GT(level(after), 0.5 * rms(sound.data(), 4096));

  for (std::uint8_t key = 47; key < 64; ++key)
    synth->midi(0x80, key, 64);
  synth->render(seconds(0.5));
  EXPECT_EQ(loudest(synth->render(seconds(0.2))), 0.0);
}

TEST_F(PelmaSoundTest, ModulationWheelAddsVibrato) {
  auto spread = [](bool wheel) {
    auto synth = makeSine();
    if (wheel) synth->midi(0xB0, 1, 127);
    synth->midi(0x90, 69, 100);
    synth->render(seconds(0.1));
    double low = 1e9, high = 0;
    for (int window = 0; window < 20; ++window) {
      double f = pitch(synth->render(seconds(0.025)), 440);
      low = std::min(low, f);
      high = std::max(high, f);
    }
    return cents(high, low);
  };
  EXPECT_LT(spread(false), 2.0);
  EXPECT_GT(spread(true), 40.0);
}

TEST_F(PelmaSoundTest, ExtremeSettingsAndLongSilenceStayFiniteAndDenormalFree) {
  PelmaRig synth;
  for (auto [symbol, value] : {std::pair{"resonance", 1.0f},
                               {"cutoff", 20000.0f},
                               {"noise_level", 1.0f},
                               {"lfo_rate", 20.0f},
                               {"lfo_cutoff", 4.0f},
                               {"filter_env", 6.0f},
                               {"volume", 6.0f},
                               {"osc2_semitones", 24.0f}})
    synth.set(symbol, value);
  std::vector<float> sound;
  auto play = [&](std::size_t frames) {
    auto more = synth.render(frames);
    sound.insert(sound.end(), more.begin(), more.end());
  };
  for (int type = 0; type < 3; ++type) {
    synth.set("filter_type", static_cast<float>(type));
    for (std::uint8_t key : {0, 21, 60, 108, 127})
      synth.midi(0x90, key, 128);
    synth.midi(0xE0, 0x00, 0x80);
    play(seconds(0.3));
    synth.midi(0xE0, 0x00, 0x00);
    synth.set("cutoff", NAN);
    synth.set("resonance", INFINITY);
    play(seconds(0.3));
    synth.midi(0xB0, 123, 0);
    play(seconds(0.2));
  }
  EXPECT_EQ(nonFiniteCount(sound.data(), sound.size()), 0u);
  EXPECT_GT(level(sound), 0.01);
  sound = synth.render(seconds(60));
  EXPECT_EQ(nonFiniteCount(sound.data(), sound.size()), 0u);
  EXPECT_EQ(denormalCount(sound.data(), sound.size()), 0u);
  EXPECT_EQ(loudest(sound, sound.size() - seconds(1)), 0.0);
}

// Noise, LFO, wheels and a cutoff change, in blocks that divide nothing: the same twice.
TEST_F(PelmaSoundTest, IdenticalInputGivesIdenticalOutput) {
  auto perform = [] {
    PelmaRig synth(333);
    synth.set("noise_level", 0.4f);
    synth.set("lfo_cutoff", 1);
    synth.midi(0xB0, 1, 90);
    for (std::uint8_t key : {60, 64, 67, 71})
      synth.midi(0x90, key, 100);
    auto sound = synth.render(seconds(0.4));
    synth.midi(0xE0, 0x10, 0x50);
    synth.set("cutoff", 900);
    const auto more = synth.render(seconds(0.4));
    sound.insert(sound.end(), more.begin(), more.end());
    return sound;
  };
  const auto first = perform();
  EXPECT_GT(level(first), 0.01);
  EXPECT_EQ(perform(), first);
}

}  // namespace
