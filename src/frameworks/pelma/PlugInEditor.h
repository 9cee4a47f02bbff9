#pragma once

// The editor of a plug-in, delivered as an AudioUnitViewController.
//
// A plug-in with an X11 editor this host can embed gets it (see X11PlugInEditor.h); every other
// plug-in gets the generic editor, built from its control input ports: a box per
// port group, in each a control per port with the port's name: a choice list for enumerations, a
// switch for toggles, a slider for the rest (logarithmic ports on a logarithmic scale, integer
// ports in whole steps), the port's comment as a tooltip. It scrolls when it does not fit, and
// follows the instrument: the controls show the port values about ten times a second.

#include <QWidget>
#include <functional>
#include <memory>

#include "frameworks/pelma/AudioUnitViewController.h"
#include "platform/audio/AudioUnit.h"

// Main thread: calls `completion` on the main thread with the editor, whose view is a child of
// `owner` (the caller re-parents it where it embeds it).
void requestViewController(
    std::shared_ptr<platform::AudioUnit> unit, QWidget* owner,
    std::function<void(std::shared_ptr<AudioUnitViewController>)> completion);
