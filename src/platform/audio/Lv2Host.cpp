// The host side of one plug-in instance: the features it is given (log, worker schedule, state
// paths, options) and the worker thread that serves its scheduled work and audio-thread log lines.

#include "platform/audio/AudioUnit.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/midi/midi.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>
#include <lv2/time/time.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "platform/audio/Lv2Host.h"
#include "platform/audio/Lv2World.h"
#include "platform/foundation/AudioThread.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...);

int logVprintf(LV2_Log_Handle handle, LV2_URID, const char* format, va_list args) {
  auto* host = static_cast<Lv2Host*>(handle);
  char line[512];
  const int length = std::vsnprintf(line, sizeof line, format, args);
  std::size_t size = std::strlen(line);
  while (size > 0 && line[size - 1] == '\n')
    line[--size] = '\0';
  if (onAudioThread()) {
    // Printed by the worker thread.
    if (host->logRing.write(line, static_cast<std::uint32_t>(size))) sem_post(&host->wake);
  } else {
    log("{}: {}", host->pluginName, line);
  }
  return length;
}

int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = logVprintf(handle, type, format, args);
  va_end(args);
  return result;
}

LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data) {
  auto* host = static_cast<Lv2Host*>(handle);
  ByteRing& ring = onAudioThread() ? host->requests : host->mainRequests;
  if (!ring.write(data, size)) return LV2_WORKER_ERR_NO_SPACE;
  sem_post(&host->wake);
  return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, uint32_t size, const void* data) {
  auto* host = static_cast<Lv2Host*>(handle);
  return host->responses.write(data, size) ? LV2_WORKER_SUCCESS : LV2_WORKER_ERR_NO_SPACE;
}

char* makePath(LV2_State_Make_Path_Handle handle, const char* path) {
  auto* host = static_cast<Lv2Host*>(handle);
  std::filesystem::path full = host->stateFolder / path;
  std::error_code ignored;
  std::filesystem::create_directories(full.parent_path(), ignored);
  return strdup(full.c_str());
}

char* abstractPath(LV2_State_Map_Path_Handle handle, const char* absolute) {
  auto* host = static_cast<Lv2Host*>(handle);
  std::filesystem::path path(absolute);
  auto relative = path.lexically_relative(host->stateFolder);
  if (!relative.empty() && *relative.begin() != "..") return strdup(relative.c_str());
  return strdup(absolute);
}

char* absolutePath(LV2_State_Map_Path_Handle handle, const char* abstract) {
  auto* host = static_cast<Lv2Host*>(handle);
  std::filesystem::path path(abstract);
  return strdup(path.is_absolute() ? abstract : (host->stateFolder / path).c_str());
}

void freePath(LV2_State_Free_Path_Handle, char* path) {
  std::free(path);
}

}  // namespace

Lv2Host::Lv2Host(Lv2World& world, const std::string& name, double rate, std::uint32_t maxFrames)
    : pluginName(name),
      sampleRate(static_cast<float>(rate)),
      minBlock(1),
      maxBlock(static_cast<int32_t>(maxFrames)),
      nominalBlock(static_cast<int32_t>(maxFrames)),
      sequenceSize(static_cast<int32_t>(kAtomBufferSize)),
      requests(1 << 16),
      mainRequests(1 << 16),
      responses(1 << 16),
      logRing(1 << 14),
      stateFolder(bankFolder().parent_path() / "state") {
  sem_init(&wake, 0, 0);
  const LV2_URID atomFloat = world.map(LV2_ATOM__Float);
  const LV2_URID atomInt = world.map(LV2_ATOM__Int);
  options = {
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_PARAMETERS__sampleRate), sizeof(float), atomFloat,
       &sampleRate},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__minBlockLength), sizeof(int32_t), atomInt,
       &minBlock},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t), atomInt,
       &maxBlock},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__nominalBlockLength), sizeof(int32_t),
       atomInt, &nominalBlock},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__sequenceSize), sizeof(int32_t), atomInt,
       &sequenceSize},
      {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr},
  };
  logFeature = {this, logPrintf, logVprintf};
  schedule = {this, scheduleWork};
  makePathFeature = {this, makePath};
  mapPathFeature = {this, abstractPath, absolutePath};
  freePathFeature = {this, freePath};
  features = {
      {LV2_URID__map, world.mapFeature()},     {LV2_URID__unmap, world.unmapFeature()},
      {LV2_OPTIONS__options, options.data()},  {LV2_BUF_SIZE__boundedBlockLength, nullptr},
      {LV2_WORKER__schedule, &schedule},       {LV2_LOG__log, &logFeature},
      {LV2_STATE__makePath, &makePathFeature}, {LV2_STATE__mapPath, &mapPathFeature},
      {LV2_STATE__freePath, &freePathFeature},
  };
  for (auto& feature : features)
    featurePointers.push_back(&feature);
  featurePointers.push_back(nullptr);
}

Lv2Host::~Lv2Host() {
  sem_destroy(&wake);
}

void AudioUnit::runWorkerThread() {
  std::vector<std::uint8_t> message(1 << 16);
  const auto capacity = static_cast<std::uint32_t>(message.size());
  char line[512];
  auto work = [&](std::uint32_t size) {
    if (host_->worker && host_->worker->work) {
      host_->worker->work(lilv_instance_get_handle(instance_), respond, host_.get(), size,
                          message.data());
    }
  };
  // Woken for every request and log line, and once more to stop.
  while (sem_wait(&host_->wake) == 0 || errno == EINTR) {
    if (!workerRunning_) break;
    while (auto size = host_->requests.read(message.data(), capacity))
      work(*size);
    while (auto size = host_->mainRequests.read(message.data(), capacity))
      work(*size);
    while (auto size = host_->logRing.read(line, sizeof line - 1)) {
      line[*size] = '\0';
      log("{}: {}", name_, line);
    }
  }
}

}  // namespace platform
