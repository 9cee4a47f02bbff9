#pragma once

// Announces a service on the local network over mDNS/DNS-SD through the Avahi daemon, so that
// other computers list it by name (network MIDI peers browse for "_apple-midi._udp"). Avahi's own
// thread runs it; a name already taken on the network gets Avahi's alternative ("Pelma #2").
// Without a running daemon it logs one line and announces nothing.

#include <cstdint>
#include <string>

struct AvahiClient;
struct AvahiEntryGroup;
struct AvahiThreadedPoll;

class DnsSdAnnouncement {
 public:
  DnsSdAnnouncement(std::string name, std::string type, std::uint16_t port);
  ~DnsSdAnnouncement();
  DnsSdAnnouncement(const DnsSdAnnouncement&) = delete;
  DnsSdAnnouncement& operator=(const DnsSdAnnouncement&) = delete;

 private:
  static void clientChanged(AvahiClient* client, int state, void* self);
  static void groupChanged(AvahiEntryGroup* group, int state, void* self);
  void publish(AvahiClient* client);
  void useAlternativeName();

  std::string name_, type_;
  std::uint16_t port_;
  AvahiThreadedPoll* poll_ = nullptr;
  AvahiClient* client_ = nullptr;
  AvahiEntryGroup* group_ = nullptr;
};
