#pragma once

// A keyboard delegate that records what it hears and fails the test on a release without a
// press or a key pressed twice.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "frameworks/krui/PianoViewDelegate.h"

struct KeyRecorder final : PianoViewDelegate {
  void pianoKeyPressed(std::int32_t key, float velocity) override {
    EXPECT_FALSE(down.count(key)) << "key " << key << " pressed twice";
    down.insert(key);
    velocities[key] = velocity;
    events.push_back("on " + std::to_string(key));
  }
  void pianoKeyReleased(std::int32_t key) override {
    EXPECT_TRUE(down.count(key)) << "key " << key << " released without a press";
    down.erase(key);
    events.push_back("off " + std::to_string(key));
  }
  // The events so far, then forgets them.
  std::vector<std::string> take() { return std::exchange(events, {}); }

  std::set<std::int32_t> down;
  std::map<std::int32_t, float> velocities;
  std::vector<std::string> events;
};

using Events = std::vector<std::string>;
