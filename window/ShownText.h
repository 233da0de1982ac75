#ifndef SHOWNTEXT_H
#define SHOWNTEXT_H

#include "window/ZoWindowExport.h"

#include <QString>

/// The text on one line, safe to show: control characters appear as their signs, and what would
/// turn the direction of the text around them appears by its name.
ZOWINDOW_EXPORT QString visibleLine(const QString& text);

/// The same, but line ends and tabs stay.
ZOWINDOW_EXPORT QString visibleText(const QString& text);

/// The sign or name under which such a character is shown; empty for any other character.
ZOWINDOW_EXPORT QString visibleControl(uint character);

/// A tool tip that shows exactly this text, whatever looks like HTML in it. Long texts are cut.
ZOWINDOW_EXPORT QString plainToolTip(const QString& text);

/// Run time as "0:07", "12:07" or "1:02:07".
ZOWINDOW_EXPORT QString duration(qint64 seconds);

/// Local time, "14:07:09" today, "2026-01-31 14:07" otherwise; empty for 0.
ZOWINDOW_EXPORT QString shortTime(qint64 time);

/// Local date and time to the second; empty for 0.
ZOWINDOW_EXPORT QString fullTime(qint64 time);

#endif
