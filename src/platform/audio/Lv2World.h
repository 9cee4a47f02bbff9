#pragma once

// The LV2 world of this process: every installed bundle, loaded once, and the URID map shared by
// all plug-in instances. Loading and look-ups happen off the audio thread, and never two at once:
// lilv is not thread-safe, and instruments are made on a thread of their own while the main
// thread lists plug-ins or presets. Whoever calls lilv on the world or its plug-ins holds
// `queryLock()` (it may be taken again by the same thread).

#include <lilv/lilv.h>
#include <lv2/urid/urid.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace platform {

class Lv2World {
 public:
  // The world, loaded on first use from LV2_PATH (or the standard locations).
  static std::shared_ptr<Lv2World> shared();
  ~Lv2World();
  Lv2World(const Lv2World&) = delete;
  Lv2World& operator=(const Lv2World&) = delete;

  LilvWorld* world() const { return world_; }
  std::unique_lock<std::recursive_mutex> queryLock() { return std::unique_lock(queryMutex_); }
  // A node for `uri`, owned by the world.
  const LilvNode* node(const char* uri);

  LV2_URID map(const char* uri);
  const char* unmap(LV2_URID urid);
  // In a plug-in host process: the numbers come from the application's world, so that the atoms
  // that cross between the processes mean the same on both sides. Set before any plug-in is made.
  struct UridSource {
    std::function<LV2_URID(const char* uri)> map;
    std::function<std::string(LV2_URID urid)> unmap;  // empty when unknown
  };
  void setUridSource(UridSource source);
  LV2_URID_Map* mapFeature() { return &map_; }
  LV2_URID_Unmap* unmapFeature() { return &unmap_; }

 private:
  Lv2World();

  LilvWorld* world_;
  std::recursive_mutex queryMutex_;  // also guards nodes_
  std::unordered_map<std::string, LilvNode*> nodes_;

  std::mutex uridMutex_;
  std::unordered_map<std::string, LV2_URID> urids_;
  std::unordered_map<LV2_URID, std::string> uris_;  // its nodes keep the strings in place
  UridSource source_;
  LV2_URID_Map map_;
  LV2_URID_Unmap unmap_;
};

}  // namespace platform
