// MIDI learn: a controller's value over a control's range on its scale; the map's session form
// read back and hostile forms refused; and, over a real JACK server, a controller message from
// another JACK client learned and then moving the cutoff of mda JX10 and of Pelma, heard as a
// brighter spectrum, the message itself not reaching the instrument.

#include <jack/jack.h>
#include <jack/midiport.h>

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QVariantMap>
#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

#include "midi/MidiEventRouter.h"
#include "midi/MidiLearn.h"
#include "platform/audio/ControlPorts.h"
#include "platform/foundation/MainQueue.h"
#include "support/AudioAnalysis.h"
#include "support/JackServer.h"
#include "support/OfflineRig.h"

namespace {

using platform::ControlPort;
using platform::valueForController;

ControlPort port(float minimum, float maximum, bool logarithmic = false, bool integer = false,
                 bool toggled = false) {
  ControlPort p;
  p.minimum = minimum;
  p.maximum = maximum;
  p.logarithmic = logarithmic;
  p.integer = integer;
  p.toggled = toggled;
  return p;
}

TEST(ControllerValue, CoversTheRangeOnThePortsScale) {
  const ControlPort cutoff = port(20.0f, 20000.0f, true);
  EXPECT_FLOAT_EQ(valueForController(cutoff, 0), 20.0f);
  EXPECT_FLOAT_EQ(valueForController(cutoff, 127), 20000.0f);
  EXPECT_NEAR(valueForController(cutoff, 64), 20.0 * std::pow(1000.0, 64.0 / 127.0), 0.5);
  EXPECT_FLOAT_EQ(valueForController(cutoff, 200), 20000.0f);  // above a byte's range: the top

  const ControlPort voices = port(1.0f, 8.0f, false, true);
  EXPECT_FLOAT_EQ(valueForController(voices, 0), 1.0f);
  EXPECT_FLOAT_EQ(valueForController(voices, 60), 4.0f);  // 1 + 7 * 60/127 = 4.3: whole steps
  EXPECT_FLOAT_EQ(valueForController(voices, 127), 8.0f);

  const ControlPort hold = port(0.0f, 1.0f, false, false, true);
  EXPECT_FLOAT_EQ(valueForController(hold, 63), 0.0f);
  EXPECT_FLOAT_EQ(valueForController(hold, 64), 1.0f);

  ControlPort wave = port(0.0f, 5.0f);
  wave.choices = {{0.0f, "Saw"}, {2.0f, "Square"}, {5.0f, "Noise"}};
  EXPECT_FLOAT_EQ(valueForController(wave, 0), 0.0f);
  EXPECT_FLOAT_EQ(valueForController(wave, 42), 0.0f);
  EXPECT_FLOAT_EQ(valueForController(wave, 43), 2.0f);
  EXPECT_FLOAT_EQ(valueForController(wave, 127), 5.0f);
}

TEST(MidiLearnMap, ReadsBackItsOwnFormAndRefusesHostileEntries) {
  testing_support::OfflineRig rig("MDA JX10");
  MidiLearn learn;
  learn.setInstrument(rig.unit);
  learn.bind(74, "vcf_freq");
  learn.bind(71, "vcf_reso", 3);
  learn.bind(74, "env_att");  // the controller moves to another control
  const QVariantList form = learn.toVariant();
  ASSERT_EQ(form.size(), 2);
  EXPECT_EQ(form[0].toMap().value("controller").toInt(), 71);
  EXPECT_EQ(form[0].toMap().value("channel").toInt(), 3);
  EXPECT_FALSE(form[1].toMap().contains("channel"));

  MidiLearn again;
  again.setInstrument(rig.unit);
  EXPECT_EQ(again.fromVariant(form), "");
  EXPECT_EQ(again.toVariant(), form);

  const auto entry = [](QVariant controller, QVariant symbol, QVariant channel = {}) {
    QVariantMap map{{"controller", controller}, {"symbol", symbol}};
    if (channel.isValid()) map.insert("channel", channel);
    return QVariant(map);
  };
  const QVariantList hostile{
      entry(1, "vcf_freq"),     entry(128, "vcf_reso"),   entry(-1, "vcf_reso"),
      entry(2.5, "vcf_reso"),   entry(3, "no_such_port"), entry(4, "vcf_reso", 17),
      entry(5, QVariantList{}), QVariant("text"),         entry(1, "env_att")};
  const std::string message = again.fromVariant(hostile);
  EXPECT_NE(message.find("outside 0 to 127"), std::string::npos) << message;
  EXPECT_NE(message.find("outside 1 to 16"), std::string::npos) << message;
  EXPECT_NE(message.find("no_such_port"), std::string::npos) << message;
  ASSERT_EQ(again.entries().size(), 1u);
  EXPECT_EQ(again.entries()[0].symbol, "vcf_freq");
  EXPECT_NE(again.fromVariant(QVariant("not a list")), "");
  EXPECT_TRUE(again.entries().empty());
}

// A JACK MIDI client of the test's own that plays one message at a time into a port.
class ControllerClient {
 public:
  explicit ControllerClient(const std::string& destination) {
    client_ = jack_client_open("pelma-test-controller", JackNoStartServer, nullptr);
    if (!client_) return;
    port_ = jack_port_register(client_, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    jack_set_process_callback(client_, process, this);
    jack_activate(client_);
    connected_ = jack_connect(client_, jack_port_name(port_), destination.c_str()) == 0;
  }
  ~ControllerClient() {
    if (client_) jack_client_close(client_);
  }
  bool connected() const { return connected_; }
  // Queues one message for the next period.
  void send(std::uint8_t status, std::uint8_t data1, std::uint8_t data2) {
    message_.store(0x1000000u | status << 16 | data1 << 8 | data2);
  }
  bool sent() const { return message_.load() == 0; }

 private:
  static int process(jack_nframes_t frames, void* self) {
    auto* client = static_cast<ControllerClient*>(self);
    void* buffer = jack_port_get_buffer(client->port_, frames);
    jack_midi_clear_buffer(buffer);
    if (const std::uint32_t message = client->message_.exchange(0)) {
      const std::uint8_t bytes[3] = {static_cast<std::uint8_t>(message >> 16),
                                     static_cast<std::uint8_t>(message >> 8),
                                     static_cast<std::uint8_t>(message)};
      jack_midi_event_write(buffer, 0, bytes, 3);
    }
    return 0;
  }
  jack_client_t* client_ = nullptr;
  jack_port_t* port_ = nullptr;
  bool connected_ = false;
  std::atomic<std::uint32_t> message_{0};
};

struct CutoffCase {
  const char* instrument;
  const char* cutoff;
};

void PrintTo(const CutoffCase& tested, std::ostream* out) {
  *out << tested.instrument;
}

class MidiLearnOverJack : public ::testing::TestWithParam<CutoffCase> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.start()) << "jackd did not start";
    platform::MainQueue::setMain(&mainQueue);
    wrapper = std::make_unique<PGMidi>("pelma-learn-test");
    router = std::make_unique<ConnectedMidiRouter>(rig.unit.get(), nullptr, wrapper.get());
    wrapper->virtualDestinationSource()->addDelegate(router.get());
  }
  void TearDown() override {
    if (wrapper && wrapper->virtualDestinationSource())
      wrapper->virtualDestinationSource()->removeDelegate(router.get());
    wrapper.reset();
    mainQueue.runPending();
    platform::MainQueue::setMain(nullptr);
  }
  // Renders at about real-time pace, with the event loop turning, until `done` holds (at most
  // five seconds); returns the left channel.
  template <typename Done>
  std::vector<float> renderUntil(Done done) {
    std::vector<float> out;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t frames = 0; frames < 5 * 48000 && !done(); frames += 256) {
      const auto block = rig.render(256, [&] {
        mainQueue.runPending();
        QCoreApplication::processEvents();
      });
      out.insert(out.end(), block.begin(), block.end());
      std::this_thread::sleep_until(start + std::chrono::microseconds(frames * 1000000 / 48000));
    }
    return out;
  }
  // Sends a controller message over JACK and waits until the instrument's control shows it.
  void moveController(ControllerClient& knob, std::uint8_t value, float expected) {
    knob.send(0xB0, 21, value);
    renderUntil(
        [&] { return knob.sent() && rig.unit->parameterValue(GetParam().cutoff) == expected; });
    EXPECT_FLOAT_EQ(rig.unit->parameterValue(GetParam().cutoff), expected);
  }
  double centroidOfNextHalfSecond() {
    const auto sound = rig.render(24000);
    return testing_support::spectralCentroid(sound.data() + 12000, 4096, 48000.0);
  }

  testing_support::JackServer server;
  platform::ManualMainQueue mainQueue;
  testing_support::OfflineRig rig{GetParam().instrument};
  std::unique_ptr<PGMidi> wrapper;
  std::unique_ptr<ConnectedMidiRouter> router;
};

TEST_P(MidiLearnOverJack, ALearnedControllerMovesTheCutoffOverItsRange) {
  ASSERT_TRUE(rig.unit);
  const std::vector<ControlPort> ports = platform::controlPorts(rig.unit->uri());
  const auto cutoff = std::find_if(ports.begin(), ports.end(),
                                   [](const auto& p) { return p.symbol == GetParam().cutoff; });
  ASSERT_NE(cutoff, ports.end());
  MidiLearn learn;
  learn.setInstrument(rig.unit);
  int learned = -1;
  learn.learn(GetParam().cutoff, [&](int controller) { learned = controller; });
  ControllerClient knob(wrapper->virtualDestinationPortName());
  ASSERT_TRUE(knob.connected());
  knob.send(0xB0, 21, 100);
  renderUntil([&] { return learned >= 0; });
  ASSERT_EQ(learned, 21);
  ASSERT_EQ(learn.controllerFor(GetParam().cutoff), 21);
  rig.received.clear();  // the message learned reached the instrument; none after it will

  rig.unit->sendMIDIEvent(
      0x90, 48, 100,
      0);  // a low held note, rich in harmonics; controller 21 means nothing to either instrument
  moveController(knob, 0, cutoff->minimum);
  const double dark = centroidOfNextHalfSecond();
  moveController(knob, 127, cutoff->maximum);
  const double bright = centroidOfNextHalfSecond();
  std::cout << GetParam().instrument << ": spectral centroid " << dark << " Hz at CC 0, " << bright
            << " Hz at CC 127\n";
  EXPECT_GT(bright, 0.0);
  EXPECT_GT(bright, dark * 1.5) << "dark " << dark << " Hz, bright " << bright << " Hz";
  // Mapped messages set the control; none reached the instrument as a controller message.
  EXPECT_EQ(std::count_if(rig.received.begin(), rig.received.end(),
                          [](const auto& m) { return (m.status & 0xF0) == 0xB0 && m.data1 == 21; }),
            0);

  learn.forget(GetParam().cutoff);
  knob.send(0xB0, 21, 0);
  renderUntil([&] { return rig.received.size() > 1; });  // the note, then the controller
  EXPECT_FLOAT_EQ(rig.unit->parameterValue(GetParam().cutoff), cutoff->maximum);
}

INSTANTIATE_TEST_SUITE_P(Instruments, MidiLearnOverJack,
                         ::testing::Values(CutoffCase{"MDA JX10", "vcf_freq"},
                                           CutoffCase{"Pelma", "cutoff"}),
                         [](const auto& info) {
                           return std::string(
                               info.param.instrument == std::string("Pelma") ? "Pelma" : "MdaJX10");
                         });

}  // namespace
