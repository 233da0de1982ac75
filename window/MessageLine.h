#ifndef MESSAGELINE_H
#define MESSAGELINE_H

#include "window/ZoWindowExport.h"

#include <QFrame>

class QLabel;
class QToolButton;

/// One line for what went wrong and what to do about it. It takes no room while all is well. What
/// lasts, as a queue that cannot be read, stands until it is over; anything else until it is
/// closed.
class ZOWINDOW_EXPORT MessageLine : public QFrame
{
    Q_OBJECT

public:
    explicit MessageLine(QWidget* parent = nullptr);

    /// Shows what happened just now; an empty text takes it away.
    void tell(const QString& text);

    /// Shows what is wrong at present; an empty text when nothing is.
    void setProblem(const QString& text);

    QString text() const;

protected:
    void changeEvent(QEvent* event) override;

private:
    void showTexts();
    void colour();

    QString problem;
    QString message;
    QLabel* label;
    QToolButton* button;
    bool colouring = false;
};

#endif
