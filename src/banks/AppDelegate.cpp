#include "banks/AppDelegate.h"

#include "platform/foundation/Log.h"

bool AppDelegate::didFinishLaunchingWithOptions() {
  platform::log("Did finish launching with options");
  return true;
}
