#pragma once

// The sequencer without its screen: a step sequence writing into a looped bar of four beats at
// 120 BPM, played by a music player on `graph`. It installs its own main queue, run by hand.

#include "platform/audio/AudioGraph.h"
#include "platform/foundation/MainQueue.h"
#include "platform/music/MusicEventIterator.h"
#include "platform/music/MusicPlayer.h"
#include "platform/music/MusicSequence.h"
#include "sequencer/KRStepSequence.h"

namespace testing_support {

struct LoopedBar {
  explicit LoopedBar(platform::AudioGraph& graph) : graph(graph) {
    platform::MainQueue::setMain(&mainQueue);
    track->setLoopInfo({4.0, 0});
    track->setTrackLength(4.0);
    sequence.tempoTrack()->newExtendedTempoEvent(0.0, 120.0);
    steps.setMusicEventIterator(&iterator);
    steps.setMusicTrack(track);
    player.setSequence(&sequence);
    graph.setMusicSequence(&sequence);
  }
  ~LoopedBar() {
    graph.setMusicSequence(nullptr);
    platform::MainQueue::setMain(nullptr);
  }

  platform::AudioGraph& graph;
  platform::ManualMainQueue mainQueue;
  platform::MusicSequence sequence;
  platform::MusicTrack* track = sequence.newTrack();
  platform::MusicEventIterator iterator{*track};
  KRStepSequence steps;
  platform::MusicPlayer player;
};

}  // namespace testing_support
