#include "app/Playback.h"

#include <fmt/format.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"
#include "platform/audio/WavFile.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/music/MusicPlayer.h"
#include "sequencer/KRStepSequence.h"

namespace app {
namespace {

using platform::AudioComponentDescription;

std::optional<AudioComponentDescription> findInstrument(const std::string& name) {
  if (auto component = installedInstrument(name)) return component->audioComponentDescription;
  platform::log("No instrument named \"{}\" is installed; playing silence", name);
  return std::nullopt;
}

std::shared_ptr<KRStepSequenceKey> key(int number, float velocity) {
  auto k = std::make_shared<KRStepSequenceKey>();
  k->setNumber(number);
  k->setVelocity(velocity);
  return k;
}

// The demo: a swung four-chord bar with a tied chord, written through the step sequence model.
void writeDemoPattern(platform::MusicTrack& track) {
  platform::MusicEventIterator iterator(track);
  KRStepSequence steps;
  steps.setMusicEventIterator(&iterator);
  steps.setMusicTrack(&track);
  steps.setKeysToRange({key(48, 0.8f), key(60, 0.7f), key(64, 0.7f), key(67, 0.7f)}, {0, 1});
  steps.setKeysToRange({key(72, 0.6f)}, {2, 1});
  steps.setKeysToRange({key(45, 0.8f), key(57, 0.7f), key(60, 0.7f), key(64, 0.7f)}, {4, 1});
  steps.setTieAtRange(true, {4, 2});
  steps.setKeysToRange({key(69, 0.6f)}, {7, 1});
  steps.setKeysToRange({key(41, 0.8f), key(57, 0.7f), key(60, 0.7f), key(65, 0.7f)}, {8, 1});
  steps.setKeysToRange({key(72, 0.6f)}, {11, 1});
  steps.setKeysToRange({key(43, 0.8f), key(55, 0.7f), key(59, 0.7f), key(62, 0.7f)}, {12, 1});
  steps.setKeysToRange({key(74, 0.6f)}, {14, 1});
  steps.setGate(0.6f);
  steps.setSwing(0.4f);
}

}  // namespace

std::vector<platform::AudioUnitComponent> installedInstruments() {
  return platform::AudioUnitComponentManager::shared().componentsMatchingDescription(
      {platform::kAudioUnitTypeMusicDevice, 0, 0, 0, 0});
}

std::optional<platform::AudioUnitComponent> installedInstrument(std::string_view nameOrUri) {
  for (auto& component : installedInstruments()) {
    if (component.isNamed(nameOrUri)) return component;
  }
  return std::nullopt;
}

std::optional<std::vector<PatternNote>> parsePatternNotes(const std::string& text) {
  std::vector<PatternNote> notes;
  std::stringstream list(text);
  std::string item;
  while (std::getline(list, item, ',')) {
    PatternNote note;
    char at = 0, colon = 0, colon2 = 0;
    std::stringstream fields(item);
    if (!(fields >> note.note >> at >> note.beat >> colon >> note.length) || at != '@' ||
        colon != ':') {
      return std::nullopt;
    }
    if (fields >> colon2) {
      if (colon2 != ':' || !(fields >> note.velocity)) return std::nullopt;
    }
    if (note.note < 0 || note.note > 127 || note.beat < 0 || note.beat >= kPatternBeats ||
        note.length <= 0 || note.velocity < 1 || note.velocity > 127) {
      return std::nullopt;
    }
    notes.push_back(note);
  }
  if (notes.empty()) return std::nullopt;
  return notes;
}

void buildPattern(const PlaybackOptions& options, platform::MusicSequence& sequence) {
  platform::MusicTrack& track = sequence.trackCount() ? *sequence.track(0) : *sequence.newTrack();
  track.setLoopInfo({kPatternBeats, 0});
  track.setTrackLength(kPatternBeats);
  if (options.notes.empty()) {
    writeDemoPattern(track);
  } else {
    for (const PatternNote& n : options.notes) {
      track.newMIDINoteEvent(
          n.beat, {0, static_cast<std::uint8_t>(n.note), static_cast<std::uint8_t>(n.velocity), 0,
                   static_cast<float>(n.length)});
    }
  }
  sequence.tempoTrack()->newExtendedTempoEvent(0.0, options.tempo);
  track.publishNow();
  sequence.tempoTrack()->publishNow();
}

InstrumentGraph::InstrumentGraph(const std::string& pluginName, bool offline,
                                 double offlineSampleRate, unsigned offlineBufferFrames) {
  if (offline) graph.enableManualRenderingMode(offlineSampleRate, offlineBufferFrames);
  sampleRate = offline ? offlineSampleRate : graph.outputFormat(0).sampleRate;
  if (auto description = findInstrument(pluginName)) {
    std::string error;
    unit = platform::AudioUnitComponentManager::shared().instantiateNow(
        *description, sampleRate, offline ? offlineBufferFrames : 4096, &error,
        platform::kAudioComponentInstantiationLoadOutOfProcess);
    if (unit) {
      graph.attach(unit);
      graph.connect(*unit, graph.mainMixerNode(), platform::standardFormat(sampleRate, 2));
    } else {
      platform::log("{}", error);
    }
  }
  graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
}

namespace {

// The instrument's graph with the pattern's sequence and player attached.
struct PatternSession {
  PatternSession(const PlaybackOptions& options, bool offline)
      : instrument(options.pluginName, offline, options.sampleRate, options.bufferFrames),
        graph(instrument.graph) {
    buildPattern(options, sequence);
    player.setSequence(&sequence);
    graph.setMusicSequence(&sequence);
  }
  ~PatternSession() { graph.setMusicSequence(nullptr); }

  InstrumentGraph instrument;
  platform::AudioGraph& graph;
  platform::MusicSequence sequence;
  platform::MusicPlayer player;
};

}  // namespace

int renderToFile(const PlaybackOptions& options, const std::filesystem::path& path) {
  PatternSession session(options, true);
  session.graph.start();
  session.player.start();

  const auto total = static_cast<std::size_t>(options.seconds * options.sampleRate);
  std::vector<std::vector<float>> channels(2, std::vector<float>(total));
  for (std::size_t done = 0; done < total;) {
    const auto frames =
        static_cast<std::uint32_t>(std::min<std::size_t>(options.bufferFrames, total - done));
    float* const out[2] = {channels[0].data() + done, channels[1].data() + done};
    session.graph.renderOffline(frames, out);
    done += frames;
  }
  session.player.stop();
  if (!platform::writeWavFile(path, channels, options.sampleRate)) {
    platform::log("Cannot write {}", path.string());
    return 1;
  }
  fmt::print("Wrote {:.1f} s of \"{}\" to {}\n", options.seconds, options.pluginName,
             path.string());
  return 0;
}

int playLive(const PlaybackOptions& options) {
  PatternSession session(options, false);
  if (!session.graph.start()) return 1;
  session.player.start();
  std::this_thread::sleep_for(std::chrono::duration<double>(options.seconds));
  session.player.stop();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // let the note offs sound
  session.graph.pause();
  return 0;
}

int listInstruments(std::FILE* out) {
  const auto components = installedInstruments();
  for (const auto& component : components)
    fmt::print(out, "{}\t{}\n", component.name, component.uri);
  if (components.empty()) fmt::print(out, "No LV2 instruments installed (LV2_PATH: see --help)\n");
  return 0;
}

}  // namespace app
