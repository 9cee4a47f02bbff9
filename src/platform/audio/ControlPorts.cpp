#include "platform/audio/ControlPorts.h"

#include <lilv/lilv.h>
#include <lv2/core/lv2.h>
#include <lv2/port-groups/port-groups.h>
#include <lv2/port-props/port-props.h>

#include <algorithm>
#include <cmath>

#include "platform/audio/Lv2World.h"

namespace platform {
namespace {

std::string text(const LilvNode* node) {
  return node ? lilv_node_as_string(node) : "";
}

std::string takeText(LilvNode* node) {
  std::string result = text(node);
  lilv_node_free(node);
  return result;
}

}  // namespace

std::vector<ControlPort> controlPorts(const std::string& uri) {
  auto world = Lv2World::shared();
  const auto lock = world->queryLock();
  LilvWorld* w = world->world();
  LilvNode* pluginUri = lilv_new_uri(w, uri.c_str());
  const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(w), pluginUri);
  lilv_node_free(pluginUri);
  std::vector<ControlPort> ports;
  if (!plugin) return ports;

  const LilvNode* input = world->node(LV2_CORE__InputPort);
  const LilvNode* control = world->node(LV2_CORE__ControlPort);
  const uint32_t count = lilv_plugin_get_num_ports(plugin);
  std::vector<float> minimums(count), maximums(count), defaults(count);
  lilv_plugin_get_port_ranges_float(plugin, minimums.data(), maximums.data(), defaults.data());
  for (uint32_t i = 0; i < count; ++i) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
    if (!lilv_port_is_a(plugin, port, input) || !lilv_port_is_a(plugin, port, control)) continue;
    ControlPort p;
    p.symbol = text(lilv_port_get_symbol(plugin, port));
    p.name = takeText(lilv_port_get_name(plugin, port));
    p.minimum = std::isnan(minimums[i]) ? 0.0f : minimums[i];
    p.maximum = std::isnan(maximums[i]) ? 1.0f : maximums[i];
    if (p.maximum <= p.minimum) p.maximum = p.minimum + 1.0f;
    p.logarithmic =
        lilv_port_has_property(plugin, port, world->node(LV2_PORT_PROPS__logarithmic)) &&
        p.minimum > 0.0f;
    p.integer = lilv_port_has_property(plugin, port, world->node(LV2_CORE__integer));
    p.toggled = lilv_port_has_property(plugin, port, world->node(LV2_CORE__toggled));
    if (lilv_port_has_property(plugin, port, world->node(LV2_CORE__enumeration))) {
      if (LilvScalePoints* points = lilv_port_get_scale_points(plugin, port)) {
        LILV_FOREACH(scale_points, it, points) {
          const LilvScalePoint* point = lilv_scale_points_get(points, it);
          p.choices.emplace_back(lilv_node_as_float(lilv_scale_point_get_value(point)),
                                 text(lilv_scale_point_get_label(point)));
        }
        lilv_scale_points_free(points);
        std::sort(p.choices.begin(), p.choices.end());
      }
    }
    if (LilvNodes* comments =
            lilv_port_get_value(plugin, port, world->node(LILV_NS_RDFS "comment"))) {
      p.comment = text(lilv_nodes_get_first(comments));
      lilv_nodes_free(comments);
    }
    if (LilvNodes* groups =
            lilv_port_get_value(plugin, port, world->node(LV2_PORT_GROUPS__group))) {
      const LilvNode* group = lilv_nodes_get_first(groups);
      LilvNodes* labels =
          lilv_world_find_nodes(w, group, world->node(LILV_NS_RDFS "label"), nullptr);
      if (!labels) labels = lilv_world_find_nodes(w, group, world->node(LV2_CORE__name), nullptr);
      p.group = labels ? text(lilv_nodes_get_first(labels)) : text(group);
      lilv_nodes_free(labels);
      lilv_nodes_free(groups);
    }
    ports.push_back(std::move(p));
  }
  return ports;
}

}  // namespace platform
