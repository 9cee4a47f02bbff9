#include "frameworks/pelma/PGMidi.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <utility>

#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/midi/MIDIPacketList.h"

namespace {

constexpr auto kHotPlugInterval = std::chrono::seconds(1);

}  // namespace

PGMidiSource::PGMidiSource(std::string name, bool isNetworkSession)
    : name_(std::move(name)), isNetworkSession_(isNetworkSession) {}

PGMidiSource::~PGMidiSource() {
  // Closes the port: no more receive-thread calls.
  input_.reset();
}

void PGMidiSource::setIsActive(bool active) {
  if (!active_.exchange(active, std::memory_order_relaxed) || active) return;
  releaseSoundingNotes();
}

void PGMidiSource::releaseChannel(std::uint8_t channel) {
  delivering_.fetch_add(1);  // removeDelegate waits for these note offs too
  for (std::size_t word = channel * 4u; word < channel * 4u + 4; ++word) {
    std::uint64_t keys = sounding_[word].exchange(0, std::memory_order_relaxed);
    for (; keys != 0; keys &= keys - 1) {
      const auto key = static_cast<std::uint8_t>((word % 4) * 64 + std::countr_zero(keys));
      const std::uint8_t noteOff[3] = {static_cast<std::uint8_t>(0x80 | channel), key, 0};
      handToDelegates(0, noteOff, sizeof noteOff);
    }
  }
  delivering_.fetch_sub(1);
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

PGMidi::PGMidi(std::string clientName)
    : clientName_(std::move(clientName)),
      virtualSource_(std::make_shared<PGMidiSource>(clientName_, false)) {
  if (!openPorts()) {
    platform::log("MIDI: no ALSA sequencer and no JACK server; MIDI input is off until one starts");
    return;
  }

  // The ports there are at start-up; the delegate is told only of later changes.
  for (const std::string& name : ports_->sourceNames()) {
    if (auto source = openSource(name)) sources_.push_back(source);
  }
  for (const std::string& name : ports_->destinationNames())
    destinations_.push_back(std::make_shared<PGMidiDestination>(name));
  hearEachProgramOnce();
}

PGMidi::~PGMidi() {
  network_.reset();
  alive_->store(false);
  releasePorts();
  {
    std::lock_guard lock(pollMutex_);
    stopPolling_ = true;
  }
  pollWake_.notify_all();
  if (pollThread_.joinable()) pollThread_.join();
}

bool PGMidi::openPorts() {
  ports_ = platform::openMidiPorts(clientName_);
  if (!ports_) return false;
  auto input = ports_->openVirtualInput(&PGMidiSource::receive, virtualSource_.get());
  if (!input) {
    ports_.reset();
    return false;
  }
  virtualSource_->setInput(std::move(input));
  if (opened_) {
    platform::log("MIDI: JACK server back; virtual input \"{}\"", virtualDestinationPortName());
  } else {
    platform::log("MIDI: using {} MIDI; virtual input \"{}\"",
                  system() == System::alsa ? "ALSA sequencer" : "JACK", clientName_);
  }
  opened_ = true;
  if (ports_->watch(&PGMidi::portsChanged, this)) {
    std::lock_guard lock(pollMutex_);
    watched_ = true;
    pollWake_.notify_all();
  }
  return true;
}

void PGMidi::releasePorts() {
  if (!ports_) return;
  ports_->unwatch(this);
  if (virtualSource_) virtualSource_->setInput(nullptr);
  ports_.reset();
  std::lock_guard lock(pollMutex_);
  watched_ = false;  // polling again, to find a system that comes back
  pollWake_.notify_all();
}

void PGMidi::portsChanged(void* user) noexcept {
  auto* self = static_cast<PGMidi*>(user);
  std::lock_guard lock(self->pollMutex_);
  self->refreshRequested_ = true;
  self->pollWake_.notify_all();
}

bool PGMidi::followServer() {
  if (ports_ && ports_->isAlive()) return true;
  if (ports_) {
    // Our ports went with the server: the sources go now, and come back with their ports.
    platform::log("MIDI: the JACK server went away");
    std::vector<std::shared_ptr<PGMidiSource>> gone;
    std::erase_if(sources_, [&](const auto& source) {
      if (source->isNetworkSession()) return false;
      gone.push_back(source);
      return true;
    });
    const auto goneDestinations = std::exchange(destinations_, {});
    virtualSource_->releaseSoundingNotes();
    releasePorts();
    for (const auto& source : gone)
      removed(*source);
    for (const auto& destination : goneDestinations) {
      if (auto* delegate = delegate_.get()) delegate->destinationRemoved(this, destination.get());
    }
  }
  return openPorts();  // false while no server answers
}

std::string PGMidi::virtualDestinationPortName() const {
  return ports_ ? ports_->virtualInputName() : std::string();
}

std::shared_ptr<PGMidiSource> PGMidi::openSource(const std::string& portName) {
  auto source = std::make_shared<PGMidiSource>(portName, false);
  applyStoredChoice(*source);
  auto input = ports_->openSource(portName, &PGMidiSource::receive, source.get());
  if (!input) return nullptr;
  source->setInput(std::move(input));
  return source;
}

void PGMidi::hearEachProgramOnce() {
  // A program connected straight to the virtual input is heard there only, not twice.
  const std::vector<std::string> direct = ports_->virtualInputSources();
  for (const auto& source : sources_) {
    if (auto* input = source->input())
      input->setReachedDirectly(std::find(direct.begin(), direct.end(), source->name()) !=
                                direct.end());
  }
}

void PGMidi::removed(PGMidiSource& source) {
  source.releaseSoundingNotes();  // before the delegates let the source go
  if (auto* delegate = delegate_.get()) delegate->sourceRemoved(this, &source);
}

void PGMidi::setChannel(std::int32_t channel) {
  if (channel < 0 || channel > 16) {
    platform::log("MIDI: channel {} is not 0 (all) to 16; kept {}", channel, this->channel());
    return;
  }
  // Notes on channels the new setting filters out would never hear their note off: they end now,
  // while the old setting still lets their note offs through.
  const auto filteredOut = [channel](std::uint8_t c) { return channel != 0 && channel != c + 1; };
  if (virtualSource_) virtualSource_->releaseSoundingNotes(filteredOut);
  for (const auto& source : sources_)
    source->releaseSoundingNotes(filteredOut);
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
    // Named as the peer calls itself, fit to be shown and logged.
    auto source = std::make_shared<PGMidiSource>(platform::printable(peer.nameView()), true);
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
        removed(*source);
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
  if (!followServer()) return;
  const std::vector<std::string> sourceNames = ports_->sourceNames();
  const std::vector<std::string> destinationNames = ports_->destinationNames();

  std::vector<std::shared_ptr<PGMidiSource>> gone;
  std::erase_if(sources_, [&](const auto& source) {
    if (source->isNetworkSession()) return false;  // network peers come and go by the session
    const bool present =
        std::find(sourceNames.begin(), sourceNames.end(), source->name()) != sourceNames.end();
    if (!present) gone.push_back(source);
    return !present;
  });
  for (const auto& source : gone)
    removed(*source);
  for (const std::string& name : sourceNames) {
    const bool known = std::any_of(sources_.begin(), sources_.end(),
                                   [&](const auto& source) { return source->name() == name; });
    if (known) continue;
    if (auto source = openSource(name)) {
      sources_.push_back(source);
      if (auto* delegate = delegate_.get()) delegate->sourceAdded(this, source.get());
    }
  }
  hearEachProgramOnce();

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
  if (pollThread_.joinable()) return;
  pollThread_ = std::thread([this, alive = alive_] {
    std::unique_lock lock(pollMutex_);
    while (true) {
      if (watched_) {
        pollWake_.wait(lock);  // a ports notice, or no longer watched
      } else {
        pollWake_.wait_for(lock, kHotPlugInterval);
      }
      if (stopPolling_) return;
      if (watched_ && !refreshRequested_) continue;
      refreshRequested_ = false;
      platform::dispatchAsyncMain([this, alive] {
        if (alive->load()) refresh();
      });
    }
  });
}
