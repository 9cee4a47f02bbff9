// Starting, watching and ending the plug-in host process (not the audio thread).

#include "platform/audio/PluginProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <vector>

#include "platform/audio/Lv2World.h"

extern char** environ;

namespace platform {
namespace {

// Hosts still making their plug-in, killed when the application quits meanwhile.
std::mutex startingMutex;
std::set<PluginProcess*> starting;

std::filesystem::path hostExecutable() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "pelma-plugin-host";
}

// A text from the other process, on one line: cut and without control characters.
std::string oneLine(const char* text, std::size_t size) {
  std::string line(text, std::min<std::size_t>(size, 300));
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  }
  return line;
}

void closeFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

constexpr std::size_t kControlPacket = 32768;

}  // namespace

bool sendControlMessage(int fd, const std::string& message) {
  const std::uint64_t size = message.size();
  if (size > kMaxControlMessage || send(fd, &size, sizeof size, MSG_NOSIGNAL) != sizeof size)
    return false;
  for (std::size_t at = 0; at < message.size(); at += kControlPacket) {
    const std::size_t part = std::min(kControlPacket, message.size() - at);
    if (send(fd, message.data() + at, part, MSG_NOSIGNAL) != static_cast<ssize_t>(part))
      return false;
  }
  return true;
}

bool receiveControlMessage(int fd, std::string* message, int timeoutMilliseconds) {
  // Waits for the next packet; its size, or -1.
  auto receive = [&](void* into, std::size_t capacity) -> ssize_t {
    pollfd readable{fd, POLLIN, 0};
    int ready;
    do {
      ready = poll(&readable, 1, timeoutMilliseconds);
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) return -1;
    const ssize_t size = recv(fd, into, capacity, MSG_DONTWAIT | MSG_TRUNC);
    return size > static_cast<ssize_t>(capacity) ? -1 : size;
  };
  std::uint64_t size = 0;
  if (receive(&size, sizeof size) != sizeof size || size > kMaxControlMessage) return false;
  message->resize(size);
  for (std::size_t at = 0; at < size;) {
    const ssize_t part =
        receive(message->data() + at, std::min<std::size_t>(kControlPacket, size - at));
    if (part <= 0) return false;
    at += static_cast<std::size_t>(part);
  }
  return true;
}

std::unique_ptr<PluginProcess> PluginProcess::start(std::shared_ptr<Lv2World> world,
                                                    const std::string& name, const std::string& uri,
                                                    double sampleRate, std::uint32_t maxFrames,
                                                    std::size_t blockSize,
                                                    std::function<void()> invalidated,
                                                    std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = "\"" + name + "\" could not run in a process of its own: " + why;
    return nullptr;
  };
  std::unique_ptr<PluginProcess> process(new PluginProcess());
  process->world_ = std::move(world);
  process->invalidated_ = std::move(invalidated);
  process->blockSize_ = blockSize;

  int block = memfd_create("pelma-plugin-block", MFD_CLOEXEC);
  if (block < 0 || ftruncate(block, static_cast<off_t>(blockSize)) != 0) {
    if (block >= 0) close(block);
    return fail(std::strerror(errno));
  }
  process->block_ = mmap(nullptr, blockSize, PROT_READ | PROT_WRITE, MAP_SHARED, block, 0);
  if (process->block_ == MAP_FAILED) {
    process->block_ = nullptr;
    close(block);
    return fail(std::strerror(errno));
  }
  new (process->block_) SharedBlockHeader();
  int control[2], urids[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, control) != 0) {
    close(block);
    return fail(std::strerror(errno));
  }
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, urids) != 0) {
    close(block);
    close(control[0]);
    close(control[1]);
    return fail(std::strerror(errno));
  }
  process->control_ = control[0];
  process->urids_ = urids[0];

  // The child's descriptors are moved out of the way first, so that putting one at 3, 4 or 5
  // never overwrites another still to be placed.
  const int passed[3] = {fcntl(block, F_DUPFD_CLOEXEC, 64), fcntl(control[1], F_DUPFD_CLOEXEC, 64),
                         fcntl(urids[1], F_DUPFD_CLOEXEC, 64)};
  close(block);
  close(control[1]);
  close(urids[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int i = 0; i < 3; ++i)
    posix_spawn_file_actions_adddup2(&actions, passed[i], kPluginHostBlockFd + i);
  const std::string executable = hostExecutable();
  const std::string rate = std::to_string(sampleRate), frames = std::to_string(maxFrames);
  const char* argv[] = {executable.c_str(), uri.c_str(), rate.c_str(), frames.c_str(), nullptr};
  pid_t pid = -1;
  {
    std::lock_guard lock(startingMutex);
    const int spawned = posix_spawn(&pid, executable.c_str(), &actions, nullptr,
                                    const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    for (int fd : passed)
      close(fd);
    if (spawned != 0) return fail(executable + ": " + std::strerror(spawned));
    process->pid_ = pid;
    starting.insert(process.get());
  }
  process->pidfd_ = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  process->watcher_ = std::thread([p = process.get()] { p->watch(); });

  // The host says "ready" once it has made the plug-in, or why it could not; nothing when it
  // died (the watcher has seen that).
  char reply[512];
  ssize_t size;
  do {
    size = recv(process->control_, reply, sizeof reply, 0);
  } while (size < 0 && errno == EINTR);
  {
    std::lock_guard lock(startingMutex);
    starting.erase(process.get());
  }
  if (size <= 0) {  // it died before it was ready
    process->invalidate();
    return process;
  }
  const std::string answer = oneLine(reply, static_cast<std::size_t>(size));
  if (answer == "ready") return process;
  // A refusal: the host waits for its socket to close and ends; that is no invalidation.
  process->valid_ = false;
  if (error) *error = answer.rfind("error ", 0) == 0 ? answer.substr(6) : answer;
  return nullptr;
}

bool PluginProcess::ask(const std::string& request, std::string* answer) {
  std::lock_guard lock(askMutex_);
  if (!valid()) return false;
  // The host may ask for URIDs while it answers: they are served here too, as the watcher may be
  // the thread asking.
  if (sendControlMessage(control_, request) &&
      serveUridsUntilReadable(control_, kControlAnswerSeconds * 1000) &&
      receiveControlMessage(control_, answer, kControlAnswerSeconds * 1000))
    return true;
  // Dead (the watcher reports it) or silent: either way this host can no longer be trusted.
  reportHang();
  return false;
}

bool PluginProcess::serveUridsUntilReadable(int fd, int timeoutMilliseconds) {
  const auto giveUp =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        giveUp - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd fds[2] = {{fd, POLLIN, 0}, {urids_, POLLIN, 0}};
    if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) return false;
    if (fds[1].revents & POLLIN) serveUridRequest();
    if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) return true;
  }
}

void PluginProcess::setPeriodicTask(std::function<void()> task) {
  periodic_ = std::move(task);
  periodicSet_.store(true, std::memory_order_release);
}

void PluginProcess::abandonStarting() {
  std::lock_guard lock(startingMutex);
  for (PluginProcess* process : starting) {
    process->abandoned_ = true;  // ended by us: no invalidation
    kill(process->pid_, SIGKILL);
  }
}

void PluginProcess::stopWatching() {
  stopping_ = true;
  if (watcher_.joinable()) watcher_.join();
}

PluginProcess::~PluginProcess() {
  stopWatching();
  valid_ = false;
  if (!reaped_ && pid_ > 0) {
    // The host ends when its control socket closes; one that does not within a second is killed.
    shutdown(control_, SHUT_RDWR);
    pollfd exited{pidfd_, POLLIN, 0};
    if (pidfd_ < 0 || poll(&exited, 1, 1000) <= 0) kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  closeFd(control_);
  closeFd(urids_);
  closeFd(pidfd_);
  if (block_) munmap(block_, blockSize_);
}

void PluginProcess::watch() {
  auto nextPeriodic = std::chrono::steady_clock::now() + std::chrono::seconds(kPeriodicSeconds);
  while (!stopping_.load()) {
    pollfd fds[2] = {{pidfd_, POLLIN, 0}, {urids_, POLLIN, 0}};
    const int ready = poll(fds, 2, 50);
    if (!valid_.load()) return;
    if (ready > 0 && (fds[0].revents & POLLIN)) return invalidate();  // the host died
    if (hung_.load(std::memory_order_relaxed)) return invalidate();
    if (ready > 0 && (fds[1].revents & POLLIN)) serveUridRequest();
    if (std::chrono::steady_clock::now() >= nextPeriodic) {
      if (periodicSet_.load(std::memory_order_acquire)) periodic_();
      nextPeriodic = std::chrono::steady_clock::now() + std::chrono::seconds(kPeriodicSeconds);
    }
  }
}

void PluginProcess::invalidate() {
  if (!valid_.exchange(false)) return;
  futexWake(header().reply);  // an audio thread waiting for the dead host's answer goes on now
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  reaped_ = true;
  if (invalidated_ && !abandoned_) invalidated_();
}

// "m" and a URI asks for its number, "u" and a number for its URI.
void PluginProcess::serveUridRequest() {
  char request[4096];
  const ssize_t size = recv(urids_, request, sizeof request, MSG_DONTWAIT);
  if (size < 1) return;
  if (request[0] == 'm') {
    const std::string uri(request + 1, static_cast<std::size_t>(size - 1));
    const std::uint32_t urid = world_->map(uri.c_str());
    send(urids_, &urid, sizeof urid, MSG_NOSIGNAL);
  } else if (request[0] == 'u' && size == 1 + sizeof(std::uint32_t)) {
    std::uint32_t urid;
    std::memcpy(&urid, request + 1, sizeof urid);
    const char* uri = world_->unmap(urid);
    send(urids_, uri ? uri : "", uri ? std::strlen(uri) : 0, MSG_NOSIGNAL);
  }
}

}  // namespace platform
