#include "frameworks/krui/KRControl.h"

void KRControl::addTarget(QObject* target, std::function<void()> action) {
  connect(this, &KRControl::valueChanged, target, std::move(action));
}
