#include "window/PanelParts.h"

#include "window/DayStrip.h"
#include "window/ElidedLabel.h"
#include "window/JobTable.h"
#include "window/JobView.h"
#include "window/MessageLine.h"
#include "window/NewJobDialog.h"
#include "window/OutputView.h"
#include "window/RemoveDialog.h"
#include "window/ShownText.h"
#include "window/StateLook.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QToolBar>
#include <QVBoxLayout>
#include <algorithm>

static const int LONGEST = 200;  // characters of a description in a question

ZoJobPanelParts::ZoJobPanelParts(const QString& rootDirectory, ZoJobPanel* owner)
    : QObject(owner),
      panel(owner),
      model(new ZoJobModel(owner)),
      link(new QueueLink(rootDirectory, owner)),
      actions(new PanelActions(owner)),
      directory(QDir::currentPath())
{
    build();
    connectActions();
    connectViews();
    updateActions();
    link->start();
}

void ZoJobPanelParts::build()
{
    auto* column = new QVBoxLayout(panel);
    column->setContentsMargins(8, 0, 8, 0);
    column->setSpacing(4);
    message = new MessageLine(panel);
    strip = new DayStrip(model, panel);
    table = new JobTable(model, panel);
    view = new JobView(link, panel);
    splitter = new QSplitter(Qt::Vertical, panel);
    splitter->addWidget(table);
    splitter->addWidget(view);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setChildrenCollapsible(false);
    column->addWidget(makeBar());
    column->addWidget(message);
    column->addWidget(strip);
    column->addWidget(splitter, 1);
    column->addWidget(makeFoot());
    panel->setFocusProxy(table);
    table->setFocus();
}

QWidget* ZoJobPanelParts::makeBar()
{
    auto* bar = new QToolBar(panel);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->setIconSize(QSize(16, 16));
    for (const auto which : { ZoJobPanel::NEW_JOB, ZoJobPanel::RUN_ALL, ZoJobPanel::RUN,
                              ZoJobPanel::KILL, ZoJobPanel::REMOVE, ZoJobPanel::SUBMIT_AGAIN })
        bar->addAction(actions->actions[which]);
    auto* space = new QWidget(bar);
    space->setFixedWidth(12);
    bar->addWidget(space);
    filter = new QLineEdit(bar);
    filter->setPlaceholderText(PanelActions::tr("Filter (Ctrl+F)"));
    filter->setClearButtonEnabled(true);
    filter->setAccessibleName(PanelActions::tr("Filter"));
    filter->setMinimumWidth(110);
    bar->addWidget(filter);
    return bar;
}

QWidget* ZoJobPanelParts::makeFoot()
{
    auto* foot = new QWidget(panel);
    auto* line = new QHBoxLayout(foot);
    line->setContentsMargins(2, 0, 2, 4);
    counts = new QLabel(foot);
    counts->setTextFormat(Qt::PlainText);
    server = new ElidedLabel(foot);
    counts->setAccessibleName(PanelActions::tr("Numbers of jobs"));
    server->setAccessibleName(PanelActions::tr("Server"));
    server->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    line->addWidget(counts);
    line->addWidget(server, 1);
    return foot;
}

void ZoJobPanelParts::connectActions()
{
    const auto on = [this](ZoJobPanel::Action which, auto call) {
        connect(actions->actions[which], &QAction::triggered, this, call);
    };
    on(ZoJobPanel::NEW_JOB, [this] { newJob(); });
    on(ZoJobPanel::RUN_ALL, [this] { link->runAll(); });
    on(ZoJobPanel::RUN, [this] {
        for (const ZoJobRow& job : table->selectedJobs())
            link->run(keyOf(job));
    });
    on(ZoJobPanel::KILL, [this] { askKill(); });
    on(ZoJobPanel::REMOVE, [this] { askRemove(table->selectedJobs()); });
    on(ZoJobPanel::REMOVE_FINISHED, [this] { removeFinished(); });
    on(ZoJobPanel::SUBMIT_AGAIN, [this] { submitAgain(); });
    on(ZoJobPanel::COPY_COMMAND, [this] { copyCommand(); });
    on(ZoJobPanel::COPY_OUTPUT, [this] { copyOutput(); });
    on(ZoJobPanel::REFRESH, [this] { link->refresh(); });
    on(ZoJobPanel::FIND, [this] {
        filter->setFocus(Qt::ShortcutFocusReason);
        filter->selectAll();
    });
}

void ZoJobPanelParts::connectViews()
{
    connect(link, &QueueLink::queueRead, this, &ZoJobPanelParts::takeQueue);
    connect(link, &QueueLink::answered, this, &ZoJobPanelParts::takeAnswer);
    connect(link, &QueueLink::slowChanged, this, &ZoJobPanelParts::updateFoot);
    connect(filter, &QLineEdit::textChanged, table->filter, &JobFilter::setWords);
    connect(table, &JobTable::currentJobChanged, this, &ZoJobPanelParts::updateView);
    connect(table, &JobTable::selectedJobsChanged, this, &ZoJobPanelParts::updateActions);
    connect(model, &ZoJobModel::dataChanged, this, &ZoJobPanelParts::updateView);
    connect(strip, &DayStrip::picked, this, [this](int row) {
        filter->clear();  // the strip shows every job, so a click must reach it
        table->selectRow(row);
    });
    connect(view->output, &QPlainTextEdit::textChanged, this, &ZoJobPanelParts::updateActions);
    connect(view, &JobView::failed, message, &MessageLine::tell);
    connect(table, &QWidget::customContextMenuRequested, this, [this](const QPoint& place) {
        QMenu menu(panel);
        menu.setToolTipsVisible(true);
        for (const auto which :
             { ZoJobPanel::RUN, ZoJobPanel::KILL, ZoJobPanel::REMOVE, ZoJobPanel::SUBMIT_AGAIN,
               ZoJobPanel::COPY_COMMAND, ZoJobPanel::COPY_OUTPUT, ZoJobPanel::REMOVE_FINISHED })
            menu.addAction(actions->actions[which]);
        menu.exec(table->viewport()->mapToGlobal(place));
    });
}

void ZoJobPanelParts::takeQueue(const QueueSnapshot& queue)
{
    now = queue;
    now.rows.clear();
    message->setProblem(queue.problem);
    if (queue.problem.isEmpty() || !queue.rows.isEmpty())
        model->update(queue.rows);  // what was shown stays while nothing can be read
    selectWanted();
    updateView();
    updateActions();
    updateFoot();
    emit panel->queueChanged();
}

/// Selects the job that was made here; at first the one that runs, else the last one.
void ZoJobPanelParts::selectWanted()
{
    int row = model->find(wanted.id, wanted.directory);
    if (row < 0 && first && !model->rows().isEmpty()) {
        row = int(model->rows().size()) - 1;
        for (int i = row; i >= 0; --i)
            if (model->rows()[i].state == ZoJobRow::RUNNING)
                row = i;
    }
    first = first && model->rows().isEmpty();
    if (row < 0)
        return;
    wanted = JobKey();
    table->selectRow(row);
}

void ZoJobPanelParts::takeAnswer(const Answer& answer)
{
    if (dialog && dialog->isWaitingFor(answer.request))
        return;  // the dialog shows it
    if (!answer.ok || !answer.text.isEmpty())
        message->tell(answer.text);
    if (answer.ok && answer.made.id > 0)
        wanted = answer.made;
}

void ZoJobPanelParts::updateView()
{
    const ZoJobRow* const job = table->currentJob();
    view->show(job);
    strip->setCurrentRow(job ? int(job - model->rows().constData()) : -1);
}

ActionSituation ZoJobPanelParts::situation() const
{
    ActionSituation situation;
    situation.queue = model->rows();
    situation.selected = table->selectedJobs();
    situation.server = now.server;
    situation.serverText = now.serverText;
    situation.hasOutput = !view->output->document()->isEmpty();
    return situation;
}

void ZoJobPanelParts::updateActions()
{
    actions->update(situation());
}

void ZoJobPanelParts::updateFoot()
{
    int numbers[ZoJobRow::UNKNOWN + 1] = {};
    for (const ZoJobRow& job : model->rows())
        ++numbers[job.state];
    QStringList words;
    for (int state = 0; state <= ZoJobRow::UNKNOWN; ++state)
        if (numbers[state] > 0)
            words += QString("%1 %2").arg(QString::number(numbers[state]),
                                          stateWord(ZoJobRow::State(state)));
    counts->setText(words.isEmpty() ? PanelActions::tr("No jobs") : words.join(" \u00B7 "));
    server->setText(link->isSlow() ? PanelActions::tr("Waiting for the server \u2026")
                                   : now.serverText);
    server->setToolTip(plainToolTip(server->text()));
}

void ZoJobPanelParts::newJob()
{
    if (!dialog) {
        dialog = new NewJobDialog(link, directory, panel);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        connect(dialog, &NewJobDialog::submitted, this,
                [this](const JobKey& job, const QString& text) {
                    wanted = job;
                    directory = dialog->chosenDirectory();
                    message->tell(text);
                    selectWanted();
                });
    }
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
}

/// A question with a button that does it, and Cancel.
static QMessageBox* makeQuestion(QWidget* parent, const QString& title, const QString& text,
                                 const QString& more, const QString& button)
{
    auto* box = new QMessageBox(QMessageBox::Warning, title, text, QMessageBox::Cancel, parent);
    box->setTextFormat(Qt::PlainText);
    box->setInformativeText(more);
    box->addButton(button, QMessageBox::AcceptRole);
    box->setDefaultButton(QMessageBox::Cancel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    return box;
}

/// What will become of the jobs, in a sentence or two.
static QString killQuestion(const ZoJobRows& jobs)
{
    const auto waits = [](const ZoJobRow& job) { return job.state == ZoJobRow::WAITING; };
    const int waiting = int(std::count_if(jobs.begin(), jobs.end(), waits));
    if (jobs.size() == 1)
        return (waiting > 0
                    ? PanelActions::tr("Kill job %1 before it runs?\n%2")
                    : PanelActions::tr("End job %1 with everything that it has started?\n%2"))
            .arg(jobs[0].name, visibleLine(jobs[0].description.left(LONGEST)));
    if (waiting == jobs.size())
        return PanelActions::tr("Kill %1 jobs before they run?").arg(waiting);
    return PanelActions::tr("Kill %1 jobs? What runs ends with everything that it has started.")
        .arg(jobs.size());
}

void ZoJobPanelParts::askKill()
{
    const ZoJobRows jobs = killable(situation());
    if (jobs.isEmpty())
        return;
    const auto count = [](const ZoJobRows& of, ZoJobRow::State state) {
        return int(std::count_if(of.begin(), of.end(),
                                 [state](const ZoJobRow& job) { return job.state == state; }));
    };
    const int chosen = count(jobs, ZoJobRow::WAITING);
    const int left = count(model->rows(), ZoJobRow::WAITING) - chosen;
    QStringList more;
    if (chosen > 0)
        more += PanelActions::tr("A waiting job stays in the queue and ends at once when its turn "
                                 "comes; until then \u201CSubmit again\u201D brings it back.");
    if (left > 0 && chosen < jobs.size())
        more += PanelActions::tr("%1 waiting jobs stay in the queue until you run them.").arg(left);
    auto* box = makeQuestion(panel, PanelActions::tr("Kill jobs"), killQuestion(jobs),
                             more.join('\n'), PanelActions::tr("&Kill"));
    connect(box, &QMessageBox::buttonClicked, this, [this, box, jobs](QAbstractButton* button) {
        if (box->buttonRole(button) != QMessageBox::AcceptRole)
            return;
        // The waiting ones first: none of them is to start when the running one has ended.
        for (const auto state : { ZoJobRow::WAITING, ZoJobRow::RUNNING })
            for (const ZoJobRow& job : jobs)
                if (job.state == state)
                    link->kill(keyOf(job));
    });
    box->open();
}

void ZoJobPanelParts::askRemove(const ZoJobRows& jobs)
{
    ZoJobRows removable;
    for (const ZoJobRow& job : jobs)
        if (job.state != ZoJobRow::RUNNING)
            removable.append(job);
    auto* box = new RemoveDialog(removable, panel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QDialog::accepted, this, [this, box] { link->remove(box->chosen()); });
    box->open();
}

void ZoJobPanelParts::removeFinished()
{
    ZoJobRows finished;
    for (const ZoJobRow& job : model->rows())
        if (job.hasEnded() && !job.hasFailed())
            finished.append(job);
    askRemove(finished);
}

void ZoJobPanelParts::submitAgain()
{
    for (const ZoJobRow& job : table->selectedJobs())
        link->submitAgain(keyOf(job));
}

void ZoJobPanelParts::copyCommand()
{
    QStringList commands;
    for (const ZoJobRow& job : table->selectedJobs())
        commands += job.command;
    QApplication::clipboard()->setText(commands.join('\n'));
}

void ZoJobPanelParts::copyOutput()
{
    const QString selected = view->output->textCursor().selectedText();
    QString text = selected.isEmpty() ? view->output->toPlainText() : selected;
    QApplication::clipboard()->setText(text.replace(QChar::ParagraphSeparator, '\n'));
}
