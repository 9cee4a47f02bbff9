#pragma once

// The application delegate: told when the application has launched and when it moves between
// foreground and background. Bank intake at launch and banks opened from other programs are
// added here by their own work; for now it only records the launch.

class AppDelegate {
 public:
  // Called once, when the application has started and before its window shows.
  bool didFinishLaunchingWithOptions();
};
