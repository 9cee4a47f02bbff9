#pragma once

// A session: what the musician has set up, as one file. The instrument (its LV2 URI and its whole
// state as LV2 state Turtle text), the step pattern (16 steps of keys with velocity bytes and
// ties; gate, swing, tempo), auto-step, the keyboard's octave and toggles, and the MIDI learn map.
// The file is JSON; docs/session-format.md describes it.
//
// Reading is forgiving and bounded: a file over kMaximumFileBytes, nested too deep, not JSON, or
// of another format or a later version is refused whole; a value of the wrong type or out of range
// is skipped and the one it would have replaced kept. Every refusal and skip is one line in
// `problems`, for the window to show. Writing goes through a temporary file renamed into place,
// so the previous file stays whole when the disk is full or the folder read-only.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace session {

inline constexpr const char* kFormatName = "pelma-session";
inline constexpr int kFormatVersion = 1;
inline constexpr const char* kFileSuffix = "pelmasession";
// Far above any real session (Pelma's state is a few kilobytes); a larger file is not ours.
inline constexpr std::uint64_t kMaximumFileBytes = 8u << 20;
inline constexpr int kMaximumNesting = 8;
inline constexpr int kMaximumKeysPerStep = 128;
inline constexpr int kMaximumLearnEntries = 1024;

// One key of a step: its MIDI note and the velocity byte the sequencer plays it with (0..128; a
// key recorded at full velocity plays as 128, which the MIDI boundary caps at 127).
struct Key {
  int note = 0;
  int velocity = 0;
  bool operator==(const Key&) const = default;
};

struct Step {
  std::vector<Key> keys;
  bool tie = false;
  bool operator==(const Step&) const = default;
};

// The part of a session that undo and redo go through.
struct Pattern {
  std::array<Step, 16> steps;
  double gate = 0.5;   // 0..1
  double swing = 0.0;  // 0..1
  int tempo = 120;     // 40..200 beats per minute
  bool operator==(const Pattern&) const = default;
};

struct Keyboard {
  int octave = 4;  // 0..7
  bool hold = false;
  bool lock = false;
  bool velocity = false;
  bool smallKeys = false;
  bool operator==(const Keyboard&) const = default;
};

struct Session {
  QString instrumentUri;
  QString instrumentState;  // LV2 state Turtle text; empty: the instrument's own state is not kept
  Pattern pattern;
  bool autoStep = false;
  Keyboard keyboard;
  // {"controller": 0..127, "symbol": control port symbol, "channel": 1..16 (optional)} maps.
  QVariantList midiLearn;
  bool operator==(const Session&) const = default;
};

QByteArray toJson(const Session& session);

struct ReadResult {
  Session session;       // `base` with every valid value the text holds
  bool read = false;     // false: nothing was taken from the text
  QStringList problems;  // one line each, for the musician
};

// `base` is what the values not in the text (or not valid there) stay at.
ReadResult fromJson(const QByteArray& text, const Session& base);

// fromJson on a file's bytes; a missing, unreadable, over-long or linked file is a problem.
ReadResult readSessionFile(const QString& path, const Session& base);

// Writes atomically; the reason when it could not (the previous file is then untouched).
std::optional<QString> writeSessionFile(const QString& path, const Session& session);

// A learn-map entry as the file holds it, or nothing (with the reason) when it is not one.
std::optional<QVariantMap> validLearnEntry(const QVariant& entry, QString* reason);

}  // namespace session
