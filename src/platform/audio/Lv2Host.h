#pragma once

// The host side of one plug-in instance: the feature structures it is given, and the rings that
// carry worker requests, worker replies and audio-thread log lines.

#include <lilv/lilv.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/foundation/ByteRing.h"

namespace platform {

class Lv2World;

struct Lv2Host {
  Lv2Host(Lv2World& world, const std::string& name, double sampleRate, std::uint32_t maxFrames);
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
  ByteRing responses;                 // worker thread -> audio thread
  ByteRing logRing;                   // audio thread -> worker thread, printed there
  std::filesystem::path stateFolder;  // where state:makePath puts the plug-in's files
};

}  // namespace platform
