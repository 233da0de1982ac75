#include "window/ElidedLabel.h"

#include <QPainter>
#include <QStyle>

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const QRect room = contentsRect().adjusted(margin(), margin(), -margin(), -margin());
    QStringList lines = text().split('\n');
    for (QString& line : lines)
        line = fontMetrics().elidedText(line, Qt::ElideRight, room.width());
    const Qt::Alignment place = QStyle::visualAlignment(layoutDirection(), alignment());
    style()->drawItemText(&painter, room, int(place | Qt::AlignAbsolute), palette(), isEnabled(),
                          lines.join('\n'), foregroundRole());
}
