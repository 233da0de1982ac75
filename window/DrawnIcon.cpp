#include "window/DrawnIcon.h"

#include "window/StateLook.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QStringList>

static const double GRID = 16;

/// Takes one "x y" from the words.
static QPointF takePoint(QStringList& words)
{
    const double x = words.takeFirst().toDouble();
    return QPointF(x, words.takeFirst().toDouble());
}

static QPainterPath parse(const char* outline)
{
    QString text = outline;
    for (const char command : { 'M', 'L', 'C', 'Z' })
        text.replace(command, QString(" %1 ").arg(command));
    QStringList words = text.simplified().split(' ');
    QPainterPath path;
    while (!words.isEmpty()) {
        const QString command = words.takeFirst();
        if (command == "M") {
            path.moveTo(takePoint(words));
        } else if (command == "L") {
            path.lineTo(takePoint(words));
        } else if (command == "C") {
            const QPointF first = takePoint(words), second = takePoint(words);
            path.cubicTo(first, second, takePoint(words));
        } else {
            path.closeSubpath();
        }
    }
    return path;
}

DrawnIcon::DrawnIcon(const char* outline, Style how, QRgb onLight, QRgb onDark)
    : path(parse(outline)), style(how), light(onLight), dark(onDark)
{
}

void DrawnIcon::paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State)
{
    const QPalette palette = QGuiApplication::palette();
    const bool onDark = isDark(palette);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const double size = std::min(rect.width(), rect.height());
    painter->translate(QRectF(rect).center() - QPointF(size / 2, size / 2));
    painter->scale(size / GRID, size / GRID);
    const QPalette::ColorGroup group =
        mode == QIcon::Disabled ? QPalette::Disabled : QPalette::Active;
    QColor stroke = palette.color(group, QPalette::WindowText);
    if (style == DISC) {
        painter->setPen(Qt::NoPen);
        const QColor colour = QColor::fromRgba(onDark ? dark : light);
        const QColor ground = onDark ? QColor(0x16, 0x18, 0x1C) : QColor(Qt::white);
        const bool selected = mode == QIcon::Selected;  // on the colour of a selection
        painter->setBrush(selected ? ground : colour);
        painter->drawEllipse(QPointF(8, 8), 7, 7);
        stroke = selected ? colour : ground;
    }
    painter->setPen(
        QPen(stroke, style == DISC ? 1.7 : 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter->setBrush(Qt::NoBrush);
    painter->drawPath(path);
    painter->restore();
}

QPixmap DrawnIcon::pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state)
{
    QPixmap image(size);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paint(&painter, QRect(QPoint(0, 0), size), mode, state);
    return image;
}
