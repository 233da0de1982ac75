#include "window/StateLook.h"

#include "window/DrawnIcon.h"
#include "window/ShownText.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFontDatabase>
#include <QFontInfo>
#include <QPalette>

static const int LONGEST = 300;  // characters of a text in a tool tip

struct Look {
    const char* word;
    QRgb light;  // on a light ground
    QRgb dark;   // on a dark one
    Qt::BrushStyle pattern;
    const char* sign;  // outline in the icon's disc, see DrawnIcon
};

// In the order of ZoJobRow::State.
static const Look LOOKS[] = {
    { QT_TRANSLATE_NOOP("StateLook", "waiting"), 0xFF7A8290, 0xFF9AA3B2, Qt::NoBrush,
      "M8 4.5 L8 8.3 L10.6 9.8" },
    { QT_TRANSLATE_NOOP("StateLook", "running"), 0xFF2468B4, 0xFF5AA2EE, Qt::VerPattern,
      "M6.4 5 L11 8 L6.4 11 Z" },
    { QT_TRANSLATE_NOOP("StateLook", "done"), 0xFF2E8555, 0xFF54B681, Qt::NoBrush,
      "M4.8 8.3 L7.1 10.6 L11.3 5.7" },
    { QT_TRANSLATE_NOOP("StateLook", "failed"), 0xFFC0362C, 0xFFF0746A, Qt::DiagCrossPattern,
      "M5.4 5.4 L10.6 10.6 M10.6 5.4 L5.4 10.6" },
    { QT_TRANSLATE_NOOP("StateLook", "killed"), 0xFF8A5A9E, 0xFFC495D8, Qt::HorPattern,
      "M5.5 5.5 L10.5 5.5 L10.5 10.5 L5.5 10.5 Z" },
    { QT_TRANSLATE_NOOP("StateLook", "timed out"), 0xFFB25C00, 0xFFEBA04E, Qt::BDiagPattern,
      "M5.4 4.8 L10.6 4.8 L5.4 11.2 L10.6 11.2 Z" },
    { QT_TRANSLATE_NOOP("StateLook", "skipped"), 0xFF8C7A1F, 0xFFCDBB5A, Qt::Dense6Pattern,
      "M5 5 L8 8 L5 11 M8.4 5 L11.4 8 L8.4 11" },
    { QT_TRANSLATE_NOOP("StateLook", "cancelled"), 0xFF7A8290, 0xFF9AA3B2, Qt::Dense7Pattern,
      "M4.8 8 L11.2 8" },
    { QT_TRANSLATE_NOOP("StateLook", "unknown"), 0xFF7A8290, 0xFF9AA3B2, Qt::Dense7Pattern,
      "M6 6.4 C6 4 10 4 10 6.4 C10 8 8 7.8 8 9.4 M8 11 L8 11.6" },
};

static const Look& lookOf(ZoJobRow::State state)
{
    return LOOKS[state >= ZoJobRow::WAITING && state <= ZoJobRow::UNKNOWN ? state
                                                                          : ZoJobRow::UNKNOWN];
}

static QString translated(const char* text)
{
    return QCoreApplication::translate("StateLook", text);
}

QString stateWord(ZoJobRow::State state)
{
    return translated(lookOf(state).word);
}

QString stateMeaning(const ZoJobRow& job)
{
    switch (job.state) {
    case ZoJobRow::WAITING:
        return translated("Waiting for its turn");
    case ZoJobRow::RUNNING:
        return translated("Running");
    case ZoJobRow::DONE:
        return job.status < 0 ? translated("Done; its exit status was not recorded")
                              : translated("Done");
    case ZoJobRow::FAILED:
        return job.status < 0 ? translated("Failed; it left no exit status")
                              : translated("Failed with exit status %1").arg(job.status);
    case ZoJobRow::KILLED:
        return translated("Killed");
    case ZoJobRow::TIMED_OUT:
        return translated("Ended because its time was up");
    case ZoJobRow::SKIPPED:
        return translated("Not run: the job that it needs did not end well");
    case ZoJobRow::CANCELLED:
        return translated("Cancelled before it ran");
    default:
        return translated("In a state that this program does not know");
    }
}

QString jobSummary(const ZoJobRow& job)
{
    QString text = job.name + "   " + job.description.left(LONGEST);
    if (job.description != job.command)
        text += "\n" + job.command.left(LONGEST);
    text += "\n" + stateMeaning(job);
    if (job.started > 0)
        text += "\n" + translated("%1, for %2")
                           .arg(fullTime(job.started),
                                duration(job.runTime(QDateTime::currentSecsSinceEpoch())));
    if (!job.lastLines.isEmpty())
        text += "\n\n" + job.lastLines;
    return text;
}

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

QFont fixedFont()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (!QFontInfo(font).fixedPitch())  // a desktop without settings, with Qt 5
        font.setFamily("monospace");
    return font;
}

QColor stateColor(ZoJobRow::State state, bool dark)
{
    return QColor::fromRgba(dark ? lookOf(state).dark : lookOf(state).light);
}

Qt::BrushStyle statePattern(ZoJobRow::State state)
{
    return lookOf(state).pattern;
}

QIcon stateIcon(ZoJobRow::State state)
{
    static QIcon icons[ZoJobRow::UNKNOWN + 1];  // one for each state: the table asks often
    QIcon& icon = icons[state >= 0 && state <= ZoJobRow::UNKNOWN ? state : ZoJobRow::UNKNOWN];
    if (icon.isNull())
        icon = QIcon(new DrawnIcon(lookOf(state).sign, DrawnIcon::DISC, lookOf(state).light,
                                   lookOf(state).dark));
    return icon;
}

// Outlines on a grid of 16 by 16.
static const struct {
    const char* name;
    const char* path;
} ICONS[] = {
    { "new", "M8 3 L8 13 M3 8 L13 8" },
    { "run-all", "M3 3.5 L8.5 8 L3 12.5 Z M8.5 3.5 L14 8 L8.5 12.5 Z" },
    { "run", "M4.5 3 L12.5 8 L4.5 13 Z" },
    { "kill", "M4 4 L12 4 L12 12 L4 12 Z" },
    { "remove", "M3 4.5 L13 4.5 M6.5 4.5 L6.5 2.8 L9.5 2.8 L9.5 4.5 M4.5 4.5 L5 13.2 L11 13.2 "
                "L11.5 4.5 M6.8 7 L6.8 11 M9.2 7 L9.2 11" },
    { "sweep", "M2.5 8.5 L5.5 11.5 L12.5 4 M9 13 L13.5 13 M11 10 L13.5 10" },
    { "again", "M12.9 9 C12.2 11.4 10.3 12.8 8 12.8 C5.3 12.8 3.2 10.7 3.2 8 C3.2 5.3 5.3 3.2 8 "
               "3.2 C9.9 3.2 11.4 4.1 12.5 5.6 M12.8 2.6 L12.8 5.9 L9.5 5.9" },
    { "copy",
      "M5.5 5.5 L13 5.5 L13 13.5 L5.5 13.5 Z M10.5 5.5 L10.5 2.5 L3 2.5 L3 10.5 L5.5 10.5" },
    { "folder", "M2.5 12.5 L2.5 3.8 L6.4 3.8 L7.8 5.4 L13.5 5.4 L13.5 12.5 Z" },
    { "open", "M7 3.2 L3.2 3.2 L3.2 12.8 L12.8 12.8 L12.8 9 M9.5 3 L13 3 L13 6.5 M13 3 L7.5 8.5" },
    { "warning", "M8 2.5 L14.2 13.2 L1.8 13.2 Z M8 6.5 L8 9.5 M8 11.2 L8 11.6" },
    { "close", "M4 4 L12 12 M12 4 L4 12" },
    { "app", "M3 4.5 L3.6 4.5 M6 4.5 L13 4.5 M3 8 L3.6 8 M6 8 L13 8 M3 11.5 L3.6 11.5 M6 11.5 "
             "L10.5 11.5" },
};

QIcon drawnIcon(const char* name)
{
    for (const auto& icon : ICONS)
        if (qstrcmp(icon.name, name) == 0)
            return QIcon(new DrawnIcon(icon.path, DrawnIcon::LINES));
    return QIcon();
}
