#include "frameworks/pelma/PGMidi.h"

#include <time.h>
#include <unistd.h>

#include <jack/jack.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "midi/MIDIPacketList.h"
#include "platform/audio/AudioOutput.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/UserDefaults.h"

namespace {

constexpr auto kHotPlugInterval = std::chrono::seconds(1);

std::uint64_t monotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u +
         static_cast<std::uint64_t>(now.tv_nsec);
}

// RtMidi reports its errors through this instead of throwing from its threads.
void logRtMidiError(RtMidiError::Type type, const std::string& text, void* /*user*/) {
  if (type == RtMidiError::WARNING || type == RtMidiError::DEBUG_WARNING) return;
  platform::log("MIDI: {}", text);
}

void receive(double /*deltaTime*/, std::vector<unsigned char>* message, void* source) {
  if (!message || message->empty()) return;
  static_cast<PGMidiSource*>(source)->deliver(monotonicNanoseconds(), message->data(),
                                              message->size());
}

// The audio thread, at the start of a period.
void receiveFromJack(void* source, std::uint32_t /*frame*/, const std::uint8_t* data,
                     std::size_t size) noexcept {
  static_cast<PGMidiSource*>(source)->deliver(monotonicNanoseconds(), data, size);
}

// The port names a probe sees now, in the MIDI system's order.
template <typename Probe>
std::vector<std::string> portNames(Probe& probe) {
  std::vector<std::string> names;
  try {
    const unsigned count = probe.getPortCount();
    for (unsigned i = 0; i < count; ++i)
      names.push_back(probe.getPortName(i));
  } catch (const RtMidiError& error) {
    platform::log("MIDI: cannot list ports: {}", error.getMessage());
  }
  return names;
}

}  // namespace

PGMidiSource::PGMidiSource(std::string name, bool isNetworkSession)
    : name_(std::move(name)), isNetworkSession_(isNetworkSession) {}

PGMidiSource::~PGMidiSource() {
  // Closes the port: no more receive-thread calls.
  input_.reset();
  jackInput_.reset();
}

void PGMidiSource::addDelegate(PGMidiSourceDelegate* delegate) {
  for (auto& slot : delegates_) {
    if (slot.load() == delegate) return;
  }
  for (auto& slot : delegates_) {
    PGMidiSourceDelegate* empty = nullptr;
    if (slot.compare_exchange_strong(empty, delegate)) return;
  }
  platform::log("MIDI source {}: more than {} delegates; one ignored", name_, kMaxDelegates);
}

void PGMidiSource::removeDelegate(PGMidiSourceDelegate* delegate) {
  for (auto& slot : delegates_) {
    PGMidiSourceDelegate* expected = delegate;
    slot.compare_exchange_strong(expected, nullptr);
  }
  // A delivery that read the delegate before it was removed may still be running: let it end,
  // so that the caller may destroy the delegate. Deliveries are short (no locks, no waits).
  while (delivering_.load() != 0)
    std::this_thread::yield();
}

void PGMidiSource::deliver(std::uint64_t timeStamp, const std::uint8_t* data,
                           std::size_t length) noexcept {
  if (!isActive()) return;
  delivering_.fetch_add(1);
  alignas(8) std::uint8_t buffer[midi::kPacketCountSize + midi::kPacketHeaderSize + kMaxPacketData +
                                 midi::kPacketListSlack + 4];
  for (std::size_t done = 0; done < length;) {
    const auto chunk = static_cast<std::uint16_t>(std::min(kMaxPacketData, length - done));
    midi::PacketListBuilder list(buffer, sizeof buffer);
    list.add(timeStamp, data + done, chunk);
    for (auto& slot : delegates_) {
      if (PGMidiSourceDelegate* delegate = slot.load()) {
        delegate->midiReceived(this, list.data(), list.size());
      }
    }
    done += chunk;
  }
  delivering_.fetch_sub(1);
}

PGMidi::PGMidi(std::string clientName) : clientName_(std::move(clientName)) {
  if (access("/dev/snd/seq", R_OK | W_OK) == 0) {
    system_ = System::alsa;
    api_ = RtMidi::LINUX_ALSA;
  } else if (platform::jackServerIsRunning()) {
    system_ = System::jack;
  }
  if (system_ == System::none) {
    platform::log("MIDI: no ALSA sequencer and no JACK server; MIDI input is off");
    return;
  }
  virtualSource_ = std::make_shared<PGMidiSource>(clientName_, false);
  if (system_ == System::jack) {
    jack_ = platform::JackClient::shared(clientName_);
    if (jack_ && openJackVirtualInput()) {
      watchJack();
    } else {
      platform::log("MIDI: cannot open the JACK MIDI system");
      system_ = System::none;
      virtualSource_.reset();
      return;
    }
  } else {
    try {
      sourceProbe_ = newInput();
      destinationProbe_ = std::make_unique<RtMidiOut>(api_, clientName_ + " MIDI probe");
      destinationProbe_->setErrorCallback(logRtMidiError, nullptr);
      // Its own client name: the audio output's client may already be called clientName_.
      auto input = std::make_unique<RtMidiIn>(api_, clientName_ + " MIDI", 1024);
      input->setErrorCallback(logRtMidiError, nullptr);
      input->ignoreTypes(false, false, false);  // system exclusive, timing and sensing too
      input->setCallback(receive, virtualSource_.get());
      input->openVirtualPort(clientName_);
      virtualSource_->setInput(std::move(input));
    } catch (const RtMidiError& error) {
      platform::log("MIDI: cannot open the ALSA MIDI system: {}", error.getMessage());
      system_ = System::none;
      virtualSource_.reset();
      return;
    }
  }
  platform::log("MIDI: using {} MIDI; virtual input \"{}\"",
                system_ == System::alsa ? "ALSA sequencer" : "JACK", clientName_);

  // The ports there are at start-up; the delegate is told only of later changes.
  for (const std::string& name : sourcePortNames()) {
    if (auto source = openSource(name)) sources_.push_back(source);
  }
  for (const std::string& name : destinationPortNames()) {
    if (!isOurPort(name)) destinations_.push_back(std::make_shared<PGMidiDestination>(name));
  }
}

PGMidi::~PGMidi() {
  network_.reset();
  alive_->store(false);
  releaseJack();
  {
    std::lock_guard lock(pollMutex_);
    stopPolling_ = true;
  }
  pollWake_.notify_all();
  if (pollThread_.joinable()) pollThread_.join();
}

bool PGMidi::openJackVirtualInput() {
  auto input = jack_->addMidiInput(clientName_, receiveFromJack, virtualSource_.get());
  if (!input) return false;
  virtualSource_->setInput(std::move(input));
  return true;
}

void PGMidi::watchJack() {
  jack_->setPortsNotice(&PGMidi::jackPortsChanged, this);
  std::lock_guard lock(pollMutex_);
  jackWatched_ = true;
  pollWake_.notify_all();
}

void PGMidi::releaseJack() {
  if (!jack_) return;
  jack_->clearPortsNotice(this);
  jack_.reset();
  std::lock_guard lock(pollMutex_);
  jackWatched_ = false;  // polling again, to find a server that comes back
  pollWake_.notify_all();
}

void PGMidi::jackPortsChanged(void* user) noexcept {
  auto* self = static_cast<PGMidi*>(user);
  std::lock_guard lock(self->pollMutex_);
  self->refreshRequested_ = true;
  self->pollWake_.notify_all();
}

bool PGMidi::followJackServer() {
  if (jack_ && jack_->isAlive()) return true;
  if (jack_) {
    // Our ports went with the server: the sources go now, and come back with their ports.
    platform::log("MIDI: the JACK server went away");
    virtualSource_->setInput(std::unique_ptr<platform::JackClient::MidiInput>());
    std::vector<std::shared_ptr<PGMidiSource>> gone;
    std::erase_if(sources_, [&](const auto& source) {
      if (source->isNetworkSession()) return false;
      gone.push_back(source);
      return true;
    });
    const auto goneDestinations = std::exchange(destinations_, {});
    releaseJack();
    for (const auto& source : gone) {
      if (auto* delegate = delegate_.get()) delegate->sourceRemoved(this, source.get());
    }
    for (const auto& destination : goneDestinations) {
      if (auto* delegate = delegate_.get()) delegate->destinationRemoved(this, destination.get());
    }
  }
  jack_ = platform::JackClient::shared(clientName_);  // null while no server answers
  if (!jack_ || !openJackVirtualInput()) {
    releaseJack();
    return false;
  }
  watchJack();
  platform::log("MIDI: JACK server back; virtual input \"{}\"", virtualDestinationPortName());
  return true;
}

std::vector<std::string> PGMidi::jackPortNames(unsigned long direction) const {
  std::vector<std::string> names;
  if (!jack_) return names;
  if (const char** ports =
          jack_get_ports(jack_->handle(), nullptr, JACK_DEFAULT_MIDI_TYPE, direction)) {
    for (const char** port = ports; *port; ++port)
      names.emplace_back(*port);
    jack_free(ports);
  }
  return names;
}

std::vector<std::string> PGMidi::sourcePortNames() const {
  if (system_ == System::jack) return jackPortNames(JackPortIsOutput);
  return sourceProbe_ ? portNames(*sourceProbe_) : std::vector<std::string>{};
}

std::vector<std::string> PGMidi::destinationPortNames() const {
  if (system_ == System::jack) return jackPortNames(JackPortIsInput);
  return destinationProbe_ ? portNames(*destinationProbe_) : std::vector<std::string>{};
}

std::unique_ptr<RtMidiIn> PGMidi::newInput() const {
  auto input = std::make_unique<RtMidiIn>(api_, clientName_ + " MIDI in", 1024);
  input->setErrorCallback(logRtMidiError, nullptr);
  return input;
}

bool PGMidi::isOurPort(const std::string& portName) const {
  // JACK names ports "client:port": ours are on our one client. ALSA names them "client:port
  // client-id:port-id", and our MIDI clients there are all named "<client name> MIDI...".
  if (system_ == System::jack) return jack_ && portName.rfind(jack_->name() + ":", 0) == 0;
  return portName.rfind(clientName_ + " MIDI", 0) == 0;
}

std::string PGMidi::virtualDestinationPortName() const {
  if (system_ == System::jack) return jack_ ? jack_->name() + ":" + clientName_ : std::string();
  if (system_ == System::none) return {};
  return clientName_ + " MIDI:" + clientName_;
}

std::shared_ptr<PGMidiSource> PGMidi::openSource(const std::string& portName) {
  if (isOurPort(portName)) return nullptr;
  auto source = std::make_shared<PGMidiSource>(portName, false);
  applyStoredChoice(*source);
  if (system_ == System::jack) {
    auto input = jack_->addMidiInput("in " + std::to_string(nextInputNumber_++), receiveFromJack,
                                     source.get());
    if (!input) return nullptr;
    if (!input->connectFrom(portName)) {
      platform::log("MIDI: cannot connect source {}", portName);
      return nullptr;
    }
    source->setInput(std::move(input));
    return source;
  }
  try {
    auto input = newInput();
    input->ignoreTypes(false, false, false);
    input->setCallback(receive, source.get());
    // Open by name: the probe's numbering may have moved since it was read.
    const auto names = portNames(*input);
    const auto found = std::find(names.begin(), names.end(), portName);
    if (found == names.end()) return nullptr;
    input->openPort(static_cast<unsigned>(found - names.begin()),
                    clientName_ + " in " + std::to_string(nextInputNumber_++));
    source->setInput(std::move(input));
  } catch (const RtMidiError& error) {
    platform::log("MIDI: cannot open source {}: {}", portName, error.getMessage());
    return nullptr;
  }
  return source;
}

void PGMidi::setChannel(std::int32_t channel) {
  if (channel < 0 || channel > 16) {
    platform::log("MIDI: channel {} is not 0 (all) to 16; kept {}", channel, this->channel());
    return;
  }
  channel_.store(channel, std::memory_order_relaxed);
}

void PGMidi::restoreStoredChoices(const platform::UserDefaults* defaults) {
  storedChoices_ = defaults;
  if (!defaults) return;
  if (auto channel = defaults->integerForKey("MIDI-CHANNEL")) {
    setChannel(static_cast<std::int32_t>(*channel));
  }
  for (const auto& source : sources_) {
    if (auto active = defaults->boolForKey("MIDI-" + source->name())) source->setIsActive(*active);
  }
}

void PGMidi::applyStoredChoice(PGMidiSource& source) const {
  if (!storedChoices_) return;
  if (auto active = storedChoices_->boolForKey("MIDI-" + source.name()))
    source.setIsActive(*active);
}

void PGMidi::setNetworkEnabled(bool enabled) {
  if (!enabled) {
    network_.reset();  // says goodbye; the peers' sources go through the main queue
    return;
  }
  if (network_) return;
  // The session's events come on its receive thread: a peer's source is made there (once, when it
  // joins), listed and announced on the main queue; its MIDI goes straight to the source.
  NetworkMidiSession::Events events;
  events.peerJoined = [this](const rtp_midi::Peer& peer) {
    auto source = std::make_shared<PGMidiSource>(std::string(peer.nameView()), true);
    for (auto& [ssrc, slot] : networkSources_) {
      if (slot) continue;
      ssrc = peer.ssrc;
      slot = source;
      break;
    }
    platform::dispatchAsyncMain([this, alive = alive_, source] {
      if (!alive->load()) return;
      applyStoredChoice(*source);
      sources_.push_back(source);
      if (auto* delegate = delegate_.get()) delegate->sourceAdded(this, source.get());
    });
  };
  events.peerLeft = [this](const rtp_midi::Peer& peer, std::string_view) {
    for (auto& [ssrc, slot] : networkSources_) {
      if (!slot || ssrc != peer.ssrc) continue;
      platform::dispatchAsyncMain([this, alive = alive_, source = std::move(slot)] {
        if (!alive->load()) return;
        std::erase(sources_, source);
        if (auto* delegate = delegate_.get()) delegate->sourceRemoved(this, source.get());
      });
      slot = nullptr;
    }
  };
  events.midiReceived = [this](const rtp_midi::Peer& peer, std::uint32_t timestamp,
                               const std::uint8_t* bytes, std::size_t length) {
    for (const auto& [ssrc, slot] : networkSources_)
      if (slot && ssrc == peer.ssrc) slot->deliver(timestamp, bytes, length);
  };
  network_ = std::make_unique<NetworkMidiSession>(clientName_, std::move(events));
  if (!network_->start(kNetworkPort)) network_.reset();
}

std::uint16_t PGMidi::networkPort() const {
  return network_ ? network_->controlPort() : 0;
}

void PGMidi::connectToNetworkPeer(const std::string& host, std::uint16_t port) {
  if (network_) network_->invite(host, port);
}

void PGMidi::refresh() {
  if (system_ == System::none) return;
  if (system_ == System::jack && !followJackServer()) return;
  const std::vector<std::string> sourceNames = sourcePortNames();
  const std::vector<std::string> destinationNames = destinationPortNames();

  std::vector<std::shared_ptr<PGMidiSource>> gone;
  std::erase_if(sources_, [&](const auto& source) {
    if (source->isNetworkSession()) return false;  // network peers come and go by the session
    const bool present =
        std::find(sourceNames.begin(), sourceNames.end(), source->name()) != sourceNames.end();
    if (!present) gone.push_back(source);
    return !present;
  });
  for (const auto& source : gone) {
    if (auto* delegate = delegate_.get()) delegate->sourceRemoved(this, source.get());
  }
  for (const std::string& name : sourceNames) {
    const bool known = std::any_of(sources_.begin(), sources_.end(),
                                   [&](const auto& source) { return source->name() == name; });
    if (known) continue;
    if (auto source = openSource(name)) {
      sources_.push_back(source);
      if (auto* delegate = delegate_.get()) delegate->sourceAdded(this, source.get());
    }
  }

  std::vector<std::shared_ptr<PGMidiDestination>> goneDestinations;
  std::erase_if(destinations_, [&](const auto& destination) {
    const bool present = std::find(destinationNames.begin(), destinationNames.end(),
                                   destination->name()) != destinationNames.end();
    if (!present) goneDestinations.push_back(destination);
    return !present;
  });
  for (const auto& destination : goneDestinations) {
    if (auto* delegate = delegate_.get()) delegate->destinationRemoved(this, destination.get());
  }
  for (const std::string& name : destinationNames) {
    if (isOurPort(name)) continue;
    const bool known =
        std::any_of(destinations_.begin(), destinations_.end(),
                    [&](const auto& destination) { return destination->name() == name; });
    if (known) continue;
    auto destination = std::make_shared<PGMidiDestination>(name);
    destinations_.push_back(destination);
    if (auto* delegate = delegate_.get()) delegate->destinationAdded(this, destination.get());
  }
}

void PGMidi::startHotPlugPolling() {
  if (system_ == System::none || pollThread_.joinable()) return;
  pollThread_ = std::thread([this, alive = alive_] {
    std::unique_lock lock(pollMutex_);
    while (true) {
      if (jackWatched_) {
        pollWake_.wait(lock);  // a ports notice, or no longer watched
      } else {
        pollWake_.wait_for(lock, kHotPlugInterval);
      }
      if (stopPolling_) return;
      if (jackWatched_ && !refreshRequested_) continue;
      refreshRequested_ = false;
      platform::dispatchAsyncMain([this, alive] {
        if (alive->load()) refresh();
      });
    }
  });
}
