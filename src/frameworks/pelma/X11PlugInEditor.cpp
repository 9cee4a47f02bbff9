#include "frameworks/pelma/X11PlugInEditor.h"

#include <QGuiApplication>
#include <QResizeEvent>
#include <QTimer>

#include "platform/ui/EmbeddedWindowShortcuts.h"  // before Xlib, whose macros break Qt's headers
// Xlib after Qt: its macros (None, Bool, ...) would break Qt's headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <dlfcn.h>
#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/data-access/data-access.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/options/options.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/audio/Lv2World.h"
#include "platform/foundation/Log.h"

namespace {

constexpr int kIdleIntervalMs = 33;

// Toolkits whose editors would bring a second GUI toolkit into this Qt 6 process.
bool isForeignToolkit(const std::string& binary) {
  for (const char* marker : {"gtk", "Gtk", "qt5", "Qt5"}) {
    if (binary.find(marker) != std::string::npos) return true;
  }
  return false;
}

struct ControlPortInfo {
  uint32_t index;
  std::string symbol;
  float sent;  // the value last sent to the editor
};

// The embedded editor: owns the UI instance and the library it came from, and tears them down
// before its native window goes.
class X11EditorView : public QWidget {
 public:
  X11EditorView(std::shared_ptr<platform::AudioUnit> unit, QWidget* owner)
      : QWidget(owner), unit_(std::move(unit)) {
    setAttribute(Qt::WA_NativeWindow);
    setObjectName(QStringLiteral("pluginEditor"));
  }
  ~X11EditorView() override {
    unit_->setEditorAttached(false);
    if (descriptor_ && handle_) descriptor_->cleanup(handle_);
    if (library_) dlclose(library_);
  }

  bool load(const std::string& binary, const std::string& bundle, const std::string& uiUri,
            const std::string& pluginUri, std::vector<ControlPortInfo> controls,
            std::vector<std::string> symbols) {
    controls_ = std::move(controls);
    symbols_ = std::move(symbols);
    library_ = dlopen(binary.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library_) {
      platform::log("Plug-in editor: cannot load {}: {}", binary, dlerror());
      return false;
    }
    auto entry = reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(library_, "lv2ui_descriptor"));
    for (uint32_t i = 0; entry; ++i) {
      const LV2UI_Descriptor* d = entry(i);
      if (!d) break;
      if (uiUri == d->URI) descriptor_ = d;
    }
    if (!descriptor_) {
      platform::log("Plug-in editor: {} has no editor {}", binary, uiUri);
      return false;
    }

    auto world = platform::Lv2World::shared();
    LilvInstance* instance = unit_->lilvInstance();
    if (instance)
      extensionData_.data_access = lilv_instance_get_descriptor(instance)->extension_data;
    // The editor's wish; the host's layout may size the view differently afterwards.
    resize_ = {this, [](LV2UI_Feature_Handle self, int width, int height) {
                 static_cast<X11EditorView*>(self)->resize(width, height);
                 return 0;
               }};
    eventTransfer_ = world->map(LV2_ATOM__eventTransfer);
    atomFloat_ = world->map(LV2_ATOM__Float);
    portMap_ = {this, [](LV2UI_Feature_Handle self, const char* symbol) {
                  const auto& symbols = static_cast<X11EditorView*>(self)->symbols_;
                  for (uint32_t i = 0; i < symbols.size(); ++i) {
                    if (symbols[i] == symbol) return i;
                  }
                  return static_cast<uint32_t>(LV2UI_INVALID_PORT_INDEX);
                }};
    subscribe_ = {
        this,
        [](LV2UI_Feature_Handle, uint32_t, uint32_t, const LV2_Feature* const*) {
          return 0u;  // every control is sent anyway
        },
        [](LV2UI_Feature_Handle, uint32_t, uint32_t, const LV2_Feature* const*) { return 0u; }};
    scaleFactor_ = static_cast<float>(devicePixelRatioF());
    options_[0] = {LV2_OPTIONS_INSTANCE,
                   0,
                   world->map(LV2_UI__scaleFactor),
                   sizeof(float),
                   world->map("http://lv2plug.in/ns/ext/atom#Float"),
                   &scaleFactor_};
    options_[1] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};

    const LV2_Feature parent{LV2_UI__parent, reinterpret_cast<void*>(winId())};
    const LV2_Feature resize{LV2_UI__resize, &resize_};
    const LV2_Feature map{LV2_URID__map, world->mapFeature()};
    const LV2_Feature unmap{LV2_URID__unmap, world->unmapFeature()};
    const LV2_Feature instanceAccess{LV2_INSTANCE_ACCESS_URI,
                                     instance ? lilv_instance_get_handle(instance) : nullptr};
    const LV2_Feature dataAccess{LV2_DATA_ACCESS_URI, &extensionData_};
    const LV2_Feature portMap{LV2_UI__portMap, &portMap_};
    const LV2_Feature subscribe{LV2_UI__portSubscribe, &subscribe_};
    const LV2_Feature idle{LV2_UI__idleInterface, nullptr};
    const LV2_Feature options{LV2_OPTIONS__options, options_};
    const LV2_Feature* features[] = {&parent,         &resize,     &map,   &unmap,
                                     &portMap,        &subscribe,  &idle,  &options,
                                     &instanceAccess, &dataAccess, nullptr};
    if (!instance) features[8] = nullptr;  // nothing of the plug-in to reach in this process

    LV2UI_Widget widget = nullptr;
    handle_ = descriptor_->instantiate(descriptor_, pluginUri.c_str(), bundle.c_str(), write, this,
                                       &widget, features);
    if (!handle_) {
      platform::log("Plug-in editor: {} did not start", uiUri);
      return false;
    }
    sizeFromEditorWindow(reinterpret_cast<Window>(widget));
    platform::log("Plug-in editor: {} (X11), {} x {}", uiUri, width(), height());
    if (descriptor_->extension_data) {
      idle_ = static_cast<const LV2UI_Idle_Interface*>(
          descriptor_->extension_data(LV2_UI__idleInterface));
      editorResize_ = static_cast<const LV2UI_Resize*>(descriptor_->extension_data(LV2_UI__resize));
    }
    unit_->setEditorAttached(true);
    for (ControlPortInfo& control : controls_)
      sendValue(control, true);
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, [this] { tick(); });
    timer->start(kIdleIntervalMs);
    return true;
  }

  // The window's shortcuts keep working while the editor has the keyboard focus.
  void showEvent(QShowEvent* event) override {
    QWidget::showEvent(event);
    shortcuts_.grab();
  }

 private:
  static void write(LV2UI_Controller controller, uint32_t port, uint32_t size, uint32_t protocol,
                    const void* buffer) {
    auto* self = static_cast<X11EditorView*>(controller);
    if (protocol == self->eventTransfer_ && size >= sizeof(LV2_Atom) &&
        sizeof(LV2_Atom) + static_cast<const LV2_Atom*>(buffer)->size <= size) {
      if (!self->unit_->sendEditorEvent(*static_cast<const LV2_Atom*>(buffer)))
        platform::log("Plug-in editor: a message to the plug-in was dropped (queue full)");
      return;
    }
    if (protocol != 0) {
      if (!self->eventWriteLogged_) {
        self->eventWriteLogged_ = true;
        platform::log("Plug-in editor: messages from the editor (protocol {}) are not passed on",
                      protocol);
      }
      return;
    }
    if (size != sizeof(float) || port >= self->symbols_.size()) return;
    float value;
    std::memcpy(&value, buffer, sizeof value);
    self->unit_->setParameterValue(self->symbols_[port], value);
    for (ControlPortInfo& control : self->controls_) {
      if (control.index == port) control.sent = value;  // the editor knows it already
    }
  }

  void sendValue(ControlPortInfo& control, bool always) {
    const float value = unit_->parameterValue(control.symbol);
    if (!always && value == control.sent) return;
    control.sent = value;
    if (descriptor_->port_event)
      descriptor_->port_event(handle_, control.index, sizeof value, 0, &value);
  }

  void tick() {
    for (ControlPortInfo& control : controls_)
      sendValue(control, false);
    forwardPluginEvents();
    if (idle_ && idle_->idle(handle_) != 0) {
      hide();  // the editor closed itself
    }
  }

  // What the plug-in's outputs reported since the last tick: control outputs as values, atom
  // events as atom:eventTransfer.
  void forwardPluginEvents() {
    uint32_t port = 0;
    while (uint32_t size = unit_->readPluginEvent(&port, eventBuffer_.data(),
                                                  static_cast<uint32_t>(eventBuffer_.size()))) {
      if (!descriptor_->port_event) continue;
      const auto* atom = reinterpret_cast<const LV2_Atom*>(eventBuffer_.data());
      if (atom->type == atomFloat_ && atom->size == sizeof(float)) {
        descriptor_->port_event(handle_, port, sizeof(float), 0, atom + 1);
      } else {
        descriptor_->port_event(handle_, port, size, eventTransfer_, atom);
      }
    }
  }

  // The editor follows the view's size when it can be resized.
  void resizeEvent(QResizeEvent* event) override {
    QWidget::resizeEvent(event);
    if (editorResize_ && handle_) editorResize_->ui_resize(handle_, width(), height());
  }

  // The editor's child window says how large it wants to be.
  void sizeFromEditorWindow(Window child) {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !child) return;
    Display* display = x11->display();
    XSync(display, False);
    XSizeHints hints{};
    long supplied = 0;
    int width = 0, height = 0;
    if (XGetWMNormalHints(display, child, &hints, &supplied)) {
      if (hints.flags & PBaseSize) {
        width = hints.base_width;
        height = hints.base_height;
      } else if (hints.flags & PMinSize) {
        width = hints.min_width;
        height = hints.min_height;
      }
    }
    if (width <= 0 || height <= 0) {
      XWindowAttributes attributes{};
      if (XGetWindowAttributes(display, child, &attributes)) {
        width = attributes.width;
        height = attributes.height;
      }
    }
    if (width > 0 && height > 0) resize(width, height);
  }

  std::shared_ptr<platform::AudioUnit> unit_;
  platform::EmbeddedWindowShortcuts shortcuts_{this};
  void* library_ = nullptr;
  const LV2UI_Descriptor* descriptor_ = nullptr;
  LV2UI_Handle handle_ = nullptr;
  const LV2UI_Idle_Interface* idle_ = nullptr;
  const LV2UI_Resize* editorResize_ = nullptr;
  LV2_URID eventTransfer_ = 0, atomFloat_ = 0;
  std::vector<std::uint8_t> eventBuffer_ = std::vector<std::uint8_t>(32768);
  LV2_Extension_Data_Feature extensionData_{};
  LV2UI_Resize resize_{};
  LV2UI_Port_Map portMap_{};
  LV2UI_Port_Subscribe subscribe_{};
  float scaleFactor_ = 1.0f;
  LV2_Options_Option options_[2]{};
  std::vector<ControlPortInfo> controls_;
  std::vector<std::string> symbols_;  // by port index
  bool eventWriteLogged_ = false;
};

std::string filePath(const LilvNode* uri) {
  char* path = lilv_file_uri_parse(lilv_node_as_uri(uri), nullptr);
  std::string result = path ? path : "";
  lilv_free(path);
  return result;
}

}  // namespace

std::shared_ptr<AudioUnitViewController> makeX11Editor(std::shared_ptr<platform::AudioUnit> unit,
                                                       QWidget* owner, bool* needsThisProcess) {
  if (needsThisProcess) *needsThisProcess = false;
  if (!unit || QGuiApplication::platformName() != QStringLiteral("xcb")) return nullptr;
  // What the editor needs from the lilv world, read under its lock; the module loads after.
  std::string binary, bundle, uiUri;
  std::vector<std::string> symbols;
  std::vector<ControlPortInfo> controls;
  {
    auto world = platform::Lv2World::shared();
    const auto lock = world->queryLock();
    LilvWorld* w = world->world();
    LilvNode* pluginUri = lilv_new_uri(w, unit->uri().c_str());
    const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(w), pluginUri);
    lilv_node_free(pluginUri);
    if (!plugin) return nullptr;

    const LilvNode* x11 = world->node(LV2_UI__X11UI);
    LilvUIs* uis = lilv_plugin_get_uis(plugin);
    LILV_FOREACH(uis, it, uis) {
      const LilvUI* ui = lilv_uis_get(uis, it);
      if (!lilv_ui_is_a(ui, x11) || isForeignToolkit(filePath(lilv_ui_get_binary_uri(ui))))
        continue;
      const LilvNode* required = world->node(LV2_CORE__requiredFeature);
      if (unit->isOutOfProcess() &&
          (lilv_world_ask(w, lilv_ui_get_uri(ui), required, world->node(LV2_INSTANCE_ACCESS_URI)) ||
           lilv_world_ask(w, lilv_ui_get_uri(ui), required, world->node(LV2_DATA_ACCESS_URI)))) {
        if (needsThisProcess) *needsThisProcess = true;
        continue;
      }
      binary = filePath(lilv_ui_get_binary_uri(ui));
      bundle = filePath(lilv_ui_get_bundle_uri(ui));
      uiUri = lilv_node_as_uri(lilv_ui_get_uri(ui));
      break;
    }
    lilv_uis_free(uis);
    const LilvNode* input = world->node(LV2_CORE__InputPort);
    const LilvNode* control = world->node(LV2_CORE__ControlPort);
    for (uint32_t i = 0; i < lilv_plugin_get_num_ports(plugin) && !binary.empty(); ++i) {
      const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
      symbols.emplace_back(lilv_node_as_string(lilv_port_get_symbol(plugin, port)));
      if (lilv_port_is_a(plugin, port, input) && lilv_port_is_a(plugin, port, control))
        controls.push_back({i, symbols.back(), 0.0f});
    }
  }
  std::shared_ptr<AudioUnitViewController> controller;
  if (!binary.empty()) {
    auto* view = new X11EditorView(unit, owner);
    if (view->load(binary, bundle, uiUri, unit->uri(), std::move(controls), std::move(symbols))) {
      controller = std::make_shared<AudioUnitViewController>(view);
    } else {
      delete view;
    }
  }
  return controller;
}
