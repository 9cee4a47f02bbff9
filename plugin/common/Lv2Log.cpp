#include "common/Lv2Log.h"

#include <cstring>

namespace pelma {

const void* findFeature(const LV2_Feature* const* features, const char* uri) {
  for (; features && *features; ++features) {
    if (std::strcmp((*features)->URI, uri) == 0) return (*features)->data;
  }
  return nullptr;
}

Lv2Log::Lv2Log(const LV2_Feature* const* features, LV2_URID_Map* map)
    : log_(static_cast<LV2_Log_Log*>(const_cast<void*>(findFeature(features, LV2_LOG__log)))) {
  if (!log_ || !map) return;
  noteType_ = map->map(map->handle, LV2_LOG__Note);
  setMessageSink(&sink_);
}

Lv2Log::~Lv2Log() {
  clearMessageSink(&sink_);
}

void Lv2Log::write(void* context, std::string_view line) {
  auto* self = static_cast<Lv2Log*>(context);
  self->log_->printf(self->log_->handle, self->noteType_, "%.*s\n", static_cast<int>(line.size()),
                     line.data());
}

}  // namespace pelma
