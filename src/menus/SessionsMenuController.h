#pragma once

// The sessions screens, kept in place for sessions to come: the list is always empty and saving
// does nothing. Reached only through the settings menu's hidden "Sessions" row.

#include <QWidget>

#include "platform/ui/TableViewController.h"

class SessionsMenuController : public platform::TableViewController {
 public:
  explicit SessionsMenuController(QWidget* parent = nullptr);

  std::int64_t numberOfSectionsInTableView() override { return 1; }
  std::int64_t numberOfRowsInSection(std::int64_t) override { return 0; }
  platform::TableViewCell cellForRowAtIndexPath(platform::IndexPath) override { return {}; }
  // Opens the save screen.
  void saveSession();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  bool barSet_ = false;
};

class SaveSessionViewController : public QWidget {
 public:
  // Made from the interface file "SaveSessionViewController".
  explicit SaveSessionViewController(QWidget* parent = nullptr);
  void saveSession() {}

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  bool barSet_ = false;
};
