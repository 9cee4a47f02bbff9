// The block of an out-of-process instrument, both sides: the application's audio thread hands it
// to the plug-in host process and takes the answer; the host's block thread runs the plug-in on
// it. No allocation, locks or logging; the bounded wait for the answer is the one wait.

#include <lv2/atom/atom.h>
#include <lv2/atom/util.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2Host.h"
#include "platform/audio/PluginProcess.h"

namespace platform {
namespace {

// Frames an out-of-process plug-in may fail to answer, in a row, before it counts as hung: one
// second's worth.
constexpr double kHangSeconds = 1.0;
// The share of a block's duration the audio thread waits for the answer, in real time.
constexpr double kWaitShareOfBlock = 0.5;
// Without real time (offline rendering) the answer is waited for this long.
constexpr std::int64_t kOfflineWaitNanoseconds = 2'000'000'000;

std::int64_t nowNanoseconds() noexcept {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// Copies an atom sequence written by the other process into `to` (of `capacity` bytes), cut at
// the first event that does not fit in it; anything that is not a whole sequence header becomes
// an empty chunk, which the reader skips.
void copySequence(std::uint8_t* to, std::uint32_t capacity, const std::uint8_t* from,
                  std::uint32_t chunkType) noexcept {
  LV2_Atom head;
  std::memcpy(&head, from, sizeof head);
  auto* atom = reinterpret_cast<LV2_Atom*>(to);
  if (head.size < sizeof(LV2_Atom_Sequence_Body) || head.size > capacity - sizeof head) {
    *atom = {0, chunkType};
    return;
  }
  std::memcpy(to, from, sizeof head + head.size);
  auto* sequence = reinterpret_cast<LV2_Atom_Sequence*>(to);
  const std::uint32_t end = head.size;
  std::uint32_t used = sizeof(LV2_Atom_Sequence_Body);
  while (used + sizeof(LV2_Atom_Event) <= end) {
    const auto* event = reinterpret_cast<const LV2_Atom_Event*>(
        reinterpret_cast<const std::uint8_t*>(&sequence->body) + used);
    const std::uint64_t next = used + sizeof(LV2_Atom_Event) + lv2_atom_pad_size(event->body.size);
    if (next > end) break;
    used = static_cast<std::uint32_t>(next);
  }
  sequence->atom.size = used;
}

// Appends the events of `from` to the sequence `to` (of `capacity` bytes in all), at frame 0 when
// `atFrameZero`; stops at the first event that does not fit.
void appendEvents(LV2_Atom_Sequence* to, std::uint32_t capacity, const LV2_Atom_Sequence* from,
                  bool atFrameZero) noexcept {
  LV2_ATOM_SEQUENCE_FOREACH(from, event) {
    const std::uint32_t size = sizeof(LV2_Atom_Event) + lv2_atom_pad_size(event->body.size);
    if (sizeof(LV2_Atom) + to->atom.size + size > capacity) return;
    auto* copy = reinterpret_cast<LV2_Atom_Event*>(reinterpret_cast<std::uint8_t*>(&to->body) +
                                                   to->atom.size);
    std::memcpy(copy, event, sizeof(LV2_Atom_Event) + event->body.size);
    if (atFrameZero) copy->time.frames = 0;
    to->atom.size += size;
  }
}

bool hasEvents(const LV2_Atom_Sequence* sequence) noexcept {
  return sequence->atom.size > sizeof(LV2_Atom_Sequence_Body);
}

}  // namespace

void AudioUnit::layoutSharedBlock() {
  sharedOffsets_.assign(ports_.size(), 0);
  std::size_t at = (sizeof(SharedBlockHeader) + 63) / 64 * 64;
  for (std::uint32_t i = 0; i < ports_.size(); ++i) {
    const Port& p = ports_[i];
    std::size_t size = 0;
    if (p.kind == Port::controlIn || p.kind == Port::controlOut) {
      size = sizeof(float);
    } else if (p.kind == Port::atomOut ||
               (p.kind == Port::atomIn && &atomBuffers_[p.bufferIndex] == midiInputBuffer_)) {
      size = kAtomBufferSize;
    } else if (p.kind == Port::audioOut &&
               (static_cast<int>(i) == outputPorts_[0] || static_cast<int>(i) == outputPorts_[1])) {
      size = maxFrames_ * sizeof(float);
    }
    if (size == 0) continue;
    sharedOffsets_[i] = static_cast<std::uint32_t>(at);
    at += (size + 63) / 64 * 64;
  }
  sharedBlockSize_ = at;
}

// Audio thread (application).
bool AudioUnit::exchangeWithPluginProcess(std::uint32_t frames, float* const* into) noexcept {
  PluginProcess& host = *process_;
  if (!host.valid()) return false;
  SharedBlockHeader& header = host.header();
  std::uint8_t* const block = host.block();
  auto* carried = reinterpret_cast<LV2_Atom_Sequence*>(carriedInput_.data());
  const auto* input = midiInputBuffer_
                          ? reinterpret_cast<const LV2_Atom_Sequence*>(midiInputBuffer_->data())
                          : nullptr;
  // Still busy with an earlier block: this one is skipped (its input events wait for the next,
  // at its start), and a host that stays busy is hung.
  if (header.reply.load(std::memory_order_acquire) != blockNumber_) {
    if (input) appendEvents(carried, kAtomBufferSize, input, true);
    missedFrames_ += frames;
    if (missedFrames_ >= kHangSeconds * sampleRate_) host.reportHang();
    return false;
  }
  for (std::uint32_t i = 0; i < ports_.size(); ++i) {
    if (!sharedOffsets_[i]) continue;
    const Port& p = ports_[i];
    if (p.kind == Port::controlIn) {
      std::memcpy(block + sharedOffsets_[i], &portValues_[i], sizeof(float));
    } else if (p.kind == Port::atomIn && !hasEvents(carried)) {
      std::memcpy(block + sharedOffsets_[i], input, sizeof(LV2_Atom) + input->atom.size);
    } else if (p.kind == Port::atomIn) {
      auto* to = reinterpret_cast<LV2_Atom_Sequence*>(block + sharedOffsets_[i]);
      std::memcpy(to, input, sizeof(LV2_Atom_Sequence));
      to->atom.size = sizeof(LV2_Atom_Sequence_Body);
      appendEvents(to, kAtomBufferSize, carried, true);
      appendEvents(to, kAtomBufferSize, input, false);
      carried->atom.size = sizeof(LV2_Atom_Sequence_Body);
    }
  }
  header.frames = frames;
  const std::uint32_t number = ++blockNumber_;
  header.request.store(number, std::memory_order_release);
  futexWake(header.request);

  // The one wait on the audio thread: bounded to a share of the block's duration, after which
  // the block is silent and the late answer is told apart by its number.
  const std::int64_t limit =
      realTime_.load(std::memory_order_relaxed)
          ? static_cast<std::int64_t>(kWaitShareOfBlock * frames / sampleRate_ * 1e9)
          : kOfflineWaitNanoseconds;
  const std::int64_t deadline = nowNanoseconds() + limit;
  for (;;) {
    const std::uint32_t reply = header.reply.load(std::memory_order_acquire);
    if (reply == number) break;
    const std::int64_t remaining = deadline - nowNanoseconds();
    if (!host.valid()) return false;  // it died: the watcher woke this wait
    if (remaining <= 0) {
      missedFrames_ += frames;
      if (missedFrames_ >= kHangSeconds * sampleRate_) host.reportHang();
      return false;
    }
    futexWait(header.reply, reply, remaining);
  }
  missedFrames_ = 0;

  for (std::uint32_t i = 0; i < ports_.size(); ++i) {
    if (!sharedOffsets_[i]) continue;
    const Port& p = ports_[i];
    const std::uint8_t* from = block + sharedOffsets_[i];
    if (p.kind == Port::controlOut) {
      std::memcpy(&portValues_[i], from, sizeof(float));
    } else if (p.kind == Port::atomOut) {
      copySequence(atomBuffers_[p.bufferIndex].data(), kAtomBufferSize, from, chunkType_);
    } else if (p.kind == Port::audioOut) {
      const int channel = static_cast<int>(i) == outputPorts_[0] ? 0 : 1;
      float* to = into ? into[channel] : audioBuffers_[p.bufferIndex].data();
      std::memcpy(to, from, frames * sizeof(float));
    }
  }
  return true;
}

void AudioUnit::resetAtomOutputs() noexcept {
  for (const int buffer : atomOutputBuffers_) {
    // Each block an output sequence starts as an empty chunk of full capacity.
    auto* atom = reinterpret_cast<LV2_Atom*>(atomBuffers_[buffer].data());
    atom->size = static_cast<uint32_t>(atomBuffers_[buffer].size() - sizeof(LV2_Atom));
    atom->type = chunkType_;
  }
}

// Audio thread (plug-in host process). The input of a block silenced by a restore is not lost:
// its events (notes, an editor's requests) reach the plug-in at the start of the next block it
// runs, after those of the blocks before it. Carried events are all at frame 0, so the block's
// own events, appended after them, stay in time order.
void AudioUnit::carryInputOverRestores(bool suspended) noexcept {
  auto* carried = reinterpret_cast<LV2_Atom_Sequence*>(carriedInput_.data());
  auto* input = reinterpret_cast<LV2_Atom_Sequence*>(midiInputBuffer_->data());
  if (suspended) {
    appendEvents(carried, kAtomBufferSize, input, true);
  } else if (hasEvents(carried)) {
    appendEvents(carried, kAtomBufferSize, input, false);
    std::memcpy(input, carried, sizeof(LV2_Atom) + carried->atom.size);
    carried->atom.size = sizeof(LV2_Atom_Sequence_Body);
  }
}

// Audio thread (plug-in host process).
void AudioUnit::runSharedBlock(std::uint8_t* shared) noexcept PELMA_NONBLOCKING {
  auto& header = *reinterpret_cast<SharedBlockHeader*>(shared);
  const std::uint32_t frames = std::clamp<std::uint32_t>(header.frames, 1, maxFrames_);
  // As in process: while the host's main thread restores a state or makes the instance again,
  // the block is silent (seen in this order by suspendRun).
  inRun_.store(true);
  const bool suspended = runSuspended_.load();
  for (std::uint32_t i = 0; i < ports_.size(); ++i) {
    if (!sharedOffsets_[i]) continue;
    const Port& p = ports_[i];
    if (p.kind == Port::controlIn) {
      std::memcpy(&portValues_[i], shared + sharedOffsets_[i], sizeof(float));
    } else if (p.kind == Port::atomIn) {
      copySequence(midiInputBuffer_->data(), kAtomBufferSize, shared + sharedOffsets_[i],
                   chunkType_);
      carryInputOverRestores(suspended);
    }
  }
  resetAtomOutputs();
  if (!suspended) {
    lilv_instance_run(instance_, frames);
    deliverWorkerResponses();
  }
  for (std::uint32_t i = 0; i < ports_.size(); ++i) {
    if (!sharedOffsets_[i]) continue;
    const Port& p = ports_[i];
    std::uint8_t* to = shared + sharedOffsets_[i];
    if (suspended && p.kind == Port::audioOut) {
      std::memset(to, 0, frames * sizeof(float));
      continue;
    }
    if (p.kind == Port::controlOut) {
      std::memcpy(to, &portValues_[i], sizeof(float));
    } else if (p.kind == Port::atomOut) {
      const auto* atom = reinterpret_cast<const LV2_Atom*>(atomBuffers_[p.bufferIndex].data());
      if (atom->type == chunkType_) {  // the plug-in wrote nothing
        const LV2_Atom empty{0, chunkType_};
        std::memcpy(to, &empty, sizeof empty);
      } else {
        std::memcpy(to, atom, std::min<std::uint32_t>(sizeof *atom + atom->size, kAtomBufferSize));
      }
    } else if (p.kind == Port::audioOut) {
      std::memcpy(to, audioBuffers_[p.bufferIndex].data(), frames * sizeof(float));
    }
  }
  inRun_.store(false, std::memory_order_release);
}

}  // namespace platform
