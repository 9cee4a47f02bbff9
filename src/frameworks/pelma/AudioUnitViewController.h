#pragma once

// Holds a plug-in's editor: its view (the plug-in's own UI, or a generic editor made from its
// ports).

#include <QPointer>
#include <QWidget>

class AudioUnitViewController {
 public:
  explicit AudioUnitViewController(QWidget* view) : view_(view) {}
  virtual ~AudioUnitViewController() = default;

  // The editor's view, or null when the plug-in has none.
  QWidget* view() const { return view_; }
  // Views whose touches must keep going to them rather than to the editor. On the desktop the
  // editor never covers its siblings, which get their own events, so there is nothing to do.
  void addPassthroughView(QWidget* /*view*/) {}

 private:
  QPointer<QWidget> view_;
};
