// Audio-thread side of an LV2 instrument: MIDI in, run, worker replies. Called by the audio
// graph's callback; no allocation, locks or waiting.

#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/midi/midi.h>
#include <lv2/time/time.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2Host.h"
#include "platform/audio/Lv2MidiEvent.h"
#include "platform/audio/Lv2World.h"

namespace platform {

bool AudioUnit::sendMIDIEvent(std::uint8_t status, std::uint8_t data1, std::uint8_t data2,
                              std::uint32_t sampleOffset) noexcept {
  return midiToAudio_.push(MidiEvent{sampleOffset, 3, {status, data1, data2}});
}

MidiBlock& AudioUnit::beginBlock(std::uint32_t frames) noexcept {
  midi_.clear();
  // Read before the exchange: a locked read-modify-write every block for a flag that is rarely set.
  if (releaseAllNotes_.load(std::memory_order_relaxed) &&
      releaseAllNotes_.exchange(false, std::memory_order_acquire)) {
    for (std::uint8_t channel = 0; channel < 16; ++channel)
      midi_.add(MidiEvent{0, 3, {static_cast<std::uint8_t>(0xB0 | channel), 123, 0}});
  }
  const ControllerTable* controllers = controllerReader_.acquire();
  while (auto event = midiToAudio_.pop()) {
    if (applyController(controllers, *event)) continue;
    event->frame = std::min(event->frame, frames - 1);
    if (!midi_.add(*event)) break;
  }
  return midi_;
}

// The audio thread.
bool AudioUnit::applyController(const ControllerTable* table, const MidiEvent& event) noexcept {
  if ((event.bytes[0] & 0xF0) != 0xB0 || event.bytes[1] > 127) return false;
  const std::uint8_t controller = event.bytes[1];
  if (listening_.load(std::memory_order_relaxed))
    heardController_.store(controller, std::memory_order_relaxed);
  const int bound = table ? table->binding[controller] : -1;
  if (bound < 0) return false;
  const auto index = static_cast<std::size_t>(bound);
  controlTargets_[static_cast<std::size_t>(table->controlIndex[index])]->store(
      valueForController(table->ports[index], event.bytes[2]), std::memory_order_relaxed);
  controlsChanged_.store(true, std::memory_order_release);
  return true;
}

void AudioUnit::process(std::uint32_t frames, float* const* into) noexcept {
  frames = std::min(frames, maxFrames_);
  // Seen in this order by the main thread's suspendRun (both sequentially consistent): either it
  // waits for this block, or this block sees the suspension and stays silent.
  inRun_.store(true);
  if (runSuspended_.load()) {
    inRun_.store(false);
    silence(frames, into);
    // This block's MIDI is lost with it: no note may wait for a note off that never comes.
    releaseAllNotes_.store(true, std::memory_order_relaxed);
    return;
  }
  // The control values are copied only after the main thread changed one (the flag is cleared
  // first, so a change made during the copy is copied again next block).
  if (controlsChanged_.load(std::memory_order_relaxed) &&
      controlsChanged_.exchange(false, std::memory_order_acquire)) {
    for (std::size_t i = 0; i < ports_.size(); ++i) {
      if (ports_[i].kind == Port::controlIn)
        portValues_[i] = controlTargets_[ports_[i].controlIndex]->load(std::memory_order_relaxed);
    }
  }
  resetAtomOutputs();
  writeAtomInput(frames);
  if (!process_) {
    connectOutputs(into);
    lilv_instance_run(instance_, frames);  // the graph's callback has flushed denormals
  } else if (!exchangeWithPluginProcess(frames, into)) {
    silence(frames, into);
  }
  if (into && outputPorts_[0] < 0) {  // no audio output: silence
    std::fill_n(into[0], frames, 0.0f);
    std::fill_n(into[1], frames, 0.0f);
  } else if (into && outputPorts_[0] == outputPorts_[1]) {  // mono: the same on both sides
    std::memcpy(into[1], into[0], frames * sizeof(float));
  }
  silenceNonFiniteOutput(frames, into);
  forwardPluginEvents();
  deliverWorkerResponses();
  inRun_.store(false, std::memory_order_release);
}

namespace {

// Whether every sample is a finite number: an all-ones exponent is infinity or NaN. Integer
// operations, so that the loop vectorises and does not depend on the floating-point mode.
bool allFinite(const float* samples, std::uint32_t frames) noexcept {
  std::uint32_t infinite = 0;
  for (std::uint32_t i = 0; i < frames; ++i) {
    std::uint32_t bits;
    std::memcpy(&bits, &samples[i], sizeof bits);
    infinite |= static_cast<std::uint32_t>((bits & 0x7f800000u) == 0x7f800000u);
  }
  return infinite == 0;
}

}  // namespace

// Whatever a plug-in writes, the output gets finite numbers only: a block holding NaN or infinity
// is played as silence. The first such block is reported once, through the worker thread.
void AudioUnit::silenceNonFiniteOutput(std::uint32_t frames, float* const* into) noexcept {
  if (outputPorts_[0] < 0) return;
  float* channels[2];
  for (std::uint32_t c = 0; c < 2; ++c)
    channels[c] = into ? into[c] : audioBuffers_[ports_[outputPorts_[c]].bufferIndex].data();
  if (allFinite(channels[0], frames) && allFinite(channels[1], frames)) return;
  for (float* channel : channels)
    std::fill_n(channel, frames, 0.0f);
  if (!nonFiniteReported_) {
    nonFiniteReported_ = true;
    static constexpr char kLine[] =
        "wrote samples that are not finite numbers; such blocks are played as silence";
    if (host_->logRing.write(kLine, sizeof kLine - 1)) sem_post(&host_->wake);
  }
}

void AudioUnit::silence(std::uint32_t frames, float* const* into) noexcept {
  for (auto& buffer : audioBuffers_)
    std::fill_n(buffer.begin(), frames, 0.0f);
  if (into) {
    std::fill_n(into[0], frames, 0.0f);
    std::fill_n(into[1], frames, 0.0f);
  }
}

const LV2_Atom_Sequence* AudioUnit::lastAtomInput() const noexcept {
  if (!midiInputBuffer_) return nullptr;
  return reinterpret_cast<const LV2_Atom_Sequence*>(midiInputBuffer_->data());
}

void AudioUnit::writeAtomInput(std::uint32_t frames) noexcept {
  if (!midiInputBuffer_) return;
  auto& buffer = *midiInputBuffer_;
  LV2_Atom_Forge& forge = forge_;
  lv2_atom_forge_set_buffer(&forge, buffer.data(), buffer.size());
  LV2_Atom_Forge_Frame sequenceFrame;
  lv2_atom_forge_sequence_head(&forge, &sequenceFrame, 0);

  if (acceptsTimePosition_) writeTimePosition(forge, frames);
  writeEditorEvents(forge);
  midi_.sortByFrame();
  for (const MidiEvent& event : midi_) {
    const Lv2MidiEvent valid = lv2MidiEvent(event.bytes[0], event.bytes[1], event.bytes[2]);
    if (event.frame >= frames || valid.size == 0) continue;
    lv2_atom_forge_frame_time(&forge, event.frame);
    lv2_atom_forge_atom(&forge, valid.size, urids_.midiEvent);
    lv2_atom_forge_write(&forge, valid.bytes, valid.size);
  }
  lv2_atom_forge_pop(&forge, &sequenceFrame);
}

// Sends a time:Position at frame 0 when the transport starts, stops or jumps (the position is not
// where the last block's would have carried it), and when the tempo or meter changes.
void AudioUnit::writeTimePosition(LV2_Atom_Forge& forge, std::uint32_t frames) noexcept {
  const MusicalContextBlock* block = contextReader_.acquire();
  double tempo = 0.0, numerator = 4.0, beat = 0.0, downbeat = 0.0;
  std::int64_t denominator = 4, toNextBeat = 0;
  const bool told =
      block && *block && (*block)(&tempo, &numerator, &denominator, &beat, &toNextBeat, &downbeat);
  contextReader_.release();
  const TransportPosition now = transport_;
  if (now.tempo > 0.0) tempo = now.tempo;  // the sequence's own tempo track decides
  if (!told && now.tempo <= 0.0) return;   // nobody tells a time

  const double carriedTo =
      sentPosition_.beat +
      (sentPosition_.playing ? previousFrames_ * sentPosition_.tempo / (60.0 * sampleRate_) : 0.0);
  const bool moved = now.playing != sentPosition_.playing || std::abs(now.beat - carriedTo) > 1e-6;
  const bool changed =
      tempo != sentTempo_ || numerator != sentNumerator_ || denominator != sentDenominator_;
  sentPosition_ = {now.playing, now.beat, now.tempo};
  previousFrames_ = frames;
  if (!moved && !changed) return;
  sentTempo_ = tempo;
  sentNumerator_ = numerator;
  sentDenominator_ = denominator;

  const double bar = std::floor(now.beat / numerator);
  LV2_Atom_Forge_Frame objectFrame;
  lv2_atom_forge_frame_time(&forge, 0);
  lv2_atom_forge_object(&forge, &objectFrame, 0, urids_.timePosition);
  lv2_atom_forge_key(&forge, urids_.speed);
  lv2_atom_forge_float(&forge, now.playing ? 1.0f : 0.0f);
  lv2_atom_forge_key(&forge, urids_.frame);
  lv2_atom_forge_long(&forge, std::llround(now.beat * 60.0 / tempo * sampleRate_));
  lv2_atom_forge_key(&forge, urids_.bar);
  lv2_atom_forge_long(&forge, static_cast<std::int64_t>(bar));
  lv2_atom_forge_key(&forge, urids_.barBeat);
  lv2_atom_forge_float(&forge, static_cast<float>(now.beat - bar * numerator));
  lv2_atom_forge_key(&forge, urids_.beat);
  lv2_atom_forge_double(&forge, now.beat);
  lv2_atom_forge_key(&forge, urids_.beatsPerMinute);
  lv2_atom_forge_float(&forge, static_cast<float>(tempo));
  lv2_atom_forge_key(&forge, urids_.beatsPerBar);
  lv2_atom_forge_float(&forge, static_cast<float>(numerator));
  lv2_atom_forge_key(&forge, urids_.beatUnit);
  lv2_atom_forge_int(&forge, static_cast<int32_t>(denominator));
  lv2_atom_forge_pop(&forge, &objectFrame);
}

void AudioUnit::deliverWorkerResponses() noexcept {
  const LV2_Worker_Interface* worker = host_->worker;
  if (!worker) return;
  auto capacity = static_cast<std::uint32_t>(responseBuffer_.size());
  while (auto size = host_->responses.read(responseBuffer_.data(), capacity)) {
    if (worker->work_response) {
      worker->work_response(lilv_instance_get_handle(instance_), *size, responseBuffer_.data());
    }
  }
  if (worker->end_run) worker->end_run(lilv_instance_get_handle(instance_));
}

// The editor's messages: atoms written by the editor go to the plug-in at frame 0 of the next
// block; what the plug-in's outputs report goes back while an editor is attached.

bool AudioUnit::sendEditorEvent(const LV2_Atom& atom) noexcept {
  return sizeof atom + atom.size <= kEditorMessageSize &&
         guiToAudio_.write(&atom, static_cast<std::uint32_t>(sizeof atom + atom.size));
}

std::uint32_t AudioUnit::readPluginEvent(std::uint32_t* port, void* buffer,
                                         std::uint32_t capacity) noexcept {
  std::uint8_t message[kEditorMessageSize + sizeof *port];
  const std::optional<std::uint32_t> read = audioToGui_.read(message, sizeof message);
  // An event larger than the caller takes is dropped (the editor's buffers take any).
  if (!read || *read < sizeof *port || *read - sizeof *port > capacity) return 0;
  const std::uint32_t size = *read;
  std::memcpy(port, message, sizeof *port);
  std::memcpy(buffer, message + sizeof *port, size - sizeof *port);
  return size - static_cast<std::uint32_t>(sizeof *port);
}

void AudioUnit::writeEditorEvents(LV2_Atom_Forge& forge) noexcept {
  while (const auto size = guiToAudio_.read(editorScratch_.data(), kEditorMessageSize)) {
    if (*size < sizeof(LV2_Atom)) continue;  // not an atom
    lv2_atom_forge_frame_time(&forge, 0);
    lv2_atom_forge_write(&forge, editorScratch_.data(), *size);
  }
}

void AudioUnit::forwardPluginEvents() noexcept {
  if (!editorAttached_.load(std::memory_order_relaxed)) return;
  auto send = [this](std::uint32_t port, const LV2_Atom& atom) {
    const std::uint32_t size = sizeof atom + atom.size;
    if (size + sizeof port > editorScratch_.size()) return;
    std::memcpy(editorScratch_.data(), &port, sizeof port);
    std::memcpy(editorScratch_.data() + sizeof port, &atom, size);
    audioToGui_.write(editorScratch_.data(), static_cast<std::uint32_t>(sizeof port + size));
  };
  for (std::uint32_t i = 0; i < ports_.size(); ++i) {
    Port& p = ports_[i];
    if (p.kind == Port::controlOut) {
      const float now = portValues_[i];
      if (now == p.forwarded) continue;
      p.forwarded = now;
      const LV2_Atom_Float value{{sizeof(float), forge_.Float}, now};
      send(i, value.atom);
    } else if (p.kind == Port::atomOut) {
      const auto* sequence =
          reinterpret_cast<const LV2_Atom_Sequence*>(atomBuffers_[p.bufferIndex].data());
      if (sequence->atom.type != forge_.Sequence) continue;  // the plug-in wrote nothing
      LV2_ATOM_SEQUENCE_FOREACH(sequence, event) {
        send(i, event->body);
      }
    }
  }
}

// A device may hand out other buffers every period: they are connected anew every block.
void AudioUnit::connectOutputs(float* const* into) noexcept {
  if (!into && !outputsElsewhere_) return;
  outputsElsewhere_ = into != nullptr;
  for (std::uint32_t c = 0; c < 2; ++c) {
    const int port = outputPorts_[c];
    if (port < 0 || (c == 1 && port == outputPorts_[0])) continue;
    lilv_instance_connect_port(instance_, static_cast<std::uint32_t>(port),
                               into ? into[c] : audioBuffers_[ports_[port].bufferIndex].data());
  }
}

const float* AudioUnit::output(std::uint32_t channel) const noexcept {
  const int port = outputPorts_[std::min<std::uint32_t>(channel, 1)];
  return port >= 0 ? audioBuffers_[ports_[port].bufferIndex].data() : silence_.data();
}

}  // namespace platform
