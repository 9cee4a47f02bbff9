#include "session/SessionFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>

#include "platform/foundation/Files.h"

namespace session {
namespace {

constexpr int kMaximumUriLength = 2048;
constexpr int kMaximumSymbolLength = 256;

QJsonArray stepsToJson(const Pattern& pattern) {
  QJsonArray steps;
  for (const Step& step : pattern.steps) {
    QJsonArray keys;
    for (const Key& key : step.keys)
      keys.append(QJsonObject{{"note", key.note}, {"velocity", key.velocity}});
    steps.append(QJsonObject{{"keys", keys}, {"tie", step.tie}});
  }
  return steps;
}

// Reads one JSON object's values into a session, noting each one it cannot take.
class Reader {
 public:
  explicit Reader(QStringList& problems) : problems_(problems) {}

  void number(const QJsonObject& object, const char* name, double low, double high,
              double& target) {
    const QJsonValue value = object.value(QLatin1String(name));
    if (value.isUndefined()) return;
    if (!value.isDouble() || !std::isfinite(value.toDouble()) || value.toDouble() < low ||
        value.toDouble() > high) {
      problem(QStringLiteral("\"%1\" is not a number from %2 to %3").arg(name).arg(low).arg(high));
      return;
    }
    target = value.toDouble();
  }

  void integer(const QJsonObject& object, const char* name, int low, int high, int& target) {
    double value = target;
    number(object, name, low, high, value);
    if (value != std::trunc(value)) {
      problem(QStringLiteral("\"%1\" is not a whole number").arg(name));
      return;
    }
    target = static_cast<int>(value);
  }

  void flag(const QJsonObject& object, const char* name, bool& target) {
    const QJsonValue value = object.value(QLatin1String(name));
    if (value.isUndefined()) return;
    if (!value.isBool()) {
      problem(QStringLiteral("\"%1\" is not true or false").arg(name));
      return;
    }
    target = value.toBool();
  }

  QJsonObject object(const QJsonObject& parent, const char* name) {
    const QJsonValue value = parent.value(QLatin1String(name));
    if (!value.isUndefined() && !value.isObject())
      problem(QStringLiteral("\"%1\" is not an object").arg(name));
    return value.toObject();
  }

  void steps(const QJsonValue& value, Pattern& pattern) {
    if (value.isUndefined()) return;
    const QJsonArray steps = value.toArray();
    if (!value.isArray() || steps.size() != 16) {
      problem(QStringLiteral("\"steps\" is not a list of 16 steps"));
      return;
    }
    for (int i = 0; i < 16; ++i) {
      const QJsonObject object = steps[i].toObject();
      Step step;
      flag(object, "tie", step.tie);
      const QJsonArray keys = object.value(QLatin1String("keys")).toArray();
      if (!steps[i].isObject() || keys.size() > kMaximumKeysPerStep) {
        problem(QStringLiteral("step %1 is not a step of at most %2 keys")
                    .arg(i + 1)
                    .arg(kMaximumKeysPerStep));
        continue;
      }
      for (const QJsonValue& entry : keys) {
        const QJsonValue note = entry.toObject().value(QLatin1String("note"));
        const QJsonValue velocity = entry.toObject().value(QLatin1String("velocity"));
        const Key key{note.toInt(-1), velocity.toInt(-1)};
        if (key.note < 0 || key.note > 127 || key.velocity < 0 || key.velocity > 128) {
          problem(QStringLiteral("step %1 has a key that is not a note (0 to 127) with a velocity "
                                 "(0 to 128)")
                      .arg(i + 1));
          continue;
        }
        step.keys.push_back(key);
      }
      pattern.steps[static_cast<std::size_t>(i)] = std::move(step);
    }
  }

  void learnMap(const QJsonValue& value, QVariantList& target) {
    if (value.isUndefined()) return;
    if (!value.isArray() || value.toArray().size() > kMaximumLearnEntries) {
      problem(QStringLiteral("\"midiLearn\" is not a list of at most %1 entries")
                  .arg(kMaximumLearnEntries));
      return;
    }
    QVariantList entries;
    for (const QJsonValue& entry : value.toArray()) {
      QString reason;
      if (auto valid = validLearnEntry(entry.toVariant(), &reason))
        entries.append(*valid);
      else
        problem(QStringLiteral("a MIDI learn entry was skipped: %1").arg(reason));
    }
    target = entries;
  }

  void problem(const QString& text) { problems_.append(text); }

 private:
  QStringList& problems_;
};

}  // namespace

std::optional<QVariantMap> validLearnEntry(const QVariant& entry, QString* reason) {
  static const QRegularExpression symbolForm(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]*$"));
  auto refuse = [reason](const QString& why) {
    if (reason) *reason = why;
    return std::nullopt;
  };
  if (entry.typeId() != QMetaType::QVariantMap) return refuse(QStringLiteral("not an object"));
  const QVariantMap map = entry.toMap();
  const QVariant controller = map.value(QStringLiteral("controller"));
  const QVariant symbol = map.value(QStringLiteral("symbol"));
  const QVariant channel = map.value(QStringLiteral("channel"));
  auto wholeIn = [](const QVariant& value, int low, int high) {
    bool ok = false;
    const double number = value.toDouble(&ok);
    return ok && value.typeId() != QMetaType::QString && value.typeId() != QMetaType::Bool &&
           number == std::trunc(number) && number >= low && number <= high;
  };
  if (!wholeIn(controller, 0, 127)) return refuse(QStringLiteral("controller not 0 to 127"));
  if (symbol.typeId() != QMetaType::QString || symbol.toString().size() > kMaximumSymbolLength ||
      !symbolForm.match(symbol.toString()).hasMatch())
    return refuse(QStringLiteral("symbol not a control's symbol"));
  QVariantMap valid{{QStringLiteral("controller"), controller.toInt()},
                    {QStringLiteral("symbol"), symbol.toString()}};
  if (channel.isValid()) {
    if (!wholeIn(channel, 1, 16)) return refuse(QStringLiteral("channel not 1 to 16"));
    valid.insert(QStringLiteral("channel"), channel.toInt());
  }
  return valid;
}

QByteArray toJson(const Session& session) {
  const Pattern& pattern = session.pattern;
  const Keyboard& keyboard = session.keyboard;
  const QJsonObject root{
      {"format", kFormatName},
      {"version", kFormatVersion},
      {"instrument",
       QJsonObject{{"uri", session.instrumentUri}, {"state", session.instrumentState}}},
      {"sequence", QJsonObject{{"steps", stepsToJson(pattern)},
                               {"gate", pattern.gate},
                               {"swing", pattern.swing},
                               {"tempo", pattern.tempo},
                               {"autoStep", session.autoStep}}},
      {"keyboard", QJsonObject{{"octave", keyboard.octave},
                               {"hold", keyboard.hold},
                               {"lock", keyboard.lock},
                               {"velocity", keyboard.velocity},
                               {"smallKeys", keyboard.smallKeys}}},
      {"midiLearn", QJsonArray::fromVariantList(session.midiLearn)},
  };
  return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

ReadResult fromJson(const QByteArray& text, const Session& base) {
  ReadResult result{base, false, {}};
  if (!platform::jsonNestingWithin(std::string_view(text.constData(), text.size()),
                                   kMaximumNesting)) {
    result.problems.append(QStringLiteral("it nests deeper than a session does"));
    return result;
  }
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(text, &error);
  if (error.error != QJsonParseError::NoError || !document.isObject()) {
    result.problems.append(
        QStringLiteral("it is not a session file (cut short or another kind of file)"));
    return result;
  }
  const QJsonObject root = document.object();
  if (root.value(QLatin1String("format")).toString() != QLatin1String(kFormatName)) {
    result.problems.append(
        QStringLiteral("it is not a session file (format is not \"%1\")").arg(kFormatName));
    return result;
  }
  const QJsonValue version = root.value(QLatin1String("version"));
  if (!version.isDouble() || version.toDouble() != kFormatVersion) {
    result.problems.append(
        QStringLiteral("it is of format version %1; this Pelma reads version %2")
            .arg(version.isDouble() ? QString::number(version.toDouble()) : QStringLiteral("?"))
            .arg(kFormatVersion));
    return result;
  }
  result.read = true;
  Session& session = result.session;
  Reader reader(result.problems);

  const QJsonObject instrument = reader.object(root, "instrument");
  const QJsonValue uri = instrument.value(QLatin1String("uri"));
  const QJsonValue state = instrument.value(QLatin1String("state"));
  if (!uri.isUndefined() || !state.isUndefined()) {
    if (!uri.isString() || uri.toString().size() > kMaximumUriLength || !state.isString()) {
      reader.problem(QStringLiteral("the instrument is not a URI with a state text"));
    } else {
      session.instrumentUri = uri.toString();
      session.instrumentState = state.toString();
    }
  }

  const QJsonObject sequence = reader.object(root, "sequence");
  reader.steps(sequence.value(QLatin1String("steps")), session.pattern);
  reader.number(sequence, "gate", 0.0, 1.0, session.pattern.gate);
  reader.number(sequence, "swing", 0.0, 1.0, session.pattern.swing);
  reader.integer(sequence, "tempo", 40, 200, session.pattern.tempo);
  reader.flag(sequence, "autoStep", session.autoStep);

  const QJsonObject keyboard = reader.object(root, "keyboard");
  reader.integer(keyboard, "octave", 0, 7, session.keyboard.octave);
  reader.flag(keyboard, "hold", session.keyboard.hold);
  reader.flag(keyboard, "lock", session.keyboard.lock);
  reader.flag(keyboard, "velocity", session.keyboard.velocity);
  reader.flag(keyboard, "smallKeys", session.keyboard.smallKeys);

  reader.learnMap(root.value(QLatin1String("midiLearn")), session.midiLearn);
  return result;
}

ReadResult readSessionFile(const QString& path, const Session& base) {
  std::string error;
  const auto bytes = platform::readFileUpTo(path.toStdString(), kMaximumFileBytes, &error);
  if (!bytes) {
    ReadResult result{base, false, {}};
    result.problems.append(QStringLiteral("it ") + QString::fromStdString(error));
    return result;
  }
  return fromJson(QByteArray::fromStdString(*bytes), base);
}

std::optional<QString> writeSessionFile(const QString& path, const Session& session) {
  QSaveFile file(path);
  const QByteArray text = toJson(session);
  // Unbuffered, so that a short write (a full disk) is seen here rather than lost in a flush.
  if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write(text) != text.size()) {
    // A short write leaves Qt without a reason; the system's (a full disk, a file too large) is
    // in errno.
    const QString reason = file.error() == QFileDevice::NoError || file.errorString().isEmpty() ||
                                   file.errorString() == QLatin1String("Unknown error")
                               ? QString::fromLocal8Bit(std::strerror(errno))
                               : file.errorString();
    file.cancelWriting();
    return reason;
  }
  if (!file.commit()) return file.errorString();
  return std::nullopt;
}

}  // namespace session
