#include "platform/midi/DnsSdAnnouncement.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/thread-watch.h>

#include "platform/foundation/Log.h"

DnsSdAnnouncement::DnsSdAnnouncement(std::string name, std::string type, std::uint16_t port)
    : name_(std::move(name)), type_(std::move(type)), port_(port) {
  poll_ = avahi_threaded_poll_new();
  if (!poll_) return;
  int error = 0;
  // The callback may run inside avahi_client_new, before client_ is set: it gets the client.
  client_ = avahi_client_new(
      avahi_threaded_poll_get(poll_), AVAHI_CLIENT_IGNORE_USER_CONFIG,
      [](AvahiClient* client, AvahiClientState state, void* self) {
        clientChanged(client, state, self);
      },
      this, &error);
  if (!client_) {
    platform::log("Network MIDI: not announced over mDNS (no Avahi daemon: {})",
                  avahi_strerror(error));
    avahi_threaded_poll_free(poll_);
    poll_ = nullptr;
    return;
  }
  avahi_threaded_poll_start(poll_);
}

DnsSdAnnouncement::~DnsSdAnnouncement() {
  if (!poll_) return;
  avahi_threaded_poll_stop(poll_);
  avahi_client_free(client_);  // frees the entry group too: the service is withdrawn
  avahi_threaded_poll_free(poll_);
}

void DnsSdAnnouncement::clientChanged(AvahiClient* client, int state, void* self) {
  auto* announcement = static_cast<DnsSdAnnouncement*>(self);
  if (state == AVAHI_CLIENT_S_RUNNING) announcement->publish(client);
  if (state == AVAHI_CLIENT_S_COLLISION || state == AVAHI_CLIENT_S_REGISTERING) {
    if (announcement->group_) avahi_entry_group_reset(announcement->group_);
  }
  if (state == AVAHI_CLIENT_FAILURE)
    platform::log("Network MIDI: the mDNS announcement stopped ({})",
                  avahi_strerror(avahi_client_errno(client)));
}

void DnsSdAnnouncement::groupChanged(AvahiEntryGroup* group, int state, void* self) {
  auto* announcement = static_cast<DnsSdAnnouncement*>(self);
  if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) {
    platform::log("Network MIDI: announced \"{}\" as {} on port {}", announcement->name_,
                  announcement->type_, announcement->port_);
  } else if (state == AVAHI_ENTRY_GROUP_COLLISION) {
    announcement->useAlternativeName();
    avahi_entry_group_reset(group);
    announcement->publish(avahi_entry_group_get_client(group));
  }
}

void DnsSdAnnouncement::publish(AvahiClient* client) {
  if (!group_) {
    group_ = avahi_entry_group_new(
        client,
        [](AvahiEntryGroup* group, AvahiEntryGroupState state, void* self) {
          groupChanged(group, state, self);
        },
        this);
    if (!group_) return;
  }
  if (!avahi_entry_group_is_empty(group_)) return;
  // A name this machine already announces (another instance) is a collision at once.
  int error = AVAHI_ERR_COLLISION;
  for (int attempt = 0; attempt < 10 && error == AVAHI_ERR_COLLISION; ++attempt) {
    error = avahi_entry_group_add_service(group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                          AvahiPublishFlags{}, name_.c_str(), type_.c_str(),
                                          nullptr, nullptr, port_, nullptr);
    if (error == AVAHI_ERR_COLLISION) useAlternativeName();
  }
  if (error == 0) {
    avahi_entry_group_commit(group_);
  } else {
    platform::log("Network MIDI: cannot announce \"{}\" over mDNS ({})", name_,
                  avahi_strerror(error));
  }
}

void DnsSdAnnouncement::useAlternativeName() {
  char* alternative = avahi_alternative_service_name(name_.c_str());
  name_ = alternative;
  avahi_free(alternative);
}
