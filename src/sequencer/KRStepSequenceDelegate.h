#pragma once

#include "platform/foundation/Range.h"
#include "platform/foundation/WeakRef.h"

// Told which steps of a KRStepSequence changed, on the thread that edited it (the main thread).
// The sequence holds its delegate weakly. A range may come with a wrapped-around length.
class KRStepSequenceDelegate : public platform::WeaklyReferenceable {
 public:
  virtual void sequenceUpdatedAtRange(platform::Range range) = 0;

 protected:
  ~KRStepSequenceDelegate() = default;
};
