// The LV2 entry points of Pelma's editor (an X11 UI drawn with Qt 6 widgets).
//
// Inside a Qt 6 host the editor uses the host's QApplication and event loop. In any other host
// (jalv, suil's Gtk wrappers) it makes a private QApplication on the xcb platform, shared by its
// instances and deleted with the last one, and runs its events from the host's idle calls, so it
// never blocks the host's loop. Its window is a child of the host's ui:parent window.

#include <lv2/options/options.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include <QApplication>
#include <QWindow>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "common/Lv2Log.h"
#include "common/Messages.h"
#include "lv2/PelmaUris.h"
#include "ui/PelmaEditor.h"

namespace {

using pelma::findFeature;
using pelma::ui::PelmaEditor;

// The QApplication made when the host has none, and how many editors use it.
struct PrivateApplication {
  int argc = 3;
  char name[9] = "pelma-ui";
  char option[10] = "-platform";
  char platform[4] = "xcb";
  char* argv[4] = {name, option, platform, nullptr};
  std::unique_ptr<QApplication> application;
  int users = 0;
};
PrivateApplication& privateApplication() {
  static PrivateApplication instance;
  return instance;
}

struct EditorInstance {
  std::unique_ptr<pelma::Lv2Log> log;   // the editor's messages, through the host's log:log
  std::unique_ptr<QWindow> hostWindow;  // the host's parent window, as Qt sees it
  PelmaEditor* editor = nullptr;
  bool usesPrivateApplication = false;

  ~EditorInstance() {
    delete editor;
    hostWindow.reset();  // a foreign window: Qt lets go of it without destroying it
    if (!usesPrivateApplication) return;
    PrivateApplication& app = privateApplication();
    if (--app.users == 0) app.application.reset();
  }
};

float scaleFactorOption(const LV2_Feature* const* features, LV2_URID_Map* map) {
  const auto* options =
      static_cast<const LV2_Options_Option*>(findFeature(features, LV2_OPTIONS__options));
  const LV2_URID key = map->map(map->handle, LV2_UI__scaleFactor);
  const LV2_URID floatType = map->map(map->handle, LV2_ATOM__Float);
  for (; options && options->key; ++options) {
    if (options->key == key && options->type == floatType && options->size == sizeof(float)) {
      float scale;
      std::memcpy(&scale, options->value, sizeof scale);
      if (std::isfinite(scale) && scale >= 1 && scale <= 4) return scale;
    }
  }
  return 1;
}

// Makes sure a QApplication exists; false (with one log line) when none can be made.
bool ensureApplication(bool& usesPrivate) {
  usesPrivate = false;
  if (QCoreApplication* existing = QCoreApplication::instance()) {
    if (qobject_cast<QApplication*>(existing)) return true;
    pelma::message("editor: the host runs Qt without widgets; no editor");
    return false;
  }
  const char* display = std::getenv("DISPLAY");
  if (!display || !*display) {
    pelma::message("editor: no X11 display");
    return false;
  }
  PrivateApplication& app = privateApplication();
  if (!app.application) {
    app.argc = 3;
    app.application = std::make_unique<QApplication>(app.argc, app.argv);
  }
  ++app.users;
  usesPrivate = true;
  return true;
}

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* pluginUri, const char*,
                         LV2UI_Write_Function write, LV2UI_Controller controller,
                         LV2UI_Widget* widget, const LV2_Feature* const* features) {
  if (!pluginUri || std::strcmp(pluginUri, pelma::kPluginUri) != 0) return nullptr;
  auto* map = static_cast<LV2_URID_Map*>(const_cast<void*>(findFeature(features, LV2_URID__map)));
  if (!map) {
    pelma::message("editor: the host does not provide urid:map");
    return nullptr;
  }
  auto instance = std::make_unique<EditorInstance>();
  instance->log = std::make_unique<pelma::Lv2Log>(features, map);
  if (!ensureApplication(instance->usesPrivateApplication)) return nullptr;

  const LV2_URID eventTransfer = map->map(map->handle, LV2_ATOM__eventTransfer);
  PelmaEditor::Output output{[write, controller](std::uint32_t port, float value) {
                               write(controller, port, sizeof value, 0, &value);
                             },
                             [write, controller, eventTransfer](const LV2_Atom& atom) {
                               write(controller, pelma::kControlPort, sizeof(LV2_Atom) + atom.size,
                                     eventTransfer, &atom);
                             }};
  instance->editor = new PelmaEditor(map, std::move(output));
  PelmaEditor* editor = instance->editor;
  // A Qt that draws at a device pixel ratio of its own already scales; otherwise take the host's.
  const float scale = editor->devicePixelRatioF() > 1 ? 1 : scaleFactorOption(features, map);
  const QSize size = PelmaEditor::kDesignSize * scale;
  editor->resize(size);
  editor->setAttribute(Qt::WA_NativeWindow);
  editor->winId();  // makes the native window now, so it can be given its parent
  if (const void* parent = findFeature(features, LV2_UI__parent)) {
    instance->hostWindow.reset(QWindow::fromWinId(reinterpret_cast<WId>(parent)));
    editor->windowHandle()->setParent(instance->hostWindow.get());
  }
  editor->show();
  *widget = reinterpret_cast<LV2UI_Widget>(editor->winId());
  if (const auto* resize =
          static_cast<const LV2UI_Resize*>(findFeature(features, LV2_UI__resize))) {
    resize->ui_resize(resize->handle, size.width(), size.height());
  }
  editor->requestDescription();
  return instance.release();
}

void cleanup(LV2UI_Handle handle) {
  delete static_cast<EditorInstance*>(handle);
}

void portEvent(LV2UI_Handle handle, uint32_t port, uint32_t size, uint32_t format,
               const void* buffer) {
  static_cast<EditorInstance*>(handle)->editor->portEvent(port, size, format, buffer);
}

int idle(LV2UI_Handle handle) {
  // With a private application nobody else runs Qt's events: run what is pending, never wait.
  if (static_cast<EditorInstance*>(handle)->usesPrivateApplication)
    QCoreApplication::processEvents(QEventLoop::AllEvents);
  return 0;
}

int resizeEditor(LV2UI_Feature_Handle handle, int width, int height) {
  if (width < 1 || height < 1) return 1;
  static_cast<EditorInstance*>(handle)->editor->resize(width, height);
  return 0;
}

const void* extensionData(const char* uri) {
  static const LV2UI_Idle_Interface idleInterface{idle};
  static const LV2UI_Resize resizeInterface{nullptr, resizeEditor};
  if (std::strcmp(uri, LV2_UI__idleInterface) == 0) return &idleInterface;
  if (std::strcmp(uri, LV2_UI__resize) == 0) return &resizeInterface;
  return nullptr;
}

const LV2UI_Descriptor descriptor{pelma::kUiUri, instantiate, cleanup, portEvent, extensionData};

}  // namespace

LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) {
  return index == 0 ? &descriptor : nullptr;
}
