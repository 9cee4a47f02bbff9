// The host's overhead per audio block: the same instrument, the same MIDI and the same blocks,
// once run by calling the plug-in's run() directly (the baseline) and once through the audio
// graph (MIDI queue, music player, render plan, mixing). Prints CPU time per block and the ratio,
// once with warm caches (blocks back to back) and once with cold ones: between blocks 8 MiB are
// walked, more than this machine's per-core caches, as other programs do between two periods of a
// real device; only the blocks are timed. The cold figure shows what the host's code and data
// footprint costs.
//
//   bench_host_overhead [INSTRUMENT-NAME] [SECONDS]

#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/midi/midi.h>
#include <lv2/urid/urid.h>
#include <time.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2World.h"

namespace {

constexpr double kRate = 48000.0;
constexpr std::uint32_t kBlock = 256;

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec + now.tv_nsec * 1e-9;
}

// Walks a buffer larger than the core's caches, so that the next block finds them cold.
volatile unsigned char evictionSink;  // keeps the walk from being optimized away
void evictCaches() {
  static std::vector<unsigned char> buffer(8 << 20);
  unsigned char sum = 0;
  for (std::size_t i = 0; i < buffer.size(); i += 64) {
    buffer[i] = static_cast<unsigned char>(buffer[i] + 1);
    sum = static_cast<unsigned char>(sum + buffer[i]);
  }
  evictionSink = sum;
}

// Times `block(b)` for `blocks` blocks; with `cold`, evicts the caches before each and times the
// blocks alone.
template <typename Block>
double timeBlocks(std::size_t blocks, bool cold, Block block) {
  if (!cold) {
    const double start = threadSeconds();
    for (std::size_t b = 0; b < blocks; ++b)
      block(b);
    return threadSeconds() - start;
  }
  double seconds = 0.0;
  for (std::size_t b = 0; b < blocks; ++b) {
    evictCaches();
    const double start = threadSeconds();
    block(b);
    seconds += threadSeconds() - start;
  }
  return seconds;
}

// The MIDI of block `b`: a four-note chord every 48 blocks, released 24 blocks later.
std::vector<std::array<std::uint8_t, 3>> midiOfBlock(std::size_t b) {
  static const std::uint8_t chord[] = {48, 55, 60, 64};
  std::vector<std::array<std::uint8_t, 3>> messages;
  if (b % 48 == 0) {
    for (auto n : chord)
      messages.push_back({0x90, static_cast<std::uint8_t>(n + (b / 48) % 5), 100});
  } else if (b % 48 == 24) {
    for (auto n : chord)
      messages.push_back({0x80, static_cast<std::uint8_t>(n + (b / 48) % 5), 0});
  }
  return messages;
}

// The baseline: the plug-in hosted by hand, its run() called on each block.
double runDirect(const LilvPlugin* plugin, platform::Lv2World& world, std::size_t blocks,
                 bool cold) {
  LV2_Feature mapFeature{LV2_URID__map, world.mapFeature()};
  const LV2_Feature* features[] = {&mapFeature, nullptr};
  LilvInstance* instance = lilv_plugin_instantiate(plugin, kRate, features);
  const std::uint32_t ports = lilv_plugin_get_num_ports(plugin);
  std::vector<float> minimum(ports), maximum(ports), defaults(ports);
  lilv_plugin_get_port_ranges_float(plugin, minimum.data(), maximum.data(), defaults.data());
  std::vector<std::vector<float>> audio;
  std::vector<float> controls(ports);
  std::vector<std::uint8_t> atomIn(32768), atomOut(32768);
  for (std::uint32_t i = 0; i < ports; ++i) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
    if (lilv_port_is_a(plugin, port, world.node(LV2_CORE__AudioPort))) {
      audio.emplace_back(kBlock);
      lilv_instance_connect_port(instance, i, audio.back().data());
    } else if (lilv_port_is_a(plugin, port, world.node(LV2_CORE__ControlPort))) {
      controls[i] = std::isnan(defaults[i]) ? 0.0f : defaults[i];
      lilv_instance_connect_port(instance, i, &controls[i]);
    } else {
      const bool input = lilv_port_is_a(plugin, port, world.node(LV2_CORE__InputPort));
      lilv_instance_connect_port(instance, i, input ? atomIn.data() : atomOut.data());
    }
  }
  // Audio buffers are re-pointed after all were created (the vector may have moved them).
  for (std::uint32_t i = 0, a = 0; i < ports; ++i) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
    if (lilv_port_is_a(plugin, port, world.node(LV2_CORE__AudioPort))) {
      lilv_instance_connect_port(instance, i, audio[a++].data());
    }
  }
  lilv_instance_activate(instance);
  LV2_Atom_Forge forge;
  lv2_atom_forge_init(&forge, world.mapFeature());
  const LV2_URID midiEvent = world.map(LV2_MIDI__MidiEvent);
  const double seconds = timeBlocks(blocks, cold, [&](std::size_t b) {
    lv2_atom_forge_set_buffer(&forge, atomIn.data(), atomIn.size());
    LV2_Atom_Forge_Frame frame;
    lv2_atom_forge_sequence_head(&forge, &frame, 0);
    for (const auto& m : midiOfBlock(b)) {
      lv2_atom_forge_frame_time(&forge, 0);
      lv2_atom_forge_atom(&forge, 3, midiEvent);
      lv2_atom_forge_write(&forge, m.data(), 3);
    }
    lv2_atom_forge_pop(&forge, &frame);
    auto* out = reinterpret_cast<LV2_Atom*>(atomOut.data());
    out->size = static_cast<uint32_t>(atomOut.size() - sizeof(LV2_Atom));
    lilv_instance_run(instance, kBlock);
  });
  lilv_instance_deactivate(instance);
  lilv_instance_free(instance);
  return seconds;
}

// The host: the same instrument in the audio graph, the same messages sent to it.
double runThroughGraph(const platform::AudioComponentDescription& description, std::size_t blocks,
                       bool cold) {
  std::string error;
  auto unit = platform::AudioUnitComponentManager::shared().instantiateNow(description, kRate,
                                                                           kBlock, &error);
  platform::AudioGraph graph;
  graph.enableManualRenderingMode(kRate, kBlock);
  graph.attach(unit);
  graph.connect(*unit, graph.mainMixerNode(), std::nullopt);
  graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
  graph.start();
  std::vector<float> left(kBlock), right(kBlock);
  float* out[2] = {left.data(), right.data()};
  return timeBlocks(blocks, cold, [&](std::size_t b) {
    for (const auto& m : midiOfBlock(b))
      unit->sendMIDIEvent(m[0], m[1], m[2], 0);
    graph.renderOffline(kBlock, out);
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string name = argc > 1 ? argv[1] : "MDA JX10";
  const double seconds = argc > 2 ? std::atof(argv[2]) : 20.0;
  const auto blocks = static_cast<std::size_t>(seconds * kRate / kBlock);
  auto world = platform::Lv2World::shared();
  platform::AudioComponentDescription description;
  std::string uri;
  for (const auto& c : platform::AudioUnitComponentManager::shared().componentsMatchingDescription(
           {platform::kAudioUnitTypeMusicDevice, 0, 0, 0, 0})) {
    if (c.name == name) {
      description = c.audioComponentDescription;
      uri = c.uri;
    }
  }
  if (uri.empty()) {
    std::fprintf(stderr, "no instrument named \"%s\"\n", name.c_str());
    return 1;
  }
  LilvNode* uriNode = lilv_new_uri(world->world(), uri.c_str());
  const LilvPlugin* plugin =
      lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world->world()), uriNode);
  lilv_node_free(uriNode);

  std::printf("%s, blocks of %u frames at %.0f Hz\n", name.c_str(), kBlock, kRate);
  for (const bool cold : {false, true}) {
    // Cold blocks take a walk of the cache each: a quarter as many.
    const std::size_t n = cold ? blocks / 4 : blocks;
    // Alternate the two, three times each, and keep each one's best run.
    double direct = 1e9, hosted = 1e9;
    for (int round = 0; round < 3; ++round) {
      direct = std::min(direct, runDirect(plugin, *world, n, cold));
      hosted = std::min(hosted, runThroughGraph(description, n, cold));
    }
    std::printf("%s caches, %zu blocks (%.0f s of audio)\n", cold ? "Cold" : "Warm", n,
                n * kBlock / kRate);
    std::printf("  plug-in run() called directly: %8.0f ns per block\n", direct / n * 1e9);
    std::printf("  through the Pelma host graph : %8.0f ns per block\n", hosted / n * 1e9);
    std::printf("  host overhead: %+.0f ns per block, ratio host/direct = %.3f\n",
                (hosted - direct) / n * 1e9, hosted / direct);
  }
  return 0;
}
