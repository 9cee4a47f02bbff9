// What the router costs per incoming MIDI packet: a one-message packet list read, filtered and
// sent to a real instrument's input queue, against sending the same message to the same queue
// directly (the baseline), in the same run. Note messages also queue their sequencer task on the
// main queue, so they are measured apart from controller messages.
//
//   bench_midi_forward [PACKETS]     (default 2,000,000 of each kind)

#include <time.h>

#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ManualInstrument.h"
#include "midi/MidiEventRouter.h"
#include "platform/foundation/MainQueue.h"
#include "platform/midi/MIDIPacketList.h"
#include "sequencer/KRSequencerController.h"

namespace {

double threadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec * 1e9 + now.tv_nsec;
}

constexpr int kBatch = 500;  // below the instrument's queue size; drained between batches

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const long packets = argc > 1 ? std::atol(argv[1]) : 2000000;

  ManualInstrument instrument("MDA JX10");
  if (!instrument.unit) {
    std::fprintf(stderr, "bench_midi_forward: mda JX10 is not installed\n");
    return 1;
  }
  auto& unit = instrument.unit;

  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  KRSequencerController sequencer(KRSequencerController::kTabletInterface);
  PGMidi wrapper("pelma-bench");
  ConnectedMidiRouter router(unit.get(), &sequencer, &wrapper);

  const auto measure = [&](const char* label, std::vector<std::uint8_t> message, auto&& send) {
    alignas(8) std::uint8_t buffer[64];
    midi::PacketListBuilder list(buffer, sizeof buffer);
    list.add(0, message.data(), static_cast<std::uint16_t>(message.size()));
    double spent = 0.0;
    for (long done = 0; done < packets; done += kBatch) {
      const double start = threadNanoseconds();
      for (int i = 0; i < kBatch; ++i)
        send(list, message);
      spent += threadNanoseconds() - start;
      instrument.renderBlock();  // drains the instrument's queue
      mainQueue.runPending();
    }
    const double perPacket = spent / static_cast<double>(packets);
    std::printf("  %-34s %7.1f ns per packet\n", label, perPacket);
    return perPacket;
  };
  const auto direct = [&](const midi::PacketListBuilder&, const std::vector<std::uint8_t>& m) {
    platform::MusicDeviceMIDIEvent(unit.get(), m[0] & 0xF0, m[1], m[2], 0);
  };
  const auto routed = [&](const midi::PacketListBuilder& list, const std::vector<std::uint8_t>&) {
    router.midiReceived(nullptr, list.data(), list.size());
  };

  std::printf("MIDI forwarding, %ld packets of each kind, mda JX10:\n", packets);
  const double baseline = measure("controller, sent directly", {0xB4, 1, 64}, direct);
  const double controller = measure("controller, through the router", {0xB4, 1, 64}, routed);
  sequencer.writeModeButtonPressed(sequencer.writeModeButton());
  const double note = measure("note on, through the router", {0x94, 60, 100}, routed);
  std::printf("  router / direct: %.2f (controller), %.2f (note, with its sequencer task)\n",
              controller / baseline, note / baseline);
  platform::MainQueue::setMain(nullptr);
  return 0;
}
