// The music player's timing, measured on the MIDI a real instrument receives through the graph.

#include "platform/music/MusicPlayer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include <lv2/atom/util.h>
#include <lv2/time/time.h>

#include "OfflineRig.h"
#include "platform/foundation/MainQueue.h"
#include "support/LoopedBar.h"
#include "support/StepKeys.h"

using namespace testing_support;

namespace {

constexpr double kRate = 48000.0;

using Timed = std::tuple<std::uint64_t, std::uint8_t, std::uint8_t>;  // frame, status, note

class MusicPlayerTiming : public ::testing::TestWithParam<std::uint32_t> {
 protected:
  // Renders `frames` frames; the main queue runs between blocks, as the main thread would.
  void render(std::size_t frames) {
    rig.render(frames, [&] { bar.mainQueue.runPending(); });
  }

  // Every note on and off the player sent, in arrival order.
  std::vector<Timed> notes() const {
    std::vector<Timed> result;
    for (const auto& m : rig.received) {
      if ((m.status & 0xE0) == 0x80) result.emplace_back(m.frame, m.status & 0xF0, m.data1);
    }
    return result;
  }

  // What a constant tempo must give: each note on at round(beat x 60 / bpm x rate), its note off
  // at the same for beat + length, for every loop pass that starts before `frames`.
  static std::vector<Timed> expected(const std::vector<platform::MusicEvent>& events, double bpm,
                                     std::uint64_t frames) {
    std::vector<Timed> result;
    const auto frameOf = [&](double beat) {
      return static_cast<std::uint64_t>(std::llround(beat * 60.0 / bpm * kRate));
    };
    for (int pass = 0; frameOf(4.0 * pass) < frames; ++pass) {
      for (const auto& event : events) {
        const double beat = event.time + 4.0 * pass;
        const auto on = frameOf(beat), off = frameOf(beat + event.note()->duration);
        if (on < frames) result.emplace_back(on, 0x90, event.note()->note);
        if (off < frames) result.emplace_back(std::max(off, on + 1), 0x80, event.note()->note);
      }
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  OfflineRig rig{"MDA JX10", GetParam()};
  LoopedBar bar{rig.graph};
};

TEST_P(MusicPlayerTiming, EveryNoteOnAndOffLandsOnItsExactFrame) {
  bar.steps.setSwing(0.3f);  // odd steps fall between frames
  bar.steps.setKeysToRange({stepKey(60), stepKey(64)}, {0, 1});
  bar.steps.setKeysToRange({stepKey(62)}, {3, 1});
  bar.steps.setKeysToRange({stepKey(65)}, {6, 3});
  bar.steps.setTieAtRange(true, {13, 1});
  bar.steps.setKeysToRange({stepKey(67)}, {15, 1});  // swung and longer than the loop end
  bar.steps.setTieAtRange(true, {15, 1});
  bar.mainQueue.runPending();
  ASSERT_TRUE(bar.player.start());
  render(240000);  // 2.5 loops at 120 bpm

  auto received = notes();
  // At one frame, note offs come before note ons.
  for (std::size_t i = 1; i < received.size(); ++i) {
    if (std::get<0>(received[i]) == std::get<0>(received[i - 1])) {
      EXPECT_FALSE(std::get<1>(received[i]) == 0x80 && std::get<1>(received[i - 1]) == 0x90);
    }
  }
  std::sort(received.begin(), received.end());
  EXPECT_EQ(received, expected(bar.track->events(), 120.0, 240000));
  EXPECT_NEAR(bar.player.getTime(), 10.0, 1e-9);  // keeps growing across loops
}

TEST_P(MusicPlayerTiming, ATempoChangeAppliesFromTheNextBlock) {
  bar.track->newMIDINoteEvent(0.0, {0, 60, 100, 0, 0.5f});
  bar.track->newMIDINoteEvent(2.5, {0, 62, 100, 0, 0.5f});
  bar.mainQueue.runPending();
  bar.player.start();
  const std::uint64_t change = 48128;  // a block boundary for every block size tested
  render(change);
  bar.sequence.tempoTrack()->clear(0.0, 100.0);
  bar.sequence.tempoTrack()->newExtendedTempoEvent(0.0, 90.0);
  bar.mainQueue.runPending();  // the main thread's task ends: the new tempo is published
  render(96000);

  // Up to the change, 120 bpm; from its block on, 90 bpm from the beat reached there.
  const double changeBeat = change * 120.0 / 60.0 / kRate;
  auto frameOf = [&](double beat) {
    return beat < changeBeat ? std::llround(beat * 0.5 * kRate)
                             : std::llround(change + (beat - changeBeat) * 60.0 / 90.0 * kRate);
  };
  const std::vector<Timed> want = {
      {frameOf(0.0), 0x90, 60}, {frameOf(0.5), 0x80, 60}, {frameOf(2.5), 0x90, 62},
      {frameOf(3.0), 0x80, 62}, {frameOf(4.0), 0x90, 60}, {frameOf(4.5), 0x80, 60},
  };
  auto received = notes();
  received.resize(std::min(received.size(), want.size()));
  EXPECT_EQ(received, want);
}

TEST_P(MusicPlayerTiming, StopReleasesSoundingNotesAndEditsApplyWhilePlaying) {
  bar.track->newMIDINoteEvent(0.0, {0, 48, 100, 0, 3.0f});
  bar.mainQueue.runPending();
  bar.player.start();
  render(24000);  // beat 1: note 48 sounds
  // An edit made while playing is heard from the next loop pass on.
  bar.track->newMIDINoteEvent(1.0, {0, 50, 100, 0, 0.25f});
  render(96000 - 24000);  // to beat 4
  render(36000);          // to beat 5.5
  const auto beforeStop = notes().size();
  bar.player.stop();
  render(512);
  const auto received = notes();
  ASSERT_GE(received.size(), beforeStop + 1);
  // The notes still sounding (48 of the second pass) end at the first frame after the stop.
  EXPECT_EQ(received.back(), Timed(rig.renderedFrames - 512, 0x80, 48));
  const auto n50 = std::count_if(received.begin(), received.end(), [](const Timed& t) {
    return std::get<1>(t) == 0x90 && std::get<2>(t) == 50;
  });
  EXPECT_EQ(n50, 1);  // only from the second pass; the first had already passed beat 1
  EXPECT_FALSE(bar.player.isPlaying());
  render(48000);
  EXPECT_EQ(notes().size(), received.size());  // nothing after the stop
}

TEST_P(MusicPlayerTiming, CommandsGivenWhileNoAudioRunsEndInTheLatestState) {
  bar.track->newMIDINoteEvent(0.0, {0, 60, 100, 0, 0.5f});
  bar.track->newMIDINoteEvent(2.0, {0, 62, 100, 0, 0.5f});
  bar.mainQueue.runPending();
  for (int i = 0; i < 500; ++i) {  // far more than a block could ever see one by one
    bar.player.start();
    bar.player.stop();
  }
  bar.player.setTime(2.0);
  bar.player.start();
  EXPECT_EQ(bar.player.getTime(), 2.0);
  render(24000);  // one beat
  EXPECT_NEAR(bar.player.getTime(), 3.0, 1e-9);
  ASSERT_FALSE(notes().empty());
  EXPECT_EQ(notes().front(), Timed(0, 0x90, 62));
}

TEST_P(MusicPlayerTiming, MoreNotesThanPendingNoteOffsNeverLeaveANoteSounding) {
  // 512 long notes fill every pending note off; a short note of another key then starts on the
  // last frame of the first block of every size tested (63: 64 - 1 frames at 120 bpm).
  for (int i = 0; i < 512; ++i)
    bar.track->newMIDINoteEvent(0.0, {0, static_cast<std::uint8_t>(70 + i % 40), 100, 0, 1.0f});
  const double lastFrameOfABlock = (GetParam() - 1) / (kRate / 2.0);
  bar.track->newMIDINoteEvent(lastFrameOfABlock, {0, 60, 100, 0, 0.25f});
  bar.mainQueue.runPending();
  ASSERT_TRUE(bar.player.start());
  render(36000);  // 1.5 beats: every note has ended

  bool sounding[128] = {};
  for (const auto& [frame, status, note] : notes())
    sounding[note] = status == 0x90;
  for (int note = 0; note < 128; ++note)
    EXPECT_FALSE(sounding[note]) << "note " << note << " never ends";
}

INSTANTIATE_TEST_SUITE_P(BlockSizes, MusicPlayerTiming, ::testing::Values(64u, 256u, 1024u));

// A time:Position as an instrument that reads the transport (synthv1) receives it; beats in
// millionths.
using Position = std::tuple<std::uint64_t, float, std::int64_t, std::int64_t, std::int64_t,
                            std::int64_t, float>;  // block, speed, beat, bar, frame, barBeat, bpm

// The instrument hears the transport start, jump and stop, each once, with the whole position.
TEST(TimePosition, SentWhenTheTransportStartsJumpsOrStops) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  OfflineRig rig("synthv1", 256);
  platform::MusicSequence sequence;
  sequence.newTrack();
  sequence.tempoTrack()->newExtendedTempoEvent(0.0, 120.0);
  mainQueue.runPending();
  platform::MusicPlayer player;
  player.setSequence(&sequence);
  rig.graph.setMusicSequence(&sequence);

  auto map = [&](const char* uri) { return rig.unit->mapURI(uri); };
  std::vector<Position> received;
  auto render = [&](int blocks) {
    rig.render(256 * blocks, [&] {
      const std::uint64_t block = rig.renderedFrames / 256 - 1;
      LV2_ATOM_SEQUENCE_FOREACH(rig.unit->lastAtomInput(), event) {
        const auto* object = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
        if (object->body.otype != map(LV2_TIME__Position)) continue;
        const LV2_Atom *speed = nullptr, *beat = nullptr, *bar = nullptr, *frame = nullptr,
                       *barBeat = nullptr, *bpm = nullptr;
        lv2_atom_object_get(object, map(LV2_TIME__speed), &speed, map(LV2_TIME__beat), &beat,
                            map(LV2_TIME__bar), &bar, map(LV2_TIME__frame), &frame,
                            map(LV2_TIME__barBeat), &barBeat, map(LV2_TIME__beatsPerMinute), &bpm,
                            0);
        ASSERT_TRUE(speed && beat && bar && frame && barBeat && bpm);
        auto body = [](const LV2_Atom* atom, auto type) {
          return reinterpret_cast<const decltype(type)*>(atom)->body;
        };
        received.emplace_back(
            block, body(speed, LV2_Atom_Float{}), std::llround(body(beat, LV2_Atom_Double{}) * 1e6),
            body(bar, LV2_Atom_Long{}), body(frame, LV2_Atom_Long{}),
            std::llround(body(barBeat, LV2_Atom_Float{}) * 1e6), body(bpm, LV2_Atom_Float{}));
      }
    });
  };
  render(3);  // stopped: told once where it stands
  player.start();
  render(40);  // rolling: told once, not every block
  player.setTime(6.0);
  render(3);
  player.stop();
  render(3);

  // 120 bpm at 48 kHz: a block of 256 frames is 0.010666 beats; stopped after 3 blocks from 6.
  const std::vector<Position> want = {
      {0, 0.0f, 0, 0, 0, 0, 120.0f},
      {3, 1.0f, 0, 0, 0, 0, 120.0f},
      {43, 1.0f, 6000000, 1, 144000, 2000000, 120.0f},
      {46, 0.0f, 6032000, 1, 144768, 2032000, 120.0f},
  };
  EXPECT_EQ(received, want);
  rig.graph.setMusicSequence(nullptr);
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
