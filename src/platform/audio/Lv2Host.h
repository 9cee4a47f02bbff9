#pragma once

// The host side of one plug-in instance: the feature structures it is given, and the rings that
// carry worker requests, worker replies and audio-thread log lines. Each ring has one producer
// thread: work scheduled on the audio thread and work scheduled elsewhere (a state save or
// restore on the main thread) go through rings of their own. Whoever writes a request or a log
// line wakes the worker thread through `wake` (sem_post: no lock, allowed on the audio thread).

#include <lilv/lilv.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <semaphore.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/foundation/ByteRing.h"

namespace platform {

class Lv2World;

// The size of every atom port's buffer, also told to plug-ins as the sequence size.
inline constexpr std::uint32_t kAtomBufferSize = 32768;

// The symbol of the first port that a plug-in needs connected but whose type this host does not
// know (it would be left unconnected and the plug-in would write through a null pointer), or
// nothing.
std::string unknownRequiredPort(Lv2World& world, const LilvPlugin* plugin);

struct Lv2Host {
  Lv2Host(Lv2World& world, const std::string& name, double sampleRate, std::uint32_t maxFrames);
  ~Lv2Host();
  Lv2Host(const Lv2Host&) = delete;
  Lv2Host& operator=(const Lv2Host&) = delete;

  std::string pluginName;
  float sampleRate;
  int32_t minBlock, maxBlock, nominalBlock, sequenceSize;
  std::vector<LV2_Options_Option> options;
  LV2_Log_Log logFeature;
  LV2_Worker_Schedule schedule;
  LV2_State_Make_Path makePathFeature;
  LV2_State_Map_Path mapPathFeature;
  LV2_State_Free_Path freePathFeature;
  std::vector<LV2_Feature> features;
  std::vector<const LV2_Feature*> featurePointers;  // null-terminated

  const LV2_Worker_Interface* worker = nullptr;
  ByteRing requests;                  // audio thread -> worker thread
  ByteRing mainRequests;              // main thread (state save and restore) -> worker thread
  ByteRing responses;                 // worker thread -> audio thread
  ByteRing logRing;                   // audio thread -> worker thread, printed there
  sem_t wake;                         // posted for every request and log line
  std::filesystem::path stateFolder;  // where state:makePath puts the plug-in's files
};

}  // namespace platform
