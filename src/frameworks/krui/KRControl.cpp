#include "frameworks/krui/KRControl.h"

#include <cmath>
#include <limits>

void KRControl::addTarget(QObject* target, std::function<void()> action) {
  connect(this, &KRControl::valueChanged, target, std::move(action));
}

std::int32_t truncateToInt32(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
  if (value <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}
