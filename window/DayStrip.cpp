#include "window/DayStrip.h"

#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QApplication>
#include <QDateTime>
#include <QKeyEvent>
#include <QPainter>
#include <QTimer>
#include <QToolTip>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

static const int MARGIN = 4;  // pixels
static const int BOX = 9, BOX_GAP = 3;
static const int NARROW = 8;
static const int CLICK = 4;                    // moves of fewer pixels are no drag
static const double WAITING_PART = 0.24;       // of the width, at most
static const double SHORTEST = 10;             // seconds
static const double LONGEST = 40 * 24 * 3600;  // seconds
static const double DAY = 24 * 3600;
static const double SMALLEST_FIT = 120;
static const int REFRESH = 20000;  // ms, while nothing happens but that time passes

DayStrip::DayStrip(const ZoJobModel* jobModel, QWidget* parent) : QWidget(parent), model(jobModel)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("When the jobs ran"));
    setAccessibleDescription(
        tr("The arrow keys go from run to run, plus and minus zoom, Home shows "
           "everything"));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    const auto changed = [this] { update(); };
    connect(model, &ZoJobModel::dataChanged, this, changed);
    connect(model, &ZoJobModel::rowsInserted, this, changed);
    connect(model, &ZoJobModel::rowsRemoved, this, changed);
    connect(model, &ZoJobModel::rowsMoved, this, changed);
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, changed);
    timer->start(REFRESH);
}

QSize DayStrip::sizeHint() const
{
    return QSize(600, laneTop() + laneHeight() + fontMetrics().height() + 4);
}

QSize DayStrip::minimumSizeHint() const
{
    return QSize(200, sizeHint().height());
}

int DayStrip::laneTop() const
{
    return MARGIN;
}

int DayStrip::laneHeight() const
{
    return fontMetrics().height() + 12;
}

double DayStrip::toX(double time) const
{
    return MARGIN + (time - start) / span * plotWidth;
}

double DayStrip::toTime(double x) const
{
    return start + (x - MARGIN) / std::max(1, plotWidth) * span;
}

QColor DayStrip::faint(int alpha) const
{
    QColor color = palette().color(QPalette::WindowText);
    color.setAlpha(alpha);
    return color;
}

void DayStrip::setCurrentRow(int row)
{
    currentRow = row;
    update();
}

void DayStrip::fit()
{
    fitted = true;
    update();
}

/// How much somebody should see a job where several share a pixel.
static int weight(ZoJobRow::State state)
{
    switch (state) {
    case ZoJobRow::RUNNING:
        return 3;
    case ZoJobRow::FAILED:
    case ZoJobRow::TIMED_OUT:
    case ZoJobRow::SKIPPED:
        return 2;
    case ZoJobRow::DONE:
        return 0;
    default:
        return 1;
    }
}

void DayStrip::fillColumns(int row)
{
    const ZoJobRow& job = model->rows()[row];
    const double end = job.state == ZoJobRow::RUNNING ? now : double(job.ended);
    if (job.started <= 0 || end < start || job.started > start + span)
        return;
    const double left = toX(double(job.started)) - MARGIN;
    const double right = std::max(toX(end) - MARGIN, left + 2);
    const int behind = int(std::ceil(std::min<double>(right, plotWidth)));
    for (int x = int(std::max(0.0, left)); x < behind; ++x)
        if (column[x] < 0 || weight(model->rows()[column[x]].state) <= weight(job.state))
            column[x] = row;
}

void DayStrip::layOutWaiting()
{
    waiting.clear();
    moreWaiting = 0;
    const int room = int(width() * WAITING_PART) / (BOX + BOX_GAP);
    for (int row = 0; row < model->rows().size(); ++row) {
        if (model->rows()[row].state != ZoJobRow::WAITING)
            continue;
        if (waiting.size() < room)
            waiting.append(row);
        else
            ++moreWaiting;
    }
}

void DayStrip::layOut()
{
    now = QDateTime::currentMSecsSinceEpoch() / 1000.0;
    layOutWaiting();
    int behind = waiting.isEmpty() ? 0 : int(waiting.size()) * (BOX + BOX_GAP) + BOX;
    if (moreWaiting > 0)
        behind += fontMetrics().horizontalAdvance(QString("+%1").arg(moreWaiting)) + BOX_GAP;
    plotWidth = std::max(1, width() - 2 * MARGIN - behind);
    if (fitted) {
        double first = now - SMALLEST_FIT;
        for (const ZoJobRow& job : model->rows())
            if (job.started > 0 && job.started > now - DAY)
                first = std::min(first, double(job.started) - 0.01 * (now - double(job.started)));
        start = first;
        span = now - first;
    }
    column.fill(-1, plotWidth);
    for (int row = 0; row < model->rows().size(); ++row)
        fillColumns(row);
}

int DayStrip::rowAt(const QPoint& place)
{
    layOut();
    if (place.y() < laneTop() || place.y() > laneTop() + laneHeight())
        return -1;
    const int x = place.x() - MARGIN;
    if (x >= 0 && x < column.size())
        return column[x];
    const int box = (x - plotWidth - BOX) / (BOX + BOX_GAP);
    return x >= plotWidth + BOX && box < waiting.size() ? waiting[box] : -1;
}

/// A distance of the axis' marks, in seconds, for at least so many seconds.
static int markStep(double least)
{
    for (const int seconds : { 5, 10, 30, 60, 300, 600, 1800, 3600, 7200, 10800, 21600, 43200 })
        if (seconds >= least)
            return seconds;
    return int(std::ceil(least / DAY) * DAY);
}

void DayStrip::paintAxis(QPainter& painter) const
{
    const QRectF lane(MARGIN, laneTop(), plotWidth, laneHeight());
    painter.setPen(Qt::NoPen);
    painter.setBrush(faint(14));
    painter.drawRoundedRect(lane, 3, 3);
    const int step = markStep(fontMetrics().horizontalAdvance("00:00:00") * 1.8 / plotWidth * span);
    const qint64 offset = QDateTime::currentDateTime().offsetFromUtc();
    const qint64 first = (qint64(start) + offset) / step * step - offset;
    const int base = laneTop() + laneHeight();
    for (qint64 time = first; double(time) <= start + span; time += step) {
        const double x = toX(double(time));
        if (x < MARGIN)
            continue;
        const QDateTime local = QDateTime::fromSecsSinceEpoch(time);
        const bool midnight = (time + offset) % qint64(DAY) == 0;
        const QString text = local.toString(midnight    ? "ddd d MMM"
                                            : step < 60 ? "HH:mm:ss"
                                                        : "HH:mm");
        painter.setPen(faint(midnight ? 110 : 45));
        painter.drawLine(QPointF(x, laneTop()), QPointF(x, base + 4));
        painter.setPen(faint(170));
        if (x + 4 + fontMetrics().horizontalAdvance(text) <= width() - MARGIN)
            painter.drawText(QPointF(x + 4, base + 2 + fontMetrics().ascent()), text);
    }
}

void DayStrip::paintRun(QPainter& painter, const QRectF& bar, int row) const
{
    const ZoJobRow& job = model->rows()[row];
    const bool dark = isDark(palette());
    painter.setPen(Qt::NoPen);
    painter.setBrush(stateColor(job.state, dark));
    const double round = std::min(3.0, bar.width() / 3);
    painter.drawRoundedRect(bar, round, round);
    QColor over = dark ? QColor(0, 0, 0, 105) : QColor(255, 255, 255, 120);
    if (statePattern(job.state) != Qt::NoBrush) {
        painter.setBrush(QBrush(over, statePattern(job.state)));
        painter.drawRoundedRect(bar, round, round);
    }
}

/// Draws a frame round the bars of the current job and the one below the pointer; round the outside
/// of a narrow bar, of which nothing would be left.
void DayStrip::paintMark(QPainter& painter, const QRectF& bar, int row) const
{
    const double out = bar.width() < NARROW ? 1.5 : -0.5;
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(palette().color(QPalette::WindowText), row == currentRow ? 2 : 1));
    painter.drawRoundedRect(bar.adjusted(-out, -out, out, out), 2, 2);
}

void DayStrip::paintRuns(QPainter& painter) const
{
    QVector<QPair<QRectF, int>> marked;  // drawn last, over their neighbours
    for (int x = 0; x < column.size();) {
        const int row = column[x];
        int behind = x + 1;
        while (behind < column.size() && column[behind] == row)
            ++behind;
        // A gap between neighbours, where there is room for one.
        const int gap = behind < column.size() && behind - x > 3 ? 1 : 0;
        const QRectF bar(MARGIN + x, laneTop() + 3, behind - x - gap, laneHeight() - 6);
        if (row >= 0)
            paintRun(painter, bar, row);
        if (row >= 0 && (row == currentRow || row == hoveredRow))
            marked.append({ bar, row });
        x = behind;
    }
    for (const auto& mark : marked)
        paintMark(painter, mark.first, mark.second);
}

void DayStrip::paintWaiting(QPainter& painter) const
{
    const double here = toX(now);
    if (here >= MARGIN && here <= MARGIN + plotWidth + 1) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.drawLine(QPointF(here, laneTop() - 3), QPointF(here, laneTop() + laneHeight() + 3));
    }
    const QColor color = stateColor(ZoJobRow::WAITING, isDark(palette()));
    double x = MARGIN + plotWidth + BOX;
    for (const int row : waiting) {
        const QRectF box(x + 0.5, laneTop() + 6.5, BOX - 1, laneHeight() - 13);
        const bool marked = row == currentRow || row == hoveredRow;
        painter.setPen(
            QPen(marked ? palette().color(QPalette::WindowText) : color, marked ? 2 : 1));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(box, 2, 2);
        x += BOX + BOX_GAP;
    }
    if (moreWaiting > 0) {
        painter.setPen(faint(170));
        painter.drawText(QPointF(x, laneTop() + (laneHeight() + fontMetrics().capHeight()) / 2.0),
                         QString("+%1").arg(moreWaiting));
    }
}

/// How long the current job waited, as a line below its bar.
void DayStrip::paintWait(QPainter& painter) const
{
    if (currentRow < 0 || currentRow >= model->rows().size())
        return;
    const ZoJobRow& job = model->rows()[currentRow];
    const double end = job.started > 0                  ? double(job.started)
                       : job.state == ZoJobRow::WAITING ? now
                                                        : double(job.id);
    const double left = std::max<double>(MARGIN, toX(double(job.id)));
    const double right = std::min<double>(MARGIN + plotWidth, toX(end));
    if (right - left < 2)
        return;
    QPen pen(stateColor(ZoJobRow::WAITING, isDark(palette())), 2, Qt::DotLine);
    painter.setPen(pen);
    const double y = laneTop() + laneHeight() + 1;
    painter.drawLine(QPointF(left, y), QPointF(right, y));
}

void DayStrip::paintEvent(QPaintEvent*)
{
    layOut();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    paintAxis(painter);
    paintRuns(painter);
    paintWait(painter);
    paintWaiting(painter);
    const auto hasRun = [](const ZoJobRow& job) { return job.started > 0; };
    if (std::none_of(model->rows().begin(), model->rows().end(), hasRun)) {
        painter.setPen(faint(150));
        painter.drawText(QRect(MARGIN, laneTop(), plotWidth, laneHeight()), Qt::AlignCenter,
                         tr("No job has run yet"));
    }
    if (hasFocus()) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 1));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5), 3, 3);
    }
}

void DayStrip::zoomAt(double x, double factor)
{
    const double time = toTime(x);
    const double wanted = std::clamp(span * factor, SHORTEST, LONGEST);
    start = time - (time - start) * wanted / span;
    span = wanted;
    fitted = false;
    update();
}

void DayStrip::moveBy(double pixels)
{
    // Up to half a view past the present, so that nobody gets lost in the future.
    start = std::min(start - pixels / plotWidth * span, now - span / 2);
    fitted = false;
    update();
}

void DayStrip::wheelEvent(QWheelEvent* event)
{
    const QPoint turned = event->angleDelta();
    if (std::abs(turned.x()) > std::abs(turned.y()))
        moveBy(turned.x() / 2.0);
    else
        zoomAt(event->position().x(), std::pow(1.2, -turned.y() / 120.0));
    event->accept();
}

void DayStrip::mousePressEvent(QMouseEvent* event)
{
    pressed = event->pos();
    dragged = 0;
}

void DayStrip::mouseMoveEvent(QMouseEvent* event)
{
    if (!(event->buttons() & Qt::LeftButton)) {
        hover(event->pos(), mapToGlobal(event->pos()));
        return;
    }
    const int moved = event->pos().x() - pressed.x();
    dragged += std::abs(moved);
    if (dragged < CLICK)
        return;
    moveBy(moved);
    pressed = event->pos();
}

void DayStrip::mouseReleaseEvent(QMouseEvent* event)
{
    const int row = dragged < CLICK ? rowAt(event->pos()) : -1;
    if (event->button() == Qt::LeftButton && row >= 0)
        emit picked(row);
}

void DayStrip::mouseDoubleClickEvent(QMouseEvent*)
{
    fit();
}

void DayStrip::hover(const QPoint& place, const QPoint& onScreen)
{
    const int row = rowAt(place);
    if (row != hoveredRow)
        update();
    hoveredRow = row;
    if (row < 0) {
        QToolTip::hideText();
        return;
    }
    QToolTip::showText(onScreen, plainToolTip(jobSummary(model->rows()[row])), this);
}

void DayStrip::leaveEvent(QEvent*)
{
    hoveredRow = -1;
    update();
}

/// Picks the next job that has a place in the strip.
void DayStrip::step(int by)
{
    for (int row = currentRow + by; row >= 0 && row < model->rows().size(); row += by)
        if (model->rows()[row].started > 0 || waiting.contains(row)) {
            emit picked(row);
            return;
        }
}

void DayStrip::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Left)
        step(-1);
    else if (event->key() == Qt::Key_Right)
        step(1);
    else if (event->key() == Qt::Key_Plus || event->key() == Qt::Key_Equal)
        zoomAt(MARGIN + plotWidth, 1 / 1.5);
    else if (event->key() == Qt::Key_Minus)
        zoomAt(MARGIN + plotWidth, 1.5);
    else if (event->key() == Qt::Key_Home)
        fit();
    else
        QWidget::keyPressEvent(event);
}
