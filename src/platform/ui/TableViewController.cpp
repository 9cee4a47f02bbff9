#include "platform/ui/TableViewController.h"
#include "platform/ui/Palette.h"

#include <QListWidget>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

namespace platform {
namespace {

constexpr int kSectionRole = Qt::UserRole + 1;
constexpr int kRowRole = Qt::UserRole + 2;
constexpr int kAccessoryRole = Qt::UserRole + 3;

// Draws a row as usual and its accessory at the row's right edge, so the check marks of a
// section line up whatever the lengths of their texts.
class AccessoryDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    QStyledItemDelegate::paint(painter, option, index);
    QString glyph;
    QColor colour = palette::kAccent;
    switch (static_cast<CellAccessory>(index.data(kAccessoryRole).toInt())) {
      case CellAccessory::checkmark:
        glyph = QStringLiteral("\u2713");
        break;
      case CellAccessory::disclosureIndicator:
        glyph = QStringLiteral("\u203A");
        colour = QColor(140, 150, 160);
        break;
      case CellAccessory::none:
        return;
    }
    painter->save();
    painter->setPen(colour);
    QFont font = option.font;
    font.setPixelSize(18);
    painter->setFont(font);
    painter->drawText(option.rect.adjusted(0, 0, -14, 0), Qt::AlignRight | Qt::AlignVCenter, glyph);
    painter->restore();
  }
};

// Text rows are padded; rows drawn by widgets lay out their own insets, at their exact height.
QString listStyle(bool textRows) {
  return QStringLiteral(
             "QListWidget { background-color: black; color: white; border: none; font-size: 15px; "
             "}"
             "QListWidget::item { padding: %1; border-bottom: 1px solid rgb(40, 44, 48); }"
             "QListWidget::item:selected { background-color: rgb(52, 60, 68); }")
      .arg(textRows ? QStringLiteral("8px 12px") : QStringLiteral("0px"));
}

}  // namespace

TableViewController::TableViewController(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  list_ = new QListWidget(this);
  list_->setObjectName(QStringLiteral("tableView"));
  list_->setFocusPolicy(Qt::NoFocus);
  list_->setStyleSheet(listStyle(/*textRows=*/true));
  list_->setItemDelegate(new AccessoryDelegate(list_));
  layout->addWidget(list_);
  connect(list_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    if (!item->data(kRowRole).isValid()) return;  // a header
    didSelectRowAtIndexPath(
        {item->data(kSectionRole).toLongLong(), item->data(kRowRole).toLongLong()});
  });
}

void TableViewController::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (!loaded_) reloadData();
}

void TableViewController::reloadData() {
  loaded_ = true;
  list_->clear();
  const std::int64_t sections = numberOfSectionsInTableView();
  for (std::int64_t section = 0; section < sections; ++section) {
    const QString header = titleForHeaderInSection(section);
    if (!header.isEmpty()) {
      auto* headerItem = new QListWidgetItem(header.toUpper(), list_);
      headerItem->setFlags(Qt::NoItemFlags);
      headerItem->setForeground(QColor(140, 150, 160));
      QFont font = headerItem->font();
      font.setPixelSize(11);
      font.setBold(true);
      headerItem->setFont(font);
    }
    const std::int64_t rows = numberOfRowsInSection(section);
    for (std::int64_t row = 0; row < rows; ++row) {
      const TableViewCell cell = cellForRowAtIndexPath({section, row});
      auto* item = new QListWidgetItem(cell.text, list_);
      item->setData(kSectionRole, QVariant::fromValue<qlonglong>(section));
      item->setData(kRowRole, QVariant::fromValue<qlonglong>(row));
      item->setData(kAccessoryRole, static_cast<int>(cell.accessory));
      item->setData(Qt::UserRole, cell.text);
      if (const int height = heightForRowAtIndexPath({section, row}); height > 0)
        item->setSizeHint(QSize(0, height));
      if (QWidget* widget = widgetForRowAtIndexPath({section, row})) {
        if (!widgetRows_) list_->setStyleSheet(listStyle(/*textRows=*/false));
        widgetRows_ = true;
        item->setText({});
        list_->setItemWidget(item, widget);
      }
    }
  }
}

int TableViewController::visibleRowCount() const {
  int rows = 0;
  for (int i = 0; i < list_->count(); ++i)
    rows += list_->item(i)->data(kRowRole).isValid();
  return rows;
}

QListWidgetItem* TableViewController::itemAt(IndexPath indexPath) const {
  for (int i = 0; i < list_->count(); ++i) {
    QListWidgetItem* item = list_->item(i);
    if (item->data(kRowRole).isValid() &&
        item->data(kSectionRole).toLongLong() == indexPath.section &&
        item->data(kRowRole).toLongLong() == indexPath.row)
      return item;
  }
  return nullptr;
}

TableViewCell TableViewController::visibleCell(IndexPath indexPath) const {
  const QListWidgetItem* item = itemAt(indexPath);
  if (!item) return {};
  return {item->data(Qt::UserRole).toString(),
          static_cast<CellAccessory>(item->data(kAccessoryRole).toInt())};
}

QWidget* TableViewController::visibleRowWidget(IndexPath indexPath) const {
  QListWidgetItem* item = itemAt(indexPath);
  return item ? list_->itemWidget(item) : nullptr;
}

void TableViewController::tapRow(IndexPath indexPath) {
  if (QListWidgetItem* item = itemAt(indexPath)) {
    list_->setCurrentItem(item);
    emit list_->itemClicked(item);
  }
}

void TableViewController::deselectRow(IndexPath indexPath) {
  if (QListWidgetItem* item = itemAt(indexPath)) item->setSelected(false);
}

}  // namespace platform
