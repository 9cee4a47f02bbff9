// A JACK MIDI client that plays a looped four-beat pattern at exact frames into another client's
// MIDI input, so that an outside host (jalv) can be fed the same notes Pelma host plays.
//
//   bench_jack_midi_pattern DESTINATION-PORT TEMPO SECONDS NOTES [CHANNEL [BANK:PROGRAM]]
//   NOTES: note@beat:length[:velocity],...  (as pelma --notes)
//   DESTINATION-PORT "-" connects nothing (the pattern starts when another client connects the
//   port); CHANNEL 1..16, default 1.
//   BANK:PROGRAM chooses a sound first (bank select MSB and LSB, then program change).

#include <jack/jack.h>
#include <jack/midiport.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Note {
  int number;
  double beat, length;
  int velocity;
};

struct Pattern {
  std::vector<Note> notes;
  double framesPerBeat = 0;
  jack_port_t* port = nullptr;
  std::uint64_t frame = 0;
  unsigned char channelBits = 0;
  int bank = -1, program = -1;  // sent once, before the first note, when set
  // The pattern starts two periods after the port is first seen connected: notes played before
  // would reach no one, and JACK may make a new connection effective only at a later period.
  std::atomic<bool> started{false};
  int settlePeriods = 2;
};

std::vector<Note> parse(const std::string& text) {
  std::vector<Note> notes;
  std::stringstream list(text);
  std::string item;
  while (std::getline(list, item, ',')) {
    Note n{60, 0, 0.5, 100};
    char at, colon, colon2;
    std::stringstream fields(item);
    fields >> n.number >> at >> n.beat >> colon >> n.length;
    if (fields >> colon2) fields >> n.velocity;
    notes.push_back(n);
  }
  return notes;
}

// Writes the note ons and offs that fall in [frame, frame + frames) of the looped pattern.
int process(jack_nframes_t frames, void* arg) {
  auto* p = static_cast<Pattern*>(arg);
  void* buffer = jack_port_get_buffer(p->port, frames);
  jack_midi_clear_buffer(buffer);
  if (!p->started.load() || jack_port_connected(p->port) == 0) return 0;
  if (p->settlePeriods > 0) {
    --p->settlePeriods;
    return 0;
  }
  if (p->program >= 0) {
    const unsigned char status = 0xB0 | p->channelBits;
    unsigned char msb[3] = {status, 0, static_cast<unsigned char>((p->bank >> 7) & 0x7F)};
    unsigned char lsb[3] = {status, 32, static_cast<unsigned char>(p->bank & 0x7F)};
    unsigned char change[2] = {static_cast<unsigned char>(0xC0 | p->channelBits),
                               static_cast<unsigned char>(p->program & 0x7F)};
    jack_midi_event_write(buffer, 0, msb, 3);
    jack_midi_event_write(buffer, 0, lsb, 3);
    jack_midi_event_write(buffer, 0, change, 2);
    p->program = -1;
  }
  const double loop = 4.0 * p->framesPerBeat;
  for (jack_nframes_t i = 0; i < frames; ++i) {
    const double position = std::fmod(static_cast<double>(p->frame + i), loop);
    for (const Note& n : p->notes) {
      const auto on = std::llround(n.beat * p->framesPerBeat);
      const auto off = std::llround(std::fmod((n.beat + n.length) * p->framesPerBeat, loop));
      if (std::llround(position) == off) {
        unsigned char message[3] = {static_cast<unsigned char>(0x80 | p->channelBits),
                                    static_cast<unsigned char>(n.number), 0};
        jack_midi_event_write(buffer, i, message, 3);
      }
      if (std::llround(position) == on) {
        unsigned char message[3] = {static_cast<unsigned char>(0x90 | p->channelBits),
                                    static_cast<unsigned char>(n.number),
                                    static_cast<unsigned char>(n.velocity)};
        jack_midi_event_write(buffer, i, message, 3);
      }
    }
  }
  p->frame += frames;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr,
                 "usage: %s DESTINATION-PORT TEMPO SECONDS NOTES [CHANNEL [BANK:PROGRAM]]\n",
                 argv[0]);
    return 2;
  }
  // A server busy with other clients opening at the same moment may turn one away: retry for a
  // few seconds.
  jack_client_t* client = nullptr;
  jack_set_error_function([](const char*) {});  // quiet while retrying
  for (int attempt = 0; !client && attempt < 30; ++attempt) {
    if (attempt > 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    client = jack_client_open("pelma-pattern", JackNoStartServer, nullptr);
  }
  jack_set_error_function(nullptr);  // the default again
  if (!client) {
    std::fprintf(stderr, "no JACK server\n");
    return 1;
  }
  Pattern pattern;
  pattern.notes = parse(argv[4]);
  pattern.framesPerBeat = 60.0 / std::atof(argv[2]) * jack_get_sample_rate(client);
  if (argc > 5) pattern.channelBits = static_cast<unsigned char>((std::atoi(argv[5]) - 1) & 0x0F);
  if (argc > 6 && std::sscanf(argv[6], "%d:%d", &pattern.bank, &pattern.program) != 2) {
    std::fprintf(stderr, "BANK:PROGRAM expected, not %s\n", argv[6]);
    return 2;
  }
  pattern.port = jack_port_register(client, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
  jack_set_process_callback(client, process, &pattern);
  jack_activate(client);
  if (std::string(argv[1]) != "-" &&
      jack_connect(client, jack_port_name(pattern.port), argv[1]) != 0) {
    std::fprintf(stderr, "cannot connect to %s\n", argv[1]);
  }
  pattern.started.store(true);
  std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(argv[3])));
  jack_client_close(client);
  return 0;
}
