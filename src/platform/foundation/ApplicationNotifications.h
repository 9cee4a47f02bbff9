#pragma once

namespace platform {

// Posted on the main thread when the application becomes active (shown, restored) and when it
// enters the background (hidden, minimised, suspended).
inline constexpr const char* kApplicationDidBecomeActiveNotification = "ApplicationDidBecomeActive";
inline constexpr const char* kApplicationDidEnterBackgroundNotification =
    "ApplicationDidEnterBackground";

}  // namespace platform
