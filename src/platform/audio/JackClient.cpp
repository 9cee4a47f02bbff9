#include "platform/audio/JackClient.h"

#include <jack/jack.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/Log.h"

namespace platform {

namespace {

// What servers that went away left behind: the threads of libjack's that told of it (they may
// still be handling the server's last notices) and the clients kept for libjack to close. Never
// destroyed: libjack's threads may still call during exit (and the sanitizers see it reachable).
struct GoneServers {
  std::mutex mutex;
  std::vector<pid_t> noticeThreads;
  std::vector<JackClient*> clients;
};
std::mutex& optionsMutex() {
  static std::mutex mutex;
  return mutex;
}
JackClient::Options& configuredOptions() {
  static JackClient::Options options;
  return options;
}

GoneServers& goneServers() {
  static auto* const gone = new GoneServers;
  return *gone;
}

}  // namespace

jack_client_t* JackClient::openHandle(const std::string& name) {
  {
    GoneServers& gone = goneServers();
    std::lock_guard lock(gone.mutex);
    for (const pid_t thread : gone.noticeThreads) {
      const std::string task = "/proc/self/task/" + std::to_string(thread);
      const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(1);
      while (access(task.c_str(), F_OK) == 0 && std::chrono::steady_clock::now() < giveUp)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    gone.noticeThreads.clear();
  }
  jack_status_t status{};
  const Options wanted = options();
  const auto flags = static_cast<jack_options_t>(
      JackNoStartServer | (wanted.exactName && name == wanted.name ? JackUseExactName : 0));
  jack_client_t* client = jack_client_open(name.c_str(), flags, &status);
  // libjack refuses a taken exact name as a server error, after saying so itself.
  if (!client && (flags & JackUseExactName) && (status & (JackNameNotUnique | JackServerError)))
    log("JACK: the client name \"{}\" is taken", name);
  return client;
}

void JackClient::configure(Options options) {
  std::lock_guard lock(optionsMutex());
  options.name = clientNameFor(options.name);
  configuredOptions() = std::move(options);
}

JackClient::Options JackClient::options() {
  std::lock_guard lock(optionsMutex());
  return configuredOptions();
}

std::string JackClient::clientNameFor(const std::string& text) {
  std::string name;
  for (const char c : text)
    name += c == ':' || static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
  const std::size_t limit = static_cast<std::size_t>(jack_client_name_size()) - 1;
  // Cut at a character boundary: a UTF-8 continuation byte never starts the cut-off part.
  if (name.size() > limit) {
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80)
      --cut;
    name.resize(cut);
  }
  const auto first = name.find_first_not_of(' ');
  return first == std::string::npos ? "Pelma" : name.substr(first);
}

std::shared_ptr<JackClient> JackClient::shared() {
  static std::mutex mutex;
  static std::weak_ptr<JackClient> current;
  std::lock_guard lock(mutex);
  if (auto client = current.lock(); client && client->isAlive()) return client;
  jack_client_t* handle = openHandle(options().name);
  if (!handle) return nullptr;
  std::shared_ptr<JackClient> client(new JackClient(handle), &release);
  if (!client->activate()) {
    log("JACK: the client {} could not be activated", client->name());
    return nullptr;
  }
  current = client;
  return client;
}

JackClient::JackClient(jack_client_t* client)
    : client_(client),
      name_(jack_get_client_name(client)),
      sampleRate_(jack_get_sample_rate(client)),
      bufferFrames_(jack_get_buffer_size(client)) {}

// A client whose server has gone is not closed: libjack closes it itself when the next client
// opens, by when its notification thread has ended. Closing it sooner can hang for good: the
// close cancels that thread, which may hold one of libjack's locks while it handles the server's
// last notices, and then waits for that lock. libjack may call the client until it closes it,
// so the object is kept, for the process's life.
void JackClient::release(JackClient* client) {
  if (client->isAlive()) {
    delete client;
    return;
  }
  GoneServers& gone = goneServers();
  std::lock_guard lock(gone.mutex);
  gone.clients.push_back(client);
}

JackClient::~JackClient() {
  // Closing deactivates first, which waits for the process thread.
  jack_client_close(client_);
}

bool JackClient::activate() {
  jack_on_info_shutdown(
      client_,
      [](jack_status_t status, const char* reason, void* self) {
        serverShutDown(status, reason, self);
      },
      this);
  return jack_set_process_callback(client_, &process, this) == 0 &&
         jack_set_buffer_size_callback(client_, &bufferSizeChanged, this) == 0 &&
         jack_set_sample_rate_callback(client_, &sampleRateChanged, this) == 0 &&
         jack_set_port_registration_callback(
             client_,
             [](jack_port_id_t, int, void* self) { static_cast<JackClient*>(self)->notifyPorts(); },
             this) == 0 &&
         jack_set_port_connect_callback(
             client_,
             [](jack_port_id_t, jack_port_id_t, int, void* self) {
               static_cast<JackClient*>(self)->notifyPorts();
             },
             this) == 0 &&
         jack_activate(client_) == 0;
}

void JackClient::waitUntilIdle() const {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (busy_.load() != 0) {
    if (std::chrono::steady_clock::now() > limit) {
      log("JACK: a period of {} did not end within a second; going on", name_);
      return;
    }
    std::this_thread::yield();
  }
}

// --- MIDI inputs --------------------------------------------------------------------------------

std::unique_ptr<JackClient::MidiInput> JackClient::addMidiInput(const std::string& portName,
                                                                MidiReceiver receiver, void* user) {
  std::size_t slot = 0;
  while (slot < kMaxMidiInputs && midiSlots_[slot].port.load() != nullptr)
    ++slot;
  if (slot == kMaxMidiInputs) {
    log("JACK: more than {} MIDI inputs; {} not made", kMaxMidiInputs, portName);
    return nullptr;
  }
  jack_port_t* port =
      jack_port_register(client_, portName.c_str(), JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
  if (!port) {
    log("JACK: cannot register the MIDI input {}", portName);
    return nullptr;
  }
  midiSlots_[slot].receiver = receiver;
  midiSlots_[slot].user = user;
  midiSlots_[slot].port.store(port);  // publishes receiver and user with it
  if (midiSlotsUsed_.load() < slot + 1) midiSlotsUsed_.store(slot + 1);
  // A private constructor: make_unique cannot reach it.
  return std::unique_ptr<MidiInput>(new MidiInput(shared_from_this(), slot, port));
}

void JackClient::removeMidiInput(std::size_t slot, jack_port_t* port) {
  midiSlots_[slot].port.store(nullptr);
  waitUntilIdle();
  // A server that has gone away cannot be asked anything; its ports end with the client.
  if (isAlive()) jack_port_unregister(client_, port);
}

JackClient::MidiInput::~MidiInput() {
  client_->removeMidiInput(slot_, port_);
}

std::string JackClient::MidiInput::fullName() const {
  return jack_port_name(port_);
}

bool JackClient::MidiInput::connectFrom(const std::string& sourcePort) const {
  const int result = jack_connect(client_->handle(), sourcePort.c_str(), jack_port_name(port_));
  return result == 0 || result == EEXIST;
}

void JackClient::MidiInput::disconnectFrom(const std::string& sourcePort) const {
  jack_disconnect(client_->handle(), sourcePort.c_str(), jack_port_name(port_));
}

std::vector<std::string> JackClient::MidiInput::connections() const {
  std::vector<std::string> names;
  if (const char** ports = jack_port_get_all_connections(client_->handle(), port_)) {
    for (const char** port = ports; *port; ++port)
      names.emplace_back(*port);
    jack_free(ports);
  }
  return names;
}

// --- Audio --------------------------------------------------------------------------------------

void JackClient::setAudio(AudioProcess process, ChangeNotice notice, void* user) {
  audioUser_.store(user);
  audioNotice_.store(notice);
  audioProcess_.store(process);
}

void JackClient::clearAudio(void* user) {
  if (audioUser_.load() != user) return;
  audioProcess_.store(nullptr);
  audioNotice_.store(nullptr);
  waitUntilIdle();
  audioUser_.store(nullptr);
}

// --- Ports --------------------------------------------------------------------------------------

void JackClient::setPortsNotice(ChangeNotice notice, void* user) {
  portsUser_.store(user);
  portsNotice_.store(notice);
}

void JackClient::clearPortsNotice(void* user) {
  if (portsUser_.load() != user) return;
  portsNotice_.store(nullptr);
  waitUntilIdle();
  portsUser_.store(nullptr);
}

// --- JACK's notification threads ----------------------------------------------------------

void JackClient::notifyAudio() noexcept {
  busy_.fetch_add(1);
  if (ChangeNotice notice = audioNotice_.load()) notice(audioUser_.load());
  busy_.fetch_sub(1);
}

void JackClient::notifyPorts() noexcept {
  busy_.fetch_add(1);
  if (ChangeNotice notice = portsNotice_.load()) notice(portsUser_.load());
  busy_.fetch_sub(1);
}

// JACK's notification thread: the next periods have this length.
int JackClient::bufferSizeChanged(std::uint32_t frames, void* user) noexcept {
  auto* self = static_cast<JackClient*>(user);
  self->bufferFrames_.store(frames, std::memory_order_release);
  self->notifyAudio();
  return 0;
}

// JACK's notification thread (also once on activation, with the rate opened at).
int JackClient::sampleRateChanged(std::uint32_t rate, void* user) noexcept {
  auto* self = static_cast<JackClient*>(user);
  self->sampleRate_.store(rate, std::memory_order_release);
  self->notifyAudio();
  return 0;
}

// A thread of libjack's, when the server stops or drops this client.
void JackClient::serverShutDown(int, const char*, void* user) noexcept {
  auto* self = static_cast<JackClient*>(user);
  {
    GoneServers& gone = goneServers();
    std::lock_guard lock(gone.mutex);
    gone.noticeThreads.push_back(gettid());
  }
  self->shutDown_.store(true, std::memory_order_release);
  self->notifyAudio();
  self->notifyPorts();
}

}  // namespace platform
