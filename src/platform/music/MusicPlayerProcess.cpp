// Audio-thread side of the music player: called once per block by the audio graph's callback.
// No allocation, no locks.

#include <algorithm>
#include <cmath>

#include "platform/music/MusicPlayer.h"

namespace platform {
namespace {

constexpr std::uint8_t kNoteOn = 0x90;
constexpr std::uint8_t kNoteOff = 0x80;

}  // namespace

void MusicPlayer::process(std::uint32_t frames, double sampleRate, MidiBlock& out) noexcept {
  const std::size_t first = out.size();
  sampleRate_ = sampleRate;
  tempoSnapshot_ = tempoReader_.acquire();

  const Transport* transport = transportReader_.acquire();
  if (transport->serial != appliedSerial_) {
    apply(*transport, out);
    appliedSerial_ = transport->serial;
    acknowledged_.store(transport->serial, std::memory_order_release);
  }
  transportReader_.release();
  if (!running_) blockPosition_ = {false, audioTime_.load(std::memory_order_relaxed), tempo_};

  if (running_ && frames > 0) {
    // The tempo is read once per block, at the beat the block starts on.
    const double blockStart = static_cast<double>(frame_);
    const double tempo = tempoAt(beatAtFrame(blockStart));
    if (tempo != tempo_) {
      anchorBeat_ = beatAtFrame(blockStart);
      anchorFrame_ = blockStart;
      tempo_ = tempo;
    }
    blockPosition_ = {true, beatAtFrame(blockStart), tempo_};
    // A note belongs to this block when its frame rounds into [start, start + frames).
    const double endBeat = beatAtFrame(blockStart + frames - 0.5);
    emitNoteOffs(endBeat, frames, out);
    for (auto& reader : trackReaders_) {
      if (const TrackSnapshot* track = reader.acquire()) {
        emitNotes(*track, scannedBeat_, endBeat, frames, out);
      }
    }
    // Notes shorter than the rest of the block end in it too.
    emitNoteOffs(endBeat, frames, out);
    scannedBeat_ = endBeat;
    frame_ += frames;
    audioTime_.store(beatAtFrame(static_cast<double>(frame_)), std::memory_order_relaxed);
  }
  for (auto& reader : trackReaders_)
    reader.release();
  tempoReader_.release();
  tempoSnapshot_ = nullptr;
  out.sortFrom(first);
}

void MusicPlayer::apply(const Transport& transport, MidiBlock& out) noexcept {
  const bool jumped = transport.jumpSerial > appliedSerial_;
  if (!transport.playing) {
    audioTime_.store(transport.beats, std::memory_order_relaxed);  // stopped, or located there
    if (running_) {
      running_ = false;
      releaseAll(out);
    }
    return;
  }
  if (!running_) {
    running_ = true;
    frame_ = 0;
    anchorFrame_ = 0.0;
    anchorBeat_ = transport.beats;
    scannedBeat_ = transport.beats;
    tempo_ = tempoAt(transport.beats);
    audioTime_.store(transport.beats, std::memory_order_relaxed);
  } else if (jumped) {
    // Jumping while playing: what sounds now ends, and the notes from the new time on play next.
    releaseAll(out);
    anchorFrame_ = static_cast<double>(frame_);
    anchorBeat_ = transport.beats;
    scannedBeat_ = transport.beats;
    audioTime_.store(transport.beats, std::memory_order_relaxed);
  }
}

void MusicPlayer::releaseAll(MidiBlock& out) noexcept {
  for (std::size_t i = 0; i < pendingCount_; ++i) {
    out.add(MidiEvent{0, 3, {pending_[i].status, pending_[i].note, 0}});
  }
  pendingCount_ = 0;
}

double MusicPlayer::beatAtFrame(double frame) const noexcept {
  return anchorBeat_ + (frame - anchorFrame_) * tempo_ / (60.0 * sampleRate_);
}

double MusicPlayer::frameOfBeat(double beat) const noexcept {
  return anchorFrame_ + (beat - anchorBeat_) * 60.0 / tempo_ * sampleRate_;
}

double MusicPlayer::tempoAt(double beat) const noexcept {
  // The last tempo event at or before the beat; the default tempo before the first one.
  double tempo = kDefaultTempo;
  if (!tempoSnapshot_) return tempo;
  for (const MusicEvent& event : tempoSnapshot_->events) {
    if (event.time > beat) break;
    if (const ExtendedTempoEvent* change = event.tempo(); change && change->bpm > 0.0) {
      tempo = change->bpm;
    }
  }
  return tempo;
}

std::uint32_t MusicPlayer::frameInBlock(double absoluteFrame, std::uint32_t frames) const noexcept {
  const double offset = std::round(absoluteFrame) - static_cast<double>(frame_);
  return static_cast<std::uint32_t>(std::clamp(offset, 0.0, static_cast<double>(frames - 1)));
}

void MusicPlayer::emitNotes(const TrackSnapshot& track, double fromBeat, double toBeat,
                            std::uint32_t frames, MidiBlock& out) noexcept {
  const double length = track.trackLength;
  if (!(length > 0.0) || !(fromBeat < toBeat)) return;
  // First pass: the whole track as it stands.
  if (fromBeat < length) {
    emitNotesInWindow(track, std::max(fromBeat, 0.0), std::min(toBeat, length), 0.0, frames, out);
  }
  // Then the loop region, the last loopDuration beats of the track, again and again.
  const LoopInfo& loop = track.loopInfo;
  if (!(loop.loopDuration > 0.0) || toBeat <= length) return;
  const double loopStart = std::max(0.0, length - loop.loopDuration);
  const double loopLength = length - loopStart;
  const double firstPass =
      fromBeat < length ? 1.0 : std::floor((fromBeat - length) / loopLength) + 1;
  for (double pass = firstPass;; pass += 1.0) {
    if (loop.numberOfLoops > 0 && pass > loop.numberOfLoops - 1) break;
    const double passStart = length + (pass - 1.0) * loopLength;
    if (passStart >= toBeat) break;
    const double offset = passStart - loopStart;
    emitNotesInWindow(track, std::max(fromBeat - offset, loopStart),
                      std::min(toBeat - offset, length), offset, frames, out);
  }
}

void MusicPlayer::emitNotesInWindow(const TrackSnapshot& track, double low, double high,
                                    double offset, std::uint32_t frames, MidiBlock& out) noexcept {
  if (!(low < high)) return;
  const auto& events = track.events;
  auto it = std::lower_bound(events.begin(), events.end(), low,
                             [](const MusicEvent& event, double t) { return event.time < t; });
  for (; it != events.end() && it->time < high; ++it) {
    const MIDINoteMessage* note = it->note();
    if (!note) continue;
    const double beat = it->time + offset;
    const double onFrame = frameOfBeat(beat);
    const auto onFrameRounded = static_cast<std::uint64_t>(std::round(onFrame));
    PendingNoteOff* slot = pendingSlot(onFrameRounded, frames, out);
    if (!slot) continue;  // a note that could not be ended is not started
    const std::uint8_t channel = note->channel & 0x0F;
    out.add(MidiEvent{frameInBlock(onFrame, frames),
                      3,
                      {static_cast<std::uint8_t>(kNoteOn | channel), note->note, note->velocity}});
    *slot = PendingNoteOff{beat + std::max(0.0f, note->duration), onFrameRounded + 1,
                           static_cast<std::uint8_t>(kNoteOff | channel), note->note};
  }
}

MusicPlayer::PendingNoteOff* MusicPlayer::pendingSlot(std::uint64_t onFrame, std::uint32_t frames,
                                                      MidiBlock& out) noexcept {
  if (pendingCount_ < kMaxPendingNoteOffs) return &pending_[pendingCount_++];
  // Full: the oldest note that may already end ends now, at the new note's frame (note offs go
  // before note ons at one frame, so a re-struck key sounds again). Every note on keeps a note
  // off after it, so no note is left sounding.
  PendingNoteOff* oldest = nullptr;
  for (PendingNoteOff& off : pending_) {
    if (off.earliestFrame <= onFrame && (!oldest || off.earliestFrame < oldest->earliestFrame))
      oldest = &off;
  }
  if (!oldest) return nullptr;
  out.add(MidiEvent{
      frameInBlock(static_cast<double>(onFrame), frames), 3, {oldest->status, oldest->note, 0}});
  return oldest;
}

void MusicPlayer::emitNoteOffs(double toBeat, std::uint32_t frames, MidiBlock& out) noexcept {
  const std::uint64_t blockEnd = frame_ + frames;
  for (std::size_t i = 0; i < pendingCount_;) {
    const PendingNoteOff& off = pending_[i];
    if (off.beat >= toBeat) {
      ++i;
      continue;
    }
    const double frame =
        std::max(std::round(frameOfBeat(off.beat)), static_cast<double>(off.earliestFrame));
    if (frame >= static_cast<double>(blockEnd)) {
      ++i;  // a note that began at the block's last frame ends in the next block
      continue;
    }
    out.add(MidiEvent{frameInBlock(frame, frames), 3, {off.status, off.note, 0}});
    pending_[i] = pending_[--pendingCount_];
  }
}

}  // namespace platform
