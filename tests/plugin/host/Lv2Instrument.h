#pragma once

// A small in-process LV2 host for tests and measurements: loads an installed instrument through
// lilv (LV2_PATH decides where), feeds it MIDI and messages at frame 0 of the next block, runs
// its worker synchronously after each block, renders audio, and saves and restores its state.

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/urid/urid.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

class Lv2Instrument {
 public:
  // Throws std::runtime_error when the plug-in is not installed or does not instantiate.
  Lv2Instrument(const std::string& uri, double sampleRate, std::uint32_t maxBlock = 4096);
  ~Lv2Instrument();
  Lv2Instrument(const Lv2Instrument&) = delete;
  Lv2Instrument& operator=(const Lv2Instrument&) = delete;

  // Control input ports by symbol; false when there is no such port.
  bool setControl(const std::string& symbol, float value);
  float control(const std::string& symbol) const;

  // Queued for frame 0 of the next block.
  void midi(std::initializer_list<std::uint8_t> bytes);
  // An atom:Object with no properties, of the given type.
  void message(const std::string& typeUri);
  // Any atom (header and body), as an editor writes it with atom:eventTransfer.
  void atom(const LV2_Atom& atom);
  // The events the plug-in wrote to its atom outputs since the last call, each a whole atom.
  std::vector<std::vector<std::uint8_t>> takeOutputEvents();

  // The URID map every instance uses, for editors and messages made by a test.
  static LV2_URID_Map* sharedUridMap();

  // Renders `frames` samples in blocks of `block` and appends them to the outputs.
  void render(std::uint32_t frames, std::uint32_t block = 256);
  // Renders and returns only what this call produced, left channel.
  std::vector<float> renderLeft(std::uint32_t frames, std::uint32_t block = 256);

  const std::vector<float>& left() const { return left_; }
  const std::vector<float>& right() const { return right_; }
  void clearOutput();

  // The instance's state as Turtle text (ports and plug-in state), and restoring text from it.
  std::string saveState();
  void restoreState(const std::string& turtle);
  // Loads a preset by its label; false when the plug-in has none of that name.
  bool loadPreset(const std::string& label);

  double sampleRate() const { return sampleRate_; }

  // Called right before and after each run() of the plug-in, e.g. to count allocations in it.
  static inline void (*beforeRun)() = nullptr;
  static inline void (*afterRun)() = nullptr;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  double sampleRate_;
  std::vector<float> left_, right_;
};
