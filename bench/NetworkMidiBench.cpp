// Network MIDI's costs, each against a baseline measured in the same run:
// - latency: from a note's datagram leaving a peer on this machine to the note queued at a real
//   instrument (through the session's receive thread, the peer's MIDI source and the router),
//   against the same datagram read by a bare UDP socket waiting in poll();
// - idle CPU: the process with the session on and one peer joined (the npm package rtpmidi, run
//   by node, exchanging clocks and nothing else), against the same process with the session off.
//
//   bench_network_midi [NOTES [IDLE-SECONDS]]     (default 2,000 notes, 20 s)

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "ManualInstrument.h"
#include "frameworks/pelma/PGMidi.h"
#include "midi/MidiEventRouter.h"
#include "platform/foundation/MainQueue.h"
#include "platform/midi/NetworkMidiSession.h"
#include "sequencer/KRSequencerController.h"

namespace {

using Clock = std::chrono::steady_clock;

double processCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Latencies {
  double median, p99;
};

Latencies summarise(std::vector<double> microseconds) {
  std::sort(microseconds.begin(), microseconds.end());
  return {microseconds[microseconds.size() / 2], microseconds[microseconds.size() * 99 / 100]};
}

// Passes a network peer's MIDI to the router and notes when the router has queued it.
class StampingDelegate : public PGMidiDelegate, public PGMidiSourceDelegate {
 public:
  explicit StampingDelegate(MidiEventRouter& router) : router_(router) {}
  void sourceAdded(PGMidi*, PGMidiSource* source) override {
    source->addDelegate(this);
    joined = true;
  }
  void sourceRemoved(PGMidi*, PGMidiSource*) override {}
  void destinationAdded(PGMidi*, PGMidiDestination*) override {}
  void destinationRemoved(PGMidi*, PGMidiDestination*) override {}
  void midiReceived(PGMidiSource* source, const std::uint8_t* list,
                    std::size_t size) noexcept override {
    router_.midiReceived(source, list, size);
    queuedAt.store(Clock::now().time_since_epoch().count());
  }
  std::atomic<bool> joined{false};
  std::atomic<Clock::rep> queuedAt{0};

 private:
  MidiEventRouter& router_;
};

// The same note datagrams sent to a bare socket, read by a thread waiting in poll().
std::vector<double> bareSocketLatencies(int notes) {
  const int receiver = socket(AF_INET, SOCK_DGRAM, 0), sender = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length);
  std::atomic<Clock::rep> readAt{0};
  std::atomic<bool> running{true};
  std::thread reader([&] {
    std::uint8_t buffer[2048];
    pollfd fd{receiver, POLLIN, 0};
    while (running) {
      if (poll(&fd, 1, 100) > 0 && recv(receiver, buffer, sizeof buffer, 0) > 0)
        readAt.store(Clock::now().time_since_epoch().count());
    }
  });
  std::vector<double> latencies;
  const std::uint8_t datagram[16] = {0x80, 0x61, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0x03, 0x90, 60, 100};
  for (int i = 0; i < notes; ++i) {
    readAt.store(0);
    const auto sent = Clock::now();
    sendto(sender, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&address),
           sizeof address);
    while (readAt.load() == 0)
      std::this_thread::yield();
    latencies.push_back(static_cast<double>(readAt.load() - sent.time_since_epoch().count()) / 1e3);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  running = false;
  reader.join();
  close(receiver);
  close(sender);
  return latencies;
}

pid_t startNodePeer(std::uint16_t ownPort, std::uint16_t hostPort) {
  setenv("NODE_PATH", PELMA_NODE_MODULES, 1);
  const std::string own = std::to_string(ownPort), host = std::to_string(hostPort);
  const char* argv[] = {"node", PELMA_RTPMIDI_PEER, "play", own.c_str(), host.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const bool failed =
      posix_spawnp(&pid, "node", &actions, nullptr, const_cast<char**>(argv), environ) != 0;
  posix_spawn_file_actions_destroy(&actions);
  return failed ? 0 : pid;
}

// Runs the main queue until `done` or `seconds` have passed.
template <typename Done>
bool pump(platform::ManualMainQueue& mainQueue, double seconds, Done done) {
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() < end && !done()) {
    mainQueue.runPending();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return done();
}

// The process's CPU over `seconds` while the main queue is run as the application would.
double idleCpuPercent(platform::ManualMainQueue& mainQueue, double seconds) {
  const double cpuBefore = processCpuSeconds();
  const auto before = Clock::now();
  pump(mainQueue, seconds, [] { return false; });
  const double wall = std::chrono::duration<double>(Clock::now() - before).count();
  return 100.0 * (processCpuSeconds() - cpuBefore) / wall;
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const int notes = argc > 1 ? std::atoi(argv[1]) : 2000;
  const double idleSeconds = argc > 2 ? std::atof(argv[2]) : 20.0;

  ManualInstrument instrument("MDA JX10");
  if (!instrument.unit) {
    std::fprintf(stderr, "bench_network_midi: mda JX10 is not installed\n");
    return 1;
  }
  auto& unit = instrument.unit;

  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  KRSequencerController sequencer(KRSequencerController::kTabletInterface);
  PGMidi wrapper("PelmaBench");
  ConnectedMidiRouter router(unit.get(), &sequencer, &wrapper);
  StampingDelegate stamping(router);
  wrapper.setDelegate(&stamping);

  // Idle CPU: first with the session off, then on with the node peer joined.
  const double idleOff = idleCpuPercent(mainQueue, idleSeconds);
  wrapper.setNetworkEnabled(true);
  const pid_t node =
      startNodePeer(static_cast<std::uint16_t>(wrapper.networkPort() + 100), wrapper.networkPort());
  if (node <= 0 || !pump(mainQueue, 15.0, [&] { return stamping.joined.load(); })) {
    std::fprintf(stderr, "bench_network_midi: the node peer did not join (%s)\n",
                 PELMA_NODE_MODULES);
    return 1;
  }
  const double idleOn = idleCpuPercent(mainQueue, idleSeconds);
  kill(node, SIGTERM);
  waitpid(node, nullptr, 0);
  pump(mainQueue, 1.0, [] { return false; });

  // Latency: a peer session in this process plays notes, one at a time.
  stamping.joined = false;
  NetworkMidiSession peer("Bench peer", {});
  peer.start(static_cast<std::uint16_t>(wrapper.networkPort() + 2));
  peer.invite("127.0.0.1", wrapper.networkPort());
  if (!pump(mainQueue, 10.0, [&] { return stamping.joined.load(); })) {
    std::fprintf(stderr, "bench_network_midi: the peer session did not join\n");
    return 1;
  }
  std::vector<double> latencies;
  for (int i = 0; i < notes; ++i) {
    const std::uint8_t note[] = {static_cast<std::uint8_t>(i % 2 ? 0x80 : 0x90), 60, 100};
    stamping.queuedAt.store(0);
    const auto sent = Clock::now();
    peer.sendMidi(note, sizeof note);
    while (stamping.queuedAt.load() == 0)
      std::this_thread::yield();
    latencies.push_back(
        static_cast<double>(stamping.queuedAt.load() - sent.time_since_epoch().count()) / 1e3);
    instrument.renderBlock();  // the instrument takes the note
    mainQueue.runPending();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  peer.stop();
  const Latencies ours = summarise(latencies), bare = summarise(bareSocketLatencies(notes));

  std::printf("Network MIDI, %d notes, mda JX10:\n", notes);
  std::printf("  datagram to a bare socket in poll()   median %6.1f us  p99 %6.1f us\n",
              bare.median, bare.p99);
  std::printf("  datagram to the note at the instrument median %6.1f us  p99 %6.1f us\n",
              ours.median, ours.p99);
  std::printf("  ratio (median): %.2f\n", ours.median / bare.median);
  std::printf(
      "Idle CPU over %.0f s (%% of a core): session off %.3f, on with one peer %.3f "
      "(the session: %.3f)\n",
      idleSeconds, idleOff, idleOn, idleOn - idleOff);
  wrapper.setDelegate(nullptr);
  platform::MainQueue::setMain(nullptr);
  return 0;
}
