#include "window/ShownText.h"

#include <QDateTime>
#include <QStringList>
#include <algorithm>

static const int WIDEST_LINE = 80;      // characters of a line of a tool tip
static const int TOOL_TIP_SIZE = 1000;  // characters; more covers the screen

static const uint PICTURES = 0x2400;  // a sign for each control character from 0 to 31
static const uint DELETE_SIGN = 0x2421;

static bool turnsDirection(uint c)
{
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069);
}

QString visibleControl(uint c)
{
    if (c < 0x20)
        return QChar(ushort(PICTURES + c));
    if (c == 0x7F)
        return QChar(ushort(DELETE_SIGN));
    if (turnsDirection(c) || (c >= 0x80 && c < 0xA0) || c == 0x2028 || c == 0x2029)
        return QString("\u27E8U+%1\u27E9").arg(c, 4, 16, QChar('0')).toUpper();
    return QString();
}

/// The text with the signs of its control characters, but for those to be kept.
static QString visible(const QString& text, const char* kept)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        const QString sign =
            QLatin1String(kept).contains(c) ? QString() : visibleControl(c.unicode());
        if (sign.isEmpty())
            shown += c;
        else
            shown += sign;
    }
    return shown;
}

QString visibleLine(const QString& text)
{
    return visible(text, "");
}

QString visibleText(const QString& text)
{
    return visible(text, "\n\t");
}

QString plainToolTip(const QString& text)
{
    if (text.isEmpty())
        return text;
    QString part = visibleText(text.left(TOOL_TIP_SIZE));
    if (text.size() > TOOL_TIP_SIZE)
        part += QChar(0x2026);
    // Qt breaks even short lines of such a tip, unless it must not.
    const QStringList lines = part.split('\n');
    const bool isNarrow = std::all_of(
        lines.begin(), lines.end(), [](const QString& line) { return line.size() <= WIDEST_LINE; });
    return QString("<p style='white-space:%1'>").arg(isNarrow ? "pre" : "pre-wrap") +
           part.toHtmlEscaped() + "</p>";
}

QString duration(qint64 seconds)
{
    const qint64 hours = seconds / 3600, minutes = seconds / 60 % 60;
    const QString rest = QString("%1").arg(seconds % 60, 2, 10, QChar('0'));
    if (hours == 0)
        return QString("%1:%2").arg(QString::number(minutes), rest);
    return QString("%1:%2:%3")
        .arg(QString::number(hours), QString("%1").arg(minutes, 2, 10, QChar('0')), rest);
}

QString shortTime(qint64 time)
{
    if (time <= 0)
        return QString();
    const QDateTime local = QDateTime::fromSecsSinceEpoch(time);
    const bool today = local.date() == QDate::currentDate();
    return local.toString(today ? "HH:mm:ss" : "yyyy-MM-dd HH:mm");
}

QString fullTime(qint64 time)
{
    if (time <= 0)
        return QString();
    return QDateTime::fromSecsSinceEpoch(time).toString("yyyy-MM-dd HH:mm:ss");
}
