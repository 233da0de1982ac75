#ifndef DRAWNICON_H
#define DRAWNICON_H

#include <QIconEngine>
#include <QPainterPath>

/// An icon from an outline in the path language of SVG (M, L, C and Z with absolute places, on a
/// grid of 16 by 16). It is drawn at whatever size is asked for, in the colours of the palette that
/// is in use at that moment, so that it fits a light and a dark desktop at every scale.
class DrawnIcon : public QIconEngine
{
public:
    enum Style { LINES, DISC };  ///< strokes in the text's colour; a coloured disc with light ones

    explicit DrawnIcon(const char* outline, Style style, QRgb light = 0, QRgb dark = 0);

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override;
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override;
    QIconEngine* clone() const override { return new DrawnIcon(*this); }

private:
    QPainterPath path;
    Style style;
    QRgb light;
    QRgb dark;
};

#endif
