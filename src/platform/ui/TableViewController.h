#pragma once

// A table screen: rows in sections with headers, each row a text with an accessory (a check mark
// or a disclosure arrow), or a widget of the screen's own. The screen supplies its content through
// the functions below, as a table data source does; reloadData() asks them again and redraws. Drawn
// for the instrument's dark popovers: black background, white text. Main thread.

#include <QWidget>
#include <cstdint>

class QListWidget;
class QListWidgetItem;

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
  // A row drawn by a widget of the screen's own, for rows richer than a text and an accessory
  // (the table takes it); null: the text row of cellForRowAtIndexPath.
  virtual QWidget* widgetForRowAtIndexPath(IndexPath /*indexPath*/) { return nullptr; }
  // The row's height in points; 0: the text row's own height.
  virtual int heightForRowAtIndexPath(IndexPath /*indexPath*/) { return 0; }
  virtual void didSelectRowAtIndexPath(IndexPath /*indexPath*/) {}

  // The rows as shown (for tests and for people reading a screenshot): headers are not rows.
  int visibleRowCount() const;
  TableViewCell visibleCell(IndexPath indexPath) const;
  // The widget drawing a row (widgetForRowAtIndexPath), or null.
  QWidget* visibleRowWidget(IndexPath indexPath) const;
  // Selects the row as a tap would.
  void tapRow(IndexPath indexPath);
  // Clears the row's selection again (a tapped row stays highlighted otherwise).
  void deselectRow(IndexPath indexPath);

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  QListWidgetItem* itemAt(IndexPath indexPath) const;

  QListWidget* list_;
  bool loaded_ = false;
  bool widgetRows_ = false;
};

}  // namespace platform
