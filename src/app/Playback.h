#pragma once

// Playing an instrument from the command line, without screens: a pattern in a music sequence,
// played by the music player through the audio graph, either rendered offline into a WAV file
// or played live through the audio output.

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"
#include "platform/music/MusicSequence.h"

namespace app {

inline constexpr double kPatternBeats = 4.0;  // the pattern is one looped bar of four beats

struct PatternNote {
  int note = 60;
  double beat = 0.0;
  double length = 0.5;
  int velocity = 100;
};

struct PlaybackOptions {
  std::string pluginName = "Pelma";
  std::vector<PatternNote> notes;  // empty: the demo pattern
  double tempo = 120.0;
  double seconds = 8.0;
  double sampleRate = 48000.0;  // offline rendering only
  unsigned bufferFrames = 256;  // offline rendering only
};

// An audio graph with the named instrument connected to its output: live (the best output there
// is) or offline (manual rendering at the given rate and block size). An instrument that is not
// installed or cannot be made gives a log line and a graph without it.
struct InstrumentGraph {
  InstrumentGraph(const std::string& pluginName, bool offline, double offlineSampleRate = 48000.0,
                  unsigned offlineBufferFrames = 256);

  platform::AudioGraph graph;
  std::shared_ptr<platform::AudioUnit> unit;
  double sampleRate = 0.0;
};

// Parses "60@0:0.5,64@1:0.25:90" (note@beat:length[:velocity]); nothing on a malformed list or
// a note that starts outside the bar.
std::optional<std::vector<PatternNote>> parsePatternNotes(const std::string& text);

// Fills the sequence's first note track with the notes as a looped four-beat bar (or the demo
// pattern: a swung chord progression written through the step sequencer) and sets the tempo.
void buildPattern(const PlaybackOptions& options, platform::MusicSequence& sequence);

// Renders options.seconds of the pattern played by the named instrument into a WAV file.
// Returns the process exit status. An instrument that is not installed gives a log line and a
// silent file.
int renderToFile(const PlaybackOptions& options, const std::filesystem::path& path);

// Plays the pattern live through the audio output for options.seconds.
int playLive(const PlaybackOptions& options);

// The installed LV2 instruments, sorted by name; the one a user names by name or URI.
std::vector<platform::AudioUnitComponent> installedInstruments();
std::optional<platform::AudioUnitComponent> installedInstrument(std::string_view nameOrUri);

// Prints the installed LV2 instruments, one per line: name, then URI.
int listInstruments(std::FILE* out = stdout);

}  // namespace app
