#include "ui/ParameterText.h"

#include <algorithm>
#include <cmath>

namespace pelma::ui {

QString groupTitle(Group group) {
  switch (group) {
    case Group::Oscillators:
      return QStringLiteral("OSCILLATORS");
    case Group::Filter:
      return QStringLiteral("FILTER");
    case Group::FilterEnvelope:
      return QStringLiteral("FILTER ENVELOPE");
    case Group::AmpEnvelope:
      return QStringLiteral("AMP ENVELOPE");
    case Group::Modulation:
      return QStringLiteral("LFO & MODULATION");
    case Group::Output:
      return QStringLiteral("OUTPUT");
  }
  return {};
}

QString parameterLabel(std::size_t index) {
  const Parameter& p = kParameters[index];
  QString name = QString::fromUtf8(p.name.data(), static_cast<qsizetype>(p.name.size()));
  const QString groupWord = groupTitle(p.group).section(QLatin1Char(' '), 0, 0);
  const QString first = name.section(QLatin1Char(' '), 0, 0);
  if (name.contains(QLatin1Char(' ')) && first.compare(groupWord, Qt::CaseInsensitive) == 0) {
    name = name.section(QLatin1Char(' '), 1);
    name[0] = name[0].toUpper();
  }
  return name;
}

QString valueText(std::size_t index, float value) {
  const Parameter& p = kParameters[index];
  value = clampParameter(index, value);
  if (p.kind == Kind::Choice) {
    const auto choice = p.choices[static_cast<std::size_t>(value)];
    QString label = QString::fromUtf8(choice.data(), static_cast<qsizetype>(choice.size()));
    if (!label.isEmpty()) label[0] = label[0].toUpper();
    return label;
  }
  const auto signedNumber = [](double v, int decimals) {
    return (v > 0 ? QStringLiteral("+") : QString()) + QString::number(v, 'f', decimals);
  };
  switch (p.unit) {
    case Unit::Hertz:
      if (value >= 1000) return QString::number(value / 1000, 'f', 2) + QStringLiteral(" kHz");
      return QString::number(value, 'f', value < 10 ? 2 : 0) + QStringLiteral(" Hz");
    case Unit::Seconds:
      if (value < 1) return QString::number(value * 1000, 'f', 0) + QStringLiteral(" ms");
      return QString::number(value, 'f', 2) + QStringLiteral(" s");
    case Unit::Decibels:
      return signedNumber(value, 1) + QStringLiteral(" dB");
    case Unit::Semitones:
      return signedNumber(value, p.kind == Kind::Integer ? 0 : 2) + QStringLiteral(" st");
    case Unit::Cents:
      return signedNumber(value, 0) + QStringLiteral(" ct");
    case Unit::Octaves:
      return signedNumber(value, 1) + QStringLiteral(" oct");
    case Unit::None:
      break;
  }
  return QString::number(std::lround(value * 100)) + QStringLiteral(" %");
}

float normalisedValue(std::size_t index, float value) {
  const Parameter& p = kParameters[index];
  value = clampParameter(index, value);
  if (p.logarithmic) return std::log(value / p.minimum) / std::log(p.maximum / p.minimum);
  return (value - p.minimum) / (p.maximum - p.minimum);
}

float valueFromNormalised(std::size_t index, float position) {
  const Parameter& p = kParameters[index];
  position = std::clamp(position, 0.0f, 1.0f);
  const float value = p.logarithmic ? p.minimum * std::pow(p.maximum / p.minimum, position)
                                    : p.minimum + position * (p.maximum - p.minimum);
  return clampParameter(index, value);
}

}  // namespace pelma::ui
