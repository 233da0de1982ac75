#ifndef TERMINALTEXT_H
#define TERMINALTEXT_H

#include "window/ZoWindowExport.h"

#include <QByteArray>
#include <QColor>
#include <QString>
#include <QVector>

/// How a piece of a command's output looks. Colours: -1 the view's own, 0 to 255 the terminal's
/// table, from RGB on a colour of its own.
struct TerminalStyle {
    static constexpr int RGB = 0x1000000;

    int foreground = -1;
    int background = -1;
    bool bold = false;
    bool faint = false;
    bool italic = false;
    bool underline = false;
    bool inverse = false;

    bool operator==(const TerminalStyle& other) const
    {
        return foreground == other.foreground && background == other.background &&
               bold == other.bold && faint == other.faint && italic == other.italic &&
               underline == other.underline && inverse == other.inverse;
    }
};

/// What colour a number of TerminalStyle is, readable on a dark or a light ground. Not for -1.
ZOWINDOW_EXPORT QColor terminalColor(int number, bool dark);

struct TerminalRun {
    QString text;
    TerminalStyle style;
};
using TerminalLine = QVector<TerminalRun>;

/// Reads what a command prints as a terminal would, as far as a log needs it: UTF-8, a carriage
/// return goes back to the start of the line, which is then overwritten, colours and the erasing of
/// a line take effect. Every other control character appears as its sign.
class ZOWINDOW_EXPORT TerminalText
{
public:
    static constexpr int MAX_LINE = 4096;  ///< characters; a longer line goes on in the next one

    /// Lines that have ended since somebody took them from here.
    QVector<TerminalLine> ended;

    /// Takes the next bytes, which may begin and end within a character or a sequence.
    void take(const QByteArray& bytes);

    /// The line that has not ended yet.
    TerminalLine current() const { return runs(cells); }

    void clear() { *this = TerminalText(); }

private:
    struct Cell {
        uint character;
        TerminalStyle style;
    };
    using Cells = QVector<Cell>;

    static TerminalLine runs(const Cells& cells);
    void takeCharacter(uint c);
    void takeInSequence(uint c);
    void endSequence(uint c);
    void put(uint c);
    void putVisible(uint c);
    void showSequence();
    void endLine();
    void eraseLine(int how);
    void setStyle(const QVector<int>& codes);
    int takeColor(const QVector<int>& codes, int& place) const;

    QByteArray rest;   // the start of a character whose other bytes have yet to come
    QString sequence;  // an escape sequence from its ESC on, as far as it has come
    Cells cells;       // the current line
    int column = 0;
    TerminalStyle style;
};

#endif
