#pragma once

// A table screen: rows in sections with headers, each row a text with an accessory (a check mark
// or a disclosure arrow). The screen supplies its content through the functions below, as a table
// data source does; reloadData() asks them again and redraws. Drawn for the instrument's dark
// popovers: black background, white text. Main thread.

#include <QWidget>
#include <cstdint>

class QListWidget;

namespace platform {

struct IndexPath {
  std::int64_t section = 0;
  std::int64_t row = 0;
};

enum class CellAccessory { none, checkmark, disclosureIndicator };

struct TableViewCell {
  QString text;
  CellAccessory accessory = CellAccessory::none;
};

class TableViewController : public QWidget {
 public:
  explicit TableViewController(QWidget* parent = nullptr);

  QString title() const { return windowTitle(); }
  void setTitle(const QString& title) { setWindowTitle(title); }

  // Asks the data-source functions again and redraws every row.
  void reloadData();

  // Data source and delegate.
  virtual std::int64_t numberOfSectionsInTableView() = 0;
  virtual std::int64_t numberOfRowsInSection(std::int64_t section) = 0;
  virtual QString titleForHeaderInSection(std::int64_t /*section*/) { return {}; }
  virtual TableViewCell cellForRowAtIndexPath(IndexPath indexPath) = 0;
  virtual void didSelectRowAtIndexPath(IndexPath /*indexPath*/) {}

  // The rows as shown (for tests and for people reading a screenshot): headers are not rows.
  int visibleRowCount() const;
  TableViewCell visibleCell(IndexPath indexPath) const;
  // Selects the row as a tap would.
  void tapRow(IndexPath indexPath);

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  QListWidget* list_;
  bool loaded_ = false;
};

}  // namespace platform
