#pragma once

// The component registry: the installed LV2 instruments, each with a name and a component
// description, and asynchronous instantiation of one of them.
//
// A description names a plug-in by three 32-bit codes: the type (every instrument is
// kAudioUnitTypeMusicDevice), the subtype (a hash of the plug-in's URI) and the manufacturer
// (a hash of its author's name, or of the URI's host when the plug-in names no author). In a
// query, a zero type, subtype or manufacturer matches anything.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace platform {

constexpr std::uint32_t fourCharCode(const char (&code)[5]) {
  return (static_cast<std::uint32_t>(code[0]) << 24) | (static_cast<std::uint32_t>(code[1]) << 16) |
         (static_cast<std::uint32_t>(code[2]) << 8) | static_cast<std::uint32_t>(code[3]);
}

inline constexpr std::uint32_t kAudioUnitTypeMusicDevice = fourCharCode("aumu");

struct AudioComponentDescription {
  std::uint32_t componentType = 0;
  std::uint32_t componentSubType = 0;
  std::uint32_t componentManufacturer = 0;
  std::uint32_t componentFlags = 0;
  std::uint32_t componentFlagsMask = 0;

  friend bool operator==(const AudioComponentDescription&,
                         const AudioComponentDescription&) = default;
  // Whether this concrete description answers `query` (zero fields of the query match all).
  bool matches(const AudioComponentDescription& query) const;
};

struct AudioUnitComponent {
  std::string name;
  std::string uri;
  std::string manufacturerName;
  AudioComponentDescription audioComponentDescription;

  // A user names an instrument by its name or its URI.
  bool isNamed(std::string_view nameOrUri) const { return name == nameOrUri || uri == nameOrUri; }
};

// Load the plug-in in a separate process (a plug-in host process of this application).
inline constexpr std::uint32_t kAudioComponentInstantiationLoadOutOfProcess = 1;

// Posted when a plug-in instance stops working (its process crashed or hung). Its object is the
// AudioUnit; its user information has "audioUnit", the render-level instance.
inline constexpr const char* kAudioComponentInstanceInvalidationNotification =
    "AudioComponentInstanceInvalidation";

class AudioUnit;

class AudioUnitComponentManager {
 public:
  static AudioUnitComponentManager& shared();

  // Every installed instrument plug-in that matches `query`, sorted by name.
  std::vector<AudioUnitComponent> componentsMatchingDescription(
      const AudioComponentDescription& query);

  // Creates an instance of the component described, off the calling thread, and delivers it to
  // `completion` on the main queue: the instance, or null and a one-line reason.
  using Completion = std::function<void(std::shared_ptr<AudioUnit>, std::string error)>;
  void instantiate(const AudioComponentDescription& description, double sampleRate,
                   std::uint32_t maxFrames, std::uint32_t options, Completion completion);

  // Whether kAudioComponentInstantiationLoadOutOfProcess is honoured (on unless turned off, as
  // `pelma --in-process` does).
  void setOutOfProcessEnabled(bool enabled) { outOfProcessEnabled_ = enabled; }
  bool outOfProcessEnabled() const { return outOfProcessEnabled_; }

  // Waits until every instantiation started so far has ended (its completion may still wait on
  // the main queue), so that none outlives its engine: one still loading plug-ins while the
  // process exits would use what exit destroys. A plug-in host still making its plug-in is not
  // waited for at all; a plug-in made in this process is waited for a second at most, and one
  // that takes longer is left behind (instantiationsLeftBehind), so that quitting never hangs on
  // it. Main thread.
  void finishInstantiations();
  // True once an instantiation was left running: the process must then end without running the
  // destructors of what that thread still uses (std::_Exit).
  bool instantiationsLeftBehind() const { return leftBehind_; }

  // The same, done on the calling thread.
  std::shared_ptr<AudioUnit> instantiateNow(const AudioComponentDescription& description,
                                            double sampleRate, std::uint32_t maxFrames,
                                            std::string* error, std::uint32_t options = 0);

 private:
  struct Instantiation {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };
  std::vector<Instantiation> instantiations_;  // main thread
  bool leftBehind_ = false;
  std::atomic<bool> outOfProcessEnabled_{true};
};

}  // namespace platform
