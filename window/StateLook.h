#ifndef STATELOOK_H
#define STATELOOK_H

#include "window/ZoJobModel.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QIcon>

class QPalette;

// How a job's state looks everywhere: a word, a colour, a shape and a pattern, so that nobody needs
// to see colours.

ZOWINDOW_EXPORT QString stateWord(ZoJobRow::State state);

/// One sentence: the state, and the exit status where it means something.
ZOWINDOW_EXPORT QString stateMeaning(const ZoJobRow& job);

/// What a tool tip says of a job: its description and command, its state, why it failed.
ZOWINDOW_EXPORT QString jobSummary(const ZoJobRow& job);

/// Whether the palette has light text on a dark ground.
ZOWINDOW_EXPORT bool isDark(const QPalette& palette);

/// The desktop's font for output and commands; all its characters have one width.
QFont fixedFont();

ZOWINDOW_EXPORT QColor stateColor(ZoJobRow::State state, bool dark);

/// What lies over the colour in the day's strip.
Qt::BrushStyle statePattern(ZoJobRow::State state);

/// A disc with a sign of its own for each state, sharp at every size.
ZOWINDOW_EXPORT QIcon stateIcon(ZoJobRow::State state);

/// The icon of an action, drawn in the colour of the text around it. Names: "new", "run-all",
/// "run", "kill", "remove", "sweep", "again", "copy", "folder", "open", "warning", "close", "app".
ZOWINDOW_EXPORT QIcon drawnIcon(const char* name);

#endif
