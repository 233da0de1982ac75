#include "window/JobView.h"

#include "window/ElidedLabel.h"
#include "window/OutputView.h"
#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QScrollArea>
#include <QStyle>
#include <QTabWidget>
#include <QToolButton>
#include <QUrl>

static const int MOST_UNREAD = 100000;  // lines kept for a reader who is further up

static QLabel* plainLabel(QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);  // whatever looks like HTML is the user's own text
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    return label;
}

static QPlainTextEdit* readOnlyText(QWidget* parent, const QString& name)
{
    auto* text = new QPlainTextEdit(parent);
    text->setReadOnly(true);
    text->setFont(fixedFont());
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    text->setAccessibleName(name);
    text->setFrameShape(QFrame::NoFrame);
    return text;
}

JobView::JobView(QueueLink* queueLink, QWidget* parent) : QWidget(parent), link(queueLink)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(makeHeader());
    glance = new ElidedLabel(this);
    glance->setFont(fixedFont());
    glance->setMargin(6);
    column->addWidget(glance);
    tabs = new QTabWidget(this);
    connect(tabs, &QTabWidget::currentChanged, this, &JobView::showGlance);
    tabs->addTab(makeOutput(), tr("&Output"));
    tabs->addTab(makeDetails(), tr("&Details"));
    environment = readOnlyText(this, tr("Environment of the job"));
    tabs->addTab(environment, tr("&Environment"));
    column->addWidget(tabs, 1);
    connect(link, &QueueLink::outputRead, this, &JobView::takeOutput);
    connect(link, &QueueLink::detailsRead, this, &JobView::takeDetails);
    connect(output, &OutputView::coloursChanged, this, &JobView::start);
    connect(output, &OutputView::cameToEnd, this, [this] {
        if (paused)
            wantMore();
    });
    show(nullptr);
}

QWidget* JobView::makeHeader()
{
    auto* header = new QWidget(this);
    auto* line = new QHBoxLayout(header);
    line->setContentsMargins(2, 2, 0, 0);
    icon = new QLabel(header);
    title = new ElidedLabel(header);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    state = plainLabel(header);
    openOutput = makeOpener("open", tr("Open the whole output in another program"));
    connect(openOutput, &QToolButton::clicked, this, [this] { open(details.log); });
    line->addWidget(icon);
    line->addWidget(title, 1);
    line->addWidget(state);
    line->addWidget(openOutput);
    return header;
}

QWidget* JobView::makeOutput()
{
    auto* page = new QWidget(this);
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    notice = plainLabel(page);
    notice->setWordWrap(true);
    notice->setMargin(4);
    notice->hide();
    output = new OutputView(page);
    output->setFrameShape(QFrame::NoFrame);
    column->addWidget(notice);
    column->addWidget(output, 1);
    return page;
}

/// Where the layout begins: a text goes to the side of its own direction unless it is told.
static Qt::Alignment beginning(const QWidget* widget)
{
    return QStyle::visualAlignment(widget->layoutDirection(), Qt::AlignLeft) | Qt::AlignAbsolute |
           Qt::AlignVCenter;
}

QLabel* JobView::addLine(QFormLayout* form, const QString& name)
{
    QLabel* const label = plainLabel(this);
    label->setWordWrap(true);
    label->setAlignment(beginning(this));
    label->setAccessibleName(name);
    form->addRow(name, label);
    return label;
}

QToolButton* JobView::makeOpener(const char* name, const QString& text)
{
    auto* button = new QToolButton(this);
    button->setIcon(drawnIcon(name));
    button->setAutoRaise(true);
    button->setToolTip(text);
    button->setAccessibleName(text);
    return button;
}

/// A path to be read, scrolled and copied.
static QLineEdit* pathField(QWidget* parent)
{
    auto* field = new QLineEdit(parent);
    field->setReadOnly(true);
    field->setFrame(false);
    field->setAlignment(beginning(parent));
    QPalette colours;
    colours.setColor(QPalette::Base, Qt::transparent);
    field->setPalette(colours);
    return field;
}

static void showPath(QLineEdit* field, const QByteArray& path)
{
    const QString text = visibleLine(QString::fromUtf8(path));
    if (field->text() == text)
        return;  // somebody may have selected it
    field->setText(text);
    field->setCursorPosition(0);
    field->setToolTip(plainToolTip(text));
}

/// A path with the button that opens it behind.
static QWidget* withButton(QLineEdit* field, QToolButton* button)
{
    auto* both = new QWidget;
    auto* line = new QHBoxLayout(both);
    line->setContentsMargins(0, 0, 0, 0);
    line->addWidget(field, 1);
    line->addWidget(button);
    return both;
}

QWidget* JobView::makeDetails()
{
    auto* page = new QWidget(this);
    auto* halves = new QHBoxLayout(page);
    halves->setContentsMargins(0, 0, 0, 0);
    auto* facts = new QWidget(page);
    auto* form = new QFormLayout(facts);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setVerticalSpacing(2);
    status = addLine(form, tr("State"));
    submitted = addLine(form, tr("Submitted"));
    started = addLine(form, tr("Started"));
    ended = addLine(form, tr("Ended"));
    time = addLine(form, tr("Time"));
    identity = addLine(form, tr("Id"));
    workDirectory = pathField(facts);
    directory = pathField(facts);
    openWorkDirectory = makeOpener("folder", tr("Show in the file manager"));
    openDirectory = makeOpener("folder", tr("Show in the file manager"));
    workDirectory->setAccessibleName(tr("Runs in"));
    directory->setAccessibleName(tr("Its own files"));
    form->addRow(tr("Runs in"), withButton(workDirectory, openWorkDirectory));
    form->addRow(tr("Its own files"), withButton(directory, openDirectory));
    connect(openWorkDirectory, &QToolButton::clicked, this,
            [this] { open(details.workDirectory); });
    connect(openDirectory, &QToolButton::clicked, this, [this] { open(row.directory); });
    auto* scroll = new QScrollArea(page);
    scroll->setWidget(facts);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    script = readOnlyText(page, tr("Command or script of the job"));
    halves->addWidget(scroll, 1);
    halves->addWidget(script, 1);
    return page;
}

void JobView::show(const ZoJobRow* job)
{
    const bool same = shown == (job != nullptr) && (!job || row.isSameJob(*job));
    shown = job != nullptr;
    row = job ? *job : ZoJobRow();
    if (!same) {
        details = JobDetails();
        start();
    }
    showTexts();
}

/// Has everything of the job read from its beginning.
void JobView::start()
{
    output->restart();
    notice->hide();
    serial = link->show(shown ? keyOf(row) : JobKey());
    if (shown)
        wantMore();
}

void JobView::wantMore()
{
    paused = !isVisible() || (!output->isAtEnd() && output->blockCount() > MOST_UNREAD);
    if (!paused)
        link->wantOutput();
}

void JobView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (paused && shown)
        wantMore();
}

void JobView::takeOutput(const OutputPiece& piece)
{
    if (piece.serial != serial)
        return;
    if (piece.restart) {
        output->restart();
        notice->setVisible(piece.skipped > 0 || !piece.problem.isEmpty());
        notice->setText(piece.problem.isEmpty()
                            ? tr("Only the end is shown; %1 before it are in the file.")
                                  .arg(QLocale().formattedDataSize(piece.skipped))
                            : piece.problem);
    }
    if (!piece.bytes.isEmpty())
        output->append(piece.bytes);
    wantMore();
}

void JobView::takeDetails(const JobDetails& read)
{
    if (!shown || !(read.key == keyOf(row)))
        return;
    details = read;
    const auto put = [](QPlainTextEdit* view, const QString& text) {
        if (view->toPlainText() != text)
            view->setPlainText(text);
    };
    put(script, visibleText(details.script));
    put(environment, visibleText(details.environment));
    showTexts();
}

void JobView::showTexts()
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    icon->setVisible(shown);
    icon->setPixmap(stateIcon(row.state).pixmap(16, 16));
    title->setText(shown ? row.name + "   " + visibleLine(row.description)
                         : tr("Select a job to see its output"));
    title->setToolTip(plainToolTip(row.description));
    QString meaning = shown ? stateMeaning(row) : QString();
    state->setText(row.started > 0 ? tr("%1, %2").arg(meaning, duration(row.runTime(now)))
                                   : meaning);
    status->setText(row.status >= 0 && !row.hasFailed()
                        ? tr("%1, exit status %2").arg(meaning).arg(row.status)
                        : meaning);
    submitted->setText(fullTime(row.id));
    started->setText(fullTime(row.started));
    ended->setText(fullTime(row.ended));
    time->setText(row.started > 0 ? duration(row.runTime(now)) : QString());
    identity->setText(shown ? QString::number(row.id) : QString());
    showPath(workDirectory, details.workDirectory);
    showPath(directory, row.directory);
    openWorkDirectory->setEnabled(!details.workDirectory.isEmpty());
    openDirectory->setEnabled(shown);
    openOutput->setEnabled(row.started > 0 && !details.log.isEmpty());
    tabs->setEnabled(shown);
    showGlance();
}

/// A failed job's last lines, on a ground that catches the eye; not beside the output itself, which
/// stands at its end.
void JobView::showGlance()
{
    const bool needed = !row.lastLines.isEmpty() && tabs->currentIndex() > 0;
    glance->setVisible(needed);
    if (!needed)
        return;
    glance->setText(visibleText(row.lastLines));
    QColor ground = stateColor(row.state, isDark(palette()));
    ground.setAlpha(38);
    QPalette colours = palette();
    colours.setColor(QPalette::Window, ground);
    glance->setPalette(colours);
    glance->setAutoFillBackground(true);
}

void JobView::open(const QByteArray& path)
{
    const QString file = QFile::decodeName(path);
    if (!QFileInfo::exists(file))
        emit failed(tr("%1 is not there any more").arg(visibleLine(file)));
    else if (!QDesktopServices::openUrl(QUrl::fromLocalFile(file)))
        emit failed(tr("No program of this desktop opens %1").arg(visibleLine(file)));
}
