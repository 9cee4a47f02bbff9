#include "platform/app/ApplicationState.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/foundation/ApplicationNotifications.h"
#include "platform/foundation/NotificationCenter.h"

namespace platform {
namespace {

TEST(ApplicationState, PostsActiveAndBackgroundOncePerChange) {
  std::vector<std::string> seen;
  auto& center = NotificationCenter::defaultCenter();
  for (const char* name :
       {kApplicationDidBecomeActiveNotification, kApplicationDidEnterBackgroundNotification}) {
    center.addObserver(
        name, nullptr, [&](const Notification& n) { seen.push_back(n.name); }, &seen);
  }
  ApplicationState state;
  state.applicationStateChanged(Qt::ApplicationInactive);  // lost focus: still in front
  state.applicationStateChanged(Qt::ApplicationHidden);
  state.applicationStateChanged(Qt::ApplicationSuspended);  // still the same background
  state.applicationStateChanged(Qt::ApplicationActive);
  center.removeObserver(&seen);
  EXPECT_EQ(seen, (std::vector<std::string>{kApplicationDidEnterBackgroundNotification,
                                            kApplicationDidBecomeActiveNotification}));
}

}  // namespace
}  // namespace platform
