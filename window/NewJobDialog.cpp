#include "window/NewJobDialog.h"

#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QCheckBox>
#include <QCompleter>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>
#include <utility>

static const qint64 LARGEST_SCRIPT = 4 * 1024 * 1024;  // bytes; beyond that it is no script

NewJobDialog::NewJobDialog(QueueLink* queueLink, const QString& startDirectory, QWidget* parent)
    : QDialog(parent), link(queueLink)
{
    setWindowTitle(tr("New job"));
    makeFields();
    directory->setText(startDirectory);
    connect(command, &QPlainTextEdit::textChanged, this, &NewJobDialog::check);
    connect(directory, &QLineEdit::textChanged, this, &NewJobDialog::check);
    connect(link, &QueueLink::answered, this, &NewJobDialog::take);
    for (const int key : { Qt::Key_Return, Qt::Key_Enter })
        connect(new QShortcut(QKeySequence(Qt::CTRL | Qt::Key(key)), this), &QShortcut::activated,
                this, &NewJobDialog::submit);
    check();
    resize(560, 340);
}

static QToolButton* iconButton(const char* icon, const QString& text)
{
    auto* button = new QToolButton;
    button->setIcon(drawnIcon(icon));
    button->setToolTip(text);
    button->setAccessibleName(text);
    return button;
}

static QLayout* side(QWidget* wide, QToolButton* button, Qt::Alignment place)
{
    auto* line = new QHBoxLayout;
    line->addWidget(wide, 1);
    line->addWidget(button, 0, place);
    return line;
}

static QLabel* buddyLabel(const QString& text, QWidget* field)
{
    auto* name = new QLabel(text);
    name->setBuddy(field);
    return name;
}

void NewJobDialog::makeFields()
{
    auto* form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    command = new QPlainTextEdit(this);
    command->setFont(fixedFont());
    command->setTabChangesFocus(true);
    command->setPlaceholderText(tr("As at a prompt: one command, or a script of several lines"));
    command->setAccessibleName(tr("Command or script"));
    auto* load = iconButton("open", tr("Take the script from a file"));
    connect(load, &QToolButton::clicked, this, &NewJobDialog::loadScript);
    form->addRow(buddyLabel(tr("&Command"), command), side(command, load, Qt::AlignTop));
    directory = new QLineEdit(this);
    directory->setAccessibleName(tr("Directory that the command runs in"));
    auto* completer = new QCompleter(directory);
    auto* folders = new QFileSystemModel(completer);
    folders->setFilter(QDir::Dirs | QDir::NoDotAndDotDot);
    folders->setRootPath(QString());
    completer->setModel(folders);
    directory->setCompleter(completer);
    auto* choose = iconButton("folder", tr("Choose the directory"));
    connect(choose, &QToolButton::clicked, this, &NewJobDialog::chooseDirectory);
    form->addRow(buddyLabel(tr("&Directory"), directory),
                 side(directory, choose, Qt::AlignVCenter));
    label = new QLineEdit(this);
    label->setPlaceholderText(tr("What the list shows; without it the command"));
    label->setAccessibleName(tr("Label"));
    form->addRow(tr("&Label"), label);
    run = new QCheckBox(tr("&Run at once, or as soon as its turn comes"), this);
    run->setChecked(true);
    form->addRow(QString(), run);
    problem = new QLabel(this);
    problem->setTextFormat(Qt::PlainText);
    problem->setWordWrap(true);
    problem->setTextInteractionFlags(Qt::TextSelectableByMouse);
    problem->setAccessibleName(tr("Message"));
    form->addRow(problem);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    submitButton = buttons->addButton(tr("&Submit"), QDialogButtonBox::AcceptRole);
    submitButton->setToolTip(tr("Puts the job into the queue (Ctrl+Return)"));
    connect(buttons, &QDialogButtonBox::accepted, this, &NewJobDialog::submit);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

void NewJobDialog::check()
{
    submitButton->setEnabled(request == 0 && !command->toPlainText().trimmed().isEmpty() &&
                             !directory->text().isEmpty());
}

void NewJobDialog::chooseDirectory()
{
    const QString chosen = QFileDialog::getExistingDirectory(
        this, tr("Directory that the command runs in"), directory->text());
    if (!chosen.isEmpty())
        directory->setText(chosen);
}

void NewJobDialog::loadScript()
{
    const QString name = QFileDialog::getOpenFileName(this, tr("Script"), directory->text());
    if (name.isEmpty())
        return;
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly))
        problem->setText(tr("Cannot read %1: %2").arg(name, file.errorString()));
    else if (file.size() > LARGEST_SCRIPT)
        problem->setText(tr("%1 is too large for a script").arg(name));
    else
        command->setPlainText(QString::fromUtf8(file.readAll()));
}

QString NewJobDialog::chosenDirectory() const
{
    return directory->text();
}

void NewJobDialog::setBusy(bool on)
{
    command->setReadOnly(on);
    directory->setReadOnly(on);
    label->setReadOnly(on);
    run->setEnabled(!on);
    check();
}

void NewJobDialog::submit()
{
    if (!submitButton->isEnabled())
        return;
    NewJob job;
    job.command = command->toPlainText();
    job.label = label->text();
    job.directory = QFile::encodeName(directory->text());
    job.run = run->isChecked();
    request = link->submit(job);
    problem->setText(tr("Submitting \u2026"));
    setBusy(true);
}

void NewJobDialog::take(const Answer& answer)
{
    if (answer.request != request)
        return;
    answered = std::exchange(request, 0);
    setBusy(false);
    problem->setText(answer.ok ? QString() : visibleText(answer.text));
    if (!answer.ok)
        return;
    emit submitted(answer.made, answer.text);
    accept();
}
