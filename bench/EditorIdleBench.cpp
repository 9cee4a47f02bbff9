// Pelma's editor's CPU while the instrument plays and its meter moves, against an empty Qt window
// of the same size driven the same way, over the same time in the same run.
//
//   xvfb-run -a build/default/bin/bench_editor_idle [SECONDS]     (default 20 each)
//
// A host-like loop at 30 ticks a second renders the plug-in in real time (256-frame blocks, a
// chord changing every half second), hands its notify events and level to the editor, and calls
// the editor's idle. The editor's CPU is the process's CPU less the time spent rendering.

#include <dlfcn.h>
#include <lv2/ui/ui.h>

#include <QApplication>
#include <QWidget>
#include <QWindow>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

#include "OfflineRig.h"
#include "platform/audio/Lv2World.h"
// Xlib last: its macros break Qt's headers.
#include <X11/Xlib.h>

namespace {

constexpr std::uint32_t kLevelPort = 36;  // Pelma's port layout
constexpr double kTicksPerSecond = 30;

double cpuSeconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

struct Measurement {
  double processCpu = 0, renderCpu = 0, seconds = 0;
  double editorPercent() const { return 100 * (processCpu - renderCpu) / seconds; }
};

// Plays `synth` in real time for `seconds`, passing what a host passes to an editor through
// `deliver` (port, size, format, buffer) and calling `idle` each tick.
template <typename Deliver, typename Idle>
Measurement play(testing_support::OfflineRig& synth, double seconds, Deliver deliver, Idle idle) {
  const LV2_URID eventTransfer = platform::Lv2World::shared()->map(LV2_ATOM__eventTransfer);
  const auto framesPerTick = static_cast<std::uint32_t>(48000 / kTicksPerSecond);
  const int ticks = static_cast<int>(seconds * kTicksPerSecond);
  const std::uint8_t chords[2][3] = {{48, 55, 64}, {50, 57, 65}};
  Measurement m;
  const double cpuStart = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
  const auto start = std::chrono::steady_clock::now();
  for (int tick = 0; tick < ticks; ++tick) {
    if (tick % 15 == 0) {
      const auto& off = chords[(tick / 15 + 1) % 2];
      const auto& on = chords[(tick / 15) % 2];
      for (int i = 0; i < 3; ++i) {
        synth.unit->sendMIDIEvent(0x80, off[i], 0, 0);
        synth.unit->sendMIDIEvent(0x90, on[i], 100, 0);
      }
    }
    const double renderStart = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    synth.render(framesPerTick);
    m.renderCpu += cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - renderStart;
    // The notify events as they are, the level (an atom:Float from the unit) as a float.
    alignas(LV2_Atom) std::uint8_t event[32768];
    std::uint32_t port = 0;
    while (const std::uint32_t size = synth.unit->readPluginEvent(&port, event, sizeof event)) {
      if (port == kLevelPort)
        deliver(port, sizeof(float), 0, &reinterpret_cast<const LV2_Atom_Float*>(event)->body);
      else
        deliver(port, size, eventTransfer, event);
    }
    idle();
    std::this_thread::sleep_until(start +
                                  std::chrono::duration<double>((tick + 1) / kTicksPerSecond));
  }
  m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  m.processCpu = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - cpuStart;
  return m;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 20;
  if (!std::getenv("LV2_PATH")) setenv("LV2_PATH", PELMA_LV2_DIR ":/usr/lib/lv2", 1);
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    std::fprintf(stderr, "bench_editor_idle: no X display (run it under xvfb-run -a)\n");
    return 1;
  }
  const Window parent =
      XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1024, 335, 0, 0, 0);
  XMapWindow(display, parent);
  XSync(display, False);
  testing_support::OfflineRig synth("Pelma");
  synth.unit->setEditorAttached(true);

  // The editor, loaded as a host loads it, with its own private QApplication.
  void* library = dlopen(PELMA_LV2_DIR "/pelma.lv2/pelma_ui.so", RTLD_NOW | RTLD_LOCAL);
  auto entry = library
                   ? reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(library, "lv2ui_descriptor"))
                   : nullptr;
  const LV2UI_Descriptor* ui = entry ? entry(0) : nullptr;
  if (!ui) {
    std::fprintf(stderr, "bench_editor_idle: cannot load the editor: %s\n", dlerror());
    return 1;
  }
  const LV2_Feature parentFeature{LV2_UI__parent, reinterpret_cast<void*>(parent)};
  const LV2_Feature mapFeature{LV2_URID__map, platform::Lv2World::shared()->mapFeature()};
  const LV2_Feature idleFeature{LV2_UI__idleInterface, nullptr};
  const LV2_Feature* features[] = {&parentFeature, &mapFeature, &idleFeature, nullptr};
  LV2UI_Widget widget = nullptr;
  LV2UI_Handle handle = ui->instantiate(
      ui, "urn:pelma:synth", PELMA_LV2_DIR "/pelma.lv2",
      [](LV2UI_Controller controller, uint32_t, uint32_t, uint32_t protocol, const void* buffer) {
        if (protocol != 0)
          static_cast<testing_support::OfflineRig*>(controller)
              ->unit->sendEditorEvent(*static_cast<const LV2_Atom*>(buffer));
      },
      &synth, &widget, features);
  const auto* idle =
      static_cast<const LV2UI_Idle_Interface*>(ui->extension_data(LV2_UI__idleInterface));
  const Measurement editor = play(
      synth, seconds,
      [&](uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
        ui->port_event(handle, port, size, format, buffer);
      },
      [&] { idle->idle(handle); });
  ui->cleanup(handle);

  // The baseline: an empty window of the same size in the same parent, its events run the same.
  int qtArgc = 3;
  char name[] = "bench", option[] = "-platform", platform[] = "xcb";
  char* qtArgv[] = {name, option, platform, nullptr};
  double baselinePercent = 0;
  {
    QApplication app(qtArgc, qtArgv);
    std::unique_ptr<QWindow> host(QWindow::fromWinId(static_cast<WId>(parent)));
    QWidget empty;  // goes before the host window, which would take its native window along
    empty.resize(1024, 335);
    empty.setAttribute(Qt::WA_NativeWindow);
    empty.winId();
    empty.windowHandle()->setParent(host.get());
    empty.show();
    const Measurement baseline = play(
        synth, seconds, [](uint32_t, uint32_t, uint32_t, const void*) {},
        [] { QCoreApplication::processEvents(); });
    baselinePercent = baseline.editorPercent();
  }

  std::printf("Pelma's editor while playing, %.1f s at %.0f idle calls a second:\n", editor.seconds,
              kTicksPerSecond);
  std::printf("  editor        %.2f %% of a core (%.3f s CPU besides rendering)\n",
              editor.editorPercent(), editor.processCpu - editor.renderCpu);
  std::printf("  empty window  %.2f %% of a core\n", baselinePercent);
  std::printf("  ratio         %.1f\n",
              baselinePercent > 0 ? editor.editorPercent() / baselinePercent : 0.0);
  std::printf("  (rendering the instrument itself: %.2f %% of a core)\n",
              100 * editor.renderCpu / editor.seconds);
  XDestroyWindow(display, parent);
  XCloseDisplay(display);
  return 0;
}
