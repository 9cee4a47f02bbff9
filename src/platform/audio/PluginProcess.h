#pragma once

// An LV2 instrument in a process of its own: the plug-in host `pelma-plugin-host`, found beside
// the running executable. A plug-in that crashes, hangs or misbehaves there takes only that
// process down.
//
// The two processes share one block of memory, made once at start (memfd): per audio block the
// application writes the control inputs and the plug-in's atom input sequence (MIDI, time
// position, editor messages, formed as for a plug-in in this process) and the host answers with
// the audio outputs, control outputs and atom outputs. Two futex words hand the block over and
// back. Everything else goes over sockets: the host's "ready" (or why it could not make the
// plug-in) and then the main thread's requests (state, presets, sample rate; see AudioUnit's
// askPluginProcess) with their answers on the control socket, and the URID numbers it asks for
// on a socket of its own, so that both processes number URIs alike.
//
// A watcher thread (not real-time) sees the host die at once (pidfd) and a hang when the audio
// thread reports one; it then kills the host and reports the instance invalid, once.

#include <linux/futex.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
#include <sanitizer/rtsan_interface.h>
#endif
#endif

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace platform {

class Lv2World;

// The start of the shared block; the ports' data follows, where AudioUnit's layout puts it.
struct SharedBlockHeader {
  std::atomic<std::uint32_t> request{0};  // futex word: the number of the block asked for
  std::atomic<std::uint32_t> reply{0};    // futex word: the number of the block answered
  std::uint32_t frames = 0;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

// Futex calls on a word of the shared block (shared between processes, so not "private").
// futexWait returns false when the wait timed out; a negative timeout waits without a bound.
inline bool futexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected,
                      std::int64_t timeoutNanoseconds) noexcept {
#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
  // The one permitted wait on an audio thread: bounded, for the other process's answer.
  __rtsan::ScopedDisabler permittedWait;
#endif
#endif
  timespec timeout{static_cast<time_t>(timeoutNanoseconds / 1000000000),
                   static_cast<long>(timeoutNanoseconds % 1000000000)};
  const long result = syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT,
                              expected, timeoutNanoseconds < 0 ? nullptr : &timeout, nullptr, 0);
  return result == 0 || errno != ETIMEDOUT;
}
inline void futexWake(std::atomic<std::uint32_t>& word) noexcept {
#if defined(__has_feature)
#if __has_feature(realtime_sanitizer)
  __rtsan::ScopedDisabler neverBlocks;  // waking a futex does not wait
#endif
#endif
  syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

// The file descriptors the plug-in host finds open.
inline constexpr int kPluginHostBlockFd = 3;    // the shared block
inline constexpr int kPluginHostControlFd = 4;  // control socket
inline constexpr int kPluginHostUridFd = 5;     // URID requests

// Messages on the control socket after "ready", of any size up to kMaxControlMessage: a packet
// with the size, then the bytes in packets of at most 32 KiB (a packet socket bounds each one).
inline constexpr std::size_t kMaxControlMessage = 64u << 20;
bool sendControlMessage(int fd, const std::string& message);
// False when the socket closed, the other side broke the framing, or nothing came within
// `timeoutMilliseconds` (negative: no bound).
bool receiveControlMessage(int fd, std::string* message, int timeoutMilliseconds);

class PluginProcess {
 public:
  // Starts the plug-in host for `uri` and waits until it has made the plug-in. Null, with a
  // one-line reason, when the host cannot be started or refuses the plug-in (it needs something
  // this host lacks, or its instantiate failed). A host that dies or hangs while making it is
  // returned all the same, already invalid (`invalidated` has been called).
  static std::unique_ptr<PluginProcess> start(std::shared_ptr<Lv2World> world,
                                              const std::string& name, const std::string& uri,
                                              double sampleRate, std::uint32_t maxFrames,
                                              std::size_t blockSize,
                                              std::function<void()> invalidated,
                                              std::string* error);
  // Kills every host still making its plug-in, so that no instantiation waits longer (quitting);
  // their instances are invalid, without a notification.
  static void abandonStarting();
  ~PluginProcess();
  PluginProcess(const PluginProcess&) = delete;
  PluginProcess& operator=(const PluginProcess&) = delete;

  SharedBlockHeader& header() noexcept { return *static_cast<SharedBlockHeader*>(block_); }
  std::uint8_t* block() noexcept { return static_cast<std::uint8_t*>(block_); }
  pid_t pid() const { return pid_; }

  // Audio thread: the host stopped answering; the watcher ends it.
  void reportHang() noexcept { hung_.store(true, std::memory_order_relaxed); }
  // Any thread: false once the host died, hung or was ended.
  bool valid() const noexcept { return valid_.load(std::memory_order_acquire); }
  // Not the audio thread: sends `request` on the control socket and waits for the answer. False
  // when the host is no longer valid, died meanwhile, or did not answer within
  // kControlAnswerSeconds: it then counts as hung and is ended.
  bool ask(const std::string& request, std::string* answer);
  static constexpr int kControlAnswerSeconds = 10;
  // Once, after start: the watcher thread calls `task` every kPeriodicSeconds while the host
  // works (the instrument keeps its last reported state so).
  void setPeriodicTask(std::function<void()> task);
  // Ends the watcher thread (and with it the periodic task); the destructor does it too, but an
  // owner whose periodic task uses the owner's members stops it before they go.
  void stopWatching();
  static constexpr int kPeriodicSeconds = 2;

 private:
  PluginProcess() = default;
  void watch();
  void invalidate();
  // Serves URID requests until `fd` is readable; false when `timeoutMilliseconds` passed first.
  bool serveUridsUntilReadable(int fd, int timeoutMilliseconds);
  void serveUridRequest();

  std::shared_ptr<Lv2World> world_;
  pid_t pid_ = -1;
  int pidfd_ = -1;
  int control_ = -1;
  int urids_ = -1;
  void* block_ = nullptr;
  std::size_t blockSize_ = 0;
  std::function<void()> invalidated_;
  std::function<void()> periodic_;
  std::atomic<bool> periodicSet_{false};
  std::atomic<bool> valid_{true}, hung_{false}, stopping_{false};
  std::atomic<bool> abandoned_{false};  // killed while starting because the application quits
  bool reaped_ = false;                 // watcher thread, then the destructor after joining it
  std::thread watcher_;
  std::mutex askMutex_;  // one request and its answer at a time
};

}  // namespace platform
