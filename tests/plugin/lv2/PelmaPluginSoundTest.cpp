// The built pelma.lv2 bundle, loaded through lilv and played like a host plays it: MIDI at
// frame 0 of each block, audio measured for pitch, level, clicks and silence.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "../../support/TemporaryFolder.h"
#include "../host/AudioMeasurements.h"
#include "../host/Lv2Instrument.h"
#include "lv2/PelmaUris.h"

namespace {

constexpr double kRate = 48000;

class PelmaSoundTest : public ::testing::Test {
 protected:
  TemporaryFolder banks_{true};  // an empty bank folder: only the factory bank

  static std::unique_ptr<Lv2Instrument> make(double rate = kRate) {
    return std::make_unique<Lv2Instrument>(pelma::kPluginUri, rate);
  }
  // One sine oscillator through an open filter: one rising zero crossing per cycle.
  static std::unique_ptr<Lv2Instrument> makeSine(double rate = kRate) {
    auto synth = make(rate);
    synth->setControl("osc1_wave", pelma::kSine);
    synth->setControl("cutoff", 20000);
    return synth;
  }
  static std::uint32_t seconds(double s, double rate = kRate) {
    return static_cast<std::uint32_t>(s * rate);
  }
};

TEST_F(PelmaSoundTest, A4IsTuned440AtEverySampleRate) {
  for (double rate : {44100.0, 48000.0, 96000.0, 192000.0}) {
    auto synth = makeSine(rate);
    synth->midi({0x90, 69, 100});
    synth->render(seconds(0.1, rate));
    auto sound = synth->renderLeft(seconds(1.0, rate));
    EXPECT_NEAR(audio::cents(audio::frequency(sound, rate), 440.0), 0.0, 1.0) << rate;
    EXPECT_GT(audio::rms(sound), 0.05) << rate;
  }
}

TEST_F(PelmaSoundTest, TuningHoldsForOneSampleAndLargeBlocks) {
  for (std::uint32_t block : {1u, 17u, 4096u}) {
    auto synth = makeSine();
    synth->midi({0x90, 57, 100});
    synth->render(seconds(0.1), block);
    auto sound = synth->renderLeft(seconds(0.5), block);
    EXPECT_NEAR(audio::cents(audio::frequency(sound, kRate), 220.0), 0.0, 1.0) << block;
  }
}

TEST_F(PelmaSoundTest, PitchBendMovesTwoSemitonesEachWay) {
  auto synth = makeSine();
  synth->midi({0x90, 69, 100});
  synth->render(seconds(0.1));
  struct Case {
    std::uint8_t lsb, msb;
    double semitones;
  };
  // 0, 8192 and 16383 as 14-bit values; 16384 is the host's wheel at its top.
  for (Case c : {Case{0x00, 0x00, -2.0}, Case{0x00, 0x40, 0.0}, Case{0x7F, 0x7F, 2.0},
                 Case{0x00, 0x80, 2.0}}) {
    synth->midi({0xE0, c.lsb, c.msb});
    synth->render(1024);
    auto sound = synth->renderLeft(seconds(0.5));
    double expected = 440.0 * std::pow(2.0, c.semitones / 12.0);
    EXPECT_NEAR(audio::cents(audio::frequency(sound, kRate), expected), 0.0, 1.0)
        << int(c.lsb) << " " << int(c.msb);
  }
}

TEST_F(PelmaSoundTest, Velocity128PlaysLike127AtFullLevel) {
  auto play = [](std::uint8_t velocity) {
    auto synth = make();
    synth->midi({0x90, 60, velocity});
    return synth->renderLeft(seconds(0.5));
  };
  auto full = play(127);
  EXPECT_EQ(play(128), full);
  EXPECT_GT(audio::rms(full), 0.05);
  EXPECT_LT(audio::rms(play(40)), 0.6 * audio::rms(full));
}

TEST_F(PelmaSoundTest, AllSoundOffSilencesWithinTheBlock) {
  for (std::uint8_t status : {0xB0, 0xB5}) {
    auto synth = make();
    for (std::uint8_t key : {48, 55, 60, 64})
      synth->midi({0x90, key, 110});
    synth->render(seconds(0.3));
    synth->midi({status, 120, 0});
    auto block = synth->renderLeft(256);
    EXPECT_GT(audio::peak(block, 0, 8), 0.0f);  // a short fade, not a click
    EXPECT_EQ(audio::peak(block, 32, 256), 0.0f) << int(status);
    EXPECT_EQ(audio::peak(synth->renderLeft(256)), 0.0f);
  }
}

TEST_F(PelmaSoundTest, NotesOnAnyChannelPlayAndRelease) {
  auto synth = make();
  synth->setControl("amp_release", 0.01f);
  synth->midi({0x9A, 60, 100});  // channel 11
  EXPECT_GT(audio::rms(synth->renderLeft(seconds(0.2))), 0.05);
  synth->midi({0x8A, 60, 0});
  synth->render(seconds(0.2));
  EXPECT_EQ(audio::peak(synth->renderLeft(256)), 0.0f);
  // Note on with velocity 0 releases too.
  synth->midi({0x93, 62, 100});
  synth->render(seconds(0.1));
  synth->midi({0x93, 62, 0});
  synth->render(seconds(0.2));
  EXPECT_EQ(audio::peak(synth->renderLeft(256)), 0.0f);
}

TEST_F(PelmaSoundTest, SustainPedalAndAllNotesOffRelease) {
  auto synth = make();
  synth->setControl("amp_release", 0.01f);
  synth->midi({0xB0, 64, 127});
  synth->midi({0x90, 60, 100});
  synth->render(seconds(0.1));
  synth->midi({0x80, 60, 0});
  synth->render(seconds(0.3));
  EXPECT_GT(audio::rms(synth->renderLeft(2048)), 0.05);  // held by the pedal
  synth->midi({0xB0, 64, 0});
  synth->render(seconds(0.2));
  EXPECT_EQ(audio::peak(synth->renderLeft(256)), 0.0f);

  synth->midi({0x90, 60, 100});
  synth->midi({0x90, 67, 100});
  synth->render(seconds(0.1));
  synth->midi({0xB0, 123, 0});
  synth->render(seconds(0.2));
  EXPECT_EQ(audio::peak(synth->renderLeft(256)), 0.0f);
}

TEST_F(PelmaSoundTest, SeventeenthNoteStealsAVoiceWithoutClickOrStuckNote) {
  auto synth = makeSine();
  synth->setControl("amp_release", 0.05f);
  for (std::uint8_t key = 48; key < 64; ++key) {
    synth->midi({0x90, key, static_cast<std::uint8_t>(70 + key)});
    synth->render(256);
  }
  synth->render(seconds(0.2));
  auto before = synth->renderLeft(4096);
  // Key 47 takes the voice of key 48, the oldest, louder: the sum of smooth sines stays smooth.
  // A restarted phase or level would jump by about 0.2; a sine's curvature here is near 0.001.
  synth->midi({0x90, 47, 127});
  auto after = synth->renderLeft(4096);
  float usual = audio::largestCurvature(before, 2, before.size());
  EXPECT_GT(usual, 0.0f);
  // From the last samples before the note: a jump would sit right at the block boundary.
  std::size_t boundary = synth->left().size() - after.size();
  EXPECT_LT(audio::largestCurvature(synth->left(), boundary - 2, synth->left().size()),
            1.5f * usual);
  EXPECT_GT(audio::rms(after), 0.5 * audio::rms(before));

  for (std::uint8_t key = 47; key < 64; ++key)
    synth->midi({0x80, key, 64});
  synth->render(seconds(0.5));
  EXPECT_EQ(audio::peak(synth->renderLeft(seconds(0.2))), 0.0f);
}

TEST_F(PelmaSoundTest, ModulationWheelAddsVibrato) {
  auto spread = [](bool wheel) {
    auto synth = makeSine();
    if (wheel) synth->midi({0xB0, 1, 127});
    synth->midi({0x90, 69, 100});
    synth->render(seconds(0.1));
    double low = 1e9, high = 0;
    for (int window = 0; window < 20; ++window) {
      double f = audio::frequency(synth->renderLeft(seconds(0.025)), kRate);
      low = std::min(low, f);
      high = std::max(high, f);
    }
    return audio::cents(high, low);
  };
  EXPECT_LT(spread(false), 2.0);
  EXPECT_GT(spread(true), 40.0);
}

TEST_F(PelmaSoundTest, ExtremeSettingsAndLongSilenceStayFiniteAndDenormalFree) {
  auto synth = make();
  synth->setControl("resonance", 1);
  synth->setControl("cutoff", 20000);
  synth->setControl("noise_level", 1);
  synth->setControl("lfo_rate", 20);
  synth->setControl("lfo_cutoff", 4);
  synth->setControl("filter_env", 6);
  synth->setControl("volume", 6);
  synth->setControl("osc2_semitones", 24);
  for (int type = 0; type < 3; ++type) {
    synth->setControl("filter_type", static_cast<float>(type));
    for (std::uint8_t key : {0, 21, 60, 108, 127})
      synth->midi({0x90, key, 128});
    synth->midi({0xE0, 0x00, 0x80});
    synth->render(seconds(0.3));
    synth->midi({0xE0, 0x00, 0x00});
    synth->setControl("cutoff", NAN);
    synth->setControl("resonance", INFINITY);
    synth->render(seconds(0.3));
    synth->midi({0xB0, 123, 0});
    synth->render(seconds(0.2));
  }
  EXPECT_EQ(audio::nonFiniteCount(synth->left()), 0u);
  EXPECT_GT(audio::rms(synth->left()), 0.01);
  synth->clearOutput();
  synth->render(seconds(60), 1024);
  EXPECT_EQ(audio::nonFiniteCount(synth->left()), 0u);
  EXPECT_EQ(audio::denormalCount(synth->left()), 0u);
  EXPECT_EQ(audio::peak(synth->left(), synth->left().size() - seconds(1)), 0.0f);
}

TEST_F(PelmaSoundTest, IdenticalInputGivesIdenticalOutput) {
  auto perform = [] {
    auto synth = make();
    synth->setControl("noise_level", 0.4f);
    synth->setControl("lfo_cutoff", 1);
    synth->midi({0xB0, 1, 90});
    for (std::uint8_t key : {60, 64, 67, 71})
      synth->midi({0x90, key, 100});
    synth->render(seconds(0.4), 100);
    synth->midi({0xE0, 0x10, 0x50});
    synth->setControl("cutoff", 900);
    synth->render(seconds(0.4), 333);
    synth->midi({0xB0, 123, 0});
    synth->render(seconds(0.4), 100);
    return std::make_pair(synth->left(), synth->right());
  };
  auto first = perform();
  EXPECT_EQ(perform(), first);
  EXPECT_EQ(first.first, first.second);
}

}  // namespace
