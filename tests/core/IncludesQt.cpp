// Compiled with the core library's settings by a test that expects the compilation to fail:
// the core library must not be able to use Qt.
#include <QtCore/QObject>
#include "sequencer/KRStepSequence.h"
