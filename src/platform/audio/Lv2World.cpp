#include "platform/audio/Lv2World.h"

#include <cstdlib>
#include <filesystem>
#include <set>

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

namespace {

// The bundles that come with the application: built beside the executable
// (build/<preset>/lv2/ next to build/<preset>/bin/) or installed with it (<prefix>/lib/lv2 next to
// <prefix>/bin), so the Pelma instrument is found without setting LV2_PATH. A bundle the search
// path already loaded is not loaded twice.
void loadBundlesBesideExecutable(LilvWorld* world) {
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return;
  std::set<std::string> loaded;
  const LilvPlugins* plugins = lilv_world_get_all_plugins(world);
  LILV_FOREACH(plugins, i, plugins) {
    loaded.insert(lilv_node_as_uri(lilv_plugin_get_bundle_uri(lilv_plugins_get(plugins, i))));
  }
  const auto prefix = executable.parent_path().parent_path();
  for (const auto& folder : {prefix / "lv2", prefix / PELMA_LV2_INSTALL_DIR}) {
    if (!std::filesystem::is_directory(folder, error)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
      if (entry.path().extension() != ".lv2") continue;
      LilvNode* bundle = lilv_new_file_uri(world, nullptr, (entry.path().string() + "/").c_str());
      const std::string uri = lilv_node_as_uri(bundle);
      if (!loaded.count(uri)) lilv_world_load_bundle(world, bundle);
      lilv_node_free(bundle);
      loaded.insert(uri);
    }
  }
}

}  // namespace

Lv2World::Lv2World() : world_(lilv_world_new()) {
  lilv_world_load_all(world_);
  loadBundlesBesideExecutable(world_);
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
  auto lock = queryLock();
  auto& node = nodes_[uri];
  if (!node) node = lilv_new_uri(world_, uri);
  return node;
}

LV2_URID Lv2World::map(const char* uri) {
  std::lock_guard lock(uridMutex_);
  if (const auto found = urids_.find(uri); found != urids_.end()) return found->second;
  const LV2_URID urid = source_.map ? source_.map(uri) : static_cast<LV2_URID>(uris_.size() + 1);
  if (urid == 0) return 0;
  urids_.emplace(uri, urid);
  uris_.emplace(urid, uri);
  return urid;
}

const char* Lv2World::unmap(LV2_URID urid) {
  std::lock_guard lock(uridMutex_);
  if (const auto found = uris_.find(urid); found != uris_.end()) return found->second.c_str();
  if (!source_.unmap || urid == 0) return nullptr;
  std::string uri = source_.unmap(urid);
  if (uri.empty()) return nullptr;
  urids_.emplace(uri, urid);
  return uris_.emplace(urid, std::move(uri)).first->second.c_str();
}

void Lv2World::setUridSource(UridSource source) {
  std::lock_guard lock(uridMutex_);
  source_ = std::move(source);
}

}  // namespace platform
