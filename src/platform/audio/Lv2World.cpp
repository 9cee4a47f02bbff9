#include "platform/audio/Lv2World.h"

namespace platform {

std::shared_ptr<Lv2World> Lv2World::shared() {
  static std::mutex mutex;
  static std::weak_ptr<Lv2World> existing;
  std::lock_guard lock(mutex);
  if (auto world = existing.lock()) return world;
  std::shared_ptr<Lv2World> world(new Lv2World());
  existing = world;
  return world;
}

Lv2World::Lv2World() : world_(lilv_world_new()) {
  lilv_world_load_all(world_);
  map_ = {this, [](LV2_URID_Map_Handle handle, const char* uri) {
            return static_cast<Lv2World*>(handle)->map(uri);
          }};
  unmap_ = {this, [](LV2_URID_Unmap_Handle handle, LV2_URID urid) {
              return static_cast<Lv2World*>(handle)->unmap(urid);
            }};
}

Lv2World::~Lv2World() {
  for (auto& [uri, node] : nodes_)
    lilv_node_free(node);
  lilv_world_free(world_);
}

const LilvNode* Lv2World::node(const char* uri) {
  std::lock_guard lock(nodesMutex_);
  auto& node = nodes_[uri];
  if (!node) node = lilv_new_uri(world_, uri);
  return node;
}

LV2_URID Lv2World::map(const char* uri) {
  std::lock_guard lock(uridMutex_);
  auto [it, inserted] = urids_.try_emplace(uri, static_cast<LV2_URID>(uris_.size() + 1));
  if (inserted) uris_.emplace_back(uri);
  return it->second;
}

const char* Lv2World::unmap(LV2_URID urid) {
  std::lock_guard lock(uridMutex_);
  if (urid == 0 || urid > uris_.size()) return nullptr;
  return uris_[urid - 1].c_str();
}

}  // namespace platform
