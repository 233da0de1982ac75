#include "window/MessageLine.h"

#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

static const int ICON = 16;

MessageLine::MessageLine(QWidget* parent) : QFrame(parent)
{
    auto* line = new QHBoxLayout(this);
    line->setContentsMargins(8, 4, 4, 4);
    auto* icon = new QLabel(this);
    icon->setPixmap(drawnIcon("warning").pixmap(ICON, ICON));
    label = new QLabel(this);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setAccessibleName(tr("Message"));
    button = new QToolButton(this);
    button->setIcon(drawnIcon("close"));
    button->setAutoRaise(true);
    button->setToolTip(tr("Close the message"));
    button->setAccessibleName(button->toolTip());
    connect(button, &QToolButton::clicked, this, [this] { tell(QString()); });
    line->addWidget(icon);
    line->addWidget(label, 1);
    line->addWidget(button);
    setAutoFillBackground(true);
    colour();
    hide();
}

void MessageLine::tell(const QString& text)
{
    message = text;
    showTexts();
}

void MessageLine::setProblem(const QString& text)
{
    if (problem == text)
        return;
    problem = text;
    showTexts();
}

QString MessageLine::text() const
{
    return label->text();
}

void MessageLine::showTexts()
{
    QString both = problem;
    if (!message.isEmpty())
        both += (both.isEmpty() ? QString() : "\n") + message;
    label->setText(visibleText(both));
    button->setVisible(!message.isEmpty());
    setVisible(!both.isEmpty());
}

void MessageLine::colour()
{
    colouring = true;
    QColor ground = stateColor(ZoJobRow::TIMED_OUT, isDark(palette()));
    ground.setAlpha(46);
    QPalette colours;
    colours.setColor(QPalette::Window, ground);
    setPalette(colours);
    colouring = false;
}

void MessageLine::changeEvent(QEvent* event)
{
    QFrame::changeEvent(event);
    if (event->type() == QEvent::ApplicationPaletteChange && !colouring)
        colour();
}
