// pelma-plugin-host: runs one LV2 instrument for the application that started it (see
// PluginProcess.h). It finds the shared block, the control socket and the URID socket open at
// file descriptors 3, 4 and 5, answers the requests on the control socket, and ends when that
// socket closes: the application closed it or died. (Not PR_SET_PDEATHSIG: it fires when the thread
// that started the host ends.)
//
//   pelma-plugin-host URI SAMPLE-RATE MAX-FRAMES

#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2World.h"
#include "platform/audio/PluginHostProcess.h"
#include "platform/audio/PluginProcess.h"

using namespace platform;

namespace {

void say(const std::string& message) {
  send(kPluginHostControlFd, message.data(), message.size(), MSG_NOSIGNAL);
}

// Waits until the application closes the control socket.
void waitForTheEnd() {
  char ignored[512];
  while (recv(kPluginHostControlFd, ignored, sizeof ignored, 0) > 0) {
  }
}

// Answers the application's requests (state, presets, sample rate) until it closes the socket.
void answerRequests(AudioUnit& unit) {
  std::string request;
  while (receiveControlMessage(kPluginHostControlFd, &request, -1)) {
    if (!sendControlMessage(kPluginHostControlFd, unit.answerRequest(request))) return;
  }
}

// URID numbers, asked of the application (the world holds its lock meanwhile, one at a time).
LV2_URID askMap(const char* uri) {
  const std::string request = std::string("m") + uri;
  LV2_URID urid = 0;
  if (send(kPluginHostUridFd, request.data(), request.size(), MSG_NOSIGNAL) < 0 ||
      recv(kPluginHostUridFd, &urid, sizeof urid, 0) != sizeof urid) {
    return 0;
  }
  return urid;
}

std::string askUnmap(LV2_URID urid) {
  char request[1 + sizeof urid] = {'u'};
  std::memcpy(request + 1, &urid, sizeof urid);
  char uri[4096];
  if (send(kPluginHostUridFd, request, sizeof request, MSG_NOSIGNAL) < 0) return {};
  const ssize_t size = recv(kPluginHostUridFd, uri, sizeof uri, 0);
  return size > 0 ? std::string(uri, static_cast<std::size_t>(size)) : std::string();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  signal(SIGPIPE, SIG_IGN);
  const std::string uri = argv[1];
  const double sampleRate = std::atof(argv[2]);
  const long maxFrames = std::atol(argv[3]);
  if (sampleRate <= 0.0 || maxFrames <= 0 || maxFrames > 65536) return 2;

  auto world = Lv2World::shared();
  world->setUridSource({askMap, askUnmap});
  const LilvPlugin* plugin = nullptr;
  {
    auto lock = world->queryLock();
    LilvNode* node = lilv_new_uri(world->world(), uri.c_str());
    plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world->world()), node);
    lilv_node_free(node);
  }
  std::string error = "no installed plug-in has the URI " + uri;
  auto unit = plugin ? AudioUnit::create(world, plugin, sampleRate,
                                         static_cast<std::uint32_t>(maxFrames), &error)
                     : nullptr;
  struct stat block {};
  if (unit && (fstat(kPluginHostBlockFd, &block) != 0 ||
               static_cast<std::size_t>(block.st_size) < unit->sharedBlockSize())) {
    unit.reset();
    error = "the shared block is too small";
  }
  if (!unit) {
    say("error " + error);
    waitForTheEnd();
    return 1;
  }
  void* shared = mmap(nullptr, unit->sharedBlockSize(), PROT_READ | PROT_WRITE, MAP_SHARED,
                      kPluginHostBlockFd, 0);
  if (shared == MAP_FAILED) {
    say(std::string("error ") + std::strerror(errno));
    waitForTheEnd();
    return 1;
  }
  std::atomic<bool> running{true};
  std::thread blocks(
      [&] { runPluginHostBlocks(*unit, static_cast<std::uint8_t*>(shared), running); });
  say("ready");
  answerRequests(*unit);
  running = false;
  blocks.join();
  unit.reset();
  return 0;
}
