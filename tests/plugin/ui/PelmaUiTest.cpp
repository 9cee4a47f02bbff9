// Pelma's editor loaded as a host loads it: the module through lv2ui_descriptor, with no
// QApplication in the process, a real X11 parent window (the test runs under Xvfb), and a running
// plug-in instance (played by the host's audio unit) whose notify events and level the test hands
// to the editor, and whose ports and control input receive what the editor writes.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/ui/ui.h>

#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <filesystem>
#include <regex>

#include "../PelmaRig.h"
#include "bank/Bank.h"
#include "platform/audio/Lv2World.h"
#include "support/Processes.h"
#include "support/TemporaryFolder.h"
// Xlib last: its macros (None, Bool, Status) break Qt's and GoogleTest's headers.
#include <X11/Xlib.h>

namespace {

using namespace pelma;

class EditorWithPlugin : public ::testing::Test {
 protected:
  void SetUp() override {
    instrument_ = std::make_unique<PelmaRig>();
    instrument_->unit->setEditorAttached(true);
    eventTransfer_ = world().map(LV2_ATOM__eventTransfer);

    display_ = XOpenDisplay(nullptr);
    ASSERT_NE(display_, nullptr) << "the test runs under an X server";
    parent_ = XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 1024, 335, 0, 0, 0);
    XMapWindow(display_, parent_);
    XSync(display_, False);

    ASSERT_EQ(QCoreApplication::instance(), nullptr);
    library_ = dlopen(PELMA_UI_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library_, nullptr) << dlerror();
    auto entry = reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(library_, "lv2ui_descriptor"));
    ASSERT_NE(entry, nullptr);
    descriptor_ = entry(0);
    ASSERT_NE(descriptor_, nullptr);
    EXPECT_STREQ(descriptor_->URI, kUiUri);

    LV2UI_Resize resize{this, [](LV2UI_Feature_Handle self, int width, int height) {
                          static_cast<EditorWithPlugin*>(self)->reportedSize_ = {width, height};
                          return 0;
                        }};
    const LV2_Feature parentFeature{LV2_UI__parent, reinterpret_cast<void*>(parent_)};
    const LV2_Feature mapFeature{LV2_URID__map, world().mapFeature()};
    const LV2_Feature resizeFeature{LV2_UI__resize, &resize};
    const LV2_Feature idleFeature{LV2_UI__idleInterface, nullptr};
    const LV2_Feature* features[] = {&parentFeature, &mapFeature, &resizeFeature, &idleFeature,
                                     nullptr};
    handle_ = descriptor_->instantiate(descriptor_, kPluginUri, PELMA_LV2_BUNDLE, write, this,
                                       &widget_, features);
    ASSERT_NE(handle_, nullptr);
    idle_ = static_cast<const LV2UI_Idle_Interface*>(
        descriptor_->extension_data(LV2_UI__idleInterface));
    ASSERT_NE(idle_, nullptr);
    editor_ = findEditor();
    ASSERT_NE(editor_, nullptr);
    runBlocks();
  }

  void TearDown() override {
    if (handle_) descriptor_->cleanup(handle_);
    EXPECT_EQ(QCoreApplication::instance(), nullptr) << "the private application goes with it";
    if (display_) {
      XDestroyWindow(display_, parent_);
      XCloseDisplay(display_);
    }
  }

  static platform::Lv2World& world() { return *platform::Lv2World::shared(); }

  // The host's side of the editor's writes: control values to the plug-in's ports, events to
  // its control input.
  static void write(LV2UI_Controller controller, uint32_t port, uint32_t size, uint32_t protocol,
                    const void* buffer) {
    auto* self = static_cast<EditorWithPlugin*>(controller);
    if (protocol == 0 && size == sizeof(float) && port >= kFirstParameterPort && port < kBankPort) {
      const auto& symbol = kParameters[port - kFirstParameterPort].symbol;
      self->instrument_->set(std::string(symbol), *static_cast<const float*>(buffer));
    } else if (protocol == self->eventTransfer_ && size >= sizeof(LV2_Atom)) {
      self->instrument_->unit->sendEditorEvent(*static_cast<const LV2_Atom*>(buffer));
    } else {
      ADD_FAILURE() << "unexpected write to port " << port << " with protocol " << protocol;
    }
  }

  // Audio blocks of the plug-in, each followed by what a host passes to the editor: the notify
  // events and changes of the level (an atom:Float from the unit); then the editor's idle call.
  void runBlocks(int blocks = 4) {
    for (int i = 0; i < blocks; ++i) {
      instrument_->render(256);
      alignas(LV2_Atom) std::uint8_t event[32768];
      std::uint32_t port = 0;
      while (const std::uint32_t size =
                 instrument_->unit->readPluginEvent(&port, event, sizeof event)) {
        if (port == kLevelPort) {
          const float level = reinterpret_cast<const LV2_Atom_Float*>(event)->body;
          descriptor_->port_event(handle_, port, sizeof level, 0, &level);
        } else {
          descriptor_->port_event(handle_, port, size, eventTransfer_, event);
        }
      }
      idle_->idle(handle_);
    }
  }

  QWidget* findEditor() const {
    for (QWidget* widget : QApplication::allWidgets()) {
      if (widget->objectName() == QLatin1String("pelmaEditor")) return widget;
    }
    return nullptr;
  }
  QWidget* control(std::string_view symbol) const {
    return editor_->findChild<QWidget*>(QString::fromUtf8(symbol.data(), symbol.size()));
  }
  float shownValue(std::size_t index) const {
    return control(kParameters[index].symbol)->property("value").toFloat();
  }
  QComboBox* chooser(const char* name) const {
    return editor_->findChild<QComboBox*>(QString::fromLatin1(name));
  }
  // The plug-in's own value of a parameter, from its saved sound.
  float pluginValue(std::string_view symbol) {
    const std::string state = instrument_->saveState().sound;
    std::smatch match;
    const std::regex line(std::string(symbol) + " = ([-0-9.e]+)");
    if (!std::regex_search(state, match, line)) return NAN;
    return std::stof(match[1]);
  }
  Bank factory() const {
    auto bank = readBank(std::filesystem::path(PELMA_LV2_BUNDLE) / kFactoryBankFile);
    return bank ? *bank : Bank{};
  }

  TemporaryFolder banks_{true};
  std::unique_ptr<PelmaRig> instrument_;
  LV2_URID eventTransfer_ = 0;
  Display* display_ = nullptr;
  Window parent_ = 0;
  void* library_ = nullptr;  // kept loaded: Qt's libraries stay for the process anyway
  const LV2UI_Descriptor* descriptor_ = nullptr;
  const LV2UI_Idle_Interface* idle_ = nullptr;
  LV2UI_Handle handle_ = nullptr;
  LV2UI_Widget widget_ = nullptr;
  QWidget* editor_ = nullptr;
  QSize reportedSize_;
};

TEST_F(EditorWithPlugin, ReportsItsSizeAndOpensInsideTheParentWindow) {
  EXPECT_EQ(reportedSize_, QSize(1024, 335));
  const auto window = reinterpret_cast<Window>(widget_);
  Window root = 0, parent = 0, *children = nullptr;
  unsigned count = 0;
  ASSERT_TRUE(XQueryTree(display_, window, &root, &parent, &children, &count));
  if (children) XFree(children);
  EXPECT_EQ(parent, parent_);
  XWindowAttributes attributes{};
  XGetWindowAttributes(display_, window, &attributes);
  EXPECT_EQ(attributes.width, 1024);
  EXPECT_EQ(attributes.height, 335);
  EXPECT_EQ(attributes.map_state, IsViewable);
}

TEST_F(EditorWithPlugin, ListsTheBanksAndPatchesThePluginSendsAlsoWhenItRereadsThem) {
  const Bank bank = factory();
  ASSERT_FALSE(bank.patches.empty());
  QComboBox* banks = chooser("bank");
  QComboBox* patches = chooser("patch");
  ASSERT_EQ(banks->count(), 1);
  EXPECT_EQ(banks->itemText(0).toStdString(), bank.name);
  ASSERT_EQ(patches->count(), static_cast<int>(bank.patches.size()));
  for (int i = 0; i < patches->count(); ++i)
    EXPECT_TRUE(patches->itemText(i).endsWith(QString::fromStdString(bank.patches[i].name)));
  EXPECT_EQ(patches->currentIndex(), 0);

  const std::string factoryText =
      testing_support::readFile(std::string(PELMA_LV2_BUNDLE) + "/" + kFactoryBankFile);
  banks_.write("Strings.plb",
               std::regex_replace(factoryText, std::regex("name = Factory"), "name = Strings"));
  instrument_->unit->sendObjectMessage(kRefreshBanksUri);
  for (int block = 0; block < 2000 && banks->count() < 2; ++block) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the plug-in's worker thread
    runBlocks(1);
  }
  ASSERT_EQ(banks->count(), 2);
  EXPECT_EQ(banks->itemText(1), QStringLiteral("Strings"));
  EXPECT_EQ(banks->currentIndex(), 0);
}

TEST_F(EditorWithPlugin, TurningAKnobChangesThePluginsPortAndSound) {
  QWidget* cutoff = control("cutoff");
  const float before = instrument_->unit->parameterValue("cutoff");
  const QPoint centre(cutoff->width() / 2, cutoff->width() / 4);
  QTest::mousePress(cutoff, Qt::LeftButton, {}, centre);
  QTest::mouseMove(cutoff, centre - QPoint(0, 60));
  QTest::mouseRelease(cutoff, Qt::LeftButton, {}, centre - QPoint(0, 60));
  const float shown = cutoff->property("value").toFloat();
  EXPECT_NE(shown, before);
  EXPECT_EQ(instrument_->unit->parameterValue("cutoff"), shown);
  runBlocks();
  EXPECT_NEAR(pluginValue("cutoff"), shown, shown * 1e-3);
  EXPECT_EQ(cutoff->property("value").toFloat(), shown) << "the plug-in's echo keeps the value";
}

TEST_F(EditorWithPlugin, PatchChoicesInEitherPlaceAndStateRestoresShowInBoth) {
  const Bank bank = factory();
  ASSERT_GE(bank.patches.size(), 4u);
  auto showsPatch = [&](int patch) {
    EXPECT_EQ(chooser("patch")->currentIndex(), patch);
    EXPECT_FLOAT_EQ(pluginValue("cutoff"), bank.patches[patch].values[kCutoff]);
    for (std::size_t i = 0; i < kParameterCount; ++i)
      EXPECT_FLOAT_EQ(shownValue(i), bank.patches[patch].values[i]) << kParameters[i].symbol;
  };
  const auto saved = instrument_->saveState();
  instrument_->midi(0xC0, 3);
  runBlocks();
  showsPatch(3);
  emit chooser("patch")->activated(2);
  runBlocks();
  showsPatch(2);
  instrument_->restoreState(saved);
  runBlocks();
  showsPatch(0);
}

TEST_F(EditorWithPlugin, MeterFollowsTheOutputLevel) {
  QWidget* meter = editor_->findChild<QWidget*>(QStringLiteral("level"));
  EXPECT_EQ(meter->property("litSegments").toInt(), 0);
  instrument_->midi(0x90, 60, 110);
  runBlocks(20);
  EXPECT_GT(meter->property("litSegments").toInt(), 5);
  instrument_->midi(0x80, 60, 0);
  runBlocks(1000);  // about five seconds
  EXPECT_EQ(meter->property("litSegments").toInt(), 0);
}

}  // namespace
