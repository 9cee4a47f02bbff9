// The least an audio host on JACK does each period: a client with two output ports that writes
// silence into them, and nothing else. bench/idle-cpu measures it beside the idle hosts, so that
// their cost can be read against what merely taking part in every period costs on this machine.
//
//   bench_jack_silent_client SECONDS

#include <jack/jack.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

jack_port_t* ports[2];

int process(jack_nframes_t frames, void*) {
  for (jack_port_t* port : ports)
    std::memset(jack_port_get_buffer(port, frames), 0, frames * sizeof(float));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s SECONDS\n", argv[0]);
    return 2;
  }
  jack_client_t* client = jack_client_open("silent", JackNoStartServer, nullptr);
  if (!client) {
    std::fprintf(stderr, "no JACK server\n");
    return 1;
  }
  ports[0] = jack_port_register(client, "out_1", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
  ports[1] = jack_port_register(client, "out_2", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
  jack_set_process_callback(client, process, nullptr);
  if (jack_activate(client) != 0) {
    std::fprintf(stderr, "cannot activate the client\n");
    return 1;
  }
  // Connected as the hosts' outputs are, so the server's graph is the same size.
  jack_connect(client, jack_port_name(ports[0]), "system:playback_1");
  jack_connect(client, jack_port_name(ports[1]), "system:playback_2");
  std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(argv[1])));
  jack_client_close(client);
  return 0;
}
