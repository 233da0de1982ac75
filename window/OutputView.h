#ifndef OUTPUTVIEW_H
#define OUTPUTVIEW_H

#include "window/ZoWindowExport.h"

#include "window/TerminalText.h"

#include <QPlainTextEdit>

/// Shows what a command has printed, in a terminal's colours. While the view stands at its end it
/// follows what comes; a reader further up is left where they are.
class ZOWINDOW_EXPORT OutputView : public QPlainTextEdit
{
    Q_OBJECT

public:
    explicit OutputView(QWidget* parent = nullptr);

    /// Empties the view.
    void restart();

    /// Shows the next bytes behind what is there.
    void append(const QByteArray& bytes);

    bool isAtEnd() const;

signals:
    /// The colours of the desktop have changed, so that what is shown should be shown anew.
    void coloursChanged();

    /// The reader has come back to the end.
    void cameToEnd();

protected:
    void changeEvent(QEvent* event) override;

private:
    void insertLine(QTextCursor& cursor, const TerminalLine& line) const;
    QTextCharFormat format(const TerminalStyle& style) const;

    TerminalText text;
    bool dark = false;
};

#endif
