#pragma once

// The plug-in's messages through the LV2 host's log:log, when the host offers it.

#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>

#include <string_view>

#include "common/Messages.h"

namespace pelma {

class Lv2Log {
 public:
  // Takes log:log from `features` and, if there is one, makes it where messages go.
  Lv2Log(const LV2_Feature* const* features, LV2_URID_Map* map);
  ~Lv2Log();
  Lv2Log(const Lv2Log&) = delete;
  Lv2Log& operator=(const Lv2Log&) = delete;

 private:
  static void write(void* context, std::string_view line);

  LV2_Log_Log* log_ = nullptr;
  LV2_URID noteType_ = 0;
  MessageSink sink_{&Lv2Log::write, this};
};

// The data of the feature `uri` in a host's feature list, or nullptr.
const void* findFeature(const LV2_Feature* const* features, const char* uri);

}  // namespace pelma
