#include "window/RowDelegate.h"

#include <QStyle>

static const int ROOM = 6;  // pixels more than a line of text needs

QSize RowDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    return QStyledItemDelegate::sizeHint(option, index) + QSize(0, ROOM);
}

void RowDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (option->features &
        (QStyleOptionViewItem::HasDecoration | QStyleOptionViewItem::HasCheckIndicator))
        return;  // which the direction would put on the other side
    option->displayAlignment =
        QStyle::visualAlignment(option->direction, option->displayAlignment) | Qt::AlignAbsolute;
    option->direction = option->text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight;
}
