#pragma once

// A keyboard delegate (of the keys alone, or of the keyboard screen with its wheels and panic)
// that records what it hears in order, e.g. "on 60", "off 60", "pitch 0.500", "panic", and
// fails the test on a release without a press or a key pressed twice.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "frameworks/krui/PianoViewDelegate.h"
#include "keyboard/KRPianoViewDelegate.h"

struct KeyRecorder final : PianoViewDelegate, KRPianoViewDelegate {
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
  void modWheelChanged(float value) override { events.push_back("mod " + fixed(value)); }
  void pitchWheelChanged(float value) override { events.push_back("pitch " + fixed(value)); }
  void panic() override { events.push_back("panic"); }

  // The events so far, then forgets them.
  std::vector<std::string> take() { return std::exchange(events, {}); }

  static std::string fixed(float value) {
    char text[16];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
  }

  std::set<std::int32_t> down;
  std::map<std::int32_t, float> velocities;  // the last velocity of each key
  std::vector<std::string> events;
};

using Events = std::vector<std::string>;
