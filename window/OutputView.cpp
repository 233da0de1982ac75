#include "window/OutputView.h"

#include "window/StateLook.h"

#include <QEvent>
#include <QScrollBar>
#include <QTextBlock>
#include <utility>

static const int MAX_LINES = 20000;

OutputView::OutputView(QWidget* parent) : QPlainTextEdit(parent)
{
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setFont(fixedFont());
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setWordWrapMode(QTextOption::WrapAnywhere);
    setAccessibleName(tr("Output of the job"));
    dark = isDark(palette());
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, [this] {
        if (isAtEnd())
            emit cameToEnd();
    });
}

void OutputView::restart()
{
    text.clear();
    clear();
}

bool OutputView::isAtEnd() const
{
    return verticalScrollBar()->value() >= verticalScrollBar()->maximum();
}

QTextCharFormat OutputView::format(const TerminalStyle& style) const
{
    QTextCharFormat format;
    QColor ink = palette().color(QPalette::Text), ground;
    if (style.foreground >= 0)
        ink = terminalColor(style.foreground, dark);
    if (style.background >= 0)
        ground = terminalColor(style.background, !dark);
    if (style.inverse) {
        const QColor letters = ground.isValid() ? ground : palette().color(QPalette::Base);
        ground = std::exchange(ink, letters);
    }
    if (style.faint)
        ink.setAlpha(150);
    format.setForeground(ink);
    if (ground.isValid())
        format.setBackground(ground);
    format.setFontWeight(style.bold ? QFont::Bold : QFont::Normal);
    format.setFontItalic(style.italic);
    format.setFontUnderline(style.underline);
    return format;
}

void OutputView::insertLine(QTextCursor& cursor, const TerminalLine& line) const
{
    for (const TerminalRun& run : line)
        cursor.insertText(run.text, format(run.style));
}

void OutputView::append(const QByteArray& bytes)
{
    const bool follow = isAtEnd();
    const int place = verticalScrollBar()->value();
    // Lines go at the top only while nobody reads there.
    setMaximumBlockCount(follow ? MAX_LINES : 0);
    text.take(bytes);
    QTextCursor cursor(document());
    cursor.beginEditBlock();
    cursor.movePosition(QTextCursor::End);
    cursor.movePosition(QTextCursor::StartOfBlock, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    for (const TerminalLine& line : std::exchange(text.ended, {})) {
        insertLine(cursor, line);
        cursor.insertBlock();
    }
    insertLine(cursor, text.current());
    cursor.endEditBlock();
    verticalScrollBar()->setValue(follow ? verticalScrollBar()->maximum() : place);
}

void OutputView::changeEvent(QEvent* event)
{
    QPlainTextEdit::changeEvent(event);
    if (event->type() != QEvent::PaletteChange || dark == isDark(palette()))
        return;
    dark = isDark(palette());
    emit coloursChanged();
}
