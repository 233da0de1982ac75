#ifndef DAYSTRIP_H
#define DAYSTRIP_H

#include "window/ZoJobModel.h"

#include <QWidget>

/// Draws when each job ran as a bar over time, and what waits behind the present moment. The wheel
/// zooms at the pointer, dragging moves, a double click shows everything again; a click picks a
/// job.
class ZOWINDOW_EXPORT DayStrip : public QWidget
{
    Q_OBJECT

public:
    explicit DayStrip(const ZoJobModel* jobModel, QWidget* parent = nullptr);

    /// Marks the job of this row; -1 for none.
    void setCurrentRow(int row);

    /// Shows all runs of the last day, and goes on doing so as time passes.
    void fit();

    /// The row of the job that is drawn at this place; -1 for none.
    int rowAt(const QPoint& place);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    void picked(int row);

protected:
    void paintEvent(QPaintEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void layOut();
    void layOutWaiting();
    void fillColumns(int row);
    void zoomAt(double x, double factor);
    void moveBy(double pixels);
    void step(int by);
    void hover(const QPoint& place, const QPoint& onScreen);

    double toX(double time) const;
    double toTime(double x) const;
    int laneTop() const;
    int laneHeight() const;
    QColor faint(int alpha) const;

    void paintAxis(QPainter& painter) const;
    void paintRuns(QPainter& painter) const;
    void paintRun(QPainter& painter, const QRectF& bar, int row) const;
    void paintMark(QPainter& painter, const QRectF& bar, int row) const;
    void paintWaiting(QPainter& painter) const;
    void paintWait(QPainter& painter) const;

    const ZoJobModel* model;
    double start = 0;      // time at the left edge, seconds since the epoch
    double span = 3600;    // seconds up to the right edge of the plot
    bool fitted = true;    // nobody has zoomed or moved
    double now = 0;        // when the layout was made
    int plotWidth = 0;     // pixels for the past
    QVector<int> column;   // the row that each pixel of the plot shows; -1 for none
    QVector<int> waiting;  // rows that have a box behind the present
    int moreWaiting = 0;   // those for which there is no room
    int currentRow = -1;
    int hoveredRow = -1;
    QPoint pressed;
    int dragged = 0;  // pixels since the button went down
};

#endif
