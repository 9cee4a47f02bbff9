#include "platform/ui/DeviceIdiom.h"

#include <atomic>

namespace platform {
namespace {
std::atomic<UserInterfaceIdiom> currentIdiom{UserInterfaceIdiom::pad};
}

UserInterfaceIdiom userInterfaceIdiom() {
  return currentIdiom.load();
}
void setUserInterfaceIdiom(UserInterfaceIdiom idiom) {
  currentIdiom.store(idiom);
}

}  // namespace platform
