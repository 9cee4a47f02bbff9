#pragma once

// Holds a plug-in's editor: its view (the plug-in's own UI, or a generic editor made from its
// ports) and the views whose touches must keep going to them (pass-through views; on the desktop
// sibling widgets get their own events, so they are only kept).

#include <QPointer>
#include <QWidget>
#include <vector>

class AudioUnitViewController {
 public:
  explicit AudioUnitViewController(QWidget* view) : view_(view) {}
  virtual ~AudioUnitViewController() = default;

  // The editor's view, or null when the plug-in has none.
  QWidget* view() const { return view_; }
  void addPassthroughView(QWidget* view) { passthroughViews_.push_back(view); }
  const std::vector<QPointer<QWidget>>& passthroughViews() const { return passthroughViews_; }

 private:
  QPointer<QWidget> view_;
  std::vector<QPointer<QWidget>> passthroughViews_;
};
