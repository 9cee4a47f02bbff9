#include "platform/midi/NetworkMidiSession.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>

#include "platform/foundation/Log.h"

namespace {

int bindUdp(std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(port);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

std::uint32_t randomSsrc() {
  std::random_device device;
  return device();
}

}  // namespace

NetworkMidiSession::NetworkMidiSession(std::string name, Events events,
                                       rtp_midi::SessionTime peerTimeout)
    : name_(std::move(name)),
      events_(std::move(events)),
      session_(randomSsrc(), name_, *this, peerTimeout) {}

NetworkMidiSession::~NetworkMidiSession() {
  stop();
}

rtp_midi::SessionTime NetworkMidiSession::now() {
  using namespace std::chrono;
  return static_cast<rtp_midi::SessionTime>(
      duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count() / 100);
}

bool NetworkMidiSession::start(std::uint16_t firstPort) {
  if (running_) return true;
  for (int attempt = 0; attempt < 20 && control_ < 0; ++attempt) {
    const auto port = static_cast<std::uint16_t>(firstPort + 2 * attempt);
    control_ = bindUdp(port);
    data_ = control_ < 0 ? -1 : bindUdp(static_cast<std::uint16_t>(port + 1));
    if (data_ < 0 && control_ >= 0) {
      close(control_);
      control_ = -1;
    }
    if (control_ >= 0) controlPort_ = port;
  }
  if (control_ < 0 || pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
    platform::log("Network MIDI: no free pair of UDP ports from {}; the session is off", firstPort);
    return false;
  }
  platform::log("Network MIDI: session \"{}\" on UDP ports {} and {}", name_, controlPort_,
                controlPort_ + 1);
  running_ = true;
  thread_ = std::thread([this] { run(); });
  announcement_ = std::make_unique<DnsSdAnnouncement>(name_, "_apple-midi._udp", controlPort_);
  return true;
}

void NetworkMidiSession::stop() {
  if (!running_) return;
  announcement_.reset();
  {
    std::lock_guard lock(sessionMutex_);
    session_.endAll();
  }
  running_ = false;
  const char byte = 1;
  [[maybe_unused]] const auto written = write(wake_[1], &byte, 1);
  thread_.join();
  for (int* fd : {&control_, &data_, &wake_[0], &wake_[1]}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

bool NetworkMidiSession::invite(const std::string& host, std::uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) {
    platform::log("Network MIDI: cannot find the host \"{}\"", host);
    return false;
  }
  const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
  const rtp_midi::Endpoint endpoint{ntohl(address->sin_addr.s_addr), port};
  freeaddrinfo(found);
  std::lock_guard lock(sessionMutex_);
  session_.invite(endpoint, now());
  return true;
}

void NetworkMidiSession::sendMidi(const std::uint8_t* bytes, std::size_t length) {
  std::uint8_t packet[1500];
  std::lock_guard lock(sessionMutex_);
  const auto timestamp = static_cast<std::uint32_t>(now());
  const std::size_t size = rtp_midi::writePayload({sequence_, timestamp, session_.ssrc()}, bytes,
                                                  length, packet, sizeof packet);
  if (size == 0) return;
  ++sequence_;
  for (const rtp_midi::Endpoint& peer : dataPeers_)
    send(rtp_midi::SessionPort::data, peer, packet, size);
}

std::size_t NetworkMidiSession::joinedPeers() {
  std::lock_guard lock(sessionMutex_);
  return session_.joinedPeers();
}

void NetworkMidiSession::send(rtp_midi::SessionPort port, const rtp_midi::Endpoint& to,
                              const std::uint8_t* data, std::size_t size) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(to.address);
  address.sin_port = htons(to.port);
  sendto(port == rtp_midi::SessionPort::control ? control_ : data_, data, size, 0,
         reinterpret_cast<sockaddr*>(&address), sizeof address);
}

void NetworkMidiSession::peerJoined(const rtp_midi::Peer& peer) {
  platform::log("Network MIDI: \"{}\" joined", platform::printable(peer.nameView()));
  dataPeers_.push_back(peer.data);
  if (events_.peerJoined) events_.peerJoined(peer);
}

void NetworkMidiSession::peerLeft(const rtp_midi::Peer& peer, std::string_view why) {
  platform::log("Network MIDI: \"{}\" left ({})", platform::printable(peer.nameView()), why);
  std::erase(dataPeers_, peer.data);
  if (events_.peerLeft) events_.peerLeft(peer, why);
}

void NetworkMidiSession::midiReceived(const rtp_midi::Peer& peer, std::uint32_t timestamp,
                                      const std::uint8_t* bytes, std::size_t length) {
  if (events_.midiReceived) events_.midiReceived(peer, timestamp, bytes, length);
}

void NetworkMidiSession::run() {
  std::uint8_t buffer[2048];
  pollfd fds[3] = {{control_, POLLIN, 0}, {data_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
  while (running_) {
    poll(fds, 3, 100);
    std::lock_guard lock(sessionMutex_);
    for (int i = 0; i < 2; ++i) {
      if (!(fds[i].revents & POLLIN)) continue;
      sockaddr_in from{};
      socklen_t fromLength = sizeof from;
      const ssize_t size = recvfrom(fds[i].fd, buffer, sizeof buffer, MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&from), &fromLength);
      if (size <= 0) continue;
      session_.receive(i == 0 ? rtp_midi::SessionPort::control : rtp_midi::SessionPort::data,
                       {ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)}, buffer,
                       static_cast<std::size_t>(size), now());
    }
    session_.tick(now());
    reportDroppedDatagrams(now());
  }
}

void NetworkMidiSession::reportDroppedDatagrams(rtp_midi::SessionTime time) {
  const std::uint64_t dropped = session_.droppedDatagrams();
  if (dropped == droppedReported_ || time < nextDropReport_) return;
  platform::log("Network MIDI: dropped {} unusable datagram(s) (malformed or from no peer)",
                dropped - droppedReported_);
  droppedReported_ = dropped;
  nextDropReport_ = time + rtp_midi::kSecond;
}
