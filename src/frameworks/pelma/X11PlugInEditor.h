#pragma once

// A plug-in's own X11 editor (an LV2 UI of class ui:X11UI), loaded into this process and embedded
// by native window id in a Qt widget. The editor gets what real UIs need: ui:parent, ui:resize,
// ui:idleInterface (idle called about 30 times a second), urid map/unmap, instance-access and
// data-access, ui:portMap and ui:portSubscribe, ui:scaleFactor. Every control value is sent to the
// editor at start and whenever it changes; the editor's control writes reach the plug-in through
// its lock-free control inputs. Messages pass both ways as atom:eventTransfer: the editor's reach
// the plug-in's atom control input in the next block, and the plug-in's atom outputs and control
// outputs reach the editor at its next idle tick. When the view is resized, an editor that offers
// ui:resize follows. Only on the X11 (xcb) platform; never a Qt 5 or Gtk editor. Without an
// instance in this process (a plug-in in a process of its own), instance-access and data-access
// are not offered.

#include <QWidget>
#include <memory>

#include "frameworks/pelma/AudioUnitViewController.h"
#include "platform/audio/AudioUnit.h"

// The plug-in's X11 editor in a new widget of `owner`, or null (with no log line) when the plug-in
// has none this host can embed, or (with one log line) when it fails to load. For a plug-in in a
// process of its own only an editor that needs neither instance-access nor data-access can open
// here (it works through ports and messages, which cross); `needsThisProcess` then tells whether
// an editor was left out for that reason.
std::shared_ptr<AudioUnitViewController> makeX11Editor(std::shared_ptr<platform::AudioUnit> unit,
                                                       QWidget* owner,
                                                       bool* needsThisProcess = nullptr);
